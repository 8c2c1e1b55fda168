// depfile: what an output was made of, as a rule for Make.
#pragma once

#include <cstdio>

// Notes a file that the run has opened. Nothing is kept if no such rule is asked for.
void depfile_add(const char *path);
// The rule: `target`, and all files that were noted, each once, in the order of their opening.
void depfile_write(FILE *to, const char *target);
