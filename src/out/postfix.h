// postfix: what only the linker can work out, as postfix code.
#pragma once

#include <cstddef>

#include "code/sym.h"

struct buf_t;

// Bytes of a value's postfix code. A value that needs more than COMPLEX_MAX, or whose symbols go round in a circle, gives
// some number above COMPLEX_MAX. Message 779.
enum : size_t { COMPLEX_MAX = 508 };
size_t complex_size(const value_t *value);
// Appends it, as far as there is room. An undefined symbol with none of the flags `declared` is reported, unless they are 0.
void buf_complex(buf_t *b, const value_t *value, uint64_t declared = S_GLOBAL);

// Reports an undefined symbol that nothing declares where it is first used; it is an external from then on. Message 800.
void undefined_symbol(symbol_t *s);
