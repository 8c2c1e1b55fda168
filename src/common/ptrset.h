// ptrset: a set of words in the order of a comparison function.
//
// The large half of set.h, which tells what the operations do. 0 can't be a member.
#pragma once

#include "common/bitset.h"
#include "common/skiplist.h"

struct ptrset_t {
    skiplist_t *list;   // null until the first insertion
    skip_cmp_t compare;
    uint32_t id;
    set_iter_t *iters;
};

ptrset_t *ptrset_new(skip_cmp_t compare);   // null: numeric order
void ptrset_destroy(ptrset_t *s);
ptrset_t *ptrset_clone(const ptrset_t *s);
void ptrset_copy(ptrset_t *dst, const ptrset_t *src);
bool ptrset_add(ptrset_t *s, word_t x);
bool ptrset_remove(ptrset_t *s, word_t x);
bool ptrset_contains(const ptrset_t *s, word_t x);
void ptrset_union(ptrset_t *dst, const ptrset_t *src);
void ptrset_intersect(ptrset_t *dst, const ptrset_t *src);
void ptrset_difference(ptrset_t *dst, const ptrset_t *src);
void ptrset_complement(ptrset_t *dst, const ptrset_t *src);
bool ptrset_queryEqual(const ptrset_t *a, const ptrset_t *b);
bool ptrset_queryIntersect(const ptrset_t *a, const ptrset_t *b);
bool ptrset_querySubset(const ptrset_t *a, const ptrset_t *b);
bool ptrset_queryComplement(const ptrset_t *a, const ptrset_t *b);
void ptrset_empty(ptrset_t *s);
uint32_t ptrset_size(const ptrset_t *s);
uint32_t ptrset_hash(const ptrset_t *s);
uint32_t ptrset_id(const ptrset_t *s);
vector_t *ptrset_vector(const ptrset_t *s);
word_t ptrset_anyMember(const ptrset_t *s);

void ptrset_iterReset(ptrset_t *s);
bool ptrset_iterHasNext(const ptrset_t *s);
word_t ptrset_iterNext(ptrset_t *s);
word_t ptrset_iterLook(const ptrset_t *s);
void ptrset_iterDone(ptrset_t *s);
