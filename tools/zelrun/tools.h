// tools: runs the assembler and what it made.
#pragma once

#include "compare.h"
#include "sim.h"

// Runs a program with the arguments; its output goes to the file. Gives back the exit status, or -1 if it crashed or
// took too long.
int run_program(const std::vector<std::string> &arguments, const std::string &output);

std::string read_text(const std::string &path);
void write_text(const std::string &path, const std::string &text);
std::string program_directory();   // of the running program

// The files, linked and ready to run from the address that `end` told, or from address 0. `names`: what data addresses are
// called. Gives back an error text.
std::string sim_load(sim_t &sim, const target_t &target, const std::vector<std::string> &objects,
                     data_names_t *names = nullptr);
