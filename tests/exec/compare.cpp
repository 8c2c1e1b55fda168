// exec_compare: shows that the optimiser changes nothing that a program does.
//
// Each generated program is assembled plainly and in several other ways, linked and run. What has to be the same: data
// memory, into which the program also puts W and status at its end, the pointers, every access to a register that
// changes by itself, and an empty stack; at these accesses it may be no deeper, but for the call of an abstraction. Interrupts
// come at any time, so they show whether their handler leaves everything as it was, and need not come at the same instruction.
// A program that does something else is cut down, piece by piece, for as long as it still does, and shown together with the
// rules that fired.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <thread>

#include "common/streams.h"
#include "gen.h"
#include "tools.h"
#include "zellink.h"

enum : uint64_t { STEP_LIMIT = 200000 };

// Arguments of the assembler. With -A, the way leads through assembly text, which is assembled with what stands behind "then".
static std::vector<std::string> ways = {"-O",
                                        "-O --opt=space",
                                        "-O --opt=space -auto_inline",
                                        "-O --errata=1",
                                        "-O -auto_inline --errata=16385 -L",
                                        "--errata=16384",
                                        "-A",
                                        "-A -O -H",
                                        "-A then -O --opt=space",
                                        "-A -O --opt=space -auto_inline then -O -auto_inline",
                                        "-A -O --errata=16384 then -O --opt=space"};

struct outcome_t {
    std::string error;   // why there is none
    sim_t sim;
    std::vector<unsigned> depths;   // of the stack, at each access of the log
};

static struct {
    std::string bin = program_directory(), directory;
    bool hand = false;   // the kind of programs
    uint64_t seed = 1, count = 200, allowed = 0, reports = 5;
    std::atomic<uint64_t> next{0}, faults{0};
    std::mutex mutex;
    std::map<std::string, uint64_t> fired;
    target_t targets[2];
} st;

static const target_t &target_of(uint64_t seed) { return st.targets[seed % 4 == 3]; }

static pieces_t program_of(uint64_t seed)
{
    return st.hand ? hand_program(seed, target_of(seed)) : gen_program(seed, target_of(seed), st.allowed);
}

// `base` begins the names of a worker's files: base.as, base1.as, base.obj and so on, a number for each module but the first.
struct program_t {
    std::string base;
    const target_t &target;
    std::vector<std::string> modules;   // without extension
    bool interrupts;
};

static program_t write_program(const std::string &base, const target_t &t, const pieces_t &pieces)
{
    const std::string text = pieces_text(pieces);
    program_t p{base, t, {}, text.find(INTERRUPT_PSECT) != std::string::npos};
    for (size_t at = 0, end; at < text.size(); at = end) {
        end = std::min(text.find(MODULE_MARK, at + 1), text.size());
        p.modules.push_back(base + (at ? std::to_string(p.modules.size()) : ""));
        write_text(p.modules.back() + ".as", text.substr(at, end - at));
    }
    return p;
}

static std::string assemble(const std::string &base, const target_t &t, const std::string &options, const std::string &from,
                            const std::string &to)
{
    std::vector<std::string> arguments{st.bin + "/aszel8", "-mcpu=" + t.name, "-O" + base + to, "--msgdisable=2066"};
    std::istringstream in(options);
    for (std::string word; in >> word;)
        arguments.push_back(word == "-L" ? word + base + ".lst" : word);
    arguments.push_back(base + from);
    const int status = run_program(arguments, base + ".out");
    const std::string output = read_text(base + ".out");
    return status == 0 && output.empty() ? "" : "assembler: status " + std::to_string(status) + ", " + output.substr(0, 500);
}

static std::string assemble_way(const std::string &base, const target_t &t, const std::string &way)
{
    static const std::string THEN = " then ";
    const size_t then = std::min(way.find(THEN), way.size());
    const bool text = way.find("-A") != std::string::npos;
    std::filesystem::remove(base + ".trace");
    std::string error = assemble(base, t, way.substr(0, then) + (way.empty() ? "" : " --qvdebug=on,out:" + base + ".trace"),
                                 ".as", text ? ".opt" : ".obj");
    if (error.empty() && text)
        error = assemble(base, t, then < way.size() ? way.substr(then + THEN.size()) : "", ".opt", ".obj");
    return error;
}

// Interrupts that don't interrupt each other, some dozens of instructions apart.
struct interrupts_t {
    uint64_t next = 20;
    unsigned depth = 0;   // of the stack, before the one that is served; `serving` tells whether there is one
    bool serving = false;
};

static void interrupt_if_due(sim_t &s, interrupts_t &i)
{
    if (i.serving && s.depth == i.depth) {
        i.serving = false;
        i.next = s.steps + 1 + (s.steps * 2654435761u >> 16) % 50;
    } else if (!i.serving && s.steps >= i.next && s.depth + 1 < s.target->stack_depth && s.stop == SIM_RUNS) {
        i.serving = true;
        i.depth = s.depth;
        s.stack[++s.depth] = s.pc;
        s.shadow = {s.data[s.wreg], s.data[s.status], s.data[s.bsr]};
        s.pc = 8;
    }
}

