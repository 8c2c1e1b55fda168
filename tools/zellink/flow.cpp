// flow: the linked code of program memory, taken apart into functions.
//
// A function begins where the chip starts, at an interrupt's vector, where a call leads, and where the records of the objects
// name one. What it consists of is what control reaches from there without a call; a jump into another function is a call from
// which control doesn't come back here. Instructions are decoded where control comes by, and nowhere else, since nothing tells
// data from code; a computed jump is taken to lead to the branches and `retlw` behind it, as in a table, or to nowhere known.
//
// Vectors are at 0x08 and 0x18, or, with a table of them, each source has its own. There is a handler only if a psect is meant to
// be there, by its class, as an absolute one or by an option, and the code that runs from reset doesn't just pass through it.
// Tables are seldom full, so that an entry has to begin with a jump or a return. Their place is that after reset, if no option
// tells another.
#include <algorithm>

#include "zellink.h"

static bool is(const zo_code &c, std::initializer_list<std::string_view> names)
{
    return c.name && std::find(names.begin(), names.end(), c.name) != names.end();
}

zo_code zl_code_at(const zl_flow &f, uint32_t at)
{
    const zo_code none{nullptr, ZO_PLAIN, 1, 0, 0, false, false, false};
    if (at % 2 || uint64_t{at} + 2 > f.bytes.size() || !f.owner[at] || !f.owner[at + 1])
        return none;
    const zo_code c = zo_decode(std::span(f.bytes).subspan(at), at, f.l.target.wide);
    // A skip leads into a longer instruction; its other words do nothing.
    return !c.name && f.bytes[at + 1] >> 4 == 0xF ? zo_code{"nop", ZO_PLAIN, 1, 0, 0, false, false, false} : c;
}

uint32_t zl_access_address(const target_t &t, const zo_code &c)
{
    if (c.banked || (c.form != ZO_FILE_ACC && c.form != ZO_FILE_DEST && c.form != ZO_FILE_BIT))
        return UINT32_MAX;
    const uint32_t half = c.a <= (t.common.hi & 255u) ? t.common.hi : t.sfr_common.hi;   // memory needn't begin at 0
    return (half & ~255u) | c.a;
}

static bool writes_pcl(const target_t &t, const zo_code &c)
{
    const uint32_t pcl = target_sfr(t, "PCL");
    if (c.form == ZO_MOVFF || c.form == ZO_MOVFFL || c.form == ZO_MOVSF || c.form == ZO_MOVSFL)
        return c.b == pcl;
    return zl_access_address(t, c) == pcl && (c.form == ZO_FILE_DEST ? c.file : is(c, {"movwf", "clrf", "setf", "negf"}));
}

// What follows a computed jump, as far as it is a table of jumps or values.
static std::vector<uint32_t> table_behind(const zl_flow &f, uint32_t at)
{
    std::vector<uint32_t> rows;
    for (zo_code c; c = zl_code_at(f, at), is(c, {"bra", "goto", "retlw", "return"}); at += 2 * c.words)
        rows.push_back(at);
    return rows;
}

zl_next zl_next_of(const zl_flow &f, uint32_t at, const zo_code &c)
{
    zl_next n;
    const uint32_t next = at + 2 * c.words;
    if (writes_pcl(f.l.target, c)) {
        n.to = table_behind(f, next);
        n.computed = true;
    } else if (c.form == ZO_GOTO || is(c, {"bra"})) {
        n.to = {c.a};
    } else if (is(c, {"return", "retfie", "retlw", "tret", "addulnk", "subulnk"})) {
        n.returns = true;
    } else if (!is(c, {"reset", "halt"})) {
        n.to = {next};
        n.computed = is(c, {"callw"});
        n.calls = c.form == ZO_CALL || is(c, {"rcall"});
        n.callee = n.calls ? c.a : 0;
        if (c.form == ZO_REL8)
            n.to.push_back(c.a);
        else if (is(c, {"cpfslt", "cpfseq", "cpfsgt", "tstfsz", "decfsz", "incfsz", "infsnz", "dcfsnz", "btfss", "btfsc"}))
            n.to.push_back(next + 2);
    }
    return n;
}

// The image.

static void take_bytes(zl_flow &f)
{
    f.bytes.assign(f.l.target.rom_size, 0xFF);
    f.owner.assign(f.l.target.rom_size, nullptr);
    for (const auto &[number, page] : f.l.image)
        for (uint32_t i = 0; i < page.bytes.size(); i++)
            if (const uint64_t at = uint64_t{number} * 256 + i; page.owner[i] && at < f.bytes.size()) {
                f.bytes[at] = page.bytes[i];
                f.owner[at] = page.owner[i];
            }
    const auto note = [&](const zl_symbols &table) {
        for (const auto &[name, s] : table) {
            zl_sum sum{};
            zl_piece *p = nullptr;
            if (!zl_symbol_value(f.l, s, sum, &p) || !p || !p->live || p->x.space != ZL_PROGRAM || sum.value < 0)
                continue;
            std::string &known = f.names[static_cast<uint32_t>(static_cast<uint64_t>(sum.value) * p->x.delta)];
            if (known.empty() || name < known)   // the same one, whatever the order of the table
                known = name;
        }
    };
    note(f.l.globals);
    for (const zl_module &m : f.l.modules)
        note(m.locals);
}

