// skiplist: an ordered map from word to word.
//
// Nodes are sorted by the hash of the key, as an unsigned 32-bit number, and among equal hashes by the compare
// function. With the default hash that is the numeric order of the key word; with a string hash it is not the
// alphabetical order. Output may rest on this order: the random heights of nodes don't touch it.
#pragma once

#include "common/hash.h"

typedef int (*skip_cmp_t)(word_t a, word_t b);

struct skiplist_t;

// Null functions: the key word itself, numeric order.
skiplist_t *skiplist_new(hash_fn_t hashfn, skip_cmp_t cmpfn, made_at_t at = made_at_t::caller());
void skiplist_destroy(skiplist_t *s);
void skiplist_clear(skiplist_t *s);
bool skiplist_insert(skiplist_t *s, word_t key, word_t value);   // false, and nothing changes, if the key is there
word_t skiplist_remove(skiplist_t *s, word_t key);
word_t skiplist_lookup(const skiplist_t *s, word_t key);   // 0 if absent
bool skiplist_haskey(const skiplist_t *s, word_t key);
word_t skiplist_lookup_le(const skiplist_t *s, word_t key);     // of the key or the nearest node before it; no caller
word_t skiplist_lookup_next(const skiplist_t *s, word_t key);   // of the node after the key's place
word_t skiplist_first(const skiplist_t *s);
uint32_t skiplist_count(const skiplist_t *s);
// Calls fn for every node, in order; stops at the first non-zero result and returns it. fn may remove the node it is given.
word_t skiplist_each(const skiplist_t *s, void *arg, word_t (*fn)(void *arg, word_t key, word_t value));
vector_t *skiplist_keys(const skiplist_t *s);
vector_t *skiplist_values(const skiplist_t *s);                                       // no caller
skiplist_t *skiplist_copy(const skiplist_t *s, made_at_t at = made_at_t::caller());   // no caller

// The same map with typed keys and values.
template <class K, class V> struct skip_of {
    skiplist_t *raw = nullptr;
    explicit operator bool() const { return raw != nullptr; }
};
template <class K, class V>
inline skip_of<K, V> skip_make(hash_fn_t hashfn, skip_cmp_t cmpfn, made_at_t at = made_at_t::caller())
{
    return {skiplist_new(hashfn, cmpfn, at)};
}
template <class K, class V>
inline bool skiplist_insert(skip_of<K, V> s, std::type_identity_t<K> k, std::type_identity_t<V> v)
{
    return skiplist_insert(s.raw, to_word<K>(k), to_word<V>(v));
}
template <class K, class V> inline V skiplist_lookup(skip_of<K, V> s, std::type_identity_t<K> k)
{
    return from_word<V>(skiplist_lookup(s.raw, to_word<K>(k)));
}
template <class K, class V> inline vec_t<V> skiplist_values(skip_of<K, V> s) { return {skiplist_values(s.raw)}; }
