// zelrun: assembles a program, links it, runs it for a number of instructions, and tells what it did.
//
// What one sees of a microcontroller are its ports, so the output is a table of them: a line whenever an output register
// has taken another value, with the number of instructions done. Characters for the serial port are shown as the text
// that they make. There are no timers and no interrupts here, so a program that waits for one waits for ever.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "common/streams.h"
#include "compare.h"
#include "tools.h"

static const char help_text[] = "usage: zelrun [option...] source.as [assembler option]...\n"
                                "  --compare      run it without and with the options, and tell where they first differ\n"
                                "  --steps N      end after so many instructions, else 2000000\n"
                                "  --lines N      show so many lines, else 20\n"
                                "  --mcpu CHIP    the chip, else ZEL8K10\n"
                                "  --help         this text\n";

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

static struct {
    std::map<std::string, std::string> settings{{"--steps", "2000000"}, {"--lines", "20"}, {"--mcpu", "ZEL8K10"}};
    std::filesystem::path source;
    std::string bin = program_directory(), directory;
    target_t target;
    data_names_t names;
} st;

// Assembles and links. Gives back an error text; what the assembler says goes to standard error.
static std::string load(sim_t &sim, const std::vector<std::string> &options)
{
    const std::string object = st.directory + "/program.obj", output = st.directory + "/output";
    std::vector<std::string> arguments{st.bin + "/aszel8", "-mcpu=" + st.settings["--mcpu"], "-O" + object};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(st.source.filename());
    const int status = run_program(arguments, output);
    fputs(read_text(output).c_str(), stderr);
    return status == 0 ? sim_load(sim, st.target, {object}, &st.names) : "the assembler gave no object file";
}

static void watch(sim_t &sim, bool changing)
{
    const bool by_name = !changing || st.target.changing.empty();
    for (const auto &[name, address] : st.target.sfr)
        if (by_name && (name.starts_with("LAT") || name.starts_with("DIR") || name == "STX") && address <= sim.mask)
            sim_watch(sim, address);
    for (uint32_t at = 0; changing && at <= sim.mask; at++)
        if (in_ranges(st.target.changing, at))
            sim_watch(sim, at);
    sim.random_inputs = changing;
}

static unsigned long long number(uint64_t n) { return n; }

static int show_run(sim_t &sim, uint64_t steps)
{
    watch(sim, false);
    sim_run(sim, steps);
    print_log(sim, strtoull(st.settings["--lines"].c_str(), nullptr, 10));
    printf("%llu instructions, then %s\n", number(sim.steps), sim.stop == SIM_SLEEP ? "sleep" : sim.why.c_str());
    return sim.stop != SIM_SLEEP && sim.stop != SIM_LIMIT;
}

// Inputs change in both runs in the same way, so that a program that waits for one goes on.
static int show_comparison(sim_t &plain, sim_t &other, uint64_t steps, const std::vector<std::string> &options)
{
    watch(plain, true);
    watch(other, true);
    bool shares = false;
    for (const std::string &option : options)
        shares |= option.find("space") != std::string::npos;
    const comparison_t c = compare_runs(plain, other, steps, shares, st.names);
    if (plain.stop != SIM_RUNS && plain.stop != SIM_SLEEP)
        return printf("the program itself: %s\n", plain.why.c_str()), 1;
    if (c.difference.empty())
        printf("ports, memory and stack agree: %zu access%s in %llu instructions, %llu with the options, then %s\n",
               c.accesses, c.accesses == 1 ? "" : "es", number(c.plain_steps), number(c.other_steps),
               plain.stop == SIM_SLEEP ? "sleep"
               : c.ended               ? "a jump to itself"
                                       : "none up to the limit of steps");
    else
        printf("after %zu equal access%s, at instruction %llu (%llu without the options): %s\n", c.accesses,
               c.accesses == 1 ? "" : "es", number(other.steps), number(plain.steps), c.difference.c_str());
    return !c.difference.empty();
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    bool compare = false;
    int i = 1;
    for (;; i++)
        if (i < argc && strcmp(argv[i], "--compare") == 0)
            compare = true;
        else if (i + 1 < argc && st.settings.contains(argv[i]))
            st.settings[argv[i]] = argv[i + 1], i++;
        else
            break;
    if (i < argc && strcmp(argv[i], "--help") == 0)
        return fputs(help_text, stdout) < 0 || fflush(stdout) != 0;
    if (i >= argc || argv[i][0] == '-')
        return fputs(help_text, stderr), 2;
    st.source = argv[i];   // includes are found from the directory of the source
    const std::vector<std::string> options(argv + i + 1, argv + argc);
    char directory[] = "/tmp/zelrun.XXXXXX";
    sim_t sim, plain;
    std::string error = target_find(st.bin, st.settings["--mcpu"], st.target);
    if (error.empty() && !mkdtemp(directory))
        error = "can't make a directory for the object file";
    if (error.empty()) {
        st.directory = directory;
        if (std::error_code ignored; st.source.has_parent_path())
            std::filesystem::current_path(st.source.parent_path(), ignored);
        if (compare)
            error = load(plain, {});
        if (error.empty())
            error = load(sim, options);
        std::filesystem::remove_all(directory);
    }
    if (!error.empty())
        return fprintf(stderr, "%s\n", error.c_str()), 1;
    const uint64_t steps = strtoull(st.settings["--steps"].c_str(), nullptr, 10);
    return compare ? show_comparison(plain, sim, steps, options) : show_run(sim, steps);
}
