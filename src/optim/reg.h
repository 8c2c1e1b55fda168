// reg: what the registers hold at a place, and whether they are still needed behind it.
#pragma once

#include "code/list.h"

// Registers that nxtuse can be asked about.
enum reg_t : uint16_t { REG_C = 318, REG_Z = 319, REG_N = 320, REG_W = 353, REG_BSR = 356 };

struct reg_state_t {
    opnd_t w_lit;              // what W holds as a literal; opnd_kind 0: unknown
    opnd_t w_reg;              // a register that holds the same as W; opnd_kind 0: none known
    int32_t carry;             // 0, 1, or -1 for unknown
    const value_t *bank;       // what bsr holds, or null
    opnd_t fsr_val[3];         // the value last stored through each file select
};
extern reg_state_t reg;        // `carry`, `bank` and `fsr_val` are written by the peephole walk

void reg_forget_all();
void reg_forget_w();
void reg_forget_w_reg();                // w_lit stays
void reg_load_w(const opnd_t *o);       // W now holds the operand
void reg_written(const opnd_t *o);      // a register has been written
void reg_bank_selected(const value_t *bank);   // what bsr holds from now on, or null; it must live on
inline bool reg_w_known() { return reg.w_lit.opnd_kind == OPND_LIT && reg.w_lit.opnd_value.v_rtype == RT_CONST; }
inline int64_t reg_w_value() { return reg.w_lit.opnd_value.v_offs; }

// Whether `r` is used from `start` on; also true when that can't be told. Paths end as unused at `stop1` and `stop2`, which
// may be null. Message 982.
bool nxtuse(reg_t r, const op_t *start, const op_t *stop1, const op_t *stop2);
