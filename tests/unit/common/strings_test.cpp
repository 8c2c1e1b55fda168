// The string cache and the allocator's string functions.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "child.h"
#include "common/stringcache.h"
#include "common/xalloc.h"

// First of all: the table of this process must not have been made yet.
TEST(StringCache, LimitAndOff) {
    auto shared = [](const char *a, const char *b) { return cache_string(a) == cache_string(b); };
    EXPECT_EQ(in_child([&] {
        cache_limit = 1;
        bool ok = shared("in", std::string("in").c_str()) && !shared("out", std::string("out").c_str());
        exit(ok && std::string("out") == cache_string("out"));
    }).status, 1);
    EXPECT_EQ(in_child([&] {
        cache_size = 0;
        exit(!shared("a", "a") && std::string("b") == cache_string("b"));
    }).status, 1);
}

TEST(StringCache, EqualTextIsOnePointer) {
    char buffer[] = "abc";
    const char *s = cache_string(buffer);
    EXPECT_NE(s, buffer);
    EXPECT_EQ(cache_string("abc"), s);
    EXPECT_EQ(cache_adopt(buffer), s);
    static const char fresh[] = "adopted";
    EXPECT_EQ(cache_adopt(fresh), fresh);
    EXPECT_EQ(cache_string("adopted"), fresh);
    std::string wide(20000, 'x');
    EXPECT_EQ(cache_printf("<%s>", wide.c_str()), "<" + wide + ">");
}

TEST(StringCache, Paths) {
    EXPECT_STREQ(cache_path_join("a/", "/b"), "a/b");
    EXPECT_STREQ(cache_path_join("a", "//b"), "a//b");
    EXPECT_STREQ(cache_path_join("", "/b"), "/b");
    EXPECT_STREQ(cache_replace_ext("d.x/a.b.c", ".obj"), "d.x/a.b.obj");
    EXPECT_STREQ(cache_replace_ext("d.x/a", "obj"), "d.x/a.obj");
    EXPECT_STREQ(cache_replace_ext("a.", "..o"), "a..o");
    EXPECT_STREQ(cache_strip_ext("d.x/a"), "d.x/a");
    EXPECT_STREQ(cache_basename("x/"), "");
    EXPECT_STREQ(cache_dirname("/z"), "");
    EXPECT_EQ(cache_dirname("z"), nullptr);
}

TEST(StringCache, Pieces) {
    EXPECT_STREQ(cache_lower("A\xC4Z1"), "a\xC4z1");
    EXPECT_STREQ(cache_upper("a\xE4z1"), "A\xE4Z1");
    EXPECT_STREQ(cache_translate("xy", "xy", "z"), "zy");
    EXPECT_STREQ(cache_trim_chars("--a-b-", "-"), "a-b");
    EXPECT_STREQ(cache_trim(" \t\r\n"), "");
    EXPECT_STREQ(cache_chomp(" a\n\r\n"), " a");
    EXPECT_STREQ(cache_first_line("a b\rc\n"), "a b");
    const char *text = "f(a(b))", *first, *last;
    EXPECT_STREQ(cache_between(text, '(', ')', &first, &last), "a(b");
    EXPECT_EQ(last, text + 5);
    EXPECT_STREQ(cache_escape("a'b\\", "'\\", '\\'), "a\\'b\\\\");
    EXPECT_STREQ(cache_suffix_nocase("text.As", ".aS"), ".As");
    EXPECT_STREQ(cache_after_prefix_nocase("text.As", "TEXT"), ".As");
    EXPECT_EQ(cache_after_prefix("te", "text"), nullptr);
    EXPECT_FALSE(cache_starts_with(nullptr, "x"));
    EXPECT_STREQ(cache_quote("a\"b", '"'), "\"a\\\"b\"");
}

TEST(Xalloc, ZeroedAlignedAndDisjoint) {
    char *previous = nullptr;
    for (size_t size : {1, 7, 8, 9, 4000, 100000, 40000, 3000000, 5, 0}) {
        for (int i = 0; i < 60; i++) {
            char *p = static_cast<char *>(xalloc(size));
            ASSERT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u);
            ASSERT_TRUE(!size || (p[0] == 0 && p[size - 1] == 0 && p[size / 2] == 0)) << size;
            memset(p, 0xFF, size);
            ASSERT_NE(p, previous);
            if (size) previous = p;
        }
    }
}

TEST(Xalloc, Limits) {
    std::string most(4095, 'x'), more(4096, 'x');
    EXPECT_EQ(in_child([&] { exit(xsprintf("%s", more.c_str()) == most); }).text, "buffer overflow in vsnprintf");
    EXPECT_EQ(in_child([&] { exit(xsprintf("%s", most.c_str()) == most); }).text, "");
    EXPECT_EQ(in_child([&] { exit(xsprintf("%s", more.c_str()) == most); }).status, 1);
    // With no catalogue at hand the message has no text of its own, and is still the end.
    for (size_t size : {SIZE_MAX, SIZE_MAX / 2}) {
        outcome_t o = in_child([&] { xalloc(size); });
        EXPECT_EQ(o.status, 1);
        EXPECT_EQ(o.text.substr(o.text.find("(296)")),
                  "(296) An error, warning or message was generated, but no description is available\n");
    }
}
