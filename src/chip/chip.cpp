// chip: what is known of the target device.
//
// The reader (chipinfo) hands over a file's attributes one by one. Numbers and ranges land in the record at once
// (keys), in the members that each of the two families has that the file format describes. The family follows from the architecture, so the architecture has to be known before. The other
// keys wait in the attribute tables until zel1x_chip_post checks how often each key stands and takes their values apart.
//
// The register table is different: it is large, and a chip may borrow another chip's with ALIAS. So it is built when the
// first register is looked up, from the SFR and SFRFLD values that the attribute tables still hold. That is late, and
// messages about such a value name the line where the section ended.
//
// A joined register is one that is wider than a byte and has names for its parts. In the file it comes first and its parts
// follow, the first of them at the same address; nothing else marks it. By address one always meets the whole register,
// by name whole or part, and the fields of the address belong to the first part.
//
// Without any catalogue no message is fatal, so that the code goes on safely even behind one that is.
#include "chip/chip.h"

#include <algorithm>
#include <cstring>
#include <strings.h>

#include "chip/chipinfo.h"
#include "common/alert.h"
#include "common/assertion.h"
#include "common/number.h"
#include "common/stringcache.h"
#include "common/xalloc.h"

enum : uint32_t {
    ROWS_ZEL2 = 7,
    ROWS_ZEL2_ENHANCED = 6,
    ROWS_ZEL4_ENHANCED = 48,   // sets of architecture rows
    MAX_ALIAS = 16,            // chips in a row that borrow registers from the next
    MAX_INTSRC = 0xFFFF,       // highest interrupt index
    MAX_BANK_BITS = 16,        // beyond any bank register; keeps the lists of banks in bounds
    PAGE = 256,                // bytes of a data memory bank
};

// ---- architectures and accessors

static const arch_row_t arch_none = {0, "none"};
static const arch_row_t arch_rows[] = {
    {0x1, "ZEL2"},  {0x2, "ZEL2E"},   {0x4, "ZEL2IE"},  {0x8, "ZEL4"},     {0x10, "ZEL4E"},     {0x20, "ZEL4EX"},
    {0x80, "ZEL8"}, {0x100, "ZEL8X"}, {0x200, "ZEL8V"}, {0x300, "ZEL8XV"}, {0xFFFFFFFF, "ANY"},
};

const arch_row_t *arch_find(const char *name)
{
    for (const arch_row_t &row : arch_rows)
        if (strcasecmp(row.name, name) == 0)
            return &row;
    return nullptr;
}

const chipinfo_t *cur_chip;
void chip_select(const chipinfo_t *chip) { cur_chip = chip; }

const chipinfo_t *chip_undefined()
{
    static chipinfo_t none;
    none.c_name = "none";
    none.c_arch = &arch_none;
    alert_once(814);
    return &none;
}

bool is_useridmem(int64_t addr)
{
    const chipinfo_t *ci = chip_current();
    const memrange_t &r = isZEL8(ci) ? ci->c_useridmem : ci->c_idloc;
    return range_present(r) && range_holds(r, addr);
}

bool chip_isConfigAddr(int64_t addr)
{
    const chipinfo_t *ci = chip_current();
    if (isZEL8(ci))
        return ci->c_cfgmem.lo < ci->c_cfgmem.hi && range_holds(ci->c_cfgmem, addr);
    return range_present(ci->c_config) && range_holds(ci->c_config, addr);
}

// ---- checks and structured values

// Reads a number as far as its digits go, and stores its lowest 32 bits. The result is the text behind it; null if there are
// no digits, or too many for 64 bits.
static const char *scan_number(const char *s, unsigned base, uint32_t *out)
{
    uint64_t n;
    s = scan_digits(s, base, &n);
    if (s || n)
        *out = static_cast<uint32_t>(n);
    return s;
}

// Reads numbers with commas between them, one for each letter of `kinds`: x hexadecimal, u decimal.
static bool scan_numbers(const char *s, const char *kinds, uint32_t *out)
{
    for (const char *k = kinds; s && *k; ++k) {
        if (k != kinds && *s++ != ',')
            return false;
        s = scan_number(s, *k == 'x' ? 16 : 10, out++);
    }
    return s != nullptr;
}

