// zelrun: assembles a program, links it, runs it for a number of instructions, and tells what it did.
//
// What one sees of a microcontroller are its ports, so the output is a table of them: a line whenever an output register
// has taken another value, with the number of instructions done. Characters for the serial port are shown as the text
// that they make. There are no timers and no interrupts here, so a program that waits for one waits for ever.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "tools.h"

static int usage()
{
    fprintf(stderr, "usage: zelrun [--steps n] [--lines n] [--mcpu chip] [--bin directory] source.as [assembler option]...\n");
    return 2;
}

static void print_log(const sim_t &s, unsigned lines)
{
    std::vector<uint32_t> columns;
    std::string text;
    const uint16_t serial = target_sfr(*s.target, "STX");
    for (const sim_access &a : s.log) {
        if (a.kind == sim_access::WRITE && a.address == serial)
            text += static_cast<char>(a.value);
        else if (a.kind == sim_access::WRITE && std::find(columns.begin(), columns.end(), a.address) == columns.end())
            columns.push_back(a.address);
    }
    std::map<uint32_t, int> shown;
    if (!columns.empty())
        printf("%12s", "instructions");
    for (uint32_t c : columns)
        printf("  %-8s", target_sfr_name(*s.target, static_cast<uint16_t>(c)).c_str());
    printf(columns.empty() ? "" : "\n");
    for (const sim_access &a : s.log) {
        if (a.kind != sim_access::WRITE || a.address == serial || (shown.contains(a.address) && shown[a.address] == a.value))
            continue;
        shown[a.address] = a.value;
        if (lines-- == 0) {
            printf("         ...\n");
            break;
        }
        printf("%12llu", static_cast<unsigned long long>(a.step));
        for (uint32_t c : columns) {
            char bits[9] = "........";
            for (unsigned i = 0; shown.contains(c) && i < 8; i++)
                bits[i] = shown[c] >> (7 - i) & 1 ? '1' : '0';
            printf("  %s", bits);
        }
        printf("\n");
    }
    if (!text.empty())
        printf("serial port: %s\n", text.c_str());
}

int main(int argc, char **argv)
{
    std::string bin = program_directory(), chip = "ZEL8K10", source;
    std::vector<std::string> options;
    uint64_t steps = 2000000;
    unsigned lines = 20;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        if (source.empty() && word.starts_with("--") && i + 1 < argc) {
            const std::string value = argv[++i];
            if (word == "--steps")
                steps = strtoull(value.c_str(), nullptr, 10);
            else if (word == "--lines")
                lines = static_cast<unsigned>(strtoul(value.c_str(), nullptr, 10));
            else if (word == "--mcpu")
                chip = value;
            else if (word == "--bin")
                bin = value;
            else
                return usage();
        } else if (source.empty()) {
            source = word;
        } else {
            options.push_back(word);
        }
    }
    if (source.empty() || source.starts_with("-"))
        return usage();
    target_t target;
    std::string error = target_find(bin, chip, target);
    char directory[] = "/tmp/zelrun.XXXXXX";
    if (error.empty() && !mkdtemp(directory))
        error = "can't make a directory for the object file";
    if (!error.empty()) {
        fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    const std::filesystem::path path = source;   // includes are found from the directory of the source
    if (std::error_code ignored; path.has_parent_path())
        std::filesystem::current_path(path.parent_path(), ignored);
    const std::string object = directory + std::string("/program.obj"), output = directory + std::string("/output");
    std::vector<std::string> arguments{bin + "/aszel8", "-mcpu=" + chip, "-O" + object};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(path.filename());
    const int status = run_program(arguments, output);
    const std::string told = read_text(output);
    sim_t sim;
    if (status == 0)
        error = sim_load(sim, target, {object});
    else if (told.empty())
        error = bin + "/aszel8 can't be run, or failed";
    std::filesystem::remove_all(directory);
    fprintf(stderr, "%s%s%s", told.c_str(), error.c_str(), error.empty() ? "" : "\n");
    if (status != 0 || !error.empty())
        return 1;
    for (const auto &[name, address] : target.sfr)
        if ((name.starts_with("LAT") || name.starts_with("DIR") || name == "STX") && address < sim.watched.size())
            sim.watched[address] = true;
    sim_run(sim, steps);
    print_log(sim, lines);
    printf("%llu instructions, then %s\n", static_cast<unsigned long long>(sim.steps),
           sim.stop == SIM_SLEEP ? "sleep" : sim.why.c_str());
    return sim.stop != SIM_SLEEP && sim.stop != SIM_LIMIT;
}
