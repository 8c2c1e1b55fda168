// An instruction is a mnemonic and operands. Kinds of instructions with the same operands share a rule; the rule reads the
// operands to their end and then makes the node, so that a bad operand leaves no node behind and a superfluous one does.
//
// Which bank a file operand lies in is decided here, from what is written behind it, what the operand is, and the chip.
#include "front/instruction.h"

#include "chip/chip.h"
#include "code/oprows.h"
#include "common/alert.h"
#include "front/parser.h"
#include "options.h"

// The node of an instruction, whose operands are complete.
static op_t *instruction(token_t type, uint16_t subop, bool check_arch = true)
{
    op_t *op = stmt_new_op(type);
    op->op_subop = subop;
    if (check_arch)
        op_check_arch(type);
    return op;
}

static void operand(opnd_t *o, opnd_kind_t kind, const value_t *v)
{
    o->opnd_kind = kind;
    o->opnd_value = *v;
}

// A number among the optional operands: 0 and 1 give `zero` and `one`; anything else is message 876 and `other`.
template <class T> static T choose(int64_t n, T zero, T one, T other)
{
    if (n == 0 || n == 1)
        return n ? one : zero;
    alert_hint("expected 0 or 1, found %lld", static_cast<long long>(n));
    alert_msg(876);
    return other;
}

static bool is_access_word(int token) { return token == ACCESS_B || token == ACCESS_C || token == ACCESS_A; }
static bool is_dest_word(int token) { return token == DEST_W || token == DEST_F; }
static access_t access_word(int token) { return token == ACCESS_B ? ACCESS_B : ACCESS_C; }
static dest_t dest_word(int token) { return token == DEST_W ? DEST_W : DEST_F; }

struct dest_access_t {
    dest_t dest;
    access_t access;
    unsigned count;   // operands written
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
        if (accept(T_COMMA)) {
            if (!parse_int(&m))
                return false;
            d->access = choose(m, ACCESS_C, ACCESS_B, ACCESS_B);
            d->count = 2;
        }
        d->dest = choose(n, DEST_W, DEST_F, DEST_F);
        return true;
    }
    if (!is_access_word(token) && !is_dest_word(token))
        return syntax_error("w, f, 0 or 1, or a word for the bank: a, b, c");
    const bool access_first = is_access_word(token);
    if (access_first)
        d->access = access_word(token);
    else
        d->dest = dest_word(token);
    take();
    if (!accept(T_COMMA))
        return true;
    token = peek();
    if (access_first ? !is_dest_word(token) : !is_access_word(token))
        return syntax_error(access_first ? "w or f" : "a word for the bank: a, b, c");
    if (access_first)
        d->dest = dest_word(token);
    else
        d->access = access_word(token);
    d->count = 2;
    take();
    return true;
}

static bool parse_access_opt(access_t *access)
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
        return syntax_error("0 or 1, or a word for the bank: a, b, c");
    take();
    return true;
}

// Behind movff: a word for the access bank, which says nothing.
static bool parse_access_ignored()
{
    if (!accept(T_COMMA))
        return true;
    return accept(ACCESS_C) || accept(ACCESS_A) || syntax_error("c or a");
}

static bool parse_index_dest(dest_t *dest)
{
    *dest = DEST_F;
    if (!accept(T_COMMA))
        return true;
    const int token = peek();
    if (token == T_INT)
        *dest = choose(yylval.num, DEST_W, DEST_F, DEST_F);
    else if (is_dest_word(token))
        *dest = dest_word(token);
    else
        return syntax_error("w, f, 0 or 1");
    take();
    return true;
}

// Behind return and retfie, without a comma.
static void parse_fast_opt(uint16_t *fast)
{
    *fast = 0;
    if (accept(DEST_F)) {
        *fast = RETURN_FAST;
    } else if (peek() == T_INT) {
        *fast = choose<uint16_t>(yylval.num, 0, RETURN_FAST, 0);
        take();
    }
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

static bool parse_bracketed(value_t *v) { return expect(T_LBRACKET) && parse_expr(v) && expect(T_RBRACKET); }

static void set_access(op_t *op, access_t access)
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
static op_t *indexed_instruction(token_t type, uint16_t subop, const value_t *v, bool report, bool eval)
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

static op_t *file_instruction(token_t type, uint16_t subop, const value_t *v, access_t access, bool eval)
{
    op_t *op = instruction(type, subop);
    operand(&op->op_opnd1, OPND_DATA, v);
    set_access(op, op_resolve_access(access, v));
    if (eval)
        value_eval(&op->op_opnd1.opnd_value);
    return op;
}

// addwf x,w,c and its like.
static bool parse_file_dest(token_t type, uint16_t subop, bool eval)
{
    value_t v;
    if (peek() == T_LBRACKET) {
        dest_t dest;
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
static bool parse_file(token_t type, uint16_t subop, dest_t dest, bool eval)
{
    value_t v;
    if (peek() == T_LBRACKET) {
        if (!parse_bracketed(&v))
            return false;
        indexed_instruction(type, subop, &v, true, eval)->op_dest = dest;
        return true;
    }
    access_t access;
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
        op->op_subop = op_template("movf");
    }
    return true;
}

// bcf and btfsc: the access word may stand before the bit number too.
static bool parse_bit(token_t type, uint16_t subop)
{
    value_t file, bit;
    if (peek() == T_LBRACKET) {
        if (!parse_bracketed(&file) || !expect(T_COMMA) || !parse_expr(&bit))
            return false;
        op_t *op = indexed_instruction(type, subop, &file, true, false);
        operand(op_opnd2_make(op), OPND_BIT, &bit);
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
            operand(op_opnd2_make(op), OPND_BIT, &bit);
            op->op_access = word == ACCESS_C ? ACCESS_C : ACCESS_UNSET;
            op->op_opnd1.opnd_access = access_word(word);   // doesn't encode; tells the optimiser which register it is
            return true;
        }
        prefix = word;
    }
    access_t access;
    if (!parse_expr_behind(prefix, &bit) || !parse_access_opt(&access))
        return false;
    operand(op_opnd2_make(file_instruction(type, subop, &file, access, false)), OPND_BIT, &bit);
    return true;
}

static bool parse_movff(token_t type, uint16_t subop)
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
    operand(op_opnd2_make(op), OPND_DATA, &to);
    value_eval(&op->op_opnd1.opnd_value);
    value_eval(&op_opnd2_make(op)->opnd_value);
    return true;
}

