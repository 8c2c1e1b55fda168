// peep: the peephole stage.
#pragma once

struct symbol_t;

// One walk over the psect's code list. Sets opt_changed if it rewrote anything.
void peephole_walk(symbol_t *psect);
