// keys: the vocabulary of the chip information file.
//
// One list has a row for each key: its name, what its values are, and where in the chip's record numbers and ranges go in
// each of the two families that the file format describes.
#pragma once

#include "chip/chip.h"

enum key_kind_t : uint8_t {
    KEY_TEXT,     // text, or a form that is taken apart when the section has been read
    KEY_NUMBER,   // one hexadecimal number
    KEY_RANGES,
};
struct key_row_t;

const key_row_t *key_find(const char *name);   // in any case; null if there is none
const char *key_name(const key_row_t *key);
key_kind_t key_kind(const key_row_t *key);

// On a chip of neither family these do nothing. Message 919 on a range that may not stand.
void key_set_number(chipinfo_t *ci, const key_row_t *key, uint64_t value);   // cut to the 32 bits of the record
void key_add_range(chipinfo_t *ci, const key_row_t *key, uint32_t lo, uint32_t hi);
