// A row says what the role of the operands is and what the kind uses, kills and ends beside them; where the templates of a
// kind differ, a variant says it for one of them. effect_of puts both together for a node: an operand may be W, STATUS or
// BSR itself, needs BSR if it is banked, and W if its address is formed with it.
//
// The table says what searches count on, which may be less than what the machine does: flags that `movf` overwrites count as
// kept, which only keeps code that could have gone.
//
// An instruction uses STATUS and BSR also by naming them as its operand. In the other direction writes to them aren't
// counted on.
//
// What may bite: what a row uses and kills at once is needed only if the node may not run. So addwf overwrites the carry,
// and needs it under a skip.
#include "optim/effects.h"

#include <array>
#include <cstring>

#include "code/oprows.h"
#include "code/sfrop.h"
#include "optim/node.h"
#include "optim/pointers.h"
#include "optim/templates.h"

enum role_t : uint8_t {
    ROLE_NONE,   // no file register
    ROLE_READ,
    ROLE_WRITE,
    ROLE_MODIFY,   // read and written
    ROLE_DEST,     // read, and written if the destination is `f`; if it is `w`, W is overwritten
    ROLE_LOAD,     // likewise, but what is written is what was read
    ROLE_TEST_BIT,
    ROLE_SET_BIT,
    ROLE_TOGGLE_BIT,   // the second operand is the bit's number
    ROLE_MOVE,         // from the first to the second operand, both with their whole address
    ROLE_STORE,        // to the second operand; the first is a place on the software stack
};

struct row_t {
    token_t type = T_NONE;
    role_t role = ROLE_NONE;
    uint8_t uses = FX_ALL, kills = 0, ends = FX_ALL;
    doubt_t doubt = DOUBT_STAYS;
};

constexpr uint8_t C = FX_C, Z = FX_Z, N = FX_N, W = FX_W, BSR = FX_BSR, ALL = FX_ALL, ZN = Z | N, CZN = C | ZN;

