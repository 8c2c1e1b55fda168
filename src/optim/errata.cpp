// Some chips fetch wrongly at the place that a jump leads to. A NOP word there does no harm and mends it. This pass puts one
// behind every label that the program jumps to or calls, behind every return, and at every global label that only other
// modules can know of. It runs when the program is otherwise complete.
//
// Thousands of labels may stand in a row, so each remembers the node that was found ahead of it.
//
// A NOP at a label may come to stand between a skip and the instruction that it skips. Then the skip gets jumps of its own
// around both; so does a skip ahead of it, which would pass only the first of these jumps. Nothing gets between nodes whose
// distance counts, such as the arms of a table: there a target goes without.
#include "optim/errata.h"

#include "code/data.h"
#include "optim/changes.h"
#include "optim/edit.h"
#include "optim/node.h"
#include "optim/templates.h"

constexpr int64_t NOP_WORD = 0xFFFF;

uint32_t errata_nops;

static op_t *new_nop()
{
    op_t *op = op_new();
    op->op_type = T_DB;
    op->op_subop = 2;
    op->op_flags |= OPF_MARK;
    op->op_data = data_number(NOP_WORD);
    op_set_remark(op, "; assembler added errata NOP");
    return op;
}

// A label, a definition, or the end of a macro's text.
static bool is_definition(const op_t *op)
{
    return op->op_type == T_SET || op->op_type == T_NAME || op->op_type == T_EQU || op->op_type == T_ENDM;
}

// The first node from `op` on that isn't one of these.
static op_t *skip_definitions(op_t *op)
{
    op_t *end = op;
    while (is_definition(end))
        end = end->op_ahead ? end->op_ahead : end->op_next;
    for (; is_definition(op) && !op->op_ahead; op = op->op_next)
        op->op_ahead = end;
    return end;
}

// Whether a NOP may stand ahead of `op`, which is no definition. At the beginning of a psect it may be what a skip at the end
// of another one skips, and that skip can't be mended.
static bool has_room(const op_t *op)
{
    if (!skip_at_end && !(op->op_flags & OPF_PINNED))
        return true;
    const op_t *before = op->op_prev;
    while (is_definition(before))
        before = before->op_prev;
    return before->op_type == 0 ? !skip_at_end : !(op->op_flags & before->op_flags & OPF_PINNED);
}

static op_t *link_nop(op_t *where)
{
    change_step("errata", where);
    op_t *nop = op_insert_after(where, new_nop());
    change_add(nop);
    for (op_t *op = where; is_definition(op); op = op->op_prev)
        op->op_ahead = nop;
    return nop;
}

// The NOP at `op`, or a new one in front of it, or `op` if there is no room.
static op_t *nop_at(op_t *op) { return op_is_nop_word(op) || !has_room(op) ? op : link_nop(op->op_prev); }

static op_t *link_bra(op_t *where, op_t *label)
{
    return edit_link_jump(where, edit_new_jump(T_BRA, TPL_BRA, label), label);
}

// The skip in front of `op`, past what isn't code; or null.
static op_t *skip_before(op_t *op)
{
    op_t *k = op->op_prev;
    while (op_is_silent(k))
        k = k->op_prev;
    return op_is_skip(k) ? k : nullptr;
}

// Behind skip `k`: jumps to where it goes on when it doesn't skip, and when it does.
static void link_both_ways(op_t *k, op_t *stays, op_t *skips) { link_bra(link_bra(k, stays), skips); }

// A NOP has been put behind the label node `t`. If a skip stands before the label, what it skips stands behind the NOP now.
static void mend_skip(op_t *t, op_t *nop)
{
    op_t *k = skip_before(t);
    if (!k)
        return;
    op_t *x = op_past_silent(nop->op_next), *y = x->op_type ? op_past_silent(x->op_next) : x;
    op_t *m = op_ensure_label(y);
    if (op_t *ahead = skip_before(k))
        link_both_ways(ahead, op_ensure_label(k), op_ensure_label(x));
    change_touch(k);
    op_add_ref(k, m);
    if (k->op_type == T_BTFSC) {
        k->op_subop ^= TPL_INVERT;
        link_bra(k, m);
    } else if (k->op_type == T_DECFSZ) {
        switch (k->op_subop) {
        case TPL_DECFSZ: k->op_subop = TPL_DCFSNZ; break;
        case TPL_DCFSNZ: k->op_subop = TPL_DECFSZ; break;
        case TPL_INCFSZ: k->op_subop = TPL_INFSNZ; break;
        default: k->op_subop = TPL_INCFSZ; break;
        }
        link_bra(k, m);
    } else {
        link_both_ways(k, op_ensure_label(x), m);
    }
}

static void errata_psect(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0;) {
        op_t *next = op->op_next;
        switch (op->op_type) {
        case T_RETURN:
        case T_RETLW: {
            op_t *at = skip_definitions(op->op_next);
            next =
                at->op_type == T_DB && !op_is_nop_word(at) ? link_nop(op) : nop_at(at);   // labels of data stay at the data
            break;
        }
        case T_NAME:
            if ((op->op_sym->s_flags & S_GLOBAL) && vec_size(op_refs(op)) == 0) {
                if (op->op_next->op_type == 0)
                    return;
                op_t *at = skip_definitions(op->op_next);
                if (at->op_type == T_DB && !op_is_nop_word(at))
                    break;
                next = nop_at(at);
                if (next != at)
                    mend_skip(op, next);
            }
            break;
        case T_DB:
            if (op_is_nop_word(op))
                errata_nops++;
            break;
        case T_GOTO:
        case T_CALL: {
            op_t *t = op_is_simple(op) ? op->op_opnd1.opnd_value.v_sym->s_defop : nullptr;
            op_t *at = t ? skip_definitions(t->op_next) : nullptr;
            if (!t || op_is_nop_word(at) || !has_room(at))
                break;
            mend_skip(t, link_nop(t));
            next = op->op_next;
            break;
        }
        default: break;
        }
        op = next;
    }
}

void errata_run(vec_t<symbol_t *> psects)
{
    for (code_list_t *list : psect_list)
        for (op_t *op = list->head.op_next; op->op_type != 0; op = op->op_next)
            op->op_ahead = nullptr;
    for (symbol_t *psect : psects)
        errata_psect(psect);
}
