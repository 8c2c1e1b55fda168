// link: joins object files to one image, as simply as the format allows.
//
// The pieces that modules give of a psect are laid one behind the other, or on top of each other if it is `ovrld`; a
// psect that is local to its module has only the one piece. An absolute psect stays where its offsets say. Every other
// one is placed by its class: a class names a list of memory ranges, and the psect, together with those that want to be
// `with` it, takes the first gap in them that fits its boundary. Absolute psects and reserved memory come first, so that
// the others go around them.
//
// Then symbols have addresses, and the fields that the assembler left open are filled in. A relocation adds to what
// stands in its field. The sum has to fit, as a signed or unsigned number, with one exception: eight bits of a data
// address are its place in the bank, and which bank is selected is the program's affair.
//
// Positions in records are bytes; addresses of psects and symbols count in units of the psect's `delta`.
#include "link.h"

#include <algorithm>
#include <iterator>
#include <set>

enum : uint8_t { SPACE_CODE, SPACE_DATA };

struct group_t;

// What one module gives of a psect. Offsets are bytes.
struct piece_t {
    zo_xpsect x{0, 1, 0, 1, "", "", "", false};
    uint32_t flags = 0, limit = 0;
    uint32_t low = UINT32_MAX, size = 0, base = 0;   // first offset used and end; of the piece in the group
    group_t *group = nullptr;
    uint32_t boundary() const { return x.reloc * x.delta; }
};

struct group_t {
    std::vector<piece_t *> pieces;
    std::string with;
    uint32_t size = 0, address = 0;
    bool placed = false;
    const char *name() const { return pieces[0]->x.name.c_str(); }
};

struct sum_t {
    int64_t value;
    bool data;
};   // what an expression comes to, and whether it is a data address
using symbols_t = std::map<std::string, sum_t>;

struct module_t {
    const link_module *source;
    std::map<std::string, piece_t> pieces;
    std::vector<piece_t *> order;
    symbols_t locals;
    const char *name() const { return source->name.c_str(); }
};

struct linker {
    const target_t &target;
    image_t &image;
    std::vector<std::string> errors;
    std::vector<module_t> modules;
    std::map<std::string, group_t> groups;
    std::vector<group_t *> order;
    std::map<uint8_t, ranges_t> used;   // by space
    symbols_t globals;
    std::map<uint32_t, const piece_t *> written;
};

template <typename... A> static void complain(linker &l, const char *format, A... a)
{
    l.errors.push_back(zo_format(format, a...));
}

static uint32_t address_of(const piece_t &p) { return p.group->address + p.base; }
static int64_t units_of(const piece_t &p) { return address_of(p) / p.x.delta; }

// Pieces and groups.

static piece_t &piece(module_t &m, const std::string &name)
{
    const auto [it, made] = m.pieces.try_emplace(name);
    if (made) {
        it->second.x.name = name;
        m.order.push_back(&it->second);
    }
    return it->second;
}

static void collect(linker &l, module_t &m)
{
    const auto cover = [](piece_t &p, uint32_t lo, uint32_t end) {
        p.low = lo < end ? std::min(p.low, lo) : p.low;
        p.size = std::max(p.size, end);
    };
    for (const zo_record &r : m.source->file.records) {
        if (const auto *psect = std::get_if<zo_psect>(&r.body)) {
            piece(m, psect->name).flags |= psect->flags;
        } else if (const auto *x = std::get_if<zo_xpsect>(&r.body)) {
            piece_t &p = piece(m, x->name);
            p.x = *x;
            p.x.delta = std::max<uint8_t>(x->delta, 1);
            p.x.reloc = std::max<uint16_t>(x->reloc, 1);
        } else if (const auto *limit = std::get_if<zo_psectlim>(&r.body)) {
            piece(m, limit->name).limit = limit->limit;
        } else if (const auto *bound = std::get_if<zo_psectbound>(&r.body)) {
            cover(piece(m, bound->name), bound->base, bound->top);
        } else if (const auto *text = std::get_if<zo_text>(&r.body)) {
            const uint32_t end = text->offset + static_cast<uint32_t>(text->data.size());
            cover(piece(m, text->psect), text->data.empty() ? 0 : text->offset, end);
        } else if (const auto *dabs = std::get_if<zo_dabs>(&r.body)) {
            for (const zo_dabs_entry &e : dabs->entries)
                if (e.size)
                    l.used[e.space].push_back({e.address, e.address + e.size - 1});
        } else if (std::get_if<zo_cond_expr>(&r.body)) {
            complain(l, "%s: a condition for the linker isn't supported", m.name());
        }
    }
}

