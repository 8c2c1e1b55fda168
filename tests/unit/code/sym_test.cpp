// The symbol table: name spaces, hiding, and the orders of output.
#include "code/sym.h"

#include <cstdio>

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

TEST(Sym, NameSpaces)
{
    sym_init();
    symbol_t *psect = sym_enter("text", S_PSECT), *cls = sym_enter("text", S_CLASS);
    EXPECT_FALSE(sym_find("text"));
    symbol_t *label = sym_enter("textual", 4, 0);
    EXPECT_TRUE(sym_is_self(label) && label->s_flags == S_UNDEF && label->s_seqno == 5);
    EXPECT_EQ(sym_find("text"), label);
    EXPECT_EQ(sym_enter("text", S_PSECT), psect);
    EXPECT_EQ(sym_enter("text", S_CLASS), cls);
    symbol_t *made = sym_enter("text", S_PSECT | S_GLOBAL);   // never an existing one
    EXPECT_NE(made, psect);
    EXPECT_EQ(made->s_psect->p_number, 2);
    EXPECT_EQ(sym_enter("text", S_PSECT), made);
    EXPECT_EQ(sym_define_abs("text", 5), label);
    symbol_t *abs = sym_define_abs("fresh", 5);
    EXPECT_TRUE(abs->s_flags == (S_SET | S_GLOBAL) && abs->s_refs == 1);
    EXPECT_STREQ(sym_newlabel()->s_name, "L1");
    symbol_t *second = sym_newlabel();
    EXPECT_TRUE(second->s_labelno == 2 && sym_is_self(second) && !sym_find("L2"));
    label->s_refs = 32766;
    sym_add_ref(label), sym_add_ref(label);
    EXPECT_EQ(label->s_refs, REFS_KEEP);
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
        for (int i = 0; i < 60489; i++)
            ASSERT_EQ(sym_find(("name" + std::to_string(i)).c_str()), all[i]) << i;
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
    sym_enter("af", S_CLASS);
    EXPECT_EQ(names(sym_slot_order()), "/p x af/c bd/p cb bd af __OSTRAND__ ");
    set_t *set = sym_set_new();
    for (const char *name : {"x", "bd", "af", "x"})
        set_add(set, to_word(sym_enter(name, 0)));
    set_add(set, to_word(sym_enter("bd", S_PSECT)));
    EXPECT_EQ(names({set_vector(set)}), "af bd bd/p x ");
    EXPECT_EQ(sym_fn(abs_psect), sym_fn(abs_psect));
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

TEST(Sym, InlinedFunctions)
{
    sym_init();
    inline_symbols();
    symbol_t *kept = sym_enter("kept", S_PSECT);
    kept->s_psect->p_keep = true;
    inline_note(sym_enter("f", 0), abs_psect, 1);
    inline_note(sym_enter("g", 0), kept, 1);
    inline_note(sym_enter("h", 0), kept, 2);
    inline_symbols();
    EXPECT_EQ(sym_find("_inlined$f")->s_value.v_offs, 1);
    EXPECT_EQ(sym_find("_inlined$g")->s_value.v_offs, 3);
    EXPECT_EQ(sym_find("_inlined$h")->s_value.v_offs, 2);
}
