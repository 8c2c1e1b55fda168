// Processes that are measured: started with their output in a file, waited for, and what they used.
#ifndef BENCH_PROCESS_H
#define BENCH_PROCESS_H

#include <cstdint>
#include <string>
#include <vector>

// What one run used, from fork to exit: seconds of wall and of processor time (user and system), peak resident kilobytes.
struct run_t {
    double wall, cpu;
    int64_t peak_kb;
    int status;   // of exit; 128 and more for a signal
};

// Runs the command `words[0]`, a path, with its standard output in file `out`, its standard error in file `err` (null: that of
// the caller; the same as `out`: both in one file), and nothing to read. With `limit`, it is ended after so many seconds of
// processor time. False if no process could be had, and errno says why.
bool process_run(const std::vector<std::string> &words, const char *out, const char *err, int limit, run_t *run);

// The path of a command, or nothing. A name without a slash is searched for in the places of PATH.
std::string process_find(const char *name);

// Seconds of the monotonic clock.
double process_now();

// The processor's name.
std::string process_model();

// A new directory in TMPDIR, or in /tmp, whose name begins with `name`; nothing if it can't be made, and errno says why.
std::string process_directory(const char *name);

#endif
