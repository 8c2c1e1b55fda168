// Any bytes at all as a source file, through the whole assembler to an object file: a run must come to its end without a
// fault, whatever it says. Sources to begin with are in examples/. The chip is the environment's FUZZ_CHIP, if it has any.
#include "target.h"

#include <cstdlib>

static const char *chip_option()
{
    static std::string option = "-mcpu=";
    const char *chip = getenv("FUZZ_CHIP");
    return (option += chip ? chip : "ZEL8K10").c_str();
}

static bool repeats_text(std::string_view input)
{
    std::string text(input);
    for (char &c : text)
        c |= 0x20;   // letters become small, the rest doesn't matter
    for (const char *word : {"macro", "rept", "irp"})
        if (text.find(word) != text.npos)
            return true;
    return false;
}

// clang-format off
const assembly_t assembly = {
    "in.as", ';', {chip_option(), "--emax=1000"}, false,
    {{'O', "-O"}, {'S', "--opt=space"}, {'P', "-no_pa"}, {'N', "-auto_inline"}, {'E', "--errata=147473"}, {'A', "-A"},
     {'L', "-L"}, {'V', "-V"}, {'C', "-C"}, {'X', "--xinst"}, {'T', "-no_trans"}, {'Z', "--cmode=zmasm"}, {'H', "-H"},
     {'I', "-I"}, {'F', "-F20"}, {'D', "--opt=debug"}, {'W', "-W-9"}},
    nullptr, repeats_text};

// clang-format on