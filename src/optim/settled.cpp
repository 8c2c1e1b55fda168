// Alterations are numbered (list_changes), and a psect knows its last one. So nothing has to be told to those who have looked
// at a psect: who asks compares the numbers.
#include "optim/settled.h"

#include "code/list.h"

symbol_t *settled_of;
uint32_t settled_passes;
bool optimise_every_pass;
static uint64_t rules_since;   // the number of the last alteration before the rules came to work as they do

void settled_begin(symbol_t *psect)
{
    settled_of = psect;
    settled_passes++;
    psect_t *p = psect->s_psect;
    p->p_settled = list_changes;
    if (p->p_looked_at)
        vec_removeAll(p->p_looked_at);
}

void settled_note(const symbol_t *psect)
{
    psect->s_psect->p_looker = settled_passes;
    vec_t<symbol_t *> &all = settled_of->s_psect->p_looked_at;
    if (!all)
        all = vec_make<symbol_t *>(4);
    vec_add(all, const_cast<symbol_t *>(psect));
}

void settled_end()
{
    psect_t *p = settled_of->s_psect;
    if (p->p_changed > p->p_settled)
        p->p_settled = 0;
    settled_of = nullptr;
}

void settled_forget() { rules_since = ++list_changes; }

bool settled(const symbol_t *psect)
{
    const psect_t *p = psect->s_psect;
    const uint64_t since = p->p_settled;
    if (optimise_every_pass || since == 0 || since < rules_since || p->p_changed > since)
        return false;
    for (const symbol_t *other : p->p_looked_at)
        if (other->s_psect->p_changed > since)
            return false;
    return true;
}
