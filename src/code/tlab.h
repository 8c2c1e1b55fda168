// tlab: temporary labels, `1:` and its references `1f` and `1b`.
//
// A reference belongs to the nearest `n:` before or behind it in the source, whatever psect either lies in. Both are bound
// while the source is read, to a label record outside the symbol table that takes its value in the size pass as any label
// does; so what later passes move or delete can't make a reference mean another label.
#pragma once

#include <cstdint>

struct symbol_t;
struct op_t;

void tlab_init();
// A definition `number:` by the NUMLABEL node `op`. Returns its record, which awaited forward references share.
symbol_t *tlab_define(int64_t number, op_t *op);
// The record that a reference at the current position stands for; s_tlabno is its number. Null for a backward reference
// with no label before it (nothing is reported here).
symbol_t *tlab_lookup(int64_t number, bool forward);
// The end of all input: message 803 at the position of every forward reference whose label never came. Its record is
// given the value 0xFFFF.
void tlab_finish();
// Makes ordinary labels of all temporary ones, and symbol references of what refers to them, for passes that move code about.
void tlab_to_labels();
