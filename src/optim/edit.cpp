// A rule that re-points a jump has to keep the labels' references true, since unused labels are told by them. A new node is
// marked as reached if the one that it stands for is, or it would go as dead code. And whatever is done to a node, the
// `goto` that follows is entered in the index anew. All that is done here, so that rules say what they do and no more.
#include "optim/edit.h"

#include "optim/changes.h"
#include "optim/index.h"
#include "optim/node.h"
#include "optim/report.h"

// Nodes.

void edit_delete(op_t *op)
{
    op_t *next = op->op_next;
    change_touch(op);
    if (op->op_type == T_NAME && op->op_sym && op->op_sym->s_defop == op) {
        op->op_sym->s_defop = nullptr;
        op->op_sym->s_flags |= S_UNDEF;
    }
    op_delete_if_live(op);
    index_touch(next);
}

void edit_delete_behind(op_t *op, bool (*stop)(const op_t *op), opt_rule_t rule, int counter)
{
    for (op_t *next, *dead = op->op_next; !stop(dead); dead = next) {
        next = dead->op_next;
        if (!op_free(dead) || !op_is_code(dead))
            continue;
        if (rule)
            opt_fired(rule, counter, dead);
        edit_delete(dead);
    }
}

void edit_move(op_t *op, op_t *where)
{
    change_move(op);
    op_unlink(op);
    op_link_after(where, op);
}

// Labels.

op_t *edit_new_label(const char *name)
{
    symbol_t *s = sym_new(name);
    s->s_refs = REFS_KEEP;
    s->s_flags = 0;
    op_t *op = op_new();
    op->op_type = T_NAME;
    op->op_sym = s;
    s->s_defop = op;
    return op;
}

op_t *edit_label_before(op_t *op)
{
    op_t *label = op_ensure_label(op);
    if (!index_in_order(label))
        index_number(label);
    label->op_flags |= op->op_flags & OPF_MARK;
    label->op_offs = op->op_offs;
    return label;
}

// Jumps.

op_t *edit_new_jump(token_t type, uint16_t subop, op_t *label)
{
    op_t *op = op_new();
    op->op_type = type;
    op->op_subop = subop;
    op->op_opnd1.opnd_kind = OPND_CODE;
    op->op_opnd1.opnd_value = value_sym(label->op_sym);
    sym_add_ref(label->op_sym);
    return op;
}

op_t *edit_link_jump(op_t *where, op_t *jump, op_t *label)
{
    op_insert_after(where, jump);
    change_add(jump);
    op_add_new_ref(jump, label);
    return jump;
}

op_t *edit_goto_before(op_t *op, op_t *label)
{
    op_t *jump = edit_link_jump(op->op_prev, edit_new_jump(T_GOTO, 0, label), label);
    jump->op_flags |= op->op_flags & OPF_MARK;
    op_take_position(jump, op);
    index_number(jump);
    index_touch(jump);
    return jump;
}

void edit_lead_to(op_t *jump, symbol_t *to)
{
    jump->op_opnd1.opnd_value = value_sym(to);
    sym_add_ref(to);
    if (to->s_defop)
        op_add_new_ref(jump, to->s_defop);
    index_touch(jump);
}

void edit_point_at(op_t *jump, symbol_t *to)
{
    change_touch(jump);
    if (op_target(jump))
        op_remove_ref(jump, op_target(jump));
    edit_lead_to(jump, to);
}
