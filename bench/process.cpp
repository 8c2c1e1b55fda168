// Wall time comes from the monotonic clock, processor time and peak memory from wait4, which tells them for the one process
// that it has waited for. The peak of a process is never below that of the process that forked it.

#include "process.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

double process_now()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

static double seconds(const timeval &t) { return (double)t.tv_sec + (double)t.tv_usec * 1e-6; }

static void redirect(int fd, const char *path)
{
    const int to = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    dup2(to, fd);
}

bool process_run(const std::vector<std::string> &words, const char *out, const char *err, int limit, run_t *run)
{
    std::vector<char *> argv;
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    const double begin = process_now();
    const pid_t pid = fork();
    if (pid < 0)
        return false;
    if (pid == 0) {
        dup2(open("/dev/null", O_RDONLY), 0);
        redirect(1, out);
        if (err && !strcmp(out, err))
            dup2(1, 2);
        else if (err)
            redirect(2, err);
        const rlimit cpu = {(rlim_t)limit, (rlim_t)limit};
        if (limit)
            setrlimit(RLIMIT_CPU, &cpu);
        execv(argv[0], argv.data());
        dprintf(2, "can't run %s: %s\n", argv[0], strerror(errno));
        _exit(127);
    }
    int status;
    rusage use;
    while (wait4(pid, &status, 0, &use) < 0)
        if (errno != EINTR)
            return false;
    *run = {process_now() - begin, seconds(use.ru_utime) + seconds(use.ru_stime), use.ru_maxrss,
            WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)};
    return true;
}

std::string process_find(const char *name)
{
    if (strchr(name, '/'))
        return access(name, X_OK) ? "" : name;
    const char *path = getenv("PATH");
    for (std::string rest = path ? path : "/usr/bin:/bin"; !rest.empty();) {
        const size_t colon = std::min(rest.find(':'), rest.size());
        const std::string found = rest.substr(0, colon) + "/" + name;
        if (!access(found.c_str(), X_OK))
            return found;
        rest.erase(0, colon + 1);
    }
    return "";
}

std::string process_model()
{
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);)
        if (const size_t colon = line.find(": "); colon != std::string::npos && line.starts_with("model name"))
            return line.substr(colon + 2);
    return "unknown processor";
}

std::string process_directory(const char *name)
{
    const char *tmp = getenv("TMPDIR");
    std::string path = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + name + "-XXXXXX";
    return mkdtemp(path.data()) ? path : "";
}
