; Two loops for bench/sim.sh: `count` counts down, `mix` reads memory, calls, shifts and skips. loops.S does the same.
	processor	ZEL8K10
	psect	resetVec,class=RESETVEC,reloc=2
	goto	count
	psect	data,class=COMRAM,space=1
rounds:	ds	1
outer:	ds	1
inner:	ds	1
sum:	ds	1
bits:	ds	1
ones:	ds	1
	psect	text,class=CODE,reloc=2
	global	count,mix
count:	clrf	rounds,c
1:	clrf	outer,c
2:	clrf	inner,c
3:	addlw	3
	decfsz	inner,f,c
	bra	3b
	decfsz	outer,f,c
	bra	2b
	decfsz	rounds,f,c
	bra	1b
	sleep

mix:	movlw	64
	movwf	rounds,c
1:	clrf	outer,c
2:	clrf	inner,c
	lfsr	0,0x100
3:	movf	0xFD1,w,c	; POSTINC0
	addwf	sum,f,c
	rcall	shift
	decfsz	inner,f,c
	bra	3b
	decfsz	outer,f,c
	bra	2b
	decfsz	rounds,f,c
	bra	1b
	sleep
shift:	xorwf	bits,f,c
	rrcf	bits,f,c
	btfsc	bits,0,c
	incf	ones,f,c
	return
	end
