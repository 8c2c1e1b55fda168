// The jump stage: dead code, and skips and jumps that can be shorter. The tails that two places share are in `tails`.
//
// Each rule is a function of its own, J1 to J19, whose first lines are its pattern and conditions. The table at the end
// holds them in the order in which they are tried at a node; the first that applies ends the work on it. A rule returns the
// node at which the walk goes on, or null if it doesn't apply.
//
// Further conditions keep the rules from doing harm or going on for ever: nobody follows jumps round a circle, J16 moves a
// block only if control neither runs into it nor out of it, and accesses marked volatile stay.
#include "optim/jump.h"

#include <span>

#include "code/layout.h"
#include "code/sfrop.h"
#include "common/loopguard.h"
#include "common/stringcache.h"
#include "optim/edit.h"
#include "optim/index.h"
#include "optim/labels.h"
#include "optim/node.h"
#include "optim/report.h"
#include "optim/tails.h"
#include "optim/templates.h"
#include "options.h"

constexpr uint64_t RUN_STEPS = 500000000;
constexpr int MOST_JUMPS = 100;   // that are followed one after the other

static struct {
    loopguard_t *guard;   // bounds the stage over the whole run
    symbol_t *psect;
    bool sized;   // in this walk. What is deleted since only brings things nearer
    // For J16: labels whose names begin with "save", and what has a place of its own, in order; null until asked for.
    vec_t<op_t *> saves, orgs;
} st;

void jump_init() { st.guard = loopguard_new(RUN_STEPS); }

static void size_once()
{
    if (!st.sized)
        size_psect(st.psect);
    st.sized = true;
}

static symbol_t *symbol_of(const op_t *jump) { return jump->op_opnd1.opnd_value.v_sym; }

// The same bit of the same register, which one that moves at every access is not.
static bool same_steady_bit(const op_t *a, const op_t *b)
{
    const opnd_t *o = &a->op_opnd1;
    return op_same_operands(a, b) && !sfr_isPostinc(o) && !sfr_isPostdec(o) && !sfr_isPreinc(o);
}

// Whether `w` gives the bit that `b` tests a value, and both may be left out.
static bool sets_tested_bit(const op_t *w, const op_t *b)
{
    return w->op_type == T_BCF && (w->op_subop | TPL_INVERT) == TPL_BCF && same_steady_bit(b, w) && !op_marked(b) &&
           !op_marked(w);
}

// The `goto` directly behind a BTFSC, free.
static op_t *goto_behind(op_t *b)
{
    op_t *g = b->op_next;
    return g->op_type == T_GOTO && op_free(g) ? g : nullptr;
}

// The rules.

// Code behind an unconditional transfer. The transfer goes on to the other rules.
static op_t *j1(op_t *op)
{
    edit_delete_behind(op, op_ends_dead_code, "J1", CNT_UNREACHABLE);
    return nullptr;
}

// btfsc b / return / bcf b / return
static op_t *j2(op_t *b)
{
    if (!op_is_return(b->op_next))
        return nullptr;
    op_t *r = b->op_next, *w = r->op_next;
    if (!sets_tested_bit(w, b) || !op_same(r, w->op_next) || ((b->op_subop ^ w->op_subop) & TPL_INVERT))
        return nullptr;
    opt_fired("J2", CNT_SKIPS_OVER, b);
    edit_delete(b);
    return r;
}

// The test before it may be next, in a ladder of them that all lead here: going on there saves a walk for each.
static op_t *delete_skip_and_goto(opt_rule_t rule, op_t *b, op_t *g)
{
    op_t *next = g->op_next, *before = b->op_prev;
    opt_fired(rule, CNT_SKIPS_OVER, b);
    if (!op_may_not_run(b))
        edit_delete(g);
    else
        next = g;
    edit_delete(b);
    if (before->op_type == T_GOTO)
        before = before->op_prev;
    return before->op_type == T_BTFSC ? before : next;
}

// btfsc b / goto L / L:
static op_t *j3(op_t *b)
{
    op_t *g = goto_behind(b);
    if (!g || op_volatile(b) || op_landing(g) != following(g))
        return nullptr;
    return delete_skip_and_goto("J3", b, g);
}

