// freecache: free objects are chained through their first word, so the pool itself costs nothing.
//
// An object is cleared when it is handed out, not when it comes back. One that comes back to a full pool is freed.
#include "common/freecache.h"

#include <algorithm>
#include <cstring>

#include "common/assertion.h"
#include "common/xalloc.h"

struct freecache_t {
    size_t size;
    uint32_t count, max;   // free objects held, and the most to hold
    void *free;
};

freecache_t *freecache_new(size_t size, uint32_t max)
{
    ASSERTION(max != 0, "max != 0");
    freecache_t *fc = xnew<freecache_t>();
    *fc = {.size = std::max(size, sizeof(void *)), .count = 0, .max = max, .free = nullptr};
    return fc;
}

void *freecache_get(freecache_t *fc)
{
    if (!fc)
        return nullptr;
    void *obj = fc->free;
    if (!obj)
        return xalloc(fc->size);
    memcpy(&fc->free, obj, sizeof(void *));
    fc->count--;
    return memset(obj, 0, fc->size);
}

void freecache_add(freecache_t *fc, void *obj)
{
    if (!fc || !obj)
        return;
    if (fc->count >= fc->max)
        return xfree(obj);
    memcpy(obj, &fc->free, sizeof(void *));
    fc->free = obj;
    fc->count++;
}