static uint32_t rounded(uint32_t at, uint32_t boundary) { return (at + boundary - 1) / boundary * boundary; }

static void join(linker &l, module_t &m)
{
    // A file lists its psects from the last to the first.
    for (auto at = m.order.rbegin(); at != m.order.rend(); ++at) {
        piece_t *const p = *at;
        const bool shared = p->flags & ZO_F_GLOBAL;
        group_t &g = l.groups[p->x.name + (shared ? "" : "\n" + m.source->name)];
        if (g.pieces.empty())
            l.order.push_back(&g);
        else if (g.pieces[0]->x.space != p->x.space || g.pieces[0]->x.delta != p->x.delta)
            complain(l, "%s: psect \"%s\" has another space or delta elsewhere", m.name(), p->x.name.c_str());
        if (!(p->flags & (ZO_F_ABS | ZO_F_OVRLD)))
            p->base = rounded(g.size, p->boundary());
        p->group = &g;
        g.with = g.with.empty() ? p->x.with : g.with;
        g.size = std::max(g.size, p->base + p->size);
        g.pieces.push_back(p);
        g.placed |= (p->flags & ZO_F_ABS) != 0;
        if (p->flags & ZO_F_ABS && p->low < p->size)
            l.used[p->x.space].push_back({p->low, p->size - 1});
    }
}

static ranges_t class_ranges(const linker &l, const piece_t &p)
{
    const target_t &t = l.target;
    if (p.x.space != SPACE_DATA)
        return {{0, p.x.space == SPACE_CODE ? t.rom_size - 1 : UINT32_MAX / 2}};
    if (p.x.class_name == "COMRAM")
        return {t.common};
    if (!p.x.class_name.starts_with("BANK"))
        return t.banks;
    ranges_t ranges;
    const uint32_t bank = static_cast<uint32_t>(strtoul(p.x.class_name.c_str() + 4, nullptr, 10));
    std::copy_if(t.banks.begin(), t.banks.end(), std::back_inserter(ranges), [&](range_t r) { return r.lo >> 8 == bank; });
    return ranges;
}

// The first place in a range, on the boundary, that overlaps nothing; or above the range.
static uint32_t gap(const ranges_t &used, range_t range, uint32_t size, uint32_t boundary)
{
    uint32_t at = range.lo;
    for (bool moved = true; moved;) {
        moved = false;
        at = rounded(at, boundary);
        for (range_t u : used)
            if (at <= u.hi && u.lo < at + size) {
                at = u.hi + 1;
                moved = true;
            }
    }
    return at;
}

static void place(linker &l, group_t &root)
{
    // The psect and those that want to be with it, each at its offset from the first.
    std::vector<std::pair<group_t *, uint32_t>> unit{{&root, 0}};
    uint32_t size = root.size, boundary = 1;
    for (size_t i = 0; i < unit.size(); i++) {
        for (const piece_t *p : unit[i].first->pieces)
            boundary = std::max(boundary, p->boundary());
        for (group_t *g : l.order)
            if (!g->placed && g != &root && !g->with.empty() && g->with == unit[i].first->name()) {
                const uint32_t at = rounded(size, g->pieces[0]->boundary());
                g->placed = true;
                unit.push_back({g, at});
                size = at + g->size;
            }
    }
    root.placed = true;
    const piece_t &first = *root.pieces[0];
    ranges_t &used = l.used[first.x.space];
    for (range_t range : class_ranges(l, first)) {
        if (first.limit)
            range.hi = std::min(range.hi, first.limit * first.x.delta);
        const uint32_t at = gap(used, range, std::max(size, 1u), boundary);
        if (uint64_t{at} + size > uint64_t{range.hi} + 1 || at > range.hi)
            continue;
        if (size)
            used.push_back({at, at + size - 1});
        for (const auto &[g, offset] : unit)
            g->address = at + offset;
        return;
    }
    complain(l, "psect \"%s\" of 0x%X bytes doesn't fit into class \"%s\"", root.name(), size, first.x.class_name.c_str());
}

static void place_all(linker &l)
{
    for (int wave = 0; wave < 3; wave++)   // the reset vector; others; with a psect that is nowhere, or in a circle
        for (group_t *g : l.order)
            if (!g->placed && (wave == 0 ? g->pieces[0]->x.class_name == "RESETVEC" : wave == 2 || g->with.empty()))
                place(l, *g);
    for (module_t &m : l.modules)
        for (piece_t *p : m.order)
            if (p->x.size && p->size > p->x.size * p->x.delta)
                complain(l, "%s: psect \"%s\" has 0x%X bytes, more than its size of 0x%X", m.name(), p->x.name.c_str(),
                         p->size, p->x.size * p->x.delta);
}