// btfsc b / goto L / goto L
static op_t *j4(op_t *b)
{
    op_t *g = goto_behind(b);
    if (!g || op_volatile(b) || !op_same(following(g), g))
        return nullptr;
    return delete_skip_and_goto("J4", b, g);
}

static op_t *invert_and_drop_goto(opt_rule_t rule, op_t *b, op_t *g)
{
    opt_fired(rule, CNT_SKIPS_OVER, b);
    b->op_subop ^= TPL_INVERT;
    op_t *next = g->op_next;
    edit_delete(g);
    return next;
}

static bool label_begins(const op_t *op, const char *prefix)
{
    return op->op_type == T_NAME && op->op_sym && cache_starts_with(op->op_sym->s_name, prefix);
}

// The most bytes that a node can take once everything else has been done to it and to what stands before it; ANY_SIZE: no
// limit.
constexpr uint64_t ANY_SIZE = 1000;

static uint64_t most_size(const op_t *op)
{
    constexpr uint64_t ERRATA_WORDS = 8;   // around an instruction
    const uint64_t errata = opt.errata_mask & ERRATA_NOPS ? ERRATA_WORDS : 0;
    switch (op->op_type) {
    case T_ORG:
    case T_ALIGN: return ANY_SIZE;
    case T_BCC: return 6 + errata;
    case T_CALL: return 4 + errata;
    case T_GOTO:
        for (const op_t *label = op_target(op); label && label->op_type == T_NAME; label = label->op_prev)
            if (label_begins(label, "int_fun"))
                return ANY_SIZE;   // whose code may come here
        return 4 + errata;
    default: return op_size(op, 0) + errata;
    }
}

// Whether the conditional branch `c` leads to `label` with one instruction, and will go on to do so whatever is done to the
// code between, here or when the assembly text is assembled without the optimiser. One that is too far away becomes two
// instructions, of which a skip skips one.
static bool stays_short(const op_t *c, const op_t *label)
{
    if (!branch_has_forms(c))
        return true;
    if (!label || label->op_psect != c->op_psect)
        return false;
    const bool ahead = label->op_order > c->op_order;
    const op_t *end = ahead ? label : c;
    uint64_t distance = 4;
    const in_psect_t here(c->op_psect);
    for (const op_t *op = ahead ? c->op_next : label; op != end && distance <= 250; op = op->op_next)
        distance += most_size(op);
    return distance <= 250;
}

// Whether a skip passes over all of it.
static bool may_be_skipped(const op_t *op)
{
    return op_is_code(op) && (op->op_type != T_BCC || stays_short(op, op_is_simple(op) ? op_target(op) : nullptr));
}

// btfsc b / goto L / one instruction / L:
static op_t *j5(op_t *b)
{
    op_t *g = goto_behind(b);
    op_t *over = g ? following(g) : nullptr;
    if (!over || over->op_type == 0 || op_landing(g) != following(over) || !may_be_skipped(over))
        return nullptr;
    return invert_and_drop_goto("J5", b, g);
}

// btfsc b / goto L / btfsc c / goto L
static op_t *j6(op_t *b)
{
    op_t *g = goto_behind(b);
    if (!g || g->op_next->op_type != T_BTFSC)
        return nullptr;
    op_t *h = g->op_next->op_next;
    if (h->op_type != T_GOTO || !op_is_simple(g) || !op_is_simple(h) || symbol_of(g) != symbol_of(h))
        return nullptr;
    return invert_and_drop_goto("J6", b, g);
}

// btfsc b / goto L / return
static op_t *j7(op_t *b)
{
    op_t *g = goto_behind(b);
    if (!g || !op_is_return(g->op_next) || !op_free(g->op_next))
        return nullptr;
    op_t *r = g->op_next;
    opt_fired("J7", CNT_SKIPS_OVER, b);
    b->op_subop ^= TPL_INVERT;
    edit_move(r, b);
    index_number(r);
    index_touch(g);
    index_touch(g->op_next);
    return r;
}

