" Vim syntax file for assembly of the ZEL8 family of 8-bit microcontrollers
if exists("b:current_syntax")
  finish
endif
syn case ignore
setlocal iskeyword=@,48-57,_,$,?,@-@

syn keyword zel8Directive __badram __badrom __maxram __maxrom align asmopt banksel callstack cond config dabs db ddw df
syn keyword zel8Directive ds dw end equ error expand extrn file fnaddr fnalign fnarg fnbreak fncall fnconf fnindir fnroot
syn keyword zel8Directive fnsize global include line list messg nocond noexpand nolist opt org pagelength pagesel
syn keyword zel8Directive pagewidth processor psect public radix set signat subtitle title
syn keyword zel8Condition else elsif endif if
syn keyword zel8Macro endm exitm irp irpc local macro rept
syn keyword zel8Instruction addfsr addlw addulnk addwf addwfc andlw andwf bc bcf bmi bn bnc bnn bnov bnv bnz bov bra bsf
syn keyword zel8Instruction btfsc btfss btg bz call callw clrf clrw clrwdt comf cpfseq cpfsgt cpfslt daw dbin dboff dbout
syn keyword zel8Instruction dcfsnz decf decfsz extexit fcall goto halt incf incfsz infsnz iorlw iorwf lfsr ljmp movf
syn keyword zel8Instruction movff movffl movlb movlw movsf movsfl movss movwf mullw mulwf negf nop nop2 pop push pushl
syn keyword zel8Instruction rcall reset retfie retlw return rlcf rlncf rrcf rrncf setcnt setf sleep subfsr subfwb sublw
syn keyword zel8Instruction subulnk subwf subwfb swapf tblrd tblrdpostdec tblrdpostinc tblrdpreinc tblwt tblwtpostdec
syn keyword zel8Instruction tblwtpostinc tblwtpreinc trap tret tstfsz xorlw xorwf
syn keyword zel8Operand a b c f w
syn keyword zel8Radix dec hex oct
syn keyword zel8Operator and defined eq float24 ge gt high highword le low lt mod ne normalize32 not nul rol ror seg shl
syn keyword zel8Operator shr

syn match zel8Number "\<\%(0x\x\+\|0b[01]\+\|\d\+\.\d\+\%(e[+-]\=\d\+\)\=\|\d\x*[hoq]\=\)\>"
syn match zel8Number "[$@]\x\+\>\|%[01]\+\>"
syn match zel8Number "\<\d\+[bf]\>"
syn match zel8Label "\<[A-Za-z_?][A-Za-z0-9_$?@]*:"me=e-1
syn match zel8Label "\<\d\+:"me=e-1
syn region zel8String start=+"+ end=+"+ oneline
syn region zel8String start=+'+ end=+'+ oneline
syn match zel8Comment ";.*$" contains=zel8Todo
syn match zel8Special ";[#!].*$"
syn match zel8Special ";\%(volatile\|volsfr\|funcret\)\>.*$"
syn keyword zel8Todo contained TODO FIXME XXX

hi def link zel8Directive PreProc
hi def link zel8Condition PreCondit
hi def link zel8Macro Macro
hi def link zel8Instruction Statement
hi def link zel8Operand Identifier
hi def link zel8Radix Constant
hi def link zel8Operator Operator
hi def link zel8Number Number
hi def link zel8Label Label
hi def link zel8String String
hi def link zel8Comment Comment
hi def link zel8Special SpecialComment
hi def link zel8Todo Todo

let b:current_syntax = "zel8"
