// exec_compare: shows that the optimiser changes nothing that a program does.
//
// Each generated program is assembled plainly and in several other ways, linked and run. What has to be the same: data
// memory, into which the program also puts W and status at its end, the pointers, every access to a register that
// changes by itself, and an empty stack. A program that does something else is cut down, piece by piece, for as long as
// it still does, and shown together with the rules that fired.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

#include "gen.h"
#include "link.h"
#include "tools.h"

enum : uint64_t { STEP_LIMIT = 200000 };

struct way_t { const char *name; std::vector<std::string> arguments; bool text; };   // text: through assembly text and back

static std::vector<way_t> ways = {
    {"-O", {"-O"}, false},
    {"-O --opt=space", {"-O", "--opt=space"}, false},
    {"-O -auto_inline", {"-O", "-auto_inline"}, false},
    {"-O --errata=1", {"-O", "--errata=1"}, false},               // and X_ERRATA_SKIP: no inlining
    {"-O --errata=16385", {"-O", "--errata=16385"}, false},
    {"-A", {"-A"}, true},
    {"-A -O --opt=space -auto_inline", {"-A", "-O", "--opt=space", "-auto_inline"}, true},
};

struct outcome_t {
    std::string error;   // why there is none
    sim_t sim;
};

static struct {
    std::string bin = program_directory(), directory;
    uint64_t seed = 1, count = 200, allowed = 0, reports = 5;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    bool rules = false;
    std::atomic<uint64_t> next{0}, faults{0};
    std::mutex mutex;
    std::map<std::string, uint64_t> fired;
    target_t targets[2];
} st;

// One worker's files.
struct place_t {
    std::string base;
    std::string source() const { return base + ".as"; }
    std::string object() const { return base + ".obj"; }
    std::string text() const { return base + ".opt"; }
    std::string output() const { return base + ".out"; }
    std::string trace() const { return base + ".trace"; }
};

static const target_t &target_of(uint64_t seed) { return st.targets[seed % 4 == 3]; }

static std::string assemble(const place_t &p, const target_t &t, const std::vector<std::string> &more,
                            const std::string &from, const std::string &to)
{
    std::vector<std::string> arguments{st.bin + "/aszel8", "-mcpu=" + t.name, "-O" + to};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.push_back(from);
    const int status = run_program(arguments, p.output());
    const std::string output = read_text(p.output());
    return status == 0 && output.empty() ? "" : "assembler: status " + std::to_string(status) + ", " + output.substr(0, 500);
}

// With way null, plainly.
static outcome_t perform(const place_t &p, const target_t &t, const way_t *way, uint64_t limit)
{
    outcome_t o;
    std::vector<std::string> arguments;
    if (way) {
        arguments = way->arguments;
        arguments.push_back("--qvdebug=on,out:" + p.trace());
        std::filesystem::remove(p.trace());
    }
    const bool text = way && way->text;
    o.error = assemble(p, t, arguments, p.source(), text ? p.text() : p.object());
    if (o.error.empty() && text)
        o.error = assemble(p, t, {}, p.text(), p.object());
    if (o.error.empty())
        o.error = sim_load(o.sim, t, {p.object()});
    if (!o.error.empty())
        return o;
    sim_t &s = o.sim;
    s.random_inputs = true;
    for (uint32_t at = 0; at < s.data.size(); at++)
        if (in_ranges(t.banks, at) || at <= t.common.hi)
            s.data[at] = static_cast<uint8_t>((at * 2654435761u + 12345) >> 11);
    for (const char *name : {"PORTA", "PORTB", "LATA", "LATB", "LATC"})
        s.watched[target_sfr(t, name)] = true;
    sim_run(s, limit);
    return o;
}

