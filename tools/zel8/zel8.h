// zel8: one command from sources to a program, with the options that compilers have.
//
// `z8_parse` reads the words, `z8_run` runs the assembler on each source and the linker on what comes out.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct z8_options {
    std::string chip, output;
    std::vector<std::string> inputs;
    std::vector<std::string> assembler, linker;                 // words for either of them alone
    std::vector<std::pair<std::string, std::string>> defines;   // name, and the value behind `=`, which is kept
    std::string dep_file, dep_target;
    int level = 0;   // of warnings that are shown
    unsigned jobs = 0;
    bool only_assemble = false, text = false, only_check = false, werror = false;
    bool deps = false, phony = false, verbose = false, dry = false;
    enum what_t { WORK, HELP, VERSION, CHIPS, DIRECTORIES, EXPLAIN } what = WORK;
};

// Empty, or what is wrong with the words.
std::string z8_parse(const std::vector<std::string> &arguments, z8_options &o);
// What z8_run needs that the words alone don't tell is wrong or missing.
std::string z8_check(const z8_options &o);
// 0, or 1 if something failed; then no output has been made or changed. `bin`: where the tools are.
int z8_run(const z8_options &o, const std::string &bin);
bool z8_is_source(const std::string &path);
