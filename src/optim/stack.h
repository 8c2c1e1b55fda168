// stack: code that handles the return stack other than by calls and returns.
//
// A function that drops its return address returns to its caller's caller, and one that looks at the top of the stack sees
// who called it. So no call may go that stands between such code and its caller, at whatever depth.
#pragma once

#include "code/list.h"

void stack_find();   // once, ahead of the first rule; needs references
// Whether such code may be reached from the label, as `stack_find` saw it.
bool stack_used_from(const symbol_t *label);