constexpr row_t rows[] = {
    // Kind and role, uses, kills, ends
    {T_SUBWF, ROLE_DEST, W | C, CZN, 0, DOUBT_ENDS},
    {T_ADDWF, ROLE_DEST, W | C, CZN, 0, DOUBT_ENDS},
    {T_ANDWF, ROLE_DEST, W, ZN, 0, DOUBT_ENDS},
    {T_INCF, ROLE_DEST, 0, CZN, 0, DOUBT_ENDS},
    {T_MOVF, ROLE_LOAD, 0, 0, 0, DOUBT_ENDS},
    {T_SWAPF, ROLE_DEST, 0, 0, 0, DOUBT_ENDS},
    {T_RLCF, ROLE_DEST, 0, 0, 0, DOUBT_ENDS},
    {T_DECFSZ, ROLE_DEST, 0, 0, 0, DOUBT_BEGINS},
    {T_MULWF, ROLE_READ, W, 0, 0, DOUBT_ENDS},
    {T_CPFSEQ, ROLE_READ, W, 0, 0, DOUBT_BEGINS},
    {T_MOVWF, ROLE_WRITE, W, 0, 0, DOUBT_ENDS},
    {T_CLRF, ROLE_WRITE, 0, Z, 0, DOUBT_ENDS},
    {T_BCF, ROLE_SET_BIT, 0, 0, 0, DOUBT_ENDS},
    {T_BTFSC, ROLE_TEST_BIT, 0, 0, 0, DOUBT_BEGINS},
    {T_MOVFF, ROLE_MOVE, 0, 0, 0, DOUBT_ENDS},
    {T_MOVFFL, ROLE_MOVE, 0, 0, 0, DOUBT_ENDS},

    {T_ADDLW, ROLE_NONE, W, ZN, 0, DOUBT_ENDS},
    {T_MOVLW, ROLE_NONE, 0, W, 0, DOUBT_ENDS},
    {T_MOVLB, ROLE_NONE, 0, BSR, 0, DOUBT_ENDS},
    {T_BANKSEL, ROLE_NONE, 0, BSR, BSR, DOUBT_ENDS},
    {T_LFSR, ROLE_NONE, 0, 0, 0, DOUBT_ENDS},
    {T_ADDFSR, ROLE_NONE, 0, 0, 0, DOUBT_ENDS},
    {T_NOP, ROLE_NONE, 0, 0, 0, DOUBT_ENDS},
    {T_PUSH, ROLE_NONE, 0, 0, 0, DOUBT_ENDS},
    {T_TBLRD, ROLE_NONE, 0, 0, 0, DOUBT_STAYS},
    {T_TRAP, ROLE_NONE, 0, 0, 0, DOUBT_STAYS},
    {T_DBOUT, ROLE_NONE, 0, 0, 0, DOUBT_STAYS},
    {T_SETCNT, ROLE_NONE, 0, 0, 0, DOUBT_STAYS},
    {T_PUSHL, ROLE_NONE, 0, 0, ALL, DOUBT_ENDS},
    {T_MOVSF, ROLE_STORE, 0, 0, ALL, DOUBT_ENDS},
    {T_MOVSFL, ROLE_STORE, 0, 0, ALL, DOUBT_ENDS},
    {T_MOVSS, ROLE_NONE, 0, 0, ALL, DOUBT_ENDS},

    // Control goes elsewhere, where the search follows it. A caller may look at everything but N.
    {T_BRA, ROLE_NONE, 0, 0, 0, DOUBT_ELSEWHERE},
    {T_GOTO, ROLE_NONE, 0, 0, 0, DOUBT_ELSEWHERE},
    {T_BCC, ROLE_NONE, 0, 0, 0, DOUBT_ELSEWHERE},
    {T_CALL, ROLE_NONE, 0, 0, 0, DOUBT_ELSEWHERE},
    {T_RCALL, ROLE_NONE, 0, 0, 0, DOUBT_ELSEWHERE},
    {T_CALLW, ROLE_NONE, ALL, 0, ALL, DOUBT_ELSEWHERE},
    {T_TRET, ROLE_NONE, ALL, 0, ALL, DOUBT_ELSEWHERE},
    {T_ADDULNK, ROLE_NONE, ALL, 0, ALL, DOUBT_ELSEWHERE},
    {T_RETURN, ROLE_NONE, ALL, N, 0, DOUBT_ELSEWHERE},
    {T_RETLW, ROLE_NONE, ALL, W | N, 0, DOUBT_ELSEWHERE},

    // Data, places, and what makes no code
    {T_DB, ROLE_NONE, ALL, 0, ALL, DOUBT_STAYS},
    {T_DS, ROLE_NONE, ALL, 0, ALL, DOUBT_STAYS},
    {T_ORG, ROLE_NONE, ALL, 0, ALL, DOUBT_ELSEWHERE},
    {T_ALIGN, ROLE_NONE, ALL, 0, ALL, DOUBT_ELSEWHERE},
    {T_NAME, ROLE_NONE, 0, 0, 0},
    {T_NUMLABEL, ROLE_NONE, 0, 0, 0},
    {T_IF, ROLE_NONE, 0, 0, 0},
    {T_ELSIF, ROLE_NONE, 0, 0, 0},
    {T_ELSE, ROLE_NONE, 0, 0, 0},
    {T_ENDIF, ROLE_NONE, 0, 0, 0},
    {T_ENDM, ROLE_NONE, 0, 0, 0},
    {T_EQU, ROLE_NONE, 0, 0, 0},
    {T_SET, ROLE_NONE, 0, 0, 0},
    {T_TITLE, ROLE_NONE, 0, 0, 0},
    {T_INCLUDE, ROLE_NONE, 0, 0, 0},
    {T_MESSG, ROLE_NONE, 0, 0, 0},
};
// Templates that differ from the row of their kind.
struct variant_t {
    const op_row_t &of;
    role_t role;
    uint8_t uses, kills;
};
constexpr variant_t variants[] = {
    {op_named("subwfb"), ROLE_DEST, W | C, ZN}, {op_named("subfwb"), ROLE_DEST, W | C, ZN},
    {op_named("addwfc"), ROLE_DEST, W | C, ZN}, {op_named("comf"), ROLE_DEST, 0, ZN},
    {op_named("rlcf"), ROLE_DEST, C, 0},        {op_named("rrcf"), ROLE_DEST, C, 0},
    {op_named("setf"), ROLE_WRITE, 0, 0},       {op_named("negf"), ROLE_MODIFY, 0, Z},
    {op_named("btg"), ROLE_TOGGLE_BIT, 0, 0},   {op_named("addlw"), ROLE_NONE, W, CZN},
    {op_named("sublw"), ROLE_NONE, W, CZN},     {op_named("mullw"), ROLE_NONE, W, 0},
    {op_named("daw"), ROLE_NONE, C | W, 0},     {op_named("sleep"), ROLE_NONE, W, 0},
    {op_named("clrw"), ROLE_NONE, 0, W},        {op_named("bz"), ROLE_NONE, Z, 0},
    {op_named("bnz"), ROLE_NONE, Z, 0},         {op_named("bc"), ROLE_NONE, C, 0},
    {op_named("bnc"), ROLE_NONE, C, 0},         {op_named("bmi"), ROLE_NONE, N, 0},
    {op_named("bnn"), ROLE_NONE, N, 0},
};

