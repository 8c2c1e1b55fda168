; Sends a text from program memory to the serial port, byte by byte through the table pointer.
; Shows: data in program memory, the bytes of an address, table reads, a call across psects.

	processor	ZEL8K10
	include	"zel8k10.inc"

	psect	const,class=CONST,delta=1,noexec
greeting:
	db	'H','e','l','l','o',13,10,0
squares:
	dw	0,1,4,9,16,25,36,49,64,81
end_of_squares:
SQUARES	equ	(end_of_squares-squares)/2

	psect	text,class=CODE,reloc=2,delta=1
	global	print
start:
	movlw	low(greeting)
	movwf	TBLPTRL,c
	movlw	high(greeting)
	movwf	TBLPTRH,c
	movlw	low(greeting shr 16)
	movwf	TBLPTRU,c
	call	print
	movlw	SQUARES		; a number: the difference of two labels of one psect
stop:	bra	stop

	psect	serial,class=CODE,reloc=2,delta=1
; Prints the bytes at the table pointer, up to a 0.
print:
	tblrd	*+
	movf	TABLAT,w,c
	bz	1f
	movwf	STX,c
	bra	print
1:	return

	end	start
