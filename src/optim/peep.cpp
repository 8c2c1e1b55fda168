// The peephole stage: one walk forward over a code list that knows what the registers hold and replaces instructions that
// this knowledge, or the fact that nobody needs a result, shows to be idle or longer than necessary.
//
// Each kind of node has a section: a function that tries the rules of the kind in their order and, when none fires, does
// the work that keeps the knowledge true. A rule is a function named like M1, whose first lines are its pattern and
// conditions; the letter stands for the kind: M movf, F movff, B bit test, D increment, A and G arithmetic into W and
// into a file register, L literal arithmetic, R return, C call, W movlw, K movlb, V movwf, T table read. A rule tells
// `opt_fired` before it edits.
//
// `skipped` says that a skip stands before the node, so that it may not run. It is kept apart from the nodes and survives
// labels and directives. What a node that may not run tells about the machine isn't learned, and what it may change is
// forgotten.
//
// Behind every section `reg_side_effects` ends knowledge that the node ends in ways its section doesn't look at: a file
// instruction whose register happens to be W, status or the bank register, an indirect write that may reach any register,
// instructions with registers of their own.
//
// What may bite: rules delete and move the nodes behind the current one, which is where the walk goes on. They do so with
// `drop` and `move_behind`, which take care of it.
#include "optim/peep.h"

#include <cstring>

#include "code/sfrop.h"
#include "optim/changes.h"
#include "optim/edit.h"
#include "optim/effects.h"
#include "optim/known.h"
#include "optim/labels.h"
#include "optim/live.h"
#include "optim/node.h"
#include "optim/pointers.h"
#include "optim/report.h"
#include "optim/stack.h"
#include "optim/templates.h"

constexpr int RO = CNT_REDUNDANT_OPS, SJ = CNT_SKIPS_OVER, SA = CNT_ADDRESSES, JJ = CNT_JUMPS_TO_JUMPS;
constexpr int64_t TABLAT_ADDRESS = 0xFF5, STATUS_IN_OLD_BANK = 3;

bool opt_late;

static struct {
    op_t *next;     // where the walk goes on
    bool skipped;   // the current node may not run
} walk;

// Questions.

static bool dead(reg_t r, const op_t *n) { return !nxtuse(r, n->op_next, n, n); }
static bool dead2(reg_t r, const op_t *n) { return !nxtuse(r, n->op_next->op_next, n, n); }   // behind the next node
static bool dead_zn(const op_t *n) { return dead(REG_Z, n) && dead(REG_N, n); }

static bool is_plain(const opnd_t *o, int64_t k) { return o->opnd_value.v_rtype == RT_CONST && o->opnd_value.v_offs == k; }
static bool is(const op_t *op, token_t type, uint16_t subop) { return op->op_type == type && op->op_subop == subop; }
static bool to_w(const op_t *op) { return op->op_dest == DEST_W; }

// A test of bit `bit` of status.
static bool tests_status(const op_t *op, int64_t bit)
{
    return op->op_type == T_BTFSC && sfr_isStatus(&op->op_opnd1) && sfr_isCertain(&op->op_opnd1) &&
           is_plain(op_opnd2(op), bit);
}

// Whether the operand is a register named by a number or a symbol. One that is written as a symbol XOR the bank of a
// parameter area becomes the symbol.
static bool opnd_plain_reg(opnd_t *o)
{
    value_t *v = &o->opnd_value;
    if (v->v_rtype == RT_XOR && v->v_offs == 0 && value_left(v)->v_rtype == RT_SYM && value_right(v)->v_rtype == RT_AND) {
        const value_t *area = value_right(v), *p = value_left(area), *mask = value_right(area);
        if (area->v_offs == 0 && mask->v_rtype == RT_CONST && mask->v_offs == 0xFF00 && p->v_rtype == RT_SYM &&
            strstr(p->v_sym->s_name, "__Lparam"))
            *v = *value_left(v);
    }
    return o->opnd_kind == OPND_DATA && (v->v_rtype == RT_CONST || v->v_rtype == RT_SYM);
}

// Whether the operand of `op` can stand in a movff as it is.
static bool names_whole_register(op_t *op)
{
    if ((op->op_flags & OPF_INDEXED) || !reg_is_whole(&op->op_opnd1))
        return false;
    list_touch(op->op_psect);   // the operand may get another form
    return opnd_plain_reg(&op->op_opnd1);
}

// Whether both are sure to be two registers.
static bool are_apart(const opnd_t *a, const opnd_t *b) { return place_apart(reg_place(a), reg_place(b)); }

static bool may_be_w_or_status(const opnd_t *o) { return sfr_isWreg(o) || sfr_isStatus(o) || pointer_may_be_core(o); }

// Whether Z and N describe W already: going back, an instruction that sets both by W comes before any that may change one of
// the three.
static bool w_flags_valid(const op_t *n)
{
    for (const op_t *op = n->op_prev;; op = op->op_prev) {
        switch (op->op_type) {
        case T_SUBWF:
        case T_MOVF:
        case T_ANDWF:
        case T_INCF:
        case T_ADDWF: return to_w(op) && !op_may_not_run(op);
        case T_ADDLW: return op->op_subop != TPL_MULLW && !op_may_not_run(op);
        case T_SWAPF:
        case T_DECFSZ:
            if (to_w(op) || may_be_w_or_status(&op->op_opnd1))
                return false;
            break;
        case T_NOP:
            if (op->op_subop == TPL_CLRW)   // which leaves N alone
                return !op_may_not_run(op) && dead(REG_N, n);
            if (op->op_subop == TPL_DAW)
                return false;
            break;
        case T_MOVWF:
            if (may_be_w_or_status(&op->op_opnd1))
                return false;
            break;
        case T_MOVLB:
        case T_TRAP:
        case T_DBOUT:
        case T_SETCNT: break;
        default: return false;
        }
    }
}

