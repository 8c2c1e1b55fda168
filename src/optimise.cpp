// The order of everything between parsing and output. Which psects hold code is told by their names; those of one memory
// group may share code with each other.
//
// With -O, functions are inlined first, since that gives the rules more to see. Then the pass runs over each code psect
// once, and again and again together with the removal of unused labels, until nothing changes. Repeated code is abstracted,
// and a last pass looks at what that left. Errata NOPs come last of all, with or without -O.
#include "optimise.h"

#include <cstring>

#include "code/layout.h"
#include "code/ops.h"
#include "code/tlab.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/cmode.h"
#include "optim/errata.h"
#include "optim/inline.h"
#include "optim/optim.h"
#include "optim/pa.h"
#include "options.h"

constexpr uint32_t ERRATA_NOPS = 0x4001;
constexpr int PATIENCE = 20, MOST_SWEEPS = 1000;
// Operator kinds, a bit each, through whose left operands the implied `low` looks for a symbol.
constexpr uint32_t LOOK_THROUGH = 0x421FF0;

struct group_t {
    uint32_t number;
    vec_t<symbol_t *> psects;
};

static struct {
    vec_t<symbol_t *> code_psects;                // every code psect, in psect order
    vec_t<symbol_t *> plain_psects;               // those without the minocg flag
    vec_t<group_t *> group_psects;                // those with it, by group number
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
        if (psect->s_flags & S_NOTE) {
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

// Implied operators: older compilers leave `low` and `high` out on the lines that they write.

static void imply_high(op_t *op)
{
    value_t *v = &op->op_opnd1.opnd_value;
    if (v->v_rtype != RT_SYM)
        return;
    value_unary(OPC_HIGH, v);
    op_more(op)->op_remark = ";# assembler added high";
}

// The value with `low` around the symbol at the end of its left operands, or the same value if there is none.
static value_t low_inside(const value_t *v, bool *found)
{
    value_t result = *v;
    if (v->v_rtype == RT_SYM && !v->v_common) {
        value_unary(OPC_LOW, &result);
        *found = true;
    } else if (v->v_rtype < 32 && (LOOK_THROUGH >> v->v_rtype & 1) && !v->v_common) {
        const value_t left = low_inside(value_left(v), found);
        if (*found) {
            result = value_make_binary(v->v_rtype, &left, value_right(v));
            result.v_offs = v->v_offs;
        }
    }
    return result;
}

static void imply_low(op_t *op)
{
    bool found = false;
    const value_t v = low_inside(&op->op_opnd1.opnd_value, &found);
    if (!found)
        return;
    op->op_opnd1.opnd_value = v;
    op_more(op)->op_remark = ";# assembler added low";
}

static void imply_operators(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op)) {
        if (!op_more(op)->op_remark || !cache_starts_with(op_more(op)->op_remark, ";#"))
            continue;
        switch (op->op_type) {
        case T_MOVLB:
            imply_high(op);
            break;
        case T_SUBWF: case T_BCF: case T_MOVF: case T_SWAPF: case T_RLCF: case T_BTFSC: case T_DECFSZ: case T_ANDWF: case T_INCF:
        case T_ADDWF: case T_MULWF: case T_CPFSEQ: case T_MOVWF: case T_CLRF:
            if (op->op_access == ACCESS_B)
                imply_low(op);
            break;
        default:
            break;
        }
    }
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

static void build_all_refs()
{
    each_psect(list_clear_refs);
    each_psect(list_build_refs);
    note_taken_labels();
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

// A function whose every call was inlined goes, but for labels that others may know.
static void delete_body(symbol_t *psect)
{
    vec_remove(st.code_psects, psect);
    for (op_t *op = psect->s_psect->p_code->head.op_next, *next; op->op_type != 0; op = next) {
        next = op->op_next;
        if (op->op_type == T_NAME
            && (((op->op_sym->s_flags & S_GLOBAL) && op->op_sym->s_name[0] == '_') || cache_starts_with(op->op_sym->s_name, "iL")))
            continue;
        if (op->op_type == T_NAME) {
            op->op_sym->s_defop = nullptr;
            op->op_sym->s_flags |= S_UNDEF;
        }
        op_delete_if_live(op);
    }
}

static void inline_functions()
{
    each_psect(inline_psect);
    build_all_refs();
    each_psect(keep_needed_functions);
    for (symbol_t *psect : inline_list)
        if (!psect->s_psect->p_keep)
            delete_body(psect);
}

// Passes together with the removal of unused labels, until a sweep changes nothing. References have to be known from all
// psects before the first label goes. When that goes on and on, functions that nobody needs call each other in a long chain.
// True if the last sweep has left everything as it was, branch stages included.
static bool repeat_passes()
{
    bool changed = true, settled = false;
    opt_late = true;
    for (int sweep = 0; changed && sweep < MOST_SWEEPS; sweep++) {
        changed = false;
        settled = true;
        build_all_refs();
        for (symbol_t *psect : st.code_psects)
            if ((sweep < PATIENCE || psect_optim_off(psect, PO_JUMP) ? list_delete_unused_labels(psect)
                                                                     : opt_delete_dead_chains(psect, sweep & 1)) > 0) {
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
    optim_init();
    tlab_to_labels();
    each_psect(list_build_refs);
    each_psect(size_if_any);
    if (!opt.no_inline && !opt.opt_debug)
        inline_functions();
    each_psect(size_if_any);
    build_all_refs();
    for (symbol_t *psect : st.code_psects)
        opt_psect(psect);
    const bool settled = repeat_passes();
    opt_changed = false;
    pa_psects(st.plain_psects, st.code_psects);
    for (const group_t *g : st.group_psects)
        pa_psects(g->psects, st.code_psects);
    if (!settled || opt_changed) {
        build_all_refs();
        for (symbol_t *psect : st.code_psects)
            opt_psect(psect);
    }
    opt_trace_counters();
}

static void insert_errata_nops()
{
    errata_run(st.code_psects);
    symbol_t *s = sym_enter(cache_printf("__cntErrataNOP_%s", opt.obj_file), 0);
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
    if (opt.optimise)
        optimise_phase();
    if (opt.errata_mask & ERRATA_NOPS)
        insert_errata_nops();
}
