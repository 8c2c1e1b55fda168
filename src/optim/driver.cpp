// The order of everything between parsing and output. Which psects hold code is told by their names; those of one memory
// group may share code with each other.
//
// What false arms hold is no part of the program from here on; it is unlinked, so that no rule has to look out for it.
// With -O, functions are inlined first, since that gives the rules more to see. Then the pass runs over each code psect
// once, and again and again together with the removal of unused labels, until nothing changes. Repeated code is abstracted,
// and a last pass looks at what that left. Errata NOPs come last of all, with or without -O.
//
// A pass works on one psect and repeats two stages until neither finds anything to do: the peephole stage, which knows what
// the registers hold, and the jump stage, which knows where control goes. A third, the branch stage, runs once at the end.
// Each stage is a walk over the list that is itself repeated while it changes something. That takes a few walks, some dozens
// in a program of half a million lines. Where each walk changes all jumps only a little, it could take one for each of them:
// so a psect has a number of walks for the whole run, and is done when they are spent. This also turns a set of rules that
// doesn't settle into a normal end; the list is valid at every step.
//
// Calls in this folder run down only: from here to the stages (`inline`, `peep`, `jump` with `tails`, `hoist`, `pa`,
// `errata`), from them to what they share: `known` and `live` above `effects`, `pins`, `stack`, `labels`, `edit` above
// `index`, `report`, the tests of `node`, and `pointers`.
#include "optim/driver.h"

#include <cctype>
#include <cstring>
#include <string>

#include "code/layout.h"
#include "code/ops.h"
#include "code/tlab.h"
#include "common/alert.h"
#include "common/loopguard.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/cmode.h"
#include "env/pathmap.h"
#include "optim/changes.h"
#include "optim/effects.h"
#include "optim/errata.h"
#include "optim/hoist.h"
#include "optim/imply.h"
#include "optim/inline.h"
#include "optim/jump.h"
#include "optim/labels.h"
#include "optim/node.h"
#include "optim/pa.h"
#include "optim/peep.h"
#include "optim/pins.h"
#include "optim/pointers.h"
#include "optim/report.h"
#include "optim/settled.h"
#include "optim/stack.h"
#include "optim/tails.h"
#include "options.h"

constexpr uint64_t ITERATIONS = 10;
constexpr uint32_t PSECT_WALKS = 500;
constexpr int PATIENCE = 20, MOST_SWEEPS = 1000;

struct group_t {
    uint32_t number;
    vec_t<symbol_t *> psects;
};

static struct {
    vec_t<symbol_t *> code_psects;    // every code psect, in psect order
    vec_t<symbol_t *> plain_psects;   // those without the minocg flag
    vec_t<group_t *> group_psects;    // those with it, by group number
} st;

static bool is_code_psect(const symbol_t *psect)
{
    const char *name = psect->s_name;
    return !cache_starts_with(name, "swtext") && (cache_starts_with(name, "intcode") || strstr(name, "text"));
}

static vec_t<symbol_t *> group(uint32_t number)
{
    uint32_t i = 0;
    while (i < vec_size(st.group_psects) && vec_elementAt(st.group_psects, i)->number < number)
        i++;
    if (i == vec_size(st.group_psects) || vec_elementAt(st.group_psects, i)->number != number) {
        group_t *g = xnew<group_t>();
        g->number = number;
        g->psects = vec_make<symbol_t *>();
        vec_insert(st.group_psects, g, i);
    }
    return vec_elementAt(st.group_psects, i)->psects;
}

static void sort_psects()
{
    st.code_psects = vec_make<symbol_t *>();
    st.plain_psects = vec_make<symbol_t *>();
    st.group_psects = vec_make<group_t *>();
    for (const code_list_t *list : psect_list) {
        symbol_t *psect = list->psect;
        const psect_t *p = psect->s_psect;
        if (psect->s_psect->p_flags & P_NOTE) {
            if (strcmp(psect->s_name, "codecov_info") == 0 || strcmp(psect->s_name, "codecov_info_hdr") == 0)
                codecov_seen = true;
            continue;
        }
        if (!*psect->s_name || !is_code_psect(psect))
            continue;
        vec_add(st.code_psects, psect);
        vec_add(p->p_optim & PO_MINOCG ? group(p->p_group) : st.plain_psects, psect);
    }
}

// The pass over a psect.

// Rules look at where jumps and calls lead, and from where they come.
static void look_around(const op_t *op)
{
    if (op->op_type == T_NAME) {
        for (const op_t *ref : op_refs(op))
            settled_look(ref->op_psect);
    } else if (leads_to_label(op)) {
        if (const op_t *label = op_target(op))
            settled_look(label->op_psect);
    }
}

