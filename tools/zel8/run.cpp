// run: the processes. Sources are assembled side by side; what they say is kept and shown in their order.
//
// Every output is written under another name beside its place and renamed when all went well, so that nobody ever sees half a
// file, and a failed run leaves none. What words for the assembler or the linker alone let them write, listings and the like, has
// its name written in objects, or its form told by it, and is written in place: a copy of what was there before is kept until all
// went well, and takes its place otherwise. A signal ends the children, removes these files, and then ends this process as it would have.
// Signals are blocked and waited for, which has no races; children get the mask back. One that says nobody reads what it writes is
// ignored: the files are put in order all the same.
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "zel8.h"

namespace fs = std::filesystem;

extern char **environ;

static const std::string ANNOTATE = "--annotate=";

struct job_t {
    std::vector<std::string> words;
    int log = -1;   // what it says; -1: goes where this process's goes
    int out = -1;   // what it writes to standard output, likewise
    pid_t pid = 0;
    bool group = false;   // has processes of its own, which a signal ends with it
    bool failed = false;
    int status = 0;   // of its exit
};

struct output_t {
    std::string place, written;   // the same for what can't be renamed, such as a device
    bool rule = false;            // for Make, to which is added what stands in the rule `more`
    std::string more = {};
};

// A file that one of the tools writes in place, and a copy of what it held; empty: there was none.
struct aside_t {
    std::string place, before;
    fs::file_time_type time;
};

// What becomes of a source.
struct unit_t {
    std::string name, source;    // as it is told; what is read, which is something else of standard input
    std::string text;            // what the assembler reads
    std::string object, place;   // what it writes, and the name that this has for the user
    std::string annotation;      // empty: none
    std::string rule, read;      // where the rules for Make go, the assembler's and the preprocessor's
    bool preprocessed = false;
};

static struct {
    std::vector<output_t> outputs;
    std::vector<aside_t> asides;
    std::string directory;   // for what is only read by another of the processes
    std::string standard_input;
    std::string unlisted;        // how the words of a rule begin that it isn't to tell; empty: it tells all
    std::vector<z8_said> said;   // for a log of all
    size_t units;
    sigset_t waited, before, ignored;   // ignored here alone
} st;

static void clean_up(bool good)
{
    std::error_code ignored;
    for (const aside_t &a : st.asides) {
        const bool touched = a.before.empty() || fs::last_write_time(a.place, ignored) != a.time;
        if (!good && touched && !a.before.empty())
            fs::rename(a.before, a.place, ignored);
        else
            fs::remove(good || !touched ? a.before : a.place, ignored);
    }
    for (const output_t &o : st.outputs)
        if (o.written != o.place)
            fs::remove(o.written, ignored);
    if (!st.directory.empty())
        fs::remove_all(st.directory, ignored);
}

static int fail(const std::string &what, int why)
{
    if (why == EEXIST) {   // name_beside
        fprintf(stderr, "zel8: error: %s: another output has this name\n", what.c_str());
        return 1;
    }
    fprintf(stderr, "zel8: error: %s: %s\n", what.c_str(), strerror(why));
    return 1;
}

// The name to write to. Empty, with errno set, if none can be made or the output is that of another source, too.
static std::string name_beside(const std::string &place, bool dry)
{
    std::error_code ignored;
    std::string name = place;
    for (const output_t &other : st.outputs)
        if (other.place == place) {
            errno = EEXIST;
            return "";
        }
    if (!dry && (!fs::exists(place, ignored) || fs::is_regular_file(place, ignored))) {
        name += ".XXXXXX";
        const int fd = mkstemp(name.data());
        if (fd < 0)
            return "";
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, 0666 & ~mask);
        close(fd);
    }
    st.outputs.push_back({place, name});
    return name;
}

static bool is_aside(const std::string &place)
{
    return std::any_of(st.asides.begin(), st.asides.end(), [&](const aside_t &a) { return a.place == place; });
}

