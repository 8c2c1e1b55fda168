// Tokens, one at a time, and what the rules of statements share: simple operands, and nodes at the end of the current psect.
//
// A syntax error costs one message a line: the rest of the line is dropped. An error in another line is that line's own. But
// the lines of a macro's expansion all show the same place, where further errors are likely to come from the same cause: there
// they go unreported until three tokens have been taken.
#include "front/parser.h"

#include <cstring>

#include "common/alert.h"
#include "common/srcpos.h"
#include "env/fileutils.h"
#include "options.h"

parse_state_t parse_state;

static struct {
    int token;                // look-ahead, 0 when none has been asked for
    uint32_t quiet;           // tokens still to be taken before an error is reported again at the place of the last one
    const char *error_file;   // that place
    int64_t error_line;
    bool gave_up;   // out of stack
} ps;

// Tokens.

// A token that has been taken counts when the next one is asked for: one that turns out to begin nothing doesn't.
static void count_taken()
{
    if (ps.token == 0 && ps.quiet > 0)
        ps.quiet--;
}

int peek()
{
    if (ps.token == 0) {
        count_taken();
        ps.token = yylex();
    }
    return ps.token;
}

void take() { ps.token = 0; }

bool accept(int token)
{
    if (peek() != token)
        return false;
    take();
    return true;
}

bool expect(int token)
{
    static constexpr struct {
        int token;
        const char *text;
    } rows[] = {
        {T_COMMA, "\",\""},    {T_COLON, "\":\""},    {T_EQUALS, "\"=\""}, {T_RPAREN, "\")\""},
        {T_LBRACKET, "\"[\""}, {T_RBRACKET, "\"]\""}, {T_STAR, "\"*\""},
    };
    const char *text = nullptr;
    for (const auto &row : rows)
        if (row.token == token)
            text = row.text;
    return accept(token) || syntax_error(text);
}

void end_line()
{
    count_taken();
    ps.token = T_EOL;
}

// An error in what another tool wrote is shown where it comes from, if that is known. In a preprocessed source, messages show
// the position that `#` lines tell, and where it stands must not change by an error.
static void yyerror(const char *text)
{
    const srcpos_t here = srcpos;
    const bool compiled = srcpos.line_compiled, preprocessed = fileid_is_preprocessed(fileid(srcpos.phys_file));
    if (srcpos.src_line != 0 && (compiled || (preprocessed && !srcpos.src_stale))) {
        srcpos.cur_line = srcpos.src_line;
        srcpos.cur_file = srcpos.src_file;
    } else if (compiled || !preprocessed) {
        srcpos.cur_line = srcpos.phys_line;
        srcpos.cur_file = srcpos.phys_file;
    }
    if (text) {
        alert_print("%s", text);
        alert_msg(877);
    } else {
        alert_msg(876);
    }
    if (compiled) {
        srcpos.cur_line = srcpos.phys_line;
        srcpos.cur_file = srcpos.phys_file;
    } else if (preprocessed) {
        srcpos.cur_line = here.cur_line;
        srcpos.cur_file = here.cur_file;
    }
}

bool parse_is_quiet()
{
    return ps.gave_up || (ps.quiet > 0 && ps.error_line == srcpos.phys_line && ps.error_file == srcpos.phys_file);
}

static void hint_at(const char *expected)
{
    lex_line_t line;
    if (ps.token == T_EOL || ps.token == T_COMMENT)
        alert_hint("expected %s, found the end of the line", expected);
    else if (ps.token < 0 || !lex_line(&line))
        alert_hint("expected %s, found the end of the file", expected);
    else
        alert_hint("expected %s, found \"%.*s\"", expected, static_cast<int>(line.token_length), line.text + line.token);
}

bool syntax_error(const char *expected)
{
    if (!parse_is_quiet()) {
        if (expected)
            hint_at(expected);
        yyerror(nullptr);
    }
    ps.error_file = srcpos.phys_file;
    ps.error_line = srcpos.phys_line;
    return false;
}

