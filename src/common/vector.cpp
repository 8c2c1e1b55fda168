// vector: the growing array behind vec_t.
//
// The array starts empty, gets its initial capacity with the first element and doubles from there. Slots at or above
// `count` hold nothing that anybody may rely on, so an operation that skips slots clears them.
//
// Iterators are a stack of small records that hang on the vector, innermost first, each with the index that comes next.
// Insertion and removal go through that stack: an iterator at or behind an inserted element moves up with its element, one
// behind a removed element moves down. Hence a loop may remove the element it was just given and miss nothing.
//
// Vectors are made and dropped all the time by the optimiser, and the arena takes nothing back. So records, iterators and
// outgrown arrays go to free lists here: arrays by the power of two below their capacity, where an array finds its equals.
// The checked build frees arrays instead, and a plain walk (vec_t's begin and end) over a vector that grows is seen.
#include "common/vector.h"

#include <bit>

#include "common/assertion.h"
#include "common/sort.h"
#include "common/xalloc.h"

struct vec_iter_t {
    vec_iter_t *outer;
    uint32_t next;   // index of the element that iterNext gives
};

static struct {
    vector_t *vectors;   // chained through `data`
    vec_iter_t *iters;
    word_t *arrays[32];   // by the logarithm of the capacity; word 0 is the next one, word 1 the capacity
} spare;

static void drop_array(word_t *data, uint32_t capacity)
{
    if (XALLOC_CHECKED || capacity < 2)
        return xfree(data);
    word_t **list = &spare.arrays[std::bit_width(capacity) - 1];
    data[0] = to_word(*list);
    data[1] = capacity;
    *list = data;
}

static word_t *get_array(uint32_t capacity)
{
    word_t **list = &spare.arrays[std::bit_width(capacity) - 1], *data = *list;
    if (!data || data[1] < capacity)
        return xnew<word_t>(capacity);
    *list = from_word<word_t *>(data[0]);
    memset(data, 0, capacity * sizeof(word_t));
    return data;
}

static void need_index(vector_t *v, uint32_t i)
{
    if (i < v->capacity)
        return;
    uint64_t capacity = v->capacity ? uint64_t{v->capacity} * 2 : v->initial ? v->initial : 1;
    while (capacity <= i)
        capacity *= 2;
    if (capacity > UINT32_MAX)
        xalloc_fail();
    word_t *data = get_array(static_cast<uint32_t>(capacity));
    if (v->count)
        memcpy(data, v->data, v->count * sizeof(word_t));
    if (v->capacity)
        drop_array(v->data, v->capacity);
    v->data = data;
    v->capacity = static_cast<uint32_t>(capacity);
}

vector_t *vec_new(made_at_t at) { return vec_new_size(10, at); }

vector_t *vec_new_size(uint32_t initial, made_at_t at)
{
    vector_t *v = spare.vectors;
    if (v)
        spare.vectors = reinterpret_cast<vector_t *>(v->data);
    else
        v = xnew<vector_t>();
    *v = {.count = 0, .capacity = 0, .initial = initial, .depth = 0, .data = nullptr, .iters = nullptr, .stat = nullptr};
    if (container_stats_on)
        v->stat = container_made(CONTAINER_VECTOR, &v->count, at);
    return v;
}

void vec_destroy(vector_t *v)
{
    if (!v)
        return;
    if (v->stat)
        container_gone(v->stat);
    while (v->iters)
        vec_iterDone(v, false);
    if (v->capacity)
        drop_array(v->data, v->capacity);
    v->count = v->capacity = 0;
    v->data = reinterpret_cast<word_t *>(spare.vectors);
    spare.vectors = v;
}

void vec_add(vector_t *v, word_t x)
{
    ASSERTION(v, "p != NULL");
    if (v->count == v->capacity)
        need_index(v, v->count);
    v->data[v->count++] = x;
}

uint32_t vec_addNotPresent(vector_t *v, word_t x)
{
    int64_t i = vec_indexOf(v, x);
    if (i >= 0)
        return static_cast<uint32_t>(i);
    vec_add(v, x);
    return v->count - 1;
}

void vec_addAll(vector_t *v, const vector_t *other)
{
    for (uint32_t i = 0, n = vec_size(other); i < n; i++)
        vec_add(v, other->data[i]);
}

void vec_addAllNotPresent(vector_t *v, const vector_t *other)
{
    for (uint32_t i = 0, n = vec_size(other); i < n; i++)
        vec_addNotPresent(v, other->data[i]);
}

