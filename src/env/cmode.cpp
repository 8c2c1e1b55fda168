// The option --cmode= names one tool of the family's past. Each has a bit; only three of them mean something here: the
// older macro assembler's number forms, and the operators that the older compilers left to the assembler. The others
// are taken so that a driver may pass the same option to every tool.
#include "env/cmode.h"

#include <cstring>

#include "common/alert.h"

static const struct {
    const char *word;
    uint32_t bit;
} modes[] = {
    {"ost", 0x1},             // the toolchain's native mode
    {"zcc", CMODE_ZCC},       // older C compiler, traditional mode
    {"zcce", CMODE_ZCCE},     // older C compiler, extended mode
    {"zmasm", CMODE_ZMASM},   // older macro assembler
    {"zmlink", 0x10},         // older linker
    {"zmlib", 0x20},          // older librarian
    {"cxi", 0x40},            // a portable C interface
    {"vcc", 0x80},            // another vendor's C compiler
};

static uint32_t current;

void cmode_set(const char *text)
{
    current = 0;
    for (const auto &m : modes)
        if (strcmp(m.word, text) == 0) {
            current = m.bit;
            return;
        }
    alert_print("Unknown cmode (%s)", text);
}

bool cmode_is(uint32_t mask) { return (current & mask) != 0; }