// False, with errno set, if what is there can't be copied, or this run has written there.
static bool put_aside(const std::string &place)
{
    std::error_code error;
    const auto written = [&](const output_t &other) { return other.place == place; };
    if (std::any_of(st.outputs.begin(), st.outputs.end(), written) || is_aside(place)) {
        errno = EEXIST;
        return false;
    }
    const bool exists = fs::exists(place, error);
    if (exists && !fs::is_regular_file(place, error))
        return true;
    aside_t a = {place, "", {}};
    if (exists) {
        a.before = place + ".XXXXXX";
        const int fd = mkstemp(a.before.data());
        if (fd < 0)
            return false;
        close(fd);
        a.time = fs::last_write_time(place, error);
        if (!fs::copy_file(place, a.before, fs::copy_options::overwrite_existing, error) || error) {
            std::error_code ignored;
            fs::remove(a.before, ignored);
            errno = error.value();
            return false;
        }
        fs::last_write_time(a.before, a.time, error);
    }
    st.asides.push_back(a);
    return true;
}

// Files that the words, or the last of two that are alike, name as outputs. `source`: the name of a listing without one.
static std::vector<std::string> written_in_place(const std::vector<std::string> &words, const std::string &source)
{
    std::map<std::string, std::string> places;   // by the word
    for (const std::string &word : words) {
        if (word.starts_with("-L") || word.starts_with("-l")) {
            const std::string &named = places["-L"];
            places["-L"] = word.size() > 2 ? word.substr(2) : named;
        }
        for (const char *option : {"--opt-report=", "--annotate=", "--map="})
            if (word.starts_with(option))
                places[option] = word.substr(strlen(option));
    }
    if (const auto listing = places.find("-L"); listing != places.end()) {
        if (listing->second.empty())
            listing->second = fs::path(source).replace_extension(".lst");
        places["relocations"] = fs::path(listing->second).replace_extension(".rlf");
    }
    std::vector<std::string> list;
    for (const auto &[word, place] : places)
        if (!place.empty())
            list.push_back(place);
    return list;
}

static bool put_all_aside(const z8_options &o, const std::vector<std::string> &words, const std::string &source)
{
    for (const std::string &place : o.dry ? std::vector<std::string>() : written_in_place(words, source))
        if (!put_aside(place)) {
            fail("can't write " + place, errno);
            return false;
        }
    return true;
}

static void show(const job_t &job)
{
    for (size_t i = 0; i < job.words.size(); i++) {
        const bool plain = job.words[i].find_first_of(" \t\n\"'\\$`;&|<>()*?#~") == std::string::npos;
        fprintf(stderr, plain ? "%s%s" : "%s'%s'", i ? " " : "", job.words[i].c_str());
    }
    fputc('\n', stderr);
}

static bool start(job_t &job)
{
    std::vector<char *> argv;
    for (std::string &word : job.words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    if (job.log >= 0)
        posix_spawn_file_actions_adddup2(&files, job.log, STDERR_FILENO);
    if (job.out >= 0)
        posix_spawn_file_actions_adddup2(&files, job.out, STDOUT_FILENO);
    posix_spawnattr_setsigmask(&attributes, &st.before);
    posix_spawnattr_setsigdefault(&attributes, &st.ignored);
    posix_spawnattr_setflags(&attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                             (job.group ? POSIX_SPAWN_SETPGROUP : 0)));
    const int error = posix_spawnp(&job.pid, argv[0], &files, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        job.pid = 0;
        job.failed = true;
        if (error == ENOENT && job.words[0] == "cpp")
            fputs("zel8: error: no C preprocessor \"cpp\" on this machine: install it, on Debian with the package cpp\n",
                  stderr);
        else
            fail("can't run " + job.words[0], error);
    }
    return error == 0;
}

static void end_by_signal(std::vector<job_t> &jobs, int number)
{
    for (const job_t &job : jobs)
        if (job.pid > 0)
            kill(job.group ? -job.pid : job.pid, SIGTERM);
    for (const job_t &job : jobs)
        if (job.pid > 0)
            waitpid(job.pid, nullptr, 0);
    clean_up(false);
    signal(number, SIG_DFL);
    sigprocmask(SIG_SETMASK, &st.before, nullptr);
    raise(number);
    _exit(128 + number);
}

static void reap(std::vector<job_t> &jobs, unsigned &running)
{
    int status;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;)
        for (job_t &job : jobs)
            if (job.pid == pid) {
                job.pid = 0;
                job.status = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
                job.failed = !WIFEXITED(status) || job.status != 0;
                running--;
                if (WIFSIGNALED(status))
                    fprintf(stderr, "zel8: error: %s ended by signal %d\n", job.words[0].c_str(), WTERMSIG(status));
            }
}

