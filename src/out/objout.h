// objout: the object file, record by record.
//
// This module knows the format: the frame, each record's body, the order of records, when a buffer is full. What goes
// into TEXT and RELOC is emobj's business, which hands over words and normalised values one by one. Everything goes to
// opt.out_stream. Offsets and positions are bytes unless told otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

#include "code/expr.h"

struct symbol_t;

// The whole object file, for the chip of that name. Every psect with code must have been sized. Messages 802, 804 and
// those of the functions below.
void obj_write(const char *chip);

void obj_open_ident(const char *text);           // IDENT, and empty buffers
void obj_text_flush();                           // TEXT if it has data, then RELOC if it has entries
void obj_text_begin();                           // a new TEXT at the current psect's current position
// Adds the low `nbytes` bytes of `word`, with the field of `bits` bits at bit 0 taken from `value` (null, or normalised):
// added in if it is a number, else left to a relocation entry. Advances p_curr. Messages 800, 808, 839, 1352.
void emit_bytes(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits);
void obj_range_check(const value_t *value, const value_t *limit, const char *name);   // message 801
void obj_cond_expr(const value_t *value);        // message 839
// Line information for debuggers: the source file from here on, and the line at the current position.
void obj_file_entry(const char *file);
void obj_line_entry(uint64_t line);
void obj_symbol(const symbol_t *s, uint16_t flags);   // a SYM entry, or none if an alias may not be told

// Bytes of a value's postfix code. A value that needs more than COMPLEX_MAX, or whose symbols go round in a circle, gives
// some number above COMPLEX_MAX. Message 779.
enum : size_t { COMPLEX_MAX = 508 };
size_t complex_size(const value_t *value);

// The relocation listing, a file of its own that goes to opt.out_stream, too. Between rlf_open and rlf_finish, which closes
// it, these write; at any other time they do nothing. Message 804.
void rlf_open();
void rlf_ident();                                // a further IDENT behind the text so far
void rlf_text(const char *s, size_t length);     // text of the listing
// A field of `chars` characters, to be filled in by the linker: `value`, of the width that `type` tells as in a relocation
// entry, joined with `word`. False, and nothing is written, if a record can't take it. Message 800, unless `silent`.
bool rlf_field(const value_t *value, uint64_t word, unsigned type, unsigned chars, bool silent);
void rlf_finish();