// Whether the node may not run; the one behind it is sure to.
static bool take_skipped()
{
    const bool skipped = walk.skipped;
    walk.skipped = false;
    return skipped;
}

// Editing.

static void drop(op_t *op)
{
    if (op == walk.next)
        walk.next = op->op_next;
    edit_delete(op);
}

static void move_behind(op_t *where, op_t *op)
{
    if (op == walk.next)
        walk.next = op->op_next;
    edit_move(op, where);
}

// The two ways in which most rules end.

static bool deletes(opt_rule_t rule, int counter, op_t *n)
{
    opt_fired(rule, counter, n);
    drop(n);
    return true;
}

static bool becomes(opt_rule_t rule, int counter, op_t *n, token_t type, uint16_t subop)
{
    opt_fired(rule, counter, n);
    n->op_type = type;
    n->op_subop = subop;
    return true;
}

static void keep_volatile(op_t *to, const op_t *from) { to->op_flags |= from->op_flags & OPF_VOLATILE; }

struct peep_rule_t {
    bool (*fires)(op_t *n);
    bool fixed_too = false;   // the rule leaves n itself alone, so it is tried on nodes that may not change as well
};

// Tries rules in order. True if one has fired.
template <size_t COUNT> static bool tried(const peep_rule_t (&rules)[COUNT], op_t *n)
{
    const bool is_free = op_free(n);
    for (const peep_rule_t &rule : rules)
        if ((is_free || rule.fixed_too) && rule.fires(n))
            return true;
    return false;
}

// M: movf into W.

// movf x,w / movff wreg,y
static bool m1(op_t *n)
{
    op_t *m = n->op_next;
    if (m->op_type != T_MOVFF || !sfr_isWreg(&m->op_opnd1) || sfr_isPlusw(op_opnd2(m)) || !dead_zn(n) || !dead2(REG_W, n) ||
        !names_whole_register(n))
        return false;
    opt_fired("M1", RO, n);
    m->op_opnd1 = n->op_opnd1;
    m->op_opnd1.opnd_access = ACCESS_UNSET;
    keep_volatile(m, n);
    drop(n);
    reg_forget_w();
    return true;
}

// movf x,w / xorlw 0xFF
static bool m2(op_t *n)
{
    op_t *m = n->op_next;
    if (!is(m, T_ADDLW, TPL_XORLW) || !is_plain(&m->op_opnd1, 0xFF) || !op_free(m))
        return false;
    becomes("M2", RO, n, T_INCF, TPL_COMF);
    drop(m);
    reg_forget_w();
    return true;
}

// movf x,w / andwf y,w, where W holds y
static bool m3(op_t *n)
{
    op_t *m = n->op_next;
    if (m->op_type != T_ANDWF || !to_w(m) || op_volatile(n) || op_volatile(m) || !reg_equals_w(&m->op_opnd1) ||
        (n->op_flags & OPF_INDEXED))
        return false;
    opt_fired("M3", RO, n);
    m->op_opnd1 = n->op_opnd1;
    m->op_access = n->op_access;
    drop(n);
    reg_forget_w();
    return true;
}

constexpr peep_rule_t movf_rules[] = {{m1}, {m2}, {m3}};

static void on_movf(op_t *n)
{
    const bool skipped = take_skipped();
    if (!to_w(n) || (!skipped && tried(movf_rules, n)))
        return;
    reg_forget_w();
    if (!skipped)
        reg_load_w(&n->op_opnd1);
}

// F: movff.

// movff x,x
static bool f1(op_t *n)
{
    return !op_volatile(n) && place_same(place_of(&n->op_opnd1), place_of(op_opnd2(n))) && deletes("F1", RO, n);
}

// `n` takes over where the next node, which moves W, moves it to.
static bool moves_on(opt_rule_t rule, op_t *n, const opnd_t *to)
{
    op_t *m = n->op_next;
    opt_fired(rule, RO, n);
    opnd_t *o = op_opnd2_make(n);
    *o = *to;
    o->opnd_access = ACCESS_UNSET;
    keep_volatile(n, m);
    drop(m);
    reg_forget_w();
    reg_written(op_opnd2(n));
    return true;
}

// movff x,wreg / movwf y
static bool f2(op_t *n)
{
    op_t *m = n->op_next;
    return sfr_isWreg(op_opnd2(n)) && m->op_type == T_MOVWF && op_free(m) && !sfr_isPlusw(&m->op_opnd1) && dead2(REG_W, n) &&
           names_whole_register(m) && moves_on("F2", n, &m->op_opnd1);
}

// movff x,wreg / movff wreg,y
static bool f3(op_t *n)
{
    op_t *m = n->op_next;
    return sfr_isWreg(op_opnd2(n)) && m->op_type == T_MOVFF && op_free(m) && sfr_isWreg(&m->op_opnd1) &&
           !sfr_isPlusw(op_opnd2(m)) && dead2(REG_W, n) && moves_on("F3", n, op_opnd2(m));
}

