// debug: a table of commands over the steps of a session.
//
// The program always stands between two instructions, with all done that was due: what is shown is what the next instruction
// finds. Stops are looked at behind each instruction, watched bytes by their value, so that the plain run knows nothing of them.
// A step ends where a source line begins; code without lines goes instruction by instruction.
#include "debug.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "zelobj.h"

using words_t = std::vector<std::string>;

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
    std::map<std::string, std::vector<std::string>> sources{};
    source_line listed{};
    unsigned last_number = 0;
    bool goes = true;   // false: the run is over
    bool quits = false;
};

static volatile sig_atomic_t interrupted = 0;

// Names and places.

static bool hex_value(const std::string &text, uint32_t most, uint32_t &value)
{
    char *end = nullptr;
    const unsigned long number = strtoul(text.c_str(), &end, 16);
    value = static_cast<uint32_t>(number);
    return !text.empty() && isxdigit(static_cast<unsigned char>(text[0])) && !*end && number <= most;
}

static std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(toupper(c)); });
    return text;
}

// A label with or without an offset, an address, FILE:LINE, or :LINE of the file where the program stands.
static bool find_code(const debugger_t &d, const std::string &text, uint32_t &at)
{
    const program_t &p = d.x.program;
    const source_line *const here = line_at(p, d.x.sim.pc);
    const size_t plus = text.rfind('+');
    uint32_t offset = 0;
    if (code_address(p, here && text.starts_with(':') ? here->file + text : text, at))
        return true;
    return plus != std::string::npos && code_address(p, text.substr(0, plus), at) &&
           hex_value(text.substr(plus + 1), 0x1FFFFF, offset) && (at += offset, at % 2 == 0);
}

static uint8_t value_of(const debugger_t &d, uint32_t at) { return devices_peek(d.x.devices, d.x.sim, at); }

// A register, label or address, or with ":2" behind it the two bytes from there on, low one first.
static bool find_data(const debugger_t &d, const std::string &name, uint32_t &at, bool &wide)
{
    wide = name.ends_with(":2");
    return data_address(d.x.program, wide ? name.substr(0, name.size() - 2) : name, at) && at + wide <= d.x.sim.mask;
}

static uint16_t value_of(const debugger_t &d, uint32_t at, bool wide)
{
    return static_cast<uint16_t>(value_of(d, at) | (wide ? value_of(d, at + 1) << 8 : 0));
}

static void say_place(const char *what) { printf("%s: no such label, address or line with code\n", what); }
static void say_name(const char *what) { printf("%s: no such register, label of data or address\n", what); }

// A register with its fields, a byte of memory, or a field alone.
static void show_value(const debugger_t &d, const std::string &name)
{
    const target_t &t = d.x.program.target;
    uint32_t at = 0;
    if (name == "pc" || name == "PC") {
        printf("pc = %s\n", place_text(d.x.program, d.x.sim.pc).c_str());
    } else if (bool wide = false; find_data(d, name, at, wide)) {
        const unsigned value = value_of(d, at, wide);
        printf("%s (0x%03X) = 0x%0*X %u", name.c_str(), at, wide ? 4 : 2, value, value);
        std::map<unsigned, std::string> fields;
        for (const auto &[field, f] : t.fields)
            if (t.sfr.contains(upper(name)) && f.address == at && f.bits)
                fields.try_emplace(8u - f.low, field + zo_format("=%u", value_of(d, at) >> f.low & ((1u << f.bits) - 1)));
        for (const auto &[place, text] : fields)
            printf("  %s", text.c_str());
        puts("");
    } else if (const sfr_bits_t f = target_field(t, upper(name)); f.bits) {
        printf("%s = %u\n", name.c_str(), value_of(d, f.address) >> f.low & ((1u << f.bits) - 1));
    } else {
        say_name(name.c_str());
    }
}

static const std::vector<std::string> &source(debugger_t &d, const std::string &file)
{
    const auto [found, is_new] = d.sources.try_emplace(file);
    const std::filesystem::path folder = std::filesystem::path(d.x.settings.inputs.front()).parent_path();
    for (const std::filesystem::path &path : {std::filesystem::path(file), folder / file})
        if (std::ifstream in(path); is_new && found->second.empty())
            for (std::string line; std::getline(in, line);)
                found->second.push_back(line);
    return found->second;
}

static bool show_line(debugger_t &d, const source_line &line)
{
    const std::vector<std::string> &text = source(d, line.file);
    if (line.line == 0 || line.line > text.size())
        return false;
    printf("%5u  %s\n", line.line, text[line.line - 1].c_str());
    return true;
}

static unsigned show_instruction(const debugger_t &d, uint32_t at)
{
    const sim_t &s = d.x.sim;
    if (at + 1 >= s.program.size())
        return puts("the end of program memory"), 0;
    const std::span<const uint8_t> code(s.program.data() + at, std::min<size_t>(6, s.program.size() - at));
    const zo_instruction one = zo_disassemble(code, at, s.target->wide);
    const auto label = d.x.program.labels.find(at);
    printf("%s %05X  %-12s %s\n", at == s.pc ? "->" : "  ", at,
           label == d.x.program.labels.end() ? "" : (label->second + ":").c_str(), one.text.c_str());
    return one.words;
}

static void show_stand(debugger_t &d, const std::string &why)
{
    const sim_t &s = d.x.sim;
    const source_line *const line = line_at(d.x.program, s.pc);
    printf("%s%s, cycle %llu\n", why.c_str(), place_text(d.x.program, s.pc).c_str(),
           static_cast<unsigned long long>(s.cycles));
    if (!line || !show_line(d, *line))
        show_instruction(d, s.pc);
    d.listed = line ? *line : source_line{};
    for (const std::string &name : d.displays)
        show_value(d, name);
}

