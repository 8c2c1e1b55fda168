// ptrset: a skip list whose keys are the members and are their own values.
//
// Every key hashes alike, so that the comparison alone decides the order: members come in its order wherever they lie in
// memory, and a walk over a set of symbols is the same from run to run.
//
// A walk remembers the member that it gave last and asks for the one behind its place. So members may be added and removed
// during it, that one too.
//
// The operations of two sets are written by way of their members; the sets are small and the assembler hardly asks.
#include "common/ptrset.h"

#include "common/assertion.h"
#include "common/freecache.h"

enum { POOL_DEPTH = 8192 };

static struct {
    freecache_t *sets;
    uint32_t next_id;
} st;

ptrset_t *ptrset_new(skip_cmp_t compare)
{
    if (!st.sets)
        st.sets = freecache_new(sizeof(ptrset_t), POOL_DEPTH);
    ptrset_t *s = static_cast<ptrset_t *>(freecache_get(st.sets));
    s->id = st.next_id++;
    s->compare = compare;
    return s;
}

void ptrset_destroy(ptrset_t *s)
{
    if (!s)
        return;
    while (s->iters)
        ptrset_iterDone(s);
    if (s->list)
        skiplist_destroy(s->list);
    freecache_add(st.sets, s);
}

ptrset_t *ptrset_clone(const ptrset_t *s)
{
    ptrset_t *clone = ptrset_new(s->compare);
    ptrset_union(clone, s);
    return clone;
}

void ptrset_copy(ptrset_t *dst, const ptrset_t *src)
{
    if (dst == src)
        return;
    ptrset_empty(dst);
    ptrset_union(dst, src);
}

bool ptrset_add(ptrset_t *s, word_t x)
{
    ASSERTION(x != 0, "x != 0");
    if (!s->list)
        s->list = skiplist_new([](word_t) -> uint32_t { return 0; }, s->compare);
    return skiplist_insert(s->list, x, x);
}

bool ptrset_remove(ptrset_t *s, word_t x) { return s->list && skiplist_remove(s->list, x); }

bool ptrset_contains(const ptrset_t *s, word_t x) { return s->list && skiplist_haskey(s->list, x); }

// The members of `src` one by one, with `dst`; ends early and answers false when fn does.
static bool all_members(ptrset_t *dst, const ptrset_t *src, bool (*fn)(ptrset_t *dst, word_t x))
{
    struct job_t {
        ptrset_t *dst;
        bool (*fn)(ptrset_t *, word_t);
    } job = {dst, fn};
    return !src->list || !skiplist_each(src->list, &job, [](void *arg, word_t x, word_t) -> word_t {
        job_t *j = static_cast<job_t *>(arg);
        return !j->fn(j->dst, x);
    });
}

// The same for a `dst` that fn only reads.
static bool all_members(const ptrset_t *dst, const ptrset_t *src, bool (*fn)(ptrset_t *dst, word_t x))
{
    return all_members(const_cast<ptrset_t *>(dst), src, fn);
}

static bool is_member(ptrset_t *s, word_t x) { return ptrset_contains(s, x); }
static bool is_no_member(ptrset_t *s, word_t x) { return !ptrset_contains(s, x); }

void ptrset_union(ptrset_t *dst, const ptrset_t *src)
{
    all_members(dst, src, [](ptrset_t *s, word_t x) { return ptrset_add(s, x), true; });
}

void ptrset_complement(ptrset_t *dst, const ptrset_t *src)
{
    all_members(dst, src, [](ptrset_t *s, word_t x) { return ptrset_remove(s, x), true; });
}

void ptrset_intersect(ptrset_t *dst, const ptrset_t *src)
{
    ptrset_t *strangers = ptrset_clone(dst);
    ptrset_complement(strangers, src);
    ptrset_complement(dst, strangers);
    ptrset_destroy(strangers);
}

void ptrset_difference(ptrset_t *dst, const ptrset_t *src)
{
    all_members(dst, src, [](ptrset_t *s, word_t x) { return ptrset_remove(s, x) || ptrset_add(s, x); });
}

bool ptrset_querySubset(const ptrset_t *a, const ptrset_t *b) { return all_members(b, a, is_member); }
bool ptrset_queryComplement(const ptrset_t *a, const ptrset_t *b) { return all_members(b, a, is_no_member); }
bool ptrset_queryIntersect(const ptrset_t *a, const ptrset_t *b) { return !ptrset_queryComplement(a, b); }
bool ptrset_queryEqual(const ptrset_t *a, const ptrset_t *b)
{
    return ptrset_size(a) == ptrset_size(b) && ptrset_querySubset(a, b);
}

void ptrset_empty(ptrset_t *s)
{
    if (s->list)
        skiplist_clear(s->list);
}

uint32_t ptrset_size(const ptrset_t *s) { return s->list ? skiplist_count(s->list) : 0; }

uint32_t ptrset_hash(const ptrset_t *s)
{
    uint32_t sum = 0;
    if (s->list)
        skiplist_each(s->list, &sum, [](void *arg, word_t x, word_t) -> word_t {
            *static_cast<uint32_t *>(arg) += static_cast<uint32_t>(x ^ x >> 32);
            return 0;
        });
    return sum;
}

uint32_t ptrset_id(const ptrset_t *s) { return s->id; }

vector_t *ptrset_vector(const ptrset_t *s) { return s->list ? skiplist_keys(s->list) : vec_new(); }

word_t ptrset_anyMember(const ptrset_t *s) { return s->list ? skiplist_first(s->list) : 0; }

void ptrset_iterReset(ptrset_t *s) { s->iters = set_iter_push(s->iters); }

bool ptrset_iterHasNext(const ptrset_t *s) { return ptrset_iterLook(s); }

word_t ptrset_iterLook(const ptrset_t *s)
{
    if (!s->iters || !s->list)
        return 0;
    return s->iters->at ? skiplist_lookup_next(s->list, s->iters->at) : skiplist_first(s->list);
}

word_t ptrset_iterNext(ptrset_t *s)
{
    word_t x = ptrset_iterLook(s);
    if (x)
        s->iters->at = x;
    return x;
}

void ptrset_iterDone(ptrset_t *s) { s->iters = set_iter_pop(s->iters); }
