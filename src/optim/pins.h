// pins: code that counts on its place.
//
// A distance that is a number, as in `goto $-2` or `label+4`, and a table that a computed jump leads into, hold only as long
// as nothing there moves or changes its size. Such nodes get OPF_PINNED, once, before the first rule: they are no longer
// free, branches keep the size that they have without the optimiser, and they count as reached. A pinned label is the place
// that such a jump leads to: what is known ends there, and it stays.
#pragma once

// Needs labels in place of temporary ones, and references.
void pins_set();
