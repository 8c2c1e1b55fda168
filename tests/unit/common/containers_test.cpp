// Order and iterators of vectors, hash tables, skip lists and sets, the sort, and the small tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "common/freecache.h"
#include "common/hash.h"
#include "common/set.h"
#include "common/skiplist.h"
#include "common/sort.h"
#include "common/tally_table.h"
#include "common/vector.h"

typedef std::vector<word_t> words;

static words list(const vector_t *v) { return v->count ? words(v->data, v->data + v->count) : words(); }

static vector_t *make(const words &from)
{
    vector_t *v = vec_new_size(2);
    for (word_t x : from)
        vec_add(v, x);
    return v;
}

TEST(Vector, OrderAndBounds)
{
    vector_t *v = make({5, 6, 7});
    EXPECT_EQ(vec_addNotPresent(v, 6), 1u);
    vec_insert(v, 4, 0);
    vec_insert(v, 9, 4);
    vec_move(v, 1, 3);
    EXPECT_EQ(list(v), (words{4, 6, 7, 5, 9}));
    vec_move(v, 4, 0);
    EXPECT_EQ(list(v), (words{9, 4, 6, 7, 5}));
    EXPECT_TRUE(vec_remove(v, 6));
    EXPECT_FALSE(vec_remove(v, 6));
    EXPECT_EQ(vec_pop(v), 5u);
    EXPECT_EQ(vec_elementAt(v, 3), 0u);
    vec_addAll(v, v);
    vec_addAllNotPresent(v, make({7, 1, 1}));
    EXPECT_EQ(list(v), (words{9, 4, 7, 9, 4, 7, 1}));
}

TEST(Vector, SkippedSlotsAreZeroAlsoAfterUse)
{
    vector_t *v = make({1, 2, 3, 4, 5, 6, 7, 8});
    vec_removeAll(v);
    vec_setAt(v, 1, 24);
    EXPECT_EQ(std::count(v->data, v->data + 25, 0u), 24);
    vec_destroy(v);
    v = vec_new_size(0);   // a used record and used arrays come back clean
    vec_setAt(v, 9, 30);
    EXPECT_EQ(std::count(v->data, v->data + 31, 0u), 30);
}

TEST(Vector, IteratorsFollowChanges)
{
    vector_t *v = make({1, 2, 3, 4});
    words seen;
    for (vec_iterStart(v); vec_iterHasNext(v);) {   // the even ones go, and nothing is missed
        word_t x = vec_iterNext(v);
        seen.push_back(x);
        if (x % 2 == 0)
            vec_remove(v, x);
    }
    vec_iterDone(v, false);
    EXPECT_EQ(seen, (words{1, 2, 3, 4}));
    vec_iterFirst(v);
    vec_insert(v, 8, 1);   // at the place that comes next: moved past, not visited
    EXPECT_EQ(vec_iterLook(v), 3u);
    vec_insert(v, 7, 0);
    vec_removeAt(v, 1);
    EXPECT_EQ(vec_iterNext(v), 3u);
    vec_insert(v, 6, 3);   // at the end, where the walk is
    EXPECT_EQ(vec_iterNext(v), 0u);
}

