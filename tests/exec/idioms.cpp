// idioms: the texts that hand-written programs are made of. See hand.cpp for what the holes in them mean.
#include "gen.h"

// Each keeps to registers of the access bank but for those that say otherwise.
const char *const hand_idioms[] = {
    // A table of constants that a computed jump reaches, in a psect that can't cross a page.
    R"(movf {r1:w} / andlw 3 / call tab{@} / movwf {r2}
---
psect textp{@},class=CODE,reloc=256,delta=1
tab{@}: addlw 0 / rlncf WREG,w,c / addwf PCL,f,c / retlw {k1} / retlw {k2} / retlw {k2} / retlw {k3})",
    // A jump table whose arms are jumps, two of them the same, the last falling through.
    R"(movf {r1:w} / andlw 3 / call disp{@}
---
psect textp{@},class=CODE,reloc=256,delta=1
disp{@}: rlncf WREG,w,c / addwf PCL,f,c / bra {own}{@}a / bra {own}{@}b / bra {own}{@}a / bra {own}{@}d
{own}{@}d: / incf {r2:f} / return
{own}{@}a: / movlw {k1} / movwf {r2} / return
{own}{@}b: / bsf {r3:bit} / {go1} {own}{@}d)",
    // Dispatch by address through PCLATH.
    R"(movlw low({own}{@}t) / movwf {r1} / movlw high({own}{@}t) / movwf PCLATH,c / movf {r2:w} / andlw 1 / mullw 4
movf PRODL,w,c / addwf {r1:w} / btfsc STATUS,0,c / incf PCLATH,f,c / movwf PCL,c
{own}{@}t: / goto {own}{@}x / goto {own}{@}y
{own}{@}x: / movlw {k1} / xorwf {r3:f} / goto {own}{@}z
{own}{@}y: / comf {r3:f}
{own}{@}z: / movlw {k2} / movwf {r1} / addlw {k1})",
    // A string read by table reads until its end.
    R"(movlw low(str{@}) / movwf TBLPTRL,c / movlw high(str{@}) / movwf TBLPTRH,c / clrf TBLPTRU,c
{own}{@}: / tblrd *+ / movf TABLAT,w,c / bz {own}{@}e / xorwf {r1:f} / movff {m1},{lat1} / bra {own}{@}
{own}{@}e: / clrf TBLPTRL,c / clrf TBLPTRH,c
---
psect strings{@},class=CONST,reloc=2,delta=1
str{@}: db 'H','e','l','o',{k1}|1,0 / dw 0x{k2}20)",
    // Nested delay loops, the inner one by a distance.
    R"(movlw {small1} / movwf {r1}
{own}{@}o: / movlw {small2} / movwf n{@} / decfsz n{@},f,c / goto $-2 / decfsz {r1:f} / {go1} {own}{@}o)",
    // A step over an instruction by a distance.
    R"(movlw {k1} / btfsc {r1:bit} / bra $+6 / movwf {r2} / movwf {r2} / movlw {k2} / addwf {r3:f})",
    // Code for another chip, left out with its labels and its end of a function.
    R"(call sel{@}
---
sel{@}: btfss {r1:bit} / goto {own}{@}o / if 0
{own}{@}o: return
__end_of_sel{@}x: / endif / movlw {k1} / movwf {r2} / return / if OTHER_CHIP / clrf {r2} / else / decf {r2:f}
endif / return)",
    // Directives between instructions, of which the parser makes nodes.
    R"(movlw {k1} / title "part {@}" / movwf {r1} / subtitle "still {@}" / btfss {r2:bit} / {go1} {own}{@}
title "else" / movlw {k1}
{own}{@}: / movwf {r3})",
    // A macro with arguments and local labels, used twice.
    R"(clamp{@} macro reg,limit / local below / movlw limit / cpfsgt reg,c / bra below / movwf reg,c
below: / endm / clamp{@} {m1},{k1} / clamp{@} {m2},{k1})",
    // Addition and subtraction of 24 bits.
    R"(movf {r1:w} / addwf {r2:f} / movf {r3:w} / addwfc {r4:f} / movlw 0 / addwfc {r5:f} / bnc {own}{@} / movf {r2:w}
