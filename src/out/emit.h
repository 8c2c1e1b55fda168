// emit: the code of a psect, for the object file.
#pragma once

struct symbol_t;

void emit_psect(symbol_t *psect);   // TEXT, RELOC and line information of a psect that has been sized
