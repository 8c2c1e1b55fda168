// An expression is folded twice. The parser folds while it reads: numbers are worked out, addends go into v_offs, and what
// has no number becomes an operator node. Later, when symbols have their values, value_eval goes over the tree again.
//
// The addend of an operator node is added to the operator's result. So `high(label)+1` is one node with an addend of 1,
// and `label+3-label` is the number 3.
//
// Nodes are never changed once something points to them: reduction works on copies of the operands, and makes a new pair
// only if one of them came out different. An expression that many places share is thus reduced for one place without
// harm to the others.
//
// What may bite: a symbol's value may lead back to the symbol by way of other definitions, and definitions that use one
// another twice grow like powers of two. One evaluation therefore has a number of steps to spend, far more than any
// expression of one source line takes, and a value that needs more stays as it is. Depth is bounded likewise.
//
// All arithmetic is in 64 bits and wraps around.
#include "code/expr.h"

#include <bit>
#include <cstring>

#include "code/sym.h"
#include "common/alert.h"
#include "common/xalloc.h"

constexpr uint32_t MOST_STEPS = 65536;

static struct {
    uint32_t steps, depth;   // left to the evaluation under way, and reached by it
    bool quiet;              // nothing is reported
} st;

static uint64_t u(int64_t n) { return static_cast<uint64_t>(n); }

static int64_t fold_unary(uint8_t rtype, int64_t a)
{
    switch (rtype) {
    case RT_LOW: return a & 0xFF;
    case RT_HIGH: return a >> 8 & 0xFF;
    case RT_NOT: return ~a;
    default: return wrap_minus(0, a);
    }
}

// `b` isn't 0 for a division or remainder.
static int64_t fold_binary(uint8_t rtype, int64_t a, int64_t b)
{
    switch (rtype) {
    case RT_ADD: return wrap_plus(a, b);
    case RT_SUB: return wrap_minus(a, b);
    case RT_MUL: return static_cast<int64_t>(u(a) * u(b));
    case RT_DIV: return b == -1 ? wrap_minus(0, a) : a / b;
    case RT_MOD: return b == -1 ? 0 : a % b;
    case RT_SHL: return static_cast<int64_t>(u(a) << (b & 63));
    case RT_SHR: return a >> (b & 63);
    case RT_AND: return a & b;
    case RT_OR: return a | b;
    default: return a ^ b;
    }
}

// Whether `a rtype b` divides by the number 0, which is reported.
static bool divides_by_zero(uint8_t rtype, const value_t *b)
{
    if ((rtype != RT_DIV && rtype != RT_MOD) || b->v_rtype != RT_CONST || b->v_offs != 0)
        return false;
    if (!st.quiet)
        alert_text("E", "division by 0 in expression");
    return true;
}

// The operator code as a tree kind; 0 if there is none.
static uint8_t tree_kind(uint16_t code)
{
    switch (code) {
    case OPC_AND: return RT_AND;
    case OPC_DIV: return RT_DIV;
    case OPC_MINUS: return RT_SUB;
    case OPC_MOD: return RT_MOD;
    case OPC_MUL: return RT_MUL;
    case OPC_PLUS: return RT_ADD;
    case OPC_SHL: return RT_SHL;
    case OPC_SHR: return RT_SHR;
    case OPC_XOR: return RT_XOR;
    case OPC_OR: return RT_OR;
    default: return 0;
    }
}

// An operator node over one or two operands; false if it would be too large.
static bool make_node(value_t *node, uint8_t rtype, const value_t *left, const value_t *right)
{
    const uint32_t nodes = 1 + left->v_nodes + (right ? right->v_nodes : 0);
    if (nodes > VALUE_MAX_NODES)
        return false;
    value_t *kids = xnew<value_t>(right ? 2 : 1);
    kids[0] = *left;
    if (right)
        kids[1] = *right;
    *node = {};
    node->v_rtype = rtype;
    node->v_common = left->v_common;
    node->v_nodes = static_cast<uint16_t>(nodes);
    node->v_kids = kids;
    return true;
}

static value_t node_or_left(uint8_t rtype, const value_t *left, const value_t *right)
{
    value_t node;
    if (make_node(&node, rtype, left, right))
        return node;
    alert_once(839);
    return *left;
}

value_t value_make_unary(uint8_t rtype, const value_t *left) { return node_or_left(rtype, left, nullptr); }
value_t value_make_binary(uint8_t rtype, const value_t *left, const value_t *right)
{
    return node_or_left(rtype, left, right);
}

// Whether both lie at offsets from one place, so that their difference is a number.
static bool same_base(const value_t *a, const value_t *b)
{
    return (b->v_rtype == RT_PSECT || b->v_rtype == RT_SYM) && a->v_rtype == b->v_rtype && a->v_sym == b->v_sym;
}

static void become_const(value_t *v, int64_t n)
{
    const uint8_t common = v->v_common;
    *v = value_const(n);
    v->v_common = common;
}

