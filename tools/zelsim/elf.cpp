// elf: reads what the linker writes as ELF, which has names and lines, so that nothing else has to be at hand for a test.
//
// Sections that are loaded give the bytes, `.symtab` the names, `.debug_line` the lines, and a note the chip.
#include <algorithm>

#include "load.h"
#include "zelobj.h"

// LEB128; `bits` is then the number of its bits.
static uint64_t leb(zo_cursor &c, unsigned *bits = nullptr)
{
    uint64_t value = 0;
    unsigned shift = 0;
    uint32_t byte = 0x80;
    for (; byte & 0x80 && !c.bad(); shift += 7) {
        byte = c.number(1);
        value |= shift < 64 ? uint64_t{byte & 0x7F} << shift : 0u;
    }
    if (bits)
        *bits = shift;
    return value;
}

static int64_t signed_leb(zo_cursor &c)
{
    unsigned bits = 0;
    const uint64_t value = leb(c, &bits);
    return static_cast<int64_t>(bits && bits < 64 && value >> (bits - 1) ? value | ~uint64_t{0} << bits : value);
}

static void note_symbols(const zo_elf &elf, program_t &p)
{
    for (const zo_elf_symbol &s : elf.symbols) {
        if (s.section == ZO_ELF_ABSOLUTE)
            continue;
        if (s.value >= ZO_ELF_DATA) {
            p.data.insert_or_assign(std::string(s.name), s.value - ZO_ELF_DATA);   // global ones come last
            continue;
        }
        p.code.insert_or_assign(std::string(s.name), s.value);
        std::string &label = p.labels[s.value];
        if (s.global || label.empty() || label > s.name)
            label = s.name;
    }
}

// Lines: DWARF 2 to 4, as far as it has a meaning for a chip without modes and views.

struct line_head {
    uint32_t least, base, range, opcodes;
    std::vector<uint32_t> operands;
    std::vector<std::string> files{""};   // numbered from 1
};

static bool read_head(zo_cursor &c, uint32_t version, line_head &h)
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
    while (!c.bad() && !c.text().empty())   // folders
        ;
    for (std::string_view file = c.text(); !c.bad() && !file.empty(); file = c.text()) {
        h.files.emplace_back(file);
        for (unsigned i = 0; i < 3; i++)
            leb(c);
    }
    return !c.bad() && h.range;
}

struct line_state {
    uint32_t address = 0, file = 1, line = 1, begin = UINT32_MAX, end = 0;
};

// Rows of one unit. `most` bounds the text of the names that all rows repeat.
static bool run_lines(zo_cursor c, const line_head &h, program_t &p, size_t &most)
{
    enum : uint32_t { EXTENDED, COPY, ADVANCE_PC, ADVANCE_LINE, SET_FILE, CONST_ADD_PC = 8, FIXED_ADVANCE = 9 };
    enum : uint32_t { END_SEQUENCE = 1, SET_ADDRESS = 2 };
    line_state s;
    const auto row = [&] {
        const std::string &file = h.files[s.file < h.files.size() ? s.file : 0];
        if (file.size() > most)
            return c.fail("names are longer than all files");
        most -= file.size();
        if (!file.empty())
            p.lines[s.address] = {file, s.line};
        s.begin = std::min(s.begin, s.address);
    };
    while (c.more()) {
        const uint32_t opcode = c.number(1);
        if (opcode >= h.opcodes) {
            s.address += (opcode - h.opcodes) / h.range * h.least;
            s.line += h.base + (opcode - h.opcodes) % h.range;
            row();
        } else if (opcode == EXTENDED) {
            zo_cursor more{c.part(static_cast<size_t>(leb(c)))};
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
            s.address += static_cast<uint32_t>(leb(c)) * h.least;
        } else if (opcode == ADVANCE_LINE) {
            s.line += static_cast<uint32_t>(signed_leb(c));
        } else if (opcode == SET_FILE) {
            s.file = static_cast<uint32_t>(leb(c));
        } else if (opcode == CONST_ADD_PC) {
            s.address += (255 - h.opcodes) / h.range * h.least;
        } else if (opcode == FIXED_ADVANCE) {
            s.address += c.number(2);
        } else {
            for (uint32_t i = 0; i < h.operands[opcode]; i++)
                leb(c);
        }
    }
    return !c.bad();
}

static bool read_lines(std::string_view bytes, program_t &p)
{
    size_t most = 1u << 28;
    zo_cursor c{bytes};
    while (c.at < bytes.size()) {
        zo_cursor unit{c.part(c.number(4))};
        const uint32_t version = unit.number(2), length = unit.number(4);
        zo_cursor head{unit.part(length)};
        line_head h{};
        if (c.bad() || unit.bad() || version < 2 || version > 4 || !read_head(head, version, h) ||
            !run_lines(unit, h, p, most))
            return false;
    }
    return true;
}

static std::string read_chip(std::string_view note)
{
    zo_cursor c{note};
    const uint32_t owner = c.number(4), size = c.number(4);
    c.number(4);
    const bool ours = c.part((size_t{owner} + 3) & ~size_t{3}).starts_with("ZEL8");
    const std::string_view chip = c.part(size);
    return ours ? std::string(chip.substr(0, chip.find('\0'))) : "";
}

std::string read_elf(std::string_view file, program_t &p, std::map<uint32_t, uint8_t> &bytes, std::string &chip)
{
    zo_elf elf;
    if (std::string error = zo_read_elf(file, elf); !error.empty())
        return error;
    note_symbols(elf, p);
    for (const zo_elf_section &s : elf.sections) {
        if (s.type == ZO_ELF_PROGBITS && s.flags & ZO_ELF_ALLOC)
            for (uint32_t i = 0; i < s.bytes.size(); i++)
                bytes[s.address + i] = static_cast<uint8_t>(s.bytes[i]);
        if (s.name == ".debug_line" && !read_lines(s.bytes, p))
            return "the file is damaged: its table of lines";
        if (s.type == ZO_ELF_NOTE && chip.empty())
            chip = read_chip(s.bytes);
    }
    return "";
}
