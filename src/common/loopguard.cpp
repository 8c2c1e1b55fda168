// loopguard: rewriting passes run until nothing changes. Two rules that undo each other would never stop; the guard, asked
// before every round, ends such a loop with a correct program that is only less optimised.
#include "common/loopguard.h"

#include "common/assertion.h"
#include "common/xalloc.h"

struct loopguard_t {
    uint64_t count, limit;
};

loopguard_t *loopguard_new(uint64_t limit)
{
    loopguard_t *g = xnew<loopguard_t>();
    g->limit = limit;
    return g;
}

void loopguard_reset(loopguard_t *g)
{
    ASSERTION(g, "p != NULL");
    g->count = 0;
}

bool loopguard_next(loopguard_t *g) { return g && ++g->count <= g->limit; }

uint64_t loopguard_count(const loopguard_t *g)
{
    ASSERTION(g, "p != NULL");
    return g->count;
}
