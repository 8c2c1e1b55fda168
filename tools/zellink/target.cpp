// target: a second reader of chip files, which takes only the lines that say how memory is laid out and where registers are.
//
// It shares no code with the assembler, so that both have to understand a chip file in the same way for a program to run.
#include "target.h"

#include <algorithm>
#include <fstream>

#include "zelobj.h"

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

std::string target_find(const std::string &bin, const std::string &chip, target_t &t)
{
    std::string path = bin + "/../zel/dat/ini/";
    for (char c : chip + ".ini")
        path += static_cast<char>(tolower(c));
    std::ifstream in(path);
    std::map<std::string, std::string> values;
    for (std::string line; std::getline(in, line);) {
        const size_t equals = line.find('=');
        if (line.starts_with('#') || equals == std::string::npos)
            continue;
        const std::string key = line.substr(0, equals),
                          value = line.substr(equals + 1, line.find_first_of(" \t\r") - equals - 1);
        values[key] = value;
        std::string name = value.substr(0, value.find(','));
        std::transform(name.begin(), name.end(), name.begin(), toupper);
        if (key == "SFR")
            t.sfr[name] = static_cast<uint16_t>(hex(value.substr(std::min(name.size() + 1, value.size()))));
    }
    const auto range = [&](const char *key) { return read_ranges(values[key] + ",").front(); };
    t.name = chip;
    t.wide = values["ARCH"].find('X') != std::string::npos;
    t.short_trap = values["ARCH"] != "ZEL8";
    t.rom_size = hex(values["ROMSIZE"]);
    t.stack_depth = values.contains("STACKDEPTH") ? hex(values["STACKDEPTH"]) : t.stack_depth;
    t.common = range("COMMON");
    t.sfr_common = range("SFRCOMMON");
    t.banks = read_ranges(values["GPRBANKS"]);
    t.changing = read_ranges(values["VOLSFRS"]);
    return t.rom_size && t.sfr.contains("WREG") && t.sfr_common.hi ? "" : path + ": no file, or no complete chip";
}

bool in_ranges(const ranges_t &ranges, uint32_t address)
{
    return std::any_of(ranges.begin(), ranges.end(), [&](range_t r) { return r.lo <= address && address <= r.hi; });
}

uint16_t target_sfr(const target_t &t, const std::string &name) { return t.sfr.contains(name) ? t.sfr.at(name) : 0; }

std::string target_sfr_name(const target_t &t, uint32_t address)
{
    for (const auto &[name, at] : t.sfr)
        if (at == address)
            return name;
    return zo_format("%03X", address);
}
