// The jump stage: dead code, skips and jumps that can be shorter, and tails that two places share.
//
// Each rule is a function of its own, J1 to J19, whose first lines are its pattern and conditions. The table at the end
// holds them in the order in which they are tried at a node; the first that applies ends the work on it. A rule returns the
// node at which the walk goes on, or null if it doesn't apply.
//
// J18 and J19 look for another `goto` to the same place with the same instruction before it. Trying all of them would take
// for ever in a program of ten thousand, so they are found through an index. The rules want the first one in the list, so
// nodes carry a number that grows along the list; the numbers have gaps for nodes that are put in later.
//
// Further conditions keep the rules from doing harm or going on for ever: nobody follows jumps round a circle, J18 makes
// nothing that J12 takes back, J16 moves a block only if control neither runs into it nor out of it, and accesses marked
// volatile stay.
//
// What may bite: a rule that re-points a jump has to keep the labels' references true, since unused labels are told by them.
// A new node is marked as reached if the one that it stands for is, or it would go as dead code. And whatever is done to a
// node, the `goto` that follows is entered in the index anew (`touch`).
#include <cstring>
#include <span>

#include "code/layout.h"
#include "code/sfrop.h"
#include "common/alert.h"
#include "common/loopguard.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "optim/optim.h"
#include "optim/templates.h"
#include "options.h"

constexpr uint64_t RUN_STEPS = 500000000;
constexpr uint64_t ORDER_GAP = uint64_t{1} << 20, ORDER_LAST = uint64_t{1} << 62;
constexpr uint32_t ERRATA_JUMPS = 0x4001;

constexpr uint32_t MOST_RIVALS = 1000;   // that are compared with one goto
constexpr int MOST_JUMPS = 100;          // that are followed one after the other

// A `goto` as a rival for others. Nothing takes an entry back: it holds as long as the node lives.
struct entry_t {
    op_t *jump;
    uint32_t id, next;       // op_id; the next entry of the chain, its number plus 1
    uint64_t key;
};

static struct {
    loopguard_t *guard;      // bounds the stage over the whole run
    symbol_t *psect;
    bool sized;              // in this walk. What is deleted since only brings things nearer
    // The index. Each slot has two chains: the jumps in list order, and those that were entered anew, in any order.
    entry_t *entries;
    uint32_t *chains[2];
    uint32_t count, room, slots, slot_room;   // slots: a power of two
} js;

void optim_init()
{
    js.guard = loopguard_new(RUN_STEPS);
}

// Every rule of this file tells its firing here.
static void fired(const char *rule, int counter, const op_t *op)
{
    opt_fired(rule, counter, op);
}

static op_t *before(op_t *op, bool skip_labels)
{
    op = op->op_prev;
    while (skip_labels && op->op_type == T_NAME)
        op = op->op_prev;
    return op;
}

// The index.

static uint64_t mix(uint64_t h, uint64_t x)
{
    h = (h ^ x) * 0x9E3779B97F4A7C15;
    return h ^ h >> 29;
}

// Equal operands have equal numbers. A value that is masked for its bank may equal the bare one.
static uint64_t operand_number(const opnd_t *o)
{
    const value_t *v = &o->opnd_value;
    if (v->v_rtype == RT_AND && v->v_offs == 0 && value_right(v)->v_rtype == RT_CONST && value_right(v)->v_offs == 255)
        v = value_left(v);
    const uint64_t n = mix(v->v_rtype, static_cast<uint64_t>(v->v_offs));
    return v->v_rtype == RT_SYM ? mix(n, to_word(v->v_sym)) : n;
}

static uint64_t node_number(const op_t *op)
{
    return mix(mix(op->op_type, uint64_t{op->op_subop} << 16 | op->op_dest),
               mix(operand_number(&op->op_opnd1), operand_number(&op->op_opnd2)));
}

