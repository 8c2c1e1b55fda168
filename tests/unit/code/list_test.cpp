// Nodes, their comments and references; the symbol table's capacity, and the orders of output.
#include "code/list.h"

#include "code/ops.h"
#include "code_test.h"

static op_t *append(token_t type, const char *target = nullptr)
{
    op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
    op->op_type = type;
    if (target)
        op->op_opnd1.opnd_value = value_sym(sym_enter(target, 0));
    return op;
}

static op_t *append_label(const char *name, uint64_t flags)
{
    op_t *op = append(T_NAME);
    op->op_sym = sym_enter(name, 0);
    op->op_sym->s_flags = flags;
    op->op_sym->s_defop = op;
    return op;
}

static std::string comments(const op_t *op)
{
    static std::string s;
    s.clear();
    op_comments_each(op, [](const char *text) { s += text; });
    return s;
}

TEST(List, DeletionAndReuse)
{
    sym_init();
    srcpos = {};
    srcpos.cur_file = "t.as";
    srcpos.cur_line = 5;
    code_list_t *code = cur_psect->s_psect->p_code;
    op_comment_add("; one", 5);
    op_comment_add("; two, three", 5);
    op_comment_add(";! summary\nrest", 10);
    op_t *a = append(T_NOP), *b = append(T_NOP);
    EXPECT_EQ(comments(a), "\n; one\n; two\n");
    EXPECT_EQ(vec_size(op_more(a)->op_comment), 3u);
    EXPECT_FALSE(op_comments_any(b));
    EXPECT_EQ(op_delete(a), 1);
    EXPECT_EQ(comments(b), "\n; one\n; two\n");
    EXPECT_EQ(op_delete_if_live(a), 0);
    EXPECT_EQ(op_delete_if_live(b), 1);   // to the sentinel
    EXPECT_TRUE(list_empty(code));
    EXPECT_EQ(comments(&code->tail), "\n; one\n; two\n");
    op_t *again = append(T_NOP);
    EXPECT_EQ(again, b);   // recycled, and clean
    EXPECT_FALSE(op_comments_any(again));
    EXPECT_NE(again->op_id, 0u);
}

TEST(List, TargetsAndReferences)
{
    sym_init();
    append_label("start", S_GLOBAL);
    op_t *skip = append(T_BTFSC), *jump = append(T_GOTO, "end");
    append(T_NUMLABEL);
    op_t *landing = append(T_NOP), *second = append(T_BCC, "end"), *end = append_label("end", S_GLOBAL | S_UNDEF);
    op_t *skips_last = append(T_CPFSEQ), *last = append(T_DECFSZ);
    EXPECT_EQ(op_target(jump), end);
    EXPECT_EQ(op_target(skip), landing);
    EXPECT_FALSE(op_target(landing));
    EXPECT_EQ(op_target(skips_last), &cur_psect->s_psect->p_code->tail);
    EXPECT_FALSE(op_target(last));
    list_build_refs(cur_psect);
    EXPECT_TRUE(sym_find("start")->s_flags & S_DEFHERE);
    EXPECT_EQ(vec_size(op_more(end)->op_refs), 2u);
    EXPECT_FALSE(op_more(landing)->op_refs);   // a label has references, the place a skip leads to has none
    op_add_ref(jump, end);
    op_delete(jump);
    EXPECT_EQ(vec_size(op_more(end)->op_refs), 1u);
    op_remove_ref(second, end);
    EXPECT_EQ(vec_size(op_more(end)->op_refs), 0u);
}

static std::string names(vec_t<symbol_t *> v)
{
    std::string s;
    for (symbol_t *sym : v)
        s += std::string(sym->s_name) + (sym->s_flags & S_PSECT ? "/p " : sym->s_flags & S_CLASS ? "/c " : " ");
    return s;
}

TEST(Sym, HidingAndCapacity)
{
    sym_init();
    symbol_t *first = sym_clone(sym_enter("x", 0)), *second = sym_clone(first);
    first->s_flags = second->s_flags = S_MACROARG;
    sym_link(first), sym_link(second), sym_unlink(first);
    EXPECT_EQ(sym_find("x"), second);
    sym_unlink(second);
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
              }),
              "");
    EXPECT_EQ(said([] { sym_enter("last", 0); }), " 309");
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
        std::string s, messages = said([&] { s = names(psect_order()); });
        return s + messages;
    };
    EXPECT_EQ(order({}), "d/p c/p b/p a/p /p ");
    EXPECT_EQ(order({"ab", "bc"}), "c/p b/p d/p a/p /p ");   // depths 1 2 3 1
    EXPECT_EQ(order({"cb", "da"}), "b/p a/p d/p c/p /p ");
    EXPECT_EQ(order({"ba", "ab"}), "b/p d/p c/p a/p /p  783");
    EXPECT_EQ(order({"ab", "ba", "cd", "dc"}), "d/p b/p c/p a/p /p  783 783");
    EXPECT_EQ(order({"ab", "bc", "cb"}).substr(19), " 783");   // a circle that is entered from outside
    EXPECT_EQ(order({"aa"}), "d/p c/p b/p a/p /p  783");
}
