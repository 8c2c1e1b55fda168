// emlist: the listing and the relocation listing.
//
// The listing shows the program as it was encoded: one line of assembly text for each statement, with its address and its
// words in front, then the symbols. Fields that only the linker can tell have a quote behind them. The relocation listing
// holds the same text with these fields as records, from which the linker makes a listing with the final numbers.
#pragma once

#include <cstdio>

// Writes the listing to `to`, whose errors are for the caller to see, and the relocation listing to `rlf`, which is closed; none
// if that is null. Every psect with code must have been sized.
void list_write(FILE *to, FILE *rlf);