// movff x,wreg, where W holds x
static bool f4(op_t *n)
{
    return sfr_isWreg(op_opnd2(n)) && !op_volatile(n) && reg_equals_w(&n->op_opnd1) && deletes("F4", RO, n);
}

// movff x,wreg, with x in the access bank
static bool f5(op_t *n)
{
    if (depends_on_bank(&n->op_opnd1) || !dead_zn(n))
        return false;
    becomes("F5", RO, n, T_MOVF, TPL_MOVF);
    n->op_dest = DEST_W;
    n->op_access = ACCESS_C;
    n->op_opnd1.opnd_access = ACCESS_C;
    n->op_second = nullptr;
    reg_forget_w();
    return true;
}

constexpr peep_rule_t movff_rules[] = {{f1}, {f2}, {f3}, {f4}}, movff_last_rules[] = {{f5}};

static void on_movff(op_t *n)
{
    const opnd_t *x = &n->op_opnd1, *y = op_opnd2(n);
    if (sfr_isIndirect(&reg.w_reg) && sfr_fileSelect(&reg.w_reg) == sfr_fileSelect(y))
        reg_forget_w();
    const bool skipped = take_skipped();
    if (!skipped && tried(movff_rules, n))
        return;
    if (!sfr_isWreg(y)) {
        reg_written(y);
        return;
    }
    reg_forget_w();
    if (skipped)
        return;
    reg_load_w(x);
    tried(movff_last_rules, n);
}

// B: bit tests. Between them B2 to B5 turn an if-else whose arms set the same thing into one arm that always runs and the
// other that overrides it.

// btfsc b / goto L1 / arm / jump L2 / L1: other / L2:
struct if_else_t {
    op_t *g, *arm, *jump, *other;
};

static bool find_if_else(op_t *b, uint16_t jump_type, if_else_t *s)
{
    s->g = b->op_next;
    s->arm = s->g->op_next;
    s->other = op_landing(s->g);
    if (s->arm->op_type == 0 || !s->other || s->other->op_type == 0)
        return false;
    s->jump = s->arm->op_next;
    return s->jump->op_type == jump_type && op_landing(s->jump) == following(s->other) && op_free(s->g) && op_free(s->arm) &&
           op_free(s->other);
}

static bool override_arm(opt_rule_t rule, op_t *b, const if_else_t &s)
{
    opt_fired(rule, SJ, b);
    drop(s.g);
    move_behind(b, s.other);
    move_behind(b->op_prev, s.arm);
    walk.next = b->op_next;
    return true;
}

static bool is_idle_test(const op_t *b, const op_t *g)
{
    return following(g) == op_landing(g) && op_free(g) && !op_volatile(b);
}

// btfsc b / goto L / L:. The one before it may be such a test now, and then that before, which would take a walk each.
static bool b1(op_t *b)
{
    if (!is_idle_test(b, b->op_next))
        return false;
    for (op_t *g = b->op_next, *before; b; b = before) {
        before = b->op_prev;
        opt_fired("B1", SJ, b);
        drop(g);
        drop(b);
        g = before;
        before = g->op_prev;
        if (g->op_type != T_GOTO || before->op_type != T_BTFSC || !op_free(before) || op_may_not_run(before) ||
            !is_idle_test(before, g))
            before = nullptr;
    }
    return true;
}

static bool is_other_bit(const opnd_t *a, const opnd_t *b)
{
    const value_t &i = a->opnd_value, &j = b->opnd_value;
    return i.v_rtype == RT_CONST && j.v_rtype == RT_CONST && i.v_offs != j.v_offs;
}

// Whether `b` tests the same, and its register, after `write` has come to stand before it.
static bool may_precede(const op_t *write, const op_t *b)
{
    const opnd_t *o = op_written(write), *tested = &b->op_opnd1;
    return !sfr_isPc(o) && !(sfr_isBsr(o) && depends_on_bank(tested)) && !sfr_isIndirect(tested) &&
           (are_apart(o, tested) ||
            (write->op_type == T_BCF && !op_volatile(b) && is_other_bit(op_opnd2(write), op_opnd2(b))));
}

// The arms are bcf p and bsf p.
static bool b2(op_t *b)
{
    if_else_t s;
    return find_if_else(b, T_BRA, &s) && s.arm->op_type == T_BCF && s.other->op_type == T_BCF && !op_volatile(s.arm) &&
           !op_volatile(s.other) && (s.arm->op_subop ^ s.other->op_subop) == TPL_INVERT &&
           op_same_operands(s.arm, s.other) && may_precede(s.arm, b) && label_only_from(s.other->op_prev, s.jump) &&
           override_arm("B2", b, s);
}

// The arms are movlw.
static bool b3(op_t *b)
{
    if_else_t s;
    return find_if_else(b, T_GOTO, &s) && s.arm->op_type == T_MOVLW && s.other->op_type == T_MOVLW &&
           !sfr_isWreg(&b->op_opnd1) && !sfr_isPlusw(&b->op_opnd1) && label_only_from(s.other->op_prev, s.jump) &&
           override_arm("B3", b, s);
}

