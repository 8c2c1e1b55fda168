// A function is a psect here that ends with a label "__end_of...". A call to one that is marked `inline`, or that is small when
// small ones are wanted, is replaced by a copy of its code. In the copy a return is a jump to the end, and the labels have
// names of their own.
//
// A copy may hold calls that can be inlined too, so the walk over a host repeats until a copy brings no further call. Functions
// that call each other would never end, so a call stays if it lies in a copy of the very function that it calls; chains of
// functions that inline the next one twice would end too late, so there is a limit. Whether a psect can be a host or a body
// is found out once; what was asked first decides for the run.
//
// The labels of a copy are in no table: their names mean nothing to other modules, and another copy of the function there may
// have the same ones. Global they are called so that no rule takes them for unused.
#include "optim/inline.h"

#include <utility>

#include "code/layout.h"
#include "common/alert.h"
#include "common/hash.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "optim/changes.h"
#include "optim/edit.h"
#include "optim/node.h"
#include "optim/report.h"
#include "optim/stack.h"
#include "optim/templates.h"
#include "options.h"

enum : uint8_t { UNCHECKED = 0, MAY = 1, MAY_NOT = 2 };
constexpr uint64_t SMALL = 7;              // bytes of a function that is copied unasked
constexpr unsigned MOST_COPIES = 10000;    // in one host
constexpr unsigned MOST_NODES = 200'000;   // copied in the run

vec_t<symbol_t *> inline_list;

static struct {
    uint32_t inline_seq;                              // counts copied bodies
    unsigned nodes;                                   // copied so far
    hash_of<const symbol_t *, bool> large;            // psects that were measured and found too large
    hash_of<const symbol_t *, const char *> bodies;   // psects, and why a copy doesn't do what the function does, or null
    hash_of<const symbol_t *, const char *> unfit;    // psects that are neither host nor body, and why
    hash_of<const symbol_t *, bool> refused;          // labels that were told of
    hash_of<const symbol_t *, bool> listed;           // psects in inline_list
    const char *why;                                  // the last question was answered with no
} st;

// A copy of a function, and the copy in which the call for it was.
struct origin_t {
    const symbol_t *function;   // psect
    const origin_t *outer;
};

struct call_t {
    op_t *op;
    const origin_t *in;   // the copy that holds it, or null
};

// Tests.

static bool is_indirect(const op_t *op)
{
    const char *remark = op_remark(op);
    return remark && cache_starts_with(remark, ";indir");
}

static bool no(const char *why)
{
    st.why = why;
    return false;
}

// Why a copy of the node would do something else; null: it wouldn't.
static const char *differs_in_copy(const op_t *op)
{
    switch (op->op_type) {
    case T_DS:
    case T_ORG: return "it holds ds, org or align";
    case T_DB: return op_is_nop_word(op) ? nullptr : "it holds data";   // which may return, or be a skip
    case T_RETURN: return op->op_subop == TPL_RETFIE ? "it holds a retfie" : nullptr;
    case T_RETLW:
        return op_may_not_run(op) && !is_indirect(op) ? "it holds a retlw behind a skip" : nullptr;   // two instructions
    default: return nullptr;
    }
}

// Why a body can't hold the node; null: it can.
static const char *spoils_body(const op_t *op)
{
    switch (op->op_type) {
    case T_ALIGN: return "it holds ds, org or align";
    case T_RCALL: return "it holds an rcall";
    case T_BRA:
    case T_BCC:
    case T_GOTO: {
        if (!op_is_simple(op))
            return "it holds a jump to no plain label";
        const op_t *label = op->op_opnd1.opnd_value.v_sym->s_defop;
        return label && label->op_type == T_NAME && (label->op_sym->s_flags & S_GLOBAL) ? "it jumps to a global label"
                                                                                        : nullptr;
    }
    default: return differs_in_copy(op);
    }
}

static symbol_t *callee_psect(const op_t *call)
{
    return op_is_simple(call) ? value_psect(&call->op_opnd1.opnd_value) : nullptr;
}

static bool is_body_end(const op_t *op)
{
    return op->op_type == 0 || (op->op_type == T_NAME && cache_starts_with(op->op_sym->s_name, "__end_of"));
}

