// Whether a register is still needed is a backward fact, and isn't kept: nxtuse follows the code forward from the place that
// asks, into both arms of branches and into callees, until each way has used the register or overwritten it.
//
// nxtuse answers yes whenever it can't prove that the value is dead. It spends 40 nodes on each straight way, follows
// four levels of branches and four of calls, and gives up on a question as a whole after QUESTION nodes: jump tables have
// so many ways that the other limits alone would not keep it short. A node that a skip stands before may not run: what it
// uses counts, what it overwrites doesn't. A way that gets back to the node that asks is dead, since that node is about
// to be judged by the other ways.
#include "optim/live.h"

#include <cstring>

#include "code/ops.h"
#include "optim/effects.h"
#include "optim/node.h"
#include "optim/settled.h"

constexpr int WAY = 40, QUESTION = 10000, DEEPEST = 3;

static struct {
    int branches, calls;   // depth of the recursion
    int left;              // nodes that the question may still take
} use;

static uint8_t register_bit(reg_t r)
{
    switch (r) {
    case REG_C: return FX_C;
    case REG_Z: return FX_Z;
    case REG_N: return FX_N;
    case REG_W: return FX_W;
    default: return FX_BSR;
    }
}

// The label's node that a jump or call leads to; null if that can't be told.
static const op_t *label_led_to(const op_t *op)
{
    const op_t *label = op_is_simple(op) ? op_target(op) : nullptr;
    if (label)
        settled_look(label->op_psect);
    return label;
}

static bool used(uint8_t r, const op_t *op, const op_t *stop1, const op_t *stop2);

// `used`, a level of branches deeper.
static bool used_in_arm(uint8_t r, const op_t *op, const op_t *stop1, const op_t *stop2)
{
    use.branches++;
    const bool answer = used(r, op, stop1, stop2);
    use.branches--;
    return answer;
}

static bool used_behind_branch(uint8_t r, const op_t *op, const op_t *stop1)
{
    return use.branches > DEEPEST || used_in_arm(r, op->op_next, stop1, op) || used_in_arm(r, label_led_to(op), stop1, op);
}

static bool used_in_callee(uint8_t r, const op_t *op, bool maybe, const op_t *stop1)
{
    const op_t *callee = label_led_to(op);
    if (maybe || r == FX_BSR || !callee || !psect_shares(op->op_psect, callee->op_psect) || use.calls > DEEPEST)
        return true;
    use.calls++;
    const bool answer = used(r, callee, stop1, op);
    use.calls--;
    return answer;
}

enum jump_answer_t : uint8_t { JUMP_DEAD, JUMP_USED, JUMP_FOLLOW };

static jump_answer_t used_behind_jump(uint8_t r, const op_t *op, bool maybe, const op_t *stop1)
{
    const value_t *v = &op->op_opnd1.opnd_value;
    if (v->v_rtype == RT_HERE && v->v_offs == 0)   // to itself, for ever
        return r & (FX_W | FX_BSR) ? JUMP_USED : JUMP_DEAD;
    if (!maybe && op_is_simple(op) && strcmp(v->v_sym->s_name, "start") == 0)
        return JUMP_DEAD;
    if (!label_led_to(op))
        return JUMP_USED;
    if (maybe && (use.branches > DEEPEST || used_in_arm(r, op->op_next, stop1, op)))
        return JUMP_USED;
    return JUMP_FOLLOW;
}

// Of a node from which control goes elsewhere, but for jumps.
static bool used_elsewhere(uint8_t r, const op_t *op, bool maybe, const op_t *stop1)
{
    switch (op->op_type) {
    case T_BCC: return used_behind_branch(r, op, stop1);
    case T_CALL:
    case T_RCALL: return used_in_callee(r, op, maybe, stop1);
    default: return true;
    }
}

static bool used(uint8_t r, const op_t *op, const op_t *stop1, const op_t *stop2)
{
    bool maybe = false;   // the node may not run
    for (int left = WAY; op && left > 0 && use.left > 0; left--, use.left--) {
        const effect_t e = effect_of(op, !maybe, r);
        if (e.uses & r)
            return true;
        if (!maybe && (e.kills & r))
            return false;
        switch (effect_doubt(op)) {
        case DOUBT_ENDS: maybe = false; break;
        case DOUBT_BEGINS: maybe = true; break;
        case DOUBT_STAYS: break;
        case DOUBT_ELSEWHERE:
            if (op->op_type != T_BRA && op->op_type != T_GOTO)
                return used_elsewhere(r, op, maybe, stop1);
            if (const jump_answer_t answer = used_behind_jump(r, op, maybe, stop1); answer != JUMP_FOLLOW)
                return answer == JUMP_USED;
            if (maybe)
                stop2 = op;
            op = label_led_to(op);
            maybe = false;
        }
        op = op->op_next;
        if (op && (op == stop1 || op == stop2))
            return false;
    }
    return true;
}

bool nxtuse(reg_t r, const op_t *start, const op_t *stop1, const op_t *stop2)
{
    use.left = QUESTION;
    return used(register_bit(r), start, stop1, stop2);
}
