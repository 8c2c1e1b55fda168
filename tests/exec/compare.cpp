// exec_compare: shows that the optimiser changes nothing that a program does.
//
// Each generated program is assembled plainly and in several other ways, linked and run. What has to be the same: data
// memory, into which the program also puts W and status at its end, the pointers, every access to a register that
// changes by itself, and an empty stack. A program that does something else is cut down, piece by piece, for as long as
// it still does, and shown together with the rules that fired.
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

// Arguments of the assembler. With -A, the way leads through assembly text and back.
static std::vector<std::string> ways = {
    "-O", "-O --opt=space", "-O -auto_inline", "-O --errata=1", "-O --errata=16385", "-A", "-A -O --opt=space -auto_inline"};

struct outcome_t {
    std::string error;   // why there is none
    sim_t sim;
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

// `base` begins the names of a worker's files: base.as, base.obj and so on.
static std::string assemble(const std::string &base, const target_t &t, const std::string &options, const std::string &from,
                            const std::string &to)
{
    std::vector<std::string> arguments{st.bin + "/aszel8", "-mcpu=" + t.name, "-O" + base + to};
    std::istringstream in(options);
    for (std::string word; in >> word;)
        arguments.push_back(word);
    arguments.push_back(base + from);
    const int status = run_program(arguments, base + ".out");
    const std::string output = read_text(base + ".out");
    return status == 0 && output.empty() ? "" : "assembler: status " + std::to_string(status) + ", " + output.substr(0, 500);
}

// Runs what stands in base.as. With an empty way, it is assembled plainly.
static outcome_t perform(const std::string &base, const target_t &t, const std::string &way, uint64_t limit)
{
    outcome_t o;
    const bool text = way.find("-A") != std::string::npos;
    std::string options = way;
    if (!way.empty())
        options += " --qvdebug=on,out:" + base + ".trace";
    std::filesystem::remove(base + ".trace");
    o.error = assemble(base, t, options, ".as", text ? ".opt" : ".obj");
    if (o.error.empty() && text)
        o.error = assemble(base, t, "", ".opt", ".obj");
    if (o.error.empty())
        o.error = sim_load(o.sim, t, {base + ".obj"});
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
    const auto access = [&](const sim_t &s, size_t i) {
        const sim_access x = i < s.log.size() ? s.log[i] : sim_access{};
        return zo_format("%c %s 0x%02X", "-RWT"[x.kind], target_sfr_name(t, x.address).c_str(), x.value);
    };
    for (size_t i = 0; i < std::max(a.sim.log.size(), b.sim.log.size()); i++)
        if (const std::string x = access(a.sim, i), y = access(b.sim, i); x != y)
            return zo_format("access %zu: %s, not %s", i, y.c_str(), x.c_str());
    ranges_t compared = t.banks;
    compared.insert(compared.end(), {t.common, {a.sim.tablat, a.sim.tablat}, {a.sim.tblptr, a.sim.tblptr + 2u}});
    for (const uint32_t pair : {a.sim.prod, a.sim.fsr[0], a.sim.fsr[1], a.sim.fsr[2]})
        compared.push_back({pair, pair + 1});
    for (uint32_t at = 0; at < a.sim.data.size(); at++)
        if (a.sim.data[at] != b.sim.data[at] && in_ranges(compared, at))
            return zo_format("data address 0x%03X: 0x%02X, not 0x%02X", at, b.sim.data[at], a.sim.data[at]);
    return "";
}

static bool sound(const outcome_t &o) { return o.error.empty() && o.sim.stop == SIM_SLEEP && o.sim.depth == 0; }

static std::string try_way(const std::string &base, const target_t &t, const outcome_t &plain, const std::string &way)
{
    return difference(plain, perform(base, t, way, plain.sim.steps * 4 + 1000), t);
}

// Leaves out what it can. A piece that is left out is empty.
static void shrink(const std::string &base, const target_t &t, const std::string &way, pieces_t &pieces)
{
    for (size_t n = pieces.size(); n; n /= 2)
        for (size_t at = 1; at < pieces.size(); at += n) {
            pieces_t fewer = pieces;
            const auto from = fewer.begin() + static_cast<ptrdiff_t>(at);
            fewer.erase(from, from + static_cast<ptrdiff_t>(std::min(n, fewer.size() - at)));
            write_text(base + ".as", pieces_text(fewer));
            const outcome_t plain = perform(base, t, "", STEP_LIMIT);
            if (sound(plain) && !try_way(base, t, plain, way).empty()) {
                pieces = fewer;
                at -= n;
            }
        }
}

// The lines of the trace that tell of a rule: "J14 (Jumps to .+1): goto ...".
static std::vector<std::string> rules_in(const std::string &base)
{
    std::vector<std::string> rules;
    std::istringstream trace(read_text(base + ".trace"));
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
    write_text(base + ".as", pieces_text(pieces));
    const std::string now = try_way(base, t, perform(base, t, "", STEP_LIMIT), way);
    const std::lock_guard lock(st.mutex);
    printf("seed %llu, %s: %s\ncut down: %s\n%s", static_cast<unsigned long long>(seed), way.c_str(), what.c_str(),
           now.c_str(), pieces_text({pieces.begin() + 1, pieces.end()}).c_str());
    for (const std::string &rule : rules_in(base))
        printf("  %s\n", rule.c_str());
    printf("\n");
    fflush(stdout);
}

static void one_program(const std::string &base, uint64_t seed)
{
    const target_t &t = target_of(seed);
    const pieces_t pieces = program_of(seed);
    write_text(base + ".as", pieces_text(pieces));
    const outcome_t plain = perform(base, t, "", STEP_LIMIT);
    if (!sound(plain)) {
        st.faults++;
        printf("seed %llu: the program itself isn't sound: %s%s\n", static_cast<unsigned long long>(seed),
               plain.error.c_str(), plain.sim.why.c_str());
        return;
    }
    for (const std::string &way : ways) {
        const std::string what = try_way(base, t, plain, way);
        {
            const std::lock_guard lock(st.mutex);
            for (const std::string &rule : rules_in(base))
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
        write_text(base + ".as", pieces_text(gen_around(e.example, st.targets[0])));
        const outcome_t plain = perform(base, st.targets[0], "", STEP_LIMIT);
        const std::string what = sound(plain) ? try_way(base, st.targets[0], plain, e.way) : "";
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
                                   "                    [--rules] [--way \"-O\"]... [--allow exclusion]...\n"
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