static uint32_t decimal(const char *s)
{
    uint32_t n = 0;
    scan_number(s, 10, &n);
    return n;
}

static void missing_arguments(const char *suffix, const char *key)
{
    alert_msg(1016, suffix, key, chipinfo_file(), chipinfo_line());
}

// The position of a key's value among `names`, counted from `first`; `none` without a value.
static uint32_t choice(const chipinfo_t *ci, const char *key, std::initializer_list<const char *> names, uint32_t first,
                       uint32_t none, const char *complaint)
{
    const char *value = chipinfo_get_value(ci, key);
    if (!value)
        return none;
    for (const char *name : names) {
        if (strcmp(value, name) == 0)
            return first;
        ++first;
    }
    chipinfo_fail(ci, "%s", complaint);
    return FLASHTYPE_UNKNOWN;
}

// How often a key has to stand.
enum count_need_t : uint8_t { OPTIONAL, REQUIRED, WITH_EEPROM, ON_ZEL4_ENHANCED };
struct count_row_t {
    const char *key;
    count_need_t need;
    uint32_t expected;
};
static const count_row_t zel8_counts[] = {
    {"RAMSIZE", REQUIRED, 1},      {"ROMSIZE", REQUIRED, 1},   {"COMMON", REQUIRED, 1},   {"SFRCOMMON", REQUIRED, 1},
    {"GPRBANKS", REQUIRED, 1},     {"SFRBANKS", REQUIRED, 1},  {"CFGMEM", REQUIRED, 1},   {"PCBITS", REQUIRED, 1},
    {"BSRBITS", REQUIRED, 1},      {"USERIDMEM", OPTIONAL, 1}, {"DEVIDMEM", OPTIONAL, 1}, {"EEPROM", OPTIONAL, 1},
    {"EEADRBITS", WITH_EEPROM, 1}, {"EXTMEM", OPTIONAL, 1},
};
static const count_row_t mid_counts[] = {
    {"ROMSIZE", REQUIRED, 1},     {"BANKS", REQUIRED, 1},
    {"BANKSIZE", REQUIRED, 1},    {"PAGESIZE", REQUIRED, 1},
    {"STACKDEPTH", REQUIRED, 1},  {"PCBITS", REQUIRED, 1},
    {"BANKSELBITS", REQUIRED, 1}, {"RAMBANK", REQUIRED, ANY_COUNT},
    {"COMMON", OPTIONAL, 1},      {"EEPROM", OPTIONAL, 1},
    {"DATABANK", OPTIONAL, 1},    {"SPAREBIT", OPTIONAL, 1},
    {"OSCCAL", OPTIONAL, 1},      {"OSCCON", OPTIONAL, 1},
    {"EEADRBITS", OPTIONAL, 1},   {"FLASH_READ", OPTIONAL, 1},
    {"FLASH_WRITE", OPTIONAL, 1}, {"FLASH_ERASE", OPTIONAL, 1},
    {"FLASHDATA", OPTIONAL, 1},   {"LINEARBASE", ON_ZEL4_ENHANCED, 1},
};

static bool eeprom_bounded(const chipinfo_t *ci) { return ci->c_eeprom.lo != 0 && ci->c_eeprom.hi != 0; }

static void check_count(const chipinfo_t *ci, const count_row_t &row)
{
    bool required = row.need == REQUIRED || (row.need == WITH_EEPROM && eeprom_bounded(ci));
    uint32_t expected = row.expected;
    if (row.need == ON_ZEL4_ENHANCED) {
        required = chip_rowIs(ci, ROWS_ZEL4_ENHANCED);
        expected = required;
    }
    chipinfo_check(ci, required, expected, {row.key});
}

