// hash: fixed buckets for walks, an index that grows for look-ups.
//
// The order of a walk is seen in object records and reports, so nothing here is free to change it: the number of buckets
// stays as it was made, and a new entry goes behind the last one of its bucket. A source may put a hundred thousand keys
// into a table of 199 buckets, though. So an entry lies in two chains: that of its bucket, which only walks follow, and
// that of its slot in the index, which has twice as many slots whenever it holds an entry for each. An entry keeps its
// key's hash: most entries of a slot are passed over without a call of the compare function or a touch of the key, and
// the index grows without asking for a hash again.
//
// Entries come from one free list for all tables.
#include "common/hash.h"

#include "common/assertion.h"
#include "common/xalloc.h"

struct hash_entry_t {
    hash_entry_t *next, **link;   // in the bucket; the link that points here
    hash_entry_t *in_slot;        // the next one of the slot
    word_t key, value;
    word_t hash;   // wider than 32 bits where the key word is its own hash
};

struct hash_bucket_t {
    hash_entry_t *first, **end;   // end: the null link behind the last entry; null as long as none was there
};

struct hash_t {
    uint32_t size;    // buckets
    uint32_t count;   // entries
    hash_fn_t hashfn;
    hash_cmp_t cmpfn;
    hash_bucket_t *buckets;
    hash_entry_t **slots;     // null until the first entry
    uint32_t slot_bits;       // of the number of a slot
    container_stat_t *stat;   // null unless a record is kept of it
};

enum : uint32_t { FIRST_SLOT_BITS = 3, MOST_SLOT_BITS = 31 };

static hash_entry_t *spare_entries;

hash_t *hash_new(uint32_t size, hash_fn_t hashfn, hash_cmp_t cmpfn, made_at_t at)
{
    ASSERTION(size != 0, "size != 0");
    hash_t *h = xnew<hash_t>();
    *h = {.size = size,
          .count = 0,
          .hashfn = hashfn,
          .cmpfn = cmpfn,
          .buckets = xnew<hash_bucket_t>(size),
          .slots = nullptr,
          .slot_bits = 0,
          .stat = container_stats_on ? container_made(CONTAINER_HASH, &h->count, at) : nullptr};
    return h;
}

void hash_destroy(hash_t *h)
{
    hash_clear(h);
    if (h->stat)
        container_gone(h->stat);
    xfree(h->slots);
    xfree(h->buckets);
    xfree(h);
}

static word_t hash_of_key(const hash_t *h, word_t key) { return h->hashfn ? h->hashfn(key) : key; }

// Hashes may be addresses, or differ in their upper bits only: the multiplication lets every bit reach the topmost ones.
static hash_entry_t **slot_of(const hash_t *h, word_t hash)
{
    return &h->slots[hash * 0x9E3779B97F4A7C15 >> (64 - h->slot_bits)];
}

// The link of the index that points to the key's entry; a null link if there is none.
static hash_entry_t **find(const hash_t *h, word_t key, word_t hash)
{
    hash_entry_t **link = slot_of(h, hash);
    for (hash_entry_t *e; (e = *link); link = &e->in_slot)
        if (e->hash == hash && (h->cmpfn ? h->cmpfn(e->key, key) == 0 : e->key == key))
            break;
    return link;
}

static hash_entry_t *find_entry(const hash_t *h, word_t key)
{
    ASSERTION(h, "p != NULL");
    return h->count ? *find(h, key, hash_of_key(h, key)) : nullptr;
}

static void grow_index(hash_t *h)
{
    hash_entry_t **old = h->slots;
    const uint32_t old_count = old ? uint32_t{1} << h->slot_bits : 0;
    h->slot_bits = old ? h->slot_bits + 1 : FIRST_SLOT_BITS;
    h->slots = xnew<hash_entry_t *>(size_t{1} << h->slot_bits);
    for (uint32_t i = 0; i < old_count; i++)
        for (hash_entry_t *e = old[i], *next; e; e = next) {
            hash_entry_t **slot = slot_of(h, e->hash);
            next = e->in_slot;
            e->in_slot = *slot;
            *slot = e;
        }
    xfree(old);
}

