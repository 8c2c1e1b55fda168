// Distances are those of the program without the optimiser, which is what its author has counted: so a psect that has any is
// sized like that first. Whatever lies between a distance's two ends is pinned, and a label made at the far end.
//
// A table is told by what stands before it: a write to PCL, or a label whose address is used as a number. Behind a write to
// PCL all is pinned up to the next label that something leads to, since the jump may lead anywhere there (arms of two
// instructions are usual), and over it as long as there is code to come that nothing but such a jump can lead to: behind a
// jump, with no label or one that nobody uses. From there on what is pinned are arms of one instruction that follow each other.
// A label that is used as a number may well be a plain function, so at least two arms or such code have to follow there. Behind
// a global label, and behind an org of an absolute psect, a table may be another program's: there it has to be plain. Arms of
// several instructions show by their equal sizes, each up to a jump or return: what stands behind one without a label, which
// nothing leads to, is as long as itself.
//
// A call of code that handles its return address counts as a write to PCL, since it may return to any place further down.
//
// An operand that is no sum of a place and a number pins the psects of all places in it if it is a jump's.
#include "optim/pins.h"

#include <algorithm>

#include "code/data.h"
#include "code/layout.h"
#include "code/ops.h"
#include "code/program.h"
#include "common/srcpos.h"
#include "common/xalloc.h"
#include "optim/labels.h"
#include "optim/node.h"
#include "optim/stack.h"
#include "optim/templates.h"

constexpr int64_t ALL = int64_t{1} << 33;   // units: beyond any psect
constexpr int64_t PCL_REACH = 256;          // units, without a carry into the bytes above
constexpr int MOST_DEFINITIONS = 100;       // that are followed one after the other

// A place, `units` from the node `base` or from the psect's beginning.
struct pinned_place_t {
    symbol_t *psect;
    const op_t *base;
    int64_t units;
    int64_t from, to, target;   // bytes
};

static struct {
    pinned_place_t *places;
    size_t count, room;
    bool computes_jumps;     // the program has jumps that aren't to a label
    uint32_t steps;          // left for the operand looked at: names may be defined by each other in a circle
    const symbol_t *sized;   // the psect that has its sizes
} st;

static void note_place(symbol_t *psect, const op_t *base, int64_t units)
{
    xreserve(st.places, st.count, st.count + 1, st.room, size_t{64});
    st.places[st.count++] = {psect, base, std::clamp(units, -ALL, ALL), 0, 0, 0};
}

// What a symbol that was defined as an expression stands for.
static value_t resolved(value_t v)
{
    for (int i = 0; i < MOST_DEFINITIONS && v.v_rtype == RT_SYM && !v.v_sym->s_defop && (v.v_sym->s_flags & S_EQU) &&
                    !sym_is_self(v.v_sym);
         i++) {
        const int64_t offs = v.v_offs;
        v = v.v_sym->s_value;
        v.v_offs = wrap_plus(v.v_offs, offs);
    }
    return v;
}

static void note_label(const value_t &v, bool exact)
{
    op_t *label = v.v_sym->s_defop;
    if (!exact)
        note_place(label->op_psect, nullptr, ALL);
    else if (v.v_offs != 0)
        note_place(label->op_psect, label, v.v_offs);
}

// Of a value in `op`, or in a tree there. `exact`: it is all of the operand, and places may be counted from `op`.
static void note_places(const op_t *op, const value_t *value, bool exact)
{
    const value_t v = resolved(*value);
    const bool jump = op_is_branch(op);
    if (st.steps == 0)
        return note_place(op->op_psect, nullptr, ALL);
    st.steps--;
    if (rtype_is_binary(v.v_rtype) || rtype_is_unary(v.v_rtype)) {
        for (int i = rtype_is_binary(v.v_rtype); i >= 0; i--)
            note_places(op, &v.v_kids[i], exact && !jump);
    } else if (v.v_rtype == RT_HERE) {
        if (!exact)
            note_place(op->op_psect, nullptr, ALL);
        else if (!jump || v.v_offs != 0)   // a jump to itself may stand anywhere
            note_place(op->op_psect, op, v.v_offs);
    } else if (v.v_rtype == RT_PSECT) {
        note_place(v.v_sym, nullptr, exact ? v.v_offs : ALL);
    } else if (value_is_reference(&v) && v.v_sym->s_defop) {
        note_label(v, exact);
    } else if (v.v_rtype == RT_CONST && jump && exact) {
        for (const code_list_t *list : psect_list)
            if (psect_is_abs(list->psect))
                note_place(list->psect, nullptr, v.v_offs);
    }
}

