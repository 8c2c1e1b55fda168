// The arena behind xalloc.
//
// The fast path stands in the header: move a pointer. Here is what happens when the current block can't serve a request.
// A request that is large against the blocks gets pages of its own, huge ones if it fills some, and the current block stays
// in use. Otherwise a new block is mapped and the rest of the old one, less than an eighth of the new one's size, is forgotten.
//
// Block sizes follow use. A small run lives in one or two blocks of 256 KB and touches few pages. Once some megabytes are
// in use blocks are multiples of 2 MB, aligned to that, and the system is asked to back them with huge pages: a large
// program then takes a fault every 2 MB instead of every 4 KB, and the tables it walks cost far fewer misses of the TLB.
// Nothing is asked for ahead beyond that, so peak memory exceeds what is used by at most one huge page.
//
// The system is told where to put each block: behind the one before. If something is there already, the next place is
// tried. Few processes have anything in those addresses. Systems that don't know MAP_FIXED_NOREPLACE take the place for a
// hint, and what they put elsewhere goes back.
//
// Mapped pages are zero, so only what is handed out again has to be cleared. What was given back waits in a list for its
// size, chained through its first word; sizes that get pages of their own are forgotten.
#include "common/xalloc.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "common/failure.h"

xarena_t xarena;

void xalloc_fail() { failure_no_memory(); }

#if XALLOC_CHECKED

// The arena is never freed by design, so reports of leaks tell nothing.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the sanitizer calls
extern "C" const char *__asan_default_options() { return "detect_leaks=0:allocator_may_return_null=1"; }

void *xalloc_slow(size_t size)
{
    void *p = calloc(size ? size : 1, 1);
    if (!p)
        xalloc_fail();
    return p;
}

void xfree(void *p) { free(p); }

void xgive_back(void *p, size_t) { free(p); }

void *xspare(size_t) { return nullptr; }

#else

enum : size_t { SMALL_BLOCK = 256 << 10, HUGE_PAGE = 2 << 20, LARGE_BLOCK = 4 * HUGE_PAGE };
enum : uintptr_t { LOW_START = uintptr_t{1} << 32, LOW_END = uintptr_t{1} << 34 };   // above the program and its heap

static size_t mapped;   // bytes of all blocks so far

// Null: `at` is taken.
static char *map_at(uintptr_t at, size_t size, int flags)
{
    void *p = mmap(reinterpret_cast<void *>(at), size, PROT_READ | PROT_WRITE,   // NOLINT(performance-no-int-to-ptr)
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | flags, -1, 0);
    if (p == MAP_FAILED && errno != EEXIST)
        xalloc_fail();
    return p != MAP_FAILED ? static_cast<char *>(p) : nullptr;
}

#if XALLOC_LOW

static char *map_pages(size_t size)
{
    static uintptr_t place = LOW_START;
    while (size <= LOW_END - place) {
        char *p = map_at(place, size, MAP_FIXED_NOREPLACE);
        place += size;
        if (p && reinterpret_cast<uintptr_t>(p) <= LOW_END - size) {
            mapped += size;
            return p;
        }
        if (p)
            munmap(p, size);
    }
    xalloc_fail();
}

#else

static char *map_pages(size_t size)
{
    mapped += size;
    return map_at(0, size, 0);
}

#endif

// `size` bytes, a multiple of a huge page, aligned to one and backed by such pages if the system has any.
static char *map_huge_pages(size_t size)
{
    char *p = map_pages(size + HUGE_PAGE);
    const size_t skip = -reinterpret_cast<uintptr_t>(p) & (HUGE_PAGE - 1);
    if (skip)
        munmap(p, skip);
    munmap(p + skip + size, HUGE_PAGE - skip);
    madvise(p + skip, size, MADV_HUGEPAGE);
    return p + skip;
}

static void new_block()
{
    xarena = mapped < HUGE_PAGE ? xarena_t{map_pages(SMALL_BLOCK), SMALL_BLOCK}
                                : xarena_t{map_huge_pages(LARGE_BLOCK), LARGE_BLOCK};
}

void *xalloc_slow(size_t size)
{
    if (size > SIZE_MAX - 2 * HUGE_PAGE)
        xalloc_fail();
    if (size >= HUGE_PAGE)
        return map_huge_pages((size + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1));
    if (size > SMALL_BLOCK / 8)
        return map_pages((size + 4095) & ~size_t{4095});
    new_block();
    return xalloc(size);
}

void xfree(void *) {}

static void *spare[SMALL_BLOCK / 8 / 8 + 1];   // by size in words

void xgive_back(void *p, size_t size)
{
    const size_t words = (size + 7) / 8;
    if (words == 0 || words >= std::size(spare))
        return;
    memcpy(p, &spare[words], sizeof(void *));
    spare[words] = p;
}

void *xspare(size_t size)
{
    const size_t words = (size + 7) / 8;
    void *p = words < std::size(spare) ? spare[words] : nullptr;
    if (!p)
        return nullptr;
    memcpy(&spare[words], p, sizeof(void *));
    return memset(p, 0, words * 8);
}

#endif

char *xstrndup(const char *s, size_t len)
{
    size_t n = len ? strnlen(s, len) : 0;
    char *p = static_cast<char *>(xalloc(n + 1));
    if (n)
        memcpy(p, s, n);
    return p;
}

char *xstrdup(const char *s) { return xstrndup(s, SIZE_MAX); }

char *xconcat(const char *a, const char *b)
{
    size_t na = strlen(a), nb = strlen(b);
    char *p = static_cast<char *>(xalloc(na + nb + 1));
    memcpy(p, a, na);
    memcpy(p + na, b, nb);
    return p;
}

char *xconcat_free(char *a, const char *b)
{
    char *p = xconcat(a, b);
    xfree(a);
    return p;
}

char *xsprintf(const char *format, ...)
{
    char work[4096] = "";
    va_list args;
    va_start(args, format);
    int n = vsnprintf(work, sizeof work, format, args);
    va_end(args);
    if (n >= static_cast<int>(sizeof work))
        fputs("buffer overflow in vsnprintf", stderr);
    return xstrdup(work);
}
