// hoist: the branch stage.
#pragma once

struct symbol_t;

// One walk over the psect: what both arms of a conditional branch begin with moves before the branch.
void hoist_walk(symbol_t *psect);
