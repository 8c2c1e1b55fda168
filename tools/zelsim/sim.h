// sim: executes the instruction set, one instruction at a time.
#pragma once

#include <array>

#include "target.h"

enum sim_stop {
    SIM_RUNS,
    SIM_SLEEP,
    SIM_LIMIT,
    SIM_ILLEGAL,
    SIM_STACK,
    SIM_RESET,
    SIM_HALT,
    SIM_MEMORY,   // a write to memory that isn't there
    SIM_EXIT,     // whoever stands behind the hooks ended it
};

// Status bits.
constexpr unsigned ST_C = 1, ST_DC = 2, ST_Z = 4, ST_OV = 8, ST_N = 16, ST_ALL = 31;

// What an address of data memory is, beyond a cell that holds a byte. The low four bits are one of the roles, two tell which
// file select an indirect register belongs to, two are set beside any role.
// clang-format off
enum sim_role : uint8_t {
    R_PLAIN, R_INDF, R_POSTINC, R_POSTDEC, R_PREINC, R_PLUSW, R_STATUS, R_BSR, R_PCL, R_TOSL, R_TOSH, R_TOSU, R_STKPTR,
    R_HIGH4, R_NOWHERE, R_ABSENT, R_MODE = 15, R_FSR = 4, R_DEVICE = 64, R_WATCHED = 128,
};
// clang-format on

// An access to a register that is watched, or a byte that a table write puts into the holding registers.
struct sim_access {
    uint64_t step;
    uint32_t address;
    uint8_t value;
    enum { NONE, READ, WRITE, TABLE } kind;
};

struct sim_t;
struct sim_op;
using sim_handler = void (*)(sim_t &, const sim_op &);

// An instruction, decoded when it is first met. What value and second are is the handler's.
struct sim_op {
    sim_handler run = nullptr;   // null: not met yet
    uint32_t value = 0;
    uint16_t second = 0;
    uint8_t where = 0;                       // how the address of the file operand is made
    uint8_t words : 4 = 1, cycles : 4 = 1;   // cycles: of one that neither branches nor skips
};

// What stands around the core. `read` is called before a register with R_DEVICE is read, and puts its value into `data`; `write`
// after it has been written. `returned`: from an interrupt.
struct sim_hooks {
    void *context = nullptr;
    void (*read)(void *context, sim_t &sim, uint32_t address) = nullptr;
    void (*write)(void *context, sim_t &sim, uint32_t address) = nullptr;
    void (*returned)(void *context, sim_t &sim) = nullptr;
};

struct sim_t {
    const target_t *target;
    std::vector<uint8_t> program;   // by byte address; changed by sim_patch
    std::vector<sim_op> ops;        // by word address, and one behind the end
    std::vector<uint8_t> data;      // by address, and one cell that is nowhere; the core registers live here too
    std::vector<uint8_t> role;      // by data address, set up by sim_init
    bool random_inputs = false;     // reading a watched register that changes by itself yields a sequence
    bool extended = false;          // access-bank offsets below the register half count from file select 2
    bool strict = false;            // a write to R_ABSENT ends the run
    bool log_tables = true;
    uint32_t mask = 0;   // of data addresses
    uint32_t pc = 0;     // bytes
    std::array<uint32_t, 32> stack{};
    unsigned depth = 0;
    std::array<uint8_t, 3> shadow{};   // W, status and bsr, for the fast forms
    uint64_t steps = 0, cycles = 0;
    uint64_t deadline = 0;   // of sim_go, in cycles; 0 has it come back
    sim_stop stop = SIM_RUNS;
    std::string why;           // with the address, for a stop that isn't `sleep`
    uint32_t stopped_at = 0;   // pc behind the instruction that stopped it
    std::vector<sim_access> log;
    uint32_t inputs = 0;
    sim_hooks hooks;
    uint16_t wreg, status, bsr, prod, tblptr, tablat, pclath, fsr[3];   // addresses of core registers
};

void sim_init(sim_t &sim, const target_t &target, const std::vector<uint8_t> &program);
void sim_watch(sim_t &sim, uint32_t address);                 // its accesses go into the log
void sim_patch(sim_t &sim, uint32_t address, uint8_t byte);   // changes program memory
void sim_poke(sim_t &sim, uint32_t address, uint8_t byte);    // as an instruction would write it
void sim_step(sim_t &sim);
sim_stop sim_run(sim_t &sim, uint64_t limit);   // limit in instructions
void sim_go(sim_t &sim);                        // until `deadline`, or until it stops
void sim_halt(sim_t &sim, sim_stop stop, const std::string &why);