static void post_zel8(chipinfo_t *ci)
{
    ci->c_procid = chipinfo_get_value(ci, "PROCID");
    ci->c_errata = chipinfo_get_value(ci, "ERRATA");
    ci->c_family = chipinfo_get_value(ci, "FAMILY");
    const char *plib = chipinfo_get_value(ci, "PLIB");
    ci->c_plib = plib && decimal(plib) != 0;
    uint32_t sizes[2] = {};
    if (chipinfo_get_list(ci, "FLASH_EW")) {
        const char *value = chipinfo_get_value(ci, "FLASH_EW");
        if (!value || !scan_numbers(value, "xx", sizes))
            missing_arguments("(s)", "FLASH_EW");
    }
    ci->c_flash_erase = sizes[0];
    ci->c_flash_write = sizes[1];
    for (const count_row_t &row : zel8_counts)
        check_count(ci, row);
    if (ci->c_stackdepth == 0)
        ci->c_stackdepth = 31;
}

static void post_mid(chipinfo_t *ci)
{
    ci->c_procid = chipinfo_get_value(ci, "PROCID");
    ci->c_flashtype = choice(ci, "FLASHTYPE", {"READ", "READWRITE_1", "READWRITE_A", "READWRITE_B"}, 0, FLASHTYPE_NONE,
                             "Unknown FLASHTYPE");
    ci->c_oschow = choice(ci, "OSCHOW", {"RETLW", "CALWORD"}, 1, 0, "Unknown OSCHOW");
    ci->c_eeprom_if = choice(ci, "EEPROMINT", {"EEREG_INT", "NVMREG_INT"}, 1, 0, "Unknown register interface");
    for (const count_row_t &row : mid_counts)
        check_count(ci, row);
}

static void read_intsrc(chipinfo_t *ci)
{
    ci->c_intsrc = xnew<chip_intsrc_t>();
    ci->c_intsrc->sources = vec_make<intsrc_t *>(64);
    for (const char *value : chipinfo_get_list(ci, "INTSRC")) {
        const char *comma = strchr(value, ',');
        if (!comma) {
            missing_arguments("(s)", "INTSRC");
            continue;
        }
        uint32_t index = decimal(comma + 1);
        if (index > MAX_INTSRC) {
            chipinfo_fail(ci, "index of INTSRC (%s) out of range", value);
            continue;
        }
        intsrc_t *source = xnew<intsrc_t>();
        source->name = cache_substring(value, static_cast<size_t>(comma - value));
        source->index = index;
        const char *behind = strchr(comma + 1, ',');
        if (behind && behind[1] != '\0')
            source->description = cache_translate(behind + 1, "*", " ");
        ci->c_intsrc->highest = std::max(ci->c_intsrc->highest, index);
        vec_setAt(ci->c_intsrc->sources, source, index);
    }
}

static void read_intstat(chipinfo_t *ci)
{
    uint32_t n[3];
    const char *value = chipinfo_get_value(ci, "INTSTAT");
    if (!value || !scan_numbers(value, "xuu", n))
        return missing_arguments("(s)", "INTSTAT");
    ci->c_intstat = xnew<chip_intstat_t>();
    *ci->c_intstat = {n[0], {n[1], n[2]}};
}

static void read_ivtbase(chipinfo_t *ci)
{
    uint32_t n[6];
    const char *value = chipinfo_get_value(ci, "IVTBASE");
    if (!value || !scan_numbers(value, "xxxxxx", n))
        return missing_arguments("(s)", "IVTBASE");
    ci->c_ivtbase = xnew<chip_ivtbase_t>();
    *ci->c_ivtbase = {{n[0], n[2], n[4]}, {n[1], n[3], n[5]}};
}

static void read_ivtenable(chipinfo_t *ci)
{
    const char *value = chipinfo_get_value(ci, "IVTENABLE");
    const char *comma = value ? strchr(value, ',') : nullptr;
    if (!comma)
        return missing_arguments("(s)", "IVTENABLE");
    if (comma[1] == '\0')
        return missing_arguments("", "IVTENABLE");
    ci->c_ivtenable = xnew<chip_ivtenable_t>();
    *ci->c_ivtenable = {cache_substring(value, static_cast<size_t>(comma - value)), decimal(comma + 1)};
}