// movsf, movsfl and movss.
static bool parse_stack_move(token_t type, uint16_t subop)
{
    value_t from, to;
    if (!parse_bracketed(&from) || !expect(T_COMMA) || !(type == T_MOVSS ? parse_bracketed(&to) : parse_expr(&to)))
        return false;
    op_t *op = instruction(type, subop);
    operand(&op->op_opnd1, OPND_DATA, &from);
    operand(op_opnd2_make(op), OPND_DATA, &to);
    need_extended_set();
    return true;
}

static bool parse_code(token_t type, uint16_t subop)
{
    value_t v;
    if (!parse_expr(&v))
        return false;
    uint16_t fast = 0;
    if (type == T_CALL && accept(T_COMMA)) {
        if (peek() == T_INT)
            fast = choose<uint16_t>(yylval.num, 0, CALL_FAST, 0);
        else if (peek() == DEST_F)
            fast = CALL_FAST;
        else
            return syntax_error("f, 0 or 1");
        take();
    }
    operand(&instruction(type, subop | fast)->op_opnd1, OPND_CODE, &v);
    return true;
}

static bool parse_literal(token_t type, uint16_t subop, bool extended)
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
static bool parse_file_select(token_t type, uint16_t subop)
{
    value_t number, literal;
    if (!parse_expr(&number) || !expect(T_COMMA) || !parse_expr(&literal))
        return false;
    op_t *op = instruction(type, subop, type == T_LFSR || !opt.xinst);
    operand(&op->op_opnd1, OPND_LIT, &number);
    operand(op_opnd2_make(op), OPND_LIT, &literal);
    value_t *v = &op->op_opnd1.opnd_value;
    value_eval(v);
    if (v->v_rtype != RT_CONST || static_cast<uint64_t>(v->v_offs) > 3)
        alert_msg(type == T_LFSR ? 1225 : 1495);
    if (type == T_LFSR)
        op->op_subop = static_cast<uint16_t>(static_cast<uint64_t>(v->v_offs) * 16 | subop);
    return true;
}

bool parse_instruction(int token, uint16_t subop, bool *mine)
{
    *mine = true;
    value_t v;
    uint16_t low_bits;
    const auto type = static_cast<token_t>(token);
    switch (type) {
    case T_RLCF:
    case T_SWAPF:
    case T_ANDWF:
    case T_SUBWF:
    case T_ADDWF:
    case T_INCF:
    case T_MOVF: return parse_file_dest(type, subop, true);
    case T_DECFSZ: return parse_file_dest(type, subop, false);
    case T_CPFSEQ:
    case T_MULWF: return parse_file(type, subop, DEST_F, true);
    case T_CLRF: return parse_file(type, subop, DEST_NONE, false);
    case T_MOVWF: return parse_movwf(subop);
    case T_BCF:
    case T_BTFSC: return parse_bit(type, subop);
    case T_MOVFF:
    case T_MOVFFL: return parse_movff(type, subop);
    case T_GOTO:
    case T_BRA:
    case T_RCALL:
    case T_BCC:
    case T_CALL: return parse_code(type, subop);
    case T_CALLW: instruction(type, subop, !opt.xinst); return true;
    case T_MOVLW:
    case T_MOVLB:
    case T_ADDLW:
    case T_RETLW:
    case T_SETCNT: return parse_literal(type, subop, false);
    case T_ADDULNK:
    case T_PUSHL: return parse_literal(type, subop, true);
    case T_LFSR:
    case T_ADDFSR: return parse_file_select(type, subop);
    case T_RETURN:
        parse_fast_opt(&low_bits);
        instruction(type, subop + low_bits);
        return true;
    case T_TBLRD:
        if (!parse_table_mode(&low_bits))
            return false;
        instruction(type, subop + low_bits);
        return true;
    case T_TBLRDMODE: instruction(T_TBLRD, subop); return true;
    case T_NOP: instruction(type, opt.no_trans && subop == op_template("nop") ? 0 : subop); return true;
    case T_PUSH:
    case T_TRAP:
    case T_TRET:
    case T_DBOUT: instruction(type, subop); return true;
    case T_MOVSF:
    case T_MOVSFL:
    case T_MOVSS: return parse_stack_move(type, subop);
    case T_BANKSEL:
        if (!parse_expr(&v))
            return false;
        operand(&instruction(type, subop, false)->op_opnd1, OPND_DATA, &v);
        return true;
    case T_PAGESEL:   // program memory has no pages here
        return parse_expr(&v);
    default: *mine = false; return false;
    }
}
