// chip: what is known of the target device.
//
// One record, filled from the chip information file (chipinfo), checked and widened here, read through the accessors
// below by everybody else. Addresses of data memory are register addresses, those of program memory byte addresses.
// Everything in the record lives to the end of the run.
#pragma once

#include <cstdint>

#include "chip/lists.h"
#include "common/hash.h"
#include "common/skiplist.h"

// An architecture: a bit word and its name.
struct arch_row_t {
    uint32_t mask;
    const char *name;
};
enum : uint32_t { ARCH_X = 0x100, ARCH_IVT = 0x200 };   // 14-bit data addresses; interrupt vector tables
const arch_row_t *arch_find(const char *name);          // in any case; null if there is none

// Registers and their fields.
struct fld_t;
struct sfr_t {
    const char *sfr_name;
    uint32_t sfr_address;
    uint32_t sfr_width;                          // bits
    vec_t<const char *> sfr_aliases;             // further names; null if none
    vec_t<sfr_t *> sfr_kids;                     // parts of a joined register, low part first; null if none
    skip_of<const char *, fld_t *> sfr_fields;   // by name; null if none
    sfr_t *sfr_parent;                           // of a part: the joined register
};
struct fld_t {
    sfr_t *fld_owner;
    const char *fld_name;
    uint32_t fld_pos, fld_width;   // bits
    uint32_t fld_address;          // as the file gives it
    uint32_t fld_mask;
};
inline bool sfr_isJoined(const sfr_t *sfr) { return static_cast<bool>(sfr->sfr_kids); }   // no caller

struct chip_sfrtab_t {
    skip_of<const char *, sfr_t *> sfrsNameTab;   // in any case
    skip_of<uint32_t, sfr_t *> sfrsAddrTab;
    skip_of<const char *, vector_t *> fldsNameTab;   // vectors of fld_t
};

// Interrupt data.
struct intsrc_t {
    const char *name;
    uint32_t index;
    const char *description;   // null if none
};
struct chip_intsrc_t {
    uint32_t highest;            // index
    vec_t<intsrc_t *> sources;   // by index, with null in the gaps
};
struct chip_ivtbase_t {
    uint32_t addresses[3], bytes[3];
};   // low byte first
struct chip_intstat_t {
    uint32_t address, bits[2];
};
struct chip_ivtenable_t {
    const char *name;
    uint32_t value;
};

enum : uint32_t { FLASHTYPE_NONE = 240, FLASHTYPE_UNKNOWN = 255 };

// A range in the record is present when one of its bounds isn't 0.
struct chipinfo_t {
    const char *c_name;    // as the file writes it
    const char *c_alias;   // chip whose registers are used; null if none
    const char *c_file;
    const char *c_make;
    const arch_row_t *c_arch;
    hash_of<const char *, vector_t *> c_fileattrs;   // key to values, of the file's head
    hash_of<const char *, vector_t *> c_attrs;       // of the chip's section
    // From here on everything is derived, and cleared when a section begins.
    const char *c_procid, *c_errata, *c_family;
    uint32_t c_ramsize;
    uint32_t c_romlast;   // last address of program memory
    memrange_t c_extmem, c_common, c_sfrcommon, c_cfgmem, c_useridmem, c_devidmem, c_eeprom;
    vec_t<memrange_t *> c_probe[4];   // PROBE2RAM, PROBE2ROM, PROBEXRAM, PROBEXROM
    vec_t<memrange_t *> c_gprbanks, c_sfrbanks;
    vec_t<uint64_t> c_volsfrs_read;   // as they came, for range_list; once the section has been read,
    memrange_t *c_volsfrs;            // joined and in order
    uint32_t c_flash_read, c_flash_write, c_flash_erase;
    uint32_t c_stackdepth;
    uint8_t c_plib;
    uint32_t c_pcbits, c_eeadrbits, c_bsrbits;
    uint32_t c_flashtype;          // 0 to 3, or FLASHTYPE_
    uint8_t c_banks, c_rambanks;   // the rest, but for the last five, is of the mid-range family
    uint32_t c_romsize;
    uint32_t c_databank, c_sparebit, c_osccal, c_osccon;
    uint32_t c_oschow;   // 0 none, 1 RETLW, 2 CALWORD
    uint32_t c_linearbase, c_banksize, c_pagesize;
    uint32_t c_eeprom_if;   // 0 none, 1 EEREG_INT, 2 NVMREG_INT
    uint32_t c_bankselbits;
    vec_t<memrange_t *> c_rambank, c_commons;
    memrange_t c_config, c_idloc, c_flashdata;
    chip_intsrc_t *c_intsrc;   // these five are null if there is none
    chip_ivtbase_t *c_ivtbase;
    chip_intstat_t *c_intstat;
    chip_ivtenable_t *c_ivtenable;
    chip_sfrtab_t *c_sfrtab;   // built at the first look-up
};

inline bool isZEL8(const chipinfo_t *ci) { return ci->c_arch && ci->c_arch->mask >= 128 && ci->c_arch->mask <= 1024; }
inline bool isZEL(const chipinfo_t *ci) { return ci->c_arch && ci->c_arch->mask >= 1 && ci->c_arch->mask <= 64; }
inline bool chip_rowIs(const chipinfo_t *ci, uint32_t mask) { return ci->c_arch && (ci->c_arch->mask & mask) != 0; }
inline bool chip_supportsIVT(const chipinfo_t *ci) { return chip_rowIs(ci, ARCH_IVT); }   // no caller
inline bool range_present(const memrange_t &r) { return r.lo != 0 || r.hi != 0; }
inline bool range_holds(const memrange_t &r, int64_t addr) { return addr >= r.lo && addr <= r.hi; }

// The chip of the run, which is selected once. With none selected: error 814, and a record of no architecture named "none", on which
// all the accessors below answer "none", 0 or false.
const chipinfo_t *chip_undefined();
extern const chipinfo_t *cur_chip;   // written by chip_select only
void chip_select(const chipinfo_t *chip);
inline const chipinfo_t *chip_current() { return cur_chip ? cur_chip : chip_undefined(); }

inline const char *chip_getName() { return chip_current()->c_name; }
inline uint32_t chip_arch() { return chip_current()->c_arch->mask; }
inline bool chip_archIs(uint32_t mask) { return (chip_arch() & mask) != 0; }
inline bool chip_isSfrCommonAddr(int64_t addr)
{
    const chipinfo_t *ci = chip_current();
    return isZEL8(ci) && range_holds(ci->c_sfrcommon, addr);
}
inline bool chip_isCommonAddr(int64_t addr)
{
    const chipinfo_t *ci = chip_current();
    return isZEL8(ci) && (range_holds(ci->c_common, addr) || range_holds(ci->c_sfrcommon, addr));
}
bool is_useridmem(int64_t addr);
bool chip_isConfigAddr(int64_t addr);

sfr_t *chip_findSFR(chipinfo_t *ci, const char *name);   // null if there is none; builds the SFR table at first
void chip_maximise(chipinfo_t *ci);                      // --maxizel: all the memory that the address bits allow

// For the reader of the chip information file.
// Checks the record and derives the structured fields, when the section has been read. Messages 1015 to 1019, 919.
void zel1x_chip_post(chipinfo_t *ci);
