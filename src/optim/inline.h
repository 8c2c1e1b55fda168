// inline: copies small functions to their callers.
#pragma once

#include "code/list.h"

// One psect as a host: its calls that may be inlined are replaced by copies.
void inline_psect(symbol_t *psect);
bool inline_check(int mode, symbol_t *psect, const char *name);   // 0: as a host, 1: as a body. Message 1433
// Psects whose bodies were copied and may be empty of callers now; null until used.
extern vec_t<symbol_t *> inline_list;
