// Every word of the language goes through op_lookup_keyword once, and most of them are names and not keywords. So a miss
// has to be cheap: a table by first character tells which lengths keywords with that character have, and nearly all names
// end there. What is left is packed into two numbers, folded to lower case eight characters at a time, and searched in
// an open-addressed table of row numbers. All of it is worked out by the compiler from the rows.
//
// The rows are in a binding order. Where two rows have the same token and template the first one is the name that is
// printed back, and where two have the same name (`include`) the first one is found.
//
// A node's row is found along a chain of the rows with its token. Some instructions keep choices in bits of the opcode
// that the table's templates have clear: those bits are masked out before the compare.
#include "code/ops.h"

#include <array>
#include <iterator>

#include "chip/chip.h"
#include "code/list.h"
#include "code/word.h"
#include "common/alert.h"
#include "options.h"

// Architectures: all four of the family, or those with long data addresses.
constexpr uint16_t ALL = 0x380, X = 0x100;

constexpr uint8_t ZN = ST_Z | ST_N, CZN = ST_C | ZN, CDZON = ST_C | ST_DC | ST_Z | ST_OV | ST_N;

// An operator or radix word; any word without a test for the chip.
static constexpr op_row_t plain(const char *name, uint16_t token, uint16_t subop = 0)
{
    return {name, token, subop, 0, 0, 0};
}

// A directive or operand word.
static constexpr op_row_t word(const char *name, uint16_t token, uint16_t subop = 0)
{
    return {name, token, subop, ALL, 0, 0};
}

static constexpr op_row_t instr(const char *name, uint16_t token, uint16_t subop, uint8_t written = 0, uint8_t read = 0,
                                uint16_t arch = ALL)
{
    return {name, token, subop, arch, written, read};
}

