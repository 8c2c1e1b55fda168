// exclude: the one place that says where the optimiser can't be trusted.
//
// The rules are as they are, and some of them take for granted what a compiler's code always has and what a person's
// code may lack. The generator of programs keeps out of these situations, unless it is told not to; whoever writes
// assembly by hand for -O has to know them too. Each entry has the smallest program that shows the difference, which is
// run by a test: an entry that shows none any more has to go.
#include "exclude.h"

#include <algorithm>

const std::vector<exclusion_t> exclusions = {
    {"fast-call",
     "A fast call saves W, status and bsr, and a fast return brings them back. The search for dead values sees "
     "neither: here W counts as dead, since `fast` overwrites it, and the movf is folded into the movff (M1).",
     "-O", R"(
	movf	a1,w,c
	movff	WREG,a2
	call	fast,f
	goto	finish
fast:	incf	a6,w,c
	return	f
)"},
    {"fast-tail",
     "A fast call right ahead of a return becomes a goto (C1), but the called function still brings back W, "
     "status and bsr: from a fast call long past.",
     "-O", R"(
	call	first
	goto	finish
first:	movlw	7
	call	fast,f
	return
fast:	movlw	1
	movwf	a1,c
	return	f
)"},
    {"fast-inline",
     "When a function with a fast return is inlined, nothing brings back W, status and bsr any more.",
     "-O -auto_inline", R"(
	movlw	7
	call	fast,f
	goto	finish
	psect	text2,class=CODE,reloc=2,delta=1
fast:	movlw	1
	movwf	a1,c
	return	f
__end_of_fast:
	psect	text
)"},
    {"overflow",
     "No rule looks after the bits OV and DC: `bov`, `bnov`, `daw` and tests of the two bits may see those of "
     "an instruction further up. Here the addition of 0, which clears OV, turns into `bcf STATUS,0` (G9).",
     "-O", R"(
	movlw	127
	addlw	1
	movlw	0
	addwf	a0,f,c
	movlw	1
	bov	x1
	movlw	2
x1:	addwf	a1,f,c
)"},
    {"addwfc-zero",
     "`addwfc x,f` that adds nothing, W and C being 0, is deleted, though Z and N may be read behind it (G5).",
     "-O", R"(
	clrf	a0,c
	movf	a1,f,c
	movlw	0
	bcf	STATUS,0,c
	addwfc	a0,f,c
)"},
    {"n-at-return",
     "N counts as dead at every return, so a caller can't test it. Z does too with \";funcret\". Here the "
     "iorwf, which alone sets N, goes (G4).",
     "-O", R"(
	setf	a7,c
	call	sub
	bn	x1
	clrf	a6,c
x1:	goto	finish
sub:	movlw	0
	iorwf	a7,f,c
	clrf	a0,c
	return
)"},
    {"address-3",
     "Bit instructions on address 3, bit 5 to 7, between a call and a return are taken for bank selection, and "
     "deleted (C1).",
     "-O", R"(
	call	sub
	goto	finish
sub:	call	sub2
	bsf	3,5,c
	return
sub2:	incf	a3,f,c
	movwf	a5,c
	return
)"},
    {"two-names",
     "A register that is written under one name and read under another is taken for two registers: `a1` and "
     "`a0+1`, or one with access-bank and one with banked addressing. Here the last movwf goes (V1).",
     "-O", R"(
	movf	a1,w,c
	clrf	a0+1,c
	movwf	a1,c
)"},
    {"unmarked-port",
     "Accesses to a register that changes by itself, or acts when it is accessed, need the mark \";volatile\".",
     "-O", R"(
	movlw	1
	movwf	LATA,c
	movwf	LATA,c
)"},
    {"start",
     "A jump to a label named `start` counts as the end of the program, where nothing is needed any more.",
     "-O", R"(
	clrf	a0,c
	goto	entry
start:	movwf	a1,c
	goto	finish
entry:	movlw	5
	goto	start
)"},
    {"computed-jump",
     "A jump by a write to PCL isn't followed, and what only it reaches is deleted (J1), unless `asmopt off` is "
     "in force.",
     "-O", R"(
	movlw	2
	call	table2
	goto	finish
table2:	addwf	0xFEC,f,c
	retlw	1
	retlw	2
	retlw	3
)"},
    {"dollar",
     "A distance from `$` stays the same when the code that it spans shrinks or grows.",
     "-O", R"(
	bra	$+4
	movlw	1
	movlw	5
	movlw	6
)"},
    {"code-address",
     "The NOPs of --errata= go between the label and the first byte of a table that stands behind a return in a "
     "code psect. Tables belong into psects of their own.",
     "--errata=1", R"(
	movlw	low(data)
	movwf	TBLPTRL,c
	movlw	high(data)
	movwf	TBLPTRH,c
	clrf	TBLPTRU,c
	tblrd	*
	clrf	TBLPTRL,c
	clrf	TBLPTRH,c
	goto	finish
	return
data:	dw	0x0102
)"},
    {"errata-skip",
     "The NOP that --errata= puts at a global label that nothing refers to takes the place of an instruction "
     "under a skip, which then always runs. Inlining makes such labels.",
     "--errata=1", R"(
	global	x1
	clrf	a7,c
	btfsc	a7,0,c
x1:	incf	a7,f,c
)"},
    {"stack-pointer",
     "A procedure that abstraction makes runs one level further down the stack, as instructions that read "
     "STKPTR see.",
     "-O --opt=space", R"(
	call	sub
	call	sub2
	goto	finish
sub:	movff	0xFEB,a1
	incf	a2,f,c
	rlncf	a3,f,c
	setf	a4,c
	return
sub2:	movff	0xFEB,a1
	incf	a2,f,c
	rlncf	a3,f,c
	setf	a4,c
	decf	a6,f,c
	return
)"},
};

exclusion exclusion_find(const std::string &name)
{
    const auto it = std::find_if(exclusions.begin(), exclusions.end(), [&](const exclusion_t &e) { return e.name == name; });
    return it == exclusions.end() ? X_NONE : static_cast<exclusion>(it - exclusions.begin());
}
