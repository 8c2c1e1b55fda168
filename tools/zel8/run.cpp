// run: the processes. Sources are assembled side by side; what they say is kept and shown in their order.
//
// Every output is written under another name beside its place and renamed when all went well, so that nobody ever sees half a
// file, and a failed run leaves none. A signal ends the children, removes these files, and then ends this process as it would have.
// Signals are blocked and waited for, which has no races; children get the mask back.
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
#include <thread>

#include "zel8.h"

namespace fs = std::filesystem;

extern char **environ;

struct job_t {
    std::vector<std::string> words;
    int log = -1;   // what it says; -1: goes where this process's goes
    pid_t pid = 0;
    bool failed = false;
};

struct output_t {
    std::string place, written;   // the same for what can't be renamed, such as a device
    bool deps;
};

static struct {
    std::vector<output_t> outputs;
    std::string directory;   // for objects that are only linked
    sigset_t waited, before;
} st;

static void clean_up()
{
    std::error_code ignored;
    for (const output_t &o : st.outputs)
        if (o.written != o.place)
            fs::remove(o.written, ignored);
    if (!st.directory.empty())
        fs::remove_all(st.directory, ignored);
}

static int fail(const std::string &what, int why)
{
    fprintf(stderr, "zel8: error: %s: %s\n", what.c_str(), strerror(why));
    return 1;
}

// The name to write to. Empty, with errno set, if none can be made.
static std::string name_beside(const std::string &place, bool deps, bool dry)
{
    std::error_code ignored;
    std::string name = place;
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
    st.outputs.push_back({place, name, deps});
    return name;
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
    posix_spawnattr_setsigmask(&attributes, &st.before);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error = posix_spawn(&job.pid, argv[0], &files, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        job.pid = 0;
        job.failed = true;
        fail("can't run " + job.words[0], error);
    }
    return error == 0;
}

static void end_by_signal(std::vector<job_t> &jobs, int number)
{
    for (const job_t &job : jobs)
        if (job.pid > 0)
            kill(job.pid, SIGTERM);
    for (const job_t &job : jobs)
        if (job.pid > 0)
            waitpid(job.pid, nullptr, 0);
    clean_up();
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
                job.failed = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
                running--;
                if (WIFSIGNALED(status))
                    fprintf(stderr, "zel8: error: %s ended by signal %d\n", job.words[0].c_str(), WTERMSIG(status));
            }
}

static void tell(job_t &job)
{
    char block[65536];
    std::string text;
    lseek(job.log, 0, SEEK_SET);
    for (ssize_t n; (n = read(job.log, block, sizeof block)) > 0;)
        text.append(block, static_cast<size_t>(n));
    close(job.log);
    // Objects that are only linked are told without their folder and number.
    for (size_t at = 0; !st.directory.empty() && (at = text.find(st.directory, at)) != std::string::npos;)
        text.erase(at, std::min(text.find('-', at + st.directory.size()), text.size() - 1) + 1 - at);
    fwrite(text.data(), 1, text.size(), stderr);
}

static bool run_jobs(std::vector<job_t> &jobs, const z8_options &o)
{
    const unsigned most = o.jobs ? o.jobs : std::max(1U, std::thread::hardware_concurrency());
    for (job_t &job : jobs) {
        if (o.verbose || o.dry)
            show(job);
        if (!o.dry && (jobs.size() > 1 || !st.directory.empty()))
            job.log = memfd_create("messages", MFD_CLOEXEC);
    }
    if (o.dry)
        return true;
    unsigned running = 0;
    for (size_t next = 0; next < jobs.size() || running > 0;) {
        while (next < jobs.size() && running < most)
            running += start(jobs[next++]);
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
        if (job.log >= 0)
            tell(job);
        good = good && !job.failed;
    }
    return good;
}

// With -MP, each file but the source is a target without a rule, so that one which is gone ends no build.
static bool add_phony(const std::string &path)
{
    std::ifstream in(path);
    std::string line, targets;
    for (int i = 0; std::getline(in, line); i++) {
        if (line.ends_with(" \\"))
            line.resize(line.size() - 2);
        if (i > 1)
            targets += line.substr(1) + ":\n";
    }
    std::ofstream out(path, std::ios::app);
    out << targets;
    return static_cast<bool>(out.flush());
}