static void note_operand(const op_t *op, const value_t *value, bool exact)
{
    st.steps = VALUE_MAX_NODES;
    note_places(op, value, exact);
}

// A write to PCL that makes it less, so that the table stands above.
static bool goes_back(const op_t *op) { return (op->op_type == T_SUBWF || op->op_subop == TPL_DECF) && op_writes_pcl(op); }

static void find_places()
{
    st.count = 0;
    for (const code_list_t *list : psect_list)
        for (const op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op)) {
            if (op->op_type == T_EQU || op->op_type == T_SET) {   // it counts where it is used, perhaps in another module
                if (op->op_opnd1.opnd_value.v_sym->s_flags & S_GLOBAL && !value_has_here(&op_opnd2(op)->opnd_value))
                    note_operand(op, &op_opnd2(op)->opnd_value, true);
                continue;
            }
            if (goes_back(op))
                note_place(op->op_psect, op, -PCL_REACH);
            if (op->op_opnd1.opnd_value.v_rtype != RT_CONST || op_is_branch(op))
                note_operand(op, &op->op_opnd1.opnd_value, true);
            if (op_opnd2(op)->opnd_value.v_rtype != RT_CONST)
                note_operand(op, &op_opnd2(op)->opnd_value, true);
            for (const value_t &item : data_items(op))
                note_operand(op, &item, !value_has_here(&item));
        }
    const value_t start = resolved(program.has_end_value ? program.end_value : value_const(0));
    if (value_is_reference(&start) && start.v_sym->s_defop)
        note_label(start, true);
}

// Pinning.

static void size_once(symbol_t *psect)
{
    if (st.sized != psect)
        size_psect_as_written(psect);
    st.sized = psect;
}

static void pin(op_t *op)
{
    if (op->op_flags & OPF_PINNED)
        return;
    if (op->op_type == T_BCC || op->op_type == T_CALL) {
        size_once(op->op_psect);
        const in_psect_t here(op->op_psect);
        op->op_flags = (op->op_flags | static_cast<uint32_t>(branch_form(op) / 2) * OPF_WORD) & OPF_ALL;
    }
    op->op_flags |= OPF_PINNED;
}

static bool holds_code(const code_list_t *list)
{
    const op_t *op = list->head.op_next;
    while (op->op_type != 0 && !op_is_code(op))
        op = op->op_next;
    return op->op_type != 0;
}

// Pins what overlaps with a place's way, and sets labels at the places. All `n` lie in one psect.
static void pin_ways(pinned_place_t *places, size_t n)
{
    symbol_t *psect = places->psect;
    code_list_t *list = psect->s_psect->p_code;
    if (!holds_code(list))
        return;
    size_once(psect);
    const auto delta = static_cast<int64_t>(psect_delta(psect->s_psect));
    int64_t *targets = xnew<int64_t>(n);
    for (size_t i = 0; i < n; i++) {
        pinned_place_t &p = places[i];
        const int64_t base = p.base ? p.base->op_offs : 0;
        p.target = targets[i] = base + p.units * delta;
        p.from = std::min(base, p.target);
        p.to = std::max(base, p.target);
        if (p.base && op_is_branch(p.base))
            pin(const_cast<op_t *>(p.base));
    }
    std::sort(places, places + n, [](const pinned_place_t &a, const pinned_place_t &b) { return a.from < b.from; });
    std::sort(targets, targets + n);
    size_t ways = 1;   // those that overlap become one
    for (size_t i = 1; i < n; i++)
        if (places[i].from <= places[ways - 1].to)
            places[ways - 1].to = std::max(places[ways - 1].to, places[i].to);
        else
            places[ways++] = places[i];
    int64_t before = -1;
    for (op_t *op = list->head.op_next;; op = op->op_next) {
        const int64_t at = op->op_offs, behind = op->op_type ? op->op_next->op_offs : at;
        const pinned_place_t *way = std::lower_bound(places, places + ways, std::max(behind, at + 1),
                                                     [](const pinned_place_t &p, int64_t end) { return p.from < end; });
        if (op->op_type != T_NAME && way != places && way[-1].to > at)
            pin(op);
        // The first node at or behind a place. Positions go back at an `org`.
        const int64_t *t = std::upper_bound(targets, targets + n, at);
        if (t != targets && (before < at ? t[-1] > before : before > at && t[-1] == at)) {
            op_t *label = op->op_type == T_NAME ? op : op_ensure_label(op);
            label->op_offs = op->op_offs;
            label->op_flags |= OPF_PINNED;
        }
        before = at;
        if (op->op_type == 0)
            break;
    }
}