// Of a `goto` with the instruction before it; `deep`: and the skip before that, without which the instruction is no tail.
static uint64_t key_of(op_t *jump, bool deep)
{
    op_t *p = before(jump, true);
    const uint64_t key = mix(node_number(p), operand_number(&jump->op_opnd1));
    return deep ? mix(key, node_number(before(p, true))) : key;
}

// Appends the entries of `jump`, in no chain yet.
static void note(op_t *jump)
{
    op_t *p = before(jump, true);
    const int keys = !op_is_code(p) ? 0 : op_is_skip(before(p, true)) ? 2 : 1;
    xreserve(js.entries, js.count, js.count + 2, js.room, 1024u);
    for (int deep = 0; deep < keys; deep++)
        js.entries[js.count++] = {jump, jump->op_id, 0, key_of(jump, deep)};
}

static void chain_up(uint32_t first, uint32_t *chain)
{
    for (uint32_t n = first; n < js.count; n++) {
        uint32_t *slot = &chain[js.entries[n].key & (js.slots - 1)];
        js.entries[n].next = *slot;
        *slot = n + 1;
    }
}

// Numbers the nodes anew and makes the index.
static void build_index()
{
    uint64_t order = ORDER_LAST;
    js.count = 0;
    for (op_t *op = js.psect->s_psect->p_code->tail.op_prev; op->op_type != 0; op = op_step_back(op)) {
        op->op_order = order -= ORDER_GAP;
        if (op->op_type == T_GOTO)
            note(op);
    }
    for (js.slots = 16; js.slots < js.count; js.slots *= 2)
        ;
    for (uint32_t *&chain : js.chains)
        if (js.slots > js.slot_room)
            chain = xnew<uint32_t>(js.slots);
        else
            memset(chain, 0, js.slots * sizeof *chain);
    if (js.slots > js.slot_room)
        js.slot_room = js.slots;
    chain_up(0, js.chains[0]);
}

static void enter(op_t *jump)
{
    const uint32_t first = js.count;
    note(jump);
    chain_up(first, js.chains[1]);
}

// Something has changed in `op` or in front of it: that may be news of the next two nodes.
static void touch(op_t *op)
{
    for (int i = 0; i < 2 && op; i++, op = op->op_next) {
        while (op->op_type == T_NAME)
            op = op->op_next;
        if (op->op_type == T_GOTO && op->op_psect == js.psect)
            enter(op);
    }
}

// Position numbers.

// `op` has been linked: it gets a number between those of its neighbours.
static void number_new(op_t *op)
{
    const uint64_t before = op->op_prev->op_type ? op->op_prev->op_order : 0;
    const uint64_t behind = op->op_next->op_type ? op->op_next->op_order : ORDER_LAST;
    if (behind - before < 2)
        build_index();
    else
        op->op_order = before + (behind - before) / 2;
}

// Editing.

static op_t *label_before(op_t *op)
{
    op_t *label = op_ensure_label(op);
    if (label->op_order <= (label->op_prev->op_type ? label->op_prev->op_order : 0) || label->op_order >= op->op_order)
        number_new(label);
    label->op_flags |= op->op_flags & OPF_MARK;
    label->op_offs = op->op_offs;
    return label;
}

// `to`: a label, which may lie in another module.
static void point_at(op_t *jump, symbol_t *to)
{
    if (op_target(jump))
        op_remove_ref(jump, op_target(jump));
    jump->op_opnd1.opnd_value = value_sym(to);
    sym_add_ref(to);
    if (to->s_defop)
        op_add_ref(jump, to->s_defop);
    touch(jump);
}

// Deletes a node; a label's symbol is no longer defined.
static void delete_node(op_t *op)
{
    op_t *next = op->op_next;
    if (op->op_type == T_NAME && op->op_sym && op->op_sym->s_defop == op) {
        op->op_sym->s_defop = nullptr;
        op->op_sym->s_flags |= S_UNDEF;
    }
    op_delete_if_live(op);
    touch(next);
}

static bool always_stops(const op_t *op) { return op->op_type == 0 || op->op_type == T_NAME; }

