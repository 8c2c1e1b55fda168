// objtext: TEXT and RELOC, and what stands between them.
//
// Takes words and normalised values one by one and knows when a buffer is full. Offsets and positions are bytes.
#pragma once

#include "code/sym.h"

void obj_text_init();    // empty buffers
void obj_text_flush();   // TEXT if it has data, then RELOC if it has entries
void obj_text_begin();   // a new TEXT at the current psect's current position
// Adds the low `nbytes` bytes of `word`, with the field of `bits` bits at bit 0 taken from `value` (null, or normalised):
// added in if it is a number, else left to a relocation entry. Advances p_curr. Messages 800, 808, 839, 1352.
void emit_bytes(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits);
// A check that `value` is at most `limit`, ahead of the word of `nbytes` bytes whose field gets `field`. Message 801.
void obj_range_check(const value_t *value, const value_t *limit, const char *name, const value_t *field, unsigned nbytes);
void obj_cond_expr(const value_t *value);   // message 839
