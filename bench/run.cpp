// bench_run: measures the assembler on programs that bench_gen makes, alone or side by side with assemblers for other
// machines, and prints tables of time, memory and growth, and whether the figures aimed at are reached.
//
//     bench_run [--peers | --optimise | --gate FILE [--hold]] [--quick] [--runs N] [--lines N] [--shape NAME] [--table FILE]
//               [--keep] [--aszel8 PATH]
//
// A figure such as "half a million lines a second" says little, since it changes with the machine, the hour and the program.
// What can be compared is two assemblers on the same machine, at the same time, on the same shape of program. Hence the
// order of things: make every program first (five sizes, each twice the one before, the last the one that the figures
// are for, in each dialect); then go round the assemblers again and again, one run each, so that a slow minute of the
// machine hits all of them; and take the best and the median of each. Those that are slow go round among themselves,
// behind the others: on a virtual machine memory that has been free for some seconds may be back with the host, and
// whoever came after a slow one would pay for fetching it. The best is what a table compares, as noise only ever adds;
// the median shows how much noise there was.
//
// A run is a process from fork to exit: wall time from the monotonic clock, processor time and peak resident memory
// from wait4. Standard output and standard error go to one file, and a run counts only if the exit status is 0 and that file
// is empty, as a program that draws messages measures the messages. What may bite: the peak of a process is never below that
// of the process that forked it, so nothing under some megabytes can be told apart. And an assembler whose time grows with
// the square of the size would hold up all others: each has a budget for repeating a size, and a size is left out where the
// one before shows that it would take minutes.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "chip.h"
#include "common/streams.h"
#include "gate.h"
#include "process.h"

enum { SIZES = 5, START_RUNS = 50 };
static const double repeat_budget = 10, slow_above = 0.6, skip_above = 60;   // seconds

enum kind_t { OWN, PEER, OPTIMISER };   // PEER: with --peers; OPTIMISER: with --optimise, and then nothing else

// `shape`: null for that of --shape. In the arguments `@i` is the source, `@o` the object file and `@c` the chip file.
struct assembler_t {
    const char *name;
    kind_t kind;
    const char *shape, *dialect, *package, *commands[2], *args[7], *version;
};

// clang-format off
static const assembler_t assemblers[] = {
    { "aszel8", OWN, nullptr, "zel8", nullptr, { "aszel8" }, { "-mcpu=ZEL8BENCH", "-C@c", "-O@o", "@i" }, nullptr },
    { "macros", OWN, "macros", "zel8", nullptr, { "aszel8" }, { "-mcpu=ZEL8BENCH", "-C@c", "-O@o", "@i" }, nullptr },
    { "-L", OWN, nullptr, "zel8", nullptr, { "aszel8" }, { "-mcpu=ZEL8BENCH", "-C@c", "-L@l", "-O@o", "@i" }, nullptr },
    { "plain", OPTIMISER, "compiled", "zel8", nullptr, { "aszel8" }, { "-mcpu=ZEL8BENCH", "-C@c", "-O@o", "@i" }, nullptr },
    { "-O", OPTIMISER, "compiled", "zel8", nullptr, { "aszel8" },
      { "-mcpu=ZEL8BENCH", "-C@c", "-O", "-O@o", "@i" }, nullptr },
    { "space", OPTIMISER, "compiled", "zel8", nullptr, { "aszel8" },
      { "-mcpu=ZEL8BENCH", "-C@c", "-O", "--opt=space", "-O@o", "@i" }, nullptr },
    { "gotos", OPTIMISER, "gotos", "zel8", nullptr, { "aszel8" },
      { "-mcpu=ZEL8BENCH", "-C@c", "-O", "-O@o", "@i" }, nullptr },
    { "gas-avr", PEER, nullptr, "avr-gas", "binutils-avr", { "avr-as" }, { "-mmcu=avr6", "-o", "@o", "@i" }, "--version" },
    { "llvm-avr", PEER, nullptr, "avr-llvm", "llvm-14", { "/usr/lib/llvm-14/bin/llvm-mc", "llvm-mc" },
      { "-triple=avr", "-mcpu=atmega2560", "-filetype=obj", "-o", "@o", "@i" }, "--version" },
    { "nasm", PEER, nullptr, "nasm", "nasm", { "nasm" }, { "-f", "elf32", "-o", "@o", "@i" }, "-v" },
    { "ca65", PEER, nullptr, "ca65", "cc65", { "ca65" }, { "--cpu", "65C02", "-o", "@o", "@i" }, "--version" },
};
// clang-format on

