// A fuzz target is told apart from what drives it.
//
// A target (fuzz_source.cpp, fuzz_chip.cpp, ...) says what becomes of one input. A driver brings inputs: driver_afl.cpp, or
// driver_replay.cpp, which runs a kept corpus without a fuzzer. The targets that feed the assembler say
// no more than how to call it, as an `assembly_t`; assembly.cpp does the rest.
//
// The assembler's state is the process's, and a fatal message ends the process. So such a target has everything that does
// not depend on the input behind it, the chip file above all, when the driver forks; each run goes on in a child from there.
#pragma once

#include <string>
#include <string_view>
#include <vector>

void target_prepare();   // once, before all runs
// One input, to its end. What comes out doesn't matter: a fault ends the process by a signal. The input outlives the run.
void target_run(std::string_view input);
bool target_may_take_long(std::string_view input);   // running out of time is no fault

// A call of the assembler. An input that begins with `comment` selects options by the letters behind it in its first line;
// files as they come in practice have none. The source is `in.as` and every output lies beside it, in a directory of its
// own that is the working directory of the run.
struct choice_t {
    char letter;
    const char *option;
};
struct assembly_t {
    const char *file;   // what the input is written to
    char comment;
    std::vector<const char *> always;   // options of every run
    bool reads_input;                   // they name the input, thus nothing can be prepared
    std::vector<choice_t> choices;
    std::string (*source)(std::string_view input, std::string_view letters);   // null: the input is the source
    bool (*may_take_long)(std::string_view input);                             // null: never
};
extern const assembly_t assembly;

// Ends this process orderly, with nothing left behind; a driver calls it ahead of its own end.
void target_clean();
