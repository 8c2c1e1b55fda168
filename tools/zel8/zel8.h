// zel8: one command from sources to a program, with the options that compilers have.
//
// `z8_parse` reads the words, `z8_run` runs the preprocessor and the assembler on each source and the linker on what comes out.
#pragma once

#include <string>
#include <utility>
#include <vector>

enum z8_kind { Z8_OBJECT, Z8_ASSEMBLER, Z8_PREPROCESSED };   // of a file: for the linker alone, or a source

struct z8_input {
    std::string path;   // "-": standard input
    z8_kind kind;
};

struct z8_options {
    std::string chip, chip_file, output;
    std::string language = "none";   // that -x gives to the files behind it
    std::vector<z8_input> inputs;
    std::vector<std::string> assembler, linker;   // words for either of them alone
    std::vector<std::string> folders;             // of includes
    std::vector<std::string> undefines;
    std::vector<std::pair<std::string, std::string>> defines;   // name, and the value behind `=`, which is kept
    std::string dep_file, dep_target;
    std::string annotate;   // a file, or "txt" or "html": one beside each output
    std::string messages;   // how they look, as --diagnostics= says; "": as the assembler decides
    int level = 0;          // of warnings that are shown
    unsigned jobs = 0;
    bool only_preprocess = false, only_assemble = false, text = false, only_check = false;
    bool werror = false, silent = false, deps = false, own_deps = false, phony = false, verbose = false, dry = false;
    enum what_t { WORK, HELP, VERSION, CHIPS, DIRECTORIES, EXPLAIN, HEADER } what = WORK;
    bool links() const { return !only_preprocess && !only_assemble && !text && !only_check; }
};

// Empty, or what is wrong with the words.
std::string z8_parse(const std::vector<std::string> &arguments, z8_options &o);
// 0, or 1 if something failed; then no output has been made or changed. `bin`: where the tools are.
int z8_run(const z8_options &o, const std::string &bin);
// "; did you mean X?" with the nearest of the words, or nothing if none is near.
std::string z8_meant(const std::string &word, const std::vector<std::string> &words);

// rules
std::string z8_in_rule(const std::string &name);   // a name as a rule has it
// Adds to the rule in file `path` what the one in file `other`, if there is a name, has read, and takes away names that begin with
// `unlisted`. If `phony`, each file but the source is a target without a rule, so that one which is gone ends no build.
bool z8_finish_rule(const std::string &path, const std::string &other, const std::string &unlisted, bool phony);

// logs
struct z8_said {
    std::string tool, text;   // what it wrote to standard error
    bool good;                // its exit status
};
std::string z8_json(const z8_said &said);   // a line for each message
std::string
z8_sarif(const std::vector<z8_said> &all);   // one log, a run for each source and for each other tool that says something

// chip
std::string z8_chip_list(const std::string &data);   // the names of those that the installation knows, a line each
// Empty, or that the installation doesn't know the chip.
std::string z8_chip_unknown(const z8_options &o, const std::string &bin);
// Adds what the preprocessor has to know of the chip. Empty, or what is wrong.
std::string z8_chip_macros(const z8_options &o, const std::string &bin, std::vector<std::string> &words);
// The include file of the chip, in which `keywords`, lower case and one a line, get a `_` in front. Empty, or what is wrong.
std::string z8_chip_header(const z8_options &o, const std::string &bin, const std::string &keywords, std::string &text);