TEST(Hash, WalkIsByBucketThenInsertion)
{
    hash_t *h = hash_new(4, nullptr, nullptr);
    for (word_t key : {5, 1, 9, 2, 4})
        EXPECT_TRUE(hash_insert(h, key, key * 10));
    EXPECT_FALSE(hash_insert(h, 1, 77));
    EXPECT_EQ(list(hash_keys(h)), (words{4, 5, 1, 9, 2}));
    EXPECT_EQ(hash_remove(h, 1), 10u);
    hash_replace(h, 5, 55);   // removed and appended
    hash_insert(h, 1, 0);
    hash_replace(h, 1, 66);   // an old value of 0 stays
    EXPECT_EQ(list(hash_keys(h)), (words{4, 9, 5, 1, 2}));
    EXPECT_EQ(list(hash_values(h)), (words{40, 90, 55, 0, 20}));
    EXPECT_TRUE(hash_haskey(h, 1));
    auto drop = [](void *arg, word_t key, word_t) -> word_t { return hash_remove(static_cast<hash_t *>(arg), key), 0; };
    hash_each(h, h, drop);   // removing the entry at hand
    EXPECT_EQ(hash_size(h), 0u);
    h = hash_new(2, nullptr, nullptr);
    for (word_t key = 0; key < 100; key++)
        hash_insert(h, key << 40, key + 1);   // more than buckets, alike in the low bits
    for (word_t key = 0; key < 100; key++)
        EXPECT_EQ(hash_lookup(h, key << 40), key + 1);
    for (word_t key = 99; key > 2; key--)
        hash_remove(h, key << 40);
    hash_insert(h, 7, 8);
    EXPECT_EQ(list(hash_values(h)), (words{1, 2, 3, 8}));
    h = hash_new(3, nullptr, nullptr);
    for (word_t key : {(1ull << 32) + 1, 1ull})
        hash_insert(h, key, key);   // the whole word chooses the bucket: 2, 1
    EXPECT_EQ(list(hash_keys(h)), (words{1, (1ull << 32) + 1}));
}

static int by_value(word_t a, word_t b) { return a < b ? -1 : a > b; }
static uint32_t last_digit(word_t key) { return static_cast<uint32_t>(key % 10); }

TEST(Skiplist, HashThenCompare)
{
    skiplist_t *s = skiplist_new(last_digit, by_value);
    for (word_t key : {31, 12, 11, 20, 2, 90})
        EXPECT_TRUE(skiplist_insert(s, key, key + 1000));
    EXPECT_FALSE(skiplist_insert(s, 11, 5));
    EXPECT_EQ(list(skiplist_keys(s)), (words{20, 90, 11, 31, 2, 12}));
    EXPECT_EQ(skiplist_lookup_le(s, 31), 1031u);
    EXPECT_EQ(skiplist_lookup_le(s, 21), 1011u);   // between 11 and 31
    EXPECT_EQ(skiplist_lookup_next(s, 31), 1002u);
    EXPECT_EQ(skiplist_remove(s, 31), 1031u);
    EXPECT_EQ(list(skiplist_values(s)), (words{1020, 1090, 1011, 1002, 1012}));
}

// Elements "2a", "1b", ... compare by the digit alone.
static int by_digit(const void *a, const void *b) { return *static_cast<const char *>(a) - *static_cast<const char *>(b); }

static std::string sorted(std::string in, size_t size)
{
    std::string wide;
    for (size_t i = 0; i < in.size(); i += 2)
        wide += in.substr(i, 2) + std::string(size - 2, '.');
    osdep_qsort(wide.data(), in.size() / 2, size, by_digit);
    std::string out;
    for (size_t i = 0; i < wide.size(); i += size)
        out += wide.substr(i, 2);
    return out;
}

TEST(Sort, EqualElements)
{
    for (size_t size : {2, 8, 799, 800, 1000}) {
        EXPECT_EQ(sorted("1a1b", size), "1b1a");
        // Ends swap, then 1b with 1d, the middle with itself: e d c b a. The left part waits; b a is swapped, then e d.
        EXPECT_EQ(sorted("1a1b1c1d1e", size), "1d1e1c1a1b");
        // Pivot 1b: 2a and 1d change places, 1b with itself. The right part 2c 2a waits and is swapped.
        EXPECT_EQ(sorted("2a1b2c1d", size), "1d1b2a2c");
    }
}

