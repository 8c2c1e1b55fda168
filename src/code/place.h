// place: which register a file operand is, as far as the assembler can tell.
#pragma once

#include "code/list.h"

struct place_t {
    enum kind_t : uint8_t {
        UNTOLD,    // no file register, or an expression that only the linker can work out
        ADDRESS,   // the register at `at`
        BANKED,    // the one at the lower eight bits of `at` in whatever bank is selected
        NAMED,     // `at` behind `base`: a psect, or a name that isn't defined here
    } kind = UNTOLD;
    access_t access = ACCESS_UNSET;   // as opnd_access; ACCESS_UNSET: the operand is a whole address
    const symbol_t *base = nullptr;
    int64_t at = 0;
};

// Names with a number for a value count as numbers, labels as places in their psects. Offsets with access-bank addressing
// become addresses. A mask of 255 around an operand, which is for its bank, doesn't count.
place_t place_of(const opnd_t *o);

// Whether both are sure to be one register, or sure to be two. Of two places that depend on the bank, in the same bank.
// A name that isn't defined here is a register of its own, and no register of the access bank's upper part.
bool place_same(const place_t &a, const place_t &b);
bool place_apart(const place_t &a, const place_t &b);