subwf {r1:f} / movf {r4:w} / subwfb {r3:f} / bc {own}{@} / incf {r5:f}
{own}{@}:)",
    // A comparison of 16 bits, with a skip of a skip.
    R"(movf {r1:w} / subwf {r2:w} / btfss STATUS,2,c / goto {own}{@}n / movf {r3:w} / subwf {r4:w}
{own}{@}n: / btfsc STATUS,0,c / btfss {r5:bit} / incf {r2:f} / incf {r4:f})",
    // The same offset in two banks, with the bank chosen between.
    R"(movlw {k1} / banksel b0 / movwf b0 and 255,b / banksel d0 / movwf d0 and 255,b / banksel b0
bcf b0 and 255,{b1},b / movf b0 and 255,w,b / movwf {r1} / movff d0,{m2})",
    // Two names of one register.
    R"(old{@} equ {m1}
new{@} equ {m1} / movlw {k1} / movwf old{@},c / incf new{@},f,c / movf old{@},w,c / movwf {r2} / movlw {k1}
movwf new{@},c)",
    // A function that saves and restores what it uses, as an interrupt's does.
    R"(movlw {k1} / call isr{@} / movwf {r1} / btfsc STATUS,0,c / incf {r1:f}
---
isr{@}: movff WREG,n{@} / movff STATUS,n{@}+1 / movff BSR,n{@}+2 / movlb 2 / incf {r2:f} / movf {port1},w,c
xorwf {r3:f} / movff n{@}+2,BSR / movff n{@},WREG / movff n{@}+1,STATUS / movff n{@},n{@}+1 / return)",
    // Shared tails, a jump out of a small function, and a call into the middle of one.
    R"(call one{@} / call two{@} / call mid{@}
---
one{@}: movlw {k1} / goto {own}{@}
two{@}: movlw {k2}
mid{@}: incf {r1:f} / bz {own}{@} / movwf {r2} / return
{own}{@}: / movwf {r3} / return)",
    // A state machine that takes a few turns.
    R"(movlw {small1} / movwf n{@},c
{own}{@}l: / movf {r1:w} / andlw 3 / bz {own}{@}s0 / dcfsnz WREG,f,c / bra {own}{@}s1 / clrf {r1}
bra {own}{@}n
{own}{@}s0: / movlw 1 / movwf {r1} / {go1} {own}{@}n
{own}{@}s1: / movlw 2 / movwf {r1}
{own}{@}n: / decfsz n{@},f,c / {go2} {own}{@}l)",
    // Instructions written as words: movlw 85 and addlw 1.
    R"(movlw {k1} / movwf {r1} / dw 0x0E55 / movwf {r2} / movlw {k1} / dw 0x0F01 / movwf {r3})",
    // A skip ahead of two words, of which the second is then a nop.
    R"(btfsc {r1:bit} / movff {m2},{m3} / btfss {r2:bit} / goto {own}{@} / cpfseq {r3} / btfsc {r4:bit} / call leaf{@}
{own}{@}: / incf {r1:f}
---
leaf{@}: comf {r2:f} / retlw {k1})",
    // Bits shifted out of a latch, in order.
    R"(movlw {small1} / movwf n{@},c
{own}{@}: / bcf {lat1},{b1},c ;volatile / rlcf {r1:f} / btfsc STATUS,0,c / bsf {lat1},{b1},c ;volatile
movf {port1},w,c ;volatile / bsf {lat1},{b2},c ;volatile / bcf {lat1},{b2},c ;volatile / decfsz n{@},f,c
bra {own}{@})",
    // The return address taken from the stack, and put back.
    R"(call drop{@} / incf {r1:f}
---
drop{@}: call deep{@} / clrf {r1} / return
deep{@}: movlw {k1} / movwf {r2} / pop / return)",
    // A function with padding in it, and an origin.
    R"(call pad{@}
