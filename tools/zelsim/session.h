// session: a program, its chip, and what is asked of the run.
#pragma once

#include "observe.h"
#include "script.h"

struct session_t {
    settings_t settings;
    program_t program;
    sim_t sim;
    devices_t devices;
    observe_t observe;
    watch_t watch;
    uint32_t until = UINT32_MAX;
    devices_serial *until_unit = nullptr;   // whose text ends the run; null for none
    size_t until_seen = 0;                  // how much of what it sent has been looked at
    bool at_until = false;
};

// Makes the chip ready for the program and checks that what the settings name is there. Gives back an error text, empty on
// success. The record has to stay where it is.
std::string session_prepare(session_t &session);
// Between two instructions: what is due happens, and a sleep passes. False at the end of the run.
bool session_settle(session_t &session);
bool session_step(session_t &session);   // an instruction, observed, and what is due behind it; false at the end of the run
void session_run(session_t &session);    // to its end
