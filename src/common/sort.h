// sort: the one sort of the system.
//
// What it does with elements that compare equal is part of the output, so it is our own and not the system library's.
#pragma once

#include <cstddef>

// Sorts `count` elements of `size` bytes in place. `compare` answers below, at or above 0.
void osdep_qsort(void *base, size_t count, size_t size, int (*compare)(const void *, const void *));

// The same with a word of the caller's handed through to the comparison.
void osdep_qsort_arg(void *base, size_t count, size_t size, int (*compare)(const void *, const void *, void *), void *arg);
