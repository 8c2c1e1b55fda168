// elf: the program as an executable of 32 bits, for readelf, nm, size, and for debuggers.
//
// A psect is a section; one that leaves gaps, as an absolute one may, is several of the same name. Memory that only the program
// fills is told without bytes. Data memory has addresses of its own, from 0x800000 on, since program memory begins at 0, too.
// There is no number for the family, so that the machine is EM_NONE, and a note tells the chip. `.debug_line` has the lines of all modules, in the form of
// DWARF 3, as one program for each module; each of its rows gives the whole address.
#include <algorithm>

#include "zellink.h"

constexpr uint32_t DATA_BASE = 0x800000;
enum : uint32_t { HEADER = 52, PROGRAM_HEADER = 32, SECTION_HEADER = 40 };
enum : uint32_t { PROGBITS = 1, SYMTAB = 2, STRTAB = 3, NOTE = 7, NOBITS = 8, SHF_WRITE = 1, SHF_ALLOC = 2, SHF_EXEC = 4 };
constexpr uint16_t ABSOLUTE = 0xFFF1;

namespace
{

struct elf_section_t {
    std::string name;
    uint32_t type, flags, address, size;
    std::string bytes;
    uint32_t link = 0, info = 0, entry = 0, align = 1;
    const zl_group *group = nullptr;
};

}   // namespace

static void put(std::string &out, uint64_t value, unsigned bytes)
{
    for (unsigned i = 0; i < bytes; i++)
        out += static_cast<char>(value >> 8 * i);
}

static void put_text(std::string &out, std::string_view text) { (out += text) += '\0'; }

static uint32_t add_name(std::string &table, std::string_view name)
{
    const size_t at = table.size();
    put_text(table, name);
    return static_cast<uint32_t>(at);
}

// Sections.

static void add_program(const zl_linker &l, std::vector<elf_section_t> &sections)
{
    elf_section_t *last = nullptr;
    for (const auto &[number, page] : l.image)
        for (uint32_t i = 0; i < page.bytes.size(); i++) {
            const zl_piece *const p = page.owner[i];
            const uint32_t at = number * 256 + i;
            if (!p)
                continue;
            if (!last || last->group != p->group || last->address + last->size != at) {
                const bool program = p->x.space == ZL_PROGRAM && at < l.target.rom_size;
                sections.push_back({p->group->name, PROGBITS, SHF_ALLOC | (program ? uint32_t{SHF_EXEC} : 0u), at, 0, ""});
                last = &sections.back();
                last->group = p->group;
            }
            last->bytes += static_cast<char>(page.bytes[i]);
            last->size++;
        }
}

static void add_data(const zl_linker &l, std::vector<elf_section_t> &sections)
{
    for (const zl_group *g : l.order) {
        uint64_t low = UINT64_MAX;
        for (const zl_piece *p : g->pieces)
            low = std::min(low, p->low);
        const uint64_t from = g->absolute && low != UINT64_MAX ? low : 0;
        if (g->space != ZL_DATA || g->size <= from)
            continue;
        sections.push_back({g->name, NOBITS, SHF_ALLOC | SHF_WRITE, DATA_BASE + static_cast<uint32_t>(g->address + from),
                            static_cast<uint32_t>(g->size - from), ""});
        sections.back().group = g;
    }
}

// Symbols.

namespace
{

struct elf_symbol_t {
    std::string_view name;
    uint32_t value;
    uint16_t section;
    bool global;
};

}   // namespace

static uint16_t section_of(const std::vector<elf_section_t> &sections, const zl_group *group, uint32_t value)
{
    for (size_t i = 0; i < sections.size(); i++)
        if (const elf_section_t &s = sections[i]; s.group == group && s.address <= value && value <= s.address + s.size)
            return static_cast<uint16_t>(i);
    return ABSOLUTE;
}

