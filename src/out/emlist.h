// emlist: the listing and the relocation listing.
//
// The listing shows the program as it was encoded: one line of assembly text for each statement, with its address and its
// words in front, then the symbols. Fields that only the linker can tell have a quote behind them. The relocation listing
// holds the same text with these fields as records, from which the linker makes a listing with the final numbers.
#pragma once

#include <cstdio>
#include <string_view>

#include "code/expr.h"

// Writes the listing to `to`, whose errors are for the caller to see, and the relocation listing to opt.out_stream, which is
// closed; none if that is null. Every psect with code must have been sized.
void list_write(FILE *to);

// One node or other piece of text, in order: first what it encodes to, if anything, then its lines.
void list_queue_add(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits);   // as to emit_bytes
void list_address(const value_t &value);   // for the address column of the first line
void list_text(std::string_view text);     // lines; what was queued and found no line is dropped
