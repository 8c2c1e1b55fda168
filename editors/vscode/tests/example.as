; SYNTAX TEST "source.zel8" "what each kind of word is"
    psect   text,class=CODE,reloc=2     ; a comment with movlw
;   ^^^^^ keyword.control.directive.zel8
;           ^^^^ - keyword.control.directive.zel8
;                                       ^^^^^^^^^^^^^^^^^^^^^^ comment.line.semicolon.zel8
   count    equ     0x1F + 101B + $ff
;  ^^^^^ variable.other.constant.zel8
;           ^^^ keyword.control.directive.zel8
;                   ^^^^   ^^^^   ^^^ constant.numeric.zel8
   _main:   MOVLW   low(count) shl 2
;  ^^^^^ entity.name.function.label.zel8
;           ^^^^^ support.function.mnemonic.zel8
;                   ^^^        ^^^ keyword.operator.word.zel8
    _movlw: movwf   count_f,c           ;volatile
;   ^^^^^^ entity.name.function.label.zel8 - support.function.mnemonic.zel8
;                   ^^^^^^^ - variable.language.operand.zel8
;                           ^ variable.language.operand.zel8
;                                       ^^^^^^^^^ comment.line.semicolon.directive.zel8
    12:     bra     12b
;   ^^ entity.name.function.label.zel8
;                   ^^^ constant.numeric.temporary-label.zel8
    db      'a;b',"it's",18o,3.5e2
;           ^^^^^ string.quoted.single.zel8
;                 ^^^^^^ string.quoted.double.zel8
;                        ^^^ ^^^^^ constant.numeric.zel8
   wait     macro   times,reg
;  ^^^^ entity.name.function.macro.zel8
;           ^^^^^ keyword.control.macro.zel8
    if      times eq 1
;   ^^ keyword.control.conditional.zel8
    endif
;   ^^^^^ keyword.control.conditional.zel8
    endm
;   ^^^^ keyword.control.macro.zel8
