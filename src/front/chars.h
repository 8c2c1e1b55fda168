// chars: classes of characters, as the scanner sees them.
#pragma once

#include <cstdint>
#include <initializer_list>

enum : uint8_t { C_UPPER = 0x01, C_LOWER = 0x02, C_DIGIT = 0x04, C_BLANK = 0x08, C_HEX = 0x10, C_AT = 0x20 };
constexpr uint8_t C_LETTER = C_UPPER | C_LOWER;
constexpr uint8_t C_WORD = C_LETTER | C_DIGIT | C_AT;   // may follow in a word

struct class_table_t {
    uint8_t of[256] = {};
    constexpr class_table_t()
    {
        for (int c = 'A'; c <= 'Z'; c++)
            of[c] |= C_UPPER;
        for (int c = 'a'; c <= 'z'; c++)
            of[c] |= C_LOWER;
        for (int c = '0'; c <= '9'; c++)
            of[c] |= C_DIGIT | C_HEX;
        for (int c = 'A'; c <= 'F'; c++)
            of[c] |= C_HEX;
        for (int c = 'a'; c <= 'f'; c++)
            of[c] |= C_HEX;
        for (unsigned char c : {'$', '?', '_'})
            of[c] = C_LOWER;
        for (unsigned char c : {'\t', '\f', ' '})
            of[c] = C_BLANK;   // what separates tokens; CR and backspace don't
        of[int{'@'}] = C_AT;
    }
};
inline constexpr class_table_t char_classes;
inline uint8_t class_of(char c) { return char_classes.of[static_cast<unsigned char>(c)]; }