TEST(Sort, ManyElements)
{
    vec_t<uint64_t> v = vec_make<uint64_t>();
    for (uint64_t i = 0; i < 5000; i++)
        vec_add(v, i * i * 2654435761u % 1000);
    vec_sort(v.raw, [](const word_t *a, const word_t *b) { return by_value(*b, *a); });
    EXPECT_TRUE(std::is_sorted(v.raw->data, v.raw->data + 5000, std::greater<>()));
    vec_sort_by<uint64_t, by_value>(v);
    EXPECT_TRUE(std::is_sorted(v.raw->data, v.raw->data + 5000));
    vec_sort(v.raw, [](const word_t *, const word_t *) { return -1; });   // nonsense must not run away
    EXPECT_EQ(vec_size(v), 5000u);
}

static set_t *make_set(const words &from, skip_cmp_t compare = nullptr)
{
    set_t *s = set_new(compare);
    for (word_t x : from)
        set_add(s, x);
    return s;
}

static int downward(word_t a, word_t b) { return a > b ? -1 : a < b; }

TEST(Set, OrderAndNestedWalks)
{
    set_t *s = make_set({100, 64, 63, 3, 0, 3, 1ull << 40, 64}, downward);
    const words all = {0, 3, 63, 1ull << 40, 100, 64};
    EXPECT_EQ(list(set_vector(s)), all);
    words outer, inner;
    for (set_iterReset(s); set_iterHasNext(s);) {
        EXPECT_EQ(set_iterLook(s), all[outer.size()]);
        outer.push_back(set_iterNext(s));
        if (outer.back() != 100)
            continue;
        for (set_iterReset(s); set_iterHasNext(s);)
            inner.push_back(set_iterNext(s));
        set_iterDone(s);
        EXPECT_TRUE(set_remove(s, 100));   // the member at hand
    }
    EXPECT_EQ(set_iterNext(s), 0u);
    set_iterDone(s);
    EXPECT_EQ(outer, all);
    EXPECT_EQ(inner, all);
    EXPECT_FALSE(set_contains(s, 100));
    EXPECT_FALSE(set_add(s, 63));
}

TEST(Set, Operations)
{
    set_t *a = make_set({1, 2, 100, 200}), *b = make_set({2, 3, 200, 300});
    auto with_b = [&](void (*op)(set_t *, const set_t *)) {
        set_t *s = set_clone(a);
        op(s, b);
        return list(set_vector(s));
    };
    EXPECT_EQ(with_b(set_union), (words{1, 2, 3, 100, 200, 300}));
    EXPECT_EQ(with_b(set_intersect), (words{2, 200}));
    EXPECT_EQ(with_b(set_difference), (words{1, 3, 100, 300}));
    EXPECT_EQ(with_b(set_complement), (words{1, 100}));
    EXPECT_TRUE(set_queryEqual(a, make_set({200, 100, 2, 1})));
    EXPECT_FALSE(set_queryEqual(a, b));
    EXPECT_TRUE(set_queryIntersect(a, b));
    EXPECT_TRUE(set_queryComplement(a, make_set({3, 300})));
    EXPECT_TRUE(set_querySubset(make_set({1, 100}), a));
    EXPECT_FALSE(set_querySubset(make_set({1, 300}), a));
    set_destroy(b);
    EXPECT_EQ(list(set_vector(set_new(nullptr))), words());   // a recycled record is clean
}

TEST(SmallTables, FreecacheAndTally)
{
    freecache_t *fc = freecache_new(24, 1);
    char *a = static_cast<char *>(freecache_get(fc)), *b = static_cast<char *>(freecache_get(fc));
    memset(a, 'x', 24);
    freecache_add(fc, a);
    freecache_add(fc, b);   // over the limit: freed
    EXPECT_EQ(freecache_get(fc), a);
    EXPECT_EQ(std::count(a, a + 24, 0), 24);
    EXPECT_NE(freecache_get(fc), a);
    tally_t *t = tally_new(13, 2, nullptr, nullptr);
    const word_t keys[] = {1, 2, 3, 3, 2, 3}, tops[] = {1, 1, 1, 3, 3, 3};
    for (int i = 0; i < 6; i++) {
        tally_add(t, keys[i]);
        EXPECT_EQ(tally_top(t), tops[i]) << i;
    }
}
