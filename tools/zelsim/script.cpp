// script: the command line, scripts, and expectations.
//
// An option and the line of a script that does the same are one row of the table.
#include "script.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

#include "zelobj.h"

// Numbers.

static bool number(std::string_view text, unsigned base, uint64_t most, uint64_t &value)
{
    if (base == 16 && (text.starts_with("0x") || text.starts_with("0X")))
        text.remove_prefix(2);
    value = 0;
    for (const char c : text) {
        const unsigned d = c >= '0' && c <= '9'   ? static_cast<unsigned>(c - '0')
                           : c >= 'a' && c <= 'f' ? static_cast<unsigned>(c - 'a' + 10)
                           : c >= 'A' && c <= 'F' ? static_cast<unsigned>(c - 'A' + 10)
                                                  : 99u;
        if (d >= base || value > (most - d) / base)
            return false;
        value = value * base + d;
    }
    return !text.empty();
}

static std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(toupper(c)); });
    return text;
}

static bool address(const program_t &p, const std::map<std::string, uint32_t> &names, const std::string &name, uint32_t most,
                    uint32_t &at)
{
    const auto found = names.find(name);
    uint64_t value = 0;
    if (found != names.end())
        at = found->second;
    else if (number(name, 16, most, value))
        at = static_cast<uint32_t>(value);
    else
        return false;
    return at <= most && !p.bytes.empty();
}

// What stands ahead of a "+offset", if there is one.
static std::string without_offset(const std::string &name, uint64_t &offset)
{
    const size_t plus = name.rfind('+');
    offset = 0;
    return plus != std::string::npos && number(name.substr(plus + 1), 16, 0x1FFFFF, offset) ? name.substr(0, plus) : name;
}

bool data_address(const program_t &p, const std::string &name, uint32_t &at)
{
    const uint32_t most = p.target.wide ? 0x3FFF : 0xFFF;
    uint64_t offset = 0;
    const std::string base = without_offset(name, offset);
    if (const auto sfr = p.target.sfr.find(upper(base)); sfr != p.target.sfr.end())
        at = sfr->second;
    else if (!address(p, p.data, base, most, at))
        return false;
    at += static_cast<uint32_t>(offset);
    return at <= most;
}

// The file of this name, or else the only one whose name ends in these components; empty if there is none.
static std::string known_file(const program_t &p, const std::string &name)
{
    std::set<std::string> found;
    for (const auto &[from, line] : p.lines)
        if (line.file == name)
            return name;
        else if (line.file.ends_with("/" + name))
            found.insert(line.file);
    return found.size() == 1 ? *found.begin() : "";
}

// The first line from the wanted one on that has code.
static bool line_address(const program_t &p, const source_line &wanted, uint32_t &at)
{
    const std::string file = known_file(p, wanted.file);
    uint32_t best = UINT32_MAX;
    for (const auto &[from, line] : p.lines)
        if (line.file == file && line.line >= wanted.line && line.line < best) {
            best = line.line;
            at = from;
        }
    return best != UINT32_MAX;
}

bool code_address(const program_t &p, const std::string &name, uint32_t &at)
{
    const uint32_t most = p.target.rom_size - 1;
    uint64_t line = 0, offset = 0;
    const std::string base = without_offset(name, offset);
    const size_t colon = p.code.contains(base) ? std::string::npos : base.rfind(':');
    const bool found = colon == std::string::npos
                           ? address(p, p.code, base, most, at)
                           : number(base.substr(colon + 1), 10, UINT32_MAX - 1, line) &&
                                 line_address(p, {base.substr(0, colon), static_cast<uint32_t>(line)}, at);
    if (!found)
        return false;
    at += static_cast<uint32_t>(offset);
    return at <= most && at % 2 == 0;
}

// The rows: what an option does with its value. False if the value is none.

static bool set_text(std::string &to, const std::string &value) { return to = value, !value.empty(); }

static bool at_cycle(const std::string &value, sim_input &input, std::string &rest)
{
    const size_t at = value.rfind('@');
    rest = value.substr(0, at);
    input.cycle = 0;
    return at == std::string::npos || number(value.substr(at + 1), 10, UINT64_MAX / 4, input.cycle);
}