// Tables.

static bool is_arm(const op_t *op)
{
    switch (op->op_type) {
    case T_GOTO:
    case T_BRA:
    case T_RETLW:
    case T_RETURN:
    case T_DB: return true;
    default: return false;
    }
}

static bool is_led_to(const op_t *label)
{
    return (label->op_sym->s_flags & (S_GLOBAL | S_TAKEN)) || vec_size(op_refs(label)) > 0;
}

static bool is_nop(const op_t *op)
{
    return op->op_type == T_NOP && (op->op_subop == op_template("nop") || op->op_subop == NOP2);
}

// The first node from `op` on that isn't silent, or a label that something leads to.
static const op_t *past_names(const op_t *op)
{
    while (op_is_silent(op) && op->op_type != T_ALIGN && (op->op_type != T_NAME || !is_led_to(op)))
        op = op->op_next;
    return op;
}

// Whether two jumps or values that differ, or three, follow each other, with no label that anything leads to: nobody writes
// that but for a table.
static bool is_plain_table(const op_t *first)
{
    if (!is_arm(first))
        return false;
    const op_t *second = past_names(first->op_next);
    if (second->op_type != first->op_type || first->op_type == T_RETURN || first->op_type == T_DB)
        return false;
    return !op_same(first, second) || past_names(second->op_next)->op_type == first->op_type;
}

// Where an arm that begins at `op` ends, and where the next one would begin, behind NOPs that fill it up; null if it is none.
struct table_arm_t {
    const op_t *last, *next;
};

static table_arm_t arm_from(const op_t *op)
{
    while (op_is_code(op) && !op_ends_way(op))
        op = past_names(op->op_next);
    if (!op_is_code(op))
        return {};
    const op_t *next = past_names(op->op_next);
    while (is_nop(next))
        next = past_names(next->op_next);
    return {op, next};
}

// Behind a jump or return.
static uint64_t end_of_arm(const table_arm_t &arm) { return arm.last->op_offs + (arm.last->op_type == T_GOTO ? 4 : 2); }

// Two arms of several instructions, of one size.
static bool is_wide_table(const op_t *first)
{
    const table_arm_t a = arm_from(first);
    if (!a.last || (a.last == first && a.next == past_names(first->op_next)))
        return false;
    const table_arm_t b = arm_from(a.next);
    if (!b.last)
        return false;
    size_once(first->op_psect);
    const uint64_t period = a.next->op_offs - first->op_offs;
    return b.next->op_offs - a.next->op_offs == period || end_of_arm(b) - a.next->op_offs == end_of_arm(a) - first->op_offs;
}

// What is pinned from a place on.
enum run_t { NONE, ARMS, ANYTHING };

// What the code from `first` on would be if a table began there. Many labels may stand before it.
struct table_t {
    const op_t *first;
    bool arms;   // two at least
    run_t plain;
};

static void look_at(table_t *t, const op_t *first)
{
    if (t->first == first)
        return;
    t->first = first;
    t->arms = is_arm(first) && is_arm(op_past_silent(first->op_next));
    t->plain = is_wide_table(first) ? ANYTHING : is_plain_table(first) ? ARMS : NONE;
}

