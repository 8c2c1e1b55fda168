// Every word of the language goes through op_lookup_keyword once, and most of them are names and not keywords. So a miss
// has to be cheap: a table by first character tells which lengths keywords with that character have, and nearly all names
// end there. What is left is packed into two numbers, folded to lower case eight characters at a time, and searched in
// an open-addressed table of row numbers. All of it is worked out by the compiler from the rows.
//
// A node's row is found along a chain of the rows with its token. Some instructions keep choices in bits of the opcode
// that the table's templates have clear: those bits are masked out before the compare.
#include "code/ops.h"

#include <array>
#include <string_view>

#include "chip/chip.h"
#include "code/list.h"
#include "code/oprows.h"
#include "code/word.h"
#include "common/alert.h"
#include "options.h"

using oprows::plain;

// The number of the first row of a name.
static consteval int row_of(std::string_view name)
{
    int i = 0;
    while (op_rows[i].name != name)   // past the last row, which no constant may be, where there is none
        i++;
    return i;
}
constexpr int ROW_EMPTY = row_of(""), FIRST_INSTRUCTION = row_of("addwf"), FIRST_OPERAND_WORD = row_of("w");

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
std::span<const op_row_t> op_psectflags() { return psectflag_rows; }
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
        const bool is_instruction = i >= FIRST_INSTRUCTION && i < FIRST_OPERAND_WORD;
        if ((r.archmask == 0) != (i < FIRST_INSTRUCTION) || (!is_instruction && (r.status_written | r.status_read)))
            return false;
        if (r.archmask != op_rows[token_index.first[r.token - TOKEN_FIRST]].archmask)   // op_check_arch asks by token
            return false;
    }
    return true;
}
static_assert(rows_are_sound());
static_assert(OP_ROWS < NO_ROW);   // numbers of rows are bytes, here and in the index of words
