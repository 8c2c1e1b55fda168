// hand: makes programs as people write them, beside those of `gen` that look like a compiler's.
//
// A program is a row of idioms, each of which is one text below: a jump table, a delay loop, an addition of 24 bits. An
// idiom does its work in a few registers, and whatever it finds there, it ends; so idioms can follow each other in any
// order, stand in a function of their own, under `asmopt off`, or between false arms of a conditional.
//
// In a text, {name} is a hole, filled anew for each digit behind the name:
//   {r} a register of the access bank, with its access word; {m} the same without   {b} a bit   {k} a number
//   {small} a number from 1 to 5   {port} {lat} a port, a latch   {d} w or f   {go} goto or bra
//   {@} this idiom's own number
//   {own} what labels of the idiom begin with: a name like the optimiser's own labels, or a plain one
// Labels of an idiom hold {@}. What follows a line of "---" stands outside the flow of the program: functions and tables,
// each in a psect that it names itself, or in one taken at random.
#include "gen.h"

#include <sstream>

struct hand_t {
    uint64_t state;
    unsigned number = 0;
    uint32_t below(size_t n)
    {
        state = state * 6364136223846793005 + 1442695040888963407;
        return static_cast<uint32_t>((state >> 33) % n);
    }
    const char *of(std::initializer_list<const char *> list) { return list.begin()[below(list.size())]; }
};

// Each keeps to registers of the access bank but for those that say otherwise.
static const char *const idioms[] = {
    // A table of constants that a computed jump reaches, in a psect that can't cross a page.
    R"(	movf	{r1:w}
	andlw	3
	call	tab{@}
	movwf	{r2}
---
	psect	page{@},class=CODE,reloc=256,delta=1
tab{@}:	addlw	0
	rlncf	WREG,w,c
	addwf	PCL,f,c
	retlw	{k1}
	retlw	{k2}
	retlw	{k2}
	retlw	{k3}
)",
    // A jump table whose arms are jumps, two of them the same, the last falling through.
    R"(	movf	{r1:w}
	andlw	3
	call	disp{@}
---
	psect	page{@},class=CODE,reloc=256,delta=1
disp{@}:	rlncf	WREG,w,c
	addwf	PCL,f,c
	bra	{own}{@}a
	bra	{own}{@}b
	bra	{own}{@}a
	bra	{own}{@}d
{own}{@}d:
	incf	{r2:f}
	return
{own}{@}a:
	movlw	{k1}
	movwf	{r2}
	return
{own}{@}b:
	bsf	{r3:bit}
	{go1}	{own}{@}d
)",
    // Dispatch by address through PCLATH.
    R"(	movlw	low({own}{@}t)
	movwf	{r1}
	movlw	high({own}{@}t)
	movwf	PCLATH,c
	movf	{r2:w}
	andlw	1
	mullw	4
	movf	PRODL,w,c
	addwf	{r1:w}
	btfsc	STATUS,0,c
	incf	PCLATH,f,c
	movwf	PCL,c
{own}{@}t:
	goto	{own}{@}x
	goto	{own}{@}y
{own}{@}x:
	movlw	{k1}
	xorwf	{r3:f}
	goto	{own}{@}z
{own}{@}y:
	comf	{r3:f}
{own}{@}z:
	movlw	{k2}
	movwf	{r1}
	addlw	{k1}
)",
    // A string read by table reads until its end.
    R"(	movlw	low(str{@})
	movwf	TBLPTRL,c
	movlw	high(str{@})
	movwf	TBLPTRH,c
	clrf	TBLPTRU,c
{own}{@}:
	tblrd	*+
	movf	TABLAT,w,c
	bz	{own}{@}e
	xorwf	{r1:f}
	movff	{m1},{lat1}
	bra	{own}{@}
{own}{@}e:
	clrf	TBLPTRL,c
	clrf	TBLPTRH,c
---
	psect	strings{@},class=CONST,reloc=2,delta=1
str{@}:	db	'H','e','l','o',{k1}|1,0
	dw	0x{k2}20
)",
    // Nested delay loops, the inner one by a distance.
    R"(	movlw	{small1}
	movwf	{r1}
{own}{@}o:
	movlw	{small2}
	movwf	n{@}
	decfsz	n{@},f,c
	goto	$-2
	decfsz	{r1:f}
	{go1}	{own}{@}o
)",
    // A step over an instruction by a distance.
    R"(	movlw	{k1}
	btfsc	{r1:bit}
	bra	$+6
	movwf	{r2}
	movwf	{r2}
	movlw	{k2}
	addwf	{r3:f}
)",
    // Code for another chip, left out with its labels and its end of a function.
    R"(	call	sel{@}
