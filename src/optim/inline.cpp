// A function is a psect here that ends with a label "__end_of...". A call to one that is marked `inline`, or that is small when
// small ones are wanted, is replaced by a copy of its code. In the copy a return is a jump to the end, and the labels have
// names of their own.
//
// A copy may hold calls that can be inlined too, so the walk over a host repeats until a copy brings no further candidate.
// Functions that inline each other would never end, and chains of functions that inline the next one twice would end too late,
// so there is a limit. Whether a psect can be a host or a body is found out once; what was asked first decides for the run.
//
// The labels of a copy are in no table: their names mean nothing to other modules, and another copy of the function there may
// have the same ones. Global they are called so that no rule takes them for unused.
#include "optim/inline.h"

#include <utility>

#include "code/layout.h"
#include "code/sfrop.h"
#include "common/alert.h"
#include "common/hash.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "optim/edit.h"
#include "optim/errata.h"
#include "optim/node.h"
#include "optim/report.h"
#include "optim/templates.h"
#include "options.h"

enum : uint8_t { UNCHECKED = 0, MAY = 1, MAY_NOT = 2 };
constexpr uint64_t SMALL = 7;              // bytes of a function that is copied unasked
constexpr unsigned MOST_COPIES = 10000;    // in one host
constexpr unsigned MOST_NODES = 200'000;   // copied in the run

vec_t<symbol_t *> inline_list;

static struct {
    uint32_t inline_seq;                     // counts copied bodies
    unsigned nodes;                          // copied so far
    hash_of<const symbol_t *, bool> large;   // psects that were measured and found too large
} st;

// Tests.

static bool is_indirect(const op_t *op)
{
    const char *remark = op_more(op)->op_remark;
    return remark && cache_starts_with(remark, ";indir");
}