void zel1x_chip_post(chipinfo_t *ci)
{
    static const struct {
        const char *key;
        void (*read)(chipinfo_t *);
    } interrupt_keys[] = {
        {"INTSRC", read_intsrc},
        {"INTSTAT", read_intstat},
        {"IVTBASE", read_ivtbase},
        {"IVTENABLE", read_ivtenable},
    };
    if (!ci->c_arch)
        ci->c_arch = &arch_none;
    ci->c_volsfrs = range_list(ci->c_volsfrs_read);
    if (isZEL8(ci))
        post_zel8(ci);
    else if (isZEL(ci))
        post_mid(ci);
    for (const auto &k : interrupt_keys) {
        if (chipinfo_get_list(ci, k.key))
            k.read(ci);
        else if (chip_supportsIVT(ci))
            alert_msg(1015, k.key, chipinfo_file(), chipinfo_line());
    }
}

// ---- registers

// A piece of a value between commas; the text goes on behind it.
struct piece_t {
    const char *text;
    size_t len;
};

// Splits at commas, storing at most `max` pieces. Empty pieces don't count. The result is the number of all pieces.
static uint32_t split(const char *s, piece_t *out, uint32_t max)
{
    uint32_t n = 0;
    for (; *(s += strspn(s, ",")); ++n) {
        size_t len = strcspn(s, ",");
        if (n < max)
            out[n] = {s, len};
        s += len;
    }
    return n;
}

static const char *piece_string(piece_t p) { return cache_substring(p.text, p.len); }

// Reads one piece of an SFR or SFRFLD value; message 1021 with `format`, which takes the name and the piece.
static bool piece_number(piece_t p, unsigned base, uint32_t *out, const char *key, const char *part, piece_t name)
{
    if (scan_number(p.text, base, out))
        return true;
    alert_msg(1021, cache_printf("%s (%s) %s (%s)", key, piece_string(name), part, piece_string(p)), chipinfo_file(),
              chipinfo_line());
    return false;
}

static void enter_register(chip_sfrtab_t *tab, sfr_t *sfr)
{
    skiplist_insert(tab->sfrsNameTab, sfr->sfr_name, sfr);
    skiplist_insert(tab->sfrsAddrTab, sfr->sfr_address, sfr);
}

static void add_part(sfr_t *joined, sfr_t *part)
{
    if (!joined->sfr_kids)
        joined->sfr_kids = vec_make<sfr_t *>(4);
    vec_add(joined->sfr_kids, part);
    part->sfr_parent = joined;
}

static void add_registers(chip_sfrtab_t *tab, vec_t<const char *> values)
{
    sfr_t *prev = nullptr, *joined = nullptr;   // the last register, and the one being filled with parts
    uint64_t joined_bits = 0;
    for (const char *value : values) {
        piece_t p[3];
        uint32_t address, width, n = split(value, p, 3);
        if (n < 3) {
            missing_arguments("(s)", "SFR");
            continue;
        }
        if (n > 3)
            alert_msg(1017, n == 4 ? "" : "s", "SFR", chipinfo_file(), chipinfo_line());
        if (!piece_number(p[1], 16, &address, "SFR", "address", p[0]))
            continue;
        if (!piece_number(p[2], 10, &width, "SFR", "bit-width", p[0]))
            continue;
        ASSERTION(!prev || prev->sfr_address <= address, "prev->sfr_address <= address");
        const char *name = piece_string(p[0]);
        bool same = prev && prev->sfr_address == address;
        if (same && prev->sfr_width == width) {
            if (!prev->sfr_aliases)
                prev->sfr_aliases = vec_make<const char *>(2);
            vec_add(prev->sfr_aliases, name);
            skiplist_insert(tab->sfrsNameTab, name, prev);
            continue;
        }
        sfr_t *sfr = xnew<sfr_t>();
        sfr->sfr_name = name;
        sfr->sfr_address = address;
        sfr->sfr_width = width;
        if (same && prev->sfr_width > width) {
            joined = prev;
            joined_bits = width;
            add_part(joined, sfr);
        } else if (joined) {
            joined_bits += width;
            if (joined_bits <= joined->sfr_width) {
                add_part(joined, sfr);
            } else {
                joined = nullptr;
                joined_bits = 0;
            }
        }
        enter_register(tab, sfr);
        prev = sfr;
    }
}