// The arms write p, the second one without regard to what it holds.
static bool b4(op_t *b)
{
    if_else_t s;
    return find_if_else(b, T_GOTO, &s) && (s.arm->op_type == T_MOVWF || (s.arm->op_type == T_SWAPF && !to_w(s.arm))) &&
           (s.other->op_type == T_MOVWF || (s.other->op_type == T_CLRF && s.other->op_subop != TPL_NEGF)) &&
           op_same_operands(s.arm, s.other) && may_precede(s.arm, b) && !sfr_isWreg(&s.arm->op_opnd1) &&
           !op_volatile(s.arm) && !op_volatile(s.other) && !sfr_isWreg(&b->op_opnd1) &&
           label_only_from(s.other->op_prev, s.jump) && override_arm("B4", b, s);
}

// Whether the operand is file select `i` itself or an access through it.
static bool depends_on_select(const opnd_t *o, int64_t i)
{
    constexpr uint32_t high[] = {SFR_FSR0H, SFR_FSR1H, SFR_FSR2H};
    const uint32_t id = sfr_idOf(o);
    return sfr_fileSelect(o) == i + 1 || (i >= 0 && i < 3 && (id == high[i] || id == high[i] + 1));
}

// The arms load the same file select.
static bool b5(op_t *b)
{
    if_else_t s;
    if (!find_if_else(b, T_GOTO, &s) || s.arm->op_type != T_LFSR || s.other->op_type != T_LFSR ||
        s.arm->op_subop != s.other->op_subop || depends_on_select(&b->op_opnd1, s.arm->op_subop >> 4 & 3))
        return false;
    op_t *label = s.other->op_prev;
    if (label->op_type != T_NAME || label->op_prev != s.jump)
        return false;
    opt_fired("B5", SJ, b);
    drop(s.g);
    move_behind(b->op_prev, s.arm);
    move_behind(b, label);
    move_behind(label, s.other);
    walk.next = b->op_next;
    return true;
}

static bool test_becomes_branch(opt_rule_t rule, op_t *b, int64_t bit, uint16_t if_set)
{
    op_t *g = b->op_next;
    if (!opt_late || !tests_status(b, bit) || !op_free(g))
        return false;
    opt_fired(rule, SJ, b);
    g->op_type = T_BCC;
    g->op_subop = static_cast<uint16_t>(if_set + (b->op_subop == TPL_BTFSS ? 0x100 : 0));   // bnz behind bz, bnc behind bc
    op_add_ref(g, op_target(g));
    drop(b);
    return true;
}

// btfsc status,2 / goto L
static bool b6(op_t *b) { return test_becomes_branch("B6", b, 2, TPL_BZ); }

// btfsc status,0 / goto L
static bool b7(op_t *b) { return test_becomes_branch("B7", b, 0, TPL_BC); }

// btfsc b / t / u / t, t a transfer. A conditional branch u may be encoded as two instructions, of which a skip skips one.
static bool b8(op_t *b)
{
    op_t *t = b->op_next, *u = t->op_next;
    if (!op_is_transfer(t) || !op_free(t) || !op_is_code(u) || u->op_type == T_BCC || !op_same(u->op_next, t))
        return false;
    opt_fired("B8", RO, b);
    b->op_subop ^= TPL_INVERT;
    drop(t);
    return true;
}

constexpr peep_rule_t test_goto_rules[] = {{b1}, {b2, true}, {b3, true}, {b4, true}, {b5}, {b6}, {b7}};
constexpr peep_rule_t test_rules[] = {{b8}};

static void on_btfsc(op_t *b)
{
    reg_set_carry(-1);
    if (walk.skipped)
        return;
    walk.skipped = true;
    const op_t *g = b->op_next;
    if (g->op_type == T_GOTO && !op_target(g))
        return;
    if (g->op_type != T_GOTO || !tried(test_goto_rules, b))
        tried(test_rules, b);
}

// D: increment and decrement.

static void on_decfsz(op_t *n)
{
    reg_set_carry(-1);
    if (to_w(n))
        reg_forget_w();
    else
        reg_written(&n->op_opnd1);
    walk.skipped = true;
}

// decf x / btfss status,2. Neither what the skip skips nor what it leads to may need Z.
static bool d1(op_t *n)
{
    op_t *m = n->op_next;
    if (n->op_subop == TPL_COMF || walk.skipped || op_may_not_run(n) || !tests_status(m, 2) || !op_free(m) ||
        !dead(REG_C, n) || !dead(REG_N, n) || !dead2(REG_Z, n) || nxtuse(REG_Z, op_target(m), n, n))
        return false;
    const bool if_set = m->op_subop == TPL_BTFSS;
    becomes("D1", SJ, n, T_DECFSZ,
            n->op_subop == TPL_DECF ? if_set ? TPL_DECFSZ : TPL_DCFSNZ
            : if_set                ? TPL_INCFSZ
                                    : TPL_INFSNZ);
    drop(m);
    on_decfsz(n);
    return true;
}

// A: arithmetic into W.

static bool reads_carry(const op_t *n)
{
    return n->op_subop == TPL_ADDWFC || n->op_subop == TPL_SUBFWB || n->op_subop == TPL_SUBWFB;
}