---
psect pad{@},class=CODE,reloc=16,delta=1
pad{@}: movlw {k1} / goto {own}{@} / org 16
{own}{@}: / movwf {r1} / return)",

    // Distances that a name stands for.
    R"(over{@} equ 4 / movlw {k1} / btfss {r1:bit} / bra $+2+over{@} / movwf {r2} / addlw 1 / movwf {r3})",
    // A loop whose first instruction runs once.
    R"(movlw {small1} / movwf n{@},c
{own}{@}: / movlw {k1} / addwf {r1:f} / xorlw {k2} / decfsz n{@},f,c / {go1} {own}{@}+2 / movwf {r2})",
    // Other names of labels, ahead of them and behind.
    R"(out{@} equ {own}{@}e / movlw {small1} / movwf n{@},c
{own}{@}:
back{@} equ {own}{@} / incf {r1:f} / btfsc {r2:bit} / goto out{@} / comf {r2:f} / decfsz n{@},f,c / bra back{@}
{own}{@}e: / movwf {r3})",
    // What stands between a skip and its instruction without being one.
    R"(movlw {k1} / align 2 / btfss {r1:bit} / messg "skip {@}" / movwf {r2} / include "nothing.inc" / movwf {r3}
btfsc {r2:bit} / ds 0 / goto {own}{@} / align 4 / btfsc {r4:bit} / align 2 / include "nothing.inc" / incf {r1:f}
{own}{@}: / movlw {k2})",
    // A jump by a return address of its own making.
    R"(push / movlw {k1} / pop / call via{@} / movwf {r2}
---
via{@}: push / movlw low({own}{@}) / movwf TOSL,c / movlw high({own}{@}) / movwf TOSH,c / movlw {k2} / return
clrf {r1}
{own}{@}: / incf {r1:f} / return)",
    // Calls and jumps by address.
    R"(clrf PCLATU,c / movlw high(one{@}) / movwf PCLATH,c / movlw low(one{@}) / {callw} / call two{@}
---
one{@}: movlw {k1} / movwf {r1} / return
two{@}: movlw high({own}{@}) / movwf PCLATH,c / movlw low({own}{@}) / btfsc {r1:bit} / bra {own}{@}s
movwf {r2} / movff {m2},PCL
{own}{@}s: / movwf PCL,c
{own}{@}: / movlw {k2} / movwf {r2} / return)",
    // Registers by number, where a bank decides which one it is.
    R"(movlw {k1} / movwf 0x5{b1},c / movlb 0 / incf 0x5{b1},f,b / movf 0x5{b1},w,c / movwf {r1} / movlb 5
bsf 0x5{b1},{b2},b / btfsc 0x5{b1},{b2},b / movff 0x5{b1},{m2} / movff 0x55{b1},{m3} / movlb 4 / movwf 0x5{b1},b
movff 0x45{b1},0x55{b2} / movf 0x5{b1},w,b / addwf 0x5{b1},w,c)",
    // STATUS, W and BSR by number.
    R"(movf {r1:w} / addwf {r2:f} / btfss 0xF4,0,c / movwf {r3} / bcf 0xF4,0,c / rlcf {r3:f} / incf 0xF3,f,c
movwf {r4} / movlw 2 / movwf 0xF2,c / movff {m2},d{b1} / movf d{b1} and 255,w,b / movwf {r4})",
    // A choice of banks.
    R"(movlw {k1} / movlb 1 / btfsc {r1:bit} / movlb 2 / movwf {b1},b / btfss {b1},{b2},b / bra {own}{@}
bsf {b2},{b1},b / bra {own}{@}e
{own}{@}: / bcf {b2},{b1},b
{own}{@}e: / movlb 1 / movwf {b3},b / movlb 2 / movwf {b3},b)",
    // A label for each chip, which each has in its arm.
    R"(btfss {r1:bit} / goto {own}{@} / if OTHER_CHIP / clrf {r1}
{own}{@}o: / clrf {r2} / elsif OTHER_CHIP eq 0 / incf {r2:f}
{own}{@}: / else / goto {own}{@}o / endif / comf {r3:f})",
    // Ports by other names and unmarked, which change by themselves.
    R"(pin{@} equ {port1} / movf pin{@},w,c / movf pin{@},w,c / movwf {r1} / btfsc pin{@},{b1},c / incf {r2:f}
movff {port1},{m3} / movff {port1},{m3} / movwf {lat1},c / movwf {lat1},c / movf {lat1},w,c / incf {lat1},w,c
movwf {lat1},c / bsf {lat2},{b2},c / btfss {lat2},{b2},c / goto {own}{@} / bcf {lat2},{b2},c
{own}{@}: / movlw 0 / movwf {lat2},c)",
    // A register that the program itself marks: its accesses stay, and nothing of them can be compared but their effect.
    R"(movlw {k1} / movwf {r1} ;volatile / movf {r1:w} ;volatile / movwf {r1} ;volatile / btfsc {r1:bit} ;volatile
