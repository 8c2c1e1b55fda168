// cmdline: where the arguments come from, and what each option does.
#pragma once

// The arguments of the run: the process's own, or, with none or a single @file, the words of a stream.
// `*argc` and `*argv` are replaced; argv[0] is the program.
void cmdline_collect(int *argc, char ***argv);
// Reads the options and the names of the sources into `opt`, and settles what follows from them.
void cmdline_options(int argc, char **argv);
