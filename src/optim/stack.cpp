// What leads to an instruction on the stack is found backward from it: up the list, as far as control may come from above, and
// from each label on the way to all that names it. Rules neither make such instructions nor lead new ways to them, so once is
// enough; what other modules do isn't known.
#include "optim/stack.h"

#include "common/hash.h"
#include "optim/node.h"

constexpr uint64_t SEEN = 1;   // op_order of nodes that have been walked over

static struct {
    hash_of<const symbol_t *, bool> labels;   // from which the stack is used; null if it isn't anywhere
    vec_t<op_t *> waiting;                    // nodes that lead there and haven't been followed
} st;

static void follow_back(op_t *op)
{
    for (; op->op_type != 0 && op->op_order != SEEN; op = op->op_prev) {
        op->op_order = SEEN;
        if (op->op_type == T_NAME) {
            hash_insert(st.labels, op->op_sym, true);
            if (op_refs(op))
                for (op_t *ref : op_refs(op))
                    vec_add(st.waiting, ref);
        }
        const bool arm = op->op_prev->op_flags & OPF_PINNED;   // which control may come from above to
        if (op_ends_way(op->op_prev) && !arm)
            break;
    }
}

void stack_find()
{
    for (const code_list_t *list : psect_list)
        for (op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op)) {
            op->op_order = 0;
            if (!op_uses_stack(op))
                continue;
            if (!st.labels) {
                st.labels = hash_make<const symbol_t *, bool>(1009, nullptr, nullptr);
                st.waiting = vec_make<op_t *>();
            }
            vec_add(st.waiting, op);
        }
    for (uint32_t i = 0; st.labels && i < vec_size(st.waiting); i++)
        follow_back(vec_elementAt(st.waiting, i));
}

bool stack_used_from(const symbol_t *label) { return st.labels && hash_haskey(st.labels, label); }
