; The check value of the CRC: of "123456789" it is F4.
	include	"macros.inc"
	include	"console.inc"
	psect	reset_vec,class=RESETVEC,reloc=2
	goto	test

	psect	data_test,class=COMRAM,space=1
	global	digit,empty
digit:	ds	1
empty:	ds	1

	psect	text_test,class=CODE,reloc=2
test:	setf	crc,c
	call	crc_init
	movff	crc,empty
	movlf	'1',digit
1:	movf	digit,w,c
	call	crc_add
	incf	digit,f,c
	movlw	'9'+1
	cpfseq	digit,c
	bra	1b
	sleep