void vec_insert(vector_t *v, word_t x, uint32_t i)
{
    ASSERTION(v, "p != NULL");
    if (i >= v->count) {
        vec_setAt(v, x, i);
    } else {
        need_index(v, v->count);
        memmove(v->data + i + 1, v->data + i, (v->count - i) * sizeof(word_t));
        v->data[i] = x;
        v->count++;
    }
    for (vec_iter_t *it = v->iters; it; it = it->outer)
        it->next += it->next >= i;
}

void vec_move(vector_t *v, uint32_t from, uint32_t to)
{
    ASSERTION(v, "p != NULL");
    if (from >= v->count || to >= v->count)
        return;
    word_t x = v->data[from];
    if (from < to)
        memmove(v->data + from, v->data + from + 1, (to - from) * sizeof(word_t));
    else
        memmove(v->data + to + 1, v->data + to, (from - to) * sizeof(word_t));
    v->data[to] = x;
}

void vec_setAt(vector_t *v, word_t x, uint32_t i)
{
    ASSERTION(v, "p != NULL");
    need_index(v, i);
    if (i >= v->count) {
        memset(v->data + v->count, 0, (i - v->count) * sizeof(word_t));
        v->count = i + 1;
    }
    v->data[i] = x;
}

bool vec_remove(vector_t *v, word_t x)
{
    int64_t i = vec_indexOf(v, x);
    if (i >= 0)
        vec_removeAt(v, static_cast<uint32_t>(i));
    return i >= 0;
}

void vec_removeAt(vector_t *v, uint32_t i)
{
    ASSERTION(v, "p != NULL");
    if (i >= v->count)
        return;
    if (v->stat)
        container_shrinks(v->stat);
    v->count--;
    memmove(v->data + i, v->data + i + 1, (v->count - i) * sizeof(word_t));
    for (vec_iter_t *it = v->iters; it; it = it->outer)
        it->next -= it->next > i;
}

void vec_removeAll(vector_t *v)
{
    ASSERTION(v, "p != NULL");
    if (v->stat)
        container_shrinks(v->stat);
    v->count = 0;
}

word_t vec_elementAt(const vector_t *v, uint32_t i)
{
    ASSERTION(v, "p != NULL");
    return i < v->count ? v->data[i] : 0;
}

int64_t vec_indexOf(const vector_t *v, word_t x)
{
    ASSERTION(v, "p != NULL");
    for (uint32_t i = 0; i < v->count; i++)
        if (v->data[i] == x)
            return i;
    return -1;
}

uint32_t vec_size(const vector_t *v) { return v ? v->count : 0; }

word_t vec_top(const vector_t *v)
{
    ASSERTION(v, "p != NULL");
    return v->count ? v->data[v->count - 1] : 0;
}

word_t vec_pop(vector_t *v)
{
    word_t x = vec_top(v);
    if (v->count)
        vec_removeAt(v, v->count - 1);
    return x;
}

void vec_sort(vector_t *v, int (*cmp)(const word_t *, const word_t *))
{
    ASSERTION(v, "p != NULL");
    auto typed = [](const void *a, const void *b, void *arg) {
        return (*static_cast<int (**)(const word_t *, const word_t *)>(arg))(static_cast<const word_t *>(a),
                                                                             static_cast<const word_t *>(b));
    };
    osdep_qsort_arg(v->data, v->count, sizeof(word_t), typed, &cmp);
}

vector_t *vec_copy(const vector_t *v, made_at_t at)
{
    if (!v)
        return nullptr;
    vector_t *copy = vec_new_size(v->initial, at);
    vec_addAll(copy, v);
    return copy;
}

void vec_iterStart(vector_t *v)
{
    ASSERTION(v, "p != NULL");
    vec_iter_t *it = spare.iters;
    if (it)
        spare.iters = it->outer;
    else
        it = xnew<vec_iter_t>();
    *it = {v->iters, 0};
    v->iters = it;
    v->depth++;
}

bool vec_iterHasNext(const vector_t *v)
{
    ASSERTION(v, "p != NULL");
    return v->iters && v->iters->next < v->count;
}

word_t vec_iterNext(vector_t *v) { return vec_iterHasNext(v) ? v->data[v->iters->next++] : 0; }

word_t vec_iterLook(const vector_t *v) { return vec_iterHasNext(v) ? v->data[v->iters->next] : 0; }

bool vec_iterDone(vector_t *v, bool keep)
{
    ASSERTION(v, "p != NULL");
    if (keep || !v->iters)
        return keep;
    vec_iter_t *it = v->iters;
    v->iters = it->outer;
    v->depth--;
    it->outer = spare.iters;
    spare.iters = it;
    return false;
}

word_t vec_iterFirst(vector_t *v)
{
    vec_iterStart(v);
    return vec_iterNext(v);
}
