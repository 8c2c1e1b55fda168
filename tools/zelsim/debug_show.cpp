// debug_show: places and names as they are typed, and what the debugger shows.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "debugger.h"
#include "zelobj.h"

// Names and places.

bool hex_value(const std::string &text, uint32_t most, uint32_t &value)
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
bool find_code(const debugger_t &d, const std::string &text, uint32_t &at)
{
    const program_t &p = d.x.program;
    const source_line *const here = line_at(p, d.x.sim.pc);
    return code_address(p, here && text.starts_with(':') ? here->file + text : text, at);
}

// A register, label or address, or with ":2" behind it the two bytes from there on, low one first.
bool find_data(const debugger_t &d, const std::string &name, uint32_t &at, bool &wide)
{
    wide = name.ends_with(":2");
    return data_address(d.x.program, wide ? name.substr(0, name.size() - 2) : name, at) && at + wide <= d.x.sim.mask;
}

uint16_t value_of(const debugger_t &d, uint32_t at, bool wide)
{
    const auto byte = [&](uint32_t from) { return devices_peek(d.x.devices, d.x.sim, from); };
    return static_cast<uint16_t>(byte(at) | (wide ? byte(at + 1) << 8 : 0));
}

void say_place(const char *what) { printf("%s: no such label, address or line with code\n", what); }
void say_name(const char *what) { printf("%s: no such register, label of data or address\n", what); }

// Shown.

// A register with its fields, a byte of memory, or a field alone.
void show_value(const debugger_t &d, const std::string &name)
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

void show_stand(debugger_t &d, const std::string &why)
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

void show_end(const debugger_t &d)
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

// Looking.

void do_backtrace(debugger_t &d, const words_t &)
{
    const sim_t &s = d.x.sim;
    printf("#0   %s\n", place_text(d.x.program, s.pc).c_str());
    for (unsigned i = s.depth; i > 0; i--)
        printf("#%-3u returns to %s\n", s.depth - i + 1, place_text(d.x.program, s.stack[i]).c_str());
}

void do_list(debugger_t &d, const words_t &w)
{
    uint32_t at = 0;
    if (w.size() > 1) {
        const source_line *const line = find_code(d, w[1], at) ? line_at(d.x.program, at) : nullptr;
        if (!line)
            return say_place(w[1].c_str());
        d.listed = *line;
    }
    if (w.size() > 1)
        d.listed.line -= std::min(d.listed.line - 1, 3u);
    for (unsigned i = 0; i < 10; i++, d.listed.line++)
        if (!show_line(d, d.listed))
            return static_cast<void>(puts(i || !source(d, d.listed.file).empty() ? "the end of the source"
                                                                                 : "no source of this place is at hand"));
}

void do_disassemble(debugger_t &d, const words_t &w)
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

void do_print(debugger_t &d, const words_t &w)
{
    for (size_t i = 1; i < w.size(); i++)
        show_value(d, w[i]);
}

void do_memory(debugger_t &d, const words_t &w)
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

void do_display(debugger_t &d, const words_t &w)
{
    d.displays.insert(d.displays.end(), w.begin() + 1, w.end());
    for (const std::string &name : d.displays)
        show_value(d, name);
}

void do_undisplay(debugger_t &d, const words_t &w)
{
    std::erase_if(d.displays, [&](const std::string &name) { return w.size() < 2 || name == w[1]; });
}