// Deletes the code behind `op` up to a node at which `stop` says so. What isn't free stays, and so does what isn't code.
static void delete_behind(op_t *op, bool (*stop)(const op_t *op), const char *rule, int counter)
{
    for (op_t *next, *dead = op->op_next; !stop(dead); dead = next) {
        next = dead->op_next;
        if (!op_free(dead) || !op_is_code(dead))
            continue;
        if (rule)
            fired(rule, counter, dead);
        delete_node(dead);
    }
}

static op_t *new_goto_before(op_t *op, op_t *label)
{
    op_t *jump = op_insert_after(op->op_prev, op_new_goto(label));
    jump->op_flags |= op->op_flags & OPF_MARK;
    op_take_position(jump, op);
    number_new(jump);
    op_add_ref(jump, label);
    touch(jump);
    return jump;
}

static bool writes_pc(const op_t *op)
{
    return sfr_isPc(&op->op_opnd1) && (op->op_dest == DEST_F || op->op_type == T_MOVWF || op->op_type == T_CLRF);
}

static void size_once()
{
    if (!js.sized)
        size_psect(js.psect);
    js.sized = true;
}

static symbol_t *symbol_of(const op_t *jump) { return jump->op_opnd1.opnd_value.v_sym; }

static bool is_return(const op_t *op) { return op->op_type == T_RETURN || op->op_type == T_RETLW; }

// The same bit of the same register, which one that moves at every access is not.
static bool same_bit(const op_t *a, const op_t *b)
{
    const opnd_t *o = &a->op_opnd1;
    return opnd_same(o, &b->op_opnd1) && opnd_same(&a->op_opnd2, &b->op_opnd2) && !sfr_isPostinc(o) && !sfr_isPostdec(o)
        && !sfr_isPreinc(o);
}

// Whether `w` gives the bit that `b` tests a value, and both may be left out.
static bool sets_tested_bit(const op_t *w, const op_t *b)
{
    return w->op_type == T_BCF && (w->op_subop | TPL_INVERT) == TPL_BCF && same_bit(b, w)
        && !((b->op_flags | w->op_flags) & OPF_VOLATILE);
}

// The `goto` directly behind a BTFSC, free.
static op_t *goto_behind(op_t *b)
{
    op_t *g = b->op_next;
    return g->op_type == T_GOTO && op_free(g) ? g : nullptr;
}

// The same, with a BTFSC that always runs.
static op_t *sure_goto_behind(op_t *b)
{
    return after_skip(b) ? nullptr : goto_behind(b);
}

// The rules.

static bool stops_dead_code(const op_t *op) { return always_stops(op) || op->op_type == T_ORG || op->op_type == T_DB; }

// Code behind an unconditional transfer. The transfer goes on to the other rules.
static op_t *j1(op_t *op)
{
    if (!after_skip(op))
        delete_behind(op, stops_dead_code, "J1", CNT_UNREACHABLE);
    return nullptr;
}

// btfsc b / return / bcf b / return
static op_t *j2(op_t *b)
{
    if (!is_return(b->op_next))
        return nullptr;
    op_t *r = b->op_next, *w = r->op_next;
    if (!sets_tested_bit(w, b) || !op_same(r, w->op_next) || ((b->op_subop ^ w->op_subop) & TPL_INVERT) || after_skip(b))
        return nullptr;
    fired("J2", CNT_SKIPS_OVER, b);
    delete_node(b);
    return r;
}

static op_t *delete_skip_and_goto(const char *rule, op_t *b, op_t *g)
{
    op_t *next = g->op_next;
    fired(rule, CNT_SKIPS_OVER, b);
    if (!after_skip(b))
        delete_node(g);
    else
        next = g;
    delete_node(b);
    return next;
}

