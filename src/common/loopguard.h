// loopguard: a counter with a limit, for loops that should end by themselves and must end.
#pragma once

#include <cstdint>

struct loopguard_t;

loopguard_t *loopguard_new(uint64_t limit);
void loopguard_reset(loopguard_t *g);             // no caller
bool loopguard_next(loopguard_t *g);              // counts a step; true for the first `limit` steps, false for a null guard
uint64_t loopguard_count(const loopguard_t *g);   // no caller
