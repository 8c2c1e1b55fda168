// The columns and pages of a listing, blank by blank, and the text of one node.
#include <gtest/gtest.h>

#include <string>

#include "chip/chip.h"
#include "code/ops.h"
#include "options.h"
#include "out/emasm.h"
#include "out/emlist.h"
#include "out/emobj.h"

class Listing : public testing::Test {
protected:
    chipinfo_t chip = {};
    symbol_t *ext, *psect;

    void SetUp() override
    {
        chip.c_arch = arch_find("ZEL8");
        chip.c_name = "X";
        opt = {};
        opt.cur_chip = &chip;
        opt.version_text = "1";
        opt.page_width = 60;
        sym_init();
        cur_psect = psect = sym_enter("p", S_PSECT);
        ext = sym_enter("ext", 0);
        ext->s_flags |= S_GLOBAL;
    }
    void TearDown() override { opt = {}; }

    op_t *append(uint16_t type, uint16_t subop, const value_t &v, uint8_t kind, const char *remark = nullptr)
    {
        op_t *op = op_insert_after(psect->s_psect->p_code->tail.op_prev, op_new());
        op->op_type = type;
        op->op_subop = subop;
        op->op_opnd1 = {kind, 0, v};
        op->op_remark = remark;
        return op;
    }
    static std::string listed()
    {
        size_all();
        FILE *f = tmpfile();
        list_write(f);
        std::string all(static_cast<size_t>(ftell(f)), '\0');
        rewind(f);
        EXPECT_EQ(all.size(), fread(all.data(), 1, all.size(), f));
        fclose(f);
        return all;
    }
    // A line: its text stands behind 33 columns.
    static std::string row(std::string front, const std::string &text)
    {
        front.resize(33, ' ');
        return front + text + "\n";
    }
};

TEST_F(Listing, ColumnsStandWhereTheyShould)
{
    symbol_t *label = sym_newlabel();
    append(T_MOVLW, 0x0E00, value_const(1), OPND_LIT, ";012345678901234567");    // 28 characters of text: just the room
    append(T_MOVLW, 0x0E00, value_const(2), OPND_LIT, ";0123456789012345678");
    append(T_GOTO, 0xEF00, value_sym(ext), OPND_CODE);
    append(T_NOP, 0x0003, {}, OPND_NONE, "\n;;flush left");
    append(T_NAME, 0, {}, OPND_NONE)->op_sym = label;   // not shown, and neither is its address
    label->s_refs = 1;
    const std::string all = listed();
    EXPECT_NE(std::string::npos, all.find(
        row("     4", "") + row("     5", "\tpsect\tp") + row("     6  0000' 0E01", "\tmovlw\t1\t;012345678901234567") +
        row("     7  0002' 0E02", "\tmovlw\t2\t;012345678901234567") + row("      +", "8") +
        row("     8  0004' EF00' F000'", "\tgoto\text") + row("     9  0008' 0003", "\tsleep\t\t") +
        "    10 ;;flush left\n" + row("    11", "tosu\tequ\t0x0"))) << all;
}

TEST_F(Listing, PagesEndBeforeTheFormLength)
{
    opt.form_length = 16;
    append(T_NOP, 0x0003, {}, OPND_NONE);
    for (const char *name : {"one", "two", "three", "four"}) {
        symbol_t *s = sym_enter(name, 0);
        s->s_flags = S_GLOBAL;
        s->s_refs = 1;
    }
    // 7 lines a page: 44 in all fill six and leave two for another. Then a page of symbols, three to a line.
    const std::string all = listed(), head = "\n\nVelmora Zentra QVK Assembler 1               Page ";
    EXPECT_EQ(0u, all.find(head + "1\n" + std::string(35, ' ')));
    EXPECT_NE(std::string::npos, all.find(row("     7  0000' 0003", "\tsleep\t") + "\f" + head + "2\n"));
    EXPECT_NE(std::string::npos, all.find(row("    42", "fsr2h\tequ\t0x0") + "\f" + head + "7\n"));
    const size_t symbols = all.find(row("    44", "status\tequ\t0x0") +
                                    "\f\n\nVelmora Technology ZEL8 Macro Assembler 1               Page 8\nSymbol Table  ");
    ASSERT_NE(std::string::npos, symbols);
    const std::string end = "\n\n        one 000000          two 000000         four 000000  \n      three 000000  \n\f";
    EXPECT_EQ(all.size() - end.size(), all.find(end, symbols)) << all.substr(symbols);
}

TEST_F(Listing, TextForComparisonIsTheStatementAlone)
{
    op_t *op = append(T_MOVLW, 0x0E00, value_const(300), OPND_LIT, "; remark");
    op_t *label = append(T_NAME, 0, {}, OPND_NONE);
    op->op_comment = vec_make<const char *>();
    vec_add(op->op_comment, "\n");
    op->op_file = "x.c";
    op->op_line = 7;
    label->op_sym = ext;
    ext->s_refs = 1;
    opt.asm_output = true;
    EXPECT_EQ("\tmovlw\t300\n", asm_op(op, ASM_COMPARE));
    EXPECT_EQ("ext:\n", asm_op(label, ASM_COMPARE));
    EXPECT_EQ("\tfile\t\"x.c\"\n\tline\t7\n\n\tmovlw\t300\t; remark\n", asm_op(op, ASM_PRINT));
    EXPECT_EQ("", asm_op(label, ASM_PRINT));
}