// A row with its variants, which stand together.
struct full_row_t : row_t {
    uint8_t first_variant = 0, variant_count = 0;
};
static constexpr auto table = [] {
    constexpr auto row_of_kind = rows_by_kind(rows);
    std::array<full_row_t, row_of_kind.size()> all = {};
    for (size_t kind = 0; kind < all.size(); kind++)
        static_cast<row_t &>(all[kind]) = row_of_kind[kind];
    for (size_t i = 0; i < std::size(variants); i++) {
        full_row_t &row = all[variants[i].of.token];
        if (row.variant_count++ == 0)
            row.first_variant = static_cast<uint8_t>(i);
        else if (variants[i - 1].of.token != variants[i].of.token)
            throw "the variants of a kind stand together";
    }
    return all;
}();
constexpr full_row_t unknown;
bool effect_returns_keep_n;

static const full_row_t &row_of(const op_t *op) { return op->op_type < table.size() ? table[op->op_type] : unknown; }

static bool is_formed_with_w(uint32_t id) { return sfr_bits(SFR_PLUSW0, SFR_PLUSW1, SFR_PLUSW2) >> id & 1; }

// What it takes to get at a file operand, which is the core register `id`, to read or to write it.
static unsigned address_uses(const opnd_t *o, uint32_t id, uint8_t asked)
{
    if (pointer_may_be_core(o))
        return ALL;
    if (!(asked & (W | BSR)))
        return 0;
    return (id == SFR_WREG || is_formed_with_w(id) ? W : 0) | (depends_on_bank(o) ? BSR : 0);
}

// What is stored to the core register `id` leads to where anything may be needed.
static unsigned jump_uses(uint32_t id) { return id == SFR_PCL ? ALL : 0; }

// A core register among what can be asked about, which the operand names.
static unsigned named(uint32_t id) { return id == SFR_STATUS ? FX_FLAGS : id == SFR_BSR ? BSR : 0; }

// The flag that a bit instruction means if its register, `id`, is `status`; all of them if the bit isn't known.
static unsigned flag_of(const op_t *op, uint32_t id)
{
    if (id != SFR_STATUS)
        return 0;
    const value_t *bit = &op_opnd2(op)->opnd_value;
    if (bit->v_rtype != RT_CONST)
        return FX_FLAGS;
    return bit->v_offs == 0 ? C : bit->v_offs == 2 ? Z : bit->v_offs == 4 ? N : 0;
}

static effect_t made_of(unsigned uses, unsigned kills) { return {static_cast<uint8_t>(uses), static_cast<uint8_t>(kills)}; }