static void show_end(const debugger_t &d)
{
    static const std::map<sim_stop, const char *> names = {
        {SIM_SLEEP, "sleep"}, {SIM_LIMIT, "the limit of cycles"}, {SIM_EXIT, "exit"}};
    const session_t &x = d.x;
    const auto name = names.find(x.sim.stop);
    printf("the program has ended: %s\n", x.at_until               ? "by --until"
                                          : x.sim.stop == SIM_RUNS ? "all is as expected"
                                          : name == names.end()    ? x.sim.why.c_str()
                                                                   : name->second);
}

// Going on.

static bool holds(const debugger_t &d, const stop_t &stop)
{
    uint32_t at = 0;
    if (stop.left.empty() || !data_address(d.x.program, stop.left, at))
        return true;
    const uint8_t left = value_of(d, at);
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

static void do_step(debugger_t &d, const words_t &w) { step(d, w, true, false); }
static void do_next(debugger_t &d, const words_t &w) { step(d, w, true, true); }
static void do_stepi(debugger_t &d, const words_t &w) { step(d, w, false, false); }
static void do_nexti(debugger_t &d, const words_t &w) { step(d, w, false, true); }
static void do_continue(debugger_t &d, const words_t &)
{
    go(d, [] { return false; });
}

static void do_finish(debugger_t &d, const words_t &)
{
    const unsigned depth = d.x.sim.depth;
    if (!depth)
        return static_cast<void>(puts("nothing called this"));
    go(d, [&] { return d.x.sim.depth < depth; });
}

static void do_until(debugger_t &d, const words_t &w)
{
    uint32_t at = 0;
    if (w.size() < 2 || !find_code(d, w[1], at))
        return say_place(w.size() < 2 ? "until PLACE" : w[1].c_str());
    go(d, [&] { return d.x.sim.pc == at; });
}

static void do_reset(debugger_t &d, const words_t &)
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

static void do_break(debugger_t &d, const words_t &w)
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

static void do_watch(debugger_t &d, const words_t &w)
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

static void do_delete(debugger_t &d, const words_t &w)
{
    const size_t gone =
        std::erase_if(d.stops, [&](const stop_t &s) { return w.size() < 2 || std::to_string(s.number) == w[1]; });
    if (!gone)
        puts("no such breakpoint or watchpoint");
}

static void do_info(debugger_t &d, const words_t &w)
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

// Looking.

static void do_backtrace(debugger_t &d, const words_t &)
{
    const sim_t &s = d.x.sim;
    printf("#0   %s\n", place_text(d.x.program, s.pc).c_str());
    for (unsigned i = s.depth; i > 0; i--)
        printf("#%-3u returns to %s\n", s.depth - i + 1, place_text(d.x.program, s.stack[i]).c_str());
}

static void do_list(debugger_t &d, const words_t &w)
{
    uint32_t at = 0;
    if (w.size() > 1) {
        const source_line *const line = find_code(d, w[1], at) ? line_at(d.x.program, at) : nullptr;
        if (!line)
            return say_place(w[1].c_str());
        d.listed = *line;
    }
    if (d.listed.line > 3 && w.size() > 1)
        d.listed.line -= 3;
    for (unsigned i = 0; i < 10; i++, d.listed.line++)
        if (!show_line(d, d.listed))
            return static_cast<void>(puts(i ? "the end of the source" : "no source of this place is at hand"));
}

static void do_disassemble(debugger_t &d, const words_t &w)
{
    uint32_t at = d.x.sim.pc;
    if (w.size() > 1 && !find_code(d, w[1], at))
        return say_place(w[1].c_str());
    for (unsigned i = 0; i < 12; i++) {
        if (const auto line = d.x.program.lines.find(at); line != d.x.program.lines.end())
            show_line(d, line->second);
        const unsigned words = show_instruction(d, at);
        if (!words)
            return;
        at += words * 2;
    }
}

static void do_print(debugger_t &d, const words_t &w)
{
    for (size_t i = 1; i < w.size(); i++)
        show_value(d, w[i]);
}

static void do_memory(debugger_t &d, const words_t &w)
{
    uint32_t at = 0;
    if (w.size() < 2 || !data_address(d.x.program, w[1], at))
        return say_name(w.size() < 2 ? "memory NAME [count]" : w[1].c_str());
    const uint64_t count = w.size() > 2 ? std::min<uint64_t>(strtoull(w[2].c_str(), nullptr, 10), 4096) : 16;
    for (uint64_t i = 0; i < count && at <= d.x.sim.mask; i++, at++)
        printf(i % 16 ? " %02X"
               : i    ? "\n%04X"
                      : "%04X",
               i % 16 ? value_of(d, at) : at),
            i % 16 ? 0 : printf("  %02X", value_of(d, at));
    puts("");
}

static void do_display(debugger_t &d, const words_t &w)
{
    d.displays.insert(d.displays.end(), w.begin() + 1, w.end());
    for (const std::string &name : d.displays)
        show_value(d, name);
}

static void do_undisplay(debugger_t &d, const words_t &w)
{
    std::erase_if(d.displays, [&](const std::string &name) { return w.size() < 2 || name == w[1]; });
}

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
static void do_help(debugger_t &, const words_t &);

static const struct {
    const char *name, *brief, *form, *what;
    void (*run)(debugger_t &, const words_t &);
} commands[] = {
    {"break", "b", "[PLACE] [if NAME == value]", "stop there; PLACE: label, label+offset, address, FILE:LINE, :LINE",
     do_break},
    {"watch", "w", "NAME [if NAME == value]", "stop when it changes; NAME: register, label, address; NAME:2: two bytes",
     do_watch},
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
    struct sigaction action {
    };
    action.sa_handler = [](int) { interrupted = 1; };
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
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
