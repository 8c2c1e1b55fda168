// Figures that are held: instructions and memory of each row, which a change may not raise unseen.
#ifndef BENCH_GATE_H
#define BENCH_GATE_H

#include <string>
#include <vector>

struct figure_t {
    std::string row;
    double minstr, mb;   // millions of instructions, megabytes of peak memory above those of one line
};

// How many millions of instructions a command executes, by valgrind's count. Negative if it can't be told.
double gate_count(const std::vector<std::string> &words, const std::string &dir);

// Prints `now` beside the figures of file `path`, or with `hold` writes them there. False if one has risen by more than 3 %,
// or a row has none, or the file can't be read or written. Figures are held for one compiler and processor: with others, nothing is risen.
bool gate_compare(const std::string &path, const std::vector<figure_t> &now, bool hold);

#endif
