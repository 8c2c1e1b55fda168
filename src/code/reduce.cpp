// Reduces operands to what the object file can tell.
//
// Symbols give way to their values: a label becomes its place in a psect, a constant defined further down the source its
// number, an external stays. The current location becomes a place too. In an absolute psect a place is an address, thus a
// number. What has become a number, the difference of two labels for one, is folded.
//
// What may bite. Trees are shared, so reduction never writes to operand records; it makes new ones where something
// changed. Symbols may lead back to themselves, and definitions that use one another twice grow like powers of two: one
// reduction has a number of steps to spend and a depth to go, and an operand that needs more stays as it is.
#include "code/reduce.h"

#include "common/alert.h"
#include "common/xalloc.h"

enum : unsigned { REDUCE_STEPS = 20000, REDUCE_DEPTH = 5000 };

enum reduced_t { SAME, NEW, FAILED };
struct reduce_t {
    unsigned steps, depth;
};
static reduced_t reduce(value_t *v, reduce_t *r);

static reduced_t reduce_operands(value_t *v, reduce_t *r)
{
    const bool binary = rtype_is_binary(v->v_rtype);
    value_t left = *value_left(v), right = {};
    reduced_t changed = SAME;
    if (binary) {
        right = *value_right(v);
        changed = reduce(&right, r);
    }
    if (changed != FAILED) {
        const reduced_t c = reduce(&left, r);
        changed = c == SAME ? changed : c;
    }
    const uint32_t nodes = 1 + left.v_nodes + right.v_nodes;
    if (changed == FAILED || nodes > VALUE_MAX_NODES)
        return FAILED;
    if (changed == NEW) {
        value_t *kids = xnew<value_t>(binary ? 2 : 1);
        kids[0] = left;
        if (binary)
            kids[1] = right;
        v->v_kids = kids;
        v->v_nodes = static_cast<uint16_t>(nodes);
    }
    return changed;
}

static void to_number(value_t *v, int64_t n)
{
    const uint8_t common = v->v_common;
    *v = value_const(n);
    v->v_common = common;
}

// A symbol's turn. SAME if it stays; NEW if its value has taken its place.
static reduced_t reduce_symbol(value_t *v)
{
    symbol_t *s = v->v_sym;
    const bool temporary = v->v_rtype != RT_SYM;
    if ((s->s_flags & S_UNDEF && !temporary) || sym_is_self(s)) {
        if (!temporary)
            return SAME;
        if (!value_is_quiet())
            alert_msg(803);   // its label lies in a false arm
        to_number(v, 0xFFFF);
        return NEW;
    }
    sym_add_ref(s);
    const int64_t offs = v->v_offs;
    *v = s->s_value;
    v->v_offs = wrap_plus(v->v_offs, offs);
    return NEW;
}

static reduced_t reduce(value_t *v, reduce_t *r)
{
    reduced_t changed = SAME;
    for (;;) {
        if (r->steps == 0 || r->depth == 0)
            return FAILED;
        r->steps--;
        switch (v->v_rtype) {
        case RT_PSECT:
            if (!psect_is_abs(v->v_sym))
                return changed;
            to_number(v, v->v_offs);
            return NEW;
        case RT_HERE:
            if (!cur_psect)
                return changed;
            *v = value_psect_offset(cur_psect, wrap_plus(v->v_offs, units_here(cur_psect->s_psect)));
            return NEW;
        case RT_SYM:
        case RT_TLABF:
        case RT_TLABB:
            if (reduce_symbol(v) == SAME)
                return changed;
            changed = NEW;
            continue;
        default:
            if (v->v_nodes == 0)
                return changed;
            r->depth--;
            const reduced_t c = reduce_operands(v, r);
            r->depth++;
            return c == SAME ? changed : c;
        }
    }
}

void operand_reduce(value_t *v)
{
    if (v->v_rtype == RT_CONST)
        return;
    reduce_t r = {REDUCE_STEPS, REDUCE_DEPTH};
    value_t whole = *v;
    if (reduce(&whole, &r) == FAILED)
        return;
    if (whole.v_nodes || whole.v_rtype == RT_DEFINED)
        value_eval(&whole);
    *v = whole;
}
