// pa: procedural abstraction, which moves repeated code into new procedures.
#pragma once

#include "code/list.h"

// The psects of `set` share code with each other. New psects are added to `code_psects`.
void pa_psects(vec_t<symbol_t *> set, vec_t<symbol_t *> code_psects);

// Makes the procedures' names, which the passes take for global ones, the module's own: each module counts them from 1, and
// two that have procedures could not be linked.
void pa_keep_names();
