// target: what the linker and the simulator have to know of a chip, read from its chip file.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct range_t {
    uint32_t lo, hi;
};   // both inclusive
using ranges_t = std::vector<range_t>;

struct target_t {
    std::string name;
    bool wide = false;         // data addresses have 14 bits, not 12
    bool short_trap = false;   // `trap` is 0x00C0, not 0x00E0
    uint32_t rom_size = 0;     // bytes
    unsigned stack_depth = 31;
    range_t common{}, sfr_common{};        // the two halves of the access bank
    ranges_t banks;                        // the other data memory
    range_t config{}, idloc{}, eeprom{};   // addressed like program memory; hi is 0 for none
    ranges_t changing;                     // registers that change by themselves
    std::map<std::string, uint16_t> sfr;   // address by upper-case name
};

// The chip of that name in the installation that has the directory `bin`, or in one file, in which its section may be found by
// the end of its name. Gives back an error text, empty on success.
std::string target_find(const std::string &bin, const std::string &chip, target_t &target);
std::string target_read(const std::string &path, const std::string &chip, target_t &target);

bool in_ranges(const ranges_t &ranges, uint32_t address);
uint16_t target_sfr(const target_t &target, const std::string &name);    // 0 if the chip has no such register
std::string target_sfr_name(const target_t &target, uint32_t address);   // the name, or the number in hexadecimal
