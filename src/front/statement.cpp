// A line holds any number of labels, then at most one statement, then a comment or nothing. A statement's rule reads its
// operands and, when they are complete, makes the node. The end of the line is looked at only afterwards, so a line with
// something superfluous behind a whole statement is reported and assembled all the same.
#include "front/statement.h"

#include <strings.h>

#include <algorithm>

#include "code/program.h"
#include "code/tlab.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/xalloc.h"
#include "front/controls.h"
#include "front/declarations.h"
#include "front/directives.h"
#include "front/instruction.h"
#include "front/macro.h"
#include "front/parser.h"

static void define_label(symbol_t *s)
{
    op_t *op = stmt_new_op(T_NAME);
    op->op_sym = s;
    if (s->s_defop || (s->s_flags & S_EQU))
        parse_defined_twice(s);
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
    op_set_number(op, static_cast<uint64_t>(number));
    op->op_opnd1.opnd_value.v_sym = tlab_define(number, op);
}

// Behind a whole statement: the end of the line, or a comment.
static bool parse_end_of_statement(stmt_end_t end)
{
    const int token = peek();
    if (token == T_COMMENT) {
        if (end == END_CONTROL)
            op_comment_add(yylval.str, yylval.str_len);
        else if (parse_state.last_op && op_keeps_remark(yylval.str, yylval.str_len))
            op_set_remark(parse_state.last_op, xstrndup(yylval.str, yylval.str_len));
    } else if (token != T_EOL) {
        return syntax_error("the end of the statement");
    }
    take();
    lex_skip_line();
    return true;
}

// Behind `end`: nothing more may follow in all the input. What does is reported once and then read as usual.
static bool parse_end()
{
    value_t v;
    if (peek() != T_EOL && peek() != T_COMMENT) {
        if (!parse_expr(&v))
            return false;
        program.end_value = v;
        program.has_end_value = true;
        program.end_file = srcpos.cur_file;
        program.end_line = srcpos.cur_line;
    }
    if (peek() != T_EOL && peek() != T_COMMENT)
        return syntax_error("the end of the statement");
    take();
    lex_skip_line();
    return peek() < 0 || syntax_error("the end of the file behind \"end\"");
}

static bool begins_statement(int token)
{
    return token != T_NAME && token != T_INT &&
           std::find(std::begin(node_kinds), std::end(node_kinds), token) != std::end(node_kinds);
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
            if (word == T_INT && strcasecmp(s->s_name, "stack") == 0)
                return parse_callstack() && parse_end_of_statement(END_CONTROL);   // no keyword, but at this place
            if (word != T_EQU && word != T_SET && word != T_MACRO) {
                const bool is_alone = word == T_EOL || word == T_COMMENT || begins_statement(word);
                if (!parse_is_quiet())
                    alert_hint("\"%s\" is no instruction, directive or macro%s", s->s_name,
                               is_alone ? "; a label has a colon behind it" : "");
                return syntax_error();
            }
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
        if (token == T_ENDM) {
            const bool told = !parse_is_quiet();
            syntax_error();
            if (told)
                macro_explain_end();
            return false;
        }
        take();
        stmt_end_t end = END_COMMAND;
        const uint16_t subop = yylval.subop;
        bool is_instruction;
        const bool ok =
            parse_instruction(token, subop, &is_instruction) || (!is_instruction && parse_directive(token, &end));
        return ok && parse_end_of_statement(end);
    }
}

void yyparse()
{
    while (peek() >= 0)
        if (!parse_statement() && !parse_recover())
            return;
}
