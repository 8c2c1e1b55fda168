// A pass works on one psect and repeats two stages until neither finds anything to do: the peephole stage, which knows what
// the registers hold, and the jump stage, which knows where control goes. A third, the branch stage, runs once at the end.
// Each stage is a walk over the list that is itself repeated while it changes something. Loop guards turn a set of rules
// that doesn't settle into a normal end; the list is valid at every step.
//
// Reachability is worked out once, before the stages: what is marked then may be reached from outside or from the psect's
// first node. A label that anything refers to counts as reached, whatever refers to it, so it is enough to look at the
// labels of the psect itself; where control comes from in other psects need not be followed.
//
// This file holds the pass, and the tests on nodes that the rules of all modules are written with. The rules themselves are
// in `jump` and `peep`.
#include "optim/optim.h"

#include "code/program.h"
#include "code/sfrop.h"
#include "common/loopguard.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/qvdebug.h"
#include "optim/peep.h"
#include "optim/reg.h"
#include "out/emasm.h"

bool opt_changed, opt_late, codecov_seen, opt_plain_search;

constexpr uint64_t ITERATIONS = 10, STAGE_WALKS = 50000;

static uint16_t counters[CNT_COUNT];

static const char *const counter_names[CNT_COUNT] = {
    "Redundant labels", "Jumps to jumps", "Stack adjustments", "Temporary labels", "Unref'ed labels", "Unreachable code",
    "Jumps to .+1", "Skips over jumps", "Common code seq's", "Redundant exx's", "Ex (sp),hl's used", "Redundant operations",
    "Redundant loads/stores", "Simplified addresses", "Xor a's used", "Mov's changed to xchg", "Code motions",
    "Loops inverted",
};

void opt_count(opt_counter_t counter)
{
    counters[counter]++;
}

uint16_t opt_counter(opt_counter_t counter)
{
    return counters[counter];
}

// Rule, counter, what the node says, and where it comes from.
static void trace_rule(const char *rule, const char *counter, const op_t *op)
{
    std::string_view text = asm_op(op, ASM_COMPARE);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\t'))
        text.remove_suffix(1);
    while (!text.empty() && (text.front() == '\n' || text.front() == '\t'))
        text.remove_prefix(1);
    const char *file = op_more(op)->op_lfile;
    TRACEF("%s (%s): %.*s, %s:%llu", rule, counter, static_cast<int>(text.size()), text.data(), file ? file : "",
           static_cast<unsigned long long>(op_more(op)->op_lline));
}

void opt_fired(const char *rule, int counter, const op_t *op)
{
    opt_changed = true;
    if (counter != CNT_NONE)
        counters[counter]++;
    if (debug_flags & DEBUG_TRACE)
        trace_rule(rule, counter == CNT_NONE ? "uncounted" : counter_names[counter], op);
}

void opt_trace_counters()
{
    for (int i = 0; i < CNT_COUNT; i++)
        TRACEF("%s: %u", counter_names[i], counters[i]);
}

// Tests on nodes.

bool same_memory_group(const symbol_t *a, const symbol_t *b)
{
    if (!a || !b)
        return false;
    const psect_t *p = a->s_psect, *q = b->s_psect;
    return (p->p_optim & PO_MINOCG) == (q->p_optim & PO_MINOCG)
        && (!(p->p_optim & PO_MINOCG) || p->p_group == q->p_group);
}

bool op_is_code(const op_t *op)
{
    switch (op->op_type) {
    case 0: case T_DB: case T_DS: case T_ORG: case T_ALIGN:
        return false;
    default:
        return !op_is_silent(op);
    }
}

bool after_skip(const op_t *op)
{
    do
        op = op->op_prev;
    while (op && op_is_silent(op));
    return op && op_is_skip(op);
}

bool op_volatile(const op_t *op)
{
    return (op->op_flags & OPF_VOLATILE) || sfr_isIndirect(&op->op_opnd1) || sfr_isIndirect(&op->op_opnd2);
}

