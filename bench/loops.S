; The loops of loops.as, instruction by instruction, for an AVR. -DMIX chooses the second.
#ifndef MIX
	ldi	r18, 0
1:	ldi	r17, 0
2:	ldi	r16, 0
3:	subi	r24, -3
	dec	r16
	brne	3b
	dec	r17
	brne	2b
	dec	r18
	brne	1b
#else
	ldi	r18, 64
1:	ldi	r17, 0
2:	ldi	r16, 0
	ldi	r27, 1
	ldi	r26, 0
3:	ld	r24, X+
	add	r19, r24
	rcall	shift
	dec	r16
	brne	3b
	dec	r17
	brne	2b
	dec	r18
	brne	1b
#endif
	cli
	sleep
shift:	eor	r20, r24
	ror	r20
	sbrc	r20, 0
	inc	r21
	ret