// andwf x,w, W = 255
static bool a1(op_t *n)
{
    if (!is(n, T_ANDWF, TPL_ANDWF) || !reg_w_is(255) || op_volatile(n))
        return false;
    walk.skipped = false;
    becomes("A1", RO, n, T_MOVF, TPL_MOVF);
    reg_forget_w();
    return true;
}

// andwf x,w, W = 0
static bool a2(op_t *n)
{
    return is(n, T_ANDWF, TPL_ANDWF) && !walk.skipped && reg_w_is(0) && !op_volatile(n) && dead_zn(n) &&
           deletes("A2", RO, n);
}

// A3 and A5: nothing is done to what sets a carry that is needed. Where the rules behind don't apply either, as W is needed,
// that is so without the long search.
static bool a3_a5(op_t *n)
{
    const bool steps = n->op_type == T_INCF && n->op_subop != TPL_COMF;
    if ((!steps && n->op_type != T_ADDWF && n->op_type != T_SUBWF) || (!reg_w_is(0) && !dead(REG_W, n)) || dead(REG_C, n))
        return false;
    walk.skipped = false;
    reg_forget_w();
    carry_track(n);
    return true;
}

// addwf x,w and its like, W = 0 and of no use: what is left is x in the flags
static bool a4(op_t *n)
{
    const bool adds = n->op_type == T_ADDWF || n->op_type == T_SUBWF || (n->op_type == T_ANDWF && n->op_subop != TPL_ANDWF);
    if (!adds || !reg_w_is(0) || sfr_isIndirect(&n->op_opnd1) || !dead(REG_W, n) || (reads_carry(n) && !dead_zn(n)))
        return false;
    walk.skipped = false;
    becomes("A4", SA, n, T_MOVF, TPL_MOVF);
    reg_forget_w();
    return true;
}

static bool is_idle(const op_t *n) { return !op_volatile(n) && dead(REG_W, n) && dead_zn(n); }

// btfsc p / n, where nothing of n is needed
static bool a6(op_t *n)
{
    op_t *p = n->op_prev;
    if (p->op_type != T_BTFSC || !op_free(p) || op_volatile(p) || op_may_not_run(p) || !is_idle(n))
        return false;
    walk.skipped = false;
    opt_fired("A6", RO, n);
    drop(p);
    drop(n);
    return true;
}

// The same without a skip. It doesn't count as a change.
static bool a7(op_t *n)
{
    if (walk.skipped || op_may_not_run(n) || !is_idle(n))
        return false;
    const bool changed = opt_changed;
    opt_fired("A7", CNT_NONE, n);
    opt_changed = changed;
    drop(n);
    return true;
}

// G: arithmetic into a file register.

// andwf x,f, W = 255
static bool g1(op_t *n)
{
    return is(n, T_ANDWF, TPL_ANDWF) && reg_w_is(255) && !op_volatile(n) && dead_zn(n) && deletes("G1", RO, n);
}

// andwf x,f, W = 0
static bool g2(op_t *n)
{
    return is(n, T_ANDWF, TPL_ANDWF) && reg_w_is(0) && !op_volatile(n) && dead_zn(n) &&
           becomes("G2", RO, n, T_CLRF, TPL_CLRF);
}

// xorwf x,f, W = 255
static bool g3(op_t *n)
{
    return is(n, T_ANDWF, TPL_XORWF) && reg_w_is(255) && !op_volatile(n) && becomes("G3", RO, n, T_INCF, TPL_COMF);
}

// iorwf x,f or xorwf x,f, W = 0
static bool g4(op_t *n)
{
    return n->op_type == T_ANDWF && n->op_subop != TPL_ANDWF && reg_w_is(0) && !op_volatile(n) && dead_zn(n) &&
           deletes("G4", RO, n);
}

// addwfc x,f, no carry, W = 0
static bool g5(op_t *n)
{
    if (!is(n, T_ADDWF, TPL_ADDWFC) || reg.carry != 0 || !reg_w_is(0) || op_volatile(n) || !dead_zn(n))
        return false;
    reg_written(&n->op_opnd1);
    return deletes("G5", RO, n);
}

// addwfc x,f, no carry
static bool g6(op_t *n)
{
    if (!is(n, T_ADDWF, TPL_ADDWFC) || reg.carry != 0)
        return false;
    becomes("G6", RO, n, T_ADDWF, TPL_ADDWF);
    reg_set_carry(reg_w_is(0) ? 0 : -1);
    return true;
}

static bool adds_or_subtracts(const op_t *n) { return is(n, T_ADDWF, TPL_ADDWF) || is(n, T_SUBWF, TPL_SUBWF); }

// addwf x,f or subwf x,f, W = k: one step up or down.
static bool steps(opt_rule_t rule, op_t *n, int64_t k, uint16_t if_add, uint16_t if_subtract)
{
    if (!adds_or_subtracts(n) || !reg_w_is(k))
        return false;
    becomes(rule, RO, n, T_INCF, n->op_type == T_ADDWF ? if_add : if_subtract);
    carry_track(n);
    return true;
}

static bool g7(op_t *n) { return steps("G7", n, 1, TPL_INCF, TPL_DECF); }
static bool g8(op_t *n) { return steps("G8", n, 255, TPL_DECF, TPL_INCF); }