std::string zl_place_name(const zl_flow &f, uint32_t at)
{
    auto it = f.names.upper_bound(at);
    if (it == f.names.begin() || at >= f.owner.size() || (--it)->first >= f.owner.size() ||
        f.owner[it->first] != f.owner[at])
        return zo_format("0x%X", at);
    return it->second + (it->first == at ? "" : zo_format("+0x%X", at - it->first));
}

// Functions.

// A private label isn't in the object: the line tells more than how far it is from another one.
static std::string function_name(const zl_flow &f, uint32_t at)
{
    const zl_piece *const p = at < f.owner.size() && !f.names.contains(at) ? f.owner[at] : nullptr;
    const std::string line = p ? zl_line_of(*p, at - zl_address(*p)) : "";
    return zl_place_name(f, at) + (line.empty() ? "" : " (" + line + ")");
}

// Whether code at an address is meant for a vector, or a table of them, that begins at `vector`.
static bool meant_for(const zl_flow &f, uint32_t at, uint32_t vector, const char *class_name)
{
    if (at >= f.owner.size() || !f.owner[at])
        return false;
    const zl_piece &p = *f.owner[at];
    const bool told = p.group->class_name == class_name || f.l.options.addresses.contains(p.x.name);
    return p.absolute() || (told && p.group->address == vector);
}

static bool switched_on(const zl_linker &l, const std::string &setting)
{
    const auto bits = l.target.switches.find(setting);
    if (bits == l.target.switches.end())
        return false;
    const auto page = l.image.find(bits->second.address / 256);
    const uint32_t at = bits->second.address % 256;
    return page != l.image.end() && page->second.owner[at] &&
           (page->second.bytes[at] & bits->second.mask) == bits->second.on;
}

// Where a handler may begin.
static std::vector<zl_root> handlers(const zl_flow &f)
{
    const target_t &t = f.l.target;
    std::vector<zl_root> all;
    if (!f.vector_table) {
        static const std::pair<uint32_t, const char *> vectors[] = {{0x08, "INTVEC"}, {0x18, "INTVECLO"}};
        for (const auto &[vector, class_name] : vectors)
            if (meant_for(f, vector, vector, class_name))
                all.push_back({vector, zo_format("interrupt at 0x%X", vector), true});
        return all;
    }
    const uint32_t ENTRY_BYTES = 4, table = f.l.options.vectors_at.value_or(t.vectors_reset[0] | t.vectors_reset[1] << 8 |
                                                                            t.vectors_reset[2] << 16);
    for (const auto &[source, number] : t.sources) {
        const uint32_t at = table + number * ENTRY_BYTES;
        if (meant_for(f, at, table, "INTVEC") && is(zl_code_at(f, at), {"goto", "bra", "retfie"}))
            all.push_back({at, zo_format("interrupt %s at 0x%X", source.c_str(), at), true});
    }
    std::sort(all.begin(), all.end(), [](const zl_root &a, const zl_root &b) { return a.entry < b.entry; });
    return all;
}

bool zl_function_address(const zl_flow &f, const zl_module &m, const std::string &name, uint32_t &address)
{
    const zl_symbol *const s = zl_find(f.l, m, name);
    zl_sum sum{};
    zl_piece *p = nullptr;
    if (!s || !zl_symbol_value(f.l, *s, sum, &p) || !p || !p->live || p->x.space != ZL_PROGRAM || sum.value < 0 ||
        static_cast<uint64_t>(sum.value) * p->x.delta >= f.bytes.size())
        return false;
    address = static_cast<uint32_t>(sum.value) * p->x.delta;
    return true;
}

using edges_t = std::set<std::pair<uint32_t, uint32_t>>;

namespace
{

struct records_t {
    std::set<uint32_t> functions, roots, pointed;
    edges_t calls, breaks;
    std::map<uint32_t, uint16_t> signatures;
    std::set<std::pair<uint32_t, uint32_t>> indirect;   // function, signature
};

}   // namespace

