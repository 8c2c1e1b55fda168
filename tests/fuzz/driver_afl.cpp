// AFL++ drives the target. Its fork server is started late, when everything that doesn't depend on the input is ready, and
// the input comes through shared memory. A target that needs a process of its own for each run ends it in the first turn of
// the loop, which makes the server fork again; another one goes on.
#include "target.h"

#include <unistd.h>

__AFL_FUZZ_INIT();

int main()
{
    target_prepare();
    __AFL_INIT();
    const unsigned char *input = __AFL_FUZZ_TESTCASE_BUF;
    while (__AFL_LOOP(10000))
        target_run({reinterpret_cast<const char *>(input), static_cast<size_t>(__AFL_FUZZ_TESTCASE_LEN)});
    target_clean();
    return 0;
}
