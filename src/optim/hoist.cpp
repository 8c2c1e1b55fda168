// `bz L / a / b / goto M / L: a / c / M:` becomes `a / bz L / b / goto M / L: c / M:`, if nothing else leads to L and `a`
// neither changes what the branch looks at nor needs to stand where it stands. The stage runs once, at the end of a pass.
#include "optim/hoist.h"

#include "code/sfrop.h"
#include "optim/edit.h"
#include "optim/node.h"
#include "optim/report.h"

static bool is_status_bit(const op_t *op, int64_t bit)
{
    return op->op_type == T_BCF && sfr_isStatus(&op->op_opnd1) && op_opnd2(op)->opnd_value.v_rtype == RT_CONST &&
           op_opnd2(op)->opnd_value.v_offs == bit;
}

static bool writes_bsr(const op_t *op)
{
    return sfr_isBsr(&op->op_opnd1) && (op->op_dest == DEST_F || op->op_type == T_MOVWF || op->op_type == T_CLRF);
}

// Whether what `a` changes could be seen by the branch that it would pass.
static bool branch_depends_on(const op_t *c, const op_t *a)
{
    const uint32_t reads = op_status_read(c);
    if (reads & op_status_written(a))
        return true;
    const bool is_move = a->op_type == T_MOVFF || a->op_type == T_MOVFFL;
    if (a->op_type != T_BCF && (sfr_isStatus(&a->op_opnd1) || sfr_isIndirect(&a->op_opnd1)) &&
        (a->op_dest == DEST_F || is_move))
        return true;
    return (is_status_bit(a, 2) && (reads & ST_Z)) || (is_status_bit(a, 0) && (reads & ST_C));
}

static bool may_pass_branch(const op_t *a)
{
    switch (a->op_type) {
    case T_SUBWF:
    case T_RLCF:
    case T_INCF:
    case T_ADDWF:
    case T_TRAP:
    case T_DBOUT:
    case T_SETCNT: return true;
    default: return writes_bsr(a);
    }
}

static bool may_follow_branch(const op_t *m)
{
    if (m->op_type == T_MOVLB || writes_bsr(m) || sfr_isIndirect(m->op_type == T_MOVFF ? op_opnd2(m) : &m->op_opnd1))
        return false;
    switch (m->op_type) {
    case T_SUBWF:
    case T_MOVF:
    case T_SWAPF:
    case T_RLCF:
    case T_ANDWF:
    case T_INCF:
    case T_ADDWF:
    case T_CLRF:
    case T_BCF:
    case T_DECFSZ:
    case T_CPFSEQ:
    case T_MOVWF:
    case T_MOVFF:
    case T_GOTO:
    case T_CALL:
    case T_RETURN:
    case T_RETLW:
    case T_NOP:
    case T_TRAP:
    case T_DBOUT:
    case T_SETCNT:
    case T_ADDLW:
    case T_MOVLW: return true;
    default: return false;
    }
}

// Whether nothing but `c` leads to the code at `arm` or the labels before it.
static bool only_way_in(const op_t *c, const op_t *arm)
{
    for (const op_t *op = arm->op_prev; op->op_type == T_NAME; op = op->op_prev) {
        if (op->op_sym->s_flags & (S_DEFHERE | S_TAKEN))
            return false;
        for (const op_t *ref : op_refs(op))
            if (ref != c)
                return false;
    }
    return true;
}

// The branch `c`, and where the walk goes on.
static op_t *hoist_common_beginning(op_t *c)
{
    op_t *n = c->op_next, *t = op_landing(c), *b = n;
    while (b->op_type != 0 && !op_barrier(b))
        b = b->op_next;
    if (b == n || (b->op_type != T_GOTO && b->op_type != T_BRA) || following(b) != t || !only_way_in(c, t))
        return n;
    op_t *a = n, *e = t;
    for (; op_same(a, e); a = a->op_next, e = e->op_next)
        if (branch_depends_on(c, a) || !may_pass_branch(a) || !may_follow_branch(a->op_next) || op_barrier(a) ||
            op_barrier(e))
            return n;
    opt_fired("branch stage", CNT_COMMON, c);
    if (a == n)
        return n;
    for (op_t *dead = t, *next; dead != e; dead = next) {
        next = dead->op_next;
        edit_delete(dead);
    }
    edit_move(c, a->op_prev);
    return a;
}

void hoist_walk(symbol_t *psect)
{
    for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0;)
        op = op->op_type == T_BCC && op_free(op) && op_landing(op) && !op_may_not_run(op) ? hoist_common_beginning(op)
                                                                                          : op->op_next;
}
