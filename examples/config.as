; Blinks about once a second and sleeps in between, woken by the watchdog.
; Shows: configuration bytes by setting and by number, options of `config`, ID locations.
; Needs the chip's configuration data: aszel8 -mcpu=ZEL8K10 --cfgdata=../dat/cfgdata/zel8k10.cfgdata config.as

	processor	ZEL8K10
	include	"zel8k10.inc"

LED	equ	3		; pin of port A
WDTON	equ	0		; in WDTC

; Warn of doubtful combinations from here on. Write all ID locations, since some are given.
	config	ignore_cmsgs = off, default_idlocs = auto

; Settings by name. A value is a word of the data file or a number: BROWNVOLT = 2 is V220, 2.20 V.
	config	CLOCK = INTHIGH, PLL = OFF, CLKOUT = OFF
	config	PWRTIMER = ON, BROWNOUT = AWAKE, BROWNVOLT = 2
	config	WDT = SOFT, WDTPS = P256
	config	RESETPIN = ON, ANALOGB = OFF
	config	LVPROG = OFF, XINST = OFF, STKRESET = ON
	config	CPBOOT = ON, CPDATA = ON

; Whole bytes by number: block 0 is protected against reading and writing, and so is the boot block against writing.
	config	READPROT = 0x0E, WRITEPROT = 0x0E, WRITEPROT2 = 0xA0

; Version 1.2 of the program, for whoever reads the chip out. The others keep their 0xFF.
	config	IDLOC0 = 1, IDLOC1 = 2

	psect	resetVec,class=RESETVEC,reloc=2,delta=1
	goto	start

	psect	text,class=CODE,reloc=2,delta=1
start:
	bcf	DIRA,LED,c	; an output
	bsf	WDTC,WDTON,c
loop:
	btg	LATA,LED,c
	sleep
	bra	loop

	end	start
