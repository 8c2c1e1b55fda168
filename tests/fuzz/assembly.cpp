// Runs of the whole assembler, see target.h. A run that ends without an error has to have written an object file that the
// reader of object files finds no fault in: that is the one thing tested here beyond what the sanitizers see.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <sys/resource.h>
#include <unistd.h>

#include "cmdline.h"
#include "common/xalloc.h"
#include "options.h"
#include "run.h"
#include "target.h"
#include "zelobj.h"

constexpr rlim_t FILE_LIMIT = 16 << 20, MEMORY_LIMIT = rlim_t{1} << 30;   // bytes

static std::string directory;

struct arguments_t {
    int argc;
    char **argv;   // never freed: the assembler keeps what it gets
};

static arguments_t arguments_of(const std::vector<const char *> &options)
{
    std::vector<char *> &words = *new std::vector<char *>{strdup("/x/aszel8")};
    for (const char *option : options)
        words.push_back(strdup(option));
    words.push_back(strdup("in.as"));
    return {static_cast<int>(words.size()), words.data()};
}

static void start(const std::vector<const char *> &options)
{
    const arguments_t all = arguments_of(options);
    run_start(all.argc, all.argv);
}

void target_prepare()
{
    directory = std::filesystem::temp_directory_path() / "fuzz_XXXXXX";
    if (!mkdtemp(directory.data()))
        abort();
    if (!assembly.reads_input)
        start(assembly.always);
}

void target_clean() { std::filesystem::remove_all(directory); }

static void limit(decltype(RLIMIT_CORE) what, rlim_t most)
{
    const rlimit both = {most, most};
    setrlimit(what, &both);
}

static void write_file(const char *name, std::string_view text) { std::ofstream(name, std::ios::binary) << text; }

static void verify_object(const char *name)
{
    std::ifstream in(name, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    zo_file file = zo_read({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
    const std::vector<std::string> faults = zo_verify(file);
    for (const std::string &fault : faults)
        dprintf(STDERR_FILENO, "%s: %s\n", name, fault.c_str());
    if (!faults.empty())
        abort();
}

// What is selected behind the comment character.
static std::string_view letters_of(std::string_view input)
{
    return input.starts_with(assembly.comment) ? input.substr(1, input.find('\n') - 1) : std::string_view();
}

void target_run(std::string_view input)
{
    if (chdir(directory.c_str()) != 0)
        abort();
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, FILE_LIMIT);
    if (!XALLOC_CHECKED)   // the sanitizer maps terabytes
        limit(RLIMIT_AS, MEMORY_LIMIT);
    signal(SIGXFSZ, SIG_IGN);
    const std::string_view letters = letters_of(input);
    write_file(assembly.file, input);
    if (assembly.source)
        write_file("in.as", assembly.source(input, letters));
    std::vector<const char *> options;
    for (const choice_t &choice : assembly.choices)
        if (letters.find(choice.letter) != letters.npos)
            options.push_back(choice.option);
    if (assembly.reads_input) {
        options.insert(options.begin(), assembly.always.begin(), assembly.always.end());
        start(options);
    } else {
        const arguments_t more = arguments_of(options);
        cmdline_options(more.argc, more.argv);
    }
    remove("in.obj");
    const int status = run_assemble();
    if (status == 0 && !opt.asm_output)
        verify_object("in.obj");
    exit(status);
}

bool target_may_take_long(std::string_view input) { return assembly.may_take_long && assembly.may_take_long(input); }
