// gen: makes programs that end, for the comparison of what they do with and without the optimiser.
#pragma once

#include "exclude.h"
#include "target.h"

// A source text in pieces. Leaving out a piece leaves a program that may not assemble or end, but does nothing else
// forbidden.
using pieces_t = std::vector<std::string>;
std::string pieces_text(const pieces_t &pieces);

// The program of a seed. `allowed` has a bit set for each exclusion, by index, that isn't heeded.
pieces_t gen_program(uint64_t seed, const target_t &target, uint64_t allowed);
pieces_t gen_around(const std::string &statements, const target_t &target);   // the example of an exclusion as a program
