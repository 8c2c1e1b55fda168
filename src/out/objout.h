// objout: the object file, as a whole.
#pragma once

// The object file, for the chip of that name, to opt.out_stream, which it closes. Every psect with code must have been
// sized. Messages 802, 804 and those of what it consists of.
void obj_write(const char *chip);
