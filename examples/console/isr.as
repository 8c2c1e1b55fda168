; The interrupt: bytes between the serial unit and its rings, and the tick of timer 2.
; W, STATUS and BSR are saved in the shadow registers, which `retfie f` brings back; file select 0 is saved here.
	include	"macros.inc"
	include	"console.inc"

	psect	data_isr,class=COMRAM,space=1
saved:	ds	2
next:	ds	1
ticks:	ds	2

	psect	text_isr,class=CODE,reloc=2
isr:
	movff	FSR0L,saved
	movff	FSR0H,saved+1

; Received: into the ring, or lost if that is full. Reading SRX clears the flag.
	btfss	IFR1,SRXI,c
	bra	sent
	incf	rx_head,w,c
	andlw	RING-1
	movwf	next,c
	cpfseq	rx_tail,c
	bra	store
	movf	SRX,w,c
	bra	sent
store:
	lfsr	0,rx_ring
	movf	rx_head,w,c
	movff	SRX,PLUSW0
	movff	next,rx_head

; Sent: the next one, or no more of this interrupt until serial_put asks for it.
sent:
	btfsc	IER1,STXI,c
	btfss	IFR1,STXI,c
	bra	tick
	movf	tx_tail,w,c
	cpfseq	tx_head,c
	bra	send
	bcf	IER1,STXI,c
	bra	tick
send:
	lfsr	0,tx_ring
	movff	PLUSW0,STX
	incf	tx_tail,w,c
	andlw	RING-1
	movwf	tx_tail,c

tick:
	btfss	IFR1,TM2I,c
	bra	done
	bcf	IFR1,TM2I,c
	infsnz	ticks,f,c
	incf	ticks+1,f,c
done:
	movff	saved,FSR0L
	movff	saved+1,FSR0H
	retfie	f
