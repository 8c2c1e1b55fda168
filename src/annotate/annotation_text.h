// annotation_text: the annotated source as plain columns, for a terminal or a pager.
#pragma once

#include <cstdio>

#include "annotate/annotation.h"

// To `to`, whose errors are for the caller to see.
void annotation_write_text(FILE *to, const annotation_t &a);

// Pieces that both forms show alike.
std::string annotation_word(const shown_word_t &w);        // digits; a quote behind them: the linker fills it in
std::string annotation_cycles(const shown_row_t &row);     // "", "2", or "1/2"
std::string annotation_address(const shown_row_t &row);    // digits, `+1` between two units, or nothing
std::string annotation_reserved(const shown_row_t &row);   // in the place of words, where there are none
