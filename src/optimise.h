// optimise: what happens to the code lists between parsing and output.
#pragma once

// Sorts the psects into those that hold code; then the implied operators of older sources, the optimiser, and errata NOPs,
// each as the options ask.
void optimise_run();
