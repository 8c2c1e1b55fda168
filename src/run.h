// run: the order of everything in one run.
#pragma once

// Reads the command line, assembles, writes; returns the exit status.
int run_main(int argc, char **argv);
// The orderly stop: ends the process with `status`.
[[noreturn]] void run_stop(int status);
