// bitset: a set of the numbers 0 to 63, in one word.
//
// The small half of set.h, which tells what the operations do.
#pragma once

#include "common/vector.h"

struct set_iter_t;   // a position of a walk

struct bitset_t {
    uint64_t bits;
    uint32_t id;
    set_iter_t *iters;   // the innermost first
};

enum : word_t { BITSET_MAX = 63 };
inline bool bitset_canContain(word_t x) { return x <= BITSET_MAX; }

bitset_t *bitset_new();
void bitset_destroy(bitset_t *s);
bitset_t *bitset_clone(const bitset_t *s);
void bitset_copy(bitset_t *dst, const bitset_t *src);
bool bitset_add(bitset_t *s, word_t x);
bool bitset_remove(bitset_t *s, word_t x);
bool bitset_contains(const bitset_t *s, word_t x);
void bitset_union(bitset_t *dst, const bitset_t *src);
void bitset_intersect(bitset_t *dst, const bitset_t *src);
void bitset_difference(bitset_t *dst, const bitset_t *src);
void bitset_complement(bitset_t *dst, const bitset_t *src);
bool bitset_queryEqual(const bitset_t *a, const bitset_t *b);
bool bitset_queryIntersect(const bitset_t *a, const bitset_t *b);
bool bitset_querySubset(const bitset_t *a, const bitset_t *b);
bool bitset_queryComplement(const bitset_t *a, const bitset_t *b);
void bitset_empty(bitset_t *s);
uint32_t bitset_size(const bitset_t *s);
uint32_t bitset_hash(const bitset_t *s);
uint32_t bitset_id(const bitset_t *s);
vector_t *bitset_vector(const bitset_t *s);
word_t bitset_anyMember(const bitset_t *s);

void bitset_iterReset(bitset_t *s);
bool bitset_iterHasNext(const bitset_t *s);
word_t bitset_iterNext(bitset_t *s);
word_t bitset_iterLook(const bitset_t *s);
void bitset_iterDone(bitset_t *s);

// A record of one of the pools that sets share. `at` is the bit or the member that was given last, plus one for a bit;
// 0 before the first.
struct set_iter_t {
    set_iter_t *outer;
    word_t at;
};
set_iter_t *set_iter_push(set_iter_t *outer);
set_iter_t *set_iter_pop(set_iter_t *it);   // the outer one; null is accepted
