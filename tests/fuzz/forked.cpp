// See forked.h.
#include "forked.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "target.h"

constexpr rlim_t SECONDS = 5;

static void (*last_act)();

// Runs ahead of any other exit handler: a fuzzer's own would take every exit for a fault.
static void end_well()
{
    if (last_act)
        last_act();
    _exit(0);
}

[[noreturn]] static void be_child(std::string_view input, void (*at_end)())
{
    const rlimit seconds = {SECONDS, SECONDS};
    setrlimit(RLIMIT_CPU, &seconds);
    stderr = fopen("/dev/null", "w");   // its descriptor stays: sanitizers report there
    if (!stderr || !freopen("/dev/null", "w", stdout))
        abort();
    last_act = at_end;
    atexit(end_well);
    target_run(input);
    exit(0);
}

bool run_forked(std::string_view input, void (*at_end)())
{
    const pid_t pid = fork();
    if (pid == 0)
        be_child(input, at_end);
    int status;
    pid_t ended;
    do
        ended = waitpid(pid, &status, 0);
    while (ended < 0 && errno == EINTR);   // a fuzzer's alarm clock
    if (pid < 0 || ended != pid)
        abort();
    const bool out_of_time = WIFSIGNALED(status) && (WTERMSIG(status) == SIGKILL || WTERMSIG(status) == SIGXCPU);
    return status == 0 || (out_of_time && target_may_take_long(input));
}
