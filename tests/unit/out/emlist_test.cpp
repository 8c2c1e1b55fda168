// The columns and pages of a listing, blank by blank.
#include <gtest/gtest.h>

#include <string>

#include "chip/chip.h"
#include "code/ops.h"
#include "options.h"
#include "out/emlist.h"
#include "out/emobj.h"

static op_t *append(uint16_t type, uint16_t subop, const value_t &v, uint8_t kind, const char *remark = nullptr)
{
    op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
    op->op_type = type;
    op->op_subop = subop;
    op->op_opnd1 = {kind, 0, v};
    op->op_remark = remark;
    return op;
}

// A line: its text stands behind 33 columns.
static std::string row(std::string front, const std::string &text)
{
    front.resize(33, ' ');
    return front + text + "\n";
}

TEST(Listing, ColumnsAndPages)
{
    chipinfo_t chip = {};
    chip.c_arch = arch_find("ZEL8");
    chip.c_name = "X";
    opt = {};
    opt.cur_chip = &chip;
    opt.version_text = "1";
    opt.page_width = 60;
    opt.form_length = 16;
    sym_init();
    cur_psect = sym_enter("p", S_PSECT);
    for (const char *name : {"one", "two", "ext", "none"}) {
        symbol_t *s = sym_enter(name, 0);
        s->s_flags |= S_GLOBAL;
        s->s_refs = *name != 'n';
    }
    symbol_t *label = sym_newlabel();
    append(T_MOVLW, 0x0E00, value_const(1), OPND_LIT, ";012345678901234567");    // 28 characters of text: just the room
    append(T_MOVLW, 0x0E00, value_const(2), OPND_LIT, ";0123456789012345678");
    append(T_GOTO, 0xEF00, value_sym(sym_find("ext")), OPND_CODE);
    append(T_NOP, 0x0003, {}, OPND_NONE, "\n ;;flush left");
    op_t *name = append(T_NAME, 0, {}, OPND_NONE);   // not shown, and neither is its address
    name->op_sym = label;
    label->s_refs = 1;
    size_all();
    FILE *f = tmpfile();
    list_write(f);
    std::string all(static_cast<size_t>(ftell(f)), '\0');
    rewind(f);
    ASSERT_EQ(all.size(), fread(all.data(), 1, all.size(), f));
    fclose(f);

    // Seven lines a page. Then a page of symbols, three to a line, in the order of the table.
    const std::string head = "\n\nVelmora Zentra QVK Assembler 1               Page ";
    EXPECT_EQ(0u, all.find(head + "1\n" + std::string(35, ' ')));
    EXPECT_NE(std::string::npos, all.find(
        row("     6", "\tpsect\tp") + row("     7  0000' 0E01", "\tmovlw\t1\t;012345678901234567") + "\f" + head + "2\n")) << all;
    EXPECT_NE(std::string::npos, all.find(
        row("    48", "status\tequ\t0x0") + "\f\n\nVelmora Technology ZEL8 Macro Assembler 1               Page 8\nSymbol Table  "));
    const std::string end = "\n\n        ext 000000*         one 000000*         two 000000* \n\f";
    EXPECT_EQ(all.size() - end.size(), all.rfind(end)) << all;

    opt = {};
}