struct result_t {
    std::vector<run_t> runs;
    double spent = 0;
    bool off = false;
};

struct contestant_t {
    const assembler_t *row;
    std::string command;
    std::array<result_t, SIZES> sized;
    result_t start;
};

static struct {
    bool peers, optimise, keep, hold;
    int runs = 25;
    int64_t lines = 500000;
    std::string shape = "blocks", aszel8, gen, dir, gate, table;   // the last two: files
} opt;

[[noreturn]] static void die(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fputs("bench_run: ", stderr);
    vfprintf(stderr, format, args);
    va_end(args);
    fputc('\n', stderr);
    if (!opt.dir.empty() && !opt.keep)
        std::filesystem::remove_all(opt.dir);
    exit(1);
}

static std::string shape_of(const assembler_t &row) { return row.shape ? row.shape : opt.shape; }

// The shape "gotos" is meant for half the lines of the others.
static int64_t size_of(const assembler_t &row, int size)
{
    return opt.lines >> (SIZES - 1 - size + (shape_of(row) == "gotos"));
}

static std::string source_of(const assembler_t &row, int size)
{
    const std::string number = size < 0 ? "start" : shape_of(row) + "-" + std::to_string(size_of(row, size));
    return opt.dir + "/" + row.dialect + "-" + number + ".asm";
}

