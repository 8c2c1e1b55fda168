// tails: what two places end with alike stands in one of them, and the other jumps there.
#pragma once

#include "code/list.h"

extern bool codecov_seen;       // the program has a coverage note psect: every piece of code has to run where it stands
extern bool opt_plain_search;   // gotos are tried one after the other: what the index is tested against

// Rules of the jump stage for a `goto`: the node at which the walk goes on, or null if the rule doesn't apply.
op_t *tails_j17(op_t *g);
op_t *tails_j18(op_t *g);
op_t *tails_j19(op_t *g);
