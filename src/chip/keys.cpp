// The list of keys, and the way of a number or a range into the chip's record. Most go to a member that the row names; the
// few that do more on their way are asked for by name behind the list.
#include "chip/keys.h"

#include <iterator>
#include <string_view>
#include <strings.h>

#include "chip/chipinfo.h"

// Where a range goes: to a member that holds one, or to a vector. `what` is named when only one range may stand.
struct range_place_t {
    memrange_t chipinfo_t::*one = nullptr;
    ranges_t chipinfo_t::*many = nullptr;
    const char *what = nullptr;
};

struct key_row_t {
    const char *name;
    key_kind_t kind = KEY_TEXT;
    uint32_t chipinfo_t::*number8 = nullptr, chipinfo_t::*number_mid = nullptr;   // null: nowhere
    range_place_t range8 = {}, range_mid = {};
};

static constexpr key_row_t number(const char *name, uint32_t chipinfo_t::*zel8, uint32_t chipinfo_t::*mid)
{
    return {name, KEY_NUMBER, zel8, mid};
}
static constexpr key_row_t range(const char *name, range_place_t zel8 = {}, range_place_t mid = {})
{
    return {name, KEY_RANGES, nullptr, nullptr, zel8, mid};
}
static constexpr range_place_t one(memrange_t chipinfo_t::*member, const char *what = nullptr)
{
    return {member, nullptr, what};
}
static constexpr range_place_t many(ranges_t chipinfo_t::*member) { return {nullptr, member, nullptr}; }

// clang-format off
static constexpr key_row_t keys[] = {
    {"SFRFILE"}, {"MODULE"}, {"JARS"}, {"MANUFACTURER"}, {"COMPILER"}, {"DEBUGGER"}, {"DEFAULTMEM"}, {"DEFAULTREG"},
    {"ARCHCLASS"}, {"MAKE"}, {"ALIAS"}, {"PROCID"}, {"START"}, {"LIB"}, {"ERRATA"}, {"FAMILY"}, {"FLASH_EW"}, {"PLIB"},
    {"IVTBASE"}, {"INTSTAT"}, {"INTSRC"}, {"IVTENABLE"}, {"SFR"}, {"SFRFLD"}, {"PROGMEM"}, {"FLASHTYPE"}, {"OSCHOW"},
    {"EEPROMINT"},

    number("RAMSIZE", &chipinfo_t::c_ramsize, nullptr),
    number("ROMSIZE", &chipinfo_t::c_romlast, &chipinfo_t::c_romsize),   // less 1 for the last address
    number("BANKS", nullptr, nullptr),                                   // to c_banks, which is narrower
    number("DATABANK", nullptr, &chipinfo_t::c_databank),
    number("SPAREBIT", nullptr, &chipinfo_t::c_sparebit),
    number("OSCCAL", nullptr, &chipinfo_t::c_osccal),
    number("OSCCON", nullptr, &chipinfo_t::c_osccon),
    number("FLASH_READ", nullptr, &chipinfo_t::c_flash_read),
    number("FLASH_WRITE", nullptr, &chipinfo_t::c_flash_write),          // and to c_flash_erase, if that has none yet
    number("FLASH_ERASE", nullptr, &chipinfo_t::c_flash_erase),
    number("STACKDEPTH", &chipinfo_t::c_stackdepth, &chipinfo_t::c_stackdepth),
    number("PAGESIZE", nullptr, &chipinfo_t::c_pagesize),
    number("BANKSIZE", nullptr, &chipinfo_t::c_banksize),
    number("LINEARBASE", nullptr, &chipinfo_t::c_linearbase),
    number("PCBITS", &chipinfo_t::c_pcbits, &chipinfo_t::c_pcbits),
    number("EEADRBITS", &chipinfo_t::c_eeadrbits, &chipinfo_t::c_eeadrbits),
    number("BANKSELBITS", nullptr, &chipinfo_t::c_bankselbits),
    number("BSRBITS", &chipinfo_t::c_bsrbits, nullptr),

    range("RAMBANK", {}, many(&chipinfo_t::c_rambank)),                  // c_rambanks counts them
    range("COMMON", one(&chipinfo_t::c_common, "COMMON RAM"), many(&chipinfo_t::c_commons)),
    range("PROBE1RAM"), range("PROBE1ROM"), range("PROBE3RAM"), range("PROBE3ROM"),
    range("PROBE2RAM"), range("PROBE2ROM"), range("PROBEXRAM"), range("PROBEXROM"),   // to c_probe
    range("FLASHDATA", {}, one(&chipinfo_t::c_flashdata)),
    range("VOLSFRS"),                                                    // to c_volsfrs_read, in both families
    range("EEPROM", one(&chipinfo_t::c_eeprom), one(&chipinfo_t::c_eeprom)),
    range("CONFIG", {}, one(&chipinfo_t::c_config, "CONFIG")),
    range("IDLOC", {}, one(&chipinfo_t::c_idloc, "IDLOC")),
    range("GPRBANKS", many(&chipinfo_t::c_gprbanks)),
    range("SFRBANKS", many(&chipinfo_t::c_sfrbanks)),
    range("EXTMEM", one(&chipinfo_t::c_extmem)),
    range("CFGMEM", one(&chipinfo_t::c_cfgmem)),
    range("USERIDMEM", one(&chipinfo_t::c_useridmem)),
    range("DEVIDMEM", one(&chipinfo_t::c_devidmem)),
    range("SFRCOMMON", one(&chipinfo_t::c_sfrcommon, "SFRCOMMON RAM")),
};
// clang-format on

