// tally_table: a hash table of counters with a list of the leaders beside it.
//
// The list is in order of falling count. A count grows by one at a time, so keeping the order takes no sort: a key that
// grew moves ahead of those that it has passed. It doesn't pass equals, so on a tie the earlier leader stays.
#include "common/tally_table.h"

#include "common/assertion.h"
#include "common/freecache.h"
#include "common/xalloc.h"

struct tally_entry_t {
    word_t key;
    uint32_t count;
    bool listed;   // is in the top list
};

struct tally_t {
    hash_of<word_t, tally_entry_t *> counters;
    uint32_t top_size;
    vec_t<tally_entry_t *> top;
    freecache_t *pool;
};

tally_t *tally_new(uint32_t buckets, uint32_t top_size, hash_fn_t hash, hash_cmp_t compare)
{
    ASSERTION(top_size != 0, "size != 0");
    tally_t *t = xnew<tally_t>();
    *t = {hash_make<word_t, tally_entry_t *>(buckets, hash, compare), top_size, vec_make<tally_entry_t *>(top_size),
          freecache_new(sizeof(tally_entry_t), UINT32_MAX)};
    return t;
}

void tally_add(tally_t *t, word_t key)
{
    ASSERTION(t, "p != NULL");
    tally_entry_t *c = hash_lookup(t->counters, key);
    if (!c) {
        c = static_cast<tally_entry_t *>(freecache_get(t->pool));
        c->key = key;
        hash_insert(t->counters, key, c);
    }
    c->count++;
    if (!c->listed) {
        if (vec_size(t->top) == t->top_size) {
            if (c->count <= vec_top(t->top)->count)
                return;
            vec_pop(t->top)->listed = false;
        }
        c->listed = true;
        vec_add(t->top, c);
    }
    uint32_t at = static_cast<uint32_t>(vec_indexOf(t->top, c)), to = at;
    while (to && vec_elementAt(t->top, to - 1)->count < c->count)
        to--;
    vec_move(t->top.raw, at, to);
}

word_t tally_top(const tally_t *t)
{
    ASSERTION(t, "p != NULL");
    return vec_size(t->top) ? vec_elementAt(t->top, 0)->key : 0;
}

void tally_clear(tally_t *t)
{
    ASSERTION(t, "p != NULL");
    hash_each(t->counters.raw, t->pool, [](void *pool, word_t, word_t value) -> word_t {
        freecache_add(static_cast<freecache_t *>(pool), from_word<void *>(value));
        return 0;
    });
    hash_clear(t->counters.raw);
    vec_removeAll(t->top);
}
