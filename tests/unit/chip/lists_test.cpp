// Range lists: what adding, splitting and subtracting leave.
#include "chipfile.h"

static memrange_t *parse(const char *text) {
    memrange_t *list = nullptr, **tail = &list;
    uint32_t lo, hi;
    for (int n; sscanf(text, "%X-%X %n", &lo, &hi, &n) == 2; text += n, tail = &(*tail)->next)
        add_discrete_range(tail, lo, hi, false);
    return list;
}

TEST(Lists, AddKeepsOrderAndSwallowsOverlaps) {
    static const struct { const char *before; uint32_t lo, hi; bool join; const char *after; } cases[] = {
        {"15-30 ", 0x10, 0x20, false, "10-30 "},
        {"10-20 30-35 ", 5, 0x40, false, "5-40 "},
        {"10-20 30-35 ", 0x12, 0x18, true, "10-20 30-35 "},
        {"10-20 ", 0x21, 0x25, true, "10-25 "},
        {"10-20 ", 8, 0xF, true, "8-20 "},
        {"10-20 30-40 50-60 ", 0x20, 0x30, false, "10-40 50-60 "},
        {"10-20 ", 0xFFFFFFF0, 0xFFFFFFFF, true, "10-20 FFFFFFF0-FFFFFFFF "},
    };
    for (const auto &c : cases) {
        memrange_t *list = parse(c.before);
        add_discrete_range(&list, c.lo, c.hi, c.join);
        EXPECT_EQ(show(list), c.after) << c.before << " + " << c.lo << "-" << c.hi;
        range_free(list);
    }
}

TEST(Lists, SplitAtPageLimits) {
    static const struct { uint32_t lo, hi, page; const char *after; } cases[] = {
        {0xF0, 0x110, 0x100, "F0-FF 100-110 "}, {0, 0x1FF, 0x100, "0-FF 100-1FF "},
        {0xF0, 0x110, 0, "F0-110 "}, {0xFFFFFEF0, 0xFFFFFFFF, 0x100, "FFFFFEF0-FFFFFEFF FFFFFF00-FFFFFFFF "},
    };
    for (const auto &c : cases) {
        memrange_t *list = nullptr;
        add_range_split(&list, c.lo, c.hi, c.page, false);
        EXPECT_EQ(show(list), c.after);
    }
}

TEST(Lists, SubtractCutsAndJoinsNothing) {
    static const struct { const char *a, *b, *rest; } cases[] = {
        {"0-FF ", "60-7F ", "0-5F 80-FF "}, {"0-FF 100-1FF ", "", "0-FF 100-1FF "}, {"", "0-5 ", ""},
        {"0-FF 100-1FF ", "F0-10F ", "0-EF 110-1FF "}, {"10-20 30-40 ", "0-FFFFFFFF ", ""},
        {"10-20 ", "10-10 20-20 ", "11-1F "},
        {"0-FF 100-1FF 200-2FF ", "40-4F 60-6F 150-FFFFFFFF ", "0-3F 50-5F 70-FF 100-14F "},
    };
    for (const auto &c : cases) {
        memrange_t *a = parse(c.a), *b = parse(c.b);
        EXPECT_EQ(show(range_subtract(a, b)), c.rest) << c.a << " - " << c.b;
        EXPECT_EQ(show(a) + show(b), std::string(c.a) + c.b);
    }
}
