; Lines and the number that the parser finds for each: names, names with words behind, a name's beginning, a longer name,
; nothing.
	include	"macros.inc"
	include	"console.inc"
	psect	reset_vec,class=RESETVEC,reloc=2
	goto	test

try	macro	words,found
	local	again,string,over
	point	string
	lfsr	1,line_text
again:	tblrd	*+
	movff	TABLAT,POSTINC1
	movf	TABLAT,w,c
	bnz	again
	call	parse_find
	movff	parse_index,found
	bra	over
string:	text	<words>
	db	0
	align	2
over:
	endm

	psect	data_test,class=COMRAM,space=1
	global	help,crc_x,led,bye_x,cr,helps,none
help:	ds	1
crc_x:	ds	1
led:	ds	1
bye_x:	ds	1
cr:	ds	1
helps:	ds	1
none:	ds	1

	psect	text_test,class=CODE,reloc=2
test:
	try	<help>,help
	try	<crc 123>,crc_x
	try	<led>,led
	try	<bye now>,bye_x
	try	<cr>,cr
	try	<helps>,helps
	try	<>,none
	sleep
