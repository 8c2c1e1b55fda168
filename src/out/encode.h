// encode: the bytes of one node.
//
// An operand that isn't a number by now becomes a relocation: the encoder never needs to know where a psect will land.
#pragma once

#include "code/list.h"

// The bytes of one node of the current psect, at its p_curr, the psect having been sized: to the object file, or with
// `listing` to the listing's queue, where nothing is said that the object file's turn will say. Messages 812, 840, 842,
// 1223, 1339, 2065, 2066, 2067.
void emobj(const op_t *op, bool listing);
