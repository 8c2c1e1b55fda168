// The peephole rules: for each, code that it rewrites, and the same code with one condition not met. A row is one walk.
#include "fixture.h"
#include "optim/peep.h"

struct row_t {
    const char *before, *after = nullptr;   // null: stays
};

static const row_t moves[] = {
    // M1
    {"movf x,w / movff wreg,r / DEAD", "movff x,r / DEAD"},
    {"movf (r^(p__Lparam and 0FF00h)),w,b / movff wreg,s / DEAD", "movff r,s / DEAD"},
    {"movf x,w / movff wreg,r / mulwf y / DEAD"},
    {"movf x,w / movff wreg,r / clrw / bz L / L: / USED"},
    {"movf x,w / movff wreg,plusw0 / DEAD"},
    {"movf low(r),w,b / movff wreg,s / DEAD"},
    {"movlb 1 / movf v,w,b / movff wreg,s / DEAD"},
    // M2, M3
    {"movf x,w / xorlw 255 / movwf y / USED", "comf x,w / movwf y / USED"},
    {"movf x,w / xorlw 254 / movwf y / USED"},
    {"movwf x / movf y,w / xorwf x,w / USED", "movwf x / xorwf y,w / USED"},
    {"movwf x / movf y,w / xorwf z,w / USED"},
    {"movwf x / movf y,w / xorwf x,f / USED"},
    // F1 to F5
    {"movff x,x / USED", "USED"},
    {"movff x,x ;volatile / USED"},
    {"movff r,wreg / movwf s,b / DEAD", "movff r,s / DEAD"},
    {"movff r,wreg / movwf s,b / USED"},
    {"movff r,wreg / movff wreg,s / DEAD", "movff r,s / DEAD"},
    {"movff r,wreg / movff wreg,s / USED"},
    {"movwf x / movff x,wreg / USED", "movwf x / USED"},
    {"movwf x / clrf x / movff x,wreg / USED"},
    {"movff x,wreg / movwf y / movwf z / DEAD", "movf x,w / movwf y / movwf z / DEAD"},
    {"movff r,wreg / movwf y / movwf z / DEAD"},
    {"movff x,wreg / movwf y / movwf z / USED"},
    // V1
    {"movf x,w / movwf x / USED", "movf x,w / USED"},
    {"movwf r,b / movlb 1 / movwf r,b / USED", "movwf r,b / movlb 1 / USED"},
    {"movwf v,b / movlb 1 / movwf v,b / USED"},
    {"movf x,w / movwf x ;volatile / USED"},
    {"movwf x / incf wreg / movwf x / USED"},
    {"movwf x / infsnz x / nop / movwf x / USED"},
    {"movwf x / clrf indf0 / movwf x / USED"},
    {"movwf x / setf status / movwf x / USED"},
    {"movwf x / dw 1234h / movwf x / USED"},
    {"movf status,w / movwf status / USED"},
    // V2 to V4
    {"incf x,w / movwf x / DEAD", "incf x / DEAD"},
    {"incf x,w / movwf x / mulwf y / DEAD"},
    {"incf postinc0,w / movwf postinc0 / DEAD"},
    {"incf status,w / movwf status / DEAD"},
    {"btfsc y,0 / incf x,w / movwf x / DEAD"},
    {"movlw 0 / movwf x / DEAD", "movlw 0 / clrf x / DEAD"},
    {"movlw 0 / movwf x / USED"},
    {"movlw 255 / movwf x / USED", "movlw 255 / setf x / USED"},
    {"movlw 254 / movwf x / USED"},
    // W1 to W3
    {"movlw 5 / movwf x / movlw 5 / USED", "movlw 5 / movwf x / USED"},
    {"movlw low(r) / movwf x / movlw low(r) / USED", "movlw low(r) / movwf x / USED"},
    {"movlw 5 / movwf x / movlw 6 / USED"},
    {"movlw 5 / movwf x / L: / movlw 5 / USED"},
    {"btfss x,0 / L: / movlw 5 / movwf y / movlw 5 / USED"},
    {"btfss x,0 / movff y,wreg / movwf z / movlw 5 / movwf z / daw / movlw 5 / USED"},
    {"asmopt off / movlw 5 / asmopt on / movwf x / movlw 5 / USED", "asmopt off / movlw 5 / asmopt on / movwf x / USED"},
    {"movlw 5 / movwf x / asmopt off / movlw 5 / asmopt on / USED"},
    {"movlw 1 / addwf x / USED", "movlw 1 / incf x / USED"},
    {"movlw 1 / addwf x / DEAD", "incf x / DEAD"},
    {"movlw low(r+1) / addwf x / USED"},
    {"movlw 5 / clrw / USED", "clrw / USED"},
    {"movlw 5 / sleep / clrw / USED"},
    // K1, K2
    {"movlb 1 / movwf r,b / movlb 1 / clrf s,b / USED", "movlb 1 / movwf r,b / clrf s,b / USED"},
    {"movlb 1 / movwf r,b / movlb 2 / clrf s,b / USED"},
    {"movlb 1 / movwf r,b / movff x,bsr / movlb 1 / USED"},
    {"movlb 1 / movwf r,b / rcall out / movlb 1 / USED"},
    {"btfsc x,0 / movlb 1 / movwf r,b / movlb 1 / USED"},
    {"movlb 1 / clrf x / movlb 2 / USED", "clrf x / movlb 2 / USED"},
    {"movlb 1 / movff bsr,x / movlb 2 / USED"},
    // T1 to T3
    {"tblrd* / tblrd*+ / USED", "tblrd*+ / USED"},
    {"btfsc x,0 / tblrd* / tblrd*+ / USED"},
    {"tblrd* / setf tablat / USED", "setf tablat / USED"},
    {"tblrd* / negf tablat / USED"},
    {"tblrd*+ / tblrd* / USED", "tblrd+* / USED"},
    {"tblrd*+ / tblrd*+ / USED"},
};

