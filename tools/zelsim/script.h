// script: what happens to a chip from outside, and what is expected of it.
//
// A script is lines of words, see "Simulating" in the manual. Values and addresses are hexadecimal, cycles decimal.
#pragma once

#include "devices.h"
#include "load.h"

struct expectation_t {
    std::string where;   // file and line
    std::string name;    // register, label or address
    uint32_t address = 0;
    uint8_t value = 0;
    std::string text;      // that a serial unit sends; empty for a value
    uint64_t before = 0;   // cycles; 0: when the run ends
};

struct settings_t {
    std::vector<std::string> inputs;
    std::string chip, chip_file, script;
    std::string start, until, exit_register;
    std::string until_register, until_text;   // of a serial unit, and what it sends; empty for none
    std::string input_register, output_register;
    std::string trace, profile, vcd, coverage;   // files; "-" is the standard output
    uint64_t limit = 300'000'000;                // cycles
    bool strict = false, xinst = false, vectors = false, quiet = false, debug = false;
    bool help = false, version = false;
    std::vector<sim_input> events;
    std::vector<expectation_t> expectations;
};

// The command line and, where it names one, the script. Gives back an error text, empty on success.
std::string read_settings(const std::vector<std::string> &arguments, settings_t &settings);
std::string read_script(const std::string &name, const std::string &text, settings_t &settings);

// The address of a register, label or hexadecimal number; of code also FILE:LINE, from where on there is code. Each may have a
// hexadecimal "+offset" behind it. False if it is none of the chip's.
bool data_address(const program_t &program, const std::string &name, uint32_t &address);
bool code_address(const program_t &program, const std::string &name, uint32_t &address);

// Whether what is expected is so. They come true one after the other: `done` is the first that hasn't, `seen` how much of what
// serial units sent belongs to those before.
struct watch_t {
    size_t done = 0;
    std::map<std::string, size_t> seen;
};
// Gives back whether inputs have waited for that and come now.
bool watch_update(watch_t &watch, const settings_t &settings, devices_t &devices, sim_t &sim);
// The cycle by which the next one has to be so; UINT64_MAX for none.
uint64_t watch_deadline(const watch_t &watch, const settings_t &settings);
// At the end of a run: what isn't as expected, a line each.
std::vector<std::string> watch_failures(watch_t &watch, const settings_t &settings, devices_t &devices, const sim_t &sim);
