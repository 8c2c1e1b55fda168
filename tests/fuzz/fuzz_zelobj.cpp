// Any bytes at all as an object file, an archive or a linked program: reading, checking and printing must come to an end without a fault. Text made of a
// file must also stay in proportion to it, since every printed thing stems from bytes of its own.
#include "zelobj.h"

#include <cstdlib>

#include "target.h"

void target_prepare() {}
void target_clean() {}
bool target_may_take_long(std::string_view) { return false; }

static void read_object(std::span<const uint8_t> bytes)
{
    const zo_file file = zo_read(bytes);
    zo_verify(file);
    for (bool disassembly : {false, true})
        if (zo_print(file, {true, disassembly, disassembly}).size() > 128 * bytes.size() + 1024)
            abort();
    zo_symbol_table(file, true);
    zo_size_table(zo_sizes(file));
}

void target_run(std::string_view input)
{
    if (zo_elf elf; zo_read_elf(input, elf).empty()) {
        zo_symbol_table(elf, false);
        zo_size_table(zo_sizes(elf));
    }
    std::vector<zo_member> members;
    zo_members("x", {reinterpret_cast<const uint8_t *>(input.data()), input.size()}, members);
    for (const zo_member &member : members)
        read_object(member.bytes);
}