static const row_t arithmetic[] = {
    // D1
    {"decf x / btfss status,2 / bra L / L: / DEAD", "decfsz x / bra L / L: / DEAD"},
    {"decf x,w / btfsc status,2 / bra L / L: / USED"},
    {"decf x / btfsc status,2 / bra L / L: / DEAD", "dcfsnz x / bra L / L: / DEAD"},
    {"incf x / btfss status,2 / bra L / L: / DEAD", "incfsz x / bra L / L: / DEAD"},
    {"incf x / btfsc status,2 / bra L / L: / DEAD", "infsnz x / bra L / L: / DEAD"},
    {"comf x / btfsc status,2 / bra L / L: / DEAD"},
    {"decf x / btfss status,2 / bra L / L: / bz M / M: / DEAD"},
    {"btfsc y,0 / decf x / btfss status,2 / bra L / L: / DEAD"},
    {"decf x / btfss status,2 / incf z / bcf status,0 / bz L / L: / DEAD"},
    // Only one of two movlw counts behind what has become a skip.
    {"incf x / btfsc status,2 / movlw 5 / movwf y / movlw 5 / mulwf z / DEAD",
     "infsnz x / movlw 5 / movwf y / movlw 5 / mulwf z / DEAD"},
    // A1 to A7
    {"movlw 255 / andwf x,w / USED", "movlw 255 / movf x,w / USED"},
    {"movlw 254 / andwf x,w / USED"},
    {"movlw 0 / andwf x,w / mulwf y / DEAD", "movlw 0 / mulwf y / DEAD"},
    {"movlw 0 / andwf x,w / USED"},
    {"movlw 0 / addwf x,w / bc L / L: / DEAD"},
    {"movlw 0 / addwf x,w / bz L / L: / DEAD", "movlw 0 / movf x,w / bz L / L: / DEAD"},
    {"movlw 0 / addwfc x,w / bz L / L: / DEAD"},
    {"movlw 3 / iorwf x,w / bz L / L: / DEAD"},
    {"incf x,w / bc L / L: / DEAD"},
    {"btfsc x,0 / comf y,w / DEAD", "DEAD"},
    {"btfsc x,0 / comf y,w / mulwf z / DEAD"},
    {"btfsc z,0 / btfsc x,0 / comf y,w / DEAD"},
    {"decfsz x / comf y,w / DEAD"},
    {"comf y,w ;volatile / DEAD"},
    // G1 to G9
    {"movlw 255 / andwf x / DEAD", "movlw 255 / DEAD"},
    {"movlw 255 / andwf x / USED"},
    {"movlw 0 / andwf x / DEAD", "movlw 0 / clrf x / DEAD"},
    {"movlw 0 / andwf x / USED"},
    {"movlw 255 / xorwf x / USED", "movlw 255 / comf x / USED"},
    {"movlw 255 / xorwf indf0 / USED"},
    {"movlw 0 / iorwf x / DEAD", "movlw 0 / DEAD"},
    {"movlw 0 / xorwf x / USED"},
    {"bcf status,0 / movlw 0 / addwfc x / USED", "bcf status,0 / movlw 0 / USED"},
    {"bcf status,0 / addwfc x / USED", "bcf status,0 / addwf x / USED"},
    {"bsf status,0 / addwfc x / USED"},
    {"bcf status,0 / negf y / addwfc x / USED"},
    {"btfsc y,0 / bcf status,0 / addwfc x / USED"},
    {"movlw 1 / subwf x / USED", "movlw 1 / decf x / USED"},
    {"movlw 2 / subwf x / USED"},
    {"movlw 255 / addwf x / USED", "movlw 255 / decf x / USED"},
    {"movlw 255 / subwf x / USED", "movlw 255 / incf x / USED"},
    {"movlw 0 / addwf x / DEAD", "movlw 0 / bcf status,0 / DEAD"},
    {"movlw 0 / subwf x / DEAD", "movlw 0 / bsf status,0 / DEAD"},
    {"movlw 0 / subwf x / USED"},
    // L1 to L3
    {"andlw 3 / L: / andlw 3 / USED", "L: / andlw 3 / USED"},
    {"xorlw 3 / L: / xorlw 3 / USED"},
    {"movf x,w / movwf y / iorlw 0 / USED", "movf x,w / movwf y / USED"},
    {"movf x,w / movwf y / movlw 3 / iorlw 0 / USED"},
    {"movf x,w / rlcf y / iorlw 0 / USED"},
    {"cpfseq y / movf x,w / iorlw 0 / USED"},
    {"movf x,w / addlw 0 / USED"},
    {"movf x,w / addlw 0 / bz L / L: / mulwf y / DEAD", "movf x,w / bz L / L: / mulwf y / DEAD"},
    {"xorlw 0 / mulwf y / DEAD", "mulwf y / DEAD"},
    {"movlw 5 / iorlw 0 / movwf x / movlw 5 / USED", "movlw 5 / iorlw 0 / movwf x / USED"},
    {"movlw 0 / andlw 0 / mulwf y / DEAD", "movlw 0 / mulwf y / DEAD"},
    {"movlw 0 / andlw 0 / USED"},
    {"andlw 0 / movwf x / DEAD", "andlw 0 / clrf x / DEAD"},
};

