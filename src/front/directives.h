// directives: every statement that is not an instruction.
#pragma once

// What comes behind a statement that has been read.
enum stmt_end_t { END_COMMAND, END_CONTROL };

// The directive that begins with the token just taken, `token`, whose value is in yylval. False on a syntax error.
// `*end` tells how the statement ends.
bool parse_directive(int token, stmt_end_t *end);
