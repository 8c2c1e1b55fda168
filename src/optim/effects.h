// effects: what instructions read and write.
//
// One table has a row for every kind of node. Rules and searches that ask whether an instruction needs or changes a register
// ask here; a kind that is in no row needs and changes everything.
#pragma once

#include "code/list.h"

// What can be needed or changed beside file registers, a bit each.
enum : uint8_t {
    FX_C = 1,
    FX_Z = 2,
    FX_N = 4,
    FX_W = 8,
    FX_BSR = 16,
    FX_FLAGS = FX_C | FX_Z | FX_N,
    FX_ALL = FX_FLAGS | FX_W | FX_BSR,
};

// `uses`: what the node needs. `kills`: what it overwrites whatever that was, as far as this is counted on.
struct effect_t {
    uint8_t uses, kills;
};
// Of a node that is `sure` to run, or of one that a skip may pass over: then it counts on nothing that it overwrites. The
// answer is complete for the registers that are `asked` for.
effect_t effect_of(const op_t *op, bool sure, uint8_t asked);

// Set once abstraction has made procedures: N has to last over their returns, which the program's author knows nothing of.
extern bool effect_returns_keep_n;

// What is no longer known behind the node, beside the register that it writes. Nothing for kinds that have rules of their
// own to say so.
uint8_t effect_ends(const op_t *op);

// The file register that the node may change, or null.
const opnd_t *op_written(const op_t *op);

// Whether the node behind this one may not run.
enum doubt_t : uint8_t {
    DOUBT_ENDS,        // it is sure to
    DOUBT_BEGINS,      // this is a skip
    DOUBT_STAYS,       // as this one itself
    DOUBT_ELSEWHERE,   // control goes to another place, or may
};
doubt_t effect_doubt(const op_t *op);
