// target: a second reader of chip files, which takes only the lines that say how memory is laid out and where registers are.
//
// It shares no code with the assembler, so that both have to understand a chip file in the same way for a program to run.
#include "target.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "zelobj.h"

enum : uint32_t { ROM_MAX = 0x200000 };   // bytes that a program counter of 21 bits reaches

static uint32_t hex(const std::string &text) { return static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 16)); }

static ranges_t read_ranges(const std::string &text)
{
    ranges_t ranges;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find(',', at), text.size()), dash = text.find('-', at);
        ranges.push_back({hex(text.substr(at)), hex(text.substr(dash < end ? dash + 1 : at))});
        at = end + 1;
    }
    return ranges;
}

static std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return text;
}

static std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(toupper(c)); });
    return text;
}

namespace
{

struct attribute_t {
    std::string key, value;
};
struct section_t {
    std::string name;   // empty for the lines ahead of the first section
    std::vector<attribute_t> attributes;
};

}   // namespace

static std::vector<section_t> read_sections(const std::string &path)
{
    std::vector<section_t> sections(1);
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        line.erase(0, line.find_first_not_of(" \t\r\v\f"));
        const size_t equals = line.find('=');
        if (line.starts_with('['))
            sections.push_back({line.substr(1, line.find(']') - 1), {}});
        else if (!line.empty() && line[0] != '#' && equals != std::string::npos)
            sections.back().attributes.push_back(
                {line.substr(0, equals), line.substr(equals + 1, line.find_first_of(" \t\r", equals) - equals - 1)});
    }
    return sections;
}

// The section of the name, else the only one whose name ends with it.
static const section_t *find_section(const std::vector<section_t> &sections, const std::string &chip)
{
    const section_t *found = nullptr;
    size_t count = 0;
    for (size_t i = 1; i < sections.size(); i++) {
        const std::string name = upper(sections[i].name);
        if (name == upper(chip))
            return &sections[i];
        if (!chip.empty() && name.ends_with(upper(chip))) {
            found = &sections[i];
            count++;
        }
    }
    return count == 1 ? found : nullptr;
}

static std::vector<std::string> parts(const std::string &text)
{
    std::vector<std::string> all;
    for (size_t at = 0; at <= text.size(); at += all.back().size() + 1)
        all.push_back(text.substr(at, text.find(',', at) - at));
    return all;
}

static unsigned decimal(const std::string &text) { return static_cast<unsigned>(strtoul(text.c_str(), nullptr, 10)); }

static void take_line(target_t &t, const attribute_t &line)
{
    const std::vector<std::string> p = parts(line.value);
    if (line.key == "SFR" && p.size() >= 2)
        t.sfr[upper(p[0])] = static_cast<uint16_t>(hex(p[1]));
    else if (line.key == "SFRFLD" && p.size() >= 4)
        t.fields[upper(p[0])] = {static_cast<uint16_t>(hex(p[1])), static_cast<uint8_t>(decimal(p[2]) & 7),
                                 static_cast<uint8_t>(decimal(p[3]) & 15)};
    else if (line.key == "INTSRC" && p.size() >= 2)
        t.sources[upper(p[0])] = decimal(p[1]) & 255;
    else if (line.key == "IVTBASE" && p.size() >= 6)
        for (size_t i = 0; i < 3; i++) {
            t.vectors_at[i] = static_cast<uint16_t>(hex(p[2 * i]));
            t.vectors_reset[i] = static_cast<uint8_t>(hex(p[2 * i + 1]));
        }
    else if (line.key == "INTSTAT" && p.size() >= 3)
        for (size_t i = 0; i < 2; i++)
            (i ? t.status_high : t.status_low) = {static_cast<uint16_t>(hex(p[0])),
                                                  static_cast<uint8_t>(decimal(p[i + 1]) & 7), 1};
}

// Whatever a file tells, a register lies in data memory.
static void keep_addresses(target_t &t)
{
    const uint16_t mask = t.wide ? 0x3FFF : 0xFFF;
    for (auto &[name, at] : t.sfr)
        at &= mask;
    for (auto &[name, field] : t.fields)
        field.address &= mask;
    for (uint16_t &at : t.vectors_at)
        at &= mask;
    t.status_low.address &= mask;
    t.status_high.address &= mask;
}