static bool set_port(settings_t &s, const std::string &value)
{
    sim_input input{sim_input::PORT, 0, "", 0, ""};
    std::string rest;
    uint64_t byte = 0;
    if (!at_cycle(value, input, rest) || !number(rest.substr(std::min(rest.size(), rest.find('=') + 1)), 16, 255, byte))
        return false;
    input.name = upper(rest.substr(0, rest.find('=')));
    input.value = static_cast<uint8_t>(byte);
    s.events.push_back(input);
    return rest.find('=') != std::string::npos;
}

static bool set_irq(settings_t &s, const std::string &value)
{
    sim_input input{sim_input::FLAG, 0, "", 0, ""};
    std::string rest;
    if (!at_cycle(value, input, rest) || rest.empty())
        return false;
    input.name = upper(rest);
    s.events.push_back(input);
    return true;
}

static std::string split(const std::string &line, std::vector<std::string> &words);

static bool set_until(settings_t &s, const std::string &value)
{
    const size_t equals = value.find('=');
    std::vector<std::string> words;
    if (equals == std::string::npos)
        return set_text(s.until, value);
    if (!split('"' + value.substr(equals + 1) + '"', words).empty() || words.size() != 1)
        return false;
    s.until_register = upper(value.substr(0, equals));
    return set_text(s.until_text, words[0].substr(1));
}

static bool set_limit(settings_t &s, const std::string &value)
{
    return number(value, 10, UINT64_MAX / 4, s.limit) && s.limit;
}

namespace
{

enum form_t { ALONE, VALUE, OPTIONAL };

}   // namespace