// Whether a body can't hold the node.
static bool spoils_body(const op_t *op)
{
    switch (op->op_type) {
    case T_DS:
    case T_ORG:
    case T_ALIGN:
    case T_RCALL: return true;
    case T_DB: return !errata_is_nop(op);
    case T_RETURN: return op->op_subop == TPL_RETFIE;
    case T_RETLW: return after_skip(op) && !is_indirect(op);   // two instructions can't stand under a skip
    case T_BRA:
    case T_BCC:
    case T_GOTO: {
        if (!op_is_simple(op))
            return true;
        const op_t *label = op->op_opnd1.opnd_value.v_sym->s_defop;
        return label && label->op_type == T_NAME && (label->op_sym->s_flags & S_GLOBAL);
    }
    default: return false;
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

static bool lies_in_body(const op_t *label, const symbol_t *q)
{
    if (!label || label->op_type != T_NAME || label->op_psect != q)
        return false;
    while (!is_body_end(label))
        label = label->op_next;
    return label->op_type != 0;
}

// Whether a copy of the body does what the function does. Its returns lead to the copy's exit, with nothing on the stack:
// so control may leave by returns alone, nothing may look at the stack, and nothing in the body may call what returns there.
static bool body_stays_true(const symbol_t *q)
{
    bool returns = false, calls_itself = false;
    const op_t *last = nullptr;
    const op_t *op = q->s_psect->p_code->head.op_next;
    for (; !is_body_end(op); op = op->op_next) {
        if ((op->op_flags & OPF_SKIPPED) || op_is_silent(op))
            continue;
        last = op;
        if ((op->op_flags & OPF_PINNED) || op_writes_pcl(op) || op->op_type == T_CALLW || op_uses_stack(op))
            return false;
        if (op->op_type == T_GOTO || op->op_type == T_BRA || op->op_type == T_BCC) {
            if (!op_is_simple(op) || !lies_in_body(op->op_opnd1.opnd_value.v_sym->s_defop, q))
                return false;
        } else if (op->op_type == T_CALL || op->op_type == T_RCALL) {
            calls_itself |= callee_psect(op) == q;
        } else if (op_is_return(op)) {
            returns |= !is_indirect(op);
        }
    }
    const bool ends = last && !after_skip(last) && (op_is_transfer(last) || last->op_type == T_BRA);
    return ends && !(returns && calls_itself);
}

bool inline_check(int mode, symbol_t *psect, const char *name)
{
    psect_t *p = psect->s_psect;
    const op_t *named = nullptr;
    bool ok = false;
    for (const op_t *op = p->p_code->head.op_next; op->op_type != 0; op = op->op_next) {
        if (mode == 1 && !(op->op_flags & OPF_SKIPPED) && spoils_body(op))
            break;
        if (op->op_type != T_NAME)
            continue;
        const char *label = op->op_sym->s_name;
        if (cache_starts_with(label, "__end_of")) {
            ok = mode == 0 || psect_is_function(psect);
            break;
        }
        if (name && cache_string(name) == cache_string(label))
            named = op;
        if (opt.keep_labels && hash_haskey(opt.keep_labels, label))
            p->p_keep = true;
    }
    p->p_inlstate = ok ? MAY : MAY_NOT;
    if (!ok && p->p_inline && name) {
        const srcpos_t position = srcpos;   // new nodes take it
        if (named)
            op_set_position(named);
        alert_msg(1433, name);
        srcpos = position;
    }
    return ok;
}

static bool state_is_may(int mode, symbol_t *psect, const char *name)
{
    return psect->s_psect->p_inlstate ? psect->s_psect->p_inlstate == MAY : inline_check(mode, psect, name);
}

// The callee is another psect that may share code with the caller's. It is called at its beginning, by a call that does nothing
// else: a fast one saves registers.
static bool may_share(const symbol_t *q, const op_t *call)
{
    if (!q || !op_free(call) || !call->op_psect || q == call->op_psect || !psect_shares(q, call->op_psect) ||
        (q->s_psect->p_flags & P_NOTE) || (call->op_subop & TPL_FAST))
        return false;
    const op_t *label = op_target(call);
    return label && label->op_offs == 0;
}

static bool auto_ok(const op_t *call)
{
    symbol_t *q = callee_psect(call);
    if (!may_share(q, call) || q->s_psect->p_inline || !state_is_may(1, q, nullptr) || !psect_is_function(q) ||
        hash_haskey(st.large, q))
        return false;
    size_psect(q);
    if (q->s_psect->p_top > SMALL) {
        hash_insert(st.large, q, true);
        return false;
    }
    q->s_psect->p_keep = true;
    return true;
}

static bool call_ok(const op_t *call)
{
    symbol_t *q = call->op_type == T_CALL && !after_skip(call) ? callee_psect(call) : nullptr;
    return may_share(q, call) && state_is_may(1, q, call->op_opnd1.opnd_value.v_sym->s_name) && q->s_psect->p_inline;
}

static bool is_candidate(const op_t *call)
{
    return (call_ok(call) || (opt.auto_inline && call->op_type == T_CALL && !after_skip(call) && auto_ok(call))) &&
           body_stays_true(callee_psect(call));
}

// Copying.

struct copy_t {
    const op_t *call;                       // that is replaced
    op_t *at, *exit;                        // the last node of the copy, and its exit label
    hash_of<const char *, op_t *> labels;   // of old names, to the new label nodes
    vec_t<op_t *> jumps, calls;             // to labels that have not been copied yet
    vec_t<op_t *> further;                  // calls of the copy that may be candidates
    bool more;                              // the body holds a further candidate
};

static op_t *put(copy_t *c, op_t *op)
{
    op_more(op)->op_callstack = op_more(c->call)->op_callstack;
    op->op_flags |= OPF_MARK;
    st.nodes++;
    return c->at = op_insert_after(c->at, op);
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
    n->op_opnd2 = op->op_opnd2;
    n->op_arg = op->op_arg;
    op_more(n)->op_remark = op_more(op)->op_remark;
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

static void copy_call(copy_t *c, const op_t *op)
{
    c->more = c->more || is_candidate(op);
    op_t *call = plain_copy(c, op);
    if (op->op_type == T_CALL)
        vec_add(c->further, call);
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

// Copies the body of `q` behind `entry`, and its calls to `further`. True if it holds further candidates.
static bool copy_body(const op_t *call, symbol_t *q, op_t *entry, op_t *exit, vec_t<op_t *> further)
{
    copy_t c = {};
    c.call = call;
    c.at = entry;
    c.exit = exit;
    c.further = further;
    c.labels = hash_make<const char *, op_t *>(127, hash_string, hash_strcmp);
    c.jumps = vec_make<op_t *>();
    c.calls = vec_make<op_t *>();
    st.inline_seq++;
    if (!q->s_psect->p_keep) {
        if (!inline_list)
            inline_list = vec_make<symbol_t *>();
        vec_add(inline_list, q);
    }
    for (const op_t *op = q->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
        if (!(op->op_flags & OPF_SKIPPED) && !copy_node(&c, op))
            break;
    patch(&c, c.jumps);
    patch(&c, c.calls);
    return c.more;
}

// An entry or exit label, linked behind `where`.
static op_t *border_label(op_t *where, const op_t *call)
{
    op_t *label = edit_new_label(cache_printf("iL%u", sym_newlabel()->s_labelno));
    op_more(label)->op_callstack = op_more(call)->op_callstack;
    label->op_flags |= OPF_MARK;
    op_insert_after(where, label);
    label->op_sym->s_owner = label->op_psect;
    return label;
}

// Replaces the call by a copy of the function.
static bool inline_call(op_t *call, symbol_t *q, vec_t<op_t *> further)
{
    opt_fired("inlining", CNT_NONE, call);
    op_t *entry = border_label(call, call), *exit = border_label(entry, call);
    const bool more = copy_body(call, q, entry, exit, further);
    inline_note(call->op_opnd1.opnd_value.v_sym, q, 1);
    op_delete_if_live(call);
    return more;
}

static void tell_limit(const op_t *op)
{
    const srcpos_t position = srcpos;
    op_set_position(op);
    alert_msg(2214, op->op_psect->s_name);
    srcpos = position;
}

// A walk over the host is one over its calls: what was no candidate once never becomes one, so a further walk has to look at
// the calls in the copies of the last one alone.
void inline_psect(symbol_t *psect)
{
    if (!psect || (psect->s_psect->p_flags & P_NOTE) || !state_is_may(0, psect, nullptr))
        return;
    if (!st.large)
        st.large = hash_make<const symbol_t *, bool>(1009, nullptr, nullptr);
    vec_t<op_t *> calls = vec_make<op_t *>(), further = vec_make<op_t *>();
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
        if (op->op_type == T_CALL && !(op->op_flags & OPF_SKIPPED))
            vec_add(calls, op);
    unsigned copies = 0;
    for (bool more = true; more; std::swap(calls, further)) {
        more = false;
        vec_removeAll(further);
        for (op_t *op : calls) {
            symbol_t *q = is_candidate(op) ? callee_psect(op) : nullptr;
            if (!q)
                continue;
            if (copies++ == MOST_COPIES || st.nodes > MOST_NODES) {
                tell_limit(op);
                return;
            }
            more |= inline_call(op, q, further);
            hash_remove(st.large.raw, to_word(psect));
        }
    }
}
