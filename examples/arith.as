; A 16-bit multiplication and its caller, as a compiler would write them.
; Shows: line and file information for a debugger, call-graph directives, signatures, a variable that another psect shares.

	processor	ZEL8K10
	include	"zel8k10.inc"

	global	_main,___wmul
	signat	_main,89
	signat	___wmul,8314
	fnconf	rparam,??,?
	fncall	_main,___wmul
	fnsize	___wmul,2,4
	fnroot	_main

	psect	cstackCOMRAM,class=COMRAM,space=1,delta=1
multiplier:	ds	2
multiplicand:	ds	2
product:	ds	2

	psect	text0,global,reloc=2,class=CODE,delta=1
	file	"main.c"
	line	12
_main:
	movlw	low(1000)
	movwf	multiplier,c
	movlw	high(1000)
	movwf	multiplier+1,c
	line	13
	movlw	low(300)
	movwf	multiplicand,c
	movlw	high(300)
	movwf	multiplicand+1,c
	call	___wmul
	line	14
	movff	product,LATC
	movff	product+1,LATD
	bra	$
__end_of_main:

	psect	text1,global,reloc=2,class=CODE,delta=1
	file	"wmul.c"
	line	5
___wmul:
	movf	multiplier,w,c
	mulwf	multiplicand,c
	movff	PRODL,product
	movff	PRODH,product+1
	line	6
	movf	multiplier,w,c
	mulwf	multiplicand+1,c
	movf	PRODL,w,c
	addwf	product+1,f,c
	line	7
	movf	multiplier+1,w,c
	mulwf	multiplicand,c
	movf	PRODL,w,c
	addwf	product+1,f,c
	line	8
	return
__end_of___wmul:
