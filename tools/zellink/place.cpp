// place: an address for every psect.
//
// Absolute psects and reserved memory (DABS) come first, then psects whose address is given or whose class has a fixed
// begin, such as the vectors. Of the others, those with the least room to choose from come first, and among these the largest;
// each goes into the gap that it fills best. A psect and those that are to lie `with` it are one thing here. Equals keep the
// order of the modules, so that the same input always gives the same addresses.
#include <algorithm>
#include <numeric>

#include "zellink.h"

uint8_t zl_memory(uint8_t space) { return space == ZL_CONFIG || space == ZL_IDLOC ? uint8_t{ZL_PROGRAM} : space; }

void zl_reserve(ranges_t &used, range_t r)
{
    auto at =
        std::lower_bound(used.begin(), used.end(), r.lo, [](range_t u, uint32_t lo) { return uint64_t{u.hi} + 1 < lo; });
    auto end = at;
    for (; end != used.end() && end->lo <= uint64_t{r.hi} + 1; ++end)
        r = {std::min(r.lo, end->lo), std::max(r.hi, end->hi)};
    used.insert(used.erase(at, end), r);
}

ranges_t zl_gaps(const ranges_t &used, range_t range)
{
    ranges_t gaps;
    uint64_t at = range.lo;
    for (range_t u : used) {
        if (u.hi < at)
            continue;
        if (u.lo > range.hi)
            break;
        if (u.lo > at)
            gaps.push_back({static_cast<uint32_t>(at), u.lo - 1});
        at = uint64_t{u.hi} + 1;
    }
    if (at <= range.hi)
        gaps.push_back({static_cast<uint32_t>(at), range.hi});
    return gaps;
}

// Classes.

static bool bank_number(const std::string &name, uint32_t &bank)
{
    if (!name.starts_with("BANK") || name.size() == 4 || name.size() > 7 ||
        name.find_first_not_of("0123456789", 4) != std::string::npos)
        return false;
    bank = static_cast<uint32_t>(std::stoul(name.substr(4)));
    return true;
}

static ranges_t data_ranges(const target_t &t, const std::string &name)
{
    uint32_t bank = 0;
    ranges_t ranges;
    if (name == "COMRAM")
        return {t.common};
    if (bank_number(name, bank)) {
        std::copy_if(t.banks.begin(), t.banks.end(), std::back_inserter(ranges),
                     [&](range_t r) { return r.lo >> 8 == bank; });
        return ranges;
    }
    if (name != "LINEAR")
        return t.banks;
    zl_reserve(ranges, t.common);   // joins what touches
    for (range_t r : t.banks)
        zl_reserve(ranges, r);
    return ranges;
}

zl_class zl_class_of(const zl_linker &l, const zl_group &g)
{
    const target_t &t = l.target;
    const uint32_t end = t.rom_size ? t.rom_size - 1 : 0;
    const std::string &name = g.class_name;
    if (const auto it = l.options.classes.find(name); it != l.options.classes.end() && !name.empty())
        return {it->second, false};
    const auto some = [](range_t r) { return r.hi ? ranges_t{r} : ranges_t{}; };
    if (g.space == ZL_DATA)
        return {data_ranges(t, name), false};
    if (name == "EEPROM")
        return {some(t.eeprom), false};
    if (g.space == ZL_CONFIG)
        return {some(t.config), false};
    if (g.space == ZL_IDLOC)
        return {some(t.idloc), false};
    if (g.space != ZL_PROGRAM)
        return {{{0, UINT32_MAX}}, false};
    if (name == "RESETVEC")
        return {{{0, end}}, true};
    if (name == "INTVEC")
        return {{{0x08, end}}, true};
    if (name == "INTVECLO")
        return {{{0x18, end}}, true};
    return {{{0, end}}, false};
}

// Units: a psect with those that follow it by `with`.

namespace
{

struct unit_t {
    std::vector<std::pair<zl_group *, uint64_t>> members;   // offset from the begin
    uint64_t size = 0, boundary = 1, limit = UINT64_MAX;
    zl_class cls{{}, false};
    bool fixed = false;
    uint64_t capacity = 0;   // bytes that it could choose from
};

}   // namespace

static void add_member(unit_t &u, zl_group &g)
{
    const uint64_t at = zl_rounded(u.size, g.boundary);
    u.members.push_back({&g, at});
    u.size = at + g.size;
    u.boundary = std::min(std::lcm(u.boundary, g.boundary), uint64_t{1} << 32);
    u.limit = std::min(u.limit, g.limit);
    g.placed = true;
}

static unit_t make_unit(const zl_linker &l, zl_group &root, const std::multimap<std::string, zl_group *> &followers)
{
    unit_t u;
    add_member(u, root);
    for (size_t i = 0; i < u.members.size(); i++) {
        const auto [from, to] = followers.equal_range(u.members[i].first->name);
        for (auto it = from; it != to; ++it)
            if (!it->second->placed && zl_memory(it->second->space) == zl_memory(root.space))
                add_member(u, *it->second);
    }
    u.cls = zl_class_of(l, root);
    if (const auto it = l.options.addresses.find(root.name); it != l.options.addresses.end()) {
        u.fixed = true;
        u.cls = {{{it->second, UINT32_MAX}}, true};
    }
    for (range_t &r : u.cls.ranges) {
        r.hi = static_cast<uint32_t>(std::min<uint64_t>(r.hi, u.limit));
        u.capacity += r.lo <= r.hi ? uint64_t{r.hi} - r.lo + 1 : 0;
    }
    return u;
}

static std::string shown(const ranges_t &ranges)
{
    std::string text;
    for (range_t r : ranges)
        text += zo_format("%s%X-%X", text.empty() ? "" : ",", r.lo, r.hi);
    return text;
}

static void complain_full(zl_linker &l, const unit_t &u, uint64_t largest)
{
    const zl_group &g = *u.members[0].first;
    const std::string class_name = g.class_name.empty() ? "" : " of class " + zl_quoted(g.class_name);
    std::string text =
        zo_format("psect %s%s, 0x%llX bytes%s, ", zl_quoted(g.name).c_str(), class_name.c_str(),
                  static_cast<unsigned long long>(u.size), u.members.size() > 1 ? " with those that lie with it" : "");
    const ranges_t &ranges = u.cls.ranges;
    if (ranges.empty())
        text += "has no memory on this chip: take another class, or give it one with --class=";
    else if (u.cls.at_start && ranges[0].lo % u.boundary)
        text += zo_format("can't begin at 0x%X, which isn't a multiple of its `reloc`", ranges[0].lo);
    else if (u.cls.at_start)
        text += zo_format("can't begin at 0x%X, where only 0x%llX bytes are free: see what lies there", ranges[0].lo,
                          static_cast<unsigned long long>(largest));
    else
        text +=
            zo_format("doesn't fit into %s, where the largest gap has 0x%llX bytes: make it smaller, take another class, "
                      "or give that one more memory with --class=",
                      shown(ranges).c_str(), static_cast<unsigned long long>(largest));
    zl_complain(l, *g.pieces[0], 0, text);
}

static void place_unit(zl_linker &l, const unit_t &u)
{
    ranges_t &used = l.used[zl_memory(u.members[0].first->space)];
    uint64_t best = UINT64_MAX, address = 0, largest = 0;
    for (range_t range : u.cls.ranges) {
        if (range.lo > range.hi)
            continue;
        const ranges_t gaps = u.size ? zl_gaps(used, range) : ranges_t{range};   // what is empty takes nobody's place
        for (range_t gap : gaps) {
            const uint64_t at = zl_rounded(gap.lo, u.boundary), room = uint64_t{gap.hi} - gap.lo + 1;
            if (u.cls.at_start && gap.lo != range.lo)
                continue;
            largest = std::max(largest, room);
            if (at + u.size > uint64_t{gap.hi} + 1 || room >= best || (u.cls.at_start && at != range.lo))
                continue;
            best = room;
            address = at;
        }
        if (u.cls.at_start)
            break;
    }
    if (best == UINT64_MAX) {
        for (const auto &[g, offset] : u.members)
            g->homeless = true;
        return complain_full(l, u, largest);
    }
    if (u.size)
        zl_reserve(used, {static_cast<uint32_t>(address), static_cast<uint32_t>(address + u.size - 1)});
    for (const auto &[g, offset] : u.members)
        g->address = address + offset;
}