std::string target_read(const std::string &path, const std::string &chip, target_t &t)
{
    const std::vector<section_t> sections = read_sections(path);
    const section_t *const section = find_section(sections, chip);
    if (!section)
        return path + ": no file, or no chip " + chip + " in it";
    std::map<std::string, std::string> values;
    for (const section_t *s : {&sections[0], section})   // what the section says comes last
        for (const attribute_t &line : s->attributes) {
            values[line.key] = line.value;
            take_line(t, line);
        }
    if (const section_t *alias = values.contains("ALIAS") ? find_section(sections, values["ALIAS"]) : nullptr)
        for (const attribute_t &line : alias->attributes)
            if (line.key.starts_with("SFR"))
                take_line(t, line);
    const auto range = [&](const char *key) { return read_ranges(values[key] + ",").front(); };
    t.name = section->name;
    t.wide = values["ARCH"].find('X') != std::string::npos;
    t.short_trap = values["ARCH"] != "ZEL8";
    t.rom_size = hex(values["ROMSIZE"]);
    t.ram_size = hex(values["RAMSIZE"]);
    t.stack_depth = hex(values["STACKDEPTH"]) ? hex(values["STACKDEPTH"]) : t.stack_depth;
    t.common = range("COMMON");
    t.sfr_common = range("SFRCOMMON");
    t.config = range("CFGMEM");
    t.idloc = range("USERIDMEM");
    t.eeprom = range("EEPROM");
    t.vectors_setting = parts(upper(values["IVTENABLE"])).front();
    t.banks = read_ranges(values["GPRBANKS"]);
    t.changing = read_ranges(values["VOLSFRS"]);
    keep_addresses(t);
    const bool sane = t.rom_size && t.rom_size <= ROM_MAX && t.sfr_common.hi;
    return sane ? "" : path + ": chip " + chip + " isn't told completely";
}

static const char *const data_folders[] = {"/../zel/dat/", "/../dat/", "/../../zel/dat/"};

std::string target_installation(const std::string &bin)
{
    std::error_code ignored;
    for (const char *dat : data_folders)
        if (const std::filesystem::path folder = bin + dat; std::filesystem::exists(folder, ignored))
            return std::filesystem::canonical(folder / "..", ignored);
    return "";
}

std::string target_file(const std::string &bin, const std::string &chip)
{
    const std::string name = lower(chip), family = name.starts_with("zel") ? name.substr(3) : name, own = name + ".ini",
                      shared = family.starts_with('8') ? "zelc-8.ini" : "zelc.ini";
    for (const char *dat : data_folders)
        for (const std::string &file : {"ini/" + own, own, shared})
            if (const std::string path = bin + dat + file; access(path.c_str(), R_OK) == 0)
                return path;
    return "";
}

std::string target_find(const std::string &bin, const std::string &chip, target_t &t)
{
    const std::string path = target_file(bin, chip);
    return path.empty() ? "the installation has no file for chip " + chip : target_read(path, chip, t);
}

// CSETTING:mask:name follows its CWORD:address, CVALUE:value:name its setting.
static void read_switches(std::istream &in, target_t &t)
{
    switch_bits_t bits;
    std::string setting;
    for (std::string line; std::getline(in, line);) {
        std::replace(line.begin(), line.end(), ':', ',');
        const std::vector<std::string> p = parts(line);
        if (p.size() > 1 && p[0] == "CWORD")
            bits.address = hex(p[1]);
        else if (p.size() > 2 && p[0] == "CSETTING") {
            bits.mask = static_cast<uint8_t>(hex(p[1]));
            setting = upper(p[2]);
        } else if (p.size() > 2 && p[0] == "CVALUE" && p[2] == "ON" && bits.mask) {
            bits.on = static_cast<uint8_t>(hex(p[1]));
            t.switches[setting] = bits;
        }
    }
}

void target_switches(const std::string &bin, target_t &t)
{
    for (const char *dat : data_folders)
        if (std::ifstream in(bin + dat + "cfgdata/" + lower(t.name) + ".cfgdata"); in)
            return read_switches(in, t);
}

bool in_ranges(const ranges_t &ranges, uint32_t address)
{
    return std::any_of(ranges.begin(), ranges.end(), [&](range_t r) { return r.lo <= address && address <= r.hi; });
}

uint16_t target_sfr(const target_t &t, const std::string &name) { return t.sfr.contains(name) ? t.sfr.at(name) : 0; }

sfr_bits_t target_field(const target_t &t, const std::string &name)
{
    return t.fields.contains(name) ? t.fields.at(name) : sfr_bits_t{};
}

std::string target_sfr_name(const target_t &t, uint32_t address)
{
    for (const auto &[name, at] : t.sfr)
        if (at == address)
            return name;
    return zo_format("%03X", address);
}
