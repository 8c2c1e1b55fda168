// calls: the call graph, and areas of functions that are never alive together.
//
// Functions that reach each other are one knot of the graph. A call inside of a knot is recursion, a jump only a loop; both are
// left out where depths are counted, so that those of recursive functions are the least that they need.
//
// A compiler leaves the places of arguments and locals to the linker: FNCONF names the psect, and two prefixes that make the name
// of a function's locals and of its arguments of the function's own; FNSIZE tells how large they are. An area begins behind those
// of all functions that may be alive then: of those that call it, of those whose arguments it helps to work out (FNARG), and, in
// an interrupt, of all that it may interrupt. So two functions share memory only if neither leads to the other.
#include <algorithm>

#include "zellink.h"

using node_t = uint32_t;   // the number of a function, in order of addresses

namespace
{

struct graph_t {
    std::vector<const zl_function *> functions;
    std::map<uint32_t, node_t> number;
    std::vector<std::vector<node_t>> to, from;
    std::vector<node_t> callers_first;   // outside of knots
    std::vector<node_t> knot;            // the same for those that reach each other
};

}   // namespace

static void add_edge(graph_t &g, node_t a, node_t b)
{
    g.to[a].push_back(b);
    g.from[b].push_back(a);
}

// Appends the nodes that `start` reaches and that aren't in `seen`, each behind those that it leads to.
static void post_order(const std::vector<std::vector<node_t>> &to, node_t start, std::vector<bool> &seen,
                       std::vector<node_t> &order)
{
    std::vector<std::pair<node_t, size_t>> open;
    if (!seen[start])
        open.push_back({start, 0});
    seen[start] = true;
    while (!open.empty()) {
        auto &[at, next] = open.back();
        if (next == to[at].size()) {
            order.push_back(at);
            open.pop_back();
        } else if (const node_t other = to[at][next++]; !seen[other]) {
            seen[other] = true;
            open.push_back({other, 0});
        }
    }
}

static graph_t make_graph(const zl_flow &f)
{
    graph_t g;
    for (const auto &[entry, fn] : f.functions) {
        g.number[entry] = static_cast<node_t>(g.functions.size());
        g.functions.push_back(&fn);
    }
    g.to.resize(g.functions.size());
    g.from.resize(g.functions.size());
    for (node_t i = 0; i < g.functions.size(); i++)
        for (const zl_call &c : g.functions[i]->calls)
            add_edge(g, i, g.number.at(c.to));
    return g;
}

static void find_knots(graph_t &g)
{
    const size_t n = g.functions.size();
    std::vector<bool> seen(n), back(n);
    for (node_t i = 0; i < n; i++)
        post_order(g.to, i, seen, g.callers_first);
    std::reverse(g.callers_first.begin(), g.callers_first.end());
    g.knot.resize(n);
    for (node_t i : g.callers_first) {
        std::vector<node_t> members;
        post_order(g.from, i, back, members);
        for (node_t m : members)
            g.knot[m] = i;
    }
}

static std::vector<node_t> reached_from(const graph_t &g, node_t start)
{
    std::vector<bool> seen(g.functions.size());
    std::vector<node_t> order;
    post_order(g.to, start, seen, order);
    return order;
}

// The stack: return addresses that each function needs beside its own.
static std::vector<unsigned> depths(const graph_t &g)
{
    std::vector<unsigned> depth(g.functions.size());
    for (bool changed = true; changed;) {
        changed = false;
        for (auto it = g.callers_first.rbegin(); it != g.callers_first.rend(); ++it) {
            unsigned most = 0;
            for (const auto &[at, pushed] : g.functions[*it]->code)
                most = std::max(most, pushed);
            for (const zl_call &c : g.functions[*it]->calls)
                if (const node_t to = g.number.at(c.to); g.knot[to] != g.knot[*it])
                    most = std::max(most, c.pushed + !c.jump + depth[to]);
            changed = changed || most != depth[*it];
            depth[*it] = most;
        }
    }
    return depth;
}

