// peep: the peephole stage.
#pragma once

struct symbol_t;

extern bool opt_late;              // the repeat loop of the run has begun: B6 and B7 wait for it
void peep_walk(symbol_t *psect);   // one walk. Sets opt_changed if it rewrote anything
