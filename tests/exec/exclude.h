// exclude: situations in which a rule of the optimiser is known to change what a program does.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum exclusion : uint8_t {
    X_FAST_CALL, X_FAST_TAIL, X_FAST_INLINE, X_OVERFLOW, X_ADDWFC_ZERO, X_N_AT_RETURN, X_ADDRESS_3, X_TWO_NAMES,
    X_UNMARKED_PORT, X_START, X_COMPUTED_JUMP, X_DOLLAR, X_CODE_ADDRESS, X_ERRATA_SKIP, X_STACK_POINTER, X_NONE
};

struct exclusion_t {
    const char *name, *why;
    const char *arguments;   // with which the example misbehaves
    const char *example;     // statements of `main`; what follows them stores W, C and Z
};
extern const std::vector<exclusion_t> exclusions;   // by number
exclusion exclusion_find(const std::string &name);  // X_NONE if there is none of that name
