// target: a second reader of chip files, which takes only the lines that say how memory is laid out and where registers are.
//
// It shares no code with the assembler, so that both have to understand a chip file in the same way for a program to run.
#include "target.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

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

std::string target_read(const std::string &path, target_t &t)
{
    std::ifstream in(path);
    if (!in)
        return path + ": can't read the chip file";
    for (std::string line; std::getline(in, line);) {
        const size_t equals = line.find('=');
        if (line.starts_with('['))
            t.name = line.substr(1, line.find(']') - 1);
        if (line.starts_with('#') || equals == std::string::npos)
            continue;
        const std::string key = line.substr(0, equals),
                          value = line.substr(equals + 1, line.find_first_of(" \t\r") - equals - 1);
        if (key == "ARCH") {
            t.wide = value.find('X') != std::string::npos;
            t.short_trap = value != "ZEL8";
        } else if (key == "ROMSIZE") {
            t.rom_size = hex(value);
        } else if (key == "STACKDEPTH") {
            t.stack_depth = hex(value);
        } else if (key == "COMMON" || key == "SFRCOMMON") {
            const ranges_t ranges = read_ranges(value);
            if (!ranges.empty())
                (key == "COMMON" ? t.common : t.sfr_common) = ranges.front();
        } else if (key == "GPRBANKS") {
            t.banks = read_ranges(value);
        } else if (key == "VOLSFRS") {
            t.changing = read_ranges(value);
        } else if (key == "SFR") {
            std::string name = value.substr(0, value.find(','));
            for (char &c : name)
                c = static_cast<char>(toupper(c));
            t.sfr[name] = static_cast<uint16_t>(hex(value.substr(std::min(name.size() + 1, value.size()))));
        }
    }
    return t.rom_size && t.sfr.contains("WREG") && t.sfr_common.hi ? "" : path + ": no complete chip in the file";
}

std::string target_find(const std::string &bin, const std::string &chip, target_t &t)
{
    std::string lower = chip;
    for (char &c : lower)
        c = static_cast<char>(tolower(c));
    return target_read(bin + "/../zel/dat/ini/" + lower + ".ini", t);
}

bool in_ranges(const ranges_t &ranges, uint32_t address)
{
    return std::any_of(ranges.begin(), ranges.end(), [&](range_t r) { return r.lo <= address && address <= r.hi; });
}

uint16_t target_sfr(const target_t &t, const char *name)
{
    const auto it = t.sfr.find(name);
    return it == t.sfr.end() ? 0 : it->second;
}

std::string target_sfr_name(const target_t &t, uint16_t address)
{
    for (const auto &[name, at] : t.sfr)
        if (at == address)
            return name;
    char text[8];
    snprintf(text, sizeof text, "%03X", static_cast<unsigned>(address));
    return text;
}
