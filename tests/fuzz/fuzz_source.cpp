// Any bytes at all as a source file, through the whole assembler to an object file: a run must come to its end without a
// fault, whatever it says. Sources to begin with are in examples/.
#include "child.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text = {reinterpret_cast<const char *>(data), size};
    child_t child = {{"-mcpu=ZEL8K10"}, {"-mcpu=ZEL8K20", "-mcpu=ZEL8K40", "--xinst", "-no_trans", "--cmode=zmasm", "-V",
                                         "-O", "-A"}, "", false};
    for (const char *word : {"macro", "MACRO", "rept", "REPT", "irp", "IRP"})   // text that repeats itself
        child.may_take_long |= text.find(word) != text.npos;
    run_child(child, text);
    return 0;
}
