// map: what lies where, as a table of memory and as a file.
#include <algorithm>

#include "zellink.h"

namespace
{

struct region_t {
    std::string name;
    uint8_t memory;
    ranges_t ranges;
    bool always;   // shown even if nothing is in it
};

}   // namespace

static std::vector<region_t> regions(const zl_linker &l)
{
    const target_t &t = l.target;
    std::vector<region_t> all{{"PROGRAM", ZL_PROGRAM, {{0, t.rom_size - 1}}, true},
                              {"IDLOC", ZL_PROGRAM, {t.idloc}, false},
                              {"CONFIG", ZL_PROGRAM, {t.config}, false},
                              {"EEPROM", ZL_PROGRAM, {t.eeprom}, false},
                              {"COMRAM", ZL_DATA, {t.common}, true}};
    for (range_t r : t.banks) {
        const std::string name = "BANK" + std::to_string(r.lo >> 8);
        if (all.back().name != name)
            all.push_back({name, ZL_DATA, {}, true});
        all.back().ranges.push_back(r);
    }
    return all;
}

static const ranges_t &used_of(const zl_linker &l, uint8_t memory)
{
    static const ranges_t none;
    const auto it = l.used.find(memory);
    return it == l.used.end() ? none : it->second;
}

static std::string memory_row(const std::string &name, uint64_t used, uint64_t total)
{
    return zo_format("%-8s %6llu/%-6llu %3llu %%\n", name.c_str(), static_cast<unsigned long long>(used),
                     static_cast<unsigned long long>(total),
                     static_cast<unsigned long long>((used * 200 + total) / (2 * total)));
}

std::string zl_memory_table(const zl_linker &l, bool each_bank)
{
    std::string out;
    uint64_t unused = 0;   // bytes of banks
    for (const region_t &r : regions(l)) {
        uint64_t total = 0, left = 0;
        for (range_t range : r.ranges) {
            total += uint64_t{range.hi} - range.lo + 1;
            for (range_t gap : zl_gaps(used_of(l, r.memory), range))
                left += uint64_t{gap.hi} - gap.lo + 1;
        }
        if (total == left && !each_bank && r.name.starts_with("BANK"))
            unused += total;
        else if (total != left || r.always)
            out += memory_row(r.name, total - left, total);
    }
    return unused ? out + memory_row("others", 0, unused) : out;
}

static void heading(std::string &out, const char *text) { out += zo_format("\n%s\n\n", text); }

static void list_psects(const zl_linker &l, std::string &out)
{
    std::vector<const zl_piece *> pieces;
    for (const zl_group *g : l.order)
        for (const zl_piece *p : g->pieces)
            if (p->size)
                pieces.push_back(p);
    std::stable_sort(pieces.begin(), pieces.end(), [](const zl_piece *a, const zl_piece *b) {
        const auto key = [](const zl_piece *p) {
            return std::pair(p->x.space, zl_address(*p) + (p->absolute() && p->low != UINT64_MAX ? p->low : 0));
        };
        return key(a) < key(b);
    });
    out += "space  address    size  psect             class       module\n";
    for (const zl_piece *p : pieces) {
        const uint64_t low = p->absolute() && p->low != UINT64_MAX ? p->low : 0;
        out +=
            zo_format("%5u   %06llX  %6llX  %-16s  %-10s  %s\n", p->x.space,
                      static_cast<unsigned long long>(zl_address(*p)) + low, static_cast<unsigned long long>(p->size - low),
                      p->x.name.c_str(), p->group->class_name.c_str(), p->module->name.c_str());
    }
}

namespace
{

struct entry_t {
    std::string_view name, psect, module;
    int64_t value;
    uint8_t space;   // absolute values come behind all addresses
};

}   // namespace

static std::vector<entry_t> symbols_of(const zl_linker &l)
{
    std::vector<entry_t> entries;
    const auto take = [&](const zl_symbols &table) {
        for (const auto &[name, s] : table) {
            zl_sum sum{};
            zl_piece *p = nullptr;
            if (zl_symbol_value(l, s, sum, &p) && (!p || p->live))
                entries.push_back(
                    {name, p ? std::string_view(p->x.name) : "", s.module->name, sum.value, p ? p->x.space : s.space});
        }
    };
    take(l.globals);
    for (const zl_module &m : l.modules)
        take(m.locals);
    return entries;
}

static void list_symbols(std::string &out, const std::vector<entry_t> &entries)
{
    out += "space     value  symbol                    psect             module\n";
    for (const entry_t &e : entries)
        out +=
            zo_format("%5s  %8llX  %-24.*s  %-16.*s  %.*s\n", e.space == ZL_NOWHERE ? "-" : std::to_string(e.space).c_str(),
                      static_cast<unsigned long long>(e.value), static_cast<int>(e.name.size()), e.name.data(),
                      static_cast<int>(e.psect.size()), e.psect.data(), static_cast<int>(e.module.size()), e.module.data());
}

std::string zl_map(const zl_linker &l)
{
    std::string out = zo_format("Map of %s for %s\n", l.options.output_name.c_str(), l.target.name.c_str());
    heading(out, "Memory");
    out += zl_memory_table(l, true);
    heading(out, "Modules");
    for (const zl_module &m : l.modules)
        out += m.name + "\n";
    heading(out, "Psects");
    list_psects(l, out);
    std::vector<entry_t> entries = symbols_of(l);
    std::sort(entries.begin(), entries.end(),
              [](const entry_t &a, const entry_t &b) { return std::tie(a.name, a.module) < std::tie(b.name, b.module); });
    heading(out, "Symbols by name");
    list_symbols(out, entries);
    std::stable_sort(entries.begin(), entries.end(), [](const entry_t &a, const entry_t &b) {
        return std::tie(a.space, a.value) < std::tie(b.space, b.value);
    });
    heading(out, "Symbols by address");
    list_symbols(out, entries);
    heading(out, "Gaps");
    for (const region_t &r : regions(l))
        for (range_t range : r.ranges)
            for (range_t gap : zl_gaps(used_of(l, r.memory), range))
                if (r.always)
                    out += zo_format("%-8s  %06X-%06X  %6X\n", r.name.c_str(), gap.lo, gap.hi, gap.hi - gap.lo + 1);
    if (l.options.gc)
        heading(out, "Left out, as nothing reaches it");
    for (const zl_piece *p : l.left_out)
        out += zo_format("%-16s  %6llX  %s\n", p->x.name.c_str(), static_cast<unsigned long long>(p->size),
                         p->module->name.c_str());
    return out;
}
