// assertion: checks on the program itself, off unless a run asks for them.
//
// They guard against misuse from inside, never against input. In the normal mode the condition isn't even evaluated.
#pragma once

// What a failed assertion does: 0 nothing; 1 message 1503, fatal; 2 message 1502, an error; 3 message 1501, a warning.
extern int assertion_mode;

void assertion_failed(const char *text, const char *file, int line);

// `text` is the condition as the message shows it.
#define ASSERTION(condition, text)                      \
    do {                                                \
        if (assertion_mode && !(condition))             \
            assertion_failed(text, __FILE__, __LINE__); \
    } while (0)