bool hash_insert(hash_t *h, word_t key, word_t value)
{
    ASSERTION(h, "p != NULL");
    if (!h->slots || (h->count >> h->slot_bits && h->slot_bits < MOST_SLOT_BITS))
        grow_index(h);
    const word_t hash = hash_of_key(h, key);
    hash_entry_t **slot = find(h, key, hash), *e = spare_entries;
    if (*slot)
        return false;
    if (e)
        spare_entries = e->next;
    else
        e = xnew<hash_entry_t>();
    hash_bucket_t *bucket = &h->buckets[hash % h->size];
    if (!bucket->end)
        bucket->end = &bucket->first;
    *e = {nullptr, bucket->end, nullptr, key, value, hash};
    *bucket->end = *slot = e;
    bucket->end = &e->next;
    h->count++;
    return true;
}

void hash_replace(hash_t *h, word_t key, word_t value)
{
    if (hash_lookup(h, key))
        hash_remove(h, key);
    hash_insert(h, key, value);
}

word_t hash_lookup(const hash_t *h, word_t key)
{
    hash_entry_t *e = find_entry(h, key);
    return e ? e->value : 0;
}

bool hash_haskey(const hash_t *h, word_t key) { return find_entry(h, key); }

word_t hash_remove(hash_t *h, word_t key)
{
    ASSERTION(h, "p != NULL");
    if (!h->count)
        return 0;
    hash_entry_t **slot = find(h, key, hash_of_key(h, key)), *e = *slot;
    if (!e)
        return 0;
    if (h->stat)
        container_shrinks(h->stat);
    *slot = e->in_slot;
    *e->link = e->next;
    (e->next ? e->next->link : h->buckets[e->hash % h->size].end) = e->link;
    e->next = spare_entries;
    spare_entries = e;
    h->count--;
    return e->value;
}

void hash_clear(hash_t *h)
{
    ASSERTION(h, "p != NULL");
    if (h->stat)
        container_shrinks(h->stat);
    for (uint32_t i = 0; h->count && i < h->size; i++) {
        hash_bucket_t *bucket = &h->buckets[i];
        if (!bucket->first)
            continue;
        *bucket->end = spare_entries;
        spare_entries = bucket->first;
        *bucket = {};
    }
    xfree(h->slots);
    h->slots = nullptr;
    h->count = 0;
}

uint32_t hash_size(const hash_t *h)
{
    ASSERTION(h, "p != NULL");
    return h->count;
}

void hash_copy(hash_t *dst, const hash_t *src)
{
    if (dst == src)
        return;
    hash_clear(dst);
    hash_each(src, dst, [](void *arg, word_t key, word_t value) -> word_t {
        hash_insert(static_cast<hash_t *>(arg), key, value);
        return 0;
    });
}

word_t hash_each(const hash_t *h, void *arg, word_t (*fn)(void *arg, word_t key, word_t value))
{
    ASSERTION(h, "p != NULL");
    for (uint32_t i = 0; i < h->size; i++)
        for (hash_entry_t *e = h->buckets[i].first, *next; e; e = next) {
            next = e->next;
            if (word_t result = fn(arg, e->key, e->value))
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

vector_t *hash_keys(const hash_t *c)
{
    vector_t *v = vec_new();
    hash_each(c, v, add_key);
    return v;
}

vector_t *hash_values(const hash_t *c)
{
    vector_t *v = vec_new();
    hash_each(c, v, add_value);
    return v;
}

static int same(int c) { return c; }
static int lower(int c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; }

// Bytes count as signed, in arithmetic modulo 2 to the 32nd.
template <int (*fold)(int)> static uint32_t hash_bytes(const char *s)
{
    uint32_t h = 5381;
    for (; *s; s++)
        h += (h << 5) + static_cast<uint32_t>(fold(static_cast<signed char>(*s)));
    return h;
}

uint32_t hash_string(word_t key) { return hash_bytes<same>(from_word<const char *>(key)); }

int hash_strcmp(word_t a, word_t b) { return strcmp(from_word<const char *>(a), from_word<const char *>(b)); }

uint32_t hash_string_nocase(word_t key) { return hash_bytes<lower>(from_word<const char *>(key)); }

int hash_strcasecmp(word_t a, word_t b)
{
    const unsigned char *s = from_word<const unsigned char *>(a), *t = from_word<const unsigned char *>(b);
    while (*s && lower(*s) == lower(*t))
        s++, t++;
    return lower(*s) - lower(*t);
}
