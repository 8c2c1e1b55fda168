// objsym: SYM records.
#pragma once

#include "code/sym.h"

void obj_sym_init();                       // an empty buffer
void obj_sym_flush();                      // SYM if it has entries
void obj_symbols(vec_t<symbol_t *> all);   // the entries that the symbols of the table are due. Message 839
// Line information for debuggers: the source file from here on, and the line at the current position.
void obj_file_entry(const char *file);
void obj_line_entry(uint64_t line);

// Follows references to the last symbol, or to a value that is none. False if they go round in a circle.
bool obj_follow(value_t *v);