static const struct {
    const char *word;
    form_t form;
    bool (*set)(settings_t &, const std::string &);
    const char *value;   // what it is, for a message
} rows[] = {
    {"--chipinfo=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.chip_file, v); }, "FILE"},
    {"--coverage=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.coverage, v); }, "FILE"},
    {"--debug", ALONE, [](settings_t &s, const std::string &) { return s.debug = true; }, ""},
    {"--exit=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.exit_register, v); }, "REGISTER"},
    {"--irq=", VALUE, set_irq, "SOURCE@cycle"},
    {"--limit=", VALUE, set_limit, "a number of cycles"},
    {"--port=", VALUE, set_port, "PORT=value@cycle"},
    {"--profile", OPTIONAL, [](settings_t &s, const std::string &v) { return set_text(s.profile, v); }, "FILE"},
    {"--quiet", ALONE, [](settings_t &s, const std::string &) { return s.quiet = true; }, ""},
    {"--script=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.script, v); }, "FILE"},
    {"--start=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.start, v); }, "LABEL or address"},
    {"--stdin=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.input_register, upper(v)); },
     "REGISTER"},
    {"--stdout=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.output_register, upper(v)); },
     "REGISTER"},
    {"--strict", ALONE, [](settings_t &s, const std::string &) { return s.strict = true; }, ""},
    {"--trace", OPTIONAL, [](settings_t &s, const std::string &v) { return set_text(s.trace, v); }, "FILE"},
    {"--until=", VALUE, set_until, "LABEL, address, or REGISTER and text"},
    {"--vcd=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.vcd, v); }, "FILE"},
    {"--vectors", ALONE, [](settings_t &s, const std::string &) { return s.vectors = true; }, ""},
    {"--xinst", ALONE, [](settings_t &s, const std::string &) { return s.xinst = true; }, ""},
    {"-mcpu=", VALUE, [](settings_t &s, const std::string &v) { return set_text(s.chip, v); }, "CHIP"},
};

std::string read_settings(const std::vector<std::string> &arguments, settings_t &s)
{
    for (size_t i = 0; i < arguments.size(); i++) {
        const std::string &word = arguments[i];
        if (word == "--help" || word == "--ver") {
            (word == "--help" ? s.help : s.version) = true;
            return "";
        }
        if (word.size() < 2 || word[0] != '-') {
            s.inputs.push_back(word);
            continue;
        }
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const auto row = std::find_if(std::begin(rows), std::end(rows), [&](const auto &r) {
            const std::string_view w = r.word;
            return w.substr(0, w.find('=')) == name;
        });
        if (row == std::end(rows) || (row->form == ALONE && equals != std::string::npos))
            return "unknown option " + word;
        std::string value = equals == std::string::npos ? "" : word.substr(equals + 1);
        if (equals == std::string::npos && row->form == VALUE && ++i < arguments.size())
            value = arguments[i];
        else if (equals == std::string::npos)
            value = row->form == OPTIONAL ? "-" : "";
        if (!row->set(s, value))
            return zo_format("wrong value \"%s\" of %s: it is ", value.c_str(), name.c_str()) + row->value;
    }
    if (s.debug && !s.input_register.empty())
        return "--debug reads commands from standard input: give the serial unit its text by the command send, not by --stdin";
    if (s.inputs.empty())
        return "nothing to run: name a HEX, binary or ELF file, or objects";
    if (s.script.empty())
        return "";
    std::vector<uint8_t> bytes;
    if (!zo_read_file(s.script, bytes))
        return s.script + ": can't read the script: " + strerror(errno);
    return read_script(s.script, {bytes.begin(), bytes.end()}, s);
}

// Scripts.

// The words of a line; one in quotes keeps its opening quote, and its escapes are done. `#` begins a comment.
static std::string split(const std::string &line, std::vector<std::string> &words)
{
    for (size_t i = 0; i < line.size();) {
        const char c = line[i];
        if (c == ' ' || (c >= '\t' && c <= '\r')) {
            i++;
        } else if (c == '#') {
            break;
        } else if (c != '"') {
            const size_t end = std::min(line.size(), line.find_first_of(" \t\r\v\f#\"", i));
            words.push_back(line.substr(i, end - i));
            i = end;
        } else {
            std::string word = "\"";
            for (i++; i < line.size() && line[i] != '"'; i++) {
                uint64_t byte = 0;
                if (line[i] != '\\') {
                    word += line[i];
                    continue;
                }
                const char e = ++i < line.size() ? line[i] : ' ';
                static const char from[] = "nrt0\\\"", to[] = "\n\r\t\0\\\"";
                if (const char *found = strchr(from, e); found && e)
                    word += to[found - from];
                else if (e == 'x' && i + 2 < line.size() && number(line.substr(i + 1, 2), 16, 255, byte)) {
                    word += static_cast<char>(byte);
                    i += 2;
                } else {
                    return "an escape is one of \\n \\r \\t \\0 \\\\ \\\" \\xHH";
                }
            }
            if (i++ >= line.size())
                return "a quote isn't closed";
            words.push_back(word);
        }
    }
    return "";
}

static std::string line_expect(const std::vector<std::string> &w, const std::string &where, settings_t &s)
{
    const char *const form = "expect NAME value before N cycles, or expect NAME value at end";
    uint64_t byte = 0;
    expectation_t e;
    e.where = where;
    if (w.size() < 5)
        return form;
    e.name = w[1];
    if (w[2][0] == '"')
        e.text = w[2].substr(1);
    else if (!number(w[2], 16, 255, byte))
        return zo_format("\"%s\" is no byte", w[2].c_str());
    if (w[2] == "\"")
        return "an empty text is always there";
    e.value = static_cast<uint8_t>(byte);
    const bool at_end = w.size() == 5 && w[3] == "at" && w[4] == "end";
    if (!at_end &&
        (w.size() != 6 || w[3] != "before" || w[5] != "cycles" || !number(w[4], 10, UINT64_MAX / 4, e.before) || !e.before))
        return form;
    s.expectations.push_back(e);
    return "";
}

static std::string line_event(const std::vector<std::string> &w, settings_t &s)
{
    const bool irq = w[0] == "irq";
    const size_t values = irq ? 2 : 3;
    const bool then = w.size() == values + 1 && w[values] == "then", at = w.size() == values + 2 && w[values] == "at";
    const std::string cycle = at ? w[values + 1] : then || w.size() == values ? "0" : "-";
    sim_input input{sim_input::SERIAL, 0, w.size() > 1 ? upper(w[1]) : "", 0, ""};
    const char *const form = w[0] == "port" ? "port PORT value, with at N, then, or neither"
                             : irq          ? "irq SOURCE, with at N, then, or neither"
                                            : "send REGISTER \"text\", with at N, then, or neither";
    if (!number(cycle, 10, UINT64_MAX / 4, input.cycle))
        return form;
    if (w[0] == "send" && w[2][0] != '"')
        return form;
    if (w[0] == "port" ? !set_port(s, w[1] + "=" + w[2] + "@" + cycle) : irq && !set_irq(s, w[1] + "@" + cycle))
        return form;
    if (w[0] == "send") {
        input.text = w[2].substr(1);
        s.events.push_back(input);
    }
    if (then) {
        s.events.back().after = s.expectations.size();
        s.events.back().cycle = UINT64_MAX;
        if (watch_deadline({}, s) == UINT64_MAX)
            return "then: no line ahead expects anything before a cycle";
    }
    return "";
}

static std::string script_line(const std::vector<std::string> &w, const std::string &where, settings_t &s)
{
    if (w[0] == "expect")
        return line_expect(w, where, s);
    if (w[0] == "port" || w[0] == "irq" || w[0] == "send")
        return line_event(w, s);
    if (w[0] == "until" && w.size() == 3 && w[2][0] == '"') {
        s.until_register = upper(w[1]);
        return set_text(s.until_text, w[2].substr(1)) ? "" : "an empty text is always there";
    }
    for (const char *word : {"start", "until", "limit", "exit", "strict", "xinst", "vectors"})
        if (w[0] == word)
            for (const auto &row : rows)
                if (std::string_view(row.word).substr(2, w[0].size()) == w[0] && row.form == (w.size() == 1 ? ALONE : VALUE))
                    return w.size() > 2 || !row.set(s, w.back()) ? w[0] + " " + row.value : "";
    return "unknown line \"" + w[0] + "\"";
}

std::string read_script(const std::string &name, const std::string &text, settings_t &s)
{
    size_t number = 0;
    for (size_t at = 0; at < text.size();) {
        const std::string line = text.substr(at, text.find('\n', at) - at);
        at += line.size() + 1;
        const std::string where = name + zo_format(":%zu", ++number);
        std::vector<std::string> words;
        std::string error = split(line, words);
        if (error.empty() && !words.empty())
            error = script_line(words, where, s);
        if (!error.empty())
            return where + ": " + error;
    }
    return "";
}

// Expectations.

static bool holds(watch_t &w, const expectation_t &e, devices_t &d, const sim_t &s)
{
    if (e.text.empty())
        return devices_peek(d, s, e.address) == e.value;
    const devices_serial *const u = devices_find_serial(d, s, upper(e.name));
    size_t &seen = w.seen[upper(e.name)];
    const size_t at = u ? u->sent.find(e.text, seen) : std::string::npos;
    if (at == std::string::npos)
        return false;
    seen = at + e.text.size();
    return true;
}

bool watch_update(watch_t &w, const settings_t &settings, devices_t &d, sim_t &s)
{
    const auto &all = settings.expectations;
    const size_t before = w.done;
    while (w.done < all.size() && (!all[w.done].before || (s.cycles < all[w.done].before && holds(w, all[w.done], d, s))))
        w.done++;
    return w.done != before && devices_release(d, s, w.done);
}

uint64_t watch_deadline(const watch_t &w, const settings_t &settings)
{
    for (size_t i = w.done; i < settings.expectations.size(); i++)
        if (settings.expectations[i].before)
            return settings.expectations[i].before;
    return UINT64_MAX;
}

static std::string printable(const std::string &text)
{
    std::string out;
    for (const char c : text)
        out += c == '\n'               ? "\\n"
               : c == '\r'             ? "\\r"
               : c < ' ' || c > '~'    ? zo_format("\\x%02X", c & 255)
               : c == '"' || c == '\\' ? std::string("\\") + c
                                       : std::string(1, c);
    return '"' + out + '"';
}

std::vector<std::string> watch_failures(watch_t &w, const settings_t &settings, devices_t &d, const sim_t &s)
{
    std::vector<std::string> failures;
    for (size_t i = 0; i < settings.expectations.size(); i++) {
        const expectation_t &e = settings.expectations[i];
        if (e.before ? i < w.done : holds(w, e, d, s))
            continue;
        std::string found = zo_format("0x%02X, not 0x%02X", devices_peek(d, s, e.address), e.value);
        if (const devices_serial *const u = e.text.empty() ? nullptr : devices_find_serial(d, s, upper(e.name)))
            found = printable(u->sent.substr(std::min(u->sent.size(), w.seen[upper(e.name)]))) + ", without " +
                    printable(e.text);
        const unsigned long long cycles = e.before;
        failures.push_back(e.where + ": " + e.name + (e.text.empty() ? " is " : " sent ") + found +
                           (e.before && s.cycles >= e.before ? zo_format(", after %llu cycles", cycles) : ", at the end"));
        if (e.before)
            break;   // those behind it had no chance
    }
    return failures;
}