// btfsc b / goto L / L:
static op_t *j3(op_t *b)
{
    op_t *g = goto_behind(b);
    if (!g || op_volatile(b) || jump_target(g) != following(g))
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

static op_t *invert_and_drop_goto(const char *rule, op_t *b, op_t *g)
{
    fired(rule, CNT_SKIPS_OVER, b);
    b->op_subop ^= TPL_INVERT;
    op_t *next = g->op_next;
    delete_node(g);
    return next;
}

// Whether a skip passes over all of it. A conditional branch that is too far away becomes two instructions.
static bool may_be_skipped(const op_t *op)
{
    if (op->op_type == T_BCC)
        size_once();
    return op_is_code(op) && (op->op_type != T_BCC || op->op_next->op_offs - op->op_offs == 2);
}

// btfsc b / goto L / one instruction / L:
static op_t *j5(op_t *b)
{
    op_t *g = sure_goto_behind(b);
    op_t *over = g ? following(g) : nullptr;
    if (!over || over->op_type == 0 || jump_target(g) != following(over) || !may_be_skipped(over))
        return nullptr;
    return invert_and_drop_goto("J5", b, g);
}

// btfsc b / goto L / btfsc c / goto L
static op_t *j6(op_t *b)
{
    op_t *g = sure_goto_behind(b);
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
    op_t *g = sure_goto_behind(b);
    if (!g || !is_return(g->op_next) || !op_free(g->op_next))
        return nullptr;
    op_t *r = g->op_next;
    fired("J7", CNT_SKIPS_OVER, b);
    b->op_subop ^= TPL_INVERT;
    op_unlink(r);
    op_link_after(b, r);
    number_new(r);
    touch(g);
    touch(g->op_next);
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
            fast = jump_target(fast);
        }
        slow = jump_target(slow);
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
        next = jump_target(next);
    }
    return next == op;
}

// btfsc b / goto L, and at L the bit is given the value that it has when the goto runs
static op_t *j8(op_t *b)
{
    op_t *g = sure_goto_behind(b), *w = g ? jump_target(g) : nullptr;
    if (!w || !sets_tested_bit(w, b) || !((b->op_subop ^ w->op_subop) & TPL_INVERT) || comes_back(w))
        return nullptr;
    fired("J8", CNT_SKIPS_OVER, b);
    point_at(g, label_before(w->op_next)->op_sym);
    return g;
}

// bc L, and at L a goto M that the branch reaches itself
static op_t *j9(op_t *c)
{
    op_t *g = jump_target(c);
    if (!g || g->op_type != T_GOTO || !op_is_simple(g) || goes_round(g))
        return nullptr;
    symbol_t *s = symbol_of(g);
    if (!s->s_defop || s == symbol_of(c) || s->s_defop->op_psect != js.psect)
        return nullptr;
    size_once();
    if (254 - c->op_offs + s->s_defop->op_offs >= 511)
        return nullptr;
    fired("J9", CNT_JUMPS_TO_JUMPS, c);
    point_at(c, s);
    return c->op_next;
}

// goto L / goto L
static op_t *j10(op_t *g)
{
    if (!op_same(following(g), g) || after_skip(g))
        return nullptr;
    fired("J10", CNT_REDUNDANT_OPS, g);
    op_t *next = g->op_next;
    delete_node(g);
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
    op_t *first = s->s_defop;
    while (first->op_prev->op_type == T_NAME)
        first = first->op_prev;
    if (first == s->s_defop || first->op_next == g)
        return nullptr;
    fired("J11", CNT_REDUNDANT_LABELS, g);
    point_at(g, first->op_sym);
    return g->op_next;
}

// goto L, and at L a return
static op_t *j12(op_t *g)
{
    op_t *r = jump_target(g);
    if (!r || !is_return(r) || (opt.errata_mask & ERRATA_JUMPS))
        return nullptr;
    fired("J12", CNT_JUMPS_TO_JUMPS, g);
    op_remove_ref(g, op_target(g));
    g->op_type = r->op_type;
    g->op_subop = r->op_subop;
    g->op_opnd1 = r->op_opnd1;
    g->op_access = r->op_access;
    touch(g->op_next);
    return g->op_next;
}

