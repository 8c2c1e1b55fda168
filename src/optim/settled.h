// settled: which psects another pass would leave as they are.
//
// Most passes find nothing to do. A psect has settled when one has gone over it so, and stays settled until it is altered,
// or another one is that the pass has looked at: what a rule sees in a psect depends on its own nodes and references, on those
// that jumps and calls lead to, and on where its labels are used.
#pragma once

#include "code/sym.h"

extern symbol_t *settled_of;       // the psect of the pass under way; null: none
extern uint32_t settled_passes;    // so far
extern bool optimise_every_pass;   // as if nothing settled: what passing over psects is tested against

void settled_begin(symbol_t *psect);
void settled_end();   // of the pass
bool settled(const symbol_t *psect);
void settled_forget();   // from now on the rules work otherwise: nothing has settled
void settled_note(const symbol_t *psect);

// The pass under way looks at the nodes of `psect`.
inline void settled_look(const symbol_t *psect)
{
    if (psect != settled_of && settled_of && psect->s_psect->p_looker != settled_passes)
        settled_note(psect);
}
