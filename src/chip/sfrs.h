// sfrs: the core registers, by address.
//
// 37 registers are part of the instruction set rather than of a device: the working register, status, the program
// counter, the file selects. Their addresses come from the chip; from then on an address tells which of them it is.
#pragma once

#include <cstdint>

struct chipinfo_t;

// clang-format off
enum sfr_id : uint32_t {
    SFR_NONE, SFR_TOSU, SFR_TOSH, SFR_TOSL, SFR_STKPTR, SFR_PCLATU, SFR_PCLATH, SFR_PCL, SFR_TBLPTRU, SFR_TBLPTRH,
    SFR_TBLPTRL, SFR_TABLAT, SFR_PRODH, SFR_PRODL, SFR_INDF0, SFR_POSTINC0, SFR_POSTDEC0, SFR_PREINC0, SFR_PLUSW0,
    SFR_FSR0H, SFR_FSR0L, SFR_WREG, SFR_INDF1, SFR_POSTINC1, SFR_POSTDEC1, SFR_PREINC1, SFR_PLUSW1, SFR_FSR1H,
    SFR_FSR1L, SFR_BSR, SFR_INDF2, SFR_POSTINC2, SFR_POSTDEC2, SFR_PREINC2, SFR_PLUSW2, SFR_FSR2H, SFR_FSR2L,
    SFR_STATUS, SFR_END
};
// clang-format on

// Takes the addresses from the chip; the second and later calls return at once.
void sfr_init(chipinfo_t *ci);
uint32_t sfr_addrOf(uint32_t id);       // 0 for an id that is none, and for a register that the chip lacks
const char *sfr_name(uint32_t id);      // in lower case; null for an id that is none
const char *sfr_nameAt(int64_t addr);   // in lower case; null if no core register lies there

// Open addressing on the low bits of the address: the registers stand close together, so nearly every look-up ends in
// the first slot. A slot of id 0 is empty.
enum : uint32_t { SFR_SLOTS = 128 };
struct sfr_slot_t {
    uint32_t addr, id;
};
extern sfr_slot_t sfr_slots[SFR_SLOTS];
extern uint32_t sfr_page;   // the first address of the 256 in which they lie

// The id of the core register at an address; SFR_NONE if there is none.
inline uint32_t sfr_idAt(int64_t addr)
{
    for (uint64_t at = static_cast<uint64_t>(addr);; ++at) {
        const sfr_slot_t &slot = sfr_slots[at % SFR_SLOTS];
        if (slot.id == SFR_NONE || slot.addr == addr)
            return slot.id;
    }
}
