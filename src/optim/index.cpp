// Two rules look for another `goto` to the same place with the same instruction before it. Trying all of them would take for
// ever in a program of ten thousand, so they are found through an index. The rules want the first one in the list, so nodes
// carry a number that grows along the list; the numbers have gaps for nodes that are put in later.
//
// Nothing takes an entry back. A goto that has changed, or whose neighbours have, is entered anew, and an entry that is no
// longer true is dropped when it is met.
#include "optim/index.h"

#include <cstring>

#include "common/xalloc.h"
#include "optim/node.h"

constexpr uint64_t ORDER_GAP = uint64_t{1} << 20;
constexpr uint32_t MOST_RIVALS = 1000;   // that are compared with one goto

// A `goto` as a rival for others. It holds as long as the node lives.
struct entry_t {
    op_t *jump;
    uint32_t id, next;     // op_id; the next entry of the chain, its number plus 1
    uint64_t key, order;   // order: its position, which another one shows to have moved
};

static struct {
    symbol_t *psect;   // null while it is closed
    // Each slot has two chains: the jumps in list order, and those that were entered anew, in any order.
    entry_t *entries;
    uint32_t *chains[2];
    uint32_t count, room, slots, slot_room;   // slots: a power of two
} st;

op_t *index_before(op_t *op, bool skip_labels) { return skip_labels ? before_labels(op->op_prev) : op->op_prev; }

// Keys.

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
    return v->v_rtype == RT_SYM ? mix(n, to_word(v->v_sym.get())) : n;
}

static uint64_t node_number(const op_t *op)
{
    return mix(mix(op->op_type, uint64_t{op->op_subop} << 16 | op->op_dest),
               mix(operand_number(&op->op_opnd1), operand_number(op_opnd2(op))));
}

// Whether what stands before `p` counts as well: a skip, without which `p` is no tail, or anything before another `goto`.
static bool is_deep(op_t *p) { return p->op_type == T_GOTO || op_is_skip(index_before(p, true)); }

// Of a `goto` with the instruction before it; `deep`: and with what stands before that. Its entry may be older than the change
// that made it the first node.
static uint64_t key_of(op_t *jump, bool deep)
{
    op_t *p = index_before(jump, true);
    const uint64_t key = mix(node_number(p), operand_number(&jump->op_opnd1));
    return deep && p->op_type != 0 ? mix(key, node_number(index_before(p, true))) : key;
}

// Appends the entries of `jump`, in no chain yet.
static void note(op_t *jump)
{
    op_t *p = index_before(jump, true);
    const int keys = !op_is_code(p) ? 0 : is_deep(p) ? 2 : 1;
    xreserve(st.entries, st.count, st.count + 2, st.room, 1024u);
    for (int deep = 0; deep < keys; deep++)
        st.entries[st.count++] = {jump, jump->op_id, 0, key_of(jump, deep), jump->op_order};
}

static void chain_up(uint32_t first, uint32_t *chain)
{
    for (uint32_t n = first; n < st.count; n++) {
        uint32_t *slot = &chain[st.entries[n].key & (st.slots - 1)];
        st.entries[n].next = *slot;
        *slot = n + 1;
    }
}

void index_open(symbol_t *psect)
{
    uint64_t order = ORDER_LAST;
    st.psect = psect;
    st.count = 0;
    for (op_t *op = psect->s_psect->p_code->tail.op_prev; op->op_type != 0; op = op_step_back(op)) {
        op->op_order = order -= ORDER_GAP;
        if (op->op_type == T_GOTO)
            note(op);
    }
    for (st.slots = 16; st.slots < st.count; st.slots *= 2)
        ;
    for (uint32_t *&chain : st.chains)
        if (st.slots > st.slot_room)
            chain = xnew<uint32_t>(st.slots);
        else
            memset(chain, 0, st.slots * sizeof *chain);
    if (st.slots > st.slot_room)
        st.slot_room = st.slots;
    chain_up(0, st.chains[0]);
}

static void enter(op_t *jump)
{
    const uint32_t first = st.count;
    note(jump);
    chain_up(first, st.chains[1]);
}

void index_close() { st.psect = nullptr; }

// It may be news of the next three nodes.
void index_touch(op_t *op)
{
    for (int i = 0; st.psect && i < 3 && op; i++, op = op->op_next) {
        op = past_labels(op);
        if (op->op_type == T_GOTO && op->op_psect == st.psect)
            enter(op);
    }
}

static uint64_t order_before(const op_t *op) { return op->op_prev->op_type ? op->op_prev->op_order : 0; }
static uint64_t order_behind(const op_t *op) { return op->op_next->op_type ? op->op_next->op_order : ORDER_LAST; }

void index_number(op_t *op)
{
    if (!st.psect)
        return;
    const uint64_t before = order_before(op), behind = order_behind(op);
    if (behind - before < 2)
        index_open(st.psect);
    else
        op->op_order = before + (behind - before) / 2;
}

void index_moved(op_t *first, op_t *last)
{
    const uint64_t before = order_before(first), behind = order_behind(last);
    uint64_t count = 1;
    for (const op_t *op = first; op != last; op = op->op_next)
        count++;
    const uint64_t gap = (behind - before) / (count + 1);
    if (gap == 0) {
        index_open(st.psect);
        return;
    }
    uint64_t order = before;
    for (op_t *op = first;; op = op->op_next) {
        op->op_order = order += gap;
        if (op->op_type == T_GOTO)
            enter(op);
        if (op == last)
            break;
    }
    index_touch(last->op_next);
}

bool index_in_order(const op_t *op) { return op->op_order > order_before(op) && op->op_order < order_behind(op); }

// Rivals.

static void begin_chain(rivals_t *r)
{
    if (r->chain < 2)
        r->link = &st.chains[r->chain][r->key & (st.slots - 1)];
}

rivals_t index_rivals(op_t *jump, uint64_t from)
{
    rivals_t r = {};
    op_t *p = index_before(jump, true);
    r.jump = jump;
    r.from = from;
    r.order = ORDER_LAST;
    r.deep = op_may_not_run(p) || (from == 0 && p->op_type == T_GOTO);   // no tail by itself
    r.left = op_is_code(p) && (!r.deep || is_deep(p)) ? MOST_RIVALS : 0;
    if (r.left > 0) {
        r.key = key_of(jump, r.deep);
        begin_chain(&r);
    }
    return r;
}

// The next entry of the chain that is true still, or null at its end.
static op_t *next_of_chain(rivals_t *r)
{
    while (*r->link) {
        entry_t *e = &st.entries[*r->link - 1];
        if (e->key != r->key) {
            r->link = &e->next;
            continue;
        }
        op_t *c = e->jump;
        if (c->op_id == e->id && c->op_order == e->order && c->op_type == T_GOTO && key_of(c, r->deep) == r->key) {
            r->link = &e->next;
            return c;
        }
        *r->link = e->next;   // gone, or entered anew
    }
    return nullptr;
}

op_t *index_next(rivals_t *r)
{
    while (r->left > 0 && r->chain < 2) {
        op_t *c = next_of_chain(r);
        if (!c || (c->op_order >= r->order && r->chain == 0)) {   // those behind are further down the list still
            r->chain++;
            begin_chain(r);
        } else if (c != r->jump && c->op_order > r->from && c->op_order < r->order) {
            r->left--;
            return c;
        }
    }
    return nullptr;
}
