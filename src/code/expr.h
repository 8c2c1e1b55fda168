// expr: values and expressions.
//
// A value_t is what an expression of the source becomes: a number, a position in a psect, a symbol plus an offset, or a
// tree of such values. The assembler folds what it can as soon as it can; what only the linker can know stays a tree
// and goes to the object file as postfix code.
//
// Trees are immutable and shared: an operator's operands are a pair of records in the arena that nobody writes again, so
// copying a value copies 16 bytes, whatever hangs below. Reduction makes new operand records where something changed.
// A tree is at most VALUE_MAX_NODES operators large, so that recursion over it is bounded.
#pragma once

#include <cstdint>

#include "common/ref.h"

struct symbol_t;
struct op_t;

// v_rtype: the kind of a value, and the token of its postfix code. Bit 0x80 on RT_PSECT and RT_SYM: its segment.
enum : uint8_t {
    RT_CONST = 0,   // v_offs
    RT_LOW = 1,     // low byte of the left operand
    RT_HIGH = 2,    // second byte
    RT_ADD = 4,
    RT_SUB = 5,
    RT_MUL = 6,
    RT_DIV = 7,
    RT_SHL = 8,
    RT_SHR = 9,
    RT_AND = 10,
    RT_OR = 11,
    RT_XOR = 12,
    RT_NOT = 13,     // complement
    RT_NEG = 14,     // negation
    RT_PSECT = 16,   // offset v_offs, in addressing units, in the psect v_sym
    RT_MOD = 17,
    RT_DEFINED = 20,   // 1 if the name v_name exists
    RT_SYM = 32,       // symbol v_sym plus v_offs
    RT_TLABF = 35,     // forward and backward temporary label v_sym (a record outside the symbol table; its
    RT_TLABB = 36,     // s_labelno is the number) plus v_offs
    RT_HERE = 37,      // current location plus v_offs
    RT_SEG = 0x80,
    RT_PSECT_SEG = 144,
    RT_SYM_SEG = 160,
};

// Codes of the operators, as the scanner gives them and value_binary and value_unary take them.
// clang-format off
enum : uint16_t {
    OPC_AND = 1, OPC_DIV = 2, OPC_EQ = 3, OPC_GE = 5, OPC_GT = 6, OPC_LE = 7, OPC_LT = 8, OPC_MINUS = 9, OPC_MOD = 10,
    OPC_MUL = 11, OPC_NE = 12, OPC_PLUS = 13, OPC_SEG = 14, OPC_SHL = 15, OPC_SHR = 16, OPC_XOR = 18, OPC_NOT = 19,
    OPC_LOW = 20, OPC_HIGH = 21, OPC_HIGHWORD = 22, OPC_ROR = 23, OPC_ROL = 24, OPC_OR = 25, OPC_FLOAT24 = 26,
    OPC_NORMALIZE32 = 27,
};
// clang-format on

struct value_t {
    packed_int64_t v_offs;   // a constant's value; for anything else an addend
    uint8_t v_rtype;
    uint8_t v_common;   // known to lie in the access bank
    uint16_t v_nodes;   // operators in the tree; 0 for a leaf
    union {
        ref<symbol_t> v_sym;         // RT_PSECT, RT_SYM, RT_TLABF, RT_TLABB and the segments
        ref<const value_t> v_kids;   // operators: the left operand, and behind it the right one of a binary kind
        ref<const char> v_name;      // RT_DEFINED
    };
};
static_assert(!XALLOC_LOW || sizeof(value_t) == 16);

constexpr uint32_t VALUE_MAX_NODES = 4000;

inline const value_t *value_left(const value_t *v) { return v->v_kids; }
inline const value_t *value_right(const value_t *v) { return v->v_kids + 1; }
// Whether it stands for a symbol's or a temporary label's.
inline bool value_is_reference(const value_t *v)
{
    return v->v_rtype == RT_SYM || v->v_rtype == RT_TLABF || v->v_rtype == RT_TLABB;
}
inline bool rtype_is_unary(uint8_t t) { return t == RT_LOW || t == RT_HIGH || t == RT_NOT || t == RT_NEG; }
inline bool rtype_is_binary(uint8_t t) { return (t >= RT_ADD && t <= RT_XOR) || t == RT_MOD; }

// Sums of numbers wrap around.
inline int64_t wrap_plus(int64_t a, int64_t b)
{
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t wrap_minus(int64_t a, int64_t b)
{
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// Leaves.
inline value_t value_const(int64_t n)
{
    value_t v = {};
    v.v_offs = n;
    return v;
}
inline value_t value_sym(symbol_t *s)
{
    value_t v = {};
    v.v_rtype = RT_SYM;
    v.v_sym = s;
    return v;
}
inline value_t value_psect_offset(symbol_t *psect, int64_t units)
{
    value_t v = {};
    v.v_offs = units;
    v.v_rtype = RT_PSECT;
    v.v_sym = psect;
    return v;
}

// Operator nodes, without folding; a tree that would grow past VALUE_MAX_NODES is message 839 "relocation too complex"
// (once a line) and gives the left operand. v_common of the left operand stays on the result.
value_t value_make_unary(uint8_t rtype, const value_t *left);
value_t value_make_binary(uint8_t rtype, const value_t *left, const value_t *right);

// `a` becomes `a code b`. Message 846; division and remainder by 0 are reported and leave `a` alone.
void value_binary(uint16_t code, value_t *a, const value_t *b);
// `v` changes in place. Messages 786, 1494, 846; `seg` of what has no segment is reported and changes nothing.
void value_unary(uint16_t code, value_t *v);
void value_copy(value_t *dst, const value_t *src);      // message 787 on an unknown kind; no caller
bool value_has_here(const value_t *v);                  // whether `$` is in it, which is where it comes to be used
bool value_equal(const value_t *a, const value_t *b);   // of the reduced forms, which is decided without a message

// Reduces `v` in place as far as the symbols' present values allow. Definitions that go round in a circle, and those that
// make too large a tree, leave it as it was, with message 839 once a line. A division by 0 is reported.
void value_reduce(value_t *v);
bool value_set_quiet(bool quiet);   // whether evaluation reports nothing; returns the former state
bool value_is_quiet();
inline void value_eval(value_t *v)
{
    if (v->v_rtype != RT_CONST)
        value_reduce(v);
}

// Whether the symbol's value is a reference to the symbol itself, as that of an undefined one is.
bool sym_is_self(const symbol_t *s);

// IEEE single-precision bits of `x`, or of -x, in the low 32 bits.
int64_t float_bits(double x, bool negate);