// Jumps that go round would be followed for ever: whoever joins them gets nowhere. Those that may change end by themselves,
// as the rules shorten the circle.

// Whether `op` is one of, or leads into, a circle of jumps that may not change.
static bool goes_round(const op_t *op)
{
    const op_t *slow = op, *fast = op;
    do {
        for (int i = 0; i < 2; i++) {
            if (!fast || fast->op_type != T_GOTO || op_free(fast))
                return false;
            fast = op_landing(fast);
        }
        slow = op_landing(slow);
    } while (slow != fast);
    return true;
}

// Whether nothing but jumps stand behind `op` and they lead back to it.
static bool comes_back(const op_t *op)
{
    const op_t *next = following(op);
    for (int jumps = 0; next && next != op && next->op_type == T_GOTO; jumps++) {
        if (jumps == MOST_JUMPS)
            return true;
        next = op_landing(next);
    }
    return next == op;
}

// btfsc b / goto L, and at L the bit is given the value that it has when the goto runs
static op_t *j8(op_t *b)
{
    op_t *g = goto_behind(b), *w = g ? op_landing(g) : nullptr;
    if (!w || !sets_tested_bit(w, b) || !((b->op_subop ^ w->op_subop) & TPL_INVERT) || comes_back(w))
        return nullptr;
    opt_fired("J8", CNT_SKIPS_OVER, b);
    edit_point_at(g, edit_label_before(w->op_next)->op_sym);
    return g;
}

// bc L, and at L a goto M that the branch reaches itself
static op_t *j9(op_t *c)
{
    op_t *g = op_landing(c);
    if (!g || g->op_type != T_GOTO || !op_is_simple(g) || goes_round(g))
        return nullptr;
    symbol_t *s = symbol_of(g);
    if (!s->s_defop || s == symbol_of(c) || s->s_defop->op_psect != st.psect)
        return nullptr;
    size_once();
    if (!fits_cond_branch(int64_t{s->s_defop->op_offs} - int64_t{c->op_offs} - 2) ||
        (op_may_not_run(c) && !stays_short(c, s->s_defop)))
        return nullptr;
    opt_fired("J9", CNT_JUMPS_TO_JUMPS, c);
    edit_point_at(c, s);
    return c->op_next;
}

// goto L / goto L
static op_t *j10(op_t *g)
{
    if (!op_same(following(g), g))
        return nullptr;
    opt_fired("J10", CNT_REDUNDANT_OPS, g);
    op_t *next = g->op_next;
    edit_delete(g);
    return next;
}

// goto L, and other labels stand before L at its place
static op_t *j11(op_t *g)
{
    if (!op_is_simple(g))
        return nullptr;
    symbol_t *s = symbol_of(g);
    if (!s->s_defop || (s->s_flags & S_DEFHERE))
        return nullptr;
    op_t *first = before_labels(s->s_defop)->op_next;
    if (first->op_sym == s || first->op_next == g)   // a label that stands twice, which is an error, is the same
        return nullptr;
    opt_fired("J11", CNT_REDUNDANT_LABELS, g);
    edit_point_at(g, first->op_sym);
    return g->op_next;
}

// goto L, and at L a return
static op_t *j12(op_t *g)
{
    op_t *r = op_landing(g);
    if (!r || !op_is_return(r) || (opt.errata_mask & ERRATA_NOPS))
        return nullptr;
    opt_fired("J12", CNT_JUMPS_TO_JUMPS, g);
    op_remove_ref(g, op_target(g));
    g->op_type = r->op_type;
    g->op_subop = r->op_subop;
    g->op_opnd1 = r->op_opnd1;
    g->op_access = r->op_access;
    index_touch(g->op_next);
    return g->op_next;
}

// goto L, and at L a goto M
static op_t *j13(op_t *g)
{
    op_t *h = op_landing(g);
    if (!h || h->op_type != T_GOTO || h->op_psect != st.psect || !op_is_simple(h) || symbol_of(h) == symbol_of(g) ||
        goes_round(h))
        return nullptr;
    opt_fired("J13", CNT_JUMPS_TO_JUMPS, g);
    edit_point_at(g, symbol_of(h));
    return g->op_next;
}

