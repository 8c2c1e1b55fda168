// exclude: the one place that says where the optimiser can't be trusted.
//
// The rules are as they are, and some of them take for granted what a compiler's code always has and what a person's
// code may lack. The generator of programs keeps out of these situations, unless it is told not to; whoever writes
// assembly by hand for -O has to know them too. Each entry has the smallest program that shows the difference, which is
// run by a test: an entry that shows none any more has to go.
#include <algorithm>

#include "gen.h"

const exclusion_t exclusions[X_NONE] = {
    {"fast-call", "A fast call saves W, status and bsr. The search for dead values doesn't know, so the movf goes (M1).",
     "-O", "movf a1,w,c / movff WREG,a2 / call fast,f / goto finish / fast: / incf a6,w,c / return f"},
    {"fast-inline", "When a function with a fast return is inlined, nothing restores W, status and bsr any more.",
     "-O -auto_inline",
     "movlw 7 / call fast,f / goto finish / psect text2,class=CODE,reloc=2,delta=1 / "
     "fast: / movlw 1 / movwf a1,c / return f / __end_of_fast: / psect text"},
    {"overflow", "No rule looks after OV and DC. Here the addition of 0, which clears OV, becomes `bcf STATUS,0` (G9).",
     "-O", "movlw 127 / addlw 1 / movlw 0 / addwf a0,f,c / movlw 1 / bov x1 / movlw 2 / x1: / addwf a1,f,c"},
    {"n-at-return", "N counts as dead at a return, with \";funcret\" also Z. Here the iorwf, which alone sets N, goes (G4).",
     "-O",
     "setf a7,c / call sub / bn x1 / clrf a6,c / x1: / goto finish / "
     "sub: / movlw 0 / iorwf a7,f,c / clrf a0,c / return"},
    {"address-3", "`bsf 3,5` and the like between a call and a return is taken for bank selection, and deleted (C1).", "-O",
     "call sub / goto finish / sub: / call sub2 / bsf 3,5,c / return / sub2: / incf a3,f,c / movwf a5,c / return"},
    {"start", "A jump to a label named `start` counts as the end of the program, where nothing is needed any more.", "-O",
     "clrf a0,c / goto entry / start: / movwf a1,c / goto finish / entry: / movlw 5 / goto start"},
    {"pointer",
     "A pointer whose address is worked out counts as one into memory, not to W, STATUS or BSR. So a movlw goes (W1).", "-O",
     "movlw 14 / addlw 1 / movwf FSR0H,c / movlw low(WREG) / movwf FSR0L,c / clrf INDF0,c / movlw low(WREG) / movwf a0,c"},
};

exclusion exclusion_find(const std::string &name)
{
    const auto has_name = [&](const exclusion_t &e) { return e.name == name; };
    return static_cast<exclusion>(std::find_if(exclusions, exclusions + X_NONE, has_name) - exclusions);
}
