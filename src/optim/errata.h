// errata: NOP words where a faulty chip needs them.
#pragma once

#include <cstdint>

struct symbol_t;

void errata_psect(symbol_t *psect);
extern uint32_t errata_nops;      // NOPs counted so far in the run
