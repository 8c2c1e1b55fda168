// symbols: names of the modules, and what expressions come to.
//
// A name means the module's own symbol if there is one, else the global one. Two modules may define a global name only if it
// is the same number in both, as an `equ` in an include is, or the same place of an overlaid psect.
#include "zellink.h"

constexpr int ALIAS_DEPTH = 64;   // longer chains are circles

bool zl_is_value(const zo_symbol &s)
{
    return s.flags != ZO_S_LINE && s.flags != ZO_S_FILE && s.flags != ZO_S_UNDEF && s.flags != ZO_S_UNDEF_LOCAL;
}

static bool same_thing(const zl_symbol &a, const zl_symbol &b)
{
    if (a.alias || b.alias || a.value != b.value || a.space != b.space)
        return false;
    if (!a.piece || !b.piece)
        return a.piece == b.piece;
    const uint16_t both = a.piece->flags & b.piece->flags;
    return both & ZO_F_OVRLD && both & ZO_F_GLOBAL && a.piece->x.name == b.piece->x.name;
}

static void define(zl_linker &l, const zl_symbol &made)
{
    zl_module &m = *made.module;
    const auto [it, fresh] = (made.global ? l.globals : m.locals).try_emplace(made.name, made);
    if (fresh || same_thing(it->second, made))
        return;
    const std::string text = "symbol " + zl_quoted(std::string(made.name)) + " is defined in " + it->second.module->name +
                             ", too: rename one of them, or declare it `local`";
    if (made.piece)
        zl_complain(l, *made.piece, static_cast<uint64_t>(std::max<int64_t>(made.value, 0)) * made.piece->x.delta, text);
    else
        zl_complain(l, m.name, text);
}

static void define_symbol(zl_linker &l, zl_module &m, const zo_symbol &s)
{
    const bool alias = s.flags == ZO_S_ALIAS;
    zl_piece *p = nullptr;
    if (!alias && !s.psect.empty()) {
        const auto it = m.pieces.find(s.psect);
        if (it == m.pieces.end())
            return zl_complain(l, m.name,
                               "damaged object file: symbol " + zl_quoted(s.name) + " lies in psect " + zl_quoted(s.psect) +
                                   ", which isn't there");
        p = &it->second;
    }
    define(l, {s.name, p, static_cast<int32_t>(s.value), alias ? &s.psect : nullptr, &m, (s.flags & ZO_S_GLOBAL) != 0});
}

void zl_define_all(zl_linker &l, zl_module &m)
{
    for (const zo_record &r : m.file->records) {
        if (const auto *sym = std::get_if<zo_sym>(&r.body)) {
            for (const zo_symbol &s : sym->symbols)
                if (zl_is_value(s))
                    define_symbol(l, m, s);
        } else if (const auto *dabs = std::get_if<zo_dabs>(&r.body)) {
            for (const zo_dabs_entry &e : dabs->entries)
                if (!e.name.empty())
                    define(l, {e.name, nullptr, e.address, nullptr, &m, true, e.space});
        }
    }
}

// A function that is called by other arguments than it takes overwrites what it shouldn't.
void zl_compare_signatures(zl_linker &l)
{
    std::map<const zl_symbol *, std::pair<uint16_t, const zl_module *>> first;
    for (const zl_module &m : l.modules)
        for (const zo_record &r : m.file->records) {
            const auto *signat = std::get_if<zo_signat>(&r.body);
            const zl_symbol *const s = signat ? zl_find(l, m, signat->name) : nullptr;
            if (!s)
                continue;
            const auto &[signature, module] = first.try_emplace(s, signat->signature, &m).first->second;
            if (signature != signat->signature)
                zl_complain(l, m.name,
                            zo_format("function %s has signature %u, but %u in %s: both have to give it the same arguments "
                                      "and result",
                                      zl_quoted(signat->name).c_str(), signat->signature, signature, module->name.c_str()));
        }
}

const zl_symbol *zl_find(const zl_linker &l, const zl_module &m, const std::string &name)
{
    for (const zl_symbols *table : {&m.locals, &l.globals})
        if (const auto it = table->find(name); it != table->end())
            return &it->second;
    return nullptr;
}

uint64_t zl_address(const zl_piece &p) { return p.group ? p.group->address + p.base : 0; }

static zl_sum piece_value(const zl_piece &p)
{
    return {static_cast<int64_t>(zl_address(p) / p.x.delta), p.x.space == ZL_DATA, p.x.space == ZL_PROGRAM};
}

bool zl_symbol_value(const zl_linker &l, const zl_symbol &s, zl_sum &sum, zl_piece **piece)
{
    const zl_symbol *at = &s;
    sum = {0, false};
    for (int depth = 0; at && depth < ALIAS_DEPTH; depth++) {
        sum.value += at->value;
        if (!at->alias) {
            if (at->piece)
                sum.value += piece_value(*at->piece).value;
            const uint8_t space = at->piece ? at->piece->x.space : at->space;
            sum.data = space == ZL_DATA;
            sum.code = space == ZL_PROGRAM;
            if (piece)
                *piece = at->piece;
            return true;
        }
        at = zl_find(l, *at->module, *at->alias);
    }
    return false;
}

