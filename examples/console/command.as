; The commands: a line is collected from the serial port, looked up, and done through a jump table.
	include	"macros.inc"
	include	"console.inc"

	psect	data_command,class=COMRAM,space=1
line_used: ds	1		; characters of the line so far

	psect	text_command,class=CODE,reloc=2
; A task: takes one character. What is longer than the line is dropped.
input_task:
	call	serial_get
	bc	1f
	return
1:	xorlw	CR
	bz	2f
	xorlw	CR ^ LF
	bz	3f
	xorlw	LF		; the character again
	movwf	TABLAT,c
	movlw	LINE_SIZE-1
	cpfslt	line_used,c
	return
	lfsr	1,line_text
	movf	line_used,w,c
	movff	TABLAT,PLUSW1
	incf	line_used,f,c
	return
2:	return			; lines end in LF; CR counts for nothing
3:	lfsr	1,line_text
	movf	line_used,w,c
	clrf	PLUSW1,c
	clrf	line_used,c
	call	parse_find
	goto	command_run

command_run:
	jump_by	parse_index,commands
commands:
	bra	do_help
	bra	do_crc
	bra	do_led
	bra	do_ticks
	bra	do_bye
	bra	unknown

do_help:
	print	help_text
	return

; crc TEXT: of all behind the blank.
do_crc:
	call	crc_init
	movf	POSTINC1,w,c	; the blank, or the end
	bz	2f
1:	movf	POSTINC1,w,c
	bz	2f
	call	crc_add
	bra	1b
2:	movf	crc,w,c
	call	serial_hex
	bra	end_line

do_led:
	btg	LATA,1,c
	clrf	WREG,c
	btfsc	LATA,1,c
	incf	WREG,f,c
	call	serial_hex
	bra	end_line

; The two bytes have to belong together: the interrupt may count between the reads.
do_ticks:
	movff	ticks+1,PRODH
	movff	ticks,PRODL
	movf	PRODH,w,c
	cpfseq	ticks+1,c
	bra	do_ticks
	call	serial_hex
	movf	PRODL,w,c
	call	serial_hex
	bra	end_line

; Says good-bye and sleeps, with nothing to wake the chip.
do_bye:
	print	bye_text
	call	serial_flush
	bcf	INTC0,IENH,c
	bcf	INTC0,IENL,c
	clrf	IER1,c
	sleep
	return

unknown:
	print	unknown_text
	return

end_line:
	movlw	CR
	call	serial_put
	movlw	LF
	goto	serial_put

	psect	const_command,class=CONST,noexec
help_text:
	text	<help crc led ticks bye>
	db	CR,LF,0
bye_text:
	text	<bye>
	db	CR,LF,0
unknown_text:
	text	<what?>
	db	CR,LF,0