static std::string difference(const outcome_t &a, const outcome_t &b, const target_t &t)
{
    if (!b.error.empty())
        return b.error;
    if (b.sim.stop != SIM_SLEEP)
        return b.sim.why;
    if (b.sim.depth)
        return zo_format("the stack isn't empty: %u", b.sim.depth);
    const size_t n = std::min(a.sim.log.size(), b.sim.log.size());
    for (size_t i = 0; i < n; i++) {
        const sim_access &x = a.sim.log[i], &y = b.sim.log[i];
        if (x.address != y.address || x.value != y.value || x.kind != y.kind)
            return zo_format("access %zu: %s 0x%02X, not %s 0x%02X", i,
                             target_sfr_name(t, static_cast<uint16_t>(y.address)).c_str(), y.value,
                             target_sfr_name(t, static_cast<uint16_t>(x.address)).c_str(), x.value);
    }
    if (a.sim.log.size() != b.sim.log.size())
        return zo_format("%zu accesses, not %zu", b.sim.log.size(), a.sim.log.size());
    const uint16_t fsr0 = a.sim.fsr[0], fsr1 = a.sim.fsr[1], fsr2 = a.sim.fsr[2];
    const ranges_t registers = {{fsr0, fsr0 + 1u}, {fsr1, fsr1 + 1u}, {fsr2, fsr2 + 1u}, {a.sim.prod, a.sim.prod + 1u},
                                {a.sim.tablat, a.sim.tablat}, {a.sim.tblptr, a.sim.tblptr + 2u}};
    for (uint32_t at = 0; at < a.sim.data.size(); at++)
        if ((at <= t.common.hi || in_ranges(t.banks, at) || in_ranges(registers, at)) && a.sim.data[at] != b.sim.data[at])
            return zo_format("data address 0x%03X: 0x%02X, not 0x%02X", at, b.sim.data[at], a.sim.data[at]);
    return "";
}

static bool sound(const outcome_t &plain)
{
    return plain.error.empty() && plain.sim.stop == SIM_SLEEP && plain.sim.depth == 0;
}

static std::string try_way(const place_t &p, const target_t &t, const outcome_t &plain, const way_t &way)
{
    return difference(plain, perform(p, t, &way, plain.sim.steps * 4 + 1000), t);
}

// Leaves out what it can. A piece that is left out is empty.
static void shrink(const place_t &p, const target_t &t, const way_t &way, pieces_t &pieces)
{
    for (size_t n = pieces.size(); n; n /= 2)
        for (size_t at = 1; at < pieces.size(); at += n) {
            pieces_t fewer = pieces;
            const size_t end = std::min(at + n, fewer.size());
            fewer.erase(fewer.begin() + static_cast<ptrdiff_t>(at), fewer.begin() + static_cast<ptrdiff_t>(end));
            write_text(p.source(), pieces_text(fewer));
            const outcome_t plain = perform(p, t, nullptr, STEP_LIMIT);
            if (sound(plain) && !try_way(p, t, plain, way).empty()) {
                pieces = fewer;
                at -= n;
            }
        }
}

static std::map<std::string, uint64_t> rules_in(const std::string &trace)
{
    std::map<std::string, uint64_t> rules;
    for (size_t at = 0; (at = trace.find("> ", at)) != std::string::npos; at++) {
        const size_t end = trace.find('\n', at), paren = trace.find(" (", at);
        if (trace.find("): ", at) < end)
            rules[trace.substr(at + 2, paren - at - 2)]++;
    }
    return rules;
}

static void report(const place_t &p, uint64_t seed, const way_t &way, pieces_t pieces, const std::string &what)
{
    const target_t &t = target_of(seed);
    if (st.faults++ >= st.reports)
        return;
    shrink(p, t, way, pieces);
    write_text(p.source(), pieces_text(pieces));
    const outcome_t plain = perform(p, t, nullptr, STEP_LIMIT);
    const std::string now = try_way(p, t, plain, way);
    const std::string text = pieces_text({pieces.begin() + 1, pieces.end()}), trace = read_text(p.trace());
    const std::lock_guard lock(st.mutex);
    printf("seed %llu, %s: %s\ncut down: %s\n%s", static_cast<unsigned long long>(seed), way.name, what.c_str(), now.c_str(),
           text.c_str());
    for (size_t at = 0; (at = trace.find("> ", at)) != std::string::npos; at++)
        if (trace.find("): ", at) < trace.find('\n', at))
            printf("  %s\n", trace.substr(at + 2, trace.find('\n', at) - at - 2).c_str());
    printf("\n");
    fflush(stdout);
}

static void one_program(const place_t &p, uint64_t seed)
{
    const target_t &t = target_of(seed);
    const pieces_t pieces = gen_program(seed, t, st.allowed);
    write_text(p.source(), pieces_text(pieces));
    const outcome_t plain = perform(p, t, nullptr, STEP_LIMIT);
    if (!sound(plain)) {
        st.faults++;
        const std::lock_guard lock(st.mutex);
        printf("seed %llu: the program itself isn't sound: %s%s\n", static_cast<unsigned long long>(seed),
               plain.error.c_str(), plain.sim.why.c_str());
        return;
    }
    for (const way_t &way : ways) {
        const std::string what = try_way(p, t, plain, way);
        {
            const std::lock_guard lock(st.mutex);
            for (const auto &[rule, n] : rules_in(read_text(p.trace())))
                st.fired[rule] += n;
        }
        if (!what.empty())
            return report(p, seed, way, pieces, what);
    }
}

