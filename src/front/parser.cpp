// A line holds any number of labels, then at most one statement, then a comment or nothing. A statement's rule reads its
// operands and, when they are complete, makes the node. The end of the line is looked at only afterwards, so a line with
// something superfluous behind a whole statement is reported and assembled all the same.
//
// Operators have no precedence: an expression is a chain of terms, worked off from the left. Prefixes and parentheses
// wait on a stack of this module and not on the machine's, so that nesting ends in a message and never in a crash.
//
// A syntax error costs one message a line: the rest of the line is dropped, and until three tokens have been taken again
// further errors go unreported, for they are likely to come from the same cause.
#include "front/parser.h"

#include <cstring>

#include "chip/chip.h"
#include "code/program.h"
#include "code/tlab.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/fileutils.h"
#include "front/directives.h"
#include "front/macro.h"
#include "options.h"

parse_state_t parse_state;

// What waits for the end of a term: a binary operator with its left operand, a prefix, or an open parenthesis.
enum : uint16_t { WAIT_BINARY, WAIT_UNARY, WAIT_COMMON, WAIT_PAREN };
struct waiting_t {
    uint16_t kind, code;
    value_t left;
};
constexpr uint32_t STACK_FIRST = 200, STACK_MAX = 10000;

static struct {
    int token;               // look-ahead, 0 when none has been asked for
    uint32_t quiet;          // tokens still to be taken before errors are reported again
    bool gave_up;            // out of stack
    waiting_t *stack;
    uint32_t depth, capacity;
} ps;

// Tokens.

int peek()
{
    return ps.token ? ps.token : (ps.token = yylex());
}

void take()
{
    ps.token = 0;
    if (ps.quiet)
        ps.quiet--;
}

bool accept(int token)
{
    if (peek() != token)
        return false;
    take();
    return true;
}

bool expect(int token)
{
    return accept(token) || syntax_error();
}

void end_line()
{
    ps.token = T_EOL;
}

static void yyerror(const char *text)
{
    const bool known = srcpos.line_compiled || fileid_is_preprocessed(fileid(srcpos.phys_file));
    srcpos.cur_line = known ? srcpos.src_line : srcpos.phys_line;
    srcpos.cur_file = known ? srcpos.src_file : srcpos.phys_file;
    if (text) {
        alert_print("%s", text);
        alert_msg(877);
    } else {
        alert_msg(876);
    }
    if (srcpos.line_compiled) {
        srcpos.cur_line = srcpos.phys_line;
        srcpos.cur_file = srcpos.phys_file;
    }
}

bool syntax_error()
{
    if (ps.quiet == 0 && !ps.gave_up)
        yyerror(nullptr);
    return false;
}

// Drops the rest of the line. False at the end of all input.
static bool recover()
{
    ps.quiet = 3;
    lex_mode = LM_PLAIN;
    lex_space = 0;
    while (peek() != T_EOL && ps.token != T_COMMENT) {
        if (ps.token < 0)
            return false;
        ps.token = 0;
    }
    take();
    lex_skip_line();
    return true;
}

bool parse_int(int64_t *n)
{
    if (peek() != T_INT)
        return syntax_error();
    *n = yylval.num;
    take();
    return true;
}

bool parse_name(symbol_t **s)
{
    if (peek() != T_NAME)
        return syntax_error();
    *s = yylval.sym;
    take();
    return true;
}

bool parse_string(const char **s)
{
    const bool paren = accept(T_LPAREN);
    if (peek() != T_STRING)
        return syntax_error();
    *s = yylval.str;
    take();
    return !paren || expect(T_RPAREN);
}

// Expressions.

static bool push(uint16_t kind, uint16_t code, const value_t *left)
{
    if (ps.depth == ps.capacity) {
        if (ps.depth == STACK_MAX) {
            yyerror("memory exhausted");
            ps.gave_up = true;
            return false;
        }
        uint32_t larger = ps.capacity ? 2 * ps.capacity : STACK_FIRST;
        ps.capacity = larger < STACK_MAX ? larger : STACK_MAX;
        waiting_t *stack = xnew<waiting_t>(ps.capacity);
        if (ps.depth)
            memcpy(stack, ps.stack, ps.depth * sizeof *stack);
        ps.stack = stack;
    }
    waiting_t *w = &ps.stack[ps.depth++];
    w->kind = kind;
    w->code = code;
    if (left)
        w->left = *left;
    return true;
}

