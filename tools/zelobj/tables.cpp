// tables: the symbols and the sizes of an object or a linked program.
//
// Both are brought into rows of one kind first. A value in an object is an offset in its psect, and so the order by address is one
// of psects and offsets there; in a linked program it is the address alone. What has no address comes last.
#include <algorithm>
#include <map>
#include <tuple>

#include "zelobj.h"

namespace
{

enum rank_t { ADDRESS, NUMBER, NO_VALUE };

struct row_t {
    rank_t rank;
    std::string_view area;   // what `value` counts from
    uint32_t value;
    std::string_view name;
    std::string kind, psect;
};

}   // namespace

static std::string table_of(std::vector<row_t> &rows, bool by_address)
{
    std::stable_sort(rows.begin(), rows.end(), [=](const row_t &a, const row_t &b) {
        return by_address ? std::tie(a.rank, a.area, a.value, a.name) < std::tie(b.rank, b.area, b.value, b.name)
                          : a.name < b.name;
    });
    std::string out = "   value  kind       symbol                    psect\n";
    for (const row_t &r : rows)
        out += zo_format("%8s  %-9s  %-24s  %s\n", r.rank == NO_VALUE ? "" : zo_format("%X", r.value).c_str(),
                         r.kind.c_str(), zo_name(std::string(r.name)).c_str(), r.psect.c_str());
    return out;
}

static row_t row_of(const zo_symbol &s)
{
    const auto row = [&](const char *kind) {
        return row_t{s.psect.empty() ? NUMBER : ADDRESS,      s.psect, s.value, s.name, kind,
                     s.psect.empty() ? "-" : zo_name(s.psect)};
    };
    switch (s.flags) {
    case ZO_S_GLOBAL: return row("global");
    case ZO_S_LOCAL: return row("local");
    case ZO_S_ALIAS: return {NO_VALUE, "", 0, s.name, "alias", "= " + zo_name(s.psect)};
    case ZO_S_UNDEF:
    case ZO_S_UNDEF_LOCAL: return {NO_VALUE, "", 0, s.name, "undefined", "-"};
    default: return row(zo_format("0x%02X", s.flags).c_str());
    }
}

std::string zo_symbol_table(const zo_file &file, bool by_address)
{
    std::vector<row_t> rows;
    for (const zo_record &r : file.records)
        if (const auto *sym = std::get_if<zo_sym>(&r.body))
            for (const zo_symbol &s : sym->symbols)
                if (s.flags != ZO_S_FILE && s.flags != ZO_S_LINE)
                    rows.push_back(row_of(s));
    return table_of(rows, by_address);
}

std::string zo_symbol_table(const zo_elf &elf, bool by_address)
{
    std::vector<row_t> rows;
    for (const zo_elf_symbol &s : elf.symbols) {
        const bool placed = s.section < elf.sections.size();
        rows.push_back({placed ? ADDRESS : NUMBER, "", s.value, s.name, s.global ? "global" : "local",
                        placed ? zo_name(std::string(elf.sections[s.section].name)) : "-"});
    }
    return table_of(rows, by_address);
}

// Sizes.

namespace
{

struct extent_t {
    std::string class_name;
    bool absolute = false;
    uint64_t low = UINT64_MAX, end = 0, wanted = 0;   // bytes; low: of what is there

    void cover(uint64_t from, uint64_t to)
    {
        if (from < to)
            low = std::min(low, from);
        end = std::max(end, to);
    }
    uint64_t size() const { return std::max(wanted, absolute && low < end ? end - low : end); }
};

}   // namespace

std::vector<zo_size> zo_sizes(const zo_file &file)
{
    std::map<std::string, extent_t> extents;
    std::vector<std::string> order;
    for (const zo_record &r : file.records) {
        if (const auto *psect = std::get_if<zo_psect>(&r.body)) {
            extents[psect->name].absolute |= (psect->flags & ZO_F_ABS) != 0;
            order.push_back(psect->name);
        } else if (const auto *x = std::get_if<zo_xpsect>(&r.body)) {
            extents[x->name].class_name = x->class_name;
            extents[x->name].wanted = uint64_t{x->size} * std::max<uint8_t>(x->delta, 1);
        } else if (const auto *bound = std::get_if<zo_psectbound>(&r.body)) {
            extents[bound->name].cover(bound->base, bound->top);
        } else if (const auto *text = std::get_if<zo_text>(&r.body)) {
            extent_t &e = extents[text->psect];
            const uint64_t end = uint64_t{text->offset} + text->data.size();   // one without data tells the end
            e.cover(text->data.empty() && e.absolute ? end : text->data.empty() ? 0 : text->offset, end);
        }
    }
    std::vector<zo_size> sizes;
    for (auto name = order.rbegin(); name != order.rend(); ++name)   // a file lists its psects from the last to the first
        if (extent_t &e = extents[*name]; e.size()) {
            sizes.push_back({*name, e.class_name, e.size()});
            e = {};   // a second PSECT of the name tells nothing new
        }
    return sizes;
}

std::vector<zo_size> zo_sizes(const zo_elf &elf)
{
    std::vector<zo_size> sizes;
    for (const zo_elf_section &s : elf.sections)
        if (s.flags & ZO_ELF_ALLOC)
            sizes.push_back({std::string(s.name),
                             s.address >= ZO_ELF_DATA      ? "data"
                             : s.flags & ZO_ELF_EXECUTABLE ? "program"
                                                           : "settings",
                             s.size});
    return sizes;
}

static std::string size_row(uint64_t bytes, const std::string &class_name)
{
    const auto number = static_cast<unsigned long long>(bytes);
    return zo_format("%8llu  %8llX  %s", number, number, class_name.empty() ? "-" : zo_name(class_name).c_str());
}

std::string zo_size_table(const std::vector<zo_size> &sizes)
{
    std::string out = "   bytes       hex  class       psect\n";
    for (const zo_size &s : sizes)
        out += zo_format("%-30s  %s\n", size_row(s.bytes, s.class_name).c_str(), zo_name(s.psect).c_str());
    return out + "\n" + zo_class_table(sizes);
}

std::string zo_class_table(const std::vector<zo_size> &sizes)
{
    std::map<std::string, uint64_t> classes;
    for (const zo_size &s : sizes)
        classes[s.class_name] += s.bytes;
    std::string out = "   bytes       hex  class\n";
    for (const auto &[name, bytes] : classes)
        out += size_row(bytes, name) + "\n";
    return out;
}
