// Two runs of instructions are compared backward, from a `goto` and from the place that it leads to (J17), or from two gotos
// to one place (J18, J19). One copy then becomes a jump into the other.
//
// J18 makes nothing that J12 takes back, or the two would go on for ever.
#include "optim/tails.h"

#include <algorithm>

#include "code/ops.h"
#include "common/stringcache.h"
#include "optim/edit.h"
#include "optim/index.h"
#include "optim/node.h"
#include "optim/report.h"
#include "options.h"

bool codecov_seen, opt_plain_search;

// In code that repeats itself all the way back each comparison would go back to its beginning. A part of a tail is a tail, so
// one has a greatest length, and the rivals of a `goto` share a number of pairs that they may be compared by. Where tails are
// long and no rule takes them, in thousands of blocks of the same few instructions, that is still too much for each `goto`: so
// pairs that lead to nothing are paid from what the run has for them, to which each `goto` adds a little. Ordinary programs
// compare less than one such pair for each line.
constexpr int64_t LONGEST_TAIL = 200, MOST_PAIRS = 2000, PAIRS_A_GOTO = 20, PAIRS_AT_FIRST = 100'000;
static int64_t pairs_left = PAIRS_AT_FIRST;

// What matched last is the beginning of the tail.
struct tail_t {
    op_t *a, *b;
    int64_t length;
};

static tail_t compare_tails(op_t *g, op_t *c, bool skip_labels)
{
    tail_t t = {};
    op_t *a = index_before(g, skip_labels), *b = index_before(c, skip_labels);
    while (t.length < LONGEST_TAIL && a != b && a != c && b != g && op_same(a, b) && !op_writes_pc(a) &&
           a->op_type != T_CALL && op_free(a) && !((a->op_flags ^ b->op_flags) & OPF_VOLATILE)) {
        t.a = a;
        t.b = b;
        t.length++;
        a = index_before(a, skip_labels);
        b = index_before(b, skip_labels);
    }
    return t;
}

// The tail at t.a becomes a jump to the one at t.b. Returns where the walk goes on.
static op_t *merge(opt_rule_t rule, const tail_t &t, bool count_deleted)
{
    opt_fired(rule, CNT_COMMON, t.a);
    op_t *jump = edit_goto_before(t.a, edit_label_before(t.b));
    edit_delete_behind(jump, op_ends_dead_code, count_deleted ? rule : NO_RULE, CNT_UNREACHABLE);
    return t.length < LONGEST_TAIL ? jump->op_next : jump;   // there may be more of it
}

// A tail before a goto, and before the label that it leads to
op_t *tails_j17(op_t *g)
{
    if (codecov_seen || !op_is_simple(g))
        return nullptr;
    op_t *label = g->op_opnd1.opnd_value.v_sym->s_defop;
    if (!label)
        return nullptr;
    const tail_t t = compare_tails(g, label, false);
    return t.length > 0 && !op_may_not_run(t.a) ? merge("J17", t, true) : nullptr;
}

// Whether the tail at the other goto may take over from the one before `g`.
static bool j18_accepts(const tail_t &t)
{
    if (t.b->op_type == T_GOTO)
        return false;
    const op_t *p = t.a->op_prev;
    if (p->op_type == T_GOTO && op_landing(p) == t.b)
        return false;
    if (op_remark(t.a) && cache_starts_with(op_remark(t.a), ";#"))
        return false;
    // J12 would make a return of the new jump.
    return !op_is_return(t.b) || (op_is_simple(t.a) && (opt.errata_mask & ERRATA_NOPS));
}

// The tail before a rival that may take over from the one before `g`, or one of length 0.
static tail_t rival_tail(op_t *g, op_t *c, bool skip_labels, bool (*accepts)(const tail_t &t), int64_t *pairs)
{
    const tail_t t = op_same(g, c) ? compare_tails(g, c, skip_labels) : tail_t{};
    *pairs += t.length + 1;
    return t.length > 0 && !op_may_not_run(t.a) && accepts(t) ? t : tail_t{};
}

static tail_t plain_search(op_t *g, uint64_t from, bool skip_labels, bool (*accepts)(const tail_t &t))
{
    int64_t pairs = 0;
    for (op_t *c = g->op_psect->s_psect->p_code->head.op_next; c->op_type != 0; c = c->op_next)
        if (c != g && c->op_type == T_GOTO && c->op_order > from)
            if (const tail_t t = rival_tail(g, c, skip_labels, accepts, &pairs); t.length > 0)
                return t;
    return {};
}

// The tail before the first rival behind the position `from` that has one which `accepts` takes, or one of length 0.
static tail_t best_rival(op_t *g, uint64_t from, bool skip_labels, bool (*accepts)(const tail_t &t))
{
    if (opt_plain_search)
        return plain_search(g, from, skip_labels, accepts);
    tail_t best = {};
    rivals_t rivals = index_rivals(g, from);
    int64_t pairs = 0;
    pairs_left += PAIRS_A_GOTO;
    const int64_t most = std::min(MOST_PAIRS, pairs_left);
    for (op_t *c; pairs < most && (c = index_next(&rivals));) {
        const tail_t t = rival_tail(g, c, skip_labels, accepts, &pairs);
        if (t.length > 0) {
            best = t;
            rivals.order = c->op_order;
        }
    }
    pairs_left -= pairs - best.length;   // the last rival may leave a debt
    return best;
}

// A tail before a goto, and before another goto to the same place
op_t *tails_j18(op_t *g)
{
    if (codecov_seen)
        return nullptr;
    const tail_t t = best_rival(g, 0, true, j18_accepts);
    return t.length > 0 ? merge("J18", t, false) : nullptr;
}

// Whether control falls into `op`: going back, a label or the list's head comes before an unconditional transfer. With
// `or_skipped`, a transfer that a skip may pass over is enough.
static bool falls_into(const op_t *op, bool or_skipped)
{
    for (op = op->op_prev;; op = op->op_prev) {
        if (op->op_type == 0 || op->op_type == T_NAME)
            return true;
        if (op_is_transfer(op) && !op_may_not_run(op))
            return false;
        if (op_is_transfer(op) && or_skipped)
            return true;
    }
}

static bool j19_accepts(const tail_t &t) { return falls_into(t.a, false) && falls_into(t.b, true); }

// The same with a goto further down, label by label
op_t *tails_j19(op_t *g)
{
    if (g->op_prev->op_type == T_NAME)
        return nullptr;
    const tail_t t = best_rival(g, g->op_order, false, j19_accepts);
    return t.length > 0 ? merge("J19", t, true) : nullptr;
}
