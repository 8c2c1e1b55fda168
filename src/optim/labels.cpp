// A label goes when nothing refers to it: no jump or call (`op_refs`), no other module (S_DEFHERE), no data, literal or
// definition (S_TAKEN, with which pinned labels count).
//
// Reachability is worked out once for a pass: what is marked then may be reached from outside or from the psect's first
// node. A label that anything refers to counts as reached, whatever refers to it, so it is enough to look at the labels of
// the psect itself; where control comes from in other psects need not be followed.
#include "optim/labels.h"

#include "code/data.h"
#include "code/ops.h"
#include "code/program.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "optim/node.h"
#include "optim/report.h"

// Unused labels.

int list_delete_label(op_t *node)
{
    symbol_t *s = node->op_sym;
    if (cache_starts_with(s->s_name, "__end_of_") || cache_starts_with(s->s_name, "__ccov"))
        return 0;
    opt_fired("unreferenced label", CNT_UNREF_LABELS, node);
    s->s_flags |= S_UNDEF;
    s->s_defop = nullptr;
    s->s_refs = 0;
    op_set_refs(node, {});
    op_delete_if_live(node);
    return 1;
}

bool label_is_unused(const op_t *op)
{
    return op->op_type == T_NAME && op_free(op) && op->op_sym && !(op->op_sym->s_flags & (S_DEFHERE | S_TAKEN)) &&
           vec_size(op_refs(op)) == 0;
}

unsigned list_delete_unused_labels(symbol_t *psect)
{
    unsigned gone = 0;
    for (op_t *op = psect->s_psect->p_code->head.op_next, *next; op->op_type != 0; op = next) {
        next = op_step(op);
        if (label_is_unused(op))
            gone += static_cast<unsigned>(list_delete_label(op));
    }
    return gone;
}

bool label_only_from(const op_t *label, const op_t *branch)
{
    if (label->op_type != T_NAME || vec_size(op_refs(label)) > 1 || (label->op_sym->s_flags & (S_DEFHERE | S_TAKEN)))
        return false;
    for (const op_t *op = label->op_prev; op != branch; op = op->op_prev)
        if (op->op_type == 0 || (op->op_flags & OPF_MARK) || (op->op_type == T_NAME && vec_size(op_refs(op)) > 0))
            return false;
    return true;
}

bool label_begins_function(const op_t *label)
{
    if (label->op_sym->s_flags & (S_GLOBAL | S_TAKEN))
        return true;
    for (const op_t *ref : op_refs(label))
        if (ref->op_type == T_CALL || ref->op_type == T_RCALL)
            return true;
    return false;
}

// References, and labels whose place counts.

static vec_t<symbol_t *> taken;   // what has S_TAKEN

static void take(symbol_t *s)
{
    if (s->s_flags & S_TAKEN)
        return;
    s->s_flags |= S_TAKEN;
    vec_add(taken, s);
}

// Depth is bounded by the size of a tree.
static void note_taken(const value_t *v)
{
    if (v->v_rtype == RT_SYM || v->v_rtype == RT_SYM_SEG)
        take(v->v_sym);
    else if (rtype_is_binary(v->v_rtype) || rtype_is_unary(v->v_rtype))
        for (int i = rtype_is_binary(v->v_rtype); i >= 0; i--)
            note_taken(&v->v_kids[i]);
}

bool leads_to_label(const op_t *op) { return op_is_branch(op) && op_is_simple(op); }

static void note_taken_by(const code_list_t *list)
{
    for (op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op)) {
        if (op->op_opnd1.opnd_value.v_rtype != RT_CONST && !leads_to_label(op))
            note_taken(&op->op_opnd1.opnd_value);
        if (op_opnd2(op)->opnd_value.v_rtype != RT_CONST)
            note_taken(&op_opnd2(op)->opnd_value);
        if (op->op_type == T_NAME && (op->op_flags & OPF_PINNED))
            take(op->op_sym);
        for (const value_t &item : data_items(op))
            note_taken(&item);
    }
}

// A psect has changed if a label of it is taken now and wasn't, or the other way round.
static void touch_if_changed(vec_t<symbol_t *> symbols)
{
    for (const symbol_t *s : symbols)
        if (!(s->s_flags & S_TAKEN) != !(s->s_flags & S_WAS_TAKEN) && s->s_defop && s->s_defop->op_type == T_NAME)
            list_touch(s->s_defop->op_psect);
}

void build_all_refs()
{
    vec_t<symbol_t *> before = taken;
    taken = vec_make<symbol_t *>();
    for (const code_list_t *list : psect_list)
        list_clear_refs(list->psect);
    for (const code_list_t *list : psect_list) {   // which is in the cache when it is walked again
        list_build_refs(list->psect);
        note_taken_by(list);
    }
    if (program.has_end_value)
        note_taken(&program.end_value);
    touch_if_changed(taken);
    if (before) {
        touch_if_changed(before);
        vec_destroy(before.raw);
    }
}

// Reachability. Nodes whose successors are still to be followed wait on a stack.

static struct {
    const op_t **stack;
    size_t depth, room;
} reach;

static void reach_later(const op_t *op)
{
    if (!op || op->op_type == 0 || (op->op_flags & OPF_MARK))
        return;
    xreserve(reach.stack, reach.depth, reach.depth + 1, reach.room, size_t{1024});
    reach.stack[reach.depth++] = op;
}

void reach_mark(op_t *from)
{
    reach_later(from);
    while (reach.depth > 0) {
        op_t *op = const_cast<op_t *>(reach.stack[--reach.depth]);
        while (op && op->op_type != 0 && !(op->op_flags & OPF_MARK)) {
            op->op_flags |= OPF_MARK;
            if (op_is_skip(op)) {
                op_t *skipped = op_past_silent(op->op_next);
                reach_later(op->op_next);
                op = skipped->op_type == 0 ? nullptr : op_past_silent(skipped->op_next);
            } else if (op->op_type == T_GOTO) {
                op = op_is_simple(op) ? op->op_opnd1.opnd_value.v_sym->s_defop : nullptr;
            } else {
                if (op->op_type == T_CALL && op_is_simple(op))
                    reach_later(op->op_opnd1.opnd_value.v_sym->s_defop);
                op = op->op_next;
            }
        }
    }
}

void reach_mark_psect(code_list_t *list)
{
    for (op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op))
        if (op->op_flags & OPF_PINNED ||
            (op->op_type == T_NAME && op->op_sym && op->op_sym->s_defop == op &&
             (op->op_sym->s_flags & (S_GLOBAL | S_TAKEN) || op->op_sym->s_refs > 1 || vec_size(op_refs(op)) > 0)))
            reach_mark(op);
    reach_mark(list->head.op_next);
}
