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
        std::string code;
        bool needed;
    } rows[] = {
        {REG_W, "daw / DEAD", true},
        {REG_W, "incf wreg,w / USED", true},
        {REG_C, "btg status,0 / DEAD", true},
        {REG_C, "movff status,x / DEAD", true},
        {REG_BSR, "movff bsr,x / DEAD", true},
        {REG_Z, "setf x / USED", true},
        {REG_C, "goto L+2 / L: / DEAD", true},
        {REG_W, "btfsc x,0 / DEAD", true},
        {REG_W, "bz out / clrw / DEAD", true},
        {REG_W, "bz L / clrw / DEAD / L: / movwf x / DEAD", true},
        {REG_W, "bz L / clrw / DEAD / L: / clrw / USED", false},
        {REG_W, "btfsc x,0 / goto L / clrw / DEAD / L: / clrw / USED", false},
        {REG_W, "btfsc x,0 / goto L / movwf x / DEAD / L: / clrw / USED", true},
        {REG_C, "call fn / DEAD / fn: / clrw / return", true},
        {REG_BSR, "call fn / DEAD / fn: / movlb 1 / return", true},
        // Where nobody knows what runs next
        {REG_C, "org 20h / DEAD", true},
        {REG_C, "align 2 / DEAD", true},
        {REG_C, "addwf pcl / DEAD", true},
        {REG_C, "bsf 0ECh,c,1 / DEAD", true},
        {REG_C, "title \"t\" / messg \"m\" / DEAD", false},
        // Which register it is
        {REG_W, "clrf 0F3h,c / USED", false},
        {REG_W, "clrf 0FF3h,b / USED", true},
        {REG_C, "bcf status,b,0 / USED", true},
        {REG_C, "bcf 0F4h,c,0 / USED", false},
        {REG_BSR, "bcf v,b,0 / DEAD", true},
        {REG_BSR, "bcf v,c,0 / DEAD", false},
        {REG_C, "btfsc later,c,0 / later equ 0F4h / DEAD", true},
        // Limits
        {REG_W, nops + "clrw / USED", false},
        {REG_W, nops + "nop / clrw / USED", true},
        {REG_W, branches + "clrw / USED", false},
        {REG_W, branches + "bz M / M: / clrw / USED", true},
        {REG_W, calls(4), false},
        {REG_W, calls(5), true},
        {REG_W, "fn: / call fn / movwf x / return", false},
    };
    for (const auto &row : rows)
        EXPECT_EQ(nxtuse(row.r, node(assemble(row.code), 0), nullptr, nullptr), row.needed) << row.r << ": " << row.code;

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
    EXPECT_EQ(value_left(&operand(0)->opnd_value)->v_offs, 0);
}
