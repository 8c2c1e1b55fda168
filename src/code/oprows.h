// oprows: the instruction table itself, one row a word, for the compiler.
//
// What else knows an instruction by its template asks here for it by name, at compile time: the optimiser's templates
// (optim/templates.h) and register effects, the encoders. A name that has no row doesn't compile.
//
// The rows are in a binding order. Where two rows have the same token and template the first one is the name that is
// printed back, and where two have the same name (`include`) the first one is found.
#pragma once

#include <iterator>
#include <string_view>

#include "code/ops.h"

namespace oprows
{

// Architectures: all four of the family, or those with long data addresses.
inline constexpr uint16_t ALL = 0x380, X = 0x100;

inline constexpr uint8_t ZN = ST_Z | ST_N, CZN = ST_C | ZN, CDZON = ST_C | ST_DC | ST_Z | ST_OV | ST_N;

// An operator or radix word; any word without a test for the chip.
constexpr op_row_t plain(const char *name, uint16_t token, uint16_t subop = 0) { return {name, token, subop, 0, 0, 0}; }

// A directive or operand word.
constexpr op_row_t word(const char *name, uint16_t token, uint16_t subop = 0) { return {name, token, subop, ALL, 0, 0}; }

constexpr op_row_t instr(const char *name, uint16_t token, uint16_t subop, uint8_t written = 0, uint8_t read = 0,
                         uint16_t arch = ALL)
{
    return {name, token, subop, arch, written, read};
}

// clang-format off
inline constexpr op_row_t op_rows[] = {
    // Operators and radix words
    plain("nul", T_NUL, 8), plain("float24", T_UNARY, OPC_FLOAT24), plain("normalize32", T_UNARY, OPC_NORMALIZE32),
    plain("defined", T_DEFINED), plain("low", T_UNARY, OPC_LOW), plain("high", T_UNARY, OPC_HIGH),
    plain("highword", T_UNARY, OPC_HIGHWORD), plain("seg", T_UNARY, OPC_SEG), plain("mod", T_DIV, OPC_MOD),
    plain("shl", T_SHIFT, OPC_SHL), plain("shr", T_SHIFT, OPC_SHR), plain("rol", T_SHIFT, OPC_ROL),
    plain("ror", T_SHIFT, OPC_ROR), plain("eq", T_RELOP, OPC_EQ), plain("ne", T_RELOP, OPC_NE),
    plain("gt", T_RELOP, OPC_GT), plain("ge", T_RELOP, OPC_GE), plain("lt", T_RELOP, OPC_LT), plain("le", T_RELOP, OPC_LE),
    plain("=", T_RELOP, OPC_EQ), plain("<>", T_RELOP, OPC_NE), plain(">", T_RELOP, OPC_GT), plain(">=", T_RELOP, OPC_GE),
    plain("<", T_RELOP, OPC_LT), plain("<=", T_RELOP, OPC_LE), plain("not", T_NOT, OPC_NOT), plain("^", T_AND, OPC_XOR),
    plain("&", T_AND, OPC_AND), plain("and", T_AND, OPC_AND), plain("|", T_AND, OPC_OR),
    plain("hex", T_RADIXWORD, 16), plain("dec", T_RADIXWORD, 10), plain("oct", T_RADIXWORD, 8),
    // Instructions
    instr("addwf", T_ADDWF, 0x2400, CDZON),
    instr("addwfc", T_ADDWF, 0x2000, CDZON, ST_C),
    instr("andwf", T_ANDWF, 0x1400, ZN),
    instr("iorwf", T_ANDWF, 0x1000, ZN),
    instr("xorwf", T_ANDWF, 0x1800, ZN),
    instr("comf", T_INCF, 0x1C00, ZN),
    instr("decf", T_INCF, 0x0400, CDZON),
    instr("decfsz", T_DECFSZ, 0x2C00),
    instr("dcfsnz", T_DECFSZ, 0x4C00),
    instr("incf", T_INCF, 0x2800, CDZON),
    instr("incfsz", T_DECFSZ, 0x3C00),
    instr("infsnz", T_DECFSZ, 0x4800),
    instr("movf", T_MOVF, 0x5000, ZN),
    instr("rlcf", T_RLCF, 0x3400, CZN, ST_C),
    instr("rlncf", T_RLCF, 0x4400, ZN),
    instr("rrcf", T_RLCF, 0x3000, CZN, ST_C),
    instr("rrncf", T_RLCF, 0x4000, ZN),
    instr("subwf", T_SUBWF, 0x5C00, CDZON),
    instr("subwfb", T_SUBWF, 0x5800, CDZON, ST_C),
    instr("subfwb", T_SUBWF, 0x5400, CDZON, ST_C),
    instr("swapf", T_SWAPF, 0x3800),
    instr("movff", T_MOVFF, 0xC000),
    instr("movffl", T_MOVFFL, 0x0060, 0, 0, X),
    instr("bc", T_BCC, 0xE200, 0, ST_C),
    instr("bmi", T_BCC, 0xE600, 0, ST_N),
    instr("bnc", T_BCC, 0xE300, 0, ST_C),
    instr("bn", T_BCC, 0xE600, 0, ST_N),
    instr("bnn", T_BCC, 0xE700, 0, ST_N),
    instr("bnv", T_BCC, 0xE500, 0, ST_OV),
    instr("bnov", T_BCC, 0xE500, 0, ST_OV),
    instr("bnz", T_BCC, 0xE100, 0, ST_Z),
    instr("bz", T_BCC, 0xE000, 0, ST_Z),
    instr("bov", T_BCC, 0xE400, 0, ST_OV),
    instr("bra", T_BRA, 0xD000),
    instr("rcall", T_RCALL, 0xD800),
    instr("clrf", T_CLRF, 0x6A00, ST_Z),
    instr("setf", T_CLRF, 0x6800),
    instr("negf", T_CLRF, 0x6C00, CDZON),
    instr("movwf", T_MOVWF, 0x6E00),
    instr("cpfseq", T_CPFSEQ, 0x6200),
    instr("cpfsgt", T_CPFSEQ, 0x6400),
    instr("cpfslt", T_CPFSEQ, 0x6000),
    instr("tstfsz", T_CPFSEQ, 0x6600),
    instr("mulwf", T_MULWF, 0x0200),
    instr("tblrd", T_TBLRD, 0x0008),
    instr("tblwt", T_TBLRD, 0x000C),
    instr("tblwtpostinc", T_TBLRDMODE, 0x000D),
    instr("tblwtpostdec", T_TBLRDMODE, 0x000E),
    instr("tblwtpreinc", T_TBLRDMODE, 0x000F),
    instr("tblrdpostdec", T_TBLRDMODE, 0x000A),
    instr("tblrdpostinc", T_TBLRDMODE, 0x0009),
    instr("tblrdpreinc", T_TBLRDMODE, 0x000B),
    instr("daw", T_NOP, 0x0007, ST_C, ST_C | ST_DC),
    instr("clrw", T_NOP, 0x6AF3, ST_Z),
    instr("clrwdt", T_NOP, 0x0004),
    instr("halt", T_NOP, 0x0001),
    instr("nop", T_NOP, 0xF000),
    instr("nop2", T_NOP, 0xFFFF),
    instr("sleep", T_NOP, 0x0003),
    instr("reset", T_NOP, 0x00FF, CDZON),
    instr("trap", T_TRAP, 0x0000),
    instr("tret", T_TRET, 0x00E1),
    instr("dboff", T_DBOUT, 0x0070),
    instr("dbout", T_DBOUT, 0x0071),
    instr("extexit", T_DBOUT, 0x0072),
    instr("dbin", T_DBOUT, 0x0073),
    instr("push", T_PUSH, 0x0005),
    instr("pop", T_PUSH, 0x0006),
    instr("retfie", T_RETURN, 0x0010),
    instr("return", T_RETURN, 0x0012),
    instr("bcf", T_BCF, 0x9000),
    instr("bsf", T_BCF, 0x8000),
    instr("btfsc", T_BTFSC, 0xB000),
    instr("btfss", T_BTFSC, 0xA000),
    instr("btg", T_BCF, 0x7000),
    instr("addlw", T_ADDLW, 0x0F00, CDZON),
    instr("sublw", T_ADDLW, 0x0800, CDZON),
    instr("andlw", T_ADDLW, 0x0B00, ZN),
    instr("iorlw", T_ADDLW, 0x0900, ZN),
    instr("mullw", T_ADDLW, 0x0D00),
    instr("movlw", T_MOVLW, 0x0E00),
    instr("xorlw", T_ADDLW, 0x0A00, ZN),
    instr("setcnt", T_SETCNT, 0x0140),
    instr("retlw", T_RETLW, 0x0C00),
    instr("call", T_CALL, 0xEC00),
    instr("fcall", T_CALL, 0xEC00),
    instr("callw", T_CALLW, 0x0014, 0, 0, X),
    instr("lfsr", T_LFSR, 0xEE00),
    instr("addfsr", T_ADDFSR, 0xE800, 0, 0, X),
    instr("subfsr", T_ADDFSR, 0xE900, 0, 0, X),
    instr("goto", T_GOTO, 0xEF00),
    instr("ljmp", T_GOTO, 0xEF00),
    instr("movlb", T_MOVLB, 0x0100),
    instr("addulnk", T_ADDULNK, 0xE8C0),
    instr("movsf", T_MOVSF, 0xEB00),
    instr("movsfl", T_MOVSFL, 0x0002),
    instr("movss", T_MOVSS, 0xEB80),
    instr("pushl", T_PUSHL, 0xEA00),
    instr("subulnk", T_ADDULNK, 0xE9C0),
    // Operand words
    word("w", DEST_W), word("f", DEST_F), word("b", ACCESS_B), word("c", ACCESS_C), word("a", ACCESS_A),
    word("", ACCESS_NONE),
    // Directives
    word("banksel", T_BANKSEL), word("pagesel", T_PAGESEL), word("public", T_PUBLIC), word("extrn", T_EXTRN),
    word("global", T_GLOBAL), word("end", T_END), word("org", T_ORG), word("equ", T_EQU), word("set", T_SET),
    word("db", T_DB, 1), word("dw", T_DB, 2), word("ddw", T_DB, 4), word("df", T_DF, 4), word("ds", T_DS),
    word("dabs", T_DABS), word("if", T_IF), word("else", T_ELSE), word("elsif", T_ELSIF), word("endif", T_ENDIF),
    word("psect", T_PSECT), word("line", T_LINE), word("file", T_FILE), word("signat", T_SIGNAT), word("fncall", T_FNCALL),
    word("fnbreak", T_FNBREAK), word("fnconf", T_FNCONF), word("fnalign", T_FNALIGN), word("fnarg", T_FNARG),
    word("fnindir", T_FNINDIR), word("fnaddr", T_FNADDR), word("fnsize", T_FNSIZE), word("fnroot", T_FNROOT),
    word("processor", T_PROCESSOR), word("opt", T_OPT), word("include", T_INCLUDE, 1), word("messg", T_MESSG),
    word("error", T_MESSG, 1), word("align", T_ALIGN), word("__badram", T_BADRAM), word("__maxram", T_MAXRAM),
    word("__badrom", T_BADRAM, 1), word("__maxrom", T_MAXRAM, 1), word("config", T_CONFIG), word("radix", T_RADIX),
    word("asmopt", T_ASMOPT), word("callstack", T_CALLSTACK, 1), word("pagelength", T_PAGELENGTH, 1),
    word("pagewidth", T_PAGEWIDTH, 1), word("cond", T_COND, 1), word("nocond", T_COND), word("expand", T_EXPAND, 1),
    word("noexpand", T_EXPAND), word("include", T_INCLUDE, 1), word("list", T_LIST, 1), word("nolist", T_LIST),
    word("title", T_TITLE, 1), word("subtitle", T_SUBTITLE, 1), word("macro", T_MACRO), word("endm", T_ENDM),
    word("local", T_LOCAL), word("rept", T_REPT), word("irp", T_IRP), word("irpc", T_IRPC), word("exitm", T_EXITM),
};
// clang-format on

}   // namespace oprows

using oprows::op_rows;
inline constexpr int OP_ROWS = std::size(op_rows);

// The row of an instruction.
consteval const op_row_t &op_named(std::string_view mnemonic)
{
    for (const op_row_t &row : op_rows)
        if (row.name == mnemonic)
            return row;
    throw "no such instruction";
}
consteval uint16_t op_template(std::string_view mnemonic) { return op_named(mnemonic).subop; }
