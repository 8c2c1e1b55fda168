// Any bytes at all as a source file, through the whole assembler to an object file: a run must come to its end without a
// fault, whatever it says. The state of the assembler is the process's, and a fatal message ends the process. So each input
// gets a child, which hands its coverage counters back through shared memory; thus the search is guided as usual.
//
// The last byte selects options. With a newline there, as sources have it, there are none. Sources to begin with are in
// examples/:
//     fuzz_source -max_total_time=600 CORPUS examples
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sanitizer/common_interface_defs.h>

#include "run.h"

extern "C" uint8_t __start___sancov_cntrs[], __stop___sancov_cntrs[];   // the coverage counters

constexpr rlim_t SECONDS = 5;

static struct {
    uint8_t *counters;     // the child's, shared
    int source;            // a file in memory
} fz;

static size_t counters_size() { return static_cast<size_t>(__stop___sancov_cntrs - __start___sancov_cntrs); }

// Runs ahead of the library's own exit handler, which would take any exit for a fault.
static void hand_back()
{
    memcpy(fz.counters, __start___sancov_cntrs, counters_size());
    _exit(0);
}

[[noreturn]] static void assemble(uint8_t options)
{
    static char chips[4][16] = {"-mcpu=ZEL8K10", "-mcpu=ZEL8K20", "-mcpu=ZEL8K30", "-mcpu=ZEL8K40"};
    static char name[] = "/x/aszel8", output[] = "-O/dev/null", source[32];
    static char words[6][16] = {"--xinst", "-no_trans", "--cmode=zmasm", "-V", "-O", "-A"};
    char *argv[12] = {name, chips[options & 3], output};
    int argc = 3;
    for (int i = 0; i < 6; i++)
        if (options >> (i + 2) & 1)
            argv[argc++] = words[i];
    snprintf(source, sizeof source, "/proc/self/fd/%d", fz.source);
    argv[argc++] = source;
    const rlimit seconds = {SECONDS, SECONDS}, no_core = {0, 0};
    setrlimit(RLIMIT_CPU, &seconds);
    setrlimit(RLIMIT_CORE, &no_core);
    __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(dup(STDERR_FILENO))));
    if (!freopen("/dev/null", "w", stderr) || !freopen("/dev/null", "w", stdout))
        abort();
    atexit(hand_back);
    exit(run_main(argc, argv));
}

// Text that repeats itself may well take longer than a child has.
static bool may_repeat(std::string_view text)
{
    for (const char *word : {"macro", "MACRO", "rept", "REPT", "irp", "IRP"})
        if (text.find(word) != text.npos)
            return true;
    return false;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (!fz.counters) {
        void *shared = mmap(nullptr, counters_size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED || (fz.source = memfd_create("source", 0)) < 0)
            abort();
        fz.counters = static_cast<uint8_t *>(shared);
    }
    if (ftruncate(fz.source, 0) != 0 || pwrite(fz.source, data, size, 0) != static_cast<ssize_t>(size))
        abort();
    memset(fz.counters, 0, counters_size());
    const pid_t child = fork();
    if (child == 0)
        assemble(size > 0 ? data[size - 1] ^ '\n' : 0);
    int status;
    if (child < 0 || waitpid(child, &status, 0) != child)
        abort();
    memcpy(__start___sancov_cntrs, fz.counters, counters_size());
    const bool out_of_time = WIFSIGNALED(status) && (WTERMSIG(status) == SIGKILL || WTERMSIG(status) == SIGXCPU);
    if (status != 0 && !(out_of_time && may_repeat({reinterpret_cast<const char *>(data), size})))
        abort();
    return 0;
}
