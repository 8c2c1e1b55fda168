// driver: the optimiser, which rewrites code lists in place between parsing and output.
#pragma once

struct symbol_t;

// Sorts the psects into those that hold code; then the implied operators of older sources, the optimiser, and errata NOPs,
// each as the options ask.
void optimise_run();

// One pass over a psect. True if any iteration changed anything; the branch stage at the end sets opt_changed alone.
bool opt_psect(symbol_t *psect);
