// See child.h.
#include "child.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sanitizer/common_interface_defs.h>

#include "run.h"

extern "C" uint8_t __start___sancov_cntrs[], __stop___sancov_cntrs[];   // the coverage counters

constexpr rlim_t SECONDS = 5;

static uint8_t *counters;   // the child's, shared

static size_t counters_size() { return static_cast<size_t>(__stop___sancov_cntrs - __start___sancov_cntrs); }

// Runs ahead of the library's own exit handler, which would take any exit for a fault.
static void hand_back()
{
    memcpy(counters, __start___sancov_cntrs, counters_size());
    _exit(0);
}

// The path of a file in memory, which is made at first.
static std::string file_with(std::string_view text, int *file)
{
    if (*file < 0)
        *file = memfd_create("input", 0);
    if (ftruncate(*file, 0) != 0 || pwrite(*file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        abort();
    return "/proc/self/fd/" + std::to_string(*file);
}

[[noreturn]] static void assemble(std::vector<std::string> words)
{
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    const rlimit seconds = {SECONDS, SECONDS}, no_core = {0, 0};
    setrlimit(RLIMIT_CPU, &seconds);
    setrlimit(RLIMIT_CORE, &no_core);
    __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(dup(STDERR_FILENO))));
    if (!freopen("/dev/null", "w", stderr) || !freopen("/dev/null", "w", stdout))
        abort();
    atexit(hand_back);
    exit(run_main(static_cast<int>(argv.size()), argv.data()));
}

void run_child(child_t child, std::string_view input)
{
    static int input_file = -1, source_file = -1;
    if (!counters) {
        void *shared = mmap(nullptr, counters_size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED)
            abort();
        counters = static_cast<uint8_t *>(shared);
    }
    const std::string path = file_with(input, &input_file);
    std::vector<std::string> words = {"/x/aszel8", "-O/dev/null"};
    for (std::string word : child.always)
        words.push_back(word.ends_with("FILE") ? word.replace(word.size() - 4, 4, path) : word);
    for (size_t i = 0; i < child.some.size(); i++)
        if (!input.empty() && (input.back() ^ '\n') >> i & 1)
            words.push_back(child.some[i]);
    words.push_back(child.source.empty() ? path : file_with(child.source, &source_file));
    memset(counters, 0, counters_size());
    const pid_t pid = fork();
    if (pid == 0)
        assemble(words);
    int status;
    pid_t ended;
    do
        ended = waitpid(pid, &status, 0);
    while (ended < 0 && errno == EINTR);   // the library's alarm clock
    if (pid < 0 || ended != pid)
        abort();
    memcpy(__start___sancov_cntrs, counters, counters_size());
    const bool out_of_time = WIFSIGNALED(status) && (WTERMSIG(status) == SIGKILL || WTERMSIG(status) == SIGXCPU);
    if (status != 0 && !(out_of_time && child.may_take_long))
        abort();
}
