// Values: folding while reading, trees, and reduction afterwards.
#include "code/expr.h"

#include "code/sym.h"
#include "code_test.h"

static value_t binary(uint16_t code, value_t a, value_t b)
{
    value_binary(code, &a, &b);
    return a;
}
static value_t unary(uint16_t code, value_t v)
{
    value_unary(code, &v);
    return v;
}
static value_t evaluated(value_t v)
{
    value_eval(&v);
    return v;
}
static value_t num(int64_t n) { return value_const(n); }
static value_t ref(const char *name) { return value_sym(sym_enter(name, 0)); }
static void define(const char *name, value_t v)
{
    symbol_t *s = sym_enter(name, 0);
    s->s_value = v;
    s->s_flags = S_EQU;
}

static bool is_const(const value_t &v, int64_t n) { return v.v_rtype == RT_CONST && v.v_offs == n; }

class Expr : public testing::Test
{
  protected:
    void SetUp() override { sym_init(); }
};

TEST_F(Expr, Reduction)
{
    value_t forward = unary(OPC_LOW, binary(OPC_MUL, ref("x"), ref("y")));
    forward.v_common = 1;
    value_t minus_x = binary(OPC_PLUS, binary(OPC_MINUS, ref("later"), ref("x")), num(1));
    value_t same = evaluated(forward);
    EXPECT_EQ(same.v_kids, forward.v_kids);   // nothing known, nothing made
    define("x", num(0x33));
    same = evaluated(forward);
    EXPECT_EQ(value_left(value_left(&same))->v_offs, 0x33);
    EXPECT_EQ(value_left(&forward)->v_kids->v_rtype, RT_SYM);   // the shared tree is as it was
    define("y", num(0x103));
    same = evaluated(forward);
    EXPECT_TRUE(is_const(same, 0x33 * 0x103 & 0xFF));
    EXPECT_EQ(same.v_common, 1);
    define("p", value_psect_offset(abs_psect, 40));   // a label's place is left to the encoder
    EXPECT_EQ(evaluated(ref("p")).v_rtype, RT_SYM);
    same = evaluated(minus_x);   // minus a number that came later is an addend
    EXPECT_EQ(same.v_rtype, RT_SYM);
    EXPECT_EQ(same.v_offs, 1 - 0x33);
    sym_enter("mac", 0)->s_flags = S_MACRO;   // its value is something else
    EXPECT_EQ(evaluated(ref("mac")).v_rtype, RT_SYM);
}

TEST_F(Expr, CirclesAndSizeEnd)
{
    value_t late = binary(OPC_DIV, num(8), ref("zero"));
    define("zero", num(0));
    EXPECT_EQ(said([&] { EXPECT_TRUE(value_equal(&late, &late)); }), "");   // a comparison tells nothing
    // Each uses the next one twice: few steps, but too many nodes.
    for (int i = 0; i < 40; i++) {
        const std::string name = "t" + std::to_string(i), next = "t" + std::to_string(i + 1);
        define(name.c_str(), binary(OPC_MUL, ref(next.c_str()), ref(next.c_str())));
    }
    EXPECT_EQ(said([&] { EXPECT_EQ(evaluated(ref("t29")).v_nodes, 2047u); }), "");
    EXPECT_EQ(said([&] { EXPECT_EQ(evaluated(ref("t28")).v_nodes, 0u); }), " 839");
    value_t left = ref("x"), right = ref("x");
    EXPECT_EQ(said([&] {
                  for (unsigned i = 0; i < VALUE_MAX_NODES + 1; i++) {
                      left = binary(OPC_AND, left, ref("x"));
                      right = binary(OPC_AND, ref("x"), right);
                  }
              }),
              " 839");
    EXPECT_EQ(left.v_nodes, VALUE_MAX_NODES);
    EXPECT_EQ(right.v_rtype, RT_SYM);   // its left operand
    define("x", num(6));
    EXPECT_TRUE(is_const(evaluated(left), 6));
}

TEST_F(Expr, Equality)
{
    auto equal = [](value_t a, value_t b) { return value_equal(&a, &b); };
    const value_t x = ref("x"), y = ref("y"), place = value_psect_offset(abs_psect, 1);
    EXPECT_TRUE(equal(binary(OPC_AND, unary(OPC_LOW, x), y), binary(OPC_AND, unary(OPC_LOW, x), y)));
    EXPECT_FALSE(equal(num(4), num(5)));
    EXPECT_FALSE(equal(x, y));
    EXPECT_FALSE(equal(x, binary(OPC_PLUS, x, num(1))));
    EXPECT_FALSE(equal(binary(OPC_AND, x, y), binary(OPC_AND, y, x)));
    EXPECT_FALSE(equal(unary(OPC_LOW, x), unary(OPC_HIGH, x)));
    EXPECT_FALSE(equal(place, place));   // only numbers and symbols are equal
    define("y", binary(OPC_PLUS, x, num(1)));
    EXPECT_TRUE(equal(y, binary(OPC_PLUS, x, num(1))));
}
