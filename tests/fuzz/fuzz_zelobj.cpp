// Any bytes at all as an object file: reading, checking and printing must come to an end without a fault. Text made of a
// file must also stay in proportion to it, since every printed thing stems from bytes of its own.
#include "zelobj.h"

#include <cstdlib>

#include "target.h"

const bool target_forks = false;

void target_prepare() {}
void target_clean() {}
bool target_may_take_long(std::string_view) { return false; }

void target_run(std::string_view input)
{
    zo_file file = zo_read({reinterpret_cast<const uint8_t *>(input.data()), input.size()});
    zo_verify(file);
    for (bool disassembly : {false, true})
        if (zo_print(file, {true, disassembly, disassembly}).size() > 128 * input.size() + 1024)
            abort();
}
