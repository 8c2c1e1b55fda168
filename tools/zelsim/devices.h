// devices: what a chip has around its core: ports, timers, serial units and interrupts.
//
// A chip file tells registers and fields by name, and by these names the units are found: a chip that has no TM2C has no
// timer 2. What no file tells, such as the value of a register after reset, is told in the manual.
#pragma once

#include <cstdio>
#include <deque>
#include <string>

#include "sim.h"

// Something that comes from outside, at a cycle.
struct sim_input {
    enum kind_t { PORT, FLAG, SERIAL } kind;
    uint64_t cycle;
    std::string name;   // the port's register, the interrupt's source, the register that receives
    uint8_t value;      // of the port's pins
    std::string text;   // that is received
    size_t after = 0;   // it waits for as many expectations, and has no cycle until then; 0 for none
};

struct devices_port {
    uint16_t pins, latch, direction;   // registers
    uint8_t outside = 0;               // what the pins are held at
};

struct devices_timer {
    uint16_t low, high, period;   // registers; high and period 0 for none
    sfr_bits_t on, prescale, bypass, clock, postscale, buffered, flag;
    std::vector<unsigned> factors;   // of the prescaler
    uint64_t since = 0, each = 1;    // cycle at which it had this count; cycles of a tick
    uint32_t count = 0;
    unsigned passes = 0;   // of the period, since the flag was last set
    uint8_t buffer = 0;    // of the high byte
    bool running = false;
};

struct devices_serial {
    uint16_t send, receive;   // registers
    uint16_t rate, rate_high, control, receive_control, mode;
    sfr_bits_t enabled, sending, receiving, empty, fast, wide, send_flag, receive_flag;
    std::deque<uint8_t> input;
    FILE *from = nullptr, *to = nullptr;   // null: nothing
    std::string sent;                      // all of it
    uint64_t busy_until = 0, next_input = 0;
    int waiting = -1;   // byte that is sent next
    bool full = false, was_sending = false;
    uint64_t lost = 0;   // bytes that were written while the unit was off
};

struct devices_source {
    std::string name;
    sfr_bits_t flag, enable, priority;
    int vector;        // in the table, -1 for none
    bool peripheral;   // needs the enable for peripherals, too
};

struct devices_t {
    std::vector<devices_port> ports;
    std::vector<devices_timer> timers;
    std::vector<devices_serial> serials;
    std::vector<devices_source> sources;
    std::vector<sim_input> inputs;   // in order of cycles
    size_t next_input = 0;
    sfr_bits_t enable_high, enable_low, priorities, idle;
    std::vector<bool> running;       // interrupts, the last one innermost: of high priority or not
    bool use_table = false;          // a vector for each source
    bool asleep = false;             // something is still to come
    uint32_t exit_at = UINT32_MAX;   // register; a write to it ends the run
    int exit_status = -1;            // what was written
};

// Puts the registers in their state after reset. Both records have to stay where they are.
void devices_init(devices_t &devices, sim_t &sim);
// Empty, or why there can be no such input.
std::string devices_add_input(devices_t &devices, const sim_t &sim, const sim_input &input);
// Inputs that waited for as many expectations come now. False if there are none.
bool devices_release(devices_t &devices, sim_t &sim, size_t expectations);
devices_serial *devices_find_serial(devices_t &devices, const sim_t &sim, const std::string &name);   // by either register
// Between two instructions: what is due happens, an interrupt begins, and `deadline` is when something is due again, at most
// `limit`. In sleep, time goes on to the next thing that is due: until one wakes the program, or until nothing more is to come
// and it isn't `asleep` any longer.
uint8_t devices_peek(const devices_t &devices, const sim_t &sim,
                     uint32_t address);   // what a read would give; nothing changes
void devices_service(devices_t &devices, sim_t &sim, uint64_t limit);
