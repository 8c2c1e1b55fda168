// optim: rewrites code lists in place.
//
// This header is what the modules of the folder share: the state of a pass, the tests on nodes that rules are written with,
// and the pass itself. A rule edits op_t nodes and never touches one that isn't `op_free`. A rule that fires tells so
// through `opt_fired`, which counts, traces, and notes that the list has changed.
#pragma once

#include "code/list.h"
#include "code/ops.h"

// Counters of what was done, in the order in which they are shown. Those marked never move on this target.
enum opt_counter_t : uint8_t {
    CNT_REDUNDANT_LABELS, CNT_JUMPS_TO_JUMPS, CNT_STACK /* never */, CNT_TEMPORARY /* never */, CNT_UNREF_LABELS,
    CNT_UNREACHABLE, CNT_JUMPS_TO_NEXT, CNT_SKIPS_OVER, CNT_COMMON, CNT_EXX /* never */, CNT_EX_SP_HL /* never */,
    CNT_REDUNDANT_OPS, CNT_LOADS_STORES /* never */, CNT_ADDRESSES, CNT_XOR_A /* never */, CNT_XCHG /* never */,
    CNT_MOTIONS, CNT_LOOPS /* never */, CNT_COUNT
};
constexpr int CNT_NONE = -1;

extern bool opt_changed;      // a rule has edited the list
extern bool opt_late;         // the repeat loop of the run has begun
extern bool codecov_seen;     // the program has a coverage note psect
extern bool opt_plain_search; // J18 and J19 try one `goto` after the other: what their index is tested against

// `rule` has fired on `op` (told before the node changes or goes): counts one on `counter` unless it is CNT_NONE, sets
// opt_changed, and leaves a line in the trace.
void opt_fired(const char *rule, int counter, const op_t *op);
void opt_count(opt_counter_t counter);      // counts only
uint16_t opt_counter(opt_counter_t counter);
void opt_trace_counters();                  // the counters, at the end of the trace

void optim_init();                          // once, ahead of everything else
// One pass over a psect. True if any iteration changed anything.
bool opt_psect(symbol_t *psect);
void opt_jump_walk(symbol_t *psect);        // the jump stage's walk, and the branch stage
void opt_branch_stage(symbol_t *psect);
// As list_delete_unused_labels, together with the code that only such a label led to: a chain in the walk's direction goes
// at once.
unsigned opt_delete_dead_chains(symbol_t *psect, bool backward);
void reach_mark(op_t *op);                  // OPF_MARK on what is reached from `op`

// Whether the facility `bit` (PO_PEEP, PO_JUMP, PO_PA) is switched off for the psect.
inline bool psect_optim_off(const symbol_t *psect, uint32_t bit)
{
    const uint32_t o = psect->s_psect->p_optim;
    return (o & PO_GIVEN) && !(o & bit);
}
// Equal `minocg` bits, and with the bit equal groups; false for null.
bool same_memory_group(const symbol_t *a, const symbol_t *b);

// Tests on nodes.
inline bool op_free(const op_t *op) { return !(op->op_flags & OPF_FIXED); }
inline bool op_is_skip(const op_t *op) { return op->op_type == T_BTFSC || op->op_type == T_DECFSZ || op->op_type == T_CPFSEQ; }
inline bool op_is_transfer(const op_t *op) { return op->op_type == T_GOTO || op->op_type == T_RETURN || op->op_type == T_RETLW; }
inline bool op_is_simple(const op_t *op)
{
    return op->op_opnd1.opnd_value.v_rtype == RT_SYM && op->op_opnd1.opnd_value.v_offs == 0;
}
bool op_is_code(const op_t *op);            // an instruction that counts: nothing silent, no data, no change of position
bool after_skip(const op_t *op);            // the nearest node before it that isn't silent is a skip
bool op_volatile(const op_t *op);
op_t *following(const op_t *op);            // the first node behind it that is no label
op_t *jump_target(const op_t *jump);        // where a simple jump leads, behind the labels there; null if unknown
bool op_same(const op_t *a, const op_t *b); // equal instructions
bool opnd_same(const opnd_t *a, const opnd_t *b);
bool op_barrier(const op_t *op);
bool label_only_from(const op_t *label, const op_t *branch);
bool depends_on_bank(const op_t *op, const opnd_t *operand);

// A `goto` to `label_node`, whose symbol gains a reference; not linked.
op_t *op_new_goto(op_t *label_node);

// Labels. Those whose names begin "__end_of_" or "__ccov" stay.
int list_delete_label(op_t *node);
// Labels that are only known here and that nothing leads to any more; deleting them returns how many went.
bool label_is_unused(const op_t *op);
unsigned list_delete_unused_labels(symbol_t *psect);
// Marks the labels of all psects that data, literals or definitions refer to with S_TAKEN: their place counts, whoever
// jumps.
void note_taken_labels();
