// reach: what of the input is needed.
//
// A member of an archive is taken if it defines a global name that some relocation of the modules taken so far uses and none
// of them defines; a mere `global` asks for nothing. The first member that has the name wins.
//
// Garbage is found by piece: roots are what the chip itself looks at, absolute psects, vectors, configuration, what is told to
// lie at an address, which somebody has to know, what `end` names, and what --keep tells; whatever a relocation of a live piece
// mentions lives, too.
#include <algorithm>

#include "zellink.h"

// Members.

namespace
{

struct names_t {
    std::set<std::string_view> globals, locals;
    std::vector<std::string_view> used;
};

}   // namespace

static names_t names_of(const zo_file &file)
{
    names_t n;
    for (const zo_record &r : file.records) {
        if (const auto *sym = std::get_if<zo_sym>(&r.body)) {
            for (const zo_symbol &s : sym->symbols)
                if (zl_is_value(s)) {
                    (s.flags & ZO_S_GLOBAL ? n.globals : n.locals).insert(s.name);
                    if (s.flags == ZO_S_ALIAS)
                        n.used.push_back(s.psect);
                }
        } else if (const auto *dabs = std::get_if<zo_dabs>(&r.body)) {
            for (const zo_dabs_entry &e : dabs->entries)
                n.globals.insert(e.name);
        } else if (const auto *relocs = std::get_if<zo_reloc>(&r.body)) {
            for (const zo_reloc_entry &e : relocs->entries)
                zl_each_symbol_used(e, [&](const std::string &name) { n.used.push_back(name); });
        }
    }
    return n;
}

void zl_choose_members(std::deque<zl_source> &sources)
{
    std::vector<names_t> names;
    std::map<std::string_view, size_t> offered;
    std::set<std::string_view> defined;
    std::vector<size_t> taken;   // grows as it is gone through
    for (const zl_source &s : sources) {
        const size_t i = names.size();
        names.push_back(names_of(s.file));
        for (std::string_view name : names[i].globals)
            s.member ? (void)offered.try_emplace(name, i) : (void)defined.insert(name);
        if (!s.member)
            taken.push_back(i);
    }
    for (size_t k = 0; k < taken.size(); k++)
        for (std::string_view name : names[taken[k]].used) {
            const auto it = offered.find(name);
            if (it == offered.end() || defined.contains(name) || names[taken[k]].locals.contains(name))
                continue;
            sources[it->second].wanted = true;
            taken.push_back(it->second);
            for (std::string_view also : names[it->second].globals)
                defined.insert(also);
        }
}

std::string zl_common_chip(const std::deque<zl_source> &sources, std::vector<zl_message> &messages)
{
    std::string chip;
    const zl_source *first = nullptr;
    for (const zl_source &s : sources) {
        if (!s.wanted)
            continue;
        const std::string &its = std::get<zo_ident>(s.file.records[0].body).chip;
        if (first && its != chip)
            messages.push_back(
                {s.name,
                 "it is for chip " + its + ", but " + first->name + " is for " + chip + ": assemble all for one chip",
                 false});
        else if (!first)
            chip = its;
        first = first ? first : &s;
    }
    if (!first)
        messages.push_back({"", "archives alone make no program: name an object file, too", false});
    return chip;
}

// Garbage.

static void mention(zl_linker &l, zl_module &m, zl_piece &from, const zo_reloc_entry &e)
{
    const auto psect = [&](const std::string &name) {
        if (const auto it = m.pieces.find(name); it != m.pieces.end())
            from.mentions.insert(&it->second);
    };
    if (zo_field_kind(e.type) == ZO_ADD_PSECT)
        psect(e.name);
    for (const zo_expr *expr : {&e.value, &e.limit})
        for (const zo_token &t : *expr)
            if (t.op == ZO_OP_PSECT || t.op == ZO_OP_SEG_PSECT)
                psect(t.name);
    zl_each_symbol_used(e, [&](const std::string &name) {
        zl_sum sum{};
        zl_piece *to = nullptr;
        if (const zl_symbol *s = zl_find(l, m, name); s && zl_symbol_value(l, *s, sum, &to) && to)
            from.mentions.insert(to);
    });
}

static bool is_root(const zl_linker &l, const zl_piece &p)
{
    static const std::set<std::string> vectors{"RESETVEC", "INTVEC", "INTVECLO"};
    return p.absolute() || (p.x.space != ZL_PROGRAM && p.x.space != ZL_DATA) || vectors.contains(p.x.class_name) ||
           l.options.keep.contains(p.x.name) || l.options.addresses.contains(p.x.name);
}

void zl_collect_garbage(zl_linker &l)
{
    std::vector<zl_piece *> live;
    const auto reach = [&](zl_piece *p) {
        if (!p->live)
            live.push_back(p);
        p->live = true;
    };
    std::vector<zl_piece *> roots;
    for (zl_module &m : l.modules) {
        zl_piece *from = nullptr;
        for (const zo_record &r : m.file->records) {
            const auto *text = std::get_if<zo_text>(&r.body);
            const auto *start = std::get_if<zo_start>(&r.body);
            if (const auto it = m.pieces.find(text ? text->psect : start ? start->psect : ""); it != m.pieces.end()) {
                from = text ? &it->second : from;
                if (start)
                    roots.push_back(&it->second);
            }
            if (const auto *relocs = std::get_if<zo_reloc>(&r.body); relocs && from)
                for (const zo_reloc_entry &e : relocs->entries)
                    mention(l, m, *from, e);
        }
        for (zl_piece *p : m.order) {
            p->live = false;
            if (is_root(l, *p))
                roots.push_back(p);
        }
    }
    for (const std::string &name : l.options.keep) {
        bool found = false;
        const auto keep = [&](const zl_symbol &s) {
            found = true;
            if (s.piece)
                roots.push_back(s.piece);
        };
        if (const auto it = l.globals.find(name); it != l.globals.end())
            keep(it->second);
        for (zl_module &m : l.modules) {
            found = found || m.pieces.contains(name);
            if (const auto it = m.locals.find(name); it != m.locals.end())
                keep(it->second);
        }
        if (!found)
            zl_complain(l, "", "--keep=" + name + ": no module has such a psect or symbol");
    }
    for (zl_piece *p : roots)
        reach(p);
    for (size_t i = 0; i < live.size(); i++)
        for (zl_piece *p : live[i]->mentions)
            reach(p);
    size_t bytes = 0;
    for (const zl_module &m : l.modules)
        for (const zl_piece *p : m.order) {
            bytes += p->live ? p->size : 0;
            if (!p->live && p->size)
                l.left_out.push_back(p);
        }
    if (!bytes && !l.left_out.empty())
        zl_complain(l, "",
                    "--gc leaves out everything: nothing is absolute, a vector, or named behind `end`, so tell what the "
                    "program begins with by --keep=NAME");
}
