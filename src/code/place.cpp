// Operands come in many spellings: a number, a name for it, a label with an addend, an offset in the access bank, any of them
// masked. What the optimiser asks is whether two of them are one register, and which register of the machine one is. So
// it asks for places, and compares these.
//
// A banked operand that is a number may be any register with its lower eight bits. One that is a name is taken for what it
// names: whoever uses it has selected its bank.
#include "code/place.h"

#include "chip/chip.h"
#include "code/ops.h"
#include "code/sfrop.h"
#include "options.h"

enum : int { DEEPEST_NAME = 16 };
constexpr int64_t PAGE = 256;

// A leaf's base, null for a number; false for anything else.
static bool find_base(value_t v, const symbol_t **base, int64_t *at)
{
    *at = v.v_offs;
    for (int i = 0; i < DEEPEST_NAME; i++) {
        if (v.v_rtype == RT_CONST) {
            *base = nullptr;
            return true;
        }
        if (v.v_rtype == RT_PSECT) {
            *base = psect_is_abs(v.v_sym) ? nullptr : v.v_sym.get();
            return true;
        }
        if (v.v_rtype != RT_SYM)
            return false;
        if (v.v_sym->s_flags & S_UNDEF || sym_is_self(v.v_sym)) {
            *base = v.v_sym;
            return true;
        }
        v = v.v_sym->s_value;
        *at = wrap_plus(*at, v.v_offs);
    }
    return false;
}

static bool is_number(const value_t *v, int64_t n) { return v->v_rtype == RT_CONST && v->v_offs == n; }

// What is inside `x & 255` or `low x`, and `x ^ (y & 0xFF00)`, which takes the bank of y off; null for all else.
static const value_t *inside_mask(const value_t *v)
{
    if (v->v_offs != 0)
        return nullptr;
    if (v->v_rtype == RT_LOW || (v->v_rtype == RT_AND && is_number(value_right(v), 255)))
        return value_left(v);
    if (v->v_rtype == RT_XOR && value_right(v)->v_rtype == RT_AND && is_number(value_right(value_right(v)), 0xFF00))
        return value_left(v);
    return nullptr;
}

static bool find_base_of_tree(const opnd_t *o, const symbol_t **base, int64_t *at)
{
    value_t v = o->opnd_value;
    const bool was = value_set_quiet(true);
    value_eval(&v);
    value_set_quiet(was);
    if (v.v_nodes == 0)
        return find_base(v, base, at);
    // What a mask leaves of a whole address is no address.
    const value_t *x = o->opnd_access ? inside_mask(&v) : nullptr;
    return x && find_base(*x, base, at) && *base;
}

static int64_t page_of(const memrange_t &part) { return part.lo & ~(PAGE - 1); }

// The address of an offset in the access bank. A number that is the register's whole address will do as well.
static int64_t address_in_access_bank(int64_t n)
{
    if (chip_isCommonAddr(n))
        return n;
    const chipinfo_t *ci = chip_current();
    const int64_t offset = n & (PAGE - 1), low = page_of(ci->c_common) + offset;
    return range_holds(ci->c_common, low) ? low : page_of(ci->c_sfrcommon) + offset;
}

place_t place_of(const opnd_t *o)
{
    place_t p;
    if (o->opnd_kind != OPND_DATA)
        return p;
    p.access = o->opnd_access;
    const value_t &v = o->opnd_value;
    if (!(v.v_nodes ? find_base_of_tree(o, &p.base, &p.at) : find_base(v, &p.base, &p.at)))
        return p;
    p.kind = p.base ? place_t::NAMED : p.access == ACCESS_B ? place_t::BANKED : place_t::ADDRESS;
    if (p.kind == place_t::ADDRESS && p.access == ACCESS_C)
        p.at = address_in_access_bank(p.at);
    if (opt.xinst && p.access == ACCESS_C && (p.base || !chip_isSfrCommonAddr(p.at)))
        p.kind = place_t::UNTOLD;   // it may be an offset from a file select
    return p;
}

bool place_same(const place_t &a, const place_t &b)
{
    if (a.kind != b.kind || a.kind == place_t::UNTOLD || a.base != b.base)
        return false;
    if (a.kind == place_t::NAMED && a.access && b.access && a.access != b.access)
        return false;
    return a.access == ACCESS_B && b.access == ACCESS_B ? (a.at - b.at) % PAGE == 0 : a.at == b.at;
}

bool place_apart(const place_t &a, const place_t &b)
{
    if (a.kind == place_t::UNTOLD || b.kind == place_t::UNTOLD)
        return false;
    if (a.kind == place_t::NAMED || b.kind == place_t::NAMED) {
        if (a.kind != b.kind) {
            const place_t &number = a.kind == place_t::NAMED ? b : a;
            return number.kind == place_t::ADDRESS && chip_isSfrCommonAddr(number.at);
        }
        if (a.base != b.base)
            return true;
    }
    const bool one_bank = a.access == ACCESS_B || b.access == ACCESS_B;
    return one_bank ? (a.at - b.at) % PAGE != 0 : a.at != b.at;
}

uint32_t sfr_idOfPlace(const opnd_t *o)
{
    const value_t &v = o->opnd_value;
    if (v.v_rtype == RT_SYM &&
        (v.v_sym->s_flags & S_UNDEF || (v.v_sym->s_value.v_rtype == RT_PSECT && !psect_is_abs(v.v_sym->s_value.v_sym))))
        return SFR_NONE;   // a name as such
    const place_t p = place_of(o);
    if (p.kind == place_t::ADDRESS)
        return sfr_idAt(p.at);
    return p.kind == place_t::BANKED ? sfr_idAt(sfr_page + (p.at & (PAGE - 1))) : uint32_t{SFR_NONE};
}