// With an empty way, the program is assembled plainly.
static outcome_t perform(const program_t &p, const std::string &way, uint64_t limit)
{
    outcome_t o;
    const target_t &t = p.target;
    std::vector<std::string> objects;
    for (const std::string &module : p.modules) {
        o.error = o.error.empty() ? assemble_way(module, t, way) : o.error;
        objects.push_back(module + ".obj");
    }
    if (o.error.empty())
        o.error = sim_load(o.sim, t, objects);
    if (!o.error.empty())
        return o;
    sim_t &s = o.sim;
    s.random_inputs = true;
    for (uint32_t at = 0; at < s.data.size(); at++)
        if (in_ranges(t.banks, at) || at <= t.common.hi)
            s.data[at] = static_cast<uint8_t>((at * 2654435761u + 12345) >> 11);
    s.data[s.tblptr + 1] = TABLE_ADDRESS >> 8;   // code, which moves, isn't read as data
    for (const char *name : {"PORTA", "PORTB", "LATA", "LATB", "LATC"})
        sim_watch(s, target_sfr(t, name));
    interrupts_t interrupts;
    while (s.stop == SIM_RUNS && s.steps < limit) {
        sim_step(s);
        o.depths.resize(s.log.size(), s.depth);
        if (p.interrupts)
            interrupt_if_due(s, interrupts);
    }
    if (s.stop == SIM_RUNS)
        sim_run(s, 0);   // which tells of the limit
    return o;
}

static std::string difference(const outcome_t &a, const outcome_t &b, const program_t &p, const std::string &way)
{
    const target_t &t = p.target;
    const unsigned deeper = way.find("space") != std::string::npos;
    if (!b.error.empty())
        return b.error;
    if (b.sim.stop != SIM_SLEEP)
        return b.sim.why;
    if (b.sim.depth)
        return zo_format("the stack isn't empty: %u", b.sim.depth);
    for (size_t i = 0; i < std::max(a.sim.log.size(), b.sim.log.size()); i++)
        if (const std::string x = access_text(a.sim, i), y = access_text(b.sim, i); x != y)
            return zo_format("access %zu: %s, not %s", i, y.c_str(), x.c_str());
    for (size_t i = 0; i < a.depths.size(); i++)
        if (b.depths[i] > a.depths[i] + deeper)
            return zo_format("the stack at access %zu: %u, not %u", i, b.depths[i], a.depths[i]);
    const uint32_t own = p.interrupts ? 8 : 0;   // bytes of the handler's
    ranges_t compared = pointer_registers(a.sim);
    compared.insert(compared.end(), t.banks.begin(), t.banks.end());
    compared.push_back({t.common.lo, t.common.hi - own});
    return data_difference(a.sim, b.sim, compared);
}

static bool sound(const outcome_t &o) { return o.error.empty() && o.sim.stop == SIM_SLEEP && o.sim.depth == 0; }

static std::string try_way(const program_t &p, const outcome_t &plain, const std::string &way)
{
    return difference(plain, perform(p, way, plain.sim.steps * 4 + 1000), p, way);
}

// Leaves out what it can. A piece that is left out is empty.
static void shrink(const std::string &base, const target_t &t, const std::string &way, pieces_t &pieces)
{
    for (size_t n = pieces.size(); n; n /= 2)
        for (size_t at = 1; at < pieces.size(); at += n) {
            pieces_t fewer = pieces;
            const auto from = fewer.begin() + static_cast<ptrdiff_t>(at);
            fewer.erase(from, from + static_cast<ptrdiff_t>(std::min(n, fewer.size() - at)));
            const program_t p = write_program(base, t, fewer);
            const outcome_t plain = perform(p, "", STEP_LIMIT);
            if (sound(plain) && !try_way(p, plain, way).empty()) {
                pieces = fewer;
                at -= n;
            }
        }
}

// The lines of the trace that tell of a rule: "J14 (Jumps to .+1): goto ...".
static std::vector<std::string> rules_in(const program_t &p)
{
    std::vector<std::string> rules;
    std::string traces;
    for (const std::string &module : p.modules)
        traces += read_text(module + ".trace");
    std::istringstream trace(traces);
    for (std::string line; std::getline(trace, line);)
        if (const size_t at = line.find("> "); at != std::string::npos && line.find("): ", at) != std::string::npos)
            rules.push_back(line.substr(at + 2));
    return rules;
}

static void report(const std::string &base, uint64_t seed, const std::string &way, pieces_t pieces, const std::string &what)
{
    const target_t &t = target_of(seed);
    if (st.faults++ >= st.reports)
        return;
    shrink(base, t, way, pieces);
    const program_t p = write_program(base, t, pieces);
    const std::string now = try_way(p, perform(p, "", STEP_LIMIT), way);
    const std::lock_guard lock(st.mutex);
    printf("seed %llu, %s: %s\ncut down: %s\n%s", static_cast<unsigned long long>(seed), way.c_str(), what.c_str(),
           now.c_str(), pieces_text({pieces.begin() + 1, pieces.end()}).c_str());
    for (const std::string &rule : rules_in(p))
        printf("  %s\n", rule.c_str());
    printf("\n");
    fflush(stdout);
}

