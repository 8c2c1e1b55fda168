// Nodes, their comments and references.
#include "code/list.h"

#include "code/ops.h"
#include "code_test.h"

static op_t *append(uint16_t type)
{
    op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
    op->op_type = type;
    return op;
}

static op_t *append_label(const char *name, uint64_t flags = 0)
{
    op_t *op = append(T_NAME);
    op->op_sym = sym_enter(name, 0);
    op->op_sym->s_flags = flags;
    op->op_sym->s_defop = op;
    return op;
}

static op_t *append_jump(uint16_t type, const char *name)
{
    op_t *op = append(type);
    op->op_opnd1.opnd_value = value_sym(sym_enter(name, 0));
    return op;
}

static std::string comments(const op_t *op)
{
    static std::string s;
    s.clear();
    op_comments_each(op, [](const char *text) { s += text; });
    return s;
}

class List : public testing::Test {
protected:
    void SetUp() override
    {
        sym_init();
        srcpos = {};
        srcpos.cur_file = "t.as";
        srcpos.cur_line = 5;
    }
    code_list_t *code() { return cur_psect->s_psect->p_code; }
};

TEST_F(List, LinkingAndLabels)
{
    op_t *first = append(T_NOP), *after = append(T_NOP);
    op_t *bare = op_new();
    op_link_after(first, bare);
    EXPECT_EQ(bare->op_psect, cur_psect);
    op_unlink(bare);
    EXPECT_TRUE(first->op_next == after && after->op_prev == first && bare->op_id != 0);
    op_t *label = op_ensure_label(after);
    EXPECT_TRUE(label->op_prev == first && label->op_sym->s_defop == label);
    EXPECT_EQ(op_ensure_label(after), label);
}

TEST_F(List, DeletionAndReuse)
{
    op_comment_add("; one", 5);
    op_comment_add("; two, three", 5);
    op_comment_add(";! summary\nrest", 10);
    op_t *a = append(T_NOP), *b = append(T_NOP);
    EXPECT_EQ(comments(a), "\n; one\n; two\n");
    EXPECT_TRUE(vec_size(a->op_comment) == 3 && !op_comments_any(b));
    EXPECT_EQ(op_delete(a), 1);
    EXPECT_EQ(comments(b), "\n; one\n; two\n");
    EXPECT_EQ(op_delete_if_live(a), 0);
    EXPECT_EQ(op_delete_if_live(b), 1);   // to the sentinel
    EXPECT_TRUE(list_empty(code()));
    EXPECT_EQ(comments(&code()->tail), "\n; one\n; two\n");
    op_t *again = append(T_NOP);
    EXPECT_EQ(again, b);                  // recycled, and clean
    EXPECT_TRUE(!op_comments_any(again) && again->op_id != 0);
    op_comment_add("; psect", 7);
    vec_t<const char *> v = vec_make<const char *>();
    pending_comments_to(v);
    EXPECT_EQ(vec_size(v), 2u);
    EXPECT_FALSE(op_comments_any(append(T_NOP)));   // the psect has taken them
    op_comments_copy(again, &code()->tail);
    op_comments_append(again, again->op_next);
    op_comments_append(again, again->op_next);
    EXPECT_EQ(vec_size(again->op_next->op_comment), 6u);
}

TEST_F(List, TargetsAndReferences)
{
    append_label("start", S_GLOBAL);
    op_t *skip = append(T_BTFSC);
    op_t *jump = append_jump(T_GOTO, "end");
    append(T_NUMLABEL);
    op_t *landing = append(T_NOP);
    op_t *second = append_jump(T_BCC, "end");
    op_t *end = append_label("end", S_GLOBAL | S_UNDEF);
    op_t *skips_last = append(T_CPFSEQ), *last = append(T_DECFSZ);
    EXPECT_TRUE(op_target(jump) == end && op_target(skip) == landing && !op_target(landing));
    EXPECT_TRUE(op_target(skips_last) == &code()->tail && !op_target(last));
    list_build_refs(cur_psect);
    EXPECT_TRUE(sym_find("start")->s_flags & S_DEFHERE);
    EXPECT_EQ(vec_size(end->op_refs), 2u);
    EXPECT_FALSE(landing->op_refs);   // a label has references, the place a skip leads to has none
    op_add_ref(jump, end);
    op_delete(jump);
    EXPECT_EQ(vec_size(end->op_refs), 1u);
    op_remove_ref(second, end);
    EXPECT_EQ(vec_size(end->op_refs), 0u);
    list_clear_refs(cur_psect);
    for (op_t *op = code()->head.op_next; op; op = op->op_next)
        EXPECT_EQ(vec_size(op->op_refs), 0u);
}
