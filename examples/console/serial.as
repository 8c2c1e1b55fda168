; The serial port as the program sees it: two rings, which the interrupt empties and fills.
; A ring is empty if head = tail, and full with RING - 1 bytes. Each index is written on one side only, so that neither side
; has to lock out the other.
	include	"macros.inc"
	include	"console.inc"

	psect	data_serial,class=COMRAM,space=1
rx_head: ds	1		; the interrupt writes here
rx_tail: ds	1		; the program reads here
tx_head: ds	1		; the program writes here
tx_tail: ds	1		; the interrupt reads here
char:	ds	1
next:	ds	1

	psect	rings,class=RAM,space=1
rx_ring: ds	RING
tx_ring: ds	RING

	psect	text_serial,class=CODE,reloc=2
; Empties the rings and turns the unit on. Uses W.
serial_init:
	clrf	rx_head,c
	clrf	rx_tail,c
	clrf	tx_head,c
	clrf	tx_tail,c
	movlf	25,SBGL		; 9600 baud of 16 MHz
	movlf	0x24,SCT	; TEN, THIGH
	movlf	0x90,SCR	; SEREN, RCONT
	bsf	IER1,SRXI,c
	return

; Takes a byte to W. Carry is set if there was one. Uses file select 0.
serial_get:
	bcf	STATUS,CARRY,c
	movf	rx_tail,w,c
	cpfseq	rx_head,c
	bra	1f
	return
1:	lfsr	0,rx_ring
	movff	PLUSW0,char
	incf	rx_tail,w,c
	andlw	RING-1
	movwf	rx_tail,c
	movf	char,w,c
	bsf	STATUS,CARRY,c
	return

; Sends W, as soon as there is room. Uses file select 0.
serial_put:
	movwf	char,c
	incf	tx_head,w,c
	andlw	RING-1
	movwf	next,c
1:	movf	next,w,c
	cpfseq	tx_tail,c
	bra	2f
	bra	1b		; full: the interrupt will make room
2:	lfsr	0,tx_ring
	movf	tx_head,w,c
	movff	char,PLUSW0
	movff	next,tx_head
	bsf	IER1,STXI,c
	return

; Sends the text at the table pointer, up to its 0.
serial_text:
	tblrd	*+
	movf	TABLAT,w,c
	bnz	1f
	return
1:	call	serial_put
	bra	serial_text

	psect	data_hex,class=COMRAM,space=1
byte:	ds	1
	psect	text_serial
; Sends W as two hexadecimal digits.
serial_hex:
	movwf	byte,c
	swapf	byte,w,c
	call	digit
	movf	byte,w,c
digit:
	andlw	0x0F
	addlw	-10
	bnc	1f
	addlw	'A'-'0'-10
1:	addlw	'0'+10
	goto	serial_put

; Waits until all has gone.
serial_flush:
	btfsc	IER1,STXI,c
	bra	serial_flush
1:	btfss	SCT,TEMPTY,c
	bra	1b
	return
