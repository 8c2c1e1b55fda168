// arguments: the words of a stream in place of those of a command line. The quoting rules are small, and not a shell's.
#pragma once

#include <cstdio>

// Reads `in` to its end. `*argc` and `*argv` become the words, owned by the run, behind the program's name and before a null. A word
// of more than 2047 bytes ends them with message 917. On a terminal, each line is asked for.
void arguments_read(FILE *in, int *argc, char ***argv);
