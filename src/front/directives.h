// directives: every statement that is not an instruction.
#pragma once

struct symbol_t;

// What comes behind a statement that has been read.
enum stmt_end_t { END_COMMAND, END_CONTROL };

// The directive that begins with the token just taken, `token`, whose value is in yylval. False on a syntax error.
// `*end` tells how the statement ends.
bool parse_directive(int token, stmt_end_t *end);
// `callstack n` and `stack n`, behind the word.
bool parse_callstack();
// `name equ expr` and `name set expr`, behind the name; `token` has been taken.
bool parse_definition(symbol_t *name, int token);
