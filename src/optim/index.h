// index: the gotos of the psect that the jump stage works on, found by where they lead and what stands before them.
//
// It is open during a walk of that stage. Whoever changes a node or its neighbours tells `index_touch` of it, and of a node
// that is linked `index_number`; both do nothing at other times.
#pragma once

#include "code/list.h"

void index_open(symbol_t *psect);   // numbers the nodes and enters the gotos; also when it is open already
void index_close();
void index_touch(op_t *op);                  // something has changed in `op` or in front of it
void index_number(op_t *op);                 // `op` has been linked: it gets a position between those of its neighbours
void index_moved(op_t *first, op_t *last);   // these nodes have: the same for all of them
bool index_in_order(const op_t *op);         // its position lies between those of its neighbours

// The node before `op`, or before the labels there.
op_t *index_before(op_t *op, bool skip_labels);

// Gotos that may lead to the same place as `jump` and may have the same instruction before them, from the position `from`
// up to `order`, which the caller may lower. They come in no order; what is really equal is for the caller to see.
struct rivals_t {
    const op_t *jump;
    uint64_t from, order, key;
    uint32_t *link;   // of the entry to be looked at next
    uint32_t left;    // that may still be told
    uint8_t chain;
    bool deep;   // what stands before the instruction counts as well
};
rivals_t index_rivals(op_t *jump, uint64_t from);   // from 0 on: a `goto` alone makes no tail
op_t *index_next(rivals_t *r);                      // null: no more

constexpr uint64_t ORDER_LAST = uint64_t{1} << 62;   // above every position
