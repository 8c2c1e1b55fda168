// Any bytes at all as an object file: reading, checking and printing must come to an end without a fault. Text made of a
// file must also stay in proportion to it, since every printed thing stems from bytes of its own.
#include "zelobj.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    zo_file file = zo_read({data, size});
    zo_verify(file);
    for (bool disassembly : {false, true})
        if (zo_print(file, {true, disassembly, disassembly}).size() > 128 * size + 1024)
            abort();
    return 0;
}
