// templates: opcode templates that rules compare with op_subop and write into it.
#pragma once

#include <cstdint>

// clang-format off
enum template_t : uint16_t {
    TPL_ADDWF = 0x2400, TPL_ADDWFC = 0x2000, TPL_SUBWF = 0x5C00, TPL_SUBWFB = 0x5800, TPL_SUBFWB = 0x5400,
    TPL_ANDWF = 0x1400, TPL_IORWF = 0x1000, TPL_XORWF = 0x1800,
    TPL_COMF = 0x1C00, TPL_DECF = 0x0400, TPL_INCF = 0x2800,
    TPL_DECFSZ = 0x2C00, TPL_DCFSNZ = 0x4C00, TPL_INCFSZ = 0x3C00, TPL_INFSNZ = 0x4800,
    TPL_MOVF = 0x5000, TPL_RLCF = 0x3400, TPL_RRCF = 0x3000,
    TPL_CLRF = 0x6A00, TPL_SETF = 0x6800, TPL_NEGF = 0x6C00,
    TPL_BCF = 0x9000, TPL_BSF = 0x8000, TPL_BTG = 0x7000, TPL_BTFSC = 0xB000, TPL_BTFSS = 0xA000,
    TPL_ADDLW = 0x0F00, TPL_SUBLW = 0x0800, TPL_ANDLW = 0x0B00, TPL_IORLW = 0x0900, TPL_XORLW = 0x0A00, TPL_MULLW = 0x0D00,
    TPL_MOVLW = 0x0E00, TPL_CALL = 0xEC00, TPL_BRA = 0xD000,
    TPL_RETURN = 0x0012, TPL_RETFIE = 0x0010, TPL_RETLW = 0x0C00,
    TPL_BZ = 0xE000, TPL_BNZ = 0xE100, TPL_BC = 0xE200, TPL_BNC = 0xE300, TPL_BMI = 0xE600, TPL_BNN = 0xE700,
    TPL_DAW = 0x0007, TPL_SLEEP = 0x0003, TPL_CLRW = 0x6AF3,
    TPL_TBLRD = 0x0008, TPL_TBLRD_POSTINC = 0x0009, TPL_TBLRD_PREINC = 0x000B,
    TPL_INVERT = 0x1000,   // between btfsc and btfss, bcf and bsf
    TPL_FAST = 0x0100,     // of a call that saves registers
};
// clang-format on
