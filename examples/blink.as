; Blinks an output of port A: the smallest program that does something one can see.
; Shows: psects, labels, access-bank operands, skips, a delay of nested loops.

	processor	ZEL8K10
	include	"zel8k10.inc"

LED	equ	3		; pin of port A
OUTER	equ	200
INNER	equ	0		; 256 rounds

	psect	udata_acs,class=COMRAM,space=1,delta=1
outer:	ds	1
inner:	ds	1

	psect	resetVec,class=RESETVEC,reloc=2,delta=1
	goto	start

	psect	text,class=CODE,reloc=2,delta=1
start:
	clrf	LATA,c
	bcf	DIRA,LED,c	; an output
loop:
	btg	LATA,LED,c
	call	delay
	bra	loop

; Waits for OUTER * 256 rounds. Uses W and the two counters.
delay:
	movlw	OUTER
	movwf	outer,c
1:	movlw	INNER
	movwf	inner,c
2:	decfsz	inner,f,c
	bra	2b
	decfsz	outer,f,c
	bra	1b
	return

	end	start
