// Runs a piece of code in a process of its own, since diagnostics and exits are process-wide.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

enum { CAME_BACK = 100 };   // exit status of a body that returned

struct outcome_t {
    std::string text;   // what was written to standard error
    int status;
};

inline void write_file(const std::string &path, const std::string &text) { std::ofstream(path, std::ios::binary) << text; }

inline std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A directory that goes away with the object.
struct scratch_dir_t {
    std::string path;
    scratch_dir_t()
    {
        char name[] = "/tmp/unitXXXXXX";
        path = mkdtemp(name);
    }
    ~scratch_dir_t()
    {
        if (system(("rm -rf " + path).c_str()) != 0)
            perror("rm");
    }
    scratch_dir_t(const scratch_dir_t &) = delete;
    scratch_dir_t &operator=(const scratch_dir_t &) = delete;
};

template <class F> outcome_t in_child(F body)
{
    scratch_dir_t dir;
    std::string path = dir.path + "/stderr";
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        if (!freopen(path.c_str(), "w", stderr))
            _exit(99);
        body();
        exit(CAME_BACK);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {read_file(path), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}
