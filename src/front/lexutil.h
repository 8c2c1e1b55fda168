// lexutil: source text to tokens.
//
// A stack of input contexts (files now; macro bodies and arguments on top of them) feeds one line at a time, and one
// hand-written scanner makes tokens of it. The parser asks for one token at a time; includes happen inside this stream.
#pragma once

#include <cstddef>
#include <cstdint>

#include "code/ops.h"
#include "code/sym.h"

// Which words are keywords.
// clang-format off
enum : uint32_t {
    LM_PLAIN = 0, LM_CONTROL = 3, LM_LIST = 4, LM_CHIP = 5, LM_FNCONF = 6, LM_CONFIG = 10, LM_ASMOPT = 11,
};
// clang-format on

// Value of the last token; which member counts depends on the token.
struct yylval_t {
    int64_t num;       // T_INT, T_TLABF, T_TLABB
    double flt;        // T_FLOAT
    uint16_t subop;    // keywords and operators
    symbol_t *sym;     // T_NAME
    const char *str;   // T_STRING: owned copy, NUL-terminated. T_COMMENT: from the `;` on, in the line, not terminated.
                       // T_CHIP: upper-case copy of the word
    size_t str_len;    // of T_STRING and T_COMMENT
};

extern yylval_t yylval;

// How the scanner takes words, as long as the statement's rule wants it so. Nothing else writes these two.
extern uint32_t lex_mode;
extern uint64_t lex_space;   // 0, S_PSECT or S_CLASS: name space of new identifiers

// Words are those of `mode` as long as one lives, and plain ones behind it, also where one list of words stands in another.
struct lex_mode_t {
    explicit lex_mode_t(uint32_t mode) { lex_mode = mode; }
    ~lex_mode_t() { lex_mode = LM_PLAIN; }
    lex_mode_t(const lex_mode_t &) = delete;
    lex_mode_t &operator=(const lex_mode_t &) = delete;
};

// New identifiers belong to `space` as long as one lives, and behind it to the space of before.
struct lex_space_t {
    explicit lex_space_t(uint64_t space) : before(lex_space) { lex_space = space; }
    ~lex_space_t() { lex_space = before; }
    lex_space_t(const lex_space_t &) = delete;
    lex_space_t &operator=(const lex_space_t &) = delete;

  private:
    uint64_t before;
};

void lex_init();   // opens nothing yet; the first yylex opens the first source file
// What stays in force to the end of all input: the radix of numbers that don't tell theirs, and with the option -I behind them,
// whether the listing shows lines, and those of expansions.
void lex_set_radix(unsigned radix);
void lex_set_list(bool on);
void lex_set_expand(bool on);
int yylex();            // a token, or -1 at the end of all input
void lex_skip_line();   // discards what is left of the current line
// Opens a file and pushes it; its first line follows behind the current line. Message 140; false on failure.
bool lex_open(const char *name);

// For macros: text as lines, each ended by a newline, that is read before anything else; it must live on. The rest of the
// current line is dropped.
void lex_push_text(const char *text, size_t length);
bool lex_in_expansion();            // whether the current line is of such a text
const char *lex_line_rest();        // what is left of the current line, or the next line; ends in a newline. Null: no input
const char *lex_line_rest_here();   // the same, but null when the current line is used up
void lex_set_line_rest(const char *at);
// For messages: the line being read, with what macros put in, and its last token. False behind the end of all input.
struct lex_line_t {
    const char *text;
    size_t length;   // without its end
    size_t token, token_length;
};
bool lex_line(lex_line_t *line);
bool lex_is_letter(char c);   // may begin a word
bool lex_is_digit(char c);
bool lex_is_hex(char c);
