// number: numbers in the texts of options and data files. Those of the source are the scanner's.
#pragma once

#include <cstdint>

// Reads the digits of a number from `s` on, in base 10, or 16 with or without a "0x" ahead. The text behind them; null if there
// are none, when *n is 0, and if they are too many for 64 bits, when *n is UINT64_MAX.
const char *scan_digits(const char *s, unsigned base, uint64_t *n);
// As strtol in base 10, with what 32 bits don't hold cut to the nearest that they do.
int32_t scan_decimal(const char *s);
