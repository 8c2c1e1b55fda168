// set: the pair of a bitset and a ptrset.
//
// Members that are small numbers cost a bit, members that are pointers a node; each operation goes to the half that the
// member belongs to, or to both. A walk runs in both halves at once and asks the bitset first.
#include "common/set.h"

#include "common/assertion.h"
#include "common/freecache.h"

struct set_t {
    bitset_t *small;
    ptrset_t *large;
    uint32_t id;
};

enum { POOL_DEPTH = 8192 };

static struct {
    freecache_t *sets;
    uint32_t next_id;
} st;

static set_t *make(bitset_t *small, ptrset_t *large)
{
    if (!st.sets)
        st.sets = freecache_new(sizeof(set_t), POOL_DEPTH);
    set_t *s = static_cast<set_t *>(freecache_get(st.sets));
    *s = {small, large, st.next_id++};
    return s;
}

#define REQUIRE(s) ASSERTION(s, "p != NULL")

set_t *set_new(skip_cmp_t compare) { return make(bitset_new(), ptrset_new(compare)); }

void set_destroy(set_t *s)
{
    if (!s)
        return;
    bitset_destroy(s->small);
    ptrset_destroy(s->large);
    freecache_add(st.sets, s);
}

set_t *set_clone(const set_t *s)
{
    REQUIRE(s);
    return make(bitset_clone(s->small), ptrset_clone(s->large));
}

// An operation on one member, in the half that it belongs to.
#define OF_MEMBER(name, CONST)                                                                 \
    bool set_##name(CONST set_t *s, word_t x)                                                  \
    {                                                                                          \
        REQUIRE(s);                                                                            \
        return bitset_canContain(x) ? bitset_##name(s->small, x) : ptrset_##name(s->large, x); \
    }
OF_MEMBER(add, )
OF_MEMBER(remove, )
OF_MEMBER(contains, const)

// An operation on two sets, half by half.
#define OF_PAIR(name)                             \
    void set_##name(set_t *dst, const set_t *src) \
    {                                             \
        REQUIRE(dst);                             \
        REQUIRE(src);                             \
        bitset_##name(dst->small, src->small);    \
        ptrset_##name(dst->large, src->large);    \
    }
OF_PAIR(copy)
OF_PAIR(union)
OF_PAIR(intersect)
OF_PAIR(difference)
OF_PAIR(complement)

// A question about two sets; `op` joins the answers of the halves.
#define QUERY(name, op)                                                                          \
    bool set_query##name(const set_t *a, const set_t *b)                                         \
    {                                                                                            \
        REQUIRE(a);                                                                              \
        REQUIRE(b);                                                                              \
        return bitset_query##name(a->small, b->small) op ptrset_query##name(a->large, b->large); \
    }
QUERY(Equal, &&)
QUERY(Intersect, ||)
QUERY(Subset, &&)
QUERY(Complement, &&)

// An operation on a set, half by half.
#define OF_SET(name)             \
    void set_##name(set_t *s)    \
    {                            \
        REQUIRE(s);              \
        bitset_##name(s->small); \
        ptrset_##name(s->large); \
    }
OF_SET(empty)
OF_SET(iterReset)
OF_SET(iterDone)

uint32_t set_size(const set_t *s)
{
    REQUIRE(s);
    return bitset_size(s->small) + ptrset_size(s->large);
}

uint32_t set_hash(const set_t *s)
{
    REQUIRE(s);
    return bitset_hash(s->small) + ptrset_hash(s->large);
}

uint32_t set_id(const set_t *s)
{
    REQUIRE(s);
    return s->id;
}

vector_t *set_vector(const set_t *s)
{
    REQUIRE(s);
    vector_t *v = bitset_vector(s->small), *large = ptrset_vector(s->large);
    vec_addAll(v, large);
    vec_destroy(large);
    return v;
}

word_t set_anyMember(const set_t *s)
{
    REQUIRE(s);
    return bitset_size(s->small) ? bitset_anyMember(s->small) : ptrset_anyMember(s->large);
}

bool set_iterHasNext(const set_t *s)
{
    REQUIRE(s);
    return bitset_iterHasNext(s->small) || ptrset_iterHasNext(s->large);
}

word_t set_iterNext(set_t *s)
{
    REQUIRE(s);
    return bitset_iterHasNext(s->small) ? bitset_iterNext(s->small) : ptrset_iterNext(s->large);
}

word_t set_iterLook(const set_t *s)
{
    REQUIRE(s);
    return bitset_iterHasNext(s->small) ? bitset_iterLook(s->small) : ptrset_iterLook(s->large);
}
