// All that is looked at is a number, or a place in this module. What only the linker knows, it has to say. Where no group is
// asked for, nothing is looked at.
//
// A run of faults is told once: the first instruction at an odd place, the first node beyond a psect's size.
#include "out/doubts.h"

#include "chip/chip.h"
#include "chip/lists.h"
#include "code/layout.h"
#include "code/ops.h"
#include "code/reduce.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "out/encode.h"

enum : unsigned {
    NO_BANK = 2250,
    NO_PROGRAM_MEMORY = 2251,
    NO_DATA_MEMORY = 2252,
    TOO_LONG = 2253,
    ODD_TARGET = 2254,
    ODD_CODE = 2255
};

static struct {
    bool asked;
    bool odd, too_long;   // of this psect: the last instruction was at an odd place; that it is too long has been told
} st;

void doubts_begin()
{
    st = {};
    for (unsigned number = NO_BANK; number <= ODD_CODE; number++)
        st.asked |= alert_is_shown(number);
}

static bool meets(const memrange_t &r, int64_t lo, int64_t hi) { return range_present(r) && r.lo <= hi && r.hi >= lo; }

static bool is_data_memory(int64_t lo, int64_t hi)
{
    const chipinfo_t *ci = chip_current();
    bool found = meets(ci->c_common, lo, hi) || meets(ci->c_sfrcommon, lo, hi) || meets(ci->c_extmem, lo, hi);
    for (const vec_t<memrange_t *> &banks : {ci->c_gprbanks, ci->c_sfrbanks})
        for (const memrange_t *r : banks)
            found |= meets(*r, lo, hi);
    return found;
}

static bool is_program_memory(int64_t at)
{
    const chipinfo_t *ci = chip_current();
    bool found = at <= ci->c_romlast;
    for (const memrange_t &r : {ci->c_cfgmem, ci->c_useridmem, ci->c_devidmem, ci->c_eeprom, ci->c_extmem})
        found |= meets(r, at, at);
    return found;
}

static void check_bank(int64_t bank)
{
    if (bank >= 0 && !is_data_memory(bank << 8, bank << 8 | 255))
        alert_msg(NO_BANK, static_cast<long long>(bank), chip_getName());
}

static void check_data_address(const op_t *op, unsigned which)
{
    const value_t v = operand(op, which);
    if (v.v_rtype == RT_CONST && v.v_offs >= 0 && !is_data_memory(v.v_offs, v.v_offs))
        alert_msg(NO_DATA_MEMORY, static_cast<unsigned long long>(v.v_offs), chip_getName());
}

static void check_org(const op_t *op)
{
    const psect_t *p = cur_psect->s_psect;
    srcpos.operand = 1;
    const int64_t at = static_cast<int64_t>(units_to_bytes(op_units(op)));
    if (p->p_space == 0 && !is_program_memory(at))
        alert_msg(NO_PROGRAM_MEMORY, static_cast<unsigned long long>(at), chip_getName());
    if (p->p_space == 1 && psect_is_abs(cur_psect) && !is_data_memory(at, at))
        alert_msg(NO_DATA_MEMORY, static_cast<unsigned long long>(at), chip_getName());
}

static void check_target(const op_t *op)
{
    const value_t v = operand(op);
    const bool known = v.v_rtype == RT_CONST || (v.v_rtype == RT_PSECT && v.v_sym->s_psect->p_reloc % 2 == 0);
    if (known && v.v_offs & 1)
        alert_msg(ODD_TARGET, op->op_type == T_CALL ? "call" : op_name(op));   // whose fast bit has no name
}

// Whether the node is an instruction.
static bool check_operands(const op_t *op)
{
    switch (op->op_type) {
    case T_DB:
    case T_DS: return false;
    case T_ORG: check_org(op); return false;
    case T_MOVLB:
    case T_BANKSEL:
        if (const value_t v = operand(op); v.v_rtype == RT_CONST)
            check_bank(op->op_type == T_MOVLB ? v.v_offs : v.v_offs >> 8);
        return true;
    case T_MOVFF:
    case T_MOVFFL:
        check_data_address(op, 1);
        check_data_address(op, 2);
        return true;
    case T_BRA:
    case T_RCALL:
    case T_BCC:
    case T_GOTO:
    case T_CALL: check_target(op); return true;
    default: return true;
    }
}

static void check_length()
{
    const psect_t *p = cur_psect->s_psect;
    const uint64_t delta = psect_delta(p), length = (p->p_curr + delta - 1) / delta;
    if (st.too_long || length == 0)
        return;
    const bool over_size = p->p_size != 0 && !psect_is_abs(cur_psect) && length > p->p_size,
               over_limit = p->p_limit != 0 && length - 1 > p->p_limit;
    srcpos.operand = 0;
    if (over_size || over_limit)
        alert_msg(TOO_LONG, cur_psect->s_name, static_cast<unsigned long long>(length), over_size ? "size" : "limit",
                  static_cast<unsigned long long>(over_size ? p->p_size : p->p_limit));
    st.too_long = over_size || over_limit;
}

void doubts_check(const op_t *op)
{
    if (!st.asked)
        return;
    const psect_t *p = cur_psect->s_psect;
    if (op_is_silent(op) || !check_operands(op))
        return;
    const bool odd = p->p_space == 0 && p->p_reloc % 2 == 0 && p->p_curr & 1;
    if (odd && !st.odd) {
        srcpos.operand = 0;
        alert_msg(ODD_CODE);
    }
    st.odd = odd;
}

void doubts_past()
{
    if (st.asked)
        check_length();
}
