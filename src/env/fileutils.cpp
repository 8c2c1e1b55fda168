// fileutils: classification of files by extension.
//
// The words are those that all tools of the toolchain share; only the question of preprocessed files is asked here. The
// extensions of libraries, object files, intermediate files and ELF files would need a look into the file, as would an
// unknown extension. None of these is a preprocessed source, so no look is taken and they have no flags.
#include "env/fileutils.h"

#include <strings.h>

#include <cstring>

#include "common/stringcache.h"
#include "env/osdep.h"

enum : uint64_t { MISSING = 0x1000, KIND_I = 0x100205, KIND_PRE = 0x80205 };

struct fileid_row_t {
    const char *extension;
    uint64_t word;
};

static constexpr fileid_row_t rows[] = {
    {"as", 0x200209},           {"asm", 0x400209},      {"c", 0x1203},           {"cfgdata", 0x40000600},
    {"cfgmap", 0x20000600},     {"cmf", 0x80000600},    {"cof", 0x4000180},      {"crf", 0x8000000500},
    {"dep", 0x400000600},       {"dmp", 0x40000000600}, {"h", 0x8000000000A00},  {"hex", 0x1000280},
    {"hxl", 0x2000000600},      {"i", KIND_I},          {"inc", 0x800000209},    {"ini", 0x10000600},
    {"lkr", 0x8000600},         {"lst", 0x10000000600}, {"map", 0x1000000600},   {"pre", KIND_PRE},
    {"qvkapp", 0x200000000180}, {"rlf", 0x20000000500}, {"sdb", 0x200000600},    {"sx", 0x400000020D},
    {"sym", 0x100000600},       {"usb", 0x80000001203}, {"xml", 0x100000000200},
};
enum : uint64_t { LOWER_S = 0x800209, UPPER_S = 0x400000020D };   // `s` is the one extension whose case matters

static uint64_t word_of_extension(const char *extension)
{
    if (!strcmp(extension, "s"))
        return LOWER_S;
    if (!strcmp(extension, "S"))
        return UPPER_S;
    for (const fileid_row_t &row : rows)
        if (!strcasecmp(extension, row.extension))
            return row.word;
    return 0;
}

uint64_t fileid(const char *path)
{
    if (!path)
        return MISSING;
    const char *dot = path_extension(path);
    return word_of_extension(dot + (*dot == '.')) | (file_exists(path) ? uint64_t{0} : MISSING);
}

bool fileid_is_preprocessed(uint64_t word) { return (word & KIND_I) == KIND_I || (word & KIND_PRE) == KIND_PRE; }
