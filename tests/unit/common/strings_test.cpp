// The string cache and the allocator's string functions.
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <cstring>
#include <string>

#include "child.h"
#include "common/ref.h"
#include "common/stringcache.h"
#include "common/xalloc.h"

TEST(StringCache, EqualTextIsOnePointer)
{
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
    EXPECT_EQ(cache_suffix("x.abc", "abc"), s);
    EXPECT_EQ(cache_after_prefix_nocase("X.abc", "x."), s);
    cache_size = 0;   // off, though there is a table
    EXPECT_NE(cache_string("abc"), s);
    cache_size = 5077;
}

TEST(StringCache, PathsAndPieces)
{
    const char *const cases[][2] = {{cache_path_join("a/", "/b"), "a/b"},
                                    {cache_path_join("a", "//b"), "a//b"},
                                    {cache_path_join("", "/b"), "/b"},
                                    {cache_replace_ext("d.x/a.b.c", ".obj"), "d.x/a.b.obj"},
                                    {cache_replace_ext("d.x/a", "obj"), "d.x/a.obj"},
                                    {cache_replace_ext("a.", "..o"), "a..o"},
                                    {cache_strip_ext("d.x/a"), "d.x/a"},
                                    {cache_basename("x/"), ""},
                                    {cache_dirname("/z"), ""},
                                    {cache_dirname("z"), nullptr},
                                    {cache_lower("A\xC4Z1"), "a\xC4z1"},
                                    {cache_upper("a\xE4z1"), "A\xE4Z1"},
                                    {cache_translate("xy", "xy", "z"), "zy"},
                                    {cache_trim(" \t\r\n"), ""},
                                    {cache_trim_chars("--a-b-", "-"), "a-b"},
                                    {cache_chomp(" a\n\r\n"), " a"},
                                    {cache_first_line("a b\rc\n"), "a b"},
                                    {cache_escape("a'b\\", "'\\", '\\'), "a\\'b\\\\"},
                                    {cache_suffix_nocase("text.As", ".aS"), ".As"},
                                    {cache_after_prefix_nocase("text.As", "TEXT"), ".As"},
                                    {cache_after_prefix("te", "text"), nullptr},
                                    {cache_quote("a\"b", '"'), "\"a\\\"b\""}};
    for (const auto &c : cases)
        EXPECT_STREQ(c[0], c[1]);
    const char *text = "f(a(b))", *first, *last;
    EXPECT_STREQ(cache_between(text, '(', ')', &first, &last), "a(b");
    EXPECT_EQ(last, text + 5);
}

TEST(Xalloc, BlocksAndTooMuch)
{
    char *previous = nullptr;
    for (size_t i = 0, sizes[] = {1, 7, 8, 9, 4000, 100000, 40000, 3000000, 5}; i < 540; i++) {
        const size_t size = sizes[i / 60];
        char *p = static_cast<char *>(xalloc(size));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u);
        ASSERT_TRUE(p != previous && p[0] == 0 && p[size - 1] == 0 && p[size / 2] == 0) << size;
        memset(p, 0xFF, size);
        previous = p;
    }
    // With no catalogue at hand the message has no text of its own, and is still the end.
    for (size_t size : {SIZE_MAX, SIZE_MAX / 2}) {
        outcome_t o = in_child([&] { xalloc(size); });
        EXPECT_EQ(o.status, 1) << o.text;
        EXPECT_NE(o.text.find("(296) "), o.text.npos) << o.text;
    }
}

#if !XALLOC_CHECKED
// What comes again is clean, as large as what was given back, and nobody else's.
TEST(Xalloc, HandedOutAgain)
{
    char *small = static_cast<char *>(xalloc(17)), *large = static_cast<char *>(xalloc(32768)),
         *pages = static_cast<char *>(xalloc(32769));
    const struct {
        char *p;
        size_t size;
    } given[] = {{small, 17}, {large, 32768}, {pages, 32769}};
    for (const auto &g : given) {
        memset(g.p, 0xFF, g.size);
        xgive_back(g.p, g.size);
    }
    for (size_t size : {size_t{0}, size_t{16}, size_t{25}, size_t{32760}, size_t{32769}, SIZE_MAX - 7})
        EXPECT_EQ(xspare(size), nullptr) << size;
    EXPECT_EQ(xspare(24), small);
    EXPECT_EQ(xspare(24), nullptr);
    EXPECT_EQ(std::string(small, 17), std::string(17, '\0'));
    EXPECT_EQ(xalloc_again(32761), large);
    EXPECT_EQ(std::string(large, 32768), std::string(32768, '\0'));
    char *fresh = static_cast<char *>(xalloc_again(32761));
    EXPECT_NE(fresh, large);
}
#endif

#if XALLOC_LOW
// Strangers lie in all low addresses but the last: there the arena goes on until they are full. What lies higher no ref takes.
TEST(Xalloc, StaysLow)
{
    constexpr uintptr_t PIECE = 64 << 20, END = uintptr_t{1} << 34;
    outcome_t o = in_child([&] {
        for (uintptr_t at = uintptr_t{1} << 32; at < END - PIECE; at += PIECE)
            mmap(reinterpret_cast<void *>(at), PIECE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        for (;;)
            if (reinterpret_cast<uintptr_t>(xalloc(4 << 20)) >= END - PIECE)
                fputc('+', stderr);
    });
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(o.text.starts_with("+++++++++") && o.text.find("(296) ") != o.text.npos) << o.text;
    for (const uintptr_t at : {END, uintptr_t{4098}})
        EXPECT_EQ(in_child([&] { ref<int>() = reinterpret_cast<int *>(at); }).status, -1);
}
#endif
