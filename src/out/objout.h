// objout: the object file, as a whole.
#pragma once

#include <cstdio>

// The object file to `to`, which it closes; with the names of the listings if there is a relocation listing. Every psect with
// code must have been sized. Messages 802, 804 and those of what it consists of.
void obj_write(FILE *to, bool with_rlf);
