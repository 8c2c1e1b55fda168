// objfn: the call graph in the object file.
#pragma once

#include "code/sym.h"

void obj_fn_init();                          // an empty buffer
void obj_fn_flush();                         // FNINFO if it has entries
void obj_functions(vec_t<symbol_t *> all);   // what the call-graph directives told, of the symbols of the table
