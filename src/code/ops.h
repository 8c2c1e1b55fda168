// ops: the words of the language and the instruction table.
//
// One constant table (oprows.h) holds every word that the statement look-up knows: operators, mnemonics, operand words,
// directives. For an instruction it is also the opcode template and the status bits that it reads and writes. The order
// of rows decides between synonyms: the first row of a token and template gives the name that is printed back.
// Three small tables serve the scanner's other modes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "code/expr.h"

struct op_t;

// Token numbers: one numbering for the scanner and the grammar. Those that a node keeps are types of their own, so that none
// takes another's place: its kind, op_type, its access and its destination.
// clang-format off
enum access_t : uint32_t { ACCESS_UNSET = 0, ACCESS_B = 276, ACCESS_C = 277, ACCESS_A = 278, ACCESS_NONE = 279 };
enum dest_t : uint32_t { DEST_NONE = 0, DEST_F = 311, DEST_W = 353 };
enum token_t : uint16_t {
    T_NONE = 0, T_SUBWF = 258, T_BCF = 259, T_COND = 260, T_DB = 262, T_DF = 263, T_COMMA = 264, T_MOVF = 265, T_SWAPF = 266,
    T_RLCF = 267, T_MOVFF = 268, T_MOVFFL = 269, T_CALLW = 270, T_ADDFSR = 271, T_PUSH = 272, T_LFSR = 273, T_BRA = 274,
    T_BCC = 275, T_RCALL = 280, T_BTFSC = 281,
    T_DECFSZ = 282, T_ANDWF = 283, T_INCF = 284, T_ADDWF = 285, T_MULWF = 286, T_CPFSEQ = 287, T_ADDULNK = 288,
    T_MOVSF = 289, T_MOVSFL = 290, T_MOVSS = 291, T_PUSHL = 292, T_DS = 293, T_DABS = 294, T_ELSE = 295, T_ENDIF = 296,
    T_ENDM = 297, T_END = 298, T_ELSIF = 299, T_EQU = 300, T_EXITM = 301, T_EXTRN = 302, T_FILE = 303, T_FNADDR = 304,
    T_FNARG = 305, T_FNCALL = 306, T_FNCONF = 307, T_FNINDIR = 308, T_FNROOT = 309, T_FNSIZE = 310,
    T_FNBREAK = 312, T_FNALIGN = 313, T_EXPAND = 314, T_IF = 315, T_INCLUDE = 316, T_IRP = 317, T_IRPC = 321,
    T_LINE = 322, T_LIST = 323, T_MESSG = 324, T_GOTO = 325, T_ADDLW = 326, T_LOCAL = 327, T_RETURN = 328, T_CALL = 329,
    T_RETLW = 330, T_MOVLW = 331, T_MACRO = 332, T_NOP = 333, T_NUL = 334, T_PAGESEL = 336, T_BANKSEL = 337,
    T_MOVLB = 338, T_ORG = 339, T_PAGELENGTH = 340, T_PAGEWIDTH = 341, T_PSECT = 343, T_PSECTFLAG = 344, T_PUBLIC = 345,
    T_REPT = 346, T_SET = 348, T_SIGNAT = 349, T_SUBTITLE = 351, T_TITLE = 352, T_CALLSTACK = 357,
    T_EOL = 358, T_PROCESSOR = 359, T_MOVWF = 360, T_CLRF = 361, T_TRAP = 362, T_TRET = 363, T_DBOUT = 364,
    T_SETCNT = 365, T_GLOBAL = 366, T_COLON = 367, T_RADIX = 368, T_RADIXWORD = 369, T_CHIP = 370,
    T_LO_C = 371, T_LO_T = 372, T_LO_R = 373, T_LO_N = 374, T_LO_X = 375, T_LO_P = 376, T_LO_ON = 377, T_LO_OFF = 378,
    T_TBLRD = 380, T_TBLRDMODE = 382, T_HASH = 383, T_DOLLAR = 384, T_OPT = 385, T_ASMOPT_SWITCH = 386,
    T_ASMOPT_STACK = 387, T_ASMOPT = 390, T_ON = 391, T_OFF = 392, T_PUSHWORD = 393, T_POPWORD = 394, T_ALIGN = 395,
    T_BADRAM = 396, T_MAXRAM = 397, T_CONFIG = 398, T_STRING = 399, T_COMMENT = 400, T_AND = 401, T_OR = 402,
    T_NOT = 403, T_EQUALS = 404, T_RELOP = 405, T_MINUS = 406, T_PLUS = 407, T_SHIFT = 408, T_STAR = 409, T_DIV = 410,
    T_DEFINED = 412, T_UNARY = 413, T_TLABF = 414, T_TLABB = 415, T_INT = 416, T_NUMLABEL = 416, T_RBRACKET = 417,
    T_LBRACKET = 418, T_LPAREN = 419, T_RPAREN = 420, T_NAME = 421, T_FLOAT = 422, T_PF_RELOC = 423, T_PF_SIZE = 424,
    T_PF_CLASS = 425, T_PF_SPACE = 426, T_PF_DELTA = 427, T_PF_WITH = 428, T_PF_LIMIT = 429, T_PF_INLINE = 430,
    T_PF_KEEP = 431, T_PF_NOEXEC = 432, T_PF_OPTIM = 433, T_PF_PA = 434, T_PF_JUMP = 435, T_PF_PEEP = 436,
    T_PF_REMOVE = 437, T_PF_LOWDATA = 438, T_PF_GROUP = 439, T_PF_MINOCG = 440, T_PF_CODECOV = 441,
};
// clang-format on

