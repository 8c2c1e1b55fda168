// Every rule, of whatever stage, tells its firing here and nowhere else: that is how the loops around the stages know
// whether to go on, and how a reader of the trace learns which rule made what of a line.
#include "optim/report.h"

#include <string_view>

#include "env/qvdebug.h"
#include "optim/changes.h"
#include "out/emasm.h"

bool opt_changed;

static uint16_t counters[CNT_COUNT];

static const char *const counter_names[CNT_COUNT] = {
    "Redundant labels",      "Jumps to jumps",       "Stack adjustments",      "Temporary labels",     "Unref'ed labels",
    "Unreachable code",      "Jumps to .+1",         "Skips over jumps",       "Common code seq's",    "Redundant exx's",
    "Ex (sp),hl's used",     "Redundant operations", "Redundant loads/stores", "Simplified addresses", "Xor a's used",
    "Mov's changed to xchg", "Code motions",         "Loops inverted",
};

void opt_count(opt_counter_t counter) { counters[counter]++; }

// Rule, counter, what the node says, and where it comes from.
static void trace_rule(std::string_view rule, const char *counter, const op_t *op)
{
    std::string_view text = asm_op(op, ASM_COMPARE);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\t'))
        text.remove_suffix(1);
    while (!text.empty() && (text.front() == '\n' || text.front() == '\t'))
        text.remove_prefix(1);
    const char *file = op_file(op);
    TRACEF("%s (%s): %.*s, %s:%llu", rule.data(), counter, static_cast<int>(text.size()), text.data(), file ? file : "",
           static_cast<unsigned long long>(op_line(op)));
}

void opt_fired(opt_rule_t rule, int counter, const op_t *op)
{
    opt_changed = true;
    list_touch(op->op_psect);
    change_step(rule, op);
    if (counter != CNT_NONE)
        counters[counter]++;
    if (debug_flags & DEBUG_TRACE)
        trace_rule(rule.row().name, counter == CNT_NONE ? "uncounted" : counter_names[counter], op);
}

void opt_trace_counters()
{
    for (int i = 0; i < CNT_COUNT; i++)
        TRACEF("%s: %u", counter_names[i], counters[i]);
}
