// The peephole rules: code in which a rule has to see more than the pattern, and what it makes of it. A row is one walk.
#include "optim/peep.h"

#include "fixture.h"
#include "optim/driver.h"

TEST_F(Optim, RulesOnMoves)
{
    static const row_t rows[] = {
        // The register may be another one by then, or the access does something else.
        {"M1 of a parameter", "movf (r^(p__Lparam and 0FF00h)),w,b / movff wreg,s / DEAD", "movff r,s / DEAD"},
        {"M1 by W as an index", "movf x,w / movff wreg,{plusw0|y} / DEAD", "movff x,y / DEAD"},
        {"M1 of a part of an address", "movf {low(r)|r},w,b / movff wreg,s / DEAD", "movff r,s / DEAD"},
        {"M1 of an offset in some bank", "movlb 1 / movf {v|r},w,b / movff wreg,s / DEAD"},
        {"M3 into the register", "movwf x / movf y,w / xorwf x,{f|w} / USED"},
        {"V1 behind another bank", "movwf r,b / {movlb 1 / |}movwf r,b / USED", "movwf r,b / USED"},
        {"V1 in the same bank", "movlb 1 / movwf r,b / movlb 1 / movwf r,b / USED", "movlb 1 / movwf r,b / USED"},
        {"V1 of an offset in some bank", "movwf v,b / {movlb 1 / |}movwf v,b / USED"},
        {"V1 of what the load changes", "movf {status|x},w / movwf {status|x} / USED"},
        {"V2 of what it changes itself", "incf {status|x},w / movwf {status|x} / DEAD", "incf x / DEAD"},
        {"V2 through a pointer that moves", "incf {postinc0|indf0},w / movwf {postinc0|indf0} / DEAD"},
        {"V2 behind a skip", "{btfsc y,0 / |}incf x,w / movwf x / DEAD"},
        // What ends knowledge
        {"W by its address", "movwf x / {incf wreg|nop} / movwf x / USED"},
        {"a skip that counts", "movwf x / {infsnz x / |}nop / movwf x / USED"},
        {"a write through a pointer", "movwf x / clrf {indf0|y} / movwf x / USED"},
        {"a write to STATUS", "movwf x / setf {status|y} / movwf x / USED"},
        {"data", "movwf x / {dw 1234h|nop} / movwf x / USED"},
        {"a write to the register", "movwf x / clrf {x|y} / movwf x / USED"},
        {"a label", "movlw 5 / movwf x / {L: / |}movlw 5 / USED", "movlw 5 / movwf x / USED"},
        {"a label behind a skip", "{btfss x,0 / L: / |}movlw 5 / movwf y / movlw 5 / USED"},
        {"a move behind a skip", "{btfss x,0 / |}movff y,wreg / movwf y / USED", "movff y,wreg / USED"},
        {"an adjustment of W", "movlw 5 / movwf z / {daw|nop} / movlw 5 / USED"},
        {"a move into BSR", "movlb 1 / movwf r,b / {movff x,bsr|nop} / movlb 1 / USED"},
        {"a call", "movlb 1 / movwf r,b / {rcall out|nop} / movlb 1 / USED"},
        {"a bank behind a skip", "{btfsc x,0 / |}movlb 1 / movwf r,b / movlb 1 / USED"},
        // What isn't free tells what it does, but stays.
        {"what mustn't change tells", "asmopt off / movlw 5 / asmopt on / movwf x / movlw 5 / USED",
         "asmopt off / movlw 5 / asmopt on / movwf x / USED"},
        {"what mustn't change stays", "movlw 5 / movwf x / {asmopt off / |}movlw 5 / {asmopt on / |}USED"},
        {"a literal of the linker's", "movlw low(r) / movwf x / movlw low(r) / USED", "movlw low(r) / movwf x / USED"},
        {"another part of it", "movlw low(r) / movwf x / movlw {high|low}(r) / USED"},
        {"another place", "movlw low(r) / movwf x / movlw low(r{+1|}) / USED"},
        {"another order", "movlw low(r)-low(s) / movwf x / movlw low({s|r})-low({r|s}) / USED"},
    };
    expect(peep_walk, rows);
}