static std::string first_line(FILE *f)
{
    char line[300];
    std::string text;
    while (text.empty() && f && fgets(line, sizeof line, f))
        text.assign(line, strcspn(line, "\n"));
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

static std::string command_of(const assembler_t &row)
{
    if (row.kind != PEER)
        return access(opt.aszel8.c_str(), X_OK) ? "" : opt.aszel8;
    for (const char *name : row.commands)
        if (name)
            if (std::string found = process_find(name); !found.empty())
                return found;
    return "";
}

static void install_peers()
{
    std::string missing;
    for (const assembler_t &row : assemblers)
        if (row.kind == PEER && command_of(row).empty())
            missing.append(" ").append(row.package);
    if (missing.empty())
        return;
    if (process_find("apt-get").empty()) {
        printf("These packages are missing, and there is no apt-get to install them:%s\n", missing.c_str());
        return;
    }
    printf("installing:%s\n", missing.c_str());
    fflush(stdout);
    const std::string sudo = geteuid() ? "sudo " : "";
    const std::string script = sudo + "apt-get update -qq; " + sudo +
                               "env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends" + missing;
    if (system(script.c_str()))
        printf("not all could be installed\n");
}

// False if the command didn't exit with 0.
static bool spawn(const std::vector<std::string> &words, const std::string &out, const char *err, run_t *run)
{
    if (!process_run(words, out.c_str(), err, 0, run))
        die("can't run %s: %s", words[0].c_str(), strerror(errno));
    return run->status == 0;
}

// Makes the programs for an assembler. False if the shape can't be had in its dialect.
static bool generate(const assembler_t &row)
{
    for (int size = -1; size < SIZES; size++) {
        const std::string path = source_of(row, size);
        if (std::filesystem::exists(path))
            continue;
        run_t run;
        if (size >= 0 &&
            !spawn({opt.gen, shape_of(row), std::to_string(size_of(row, size)), row.dialect}, path, nullptr, &run))
            return false;
        if (size < 0)
            if (FILE *f = fopen(path.c_str(), "w")) {
                fputs("\tnop\n", f);
                fclose(f);
            }
    }
    return true;
}

static std::vector<std::string> words_of(const contestant_t &c, int size)
{
    std::vector<std::string> words = {c.command};
    for (const char *arg : c.row->args) {
        if (!arg)
            break;
        std::string word = arg;
        if (const size_t at = word.find('@'); at != std::string::npos)
            word.replace(at, 2,
                         word[at + 1] == 'i'   ? source_of(*c.row, size)
                         : word[at + 1] == 'o' ? opt.dir + "/out.obj"
                         : word[at + 1] == 'l' ? opt.dir + "/out.lst"
                                               : opt.dir + "/chip.ini");
        words.push_back(word);
    }
    return words;
}

static void measure(contestant_t *c, int size, result_t *result)
{
    const std::string out = opt.dir + "/out.obj", log = opt.dir + "/log";
    unlink(out.c_str());
    run_t run;
    const bool fine = spawn(words_of(*c, size), log, log.c_str(), &run);
    if (!fine || std::filesystem::file_size(log) || access(out.c_str(), R_OK)) {
        FILE *f = fopen(log.c_str(), "r");
        printf("%s: no figures for %s: %s%s\n", c->row->name, source_of(*c->row, size).substr(opt.dir.size() + 1).c_str(),
               fine ? "" : "it failed: ", first_line(f).c_str());
        if (f)
            fclose(f);
        *result = {};
        result->off = true;
        return;
    }
    result->runs.push_back(run);
    result->spent += run.wall;
}

static double best(const result_t &result)
{
    double least = 0;
    for (const run_t &run : result.runs)
        least = least == 0 ? run.wall : std::min(least, run.wall);
    return least;
}

static double median(const result_t &result)
{
    std::vector<double> all;
    for (const run_t &run : result.runs)
        all.push_back(run.wall);
    std::sort(all.begin(), all.end());
    return all.empty() ? 0 : (all[all.size() / 2] + all[(all.size() - 1) / 2]) / 2;
}

static double least_cpu(const result_t &result)
{
    double least = 1e9;
    for (const run_t &run : result.runs)
        least = std::min(least, run.cpu);
    return least;
}

static double peak_mb(const result_t &result)
{
    int64_t most = 0;
    for (const run_t &run : result.runs)
        most = std::max(most, run.peak_kb);
    return (double)most / 1024;
}

static void measure_all(std::vector<contestant_t> &all)
{
    for (const bool slow : {false, true})
        for (int round = slow; round < opt.runs; round++)
            for (int size = 0; size < SIZES; size++)
                for (contestant_t &c : all) {
                    result_t *result = &c.sized[size];
                    if (round == 0 && size > 0 && (c.sized[size - 1].off || 4 * best(c.sized[size - 1]) > skip_above)) {
                        printf("%s: left out at %lld lines\n", c.row->name, (long long)size_of(*c.row, size));
                        result->off = true;
                    }
                    if (!result->off && result->spent < repeat_budget &&
                        (round == 0 || slow == (best(*result) > slow_above)))
                        measure(&c, size, result);
                }
    for (int round = 0; round < START_RUNS; round++)
        for (contestant_t &c : all)
            if (!c.start.off)
                measure(&c, -1, &c.start);
}

static const contestant_t *by_name(const std::vector<contestant_t> &all, const char *name)
{
    for (const contestant_t &c : all)
        if (!strcmp(c.row->name, name))
            return &c;
    return nullptr;
}

static void print_sizes(const std::vector<contestant_t> &all)
{
    const contestant_t *gas = by_name(all, "gas-avr");
    printf("\n| assembler |   lines | runs | best s | median s |  cpu s | lines/s | to gas-avr | peak MB |\n"
           "|-----------|--------:|-----:|-------:|---------:|-------:|--------:|-----------:|--------:|\n");
    for (int size = 0; size < SIZES; size++)
        for (const contestant_t &c : all) {
            const result_t &r = c.sized[size];
            if (r.runs.empty())
                continue;
            const int64_t lines = size_of(*c.row, size);
            printf("| %-9s | %7lld | %4zu | %6.3f | %8.3f | %6.3f | %7.0f | ", c.row->name, (long long)lines, r.runs.size(),
                   best(r), median(r), least_cpu(r), (double)lines / best(r));
            gas && !gas->sized[size].runs.empty() ? printf("%9.2fx", best(gas->sized[size]) / best(r)) : printf("%10s", "-");
            printf(" | %7.1f |\n", peak_mb(r));
        }
}

static double growth(const contestant_t &c, int size)
{
    return c.sized[size].runs.empty() || c.sized[size - 1].runs.empty() ? 0 : best(c.sized[size]) / best(c.sized[size - 1]);
}

// What the plots are made of: a block of lines for each assembler, "lines seconds megabytes", with a blank line between two.
static bool write_table(const std::vector<contestant_t> &all)
{
    FILE *f = fopen(opt.table.c_str(), "w");
    for (const contestant_t &c : all) {
        if (!f)
            break;
        fprintf(f, "\"%s\"\n", c.row->name);
        for (int size = 0; size < SIZES; size++)
            if (!c.sized[size].runs.empty())
                fprintf(f, "%lld %.4f %.2f\n", (long long)size_of(*c.row, size), best(c.sized[size]),
                        peak_mb(c.sized[size]));
        fputs("\n\n", f);
    }
    if (f && fclose(f) == 0)
        return true;
    fprintf(stderr, "bench_run: can't write %s: %s\n", opt.table.c_str(), strerror(errno));
    return false;
}

static void print_growth(const std::vector<contestant_t> &all)
{
    printf("\n| growth    |");
    for (int size = 1; size < SIZES; size++)
        printf(" to %6lld | memory |", (long long)opt.lines >> (SIZES - 1 - size));
    printf("\n|-----------|");
    for (int size = 1; size < SIZES; size++)
        printf("----------:|-------:|");
    printf("\n");
    for (const contestant_t &c : all) {
        printf("| %-9s |", c.row->name);
        for (int size = 1; size < SIZES; size++)
            if (growth(c, size) > 0)
                printf(" %9.2f | %6.2f |", growth(c, size), peak_mb(c.sized[size]) / peak_mb(c.sized[size - 1]));
            else
                printf(" %9s | %6s |", "-", "-");
        printf("\n");
    }
}

static void print_start(const std::vector<contestant_t> &all)
{
    printf("\n| one line  | best ms | median ms | peak MB |\n|-----------|--------:|----------:|--------:|\n");
    for (const contestant_t &c : all)
        if (!c.start.runs.empty())
            printf("| %-9s | %7.2f | %9.2f | %7.1f |\n", c.row->name, best(c.start) * 1e3, median(c.start) * 1e3,
                   peak_mb(c.start));
}

static void print_aim(const char *what, double figure, const char *relation, double aim)
{
    const bool met = *relation == '>' ? figure >= aim : figure <= aim;
    printf("%-62s %8.2f  (%s %g)  %s\n", what, figure, relation, aim, met ? "reached" : "NOT REACHED");
}

// How many times as long, or as large, the first is on the largest size, and what is aimed at. Nothing if one wasn't measured.
static void print_ratio(const char *what, double (*measure)(const result_t &), const contestant_t *a, const contestant_t *b,
                        const char *relation, double aim)
{
    if (a && b && !a->sized[SIZES - 1].runs.empty() && !b->sized[SIZES - 1].runs.empty())
        print_aim(what, measure(a->sized[SIZES - 1]) / measure(b->sized[SIZES - 1]), relation, aim);
}

static void print_doubling(const contestant_t *c, double aim)
{
    for (int size = SIZES - 2; c && size < SIZES; size++)
        if (growth(*c, size) > 0)
            print_aim(size < SIZES - 1 ? "growth of time, last doubling but one" : "growth of time, last doubling",
                      growth(*c, size), "<=", aim);
}

static void print_aims(const std::vector<contestant_t> &all)
{
    const contestant_t *own = by_name(all, "aszel8"), *plain = by_name(all, "plain");
    printf("\n");
    print_ratio("lines per second, as a multiple of GNU as for AVR", best, by_name(all, "gas-avr"), own, ">=", 2);
    print_ratio("peak memory, as a fraction of LLVM's for AVR", peak_mb, own, by_name(all, "llvm-avr"), "<=", 0.6);
    print_ratio("lines per second of macros, as a fraction of plain source", best, own, by_name(all, "macros"), ">=", 0.5);
    print_doubling(own, 2.1);
    if (own && !own->start.runs.empty())
        print_aim("one-line source, chip file of 300 registers, median in ms", median(own->start) * 1e3, "<=", 3);
    print_ratio("time with a listing, as a multiple of the plain run's", best, by_name(all, "-L"), own, "<=", 2.6);
    print_ratio("time of -O, as a multiple of the plain run's", best, by_name(all, "-O"), plain, "<=", 3.3);
    print_ratio("time of -O --opt=space, as a multiple of the plain run's", best, by_name(all, "space"), plain, "<=", 5);
    print_doubling(by_name(all, "gotos"), 2.3);
}

static void print_head(const std::vector<contestant_t> &all)
{
    char date[40];
    const time_t t = time(nullptr);
    strftime(date, sizeof date, "%Y-%m-%d", localtime(&t));
    printf("%s, %ld x %s, shape \"%s\"\n", date, sysconf(_SC_NPROCESSORS_ONLN), process_model().c_str(),
           opt.optimise ? "compiled, and gotos" : opt.shape.c_str());
    for (const contestant_t &c : all)
        if (c.row->version)
            if (FILE *f = popen((c.command + " " + c.row->version + " 2>&1").c_str(), "r")) {
                printf("%s: %s\n", c.row->name, first_line(f).c_str());
                pclose(f);
            }
}

static void read_options(int argc, char **argv)
{
    const std::string bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    opt.aszel8 = bin + "/aszel8";
    opt.gen = bin + "/bench_gen";
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        const char *value = i + 1 < argc ? argv[i + 1] : "";
        if (word == "--peers")
            opt.peers = true;
        else if (word == "--optimise")
            opt.optimise = true, opt.lines = 200000;
        else if (word == "--quick")
            opt.runs = 3, opt.lines = 50000;
        else if (word == "--keep")
            opt.keep = true;
        else if (word == "--gate" && *value)
            opt.gate = value, opt.lines = 160000, i++;
        else if (word == "--hold")
            opt.hold = true;
        else if (word == "--table" && *value)
            opt.table = value, i++;
        else if (word == "--runs" && (opt.runs = atoi(value)) > 0)
            i++;
        else if (word == "--lines" && (opt.lines = atoll(value)) >= 20 && opt.lines <= 100000000)
            i++;
        else if (word == "--shape" && *value)
            opt.shape = value, i++;
        else if (word == "--aszel8" && *value)
            opt.aszel8 = value, i++;
        else
            die("unknown or incomplete option %s\nusage: bench_run [--peers | --optimise | --gate FILE [--hold]] [--quick] [--runs N] "
                "[--lines N] [--shape NAME] [--table FILE] [--keep] [--aszel8 PATH]",
                word.c_str());
    }
}

