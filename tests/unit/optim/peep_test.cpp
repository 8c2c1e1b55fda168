// The peephole rules: code in which a rule has to see more than the pattern, and what it makes of it. A row is one walk.
#include "fixture.h"
#include "optim/driver.h"
#include "optim/peep.h"

struct peep_row_t {
    const char *before, *after = nullptr;   // null: stays
};

static const peep_row_t moves[] = {
    // The register may be another one by then, or the access does something else.
    {"movf (r^(p__Lparam and 0FF00h)),w,b / movff wreg,s / DEAD", "movff r,s / DEAD"},
    {"movf x,w / movff wreg,plusw0 / DEAD"},
    {"movf low(r),w,b / movff wreg,s / DEAD"},
    {"movlb 1 / movf v,w,b / movff wreg,s / DEAD"},
    {"movwf x / movf y,w / xorwf x,f / USED"},
    {"movwf r,b / movlb 1 / movwf r,b / USED"},
    {"movlb 1 / movwf r,b / movlb 1 / movwf r,b / USED", "movlb 1 / movwf r,b / USED"},
    {"movwf v,b / movlb 1 / movwf v,b / USED"},
    {"movf status,w / movwf status / USED"},
    {"incf status,w / movwf status / DEAD"},
    {"incf postinc0,w / movwf postinc0 / DEAD"},
    {"btfsc y,0 / incf x,w / movwf x / DEAD"},
    // What ends knowledge
    {"movwf x / incf wreg / movwf x / USED"},
    {"movwf x / infsnz x / nop / movwf x / USED"},
    {"movwf x / clrf indf0 / movwf x / USED"},
    {"movwf x / setf status / movwf x / USED"},
    {"movwf x / dw 1234h / movwf x / USED"},
    {"movwf x / clrf x / movwf x / USED"},
    {"movlw 5 / movwf x / L: / movlw 5 / USED"},
    {"btfss x,0 / L: / movlw 5 / movwf y / movlw 5 / USED"},
    {"btfss x,0 / movff y,wreg / movwf z / movlw 5 / movwf z / daw / movlw 5 / USED"},
    {"movlb 1 / movwf r,b / movff x,bsr / movlb 1 / USED"},
    {"movlb 1 / movwf r,b / rcall out / movlb 1 / USED"},
    {"btfsc x,0 / movlb 1 / movwf r,b / movlb 1 / USED"},
    // What isn't free tells what it does, but stays.
    {"asmopt off / movlw 5 / asmopt on / movwf x / movlw 5 / USED", "asmopt off / movlw 5 / asmopt on / movwf x / USED"},
    {"movlw 5 / movwf x / asmopt off / movlw 5 / asmopt on / USED"},
    {"movlw low(r) / movwf x / movlw low(r) / USED", "movlw low(r) / movwf x / USED"},
};

static const peep_row_t arithmetic[] = {
    {"comf x / btfsc status,2 / bra L / L: / DEAD"},
    {"decf x / btfss status,2 / bra L / L: / bz M / M: / DEAD"},
    {"btfsc y,0 / decf x / btfss status,2 / bra L / L: / DEAD"},
    {"decf x / btfss status,2 / incf z / bcf status,0 / bz L / L: / DEAD"},
    // Only one of two movlw counts behind what has become a skip.
    {"incf x / btfsc status,2 / movlw 5 / movwf y / movlw 5 / mulwf z / DEAD",
     "infsnz x / movlw 5 / movwf y / movlw 5 / mulwf z / DEAD"},
    {"movlw 0 / addwfc x,w / bz L / L: / DEAD"},
    {"btfsc z,0 / btfsc x,0 / comf y,w / DEAD"},
    {"comf y,w ;volatile / DEAD"},
    {"movlw 255 / xorwf indf0 / USED"},
    {"bcf status,0 / negf y / addwfc x / USED"},
    {"btfsc y,0 / bcf status,0 / addwfc x / USED"},
    {"andlw 3 / L: / andlw 3 / USED", "L: / andlw 3 / USED"},
    {"movf x,w / rlcf y / iorlw 0 / USED"},
    {"cpfseq y / movf x,w / iorlw 0 / USED"},
    {"movlw 5 / iorlw 0 / movwf x / movlw 5 / USED", "movlw 5 / iorlw 0 / movwf x / USED"},
    {"andlw 0 / movwf x / DEAD", "andlw 0 / clrf x / DEAD"},
};

