// skiplist: an ordered map on linked levels.
//
// A node sits in the list of level 0 and, with a falling chance of one in four, in those of the levels above. A search
// starts at the top level of the head and goes down a level whenever the next node would be too far, so it touches about
// a logarithm of the nodes. The heights are random but the order of level 0 is not: hash of the key first, then the
// compare function. That is what walks show.
//
// The default hash is the key word. A node's hash has 32 bits, so a larger key word counts as the largest hash, and the
// comparison decides among those: the order is the numeric order of the whole word, which cutting the word wouldn't give.
//
// Nodes that are removed wait on free lists by height, common to all lists.
#include "common/skiplist.h"

#include <algorithm>
#include <cstdlib>

#include "common/assertion.h"
#include "common/xalloc.h"

enum : uint32_t { MAX_ORDER = 16 };

struct skip_node_t {
    word_t key, value;
    uint32_t hash;
    uint32_t order;   // number of levels that the node is in; as many links follow the record
};

static skip_node_t **forward(skip_node_t *n) { return reinterpret_cast<skip_node_t **>(n + 1); }

struct skiplist_t {
    uint32_t order;   // levels in use
    uint32_t count;
    hash_fn_t hashfn;
    skip_cmp_t cmpfn;
    container_stat_t *stat;   // null unless a record is kept of it
    skip_node_t *head[MAX_ORDER];
};

static skip_node_t *spare_nodes[MAX_ORDER + 1];   // by order, chained through level 0

static int word_compare(word_t a, word_t b) { return a < b ? -1 : a > b; }

static uint32_t word_hash(word_t key) { return static_cast<uint32_t>(std::min<word_t>(key, UINT32_MAX)); }

skiplist_t *skiplist_new(hash_fn_t hashfn, skip_cmp_t cmpfn, made_at_t at)
{
    skiplist_t *s = xnew<skiplist_t>();
    s->order = 1;
    s->hashfn = hashfn ? hashfn : word_hash;
    s->cmpfn = cmpfn ? cmpfn : word_compare;
    if (container_stats_on)
        s->stat = container_made(CONTAINER_SKIPLIST, &s->count, at);
    return s;
}

static void drop_node(skip_node_t *n)
{
    forward(n)[0] = spare_nodes[n->order];
    spare_nodes[n->order] = n;
}

static skip_node_t *get_node(uint32_t order)
{
    skip_node_t *n = spare_nodes[order];
    if (n)
        spare_nodes[order] = forward(n)[0];
    else
        n = static_cast<skip_node_t *>(xalloc(sizeof(skip_node_t) + order * sizeof(skip_node_t *)));
    n->order = order;
    return n;
}

void skiplist_destroy(skiplist_t *s)
{
    skiplist_clear(s);
    if (s->stat)
        container_gone(s->stat);
    xfree(s);
}

void skiplist_clear(skiplist_t *s)
{
    ASSERTION(s, "p != NULL");
    if (s->stat)
        container_shrinks(s->stat);
    for (skip_node_t *n = s->head[0], *next; n; n = next) {
        next = forward(n)[0];
        drop_node(n);
    }
    std::fill_n(s->head, MAX_ORDER, nullptr);
    s->order = 1;
    s->count = 0;
}

// For each level in use the links of the last node before the key's place (the head's if there is none), or of the key's
// node itself with `past`.
struct skip_path_t {
    skip_node_t **links[MAX_ORDER];
    uint32_t hash;
    skip_node_t *before;   // owner of links[0], or null
};

static skip_path_t find(const skiplist_t *s, word_t key, bool past = false)
{
    ASSERTION(s, "p != NULL");
    skip_path_t p;
    p.hash = s->hashfn(key);
    p.before = nullptr;
    skip_node_t **links = const_cast<skip_node_t **>(s->head);
    for (uint32_t level = s->order; level-- > 0;) {
        for (skip_node_t *n; (n = links[level]); links = forward(n), p.before = n) {
            if (n->hash > p.hash)
                break;
            if (n->hash == p.hash) {
                int c = s->cmpfn(n->key, key);
                if (c > 0 || (c == 0 && !past))
                    break;
            }
        }
        p.links[level] = links;
    }
    return p;
}