// Symbols.

static void define(linker &l, module_t &m, const zo_symbol &s, sum_t value)
{
    symbols_t &table = s.flags & ZO_S_GLOBAL ? l.globals : m.locals;
    if (table.try_emplace(s.name, value).first->second.value != value.value)
        complain(l, "%s: symbol \"%s\" is defined more than once", m.name(), s.name.c_str());
    l.image.symbols[s.name] = value.value;
}

static const sum_t *find(linker &l, module_t &m, const std::string &name)
{
    for (const symbols_t *table : {&m.locals, &l.globals})
        if (const auto it = table->find(name); it != table->end())
            return &it->second;
    return nullptr;
}

static void define_all(linker &l, bool aliases)
{
    static const std::set<uint16_t> no_value = {ZO_S_LINE, ZO_S_FILE, ZO_S_UNDEF, ZO_S_UNDEF_LOCAL};
    for (module_t &m : l.modules)
        for (const zo_record &r : m.source->file.records) {
            const auto *sym = std::get_if<zo_sym>(&r.body);
            for (const zo_symbol &s : sym ? sym->symbols : std::vector<zo_symbol>{}) {
                if (no_value.contains(s.flags) || (s.flags == ZO_S_ALIAS) != aliases)
                    continue;
                const sum_t *of = aliases ? find(l, m, s.psect) : nullptr;
                const piece_t *p = aliases || s.psect.empty() ? nullptr : &piece(m, s.psect);
                const int64_t base = of ? of->value : p ? units_of(*p) : 0;
                if (of || !aliases)
                    define(l, m, s, {base + static_cast<int32_t>(s.value), of ? of->data : p && p->x.space == SPACE_DATA});
            }
        }
}

// Expressions and fields.

static int64_t apply(linker &l, const module_t &m, uint8_t op, int64_t a, int64_t b)
{
    if ((op == ZO_OP_DIV || op == ZO_OP_MOD) && b == 0)
        return complain(l, "%s: division by 0", m.name()), 0;
    switch (op) {
    case ZO_OP_ADD: return a + b;
    case ZO_OP_SUB: return a - b;
    case ZO_OP_MUL: return a * b;
    case ZO_OP_DIV: return a / b;
    case ZO_OP_MOD: return a % b;
    case ZO_OP_SHR: return a >> (b & 63);
    case ZO_OP_AND: return a & b;
    case ZO_OP_OR: return a | b;
    case ZO_OP_XOR: return a ^ b;
    case ZO_OP_SHL: return static_cast<int64_t>(static_cast<uint64_t>(a) << (b & 63));
    default: complain(l, "%s: operator %u isn't supported", m.name(), op); return 0;
    }
}

// The reader has seen to it that an expression leaves one value, so the stack is never empty.
static sum_t evaluate(linker &l, module_t &m, const zo_expr &expr)
{
    std::vector<sum_t> stack;
    for (const zo_token &t : expr) {
        if (t.op == ZO_OP_CONST) {
            stack.push_back({static_cast<int32_t>(t.number), false});
        } else if (t.op == ZO_OP_PSECT) {
            const piece_t &p = piece(m, t.name);
            stack.push_back({p.group ? units_of(p) : 0, p.x.space == SPACE_DATA});
        } else if (t.op == ZO_OP_SYMBOL) {
            const sum_t *value = find(l, m, t.name);
            if (!value)
                complain(l, "%s: undefined symbol \"%s\"", m.name(), t.name.c_str());
            stack.push_back(value ? *value : sum_t{0, false});
        } else if (t.op == ZO_OP_SEG_PSECT || t.op == ZO_OP_SEG_SYMBOL || t.op == ZO_OP_DEFINED) {
            stack.push_back({apply(l, m, t.op, 0, 0), false});
        } else if (t.op == ZO_OP_LOW || t.op == ZO_OP_HIGH || t.op == ZO_OP_NOT || t.op == ZO_OP_NEG) {
            int64_t &v = stack.back().value;
            v = t.op == ZO_OP_LOW ? v & 255 : t.op == ZO_OP_HIGH ? v >> 8 & 255 : t.op == ZO_OP_NOT ? ~v : -v;
        } else {
            const sum_t a = stack.back(), b = stack[stack.size() - 2];
            stack.resize(stack.size() - 2);
            stack.push_back({apply(l, m, t.op, a.value, b.value), a.data || b.data});
        }
    }
    return stack.back();
}