// All that stands in the file, which is closed.
static std::string take(int file)
{
    char block[65536];
    std::string text;
    lseek(file, 0, SEEK_SET);
    for (ssize_t n; (n = read(file, block, sizeof block)) > 0;)
        text.append(block, static_cast<size_t>(n));
    close(file);
    return text;
}

static void show_text(const std::string &text) { fwrite(text.data(), 1, text.size(), stderr); }

// At most that many at a time; 0: as many as the options say.
static bool run_jobs(std::vector<job_t> &jobs, const z8_options &o, unsigned most)
{
    if (most == 0)
        most = o.jobs ? o.jobs : jobs.size() < 2 ? 1 : std::max(1U, std::thread::hardware_concurrency());
    const bool formed = o.messages == "sarif" || o.messages == "json";
    for (job_t &job : jobs) {
        if (o.verbose || o.dry)
            show(job);
        if (!o.dry && (jobs.size() > 1 || job.group || formed))
            job.log = memfd_create("messages", MFD_CLOEXEC);
    }
    if (o.dry)
        return true;
    unsigned running = 0;
    for (size_t next = 0; next < jobs.size() || running > 0;) {
        while (next < jobs.size() && running < most)
            if (start(jobs[next++]))
                running++;
            else
                next = jobs.size();
        if (running == 0)
            continue;
        siginfo_t info;
        const int number = sigwaitinfo(&st.waited, &info);
        if (number > 0 && number != SIGCHLD)
            end_by_signal(jobs, number);
        reap(jobs, running);
    }
    bool good = true;
    for (job_t &job : jobs) {
        const z8_said said = {fs::path(job.words[0]).filename(), job.log >= 0 ? take(job.log) : "", !job.failed};
        good = good && !job.failed;
        if (job.status != 0 && job.log >= 0 && said.text.empty())
            fprintf(stderr, "zel8: error: %s ended with status %d and no message\n", job.words[0].c_str(), job.status);
        if (o.messages == "sarif")
            st.said.push_back(said);
        else
            show_text(o.messages == "json" ? z8_json(said) : said.text);
    }
    return good;
}

// All or, if the system refuses a name, what comes ahead of it.
static int rename_outputs(const z8_options &o)
{
    for (output_t &out : st.outputs) {
        if (out.rule && !z8_finish_rule(out.written, out.more, st.unlisted, o.phony))
            return fail("can't write " + out.place, errno);
        if (out.written != out.place && rename(out.written.c_str(), out.place.c_str()) != 0)
            return fail("can't make " + out.place, errno);
        out.written = out.place;
    }
    return 0;
}

// Standard input is read before anything is made, while a signal may still end this process.
static bool read_standard_input(std::string &text)
{
    char block[65536];
    ssize_t n;
    while ((n = read(STDIN_FILENO, block, sizeof block)) > 0 || (n < 0 && errno == EINTR))
        text.append(block, n > 0 ? static_cast<size_t>(n) : 0);
    return n == 0;
}

static int make_folder(const z8_options &o)
{
    bool needed = false;
    for (const z8_input &input : o.inputs)
        needed |= input.path == "-" || input.kind == Z8_PREPROCESSED || (input.kind != Z8_OBJECT && o.links());
    if (!needed || o.only_preprocess)
        return 0;
    const char *temporary = getenv("TMPDIR");
    st.directory = std::string(temporary && *temporary ? temporary : "/tmp") + "/zel8.XXXXXX";
    if (!o.dry && !mkdtemp(st.directory.data()))
        return fail("can't make a folder " + std::exchange(st.directory, ""), errno);
    return 0;
}