// Applies what waits above the innermost open parenthesis to the term `v`.
static void reduce(value_t *v)
{
    while (ps.depth > 0) {
        waiting_t *w = &ps.stack[ps.depth - 1];
        if (w->kind == WAIT_PAREN)
            return;
        ps.depth--;
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
    case T_OR: case T_AND: case T_RELOP: case T_SHIFT: case T_DIV: case T_PLUS: case T_MINUS: case T_STAR: case T_EQUALS:
        return true;
    default:
        return false;
    }
}

// An expression; `prefix` is the word `b` or `c` if it has been taken already as the beginning of one, else 0.
static bool parse_expr_behind(int prefix, value_t *v)
{
    bool may_be_float = true;   // a float can only begin an expression
    ps.depth = 0;
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
                return syntax_error();
            *v = value_const(float_bits(yylval.flt, false));
            break;
        case T_NAME:
            name_leaf(yylval.sym, v);
            break;
        case T_INT:
            *v = value_const(yylval.num);
            break;
        case T_DOLLAR:
            *v = {};
            v->v_rtype = RT_HERE;
            v->v_common = (cur_psect->s_flags & S_COMMON) != 0;
            break;
        case T_STRING:
            character(v);
            break;
        case T_TLABF:
        case T_TLABB:
            label_reference(token == T_TLABF, v);
            break;
        case T_DEFINED:
            take();
            if (peek() != T_STRING)
                return syntax_error();
            *v = {};
            v->v_rtype = RT_DEFINED;
            v->v_name = yylval.str;
            break;
        default:
            return syntax_error();
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
            if (ps.depth == 0)
                return true;
            if (next != T_RPAREN)
                return syntax_error();
            take();
            ps.depth--;
        }
    }
}

bool parse_expr(value_t *v)
{
    return parse_expr_behind(0, v);
}

// Statements.

op_t *stmt_new_op(uint16_t type)
{
    if (srcpos.line_follows)
        srcpos.src_line = srcpos.phys_line;
    op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
    op->op_type = type;
    op->op_flags |= parse_state.stmt_flags;
    op->op_callstack = parse_state.callstack_depth;
    parse_state.last_op = op;
    return op;
}

// The node of an instruction, whose operands are complete.
static op_t *instruction(int type, uint16_t subop, bool check_arch = true)
{
    op_t *op = stmt_new_op(static_cast<uint16_t>(type));
    op->op_subop = subop;
    if (check_arch)
        op_check_arch();
    return op;
}

static void operand(opnd_t *o, uint8_t kind, const value_t *v)
{
    o->opnd_kind = kind;
    o->opnd_value = *v;
}

// A number among the optional operands: 0 and 1 give `zero` and `one`; anything else is message 876 and `other`.
static uint16_t choose(int64_t n, uint16_t zero, uint16_t one, uint16_t other)
{
    if (n == 0 || n == 1)
        return n ? one : zero;
    alert_msg(876);
    return other;
}

static bool is_access_word(int token) { return token == ACCESS_B || token == ACCESS_C || token == ACCESS_A; }
static bool is_dest_word(int token) { return token == DEST_W || token == DEST_F; }
static uint16_t access_word(int token) { return token == ACCESS_B ? ACCESS_B : ACCESS_C; }

struct dest_access_t {
    uint16_t dest, access;
    unsigned count;          // operands written
};

