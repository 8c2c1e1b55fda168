// word: the bytes of a name as numbers, for hashing and comparing.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

static_assert(std::endian::native == std::endian::little);

// The first `n` bytes at `p`, at most 8, the first one lowest; bytes above are 0. Reads nothing behind them.
inline uint64_t word_bytes(const char *p, size_t n)
{
    if (n >= 8) {
        uint64_t all;
        memcpy(&all, p, 8);
        return all;
    }
    if (n >= 4) {
        uint32_t low, high;   // they overlap unless n is 8, and agree where they do
        memcpy(&low, p, 4);
        memcpy(&high, p + n - 4, 4);
        return low | uint64_t{high} << 8 * (n - 4);
    }
    if (n == 0)
        return 0;
    const uint64_t first = static_cast<unsigned char>(p[0]), middle = static_cast<unsigned char>(p[n / 2]);
    return first | middle << 8 * (n / 2) | uint64_t{static_cast<unsigned char>(p[n - 1])} << 8 * (n - 1);
}
