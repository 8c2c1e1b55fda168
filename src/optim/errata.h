// errata: NOP words where a faulty chip needs them.
#pragma once

#include <cstdint>

#include "common/vector.h"

struct op_t;
struct symbol_t;

void errata_run(vec_t<symbol_t *> psects);
extern uint32_t errata_nops;   // NOPs counted so far in the run