// The `set` nodes go behind the first node, in their order; no node is marked; operands are reduced. True if a jump leads to a
// label now that it didn't name before.
static bool prepare(code_list_t *list)
{
    bool led = false;
    const srcpos_t position = srcpos;
    op_t *front = list->head.op_next;
    for (op_t *op = front, *next; op->op_type != 0; op = next) {
        next = op_step(op);
        op->op_flags &= OPF_ALL & ~OPF_MARK;
        look_around(op);
        if (op->op_opnd1.opnd_value.v_rtype != RT_CONST || op_opnd2(op)->opnd_value.v_rtype != RT_CONST) {
            const symbol_t *was = leads_to_label(op) ? op->op_opnd1.opnd_value.v_sym.get() : nullptr;
            op_set_position(op);
            if (op->op_type != T_EQU && op->op_type != T_SET)   // which have the symbol there
                value_eval(&op->op_opnd1.opnd_value);
            if (op->op_second)
                value_eval(&op->op_second->opnd_value);
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

// Repeats `walk` while it changes the list and the psect has walks left. True if it ever did.
static bool stage(symbol_t *psect, bool off, void (*walk)(symbol_t *psect))
{
    uint32_t &walks = psect->s_psect->p_walks;
    bool any = false;
    opt_changed = !off;
    while (opt_changed && walks < PSECT_WALKS) {
        opt_changed = false;
        walks++;
        walk(psect);
        any |= opt_changed;
    }
    opt_changed &= walks < PSECT_WALKS;
    return any;
}

bool opt_psect(symbol_t *psect)
{
    code_list_t *list = psect->s_psect->p_code;
    if (list_empty(list))
        return false;
    if (settled(psect))
        return opt_changed = false;
    settled_begin(psect);
    change_settle();   // operands are reduced next, which is no change
    loopguard_t *iterations = loopguard_new(ITERATIONS);
    const bool no_peep = psect_optim_off(psect, PO_PEEP), no_jump = psect_optim_off(psect, PO_JUMP);
    if (prepare(list)) {
        list_touch(psect);
        list_renew_refs(psect);   // which the rules keep true
    }
    reach_mark_psect(list);
    // A stage that has been through the list without a change isn't repeated before the other one makes one.
    bool any = false, peeped, jumped, peep_settled, jump_settled = false;
    do {
        peeped = stage(psect, no_peep, peep_walk);
        peep_settled = !opt_changed;
        jumped = false;
        if (peeped || !jump_settled) {
            jumped = stage(psect, no_jump, jump_walk);
            jump_settled = !opt_changed;
        }
        any |= peeped || jumped;
    } while ((jumped || !peep_settled) && loopguard_next(iterations));
    if (!no_jump)
        hoist_walk(psect);
    settled_end();
    return any;
}

// The optimise phase.

static void each_psect(void (*step)(symbol_t *psect))
{
    for (const code_list_t *list : psect_list)
        step(list->psect);
}

static void size_if_any(symbol_t *psect)
{
    if (!list_empty(psect->s_psect->p_code))
        size_psect(psect);
}

// A jump to a name that was given to a label by `equ` leads to the label.
static void resolve_jumps(symbol_t *psect)
{
    const srcpos_t position = srcpos;
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op))
        if (op_is_branch(op) && op->op_opnd1.opnd_value.v_rtype != RT_CONST) {
            op_set_position(op);
            value_eval(&op->op_opnd1.opnd_value);
        }
    srcpos = position;   // new nodes take it
}

static void keep_inlined(const symbol_t *psect)
{
    if (psect->s_psect->p_inline)
        psect->s_psect->p_keep = true;
}

// Functions that others still call or jump to have to stay, and those whose address is used.
static void keep_needed_functions(symbol_t *psect)
{
    for (const op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op)) {
        const op_t *target = op_is_skip(op) ? nullptr : op_target(op);
        if (target && target->op_psect != psect)
            keep_inlined(target->op_psect);
        if (op->op_type == T_NAME && (op->op_sym->s_flags & S_TAKEN))
            keep_inlined(psect);
    }
}

// What a psect runs on into has to stay: the next psect of its class, as linkers place them.
static void keep_what_is_run_into()
{
    for (uint32_t i = 0; i < vec_size(psect_list); i++) {
        const symbol_t *psect = vec_elementAt(psect_list, i)->psect;
        if (!psect_runs_on(psect))
            continue;
        uint32_t next = i + 1;
        while (next < vec_size(psect_list) &&
               (list_empty(vec_elementAt(psect_list, next)) ||
                vec_elementAt(psect_list, next)->psect->s_psect->p_class != psect->s_psect->p_class))
            next++;
        if (next < vec_size(psect_list))
            keep_inlined(vec_elementAt(psect_list, next)->psect);
    }
}

// A global label of the program: those in copies are in no table.
static bool others_may_call(const op_t *label)
{
    const symbol_t *s = label->op_sym;
    return (s->s_flags & S_GLOBAL) && !cache_starts_with(s->s_name, "__end_of") && sym_find(s->s_name) == s;
}

static void tell_gone(const op_t *label)
{
    const srcpos_t position = srcpos;
    op_set_position(label);
    alert_msg(2240, label->op_sym->s_name, label->op_sym->s_name);
    srcpos = position;
}