// addwf x,f or subwf x,f, W = 0: what is left is the carry
static bool g9(op_t *n)
{
    if (!adds_or_subtracts(n) || !reg_w_is(0) || op_volatile(n) || !dead_zn(n))
        return false;
    opt_fired("G9", RO, n);
    reg_set_carry(n->op_type == T_SUBWF);
    op_t *bit = op_insert_after(n, op_new());
    change_add(bit);
    bit->op_type = T_BCF;
    bit->op_subop = reg.carry ? TPL_BSF : TPL_BCF;
    bit->op_opnd1 = {OPND_DATA, ACCESS_C, value_const(sfr_addrOf(SFR_STATUS))};
    *op_opnd2_make(bit) = {OPND_BIT, ACCESS_UNSET, value_const(0)};
    bit->op_access = ACCESS_C;
    bit->op_flags |= n->op_flags & OPF_MARK;   // it is as reachable
    op_take_position(bit, n);
    drop(n);
    reg_forget_w();
    return true;
}

constexpr peep_rule_t into_w_rules[] = {{a1}, {a2}, {a3_a5, true}, {a4}, {a6}, {a7}};
constexpr peep_rule_t into_file_rules[] = {{g1}, {g2}, {g3}, {g4}, {g5}, {g6}, {g7}, {g8}, {g9}};

static void on_arithmetic(op_t *n)
{
    if (to_w(n)) {
        if (tried(into_w_rules, n))
            return;
        walk.skipped = false;
        carry_track(n);
        reg_forget_w();
        return;
    }
    const uint32_t id = n->op_id;
    if (take_skipped() || !tried(into_file_rules, n))
        carry_track(n);
    if (n->op_id == id)
        reg_written(&n->op_opnd1);
}

constexpr peep_rule_t incf_rules[] = {{d1}};

static void on_incf(op_t *n)
{
    if (!tried(incf_rules, n))
        on_arithmetic(n);
}

// L: arithmetic with a literal.

// andlw k / andlw k
static bool l1(op_t *n)
{
    return (n->op_subop == TPL_ANDLW || n->op_subop == TPL_IORLW) && op_same(n, following(n)) && deletes("L1", RO, n);
}

// Whether the instruction leaves W as it is, and does no more than set flags that don't matter beside Z and N.
static bool only_tests(const op_t *n)
{
    if (!is_plain(&n->op_opnd1, 0))
        return false;
    return n->op_subop == TPL_IORLW || n->op_subop == TPL_XORLW || (n->op_subop == TPL_ADDLW && dead(REG_C, n));
}

// iorlw 0
static bool l2(op_t *n) { return only_tests(n) && (w_flags_valid(n) || dead_zn(n)) && deletes("L2", RO, n); }

// andlw 0, W = 0
static bool l3(op_t *n)
{
    return n->op_subop == TPL_ANDLW && is_plain(&n->op_opnd1, 0) && reg_w_is(0) && dead_zn(n) && deletes("L3", RO, n);
}

constexpr peep_rule_t addlw_rules[] = {{l1}, {l2}, {l3}};

static void on_addlw(op_t *n)
{
    const bool adds = n->op_subop == TPL_ADDLW;
    if (take_skipped()) {
        if (adds || n->op_subop == TPL_SUBLW)
            reg_set_carry(-1);
        reg_forget_w();
    } else if (tried(addlw_rules, n) || only_tests(n)) {
        return;
    } else if (n->op_subop == TPL_ANDLW && is_plain(&n->op_opnd1, 0)) {
        reg_load_w(&n->op_opnd1);
    } else {
        if (adds && !dead(REG_C, n))
            reg_set_carry(-1);
        else
            carry_track(n);
        reg_forget_w();
    }
}

// R, C: return and call.

// return, W = k
static bool r1(op_t *n)
{
    if (n->op_subop != TPL_RETURN || !reg_w_known())
        return false;
    becomes("R1", RO, n, T_RETLW, TPL_RETLW);
    n->op_opnd1 = {OPND_LIT, ACCESS_UNSET, value_const(reg_w_value())};
    return true;
}

constexpr peep_rule_t return_rules[] = {{r1}};

static void on_return(op_t *n)
{
    tried(return_rules, n);
    walk.skipped = false;
}

// The bit instructions that a compiler puts in front of a return to restore the page of the program counter, on machines
// that have one.
static bool restores_page(const op_t *op)
{
    const value_t *bit = &op_opnd2(op)->opnd_value;
    return op->op_type == T_BCF && is_plain(&op->op_opnd1, STATUS_IN_OLD_BANK) && bit->v_rtype == RT_CONST &&
           bit->v_offs >= 5 && op_free(op) && !op_marked(op);
}

// call f / return
static bool c1(op_t *n)
{
    const op_t *callee = op_target(n);
    if (walk.skipped || (n->op_subop & TPL_FAST) || !callee || !psect_shares(callee->op_psect, n->op_psect) ||
        stack_used_from(callee->op_sym))
        return false;
    op_t *r = n->op_next;
    while (restores_page(r))
        r = r->op_next;
    if (!is(r, T_RETURN, TPL_RETURN) || !op_free(r))
        return false;
    becomes("C1", JJ, n, T_GOTO, 0);
    for (bool last = false; !last; drop(n->op_next))
        last = n->op_next == r;
    return true;
}

constexpr peep_rule_t call_rules[] = {{c1}};

// The callee may change anything.
static void on_rcall(op_t *)
{
    reg_forget_machine();
    walk.skipped = false;
}

