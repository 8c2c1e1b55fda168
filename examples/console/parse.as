; Finds a line's first word among the names of commands, which lie in program memory.
	include	"macros.inc"
	include	"console.inc"

	psect	data_parse,class=COMRAM,space=1
parse_index: ds	1		; number of the command; behind the last one: unknown

	psect	line_buffer,class=RAM,space=1
line_text: ds	LINE_SIZE

	psect	text_parse,class=CODE,reloc=2
; Looks `line_text` up. File select 1 is behind the word then: at the 0 or at the blank. Uses W and the table pointer.
parse_find:
	clrf	parse_index,c
	point	names
1:	lfsr	1,line_text
	tblrd	*+
	movf	TABLAT,w,c
	bnz	3f
	return			; the list is at its end
2:	tblrd	*+
	movf	TABLAT,w,c
	bz	5f
3:	cpfseq	INDF1,c
	bra	4f
	movf	POSTINC1,w,c
	bra	2b
4:	tblrd	*+		; another name: on to its end
	movf	TABLAT,w,c
	bnz	4b
	bra	6f
5:	movf	INDF1,w,c	; the name is at its end: is the word?
	bz	7f
	xorlw	' '
	bz	7f
6:	incf	parse_index,f,c
	bra	1b
7:	return

	psect	const_parse,class=CONST,noexec
; In the order of the jump table of command_run.
names:
	irp	name,help,crc,led,ticks,bye
	text	name
	db	0
	endm
	db	0
