// compare: whether two runs of one program, assembled in different ways, do the same.
#pragma once

#include "sim.h"

// What the program's own data addresses are called.
using data_names_t = std::map<uint32_t, std::string>;

// The access that entry `i` of the log tells of: "W LATA 0x08".
std::string access_text(const sim_t &sim, size_t i);
// Data memory, within the ranges: "data address 0x012 (level): 0x05, not 0x06", empty if both hold the same. `b` is the one to blame.
std::string data_difference(const sim_t &a, const sim_t &b, const ranges_t &ranges, const data_names_t &names = {});
// The registers that have to be the same at the end of a program: file selects, product, table pointer and latch.
ranges_t pointer_registers(const sim_t &sim);

struct comparison_t {
    std::string difference;                      // where they first differ; empty: nowhere
    size_t accesses = 0;                         // to watched registers, that are the same
    uint64_t plain_steps = 0, other_steps = 0;   // done where both were last the same
    bool ended = false;                          // `plain` sleeps, or jumps to itself
};
// Runs both, `plain` for so many instructions. What has to be the same: at each write to a watched register, the accesses so
// far, data memory and the registers that aren't watched; at the end of `plain`, the pointer registers and the stack, too. The stack of `other` may hold fewer
// addresses before, and up to `deeper` more.
comparison_t compare_runs(sim_t &plain, sim_t &other, uint64_t steps, unsigned deeper, const data_names_t &names);
