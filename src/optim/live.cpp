// Whether a register is still needed is a backward fact, and isn't kept: nxtuse follows the code forward from the place that
// asks, into both arms of branches and into callees, until each way has used the register or overwritten it.
//
// nxtuse answers yes whenever it can't prove that the value is dead. It spends 40 nodes on each straight way, follows
// four levels of branches and four of calls, and gives up on a question as a whole after QUESTION nodes: jump tables have
// so many ways that the other limits alone would not keep it short. A node that a skip stands before may not run: what it
// uses counts, what it overwrites doesn't. A way that gets back to the node that asks is dead, since that node is about
// to be judged by the other ways.
//
// What may bite: an instruction uses `status` and `bsr` also by naming them as its operand. In the other direction writes to
// them aren't counted on; that only keeps code that could have gone.
#include "optim/live.h"

#include <cstring>

#include "code/ops.h"
#include "code/sfrop.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "optim/node.h"
#include "optim/templates.h"

constexpr int WAY = 40, QUESTION = 10000, DEEPEST = 3;

static struct {
    int branches, calls;   // depth of the recursion
    int left;              // nodes that the question may still take
} use;

enum : uint8_t { C = 1, Z = 2, N = 4, W = 8, BSR = 16, FLAGS = C | Z | N, ALL = FLAGS | W | BSR };

static uint8_t register_bit(reg_t r)
{
    switch (r) {
    case REG_C: return C;
    case REG_Z: return Z;
    case REG_N: return N;
    case REG_W: return W;
    default: return BSR;
    }
}

struct effect_t {
    uint8_t uses, kills;
};

// What it takes to get at a file operand, to read or to write it.
static uint8_t address_uses(const opnd_t *o)
{
    return static_cast<uint8_t>((sfr_isWreg(o) || sfr_isPlusw(o) ? W : 0) | (depends_on_bank(o) ? BSR : 0));
}

// A core register among what can be asked about, which the operand names.
static uint8_t named(const opnd_t *o)
{
    return sfr_isStatus(o) ? FLAGS : sfr_isBsr(o) ? BSR : 0;
}

static uint8_t operand_uses(const op_t *op)
{
    return address_uses(&op->op_opnd1) | named(&op->op_opnd1);
}

// The flag that a bit instruction on `status` means; all of them if the bit isn't known.
static uint8_t flag_of(const op_t *op)
{
    if (!sfr_isStatus(&op->op_opnd1))
        return 0;
    const value_t *bit = &op->op_opnd2.opnd_value;
    if (bit->v_rtype != RT_CONST)
        return FLAGS;
    return bit->v_offs == 0 ? C : bit->v_offs == 2 ? Z : bit->v_offs == 4 ? N : 0;
}

static uint8_t branch_flag(uint16_t subop)
{
    switch (subop) {
    case TPL_BZ: case TPL_BNZ: return Z;
    case TPL_BC: case TPL_BNC: return C;
    case TPL_BMI: case TPL_BNN: return N;
    default: return 0;
    }
}

static uint8_t dest_kills(const op_t *op) { return op->op_dest == DEST_W ? W : 0; }

// Of a file instruction that works on W and its operand.
static effect_t effect_with_w(const op_t *op, bool sure)
{
    effect_t e = {static_cast<uint8_t>(W | operand_uses(op)), Z | N};
    switch (op->op_subop) {
    case TPL_ADDWFC: case TPL_SUBFWB: case TPL_SUBWFB:
        e.uses |= C;
        break;
    case TPL_ADDWF: case TPL_SUBWF:
        (sure ? e.kills : e.uses) |= C;
        break;
    }
    return e;
}

static effect_t effect_of_clear(const op_t *op, bool sure)
{
    const bool reads = op->op_subop == TPL_NEGF, on_w = sfr_isWreg(&op->op_opnd1) && sure && !reads;
    const uint8_t uses = reads ? operand_uses(op) : address_uses(&op->op_opnd1);
    return {static_cast<uint8_t>(on_w ? uses & ~W : uses),
            static_cast<uint8_t>((op->op_subop != TPL_SETF ? Z : 0) | (on_w ? W : 0))};
}

// A caller may look at Z, unless the code says that it doesn't; N means nothing to it.
static effect_t effect_of_return(const op_t *op, bool sure)
{
    uint8_t kills = sure ? N : 0;
    if (sure && op->op_type == T_RETLW)
        kills |= W;
    if (sure && op_more(op)->op_remark && strcmp(op_more(op)->op_remark, ";funcret") == 0)
        kills |= Z;
    return {static_cast<uint8_t>(ALL & ~kills), kills};
}

