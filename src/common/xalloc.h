// xalloc: the one allocator.
//
// Everything the assembler builds lives until the process ends, so there is one arena: memory comes from the
// system in large blocks that are already zero, is handed out by moving a pointer, and is never given back.
// That makes an allocation a few instructions and leaves nothing to own, to free or to leak. What is made and dropped
// at a high rate goes back to free lists: those of xgive_back, or others that a module keeps for its records (code list
// nodes, container entries).
//
// On Linux of 64 bits it lies in the first 16 GB of addresses, so that ref.h can make do with 32 bits, and XALLOC_LOW is 1;
// who needs more is out of memory, as a program of a hundred million lines would be. Elsewhere it lies where the system puts it.
//
// Under AddressSanitizer each request is a block of the system's allocator instead, so that it sees overruns, and
// XALLOC_CHECKED is 1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

#if defined(__SANITIZE_ADDRESS__)
#define XALLOC_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define XALLOC_CHECKED 1
#endif
#endif
#ifndef XALLOC_CHECKED
#define XALLOC_CHECKED 0
#endif

#if defined(__linux__) && UINTPTR_MAX > UINT32_MAX && !XALLOC_CHECKED
#define XALLOC_LOW 1
#else
#define XALLOC_LOW 0
#endif

struct xarena_t {
    char *next;    // aligned to 8 bytes
    size_t left;   // bytes behind `next`, a multiple of 8
};
extern xarena_t xarena;
void *xalloc_slow(size_t size);
[[noreturn]] void xalloc_fail();   // message 296

// Zero-filled memory of `size` bytes, aligned to 8 bytes. Never null: running out of memory is message 296, which is fatal.
inline void *xalloc(size_t size)
{
    if (XALLOC_CHECKED || size > xarena.left)
        return xalloc_slow(size);
    size_t rounded = (size + 7) & ~size_t{7};
    char *p = xarena.next;
    xarena.next += rounded;
    xarena.left -= rounded;
    return p;
}

// The same out of a pool: blocks of 32 KB of the arena. Records that are visited in no order, again and again, cost far
// fewer misses when they lie together and not between records of other kinds.
inline void *xalloc_from(xarena_t &pool, size_t size)
{
    constexpr size_t BLOCK = 32 << 10;
    if (XALLOC_CHECKED || size > BLOCK / 8)
        return xalloc(size);
    size = (size + 7) & ~size_t{7};
    if (size > pool.left)
        pool = {static_cast<char *>(xalloc(BLOCK)), BLOCK};
    char *p = pool.next;
    pool.next += size;
    pool.left -= size;
    return p;
}

// Gives up memory from xalloc; null is accepted. The arena keeps it, AddressSanitizer sees any later use of it.
void xfree(void *p);

// Gives up memory of `size` bytes from xalloc, or one of its pools, for the two functions below to hand out again.
// AddressSanitizer sees any use in between, as they have none under it.
void xgive_back(void *p, size_t size);
void *xspare(size_t size);   // zeroed memory that was given back with that size, to a multiple of eight; null: there is none
inline void *xalloc_again(size_t size)
{
    void *p = xspare(size);
    return p ? p : xalloc(size);
}

// `n` zeroed records of the plain type T.
template <class T> inline T *xnew(size_t n = 1)
{
    static_assert(alignof(T) <= 8);
    if (n > SIZE_MAX / sizeof(T))
        xalloc_fail();
    return static_cast<T *>(xalloc(n * sizeof(T)));
}

// Makes room in `*array` for `need` plain records, by doubling its `*room`, at first to `least`. The first `used` stay.
template <class T, class N> inline void xreserve(T *&array, N used, N need, N &room, N least)
{
    static_assert(std::is_trivially_copyable_v<T>);
    if (need <= room)
        return;
    const N larger = 2 * room > least ? 2 * room : least;
    T *all = xnew<T>(larger > need ? larger : need);
    if (used)
        memcpy(static_cast<void *>(all), array, used * sizeof(T));
    xfree(array);
    array = all;
    room = larger > need ? larger : need;
}

// A copy of the first `len` bytes of `s` (or of all of it) with a NUL behind it. Of no bytes `s` may be null.
char *xstrndup(const char *s, size_t len);
char *xstrdup(const char *s);

// New strings: `a` then `b`; the same, giving up `a`; formatted text of at most 4095 characters.
char *xconcat(const char *a, const char *b);
char *xconcat_free(char *a, const char *b);
[[gnu::format(printf, 1, 2)]] char *xsprintf(const char *format, ...);