static consteval const key_row_t *named(std::string_view name)
{
    for (const key_row_t &key : keys)
        if (key.name == name)
            return &key;
    throw "no such key";
}

const key_row_t *key_find(const char *name)
{
    for (const key_row_t &key : keys)
        if ((name[0] & 0x5F) == key.name[0] && strcasecmp(name, key.name) == 0)
            return &key;
    return nullptr;
}

const char *key_name(const key_row_t *key) { return key->name; }
key_kind_t key_kind(const key_row_t *key) { return key->kind; }

void key_set_number(chipinfo_t *ci, const key_row_t *key, uint64_t value)
{
    const bool zel8 = isZEL8(ci);
    if (!zel8 && !isZEL(ci))
        return;
    if (zel8 && key == named("ROMSIZE") && value != 0)
        --value;
    if (!zel8 && key == named("BANKS"))
        ci->c_banks = static_cast<uint8_t>(value);
    const uint32_t number = static_cast<uint32_t>(value);
    if (!zel8 && key == named("FLASH_WRITE") && ci->c_flash_erase == 0)
        ci->c_flash_erase = number;
    if (auto field = zel8 ? key->number8 : key->number_mid)
        ci->*field = number;
}

void key_add_range(chipinfo_t *ci, const key_row_t *key, uint32_t lo, uint32_t hi)
{
    static constexpr const key_row_t *probes[] = {named("PROBE2RAM"), named("PROBE2ROM"), named("PROBEXRAM"),
                                                  named("PROBEXROM")};
    const bool zel8 = isZEL8(ci);
    if (!zel8 && !isZEL(ci))
        return;
    if (key == named("VOLSFRS")) {
        if (!ci->c_volsfrs_read)
            ci->c_volsfrs_read = vec_make<uint64_t>();
        return vec_add(ci->c_volsfrs_read, range_word(lo, hi));
    }
    for (size_t i = 0; i < std::size(probes); i++)
        if (zel8 && key == probes[i])
            return range_append(&ci->c_probe[i], lo, hi);
    const range_place_t &place = zel8 ? key->range8 : key->range_mid;
    if (place.one) {
        if (place.what && range_present(ci->*place.one))
            chipinfo_fail(ci, "Too many %s ranges defined", place.what);
        if (place.what && zel8 && lo > hi)
            chipinfo_fail(ci, "Invalid %s limits", key->name);
        ci->*place.one = {lo, hi, nullptr};
    } else if (place.many) {
        range_append(&(ci->*place.many), lo, hi);
        if (key == named("RAMBANK"))
            ci->c_rambanks = static_cast<uint8_t>(vec_size(ci->c_rambank));
    }
}
