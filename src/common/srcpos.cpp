// The record of the current source position. It has no behaviour; the header tells who writes which member.
#include "common/srcpos.h"

srcpos_t srcpos = {.cur_file = "",
                   .cur_line = 0,
                   .phys_file = "",
                   .phys_line = 0,
                   .src_file = nullptr,
                   .src_line = 0,
                   .src_stale = false,
                   .line_follows = false,
                   .placed = nullptr,
                   .below = 0,
                   .node = nullptr,
                   .operand = 0,
                   .line_volatile = false,
                   .line_volsfr = false,
                   .line_compiled = false};