// Two numbers under an operator that no tree can have. Unknown ones, `rol` and `ror` among them, give the left number.
static int64_t compare(uint16_t code, int64_t a, int64_t b)
{
    switch (code) {
    case OPC_EQ: return a == b;
    case OPC_GE: return a >= b;
    case OPC_GT: return a > b;
    case OPC_LE: return a <= b;
    case OPC_LT: return a < b;
    case OPC_NE: return a != b;
    default: return a;
    }
}

void value_binary(uint16_t code, value_t *a, const value_t *b)
{
    const bool a_const = a->v_rtype == RT_CONST, b_const = b->v_rtype == RT_CONST;
    const uint8_t rtype = tree_kind(code);
    if (code == OPC_MINUS && b_const) {
        a->v_offs = wrap_minus(a->v_offs, b->v_offs);
    } else if (code == OPC_MINUS && same_base(a, b)) {
        become_const(a, wrap_minus(a->v_offs, b->v_offs));
    } else if (code == OPC_PLUS && a_const) {
        const int64_t offs = a->v_offs;
        const uint8_t common = a->v_common;
        *a = *b;
        a->v_offs = wrap_plus(offs, b->v_offs);
        a->v_common |= common;
    } else if (code == OPC_PLUS && b_const) {
        a->v_offs = wrap_plus(a->v_offs, b->v_offs);
    } else if (rtype == 0) {
        if (a_const && b_const)
            a->v_offs = compare(code, a->v_offs, b->v_offs);
        else
            alert_msg(846);
    } else if (!divides_by_zero(rtype, b)) {
        if (a_const && b_const)
            a->v_offs = fold_binary(rtype, a->v_offs, b->v_offs);
        else
            *a = value_make_binary(rtype, a, b);
    }
}

// 24-bit floats have the sign, eight exponent bits and fifteen mantissa bits of the single-precision bits `n`, rounded.
static int64_t float24(uint64_t n)
{
    if (!(n & 0x7FFFFF80))
        return 0;
    const uint32_t bits = static_cast<uint32_t>(n), e = bits >> 23 & 0xFF, m = bits & 0x7FFFFF, sign = bits >> 31 << 23;
    if (m >= 0x7FFF80)
        return sign | (e < 255 ? (e + 1) << 15 : 0x7FFFFF);
    return sign | ((m + 0x800080) >> 8 & 0x7FFF) | e << 15;
}

void value_unary(uint16_t code, value_t *v)
{
    const bool is_const = v->v_rtype == RT_CONST;
    const value_t sixteen = value_const(16);
    uint8_t rtype = 0;
    switch (code) {
    case OPC_MINUS: rtype = RT_NEG; break;
    case OPC_NOT: rtype = RT_NOT; break;
    case OPC_LOW: rtype = RT_LOW; break;
    case OPC_HIGH: rtype = RT_HIGH; break;
    case OPC_PLUS: return;
    case OPC_SEG:
        if ((v->v_rtype & ~RT_SEG) != RT_PSECT && (v->v_rtype & ~RT_SEG) != RT_SYM) {
            alert_text("E", "seg needs a relocatable operand");
        } else {
            v->v_offs = 0;
            v->v_rtype |= RT_SEG;
        }
        return;
    case OPC_HIGHWORD:
        if (is_const)
            v->v_offs = v->v_offs >> 16 & 0xFFFF;
        else
            *v = value_make_binary(RT_SHR, v, &sixteen);
        return;
    case OPC_FLOAT24:
        if (is_const)
            v->v_offs = float24(u(v->v_offs));
        else
            alert_msg(786);
        return;
    case OPC_NORMALIZE32:
        if (!is_const)
            alert_msg(1494);
        else if (!(v->v_offs & 0x7F800000))
            v->v_offs = 0;
        return;
    default: alert_msg(846); return;
    }
    if (is_const)
        v->v_offs = fold_unary(rtype, v->v_offs);
    else
        *v = value_make_unary(rtype, v);
}

void value_copy(value_t *dst, const value_t *src)
{
    *dst = *src;
    switch (src->v_rtype) {
    case RT_CONST:
    case RT_PSECT:
    case RT_DEFINED:
    case RT_SYM:
    case RT_TLABF:
    case RT_TLABB:
    case RT_HERE:
    case RT_PSECT_SEG:
    case RT_SYM_SEG: break;
    default:
        if (!rtype_is_unary(src->v_rtype) && !rtype_is_binary(src->v_rtype))
            alert_msg(787, int{src->v_rtype});
    }
}

bool value_has_here(const value_t *v)
{
    for (; v->v_nodes; v = value_left(v))
        if (rtype_is_binary(v->v_rtype) && value_has_here(value_right(v)))
            return true;
    return v->v_rtype == RT_HERE;
}

bool sym_is_self(const symbol_t *s)
{
    return !(s->s_flags & S_SPACE_MASK) && s->s_value.v_rtype == RT_SYM && s->s_value.v_sym == s;
}

