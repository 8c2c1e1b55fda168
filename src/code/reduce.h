// reduce: operands, reduced to what the object file can tell.
#pragma once

#include "code/sym.h"

// Symbols give way to their values, the current location and labels become places in psects, and what is a number by then
// is folded. With no current psect there is no current location either, and it stays. So does a value whose symbols lead
// back to themselves, or whose tree would grow too large. Message 803, unless evaluation is quiet.
void operand_reduce(value_t *v);
