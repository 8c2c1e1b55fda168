// observe: looks at each instruction of a run: trace, profile, coverage, waves.
#pragma once

#include <cstdio>

#include "devices.h"
#include "load.h"

struct observe_t {
    FILE *trace = nullptr, *vcd = nullptr;   // null: not wanted
    std::vector<uint64_t> counts, cycles;    // by word address
    struct frame {
        uint32_t entry;   // address of its label
        uint64_t began;
    };
    std::vector<frame> frames;            // calls and interrupts that haven't returned, the innermost last
    std::map<uint32_t, uint64_t> whole;   // cycles of those that have, by the address of their label
    uint64_t now = 0;                     // cycles so far
    std::vector<uint32_t> waves;          // what was last shown, by signal
};

void observe_begin(observe_t &o, const program_t &program, const devices_t &devices, const sim_t &sim);
// Behind an instruction; `at` and `began` are where and when it began.
void observe_step(observe_t &o, const program_t &program, const devices_t &devices, const sim_t &sim, uint32_t at,
                  uint64_t began);

std::string observe_profile(const observe_t &o, const program_t &program);    // by function and by line
std::string observe_coverage(const observe_t &o, const program_t &program);   // in the form of lcov

std::string place_text(const program_t &program, uint32_t at);       // "0x12 (delay+0x2, main.as:17)"
const source_line *line_at(const program_t &program, uint32_t at);   // null if it isn't known