// goto L, and at L a goto M
static op_t *j13(op_t *g)
{
    op_t *h = jump_target(g);
    if (!h || h->op_type != T_GOTO || h->op_psect != js.psect || !op_is_simple(h) || symbol_of(h) == symbol_of(g)
        || goes_round(h))
        return nullptr;
    fired("J13", CNT_JUMPS_TO_JUMPS, g);
    point_at(g, symbol_of(h));
    return g->op_next;
}

// goto L / L:
static op_t *j14(op_t *g)
{
    if (!op_is_simple(g) || g->op_next->op_type != T_NAME || symbol_of(g)->s_defop != g->op_next
        || after_skip(g))
        return nullptr;
    fired("J14", CNT_JUMPS_TO_NEXT, g);
    op_t *next = g->op_next;
    delete_node(g);
    return next;
}

// btfsc p / goto L / goto M ... btfss p / goto M / L: the first test may be left to the second
static op_t *j15(op_t *g)
{
    if (!op_is_simple(g) || !symbol_of(g)->s_defop)
        return nullptr;
    op_t *label = symbol_of(g)->s_defop, *g2 = label->op_prev, *h = g->op_next;
    if (g2->op_type != T_GOTO || h->op_type != T_GOTO || label->op_next->op_type == 0 || !op_is_simple(h)
        || !op_is_simple(g2) || !jump_target(h) || jump_target(h) != jump_target(g2))
        return nullptr;
    op_t *p = g->op_prev, *q = g2->op_prev;
    if (p->op_type != T_BTFSC || q->op_type != T_BTFSC || !op_free(p) || after_skip(p) || after_skip(q)
        || (p->op_subop ^ q->op_subop) != TPL_INVERT || p->op_dest != q->op_dest || !same_bit(p, q))
        return nullptr;
    fired("J15", CNT_MOTIONS, g);
    symbol_t *old = label->op_sym;
    point_at(g, label_before(q)->op_sym);
    if (old->s_refs > 0 && old->s_refs != REFS_KEEP)
        old->s_refs--;
    delete_node(p);
    return g->op_next;
}

static bool label_begins(const op_t *op, const char *prefix)
{
    return op->op_type == T_NAME && op->op_sym && cache_starts_with(op->op_sym->s_name, prefix);
}

// Interrupt code: the block behind the jump's label moves to the jump
static op_t *j16(op_t *g)
{
    if (!op_is_simple(g) || after_skip(g))
        return nullptr;
    op_t *label = symbol_of(g)->s_defop;
    if (!label || label->op_psect != js.psect)
        return nullptr;
    op_t *e = label->op_prev;
    while (e->op_type == T_NAME)
        e = e->op_prev;
    op_t *b = e->op_next;
    if (!op_is_transfer(e) || after_skip(e) || (!label_begins(b, "int_fun") && !label_begins(b->op_next, "int_fun")))
        return nullptr;
    op_t *last = b;
    while (last->op_type == T_NAME)
        last = last->op_next;
    for (;; last = last->op_next) {
        if (last->op_type == 0) {
            last = last->op_prev;
            break;
        }
        if (label_begins(last, "save") && op_is_transfer(last->op_prev)) {
            last = last->op_prev;
            break;
        }
    }
    if (last == g)
        return nullptr;
    for (const op_t *op = b; op != last->op_next; op = op->op_next)
        if (op == g || op->op_type == T_ORG)
            return nullptr;   // the block holds the jump, or has a place of its own
    const op_t *end = last;
    while (end->op_type == T_NAME)
        end = end->op_prev;
    if (!op_is_transfer(end) || after_skip(end))
        return nullptr;       // control runs on behind the block
    fired("J16", CNT_MOTIONS, g);
    opt_count(CNT_JUMPS_TO_NEXT);
    op_t *where = g;
    for (op_t *op = b, *behind = last->op_next, *next; op != behind; op = next) {
        next = op->op_next;
        op_unlink(op);
        op_link_after(where, op);
        where = op;
    }
    op_t *next = where->op_next;
    delete_node(g);
    build_index();
    js.sized = false;
    return next;
}

