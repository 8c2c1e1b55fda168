// Older compilers leave `low` and `high` out on the lines that they write, which they mark with ";#". A `movlb` of a symbol
// means its high byte, the banked operand of a file instruction its low one.
#include "optim/imply.h"

#include "code/list.h"
#include "code/ops.h"
#include "common/stringcache.h"

// Operator kinds, a bit each, through whose left operands the implied `low` looks for a symbol.
constexpr uint32_t LOOK_THROUGH = 0x421FF0;

static void imply_high(op_t *op)
{
    value_t *v = &op->op_opnd1.opnd_value;
    if (v->v_rtype != RT_SYM)
        return;
    value_unary(OPC_HIGH, v);
    op_set_remark(op, ";# assembler added high");
}

// The value with `low` around the symbol at the end of its left operands, or the same value if there is none.
static value_t low_inside(const value_t *v, bool *found)
{
    value_t result = *v;
    if (v->v_rtype == RT_SYM && !v->v_common) {
        value_unary(OPC_LOW, &result);
        *found = true;
    } else if (v->v_rtype < 32 && (LOOK_THROUGH >> v->v_rtype & 1) && !v->v_common) {
        const value_t left = low_inside(value_left(v), found);
        if (*found) {
            result = value_make_binary(v->v_rtype, &left, value_right(v));
            result.v_offs = v->v_offs;
        }
    }
    return result;
}

static void imply_low(op_t *op)
{
    bool found = false;
    const value_t v = low_inside(&op->op_opnd1.opnd_value, &found);
    if (!found)
        return;
    op->op_opnd1.opnd_value = v;
    op_set_remark(op, ";# assembler added low");
}

void imply_operators(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op)) {
        if (const char *remark = op_remark(op); !remark || !cache_starts_with(remark, ";#"))
            continue;
        switch (op->op_type) {
        case T_MOVLB: imply_high(op); break;
        case T_SUBWF:
        case T_BCF:
        case T_MOVF:
        case T_SWAPF:
        case T_RLCF:
        case T_BTFSC:
        case T_DECFSZ:
        case T_ANDWF:
        case T_INCF:
        case T_ADDWF:
        case T_MULWF:
        case T_CPFSEQ:
        case T_MOVWF:
        case T_CLRF:
            if (op->op_access == ACCESS_B)
                imply_low(op);
            break;
        default: break;
        }
    }
}
