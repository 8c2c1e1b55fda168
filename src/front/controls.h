// controls: the directives that steer the listing, the optimiser and the reading of the source.
#pragma once

#include <cstdint>

// `callstack n` and `stack n`, behind the word.
bool parse_callstack();

// Rules for the table of `directives`: each reads what stands behind its word. False on a syntax error.
bool d_include(uint16_t);
bool d_title(uint16_t);
bool d_subtitle(uint16_t);
bool d_expand(uint16_t on);
bool d_cond(uint16_t);
bool d_list(uint16_t);
bool d_pagelength(uint16_t);
bool d_pagewidth(uint16_t);
bool d_callstack(uint16_t);
bool d_asmopt(uint16_t);
bool d_radix(uint16_t);
bool d_controls(uint16_t);   // opt and $
