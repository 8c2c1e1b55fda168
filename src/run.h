// run: the order of everything in one run.
#pragma once

// Reads the command line, assembles, writes; returns the exit status.
int run_main(int argc, char **argv);
// Its two parts: what comes before the sources, with the chip loaded at the end; and all the rest. Fuzzing starts many runs
// between them.
void run_start(int argc, char **argv);
int run_assemble();