// Tails. Two runs are compared backward from `a` and `b`; what matched last is the beginning of the tail.
struct tail_t {
    op_t *a, *b;
    unsigned length;
};

static tail_t compare_tails(op_t *g, op_t *c, bool skip_labels)
{
    tail_t t = {};
    op_t *a = before(g, skip_labels), *b = before(c, skip_labels);
    while (a != b && a != c && b != g && op_same(a, b) && !writes_pc(a) && a->op_type != T_CALL && op_free(a)
           && !((a->op_flags ^ b->op_flags) & OPF_VOLATILE)) {
        t.a = a;
        t.b = b;
        t.length++;
        a = before(a, skip_labels);
        b = before(b, skip_labels);
    }
    return t;
}

static bool stops_j18(const op_t *op) { return always_stops(op) || op->op_type == T_DB; }

// The tail at t.a becomes a jump to the one at t.b. Returns where the walk goes on.
static op_t *merge(const char *rule, const tail_t &t, bool (*stop)(const op_t *op), bool count_deleted)
{
    fired(rule, CNT_COMMON, t.a);
    op_t *jump = new_goto_before(t.a, label_before(t.b));
    delete_behind(jump, stop, count_deleted ? rule : nullptr, CNT_UNREACHABLE);
    return jump->op_next;
}

// A tail before a goto, and before the label that it leads to
static op_t *j17(op_t *g)
{
    if (codecov_seen || !op_is_simple(g) || after_skip(g))
        return nullptr;
    op_t *label = symbol_of(g)->s_defop;
    if (!label)
        return nullptr;
    const tail_t t = compare_tails(g, label, false);
    return t.length > 0 && !after_skip(t.a) ? merge("J17", t, always_stops, true) : nullptr;
}

// Whether the tail at the other goto may take over from the one before `g`.
static bool j18_accepts(const tail_t &t)
{
    if (t.b->op_type == T_GOTO)
        return false;
    const op_t *p = t.a->op_prev;
    if (p->op_type == T_GOTO && jump_target(p) == t.b)
        return false;
    if (op_more(t.a)->op_remark && cache_starts_with(op_more(t.a)->op_remark, ";#"))
        return false;
    // J12 would make a return of the new jump.
    return !is_return(t.b) || (op_is_simple(t.a) && (opt.errata_mask & ERRATA_JUMPS));
}

// The tail before a rival that may take over from the one before `g`, or one of length 0.
static tail_t rival_tail(op_t *g, op_t *c, bool skip_labels, bool (*accepts)(const tail_t &t))
{
    const tail_t t = op_same(g, c) ? compare_tails(g, c, skip_labels) : tail_t{};
    return t.length > 0 && !after_skip(t.a) && accepts(t) ? t : tail_t{};
}

static tail_t plain_search(op_t *g, uint64_t from, bool skip_labels, bool (*accepts)(const tail_t &t))
{
    for (op_t *c = js.psect->s_psect->p_code->head.op_next; c->op_type != 0; c = c->op_next)
        if (c != g && c->op_type == T_GOTO && c->op_order > from)
            if (const tail_t t = rival_tail(g, c, skip_labels, accepts); t.length > 0)
                return t;
    return {};
}

// The tail before the first rival behind the position `from` that has one which `accepts` takes, or one of length 0.
static tail_t best_rival(op_t *g, uint64_t from, bool skip_labels, bool (*accepts)(const tail_t &t))
{
    if (opt_plain_search)
        return plain_search(g, from, skip_labels, accepts);
    tail_t best = {};
    uint64_t order = ORDER_LAST;
    uint32_t left = MOST_RIVALS;
    op_t *p = before(g, true);
    const bool deep = after_skip(p);
    if (!op_is_code(p) || (deep && !op_is_skip(before(p, true))))
        return best;
    const uint64_t key = key_of(g, deep);
    for (uint32_t *chain : js.chains) {
        uint32_t *link = &chain[key & (js.slots - 1)];
        while (*link && left > 0) {
            entry_t *e = &js.entries[*link - 1];
            if (e->key != key) {
                link = &e->next;
                continue;
            }
            op_t *c = e->jump;
            if (c->op_id != e->id || c->op_type != T_GOTO || key_of(c, deep) != key) {
                *link = e->next;     // gone, or entered anew
                continue;
            }
            link = &e->next;
            if (c == g || c->op_order <= from)
                continue;
            if (c->op_order >= order) {
                if (chain == js.chains[0])
                    break;
                continue;
            }
            left--;
            const tail_t t = rival_tail(g, c, skip_labels, accepts);
            if (t.length > 0) {
                best = t;
                order = c->op_order;
            }
        }
    }
    return best;
}