static bool parse_dest_access(dest_access_t *d)
{
    *d = {DEST_F, ACCESS_NONE, 0};
    if (!accept(T_COMMA))
        return true;
    int token = peek();
    d->count = 1;
    if (token == T_INT) {
        int64_t n = yylval.num, m;
        take();
        d->dest = choose(n, DEST_W, DEST_F, DEST_F);
        if (!accept(T_COMMA))
            return true;
        if (!parse_int(&m))
            return false;
        d->access = choose(m, ACCESS_C, ACCESS_B, ACCESS_B);
        d->count = 2;
        return true;
    }
    if (!is_access_word(token) && !is_dest_word(token))
        return syntax_error();
    const bool access_first = is_access_word(token);
    (access_first ? d->access : d->dest) = access_first ? access_word(token) : static_cast<uint16_t>(token);
    take();
    if (!accept(T_COMMA))
        return true;
    token = peek();
    if (access_first ? !is_dest_word(token) : !is_access_word(token))
        return syntax_error();
    (access_first ? d->dest : d->access) = access_first ? static_cast<uint16_t>(token) : access_word(token);
    d->count = 2;
    take();
    return true;
}

static bool parse_access_opt(uint16_t *access)
{
    *access = ACCESS_NONE;
    if (!accept(T_COMMA))
        return true;
    const int token = peek();
    if (token == T_INT)
        *access = choose(yylval.num, ACCESS_C, ACCESS_B, ACCESS_B);
    else if (is_access_word(token))
        *access = access_word(token);
    else
        return syntax_error();
    take();
    return true;
}

// Behind movff: a word for the access bank, which says nothing.
static bool parse_access_ignored()
{
    if (!accept(T_COMMA))
        return true;
    return accept(ACCESS_C) || expect(ACCESS_A);
}

static bool parse_index_dest(uint16_t *dest)
{
    *dest = DEST_F;
    if (!accept(T_COMMA))
        return true;
    const int token = peek();
    if (token == T_INT)
        *dest = choose(yylval.num, DEST_W, DEST_F, DEST_F);
    else if (is_dest_word(token))
        *dest = static_cast<uint16_t>(token);
    else
        return syntax_error();
    take();
    return true;
}

// Behind return and retfie, without a comma.
static bool parse_fast_opt(uint16_t *fast)
{
    *fast = 0;
    if (accept(DEST_F)) {
        *fast = 1;
    } else if (peek() == T_INT) {
        *fast = choose(yylval.num, 0, 1, 0);
        take();
    }
    return true;
}

// Behind tblrd and tblwt.
static bool parse_table_mode(uint16_t *mode)
{
    *mode = 0;
    if (accept(T_PLUS)) {
        *mode = 3;
        return expect(T_STAR);
    }
    if (accept(T_STAR))
        *mode = accept(T_PLUS) ? 1 : accept(T_MINUS) ? 2 : 0;
    return true;
}

static bool parse_bracketed(value_t *v)
{
    return expect(T_LBRACKET) && parse_expr(v) && expect(T_RBRACKET);
}

static void set_access(op_t *op, uint16_t access)
{
    op->op_access = access;
    op->op_opnd1.opnd_access = access;
}

static void need_extended_set()
{
    if (!opt.xinst)
        alert_msg(2064);
}

// A file operand in square brackets: an offset from the third file select register, in the access bank's place.
static op_t *indexed_instruction(int type, uint16_t subop, const value_t *v, bool report, bool eval)
{
    op_t *op = instruction(type, subop);
    operand(&op->op_opnd1, OPND_DATA, v);
    if (report)
        need_extended_set();
    op->op_flags |= OPF_INDEXED;
    set_access(op, ACCESS_C);
    if (eval)
        value_eval(&op->op_opnd1.opnd_value);
    return op;
}

static op_t *file_instruction(int type, uint16_t subop, const value_t *v, uint16_t access, bool eval)
{
    op_t *op = instruction(type, subop);
    operand(&op->op_opnd1, OPND_DATA, v);
    set_access(op, op_resolve_access(access, v));
    if (eval)
        value_eval(&op->op_opnd1.opnd_value);
    return op;
}

