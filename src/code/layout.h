// layout: the size and place of everything.
//
// size_psect settles every node's offset, every label's value and every branch's form; from then on each node of the psect
// makes as many bytes as lie between its op_offs and the next. The optimiser asks for it, too, where reach counts.
// Positions and sizes are bytes; values are addressing units of p_delta bytes (units_t).
#pragma once

#include "code/list.h"
#include "code/oprows.h"

enum : uint64_t { OFFS_MAX = 0xFFFFFFFF };   // positions that would lie behind it stay there

// Gives one psect its offsets, labels and size, p_top, p_base. Linear for each pass over the
// list, allocates nothing but scratch that it keeps. Message 813.
void size_psect(symbol_t *psect);
void size_psect_as_written(symbol_t *psect);   // the same as it would be without the optimiser
void size_all();                               // every psect with code, after giving each psect a p_delta

// How far branches reach: `distance` is from behind the branch, in bytes.
inline bool fits_short_branch(int64_t distance) { return distance >= -2048 && distance <= 2047; }   // bra, rcall
inline bool fits_cond_branch(int64_t distance) { return distance >= -256 && distance <= 255; }      // bc and its like

// Of a node of the current psect.
enum : uint64_t { ALIGN_MAX = 0x200000 };         // the padding of one `align`: all of program memory
enum : uint16_t { NOP2 = op_template("nop2") };   // op_subop of `nop2`, which makes a word of its own
uint64_t op_size(const op_t *op, uint64_t pos);   // at position `pos`; up to OFFS_MAX + 1. Unknown kinds have none
unsigned data_item_width(const op_t *op);         // of DB
uint64_t units_to_bytes(units_t units);           // up to OFFS_MAX + 1
bool branch_has_forms(const op_t *op);            // whether the size of a branch depends on where its target is
uint64_t branch_form(const op_t *op);             // the form that the size pass has given to a branch, as its size

bool movff_is_short(const op_t *op);
symbol_t *value_psect(const value_t *v);   // the psect that a simple value lies in, or null