static effect_t effect(const op_t *op, bool sure)
{
    const opnd_t *first = &op->op_opnd1, *second = &op->op_opnd2;
    const uint16_t subop = op->op_subop;
    switch (op->op_type) {
    case 0:
        return {ALL, 0};
    case T_SUBWF: case T_ADDWF: case T_ANDWF:
        return effect_with_w(op, sure);
    case T_MOVF: case T_SWAPF: case T_RLCF: case T_DECFSZ: {
        const uint8_t carry = subop == TPL_RLCF || subop == TPL_RRCF ? C : 0;
        return {static_cast<uint8_t>(operand_uses(op) | carry), dest_kills(op)};
    }
    case T_INCF:
        return {operand_uses(op), static_cast<uint8_t>(dest_kills(op) | Z | N | (subop != TPL_COMF ? C : 0))};
    case T_BCF: {
        const uint8_t uses = address_uses(first) | (sfr_isBsr(first) ? BSR : 0);
        if (subop == TPL_BTG)
            return {static_cast<uint8_t>(uses | flag_of(op)), 0};
        return {uses, static_cast<uint8_t>(second->opnd_value.v_rtype == RT_CONST ? flag_of(op) : 0)};
    }
    case T_BTFSC:
        return {static_cast<uint8_t>(address_uses(first) | (sfr_isBsr(first) ? BSR : 0) | flag_of(op)), 0};
    case T_MOVFF: case T_MOVFFL: {
        const bool w = sfr_isWreg(first) || sfr_isPlusw(first) || sfr_isPlusw(second);
        return {static_cast<uint8_t>((w ? W : 0) | named(first)), static_cast<uint8_t>(sfr_isWreg(second) ? W : 0)};
    }
    case T_BCC:
        return {branch_flag(subop), 0};
    case T_MULWF: case T_CPFSEQ:
        return {static_cast<uint8_t>(W | operand_uses(op)), 0};
    case T_MOVWF:
        return {static_cast<uint8_t>(W | address_uses(first)), 0};
    case T_ADDLW: {
        const uint8_t carry = subop == TPL_ADDLW || subop == TPL_SUBLW ? C : 0;
        return {W, static_cast<uint8_t>(subop == TPL_MULLW ? 0 : carry | Z | N)};
    }
    case T_MOVLW:
        return {static_cast<uint8_t>(sure && op_is_return(op->op_next) ? Z : 0), W};
    case T_NOP:
        if (subop == TPL_DAW)
            return {C | W, 0};
        return {static_cast<uint8_t>(subop == TPL_SLEEP ? W : 0), static_cast<uint8_t>(subop == TPL_CLRW ? W : 0)};
    case T_BANKSEL: case T_MOVLB:
        return {0, BSR};
    case T_CLRF:
        return effect_of_clear(op, sure);
    case T_RETURN: case T_RETLW:
        return effect_of_return(op, sure);
    default:
        return {};
    }
}

// Once for a line: questions pass over a node many times.
static void report_unknown(const op_t *op)
{
    const srcpos_t position = srcpos;
    op_set_position(op);
    const char *name = op_name(op);
    alert_once(982, name ? name : "?");
    srcpos = position;
}

// Whether the node behind `op` may not run, given that of `op` itself.
static bool leaves_doubt(const op_t *op, bool maybe)
{
    switch (op->op_type) {
    case T_BTFSC: case T_DECFSZ: case T_CPFSEQ:
        return true;
    case T_SUBWF: case T_ADDWF: case T_ANDWF: case T_INCF: case T_MOVF: case T_SWAPF: case T_RLCF: case T_BCF: case T_DB:
    case T_DS: case T_PUSH: case T_MOVFF: case T_MOVFFL: case T_ADDFSR: case T_LFSR: case T_MULWF: case T_ADDLW:
    case T_MOVLW: case T_NOP: case T_BANKSEL: case T_MOVLB: case T_MOVWF: case T_CLRF:
        return false;
    case T_ELSE: case T_ENDIF: case T_ENDM: case T_ELSIF: case T_EQU: case T_IF: case T_SET: case T_TRAP: case T_DBOUT:
    case T_SETCNT: case T_TBLRD: case T_NAME: case T_NUMLABEL:
        return maybe;
    default:
        report_unknown(op);
        return maybe;
    }
}

// The label's node that a jump or call leads to; null if that can't be told.
static const op_t *label_led_to(const op_t *op)
{
    return op_is_simple(op) ? op_target(op) : nullptr;
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
    if (maybe || r == BSR || !callee || !psect_shares(op->op_psect, callee->op_psect) || use.calls > DEEPEST)
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
    if (v->v_rtype != RT_SYM && v->v_rtype != RT_TLABF && v->v_rtype != RT_TLABB)   // a place that was worked out
        return r & (W | BSR) ? JUMP_USED : JUMP_DEAD;
    if (!maybe && op_is_simple(op) && strcmp(v->v_sym->s_name, "start") == 0)
        return JUMP_DEAD;
    if (!label_led_to(op))
        return JUMP_USED;
    if (maybe && (use.branches > DEEPEST || used_in_arm(r, op->op_next, stop1, op)))
        return JUMP_USED;
    return JUMP_FOLLOW;
}

static bool used(uint8_t r, const op_t *op, const op_t *stop1, const op_t *stop2)
{
    bool maybe = false;
    for (int left = WAY; op && left > 0 && use.left > 0; left--, use.left--) {
        if (!(op->op_flags & OPF_SKIPPED)) {
            const effect_t e = effect(op, !maybe);
            if (e.uses & r)
                return true;
            if (!maybe && (e.kills & r))
                return false;
            switch (op->op_type) {
            case T_CALLW:
                return r == W;
            case T_BCC:
                return used_behind_branch(r, op, stop1);
            case T_CALL: case T_RCALL:
                return used_in_callee(r, op, maybe, stop1);
            case T_BRA: case T_GOTO: {
                const jump_answer_t answer = used_behind_jump(r, op, maybe, stop1);
                if (answer != JUMP_FOLLOW)
                    return answer == JUMP_USED;
                if (maybe)
                    stop2 = op;
                op = label_led_to(op);
                maybe = false;
                break;
            }
            default:
                maybe = leaves_doubt(op, maybe);
            }
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
