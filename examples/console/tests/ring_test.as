; 40 bytes arrive while nobody reads: the ring keeps 31, in order, and loses the others. Then they are sent back, which goes
; around the end of the ring and waits for room.
	include	"macros.inc"
	include	"console.inc"
	psect	reset_vec,class=RESETVEC,reloc=2
	goto	test
	psect	int_vec,class=INTVEC,reloc=2
	incfsz	arrived,f,c	; which leaves STATUS as it is
	goto	isr
	goto	isr

	psect	data_test,class=COMRAM,space=1
	global	count,kept
count:	ds	1
kept:	ds	1
arrived: ds	1

	psect	text_test,class=CODE,reloc=2
test:	call	serial_init
	bsf	INTC0,IENL,c
	bsf	INTC0,IENH,c
	movlw	40		; nothing else interrupts yet
1:	cpfseq	arrived,c
	bra	1b
	movff	rx_head,kept
2:	call	serial_get
	bnc	3f
	incf	count,f,c
	call	serial_put
	bra	2b
3:	movlw	'.'
	call	serial_put
	call	serial_flush
	bcf	INTC0,IENH,c
	clrf	IER1,c
	sleep
