// known: what the registers hold at a place.
//
// This is a forward fact, kept in one record that the peephole walk brings up to date node by node. All else only reads it.
// The functions are named for the registers that they tell of.
#pragma once

#include "code/place.h"

struct reg_state_t {
    opnd_t w_lit;          // what W holds as a literal; opnd_kind 0: unknown
    opnd_t w_reg;          // a register that holds the same as W; opnd_kind 0: none known
    int32_t carry;         // 0, 1, or -1 for unknown
    const value_t *bank;   // what bsr holds, or null
    opnd_t fsr_val[3];     // the value last stored through each file select
};
extern const reg_state_t &reg;

// W.
void reg_forget_all();   // w_lit and w_reg
inline void reg_forget_w() { reg_forget_all(); }
void reg_forget_w_reg();            // w_lit stays
void reg_load_w(const opnd_t *o);   // W now holds the operand
inline bool reg_w_known() { return reg.w_lit.opnd_kind == OPND_LIT && reg.w_lit.opnd_value.v_rtype == RT_CONST; }
inline int64_t reg_w_value() { return reg.w_lit.opnd_value.v_offs; }
inline bool reg_w_is(int64_t k) { return reg_w_known() && reg_w_value() == k; }
bool reg_equals_w(const opnd_t *o);   // the register holds the same as W

// The carry.
void reg_set_carry(int32_t carry);
void carry_track(const op_t *n);   // after the arithmetic node `n`

// The bank.
void reg_select_bank(const value_t *bank);   // what bsr holds from now on, or null
void reg_forget_bank();                      // only this; what is known of W stays as it is
place_t reg_place(const opnd_t *o);          // with what is known of the bank
bool reg_is_whole(const opnd_t *o);          // as the operand stands, it is the register's whole address, which movff takes

// All of it.
void reg_written(const opnd_t *o);          // a register has been written
void reg_stored_through(const opnd_t *o);   // W has been stored through the indirect register
void reg_forget_machine();                  // nothing is known any more
void reg_side_effects(const op_t *n);       // what the node ends beside the work that is done for its kind
