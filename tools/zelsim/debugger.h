// debugger: what the sources of the debugger share: `debug` takes commands, `debug_go` goes on and stops, `debug_show` shows.
#pragma once

#include "session.h"

using words_t = std::vector<std::string>;   // of a command, its name among them

struct stop_t {
    unsigned number;
    bool watch;
    uint32_t address;
    std::string name;
    bool wide = false;    // two bytes are watched
    uint16_t value = 0;   // of what is watched
    std::string left{}, relation{};
    uint8_t right = 0;   // of the condition; no `left`: none
};

struct debugger_t {
    session_t &x;
    std::vector<stop_t> stops{};
    std::vector<std::string> displays{};
    std::map<std::string, std::vector<std::string>> sources{};   // lines of those that were shown, by name
    source_line listed{};
    unsigned last_number = 0;   // of a stop
    bool goes = true;           // false: the run is over
    bool quits = false;
};

// Names and places as they are typed. False if there is nothing of that name, which the last two say.
bool hex_value(const std::string &text, uint32_t most, uint32_t &value);
bool find_code(const debugger_t &d, const std::string &text, uint32_t &at);
bool find_data(const debugger_t &d, const std::string &name, uint32_t &at, bool &wide);
uint16_t value_of(const debugger_t &d, uint32_t at, bool wide = false);   // what a read would give
void say_place(const char *what);
void say_name(const char *what);

void show_value(const debugger_t &d, const std::string &name);
void show_stand(debugger_t &d, const std::string &why);   // where the program is, and what `display` asks for
void show_end(const debugger_t &d);

void stop_at_interrupts();   // Ctrl-C ends `continue`, not the debugger

// The commands.
using command_t = void(debugger_t &, const words_t &);
command_t do_break, do_watch, do_delete, do_info;
command_t do_continue, do_step, do_next, do_stepi, do_nexti, do_finish, do_until, do_reset;
command_t do_backtrace, do_list, do_disassemble, do_print, do_memory, do_display, do_undisplay;
