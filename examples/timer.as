; Counts the overflows of timer 1 in an interrupt and shows the count on port B.
; Shows: vectors at fixed places, a fast interrupt with the shadow registers, a 16-bit variable, banked data.

	processor	ZEL8K10
	include	"zel8k10.inc"

TM1IF	equ	0		; in IFR1 and IER1
TM1ON	equ	0		; in TM1C
PEIE	equ	6		; in INTC0
GIE	equ	7
RELOAD	equ	65536-50000

	psect	udata_bank1,class=BANK1,space=1,delta=1
ticks:	ds	2

	psect	vectors,class=CODE,abs,ovrld,delta=1
	org	0
	goto	start
	org	8
	goto	on_timer

	psect	text,class=CODE,reloc=2,delta=1
start:
	clrf	DIRB,c
	banksel	ticks
	clrf	ticks,b
	clrf	ticks+1,b
	movlw	high(RELOAD)
	movwf	TM1H,c
	movlw	low(RELOAD)
	movwf	TM1L,c
	bsf	IER1,TM1IF,c
	bsf	INTC0,PEIE,c
	bsf	INTC0,GIE,c
	bsf	TM1C,TM1ON,c
wait:
	movff	ticks+1,LATB
	bra	wait

on_timer:
	bcf	IFR1,TM1IF,c
	movlw	high(RELOAD)
	movwf	TM1H,c
	movlw	low(RELOAD)
	movwf	TM1L,c
	banksel	ticks
	infsnz	ticks,f,b
	incf	ticks+1,f,b
	retfie	f

	end	start