// A tail before a goto, and before another goto to the same place
static op_t *j18(op_t *g)
{
    if (codecov_seen || after_skip(g))
        return nullptr;
    const tail_t t = best_rival(g, 0, true, j18_accepts);
    return t.length > 0 ? merge("J18", t, stops_j18, false) : nullptr;
}

// Whether control falls into `op`: going back, a label or the list's head comes before an unconditional transfer. With
// `or_skipped`, a transfer that a skip may pass over is enough.
static bool falls_into(const op_t *op, bool or_skipped)
{
    for (op = op->op_prev;; op = op->op_prev) {
        if (op->op_type == 0 || op->op_type == T_NAME)
            return true;
        if (op_is_transfer(op) && !after_skip(op))
            return false;
        if (op_is_transfer(op) && or_skipped)
            return true;
    }
}

static bool j19_accepts(const tail_t &t) { return falls_into(t.a, false) && falls_into(t.b, true); }

// The same with a goto further down, label by label
static op_t *j19(op_t *g)
{
    if (after_skip(g))
        return nullptr;
    const tail_t t = best_rival(g, g->op_order, false, j19_accepts);
    return t.length > 0 ? merge("J19", t, always_stops, true) : nullptr;
}

// The rules of a node in the order in which they are tried. J1 leaves its node to those behind it.
using rule_t = op_t *(op_t *op);
static rule_t *const test_rules[] = {j2, j3, j4, j5, j6, j7, j8}, *const branch_rules[] = {j9}, *const return_rules[] = {j1},
    *const goto_rules[] = {j1, j10, j11, j12, j13, j14, j15, j16, j17, j18, j19};

static std::span<rule_t *const> rules_of(const op_t *op)
{
    switch (op->op_type) {
    case T_BTFSC: return test_rules;
    case T_BCC: return branch_rules;
    case T_RETURN: case T_RETLW: return return_rules;
    case T_GOTO: return goto_rules;
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
            fired("leading dead code", CNT_UNREACHABLE, op);
            delete_node(op);
        }
    }
}

void opt_jump_walk(symbol_t *psect)
{
    code_list_t *list = psect->s_psect->p_code;
    js.psect = psect;
    js.sized = false;
    build_index();
    delete_leading_dead_code(list);
    for (op_t *op = list->head.op_next; op->op_type != 0;) {
        if (!loopguard_next(js.guard))
            return;
        op_t *next = nullptr;
        if (op_free(op) && !(op->op_flags & OPF_SKIPPED))
            for (rule_t *rule : rules_of(op))
                if ((next = rule(op)))
                    break;
        op = next ? next : op_step(op);
    }
}

unsigned opt_delete_dead_chains(symbol_t *psect, bool backward)
{
    code_list_t *list = psect->s_psect->p_code;
    unsigned gone = 0;
    js.psect = psect;
    build_index();
    for (op_t *op = backward ? list->tail.op_prev : list->head.op_next, *next; op->op_type != 0; op = next) {
        op_t *before = op->op_prev;
        next = backward ? before : op->op_next;
        if (!label_is_unused(op) || !list_delete_label(op))
            continue;
        gone++;
        if (!op_is_transfer(before) || !op_free(before))
            continue;
        j1(before);
        next = backward ? before : before->op_next;
    }
    return gone;
}

// The branch stage: what both arms of a conditional branch begin with moves before the branch.

