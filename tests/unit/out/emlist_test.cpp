// The columns and pages of a listing, blank by blank, and the text of a node for comparison.
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
        sym_init();
        cur_psect = psect = sym_enter("p", S_PSECT);
        ext = sym_enter("ext", 0);
        ext->s_flags |= S_GLOBAL;
    }
    void TearDown() override { opt = {}; }

    op_t *append(uint16_t type, uint16_t subop, const value_t &v, uint8_t kind)
    {
        op_t *op = op_insert_after(psect->s_psect->p_code->tail.op_prev, op_new());
        op->op_type = type;
        op->op_subop = subop;
        op->op_opnd1 = {kind, 0, v};
        return op;
    }
    op_t *append_movlw(int64_t n, const char *remark)
    {
        op_t *op = append(T_MOVLW, 0x0E00, value_const(n), OPND_LIT);
        op->op_remark = remark;
        return op;
    }
    // The listing of the psect, from the line that tells it.
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
};

// A line of a listing: the text stands behind 33 columns.
static std::string row(std::string front, const std::string &text)
{
    front.resize(33, ' ');
    return front + text + "\n";
}

TEST_F(Listing, ColumnsStandWhereTheyShould)
{
    opt.page_width = 60;
    append_movlw(1, ";012345678901234567");    // 28 characters of text: exactly the room
    append_movlw(2, ";0123456789012345678");   // one more
    append(T_GOTO, 0xEF00, value_sym(ext), OPND_CODE);
    append(T_NOP, 0x0003, {}, OPND_NONE)->op_remark = "\n;;flush left";
    const std::string expected = row("     4", "") + row("     5", "\tpsect\tp") +
        row("     6  0000' 0E01", "\tmovlw\t1\t;012345678901234567") +
        row("     7  0002' 0E02", "\tmovlw\t2\t;012345678901234567") + row("      +", "8") +
        row("     8  0004' EF00' F000'", "\tgoto\text") + row("     9  0008' 0003", "\tsleep\t\t") +
        "    10 ;;flush left\n" + row("    11", "tosu\tequ\t0x0");
    const std::string all = listed();
    EXPECT_NE(std::string::npos, all.find(expected)) << all;
}

TEST_F(Listing, PagesEndBeforeTheFormLength)
{
    opt.page_width = 60;
    opt.form_length = 16;
    for (int i = 0; i < 100; i++)
        append(T_NOP, 0x0003, {}, OPND_NONE);
    for (const char *name : {"one", "two", "three", "four"})
        sym_add_ref(sym_enter(name, 0)), sym_enter(name, 0)->s_flags = S_GLOBAL;
    const std::string all = listed(), product = "\n\nVelmora Zentra QVK Assembler 1";
    EXPECT_EQ(0u, all.find(product + "               Page 1\n" + std::string(35, ' ')));
    // 7 lines a page: 6 before the code, 100 of code, 37 registers.
    for (int page = 2, at = 0; page <= 21; page++) {
        const size_t feed = all.find("\f", static_cast<size_t>(at)), lines = static_cast<size_t>(page - 1) * 7;
        ASSERT_NE(std::string::npos, feed);
        at = static_cast<int>(feed) + 1;
        EXPECT_EQ(feed + 1, all.find(product + "               Page " + std::to_string(page) + "\n", feed));
        EXPECT_NE(std::string::npos, all.rfind("\n" + std::string(6 - std::to_string(lines).length(), ' ') +
                                               std::to_string(lines) + " ", feed));
    }
    // Symbols in columns of 11 characters for the name, three to a line, on a page of their own.
    const size_t symbols = all.find("\f\n\nVelmora Technology ZEL8 Macro Assembler 1               Page 22\nSymbol Table");
    ASSERT_NE(std::string::npos, symbols);
    EXPECT_NE(std::string::npos, all.find("        one 000000         two 000000        four 000000  \n"
                                          "      three 000000  \n\f", symbols)) << all.substr(symbols);
    EXPECT_EQ(all.size(), all.rfind('\f') + 1);
}

TEST_F(Listing, TextForComparisonIsTheStatementAlone)
{
    op_t *op = append_movlw(300, "; remark");
    op->op_comment = vec_make<const char *>();
    vec_add(op->op_comment, "\n");
    op->op_file = "x.c";
    op->op_line = 7;
    op_t *label = append(T_NAME, 0, {}, OPND_NONE);
    label->op_sym = ext;
    ext->s_refs = 1;
    opt.asm_output = true;
    EXPECT_EQ("\tmovlw\t300\n", asm_op(op, ASM_COMPARE));
    EXPECT_EQ("ext:\n", asm_op(label, ASM_COMPARE));
    EXPECT_EQ("\tfile\t\"x.c\"\n\tline\t7\n\n\tmovlw\t300\t; remark\n", asm_op(op, ASM_PRINT));
    EXPECT_EQ("", asm_op(label, ASM_PRINT));
}
