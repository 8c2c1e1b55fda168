; CRC-8, polynomial x^8 + x^2 + x + 1, by a table in program memory that the assembler calculates.
	include	"macros.inc"
	include	"console.inc"

	psect	data_crc,class=COMRAM,space=1
crc:	ds	1

	psect	text_crc,class=CODE,reloc=2
crc_init:
	clrf	crc,c
	return

; Adds W. Uses the table pointer.
crc_add:
	xorwf	crc,f,c
	point	crc_table
	movf	crc,w,c
	addwf	TBLPTRL,f,c
	movlw	0
	addwfc	TBLPTRH,f,c
	addwfc	TBLPTRU,f,c
	tblrd	*
	movff	TABLAT,crc
	return

	psect	const_crc,class=CONST,noexec
crc_table:
index	set	0
	rept	256
value	set	index
	rept	8
value	set	((value shl 1) ^ (7 * (value shr 7))) && 0xFF	; `&&`: a single one joins words in repeated text
	endm
	db	value
index	set	index+1
	endm