// `width` one bits from `pos` on, cut to 32 bits.
static uint32_t field_mask(uint32_t pos, uint32_t width)
{
    if (pos >= 32)
        return 0;
    uint64_t ones = (uint64_t{1} << std::min(width, 32u)) - 1;
    return static_cast<uint32_t>(ones << pos);
}

static void add_fields(chip_sfrtab_t *tab, const chipinfo_t *ci, vec_t<const char *> values)
{
    for (const char *value : values) {
        piece_t p[4];
        uint32_t address, pos, width;
        if (split(value, p, 4) < 4) {
            missing_arguments("(s)", "SFRFLD");
            continue;
        }
        if (!piece_number(p[1], 16, &address, "SFRFLD", "address", p[0]))
            continue;
        if (!piece_number(p[2], 10, &pos, "SFRFLD", "bit-position", p[0]))
            continue;
        if (!piece_number(p[3], 10, &width, "SFRFLD", "bit-width", p[0]))
            continue;
        const char *name = piece_string(p[0]);
        sfr_t *owner = skiplist_lookup(tab->sfrsAddrTab, address);
        ASSERTION(owner, "sfr != NULL");
        if (!owner)
            continue;
        if (sfr_isJoined(owner))
            owner = vec_elementAt(owner->sfr_kids, 0);
        if (!owner->sfr_fields)
            owner->sfr_fields = skip_make<const char *, fld_t *>(hash_string, hash_strcmp);
        if (const fld_t *old = skiplist_lookup(owner->sfr_fields, name)) {
            if (old->fld_address != address || old->fld_pos != pos || old->fld_width != width)
                chipinfo_fail(ci, "invalid duplicate SFRFLD (%s)", name);
            continue;
        }
        fld_t *fld = xnew<fld_t>();
        *fld = {owner, name, pos, width, address, field_mask(pos, width)};
        skiplist_insert(owner->sfr_fields, name, fld);
        vec_t<fld_t *> same_name = {skiplist_lookup(tab->fldsNameTab, name)};
        if (!same_name) {
            same_name = vec_make<fld_t *>(2);
            skiplist_insert(tab->fldsNameTab, name, same_name.raw);
        }
        vec_add(same_name, fld);
    }
}

static chip_sfrtab_t *make_sfrtab(const chipinfo_t *ci)
{
    for (unsigned steps = 0; ci->c_alias; ++steps) {
        const char *path = chip_alias_INI_path(ci);
        if (!path)
            break;
        if (steps == MAX_ALIAS) {
            chipinfo_fail(ci, "ALIAS leads from chip to chip without end");
            break;
        }
        const chipinfo_t *lender = chipinfo_load(path, ci->c_alias);
        if (!lender)
            break;
        ci = lender;
    }
    chip_sfrtab_t *tab = xnew<chip_sfrtab_t>();
    tab->sfrsNameTab = skip_make<const char *, sfr_t *>(hash_string_nocase, hash_strcasecmp);
    tab->sfrsAddrTab = skip_make<uint32_t, sfr_t *>(nullptr, nullptr);
    tab->fldsNameTab = skip_make<const char *, vector_t *>(hash_string, hash_strcmp);
    vec_t<const char *> registers = chipinfo_get_list(ci, "SFR"), fields = chipinfo_get_list(ci, "SFRFLD");
    if (!registers)
        alert_msg(1015, "SFR", chipinfo_file(), chipinfo_line());
    if (!fields)
        alert_msg(1015, "SFRFLD", chipinfo_file(), chipinfo_line());
    add_registers(tab, registers);
    add_fields(tab, ci, fields);
    return tab;
}