// Why a copy of the body doesn't do what the function does; null: it does. Its returns lead to the copy's exit, with nothing on the stack:
// so control may leave by returns alone, and nothing in the body may call what returns there.
static const char *body_strays(const symbol_t *q)
{
    op_t *const first = q->s_psect->p_code->head.op_next, *end = first;
    while (!is_body_end(end))
        end = end->op_next;
    op_t *last = end->op_prev;
    while (op_is_silent(last))
        last = last->op_prev;
    for (op_t *op = last; op->op_type != 0; op = op->op_prev)
        if (op->op_type == T_NAME)
            op->op_ahead =
                end;   // by which a jump knows the labels of the body; those behind its last instruction are its end
    bool returns = false, calls_itself = false;
    for (const op_t *op = first; op != end; op = op->op_next) {
        // A psect that was first looked at as a host has not been asked whether it may be a body.
        if (const char *why = op->op_flags & OPF_SKIPPED ? nullptr : differs_in_copy(op))
            return why;
        if (op_is_silent(op))
            continue;
        if (op_writes_pcl(op) || op->op_type == T_CALLW)
            return "it holds a computed jump";
        if (op->op_flags & OPF_PINNED)
            return "it holds code that counts on its place";
        if (op->op_type == T_GOTO || op->op_type == T_BRA || op->op_type == T_BCC) {
            const op_t *label = op_is_simple(op) ? op_target(op) : nullptr;
            if (!label || label->op_ahead != end)
                return "it jumps out of its body";
        } else if (op->op_type == T_CALL || op->op_type == T_RCALL) {
            calls_itself |= callee_psect(op) == q;
        } else if (op_is_return(op)) {
            returns |= !is_indirect(op);
        }
    }
    return !op_ends_way(last) ? "it runs on over its end" : returns && calls_itself ? "it calls itself" : nullptr;
}

// The answer holds until the psect becomes the host of a copy.
static bool body_stays_true(const symbol_t *q)
{
    if (!hash_haskey(st.bodies, q))
        hash_insert(st.bodies, q, body_strays(q));
    const char *why = hash_lookup(st.bodies, q);
    return !why || no(why);
}

static void tell(int message, const op_t *where, const char *name)
{
    const srcpos_t position = srcpos;   // new nodes take it
    if (where)
        op_set_position(where);
    alert_msg(message, name);
    srcpos = position;
}

// A call to a marked function stays. False.
static bool refuses(symbol_t *label)
{
    if (hash_insert(st.refused, label, true))
        tell(1433, label->s_defop, label->s_name);
    return false;
}

bool inline_check(int mode, symbol_t *psect, const char *name)
{
    psect_t *p = psect->s_psect;
    const op_t *named = nullptr;
    bool ok = false;
    const char *why = "no label that begins with __end_of ends its psect";
    for (const op_t *op = p->p_code->head.op_next; op->op_type != 0; op = op->op_next) {
        if (const char *spoilt = mode == 1 && !(op->op_flags & OPF_SKIPPED) ? spoils_body(op) : nullptr) {
            why = spoilt;
            break;
        }
        if (op->op_type != T_NAME)
            continue;
        const char *label = op->op_sym->s_name;
        if (cache_starts_with(label, "__end_of")) {
            ok = mode == 0 || psect_is_function(psect);
            why = "its psect isn't one of functions";
            break;
        }
        if (name && cache_string(name) == cache_string(label))
            named = op;
        if (opt.keep_labels && hash_haskey(opt.keep_labels, label))
            p->p_keep = true;
    }
    p->p_inlstate = ok ? MAY : MAY_NOT;
    if (!ok)
        hash_insert(st.unfit, psect, why);
    if (!ok && p->p_inline && name)
        tell(1433, named, name);
    return ok;
}

static bool state_is_may(int mode, symbol_t *psect, const char *name)
{
    return (psect->s_psect->p_inlstate ? psect->s_psect->p_inlstate == MAY : inline_check(mode, psect, name)) ||
           no(hash_lookup(st.unfit, psect));
}

// The callee is another psect that may share code with the caller's, and the call does nothing else: a fast one saves
// registers.
static bool may_share(const symbol_t *q, const op_t *call)
{
    if (!q || !call->op_psect)
        return false;
    if (!op_free(call))
        return no("the call is to stay as it is");
    if (q == call->op_psect)
        return no("it stands in the function's own psect");
    if (!psect_shares(q, call->op_psect) || q->s_psect->p_flags & P_NOTE)
        return no("the psects don't share code");
    return !(call->op_subop & TPL_FAST) || no("a fast call saves registers");
}

// The function is called at its beginning, not from within itself, and a copy of it does the same.
static bool copy_will_do(const call_t *call)
{
    const symbol_t *q = callee_psect(call->op);
    const op_t *label = op_target(call->op);
    if (!label || label->op_offs != 0)
        return no("it doesn't lead to the function's beginning");
    if (stack_used_from(label->op_sym))
        return no("it looks at the stack");
    if (!body_stays_true(q))
        return false;
    for (const origin_t *copy = call->in; copy; copy = copy->outer)
        if (copy->function == q)
            return no("it lies in a copy of the function that it calls");
    return true;
}

