// What W is known to hold, and whether registers are still needed.
#include "optim/live.h"

#include "code/sfrop.h"
#include "fixture.h"
#include "optim/known.h"

TEST_F(Optim, Liveness)
{
    std::string nops, branches;
    for (int i = 0; i < 39; i++)
        nops += "nop / ";
    for (char c = '1'; c < '5'; c++)
        branches += std::string("bz L") + c + " / L" + c + ": / ";
    const auto calls = [](int deep) {   // functions that call one another, the last one of which clears W
        std::string code = "call f1 / DEAD / ";
        for (int i = 1; i < deep; i++)
            code += "f" + std::to_string(i) + ": / call f" + std::to_string(i + 1) + " / return / ";
        return code + "f" + std::to_string(deep) + ": / clrw / return";
    };
    const struct {
        reg_t r;
        const char *label;
        std::string code;   // needed in the first form, not in the second
    } rows[] = {
        {REG_W, "an adjustment of W", "{daw|clrw} / DEAD"},
        {REG_W, "W by its address", "incf {wreg|x},w / USED"},
        {REG_C, "a toggle of C", "btg {status|x},0 / DEAD"},
        {REG_C, "a move of STATUS", "movff {status|y},x / DEAD"},
        {REG_BSR, "a move of BSR", "movff {bsr|y},x / DEAD"},
        {REG_Z, "setf, which sets no flags", "{setf|clrf} x / USED"},
        {REG_C, "a jump behind a label", "goto {L+2|L} / L: / DEAD"},
        {REG_W, "a skip of the end", "{btfsc x,0 / |}DEAD"},
        {REG_W, "a branch elsewhere", "bz {out|L} / clrw / DEAD / L: / clrw / USED"},
        {REG_W, "the way of a branch", "bz L / clrw / DEAD / L: / {movwf x|clrw} / USED"},
        {REG_W, "the way of a skip", "btfsc x,0 / goto L / {movwf x|clrw} / DEAD / L: / clrw / USED"},
        {REG_C, "the caller", "call fn / DEAD / fn: / {clrw|addlw 1} / return"},
        {REG_BSR, "a call, by which the bank is chosen", "{call fn / |}movlb 1 / DEAD / fn: / movlb 1 / return"},
        // Where nobody knows what runs next
        {REG_C, "an org", "{org 20h|nop} / DEAD"},
        {REG_C, "an align", "{align 2|nop} / DEAD"},
        {REG_C, "a sum in PCL", "addwf {pcl|x} / DEAD"},
        {REG_C, "a bit of PCL", "bsf {0ECh|66h},c,1 / DEAD"},
        {REG_C, "directives that are no code", "title \"t\" / messg \"m\" / {USED|DEAD}"},
        // Which register it is
        {REG_W, "an offset in some bank", "clrf {0FF3h,b|0F3h,c} / USED"},
        {REG_C, "a bit at an offset in some bank", "bcf {status,b|0F4h,c},0 / USED"},
        {REG_BSR, "a banked access", "bcf v,{b|c},0 / DEAD"},
        {REG_C, "a name given later", "btfsc {later|x},c,0 / nop / {later equ 0F4h / |}DEAD"},
        // Limits
        {REG_W, "40 instructions", nops + "{nop / |}clrw / USED"},
        {REG_W, "4 branches", branches + "{bz M / M: / |}clrw / USED"},
        {REG_W, "4 calls", "{" + calls(5) + "|" + calls(4) + "}"},
        {REG_W, "recursion", "fn: / {nop|call fn} / movwf x / return"},
    };
    for (const auto &row : rows)
        for (const bool needed : {true, false}) {
            const std::string code = form(row.code, !needed);
            EXPECT_EQ(nxtuse(row.r, node(assemble(code), 0), nullptr, nullptr), needed) << row.label << ": " << code;
        }

    // A way back to the node that asks ends there.
    const symbol_t *loop = assemble("L: / movwf x / nop / bra L");
    EXPECT_FALSE(nxtuse(REG_W, node(loop, 2), node(loop, 1), node(loop, 1)));
    EXPECT_TRUE(nxtuse(REG_W, node(loop, 2), nullptr, nullptr));
    EXPECT_TRUE(nxtuse(REG_N, nullptr, nullptr, nullptr));
}

TEST_F(Optim, KnowledgeOfW)
{
    const opnd_t five = {OPND_LIT, ACCESS_UNSET, value_const(5)}, x = {OPND_DATA, ACCESS_C, value_const(0xF66)};
    reg_forget_all();
    reg_load_w(&five);
    reg_load_w(&x);
    EXPECT_TRUE(reg_w_known());
    EXPECT_EQ(reg_w_value(), 5);
    EXPECT_TRUE(opnd_same(&reg.w_reg, &x));
    reg_written(&x);
    EXPECT_TRUE(reg_w_known());
    EXPECT_EQ(reg.w_reg.opnd_kind, OPND_NONE);
    reg_load_w(&x);
    reg_load_w(&five);
    EXPECT_EQ(reg.w_reg.opnd_kind, OPND_NONE);

    // A byte of a register's address was stored through a file select; the next ones lie behind it.
    const symbol_t *code = assemble("movlw low(r) / clrf r,b / clrf r+1,b / clrf indf0 / clrf postinc0");
    const auto operand = [&](int n) { return &node(code, n)->op_opnd1; };
    const auto stays = [&](int w_reg, int write) {
        reg_load_w(operand(w_reg));
        reg_written(operand(write));
        return reg.w_reg.opnd_kind == OPND_DATA;
    };
    reg_load_w(operand(0));
    reg_stored_through(operand(3));
    EXPECT_FALSE(stays(1, 3));
    EXPECT_TRUE(stays(2, 3));
    EXPECT_TRUE(stays(2, 4));
    EXPECT_TRUE(stays(1, 3));
    EXPECT_FALSE(stays(2, 3));
    const int64_t left = value_left(&operand(0)->opnd_value)->v_offs;
    EXPECT_EQ(left, 0);
}
