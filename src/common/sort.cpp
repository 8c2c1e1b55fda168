// osdep_qsort: a quicksort in place whose every step is fixed.
//
// Symbol reports and vectors are sorted by keys that may be equal (two symbols of one address, say), and the order that
// equal elements end up in is seen by the user. The system library promises nothing there and differs between hosts.
// So the steps below are a contract, and a change that still sorts correctly would still be a change of output: the pivot
// is a copy of the middle element, both scans stop at elements equal to it, and those are swapped even when they are
// one and the same or needn't be. Two equal elements therefore change places.
//
// A partition leaves two parts. The larger one (the left one if they are equal) is put off on a stack and the smaller one
// is done at once, so each entry of the stack is at most half of the one below it: 64 entries serve any count.
//
// The scans need no bounds with a consistent comparison, for the pivot stops them. They have bounds nevertheless, so that
// an inconsistent one gives a wrong order and not a wild access.
#include "common/sort.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "common/assertion.h"
#include "common/xalloc.h"

static void swap_elements(char *a, char *b, size_t size)
{
    if (size == sizeof(uint64_t)) {
        uint64_t x, y;
        memcpy(&x, a, sizeof x);
        memcpy(&y, b, sizeof y);
        memcpy(a, &y, sizeof y);
        memcpy(b, &x, sizeof x);
    } else if (a != b) {
        std::swap_ranges(a, a + size, b);
    }
}

void osdep_qsort_arg(void *base, size_t count, size_t size, int (*compare)(const void *, const void *, void *), void *arg)
{
    if (count < 2)
        return;
    ASSERTION(base, "base != NULL");
    char local[800];
    char *pivot = size < sizeof local ? local : static_cast<char *>(xalloc(size + 1));
    struct {
        int64_t lo, hi;
    } stack[64];
    int depth = 0;
    auto at = [&](int64_t i) { return static_cast<char *>(base) + static_cast<size_t>(i) * size; };

    int64_t lo = 0, hi = static_cast<int64_t>(count) - 1;
    for (;;) {
        while (lo < hi) {
            memcpy(pivot, at((lo + hi) / 2), size);
            int64_t i = lo, j = hi;
            do {
                while (i < hi && compare(at(i), pivot, arg) < 0)
                    i++;
                while (j > lo && compare(pivot, at(j), arg) < 0)
                    j--;
                if (j < i)
                    break;
                swap_elements(at(i), at(j), size);
                i++;
                j--;
            } while (i <= j);
            if (j - lo < hi - i) {
                if (i < hi)
                    stack[depth++] = {i, hi};
                hi = j;
            } else {
                if (lo < j)
                    stack[depth++] = {lo, j};
                lo = i;
            }
        }
        if (!depth)
            break;
        lo = stack[--depth].lo;
        hi = stack[depth].hi;
    }
    if (pivot != local)
        xfree(pivot);
}

void osdep_qsort(void *base, size_t count, size_t size, int (*compare)(const void *, const void *))
{
    auto plain = [](const void *a, const void *b, void *arg) {
        return (*static_cast<int (**)(const void *, const void *)>(arg))(a, b);
    };
    osdep_qsort_arg(base, count, size, plain, &compare);
}
