// tools: runs the assembler, as a process of its own with a limit of time, and loads what it made into the simulator.
#include "tools.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "zellink.h"

enum : rlim_t { CPU_SECONDS = 2 };

int run_program(const std::vector<std::string> &arguments, const std::string &output)
{
    std::vector<char *> argv;
    for (const std::string &a : arguments)
        argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        const rlimit limit{CPU_SECONDS, CPU_SECONDS};
        if (out >= 0 && dup2(out, 1) >= 0 && dup2(out, 2) >= 0 && setrlimit(RLIMIT_CPU, &limit) == 0)
            execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string read_text(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_text(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out.flush()) {   // half a program would prove nothing
        perror(path.c_str());
        exit(2);
    }
}

std::string program_directory()
{
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

std::string sim_load(sim_t &sim, const target_t &target, const std::vector<std::string> &objects, data_names_t *names)
{
    std::vector<std::vector<uint8_t>> bytes;   // what the records look into
    std::vector<link_module> modules;
    for (const std::string &path : objects) {
        const std::string text = read_text(path);
        bytes.emplace_back(text.begin(), text.end());
        modules.push_back({path, zo_read(bytes.back())});
    }
    image_t image;
    if (const auto errors = link_modules(modules, target, image); !errors.empty())
        return errors.front();
    sim_init(sim, target, image.program);
    sim.pc = image.start;
    if (names)
        *names = image.data;
    return "";
}
