// container_stats: the master lists of the containers.
//
// A record outlives its container, so that a table which was dropped on the way still shows in the report. Its largest use
// needs no counting while the container grows: the count is looked at before each fall, when the container goes, and at the
// end. Vectors come and go by the thousand, so apart from the living ones they are summed up by the place that made them.
#include "common/container_stats.h"

#include <algorithm>
#include <cstring>

#include "common/path.h"
#include "common/sort.h"
#include "common/xalloc.h"

bool container_stats_on;

static struct {
    container_stat_t *newest[CONTAINER_KINDS];
    uint32_t made[CONTAINER_KINDS];
} st;

container_stat_t *container_made(container_kind_t kind, const uint32_t *count, made_at_t at)
{
    container_stat_t *s = xnew<container_stat_t>();
    *s = {st.newest[kind], at, count, 0};
    st.newest[kind] = s;
    st.made[kind]++;
    return s;
}

void container_shrinks(container_stat_t *s) { s->most = std::max(s->most, *s->count); }

void container_gone(container_stat_t *s)
{
    container_shrinks(s);
    s->count = nullptr;
}

// By place, and at one place as they were made.
static int compare_places(const void *a, const void *b)
{
    const container_stat_t *s = *static_cast<container_stat_t *const *>(a), *t = *static_cast<container_stat_t *const *>(b);
    int c = strcmp(s->at.file, t->at.file);
    return c ? c : s->at.line < t->at.line ? -1 : s->at.line > t->at.line;
}

static container_stat_t **by_place(container_kind_t kind)
{
    uint32_t n = st.made[kind];
    container_stat_t **list = xnew<container_stat_t *>(n + size_t{1}), *s = st.newest[kind];
    for (uint32_t i = n; i-- > 0; s = s->older) {
        list[i] = s;
        if (s->count)
            container_shrinks(s);
    }
    osdep_qsort(list, n, sizeof *list, compare_places);
    return list;
}

static void put_place(FILE *out, made_at_t at) { fprintf(out, "%s:%u:", path_tail(at.file), at.line); }

static void put_container(FILE *out, const container_stat_t *s)
{
    put_place(out, s->at);
    fprintf(out, " most %u", s->most);
    if (s->count)
        fprintf(out, ", now %u\n", *s->count);
    else
        fputs(", destroyed\n", out);
}

static void put_list(FILE *out, container_kind_t kind, const char *heading, const char *heading_of_none)
{
    fprintf(out, "%s\n", st.made[kind] ? heading : heading_of_none);
    for (container_stat_t **s = by_place(kind); *s; s++)
        put_container(out, *s);
}

static void put_vectors(FILE *out)
{
    container_stat_t **list = by_place(CONTAINER_VECTOR);
    fputs("# Living Vector Master List:\n", out);
    for (container_stat_t **s = list; *s; s++)
        if ((*s)->count)
            put_container(out, *s);
    fputs("# Vector Master List Summary:\n", out);
    for (container_stat_t **s = list, **first; *(first = s);) {
        uint32_t most = 0, living = 0;
        for (; *s && !compare_places(s, first); s++) {
            most = std::max(most, (*s)->most);
            living += (*s)->count != nullptr;
        }
        put_place(out, (*first)->at);
        fprintf(out, " made %u, living %u, most %u\n", static_cast<unsigned>(s - first), living, most);
    }
}

void container_stats_dump(FILE *out)
{
    put_vectors(out);
    put_list(out, CONTAINER_HASH, "# Hash Table Master List:", "# No hash tables were used");
    put_list(out, CONTAINER_SKIPLIST, "# Skiplist Master List:", "# None.");
}