// Whether a reference to the symbol may give way to its value. A label's place stays a reference until it is encoded.
static bool has_plain_value(const symbol_t *s)
{
    return !(s->s_flags & (S_UNDEF | S_SPACE_MASK)) && s->s_value.v_rtype != RT_PSECT && !sym_is_self(s);
}

// `v`, an operator node whose operands have been reduced to `kids`, takes what they make of it.
static bool reduce_node(value_t *v, const value_t *kids)
{
    const value_t *left = &kids[0], *right = rtype_is_binary(v->v_rtype) ? &kids[1] : nullptr;
    const bool left_const = left->v_rtype == RT_CONST, right_const = !right || right->v_rtype == RT_CONST;
    const uint8_t common = v->v_common;
    const int64_t offs = v->v_offs;
    if (right && divides_by_zero(v->v_rtype, right)) {
        *v = *left;
        v->v_offs = wrap_plus(offs, left->v_offs);
    } else if (left_const && right_const) {
        become_const(v, wrap_plus(offs, right ? fold_binary(v->v_rtype, left->v_offs, right->v_offs)
                                              : fold_unary(v->v_rtype, left->v_offs)));
    } else if (v->v_rtype == RT_SUB && right && right_const) {
        *v = *left;
        v->v_offs = wrap_plus(offs, wrap_minus(left->v_offs, right->v_offs));
    } else if (v->v_rtype == RT_SUB && right && same_base(left, right)) {
        become_const(v, wrap_plus(offs, wrap_minus(left->v_offs, right->v_offs)));
    } else if (memcmp(kids, v->v_kids, (right ? 2 : 1) * sizeof *kids) != 0) {
        if (!make_node(v, v->v_rtype, left, right))
            return false;
        v->v_offs = offs;
    }
    v->v_common = common;
    return true;
}

// False when the evaluation has taken too many steps, or the tree became too large.
static bool reduce(value_t *v)
{
    while (v->v_rtype == RT_SYM && has_plain_value(v->v_sym)) {
        if (st.steps == 0)
            return false;
        st.steps--;
        const int64_t offs = v->v_offs;
        const uint8_t common = v->v_common;
        *v = v->v_sym->s_value;
        v->v_offs = wrap_plus(v->v_offs, offs);
        v->v_common = common;
    }
    if (v->v_rtype == RT_DEFINED && sym_find(v->v_name))
        become_const(v, wrap_plus(v->v_offs, 1));
    const bool binary = rtype_is_binary(v->v_rtype);
    if (!binary && !rtype_is_unary(v->v_rtype))
        return true;
    if (st.steps == 0 || st.depth == VALUE_MAX_NODES)
        return false;
    st.steps--;
    st.depth++;
    value_t kids[2];
    memcpy(kids, v->v_kids, (binary ? 2 : 1) * sizeof *kids);
    const bool done = reduce(&kids[0]) && (!binary || reduce(&kids[1]));
    st.depth--;
    return done && reduce_node(v, kids);
}

void value_reduce(value_t *v)
{
    value_t reduced = *v;
    st.steps = MOST_STEPS;
    st.depth = 0;
    if (reduce(&reduced))
        *v = reduced;
    else if (!st.quiet)
        alert_once(839);
}

// Of reduced values. Left operands are followed by the loop, right ones by a call.
static bool same(const value_t *a, const value_t *b)
{
    for (;; a = value_left(a), b = value_left(b)) {
        if (a->v_offs != b->v_offs || a->v_rtype != b->v_rtype)
            return false;
        if (a->v_rtype == RT_CONST)
            return true;
        if (a->v_rtype == RT_SYM)
            return a->v_sym == b->v_sym;
        if (rtype_is_binary(a->v_rtype) ? !same(value_right(a), value_right(b)) : !rtype_is_unary(a->v_rtype))
            return false;
    }
}

bool value_is_quiet() { return st.quiet; }

bool value_set_quiet(bool quiet)
{
    const bool was = st.quiet;
    st.quiet = quiet;
    return was;
}

// Numbers are most of what is compared, and the same name is the same value.
static bool same_leaf(const value_t *a, const value_t *b)
{
    return a->v_rtype == b->v_rtype && a->v_offs == b->v_offs &&
           (a->v_rtype == RT_CONST || (a->v_rtype == RT_SYM && a->v_sym == b->v_sym));
}

bool value_equal(const value_t *a, const value_t *b)
{
    if (same_leaf(a, b))
        return true;
    if (a->v_rtype == RT_CONST && b->v_rtype == RT_CONST)
        return false;
    value_t x = *a, y = *b;
    const bool was = value_set_quiet(true);
    value_eval(&x);
    value_eval(&y);
    value_set_quiet(was);
    return same(&x, &y);
}

int64_t float_bits(double x, bool negate) { return std::bit_cast<uint32_t>(static_cast<float>(negate ? -x : x)); }
