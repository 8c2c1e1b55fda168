// session: the order of a run.
//
// The core goes on by itself up to the next cycle at which something happens around it; then units, inputs and expectations have
// their turn. A run that is looked at goes instruction by instruction, and in between the same things happen at the same cycles.
#include "session.h"

#include <algorithm>

// Registers that the chip has, and memory; all else isn't there.
static void mark_absent(sim_t &s)
{
    const target_t &t = *s.target;
    ranges_t there = t.banks;
    there.push_back(t.common);
    for (const auto &[name, at] : t.sfr)
        there.push_back({at, at});
    std::vector<bool> known(s.mask + 1u, false);
    for (const range_t &r : there)
        for (uint32_t at = r.lo; at <= r.hi && at <= s.mask; at++)
            known[at] = true;
    for (uint32_t at = 0; at <= s.mask; at++)
        if (!known[at] && s.role[at] == R_PLAIN)
            s.role[at] = R_ABSENT;
}

static std::string prepare_serial(session_t &x)
{
    const auto unit = [&](const std::string &name) { return devices_find_serial(x.devices, x.sim, name); };
    const std::string &in = x.settings.input_register, &out = x.settings.output_register, &last = x.settings.until_register;
    if (!in.empty() && !unit(in))
        return in + ": it isn't a register of a serial unit";
    if (!out.empty() && !unit(out))
        return out + ": it isn't a register of a serial unit";
    x.until_unit = last.empty() ? nullptr : unit(last);
    x.until_seen = 0;
    if (!last.empty() && !x.until_unit)
        return last + ": it isn't a register of a serial unit";
    if (!in.empty())
        unit(in)->from = stdin;
    if (!out.empty())
        unit(out)->to = stdout;
    return "";
}

// What the settings name has to be there.
std::string session_prepare(session_t &x)
{
    settings_t &settings = x.settings;
    sim_t &s = x.sim;
    sim_init(s, x.program.target, x.program.bytes);
    mark_absent(s);
    s.log_tables = false;
    s.strict = settings.strict;
    s.extended = settings.xinst || program_switch(x.program, "XINST");
    if (!settings.start.empty() && !code_address(x.program, settings.start, s.pc))
        return settings.start + ": no such label or address of code to start at";
    if (!settings.until.empty() && !code_address(x.program, settings.until, x.until))
        return settings.until + ": no such label or address of code to end at";
    if (!settings.exit_register.empty() && !data_address(x.program, settings.exit_register, x.devices.exit_at))
        return settings.exit_register + ": no such register to exit by";
    const bool vectors = settings.vectors || program_switch(x.program, x.program.target.vectors_setting);
    x.devices.use_table = vectors && x.program.target.vectors_at[0];
    if (vectors && !x.devices.use_table)
        return "chip " + x.program.target.name + " has no table of vectors";
    devices_init(x.devices, s);
    for (const sim_input &input : settings.events)
        if (std::string error = devices_add_input(x.devices, s, input); !error.empty())
            return error;
    for (expectation_t &e : settings.expectations) {
        if (!e.text.empty() && !devices_find_serial(x.devices, s, e.name))
            return e.where + ": " + e.name + ": it isn't a register of a serial unit";
        if (e.text.empty() && !data_address(x.program, e.name, e.address))
            return e.where + ": " + e.name + ": no such register, label of data or address";
    }
    return prepare_serial(x);
}

static bool all_expected(const session_t &x)
{
    const auto &all = x.settings.expectations;
    if (all.empty() || x.watch.done < all.size())
        return false;
    bool more = false;   // that the program is to do
    for (const expectation_t &e : all)
        more |= e.before == 0;
    for (const sim_input &input : x.settings.events)
        more |= input.after == all.size();
    return !more;
}

static bool text_sent(session_t &x)
{
    if (!x.until_unit)
        return false;
    const std::string &sent = x.until_unit->sent, &text = x.settings.until_text;
    const size_t from = x.until_seen - std::min(x.until_seen, text.size() - 1);
    x.until_seen = sent.size();
    return sent.find(text, from) != std::string::npos;
}

bool session_settle(session_t &x)
{
    sim_t &s = x.sim;
    do {
        const uint64_t limit = std::min(x.settings.limit, watch_deadline(x.watch, x.settings));
        do
            devices_service(x.devices, s, limit);
        while (watch_update(x.watch, x.settings, x.devices, s));
        if (x.at_until = text_sent(x); x.at_until)
            return false;
        if (all_expected(x) || (s.stop != SIM_RUNS && !x.devices.asleep))
            return false;
        if (s.cycles >= limit)
            return sim_halt(s, SIM_LIMIT, ""), false;
    } while (x.devices.asleep);
    return true;
}

// An instruction, or all up to the next thing that is due; both in one place, for the compiler to lay it into the loop.
static bool advance(session_t &x, bool once)
{
    sim_t &s = x.sim;
    bool more = true, due = false;
    do {
        const uint32_t at = s.pc;
        const uint64_t began = s.cycles;
        sim_step(s);
        observe_step(x.observe, x.program, x.devices, s, at, began);
        watch_update(x.watch, x.settings, x.devices, s);
        x.at_until = s.pc == x.until;
        more = !x.at_until && !all_expected(x);
        due = s.cycles >= s.deadline || s.stop != SIM_RUNS;
    } while (more && !due && !once);
    return more && (!due || session_settle(x));
}

bool session_step(session_t &x) { return advance(x, true); }

void session_run(session_t &x)
{
    const settings_t &settings = x.settings;
    const bool watched = x.until != UINT32_MAX || !settings.expectations.empty() || !settings.trace.empty() ||
                         !settings.profile.empty() || !settings.vcd.empty() || !settings.coverage.empty();
    if (watched)
        observe_begin(x.observe, x.program, x.devices, x.sim);
    bool going = session_settle(x);
    while (going && watched)
        going = advance(x, false);
    while (going) {
        sim_go(x.sim);
        going = session_settle(x);
    }
}
