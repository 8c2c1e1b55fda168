// Two runs of one program need different numbers of instructions, and most programs never end. What they have in common are the
// accesses to ports, so the runs are compared from one to the next. At a write all that was to be done before has been done,
// and data memory is the same as well. At a read it needn't be: the optimiser may let a value be written ahead of it that is
// overwritten or not by what is read.
//
// A program ends with `sleep`, or with a jump to itself, which nothing can interrupt here. Of the latter the other run may make
// more than one instruction, so it has come to its end, too, when it goes on and on without an access.
#include "compare.h"

#include <algorithm>

#include "zelobj.h"

enum : uint64_t { MORE_STEPS = 4, EXTRA_STEPS = 1000 };   // that the other run may take

std::string access_text(const sim_t &s, size_t i)
{
    if (i >= s.log.size())
        return "no access";
    const sim_access &x = s.log[i];
    return zo_format("%c %s 0x%02X", "-RWT"[x.kind], target_sfr_name(*s.target, x.address).c_str(), x.value);
}

// The name in parentheses, with the distance from it.
static std::string name_at(const target_t &target, const data_names_t &names, uint32_t address)
{
    for (const auto &[name, at] : target.sfr)
        if (at == address)
            return " (" + name + ")";
    auto next = names.upper_bound(address);
    if (next == names.begin())
        return "";
    const auto &[at, name] = *--next;
    return address == at ? " (" + name + ")" : zo_format(" (%s+%u)", name.c_str(), address - at);
}

std::string data_difference(const sim_t &a, const sim_t &b, const ranges_t &ranges, const data_names_t &names)
{
    for (uint32_t at = 0; at < a.data.size(); at++)
        if (a.data[at] != b.data[at] && in_ranges(ranges, at))
            return zo_format("data address 0x%03X%s: 0x%02X, not 0x%02X", at, name_at(*a.target, names, at).c_str(),
                             b.data[at], a.data[at]);
    return "";
}

ranges_t pointer_registers(const sim_t &s)
{
    ranges_t r = {{s.tablat, s.tablat}, {s.tblptr, s.tblptr + 2u}};
    for (const uint32_t pair : {s.prod, s.fsr[0], s.fsr[1], s.fsr[2]})
        r.push_back({pair, pair + 1});
    return r;
}

// The registers that hold what was last written: those that aren't watched, below the core's.
static ranges_t steady_registers(const sim_t &s)
{
    const uint16_t core =
        std::min({s.wreg, s.status, s.bsr, s.prod, s.tblptr, s.tablat, s.pclath, s.fsr[0], s.fsr[1], s.fsr[2]});
    ranges_t r;
    for (const auto &[name, at] : s.target->sfr)
        if (at < core && s.role[at] == R_PLAIN)
            r.push_back({at, at});
    return r;
}

// Gives back whether the run is at its end.
static bool run_to_access(sim_t &s, size_t done, uint64_t steps)
{
    bool rests = false;
    while (s.stop == SIM_RUNS && s.log.size() <= done && s.steps < steps && !rests) {
        const uint32_t pc = s.pc, depth = s.depth;
        sim_step(s);
        rests = s.pc == pc && s.depth == depth;
    }
    return rests || s.stop == SIM_SLEEP;
}

// At the end of both.
static std::string end_difference(const sim_t &a, const sim_t &b, ranges_t compared, const data_names_t &names)
{
    if (b.stop == SIM_SLEEP && a.stop != SIM_SLEEP)
        return "it sleeps";
    if (b.stop != a.stop)
        return b.stop == SIM_RUNS ? "it doesn't come to the end" : b.why;
    if (b.depth != a.depth)
        return zo_format("the stack at the end: %u addresses, not %u", b.depth, a.depth);
    const ranges_t pointers = pointer_registers(a);
    compared.insert(compared.end(), pointers.begin(), pointers.end());
    return data_difference(a, b, compared, names);
}

comparison_t compare_runs(sim_t &plain, sim_t &other, uint64_t steps, unsigned deeper, const data_names_t &names)
{
    ranges_t memory = plain.target->banks;
    memory.push_back(plain.target->common);
    const ranges_t registers = steady_registers(plain);
    memory.insert(memory.end(), registers.begin(), registers.end());
    comparison_t c;
    for (;;) {
        const uint64_t before = plain.steps;
        c.ended = run_to_access(plain, c.accesses, steps);
        if (plain.log.size() == c.accesses && !c.ended)
            return c;   // the limit
        run_to_access(other, c.accesses, other.steps + MORE_STEPS * (plain.steps - before) + EXTRA_STEPS);
        const size_t both = std::min(plain.log.size(), other.log.size());
        if (plain.log.size() == c.accesses || both == c.accesses)
            break;
        for (; c.accesses < both; c.accesses++)
            if (access_text(plain, c.accesses) != access_text(other, c.accesses))
                break;
        if (c.accesses < both)
            break;
        if (other.depth > plain.depth + deeper)
            c.difference = zo_format("the stack: %u addresses, not %u", other.depth, plain.depth);
        else if (plain.log.size() == other.log.size() && plain.log.back().kind == sim_access::WRITE)
            c.difference = data_difference(plain, other, memory, names);
        if (!c.difference.empty())
            return c;
        c.plain_steps = plain.steps;
        c.other_steps = other.steps;
    }
    const bool more = other.log.size() > c.accesses;
    if (plain.log.size() > c.accesses && !more && other.stop != SIM_RUNS)
        c.difference = other.why.empty() ? "it sleeps" : other.why;
    else if (plain.log.size() > c.accesses || (more && c.ended))
        c.difference = access_text(other, c.accesses) + ", not " + access_text(plain, c.accesses);
    else if (c.ended)
        c.difference = end_difference(plain, other, memory, names);
    if (c.difference.empty()) {
        c.plain_steps = plain.steps;
        c.other_steps = other.steps;
    }
    return c;
}
