// lists: sorted lists of address ranges.
//
// A list is a pointer to its first node, null when empty. Its ranges are in ascending order and don't overlap; bounds are
// addresses, both inclusive. A list owns its nodes. A node inside another record counts as a list of one for the tests,
// and must not be added to or freed.
#pragma once

#include <cstdint>

#include "common/vector.h"

struct memrange_t {
    uint32_t lo, hi;
    memrange_t *next;
};

// Adds lo to hi. Ranges that it overlaps become one with it, and with `join` those that it touches too.
void add_discrete_range(memrange_t **list, uint32_t lo, uint32_t hi, bool join);
// The same in pieces that cross no multiple of `page`; 0 for one piece.
void add_range_split(memrange_t **list, uint32_t lo, uint32_t hi, uint32_t page, bool join);
// A vector of ranges in the order in which they came; made at the first.
typedef vec_t<memrange_t *> ranges_t;
void range_append(ranges_t *v, uint32_t lo, uint32_t hi);

// A list of ranges that may overlap and stand in any order, a word each; the vector is sorted. Those that touch become one.
inline uint64_t range_word(uint32_t lo, uint32_t hi) { return uint64_t{lo} << 32 | hi; }
memrange_t *range_list(vec_t<uint64_t> ranges);
inline bool range_contains(const memrange_t *list, int64_t addr)
{
    for (; list; list = list->next)
        if (addr >= list->lo && addr <= list->hi)
            return true;
    return false;
}
// A new list of what is in `a` and not in `b`. Ranges of `a` that touch stay apart.
memrange_t *range_subtract(const memrange_t *a, const memrange_t *b);
void range_free(memrange_t *list);