static void complain_at(zl_linker &l, const zl_flow &f, uint32_t at, const std::string &text)
{
    if (const zl_piece *const p = at < f.owner.size() ? f.owner[at] : nullptr)
        zl_complain(l, *p, at - zl_address(*p), text, true);
    else
        zl_complain(l, "", text, true);
}

// Tells each knot that has a call in it, once; gives back whether there is one.
static bool tell_recursion(zl_linker &l, const zl_flow &f, const graph_t &g, const std::string &consequence)
{
    std::set<node_t> told;
    for (node_t i = 0; i < g.functions.size(); i++)
        for (const zl_call &c : g.functions[i]->calls)
            if (!c.jump && g.knot[g.number.at(c.to)] == g.knot[i] && told.insert(g.knot[i]).second)
                complain_at(l, f, c.at,
                            "recursion: " + g.functions[i]->name + " calls " + f.functions.at(c.to).name +
                                (c.to == g.functions[i]->entry ? "" : ", which leads back to it") + ": " + consequence);
    return !told.empty();
}

// Printing.

static std::string tree(const graph_t &g, const std::vector<unsigned> &depth, node_t root)
{
    struct line_t {
        node_t node;
        unsigned indent;
        bool jump;
    };
    std::string out;
    std::vector<bool> shown(g.functions.size());
    std::vector<line_t> open{{root, 1, false}};
    while (!open.empty()) {
        const line_t line = open.back();
        open.pop_back();
        const zl_function &fn = *g.functions[line.node];
        const std::string name =
            std::string(2 * std::min<size_t>(line.indent, 40), ' ') + (line.jump ? "-> " : "") + fn.name;
        out += zo_format("%-40s %6u bytes  stack %u%s\n", name.c_str(), fn.bytes, depth[line.node],
                         shown[line.node] && !fn.calls.empty() ? ", as above" : "");
        if (shown[line.node])
            continue;
        shown[line.node] = true;
        std::set<uint32_t> listed;
        std::vector<line_t> lines;
        for (const zl_call &c : fn.calls)
            if (listed.insert(c.to).second)
                lines.push_back({g.number.at(c.to), line.indent + 1, c.jump});
        open.insert(open.end(), lines.rbegin(), lines.rend());
    }
    return out;
}

std::string zl_call_graph(zl_linker &l, const zl_flow &f)
{
    graph_t g = make_graph(f);
    find_knots(g);
    const std::vector<unsigned> depth = depths(g);
    std::string out = "\nCall graph\n", sum;
    unsigned most = 0, all = 0;
    std::vector<unsigned> interrupts;   // what each needs
    for (const zl_root &r : f.roots) {
        const node_t node = g.number.at(r.entry);
        unsigned bytes = 0;
        for (node_t i : reached_from(g, node))
            bytes += g.functions[i]->bytes;
        const unsigned need = depth[node] + r.interrupt;   // an interrupt puts the place to which it returns there, too
        if (r.interrupt)
            interrupts.push_back(need);
        else
            most = std::max(most, need);
        out += zo_format("\n%s: %u bytes, stack %u\n", r.what.c_str(), bytes, need) + tree(g, depth, node);
    }
    // One of each priority may run at a time.
    std::sort(interrupts.rbegin(), interrupts.rend());
    for (size_t i = 0; i < interrupts.size() && i < 2; i++)
        all += interrupts[i];
    const bool recursive = tell_recursion(l, f, g, "no depth of the stack is sure to be enough");
    out += zo_format("\nStack: main %u and interrupts %u%s, of %u\n", most, all, recursive ? " at least" : "",
                     l.target.stack_depth);
    if (most + all > l.target.stack_depth)
        zl_complain(
            l, "",
            zo_format("the stack may overflow: main needs %u return addresses and the interrupts %u, the chip has %u: "
                      "call less deep",
                      most, all, l.target.stack_depth),
            true);
    return out;
}

// Areas.

static void each_info(const zl_linker &l, uint8_t subcode, const auto &use)
{
    for (const zl_module &m : l.modules)
        for (const zo_record &r : m.file->records)
            if (const auto *info = std::get_if<zo_fninfo>(&r.body))
                for (const zo_fninfo_entry &e : info->entries)
                    if (e.subcode == subcode)
                        use(m, e);
}

