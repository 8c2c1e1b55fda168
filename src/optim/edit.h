// edit: the changes of a list that rules are made of.
//
// They keep true what hangs on the nodes: the references of labels, what of the list is reached, source positions, and the
// index of the jump stage.
#pragma once

#include "code/list.h"
#include "optim/rules.h"

// Deletes a node that isn't to stay; a label's symbol is no longer defined.
void edit_delete(op_t *op);
// Deletes the code behind `op` up to a node at which `stop` says so. What isn't free stays, and so does what isn't code.
// With a `rule` each node counts as its firing.
void edit_delete_behind(op_t *op, bool (*stop)(const op_t *op), opt_rule_t rule, int counter);
// Links `op`, which is linked elsewhere, behind `where`.
void edit_move(op_t *op, op_t *where);

// A label that nothing looks for by name, kept for good; not linked.
op_t *edit_new_label(const char *name);
// The label before `op`, made if there is none.
op_t *edit_label_before(op_t *op);

// A jump to the label node `label`, whose symbol gains a reference; not linked.
op_t *edit_new_jump(token_t type, uint16_t subop, op_t *label);
// Links such a jump behind `where` and notes it at its label.
op_t *edit_link_jump(op_t *where, op_t *jump, op_t *label);
op_t *edit_goto_before(op_t *op, op_t *label);
// The jump leads to `to` from now on, which may lie in another module. It gives up the label that it led to.
void edit_point_at(op_t *jump, symbol_t *to);
// The same for a jump that no label knows of yet.
void edit_lead_to(op_t *jump, symbol_t *to);