// The kinds of nodes, op_type.
inline constexpr token_t node_kinds[] = {
    T_SUBWF,  T_MOVF,  T_SWAPF,   T_RLCF,   T_DECFSZ, T_ANDWF,   T_INCF,    T_ADDWF, T_MULWF, T_CPFSEQ, T_MOVWF, T_CLRF,
    T_BCF,    T_BTFSC, T_CALLW,   T_PUSH,   T_RETURN, T_TRET,    T_DBOUT,   T_TBLRD, T_TRAP,  T_NOP,    T_ADDLW, T_RETLW,
    T_MOVLW,  T_PUSHL, T_ADDULNK, T_ADDFSR, T_SETCNT, T_BANKSEL, T_MOVLB,   T_LFSR,  T_MOVSF, T_MOVSS,  T_MOVFF, T_MOVFFL,
    T_MOVSFL, T_BRA,   T_RCALL,   T_BCC,    T_GOTO,   T_CALL,    T_DB,      T_DS,    T_ORG,   T_ALIGN,  T_NAME,  T_NUMLABEL,
    T_IF,     T_ELSIF, T_ELSE,    T_ENDIF,  T_ENDM,   T_TITLE,   T_INCLUDE, T_MESSG, T_EQU,   T_SET,
};

// A table of rows in which `type` is the kind, by kind; the row of no kind is empty. A kind that is missing or has two rows
// fails to compile.
template <typename row_t, size_t N> constexpr std::array<row_t, T_PF_CODECOV + 1> rows_by_kind(const row_t (&rows)[N])
{
    std::array<row_t, T_PF_CODECOV + 1> all = {};
    for (const row_t &r : rows)
        all[r.type] = r;
    for (const token_t kind : node_kinds)
        if (N != std::size(node_kinds) || all[kind].type != kind)
            throw "each kind of node has one row";
    return all;
}

// Architecture masks of the rows.
enum : uint32_t { ROWS_ALL = 0x380, ROWS_X = 0x100 };

// Status bits.
enum : uint8_t { ST_C = 0x01, ST_DC = 0x02, ST_Z = 0x04, ST_OV = 0x08, ST_N = 0x10 };

// Bits beside the template.
enum : uint16_t { RETURN_FAST = 0x0001, CALL_FAST = 0x0100 };

struct op_row_t {
    const char *name;         // lower case
    uint16_t token;           // token_t, or the access_t or dest_t of an operand word
    uint16_t subop;           // opcode template, operator code or switch value
    uint16_t archmask;        // architectures that have the word; 0: no test
    uint8_t status_written;   // status bits that the instruction may change,
    uint8_t status_read;      // and those that it depends on
};

// The row of a node, by op_type and op_subop; synonyms give the first. If there is none, the text "Can't find op ..." goes
// to the diagnostic stream and the result is null or 0. The fast bit of a CALL is not looked through: clear it before.
const op_row_t *op_row(const op_t *op);
const char *op_name(const op_t *op);
uint32_t op_status_written(const op_t *op);
uint32_t op_status_read(const op_t *op);

// Word look-up, without regard to case; null if the word isn't in the table. That `config` is no keyword at times is the
// scanner's business.
const op_row_t *op_lookup_keyword(const char *word, size_t len);
const op_row_t *op_lookup_control(const char *word, size_t len);   // the controls of opt and $
const op_row_t *op_lookup_listopt(const char *word, size_t len);   // options of list and nolist
const op_row_t *op_lookup_switch(const char *word, size_t len);    // asmopt on, off, push, pop
const op_row_t *op_lookup_psectflag(const char *word, size_t len);
std::span<const op_row_t> op_psectflags();

// Message 849 if the chip lacks the instructions of this token.
void op_check_arch(token_t token);
// The access word of a statement and its file operand: ACCESS_B or ACCESS_C. Messages 1224, 1522.
access_t op_resolve_access(access_t word, const value_t *value);
