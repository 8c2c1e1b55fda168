// jump: the jump stage.
#pragma once

struct symbol_t;

void jump_init();                  // once, ahead of everything else: the steps that all walks of a run may take
void jump_walk(symbol_t *psect);   // one walk. Sets opt_changed if it rewrote anything
// As list_delete_unused_labels, together with the code that only such a label led to: a chain in the walk's direction goes
// at once.
unsigned jump_delete_dead_chains(symbol_t *psect, bool backward);