// goto L / L:
static op_t *j14(op_t *g)
{
    if (!op_is_simple(g) || g->op_next->op_type != T_NAME || symbol_of(g)->s_defop != g->op_next)
        return nullptr;
    opt_fired("J14", CNT_JUMPS_TO_NEXT, g);
    op_t *next = g->op_next;
    edit_delete(g);
    return next;
}

// btfsc p / goto L / goto M ... btfss p / goto M / L: the first test may be left to the second
static op_t *j15(op_t *g)
{
    if (!op_is_simple(g) || !symbol_of(g)->s_defop)
        return nullptr;
    op_t *label = symbol_of(g)->s_defop, *g2 = label->op_prev, *h = g->op_next;
    if (g2->op_type != T_GOTO || h->op_type != T_GOTO || label->op_next->op_type == 0 || !op_is_simple(h) ||
        !op_is_simple(g2) || !op_landing(h) || op_landing(h) != op_landing(g2))
        return nullptr;
    op_t *p = g->op_prev, *q = g2->op_prev;
    if (p->op_type != T_BTFSC || q->op_type != T_BTFSC || !op_free(p) || op_may_not_run(p) || op_may_not_run(q) ||
        (p->op_subop ^ q->op_subop) != TPL_INVERT || p->op_dest != q->op_dest || !op_same_operands(p, q))
        return nullptr;
    opt_fired("J15", CNT_MOTIONS, g);
    symbol_t *old = label->op_sym;
    edit_point_at(g, edit_label_before(q)->op_sym);
    if (old->s_refs > 0 && old->s_refs != REFS_KEEP)
        old->s_refs--;
    edit_delete(p);
    return g->op_next;
}

// Interrupt code.

static void find_ends_of_blocks()
{
    st.saves = vec_make<op_t *>();
    st.orgs = vec_make<op_t *>();
    for (op_t *op = st.psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op))
        if (label_begins(op, "save"))
            vec_add(st.saves, op);
        else if (op->op_type == T_ORG)
            vec_add(st.orgs, op);
}

static void forget_ends_of_blocks()
{
    vec_destroy(st.saves.raw);
    vec_destroy(st.orgs.raw);
    st.saves = st.orgs = {};
}

