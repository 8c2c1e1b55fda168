// emobj: sizes and encodes code lists.
//
// size_psect settles every node's offset, every label's value and every branch's form; emobj then makes each node's bytes.
// An operand that isn't a number by then becomes a relocation: the encoder never needs to know where a psect will land.
// Positions and sizes are bytes; values are addressing units of p_delta bytes.
#pragma once

#include "code/list.h"

// Gives one psect its offsets, labels and size, p_top, p_base; makes it the current one. Linear for each pass over the
// list, allocates nothing. Message 813.
void size_psect(symbol_t *psect);
void size_all();                           // every psect with code, after giving each psect a p_delta

// The bytes of one node of the current psect, at its p_curr: to the object file, or with `listing` to the listing's queue,
// where nothing is said that the object file's turn will say. Messages 812, 840, 842, 1223, 1339, 2065, 2066, 2067.
void emobj(const op_t *op, bool listing);
void emit_psect(symbol_t *psect);          // TEXT, RELOC and line information of a psect that has been sized

// Reduces an operand to what can be told in the object file: symbols give way to their values, the current location and
// labels become places in psects, and what is a number by then is folded. With no current psect there is no current
// location either, and it stays. So does a value whose symbols lead back to themselves, or whose tree would grow too
// large. Message 803.
void operand_reduce(value_t *v);

symbol_t *value_psect(const value_t *v);   // the psect that a simple value lies in, or null
bool movff_is_short(const op_t *op);

// An absolute psect: its labels are addresses.
inline bool psect_is_abs(const symbol_t *psect) { return (psect->s_flags & (S_ABS | S_OVRLD)) == (S_ABS | S_OVRLD); }
// Bytes per addressing unit, also before the output step has given every psect its p_delta.
inline uint64_t psect_delta(const psect_t *p) { return p->p_delta ? p->p_delta : 1; }
// A value that stands for a symbol's or a temporary label's.
inline bool value_is_reference(const value_t *v)
{
    return v->v_rtype == RT_SYM || v->v_rtype == RT_TLABF || v->v_rtype == RT_TLABB;
}