// addwf x,w,c and its like.
static bool parse_file_dest(int type, uint16_t subop, bool eval)
{
    value_t v;
    if (peek() == T_LBRACKET) {
        uint16_t dest;
        if (!parse_bracketed(&v) || !parse_index_dest(&dest))
            return false;
        indexed_instruction(type, subop, &v, true, false)->op_dest = dest;
        return true;
    }
    dest_access_t d;
    if (!parse_expr(&v) || !parse_dest_access(&d))
        return false;
    file_instruction(type, subop, &v, d.access, eval)->op_dest = d.dest;
    return true;
}

// mulwf x,c and its like.
static bool parse_file(int type, uint16_t subop, uint16_t dest, bool eval)
{
    value_t v;
    if (peek() == T_LBRACKET) {
        if (!parse_bracketed(&v))
            return false;
        indexed_instruction(type, subop, &v, true, eval)->op_dest = dest;
        return true;
    }
    uint16_t access;
    if (!parse_expr(&v) || !parse_access_opt(&access))
        return false;
    file_instruction(type, subop, &v, access, eval)->op_dest = dest;
    return true;
}

// movwf takes what others take as a destination. Taken literally it is the access bit; otherwise `movwf x,w` is `movf x,w`.
static bool parse_movwf(uint16_t subop)
{
    value_t v;
    if (peek() == T_LBRACKET) {
        if (!parse_bracketed(&v))
            return false;
        indexed_instruction(T_MOVWF, subop, &v, false, true)->op_dest = DEST_F;
        return true;
    }
    dest_access_t d;
    if (!parse_expr(&v) || !parse_dest_access(&d))
        return false;
    op_t *op = file_instruction(T_MOVWF, subop, &v, d.access, true);
    op->op_dest = d.dest;
    if (opt.no_trans && d.access == ACCESS_NONE) {
        if (d.count != 0)
            set_access(op, op_resolve_access(d.dest == DEST_W ? ACCESS_C : ACCESS_B, &v));
        op->op_dest = DEST_F;
    } else if (d.dest == DEST_W) {
        op->op_type = T_MOVF;
        op->op_subop = 0x5000;
    }
    return true;
}

// bcf and btfsc: the access word may stand before the bit number too.
static bool parse_bit(int type, uint16_t subop)
{
    value_t file, bit;
    if (peek() == T_LBRACKET) {
        if (!parse_bracketed(&file) || !expect(T_COMMA) || !parse_expr(&bit))
            return false;
        op_t *op = indexed_instruction(type, subop, &file, true, false);
        operand(&op->op_opnd2, OPND_BIT, &bit);
        return true;
    }
    if (!parse_expr(&file) || !expect(T_COMMA))
        return false;
    const int word = peek();
    int prefix = 0;
    if (word == ACCESS_B || word == ACCESS_C) {
        take();
        if (accept(T_COMMA)) {
            if (!parse_expr(&bit))
                return false;
            op_t *op = instruction(type, subop);
            operand(&op->op_opnd1, OPND_DATA, &file);
            operand(&op->op_opnd2, OPND_BIT, &bit);
            op->op_access = word == ACCESS_C ? ACCESS_C : 0;
            return true;
        }
        prefix = word;
    }
    uint16_t access;
    if (!parse_expr_behind(prefix, &bit) || !parse_access_opt(&access))
        return false;
    operand(&file_instruction(type, subop, &file, access, false)->op_opnd2, OPND_BIT, &bit);
    return true;
}

static bool parse_movff(int type, uint16_t subop)
{
    value_t from, to;
    if (!parse_expr(&from) || !expect(T_COMMA))
        return false;
    int prefix = 0;
    if (type == T_MOVFF && accept(ACCESS_C) && !accept(T_COMMA))
        prefix = ACCESS_C;
    if (!parse_expr_behind(prefix, &to) || !parse_access_ignored())
        return false;
    op_t *op = instruction(type, subop);
    operand(&op->op_opnd1, OPND_DATA, &from);
    operand(&op->op_opnd2, OPND_DATA, &to);
    value_eval(&op->op_opnd1.opnd_value);
    value_eval(&op->op_opnd2.opnd_value);
    return true;
}