goto {own}{@}
{own}{@}: / movwf {r2})",
    // Multiplication by shifts.
    R"(clrf n{@}+1,c / clrf n{@}+2,c / movlw 8 / movwf n{@},c
{own}{@}: / bcf STATUS,0,c / rlcf n{@}+1,f,c / rlcf n{@}+2,f,c / rlcf {r1:f} / btfss STATUS,0,c / goto {own}{@}n
movf {r2:w} / addwf n{@}+1,f,c / btfsc STATUS,0,c / incf n{@}+2,f,c
{own}{@}n: / decfsz n{@},f,c / {go1} {own}{@})",
    // Division by shifts, and a checksum.
    R"(clrf n{@}+1,c / movlw 8 / movwf n{@},c
{own}{@}: / rlcf {r1:f} / rlcf n{@}+1,f,c / movf {r2:w} / subwf n{@}+1,w,c / bnc {own}{@}n / movwf n{@}+1,c
{own}{@}n: / decfsz n{@},f,c / {go1} {own}{@} / rlcf {r1:f} / bcf STATUS,0,c / rrcf {r3:f} / movlw 0x8C
btfsc STATUS,0,c / xorwf {r3:f})",
    // Absolute value and limits, by the sign.
    R"(btfsc {m1},7,c / negf {r1} / movf {r1:w} / subwf {r2:w} / bn {own}{@} / movff {m1},{m2}
{own}{@}: / movlw {k1} / cpfslt {r2} / movwf {r2} / rept 3 / rlncf {r2:f} / endm / tstfsz {r3} / decf {r3:f})",
    // A block that is moved, and a stack in memory.
    R"(lfsr 0,array+{b1} / lfsr 1,array+32 / movlw {small1} / movwf n{@},c
{own}{@}: / movff POSTINC0,{m1} / movf {r1:w} / xorwf POSTINC1,f,c / decfsz n{@},f,c / bra {own}{@}
lfsr 2,array+60 / movff {m2},POSTDEC2 / movf {r3:w} / movwf POSTDEC2,c / clrf {r3} / movf PREINC2,w,c
addwf PREINC2,w,c / movwf {r4} / movlw 2 / movff PLUSW1,{m4})",
    // A state machine by a jump table.
    R"(movlw {small1} / movwf n{@},c
{own}{@}l: / call step{@} / decfsz n{@},f,c / {go1} {own}{@}l
---
psect textp{@},class=CODE,reloc=256,delta=1
step{@}: movf {r1:w} / andlw 3 / rlncf WREG,w,c / rlncf WREG,w,c / addwf PCL,f,c / goto {own}{@}a
goto {own}{@}b / goto {own}{@}c / clrf {r1} / return
{own}{@}a: / incf {r1:f} / movff {m1},{lat1} / return
{own}{@}b: / movlw {k1} / movwf {r2}
{own}{@}c: / incf {r1:f} / retlw {k2})",
    // A dispatch through a table of addresses.
    R"(movlw low(ptr{@}) / movwf TBLPTRL,c / movlw high(ptr{@}) / movwf TBLPTRH,c / clrf TBLPTRU,c / btfsc {m1},{b1},c
tblrd *+ / btfsc {m1},{b1},c / tblrd *+ / tblrd *+ / movff TABLAT,{m2} / tblrd * / movff TABLAT,PCLATH
movf {r2:w} / movwf PCL,c
{own}{@}a: / clrf {r3}
{own}{@}b: / movlw {k1} / movwf {r2} / clrf TABLAT,c / clrf TBLPTRL,c / clrf TBLPTRH,c / addlw {k2}
---
psect ptrs{@},class=CONST,reloc=4,delta=1
ptr{@}: dw {own}{@}a,{own}{@}b)",
    // A small function that may be copied, with several ways out.
    R"(call small{@} / movwf {r1} / call small{@}
