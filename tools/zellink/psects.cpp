// psects: what modules give of a psect, joined.
//
// Pieces of a global psect are laid one behind the other in the order of the modules, or on top of each other if it is
// `ovrld`; a local psect has only the one piece. In an absolute psect every offset is an address. The modules have to agree on
// what the psect is: what one leaves open, another may tell.
#include <algorithm>
#include <filesystem>
#include <numeric>

#include "zellink.h"

uint64_t zl_rounded(uint64_t at, uint64_t boundary) { return (at + boundary - 1) / boundary * boundary; }

static zl_piece &piece(zl_module &m, const std::string &name)
{
    const auto [it, made] = m.pieces.try_emplace(name);
    if (made) {
        it->second.module = &m;
        it->second.x.name = name;
        m.order.push_back(&it->second);
    }
    return it->second;
}

static void cover(zl_piece &p, uint64_t lo, uint64_t end)
{
    if (lo < end)
        p.low = std::min(p.low, lo);
    p.size = std::max(p.size, end);
}

static void collect_text(zl_piece &p, const zo_text &text)
{
    const uint64_t end = uint64_t{text.offset} + text.data.size();
    if (text.data.empty())
        return cover(p, p.absolute() ? end : 0, end);
    cover(p, text.offset, end);
    if (end <= uint64_t{UINT32_MAX} + 1) {   // else it doesn't fit anywhere, which placing tells
        if (!p.texts.empty() && uint64_t{p.texts.back().hi} + 1 == text.offset)
            p.texts.back().hi = static_cast<uint32_t>(end - 1);
        else
            p.texts.push_back({text.offset, static_cast<uint32_t>(end - 1)});
    }
}

namespace
{

// A condition that the assembler left open, with the place where it stands.
struct condition_t {
    const zl_piece *piece;
    uint64_t offset;
    const zo_expr *condition;
};

}   // namespace

static void collect_line(zl_piece &p, const zo_symbol &s, const std::string *file)
{
    p.lines.push_back({uint64_t{s.value} * p.x.delta, file, &s.name});
}

// A file of the installation may be told relative to that, and the same entry stands for what isn't there.
static const std::string *file_name(zl_linker &l, const zo_symbol &s)
{
    const std::filesystem::path whole = std::filesystem::path(l.options.installation) / s.name;
    std::error_code ignored;
    const bool there = s.value == ZO_FILE_RELATIVE && !l.options.installation.empty() && !s.name.starts_with('/') &&
                       std::filesystem::exists(whole, ignored);
    return there ? &l.names.emplace_back(whole) : &s.name;
}

void zl_collect(zl_linker &l, zl_module &m)
{
    const std::string *file = nullptr;
    const zl_piece *last = nullptr;   // whose bytes came last
    std::vector<condition_t> conditions;
    for (const zo_record &r : m.file->records) {
        if (const auto *psect = std::get_if<zo_psect>(&r.body)) {
            piece(m, psect->name).flags |= psect->flags;
        } else if (const auto *x = std::get_if<zo_xpsect>(&r.body)) {
            zl_piece &p = piece(m, x->name);
            p.x = *x;
            p.x.delta = std::max<uint8_t>(x->delta, 1);
            p.x.reloc = std::max<uint16_t>(x->reloc, 1);
        } else if (const auto *limit = std::get_if<zo_psectlim>(&r.body)) {
            piece(m, limit->name).limit = limit->limit;
        } else if (const auto *bound = std::get_if<zo_psectbound>(&r.body)) {
            cover(piece(m, bound->name), bound->base, bound->top);
        } else if (const auto *text = std::get_if<zo_text>(&r.body)) {
            zl_piece &p = piece(m, text->psect);
            collect_text(p, *text);
            last = &p;
        } else if (const auto *sym = std::get_if<zo_sym>(&r.body)) {
            for (const zo_symbol &s : sym->symbols)
                if (s.flags == ZO_S_FILE)
                    file = file_name(l, s);
                else if (s.flags == ZO_S_LINE)
                    collect_line(piece(m, s.psect), s, file);
        } else if (const auto *dabs = std::get_if<zo_dabs>(&r.body)) {
            for (const zo_dabs_entry &e : dabs->entries)
                if (e.size)
                    zl_reserve(l.used[zl_memory(e.space)],
                               {e.address,
                                static_cast<uint32_t>(std::min<uint64_t>(uint64_t{e.address} + e.size - 1, UINT32_MAX))});
        } else if (const auto *cond = std::get_if<zo_cond_expr>(&r.body)) {
            conditions.push_back({last, last ? last->size : 0, &cond->condition});
        }
    }
    for (const condition_t &c : conditions) {
        std::string where = m.name;
        if (c.piece)   // the first line at the place: what follows the condition stands there, too
            for (auto line = c.piece->lines.rbegin(); line != c.piece->lines.rend(); ++line)
                if (line->offset == c.offset && line->file)
                    where = *line->file + ":" + *line->line;
        zl_complain(l, where,
                    "the condition " + zo_infix(*c.condition) +
                        " was left to the linker, which can't tell its arms "
                        "apart: give its symbols a value in the source (" +
                        m.name + ")");
    }
}

