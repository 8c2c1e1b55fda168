; Start of the program: vectors, then initialization, then the scheduler for ever.
	include	"macros.inc"
	include	"console.inc"

	psect	reset_vec,class=RESETVEC,reloc=2
	goto	start

	psect	int_vec,class=INTVEC,reloc=2
	goto	isr

	psect	text_main,class=CODE,reloc=2
start:
	clrf	LATA,c
	clrf	DIRA,c		; all outputs
	call	serial_init
	movlf	249,TM2P	; a tick each 250 * 16 cycles
	movlf	0x06,TM2C	; on, prescaler 16
	bsf	IER1,TM2I,c
	bsf	INTC0,IENL,c
	bsf	INTC0,IENH,c
	print	banner
forever:
	call	sched_run
	bra	forever

	psect	const_main,class=CONST,noexec
banner:
	text	<console 1.2>
	db	CR,LF,0

	end	start
