; Counts in 16 bits and shows the count on two ports, with the macros of macros.inc.
; Shows: a macro library and every way to repeat text: macro, irp, irpc, rept.

	processor	ZEL8K10
	include	"zel8k10.inc"
	include	"macros.inc"

	psect	udata_acs,class=COMRAM,space=1,delta=1
delay:	ds	1
total:	ds	2

	psect	code,class=CODE,reloc=2,delta=1

	counter	ticks		; makes ticks, count_ticks and show_ticks

start:
	clear	<LATA,LATB,DIRB,delay>
	irp	pin,0,1,2,3	; irp, irpc and rept work outside of macros too
	output	A,pin
	endm
	pin_on	A,3
	nibble	0x1234
	movwf	LATB,c
loop:
	wait	200,delay
	count_ticks
	show_ticks	D,C
	copy16	ticks,total
	rept	4
	nop
	endm
	wait	<low(20*5)>,delay
	bra	loop

	psect	const,class=CONST,delta=1,noexec
greeting:
	text	Hello!, world	; `!` takes the next character as it is: this comma ends no argument
prompt:
	text	<Ready, steady>
powers:
	squares	10

	end	start
