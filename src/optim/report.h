// report: what the optimiser has done, counted and told.
#pragma once

#include "code/list.h"
#include "optim/rules.h"

// Counters in the order in which they are shown. Those marked never move on this target.
// clang-format off
enum opt_counter_t : uint8_t {
    CNT_REDUNDANT_LABELS, CNT_JUMPS_TO_JUMPS, CNT_STACK /* never */, CNT_TEMPORARY /* never */, CNT_UNREF_LABELS,
    CNT_UNREACHABLE, CNT_JUMPS_TO_NEXT, CNT_SKIPS_OVER, CNT_COMMON, CNT_EXX /* never */, CNT_EX_SP_HL /* never */,
    CNT_REDUNDANT_OPS, CNT_LOADS_STORES /* never */, CNT_ADDRESSES, CNT_XOR_A /* never */, CNT_XCHG /* never */,
    CNT_MOTIONS, CNT_LOOPS /* never */, CNT_COUNT
};
// clang-format on
constexpr int CNT_NONE = -1;

extern bool opt_changed;   // a rule has edited the list; whoever asks clears it before

// `rule` has fired on `op` (told before the node changes or goes): counts one on `counter` unless it is CNT_NONE, sets
// opt_changed, and leaves a line in the trace.
void opt_fired(opt_rule_t rule, int counter, const op_t *op);
void opt_count(opt_counter_t counter);   // counts only
void opt_trace_counters();               // the counters, at the end of the trace
