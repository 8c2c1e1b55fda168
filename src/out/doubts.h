// doubts: what can be encoded and can't be meant, such as code at an odd place. Warnings of --warn= that no level shows.
#pragma once

#include "code/list.h"

void doubts_begin();                 // of the current psect
void doubts_check(const op_t *op);   // before it is encoded, at the psect's position, with messages at the node's
void doubts_past();                  // behind the same node
