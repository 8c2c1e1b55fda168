// freecache: a recycling pool for records of one size.
#pragma once

#include <cstddef>
#include <cstdint>

struct freecache_t;

freecache_t *freecache_new(size_t size, uint32_t max);   // keeps at most `max` free objects of `size` bytes
void *freecache_get(freecache_t *fc);                    // a cleared object; null for a null cache
void freecache_add(freecache_t *fc, void *obj);          // gives an object back
