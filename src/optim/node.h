// node: the tests that rules are written with, on nodes, operands and psects. They look and never change anything.
#pragma once

#include "code/list.h"
#include "code/ops.h"

// Psects.

// Whether the facility `bit` (PO_PEEP, PO_JUMP, PO_PA) is switched off for the psect.
inline bool psect_optim_off(const symbol_t *psect, uint32_t bit)
{
    const uint32_t o = psect->s_psect->p_optim;
    return (o & PO_GIVEN) && !(o & bit);
}
// Whether the two may share code: equal `minocg` bits, and with the bit equal groups; false for null.
bool psect_shares(const symbol_t *a, const symbol_t *b);
// Control may run over its end, into what the linker places behind it. Needs references.
bool psect_runs_on(const symbol_t *psect);
// A code psect of a function, as inlining and abstraction want it: its name, class and flags.
bool psect_is_function(const symbol_t *psect);

// Kinds of nodes.

inline bool op_free(const op_t *op) { return !(op->op_flags & OPF_FIXED); }
inline bool op_is_return(const op_t *op) { return op->op_type == T_RETURN || op->op_type == T_RETLW; }
inline bool op_is_transfer(const op_t *op) { return op->op_type == T_GOTO || op_is_return(op); }
inline bool op_is_simple(const op_t *op)
{
    return op->op_opnd1.opnd_value.v_rtype == RT_SYM && op->op_opnd1.opnd_value.v_offs == 0;
}
bool op_ends_dead_code(const op_t *op);   // behind a jump: from here on code may be reached in a way that isn't seen
bool op_is_code(const op_t *op);          // an instruction that counts: nothing silent, no data, no change of position
bool op_marked(const op_t *op);           // marked as volatile, or its register is one that the chip says changes by itself
bool op_volatile(const op_t *op);         // that, or it goes through a file select
bool op_barrier(const op_t *op);
bool op_is_nop_word(const op_t *op);   // data of the one word 0xFFFF, whoever wrote it
bool op_may_not_run(const op_t *op);   // behind a skip, or behind data among code, whose last word may be one
bool data_may_run(const op_t *data);   // control may come to it
bool op_ends_way(const op_t *op);      // control never goes on behind it
bool op_is_branch(const op_t *op);     // it names the place that it jumps to or calls
bool op_writes_pc(const op_t *op);     // PCL, or the latches of its upper bytes
bool op_writes_pcl(const op_t *op);    // control goes wherever that leads
bool op_uses_stack(const op_t *op);    // of return addresses, otherwise than by a call or return

// Places.

op_t *following(const op_t *op);      // the first node behind it that is no label
op_t *op_landing(const op_t *jump);   // where a simple jump leads, behind the labels there; null if unknown

// Operands.

bool op_same(const op_t *a, const op_t *b);   // equal instructions
bool opnd_same(const opnd_t *a, const opnd_t *b);
bool op_same_operands(const op_t *a, const op_t *b);
bool depends_on_bank(const opnd_t *operand);