static bool auto_ok(const call_t *call)
{
    constexpr const char *LARGE = "it has more than 7 bytes";
    static_assert(SMALL == 7);
    symbol_t *q = callee_psect(call->op);
    if (!may_share(q, call->op) || q->s_psect->p_inline || !state_is_may(1, q, nullptr))
        return false;
    if (!psect_is_function(q))
        return no("its psect isn't one of functions");
    if (hash_haskey(st.large, q))
        return no(LARGE);
    if (!copy_will_do(call))
        return false;
    size_psect(q);
    if (q->s_psect->p_top > SMALL) {
        hash_insert(st.large, q, true);
        return no(LARGE);
    }
    q->s_psect->p_keep = true;
    return true;
}

static bool call_ok(const call_t *call)
{
    symbol_t *q = callee_psect(call->op);
    if (!may_share(q, call->op))
        return false;
    symbol_t *label = call->op->op_opnd1.opnd_value.v_sym;
    return label && state_is_may(1, q, label->s_name) && q->s_psect->p_inline && (copy_will_do(call) || refuses(label));
}

static bool is_candidate(const call_t *call)
{
    if (call->op->op_type != T_CALL)
        return false;
    if (op_may_not_run(call->op))
        return no("it stands behind a skip");
    return call_ok(call) || (opt.auto_inline && auto_ok(call));
}

// A call stays: the report says so, and the last answer, if inlining was asked for.
static void tell_stays(const op_t *call)
{
    const symbol_t *q = callee_psect(call);
    if (q && st.why && (q->s_psect->p_inline || opt.auto_inline))
        change_refuse(call, st.why);
}

// Copying.

struct copy_t {
    const op_t *call;                       // that is replaced
    op_t *at, *exit;                        // the last node of the copy, and its exit label
    hash_of<const char *, op_t *> labels;   // of old names, to the new label nodes
    vec_t<op_t *> jumps, calls;             // to labels that have not been copied yet
    vec_t<call_t *> further;                // calls of the copy, which may be candidates
    const origin_t *origin;
};

static op_t *put(copy_t *c, op_t *op)
{
    op_set_callstack(op, op_callstack(c->call));
    op->op_flags |= OPF_MARK;
    st.nodes++;
    c->at = op_insert_after(c->at, op);
    change_copy(op, c->call);
    return op;
}

static op_t *plain_copy(copy_t *c, const op_t *op)
{
    op_t *n = op_new();
    n->op_type = op->op_type;
    n->op_subop = op->op_subop;
    n->op_dest = op->op_dest;
    n->op_access = op->op_access;
    n->op_flags = op->op_flags;
    n->op_opnd1 = op->op_opnd1;
    op_set_opnd2(n, op_opnd2(op));
    n->op_number = op->op_number;   // or whatever the kind has there
    op_set_remark(n, op_remark(op));
    op_take_source_line(n, op);
    op_take_position(n, op);
    op_comments_copy(n, op);
    return put(c, n);
}

// A copied jump or call, pointed at the copy of its label or noted for later.
static void point_or_note(copy_t *c, op_t *op, vec_t<op_t *> later)
{
    op_t *label = hash_lookup(c->labels, op->op_opnd1.opnd_value.v_sym->s_name);
    if (label)
        edit_lead_to(op, label->op_sym);
    else
        vec_add(later, op);
}

static void patch(copy_t *c, vec_t<op_t *> later)
{
    for (op_t *op : later) {
        op_t *label = hash_lookup(c->labels, op->op_opnd1.opnd_value.v_sym->s_name);
        if (label)
            edit_lead_to(op, label->op_sym);
        else if (op_target(op))
            op_add_ref(op, op_target(op));
    }
}

static void put_goto_exit(copy_t *c, const op_t *op)
{
    op_t *jump = put(c, edit_new_jump(T_GOTO, 0, c->exit));
    op_take_position(jump, op);
    op_add_ref(jump, c->exit);
}

static void copy_label(copy_t *c, const op_t *op)
{
    const char *name = cache_printf("i%uL%s", st.inline_seq, op->op_sym->s_name);
    for (unsigned i = 1; sym_find(name); i++)   // the program has it
        name = cache_printf("i%u_%uL%s", st.inline_seq, i, op->op_sym->s_name);
    op_t *label = edit_new_label(name);
    label->op_sym->s_flags = S_GLOBAL;
    hash_insert(c->labels, op->op_sym->s_name, put(c, label));
    label->op_sym->s_owner = label->op_psect;
}

static void note_call(vec_t<call_t *> calls, op_t *op, const origin_t *in)
{
    call_t *call = xnew<call_t>();
    *call = {op, in};
    vec_add(calls, call);
}

static void copy_call(copy_t *c, const op_t *op)
{
    op_t *call = plain_copy(c, op);
    if (op->op_type == T_CALL)
        note_call(c->further, call, c->origin);
    if (!op_is_simple(op) || callee_psect(op) != op->op_psect)
        return;
    if (hash_lookup(c->labels, op->op_opnd1.opnd_value.v_sym->s_name)) {
        call->op_type = T_CALL;
        call->op_subop = TPL_CALL;
    }
    point_or_note(c, call, c->calls);
}

