// The chip that measurements run on.
#ifndef BENCH_CHIP_H
#define BENCH_CHIP_H

#include <string>

// Writes its file: chip ZEL8BENCH, with 300 registers. False if that fails.
bool chip_write(const std::string &path);

#endif
