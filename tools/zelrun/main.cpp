// zelrun: assembles a program, links it, runs it for a number of instructions, and tells what it did.
//
// What one sees of a microcontroller are its ports, so the output is a table of them: a line whenever an output register
// has taken another value, with the number of instructions done. Characters for the serial port are shown as the text
// that they make. There are no timers and no interrupts here, so a program that waits for one waits for ever.
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "common/streams.h"
#include "tools.h"

static void print_log(const sim_t &s, uint64_t lines)
{
    const uint16_t serial = target_sfr(*s.target, "STX");
    std::map<uint32_t, int> shown;   // by address; -1 before it has been written
    std::string text;
    for (const sim_access &a : s.log)
        if (a.kind == sim_access::WRITE && a.address == serial)
            text += static_cast<char>(a.value);
        else if (a.kind == sim_access::WRITE)
            shown[a.address] = -1;
    if (!shown.empty())
        printf("instructions");
    for (const auto &[address, value] : shown)
        printf("  %-8s", target_sfr_name(*s.target, address).c_str());
    printf(shown.empty() ? "" : "\n");
    for (const sim_access &a : s.log) {
        if (a.kind != sim_access::WRITE || a.address == serial || shown[a.address] == a.value)
            continue;
        shown[a.address] = a.value;
        if (lines-- == 0) {
            printf("         ...\n");
            break;
        }
        printf("%12llu", static_cast<unsigned long long>(a.step));
        for (const auto &[address, value] : shown) {
            printf("  ");
            for (int bit = 7; bit >= 0; bit--)
                putchar(value < 0 ? '.' : '0' + (value >> bit & 1));
        }
        printf("\n");
    }
    if (!text.empty())
        printf("serial port: %s\n", text.c_str());
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    std::map<std::string, std::string> settings{{"--steps", "2000000"}, {"--lines", "20"}, {"--mcpu", "ZEL8K10"}};
    int i = 1;
    for (; i + 1 < argc && settings.contains(argv[i]); i += 2)
        settings[argv[i]] = argv[i + 1];
    if (i >= argc || argv[i][0] == '-')
        return fprintf(stderr, "usage: zelrun [--steps n] [--lines n] [--mcpu chip] source.as [assembler option]...\n"), 2;
    const std::filesystem::path path = argv[i];   // includes are found from the directory of the source
    const std::string bin = program_directory();
    char directory[] = "/tmp/zelrun.XXXXXX";
    target_t target;
    sim_t sim;
    std::string told, error = target_find(bin, settings["--mcpu"], target);
    if (error.empty() && !mkdtemp(directory))
        error = "can't make a directory for the object file";
    if (error.empty()) {
        if (std::error_code ignored; path.has_parent_path())
            std::filesystem::current_path(path.parent_path(), ignored);
        const std::string object = directory + std::string("/program.obj"), output = directory + std::string("/output");
        std::vector<std::string> arguments{bin + "/aszel8", "-mcpu=" + settings["--mcpu"], "-O" + object};
        arguments.insert(arguments.end(), argv + i + 1, argv + argc);
        arguments.push_back(path.filename());
        const int status = run_program(arguments, output);
        told = read_text(output);
        error = status == 0 ? sim_load(sim, target, {object}) : "the assembler gave no object file";
        std::filesystem::remove_all(directory);
    }
    if (fprintf(stderr, "%s%s%s", told.c_str(), error.c_str(), error.empty() ? "" : "\n"); !error.empty())
        return 1;
    for (const auto &[name, address] : target.sfr)
        if ((name.starts_with("LAT") || name.starts_with("DIR") || name == "STX") && address < sim.watched.size())
            sim.watched[address] = true;
    sim_run(sim, strtoull(settings["--steps"].c_str(), nullptr, 10));
    print_log(sim, strtoull(settings["--lines"].c_str(), nullptr, 10));
    printf("%llu instructions, then %s\n", static_cast<unsigned long long>(sim.steps),
           sim.stop == SIM_SLEEP ? "sleep" : sim.why.c_str());
    return sim.stop != SIM_SLEEP && sim.stop != SIM_LIMIT;
}