// False at the body's end.
static bool copy_node(copy_t *c, const op_t *op)
{
    switch (op->op_type) {
    case T_NAME:
        if (cache_starts_with(op->op_sym->s_name, "__end_of"))
            return false;
        copy_label(c, op);
        break;
    case T_GOTO:
    case T_BRA:
    case T_BCC: point_or_note(c, plain_copy(c, op), c->jumps); break;
    case T_RETURN:
    case T_RETLW:
        if (is_indirect(op)) {
            plain_copy(c, op);
            break;
        }
        if (op->op_type == T_RETLW) {
            op_t *load = plain_copy(c, op);
            load->op_type = T_MOVLW;
            load->op_subop = TPL_MOVLW;
        }
        put_goto_exit(c, op);
        break;
    case T_CALL:
    case T_RCALL: copy_call(c, op); break;
    default: plain_copy(c, op); break;
    }
    return true;
}

// Copies the body of `q` behind `entry`, and notes its calls in `further`.
static void copy_body(const call_t *call, symbol_t *q, op_t *entry, op_t *exit, vec_t<call_t *> further)
{
    copy_t c = {};
    c.call = call->op;
    c.at = entry;
    c.exit = exit;
    c.further = further;
    c.labels = hash_make<const char *, op_t *>(127, hash_string, hash_strcmp);
    c.jumps = vec_make<op_t *>();
    c.calls = vec_make<op_t *>();
    origin_t *origin = xnew<origin_t>();
    *origin = {q, call->in};
    c.origin = origin;
    st.inline_seq++;
    if (!q->s_psect->p_keep && hash_insert(st.listed, q, true))
        vec_add(inline_list, q);
    for (const op_t *op = q->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
        if (!(op->op_flags & OPF_SKIPPED) && !copy_node(&c, op))
            break;
    patch(&c, c.jumps);
    patch(&c, c.calls);
}

// An entry or exit label, linked behind `where`.
static op_t *border_label(op_t *where, const op_t *call)
{
    op_t *label = edit_new_label(cache_printf("iL%u", sym_newlabel()->s_labelno));
    op_set_callstack(label, op_callstack(call));
    label->op_flags |= OPF_MARK;
    op_insert_after(where, label);
    label->op_sym->s_owner = label->op_psect;
    return label;
}

// Replaces the call by a copy of the function.
static void inline_call(const call_t *call, vec_t<call_t *> further)
{
    op_t *op = call->op;
    symbol_t *q = callee_psect(op);
    opt_fired("inlining", CNT_NONE, op);
    op_t *entry = border_label(op, op), *exit = border_label(entry, op);
    hash_remove(st.large.raw, to_word(op->op_psect.get()));
    hash_remove(st.bodies.raw, to_word(op->op_psect.get()));
    copy_body(call, q, entry, exit, further);
    inline_note(op->op_opnd1.opnd_value.v_sym, q, 1);
    op_delete_if_live(op);
}

static void init()
{
    st.large = hash_make<const symbol_t *, bool>(1009, nullptr, nullptr);
    st.bodies = hash_make<const symbol_t *, const char *>(1009, nullptr, nullptr);
    st.unfit = hash_make<const symbol_t *, const char *>(1009, nullptr, nullptr);
    st.listed = hash_make<const symbol_t *, bool>(101, nullptr, nullptr);
    inline_list = vec_make<symbol_t *>();
    st.refused = hash_make<const symbol_t *, bool>(101, nullptr, nullptr);
}

// A walk over the host is one over its calls: what was no candidate once never becomes one, so a further walk has to look at
// the calls in the copies of the last one alone.
void inline_psect(symbol_t *psect)
{
    if (!psect || (psect->s_psect->p_flags & P_NOTE))
        return;
    if (!st.bodies)
        init();
    const bool may = state_is_may(0, psect, nullptr);
    if (!may && !changes.kept)
        return;
    vec_t<call_t *> calls = vec_make<call_t *>(), further = vec_make<call_t *>();
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
        if (op->op_type == T_CALL && !(op->op_flags & OPF_SKIPPED))
            note_call(calls, op, nullptr);
    for (unsigned copies = 0; vec_size(calls) != 0; std::swap(calls, further)) {
        vec_removeAll(further);
        for (const call_t *call : calls) {
            st.why = may ? nullptr : "no label that begins with __end_of ends the psect that holds the call";
            if (!may || !is_candidate(call)) {
                tell_stays(call->op);
                continue;
            }
            if (copies++ == MOST_COPIES || st.nodes > MOST_NODES)
                return tell(2214, call->op, psect->s_name);
            inline_call(call, further);
        }
    }
}
