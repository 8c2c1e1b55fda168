// debug_go: goes on to where it is to stop.
//
// Stops are looked at behind each instruction, watched bytes by their value, so that the plain run knows nothing of them. A step
// ends where a source line begins; code without lines goes instruction by instruction.
#include <algorithm>
#include <csignal>

#include "debugger.h"
#include "zelobj.h"

static volatile sig_atomic_t interrupted = 0;

void stop_at_interrupts()
{
    struct sigaction action {
    };
    action.sa_handler = [](int) { interrupted = 1; };
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
}

// Going on.

static bool holds(const debugger_t &d, const stop_t &stop)
{
    uint32_t at = 0;
    if (stop.left.empty() || !data_address(d.x.program, stop.left, at))
        return true;
    const uint16_t left = value_of(d, at);
    return stop.relation == "=="   ? left == stop.right
           : stop.relation == "!=" ? left != stop.right
           : stop.relation == "<"  ? left < stop.right
                                   : left > stop.right;
}

// Whether a stop has come; tells which.
static bool stopped(debugger_t &d, std::string &why)
{
    for (stop_t &stop : d.stops) {
        if (!stop.watch && stop.address == d.x.sim.pc && holds(d, stop)) {
            why = zo_format("breakpoint %u, ", stop.number);
            return true;
        }
        const uint16_t value = stop.watch ? value_of(d, stop.address, stop.wide) : stop.value, before = stop.value;
        const int digits = stop.wide ? 4 : 2;
        stop.value = value;
        if (value != before && holds(d, stop)) {
            why = zo_format("watchpoint %u, ", stop.number) + stop.name +
                  zo_format(" 0x%0*X, was 0x%0*X, ", digits, value, digits, before);
            return true;
        }
    }
    return false;
}

// Goes on until `done` or a stop, by at least an instruction.
template <typename F> static void go(debugger_t &d, const F &done)
{
    if (!d.goes)
        return show_end(d);
    std::string why;
    for (stop_t &stop : d.stops)
        stop.value = stop.watch ? value_of(d, stop.address, stop.wide) : stop.value;   // `set` is no change
    interrupted = 0;
    do {
        d.goes = session_step(d.x);
        if (interrupted)
            why = "interrupted, ";
    } while (d.goes && why.empty() && !stopped(d, why) && !done());
    fflush(stdout);
    if (!d.goes)
        show_end(d);
    show_stand(d, why);
}

static uint64_t count_of(const words_t &w) { return w.size() > 1 ? std::max(1ull, strtoull(w[1].c_str(), nullptr, 10)) : 1; }

// By lines or instructions; with `over`, calls and interrupts are done at once.
static void step(debugger_t &d, const words_t &w, bool lines, bool over)
{
    const sim_t &s = d.x.sim;
    unsigned depth = s.depth;
    uint64_t left = count_of(w);
    go(d, [&] {
        if (over && s.depth > depth)
            return false;
        if (lines && line_at(d.x.program, s.pc) && !d.x.program.lines.contains(s.pc))
            return false;
        depth = s.depth;
        return --left == 0;
    });
}

void do_step(debugger_t &d, const words_t &w) { step(d, w, true, false); }
void do_next(debugger_t &d, const words_t &w) { step(d, w, true, true); }
void do_stepi(debugger_t &d, const words_t &w) { step(d, w, false, false); }
void do_nexti(debugger_t &d, const words_t &w) { step(d, w, false, true); }
void do_continue(debugger_t &d, const words_t &)
{
    go(d, [] { return false; });
}

void do_finish(debugger_t &d, const words_t &)
{
    const unsigned depth = d.x.sim.depth;
    if (!depth)
        return static_cast<void>(puts("nothing called this"));
    go(d, [&] { return d.x.sim.depth < depth; });
}

void do_until(debugger_t &d, const words_t &w)
{
    uint32_t at = 0;
    if (w.size() < 2 || !find_code(d, w[1], at))
        return say_place(w.size() < 2 ? "until PLACE" : w[1].c_str());
    go(d, [&] { return d.x.sim.pc == at; });
}

void do_reset(debugger_t &d, const words_t &)
{
    d.x.sim = {};
    d.x.devices = {};
    d.x.watch = {};
    session_prepare(d.x);
    d.goes = session_settle(d.x);
    show_stand(d, "");
}

// Stops.

static bool condition(debugger_t &d, const words_t &w, size_t from, stop_t &stop)
{
    static const char *const relations[] = {"==", "!=", "<", ">"};
    uint32_t at = 0, value = 0;
    if (w.size() == from)
        return true;
    const bool sound = w.size() == from + 4 && w[from] == "if" && data_address(d.x.program, w[from + 1], at) &&
                       std::find(std::begin(relations), std::end(relations), w[from + 2]) != std::end(relations) &&
                       hex_value(w[from + 3], 255, value);
    if (!sound)
        return puts("a condition is: if NAME == value, with == != < or >, and blanks around it"), false;
    stop.left = w[from + 1];
    stop.relation = w[from + 2];
    stop.right = static_cast<uint8_t>(value);
    return true;
}

void do_break(debugger_t &d, const words_t &w)
{
    const bool named = w.size() > 1 && w[1] != "if";
    stop_t stop{d.last_number + 1, false, d.x.sim.pc, ""};
    if (named && !find_code(d, w[1], stop.address))
        return say_place(w[1].c_str());
    if (!condition(d, w, named ? 2 : 1, stop))
        return;
    printf("breakpoint %u at %s\n", ++d.last_number, place_text(d.x.program, stop.address).c_str());
    d.stops.push_back(stop);
}

void do_watch(debugger_t &d, const words_t &w)
{
    stop_t stop{d.last_number + 1, true, 0, w.size() > 1 ? w[1] : ""};
    if (!find_data(d, stop.name, stop.address, stop.wide))
        return say_name(w.size() < 2 ? "watch NAME" : w[1].c_str());
    if (!condition(d, w, 2, stop))
        return;
    stop.value = value_of(d, stop.address, stop.wide);
    printf("watchpoint %u on %s (0x%03X), which is 0x%0*X\n", ++d.last_number, w[1].c_str(), stop.address, stop.wide ? 4 : 2,
           stop.value);
    d.stops.push_back(stop);
}

void do_delete(debugger_t &d, const words_t &w)
{
    const size_t gone =
        std::erase_if(d.stops, [&](const stop_t &s) { return w.size() < 2 || std::to_string(s.number) == w[1]; });
    if (!gone)
        puts("no such breakpoint or watchpoint");
}

void do_info(debugger_t &d, const words_t &w)
{
    if (w.size() > 1 && std::string_view("registers").starts_with(w[1])) {
        for (const char *name : {"WREG", "STATUS", "BSR", "FSR0L", "FSR0H", "FSR1L", "FSR1H", "FSR2L", "FSR2H", "PRODL",
                                 "PRODH", "TBLPTRU", "TBLPTRH", "TBLPTRL", "TABLAT", "STKPTR", "pc"})
            show_value(d, name);
        return;
    }
    for (const stop_t &s : d.stops)
        printf("%u  %s %s%s\n", s.number, s.watch ? "watch" : "break",
               s.watch ? s.name.c_str() : place_text(d.x.program, s.address).c_str(),
               s.left.empty() ? "" : (" if " + s.left + " " + s.relation + zo_format(" 0x%02X", s.right)).c_str());
    if (d.stops.empty())
        puts("no breakpoints or watchpoints; info registers tells the core's registers");
}