// Of a node without a file operand.
static effect_t plain_effect(const op_t *op, bool sure, unsigned uses, unsigned kills)
{
    const char *remark = op_remark(op);
    if (sure && op_is_return(op) && remark && strcmp(remark, ";funcret") == 0)
        kills |= Z;
    if (effect_returns_keep_n && op_is_return(op))
        kills &= ~static_cast<unsigned>(N);
    if (sure)
        uses &= ~kills;
    if (op->op_type == T_MOVLW && sure && op_is_return(op->op_next))
        uses |= Z;   // the caller may test what is returned
    return made_of(uses, kills);
}

effect_t effect_of(const op_t *op, bool sure, uint8_t asked)
{
    const full_row_t &row = row_of(op);
    role_t role = row.role;
    unsigned uses = row.uses, kills = row.kills;
    for (unsigned i = 0; i < row.variant_count; i++)
        if (const variant_t &v = variants[row.first_variant + i]; v.of.subop == op->op_subop) {
            role = v.role;
            uses = v.uses;
            kills = v.kills;
            break;
        }
    if (role == ROLE_NONE)
        return (uses | kills) == 0 ? effect_t{} : plain_effect(op, sure, uses, kills);
    if (sure)
        uses &= ~kills;
    const opnd_t *first = &op->op_opnd1, *second = op_opnd2(op);
    const uint32_t id = sfr_idOf(first), to = role < ROLE_MOVE ? id : sfr_idOf(second);
    switch (role) {
    case ROLE_DEST:
    case ROLE_LOAD:
        kills |= op->op_dest == DEST_W ? W : 0;
        uses |= address_uses(first, id, asked) | named(id) | (op->op_dest == DEST_F ? jump_uses(id) : 0);
        break;
    case ROLE_READ: uses |= address_uses(first, id, asked) | named(id); break;
    case ROLE_MODIFY: uses |= address_uses(first, id, asked) | named(id) | jump_uses(id); break;
    case ROLE_WRITE:
        if (sure && id == SFR_WREG && sfr_isCertain(first)) {
            uses |= address_uses(first, id, asked) & ~W;
            kills |= W;
        } else {
            uses |= address_uses(first, id, asked) | jump_uses(id);
        }
        break;
    case ROLE_SET_BIT:
        uses |= address_uses(first, id, asked) | (id == SFR_BSR ? BSR : 0) | jump_uses(id);
        kills |= second->opnd_value.v_rtype == RT_CONST && sfr_isCertain(first) ? flag_of(op, id) : 0;
        break;
    case ROLE_TOGGLE_BIT: uses |= jump_uses(id); [[fallthrough]];
    case ROLE_TEST_BIT: uses |= address_uses(first, id, asked) | (id == SFR_BSR ? BSR : 0) | flag_of(op, id); break;
    case ROLE_MOVE:
        uses |= named(id) | (id == SFR_WREG || is_formed_with_w(id) || is_formed_with_w(to) ? W : 0);
        uses |= pointer_may_be_core(first) ? ALL : 0;
        kills |= to == SFR_WREG ? W : 0;
        [[fallthrough]];
    case ROLE_STORE: uses |= jump_uses(to) | (pointer_may_be_core(second) ? ALL : 0); break;
    case ROLE_NONE: break;
    }
    return made_of(uses, kills);
}

uint8_t effect_ends(const op_t *op) { return row_of(op).ends; }
doubt_t effect_doubt(const op_t *op) { return row_of(op).doubt; }

const opnd_t *op_written(const op_t *op)
{
    switch (row_of(op).role) {
    case ROLE_DEST: return op->op_dest == DEST_W ? nullptr : &op->op_opnd1;
    case ROLE_WRITE:
    case ROLE_MODIFY:
    case ROLE_SET_BIT:
    case ROLE_TOGGLE_BIT: return &op->op_opnd1;
    case ROLE_MOVE: return op_opnd2(op);
    case ROLE_NONE:
    case ROLE_READ:
    case ROLE_LOAD:
    case ROLE_TEST_BIT:
    case ROLE_STORE: break;
    }
    return nullptr;
}