// Names of what comes out of a source, and what standard input holds as a file.
static int settle(const z8_options &o, const z8_input &input, unit_t &unit)
{
    const bool standard = input.path == "-";
    unit.name = standard ? "stdin" : input.path;
    unit.source = input.path;
    unit.preprocessed = input.kind == Z8_PREPROCESSED;
    if (o.only_preprocess)
        return 0;
    const std::string stem = fs::path(unit.name).stem();
    const std::string temporary = st.directory + "/" + std::to_string(st.units++) + "-" + stem;
    if (standard) {
        unit.source = temporary + ".in";
        if (!o.dry) {
            std::ofstream copy(unit.source, std::ios::binary);
            copy << (unit.preprocessed ? "#line 1 \"stdin\"\n" : "") << st.standard_input;
            if (!copy.flush())
                return fail("can't write " + unit.source, errno);
        }
    }
    unit.text = unit.preprocessed ? temporary + ".i" : unit.source;
    if (unit.preprocessed && o.deps)
        unit.read = temporary + ".d";
    unit.place = !o.output.empty() && !o.links() ? o.output : stem + (o.text ? ".opt" : ".obj");
    if (o.only_check)
        unit.object = "/dev/null";
    else if (o.links())
        unit.object = temporary + ".obj";
    else if (unit.object = name_beside(unit.place, o.dry); unit.object.empty())
        return fail("can't write " + unit.place, errno);
    if (!o.deps)
        return 0;
    const std::string rule = o.dep_file.empty() ? fs::path(unit.place).replace_extension(".d").string() : o.dep_file;
    if (unit.rule = name_beside(rule, o.dry); unit.rule.empty())
        return fail("can't write " + rule, errno);
    st.outputs.back().rule = true;
    st.outputs.back().more = unit.read;
    return 0;
}

// Where the include files of the chips are, for the preprocessor; the assembler knows it. It is searched last.
static std::string header_folder(const std::string &bin) { return fs::path(bin).parent_path() / "zel" / "include"; }

static std::vector<std::string> preprocessor_words(const z8_options &o, const std::string &bin,
                                                   const std::vector<std::string> &macros)
{
    std::vector<std::string> words{"cpp", "-x", "assembler-with-cpp", "-traditional-cpp", "-undef", "-nostdinc"};
    words.insert(words.end(), macros.begin(), macros.end());
    for (const std::string &name : o.undefines)
        words.push_back("-U" + name);
    for (const auto &[name, value] : o.defines)
        words.push_back("-D" + name + value);
    for (const std::string &folder : o.folders)
        words.push_back("-I" + folder);
    words.push_back("-I" + header_folder(bin));
    if (o.silent)
        words.push_back("-w");
    if (o.messages == "sarif" || o.messages == "json")
        words.push_back("-fno-diagnostics-show-caret");
    if (o.werror)
        words.push_back("-Werror");
    return words;
}

// False if a source is wrong; then none is assembled.
static bool preprocess(const z8_options &o, const std::string &bin, const std::vector<unit_t> &units)
{
    std::vector<std::string> macros;
    std::vector<job_t> jobs;
    for (const unit_t &unit : units) {
        if (!unit.preprocessed)
            continue;
        if (const std::string error = macros.empty() ? z8_chip_macros(o, bin, macros) : ""; !error.empty()) {
            fprintf(stderr, "zel8: error: %s\n", error.c_str());
            return false;
        }
        job_t job;
        job.words = preprocessor_words(o, bin, macros);
        if (unit.source != unit.name && !o.only_preprocess)   // a copy of standard input, which would include from here
            job.words.insert(job.words.end(), {"-iquote", "."});
        if (!unit.read.empty())
            job.words.insert(job.words.end(), {"-MD", "-MF", unit.read, "-MT", "it"});
        job.group = unit.source != "-";   // one that reads the terminal stays where the terminal is read
        job.words.push_back(unit.source);
        if (!unit.text.empty())
            job.words.insert(job.words.end(), {"-o", unit.text});
        jobs.push_back(job);
    }
    return run_jobs(jobs, o, o.only_preprocess ? 1 : 0);
}

static int only_preprocess(const z8_options &o, const std::string &bin, std::vector<unit_t> &units)
{
    for (unit_t &unit : units)
        unit.text = o.output == "-" ? "" : o.output;
    if (std::string &text = units[0].text; !text.empty() && (text = name_beside(text, o.dry)).empty())
        return fail("can't write " + o.output, errno);
    return preprocess(o, bin, units) ? 0 : 1;
}