---
psect textin{@},class=CODE,reloc=2,delta=1,inline
small{@}: / btfsc {r2:bit} / retlw {k1} / movlw {k2} / bz here{@} / incf {r3:f}
{own}{@}:
here{@} equ {own}{@} / return
__end_of_small{@}:)",
    // Functions that may not be copied: they leave by a jump, read the stack, hold a table, call themselves.
    R"(call tail{@} / call top{@} / addwf {r4:w} / andlw 1 / call tab{@} / movwf {r1}
---
psect textin{@}a,class=CODE,reloc=2,delta=1,inline
tail{@}: / incf {r1:f} / bz {own}{@} / goto {own}{@}e
__end_of_tail{@}:
{own}{@}: / clrf {r2}
{own}{@}e: / return
---
psect textin{@}b,class=CODE,reloc=2,delta=1,inline
top{@}: movlw 0 / iorwf TOSU,w,c / return
__end_of_top{@}:
---
psect textin{@}c,class=CODE,reloc=256,delta=1,inline
tab{@}: rlncf WREG,w,c / addwf PCL,f,c / retlw {k1} / retlw {k2}
__end_of_tab{@}:)",
    // Recursion, and a function that runs into the next one.
    R"(movlw {small1} / movwf n{@},c / call rec{@} / call into{@}
---
psect textin{@}a,class=CODE,reloc=2,delta=1,inline
rec{@}: incf {r1:f} / decfsz n{@},f,c / call rec{@} / incf {r2:f} / return
__end_of_rec{@}:
---
psect textin{@}b,class=CODE,reloc=2,delta=1,inline
into{@}: / movlw {k1} / movwf {r3}
__end_of_into{@}: / xorwf {r2:f} / return)",
    // A condition that a function answers in the flags.
    R"(call test{@} / bnz {own}{@} / incf {r1:f}
{own}{@}: / btfsc STATUS,0,c / decf {r2:f} / call empty{@} / btfsc STATUS,2,c / comf {r3:f}
---
test{@}: movf {r4:w} / subwf {r3:w} / return
empty{@}: / movlw 0 / iorwf {r2:w} / retlw {k1})",
    // Labels that are numbers, data in the middle of code, and a return of another kind.
    R"(movlw {small1} / movwf n{@},c
1: incf {r1:f} / btfsc {r1:bit} / goto 1f / addwf {r2:f}
1: decfsz n{@},f,c / bra 1b / goto {own}{@} / dw 0x0E{b1}{b2} / db {k1},{k2}
{own}{@}: / btfss {r3:bit} / call other{@}
---
other{@}: / movlw {k1} / call again{@} / retfie
again{@}: / xorwf {r1:f} / btfsc {r1:bit} / call leaf{@} / return
leaf{@}: comf {r2:f} / return)",
    // A skip at the end of a psect skips the first instruction of the next one.
    R"(call end{@} / movwf {r4}
---
psect textj{@}a,class=CODE,reloc=2,delta=1
end{@}: movlw {k1} / btfsc {r1:bit}
psect textj{@}b,class=CODE,reloc=2,delta=1,with=textj{@}a / movlw {k2} / movwf {r2} / return)",
    // A function that goes on in another module, or further down.
    R"(call on{@}
---
psect textj{@},class=CODE,reloc=2,delta=1
on{@}: movlw {k1} / btfsc {r1:bit} / movwf {r2}
---
psect textj{@},class=CODE,reloc=2,delta=1 / movwf {r3} / movlw {k1} / bz {own}{@} / movwf {r2}
{own}{@}: / return)",
    // Functions that return behind what follows the call, or choose among the jumps there. Flags of an address are cleared.
    R"({go1} {own}{@}
skip{@}: movlw 2 / btfss {r1:bit} / movlw 0
add{@}: addwf TOSL,f,c / movlw 0 / addwfc TOSH,f,c / andlw 0 / return
pick{@}: rlncf WREG,f,c / rlncf WREG,f,c / goto add{@}
{own}{@}: / call skip{@} / bra {own}{@}c / comf {r2:f} / movlw {k1} / call skip{@} / movlw {k2} / movwf {r3}
{own}{@}c: / movf {r4:w} / andlw 1 / call pick{@} / goto {own}{@}a / goto {own}{@}b
{own}{@}a: / movlw {k1} / movwf {r2} / {go2} {own}{@}e
{own}{@}b: / comf {r3:f}
{own}{@}e:)",
};

const size_t hand_idiom_count = std::size(hand_idioms);
