// pointers: which file selects may point at core registers.
#pragma once

#include "code/list.h"

// To be called before anything of the program is changed: finds the file selects that it leads into the bank of the core
// registers.
void pointers_set();

extern uint8_t pointers_at_core;   // those, a bit each
// Whether the operand goes through one of them, so that it may be any core register: W, STATUS, BSR, PCL.
bool pointer_may_be_core(const opnd_t *o);
