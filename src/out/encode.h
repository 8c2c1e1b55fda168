// encode: the bytes of one node.
//
// An operand that isn't a number by now becomes a relocation: the encoder never needs to know where a psect will land.
#pragma once

#include "code/list.h"

// Where the code of a program goes: to the object file or to the listing. A program that is listed is encoded twice, first
// for the listing. A null function: nothing that matters there.
struct code_sink_t {
    // Takes the low `nbytes` bytes of `word`, whose `bits` bits at bit 0 get `value` (null, or normalised), and advances p_curr.
    void (*put)(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits);
    void (*move)(uint64_t position);           // sets p_curr
    bool (*step)(uint32_t lines);              // what comes stands so many lines below what came, see data; false: enough
    void (*define)(const value_t &value);      // what `equ` and `set` define
    void (*condition)(const value_t *value);   // of an arm that the linker decides on
    // `value` is to be at most `limit`; ahead of the word of `nbytes` bytes whose field gets `field`.
    void (*check)(const value_t *value, const value_t *limit, const char *name, const value_t *field, unsigned nbytes);
    bool reports;   // what is wrong with a node is told in this one's turn
};

// Operand `which`, 1 or 2, as far as it is known by now. Messages from here on are about it.
value_t operand(const op_t *op, unsigned which = 1);

// The bytes of one node of the current psect, at its p_curr, the psect having been sized. Messages 812, 840, 842, 1223, 1339,
// 2065, 2066, 2067, 2212.
void emobj(const op_t *op, const code_sink_t *to);
