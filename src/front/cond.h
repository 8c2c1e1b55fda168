// cond: which arms of `if` blocks count.
#pragma once

struct symbol_t;

// Marks the nodes of `psect` that lie in arms that don't count with OPF_SKIPPED, and what such an arm begins with, or
// goes on behind, with OPF_ARM_OFF. Run once for each psect, when all input has
// been read. Messages 1003, 1489, 1490.
void cond_evaluate(symbol_t *psect);
