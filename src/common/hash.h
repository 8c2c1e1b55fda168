// hash: a table of a fixed number of buckets, from word to word.
//
// The number of buckets never changes, and an entry is appended at the end of its bucket's chain. So a walk goes
// bucket by bucket and in order of insertion inside a bucket: the order depends on the keys and on the size alone, and
// output may rest on it. The size is a matter of that order only: a look-up takes as long in a table of few buckets.
#pragma once

#include "common/vector.h"

typedef uint32_t (*hash_fn_t)(word_t key);
typedef int (*hash_cmp_t)(word_t a, word_t b);   // 0 when equal

struct hash_t;

// Null functions: the key word itself, inequality.
hash_t *hash_new(uint32_t size, hash_fn_t hashfn, hash_cmp_t cmpfn, made_at_t at = made_at_t::caller());
void hash_destroy(hash_t *h);                             // no caller
bool hash_insert(hash_t *h, word_t key, word_t value);    // false, and nothing changes, if the key is there
void hash_replace(hash_t *h, word_t key, word_t value);   // moves the key to its chain's end; an old value of 0 stays
word_t hash_lookup(const hash_t *h, word_t key);          // 0 if absent
bool hash_haskey(const hash_t *h, word_t key);
word_t hash_remove(hash_t *h, word_t key);   // the value, or 0
void hash_clear(hash_t *h);
uint32_t hash_size(const hash_t *h);              // number of entries
void hash_copy(hash_t *dst, const hash_t *src);   // dst loses what it had; no caller
// Calls fn for every entry; stops at the first non-zero result and returns it. fn may remove the entry it is given.
word_t hash_each(const hash_t *h, void *arg, word_t (*fn)(void *arg, word_t key, word_t value));
vector_t *hash_keys(const hash_t *h);
vector_t *hash_values(const hash_t *h);   // no caller

// Keys that are NUL-terminated strings.
uint32_t hash_string(word_t key);
int hash_strcmp(word_t a, word_t b);
uint32_t hash_string_nocase(word_t key);
int hash_strcasecmp(word_t a, word_t b);

// The same table with typed keys and values: a handle of one pointer, null until made.
template <class K, class V> struct hash_of {
    hash_t *raw = nullptr;
    explicit operator bool() const { return raw != nullptr; }
};
template <class K, class V>
inline hash_of<K, V> hash_make(uint32_t size, hash_fn_t hashfn, hash_cmp_t cmpfn, made_at_t at = made_at_t::caller())
{
    return {hash_new(size, hashfn, cmpfn, at)};
}
template <class K, class V> inline bool hash_insert(hash_of<K, V> h, std::type_identity_t<K> k, std::type_identity_t<V> v)
{
    return hash_insert(h.raw, to_word<K>(k), to_word<V>(v));
}
template <class K, class V> inline V hash_lookup(hash_of<K, V> h, std::type_identity_t<K> k)
{
    return from_word<V>(hash_lookup(h.raw, to_word<K>(k)));
}
template <class K, class V> inline bool hash_haskey(hash_of<K, V> h, std::type_identity_t<K> k)
{
    return hash_haskey(h.raw, to_word<K>(k));
}
template <class K, class V> inline void hash_replace(hash_of<K, V> h, std::type_identity_t<K> k, std::type_identity_t<V> v)
{
    hash_replace(h.raw, to_word<K>(k), to_word<V>(v));
}
template <class K, class V> inline vec_t<K> hash_keys(hash_of<K, V> h) { return {hash_keys(h.raw)}; }
template <class K, class V> inline vec_t<V> hash_values(hash_of<K, V> h) { return {hash_values(h.raw)}; }
