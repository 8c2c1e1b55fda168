// parser: what the rules of statements are written with. One pass over all sources, by recursive descent with one token of
// look-ahead; `statement` asks the rules.
//
// A rule asks for a token only when it needs one, since a token is scanned under the lex_mode of the moment, and returns false
// on a syntax error, which has then been reported.
#pragma once

#include <cstdint>

#include "code/list.h"
#include "front/lexutil.h"

struct parse_state_t {
    uint32_t stmt_flags;        // ORed into op_flags of every new node
    op_t *last_op;              // the node that the last statement made; null before the first
    uint32_t callstack_depth;   // what `callstack` set
};
extern parse_state_t parse_state;

op_t *stmt_new_op(token_t type);   // the node of a statement, at the end of the current psect
op_t *stmt_new_text(token_t type, uint16_t subop, const char *text);

int peek();                                          // the next token, which stays
void take();                                         // it goes; its value stays in yylval until the next peek
bool accept(int token);                              // takes it if it is next
bool expect(int token);                              // the same; anything else is a syntax error
bool syntax_error(const char *expected = nullptr);   // reports the next token; returns false
void end_line();                                     // the next token is the line's end, whatever has been asked for

bool parse_is_quiet();   // whether a syntax error here goes unreported
bool parse_give_up();    // nesting is too deep to go on: the parse ends; returns false
bool parse_recover();    // behind a syntax error: drops the rest of the line. False if there is nothing to go on with

void parse_note_first(const char *name, const char *file,
                      int64_t line);             // behind a message: where a name was defined first
void parse_note_definition(const symbol_t *s);   // the same of a label, `equ` or `set`
void parse_defined_twice(const symbol_t *s);     // message 845, and that

bool parse_expr(value_t *v);
bool parse_expr_behind(int prefix, value_t *v);   // whose first word, `b` or `c`, has been taken; 0: none has
bool parse_int(int64_t *n);                       // a number token
bool parse_name(symbol_t **s);
bool parse_string(const char **s);
// An expression that must be a constant from `least` to `most`; otherwise the message `number`. The value goes on as it is.
bool parse_const(value_t *v, int64_t least, int64_t most, unsigned number);
// Message 2210 if a number doesn't go into its field of the program or of the object file, which takes 0 to `most`.
void parse_check_field(const char *what, int64_t n, int64_t most);