// movsf, movsfl and movss.
static bool parse_stack_move(int type, uint16_t subop)
{
    value_t from, to;
    if (!parse_bracketed(&from) || !expect(T_COMMA) || !(type == T_MOVSS ? parse_bracketed(&to) : parse_expr(&to)))
        return false;
    op_t *op = instruction(type, subop);
    operand(&op->op_opnd1, OPND_DATA, &from);
    operand(&op->op_opnd2, OPND_DATA, &to);
    need_extended_set();
    return true;
}

static bool parse_code(int type, uint16_t subop)
{
    value_t v;
    if (!parse_expr(&v))
        return false;
    uint16_t fast = 0;
    if (type == T_CALL && accept(T_COMMA)) {
        if (peek() == T_INT)
            fast = choose(yylval.num, 0, 0x0100, 0);
        else if (peek() == DEST_F)
            fast = 0x0100;
        else
            return syntax_error();
        take();
    }
    operand(&instruction(type, subop | fast)->op_opnd1, OPND_CODE, &v);
    return true;
}

static bool parse_literal(int type, uint16_t subop, bool extended)
{
    value_t v;
    if (!parse_expr(&v))
        return false;
    operand(&instruction(type, subop)->op_opnd1, OPND_LIT, &v);
    if (extended)
        need_extended_set();
    return true;
}

// lfsr, addfsr and subfsr: the number of a file select register, and a literal.
static bool parse_file_select(int type, uint16_t subop)
{
    value_t number, literal;
    if (!parse_expr(&number) || !expect(T_COMMA) || !parse_expr(&literal))
        return false;
    op_t *op = instruction(type, subop, type == T_LFSR || !opt.xinst);
    operand(&op->op_opnd1, OPND_LIT, &number);
    operand(&op->op_opnd2, OPND_LIT, &literal);
    value_t *v = &op->op_opnd1.opnd_value;
    value_eval(v);
    if (v->v_rtype != RT_CONST || static_cast<uint64_t>(v->v_offs) > 3)
        alert_msg(type == T_LFSR ? 1225 : 1495);
    if (type == T_LFSR)
        op->op_subop = static_cast<uint16_t>(static_cast<uint64_t>(v->v_offs) * 16 | subop);
    return true;
}

enum parsed_t { PARSED, FAILED, NOT_MINE };
static parsed_t parsed(bool ok) { return ok ? PARSED : FAILED; }

// The instruction whose mnemonic has been taken.
static parsed_t parse_instruction(int token, uint16_t subop)
{
    value_t v;
    uint16_t low_bits;
    switch (token) {
    case T_RLCF: case T_SWAPF: case T_ANDWF: case T_SUBWF: case T_ADDWF: case T_INCF: case T_MOVF:
        return parsed(parse_file_dest(token, subop, true));
    case T_DECFSZ:
        return parsed(parse_file_dest(token, subop, false));
    case T_CPFSEQ: case T_MULWF:
        return parsed(parse_file(token, subop, DEST_F, true));
    case T_CLRF:
        return parsed(parse_file(token, subop, 0, false));
    case T_MOVWF:
        return parsed(parse_movwf(subop));
    case T_BCF: case T_BTFSC:
        return parsed(parse_bit(token, subop));
    case T_MOVFF: case T_MOVFFL:
        return parsed(parse_movff(token, subop));
    case T_GOTO: case T_BRA: case T_RCALL: case T_BCC: case T_CALL:
        return parsed(parse_code(token, subop));
    case T_CALLW:
        instruction(token, subop, !opt.xinst);
        return PARSED;
    case T_MOVLW: case T_MOVLB: case T_ADDLW: case T_RETLW: case T_SETCNT:
        return parsed(parse_literal(token, subop, false));
    case T_ADDULNK: case T_PUSHL:
        return parsed(parse_literal(token, subop, true));
    case T_LFSR: case T_ADDFSR:
        return parsed(parse_file_select(token, subop));
    case T_RETURN:
        parse_fast_opt(&low_bits);
        instruction(token, subop + low_bits);
        return PARSED;
    case T_TBLRD:
        if (!parse_table_mode(&low_bits))
            return FAILED;
        instruction(token, subop + low_bits);
        return PARSED;
    case T_TBLRDMODE:
        instruction(T_TBLRD, subop);
        return PARSED;
    case T_NOP:
        instruction(token, opt.no_trans && subop == 0xF000 ? 0 : subop);
        return PARSED;
    case T_PUSH: case T_TRAP: case T_TRET: case T_DBOUT:
        instruction(token, subop);
        return PARSED;
    case T_MOVSF: case T_MOVSFL: case T_MOVSS:
        return parsed(parse_stack_move(token, subop));
    case T_BANKSEL:
        if (!parse_expr(&v))
            return FAILED;
        operand(&instruction(token, subop, false)->op_opnd1, OPND_DATA, &v);
        return PARSED;
    case T_PAGESEL:   // program memory has no pages here
        return parsed(parse_expr(&v));
    default:
        return NOT_MINE;
    }
}