// The number of the first of them that doesn't stand before `op`.
static uint32_t first_from(vec_t<op_t *> nodes, const op_t *op)
{
    uint32_t low = 0, high = vec_size(nodes);
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (vec_elementAt(nodes, middle)->op_order < op->op_order)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// The last node of the block of interrupt code from `op` on.
static op_t *end_of_block(const op_t *op)
{
    for (uint32_t i = first_from(st.saves, op); i < vec_size(st.saves); i++)
        if (op_t *save = vec_elementAt(st.saves, i); label_begins(save, "save") && op_is_transfer(save->op_prev))
            return save->op_prev;
    return st.psect->s_psect->p_code->tail.op_prev;
}

static bool stands_within(const op_t *op, const op_t *first, const op_t *last)
{
    return op->op_order >= first->op_order && op->op_order <= last->op_order;
}

// A distance that is a number, or a table, reaches over the edge between two nodes.
static bool holds_together(const op_t *a, const op_t *b) { return a->op_flags & b->op_flags & OPF_PINNED; }

// The block behind the jump's label moves to the jump
static op_t *j16(op_t *g)
{
    if (!op_is_simple(g))
        return nullptr;
    op_t *label = symbol_of(g)->s_defop;
    if (!label || label->op_psect != st.psect)
        return nullptr;
    op_t *e = before_labels(label);
    op_t *b = e->op_next;
    if (!op_is_transfer(e) || op_may_not_run(e) || (!label_begins(b, "int_fun") && !label_begins(b->op_next, "int_fun")))
        return nullptr;
    op_t *s = past_labels(b);
    if (!st.saves)
        find_ends_of_blocks();
    op_t *last = s->op_type == 0 ? s->op_prev : end_of_block(s);
    if (stands_within(g, b, last))
        return nullptr;
    if (const uint32_t i = first_from(st.orgs, b);
        i < vec_size(st.orgs) && stands_within(vec_elementAt(st.orgs, i), b, last))
        return nullptr;   // it has a place of its own
    const op_t *end = last;
    while (end->op_type == T_NAME)
        end = end->op_prev;
    if (!op_is_transfer(end) || op_may_not_run(end) || holds_together(e, s) || holds_together(end, last->op_next))
        return nullptr;   // control runs on behind the block, or the block belongs to its neighbours
    opt_fired("J16", CNT_MOTIONS, g);
    opt_count(CNT_JUMPS_TO_NEXT);
    op_t *where = g;
    bool whole = true;   // none of the ends of blocks moves
    for (op_t *op = b, *behind = last->op_next, *next; op != behind; op = next) {
        next = op->op_next;
        whole &= !label_begins(op, "save");
        edit_move(op, where);
        where = op;
    }
    op_t *next = where->op_next;
    edit_delete(g);
    index_moved(b, last);
    if (!whole)
        forget_ends_of_blocks();
    st.sized = false;
    return next;
}

// The rules of a node in the order in which they are tried. J1 leaves its node to those behind it. What a skip may pass over
// has fewer of them: it can't go, and control comes to what stands behind it.
using jump_rule_t = op_t *(op_t *op);
static jump_rule_t *const test_rules[] = {j2, j3, j4, j5, j6, j7, j8}, *const skipped_test_rules[] = {j3, j4},
                          *const branch_rules[] = {j9}, *const return_rules[] = {j1},
                          *const goto_rules[] = {j1, j10, j11, j12, j13, j14, j16, tails_j17, tails_j18, tails_j19},
                          *const skipped_goto_rules[] = {j11, j12, j13, j15};

static std::span<jump_rule_t *const> rules_of(const op_t *op)
{
    using rules_t = std::span<jump_rule_t *const>;
    switch (op->op_type) {
    case T_BTFSC: return op_may_not_run(op) ? rules_t(skipped_test_rules) : rules_t(test_rules);
    case T_BCC: return branch_rules;
    case T_RETURN:
    case T_RETLW: return op_may_not_run(op) ? rules_t() : rules_t(return_rules);
    case T_GOTO: return op_may_not_run(op) ? rules_t(skipped_goto_rules) : rules_t(goto_rules);
    default: return {};
    }
}

static void delete_leading_dead_code(code_list_t *list)
{
    for (;;) {
        op_t *op = list->head.op_next;
        if (op->op_type == 0 || (op->op_flags & OPF_MARK) || !op_free(op))
            return;
        if (op->op_type == T_ORG) {
            reach_mark(op);
        } else {
            opt_fired("leading dead code", CNT_UNREACHABLE, op);
            edit_delete(op);
        }
    }
}

void jump_walk(symbol_t *psect)
{
    code_list_t *list = psect->s_psect->p_code;
    st.psect = psect;
    st.sized = false;
    index_open(psect);
    delete_leading_dead_code(list);
    for (op_t *op = list->head.op_next; op->op_type != 0 && loopguard_next(st.guard);) {
        op_t *next = nullptr;
        if (op_free(op))
            for (jump_rule_t *rule : rules_of(op))
                if ((next = rule(op)))
                    break;
        op = next ? next : op_step(op);
    }
    index_close();
    forget_ends_of_blocks();
}

unsigned jump_delete_dead_chains(symbol_t *psect, bool backward)
{
    code_list_t *list = psect->s_psect->p_code;
    unsigned gone = 0;
    for (op_t *op = backward ? list->tail.op_prev : list->head.op_next, *next; op->op_type != 0; op = next) {
        op_t *before = op->op_prev;
        next = backward ? before : op->op_next;
        if (!label_is_unused(op) || !list_delete_label(op))
            continue;
        gone++;
        if (!op_is_transfer(before) || !op_free(before) || op_may_not_run(before))
            continue;
        j1(before);
        next = backward ? before : before->op_next;
    }
    return gone;
}
