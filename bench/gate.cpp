// Time is too noisy to hold a program to it: on a busy machine it doubles. Instructions are not, nor is the peak of memory. Both
// depend on the compiler and the processor, though, so the file names those that its figures come from.

#include "gate.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "process.h"

static const double allowed = 1.03, unseen_mb = 1;   // by so much the same program's peak differs from run to run

#ifdef __clang__
static const char compiler[] = "clang " __clang_version__;
#else
static const char compiler[] = "g++ " __VERSION__;
#endif

// The library has other loops for other processors.
static std::string conditions() { return std::string(compiler) + ", " + process_model(); }

double gate_count(const std::vector<std::string> &words, const std::string &dir)
{
    const std::string log = dir + "/valgrind", out = dir + "/log";
    std::vector<std::string> all = {process_find("valgrind"), "--tool=callgrind", "--callgrind-out-file=/dev/null"};
    all.insert(all.end(), words.begin(), words.end());
    run_t run;
    if (all[0].empty() || !process_run(all, out.c_str(), log.c_str(), 0, &run) || run.status != 0)
        return -1;
    std::ifstream lines(log);
    for (std::string line; std::getline(lines, line);)
        if (const size_t at = line.find("Collected : "); at != std::string::npos)
            return std::stod(line.substr(at + 12)) * 1e-6;
    return -1;
}

static bool write_figures(const std::string &path, const std::vector<figure_t> &now)
{
    std::ofstream file(path);
    file
        << "# Millions of instructions and megabytes of peak memory above that of one line, as bench_run --gate FILE --hold has written them.\n"
        << "with " << conditions() << "\n";
    for (const figure_t &figure : now) {
        char line[100];
        snprintf(line, sizeof line, "%-8s %9.2f %7.2f\n", figure.row.c_str(), figure.minstr, figure.mb);
        file << line;
    }
    return (bool)file.flush();
}

// The figures of a file; `whose`: what they were measured with.
static std::vector<figure_t> read_figures(std::istream &file, std::string *whose)
{
    std::vector<figure_t> held;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        figure_t figure;
        if (line.starts_with("with "))
            *whose = line.substr(5);
        else if (words >> figure.row >> figure.minstr >> figure.mb)
            held.push_back(figure);
    }
    return held;
}

bool gate_compare(const std::string &path, const std::vector<figure_t> &now, bool hold)
{
    if (hold) {
        const bool written = write_figures(path, now);
        if (!written)
            fprintf(stderr, "bench_run: can't write %s\n", path.c_str());
        return written;
    }
    std::ifstream file(path);
    if (!file) {
        fprintf(stderr, "bench_run: can't read %s\n", path.c_str());
        return false;
    }
    std::string whose;
    const std::vector<figure_t> held = read_figures(file, &whose);
    printf("| row      |  held Mi |   now Mi | ratio | held MB |  now MB | ratio |\n"
           "|----------|---------:|---------:|------:|--------:|--------:|------:|\n");
    int risen = 0;
    for (const figure_t &figure : now) {
        const auto one = std::find_if(held.begin(), held.end(), [&](const figure_t &h) { return h.row == figure.row; });
        if (one == held.end()) {
            printf("| %-8s | no figures are held for it\n", figure.row.c_str());
            risen++;
            continue;
        }
        const double more = figure.minstr / one->minstr, larger = one->mb > 0 ? figure.mb / one->mb : 1;
        const bool above = more > allowed || (larger > allowed && figure.mb > one->mb + unseen_mb);
        printf("| %-8s | %8.2f | %8.2f | %5.3f | %7.2f | %7.2f | %5.3f |%s\n", figure.row.c_str(), one->minstr,
               figure.minstr, more, one->mb, figure.mb, larger, above ? " RISEN" : "");
        risen += above;
    }
    if (whose == conditions()) {
        printf("%d of %zu rows above 3 %%\n", risen, now.size());
        return risen == 0;
    }
    printf("not judged: the figures are held with %s, and this is %s\n", whose.c_str(), conditions().c_str());
    return true;
}