static void define_label(symbol_t *s)
{
    op_t *op = stmt_new_op(T_NAME);
    op->op_sym = s;
    if (s->s_defop || (s->s_flags & S_EQU))
        alert_msg(845, s->s_name);
    s->s_defop = op;
    sym_add_ref(s);
    s->s_owner = cur_psect;
    if (s->s_flags & S_EXTERN)
        alert_msg(848);
    s->s_flags &= ~static_cast<uint64_t>(S_EXTERN | S_UNDEF);
}

static void define_temporary_label(int64_t number)
{
    op_t *op = stmt_new_op(T_NUMLABEL);
    op->op_tlab = static_cast<uint64_t>(number);
    op->op_opnd1.opnd_value.v_sym = tlab_define(number, op);
}

// Behind a whole statement: the end of the line, or a comment.
static bool parse_end_of_statement(stmt_end_t end)
{
    const int token = peek();
    if (token == T_COMMENT) {
        if (end == END_CONTROL)
            op_comment_add(yylval.str, yylval.str_len);
        else if (parse_state.last_op)
            parse_state.last_op->op_remark = xstrndup(yylval.str, yylval.str_len);
    } else if (token != T_EOL) {
        return syntax_error();
    }
    take();
    lex_skip_line();
    return true;
}

// Behind `end`: nothing more may follow in all the input. What does is reported once and then read as usual.
static bool parse_end()
{
    value_t v;
    if (peek() != T_EOL && ps.token != T_COMMENT) {
        if (!parse_expr(&v))
            return false;
        program.end_value = v;
        program.has_end_value = true;
    }
    if (peek() != T_EOL && ps.token != T_COMMENT)
        return syntax_error();
    take();
    lex_skip_line();
    return peek() < 0 || syntax_error();
}

// One line, up to and including its end.
static bool parse_statement()
{
    bool labelled = false;
    for (;;) {
        const int token = peek();
        if (token == T_COMMENT) {
            op_comment_add(yylval.str, yylval.str_len);
            take();
            lex_skip_line();
            return true;
        }
        if (token == T_EOL) {
            take();
            lex_skip_line();
            return true;
        }
        if (token == T_NAME) {
            symbol_t *s = yylval.sym;
            take();
            if (accept(T_COLON)) {
                define_label(s);
                labelled = true;
                continue;
            }
            const int word = peek();
            if (word != T_EQU && word != T_SET && word != T_MACRO)
                return syntax_error();
            take();
            return (word == T_MACRO ? macro_statement(s) : parse_definition(s, word)) && parse_end_of_statement(END_COMMAND);
        }
        if (token == T_INT) {
            const int64_t number = yylval.num;
            take();
            if (!expect(T_COLON))
                return false;
            define_temporary_label(number);
            labelled = true;
            continue;
        }
        if (token == T_END && !labelled) {
            take();
            return parse_end();
        }
        take();
        stmt_end_t end = END_COMMAND;
        parsed_t result = parse_instruction(token, yylval.subop);
        if (result == NOT_MINE)
            result = parsed(parse_directive(token, &end));
        return result == PARSED && parse_end_of_statement(end);
    }
}

void yyparse()
{
    while (peek() >= 0)
        if (!parse_statement() && (ps.gave_up || !recover()))
            return;
}