// All or, if the system refuses a name, what comes ahead of it.
static int rename_outputs(const z8_options &o)
{
    for (output_t &out : st.outputs) {
        if (out.deps && o.phony && !add_phony(out.written))
            return fail("can't write " + out.place, errno);
        if (out.written != out.place && rename(out.written.c_str(), out.place.c_str()) != 0)
            return fail("can't make " + out.place, errno);
        out.written = out.place;
    }
    return 0;
}

static std::vector<std::string> assembler_words(const z8_options &o, const std::string &bin, const fs::path &source)
{
    std::vector<std::string> words{bin + "/aszel8", "-mcpu=" + o.chip,
                                   "-W" + std::to_string(o.level) + (o.werror ? "!" : "")};
    if (o.text)
        words.push_back("-A");
    for (const auto &[name, value] : o.defines)
        words.push_back("--define=" + name + value);
    if (source.has_parent_path())   // build systems run in another folder than the source's
        words.push_back("--include=" + source.parent_path().string());
    words.insert(words.end(), o.assembler.begin(), o.assembler.end());
    return words;
}

static int run_all(const z8_options &o, const std::string &bin)
{
    const bool links = !o.only_assemble && !o.text && !o.only_check;
    std::vector<job_t> jobs;
    std::vector<std::string> objects;
    if (links && !o.dry) {
        const char *temporary = getenv("TMPDIR");
        st.directory = std::string(temporary && *temporary ? temporary : "/tmp") + "/zel8.XXXXXX";
        if (!mkdtemp(st.directory.data()))
            return fail("can't make a folder " + std::exchange(st.directory, ""), errno);
    }
    for (const std::string &input : o.inputs) {
        if (!z8_is_source(input)) {
            objects.push_back(input);
            continue;
        }
        job_t job;
        job.words = assembler_words(o, bin, input);
        const std::string stem = fs::path(input).stem();
        std::string object;
        if (o.only_check) {
            object = "/dev/null";
        } else if (links) {
            object = st.directory + "/" + std::to_string(objects.size()) + "-" + stem + ".obj";
            objects.push_back(object);
        } else {
            const std::string place = o.output.empty() ? stem + (o.text ? ".opt" : ".obj") : o.output;
            object = name_beside(place, false, o.dry);
            if (object.empty())
                return fail("can't write " + place, errno);
            if (o.deps) {
                const std::string rule = o.dep_file.empty() ? fs::path(place).replace_extension(".d").string() : o.dep_file;
                const std::string deps = name_beside(rule, true, o.dry);
                if (deps.empty())
                    return fail("can't write " + rule, errno);
                job.words.push_back("--depfile=" + deps);
                job.words.push_back("--deptarget=" + (o.dep_target.empty() ? place : o.dep_target));
            }
        }
        job.words.push_back("-O" + object);
        job.words.push_back(input);
        jobs.push_back(job);
    }
    if (!run_jobs(jobs, o))
        return 1;
    if (links) {
        const std::string place = o.output.empty() ? "a.hex" : o.output, name = name_beside(place, false, o.dry);
        if (name.empty())
            return fail("can't write " + place, errno);
        const bool binary = place.ends_with(".bin"), elf = place.ends_with(".elf");
        job_t job;
        job.words = {bin + "/zellink", "-mcpu=" + o.chip, binary ? "--format=bin" : elf ? "--format=elf" : "--format=hex"};
        if (!o.verbose)
            job.words.push_back("--quiet");
        job.words.insert(job.words.end(), o.linker.begin(), o.linker.end());
        job.words.insert(job.words.end(), {"-o", name});
        job.words.insert(job.words.end(), objects.begin(), objects.end());
        std::vector<job_t> link{job};
        if (!run_jobs(link, o))
            return 1;
    }
    return o.dry ? 0 : rename_outputs(o);
}

int z8_run(const z8_options &o, const std::string &bin)
{
    signal(SIGCHLD, SIG_DFL);
    sigemptyset(&st.waited);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP})
        sigaddset(&st.waited, number);
    sigprocmask(SIG_BLOCK, &st.waited, &st.before);
    const int status = run_all(o, bin);
    clean_up();
    return status;
}
