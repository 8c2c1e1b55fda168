// lists: sorted lists of address ranges.
//
// The chip record keeps some of its ranges in lists, and widening a chip's memory is arithmetic on them: all pages, less
// the access bank, less the register banks. Each operation is one walk along lists that are in order already.
//
// Adding is where the invariant is made. The walk stops at the first range that isn't wholly below the new one; from
// there on, whatever overlaps is swallowed and widens the new range. "Wholly below" reckons with `hi + 1` when touching
// counts, and 0xFFFFFFFF is a sound upper bound, so the sums are made in 64 bits.
//
// Freed nodes wait on a list for the next range, since the arena takes nothing back.
#include "chip/lists.h"

#include <algorithm>

#include "common/assertion.h"
#include "common/xalloc.h"

static memrange_t *spare;   // chained through next

static memrange_t *new_node(uint32_t lo, uint32_t hi, memrange_t *next)
{
    memrange_t *n = spare;
    if (n)
        spare = n->next;
    else
        n = xnew<memrange_t>();
    *n = {lo, hi, next};
    return n;
}

// Adds to the part of a list that begins at `*at`. The result is where the new range's node hangs: a range above it can
// go on from there.
static memrange_t **add_from(memrange_t **at, uint32_t lo, uint32_t hi, bool join)
{
    uint64_t reach = join;   // how far beyond its end a range still takes another in
    while (*at && (*at)->hi + reach < lo)
        at = &(*at)->next;
    memrange_t *n = *at;
    if (!n || n->lo > hi + reach) {
        *at = new_node(lo, hi, n);
        return at;
    }
    n->lo = std::min(n->lo, lo);
    n->hi = std::max(n->hi, hi);
    while (memrange_t *up = n->next) {
        if (up->lo > n->hi + reach)
            break;
        n->hi = std::max(n->hi, up->hi);
        n->next = up->next;
        up->next = nullptr;
        range_free(up);
    }
    return at;
}

void add_discrete_range(memrange_t **list, uint32_t lo, uint32_t hi, bool join)
{
    ASSERTION(lo <= hi, "lo <= hi");
    if (lo <= hi)
        add_from(list, lo, hi, join);
}

void add_range_split(memrange_t **list, uint32_t lo, uint32_t hi, uint32_t page, bool join)
{
    if (page == 0)
        return add_discrete_range(list, lo, hi, join);
    ASSERTION(lo <= hi, "lo <= hi");
    uint64_t end = (uint64_t{lo} / page + 1) * page - 1;
    for (uint64_t from = lo; from <= hi; from = end + 1, end += page)
        list = add_from(list, static_cast<uint32_t>(from), static_cast<uint32_t>(std::min<uint64_t>(end, hi)), join);
}

static int compare_words(uint64_t a, uint64_t b) { return (a > b) - (a < b); }

// In ascending order, each range meets nothing beyond the one before it, so no walk goes back to the beginning.
memrange_t *range_list(vec_t<uint64_t> ranges)
{
    memrange_t *list = nullptr, **at = &list;
    if (ranges)
        vec_sort_by<uint64_t, compare_words>(ranges);
    for (const uint64_t range : ranges) {
        const uint32_t lo = static_cast<uint32_t>(range >> 32), hi = static_cast<uint32_t>(range);
        ASSERTION(lo <= hi, "lo <= hi");
        if (lo <= hi)
            at = add_from(at, lo, hi, true);
    }
    return list;
}

memrange_t *range_subtract(const memrange_t *a, const memrange_t *b)
{
    memrange_t *result = nullptr, **tail = &result;
    auto append = [&tail](uint64_t lo, uint64_t hi) {
        *tail = new_node(static_cast<uint32_t>(lo), static_cast<uint32_t>(hi), nullptr);
        tail = &(*tail)->next;
    };
    for (; a; a = a->next) {
        while (b && b->hi < a->lo)
            b = b->next;
        uint64_t from = a->lo;   // what lies below is done
        for (const memrange_t *cut = b; cut && cut->lo <= a->hi; cut = cut->next) {
            if (cut->lo > from)
                append(from, cut->lo - 1);
            from = uint64_t{cut->hi} + 1;
        }
        if (from <= a->hi)
            append(from, a->hi);
    }
    return result;
}

void range_free(memrange_t *list)
{
    while (list) {
        memrange_t *next = list->next;
        list->next = spare;
        spare = list;
        list = next;
    }
}

void range_append(ranges_t *v, uint32_t lo, uint32_t hi)
{
    if (!*v)
        *v = vec_make<memrange_t *>();
    memrange_t *r = xnew<memrange_t>();
    *r = {lo, hi, nullptr};
    vec_add(*v, r);
}