sfr_t *chip_findSFR(chipinfo_t *ci, const char *name)
{
    if (!ci->c_sfrtab)
        ci->c_sfrtab = make_sfrtab(ci);
    return skiplist_lookup(ci->c_sfrtab->sfrsNameTab, name);
}

// ---- all the memory that the address bits allow

static uint32_t power_of_2(uint32_t bits) { return uint32_t{1} << std::min(bits, 31u); }

// Takes a range out of what lies below `size`, in pages.
static void take_away(memrange_t **list, const memrange_t &r, uint32_t size)
{
    if (r.lo < size && r.lo <= r.hi)
        add_range_split(list, r.lo, std::min(r.hi, size - 1), PAGE, false);
}

// General-purpose memory is every page that isn't access bank or register bank. It is written over the old ranges.
static void maximise_gpr(chipinfo_t *ci)
{
    memrange_t *pages = nullptr, *taken = nullptr;
    add_range_split(&pages, 0, ci->c_ramsize - 1, PAGE, false);
    take_away(&taken, ci->c_common, ci->c_ramsize);
    take_away(&taken, ci->c_sfrcommon, ci->c_ramsize);
    for (const memrange_t *r : ci->c_sfrbanks)
        take_away(&taken, *r, ci->c_ramsize);
    memrange_t *gpr = range_subtract(pages, taken);
    uint32_t i = 0;
    for (const memrange_t *r = gpr; r; r = r->next, ++i) {
        if (i < vec_size(ci->c_gprbanks))
            *vec_elementAt(ci->c_gprbanks, i) = {r->lo, r->hi, nullptr};
        else
            range_append(&ci->c_gprbanks, r->lo, r->hi);
    }
    range_free(gpr);
    range_free(taken);
    range_free(pages);
}

// Gives every bank up to `banks` a range, placed within the bank as those that the vector has.
static void pad_banks(ranges_t *v, uint32_t banks, uint32_t banksize)
{
    if (vec_size(*v) == 0 || banksize == 0)
        return;
    uint32_t real_banks = vec_size(*v), chunk_lo = UINT32_MAX, chunk_hi = 0;
    for (const memrange_t *r : *v) {
        uint32_t bank = r->lo / banksize, start = bank * banksize;
        real_banks = std::max(real_banks, bank + 1);
        chunk_lo = std::min(chunk_lo, r->lo - start);
        chunk_hi = std::max(chunk_hi, r->hi - start);
    }
    for (uint32_t bank = real_banks; bank < banks; ++bank) {
        uint32_t lo = bank * banksize + chunk_lo;
        range_append(v, lo, lo + (chunk_hi - chunk_lo));
    }
}

void chip_maximise(chipinfo_t *ci)
{
    bool zel8 = isZEL8(ci);
    if (!zel8 && !isZEL(ci))
        return;
    if (eeprom_bounded(ci))
        ci->c_eeprom.hi = ci->c_eeprom.lo + power_of_2(ci->c_eeadrbits) - 1;
    if (zel8) {
        ci->c_romlast = ci->c_extmem.lo < ci->c_extmem.hi ? ci->c_extmem.hi : power_of_2(std::min(ci->c_pcbits, 31u) + 1);
        ci->c_ramsize = PAGE << std::min<uint32_t>(ci->c_bsrbits, MAX_BANK_BITS);
        maximise_gpr(ci);
    } else {
        bool config_above = chip_rowIs(ci, ROWS_ZEL2) && ci->c_config.lo != 0;
        ci->c_romsize = power_of_2(ci->c_pcbits);
        if (config_above && ci->c_config.lo <= ci->c_romsize)
            ci->c_romsize = ci->c_config.lo - 1;
        uint32_t banks = power_of_2(std::min<uint32_t>(ci->c_bankselbits, MAX_BANK_BITS));
        if (!chip_rowIs(ci, ROWS_ZEL2_ENHANCED))
            pad_banks(&ci->c_commons, banks, ci->c_banksize);
        pad_banks(&ci->c_rambank, banks, ci->c_banksize);
        ci->c_banks = static_cast<uint8_t>(banks);
    }
}
