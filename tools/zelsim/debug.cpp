// debug: a table of commands over the steps of a session.
//
// The program always stands between two instructions, with all done that was due: what is shown is what the next instruction
// finds.
#include "debug.h"

#include <iterator>
#include <sstream>

#include "debugger.h"

// Changing.

static void do_set(debugger_t &d, const words_t &w)
{
    sim_t &s = d.x.sim;
    uint32_t at = 0, value = 0;
    if (w.size() != 3)
        return static_cast<void>(puts("set NAME value, or set pc PLACE"));
    if (w[1] == "pc")
        return find_code(d, w[2], at) ? static_cast<void>(s.pc = at) : say_place(w[2].c_str());
    if (!data_address(d.x.program, w[1], at))
        return say_name(w[1].c_str());
    if (!hex_value(w[2], 255, value))
        return static_cast<void>(printf("%s is no byte\n", w[2].c_str()));
    sim_poke(s, at, static_cast<uint8_t>(value));
    d.goes = d.goes && session_settle(d.x);
    show_value(d, w[1]);
}

// `port`, `irq` and `send` are lines of a script, at this cycle.
static void input(debugger_t &d, const std::string &line)
{
    settings_t settings;
    std::string error = read_script("command", line, settings);
    for (sim_input &event : settings.events) {
        event.cycle = d.x.sim.cycles;
        error = devices_add_input(d.x.devices, d.x.sim, event);
    }
    if (!error.empty())
        puts(error.c_str());
    else if (d.goes || d.x.sim.stop == SIM_SLEEP)
        d.goes = session_settle(d.x);
}

static void do_quit(debugger_t &d, const words_t &) { d.quits = true; }
static command_t do_help;

static const struct {
    const char *name, *brief, *form, *what;
    command_t *run;
} commands[] = {
    {"break", "b", "[PLACE] [if NAME == value]", "stop there; PLACE: label, label+offset, address, FILE:LINE, :LINE",
     do_break},
    {"watch", "w", "NAME [if NAME == value]",
     "stop when it changes; NAME: register, label, label+offset, address; NAME:2: two bytes", do_watch},
    {"delete", "d", "[number]", "a stop, or all", do_delete},
    {"info", "i", "[registers]", "the stops, or the core's registers", do_info},
    {"continue", "c", "", "up to a stop, the end, or Ctrl-C", do_continue},
    {"step", "s", "[count]", "to the next line that is run", do_step},
    {"next", "n", "[count]", "as step, but over calls", do_next},
    {"stepi", "si", "[count]", "an instruction", do_stepi},
    {"nexti", "ni", "[count]", "as stepi, but over calls", do_nexti},
    {"finish", "f", "", "up to the return", do_finish},
    {"until", "u", "PLACE", "up to there", do_until},
    {"reset", "", "", "begin again; the stops stay", do_reset},
    {"backtrace", "bt", "", "the return stack", do_backtrace},
    {"list", "l", "[PLACE]", "source, on from where it was", do_list},
    {"disassemble", "dis", "[PLACE]", "instructions with their lines", do_disassemble},
    {"print", "p", "NAME...", "registers with their bits, bytes, fields", do_print},
    {"memory", "x", "NAME [count]", "bytes of data memory", do_memory},
    {"display", "", "NAME...", "print them at each stop", do_display},
    {"undisplay", "", "[NAME]", "no longer", do_undisplay},
    {"set", "", "NAME value", "a register or byte; set pc PLACE", do_set},
    {"port", "", "PORT value", "what its pins are held at", nullptr},
    {"irq", "", "SOURCE", "sets an interrupt flag", nullptr},
    {"send", "", "REGISTER \"text\"", "to a serial unit", nullptr},
    {"help", "h", "", "this", do_help},
    {"quit", "q", "", "", do_quit},
};

static void do_help(debugger_t &, const words_t &)
{
    for (const auto &c : commands)
        printf("%-11s %-3s %-26s %s\n", c.name, c.brief, c.form, c.what);
    puts("A word may be cut where it stays clear; an empty line does the last one again. Values are hexadecimal.");
}

static void obey(debugger_t &d, const std::string &line)
{
    std::istringstream in(line);
    words_t words{std::istream_iterator<std::string>(in), {}};
    if (words.empty())
        return;
    std::string candidates;
    const auto *found = std::end(commands);
    for (const auto *c = std::begin(commands); c != std::end(commands); c++) {
        if (words[0] == c->name || words[0] == c->brief) {
            found = c;
            candidates.clear();
            break;
        }
        if (std::string_view(c->name).starts_with(words[0]) &&
            (candidates.empty() || !std::string_view(c->name).starts_with(found->name))) {   // "ne": next, not nexti
            candidates += std::string(" ") + c->name;
            found = c;
        }
    }
    if (found == std::end(commands))
        printf("unknown command %s: help tells them\n", words[0].c_str());
    else if (candidates.rfind(' ') != 0 && !candidates.empty())
        printf("%s may be:%s\n", words[0].c_str(), candidates.c_str());
    else if (found->run)
        found->run(d, words);
    else
        input(d, found->name + line.substr(line.find(words[0]) + words[0].size()));
}

void debug_run(session_t &x, bool (*read_line)(std::string &line))
{
    debugger_t d{x};
    stop_at_interrupts();
    observe_begin(x.observe, x.program, x.devices, x.sim);
    d.goes = session_settle(x);
    show_stand(d, "");
    std::string line, last;
    while (!d.quits && read_line(line)) {
        if (!line.empty())
            last = line;
        obey(d, last);
        fflush(stdout);
    }
}