static const row_t control[] = {
    // B1 to B5
    {"btfsc x,0 / goto L / L: / movlw 1 / USED", "L: / movlw 1 / USED"},
    {"btfsc x,0 / goto L / nop / L: / movlw 1 / USED"},
    {"btfsc x,0 / goto L+2 / L: / movlw 1 / USED"},
    {"btfsc x,0 ;volatile / goto L / L: / movlw 1 / USED"},
    {"btfsc x,0 / goto L1 / bcf y,1 / bra L2 / L1: / bsf y,1 / L2: / USED",
     "bcf y,1 / btfsc x,0 / bsf y,1 / bra L2 / L1: / L2: / USED"},
    {"btfsc y,1 / goto L1 / bcf y,1 / bra L2 / L1: / bsf y,1 / L2: / USED"},
    {"btfsc x,0 / goto L1 / btg y,1 / bra L2 / L1: / bsf y,1 / L2: / USED"},
    {"btfsc x,0 / goto L1 / bcf y,1 / bra L2 / L1: / bsf y,1 / L2: / bra L1"},
    {"btfsc x,0 / goto L1 / movlw 1 / goto L2 / L1: / movlw 2 / L2: / USED",
     "movlw 1 / btfsc x,0 / movlw 2 / goto L2 / L1: / L2: / USED"},
    {"btfsc wreg,0 / goto L1 / movlw 1 / goto L2 / L1: / movlw 2 / L2: / USED"},
    {"btfsc x,0 / goto L1 / swapf y / goto L2 / L1: / setf y / L2: / USED",
     "swapf y / btfsc x,0 / setf y / goto L2 / L1: / L2: / USED"},
    {"btfsc x,0 / goto L1 / movwf y / goto L2 / L1: / negf y / L2: / USED"},
    {"btfsc y,0 / goto L1 / movwf y / goto L2 / L1: / setf y / L2: / USED"},
    {"btfsc x,0 / goto L1 / swapf wreg / goto L2 / L1: / movwf wreg / L2: / USED"},
    {"btfsc x,0 / goto L1 / lfsr 0,1 / goto L2 / L1: / lfsr 0,2 / L2: / USED",
     "lfsr 0,1 / btfsc x,0 / L1: / lfsr 0,2 / goto L2 / L2: / USED"},
    {"btfsc x,0 / goto L1 / lfsr 0,1 / goto L2 / L1: / lfsr 1,2 / L2: / USED"},
    {"btfsc indf0,0 / goto L1 / lfsr 0,1 / goto L2 / L1: / lfsr 0,2 / L2: / USED"},
    // B8
    {"btfsc x,0 / return / nop / return", "btfss x,0 / nop / return"},
    {"btfsc x,0 / return / nop / retlw 1"},
    {"btfsc x,0 / return / L: / return / USED"},
    {"btfsc x,0 / goto out / nop / goto out"},
    // R1, C1
    {"movlw 5 / return", "movlw 5 / retlw 5"},
    {"movlw 5 / retfie"},
    {"movlw low(r) / return"},
    {"call fn / bcf 3,5 / return / fn: / return", "goto fn / fn: / return"},
    {"call fn / bcf 3,4 / return / fn: / return"},
    {"call fn / retfie / fn: / return"},
    {"btfsc x,0 / call fn / return / fn: / return"},
    {"call out / return"},
};

