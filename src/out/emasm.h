// emasm: the program as assembly text.
//
// Prints code lists back as source, for the assembler itself to read (`-A`) and for the text column of the listing. The
// text of a single node also serves the optimiser as its canonical form.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "code/list.h"
#include "code/program.h"

// Growing text. Its length has no limit; `at` has room for a NUL behind it.
struct textbuf_t {
    char *at;
    size_t length, room;
};
char *text_grow(textbuf_t *t, size_t more);   // the end of the text, with at least `more` bytes of room, which aren't added
void text_add(textbuf_t *t, const char *s, size_t length);
void text_add(textbuf_t *t, const char *s);
[[gnu::format(printf, 2, 3)]] void text_format(textbuf_t *t, const char *format, ...);
[[gnu::format(printf, 2, 0)]] void text_vformat(textbuf_t *t, const char *format, va_list args);

enum asm_mode_t : uint8_t {
    ASM_PRINT = 0,     // for output and listing
    ASM_COMPARE = 2,   // the statement alone: no position, comments or remark
    ASM_NAMES = 3,     // the same with constants by the names that `equ` gave them
};

// The whole of `-A`. To `to`, whose errors are for the caller to see.
void asm_write(FILE *to);

// Where the text of a program goes.
struct text_sink_t {
    void (*text)(std::string_view lines);   // whole lines; nothing, behind a node that has no text
    void (*node)(const op_t *op);           // a node, before its text; null: not asked for
};
// Header, psect declarations, code, core registers.
void asm_text(const text_sink_t *to, const page_t &page);
// The text of one node of the current psect: whole lines, or nothing. It stands until the next call. Messages 809, 810.
std::string_view asm_op(const op_t *op, asm_mode_t mode);