static skip_node_t *match(const skiplist_t *s, const skip_path_t &p, word_t key)
{
    skip_node_t *n = p.links[0][0];
    return n && n->hash == p.hash && s->cmpfn(n->key, key) == 0 ? n : nullptr;
}

static skip_node_t *find_node(const skiplist_t *s, word_t key) { return match(s, find(s, key), key); }

static uint32_t random_order(const skiplist_t *s)
{
    static bool seeded;
    if (!seeded)
        srand(0);
    seeded = true;
    uint32_t order = 1, most = std::min<uint32_t>(s->order, MAX_ORDER - 1);
    while (!(rand() & 3) && order <= most)
        order++;
    return order;
}

bool skiplist_insert(skiplist_t *s, word_t key, word_t value)
{
    skip_path_t p = find(s, key);
    if (match(s, p, key))
        return false;
    skip_node_t *n = get_node(random_order(s));
    n->key = key;
    n->value = value;
    n->hash = p.hash;
    for (; s->order < n->order; s->order++)
        p.links[s->order] = s->head;
    for (uint32_t level = 0; level < n->order; level++) {
        forward(n)[level] = p.links[level][level];
        p.links[level][level] = n;
    }
    s->count++;
    return true;
}

word_t skiplist_remove(skiplist_t *s, word_t key)
{
    skip_path_t p = find(s, key);
    skip_node_t *n = match(s, p, key);
    if (!n)
        return 0;
    if (s->stat)
        container_shrinks(s->stat);
    for (uint32_t level = 0; level < n->order; level++)
        p.links[level][level] = forward(n)[level];
    s->count--;
    drop_node(n);
    return n->value;
}

word_t skiplist_lookup(const skiplist_t *s, word_t key)
{
    skip_node_t *n = find_node(s, key);
    return n ? n->value : 0;
}

bool skiplist_haskey(const skiplist_t *s, word_t key) { return find_node(s, key); }

word_t skiplist_lookup_le(const skiplist_t *s, word_t key)
{
    skip_node_t *n = find(s, key, true).before;
    return n ? n->value : 0;
}

word_t skiplist_lookup_next(const skiplist_t *s, word_t key)
{
    skip_node_t *n = find(s, key, true).links[0][0];
    return n ? n->value : 0;
}

word_t skiplist_first(const skiplist_t *s)
{
    ASSERTION(s, "p != NULL");
    return s->head[0] ? s->head[0]->value : 0;
}

uint32_t skiplist_count(const skiplist_t *s)
{
    ASSERTION(s, "p != NULL");
    return s->count;
}

word_t skiplist_each(const skiplist_t *s, void *arg, word_t (*fn)(void *arg, word_t key, word_t value))
{
    ASSERTION(s, "p != NULL");
    for (skip_node_t *n = s->head[0], *next; n; n = next) {
        next = forward(n)[0];
        if (word_t result = fn(arg, n->key, n->value))
            return result;
    }
    return 0;
}

static word_t add_key(void *v, word_t key, word_t)
{
    vec_add(static_cast<vector_t *>(v), key);
    return 0;
}

static word_t add_value(void *v, word_t, word_t value)
{
    vec_add(static_cast<vector_t *>(v), value);
    return 0;
}

vector_t *skiplist_keys(const skiplist_t *c)
{
    vector_t *v = vec_new();
    skiplist_each(c, v, add_key);
    return v;
}

vector_t *skiplist_values(const skiplist_t *c)
{
    vector_t *v = vec_new();
    skiplist_each(c, v, add_value);
    return v;
}

skiplist_t *skiplist_copy(const skiplist_t *s, made_at_t at)
{
    skiplist_t *copy = skiplist_new(s->hashfn, s->cmpfn, at);
    skiplist_each(s, copy, [](void *arg, word_t key, word_t value) -> word_t {
        skiplist_insert(static_cast<skiplist_t *>(arg), key, value);
        return 0;
    });
    return copy;
}