TEST_F(Optim, RulesOnArithmetic)
{
    static const row_t rows[] = {
        {"D1 of a complement", "{comf|decf} x / btfsc status,2 / bra L / L: / DEAD"},
        {"D1 with Z needed where the skip leads", "decf x / btfss status,2 / bra L / L: / {bz M / M: / |}DEAD"},
        {"D1 behind a skip", "{btfsc y,0 / |}decf x / btfss status,2 / bra L / L: / DEAD"},
        {"D1 with Z needed past an instruction", "decf x / btfss status,2 / incf z / {bcf status,0 / bz L / L: / |}DEAD"},
        {"one movlw of two, behind a new skip", "incf x / btfsc status,2 / movlw 5 / movwf y / movlw 5 / mulwf z / DEAD",
         "infsnz x / movlw 5 / movwf y / movlw 5 / mulwf z / DEAD"},
        {"A4 with a carry, Z needed", "movlw 0 / addwf{c|} x,w / bz L / L: / DEAD"},
        {"A6 behind a skip", "{btfsc z,0 / |}btfsc x,0 / comf y,w / DEAD", "DEAD"},
        {"G3 through a pointer", "movlw 255 / xorwf {indf0|x} / USED", "movlw 255 / comf x / USED"},
        {"G6 behind a carry", "bcf status,0 / {negf|clrf} y / addwfc x / USED", "bcf status,0 / clrf y / addwf x / USED"},
        {"G6 behind a skip", "{btfsc y,0 / |}bcf status,0 / addwfc x / USED"},
        {"L1 at a label", "andlw 3 / L: / andlw 3 / USED", "L: / andlw 3 / USED"},
        {"L2 with other flags", "movf x,w / {rlcf|swapf} y / iorlw 0 / USED", "movf x,w / swapf y / USED"},
        {"L2 behind a skip", "{cpfseq y / |}movf x,w / iorlw 0 / USED", "movf x,w / USED"},
        {"L2 leaves W known", "movlw 5 / iorlw 0 / movwf x / movlw 5 / USED", "movlw 5 / iorlw 0 / movwf x / USED"},
        {"andlw 0 loads W", "andlw 0 / movwf x / DEAD", "andlw 0 / clrf x / DEAD"},
    };
    expect(peep_walk, rows);
}

TEST_F(Optim, RulesOnControl)
{
    static const row_t rows[] = {
        {"B1 past a label", "btfsc x,0 / goto {L+2|L} / L: / movlw 1 / USED", "L: / movlw 1 / USED"},
        {"B1 of what is volatile", "btfsc x,0{ ;volatile|} / goto L / L: / movlw 1 / USED", "L: / movlw 1 / USED"},
        {"B2 of a toggle", "btfsc x,0 / goto L1 / {btg|bcf} y,1 / bra L2 / L1: / bsf y,1 / L2: / USED"},
        {"B2 with another way in", "btfsc x,0 / goto L1 / bcf y,1 / bra L2 / L1: / bsf y,1 / L2: / {bra L1|USED}"},
        {"B4 of a swap", "btfsc x,0 / goto L1 / swapf y / goto L2 / L1: / setf y / L2: / USED",
         "swapf y / btfsc x,0 / setf y / goto L2 / L1: / L2: / USED"},
        {"B4 of what reads", "btfsc x,0 / goto L1 / movwf y / goto L2 / L1: / {negf|clrf} y / L2: / USED"},
        {"B4 of W", "btfsc x,0 / goto L1 / swapf {wreg|y} / goto L2 / L1: / movwf {wreg|y} / L2: / USED"},
        {"B5 of the pointer it tests by", "btfsc {indf0|x},0 / goto L1 / lfsr 0,1 / goto L2 / L1: / lfsr 0,2 / L2: / USED"},
        {"B8 with a label between", "btfsc x,0 / return / {L:|nop} / return / USED", "btfss x,0 / nop / return / USED"},
        {"B8 of a goto elsewhere", "btfsc x,0 / {goto out|return} / nop / {goto out|return}", "btfss x,0 / nop / return"},
        {"R1 with a number of the linker's", "movlw {low(r)|5} / return", "movlw 5 / retlw 5"},
        {"C1 before another return", "call fn / {retfie|return} / fn: / return", "goto fn / fn: / return"},
        {"C1 behind a skip", "{btfsc x,0 / |}call fn / return / fn: / return", "goto fn / fn: / return"},
    };
    expect(peep_walk, rows);
    opt_late = true;
    expect(peep_walk, {{{"B6", "btfsc status,{1|2} / goto L / nop / L: / USED", "bz L / nop / L: / USED"}}});
    opt_late = false;
    const symbol_t *early = assemble("btfsc status,2 / goto L / nop / L: / USED");
    peep_walk(cur_psect);
    EXPECT_EQ(node(early, 1)->op_type, T_GOTO) << "B6 before its time";
}

// A7 is no change; a tail call needs both functions in one memory group; whole passes come to rest.
TEST_F(Optim, ChangesAndPasses)
{
    for (const char *code : {"comf y,w / DEAD", "comf y,w ;volatile / DEAD"}) {
        opt_changed = false;
        const symbol_t *psect = assemble(code);
        peep_walk(cur_psect);
        EXPECT_EQ(node(psect, 0)->op_type, strchr(code, ';') ? T_INCF : T_GOTO) << code;
        EXPECT_FALSE(opt_changed) << code;
    }
    peep_walk(assemble("movff x,x / comf y,w / DEAD"));
    EXPECT_TRUE(opt_changed);

    for (uint32_t group : {1u, 2u}) {
        const psect_t *callee = assemble("call fn / return / psect u,class=CODE,group=1,minocg / fn: / return")->s_psect;
        symbol_t *caller = vec_elementAt(psect_list, callee->p_number - 1)->psect;
        caller->s_psect->p_optim |= PO_MINOCG;
        caller->s_psect->p_group = group;
        peep_walk(caller);
        EXPECT_EQ(node(caller, 0)->op_type, group == callee->p_group ? T_GOTO : T_CALL);
    }
    symbol_t *psect = assemble("movlw 0 / addwf x / bc L / L: / DEAD");
    opt_psect(psect);
    const std::string result = text_of(psect);
    EXPECT_EQ(result, text_of(assemble("bcf status,0 / bc L / L: / DEAD")));
}
