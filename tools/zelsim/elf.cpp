// elf: reads what the linker writes as ELF, which has names and lines, so that nothing else has to be at hand for a test.
//
// Sections that are loaded give the bytes, `.symtab` the names, `.debug_line` the lines, and a note the chip. Data memory begins
// at 0x800000. The reader is the writer's counterpart, of some hundred lines, as a library would bring four others into a
// program that is also linked statically. A file is taken for damaged where it names more bytes than it has: sections and names
// of a sound one don't lie over each other, and so no file takes long.
#include <algorithm>

#include "load.h"
#include "zelobj.h"

constexpr uint32_t DATA_BASE = 0x800000;
enum : uint32_t { PROGBITS = 1, SYMTAB = 2, NOTE = 7, NOBITS = 8, SHF_ALLOC = 2, SECTION_HEADER = 40, SYMBOL = 16 };
enum : uint32_t { NO_SECTION = 0, ABSOLUTE = 0xFFF1 };

// Reads on from a place. Behind the end, all is 0 and `bad` is set.
struct cursor_t {
    std::string_view bytes;
    size_t at = 0;
    bool bad = false;

    uint32_t number(unsigned count)
    {
        uint32_t value = 0;
        for (unsigned i = 0; i < count; i++, at++) {
            bad |= at >= bytes.size();
            value |= bad ? 0u : uint32_t{static_cast<uint8_t>(bytes[at])} << 8 * i;
        }
        return value;
    }
    // LEB128; `bits` is then the number of its bits.
    uint64_t leb(unsigned *bits = nullptr)
    {
        uint64_t value = 0;
        unsigned shift = 0;
        uint32_t byte = 0x80;
        for (; byte & 0x80 && !bad; shift += 7) {
            byte = number(1);
            value |= shift < 64 ? uint64_t{byte & 0x7F} << shift : 0u;
        }
        if (bits)
            *bits = shift;
        return value;
    }
    int64_t signed_leb()
    {
        unsigned bits = 0;
        const uint64_t value = leb(&bits);
        return static_cast<int64_t>(bits && bits < 64 && value >> (bits - 1) ? value | ~uint64_t{0} << bits : value);
    }
    std::string_view text()
    {
        const size_t end = std::min(bytes.find('\0', at), bytes.size());
        bad |= end >= bytes.size();
        const std::string_view found = bad ? "" : bytes.substr(at, end - at);
        at = end + 1;
        return found;
    }
    std::string_view part(size_t size)
    {
        bad |= at > bytes.size() || size > bytes.size() - at;
        const std::string_view found = bad ? "" : bytes.substr(at, size);
        at += size;
        return found;
    }
};

struct elf_section {
    uint32_t name, type, flags, address, link;
    std::string_view bytes;   // none of a section that has none in the file
};

static bool read_sections(std::string_view file, std::vector<elf_section> &sections, uint32_t &names)
{
    cursor_t head{file, 32};
    const uint32_t at = head.number(4);
    head.at = 46;
    const uint32_t size = head.number(2), count = head.number(2);
    names = head.number(2);
    size_t most = file.size();
    for (uint32_t i = 0; i < count && !head.bad; i++) {
        cursor_t c{file, at + size_t{i} * SECTION_HEADER};
        elf_section s{c.number(4), c.number(4), c.number(4), c.number(4), 0, ""};
        const uint32_t offset = c.number(4), length = c.number(4);
        s.link = c.number(4);
        cursor_t body{file, offset};
        if (s.type && s.type != NOBITS)
            s.bytes = body.part(length);
        head.bad |= c.bad || body.bad || s.bytes.size() > most;
        most -= head.bad ? 0 : s.bytes.size();
        sections.push_back(s);
    }
    return !head.bad && size == SECTION_HEADER && names < sections.size();
}

static std::string_view name_at(std::string_view table, uint32_t at) { return cursor_t{table, at}.text(); }

static bool read_symbols(const std::vector<elf_section> &sections, const elf_section &table, program_t &p)
{
    if (table.link >= sections.size())
        return false;
    const std::string_view names = sections[table.link].bytes;
    size_t most = names.size();
    cursor_t c{table.bytes};
    for (size_t i = 0; i < table.bytes.size() / SYMBOL; i++) {
        const std::string_view name = name_at(names, c.number(4));
        const uint32_t value = c.number(4);
        c.number(4);
        const bool global = c.number(2) >> 4 & 15;
        const uint32_t section = c.number(2);
        if (name.empty() || section == NO_SECTION || section == ABSOLUTE)
            continue;
        if (name.size() > most)
            return false;
        most -= name.size();
        if (value >= DATA_BASE) {
            p.data.insert_or_assign(std::string(name), value - DATA_BASE);   // global ones come last
            continue;
        }
        p.code.insert_or_assign(std::string(name), value);
        std::string &label = p.labels[value];
        if (global || label.empty() || label > name)
            label = name;
    }
    return true;
}

// Lines: DWARF 2 to 4, as far as it has a meaning for a chip without modes and views.

struct line_head {
    uint32_t least, base, range, opcodes;
    std::vector<uint32_t> operands;
    std::vector<std::string> files{""};   // numbered from 1
};

