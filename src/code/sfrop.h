// sfrop: which core register an operand is.
//
// An operand counts by its place (place.h), so a name that is given a number in this source is as good as the number. What
// other names stand for is known to the linker alone, and the answers are no. A banked operand counts as a register if it
// is one in the bank of the core registers: see sfr_isCertain.
#pragma once

#include "chip/chip.h"
#include "chip/sfrs.h"
#include "code/ops.h"
#include "code/place.h"

uint32_t sfr_idOfPlace(const opnd_t *v);   // the same for any operand, with more work

// The id of the register, SFR_NONE if the operand is no core register.
inline uint32_t sfr_idOf(const opnd_t *v)
{
    const value_t &n = v->opnd_value;
    if (n.v_rtype != RT_CONST)
        return sfr_idOfPlace(v);
    if (n.v_offs < 0)
        return SFR_NONE;
    // The lower eight bits tell it: no core register lies in the memory part of the access bank.
    return sfr_idAt(v->opnd_access == 0 ? n.v_offs : int64_t{sfr_page} + (n.v_offs & 255));
}
// Whether it is this register whatever bank is selected.
inline bool sfr_isCertain(const opnd_t *v) { return v->opnd_access != ACCESS_B; }
// Whether the register is one of a set, one bit an id.
inline bool sfr_isIn(const opnd_t *v, uint64_t ids) { return ids >> sfr_idOf(v) & 1; }
template <class... ids_t> constexpr uint64_t sfr_bits(ids_t... ids) { return (... | (uint64_t{1} << ids)); }

inline bool sfr_isWreg(const opnd_t *v) { return sfr_idOf(v) == SFR_WREG; }
inline bool sfr_isStatus(const opnd_t *v) { return sfr_idOf(v) == SFR_STATUS; }
inline bool sfr_isBsr(const opnd_t *v) { return sfr_idOf(v) == SFR_BSR; }
inline bool sfr_isPc(const opnd_t *v) { return sfr_isIn(v, sfr_bits(SFR_PCLATU, SFR_PCLATH, SFR_PCL)); }
inline bool sfr_isTos(const opnd_t *v) { return sfr_isIn(v, sfr_bits(SFR_TOSU, SFR_TOSH, SFR_TOSL)); }
inline bool sfr_isStack(const opnd_t *v) { return sfr_isIn(v, sfr_bits(SFR_TOSU, SFR_TOSH, SFR_TOSL, SFR_STKPTR)); }
inline bool sfr_isPostinc(const opnd_t *v) { return sfr_isIn(v, sfr_bits(SFR_POSTINC0, SFR_POSTINC1, SFR_POSTINC2)); }
inline bool sfr_isPostdec(const opnd_t *v) { return sfr_isIn(v, sfr_bits(SFR_POSTDEC0, SFR_POSTDEC1, SFR_POSTDEC2)); }
inline bool sfr_isPreinc(const opnd_t *v) { return sfr_isIn(v, sfr_bits(SFR_PREINC0, SFR_PREINC1, SFR_PREINC2)); }
inline bool sfr_isPlusw(const opnd_t *v) { return sfr_isIn(v, sfr_bits(SFR_PLUSW0, SFR_PLUSW1, SFR_PLUSW2)); }

// 1, 2 or 3 for an access through file select 0, 1 or 2; 0 for anything else. Of a register, and of an operand.
inline int sfr_selectOf(uint32_t id)
{
    if (id >= SFR_INDF0 && id <= SFR_PLUSW0)
        return 1;
    if (id >= SFR_INDF1 && id <= SFR_PLUSW1)
        return 2;
    return id >= SFR_INDF2 && id <= SFR_PLUSW2 ? 3 : 0;
}
inline int sfr_fileSelect(const opnd_t *v) { return sfr_selectOf(sfr_idOf(v)); }
inline bool sfr_isIndirect(const opnd_t *v) { return sfr_fileSelect(v) != 0; }

// A core register, or any other number in the access bank's register part.
inline bool sfr_isKnown(const opnd_t *v)   // no caller
{
    const value_t &n = v->opnd_value;
    return n.v_rtype == RT_CONST && n.v_offs >= 0 && (sfr_idAt(n.v_offs) != SFR_NONE || chip_isSfrCommonAddr(n.v_offs));
}
