; A cooperative scheduler: each call runs the next task, which returns before long.
	include	"macros.inc"
	include	"console.inc"

TASKS	equ	2

	psect	data_sched,class=COMRAM,space=1
task:	ds	1

	psect	text_sched,class=CODE,reloc=2
sched_run:
	incf	task,f,c
	movlw	TASKS
	cpfslt	task,c
	clrf	task,c
	jump_by	task,tasks
tasks:
	bra	to_input
	bra	blink_task

to_input:
	goto	input_task	; of another module

; Shows bit 5 of the ticks on pin 0 of port A.
blink_task:
	btfsc	ticks,5,c
	bsf	LATA,0,c
	btfss	ticks,5,c
	bcf	LATA,0,c
	return