// What the assembler decides by its standard error, where that is kept and shown in turn. A form for programs, which words for
// the assembler or the environment ask for, comes ahead of it.
static void add_terminal_words(const z8_options &o, std::vector<std::string> &words)
{
    if (!isatty(STDERR_FILENO))
        return;
    bool formatted = false;
    for (const std::string &word : o.assembler)
        formatted |= word.starts_with("-E") || word.starts_with("-e");
    for (const char *variable : {"OST_ERR_FORMAT", "OST_WARN_FORMAT", "OST_MSG_FORMAT"})
        formatted |= getenv(variable) != nullptr;
    if (!formatted)
        words.push_back("--diagnostics=rich");
    const char *none = getenv("NO_COLOR"), *terminal = getenv("TERM");
    if (!(none && *none) && terminal && std::string_view(terminal) != "dumb")
        words.push_back("--color=always");
}

// Where the annotated source goes, if there is to be one.
static std::string annotation_of(const z8_options &o, const unit_t &unit)
{
    if (o.annotate == "txt" || o.annotate == "html")
        return fs::path(unit.place).replace_extension(o.annotate);
    std::string place = o.annotate;
    for (auto word = o.assembler.rbegin(); place.empty() && word != o.assembler.rend(); ++word)
        if (word->starts_with(ANNOTATE))
            place = word->substr(ANNOTATE.size());
    return place;
}

static bool assemble(const z8_options &o, const std::string &bin, const std::vector<unit_t> &units)
{
    std::vector<std::string> words{bin + "/aszel8", "-mcpu=" + o.chip,
                                   "-W" + std::to_string(o.level) + (o.werror ? "!" : ""),
                                   "--warn=bank,memory,odd,size"};   // what can't be meant
    if (!o.chip_file.empty())
        words.push_back("-C" + o.chip_file);
    if (o.text)
        words.push_back("-A");
    for (const auto &[name, value] : o.defines)
        words.push_back("--define=" + name + value);
    if (units.size() > 1)
        add_terminal_words(o, words);
    std::vector<job_t> jobs;
    for (const unit_t &unit : units) {
        std::vector<std::string> own = o.assembler;
        if (!unit.annotation.empty())
            own.push_back(ANNOTATE + unit.annotation);
        if (!put_all_aside(o, own, unit.name))
            return false;
        job_t job;
        job.words = words;
        if (fs::path(unit.name).has_parent_path())   // build systems run in another folder than the source's
            job.words.push_back("--include=" + fs::path(unit.name).parent_path().string());
        for (const std::string &folder : o.folders)
            job.words.push_back("--include=" + folder);
        job.words.insert(job.words.end(), own.begin(), own.end());
        if (o.silent)   // also what -W asks for
            job.words.push_back("--msgdisable=0");
        if (unit.text != unit.name)
            job.words.push_back("--source-name=" + unit.name);
        if (unit.object != unit.place)
            job.words.push_back("--object-name=" + unit.place);
        if (!unit.rule.empty())
            job.words.push_back("--depfile=" + unit.rule);
        if (!unit.rule.empty() && !o.dep_target.empty())
            job.words.push_back("--deptarget=" + o.dep_target);
        job.words.push_back("-O" + unit.object);
        job.words.push_back(unit.text);
        jobs.push_back(job);
    }
    return run_jobs(jobs, o, 0);
}

// What the linker is to finish, with a copy of what isn't of this run. False if that can't be made.
static bool add_annotations(const z8_options &o, const std::vector<unit_t> &units, std::vector<std::string> &words)
{
    for (const unit_t &unit : units)
        if (!unit.annotation.empty())
            words.push_back(ANNOTATE + unit.annotation);
    for (const std::string &word : words)
        if (const std::string place = word.starts_with(ANNOTATE) ? word.substr(ANNOTATE.size()) : "";
            !place.empty() && !o.dry && !is_aside(place) && !put_aside(place)) {
            fail("can't write " + place, errno);
            return false;
        }
    return true;
}

