// errata: NOP words where a faulty chip needs them.
#pragma once

#include <cstdint>

struct op_t;
struct symbol_t;

bool errata_is_nop(const op_t *op);   // data of the one word 0xFFFF, whoever wrote it
void errata_psect(symbol_t *psect);
extern uint32_t errata_nops;      // NOPs counted so far in the run