static void add_symbols(const zl_linker &l, std::vector<elf_section_t> &sections)
{
    std::vector<elf_symbol_t> symbols;
    const auto take = [&](const zl_symbols &table, bool global) {
        for (const auto &[name, s] : table) {
            zl_sum sum{};
            zl_piece *p = nullptr;
            if (!zl_symbol_value(l, s, sum, &p) || (p && !p->live))
                continue;
            const uint32_t value =
                static_cast<uint32_t>(sum.value) * (p ? p->x.delta : 1u) + (p && p->x.space == ZL_DATA ? DATA_BASE : 0);
            symbols.push_back({name, value, p ? section_of(sections, p->group, value) : ABSOLUTE, global});
        }
    };
    for (const zl_module &m : l.modules)
        take(m.locals, false);
    take(l.globals, true);
    std::sort(symbols.begin(), symbols.end(), [](const elf_symbol_t &a, const elf_symbol_t &b) {
        return std::tie(a.global, a.name, a.value) < std::tie(b.global, b.name, b.value);
    });
    elf_section_t table{".symtab", SYMTAB, 0, 0, 0, std::string(16, '\0')},
        names{".strtab", STRTAB, 0, 0, 0, std::string(1, '\0')};
    table.entry = 16;
    table.align = 4;
    table.info = 1;   // the first global one
    table.link = static_cast<uint32_t>(sections.size() + 1);
    for (const elf_symbol_t &s : symbols) {
        put(table.bytes, add_name(names.bytes, s.name), 4);
        put(table.bytes, s.value, 4);
        put(table.bytes, 0, 4);
        put(table.bytes, s.global ? 1u << 4 : 0u, 2);   // binding; no type
        put(table.bytes, s.section, 2);
        table.info += !s.global;
    }
    sections.push_back(std::move(table));
    sections.push_back(std::move(names));
}

// Lines.

static void put_uleb(std::string &out, uint64_t value)
{
    for (; value >= 0x80; value >>= 7)
        out += static_cast<char>(value | 0x80);
    out += static_cast<char>(value);
}

static void put_sleb(std::string &out, int64_t value)
{
    for (; value < -64 || value > 63; value >>= 7)
        out += static_cast<char>(value | 0x80);
    out += static_cast<char>(value & 0x7F);
}

constexpr char EXTENDED = 0, COPY = 1, ADVANCE_LINE = 3, SET_FILE = 4, END_SEQUENCE = 1, SET_ADDRESS = 2;

static void set_address(std::string &out, uint64_t address)
{
    out += {EXTENDED, 5, SET_ADDRESS};
    put(out, address, 4);
}

// The rows of a piece; `files` gets the files that they name.
static void add_lines(std::string &out, const zl_piece &p, std::vector<std::string> &files)
{
    const std::vector<zl_line> lines = zl_lines_of_bytes(p);
    int64_t line = 1;
    size_t file = 0;   // the state begins with the first
    for (const zl_line &row : lines) {
        const auto it = std::find(files.begin(), files.end(), *row.file);
        const size_t number = static_cast<size_t>(it - files.begin());
        if (it == files.end())
            files.push_back(*row.file);
        set_address(out, zl_address(p) + row.offset);
        if (number != file) {
            out += SET_FILE;
            put_uleb(out, (file = number) + 1);
        }
        const int64_t to = static_cast<int64_t>(strtoul(row.line->c_str(), nullptr, 10) & 0x7FFFFFFF);
        out += ADVANCE_LINE;
        put_sleb(out, to - line);
        out += COPY;
        line = to;
    }
    if (lines.empty())
        return;
    set_address(out, zl_address(p) + p.size);
    out += {EXTENDED, 1, END_SEQUENCE};
}

