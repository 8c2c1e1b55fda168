// container_stats: which containers a run made, where, and how large they became.
//
// Off by default. While it is on, each vector, hash table and skip list gets a record when it is made; containers made
// before have none. A container passes its record back here wherever its count falls or it goes away, so that the paths
// on which it grows know nothing of this.
#pragma once

#include <cstdint>
#include <cstdio>

enum container_kind_t { CONTAINER_VECTOR, CONTAINER_HASH, CONTAINER_SKIPLIST, CONTAINER_KINDS };

// The place of the call that made a container: the default argument of a creation function.
struct made_at_t {
    const char *file;
    unsigned line;
    static constexpr made_at_t caller(const char *f = __builtin_FILE(), unsigned l = __builtin_LINE()) { return {f, l}; }
};

struct container_stat_t {
    container_stat_t *older;
    made_at_t at;
    const uint32_t *count;   // of the living container; null when it is gone
    uint32_t most;           // largest count seen
};

extern bool container_stats_on;

// The record of a new container with the count at `count`.
container_stat_t *container_made(container_kind_t kind, const uint32_t *count, made_at_t at);
void container_shrinks(container_stat_t *stat);   // called before the count falls
void container_gone(container_stat_t *stat);

// Prints the master lists.
void container_stats_dump(FILE *out);