---
sel{@}:	btfss	{r1:bit}
	goto	{own}{@}o
	if 0
{own}{@}o:	return
__end_of_sel{@}x:
	endif
	movlw	{k1}
	movwf	{r2}
	return
	if	OTHER_CHIP
	clrf	{r2}
	else
	decf	{r2:f}
	endif
	return
)",
    // Directives between instructions, of which the parser makes nodes.
    R"(	movlw	{k1}
	title	"part {@}"
	movwf	{r1}
	subtitle	"still {@}"
	btfss	{r2:bit}
	{go1}	{own}{@}
	title	"else"
	movlw	{k1}
{own}{@}:
	movwf	{r3}
)",
    // A macro with arguments and local labels, used twice.
    R"(clamp{@}	macro	reg,limit
	local	below
	movlw	limit
	cpfsgt	reg,c
	bra	below
	movwf	reg,c
below:
	endm
	clamp{@}	{m1},{k1}
	clamp{@}	{m2},{k1}
)",
    // Addition and subtraction of 24 bits.
    R"(	movf	{r1:w}
	addwf	{r2:f}
	movf	{r3:w}
	addwfc	{r4:f}
	movlw	0
	addwfc	{r5:f}
	bnc	{own}{@}
	movf	{r2:w}
	subwf	{r1:f}
	movf	{r4:w}
	subwfb	{r3:f}
	bc	{own}{@}
	incf	{r5:f}
{own}{@}:
)",
    // A comparison of 16 bits, with a skip of a skip.
    R"(	movf	{r1:w}
	subwf	{r2:w}
	btfss	STATUS,2,c
	goto	{own}{@}n
	movf	{r3:w}
	subwf	{r4:w}
{own}{@}n:
	btfsc	STATUS,0,c
	btfss	{r5:bit}
	incf	{r2:f}
	incf	{r4:f}
)",
    // The same offset in two banks, with the bank chosen between.
    R"(	movlw	{k1}
	banksel	b0
	movwf	b0 and 255,b
	banksel	d0
	movwf	d0 and 255,b
	banksel	b0
	bcf	b0 and 255,{b1},b
	movf	b0 and 255,w,b
	movwf	{r1}
	movff	d0,{m2}
)",
    // Two names of one register.
    R"(old{@}	equ	{m1}
new{@}	equ	{m1}
	movlw	{k1}
	movwf	old{@},c
	incf	new{@},f,c
	movf	old{@},w,c
	movwf	{r2}
	movlw	{k1}
	movwf	new{@},c
)",
    // A function that saves and restores what it uses, as an interrupt's does.
    R"(	movlw	{k1}
	call	isr{@}
	movwf	{r1}
	btfsc	STATUS,0,c
	incf	{r1:f}
---
isr{@}:	movff	WREG,n{@}
	movff	STATUS,n{@}+1
	movff	BSR,n{@}+2
	movlb	2
	incf	{r2:f}
	movf	{port1},w,c
	xorwf	{r3:f}
	movff	n{@}+2,BSR
	movff	n{@},WREG
	movff	n{@}+1,STATUS
	return
)",
    // Shared tails, a jump out of a small function, and a call into the middle of one.
    R"(	call	one{@}
	call	two{@}
	call	mid{@}
---
one{@}:	movlw	{k1}
	goto	{own}{@}
two{@}:	movlw	{k2}
mid{@}:	incf	{r1:f}
	bz	{own}{@}
	movwf	{r2}
	return
{own}{@}:
	movwf	{r3}
	return
)",
    // A state machine that takes a few turns.
    R"(	movlw	{small1}
	movwf	n{@},c
{own}{@}l:
	movf	{r1:w}
	andlw	3
	bz	{own}{@}s0
	dcfsnz	WREG,f,c
	bra	{own}{@}s1
	clrf	{r1}
	bra	{own}{@}n
{own}{@}s0:
	movlw	1
	movwf	{r1}
	{go1}	{own}{@}n
{own}{@}s1:
	movlw	2
	movwf	{r1}
{own}{@}n:
	decfsz	n{@},f,c
	{go2}	{own}{@}l
)",
    // Instructions written as words: movlw 85 and addlw 1.
    R"(	movlw	{k1}
	movwf	{r1}
	dw	0x0E55
	movwf	{r2}
	movlw	{k1}
	dw	0x0F01
	movwf	{r3}
)",
    // A skip ahead of two words, of which the second is then a nop.
    R"(	btfsc	{r1:bit}
	movff	{m2},{m3}
	btfss	{r2:bit}
	goto	{own}{@}
	cpfseq	{r3}
	btfsc	{r4:bit}
	call	leaf{@}
{own}{@}:
	incf	{r1:f}