// `place`: a label, or an org. `first`: the first statement behind it.
static run_t table_at(const op_t *place, const op_t *first, table_t *t)
{
    const bool taken = place->op_type == T_NAME && (place->op_sym->s_flags & S_TAKEN);
    if (place->op_type == T_ORG ? !psect_is_abs(place->op_psect) : !taken && !(place->op_sym->s_flags & S_GLOBAL))
        return NONE;
    look_at(t, first);
    return t->plain == NONE && taken && t->arms ? ARMS : t->plain;
}

// The next code behind `label` that only a computed jump can lead to; null if the table's function ends before.
static const op_t *next_arm(const op_t *label)
{
    bool passes = true;   // control may come from the instruction before
    for (const op_t *op = label->op_next; op->op_type != 0 && op->op_type != T_ORG && op->op_type != T_ALIGN;
         op = op_step(op)) {
        if (op->op_type == T_NAME) {
            if (label_begins_function(op))
                return nullptr;
            passes |= is_led_to(op);
        } else if (op_is_code(op)) {
            if (!passes)
                return op;
            passes = (!op_is_transfer(op) && op->op_type != T_BRA) || op_may_not_run(op);
        }
    }
    return nullptr;
}

static bool may_hold_arms(op_t *label, const op_t *first, bool in_table)
{
    if (label->op_sym->s_flags & S_TAKEN)
        return st.computes_jumps && op_is_code(first);
    return in_table && !label_begins_function(label);
}

// A call of code that handles its return address, which may so come back further down.
static bool returns_elsewhere(const op_t *op)
{
    return (op->op_type == T_CALL || op->op_type == T_RCALL) && op_is_simple(op) &&
           stack_aims_from(op->op_opnd1.opnd_value.v_sym);
}

static void pin_tables(code_list_t *list)
{
    run_t run = NONE;
    bool called = false;   // what comes next stands behind such a call
    table_t seen = {};
    const op_t *arm = nullptr;     // one that is still to come, however many labels stand before it
    const op_t *first = nullptr;   // the first statement behind the labels or the org here
    for (op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op)) {
        if (op == arm)
            arm = nullptr;
        if (op == first)
            first = nullptr;
        if (!first && (op->op_type == T_NAME || op->op_type == T_ORG))
            first = op_past_silent(op->op_next);
        if (op->op_type == T_NAME) {
            if (run == ANYTHING)
                op->op_flags |= OPF_PINNED;   // where what is known in the run ends
            if (run == ANYTHING && (arm || called || !is_led_to(op)))
                continue;
            arm = may_hold_arms(op, first, run == ANYTHING) ? next_arm(op) : nullptr;
            if (arm)
                run = ANYTHING;
            else if (const run_t table = table_at(op, first, &seen); table != NONE || run == ANYTHING)
                run = std::max(table, ARMS);
            continue;
        }
        if (op_is_silent(op))
            continue;
        if (run == ANYTHING || (run == ARMS && is_arm(op)))
            pin(op);
        else
            run = NONE;
        if (op->op_type == T_ORG)
            run = std::max(run, table_at(op, first, &seen));
        if (op_writes_pcl(op) || op->op_type == T_CALLW) {
            pin(op);
            run = op->op_type == T_CALLW ? ARMS : ANYTHING;
        }
        called = returns_elsewhere(op);
        if (called)
            run = ANYTHING;
    }
}

void pins_set()
{
    const srcpos_t position = srcpos;
    find_places();
    std::stable_sort(st.places, st.places + st.count,
                     [](const pinned_place_t &a, const pinned_place_t &b) { return a.psect->s_seqno < b.psect->s_seqno; });
    for (size_t i = 0, end; i < st.count; i = end) {
        for (end = i + 1; end < st.count && st.places[end].psect == st.places[i].psect; end++)
            ;
        pin_ways(st.places + i, end - i);
    }
    bool uses_stack = st.computes_jumps = false;
    for (const code_list_t *list : psect_list)
        for (const op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op)) {
            st.computes_jumps |= op_writes_pcl(op) || op->op_type == T_CALLW;
            uses_stack |= op_uses_stack(op);
        }
    st.computes_jumps |= uses_stack;
    for (code_list_t *list : psect_list)
        pin_tables(list);
    if (uses_stack) {
        stack_find_aims();   // which may come from an arm
        for (code_list_t *list : psect_list)
            pin_tables(list);
    }
    srcpos = position;
}