static op_t *past_labels(op_t *op)
{
    while (op->op_type == T_NAME)
        op = op->op_next;
    return op;
}

static op_t *past_silent(op_t *op)
{
    while (op_is_silent(op))
        op = op->op_next;
    return op;
}

op_t *following(const op_t *op)
{
    return past_labels(op->op_next);
}

op_t *jump_target(const op_t *jump)
{
    if (!op_is_simple(jump))
        return nullptr;
    op_t *label = jump->op_opnd1.opnd_value.v_sym->s_defop;
    return label ? past_labels(label) : nullptr;
}

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
    return op_is_code(a) && op_is_code(b) && opnd_same(&a->op_opnd1, &b->op_opnd1) && opnd_same(&a->op_opnd2, &b->op_opnd2);
}

bool op_barrier(const op_t *op)
{
    switch (op->op_type) {
    case T_CPFSEQ: case T_BCC: case T_BTFSC: case T_DECFSZ: case T_PUSH: case T_GOTO: case T_RETURN: case T_CALL:
    case T_RETLW: case T_MOVLB: case T_NAME:
        return true;
    default:
        return (sfr_isPc(&op->op_opnd1) && (op->op_dest == DEST_F || op->op_type == T_MOVWF)) || op_volatile(op) || !op_free(op);
    }
}

bool label_only_from(const op_t *label, const op_t *branch)
{
    if (label->op_type != T_NAME || vec_size(op_more(label)->op_refs) > 1
        || (label->op_sym->s_flags & (S_DEFHERE | S_TAKEN)))
        return false;
    for (const op_t *op = label->op_prev; op != branch; op = op->op_prev)
        if (op->op_type == 0 || (op->op_flags & OPF_MARK) || (op->op_type == T_NAME && vec_size(op_more(op)->op_refs) > 0))
            return false;
    return true;
}

bool depends_on_bank(const op_t *, const opnd_t *o)
{
    if (o->opnd_kind != OPND_DATA)
        return true;
    if (o->opnd_access == ACCESS_C)
        return false;
    const value_t *v = &o->opnd_value;
    return o->opnd_access != 0 || v->v_rtype != RT_CONST || !chip_isCommonAddr(v->v_offs);
}

op_t *op_new_goto(op_t *label_node)
{
    op_t *op = op_new();
    op->op_type = T_GOTO;
    op->op_opnd1.opnd_kind = OPND_CODE;
    op->op_opnd1.opnd_value = value_sym(label_node->op_sym);
    sym_add_ref(label_node->op_sym);
    return op;
}

// Labels.

int list_delete_label(op_t *node)
{
    symbol_t *s = node->op_sym;
    if (cache_starts_with(s->s_name, "__end_of_") || cache_starts_with(s->s_name, "__ccov"))
        return 0;
    opt_fired("unreferenced label", CNT_UNREF_LABELS, node);
    s->s_flags |= S_UNDEF;
    s->s_defop = nullptr;
    s->s_refs = 0;
    op_more(node)->op_refs = {};
    op_delete_if_live(node);
    return 1;
}