// A property that all pieces have to share: the first that tells it counts.
template <typename T>
static void agree(zl_linker &l, const zl_piece &p, T &of_group, const T &of_piece, const T &untold, const char *what)
{
    if (of_piece == untold || of_piece == of_group)
        return;
    if (of_group == untold)
        of_group = of_piece;
    else
        zl_complain(l, p.module->name,
                    "psect " + zl_quoted(p.x.name) + " has another " + what + " in " + p.group->pieces[0]->module->name +
                        ": both have to say the same");
}

static void add_piece(zl_linker &l, zl_group &g, zl_piece &p)
{
    const bool first = g.pieces.empty();
    p.group = &g;
    if (first) {
        g.name = p.x.name;
        g.space = p.x.space;
        g.delta = p.x.delta;
        g.absolute = p.absolute();
        g.overlaid = p.flags & ZO_F_OVRLD;
    }
    g.pieces.push_back(&p);
    const auto differs = [&](bool is, const char *what) {
        if (is)
            zl_complain(l, p.module->name,
                        "psect " + zl_quoted(g.name) + " has another " + what + " in " + g.pieces[0]->module->name +
                            ": both have to say the same");
    };
    differs(g.space != p.x.space, "space");
    differs(g.delta != p.x.delta, "delta");
    differs(g.absolute != p.absolute(), "`abs`");
    differs(g.overlaid != ((p.flags & ZO_F_OVRLD) != 0), "`ovrld`");
    agree(l, p, g.class_name, p.x.class_name, std::string(), "class");
    agree(l, p, g.with, p.x.with, std::string(), "`with`");
    agree(l, p, g.wanted, uint64_t{p.x.size} * p.x.delta, uint64_t{0}, "size");
    if (p.limit)
        g.limit = std::min(g.limit, (uint64_t{p.limit} + 1) * p.x.delta - 1);
    g.boundary = std::min(std::lcm(g.boundary, p.boundary()), uint64_t{1} << 32);   // 2^32: nowhere but at 0
    if (!g.absolute && !g.overlaid)
        p.base = zl_rounded(g.size, p.boundary());
    g.size = std::max(g.size, p.base + p.size);
}

void zl_join(zl_linker &l)
{
    size_t number = 0;
    for (zl_module &m : l.modules) {
        number++;
        // A file lists its psects from the last to the first.
        for (auto at = m.order.rbegin(); at != m.order.rend(); ++at) {
            zl_piece &p = **at;
            if (!p.live)
                continue;
            const bool shared = p.flags & ZO_F_GLOBAL;
            zl_group &g = l.groups[shared ? p.x.name : p.x.name + '\n' + std::to_string(number)];
            if (g.pieces.empty())
                l.order.push_back(&g);
            add_piece(l, g, p);
        }
    }
    for (zl_group *g : l.order) {
        if (g->wanted && g->size > g->wanted)
            zl_complain(l, *g->pieces.back(), 0,
                        zo_format("psect %s has 0x%llX bytes, more than its `size` of 0x%llX", zl_quoted(g->name).c_str(),
                                  static_cast<unsigned long long>(g->size), static_cast<unsigned long long>(g->wanted)));
        g->size = std::max(g->size, g->wanted);
    }
}
