#include "fixture.h"
#include "optim/peep.h"
TEST_F(Optim, try)
{
    for (const char *in : {"movlw 5 / movlw 5 / movwf x,c / goto out", "L: btfsc status,2,c / goto L / movff r,wreg / movwf s,b / bsf status,0,c / clrf x / clrw / tblrd *+ / lfsr 1,300h / bnz L / call out / retlw 3 / return ;funcret", "movf (r xor (p__Lparam and 0FF00h)),w"}) {
        symbol_t *p = assemble(in);
        std::cout << code_of(p) << "\n";
        peephole_walk(p);
        std::cout << code_of(p) << "\n\n";
    }
}
