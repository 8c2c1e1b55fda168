// stack: code that handles the return stack other than by calls and returns.
//
// A function that drops its return address returns to its caller's caller, and one that looks at the top of the stack sees
// who called it. So no call may go that stands between such code and its caller, at whatever depth. And one that handles its
// own return address may return to somewhere behind the instruction that follows the call.
#pragma once

#include "code/list.h"

void stack_find();   // once, ahead of the first rule; needs references
// Whether such code may be reached from the label, as `stack_find` saw it.
bool stack_used_from(const symbol_t *label);

void stack_find_aims();   // once, when tables are pinned; needs references
// Whether a call of the label may return to another place than behind the call, as `stack_find_aims` saw it.
bool stack_aims_from(const symbol_t *label);