bool parse_give_up()
{
    if (!ps.gave_up)
        yyerror("memory exhausted");
    ps.gave_up = true;
    return false;
}

bool parse_recover()
{
    if (ps.gave_up)
        return false;
    while (peek() != T_EOL && ps.token != T_COMMENT) {
        if (ps.token < 0)
            return false;
        take();
    }
    take();
    ps.quiet = 3;
    lex_skip_line();
    return true;
}

bool parse_int(int64_t *n)
{
    if (peek() != T_INT)
        return syntax_error("a number");
    *n = yylval.num;
    take();
    return true;
}

bool parse_name(symbol_t **s)
{
    if (peek() != T_NAME)
        return syntax_error("a name");
    *s = yylval.sym;
    take();
    return true;
}

bool parse_string(const char **s)
{
    const bool paren = accept(T_LPAREN);
    if (peek() != T_STRING)
        return syntax_error("a string");
    *s = yylval.str;
    take();
    return !paren || expect(T_RPAREN);
}

bool parse_const(value_t *v, int64_t least, int64_t most, unsigned number)
{
    if (!parse_expr(v))
        return false;
    if (v->v_rtype != RT_CONST || v->v_offs < least || v->v_offs > most) {
        if (v->v_rtype != RT_CONST)
            alert_hint("it has to be a number that is known here");
        else if (most == INT64_MAX)
            alert_hint("it is %lld, and may not be below %lld", static_cast<long long>(v->v_offs),
                       static_cast<long long>(least));
        else
            alert_hint("it is %lld, and may be from %lld to %lld", static_cast<long long>(v->v_offs),
                       static_cast<long long>(least), static_cast<long long>(most));
        alert_msg(number);
    }
    return true;
}

void parse_check_field(const char *what, int64_t n, int64_t most)
{
    if (n < 0 || n > most)
        alert_msg(2210, what, 0LL, static_cast<long long>(most), static_cast<long long>(n));
}

// Nodes.

op_t *stmt_new_op(token_t type)
{
    if (srcpos.line_follows)
        srcpos.src_line = srcpos.phys_line;
    op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
    if (opt.xinst_optimise && !op_source_file(op))
        op_take_source_line(op, op->op_prev);   // also where the listing is to show the program as it was written
    op->op_type = type;
    op->op_flags |= parse_state.stmt_flags & OPF_ALL;
    if (parse_state.callstack_depth)
        op_set_callstack(op, parse_state.callstack_depth);
    parse_state.last_op = op;
    return op;
}

op_t *stmt_new_text(token_t type, uint16_t subop, const char *text)
{
    op_t *op = stmt_new_op(type);
    op->op_subop = subop;
    op->op_text = text;
    return op;
}

void parse_note_first(const char *name, const char *file, int64_t line)
{
    const bool again = line == srcpos.cur_line && strcmp(file, srcpos.cur_file) == 0;
    const srcpos_elsewhere_t first(file, line);
    alert_text("M", again ? "\"%s\" was defined by this line when it was read before" : "\"%s\" was first defined here",
               name);
}

// Only a label knows its node; the others are searched for, which nobody does unless there is an error to tell.
static const op_t *definition_of(const symbol_t *s)
{
    if (s->s_defop)
        return s->s_defop;
    for (const code_list_t *list : psect_list)
        for (const op_t *op = list->head.op_next; op->op_type != 0; op = op->op_next)
            if ((op->op_type == T_EQU || op->op_type == T_SET) && op->op_opnd1.opnd_value.v_sym == s)
                return op;
    return nullptr;
}

void parse_note_definition(const symbol_t *s)
{
    if (const op_t *op = definition_of(s))
        parse_note_first(s->s_name, op_file(op), static_cast<int64_t>(op_line(op)));
}

void parse_defined_twice(const symbol_t *s)
{
    if (alert_msg(845, s->s_name))
        parse_note_definition(s);
}