bool label_is_unused(const op_t *op)
{
    return op->op_type == T_NAME && op_free(op) && op->op_sym && !(op->op_sym->s_flags & (S_DEFHERE | S_TAKEN))
        && vec_size(op_more(op)->op_refs) == 0;
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

// Depth is bounded by the size of a tree.
static void note_taken(const value_t *v)
{
    if (v->v_rtype == RT_SYM || v->v_rtype == RT_SYM_SEG)
        v->v_sym->s_flags |= S_TAKEN;
    else if (rtype_is_binary(v->v_rtype) || rtype_is_unary(v->v_rtype))
        for (int i = rtype_is_binary(v->v_rtype); i >= 0; i--)
            note_taken(&v->v_kids[i]);
}

static bool leads_to_label(const op_t *op)
{
    switch (op->op_type) {
    case T_BRA: case T_BCC: case T_RCALL: case T_GOTO: case T_CALL:
        return op_is_simple(op);
    default:
        return false;
    }
}

void note_taken_labels()
{
    for (const code_list_t *list : psect_list)
        for (op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op)) {
            if (!leads_to_label(op))
                note_taken(&op->op_opnd1.opnd_value);
            note_taken(&op->op_opnd2.opnd_value);
            for (const data_item_t *item = op->op_type == T_DB ? op->op_data : nullptr; item; item = item->next)
                note_taken(&item->value);
        }
    if (program.has_end_value)
        note_taken(&program.end_value);
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
                op_t *skipped = past_silent(op->op_next);
                reach_later(op->op_next);
                op = skipped->op_type == 0 ? nullptr : past_silent(skipped->op_next);
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

// The pass.

// The `set` nodes go behind the first node, in their order; no node is marked; operands are reduced. True if a jump leads to a
// label now that it didn't name before.
static bool prepare(code_list_t *list)
{
    bool led = false;
    const srcpos_t position = srcpos;
    op_t *front = list->head.op_next;
    for (op_t *op = front, *next; op->op_type != 0; op = next) {
        next = op_step(op);
        op->op_flags &= ~static_cast<uint32_t>(OPF_MARK);
        if (op->op_opnd1.opnd_value.v_rtype != RT_CONST || op->op_opnd2.opnd_value.v_rtype != RT_CONST) {
            const symbol_t *was = leads_to_label(op) ? op->op_opnd1.opnd_value.v_sym : nullptr;
            op_set_position(op);
            if (op->op_type != T_EQU && op->op_type != T_SET)   // which have the symbol there
                value_eval(&op->op_opnd1.opnd_value);
            value_eval(&op->op_opnd2.opnd_value);
            led |= leads_to_label(op) && op->op_opnd1.opnd_value.v_sym != was;
        }
        if (op->op_type != T_SET || op == front)
            continue;
        if (op->op_prev != front) {
            op_unlink(op);
            op_link_after(front, op);
        }
        front = op;
    }
    srcpos = position;   // new nodes take it
    return led;
}

static void mark_reachable(code_list_t *list)
{
    for (op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op))
        if (op->op_type == T_NAME && op->op_sym && op->op_sym->s_defop == op
            && ((op->op_sym->s_flags & S_GLOBAL) || op->op_sym->s_refs > 1 || vec_size(op_more(op)->op_refs) > 0))
            reach_mark(op);
    reach_mark(list->head.op_next);
}

// Repeats `walk` while it changes the list. True if it ever did.
static bool stage(symbol_t *psect, loopguard_t *guard, bool off, void (*walk)(symbol_t *psect))
{
    bool any = false;
    loopguard_reset(guard);
    do {
        opt_changed = false;
        reg_forget_all();
        if (!off)
            walk(psect);
        any |= opt_changed;
    } while (opt_changed && loopguard_next(guard));
    return any;
}

bool opt_psect(symbol_t *psect)
{
    code_list_t *list = psect->s_psect->p_code;
    if (list_empty(list))
        return false;
    loopguard_t *iterations = loopguard_new(ITERATIONS), *walks = loopguard_new(STAGE_WALKS);
    const bool no_peep = psect_optim_off(psect, PO_PEEP), no_jump = psect_optim_off(psect, PO_JUMP);
    if (prepare(list))
        list_renew_refs(psect);   // which the rules keep true
    mark_reachable(list);
    // A stage that has been through the list without a change isn't repeated before the other one makes one.
    bool any = false, peeped, jumped, peep_settled, jump_settled = false;
    do {
        peeped = stage(psect, walks, no_peep, peephole_walk);
        peep_settled = !opt_changed;
        jumped = false;
        if (peeped || !jump_settled) {
            jumped = stage(psect, walks, no_jump, opt_jump_walk);
            jump_settled = !opt_changed;
        }
        any |= peeped || jumped;
    } while ((jumped || !peep_settled) && loopguard_next(iterations));
    if (!no_jump)
        opt_branch_stage(psect);
    return any;
}
