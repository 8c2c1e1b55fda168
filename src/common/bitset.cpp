// bitset: every operation is one of a machine word.
//
// A walk remembers the first bit that it hasn't looked at, so members may come and go during it.
#include "common/bitset.h"

#include <bit>

#include "common/assertion.h"
#include "common/freecache.h"

enum { POOL_DEPTH = 8192 };

static struct {
    freecache_t *sets, *iters;
    uint32_t next_id;
} st;

set_iter_t *set_iter_push(set_iter_t *outer)
{
    if (!st.iters)
        st.iters = freecache_new(sizeof(set_iter_t), POOL_DEPTH);
    set_iter_t *it = static_cast<set_iter_t *>(freecache_get(st.iters));
    it->outer = outer;
    return it;
}

set_iter_t *set_iter_pop(set_iter_t *it)
{
    if (!it)
        return nullptr;
    set_iter_t *outer = it->outer;
    freecache_add(st.iters, it);
    return outer;
}

bitset_t *bitset_new()
{
    if (!st.sets)
        st.sets = freecache_new(sizeof(bitset_t), POOL_DEPTH);
    bitset_t *s = static_cast<bitset_t *>(freecache_get(st.sets));
    s->id = st.next_id++;
    return s;
}

void bitset_destroy(bitset_t *s)
{
    if (!s)
        return;
    while (s->iters)
        bitset_iterDone(s);
    freecache_add(st.sets, s);
}

bitset_t *bitset_clone(const bitset_t *s)
{
    bitset_t *clone = bitset_new();
    clone->bits = s->bits;
    return clone;
}

void bitset_copy(bitset_t *dst, const bitset_t *src) { dst->bits = src->bits; }

// Exchanges the word for `bits` and tells whether that changed it.
static bool set_bits(bitset_t *s, uint64_t bits)
{
    bool changed = s->bits != bits;
    s->bits = bits;
    return changed;
}

static uint64_t bit(word_t x) { return bitset_canContain(x) ? uint64_t{1} << x : 0; }

bool bitset_add(bitset_t *s, word_t x)
{
    ASSERTION(bitset_canContain(x), "bitset_canContain(x)");
    return set_bits(s, s->bits | bit(x));
}

bool bitset_remove(bitset_t *s, word_t x) { return set_bits(s, s->bits & ~bit(x)); }
bool bitset_contains(const bitset_t *s, word_t x) { return s->bits & bit(x); }
void bitset_union(bitset_t *dst, const bitset_t *src) { dst->bits |= src->bits; }
void bitset_intersect(bitset_t *dst, const bitset_t *src) { dst->bits &= src->bits; }
void bitset_difference(bitset_t *dst, const bitset_t *src) { dst->bits ^= src->bits; }
void bitset_complement(bitset_t *dst, const bitset_t *src) { dst->bits &= ~src->bits; }
bool bitset_queryEqual(const bitset_t *a, const bitset_t *b) { return a->bits == b->bits; }
bool bitset_queryIntersect(const bitset_t *a, const bitset_t *b) { return a->bits & b->bits; }
bool bitset_querySubset(const bitset_t *a, const bitset_t *b) { return !(a->bits & ~b->bits); }
bool bitset_queryComplement(const bitset_t *a, const bitset_t *b) { return !(a->bits & b->bits); }
void bitset_empty(bitset_t *s) { s->bits = 0; }
uint32_t bitset_size(const bitset_t *s) { return static_cast<uint32_t>(std::popcount(s->bits)); }
uint32_t bitset_hash(const bitset_t *s) { return static_cast<uint32_t>(s->bits ^ s->bits >> 32); }
uint32_t bitset_id(const bitset_t *s) { return s->id; }

vector_t *bitset_vector(const bitset_t *s)
{
    vector_t *v = vec_new();
    for (uint64_t left = s->bits; left; left &= left - 1)
        vec_add(v, static_cast<word_t>(std::countr_zero(left)));
    return v;
}

word_t bitset_anyMember(const bitset_t *s) { return s->bits ? static_cast<word_t>(std::countr_zero(s->bits)) : 0; }

// The members that the walk hasn't come to.
static uint64_t ahead(const bitset_t *s)
{
    return s->iters && s->iters->at <= BITSET_MAX ? s->bits >> s->iters->at << s->iters->at : 0;
}

void bitset_iterReset(bitset_t *s) { s->iters = set_iter_push(s->iters); }
bool bitset_iterHasNext(const bitset_t *s) { return ahead(s); }
word_t bitset_iterLook(const bitset_t *s) { return ahead(s) ? static_cast<word_t>(std::countr_zero(ahead(s))) : 0; }

word_t bitset_iterNext(bitset_t *s)
{
    word_t x = bitset_iterLook(s);
    if (ahead(s))
        s->iters->at = x + 1;
    return x;
}

void bitset_iterDone(bitset_t *s) { s->iters = set_iter_pop(s->iters); }
