// ref: a pointer to what lies in the arena, in four bytes.
//
// A program of half a million nodes is mostly links, and waiting for memory is most of the work on it. The arena lies in the
// first 16 GB of addresses and all that xalloc returns at multiples of eight, so the address shifted down by two is a number
// of 32 bits, with null as 0, and following it takes one shift.
//
// A ref reads and is assigned as a pointer to T. One that it can't hold, of the stack, say, or into the middle of a string,
// is a fault of the program, which ends there and never goes on with another address. Who has a pointer of unknown origin
// asks ref_can_hold first, as cache_in_arena does.
//
// Where the arena lies anywhere (XALLOC_LOW is 0) a ref is a pointer of full width.
#pragma once

#include <bit>
#include <cstdint>

#include "common/xalloc.h"

#if XALLOC_LOW

// Rotated, so that low bits make it too large as well.
inline uint64_t ref_number(const void *p) { return std::rotr(reinterpret_cast<uint64_t>(p), 2); }
inline bool ref_can_hold(const void *p) { return ref_number(p) <= UINT32_MAX; }

template <class T> class ref
{
    uint32_t at;   // zeroed memory is null

  public:
    ref &operator=(T *p)
    {
        if (!ref_can_hold(p))
            __builtin_trap();
        at = static_cast<uint32_t>(ref_number(p));
        return *this;
    }
    T *get() const { return reinterpret_cast<T *>(uint64_t{at} << 2); }   // NOLINT(performance-no-int-to-ptr)
    operator T *() const { return get(); }
    T *operator->() const { return get(); }
};

#else

inline bool ref_can_hold(const void *) { return true; }

template <class T> class ref
{
    T *p;

  public:
    ref &operator=(T *to)
    {
        p = to;
        return *this;
    }
    T *get() const { return p; }
    operator T *() const { return p; }
    T *operator->() const { return p; }
};

#endif

// Numbers of 64 bits, at any multiple of four, so that records with references have no gaps.
typedef int64_t packed_int64_t __attribute__((aligned(4)));
typedef uint64_t packed_uint64_t __attribute__((aligned(4)));
