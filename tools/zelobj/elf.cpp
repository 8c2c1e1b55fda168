// elf: reads what the linker writes as ELF: its sections and names.
//
// The reader is the writer's counterpart, of some dozen lines, as a library would bring four others into programs that are also
// linked statically. A file is taken for damaged where it names more bytes than it has: sections and names of a sound one don't
// lie over each other, and so no file takes long.
#include <algorithm>

#include "zelobj.h"

enum : uint32_t { SECTION_HEADER = 40, SYMBOL = 16 };

namespace
{

struct name_table {
    std::string_view bytes;
    size_t most = bytes.size();   // what all names together may still have

    bool read(uint32_t at, std::string_view &name)
    {
        zo_cursor c{bytes, at};
        name = c.text();
        if (c.bad() || name.size() > most)
            return false;
        most -= name.size();
        return true;
    }
};

}   // namespace

static bool read_sections(std::string_view file, std::vector<zo_elf_section> &sections)
{
    zo_cursor head{file, 32};
    const uint32_t at = head.number(4);
    head.at = 46;
    const uint32_t size = head.number(2), count = head.number(2), table = head.number(2);
    std::vector<uint32_t> names;
    size_t most = file.size();
    for (uint32_t i = 0; i < count && !head.bad(); i++) {
        zo_cursor c{file, at + size_t{i} * SECTION_HEADER};
        names.push_back(c.number(4));
        zo_elf_section s{"", c.number(4), c.number(4), c.number(4), 0, 0, ""};
        zo_cursor body{file, c.number(4)};
        s.size = c.number(4);
        s.link = c.number(4);
        if (s.type && s.type != ZO_ELF_NOBITS)
            s.bytes = body.part(s.size);
        if (c.bad() || body.bad() || s.bytes.size() > most)
            return false;
        most -= s.bytes.size();
        sections.push_back(s);
    }
    if (head.bad() || size != SECTION_HEADER || table >= sections.size())
        return false;
    name_table texts{sections[table].bytes};
    for (size_t i = 0; i < sections.size(); i++)
        if (!texts.read(names[i], sections[i].name))
            return false;
    return true;
}

static bool read_symbols(zo_elf &elf, const zo_elf_section &table)
{
    if (table.link >= elf.sections.size())
        return false;
    name_table texts{elf.sections[table.link].bytes};
    zo_cursor c{table.bytes};
    for (size_t i = 0; i < table.bytes.size() / SYMBOL; i++) {
        zo_elf_symbol s{};
        if (!texts.read(c.number(4), s.name))
            return false;
        s.value = c.number(4);
        c.number(4);
        s.global = c.number(2) >> 4 & 15;
        s.section = c.number(2);
        if (!s.name.empty() && s.section)   // the first is empty
            elf.symbols.push_back(s);
    }
    return true;
}

bool zo_is_elf(std::string_view file)
{
    return file.starts_with("\x7F"
                            "ELF");
}

std::string zo_read_elf(std::string_view file, zo_elf &elf)
{
    if (!zo_is_elf(file) || file.substr(4, 2) != "\x01\x01")
        return "it isn't ELF of 32 bits, little-endian";
    if (!read_sections(file, elf.sections))
        return "the file is damaged: its sections";
    const auto table = std::find_if(elf.sections.begin(), elf.sections.end(),
                                    [](const zo_elf_section &s) { return s.type == ZO_ELF_SYMTAB; });
    return table == elf.sections.end() || read_symbols(elf, *table) ? "" : "the file is damaged: its names";
}
