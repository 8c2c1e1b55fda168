// sfrs: the core registers, by address.
//
// The optimiser asks of nearly every operand whether it is W, or the status register, or an access through a file select.
// An operand is a number by then, so the answer is a look-up by address. The addresses belong to the chip: sfr_init asks
// the chip for each of the 37 names once, which is also what makes the chip build its register table and find the faults
// in it.
//
// Order and ids of the list are fixed, and groups of ids carry meaning (see the predicates in code/sfrop.h). A register
// that the chip lacks keeps address 0 and is never found by address.
#include "chip/sfrs.h"

#include "chip/chip.h"

struct sfr_entry_t {
    uint32_t id;
    const char *name;
    uint64_t addr;
};

static struct {
    bool sfrs_initialized;
    sfr_entry_t list[SFR_END] = {
        {SFR_TOSU, "tosu", 0},         {SFR_TOSH, "tosh", 0},         {SFR_TOSL, "tosl", 0},
        {SFR_STKPTR, "stkptr", 0},     {SFR_PCLATU, "pclatu", 0},     {SFR_PCLATH, "pclath", 0},
        {SFR_PCL, "pcl", 0},           {SFR_TBLPTRU, "tblptru", 0},   {SFR_TBLPTRH, "tblptrh", 0},
        {SFR_TBLPTRL, "tblptrl", 0},   {SFR_TABLAT, "tablat", 0},     {SFR_PRODH, "prodh", 0},
        {SFR_PRODL, "prodl", 0},       {SFR_INDF0, "indf0", 0},       {SFR_POSTINC0, "postinc0", 0},
        {SFR_POSTDEC0, "postdec0", 0}, {SFR_PREINC0, "preinc0", 0},   {SFR_PLUSW0, "plusw0", 0},
        {SFR_FSR0H, "fsr0h", 0},       {SFR_FSR0L, "fsr0l", 0},       {SFR_WREG, "wreg", 0},
        {SFR_INDF1, "indf1", 0},       {SFR_POSTINC1, "postinc1", 0}, {SFR_POSTDEC1, "postdec1", 0},
        {SFR_PREINC1, "preinc1", 0},   {SFR_PLUSW1, "plusw1", 0},     {SFR_FSR1H, "fsr1h", 0},
        {SFR_FSR1L, "fsr1l", 0},       {SFR_BSR, "bsr", 0},           {SFR_INDF2, "indf2", 0},
        {SFR_POSTINC2, "postinc2", 0}, {SFR_POSTDEC2, "postdec2", 0}, {SFR_PREINC2, "preinc2", 0},
        {SFR_PLUSW2, "plusw2", 0},     {SFR_FSR2H, "fsr2h", 0},       {SFR_FSR2L, "fsr2l", 0},
        {SFR_STATUS, "status", 0},     {UINT32_MAX, nullptr, 0},
    };
} st;

sfr_slot_t sfr_slots[SFR_SLOTS];
uint32_t sfr_page;

static void enter(uint32_t addr, uint32_t id)
{
    uint32_t at = addr;
    while (sfr_slots[at % SFR_SLOTS].id != SFR_NONE) {
        if (sfr_slots[at % SFR_SLOTS].addr == addr)
            return;   // the first register at an address stays
        ++at;
    }
    sfr_slots[at % SFR_SLOTS] = {addr, id};
}

void sfr_init(chipinfo_t *ci)
{
    if (st.sfrs_initialized)
        return;
    for (sfr_entry_t *e = st.list; e->id != UINT32_MAX; ++e)
        if (const sfr_t *sfr = chip_findSFR(ci, e->name)) {
            e->addr = sfr->sfr_address;
            enter(sfr->sfr_address, e->id);
        }
    sfr_page = sfr_addrOf(SFR_STATUS) & ~uint32_t{255};
    st.sfrs_initialized = true;
}

uint32_t sfr_addrOf(uint32_t id) { return id >= SFR_TOSU && id < SFR_END ? static_cast<uint32_t>(st.list[id - 1].addr) : 0; }

const char *sfr_name(uint32_t id) { return id >= SFR_TOSU && id < SFR_END ? st.list[id - 1].name : nullptr; }

const char *sfr_nameAt(int64_t addr) { return sfr_name(sfr_idAt(addr)); }
