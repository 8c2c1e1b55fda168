// cfgpsect: configuration words as code.
#pragma once

// Writes the configuration words and ID locations that the source programmed, and those that go with them, into the
// psects `config` and `idloc`, which are made if there is something to write. Once, between parsing and the optimiser.
// Messages 1311, 2221, 2222.
void cfg_make_psects();
