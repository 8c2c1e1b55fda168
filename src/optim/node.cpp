// What the rules ask of nodes. Most tests are asked for by several modules; one that a single rule needs stands beside the
// rule.
#include "optim/node.h"

#include <cstring>

#include "code/data.h"
#include "code/sfrop.h"
#include "common/stringcache.h"
#include "optim/pointers.h"
#include "optim/settled.h"

static bool is_data(const op_t *op) { return op->op_type == T_DB || op->op_type == T_DS; }

bool op_is_nop_word(const op_t *op)
{
    if (op->op_type != T_DB || op->op_subop != 2 || data_count(op) != 1)
        return false;
    const value_t item = *data_items(op).begin();
    return item.v_rtype == RT_CONST && item.v_offs == 0xFFFF;
}

// Psects.

bool psect_shares(const symbol_t *a, const symbol_t *b)
{
    if (!a || !b)
        return false;
    const psect_t *p = a->s_psect, *q = b->s_psect;
    return (p->p_optim & PO_MINOCG) == (q->p_optim & PO_MINOCG) && (!(p->p_optim & PO_MINOCG) || p->p_group == q->p_group);
}

bool psect_is_function(const symbol_t *psect)
{
    const psect_t *p = psect->s_psect;
    return *psect->s_name && !(p->p_flags & (P_ABS | P_OVRLD | P_NOTE)) && !psect_optim_off(psect, PO_PA) && p->p_class &&
           cache_string(p->p_class->s_name) == cache_string("CODE") && strstr(psect->s_name, "text") &&
           !cache_starts_with(psect->s_name, "swtext");
}

bool psect_runs_on(const symbol_t *psect)
{
    const op_t *last = psect->s_psect->p_code->tail.op_prev;
    for (; op_is_silent(last); last = last->op_prev)
        if (last->op_type == T_NAME && vec_size(op_refs(last)) > 0)
            return true;
    if (is_data(last))
        return data_may_run(last);
    return last->op_type != 0 && !op_ends_way(last);
}

// Kinds of nodes.

bool op_is_code(const op_t *op)
{
    switch (op->op_type) {
    case 0:
    case T_DB:
    case T_DS:
    case T_ORG:
    case T_ALIGN: return false;
    default: return !op_is_silent(op);
    }
}

bool op_ends_dead_code(const op_t *op)
{
    switch (op->op_type) {
    case 0:
    case T_NAME:
    case T_ORG:
    case T_ALIGN:
    case T_DB:
    case T_DS: return true;
    default: return false;
    }
}

// Of a banked register the number has to be its whole address.
static bool is_volatile_register(const opnd_t *o)
{
    const memrange_t *registers = chip_current()->c_volsfrs;
    if (o->opnd_kind != OPND_DATA || !registers)
        return false;
    const place_t p = place_of(o);
    return (p.kind == place_t::ADDRESS || p.kind == place_t::BANKED) && range_contains(registers, p.at);
}

bool op_marked(const op_t *op)
{
    return (op->op_flags & OPF_VOLATILE) || is_volatile_register(&op->op_opnd1) ||
           (op->op_second && is_volatile_register(op->op_second));
}

bool op_volatile(const op_t *op)
{
    return sfr_isIndirect(&op->op_opnd1) || (op->op_second && sfr_isIndirect(op->op_second)) || op_marked(op);
}

bool op_barrier(const op_t *op)
{
    switch (op->op_type) {
    case T_CPFSEQ:
    case T_BCC:
    case T_BTFSC:
    case T_DECFSZ:
    case T_PUSH:
    case T_GOTO:
    case T_RETURN:
    case T_CALL:
    case T_RETLW:
    case T_MOVLB:
    case T_NAME: return true;
    default: return op_writes_pc(op) || op_volatile(op) || !op_free(op);
    }
}

static bool has_branch_to(const op_t *label)
{
    for (const op_t *ref : op_refs(label))
        if (op_is_branch(ref))
            return true;
    return false;
}

static const op_t *before_silent(const op_t *op)
{
    op = op->op_prev;
    while (op && op_is_silent(op))
        op = op->op_type == T_NAME ? before_labels(const_cast<op_t *>(op)) : op->op_prev;
    return op;
}

// It isn't behind a transfer that always runs, or something leads to a label there. Data before the transfer may be a skip if
// they may run themselves, and so on.
bool data_may_run(const op_t *op)
{
    constexpr int MOST_BLOCKS = 8;   // of data with a transfer between them
    for (int blocks = 0; blocks < MOST_BLOCKS; blocks++) {
        for (op = op->op_prev; op_is_silent(op) || is_data(op); op = op->op_prev)
            if (op->op_type == T_NAME && has_branch_to(op))
                return true;
        if (op->op_type == 0)
            return false;
        if ((!op_is_transfer(op) && op->op_type != T_BRA) || after_skip(op))
            return true;
        op = before_silent(op);
        if (!is_data(op))
            return false;
    }
    return true;
}

