// Operators have no precedence: an expression is a chain of terms, worked off from the left, and parentheses are the only
// means of grouping. Prefixes bind to the next term. A float is no term: it can begin an expression, and nothing more.
//
// What has been read and can't be worked off yet, a prefix, a parenthesis, or an operator with its left operand, waits on a
// stack of this module and not on the machine's, so that nesting ends in a message and never in a crash.
#include <cstring>

#include "code/tlab.h"
#include "common/alert.h"
#include "common/xalloc.h"
#include "front/parser.h"

// What waits for the end of a term: a binary operator with its left operand, a prefix, or an open parenthesis.
enum : uint16_t { WAIT_BINARY, WAIT_UNARY, WAIT_COMMON, WAIT_PAREN };
struct waiting_t {
    uint16_t kind, code;
    value_t left;
};
constexpr uint32_t STACK_FIRST = 200, STACK_MAX = 10000;

static struct {
    waiting_t *stack;
    uint32_t depth, capacity;
} es;

static bool push(uint16_t kind, uint16_t code, const value_t *left)
{
    if (es.depth == STACK_MAX)
        return parse_give_up();
    xreserve(es.stack, es.depth, es.depth + 1, es.capacity, STACK_FIRST);
    waiting_t *w = &es.stack[es.depth++];
    w->kind = kind;
    w->code = code;
    if (left)
        w->left = *left;
    return true;
}

// Applies what waits above the innermost open parenthesis to the term `v`.
static void reduce(value_t *v)
{
    while (es.depth > 0) {
        waiting_t *w = &es.stack[es.depth - 1];
        if (w->kind == WAIT_PAREN)
            return;
        es.depth--;
        if (w->kind == WAIT_UNARY) {
            value_unary(w->code, v);
        } else if (w->kind == WAIT_COMMON) {
            v->v_common = 1;
        } else {
            value_binary(w->code, &w->left, v);
            if (v->v_rtype != RT_CONST)
                w->left.v_common |= v->v_common;
            *v = w->left;
        }
    }
}

static void name_leaf(symbol_t *s, value_t *v)
{
    if (s->s_flags & (S_EQU | S_SET)) {
        *v = s->s_value;
    } else {
        *v = value_sym(s);
        sym_add_ref(s);
    }
}

static void label_reference(bool forward, value_t *v)
{
    symbol_t *record = tlab_lookup(yylval.num, forward);
    if (record) {
        *v = value_sym(record);
        v->v_rtype = forward ? RT_TLABF : RT_TLABB;
    } else {
        alert_msg(803);
        *v = value_const(0xFFFF);
    }
}

static void character(value_t *v)
{
    if (yylval.str_len != 1)
        alert_msg(875);
    *v = value_const(static_cast<unsigned char>(yylval.str[0]));
}

static bool is_binary_operator(int token)
{
    switch (token) {
    case T_OR:
    case T_AND:
    case T_RELOP:
    case T_SHIFT:
    case T_DIV:
    case T_PLUS:
    case T_MINUS:
    case T_STAR:
    case T_EQUALS: return true;
    default: return false;
    }
}

bool parse_expr_behind(int prefix, value_t *v)
{
    bool may_be_float = true;   // a float can only begin an expression
    es.depth = 0;
    if (prefix) {
        if (!expect(T_COLON) || (prefix == ACCESS_C && !push(WAIT_COMMON, 0, nullptr)))
            return false;
        may_be_float = false;
    }
    for (;;) {
        const int token = peek();
        switch (token) {
        case T_MINUS:
            take();
            if (!may_be_float || peek() != T_FLOAT) {
                if (!push(WAIT_UNARY, OPC_MINUS, nullptr))
                    return false;
                may_be_float = false;
                continue;
            }
            *v = value_const(float_bits(yylval.flt, true));
            break;
        case T_PLUS:
            take();
            may_be_float = false;
            continue;
        case T_NOT:
        case T_UNARY:
            take();
            if (!push(WAIT_UNARY, yylval.subop, nullptr))
                return false;
            may_be_float = false;
            continue;
        case ACCESS_B:
        case ACCESS_C:
            take();
            if (!expect(T_COLON) || (token == ACCESS_C && !push(WAIT_COMMON, 0, nullptr)))
                return false;
            may_be_float = false;
            continue;
        case T_LPAREN:
            take();
            if (!push(WAIT_PAREN, 0, nullptr))
                return false;
            may_be_float = true;
            continue;
        case T_FLOAT:
            if (!may_be_float)
                return syntax_error("an operand of whole numbers");
            *v = value_const(float_bits(yylval.flt, false));
            break;
        case T_NAME: name_leaf(yylval.sym, v); break;
        case T_INT: *v = value_const(yylval.num); break;
        case T_DOLLAR:
            *v = {};
            v->v_rtype = RT_HERE;
            v->v_common = (cur_psect->s_psect->p_flags & P_COMMON) != 0;
            break;
        case T_STRING: character(v); break;
        case T_TLABF:
        case T_TLABB: label_reference(token == T_TLABF, v); break;
        case T_DEFINED:
            take();
            if (peek() != T_STRING)
                return syntax_error("a name in quotes");
            *v = {};
            v->v_rtype = RT_DEFINED;
            v->v_name = yylval.str;
            break;
        default: return syntax_error("an operand");
        }
        take();
        // A term is complete; a closing parenthesis completes the one that it ends.
        for (;;) {
            reduce(v);
            const int next = peek();
            if (is_binary_operator(next)) {
                take();
                if (!push(WAIT_BINARY, yylval.subop, v))
                    return false;
                may_be_float = false;
                break;
            }
            if (es.depth == 0)
                return true;
            if (next != T_RPAREN)
                return syntax_error("an operator or \")\"");
            take();
            es.depth--;
        }
    }
}

bool parse_expr(value_t *v) { return parse_expr_behind(0, v); }
