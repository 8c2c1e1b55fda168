// Runs the target on every input of corpus files, or on single files, without a fuzzer.
//
//   replay_source CORPUS...
//   replay_source --input FILE...
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "corpus.h"
#include "target.h"

constexpr rlim_t SECONDS = 5;

[[noreturn]] static void be_child(std::string_view input)
{
    const rlimit seconds = {SECONDS, SECONDS};
    setrlimit(RLIMIT_CPU, &seconds);
    stderr = fopen("/dev/null", "w");   // its descriptor stays: sanitizers report there
    if (!stderr || !freopen("/dev/null", "w", stdout))
        abort();
    atexit([] { _exit(0); });   // whatever the status: it isn't a fault
    target_run(input);
    exit(0);
}

// Runs the target in a child, see target.h. False after a fault, or after running out of time where that is one.
static bool run_forked(std::string_view input)
{
    const pid_t pid = fork();
    if (pid == 0)
        be_child(input);
    int status;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
        abort();
    const bool out_of_time = WIFSIGNALED(status) && (WTERMSIG(status) == SIGKILL || WTERMSIG(status) == SIGXCPU);
    return status == 0 || (out_of_time && target_may_take_long(input));
}

int main(int argc, char **argv)
{
    const bool single = argc > 1 && std::string_view(argv[1]) == "--input";
    unsigned inputs = 0, faults = 0;
    setvbuf(stdout, nullptr, _IOLBF, 0);   // children inherit nothing
    target_prepare();
    for (int i = single ? 2 : 1; i < argc; i++) {
        std::vector<std::string> all;
        if (single) {
            std::ifstream in(argv[i], std::ios::binary);
            all.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        } else {
            all = corpus_read(argv[i]);
        }
        for (size_t n = 0; n < all.size(); n++, inputs++)
            if (!run_forked(all[n])) {
                printf("%s, input %zu of %zu: a fault, see above\n", argv[i], n, all.size());
                faults++;
            }
    }
    printf("%u inputs, %u faults\n", inputs, faults);
    target_clean();
    return inputs > 0 && faults == 0 ? 0 : 1;
}
