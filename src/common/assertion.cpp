// Assertions are written as a macro so that a run without them pays one load and one branch. This is the other side: the
// report. It names the source file without its directories, as it stood where the program was built.
#include "common/assertion.h"

#include "common/failure.h"
#include "common/path.h"

int assertion_mode;

void assertion_failed(const char *text, const char *file, int line)
{
    if (failure_services)
        failure_services->assertion(1504u - static_cast<unsigned>(assertion_mode), text, path_tail(file), line);
}
