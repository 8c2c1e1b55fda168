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

// Some bits of a register.
struct sfr_bits_t {
    uint16_t address = 0;
    uint8_t low = 0, bits = 0;   // bits is 0 for a field that isn't there
};

// A setting of the configuration words that is on or off.
struct switch_bits_t {
    uint32_t address = 0;
    uint8_t mask = 0, on = 0;   // on: the value of the bits
};

struct target_t {
    std::string name;
    bool wide = false;                     // data addresses have 14 bits, not 12
    bool short_trap = false;               // `trap` is 0x00C0, not 0x00E0
    uint32_t rom_size = 0, ram_size = 0;   // bytes
    unsigned stack_depth = 31;
    range_t common{}, sfr_common{};        // the two halves of the access bank
    ranges_t banks;                        // the other data memory
    range_t config{}, idloc{}, eeprom{};   // addressed like program memory; hi is 0 for none
    ranges_t changing;                     // registers that change by themselves
    std::map<std::string, uint16_t> sfr;   // address by upper-case name
    std::map<std::string, sfr_bits_t> fields;
    std::map<std::string, unsigned> sources;         // of interrupts: the number in the table of vectors
    std::array<uint16_t, 3> vectors_at{};            // registers of the table's address, low one first; 0 if there are none
    std::array<uint8_t, 3> vectors_reset{};          // what they hold after reset
    std::string vectors_setting;                     // the switch that turns the table on
    std::map<std::string, switch_bits_t> switches;   // by setting, if target_switches found the chip's file
    sfr_bits_t status_low, status_high;              // tell which interrupts run
};

// The folder of the installation whose programs are in the directory `bin`; empty if there is none.
std::string target_installation(const std::string &bin);

// The chip of that name in the installation that has the directory `bin`, or in one file, in which its section may be found by
// the end of its name. Gives back an error text, empty on success.
std::string target_file(const std::string &bin, const std::string &chip);   // its path; empty if there is none
std::string target_find(const std::string &bin, const std::string &chip, target_t &target);
std::string target_read(const std::string &path, const std::string &chip, target_t &target);

// Reads the switches from the installation's file of configuration data, if there is one.
void target_switches(const std::string &bin, target_t &target);

bool in_ranges(const ranges_t &ranges, uint32_t address);
uint16_t target_sfr(const target_t &target, const std::string &name);       // 0 if the chip has no such register
sfr_bits_t target_field(const target_t &target, const std::string &name);   // without bits if the chip has none
std::string target_sfr_name(const target_t &target, uint32_t address);      // the name, or the number in hexadecimal
