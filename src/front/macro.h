// macro: macros and repetition blocks, which repeat text ahead of the parser.
#pragma once

#include <cstddef>
#include <cstdint>

struct macro_t;
struct symbol_t;

// Statements, each behind its word. False on a syntax error.
bool macro_statement(symbol_t *name);   // name macro parameters
bool macro_rept(uint16_t);              // rept expr
bool macro_irp(uint16_t);               // irp name, elements
bool macro_irpc(uint16_t);              // irpc name, text

// At an `endm` that ends nothing, behind its message: the call that was perhaps meant as a definition, if there was one.
void macro_explain_end();

// Called by the scanner: for a macro's name in a line, whose rest holds the arguments; when the text of an expansion is used
// up; and for a marker in the text of the innermost expansion, whose replacement (null: none) it wants.
void macro_call(symbol_t *name);
void macro_end();
const char *macro_subst(unsigned char selector);
// For messages: the line of a macro's definition behind which `behind`, in its text, stands.
struct macro_place_t {
    const char *name, *file;
    int64_t line;   // 0: not known
};
macro_place_t macro_place(const macro_t *m, const char *behind);

// In a body's text this byte and a selector behind it, which is never a newline, stand for a parameter or a local name.
constexpr char MACRO_MARKER = 127;
