// vector: a growing array of 64-bit words.
//
// Elements are in order of insertion unless an operation says otherwise. The vector owns its array, never what a word
// points to. Iterators stack inside the vector, so that a walk may stand inside another walk of the same vector, and
// insertion and removal move live iterators along: removing the current element during a walk skips nothing.
//
// `vector_t` holds bare words. Code outside this folder uses `vec_t<T>`, the same vector with typed elements (T a
// pointer or an integer): a handle of one pointer, null until made, with the same operations.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "common/container_stats.h"

typedef uint64_t word_t;

struct vec_iter_t;
struct vector_t {
    uint32_t count;
    uint32_t capacity;   // 0 until the first element
    uint32_t initial;
    uint32_t depth;   // number of live iterators
    word_t *data;
    vec_iter_t *iters;        // the innermost first
    container_stat_t *stat;   // null unless a record is kept of it
};

vector_t *vec_new(made_at_t at = made_at_t::caller());   // initial capacity 10
vector_t *vec_new_size(uint32_t initial, made_at_t at = made_at_t::caller());
void vec_destroy(vector_t *v);   // null is accepted

void vec_add(vector_t *v, word_t x);
uint32_t vec_addNotPresent(vector_t *v, word_t x);   // index of the element
void vec_addAll(vector_t *v, const vector_t *other);
void vec_addAllNotPresent(vector_t *v, const vector_t *other);   // no caller
void vec_insert(vector_t *v, word_t x, uint32_t i);              // past the end: skipped slots are 0
void vec_move(vector_t *v, uint32_t from, uint32_t to);
void vec_setAt(vector_t *v, word_t x, uint32_t i);   // grows; skipped slots are 0
bool vec_remove(vector_t *v, word_t x);              // the first equal word
void vec_removeAt(vector_t *v, uint32_t i);
void vec_removeAll(vector_t *v);                       // the capacity stays
word_t vec_elementAt(const vector_t *v, uint32_t i);   // 0 past the end
int64_t vec_indexOf(const vector_t *v, word_t x);      // -1 if absent
uint32_t vec_size(const vector_t *v);                  // 0 for null
word_t vec_top(const vector_t *v);                     // 0 when empty
word_t vec_pop(vector_t *v);                           // 0 when empty
void vec_sort(vector_t *v, int (*cmp)(const word_t *, const word_t *));
vector_t *vec_copy(const vector_t *v, made_at_t at = made_at_t::caller());   // null gives null

void vec_iterStart(vector_t *v);             // no caller
bool vec_iterHasNext(const vector_t *v);     // no caller
word_t vec_iterNext(vector_t *v);            // no caller
word_t vec_iterLook(const vector_t *v);      // no caller
bool vec_iterDone(vector_t *v, bool keep);   // pops the iterator unless `keep`; gives back `keep`; no caller
word_t vec_iterFirst(vector_t *v);           // vec_iterStart and vec_iterNext in one; no caller

// A pointer or number as a word, and back.
template <class T> inline word_t to_word(T x)
{
    static_assert(sizeof(T) <= sizeof(word_t) && std::is_trivially_copyable_v<T>);
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<word_t>(x);
    else
        return static_cast<word_t>(x);
}
template <class T> inline T from_word(word_t w)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(w);
    else
        return static_cast<T>(w);
}

template <class T> struct vec_t {
    vector_t *raw = nullptr;
    explicit operator bool() const { return raw != nullptr; }
    // Plain walks: for (T x : v). Not safe against changes of the vector; the iterators above are.
    struct cursor {
        const word_t *at;
        T operator*() const { return from_word<T>(*at); }
        cursor &operator++()
        {
            ++at;
            return *this;
        }
        bool operator!=(const cursor &o) const { return at != o.at; }
    };
    cursor begin() const { return {raw ? raw->data : nullptr}; }
    cursor end() const { return {raw ? raw->data + raw->count : nullptr}; }
};

template <class T> inline vec_t<T> vec_make(uint32_t initial = 10, made_at_t at = made_at_t::caller())
{
    return {vec_new_size(initial, at)};
}
template <class T> inline void vec_add(vec_t<T> v, std::type_identity_t<T> x) { vec_add(v.raw, to_word<T>(x)); }
template <class T> inline uint32_t vec_addNotPresent(vec_t<T> v, std::type_identity_t<T> x)
{
    return vec_addNotPresent(v.raw, to_word<T>(x));
}
template <class T> inline void vec_insert(vec_t<T> v, std::type_identity_t<T> x, uint32_t i)
{
    vec_insert(v.raw, to_word<T>(x), i);
}
template <class T> inline void vec_setAt(vec_t<T> v, std::type_identity_t<T> x, uint32_t i)
{
    vec_setAt(v.raw, to_word<T>(x), i);
}
template <class T> inline bool vec_remove(vec_t<T> v, std::type_identity_t<T> x) { return vec_remove(v.raw, to_word<T>(x)); }
template <class T> inline void vec_removeAt(vec_t<T> v, uint32_t i) { vec_removeAt(v.raw, i); }
template <class T> inline void vec_removeAll(vec_t<T> v) { vec_removeAll(v.raw); }
template <class T> inline T vec_elementAt(vec_t<T> v, uint32_t i) { return from_word<T>(vec_elementAt(v.raw, i)); }
template <class T> inline int64_t vec_indexOf(vec_t<T> v, std::type_identity_t<T> x)
{
    return vec_indexOf(v.raw, to_word<T>(x));
}
template <class T> inline uint32_t vec_size(vec_t<T> v) { return vec_size(v.raw); }
template <class T> inline T vec_top(vec_t<T> v) { return from_word<T>(vec_top(v.raw)); }
template <class T> inline T vec_pop(vec_t<T> v) { return from_word<T>(vec_pop(v.raw)); }
template <class T> inline vec_t<T> vec_copy(vec_t<T> v, made_at_t at = made_at_t::caller()) { return {vec_copy(v.raw, at)}; }
// Sorts by `before`-style comparison on typed elements: cmp(a, b) below, at or above 0.
template <class T, int (*cmp)(T, T)> inline void vec_sort_by(vec_t<T> v)
{
    vec_sort(v.raw, [](const word_t *a, const word_t *b) { return cmp(from_word<T>(*a), from_word<T>(*b)); });
}
