// cfgpsect: configuration words as code.
#pragma once

// Writes the configuration words and ID locations that the source programmed, and those that go with them, into the
// psects `config` and `idloc`, which are made if there is something to write. Once, between parsing and the optimiser.
// Message 1311.
void cfg_make_psects();