static bool is_status_bit(const op_t *op, int64_t bit)
{
    return op->op_type == T_BCF && sfr_isStatus(&op->op_opnd1) && op->op_opnd2.opnd_value.v_rtype == RT_CONST
        && op->op_opnd2.opnd_value.v_offs == bit;
}

static bool writes_bsr(const op_t *op)
{
    return sfr_isBsr(&op->op_opnd1) && (op->op_dest == DEST_F || op->op_type == T_MOVWF || op->op_type == T_CLRF);
}

// Whether what `a` changes could be seen by the branch that it would pass.
static bool branch_depends_on(const op_t *c, const op_t *a)
{
    const uint32_t reads = op_status_read(c);
    if (reads & op_status_written(a))
        return true;
    const bool is_move = a->op_type == T_MOVFF || a->op_type == T_MOVFFL;
    if (a->op_type != T_BCF && (sfr_isStatus(&a->op_opnd1) || sfr_isIndirect(&a->op_opnd1))
        && (a->op_dest == DEST_F || is_move))
        return true;
    return (is_status_bit(a, 2) && (reads & ST_Z)) || (is_status_bit(a, 0) && (reads & ST_C));
}

static bool may_move(const op_t *a)
{
    switch (a->op_type) {
    case T_SUBWF: case T_RLCF: case T_INCF: case T_ADDWF: case T_TRAP: case T_DBOUT: case T_SETCNT:
        return true;
    default:
        return writes_bsr(a);
    }
}

static bool may_follow(const op_t *m)
{
    if (m->op_type == T_MOVLB || writes_bsr(m) || sfr_isIndirect(m->op_type == T_MOVFF ? &m->op_opnd2 : &m->op_opnd1))
        return false;
    switch (m->op_type) {
    case T_SUBWF: case T_MOVF: case T_SWAPF: case T_RLCF: case T_ANDWF: case T_INCF: case T_ADDWF: case T_CLRF: case T_BCF:
    case T_DECFSZ: case T_CPFSEQ: case T_MOVWF: case T_MOVFF: case T_GOTO: case T_CALL: case T_RETURN: case T_RETLW:
    case T_NOP: case T_TRAP: case T_DBOUT: case T_SETCNT: case T_ADDLW: case T_MOVLW:
        return true;
    default:
        return false;
    }
}

// Whether nothing but `c` leads to the code at `arm` or the labels before it.
static bool only_way_in(const op_t *c, const op_t *arm)
{
    for (const op_t *op = arm->op_prev; op->op_type == T_NAME; op = op->op_prev) {
        if (op->op_sym->s_flags & (S_DEFHERE | S_TAKEN))
            return false;
        for (const op_t *ref : op_more(op)->op_refs)
            if (ref != c)
                return false;
    }
    return true;
}

// The branch `c`, and where the walk goes on.
static op_t *hoist_common_beginning(op_t *c)
{
    op_t *n = c->op_next, *t = jump_target(c), *b = n;
    while (b->op_type != 0 && !op_barrier(b))
        b = b->op_next;
    if (b == n || (b->op_type != T_GOTO && b->op_type != T_BRA) || following(b) != t || !only_way_in(c, t))
        return n;
    op_t *a = n, *e = t;
    for (; op_same(a, e); a = a->op_next, e = e->op_next)
        if (branch_depends_on(c, a) || !may_move(a) || !may_follow(a->op_next) || op_barrier(a) || op_barrier(e))
            return n;
    opt_fired("branch stage", CNT_COMMON, c);
    if (a == n)
        return n;
    for (op_t *dead = t, *next; dead != e; dead = next) {
        next = dead->op_next;
        op_delete_if_live(dead);
    }
    op_unlink(c);
    op_link_after(a->op_prev, c);
    return a;
}

void opt_branch_stage(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0;)
        op = op->op_type == T_BCC && op_free(op) && !(op->op_flags & OPF_SKIPPED) && jump_target(op) && !after_skip(op)
            ? hoist_common_beginning(op) : op->op_next;
}