static void on_call(op_t *n)
{
    tried(call_rules, n);
    on_rcall(n);
}

// W: movlw.

// movlw k, W = k
static bool w1(op_t *n) { return opnd_same(&n->op_opnd1, &reg.w_lit) && deletes("W1", RO, n); }

// movlw 1 / addwf x. The work on the movlw goes on.
static bool w2(op_t *n)
{
    op_t *m = n->op_next;
    if (is_plain(&n->op_opnd1, 1) && is(m, T_ADDWF, TPL_ADDWF) && op_free(m))
        becomes("W2", RO, m, T_INCF, TPL_INCF);
    return false;
}

// movlw, and W isn't needed
static bool w3(op_t *n) { return dead(REG_W, n) && deletes("W3", RO, n); }

constexpr peep_rule_t movlw_rules[] = {{w1}, {w2, true}, {w3}};

static void on_movlw(op_t *n)
{
    if (take_skipped())
        reg_forget_w();
    else if (!tried(movlw_rules, n))
        reg_load_w(&n->op_opnd1);
}

// K: movlb.

// movlb k, and k is selected
static bool k1(op_t *n)
{
    return !walk.skipped && reg.bank && value_equal(reg.bank, &n->op_opnd1.opnd_value) && deletes("K1", RO, n);
}

// movlb k, and no bank is needed
static bool k2(op_t *n)
{
    if (walk.skipped || !dead(REG_BSR, n))
        return false;
    reg_forget_bank();
    return deletes("K2", RO, n);
}

constexpr peep_rule_t movlb_rules[] = {{k1}, {k2}};

static void on_movlb(op_t *n)
{
    if (tried(movlb_rules, n))
        return;
    const bool skipped = take_skipped();
    reg_select_bank(skipped ? nullptr : &n->op_opnd1.opnd_value);
}

// V: movwf.

// movwf x, where W holds x
static bool v1(op_t *n) { return !op_volatile(n) && reg_equals_w(&n->op_opnd1) && deletes("V1", RO, n); }

// incf x,w / movwf x
static bool v2(op_t *n)
{
    op_t *p = n->op_prev;
    const bool one_access_does = sfr_isIndirect(&n->op_opnd1)
                                     ? sfr_isIn(&n->op_opnd1, sfr_bits(SFR_INDF0, SFR_INDF1, SFR_INDF2)) &&
                                           !pointer_may_be_core(&n->op_opnd1)   // it may be STATUS
                                     : !sfr_isStatus(&n->op_opnd1);
    if ((p->op_type != T_ANDWF && p->op_type != T_INCF && p->op_type != T_ADDWF) || !to_w(p) ||
        !opnd_same(&p->op_opnd1, &n->op_opnd1) || !one_access_does || op_marked(p) || op_marked(n) || op_may_not_run(p) ||
        !dead(REG_W, n))
        return false;
    opt_fired("V2", SA, n);
    p->op_dest = DEST_F;
    drop(n);
    return true;
}

static bool becomes_clear(opt_rule_t rule, op_t *n, uint16_t subop)
{
    becomes(rule, SA, n, T_CLRF, subop);
    n->op_dest = DEST_F;
    return true;
}

// movwf x, W = 0
static bool v3(op_t *n) { return reg_w_is(0) && dead(REG_Z, n) && becomes_clear("V3", n, TPL_CLRF); }

// movwf x, W = 255
static bool v4(op_t *n) { return reg_w_is(255) && becomes_clear("V4", n, TPL_SETF); }

constexpr peep_rule_t movwf_rules[] = {{v1}, {v2}, {v3}, {v4}};

static void on_movwf(op_t *n)
{
    const opnd_t *x = &n->op_opnd1;
    if (take_skipped()) {
        reg_written(x);
        return;
    }
    if (tried(movwf_rules, n))
        return;
    if (sfr_isIndirect(x))
        reg_stored_through(x);
    reg_load_w(x);
}

// T: table reads.

// tblrd* / tblrd*+
static bool t1(op_t *n)
{
    op_t *m = n->op_next;
    if (n->op_subop != TPL_TBLRD || !is(m, T_TBLRD, TPL_TBLRD_POSTINC) || !op_free(m) || op_marked(n) || op_marked(m))
        return false;
    becomes("T1", SJ, n, T_TBLRD, TPL_TBLRD_POSTINC);
    drop(m);
    return true;
}

// tblrd* / clrf tablat
static bool t2(op_t *n)
{
    const op_t *m = n->op_next;
    return n->op_subop == TPL_TBLRD && m->op_type == T_CLRF && m->op_subop != TPL_NEGF && !op_marked(n) &&
           is_plain(&m->op_opnd1, TABLAT_ADDRESS) && sfr_isCertain(&m->op_opnd1) && deletes("T2", SJ, n);
}

// tblrd*+ / tblrd*
static bool t3(op_t *n)
{
    op_t *m = n->op_next;
    if (n->op_subop != TPL_TBLRD_POSTINC || !is(m, T_TBLRD, TPL_TBLRD) || !op_free(m) || op_marked(n) || op_marked(m))
        return false;
    becomes("T3", SJ, n, T_TBLRD, TPL_TBLRD_PREINC);
    drop(m);
    return true;
}

constexpr peep_rule_t tblrd_rules[] = {{t1}, {t2}, {t3}};