static std::string line_table(const zl_linker &l)
{
    std::string out;
    for (const zl_module &m : l.modules) {
        std::string rows, head;
        std::vector<std::string> files;
        for (const zl_piece *p : m.order)
            if (p->live && p->x.space == ZL_PROGRAM && p->group && !p->texts.empty())
                add_lines(rows, *p, files);
        if (rows.empty())
            continue;
        head += {1, 1, 0, 1, 10};   // bytes of an instruction, is_stmt, two of opcodes that aren't used, the first
        head += {0, 1, 1, 1, 1, 0, 0, 0, 1};   // operands of the standard opcodes
        head += '\0';                          // no folders
        for (const std::string &file : files) {
            put_text(head, file);
            head.append(3, '\0');   // folder, time, size
        }
        head += '\0';
        put(out, 2 + 4 + head.size() + rows.size(), 4);
        put(out, 3, 2);
        put(out, head.size(), 4);
        out += head + rows;
    }
    return out;
}

// The chip, as a note of an owner "ZEL8".
static std::string chip_note(const zl_linker &l)
{
    std::string out, chip = l.target.name + '\0';
    put(out, 5, 4);
    put(out, chip.size(), 4);
    put(out, 1, 4);
    out += {'Z', 'E', 'L', '8', 0, 0, 0, 0};
    chip.resize((chip.size() + 3) & ~size_t{3});
    return out + chip;
}

std::string zl_elf(const zl_linker &l)
{
    std::vector<elf_section_t> sections{{"", 0, 0, 0, 0, ""}};
    sections[0].align = 0;
    add_program(l, sections);
    const size_t loads = sections.size() - 1;
    add_data(l, sections);
    if (std::string lines = line_table(l); !lines.empty())
        sections.push_back({".debug_line", PROGBITS, 0, 0, 0, std::move(lines)});
    sections.push_back({".note.chip", NOTE, 0, 0, 0, chip_note(l)});
    sections.back().align = 4;
    add_symbols(l, sections);
    sections.push_back({".shstrtab", STRTAB, 0, 0, 0, ""});
    std::vector<uint32_t> names;
    std::string &table = sections.back().bytes;
    for (const elf_section_t &s : sections)
        names.push_back(add_name(table, s.name));

    std::string body, heads, programs;
    const size_t begin = HEADER + loads * PROGRAM_HEADER;
    for (size_t i = 0; i < sections.size(); i++) {
        const elf_section_t &s = sections[i];
        body.append((s.align ? (s.align - (begin + body.size()) % s.align) % s.align : 0), '\0');
        const size_t offset = i ? begin + body.size() : 0, size = s.type == NOBITS ? s.size : s.bytes.size();
        for (uint64_t word : {uint64_t{names[i]}, uint64_t{s.type}, uint64_t{s.flags}, uint64_t{s.address}, uint64_t{offset},
                              uint64_t{size}, uint64_t{s.link}, uint64_t{s.info}, uint64_t{s.align}, uint64_t{s.entry}})
            put(heads, word, 4);
        if (i && i <= loads)
            for (uint64_t word : {uint64_t{1}, uint64_t{offset}, uint64_t{s.address}, uint64_t{s.address}, uint64_t{size},
                                  uint64_t{size}, uint64_t{s.flags & SHF_EXEC ? 5u : 4u}, uint64_t{1}})   // 1: PT_LOAD
                put(programs, word, 4);
        body += s.bytes;
    }
    body.append((4 - (begin + body.size()) % 4) % 4, '\0');

    std::string out{"\x7F"
                    "ELF"
                    "\x01\x01\x01",
                    7};   // 32 bits, little-endian, version
    out.append(9, '\0');
    put(out, 2, 2);   // executable
    put(out, 0, 2);   // machine
    put(out, 1, 4);
    put(out, l.start, 4);
    put(out, loads ? uint32_t{HEADER} : 0, 4);
    put(out, begin + body.size(), 4);
    put(out, 0, 4);
    for (size_t half :
         {size_t{HEADER}, size_t{PROGRAM_HEADER}, loads, size_t{SECTION_HEADER}, sections.size(), sections.size() - 1})
        put(out, half, 2);
    return out + programs + body + heads;
}