static records_t read_records(const zl_flow &f)
{
    records_t r;
    for (const zl_module &m : f.l.modules)
        for (const zo_record &record : m.file->records) {
            uint32_t a = 0, b = 0;
            if (const auto *s = std::get_if<zo_signat>(&record.body); s && zl_function_address(f, m, s->name, a))
                r.signatures[a] = s->signature;
            const auto *info = std::get_if<zo_fninfo>(&record.body);
            for (const zo_fninfo_entry &e : info ? info->entries : std::vector<zo_fninfo_entry>{}) {
                if (!zl_function_address(f, m, e.function, a))
                    continue;
                r.functions.insert(a);
                const bool other = !e.name.empty() && zl_function_address(f, m, e.name, b);
                switch (e.subcode) {
                case ZO_FNROOT: r.roots.insert(a); break;
                case ZO_FNADDR: r.pointed.insert(a); break;
                case ZO_FNINDIR: r.indirect.emplace(a, e.number); break;
                case ZO_FNCALL:
                case ZO_FNBREAK:
                    if (other)
                        (e.subcode == ZO_FNCALL ? r.calls : r.breaks).emplace(a, b);
                    break;
                }
                if (other)
                    r.functions.insert(b);
            }
        }
    for (const auto &[function, signature] : r.indirect)
        for (uint32_t to : r.pointed)
            if (const auto it = r.signatures.find(to); it != r.signatures.end() && it->second == signature)
                r.calls.emplace(function, to);
    return r;
}

// The stack inside a function: `push` and `pop` count. The deepest way to each instruction is kept; what grows in a circle
// ends at the chip's depth.
static void take_function(zl_flow &f, zl_function &fn, const edges_t &breaks, const std::set<uint32_t> &entries)
{
    std::vector<uint32_t> open{fn.entry};
    fn.code[fn.entry] = 0;
    std::map<uint32_t, zl_call> jumps, calls;
    while (!open.empty()) {
        const uint32_t at = open.back();
        open.pop_back();
        const zo_code c = zl_code_at(f, at);
        unsigned depth = fn.code[at];
        if (!c.name) {
            fn.code.erase(at);
            continue;
        }
        const zl_next n = zl_next_of(f, at, c);
        const bool grows = is(c, {"push"}) && depth < f.l.target.stack_depth;
        if (n.calls && !breaks.contains({fn.entry, n.callee}))
            calls[at] = {n.callee, at, depth, false, false};
        depth = is(c, {"pop"}) ? depth - (depth != 0) : depth + grows;
        for (uint32_t to : n.to)
            if (entries.contains(to) && to != fn.entry) {
                if (!breaks.contains({fn.entry, to}))
                    jumps[at] = {to, at, depth, true, false};
            } else if (const auto [it, fresh] = fn.code.try_emplace(to, depth); fresh || it->second < depth) {
                it->second = depth;
                open.push_back(to);
            }
    }
    for (const auto &[at, depth] : fn.code)
        fn.bytes += 2 * zl_code_at(f, at).words;
    for (const auto &list : {calls, jumps})
        for (const auto &[at, call] : list)
            fn.calls.push_back(call);
    std::sort(fn.calls.begin(), fn.calls.end(), [](const zl_call &a, const zl_call &b) { return a.at < b.at; });
}

zl_flow zl_take_apart(const zl_linker &l)
{
    zl_flow f{l};
    take_bytes(f);
    const records_t records = read_records(f);
    std::set<uint32_t> entries = records.functions, passed;
    f.pointed = records.pointed;
    const auto survey = [&](uint32_t from) {
        entries.insert(from);
        zl_walk(
            f, from, true,
            [&](uint32_t at, const zo_code &c, const zl_next &n) {
                for (uint32_t i = 0; i < c.words; i++)
                    passed.insert(at + 2 * i);
                if (n.calls)
                    entries.insert(n.callee);
            },
            [](uint32_t) { return false; });
    };
    if (!f.owner.empty() && f.owner[0]) {
        survey(0);
        f.roots.push_back({0, "main", false});
    } else if (l.has_start && l.start < f.owner.size()) {
        survey(l.start);
        f.roots.push_back({l.start, "main", false});
    }
    f.vector_table = l.options.vectors || switched_on(l, l.target.vectors_setting);
    for (const zl_root &handler : handlers(f))
        if (!passed.contains(handler.entry)) {
            survey(handler.entry);
            f.roots.push_back(handler);
        }
    const std::set<uint32_t> run = passed;
    for (uint32_t at : records.functions)
        survey(at);
    for (uint32_t at : entries) {
        zl_function &fn = f.functions[at];
        fn.entry = at;
        const zo_code first = zl_code_at(f, at);   // a vector goes by the name of what it leads to
        const bool vector = first.form == ZO_GOTO && !f.names.contains(at);
        fn.name = vector && entries.contains(first.a) ? "vector" : function_name(f, vector ? first.a : at);
        take_function(f, fn, records.breaks, entries);
    }
    for (const auto &[from, to] : records.calls) {
        zl_function &fn = f.functions[from];
        const bool seen = std::any_of(fn.calls.begin(), fn.calls.end(), [to = to](const zl_call &c) { return c.to == to; });
        if (!seen && !records.breaks.contains({from, to}))
            fn.calls.push_back({to, from, 0, false, true});
    }
    for (uint32_t at : records.roots)
        if (!run.contains(at))
            f.roots.push_back({at, "root", false});
    return f;
}
