// sim: executes the instruction set, one instruction at a time.
#pragma once

#include <array>

#include "target.h"

enum sim_stop { SIM_RUNS, SIM_SLEEP, SIM_LIMIT, SIM_ILLEGAL, SIM_STACK, SIM_RESET, SIM_HALT };

// Status bits.
constexpr unsigned ST_C = 1, ST_DC = 2, ST_Z = 4, ST_OV = 8, ST_N = 16, ST_ALL = 31;

// An access to a register that is watched, or a byte that a table write puts into the holding registers.
struct sim_access {
    uint64_t step;
    uint32_t address;
    uint8_t value;
    enum { NONE, READ, WRITE, TABLE } kind;
};

struct sim_t {
    const target_t *target;
    std::vector<uint8_t> program;   // by byte address
    std::vector<uint8_t> data;      // by address; the core registers live here too
    std::vector<uint8_t> role;      // by data address, set up by sim_init
    std::vector<bool> watched;      // by data address; filled in by the caller
    bool random_inputs = false;     // reading a watched register that changes by itself yields a sequence
    bool extended = false;          // access-bank offsets below the register half count from file select 2
    uint32_t pc = 0;                // bytes
    std::array<uint32_t, 32> stack{};
    unsigned depth = 0;
    std::array<uint8_t, 3> shadow{};   // W, status and bsr, for the fast forms
    uint64_t steps = 0;
    sim_stop stop = SIM_RUNS;
    std::string why;   // with the address, for a stop that isn't `sleep`
    std::vector<sim_access> log;
    uint32_t inputs = 0;
    uint16_t wreg, status, bsr, prod, tblptr, tablat, pclath, fsr[3];   // addresses of core registers
};

void sim_init(sim_t &sim, const target_t &target, const std::vector<uint8_t> &program);
void sim_step(sim_t &sim);
sim_stop sim_run(sim_t &sim, uint64_t limit);   // limit in instructions