static std::set<std::string_view> names_used(const zl_linker &l)
{
    std::set<std::string_view> used;
    for (const zl_module &m : l.modules)
        for (const zo_record &r : m.file->records) {
            if (const auto *relocs = std::get_if<zo_reloc>(&r.body))
                for (const zo_reloc_entry &e : relocs->entries)
                    zl_each_symbol_used(e, [&](const std::string &name) { used.insert(name); });
            else if (const auto *sym = std::get_if<zo_sym>(&r.body))
                for (const zo_symbol &s : sym->symbols)
                    if (s.flags == ZO_S_ALIAS)
                        used.insert(s.psect);
        }
    return used;
}

zl_areas zl_wanted_areas(zl_linker &l)
{
    zl_areas areas{"", "", "", {}, 0};
    const zl_module *first = nullptr;
    for (const zl_module &m : l.modules)
        for (const zo_record &r : m.file->records) {
            const auto *conf = std::get_if<zo_fnconf>(&r.body);
            if (!conf)
                continue;
            if (first && (areas.psect != conf->names[0] || areas.locals_prefix != conf->names[1] ||
                          areas.arguments_prefix != conf->names[2]))
                zl_complain(l, m.name, "`fnconf` has other names in " + first->name + ": both have to say the same");
            else if (!first)
                areas = {conf->names[0], conf->names[1], conf->names[2], {}, 0};
            first = first ? first : &m;
        }
    if (!first || areas.psect.empty())
        return areas;
    const std::set<std::string_view> used = names_used(l);
    std::map<std::string_view, size_t> known;
    each_info(l, ZO_FNSIZE, [&](const zl_module &m, const zo_fninfo_entry &e) {
        const auto wanted = [&](const std::string &name) { return used.contains(name) && !zl_find(l, m, name); };
        if (!wanted(areas.locals_prefix + e.function) && !wanted(areas.arguments_prefix + e.function))
            return;
        const auto [it, fresh] = known.try_emplace(e.function, areas.functions.size());
        if (fresh)
            areas.functions.push_back({e.function, &m, 0, 0, 0});
        zl_area &a = areas.functions[it->second];
        a.arguments = std::max(a.arguments, std::min(e.number, 0xFFFFu));   // what the directive allows
        a.locals = std::max(a.locals, std::min(e.autosize, 0xFFFFu));
    });
    return areas;
}

namespace
{

// Begins and ends of areas by function. A function that is reached again, behind more than before, moves up with all it leads to.
struct layout_t {
    const graph_t &g;
    std::vector<uint64_t> size, start;   // of an area
    uint64_t end = 0;                    // of all so far
};

}   // namespace

// Places what `root` reaches at `base` and above.
static void lay(layout_t &y, node_t root, uint64_t base)
{
    const graph_t &g = y.g;
    std::vector<bool> reached(g.functions.size());
    std::vector<node_t> order;
    post_order(g.to, root, reached, order);
    std::map<node_t, uint64_t> knot_end;
    std::map<node_t, std::vector<node_t>> knots;
    for (node_t i : order)
        knots[g.knot[i]].push_back(i);
    for (node_t k : g.callers_first) {
        const auto it = knots.find(k);
        if (it == knots.end())
            continue;
        uint64_t at = base;
        for (node_t i : it->second) {
            at = std::max(at, y.start[i]);
            for (node_t caller : g.from[i])
                if (g.knot[caller] != k && reached[caller])   // what another root leads to has its place, or gets it later
                    at = std::max(at, y.start[caller] + y.size[caller]);
        }
        for (node_t i : it->second) {   // those of a knot lie side by side
            y.start[i] = at;
            at += y.size[i];
        }
        y.end = std::max(y.end, at);
    }
}