static void on_tblrd(op_t *n)
{
    if (!walk.skipped)
        tried(tblrd_rules, n);
}

// Kinds without rules.

static void on_bcf(op_t *n)
{
    const value_t *bit = &op_opnd2(n)->opnd_value;
    if (sfr_isStatus(&n->op_opnd1) && (bit->v_rtype != RT_CONST || bit->v_offs == 0))
        reg_set_carry(bit->v_rtype != RT_CONST || !sfr_isCertain(&n->op_opnd1) ? -1
                      : n->op_subop == TPL_BSF                                 ? 1
                      : n->op_subop == TPL_BCF                                 ? 0
                                                                               : -1);
    walk.skipped = false;
    reg_written(&n->op_opnd1);
}

static void on_other(op_t *) { walk.skipped = false; }

// A word written by hand may be a skip.
static void on_data(op_t *n)
{
    if (n->op_prev->op_type != T_DB)
        walk.skipped = data_may_run(n);
}

static void on_nop(op_t *n)
{
    const bool skipped = take_skipped();
    const opnd_t zero = {OPND_LIT, ACCESS_UNSET, value_const(0)};
    switch (n->op_subop) {
    case TPL_CLRW:
        reg_forget_w();
        if (!skipped)
            reg_load_w(&zero);
        break;
    case TPL_DAW:
        carry_track(n);
        reg_forget_w();
        break;
    }
}

static void on_clrf(op_t *n)
{
    walk.skipped = false;
    carry_track(n);
    reg_written(&n->op_opnd1);
}

static void on_swapf(op_t *n)
{
    if (!to_w(n)) {
        on_clrf(n);
        return;
    }
    walk.skipped = false;
    reg_forget_w();
}

static void on_rlcf(op_t *n)
{
    reg_set_carry(-1);
    on_swapf(n);
}

static void on_cpfseq(op_t *) { walk.skipped = true; }

static void on_lfsr(op_t *)
{
    walk.skipped = false;
    constexpr uint32_t ids[] = {SFR_INDF2, SFR_INDF0, SFR_INDF1};
    for (uint32_t id : ids) {
        const opnd_t through = {OPND_DATA, ACCESS_UNSET, value_const(sfr_addrOf(id))};
        reg_written(&through);
    }
}

// The sections, one for each kind. A kind without work leaves `skipped` and the knowledge as they are, but for side effects.
struct section_t {
    token_t type = T_NONE;
    void (*work)(op_t *n) = nullptr;
};

// clang-format off
constexpr section_t sections[] = {
    {T_MOVF, on_movf}, {T_MOVFF, on_movff}, {T_BTFSC, on_btfsc}, {T_INCF, on_incf}, {T_SUBWF, on_arithmetic},
    {T_ANDWF, on_arithmetic}, {T_ADDWF, on_arithmetic}, {T_ADDLW, on_addlw}, {T_RETURN, on_return}, {T_CALL, on_call},
    {T_RCALL, on_rcall}, {T_MOVLW, on_movlw}, {T_MOVLB, on_movlb}, {T_MOVWF, on_movwf}, {T_TBLRD, on_tblrd}, {T_BCF, on_bcf},
    {T_DB, on_data}, {T_DS, on_data}, {T_RETLW, on_other}, {T_BRA, on_other}, {T_BCC, on_other}, {T_GOTO, on_other},
    {T_NOP, on_nop}, {T_SWAPF, on_swapf}, {T_CLRF, on_clrf}, {T_RLCF, on_rlcf}, {T_DECFSZ, on_decfsz}, {T_CPFSEQ, on_cpfseq},
    {T_LFSR, on_lfsr},
    {T_MULWF}, {T_MOVFFL}, {T_CALLW}, {T_PUSH}, {T_TRET}, {T_DBOUT}, {T_TRAP}, {T_PUSHL}, {T_ADDULNK}, {T_ADDFSR}, {T_SETCNT},
    {T_BANKSEL}, {T_MOVSF}, {T_MOVSS}, {T_MOVSFL}, {T_ORG}, {T_ALIGN}, {T_NAME}, {T_NUMLABEL}, {T_IF}, {T_ELSIF}, {T_ELSE},
    {T_ENDIF}, {T_ENDM}, {T_TITLE}, {T_INCLUDE}, {T_MESSG}, {T_EQU}, {T_SET},
};
// clang-format on
constexpr auto section_of_kind = rows_by_kind(sections);

static void visit(op_t *n)
{
    const uint32_t id = n->op_id;
    const int32_t carry = reg.carry;
    const bool skipped = walk.skipped;
    if (n->op_type < section_of_kind.size() && section_of_kind[n->op_type].work)
        section_of_kind[n->op_type].work(n);
    if (n->op_id == id)
        reg_side_effects(n);
    if (skipped && reg.carry != carry)
        reg_set_carry(-1);
}

void peep_walk(symbol_t *psect)
{
    reg_forget_machine();
    walk.skipped = after_skip(psect->s_psect->p_code->head.op_next);
    for (op_t *n = psect->s_psect->p_code->head.op_next; n->op_type != 0; n = walk.next) {
        walk.next = op_step(n);
        if (n->op_type == T_NAME || n->op_type == T_NUMLABEL || n->op_type == T_ALIGN)
            reg_forget_machine();
        else if (!op_is_silent(n))
            visit(n);
    }
}
