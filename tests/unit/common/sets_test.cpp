// Sets and the small tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "common/freecache.h"
#include "common/set.h"
#include "common/tally_table.h"

typedef std::vector<word_t> words;

static words list(const set_t *s) {
    vector_t *v = set_vector(s);
    return v->count ? words(v->data, v->data + v->count) : words();
}

static set_t *make(const words &from, skip_cmp_t compare = nullptr) {
    set_t *s = set_new(compare);
    for (word_t x : from) set_add(s, x);
    return s;
}

static int downward(word_t a, word_t b) { return a > b ? -1 : a < b; }

TEST(Set, OrderAndNestedWalks) {
    set_t *s = make({100, 64, 63, 3, 0, 3, 1ull << 40, 64}, downward);
    const words all = {0, 3, 63, 1ull << 40, 100, 64};
    EXPECT_EQ(list(s), all);
    words outer, inner;
    for (set_iterReset(s); set_iterHasNext(s);) {
        EXPECT_EQ(set_iterLook(s), all[outer.size()]);
        outer.push_back(set_iterNext(s));
        if (outer.back() != 100) continue;
        for (set_iterReset(s); set_iterHasNext(s);) inner.push_back(set_iterNext(s));
        set_iterDone(s);
        EXPECT_TRUE(set_remove(s, 100));   // the member at hand
    }
    EXPECT_EQ(set_iterNext(s), 0u);
    set_iterDone(s);
    EXPECT_EQ(outer, all);
    EXPECT_EQ(inner, all);
    EXPECT_TRUE(set_contains(s, 64) && !set_contains(s, 100));
    EXPECT_FALSE(set_add(s, 63));
}

TEST(Set, Operations) {
    set_t *a = make({1, 2, 100, 200}), *b = make({2, 3, 200, 300});
    auto with_b = [&](void (*op)(set_t *, const set_t *)) {
        set_t *s = set_clone(a);
        op(s, b);
        return list(s);
    };
    EXPECT_EQ(with_b(set_union), (words{1, 2, 3, 100, 200, 300}));
    EXPECT_EQ(with_b(set_intersect), (words{2, 200}));
    EXPECT_EQ(with_b(set_difference), (words{1, 3, 100, 300}));
    EXPECT_EQ(with_b(set_complement), (words{1, 100}));
    EXPECT_TRUE(set_queryEqual(a, make({200, 100, 2, 1})) && !set_queryEqual(a, b));
    EXPECT_TRUE(set_queryIntersect(a, b) && set_queryComplement(a, make({3, 300})));
    EXPECT_TRUE(set_querySubset(make({1, 100}), a) && !set_querySubset(make({1, 300}), a));
    set_destroy(b);
    EXPECT_EQ(list(set_new(nullptr)), words());   // a recycled record is clean
}

TEST(SmallTables, Freecache) {
    freecache_t *fc = freecache_new(24, 1);
    char *a = static_cast<char *>(freecache_get(fc)), *b = static_cast<char *>(freecache_get(fc));
    memset(a, 'x', 24);
    freecache_add(fc, a);
    freecache_add(fc, b);   // over the limit: freed
    EXPECT_EQ(freecache_get(fc), a);
    EXPECT_EQ(std::count(a, a + 24, 0), 24);
    EXPECT_NE(freecache_get(fc), a);
}

TEST(SmallTables, Tally) {
    tally_t *t = tally_new(13, 1, nullptr, nullptr);
    const word_t keys[] = {7, 8, 8, 7, 7}, tops[] = {7, 7, 8, 8, 7};   // a tie leaves the list as it is
    for (int i = 0; i < 5; i++) {
        tally_add(t, keys[i]);
        EXPECT_EQ(tally_top(t), tops[i]) << i;
    }
    t = tally_new(13, 2, nullptr, nullptr);
    for (word_t key : {1, 2, 3, 3, 2, 3}) tally_add(t, key);   // 3 drives 2 out, 2 drives 1 out, 3 passes
    EXPECT_EQ(tally_top(t), 3u);
}