static bool read_head(cursor_t &c, uint32_t version, line_head &h)
{
    h.least = c.number(1);
    if (version >= 4)
        c.number(1);
    c.number(1);
    h.base = (c.number(1) ^ 0x80) - 0x80;   // signed
    h.range = c.number(1);
    h.opcodes = c.number(1);
    h.operands.assign(1, 0);
    for (uint32_t i = 1; i < h.opcodes; i++)
        h.operands.push_back(c.number(1));
    while (!c.bad && !c.text().empty())   // folders
        ;
    for (std::string_view file = c.text(); !c.bad && !file.empty(); file = c.text()) {
        h.files.emplace_back(file);
        for (unsigned i = 0; i < 3; i++)
            c.leb();
    }
    return !c.bad && h.range;
}

struct line_state {
    uint32_t address = 0, file = 1, line = 1, begin = UINT32_MAX, end = 0;
};

// Rows of one unit. `most` bounds the text of the names that all rows repeat.
static bool run_lines(cursor_t c, const line_head &h, program_t &p, size_t &most)
{
    enum : uint32_t { EXTENDED, COPY, ADVANCE_PC, ADVANCE_LINE, SET_FILE, CONST_ADD_PC = 8, FIXED_ADVANCE = 9 };
    enum : uint32_t { END_SEQUENCE = 1, SET_ADDRESS = 2 };
    line_state s;
    const auto row = [&] {
        const std::string &file = h.files[s.file < h.files.size() ? s.file : 0];
        c.bad |= file.size() > most;
        most -= c.bad ? 0 : file.size();
        if (!c.bad && !file.empty())
            p.lines[s.address] = {file, s.line};
        s.begin = std::min(s.begin, s.address);
    };
    while (c.at < c.bytes.size() && !c.bad) {
        const uint32_t opcode = c.number(1);
        if (opcode >= h.opcodes) {
            s.address += (opcode - h.opcodes) / h.range * h.least;
            s.line += h.base + (opcode - h.opcodes) % h.range;
            row();
        } else if (opcode == EXTENDED) {
            cursor_t more{c.part(static_cast<size_t>(c.leb()))};
            const uint32_t extended = more.number(1);
            if (extended == SET_ADDRESS)
                s.address = more.number(4);
            if (extended != END_SEQUENCE)
                continue;
            if (s.begin < s.address)
                p.pieces[s.begin] = s.address;
            s = {};
        } else if (opcode == COPY) {
            row();
        } else if (opcode == ADVANCE_PC) {
            s.address += static_cast<uint32_t>(c.leb()) * h.least;
        } else if (opcode == ADVANCE_LINE) {
            s.line += static_cast<uint32_t>(c.signed_leb());
        } else if (opcode == SET_FILE) {
            s.file = static_cast<uint32_t>(c.leb());
        } else if (opcode == CONST_ADD_PC) {
            s.address += (255 - h.opcodes) / h.range * h.least;
        } else if (opcode == FIXED_ADVANCE) {
            s.address += c.number(2);
        } else {
            for (uint32_t i = 0; i < h.operands[opcode]; i++)
                c.leb();
        }
    }
    return !c.bad;
}

static bool read_lines(std::string_view bytes, program_t &p)
{
    size_t most = 1u << 28;
    cursor_t c{bytes};
    while (c.at < bytes.size()) {
        cursor_t unit{c.part(c.number(4))};
        const uint32_t version = unit.number(2), length = unit.number(4);
        cursor_t head{unit.part(length)};
        line_head h{};
        if (c.bad || unit.bad || version < 2 || version > 4 || !read_head(head, version, h) || !run_lines(unit, h, p, most))
            return false;
    }
    return true;
}

static std::string read_chip(std::string_view note)
{
    cursor_t c{note};
    const uint32_t owner = c.number(4), size = c.number(4);
    c.number(4);
    const bool ours = c.part((size_t{owner} + 3) & ~size_t{3}).starts_with("ZEL8");
    const std::string_view chip = c.part(size);
    return ours ? std::string(chip.substr(0, chip.find('\0'))) : "";
}

std::string read_elf(std::string_view file, program_t &p, std::map<uint32_t, uint8_t> &bytes, std::string &chip)
{
    std::vector<elf_section> sections;
    uint32_t names = 0;
    if (!file.starts_with(std::string_view("\x7F"
                                           "ELF\x01\x01",
                                           6)))
        return "it isn't ELF of 32 bits, little-endian";
    if (!read_sections(file, sections, names))
        return "the file is damaged: its sections";
    for (const elf_section &s : sections) {
        if (s.type == PROGBITS && s.flags & SHF_ALLOC)
            for (uint32_t i = 0; i < s.bytes.size(); i++)
                bytes[s.address + i] = static_cast<uint8_t>(s.bytes[i]);
        if (s.type == SYMTAB && !read_symbols(sections, s, p))
            return "the file is damaged: its names";
        if (name_at(sections[names].bytes, s.name) == ".debug_line" && !read_lines(s.bytes, p))
            return "the file is damaged: its table of lines";
        if (s.type == NOTE && chip.empty())
            chip = read_chip(s.bytes);
    }
    return "";
}
