// Runs of the assembler on an input, each in a child: its state is the process's, and a fatal message ends the process. The
// child hands its coverage counters back through shared memory, thus the search is guided as usual. A fault of the child, or
// one that takes too long, is a fault of the target.
//
// The last byte selects options. With a newline there, as text files have it, there are none but those of `always`.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct child_t {
    std::vector<std::string> always;   // options of every run; "FILE" at the end of one stands for the input's path
    std::vector<std::string> some;     // at most 8: a bit of the last byte each
    std::string source;                // assembled instead of the input, unless empty
    bool may_take_long;                // running out of time is no fault
};
void run_child(child_t child, std::string_view input);
