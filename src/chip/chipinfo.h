// chipinfo: the reader of the chip information file.
//
// Finds the file of a chip and makes the chip's record from it. Nearly every fault in the file is a fatal message with
// the file and the line.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "chip/chip.h"

const char *chip_find_INI_path(const char *chip);                // null if no file is found
const char *chip_alias_INI_path(const chipinfo_t *ci);           // of the chip's alias; null if no file is found
chipinfo_t *chipinfo_read(const char *path, const char *chip);   // null if the section isn't there
chipinfo_t *chipinfo_load(const char *path, const char *chip);   // the same with message 922; null path: searched for

// Values of a key, the section's or else those of the file's head. Null: the key doesn't stand (list), or without value.
vec_t<const char *> chipinfo_get_list(const chipinfo_t *ci, const char *key);
const char *chipinfo_get_value(const chipinfo_t *ci, const char *key);

// Checks how often the keys stand, counted together. Messages 1015 to 1019.
enum : uint32_t { ANY_COUNT = UINT32_MAX };
void chipinfo_check(const chipinfo_t *ci, bool required, uint32_t expected, std::initializer_list<const char *> keys);

// Where the last read has come to, for messages about the record.
const char *chipinfo_file();
int chipinfo_line();
// Message 919 with a text of its own, and the chip's name when it is known.
[[gnu::format(printf, 2, 3)]] void chipinfo_fail(const chipinfo_t *ci, const char *format, ...);
