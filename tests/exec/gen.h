// gen: makes programs that end, for the comparison of what they do with and without the optimiser.
#pragma once

#include "target.h"

// Situations in which a rule of the optimiser is known to change what a program does.
// clang-format off
enum exclusion : uint8_t {
    X_FAST_CALL, X_FAST_INLINE, X_OVERFLOW, X_N_AT_RETURN, X_ADDRESS_3, X_START, X_POINTER, X_NONE
};
// clang-format on
struct exclusion_t {
    const char *name, *why;
    const char *way;       // with which the example misbehaves
    const char *example;   // statements of `main`, parted by "/"; what follows them stores W, C and Z
};
extern const exclusion_t exclusions[X_NONE];
exclusion exclusion_find(const std::string &name);   // X_NONE if there is none of that name

// A source text in pieces. With one left out it may not assemble or end, but does nothing else that is forbidden.
using pieces_t = std::vector<std::string>;
std::string pieces_text(const pieces_t &pieces);

// The program of a seed. `allowed` has a bit set for each exclusion, by number, that isn't heeded.
pieces_t gen_program(uint64_t seed, const target_t &target, uint64_t allowed);
pieces_t gen_around(const std::string &statements, const target_t &target);   // the example of an exclusion as a program

// A program made of nothing but its two ends: what `main` begins with and, last, what stores W and status.
pieces_t gen_frame(const target_t &target);
pieces_t hand_program(uint64_t seed, const target_t &target);   // idioms of people, see hand.cpp
extern const char *const hand_idioms[];
extern const size_t hand_idiom_count;

// Where every program has a table of constants, and the table pointer at the beginning.
constexpr uint32_t TABLE_ADDRESS = 0x7000;

// The line that begins another module; what is linked are all of them. An interrupt's handler stands in the psect of that name,
// at address 8, and its memory are the last 8 bytes of the access bank.
constexpr const char *MODULE_MARK = "; another module", *INTERRUPT_PSECT = "intcode";