void zl_overlay(zl_linker &l, zl_areas &areas, const zl_flow &f)
{
    graph_t g = make_graph(f);
    each_info(f.l, ZO_FNARG, [&](const zl_module &m, const zo_fninfo_entry &e) {
        uint32_t a = 0, b = 0;
        if (zl_function_address(f, m, e.function, a) && zl_function_address(f, m, e.name, b) && a != b)
            add_edge(g, g.number.at(a), g.number.at(b));
    });
    find_knots(g);
    layout_t y{g, std::vector<uint64_t>(g.functions.size()), std::vector<uint64_t>(g.functions.size())};
    std::map<size_t, node_t> node_of;
    std::set<node_t> with_area;
    for (size_t i = 0; i < areas.functions.size(); i++) {
        const zl_area &a = areas.functions[i];
        uint32_t at = 0;
        for (const zl_module &m : f.l.modules)   // those of the draft
            if (m.name == a.module->name && m.file == a.module->file && zl_function_address(f, m, a.function, at)) {
                node_of[i] = g.number.at(at);
                with_area.insert(node_of[i]);
                y.size[node_of[i]] = uint64_t{a.arguments} + a.locals;
            }
    }
    const bool sound = !zl_failed(f.l);   // else nobody knows where calls lead
    std::set<node_t> all;
    for (const zl_root &r : f.roots) {
        const std::vector<node_t> nodes = reached_from(g, g.number.at(r.entry));
        for (node_t i : nodes)
            if (r.interrupt && all.contains(i) && with_area.contains(i) && sound)
                zl_complain(l, "",
                            "function " + g.functions[i]->name + " is called from " + r.what +
                                " and from what that may interrupt, but has one area for both: make a copy of it",
                            true);
        lay(y, g.number.at(r.entry), all.empty() ? 0 : y.end);   // a root may be alive with any other
        all.insert(nodes.begin(), nodes.end());
    }
    for (node_t i : g.callers_first)   // called by nobody that is known, and so at any time
        if (!all.contains(i)) {
            lay(y, i, y.end);
            const std::vector<node_t> nodes = reached_from(g, i);
            all.insert(nodes.begin(), nodes.end());
        }
    std::set<node_t> knots;
    for (node_t i : sound ? with_area : std::set<node_t>{})
        for (const zl_call &c : g.functions[i]->calls)
            if (!c.jump && g.knot[g.number.at(c.to)] == g.knot[i] && knots.insert(g.knot[i]).second)
                complain_at(l, f, c.at, "recursion: " + g.functions[i]->name + " may be called while its area is in use");
    for (auto &[i, node] : node_of)
        areas.functions[i].start = y.start[node];
    for (size_t i = 0; i < areas.functions.size(); i++) {
        zl_area &a = areas.functions[i];
        if (!node_of.contains(i)) {   // no code of it is linked
            a.start = y.end;
            y.end += uint64_t{a.arguments} + a.locals;
        }
        areas.size = std::max(areas.size, a.start + a.arguments + a.locals);
    }
}

void zl_add_areas(zl_linker &l, const zl_areas &areas)
{
    static const zo_file none;
    l.modules.push_back({"areas of functions", "", &none, {}, {}, {}});
    zl_module &m = l.modules.back();
    zl_piece &p = m.pieces[areas.psect];
    p.flags = ZO_F_GLOBAL;
    p.x.space = ZL_DATA;
    for (const zl_module &other : l.modules)
        if (const auto it = other.pieces.find(areas.psect); &other != &m && it != other.pieces.end()) {
            p.x = it->second.x;
            p.flags = it->second.flags | ZO_F_GLOBAL;
        }
    p.x.name = areas.psect;
    p.module = &m;
    p.low = 0;
    p.size = areas.size;
    m.order.push_back(&p);
    if (p.absolute() || p.x.space != ZL_DATA)
        zl_complain(l, "",
                    "psect " + zl_quoted(areas.psect) + ", which `fnconf` names, has to be relocatable and in space 1");
    const auto define = [&](const std::string &name, uint64_t at) {
        l.names.push_back(name);
        l.globals.try_emplace(l.names.back(), zl_symbol{l.names.back(), &p, static_cast<int64_t>(at), nullptr, &m, true});
    };
    for (const zl_area &a : areas.functions) {
        define(areas.arguments_prefix + a.function, a.start);
        define(areas.locals_prefix + a.function, a.start + a.arguments);
    }
}