static bool wanted(const assembler_t &row)
{
    if (!opt.gate.empty())
        return row.kind != PEER;
    return row.kind == OWN ? !opt.optimise : row.kind == PEER ? opt.peers : opt.optimise;
}

// One line is the same for all rows. What a process of it takes is no more than the program's file in memory, of which the system maps
// more or fewer pages from day to day; so the memory of a row is what is above that.
static bool compare_with_held(std::vector<contestant_t> &all)
{
    std::vector<figure_t> now;
    const auto hold = [&](contestant_t &c, int size, const char *name, double base) {
        result_t result;
        measure(&c, size, &result);
        const int counted = size < 0 ? size : size - 2;   // a quarter: valgrind takes fifty times as long
        const double count = result.off ? -1 : gate_count(words_of(c, counted), opt.dir);
        if (count < 0)
            die("no count of instructions for %s: is valgrind there?", c.row->name);
        now.push_back({name, count, peak_mb(result) - base});
    };
    hold(all.front(), -1, "one-line", 0);
    const double base = now.back().mb;
    now.back().mb = 0;
    for (contestant_t &c : all)
        hold(c, SIZES - 1, c.row == assemblers ? opt.shape.c_str() : c.row->name, base);
    return gate_compare(opt.gate, now, opt.hold);
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 1;
    read_options(argc, argv);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (opt.peers)
        install_peers();
    std::vector<contestant_t> all;
    for (const assembler_t &row : assemblers) {
        if (!wanted(row))
            continue;
        const std::string command = command_of(row);
        if (command.empty())
            printf("%s: skipped, it isn't there\n", row.name);
        else
            all.push_back({&row, command, {}, {}});
    }
    if (all.empty())
        die("nothing to measure");
    opt.dir = process_directory("bench");
    if (opt.dir.empty() || !chip_write(opt.dir + "/chip.ini"))
        die("can't write files for the measurement: %s", strerror(errno));
    std::erase_if(all, [](const contestant_t &c) {
        const bool made = generate(*c.row);
        if (!made)
            printf("%s: skipped, no program of shape %s\n", c.row->name, shape_of(*c.row).c_str());
        return !made;
    });
    if (all.empty())
        die("nothing to measure");
    bool fine = true;
    if (!opt.gate.empty()) {
        fine = compare_with_held(all);
    } else {
        print_head(all);
        measure_all(all);
        print_sizes(all);
        print_growth(all);
        print_start(all);
        print_aims(all);
        fine = opt.table.empty() || write_table(all);
    }
    if (opt.keep)
        printf("\nprograms are in %s\n", opt.dir.c_str());
    else
        std::filesystem::remove_all(opt.dir);
    return !fine;
}