static const peep_row_t control[] = {
    {"btfsc x,0 / goto L+2 / L: / movlw 1 / USED"},
    {"btfsc x,0 ;volatile / goto L / L: / movlw 1 / USED"},
    {"btfsc x,0 / goto L1 / btg y,1 / bra L2 / L1: / bsf y,1 / L2: / USED"},
    {"btfsc x,0 / goto L1 / bcf y,1 / bra L2 / L1: / bsf y,1 / L2: / bra L1"},
    {"btfsc x,0 / goto L1 / swapf y / goto L2 / L1: / setf y / L2: / USED",
     "swapf y / btfsc x,0 / setf y / goto L2 / L1: / L2: / USED"},
    {"btfsc x,0 / goto L1 / movwf y / goto L2 / L1: / negf y / L2: / USED"},
    {"btfsc x,0 / goto L1 / swapf wreg / goto L2 / L1: / movwf wreg / L2: / USED"},
    {"btfsc indf0,0 / goto L1 / lfsr 0,1 / goto L2 / L1: / lfsr 0,2 / L2: / USED"},
    {"btfsc x,0 / return / L: / return / USED"},
    {"btfsc x,0 / goto out / nop / goto out"},
    {"btfsc status,2 / goto L / nop / L: / USED"},   // as long as the repeat loop hasn't begun
    {"movlw low(r) / return"},
    {"call fn / retfie / fn: / return"},
    {"btfsc x,0 / call fn / return / fn: / return"},
};

TEST_F(Optim, RulesOnMoves)
{
    for (const peep_row_t &r : moves)
        expect(peep_walk, r.before, r.after);
}
TEST_F(Optim, RulesOnArithmetic)
{
    for (const peep_row_t &r : arithmetic)
        expect(peep_walk, r.before, r.after);
}
TEST_F(Optim, RulesOnControl)
{
    for (const peep_row_t &r : control)
        expect(peep_walk, r.before, r.after);
}

// A7 is no change; a tail call needs both functions in one memory group; whole passes come to rest.
TEST_F(Optim, ChangesAndPasses)
{
    symbol_t *psect = assemble("comf y,w / DEAD");
    opt_changed = false;
    const uint16_t redundant = opt_counter(CNT_REDUNDANT_OPS);
    peep_walk(psect);
    EXPECT_EQ(node(psect, 0)->op_type, T_GOTO);
    EXPECT_FALSE(opt_changed);
    EXPECT_EQ(opt_counter(CNT_REDUNDANT_OPS), redundant);
    peep_walk(assemble("movff x,x / comf y,w / DEAD"));
    EXPECT_TRUE(opt_changed);
    EXPECT_EQ(opt_counter(CNT_REDUNDANT_OPS), redundant + 1);

    for (uint32_t group : {1u, 2u}) {
        const psect_t *callee = assemble("call fn / return / psect u,class=CODE,group=1,minocg / fn: / return")->s_psect;
        symbol_t *caller = vec_elementAt(psect_list, callee->p_number - 1)->psect;
        caller->s_psect->p_optim |= PO_MINOCG;
        caller->s_psect->p_group = group;
        peep_walk(caller);
        EXPECT_EQ(node(caller, 0)->op_type, group == callee->p_group ? T_GOTO : T_CALL);
    }
    expect([](symbol_t *p) { opt_psect(p); }, "movlw 0 / addwf x / bc L / L: / DEAD", "bcf status,0 / bc L / L: / DEAD");
}
