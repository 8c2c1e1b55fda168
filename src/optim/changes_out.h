// changes_out: the report of what the optimiser did, for people or for programs. The manual tells both forms.
#pragma once

#include <array>
#include <cstdio>
#include <string>

#include "optim/changes.h"

// Writes what `changes` holds, as lines or as JSON. To `to`, whose errors are for the caller to see.
void changes_write_text(FILE *to);
void changes_write_json(FILE *to);

// What stands behind the place in a line of the text.
std::string change_text(const change_t &c);
std::string refusal_text(const refusal_t &r);

struct change_sum_t {
    unsigned times;
    int64_t bytes;
};
struct change_sums_t {
    std::array<change_sum_t, RULES> rules;
    uint64_t before, after;
    int64_t branches;   // what the rules don't account for
};
change_sums_t changes_sums();
void changes_write_sums(FILE *to);   // as the text has them
bool changes_show_psect(
    const psect_sizes_t &p);   // it has bytes that the optimiser deals with, or more or fewer than before
