// matrix: a sparse table whose cells have several keys each.
#pragma once

#include "common/vector.h"

struct matrix_t;

matrix_t *matrix_new(uint32_t n);   // n keys a cell; no caller
// With `keys` an array of n words.
word_t matrix_get_keys(matrix_t *m, const word_t *keys);                 // the value, or 0; no caller
word_t matrix_set_keys(matrix_t *m, word_t value, const word_t *keys);   // the old value, or 0 for a new cell; no caller

// The same with the n keys as arguments: pointers, compared as such, or integers.
template <class... K> inline word_t matrix_get(matrix_t *m, K... keys)
{
    const word_t words[] = {to_word(keys)...};
    return matrix_get_keys(m, words);
}
template <class... K> inline word_t matrix_set(matrix_t *m, word_t value, K... keys)
{
    const word_t words[] = {to_word(keys)...};
    return matrix_set_keys(m, value, words);
}
