// cmdline: where the arguments come from, and what each option does.
#pragma once

// The arguments of the run: the process's own, or, with none or a single @file, the words of a stream.
// `*argc` and `*argv` are replaced; argv[0] is the program.
void cmdline_collect(int *argc, char ***argv);
// Reads the options into `opt` and returns the index of the first source file.
int cmdline_options(int argc, char **argv);
// The text "ver build stamp " that headers of listings show, from what -ver= gave.
const char *cmdline_version_text(const char *given);