bool op_may_not_run(const op_t *op)
{
    op = before_silent(op);
    if (!op || op->op_type == 0)
        return op && skip_at_end;
    return op_is_skip(op) || (is_data(op) && !op_is_nop_word(op) && data_may_run(op));
}

bool op_ends_way(const op_t *op) { return (op_is_transfer(op) || op->op_type == T_BRA) && !op_may_not_run(op); }

bool op_is_branch(const op_t *op)
{
    switch (op->op_type) {
    case T_BRA:
    case T_BCC:
    case T_RCALL:
    case T_GOTO:
    case T_CALL: return true;
    default: return false;
    }
}

// The file register that an instruction stores to, whatever it stores; null if it stores to none.
static const opnd_t *stored_to(const op_t *op)
{
    switch (op->op_type) {
    case T_MOVWF:
    case T_CLRF:
    case T_BCF: return &op->op_opnd1;
    case T_MOVFF:
    case T_MOVFFL:
    case T_MOVSF:
    case T_MOVSFL: return op_opnd2(op);
    default: return op->op_dest == DEST_F ? &op->op_opnd1 : nullptr;
    }
}

bool op_writes_pc(const op_t *op)
{
    const opnd_t *o = stored_to(op);
    return o && sfr_isPc(o);
}

bool op_writes_pcl(const op_t *op)
{
    const opnd_t *o = stored_to(op);
    return o && (sfr_idOf(o) == SFR_PCL || pointer_may_be_core(o));   // a banked one may be
}

bool op_uses_stack(const op_t *op)
{
    if (op->op_type == T_EQU || op->op_type == T_SET)
        return false;   // names only
    return op->op_type == T_PUSH || sfr_isStack(&op->op_opnd1) || (op->op_second && sfr_isStack(op->op_second));
}

// Places.

op_t *following(const op_t *op)
{
    op_t *next = op->op_next;
    return next->op_type == T_NAME ? past_labels(next) : next;
}

op_t *op_landing(const op_t *jump)
{
    if (!op_is_simple(jump))
        return nullptr;
    op_t *label = jump->op_opnd1.opnd_value.v_sym->s_defop;
    if (!label)
        return nullptr;
    settled_look(label->op_psect);
    return past_labels(label);
}

// Operands.

// `x & 255` stands for `x` where the other side has the same number in it: a file operand that has been masked for its bank.
static const value_t *look_through_mask(const value_t *v, const value_t *other)
{
    if (v->v_rtype != RT_AND || v->v_offs != 0)
        return v;
    const value_t *mask = value_right(v), *x = value_left(v);
    return mask->v_rtype == RT_CONST && mask->v_offs == 255 && x->v_offs == other->v_offs ? x : v;
}

bool opnd_same(const opnd_t *a, const opnd_t *b)
{
    if (a == b)
        return true;
    if (a->opnd_kind != b->opnd_kind)
        return false;
    if (a->opnd_kind == OPND_NONE)
        return true;
    if (a->opnd_kind == OPND_DATA && a->opnd_access && b->opnd_access && a->opnd_access != b->opnd_access)
        return false;
    const value_t *va = look_through_mask(&a->opnd_value, &b->opnd_value);
    const value_t *vb = look_through_mask(&b->opnd_value, &a->opnd_value);
    return value_equal(va, vb);
}

bool op_same(const op_t *a, const op_t *b)
{
    if (!a || !b || a->op_type != b->op_type || a->op_subop != b->op_subop || a->op_dest != b->op_dest)
        return false;
    return op_is_code(a) && op_is_code(b) && opnd_same(&a->op_opnd1, &b->op_opnd1) && opnd_same(op_opnd2(a), op_opnd2(b));
}

bool op_same_operands(const op_t *a, const op_t *b)
{
    return opnd_same(&a->op_opnd1, &b->op_opnd1) && opnd_same(op_opnd2(a), op_opnd2(b));
}

bool depends_on_bank(const opnd_t *o)
{
    if (o->opnd_kind != OPND_DATA)
        return true;
    if (o->opnd_access == ACCESS_C)
        return false;
    const value_t *v = &o->opnd_value;
    return o->opnd_access != 0 || v->v_rtype != RT_CONST || !chip_isCommonAddr(v->v_offs);
}