static void one_program(const std::string &base, uint64_t seed)
{
    const target_t &t = target_of(seed);
    const pieces_t pieces = program_of(seed);
    const program_t p = write_program(base, t, pieces);
    const outcome_t plain = perform(p, "", STEP_LIMIT);
    if (!sound(plain)) {
        st.faults++;
        printf("seed %llu: the program itself isn't sound: %s%s\n", static_cast<unsigned long long>(seed),
               plain.error.c_str(), plain.sim.why.c_str());
        return;
    }
    for (const std::string &way : ways) {
        const std::string what = try_way(p, plain, way);
        {
            const std::lock_guard lock(st.mutex);
            for (const std::string &rule : rules_in(p))
                st.fired[rule.substr(0, rule.find(" ("))]++;
        }
        if (!what.empty())
            return report(base, seed, way, pieces, what);
    }
}

// Every exclusion has to be needed: its example has to misbehave.
static void check_exclusions()
{
    const std::string base = st.directory + "/exclusion";
    st.allowed = UINT64_MAX;
    for (const exclusion_t &e : exclusions) {
        const program_t p = write_program(base, st.targets[0], gen_around(e.example, st.targets[0]));
        const outcome_t plain = perform(p, "", STEP_LIMIT);
        const std::string what = sound(plain) ? try_way(p, plain, e.way) : "";
        printf("%-14s %s\n    %s\n    %s: %s\n", e.name,
               what.empty() ? ("NOT SHOWN " + plain.error + plain.sim.why).c_str() : what.c_str(), e.why, e.way, e.example);
        st.faults += what.empty();
    }
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    bool show_exclusions = false, print = false, rules = false;
    const std::map<std::string, uint64_t *> numbers = {
        {"--seed", &st.seed}, {"--print", &st.seed}, {"--count", &st.count}, {"--reports", &st.reports}};
    std::vector<std::string> only;
    for (int i = 1; i < argc; i++) {
        const std::string option = argv[i], value = i + 1 < argc ? argv[i + 1] : "";
        if (option == "--exclusions" || option == "--rules") {
            (option == "--rules" ? rules : show_exclusions) = true;
            continue;
        }
        if (option == "--kind=hand" || option == "--kind=compiled") {
            st.hand = option == "--kind=hand";
            continue;
        }
        if (const auto number = numbers.find(option); number != numbers.end() && !value.empty())
            *number->second = strtoull(value.c_str(), nullptr, 10);
        else if (option == "--way" && !value.empty())
            only.push_back(value);
        else if (option == "--allow" && exclusion_find(value) != X_NONE)
            st.allowed |= uint64_t{1} << exclusion_find(value);
        else
            return fprintf(stderr, "usage: exec_compare [--kind=compiled|hand] [--seed n] [--count n] [--reports n]\n"
                                   "                    [--rules] [--way \"-A -O then -O\"]... [--allow exclusion]...\n"
                                   "       exec_compare --exclusions  what is left out\n"
                                   "       exec_compare --print n     the program of a seed\n"),
                   2;
        print |= option == "--print";
        i++;
    }
    ways = only.empty() ? ways : only;
    for (int i = 0; i < 2; i++)
        if (const std::string error = target_find(st.bin, i ? "ZEL8K20" : "ZEL8K10", st.targets[i]); !error.empty())
            return fprintf(stderr, "%s\n", error.c_str()), 2;
    if (print)
        return puts(pieces_text(program_of(st.seed)).c_str()) < 0;
    char directory[] = "/tmp/exec_compare.XXXXXX";
    if (!mkdtemp(directory))
        return 2;
    st.directory = directory;
    if (chdir(directory))   // where includes are found
        return 2;
    write_text("nothing.inc", "; nothing\n");
    if (show_exclusions) {
        check_exclusions();
    } else {
        std::vector<std::thread> workers;
        for (unsigned i = 0; i < std::max(1u, std::thread::hardware_concurrency()); i++)
            workers.emplace_back([base = st.directory + "/" + std::to_string(i)] {
                for (uint64_t n; (n = st.next++) < st.count;)
                    one_program(base, st.seed + n);
            });
        for (std::thread &w : workers)
            w.join();
        printf("%llu programs, %llu differences\n", static_cast<unsigned long long>(st.count),
               static_cast<unsigned long long>(st.faults.load()));
        for (const auto &[rule, n] : rules ? st.fired : decltype(st.fired){})
            printf("%10llu %s\n", static_cast<unsigned long long>(n), rule.c_str());
    }
    std::filesystem::remove_all(st.directory);
    return st.faults != 0;
}