// Operators wrap, as those of the assembler do.
static bool apply(uint8_t op, int64_t a, int64_t b, int64_t &result)
{
    const auto u = [](int64_t v) { return static_cast<uint64_t>(v); };
    uint64_t r = 0;
    switch (op) {
    case ZO_OP_ADD: r = u(a) + u(b); break;
    case ZO_OP_SUB: r = u(a) - u(b); break;
    case ZO_OP_MUL: r = u(a) * u(b); break;
    case ZO_OP_DIV:
    case ZO_OP_MOD:
        if (b == 0)
            return false;
        r = b == -1 ? (op == ZO_OP_DIV ? 0 - u(a) : 0) : u(op == ZO_OP_DIV ? a / b : a % b);   // the least number by -1
        break;
    case ZO_OP_SHL: r = u(a) << (b & 63); break;
    case ZO_OP_SHR: r = u(a >> (b & 63)); break;
    case ZO_OP_AND: r = u(a & b); break;
    case ZO_OP_OR: r = u(a | b); break;
    default: r = u(a ^ b); break;   // the reader lets no other token through
    }
    result = static_cast<int64_t>(r);
    return true;
}

// One instruction may have several fields with the symbol in it.
static void complain_undefined(zl_linker &l, const zl_module &m, const zl_piece *p, uint64_t offset, const std::string &name)
{
    std::set<std::string> &places = l.missing[name];
    std::string place = p ? zl_line_of(*p, offset) : m.name;
    if (p && place.empty())
        place = m.name + '\n' + p->x.name + '\n' + std::to_string(offset);
    const target_t &t = l.target;
    const std::string names = "the names that `zel8 header " + t.name + "` writes";
    const std::string remedy = t.sfr.contains(name) ? "a register of the chip: include " + names
                               : t.fields.contains(name)
                                   ? "a bit of the chip: include " + names + ", where it is " + name + "_BIT"
                                   : "add the object that defines it, and declare it `global` there";
    const std::string text = "undefined symbol " + zl_quoted(name) + ": " + remedy;
    if (places.insert(place).second && places.size() <= ZL_PLACES_TOLD)
        p ? zl_complain(l, *p, offset, text) : zl_complain(l, m.name, text);
}

static zl_sum leaf(zl_linker &l, const zl_module &m, const zl_piece *p, uint64_t offset, const zo_token &t,
                   std::string &fault)
{
    if (t.op == ZO_OP_CONST)
        return {static_cast<int32_t>(t.number), false};
    if (t.op == ZO_OP_PSECT) {
        const auto it = m.pieces.find(t.name);
        if (it == m.pieces.end())
            fault = "damaged object file: there is no psect " + zl_quoted(t.name);
        return it == m.pieces.end() ? zl_sum{0, false} : piece_value(it->second);
    }
    const zl_symbol *const s = zl_find(l, m, t.name);
    zl_sum sum{0, false};
    if (t.op == ZO_OP_DEFINED)
        return {s && zl_symbol_value(l, *s, sum), false};
    if (t.op != ZO_OP_SYMBOL)
        fault = "`seg` has no meaning on this family: leave it out";
    else if (!s)
        complain_undefined(l, m, p, offset, t.name);
    else if (!zl_symbol_value(l, *s, sum))
        fault = "symbol " + zl_quoted(t.name) + " stands for symbol " + zl_quoted(s->alias ? *s->alias : t.name) +
                ", which has no value: define that one";
    return sum;
}

// The reader has seen to it that an expression leaves one value, so the stack is never empty.
zl_sum zl_evaluate(zl_linker &l, const zl_module &m, const zl_piece *p, uint64_t offset, const zo_expr &expr,
                   std::vector<int64_t> *mentions)
{
    std::vector<zl_sum> stack;
    const auto used = [&](const zl_sum &sum) {
        if (sum.code && mentions)
            mentions->push_back(sum.value);
    };
    std::string fault;
    const auto told = [&] {
        if (!fault.empty())
            p ? zl_complain(l, *p, offset, fault) : zl_complain(l, m.name, fault);
        fault.clear();
    };
    for (const zo_token &t : expr) {
        if (t.op == ZO_OP_LOW || t.op == ZO_OP_HIGH || t.op == ZO_OP_NOT || t.op == ZO_OP_NEG) {
            used(stack.back());
            const int64_t v = stack.back().value;
            stack.back() = {t.op == ZO_OP_LOW    ? v & 255
                            : t.op == ZO_OP_HIGH ? v >> 8 & 255
                            : t.op == ZO_OP_NOT  ? ~v
                                                 : static_cast<int64_t>(0 - static_cast<uint64_t>(v)),
                            false};
        } else if ((t.op >= ZO_OP_ADD && t.op <= ZO_OP_XOR) || t.op == ZO_OP_MOD) {
            const zl_sum a = stack.back(), b = stack[stack.size() - 2];
            stack.resize(stack.size() - 2);
            // An address stays one under sums only; the distance of two is a number.
            const auto address = [&](bool left, bool right) {
                return (t.op == ZO_OP_ADD && left != right) || (t.op == ZO_OP_SUB && left && !right);
            };
            zl_sum r{0, address(a.data, b.data), address(a.code, b.code)};
            if (!r.code)
                used(a), used(b);
            if (!apply(t.op, a.value, b.value, r.value))
                fault = "division by 0 in " + zo_infix(expr);
            stack.push_back(r);
        } else {
            stack.push_back(leaf(l, m, p, offset, t, fault));
        }
        told();
    }
    used(stack.back());
    return stack.back();
}
