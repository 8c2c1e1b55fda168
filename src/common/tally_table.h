// tally_table: counts how often each key was seen, and keeps the most frequent ones.
#pragma once

#include "common/hash.h"

struct tally_t;

// `top_size`: the length of the top list. `hash` and `compare` are of keys, as for a hash table.
tally_t *tally_new(uint32_t buckets, uint32_t top_size, hash_fn_t hash, hash_cmp_t compare);
void tally_add(tally_t *t, word_t key);
word_t tally_top(const tally_t *t);   // the most frequent key; of several the one that got there first; 0 if none
void tally_clear(tally_t *t);         // no caller
