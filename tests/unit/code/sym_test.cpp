// The symbol table: hiding, and the orders of output.
#include "code/sym.h"

#include "code/list.h"
#include "code_test.h"
#include "options.h"

static std::string names(vec_t<symbol_t *> v)
{
    std::string s;
    for (symbol_t *sym : v)
        s += std::string(sym->s_name) + (sym->s_flags & S_PSECT ? "/p " : sym->s_flags & S_CLASS ? "/c " : " ");
    return s;
}

TEST(Sym, HidingUnlinkingAndGrowth)
{
    sym_init();
    symbol_t *old = sym_enter("x", 0), *first = sym_clone(old), *second = sym_clone(old);
    first->s_flags = second->s_flags = S_MACROARG;
    sym_link(first), sym_link(second);
    EXPECT_EQ(sym_find("x"), second);
    sym_unlink(first);
    EXPECT_EQ(sym_find("x"), second);
    sym_unlink(second);
    EXPECT_EQ(sym_find("x"), old);
    sym_free(first), sym_free(second);
    // Holes in the index don't cut off what stands behind them, and 2 + 60490 records are the most there can be.
    symbol_t *all[60489];
    EXPECT_EQ(said([&] {
        for (int i = 0; i < 60489; i++)
            all[i] = sym_enter(("name" + std::to_string(i)).c_str(), 0);
        for (int i = 0; i < 60489; i += 3)
            sym_unlink(all[i]);
        for (int i = 0; i < 60489; i++)
            ASSERT_EQ(sym_find(("name" + std::to_string(i)).c_str()), i % 3 ? all[i] : nullptr) << i;
        for (int i = 0; i < 60489; i += 3)
            sym_link(all[i]);
    }), "");
    EXPECT_EQ(said([] { sym_enter("last", 0); }), " 0:309");
    const std::string longest(100000, 'n');
    sym_init();
    symbol_t *s = sym_enter(longest.c_str(), 0);
    EXPECT_EQ(sym_enter(longest.data(), longest.size() - 1, 0)->s_name, longest.substr(1));
    EXPECT_EQ(sym_find(longest.c_str()), s);
    EXPECT_EQ(sym_longest_name(), 100000u);
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
    set_t *set = sym_set_new();
    for (const char *name : {"x", "bd", "af", "x"})
        set_add(set, to_word(sym_enter(name, 0)));
    set_add(set, to_word(sym_enter("bd", S_PSECT)));
    EXPECT_EQ(names({set_vector(set)}), "af bd bd/p x ");
}

TEST(Sym, PsectOrder)
{
    auto order = [](std::initializer_list<const char *> pairs) {
        sym_init();
        for (const char *name : {"a", "b", "c", "d"})
            sym_enter(name, S_PSECT);
        for (const char *pair : pairs)
            sym_enter(pair, 1, S_PSECT)->s_psect->p_with = sym_enter(pair + 1, S_PSECT);
        std::string s, messages = said([&] { s = names(psect_order()); });
        return s + messages;
    };
    EXPECT_EQ(order({}), "d/p c/p b/p a/p /p ");
    EXPECT_EQ(order({"ab", "bc"}), "c/p b/p d/p a/p /p ");        // depths 1 2 3 1
    EXPECT_EQ(order({"cb", "da"}), "b/p a/p d/p c/p /p ");
    EXPECT_EQ(order({"ba", "ab"}), "b/p d/p c/p a/p /p  0:783");
    EXPECT_EQ(order({"ab", "ba", "cd", "dc"}), "d/p b/p c/p a/p /p  0:783 0:783");
    EXPECT_EQ(order({"ab", "bc", "cb"}).substr(19), " 0:783");    // a circle that is entered from outside
    EXPECT_EQ(order({"aa"}), "d/p c/p b/p a/p /p  0:783");
}

