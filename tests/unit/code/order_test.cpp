// The orders in which symbols and psects go out: other programs' files show the same ones.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "code/list.h"

static std::string names(vec_t<symbol_t *> v)
{
    std::string s;
    for (symbol_t *sym : v)
        s += std::string(sym->s_name) + (sym->s_flags & S_PSECT ? "/p " : sym->s_flags & S_CLASS ? "/c " : " ");
    return s;
}

TEST(Sym, Orders)
{
    // h = c + 2*h: "af", "bd" and "cb" are all 296, "x" is 120, and the predefined name ends up in bucket 186989 - 3*60493.
    EXPECT_EQ(sym_bucket("cb"), 296u);
    EXPECT_EQ(sym_bucket("__OSTRAND__"), 5510u);
    EXPECT_EQ(sym_bucket("\xFF\xFF"), 765u);   // bytes are unsigned
    sym_init();
    for (const char *name : {"af", "x", "bd", "cb"})
        sym_enter(name, 0);
    sym_enter("bd", S_PSECT);
    EXPECT_EQ(names(sym_slot_order()), "/p x bd/p cb bd af __OSTRAND__ ");
    EXPECT_EQ(names(sym_name_order()), "/p __OSTRAND__ af bd bd/p cb x ");

    auto order = [](std::initializer_list<const char *> pairs) {
        sym_init();
        for (const char *name : {"a", "b", "c", "d"})
            sym_enter(name, S_PSECT);
        for (const char *pair : pairs)
            sym_enter(pair, 1, S_PSECT)->s_psect->p_with = sym_enter(pair + 1, S_PSECT);
        testing::internal::CaptureStderr();
        const std::string s = names(psect_order());
        testing::internal::GetCapturedStderr();   // what is told of circles is a case
        return s;
    };
    EXPECT_EQ(order({}), "d/p c/p b/p a/p /p ");
    EXPECT_EQ(order({"ab", "bc"}), "c/p b/p d/p a/p /p ");   // depths 1 2 3 1
    EXPECT_EQ(order({"cb", "da"}), "b/p a/p d/p c/p /p ");
    EXPECT_EQ(order({"ba", "ab"}), "b/p d/p c/p a/p /p ");
    EXPECT_EQ(order({"ab", "ba", "cd", "dc"}), "d/p b/p c/p a/p /p ");
    EXPECT_EQ(order({"aa"}), "d/p c/p b/p a/p /p ");
}

// Records that move up into the place of one that goes are found as before.
TEST(Sym, Removal)
{
    sym_init();
    std::vector<symbol_t *> all;
    for (int i = 0; i < 900; i++)
        all.push_back(sym_enter(("n" + std::to_string(i)).c_str(), 0));
    symbol_t *const hides = sym_clone(all[0]);
    sym_link(hides);
    for (size_t i = 0; i < all.size(); i += 3)
        sym_unlink(all[i]);
    sym_unlink(all[3]);   // which isn't there any more
    for (size_t i = 0; i < all.size(); i++)
        EXPECT_EQ(sym_find(all[i]->s_name), i % 3 ? all[i] : i ? nullptr : hides) << i;
}