static void worker(unsigned number)
{
    const place_t p{st.directory + "/" + std::to_string(number)};
    for (uint64_t i; (i = st.next++) < st.count;)
        one_program(p, st.seed + i);
}

// Every exclusion has to be needed: its example has to misbehave.
static void check_exclusions()
{
    const place_t p{st.directory + "/exclusion"};
    for (const exclusion_t &e : exclusions) {
        const way_t way{e.name, {}, false};
        way_t with = way;
        with.text = strstr(e.arguments, "-A") != nullptr;
        for (const char *at = e.arguments; *at;) {
            const size_t n = strcspn(at, " ");
            with.arguments.emplace_back(at, n);
            at += n + (at[n] == ' ');
        }
        write_text(p.source(), pieces_text(gen_around(e.example, st.targets[0])));
        const outcome_t plain = perform(p, st.targets[0], nullptr, STEP_LIMIT);
        const std::string what = sound(plain) ? try_way(p, st.targets[0], plain, with) : plain.error + plain.sim.why;
        const bool good = sound(plain) && !what.empty();
        printf("%-20s %s\n    %s\n%s", e.name, good ? what.c_str() : ("NOT SHOWN " + plain.error + plain.sim.why).c_str(),
               e.why, e.example);
        st.faults += !good;
    }
}

static int usage()
{
    fprintf(stderr, "usage: exec_compare [--bin directory] [--seed n] [--count n] [--jobs n] [--reports n]\n"
                    "                    [--way \"-O\"]... [--allow exclusion]... [--rules]\n"
                    "       exec_compare --exclusions          shows that the situations that are left out misbehave\n"
                    "       exec_compare --print n             the program of a seed\n");
    return 2;
}

int main(int argc, char **argv)
{
    bool show_exclusions = false, print = false;
    std::set<std::string> only;
    for (int i = 1; i < argc; i++) {
        const std::string option = argv[i];
        const bool valued = i + 1 < argc;
        if (option == "--exclusions")
            show_exclusions = true;
        else if (option == "--rules")
            st.rules = true;
        else if (!valued)
            return usage();
        else if (option == "--bin")
            st.bin = argv[++i];
        else if (option == "--way")
            only.insert(argv[++i]);
        else if (option == "--allow" && exclusion_find(argv[i + 1]) != X_NONE)
            st.allowed |= uint64_t{1} << exclusion_find(argv[++i]);
        else if (option == "--seed" || option == "--print") {
            print = option == "--print";
            st.seed = strtoull(argv[++i], nullptr, 10);
        } else if (option == "--count")
            st.count = strtoull(argv[++i], nullptr, 10);
        else if (option == "--reports")
            st.reports = strtoull(argv[++i], nullptr, 10);
        else if (option == "--jobs")
            st.jobs = static_cast<unsigned>(strtoul(argv[++i], nullptr, 10));
        else
            return usage();
    }
    for (way_t &way : ways)
        if (strstr(way.name, "--errata") && !(st.allowed >> X_ERRATA_SKIP & 1))
            way.arguments.push_back("-no_inline");
    if (!only.empty())
        std::erase_if(ways, [&](const way_t &way) { return !only.contains(way.name); });
    for (int i = 0; i < 2; i++)
        if (const std::string error = target_find(st.bin, i ? "ZEL8K20" : "ZEL8K10", st.targets[i]); !error.empty()) {
            fprintf(stderr, "%s\n", error.c_str());
            return 2;
        }
    if (print) {
        printf("%s", pieces_text(gen_program(st.seed, target_of(st.seed), st.allowed)).c_str());
        return 0;
    }
    char directory[] = "/tmp/exec_compare.XXXXXX";
    if (!mkdtemp(directory))
        return 2;
    st.directory = directory;
    if (show_exclusions) {
        check_exclusions();
    } else {
        std::vector<std::thread> workers;
        for (unsigned i = 0; i < st.jobs; i++)
            workers.emplace_back(worker, i);
        for (std::thread &w : workers)
            w.join();
        printf("%llu programs, %llu differences\n", static_cast<unsigned long long>(st.count),
               static_cast<unsigned long long>(st.faults.load()));
        if (st.rules)
            for (const auto &[rule, n] : st.fired)
                printf("%10llu %s\n", static_cast<unsigned long long>(n), rule.c_str());
    }
    std::filesystem::remove_all(st.directory);
    return st.faults != 0;
}
