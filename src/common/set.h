// set: the general set of 64-bit words.
//
// A member of at most 63 lives in a bitset of one word, any other one in a ptrset, which is a skip list ordered by the
// set's own comparison. Iteration gives the bitset's members from 0 up, then the ptrset's in their order. Iterators
// nest: reset pushes a position, done pops it.
#pragma once

#include "common/bitset.h"
#include "common/ptrset.h"

struct set_t;

set_t *set_new(skip_cmp_t compare);                         // null: numeric order
void set_destroy(set_t *s);                                 // null is accepted; no caller
set_t *set_clone(const set_t *s);                           // the same members and comparison, a new id; no caller
void set_copy(set_t *dst, const set_t *src);                // no caller
bool set_add(set_t *s, word_t x);                           // true if it was not there
bool set_remove(set_t *s, word_t x);                        // true if it was there; no caller
bool set_contains(const set_t *s, word_t x);                // no caller
void set_union(set_t *dst, const set_t *src);               // dst gets the members of src; no caller
void set_intersect(set_t *dst, const set_t *src);           // dst keeps those that src has; no caller
void set_difference(set_t *dst, const set_t *src);          // dst becomes the members of exactly one of the two; no caller
void set_complement(set_t *dst, const set_t *src);          // dst loses those that src has; no caller
bool set_queryEqual(const set_t *a, const set_t *b);        // no caller
bool set_queryIntersect(const set_t *a, const set_t *b);    // they have a member in common; no caller
bool set_querySubset(const set_t *a, const set_t *b);       // b has every member of a; no caller
bool set_queryComplement(const set_t *a, const set_t *b);   // they have no member in common; no caller
void set_empty(set_t *s);                                   // removes all members; no caller
uint32_t set_size(const set_t *s);                          // no caller
uint32_t set_hash(const set_t *s);                          // depends on the members alone; no caller
uint32_t set_id(const set_t *s);        // sets are numbered from 0 in the order they were made; no caller
vector_t *set_vector(const set_t *s);   // a new vector of the members, in order
word_t set_anyMember(const set_t *s);   // the first member, or 0 if there is none; no caller
void set_iterReset(set_t *s);
bool set_iterHasNext(const set_t *s);
word_t set_iterNext(set_t *s);         // 0 at the end
word_t set_iterLook(const set_t *s);   // no caller
void set_iterDone(set_t *s);