TEST_F(Optim, RulesOnMoves) { for (const row_t &r : moves) expect(peephole_walk, r.before, r.after); }
TEST_F(Optim, RulesOnArithmetic) { for (const row_t &r : arithmetic) expect(peephole_walk, r.before, r.after); }
TEST_F(Optim, RulesOnControl) { for (const row_t &r : control) expect(peephole_walk, r.before, r.after); }

// B6, B7: skips become branches once the repeat loop has begun.
TEST_F(Optim, LateBranches)
{
    static const row_t rows[] = {
        {"btfsc status,2 / goto L / nop / L: / USED", "bz L / nop / L: / USED"},
        {"btfss status,2 / goto L / nop / L: / USED", "bnz L / nop / L: / USED"},
        {"btfsc status,0 / goto L / nop / L: / USED", "bc L / nop / L: / USED"},
        {"btfss status,0 / goto L / nop / L: / USED", "bnc L / nop / L: / USED"},
        {"btfss status,1 / goto L / nop / L: / USED"},
    };
    for (const row_t &r : rows) {
        expect(peephole_walk, r.before, nullptr);
        opt_late = true;
        expect(peephole_walk, r.before, r.after);
        opt_late = false;
    }
}

// A7 is no change; a tail call needs both functions in one memory group; whole passes come to rest.
TEST_F(Optim, ChangesAndPasses)
{
    symbol_t *psect = assemble("comf y,w / DEAD");
    opt_changed = false;
    const uint16_t redundant = opt_counter(CNT_REDUNDANT_OPS);
    peephole_walk(psect);
    EXPECT_TRUE(node(psect, 0)->op_type == T_GOTO && !opt_changed && opt_counter(CNT_REDUNDANT_OPS) == redundant);
    peephole_walk(assemble("movff x,x / DEAD"));
    EXPECT_TRUE(opt_changed && opt_counter(CNT_REDUNDANT_OPS) == redundant + 1);

    for (uint32_t group : {1u, 2u}) {
        const psect_t *callee = assemble("call fn / return / psect u,class=CODE,group=1,minocg / fn: / return")->s_psect;
        symbol_t *caller = vec_elementAt(psect_list, callee->p_number - 1)->psect;
        caller->s_psect->p_optim |= PO_MINOCG;
        caller->s_psect->p_group = group;
        peephole_walk(caller);
        EXPECT_EQ(node(caller, 0)->op_type, group == callee->p_group ? T_GOTO : T_CALL);
    }

    static const row_t rows[] = {
        {"movlw 5 / return", "retlw 5"},
        {"iorlw 0 / return ;funcret", "return"},
        {"iorlw 0 / return"},
        {"movlw 255 / movwf x / DEAD", "setf x / DEAD"},
        {"movlw 5 / movlw 5 / movwf x / DEAD", "movlw 5 / movwf x / DEAD"},
        {"movlw 0 / addwf x / bc L / L: / DEAD", "bcf status,0 / bc L / L: / DEAD"},
    };
    for (const row_t &r : rows)
        expect([](symbol_t *p) { opt_psect(p); }, r.before, r.after);
}