static void reserve_absolute(zl_linker &l, zl_group &g)
{
    ranges_t &used = l.used[zl_memory(g.space)];
    g.placed = true;
    for (const zl_piece *p : g.pieces) {
        if (p->size > uint64_t{UINT32_MAX} + 1)
            zl_complain(l, *p, 0, "absolute psect " + zl_quoted(g.name) + " ends above the last address that there is");
        else if (g.space == ZL_DATA && p->low < p->size)   // `ds` leaves no bytes, so that only the bounds are known
            zl_reserve(used, {static_cast<uint32_t>(p->low), static_cast<uint32_t>(p->size - 1)});
        for (range_t text : p->texts)
            zl_reserve(used, text);
    }
    if (l.options.addresses.contains(g.name))
        zl_complain(l, "", "--psect=" + g.name + ": the psect is absolute, its addresses stand in the source");
}

// Whether something is at address 0 because it is meant to be.
static bool reset_is_told(const zl_linker &l, const std::vector<unit_t> &units)
{
    for (const zl_group *g : l.order)
        for (const zl_piece *p : g->pieces)
            if (g->absolute && g->space == ZL_PROGRAM && !p->texts.empty() && in_ranges(p->texts, 0))
                return true;
    return std::any_of(units.begin(), units.end(), [](const unit_t &u) {
        return u.cls.at_start && u.members[0].first->space == ZL_PROGRAM && u.cls.ranges[0].lo == 0;
    });
}

// Without a reset vector, the psect that begins with what a module's `end` names goes to address 0.
static void start_at_reset(const zl_linker &l, std::vector<unit_t> &units)
{
    for (const zl_module &m : l.modules)
        for (const zo_record &r : m.file->records) {
            const auto *start = std::get_if<zo_start>(&r.body);
            const auto it = start ? m.pieces.find(start->psect) : m.pieces.end();
            if (it == m.pieces.end() || start->offset != 0 || it->second.base != 0 || it->second.x.space != ZL_PROGRAM)
                continue;
            for (unit_t &u : units)
                if (u.members[0].first == it->second.group && !u.fixed && in_ranges(u.cls.ranges, 0)) {
                    u.cls.at_start = true;
                    return;
                }
        }
}

// A chip begins at address 0. Who lies there by choice is known; by chance, it is told.
static void check_reset(zl_linker &l, const std::vector<unit_t> &units)
{
    const zl_group *first = nullptr;
    size_t count = 0;
    for (const unit_t &u : units) {
        const zl_group &g = *u.members[0].first;
        if (g.space != ZL_PROGRAM || !u.size || g.homeless)
            continue;
        count++;
        if (g.address == 0 && !u.cls.at_start)
            first = &g;
    }
    if (first && count > 1)
        zl_complain(l, "",
                    "the chip starts at address 0, where psect " + zl_quoted(first->name) +
                        " came to lie: give the psect that is to be there the class RESETVEC",
                    true);
}

void zl_place(zl_linker &l)
{
    std::multimap<std::string, zl_group *> followers;   // by what they lie with
    std::set<std::string> names;
    for (zl_group *g : l.order) {
        names.insert(g->name);
        if (g->absolute)
            reserve_absolute(l, *g);
        else if (!g->with.empty() && g->with != g->name)
            followers.emplace(g->with, g);
    }
    for (const auto &[name, address] : l.options.addresses)
        if (!names.contains(name))
            zl_complain(l, "", "--psect=" + name + ": no module has such a psect");
    std::vector<unit_t> units;
    for (int wave = 0; wave < 2; wave++)   // those that lie with a psect that is nowhere, absolute, or in a circle come last
        for (zl_group *g : l.order)
            if (!g->placed && (wave == 1 || g->with.empty() || g->with == g->name))
                units.push_back(make_unit(l, *g, followers));
    if (!reset_is_told(l, units))
        start_at_reset(l, units);
    std::stable_sort(units.begin(), units.end(), [](const unit_t &a, const unit_t &b) {
        const auto key = [](const unit_t &u) { return std::tuple(!u.fixed, !u.cls.at_start, u.capacity, ~u.size); };
        return key(a) < key(b);
    });
    for (const unit_t &u : units)
        place_unit(l, u);
    check_reset(l, units);
}