---
leaf{@}:	comf	{r2:f}
	retlw	{k1}
)",
    // Bits shifted out of a latch, in order.
    R"(	movlw	{small1}
	movwf	n{@},c
{own}{@}:
	bcf	{lat1},{b1},c	;volatile
	rlcf	{r1:f}
	btfsc	STATUS,0,c
	bsf	{lat1},{b1},c	;volatile
	movf	{port1},w,c	;volatile
	bsf	{lat1},{b2},c	;volatile
	bcf	{lat1},{b2},c	;volatile
	decfsz	n{@},f,c
	bra	{own}{@}
)",
    // The return address taken from the stack, and put back.
    R"(	call	drop{@}
	incf	{r1:f}
---
drop{@}:	call	deep{@}
	clrf	{r1}
	return
deep{@}:	movlw	{k1}
	movwf	{r2}
	pop
	return
)",
    // A function with padding in it, and an origin.
    R"(	call	pad{@}
---
	psect	pad{@},class=CODE,reloc=16,delta=1
pad{@}:	movlw	{k1}
	goto	{own}{@}
	org	16
{own}{@}:
	movwf	{r1}
	return
)",
};

// What a hole gets. `kind` is the name without its digit, `as` what stands behind a colon.
static std::string filling(hand_t &h, const std::string &kind)
{
    if (kind == "r" || kind == "m")
        return "a" + std::to_string(h.below(8));
    if (kind == "b")
        return std::to_string(h.below(8));
    if (kind == "k")
        return std::to_string(h.below(4) ? 10 + h.below(90) : 11);
    if (kind == "small")
        return std::to_string(1 + h.below(5));
    if (kind == "own")
        return h.of({"L", "PL", "iL", "_L", "L", "wait", "lbl_"});
    return kind == "port"  ? h.of({"PORTA", "PORTB"})
           : kind == "lat" ? h.of({"LATA", "LATB", "LATC"})
           : kind == "go"  ? h.of({"goto", "bra"})
                           : h.of({"w", "f"});
}

static std::string fill(hand_t &h, const std::string &text)
{
    std::map<std::string, std::string> chosen;
    std::string out;
    for (size_t at = 0, from; at < text.size(); at = text.find('}', from) + 1) {
        from = text.find('{', at);
        out += text.substr(at, from - at);
        if (from == std::string::npos)
            break;
        std::string name = text.substr(from + 1, text.find('}', from) - from - 1), as;
        if (const size_t colon = name.find(':'); colon != std::string::npos)
            as = name.substr(colon + 1), name.erase(colon);
        const std::string kind = name.substr(0, name.find_first_of("0123456789"));
        const bool with_access = kind == "r";
        if (name == "@") {
            out += std::to_string(h.number);
            continue;
        }
        std::string &value = chosen[kind == "m" ? "r" + name.substr(1) : name];   // {m1} is the register of {r1}
        if (value.empty())
            value = filling(h, kind);
        out += value;
        if (with_access)
            out += (as == "bit" ? "," + std::to_string(h.below(8)) : as.empty() ? "" : "," + as) + ",c";
    }
    return out;
}

static std::string around(hand_t &h, const std::string &code)
{
    switch (h.below(8)) {
    case 0: return "\tasmopt\toff\n" + code + "\tasmopt\ton\n";
    case 1: return "\tif\t0\nfalse" + std::to_string(h.number) + ":\treturn\n\tendif\n" + code;
    case 2: return "\tif\tOTHER_CHIP\n\treturn\n\telse\n" + code + "\tendif\n";
    default: return code;
    }
}

pieces_t hand_program(uint64_t seed, const target_t &target)
{
    hand_t h{seed * 0x9E3779B97F4A7C15 + 1};
    pieces_t pieces = gen_frame(target), outside;
    const std::string last = pieces.back();
    const unsigned count = 5 + h.below(11);
    pieces.pop_back();
    pieces[0] += "OTHER_CHIP\tequ\t0\n\tpsect\ttext,class=CODE,reloc=2,delta=1\n";
    for (h.number = 1; h.number <= count; h.number++) {
        const std::string text = fill(h, idioms[h.below(std::size(idioms))]), id = std::to_string(h.number);
        const size_t mark = text.find("---\n");
        std::string code = text.substr(0, mark);
        if (text.find("n" + id) != std::string::npos)
            pieces[0] += "\tpsect\tvars\nn" + id + ":\tds\t3\n";
        if (mark != std::string::npos)
            outside.push_back("\tpsect\ttext" + std::to_string(h.below(3)) + "x,class=CODE,reloc=2,delta=1\n" +
                              text.substr(mark + 4));
        code = around(h, code);
        if (h.below(4) == 0) {   // in a function of its own
            outside.push_back("\tpsect\ttext" + std::to_string(h.below(3)) + "x,class=CODE,reloc=2,delta=1\n" + "fun" + id +
                              ":\n" + code + "\treturn\n__end_of_fun" + id + ":\n");
            code = "\tcall\tfun" + id + "\n";
        }
        pieces.push_back(code);
    }
    pieces.push_back(last);
    pieces.insert(pieces.end(), outside.begin(), outside.end());
    return pieces;
}
