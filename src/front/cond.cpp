// Conditions are not applied while the source is read: every arm is parsed, and its labels and definitions count. This walk
// then marks the nodes of the arms that don't, and every later walk passes over them. It goes psect by psect, since an `if`
// and its `endif` are nodes of one code list like any others.
//
// A condition that is no number opens no level: it goes to the linker, and the statements behind it stay. Where that, or an
// arm without an `if`, makes code count or go against what its author thinks, a warning tells it.
#include "front/cond.h"

#include "code/list.h"
#include "code/ops.h"
#include "common/alert.h"

enum arm_t : uint8_t {
    NO = 0,        // the current arm doesn't count, and a later one still can
    YES = 1,       // the current arm counts
    NEVER = 255,   // no further arm counts
};
constexpr unsigned TOP_LEVEL = 9;

static void warn(unsigned number, const op_t *op, const symbol_t *psect)
{
    op_set_position(op);
    alert_msg(number, op_name(op), psect->s_name);
}

static void note_arm(op_t *op, arm_t arm)
{
    if (arm != YES)
        op->op_flags |= OPF_ARM_OFF;
}

void cond_evaluate(symbol_t *psect)
{
    arm_t state[TOP_LEVEL + 1] = {YES};
    const op_t *opened[TOP_LEVEL + 1] = {};   // the `if` of each level
    unsigned d = 0;
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op)) {
        const value_t *v = &op->op_opnd1.opnd_value;
        const bool constant = v->v_rtype == RT_CONST, holds = v->v_offs != 0;
        arm_t *top = &state[d];
        switch (op->op_type) {
        case T_NAME:
        case T_NUMLABEL: continue;
        case T_IF:
            if (d == TOP_LEVEL) {
                op_set_position(op);
                alert_msg(1003);
                return;
            }
            if (!constant) {
                warn(2200, op, psect);   // also in an arm that doesn't count, which its `endif` ends
                break;
            }
            state[++d] = *top != YES ? NEVER : holds ? YES : NO;
            opened[d] = op;
            note_arm(op, state[d]);
            continue;
        case T_ELSIF:
            if (!constant && *top == NO)
                warn(2200, op, psect);
            if (d == 0 && *top == YES)
                warn(2201, op, psect);
            if (*top != NEVER)
                *top = *top == YES ? NEVER : !constant || holds ? YES : NO;
            if (!constant)
                break;
            note_arm(op, *top);
            continue;
        case T_ELSE:
            if (d == 0 && *top == YES)
                warn(2201, op, psect);
            if (*top != NEVER)
                *top = *top == YES ? NO : YES;
            note_arm(op, *top);
            continue;
        case T_ENDIF:
            if (d > 0) {
                d--;
            } else {
                op_set_position(op);
                alert_msg(1490);
            }
            note_arm(op, state[d]);
            continue;
        default: break;
        }
        if (state[d] != YES)
            op->op_flags |= OPF_SKIPPED;
    }
    if (d > 0) {
        op_set_position(opened[d]);
        alert_msg(1489, psect->s_name);
    }
}
