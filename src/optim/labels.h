// labels: who refers to labels, which are still needed, and what can be reached at all.
#pragma once

#include "code/list.h"

// Labels that are only known here and that nothing leads to any more. Those whose names begin "__end_of_" or "__ccov" stay.
bool label_is_unused(const op_t *op);
int list_delete_label(op_t *node);                     // 0 if it stays, else 1. Counts
unsigned list_delete_unused_labels(symbol_t *psect);   // how many went
// Whether control comes to `label` from `branch` alone, which stands ahead of it with no other way in between.
bool label_only_from(const op_t *label, const op_t *branch);
// The node's first operand is the plain name of a place that it jumps to or calls.
bool leads_to_label(const op_t *op);
// Whether it is called, or named otherwise than by jumps: what stands before it may be another function.
bool label_begins_function(const op_t *label);

// Makes the references to the labels of all psects anew, and marks those that data, literals or definitions refer to with
// S_TAKEN: their place counts, whoever jumps.
void build_all_refs();

void reach_mark(op_t *op);                  // OPF_MARK on what is reached from `op`
void reach_mark_psect(code_list_t *list);   // and on all that may be reached in the list