// A function whose every call was inlined goes, but for labels that others may know.
static void delete_body(symbol_t *psect)
{
    vec_remove(st.code_psects, psect);
    change_step("inlined body", psect->s_psect->p_code->head.op_next);
    for (op_t *op = psect->s_psect->p_code->head.op_next, *next; op->op_type != 0; op = next) {
        next = op->op_next;
        if (op->op_type == T_NAME && others_may_call(op))
            tell_gone(op);
        if (op->op_type == T_NAME && (((op->op_sym->s_flags & S_GLOBAL) && op->op_sym->s_name[0] == '_') ||
                                      cache_starts_with(op->op_sym->s_name, "iL")))
            continue;
        if (op->op_type == T_NAME) {
            op->op_sym->s_defop = nullptr;
            op->op_sym->s_flags |= S_UNDEF;
        }
        change_touch(op);
        op_delete_if_live(op);
    }
}

static void inline_functions()
{
    keep_what_is_run_into();
    opt_changed = false;
    each_psect(inline_psect);
    const bool inlined = opt_changed;
    if (inlined)
        build_all_refs();
    each_psect(keep_needed_functions);
    if (!inlined)
        return;
    for (symbol_t *psect : inline_list)
        if (!psect->s_psect->p_keep)
            delete_body(psect);
    each_psect(size_if_any);
    build_all_refs();
}

// Passes together with the removal of unused labels, until a sweep changes nothing. References have to be known from all
// psects before the first label goes. When that goes on and on, functions that nobody needs call each other in a long chain.
// True if the last sweep has left everything as it was, branch stages included.
static bool repeat_passes()
{
    bool changed = true, settled = false;
    opt_late = true;
    settled_forget();
    for (int sweep = 0; changed && sweep < MOST_SWEEPS; sweep++) {
        changed = false;
        settled = true;
        build_all_refs();
        for (symbol_t *psect : st.code_psects)
            if ((sweep < PATIENCE || psect_optim_off(psect, PO_JUMP) ? list_delete_unused_labels(psect)
                                                                     : jump_delete_dead_chains(psect, sweep & 1)) > 0) {
                opt_count(CNT_REDUNDANT_LABELS);
                opt_changed = true;
                changed = true;
            }
        for (symbol_t *psect : st.code_psects) {
            changed |= opt_psect(psect);
            settled &= !opt_changed;
        }
    }
    return settled && !changed;
}

static void optimise_phase()
{
    effect_returns_keep_n = false;
    jump_init();
    build_all_refs();
    stack_find();
    each_psect(size_if_any);
    if (!opt.no_inline && !opt.opt_debug)
        inline_functions();
    for (symbol_t *psect : st.code_psects)
        opt_psect(psect);
    const bool settled = repeat_passes();
    opt_changed = false;
    pa_psects(st.plain_psects, st.code_psects);
    for (const group_t *g : st.group_psects)
        pa_psects(g->psects, st.code_psects);
    if (effect_returns_keep_n != opt_changed)
        settled_forget();
    effect_returns_keep_n = opt_changed;
    if (!settled || opt_changed) {
        build_all_refs();
        for (symbol_t *psect : st.code_psects)
            opt_psect(psect);
    }
    pa_keep_names();
    opt_trace_counters();
}

static void unlink_false_arms(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next, *next; op->op_type != 0; op = next) {
        next = op_step(op);
        if (op->op_flags & OPF_SKIPPED)
            op_unlink(op);
    }
}

static void note_skip_at_end(symbol_t *psect)
{
    const op_t *last = psect->s_psect->p_code->tail.op_prev;
    while (op_is_silent(last))
        last = last->op_prev;
    skip_at_end |= op_is_skip(last);
}

// Its name is read back from assembly text, so there it has no characters that no name has.
static symbol_t *errata_counter()
{
    std::string name = pathmap_apply(opt.object_name);
    if (opt.asm_output)
        for (char &c : name)
            if (!isalnum(static_cast<unsigned char>(c)) && !strchr("$?_@", c))
                c = '_';
    return sym_enter(cache_printf("__cntErrataNOP_%s", name.c_str()), 0);
}

static void insert_errata_nops()
{
    errata_run(st.code_psects);
    symbol_t *s = errata_counter();
    s->s_value = value_const(errata_nops);
    s->s_flags |= S_GLOBAL | S_EQU;
    s->s_flags &= ~static_cast<uint64_t>(S_UNDEF);
}

void optimise_run()
{
    sort_psects();
    if (cmode_is(CMODE_ZCC | CMODE_ZCCE | CMODE_ZMASM))
        for (symbol_t *psect : st.code_psects)
            imply_operators(psect);
    if (!opt.optimise && !(opt.errata_mask & ERRATA_NOPS)) {
        changes_begin(st.code_psects);
        return;
    }
    each_psect(unlink_false_arms);
    each_psect(note_skip_at_end);
    tlab_to_labels();
    each_psect(resolve_jumps);
    build_all_refs();   // for the errata NOPs alone, too: a global label that is used isn't one that only others can know
    pointers_set();
    pins_set();
    changes_begin(st.code_psects);
    if (opt.optimise)
        optimise_phase();
    if (opt.errata_mask & ERRATA_NOPS)
        insert_errata_nops();
}
