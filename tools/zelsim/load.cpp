// load: a program's bytes, from one file of a flasher's formats, from an ELF file or from objects.
//
// HEX files come from any linker, so all record types are known, and each record is checked: its length, its checksum and
// what its type asks for.
#include "load.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "zellink.h"

enum : unsigned { HEX_DATA, HEX_END, HEX_SEGMENT, HEX_SEGMENT_START, HEX_UPPER, HEX_START, HEX_TYPES };

static int digit(char c)
{
    return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// The bytes of a record, without ":". An error text, empty on success.
static std::string hex_record(std::string_view line, std::vector<uint8_t> &record)
{
    if (line[0] != ':')
        return "a record begins with \":\"";
    line.remove_prefix(1);
    if (line.size() % 2)
        return "odd number of digits";
    unsigned sum = 0;
    for (size_t i = 0; i < line.size(); i += 2) {
        const int high = digit(line[i]), low = digit(line[i + 1]);
        if (high < 0 || low < 0)
            return "not a hexadecimal digit";
        record.push_back(static_cast<uint8_t>(high << 4 | low));
        sum += record.back();
    }
    if (record.size() < 5 || record.size() != record[0] + 5u)
        return zo_format("the record has %zu bytes, its length tells %u", record.size(),
                         record.empty() ? 5u : record[0] + 5u);
    if (sum & 255)
        return zo_format("wrong checksum 0x%02X: it should be 0x%02X", record.back(), (record.back() - sum) & 255);
    static const uint8_t lengths[] = {0, 0, 2, 4, 2, 4};
    if (record[3] >= HEX_TYPES)
        return zo_format("unknown record type 0x%02X", record[3]);
    if (record[3] != HEX_DATA && record[0] != lengths[record[3]])
        return zo_format("a record of type %u holds %u bytes, not %u", record[3], lengths[record[3]], record[0]);
    return "";
}

std::string read_hex(const std::string &text, std::map<uint32_t, uint8_t> &bytes)
{
    uint32_t upper = 0;
    bool segment = false, ended = false;
    size_t number = 0;
    for (size_t at = 0; at < text.size();) {
        std::string_view line = std::string_view(text).substr(at, text.find('\n', at) - at);
        at += line.size() + 1;
        number++;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
            line.remove_suffix(1);
        if (line.empty())
            continue;
        std::vector<uint8_t> r;
        std::string error = ended ? "a record behind the end record" : hex_record(line, r);
        if (!error.empty())
            return zo_format("line %zu: ", number) + error;
        const uint32_t offset = r[1] << 8 | r[2];
        switch (r[3]) {
        case HEX_DATA:
            for (uint32_t i = 0; i < r[0]; i++)   // a segment's offsets wrap around, all others go on
                bytes[upper + (segment ? (offset + i) & 0xFFFF : offset + i)] = r[4 + i];
            break;
        case HEX_END: ended = true; break;
        case HEX_SEGMENT:
        case HEX_UPPER:
            segment = r[3] == HEX_SEGMENT;
            upper = static_cast<uint32_t>(r[4] << 8 | r[5]) << (segment ? 4 : 16);
            break;
        }
    }
    return ended ? "" : "no end record: the file isn't whole";
}

static std::string load_target(const load_request &request, const std::string &chip, target_t &target)
{
    std::string error =
        request.chip_file.empty() ? target_find(request.bin, chip, target) : target_read(request.chip_file, chip, target);
    target_switches(request.bin, target);
    return error;
}

static bool known(const target_t &t, uint32_t address)
{
    const auto in = [&](range_t r) { return r.hi && address >= r.lo && address <= r.hi; };
    return address < t.rom_size || in(t.config) || in(t.idloc) || in(t.eeprom);
}

static std::string load_file(const load_request &request, const std::string &path, const std::string &format, program_t &p)
{
    std::vector<uint8_t> content;
    std::string error = zo_read_file(path, content) ? "" : zo_format("can't read the file: %s", strerror(errno)), chip;
    const std::string text(content.begin(), content.end());
    std::map<uint32_t, uint8_t> bytes;
    if (error.empty() && format == "hex")
        error = read_hex(text, bytes);
    if (error.empty() && format == "elf")
        error = read_elf(text, p, bytes, chip);
    if (!request.chip.empty())
        chip = request.chip;
    if (error.empty() && chip.empty())
        error = "it doesn't tell its chip: name it with -mcpu=";
    if (!error.empty())
        return path + ": " + error;
    if (error = load_target(request, chip, p.target); !error.empty())
        return error;
    for (uint32_t i = 0; format == "bin" && i < text.size() && i < p.target.rom_size; i++)
        bytes[i] = static_cast<uint8_t>(text[i]);
    p.bytes.assign(p.target.rom_size, 0xFF);
    for (const auto &[at, byte] : bytes) {
        if (!known(p.target, at))
            return path + zo_format(": 0x%X is outside of the memory of chip %s", at, p.target.name.c_str());
        (at < p.bytes.size() ? p.bytes[at] : p.others[at]) = byte;
    }
    return "";
}

// Names and lines of what was linked.
static void note_symbols(const zl_linker &l, program_t &p)
{
    const auto note = [&](const zl_symbols &table, bool global) {
        for (const auto &[name, s] : table) {
            zl_sum sum{};
            zl_piece *piece = nullptr;
            if (!zl_symbol_value(l, s, sum, &piece) || !piece)
                continue;
            const uint32_t value = static_cast<uint32_t>(sum.value);
            if (piece->x.space == ZL_DATA) {
                p.data.try_emplace(std::string(name), value);
            } else if (piece->x.space == ZL_PROGRAM) {
                const uint32_t at = value * piece->x.delta;
                p.code.try_emplace(std::string(name), at);
                std::string &label = p.labels[at];
                if (global || label.empty() || label > name)
                    label = name;
            }
        }
    };
    note(l.globals, true);
    for (const zl_module &m : l.modules)
        note(m.locals, false);
}

static void note_lines(const zl_linker &l, program_t &p)
{
    for (const zl_module &m : l.modules)
        for (const zl_piece *piece : m.order) {
            if (piece->x.space != ZL_PROGRAM || !piece->live || !piece->size)
                continue;
            const uint32_t base = static_cast<uint32_t>(zl_address(*piece));
            for (const range_t &r : piece->texts)
                p.pieces[base + r.lo] = std::max(p.pieces[base + r.lo], base + r.hi + 1);
            for (const zl_line &line : zl_lines_of_bytes(*piece))
                p.lines[base + static_cast<uint32_t>(line.offset)] = {
                    *line.file, static_cast<uint32_t>(strtoul(line.line->c_str(), nullptr, 10))};
        }
}

static std::vector<std::string> load_objects(const load_request &request, program_t &p)
{
    std::deque<zl_source> sources;
    std::vector<zl_message> messages;
    zl_options options;
    options.inputs = request.inputs;
    options.installation = target_installation(request.bin);
    zl_read_inputs(options, sources, messages);
    std::string chip;
    if (messages.empty()) {
        zl_choose_members(sources);
        chip = zl_common_chip(sources, messages);
    }
    if (messages.empty())
        if (std::string error = load_target(request, request.chip.empty() ? chip : request.chip, p.target); !error.empty())
            messages.push_back({"", error, false});
    if (messages.empty()) {
        p.bytes.assign(p.target.rom_size, 0xFF);
        zl_linker l{options, p.target};
        zl_link(l, sources);
        messages = l.messages;
        for (const auto &[number, page] : l.image)
            for (uint32_t i = 0; i < page.bytes.size(); i++)
                if (const uint32_t at = number * 256 + i; page.owner[i])
                    (at < p.bytes.size() ? p.bytes[at] : p.others[at]) = page.bytes[i];
        note_symbols(l, p);
        note_lines(l, p);
    }
    std::vector<std::string> errors;
    for (const zl_message &m : messages)
        if (!m.warning)
            errors.push_back(m.where.empty() ? m.text : m.where + ": " + m.text);
    return errors;
}

static std::string ending(const std::string &path)
{
    std::string text = path.substr(std::min(path.size(), path.find_last_of("./") + 1));
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return text;
}

std::vector<std::string> load_program(const load_request &request, program_t &p)
{
    const auto is_plain = [](const std::string &path) {
        const std::string format = ending(path);
        return format == "hex" || format == "bin" || format == "elf";
    };
    const auto plain = std::find_if(request.inputs.begin(), request.inputs.end(), is_plain);
    if (plain == request.inputs.end())
        return load_objects(request, p);
    if (request.inputs.size() > 1)
        return {*plain + ": a linked program is run alone"};
    const std::string error = load_file(request, *plain, ending(*plain), p);
    return error.empty() ? std::vector<std::string>{} : std::vector<std::string>{error};
}

bool program_switch(const program_t &p, const std::string &setting)
{
    const auto bits = p.target.switches.find(setting);
    if (bits == p.target.switches.end())
        return false;
    const auto byte = p.others.find(bits->second.address);
    return byte != p.others.end() && (byte->second & bits->second.mask) == bits->second.on;
}
