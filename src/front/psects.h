// psects: the directive `psect`.
#pragma once

#include <cstdint>

bool d_psect(uint16_t);   // a rule for the table of `directives`, behind the word; false on a syntax error
