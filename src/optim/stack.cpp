// What leads to an instruction on the stack is found backward from it: up the list, as far as control may come from above, and
// from each label on the way to all that names it. Rules neither make such instructions nor lead new ways to them, so once is
// enough; what other modules do isn't known.
//
// The address on top of the stack is that of the call that led there, unless a push stands between. If addresses are dropped
// anywhere, it may be that of any call further up.
#include "optim/stack.h"

#include "code/sfrop.h"
#include "common/hash.h"
#include "optim/node.h"
#include "optim/templates.h"

constexpr uint64_t SEEN = 1;   // op_order of nodes that have been walked over

using labels_t = hash_of<const symbol_t *, bool>;   // null if there are none

static struct {
    labels_t users, aimers;   // labels that lead to any use of the stack; to a jump by their own return address
    bool drops;               // addresses are dropped somewhere
} st;

static bool handles_address(const op_t *op) { return sfr_isTos(&op->op_opnd1) || sfr_isTos(op_opnd2(op)); }

static bool writes_address(const op_t *op)
{
    return sfr_isTos(op_opnd2(op)) || (sfr_isTos(&op->op_opnd1) && op->op_type != T_MOVFF && op->op_dest != DEST_W);
}

static bool is_push(const op_t *op) { return op->op_type == T_PUSH && op->op_subop == op_template("push"); }

static bool is_call(const op_t *op) { return op->op_type == T_CALL || op->op_type == T_RCALL; }

static void follow_back(op_t *op, labels_t labels, vec_t<op_t *> waiting, bool aims)
{
    for (; op->op_type != 0 && op->op_order != SEEN; op = op->op_prev) {
        op->op_order = SEEN;
        if (aims && is_push(op))
            break;
        if (op->op_type == T_NAME) {
            hash_insert(labels, op->op_sym, true);
            if (op_refs(op))
                for (op_t *ref : op_refs(op))
                    if (!aims || st.drops || !is_call(ref))
                        vec_add(waiting, ref);
        }
        const bool arm = op->op_prev->op_flags & OPF_PINNED;   // which control may come from above to
        if (op_ends_way(op->op_prev) && !arm)
            break;
    }
}

static labels_t find(bool aims)
{
    vec_t<op_t *> waiting = vec_make<op_t *>();
    for (const code_list_t *list : psect_list) {
        op_t *reads = nullptr;   // the address, and perhaps jumps there
        for (op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op)) {
            op->op_order = 0;
            if (reads && op_writes_pcl(op))
                vec_add(waiting, reads);
            if (op_ends_way(op))
                reads = nullptr;
            if (!op_uses_stack(op))
                continue;
            if (!aims || writes_address(op))
                vec_add(waiting, op);
            else if (handles_address(op))
                reads = op;
            st.drops |= !handles_address(op) && !is_push(op);
        }
    }
    labels_t labels = {};
    if (vec_size(waiting) > 0)
        labels = hash_make<const symbol_t *, bool>(1009, nullptr, nullptr);
    for (uint32_t i = 0; i < vec_size(waiting); i++)
        follow_back(vec_elementAt(waiting, i), labels, waiting, aims);
    return labels;
}

void stack_find() { st.users = find(false); }

bool stack_used_from(const symbol_t *label) { return st.users && hash_haskey(st.users, label); }

void stack_find_aims() { st.aimers = find(true); }

bool stack_aims_from(const symbol_t *label) { return st.aimers && hash_haskey(st.aimers, label); }
