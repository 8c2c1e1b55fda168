// cmode: which older tool's source language the assembler is to read.
#pragma once

#include <cstdint>

enum : uint32_t { CMODE_ZCC = 0x2, CMODE_ZCCE = 0x4, CMODE_ZMASM = 0x8 };

// Takes the mode's word, as --cmode= has it. An unknown word prints "Unknown cmode (%s)" and leaves no mode set.
void cmode_set(const char *text);
// Whether the current mode shares a bit with `mask`.
bool cmode_is(uint32_t mask);
