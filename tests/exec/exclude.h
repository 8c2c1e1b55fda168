#pragma once
#include <string>
#include <vector>
struct exclusion_t {
    const char *name, *why;
    const char *arguments;   // with which the example misbehaves
    const char *example;     // statements of `main`; what follows them stores W and C, Z and N
};
extern const std::vector<exclusion_t> exclusions;
