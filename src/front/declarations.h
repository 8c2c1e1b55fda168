// declarations: the directives that tell something of symbols.
#pragma once

#include <cstdint>

struct symbol_t;

// `name equ expr` and `name set expr`, behind the name; `token` has been taken.
bool parse_definition(symbol_t *name, int token);

// Rules for the table of `directives`: each reads what stands behind its word. False on a syntax error.
bool d_extrn(uint16_t);
bool d_global(uint16_t);
bool d_local(uint16_t);
bool d_public(uint16_t);
bool d_dabs(uint16_t);
bool d_fnaddr(uint16_t);
bool d_fnroot(uint16_t);
bool d_fncall(uint16_t);
bool d_fnarg(uint16_t);
bool d_fnbreak(uint16_t);
bool d_fnindir(uint16_t);
bool d_signat(uint16_t);
bool d_fnsize(uint16_t);
bool d_fnalign(uint16_t);
bool d_fnconf(uint16_t);