// Objects in the order of the command line, those that were just made under the names that -c would give them.
static int link(const z8_options &o, const std::string &bin, const std::vector<unit_t> &units)
{
    const std::string place = o.output.empty() ? "a.hex" : o.output, name = name_beside(place, o.dry);
    if (name.empty())
        return fail("can't write " + place, errno);
    std::vector<std::string> others = o.linker;
    std::erase_if(others, [](const std::string &word) { return word.starts_with(ANNOTATE); });
    std::vector<std::string> words = o.linker;
    if (!put_all_aside(o, others, "") || !add_annotations(o, units, words))
        return 1;
    const bool binary = place.ends_with(".bin"), elf = place.ends_with(".elf");
    job_t job;
    job.words = {bin + "/zellink", "-mcpu=" + o.chip, binary ? "--format=bin" : elf ? "--format=elf" : "--format=hex"};
    if (!o.chip_file.empty())
        job.words.push_back("--chipinfo=" + o.chip_file);
    if (!o.verbose)
        job.words.push_back("--quiet");
    job.words.insert(job.words.end(), words.begin(), words.end());
    if (name != place)
        job.words.push_back("--output-name=" + place);
    job.words.insert(job.words.end(), {"-o", name});
    auto unit = units.begin();
    for (const z8_input &input : o.inputs) {
        if (input.kind != Z8_OBJECT)
            job.words.push_back("--input-name=" + unit->place);
        job.words.push_back(input.kind == Z8_OBJECT ? input.path : unit++->object);
    }
    std::vector<job_t> jobs{job};
    return run_jobs(jobs, o, 0) ? 0 : 1;
}

static int run_all(const z8_options &o, const std::string &bin)
{
    if (make_folder(o) != 0)
        return 1;
    if (o.own_deps)
        st.unlisted = z8_in_rule(header_folder(bin) + "/");
    std::vector<unit_t> units;
    for (const z8_input &input : o.inputs)
        if (unit_t unit; input.kind != Z8_OBJECT) {
            if (settle(o, input, unit) != 0)
                return 1;
            for (const unit_t &other : units)   // objects of one name, which the linker is to tell apart
                if (other.place == unit.place && o.links())
                    unit.place = fs::path(unit.name).replace_extension(".obj");
            unit.annotation = annotation_of(o, unit);
            units.push_back(unit);
        }
    if (o.only_preprocess ? only_preprocess(o, bin, units) != 0 : !preprocess(o, bin, units) || !assemble(o, bin, units))
        return 1;
    if (o.links() && link(o, bin, units) != 0)
        return 1;
    return o.dry ? 0 : rename_outputs(o);
}

// The assembler tells which words are keywords.
static int write_header(const z8_options &o, const std::string &bin)
{
    const bool shown = o.output.empty() || o.output == "-";
    const std::string name = shown ? "" : name_beside(o.output, false);
    if (!shown && name.empty())
        return fail("can't write " + o.output, errno);
    job_t job;
    job.words = {bin + "/aszel8", "--keywords"};
    job.out = memfd_create("keywords", MFD_CLOEXEC);
    std::vector<job_t> jobs{job};
    if (!run_jobs(jobs, o, 1))
        return 1;
    std::string text;
    if (const std::string error = z8_chip_header(o, bin, take(job.out), text); !error.empty()) {
        fprintf(stderr, "zel8: error: %s\n", error.c_str());
        return 1;
    }
    FILE *const to = shown ? stdout : fopen(name.c_str(), "w");
    if (!to || fwrite(text.data(), 1, text.size(), to) != text.size() || (shown ? fflush(to) : fclose(to)) != 0)
        return fail("can't write " + (shown ? "standard output" : o.output), errno);
    return rename_outputs(o);
}

int z8_run(const z8_options &o, const std::string &bin)
{
    signal(SIGCHLD, SIG_DFL);
    for (const z8_input &input : o.inputs)
        if (input.path == "-" && !o.dry && !o.only_preprocess && !read_standard_input(st.standard_input))
            return fail("can't read standard input", errno);
    sigemptyset(&st.waited);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&st.waited, number);
    sigprocmask(SIG_BLOCK, &st.waited, &st.before);
    sigemptyset(&st.ignored);
    if (signal(SIGPIPE, SIG_IGN) == SIG_DFL)
        sigaddset(&st.ignored, SIGPIPE);
    const int status = o.what == z8_options::HEADER ? write_header(o, bin) : run_all(o, bin);
    if (!st.said.empty())
        show_text(z8_sarif(st.said));
    clean_up(status == 0);
    return status;
}