static void patch(linker &l, module_t &m, const zo_text &text, const zo_reloc_entry &e, std::vector<uint8_t> &data)
{
    const std::string where = zo_format("%s: psect \"%s\"+0x%X", m.name(), text.psect.c_str(), text.offset + e.offset);
    const zo_kind kind = zo_field_kind(e.type);
    if (kind == ZO_CHECK) {
        const int64_t value = evaluate(l, m, e.value).value, limit = evaluate(l, m, e.limit).value;
        if (value < 0 || value > limit)
            complain(l, "%s: %s %lld is out of range, at most %lld", where.c_str(), e.name.c_str(),
                     static_cast<long long>(value), static_cast<long long>(limit));
        return;
    }
    const unsigned bits = zo_field_bits(e.type), bytes = (bits + 7) / 8;
    if (kind == ZO_BAD_KIND || bits == 0 || bytes > 4 || e.offset + bytes > data.size())
        return complain(l, "%s: bad relocation", where.c_str());
    const sum_t sum = kind == ZO_COMPLEX ? evaluate(l, m, e.value)
                                         : evaluate(l, m, {{kind == ZO_ADD_PSECT ? ZO_OP_PSECT : ZO_OP_SYMBOL, 0, e.name}});
    uint64_t word = 0;
    for (unsigned i = 0; i < bytes; i++)
        word |= uint64_t{data[e.offset + i]} << 8 * i;
    const uint64_t mask = (uint64_t{1} << bits) - 1;
    const int64_t value = sum.value + static_cast<int64_t>(word & mask);
    if ((value < -(int64_t{1} << (bits - 1)) || value > static_cast<int64_t>(mask)) && !(sum.data && bits == 8))
        complain(l, "%s: %lld doesn't fit into %u bits", where.c_str(), static_cast<long long>(value), bits);
    word = (word & ~mask) | (static_cast<uint64_t>(value) & mask);
    for (unsigned i = 0; i < bytes; i++)
        data[e.offset + i] = static_cast<uint8_t>(word >> 8 * i);
}

static void put(linker &l, const piece_t &p, uint32_t address, uint8_t byte)
{
    if (const auto [it, fresh] = l.written.try_emplace(address, &p); !fresh && it->second != &p && !(p.flags & ZO_F_OVRLD)) {
        complain(l, "psects \"%s\" and \"%s\" overlap at 0x%X", it->second->x.name.c_str(), p.x.name.c_str(), address);
        it->second = &p;
    }
    if (address < l.image.program.size())   // configuration and ID locations lie above
        l.image.program[address] = byte;
}

static void emit(linker &l, module_t &m)
{
    const std::vector<zo_record> &records = m.source->file.records;
    for (size_t i = 0; i < records.size(); i++) {
        if (const auto *start = std::get_if<zo_start>(&records[i].body))
            l.image.start = address_of(piece(m, start->psect)) + start->offset;
        const auto *text = std::get_if<zo_text>(&records[i].body);
        if (!text || text->data.empty())
            continue;
        std::vector<uint8_t> data = text->data;
        if (i + 1 < records.size())
            if (const auto *relocs = std::get_if<zo_reloc>(&records[i + 1].body))
                for (const zo_reloc_entry &e : relocs->entries)
                    patch(l, m, *text, e, data);
        const piece_t &p = piece(m, text->psect);
        if (p.x.space == SPACE_DATA)
            complain(l, "%s: psect \"%s\" puts bytes into data memory", m.name(), p.x.name.c_str());
        for (size_t k = 0; k < data.size(); k++)
            put(l, p, address_of(p) + text->offset + static_cast<uint32_t>(k), data[k]);
    }
}

std::vector<std::string> link_modules(const std::vector<link_module> &sources, const target_t &target, image_t &image)
{
    image = image_t();
    image.program.assign(target.rom_size, 0xFF);
    linker l{target, image, {}, {}, {}, {}, {}, {}, {}};
    for (const link_module &source : sources) {
        l.modules.push_back({&source, {}, {}, {}});
        if (const std::string &why = source.file.error; !source.file.decoded())
            complain(l, "%s: %s", source.name.c_str(), why.empty() ? "a record can't be decoded" : why.c_str());
    }
    if (!l.errors.empty())
        return l.errors;
    for (module_t &m : l.modules) {
        collect(l, m);
        join(l, m);
    }
    place_all(l);
    define_all(l, false);
    define_all(l, true);
    for (module_t &m : l.modules)
        emit(l, m);
    return l.errors;
}
