// live: whether what a register holds is still needed.
#pragma once

#include "code/list.h"

// Registers that nxtuse can be asked about.
enum reg_t : uint16_t { REG_C = 318, REG_Z = 319, REG_N = 320, REG_W = 353, REG_BSR = 356 };

// Whether `r` is used from `start` on; also true when that can't be told. Paths end as unused at `stop1` and `stop2`, which
// may be null.
bool nxtuse(reg_t r, const op_t *start, const op_t *stop1, const op_t *stop2);
