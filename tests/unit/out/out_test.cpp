// The columns and pages of a listing, blank by blank, and a knot of the size pass, on nodes made by hand.
#include <gtest/gtest.h>

#include <string>

#include "chip/chip.h"
#include "code/layout.h"
#include "code/ops.h"
#include "code/program.h"
#include "options.h"
#include "out/emlist.h"

class Out : public testing::Test
{
  protected:
    chipinfo_t chip = {};
    void SetUp() override
    {
        chip.c_arch = arch_find("ZEL8");
        chip.c_name = "X";
        options_to_write() = {};
        chip_select(&chip);
        sym_init();
        cur_psect = sym_enter("p", S_PSECT);
    }
    void TearDown() override
    {
        options_to_write() = {};
        chip_select(nullptr);
    }

    static op_t *append(token_t type, uint16_t subop, const value_t &v, opnd_kind_t kind, const char *remark = nullptr)
    {
        op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
        op->op_type = type;
        op->op_subop = subop;
        op->op_opnd1 = {kind, ACCESS_UNSET, v};
        op->op_bytes = static_cast<uint64_t>(v.v_offs);
        op_more(op)->op_remark = remark;
        return op;
    }
    static op_t *append_label(symbol_t *s)
    {
        op_t *op = append(T_NAME, 0, {}, OPND_NONE);
        op->op_sym = s;
        s->s_flags &= ~uint64_t{S_UNDEF};
        s->s_value = value_sym(s);
        return op;
    }
};

// A line: its text stands behind 33 columns.
static std::string row(std::string front, const std::string &text)
{
    front.resize(33, ' ');
    return front + text + "\n";
}

TEST_F(Out, ColumnsAndPages)
{
    options_to_write().version_text = "1";
    program.page = {.form_length = 16, .page_width = 60};
    for (const char *name : {"one", "two", "ext", "none"}) {
        symbol_t *s = sym_enter(name, 0);
        s->s_flags |= S_GLOBAL;
        s->s_refs = *name != 'n';
    }
    append(T_MOVLW, 0x0E00, value_const(1), OPND_LIT, ";012345678901234567");   // 28 characters of text: just the room
    append(T_MOVLW, 0x0E00, value_const(2), OPND_LIT, ";0123456789012345678");
    append(T_GOTO, 0xEF00, value_sym(sym_find("ext")), OPND_CODE);
    append(T_NOP, 0x0003, {}, OPND_NONE, "\n ;;flush left");
    append_label(sym_newlabel())->op_sym->s_refs = 1;   // not shown, and neither is its address
    size_all();
    FILE *f = tmpfile();
    list_write(f, nullptr);
    std::string all(static_cast<size_t>(ftell(f)), '\0');
    rewind(f);
    ASSERT_EQ(all.size(), fread(all.data(), 1, all.size(), f));
    fclose(f);

    // Seven lines a page. Then a page of symbols, three to a line, in the order of the table.
    const std::string head = "\n\nVelmora Zentra QVK Assembler 1               Page ", remark = "\t;012345678901234567";
    EXPECT_EQ(0u, all.find(head + "1\n" + std::string(35, ' ')));
    EXPECT_NE(std::string::npos,
              all.find(row("     6", "\tpsect\tp") + row("     7  0000' 0E01", "\tmovlw\t1" + remark) + "\f" + head + "2\n"))
        << all;
    EXPECT_NE(std::string::npos,
              all.find(row("    48", "status\tequ\t0x0") +
                       "\f\n\nVelmora Technology ZEL8 Macro Assembler 1               Page 8\nSymbol Table  "));
    const std::string end = "\n\n        ext 000000*         one 000000*         two 000000* \n\f";
    EXPECT_EQ(all.size() - end.size(), all.rfind(end)) << all;
}

TEST_F(Out, BranchesThatChaseEachOtherSettle)
{
    // With the `goto` short, T moves down and the backward branch no longer reaches it; when that grows, `goto` no longer
    // reaches F; when that grows again, T moves up, and so on.
    options_to_write().optimise = true;
    symbol_t *f = sym_enter("F", 0), *t = sym_enter("T", 0);
    append(T_GOTO, 0, value_sym(f), OPND_NONE);
    append_label(t);
    append(T_DS, 0, value_const(200), OPND_NONE);
    append(T_ALIGN, 0, value_const(256), OPND_NONE);
    append(T_DS, 0, value_const(2), OPND_NONE);
    op_t *back = append(T_BCC, 0, value_sym(t), OPND_NONE);
    append(T_DS, 0, value_const(1788), OPND_NONE);
    op_t *end = append_label(f);
    size_psect(cur_psect);
    EXPECT_EQ(back->op_offs, 258u);
    EXPECT_EQ(end->op_offs, 258u + 4 + 1788);
    EXPECT_EQ(cur_psect->s_psect->p_top, end->op_offs);
}
