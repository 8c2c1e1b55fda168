// libFuzzer drives the target. The search is guided as usual where runs are children, too: a child hands its coverage
// counters back through shared memory.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>

#include "forked.h"
#include "target.h"

extern "C" uint8_t __start___sancov_cntrs[], __stop___sancov_cntrs[];   // the coverage counters

static uint8_t *counters;   // the child's, shared

static size_t counters_size() { return static_cast<size_t>(__stop___sancov_cntrs - __start___sancov_cntrs); }
static void hand_back() { memcpy(counters, __start___sancov_cntrs, counters_size()); }

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    void *shared = mmap(nullptr, counters_size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        abort();
    counters = static_cast<uint8_t *>(shared);
    target_prepare();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view input = {reinterpret_cast<const char *>(data), size};
    if (!target_forks) {
        target_run(input);
        return 0;
    }
    memset(counters, 0, counters_size());
    memset(__start___sancov_cntrs, 0, counters_size());
    const bool well = run_forked(input, hand_back);
    memcpy(__start___sancov_cntrs, counters, counters_size());
    if (!well)
        abort();
    return 0;
}
