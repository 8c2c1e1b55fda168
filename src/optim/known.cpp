// W may be known in two ways at once, as a number and as equal to a register: after `movlw 5` / `movwf x` both hold. It is
// never said to equal a core register, since the machine changes those by itself.
//
// Nothing here crosses a label: the record describes one straight run of code.
#include "optim/known.h"

#include <cstring>

#include "code/ops.h"
#include "code/sfrop.h"
#include "common/xalloc.h"
#include "optim/effects.h"
#include "optim/node.h"
#include "optim/pointers.h"
#include "optim/templates.h"

constexpr int64_t BANK = 256;

static reg_state_t state = {.w_lit = {}, .w_reg = {}, .carry = -1, .bank = nullptr, .fsr_val = {}};
static value_t selected;   // what state.bank points to
static place_t equal;      // where state.w_reg is
const reg_state_t &reg = state;

// W.

void reg_forget_w_reg()
{
    state.w_reg = {};
    equal = {};
}

void reg_forget_all()
{
    state.w_lit = {};
    reg_forget_w_reg();
}

void reg_load_w(const opnd_t *o)
{
    const opnd_t operand = *o;   // it may be part of what is known
    if (operand.opnd_kind == OPND_DATA) {
        const uint32_t id = sfr_idOf(&operand);
        if (id != SFR_NONE && !sfr_selectOf(id)) {
            reg_forget_w_reg();
            return;
        }
        state.w_reg = operand;
        equal = reg_place(&operand);
        return;
    }
    reg_forget_w();
    if (operand.opnd_kind == OPND_LIT)
        state.w_lit = operand;
}

bool reg_equals_w(const opnd_t *o) { return reg.w_reg.opnd_kind == OPND_DATA && place_same(reg_place(o), equal); }

// The carry.

void reg_set_carry(int32_t carry) { state.carry = carry; }

void carry_track(const op_t *n)
{
    switch (n->op_subop) {
    case TPL_ADDWFC:
        if (state.carry != 0) {
            state.carry = -1;
            break;
        }
        [[fallthrough]];
    case TPL_ADDWF:
    case TPL_ADDLW: state.carry = reg_w_is(0) && !sfr_isStatus(&n->op_opnd1) ? 0 : -1; break;
    case TPL_INCF:
    case TPL_DECF:
    case TPL_SUBLW:
    case TPL_DAW:
    case TPL_SUBFWB:
    case TPL_SUBWFB:
    case TPL_SUBWF:
    case TPL_RRCF:
    case TPL_RLCF:
    case TPL_NEGF: state.carry = -1; break;
    }
}

// The bank.

// A banked operand may be another register from now on.
void reg_select_bank(const value_t *bank)
{
    if (state.w_reg.opnd_access == ACCESS_B && !(bank && state.bank && value_equal(bank, state.bank)))
        reg_forget_w_reg();
    if (bank)
        selected = *bank;
    state.bank = bank ? &selected : nullptr;
}

void reg_forget_bank() { state.bank = nullptr; }

place_t reg_place(const opnd_t *o)
{
    place_t p = place_of(o);
    if (p.kind == place_t::BANKED && reg.bank && reg.bank->v_rtype == RT_CONST) {
        p.kind = place_t::ADDRESS;
        p.access = ACCESS_UNSET;
        p.at = reg.bank->v_offs * BANK + (p.at & (BANK - 1));
    }
    return p;
}

bool reg_is_whole(const opnd_t *o)
{
    opnd_t whole = *o;
    whole.opnd_access = ACCESS_UNSET;
    const place_t p = reg_place(o);
    return p.kind == place_t::NAMED || (p.kind == place_t::ADDRESS && place_same(p, place_of(&whole)));
}

// Registers in general.

// Adds to the number inside an expression: that of its left operand. Trees are shared, so it gets operands of its own.
static void add_inside(value_t *e, int64_t n)
{
    if (!rtype_is_unary(e->v_rtype) && !rtype_is_binary(e->v_rtype))
        return;
    const size_t count = rtype_is_binary(e->v_rtype) ? 2 : 1;
    value_t *kids = xnew<value_t>(count);
    memcpy(kids, e->v_kids, count * sizeof *kids);
    kids[0].v_offs = static_cast<int64_t>(static_cast<uint64_t>(kids[0].v_offs) + static_cast<uint64_t>(n));
    e->v_kids = kids;
}

static bool is_byte_of(const value_t *e, const value_t *v)
{
    if (e->v_rtype != RT_LOW && e->v_rtype != RT_HIGH)
        return false;
    const value_t *x = value_left(e);
    return x->v_offs == v->v_offs && x->v_rtype == v->v_rtype && x->v_kids == v->v_kids;
}

void reg_written(const opnd_t *o)
{
    if (o->opnd_kind != OPND_DATA)
        return;
    if (state.w_reg.opnd_kind == OPND_DATA && !place_apart(equal, reg_place(o)))
        reg_forget_w_reg();
    if (sfr_isStatus(o))
        reg_forget_w_reg();
    const int select = sfr_fileSelect(o);
    if (select == 0)
        return;
    if (sfr_fileSelect(&state.w_reg) == select)
        reg_forget_w_reg();
    value_t *e = &state.fsr_val[select - 1].opnd_value;
    if (sfr_isPreinc(o))
        add_inside(e, 1);
    if (is_byte_of(e, &state.w_reg.opnd_value))
        reg_forget_w_reg();
    if (sfr_isPostinc(o) || sfr_isPostdec(o))
        add_inside(e, sfr_isPostinc(o) ? 1 : -1);
}

void reg_stored_through(const opnd_t *o) { state.fsr_val[sfr_fileSelect(o) - 1] = state.w_lit; }

void reg_forget_machine()
{
    reg_forget_all();
    state.carry = -1;
    reg_select_bank(nullptr);
}

void reg_side_effects(const op_t *n)
{
    const uint8_t ends = effect_ends(n);
    const opnd_t *o = op_written(n);
    const uint32_t id = o ? sfr_idOf(o) : SFR_NONE;
    if (ends == FX_ALL || id == SFR_PCL || (o && pointer_may_be_core(o)) || (n->op_type == T_MOVF && op_writes_pcl(n))) {
        reg_forget_machine();
        return;
    }
    if (o && n->op_type == T_MOVFFL)
        reg_written(o);
    if (ends & FX_BSR || id == SFR_BSR)
        reg_select_bank(nullptr);
    if (id == SFR_WREG && n->op_type != T_MOVWF && n->op_type != T_MOVFF)
        reg_forget_w();
    if (id == SFR_STATUS && n->op_type != T_BCF)
        state.carry = -1;
    if (sfr_selectOf(id) || (n->op_flags & OPF_INDEXED))
        reg_forget_w_reg();
}