// clang-format off
constexpr op_row_t op_rows[OP_ROWS] = {
    // 0: operators and radix words
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
    // 33: instructions
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
    // 132: operand words
    word("w", DEST_W), word("f", DEST_F), word("b", ACCESS_B), word("c", ACCESS_C), word("a", ACCESS_A),
    word("", ACCESS_NONE),
    // 138: directives
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
constexpr int ROW_EMPTY = 137;

// The scanner's other tables.
// clang-format off
constexpr op_row_t control_rows[] = {
    plain("callstack", T_CALLSTACK, 1), plain("stack", T_CALLSTACK, 1), plain("pagelength", T_PAGELENGTH, 1),
    plain("pagewidth", T_PAGEWIDTH, 1), plain("cond", T_COND, 1), plain("nocond", T_COND), plain("expand", T_EXPAND, 1),
    plain("noexpand", T_EXPAND), plain("include", T_INCLUDE, 1), plain("list", T_LIST, 1), plain("nolist", T_LIST),
    plain("title", T_TITLE, 1), plain("subtitle", T_SUBTITLE, 1), plain("asmopt_on", T_ASMOPT_SWITCH, 1),
    plain("asmopt_off", T_ASMOPT_SWITCH), plain("asmopt_push", T_ASMOPT_STACK, 1), plain("asmopt_pop", T_ASMOPT_STACK),
};
// clang-format on
constexpr op_row_t listopt_rows[] = {
    plain("c", T_LO_C), plain("t", T_LO_T), plain("r", T_LO_R),   plain("n", T_LO_N),
    plain("x", T_LO_X), plain("p", T_LO_P), plain("on", T_LO_ON), plain("off", T_LO_OFF),
};
constexpr op_row_t switch_rows[] = {
    plain("on", T_ON),
    plain("off", T_OFF),
    plain("push", T_PUSHWORD),
    plain("pop", T_POPWORD),
};
// clang-format off
constexpr op_row_t psectflag_rows[] = {
    plain("global", T_PSECTFLAG, P_GLOBAL), plain("pure", T_PSECTFLAG, P_PURE), plain("ovrld", T_PSECTFLAG, P_OVRLD),
    plain("abs", T_PSECTFLAG, P_ABS), plain("common", T_PSECTFLAG, P_COMMON), plain("bit", T_PSECTFLAG, P_BIT),
    plain("local", T_PSECTFLAG, P_LOCAL), plain("note", T_PSECTFLAG, P_NOTE), plain("reloc", T_PF_RELOC),
    plain("size", T_PF_SIZE), plain("class", T_PF_CLASS), plain("space", T_PF_SPACE), plain("delta", T_PF_DELTA),
    plain("with", T_PF_WITH), plain("limit", T_PF_LIMIT), plain("inline", T_PF_INLINE), plain("keep", T_PF_KEEP),
    plain("noexec", T_PF_NOEXEC), plain("optim", T_PF_OPTIM), plain("pa", T_PF_PA), plain("jump", T_PF_JUMP),
    plain("peep", T_PF_PEEP), plain("remove", T_PF_REMOVE), plain("lowdata", T_PF_LOWDATA), plain("group", T_PF_GROUP),
    plain("minocg", T_PF_MINOCG), plain("codecov", T_PF_CODECOV),
};
// clang-format on

// Search by word.

// A word packed into 16 bytes: at most LONGEST characters, and the length in the last byte.
struct packed_t {
    uint64_t low, high;
    bool operator==(const packed_t &) const = default;
};
constexpr size_t LONGEST = 12;

static constexpr uint32_t packed_hash(packed_t p)
{
    return static_cast<uint32_t>((p.low * 0x9E3779B97F4A7C15u ^ p.high * 0xC2B2AE3D27D4EB4Fu) >> 40);
}

// The ASCII capitals among eight characters to small letters. The sums carry into a byte's top bit and never beyond.
static constexpr uint64_t fold(uint64_t chars)
{
    constexpr uint64_t EACH = 0x0101010101010101u, TOPS = 0x80 * EACH;
    const uint64_t low7 = chars & ~TOPS;
    const uint64_t from_a = low7 + (0x80 - 'A') * EACH, above_z = low7 + (0x7F - 'Z') * EACH;
    return chars | ((from_a & ~above_z & ~chars & TOPS) >> 2);
}

template <size_t ROWS> struct word_index_t {
    static constexpr size_t SLOTS = std::bit_ceil(ROWS * 4);
    uint8_t slots[SLOTS] = {};   // row number plus 1, 0 if empty; collisions go to the next slot
    packed_t packed[ROWS] = {};
    uint16_t lengths[256] = {};   // by first character, in either case: the lengths of its words, one bit each

    constexpr explicit word_index_t(const op_row_t (&rows)[ROWS])
    {
        for (size_t i = 0; i < ROWS; i++) {
            size_t len = 0;
            for (; rows[i].name[len]; len++)
                (len < 8 ? packed[i].low : packed[i].high) |= uint64_t(rows[i].name[len]) << len % 8 * 8;
            if (len == 0)
                continue;
            packed[i].high |= uint64_t(len) << 56;
            const auto c = static_cast<unsigned char>(rows[i].name[0]);
            lengths[c] |= static_cast<uint16_t>(1 << len);
            if (c >= 'a' && c <= 'z')
                lengths[c - 'a' + 'A'] |= static_cast<uint16_t>(1 << len);
            size_t at = packed_hash(packed[i]) % SLOTS;
            while (slots[at] != 0 && packed[slots[at] - 1] != packed[i])
                at = (at + 1) % SLOTS;
            if (slots[at] == 0)   // the first row of a name stays
                slots[at] = static_cast<uint8_t>(i + 1);
        }
    }
};

// The number of the word's row, or -1.
template <size_t ROWS> static inline int find(const word_index_t<ROWS> &index, const char *word, size_t len)
{
    if (len - 1 >= LONGEST || !(index.lengths[static_cast<unsigned char>(*word)] >> len & 1))
        return -1;
    packed_t p = {fold(word_bytes(word, len)), uint64_t(len) << 56};
    if (len > 8)
        p.high |= fold(word_bytes(word + 8, len - 8));
    for (size_t at = packed_hash(p) % index.SLOTS; index.slots[at] != 0; at = (at + 1) % index.SLOTS)
        if (index.packed[index.slots[at] - 1] == p)
            return index.slots[at] - 1;
    return -1;
}

constexpr word_index_t keyword_index(op_rows);
constexpr word_index_t control_index(control_rows);
constexpr word_index_t listopt_index(listopt_rows);
constexpr word_index_t switch_index(switch_rows);
constexpr word_index_t psectflag_index(psectflag_rows);

const op_row_t *op_lookup_keyword(const char *word, size_t len)
{
    const int i = len == 0 ? ROW_EMPTY : find(keyword_index, word, len);
    return i < 0 ? nullptr : &op_rows[i];
}

template <size_t ROWS>
static const op_row_t *find_row(const op_row_t (&rows)[ROWS], const word_index_t<ROWS> &index, const char *word, size_t len)
{
    const int i = find(index, word, len);
    return i < 0 ? nullptr : &rows[i];
}

const op_row_t *op_lookup_control(const char *word, size_t len) { return find_row(control_rows, control_index, word, len); }
const op_row_t *op_lookup_listopt(const char *word, size_t len) { return find_row(listopt_rows, listopt_index, word, len); }
const op_row_t *op_lookup_switch(const char *word, size_t len) { return find_row(switch_rows, switch_index, word, len); }
const op_row_t *op_lookup_psectflag(const char *word, size_t len)
{
    return find_row(psectflag_rows, psectflag_index, word, len);
}

// Search by node.

constexpr uint16_t TOKEN_FIRST = T_SUBWF, TOKEN_END = T_PF_CODECOV + 1;
constexpr uint8_t NO_ROW = 255;

struct token_index_t {
    std::array<uint8_t, TOKEN_END - TOKEN_FIRST> first = {};   // the token's first row
    std::array<uint8_t, OP_ROWS> next = {};                    // the next row with the same token

    constexpr token_index_t()
    {
        first.fill(NO_ROW);
        for (int i = OP_ROWS - 1; i >= 0; i--) {
            uint8_t *head = &first[op_rows[i].token - TOKEN_FIRST];
            next[i] = *head;
            *head = static_cast<uint8_t>(i);
        }
    }
};
constexpr token_index_t token_index;

const op_row_t *op_row(const op_t *op)
{
    unsigned subop = op->op_subop;
    switch (op->op_type) {
    case T_RETURN: subop &= ~0x01u; break;   // fast
    case T_LFSR: subop &= ~0x30u; break;     // register number
    case T_TBLRD: subop &= ~0x03u; break;    // increment or decrement
    default: break;
    }
    if (op->op_type >= TOKEN_FIRST && op->op_type < TOKEN_END)
        for (uint8_t i = token_index.first[op->op_type - TOKEN_FIRST]; i != NO_ROW; i = token_index.next[i])
            if (op_rows[i].subop == subop)
                return &op_rows[i];
    alert_print("Can't find op (op = %d, subop == %X)\n", op->op_type, unsigned{op->op_subop});
    return nullptr;
}

const char *op_name(const op_t *op)
{
    const op_row_t *row = op_row(op);
    return row ? row->name : nullptr;
}

uint32_t op_status_written(const op_t *op)
{
    const op_row_t *row = op_row(op);
    return row ? row->status_written : 0;
}

uint32_t op_status_read(const op_t *op)
{
    const op_row_t *row = op_row(op);
    return row ? row->status_read : 0;
}

// Checks of a statement.

void op_check_arch(token_t token)
{
    if (!chip_archIs(op_rows[token_index.first[token - TOKEN_FIRST]].archmask))
        alert_msg(849);
}

// An access that nobody wrote down: reported when the source is to be taken literally.
static access_t assumed(access_t access)
{
    if (opt.no_trans)
        alert_once(1522, access == ACCESS_C ? "access-bank" : "banked memory");
    return access;
}

access_t op_resolve_access(access_t word, const value_t *value)
{
    if (word == ACCESS_B && value->v_common)
        alert_msg(1224);
    if (word != ACCESS_NONE)
        return word;
    if (value->v_common)
        return ACCESS_C;
    if (value->v_rtype != RT_CONST)
        return assumed(ACCESS_B);
    if (chip_isSfrCommonAddr(value->v_offs))
        return assumed(ACCESS_C);
    // Outside the literal mode, access-bank memory that is no register is taken as banked, without a word.
    if (!opt.no_trans)
        return ACCESS_B;
    return assumed(chip_isCommonAddr(value->v_offs) && !opt.xinst ? ACCESS_C : ACCESS_B);
}

// The table against its index and itself.

static constexpr bool same(const char *a, const char *b)
{
    while (*a && *a == *b)
        a++, b++;
    return *a == *b;
}

static constexpr bool rows_are_sound()
{
    for (int i = 0; i < OP_ROWS; i++) {
        const op_row_t &r = op_rows[i];
        size_t len = 0;
        for (; r.name[len]; len++)
            if (r.name[len] >= 'A' && r.name[len] <= 'Z')
                return false;
        if (len > LONGEST || (len == 0) != (i == ROW_EMPTY) || r.token < TOKEN_FIRST || r.token >= TOKEN_END)
            return false;
        if ((r.archmask == 0) != (i < 33) || (i < 33 || i > 131 ? r.status_written | r.status_read : 0))
            return false;
        if (r.archmask != op_rows[token_index.first[r.token - TOKEN_FIRST]].archmask)   // op_check_arch asks by token
            return false;
    }
    return true;
}
static_assert(std::size(op_rows) == OP_ROWS && rows_are_sound());
static_assert(same(op_rows[32].name, "oct") && same(op_rows[33].name, "addwf") && same(op_rows[85].name, "daw") &&
              same(op_rows[131].name, "subulnk") && same(op_rows[132].name, "w") && same(op_rows[138].name, "banksel") &&
              same(op_rows[201].name, "exitm"));
