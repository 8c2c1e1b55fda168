// devices: ports, timers, serial units, interrupts.
//
// Nothing here is done for each instruction. A timer is a count and the cycle at which it had it; its register is worked out
// when it is read. The core runs up to the next cycle at which something happens by itself, and comes back early after a write
// to a register of a unit, for then that cycle may be another one.
#include "devices.h"

#include <algorithm>

#include "zelobj.h"

constexpr uint64_t NEVER = UINT64_MAX;
enum : uint32_t { HIGH_VECTOR = 0x08, LOW_VECTOR = 0x18, TABLE_ENTRY = 4 };
enum : uint64_t { INTERRUPT_CYCLES = 2, CHARACTER_BITS = 10 };

// Fields. One that the chip hasn't is 0, and can't be set.

static unsigned get(const sim_t &s, const sfr_bits_t &f)
{
    return f.bits ? s.data[f.address] >> f.low & ((1u << f.bits) - 1) : 0;
}

static void set(sim_t &s, const sfr_bits_t &f, bool on)
{
    if (f.bits)
        s.data[f.address] = static_cast<uint8_t>((s.data[f.address] & ~(1u << f.low)) | unsigned{on} << f.low);
}

// Timers.

static bool counts(const sim_t &s, const devices_timer &t) { return get(s, t.on) && !get(s, t.clock); }

static uint64_t tick(const sim_t &s, const devices_timer &t)
{
    return get(s, t.bypass) ? 1 : t.factors[get(s, t.prescale) % t.factors.size()];
}

// Ticks until it begins from 0 again. One that is past its period counts to the end of its register.
static uint64_t remaining(const sim_t &s, const devices_timer &t)
{
    const uint32_t end = t.period ? s.data[t.period] + 1u : 0x10000;
    return (t.count < end ? end : 0x100) - t.count;
}

// Brings it up to the cycle.
static void advance(sim_t &s, devices_timer &t)
{
    if (!t.running) {
        t.since = s.cycles;
        return;
    }
    for (uint64_t ticks = (s.cycles - t.since) / t.each; ticks;) {
        const uint64_t part = std::min(ticks, remaining(s, t));
        const bool over = part == remaining(s, t);
        t.count = over ? 0 : t.count + static_cast<uint32_t>(part);
        t.since += part * t.each;
        ticks -= part;
        if (over && ++t.passes > get(s, t.postscale)) {
            t.passes = 0;
            set(s, t.flag, true);
        }
    }
}

static uint64_t due(const sim_t &s, const devices_timer &t)
{
    return t.running ? t.since + remaining(s, t) * t.each : NEVER;
}

static void show(sim_t &s, devices_timer &t, uint32_t at)
{
    advance(s, t);
    if (at == t.high && get(s, t.buffered)) {
        s.data[at] = t.buffer;
        return;
    }
    s.data[t.low] = static_cast<uint8_t>(t.count);
    if (t.high) {
        s.data[t.high] = static_cast<uint8_t>(t.count >> 8);
        if (at == t.low)
            t.buffer = s.data[t.high];
    }
}

static void written(sim_t &s, devices_timer &t, uint32_t at)
{
    advance(s, t);   // as it was until now
    if (at == t.high && get(s, t.buffered)) {
        t.buffer = s.data[at];
    } else if (at == t.low || (at == t.high && t.high)) {
        const uint32_t byte = s.data[at];
        if (at == t.high)
            t.count = (t.count & 0xFF) | byte << 8;
        else
            t.count = byte | (get(s, t.buffered) ? uint32_t{t.buffer} << 8 : t.count & 0xFF00);
        t.since = s.cycles;
    }
    t.running = counts(s, t);
    t.each = tick(s, t);
}

static void add_timers(devices_t &d, const sim_t &s)
{
    const target_t &t = *s.target;
    for (unsigned i = 0; i < 10; i++) {
        const std::string tm = "TM" + std::to_string(i);
        const auto field = [&](const char *name) { return target_field(t, tm + name); };
        if (!field("ON").bits)
            continue;
        const bool wide = target_sfr(t, tm + "L") != 0;
        devices_timer timer{};
        timer.low = target_sfr(t, tm + (wide ? "L" : "V"));
        timer.high = target_sfr(t, tm + "H");
        timer.period = target_sfr(t, tm + "P");
        timer.on = field("ON");
        timer.prescale = field("PS");
        timer.bypass = field("PSA");
        timer.clock = field("CS");
        timer.postscale = field("OPS");
        timer.buffered = field("RD16");
        timer.flag = field("IF");
        timer.factors = timer.bypass.bits ? std::vector<unsigned>{2, 4, 8, 16, 32, 64, 128, 256}
                        : wide            ? std::vector<unsigned>{1, 2, 4, 8}
                                          : std::vector<unsigned>{1, 4, 16, 16};
        if (timer.low)
            d.timers.push_back(timer);
    }
}

// Serial units.

static uint64_t character_cycles(const sim_t &s, const devices_serial &u)
{
    const uint32_t rate = s.data[u.rate] | (get(s, u.wide) ? uint32_t{s.data[u.rate_high]} << 8 : 0);
    const unsigned quick = get(s, u.fast) + get(s, u.wide);
    return CHARACTER_BITS * (rate + 1) * (quick == 0 ? 16 : quick == 1 ? 4 : 1);
}

static void transmit(sim_t &s, devices_serial &u, uint8_t byte)
{
    u.busy_until = std::max(s.cycles, u.busy_until) + character_cycles(s, u);
    u.sent += static_cast<char>(byte);
    if (u.to) {
        putc(byte, u.to);
        fflush(u.to);
    }
}

static bool wants_input(const sim_t &s, const devices_serial &u)
{
    return get(s, u.enabled) && get(s, u.receiving) && !u.full && (!u.input.empty() || u.from);
}

// What the unit does by itself up to this cycle. Its flags follow its state, whatever the program writes to them.
static void advance(sim_t &s, devices_serial &u)
{
    const bool sends = get(s, u.enabled) && get(s, u.sending);
    if (sends && u.waiting >= 0 && s.cycles >= u.busy_until) {
        transmit(s, u, static_cast<uint8_t>(u.waiting));
        u.waiting = -1;
    }
    if (wants_input(s, u) && s.cycles >= u.next_input) {
        int c = EOF;
        if (!u.input.empty()) {
            c = u.input.front();
            u.input.pop_front();
        } else if ((c = getc(u.from)) == EOF) {
            u.from = nullptr;
        }
        if (c != EOF) {
            s.data[u.receive] = static_cast<uint8_t>(c);
            u.full = true;
            u.next_input = s.cycles + character_cycles(s, u);
        }
    }
    set(s, u.send_flag, sends && u.waiting < 0);
    set(s, u.receive_flag, u.full);
    set(s, u.empty, s.cycles >= u.busy_until && u.waiting < 0);
}

static void written(sim_t &s, devices_serial &u, uint32_t at)
{
    if (at == u.send) {
        if (!get(s, u.enabled) || !get(s, u.sending))
            u.lost++;
        else if (s.cycles >= u.busy_until && u.waiting < 0)
            transmit(s, u, s.data[at]);
        else
            u.waiting = s.data[at];
    }
    advance(s, u);
}

static uint64_t due(const sim_t &s, const devices_serial &u)
{
    const uint64_t sent = u.busy_until > s.cycles ? u.busy_until : NEVER;
    return wants_input(s, u) ? std::min(sent, std::max(u.next_input, s.cycles + 1)) : sent;
}

static void add_serials(devices_t &d, const sim_t &s)
{
    const target_t &t = *s.target;
    for (const char *n : {"", "2", "3", "4"}) {
        const auto reg = [&](const char *name, const char *part = "") {
            return target_sfr(t, name + std::string(n) + part);
        };
        const auto field = [&](const char *name) { return target_field(t, name + std::string(n)); };
        if (!reg("STX") || !reg("SRX"))
            continue;
        devices_serial u{};
        u.send = reg("STX");
        u.receive = reg("SRX");
        u.rate = reg("SBG", "L");
        u.rate_high = reg("SBG", "H");
        u.control = reg("SCT");
        u.receive_control = reg("SCR");
        u.mode = reg("SCB");
        u.enabled = field("SEREN");
        u.sending = field("TEN");
        u.receiving = field("RCONT");
        u.empty = field("TEMPTY");
        u.fast = field("THIGH");
        u.wide = field("BG16W");
        u.send_flag = target_field(t, "STX" + std::string(n) + "IF");
        u.receive_flag = target_field(t, "SRX" + std::string(n) + "IF");
        d.serials.push_back(u);
    }
}

devices_serial *devices_find_serial(devices_t &d, const sim_t &s, const std::string &name)
{
    const uint16_t at = target_sfr(*s.target, name);
    const auto u = std::find_if(d.serials.begin(), d.serials.end(),
                                [&](const devices_serial &x) { return at && (x.send == at || x.receive == at); });
    return u == d.serials.end() ? nullptr : &*u;
}

// Ports.

static uint8_t pins(const devices_port &p, const sim_t &s)
{
    const unsigned inputs = s.data[p.direction];
    return static_cast<uint8_t>((p.outside & inputs) | (s.data[p.latch] & ~inputs));
}

static void hold_pins(devices_t &d, sim_t &s, const sim_input &input)
{
    for (devices_port &p : d.ports) {
        if (p.pins != target_sfr(*s.target, input.name))
            continue;
        const unsigned rising = input.value & ~unsigned{p.outside}, falling = p.outside & ~unsigned{input.value};
        p.outside = input.value;
        if (input.name != "PORTB")
            return;
        const uint16_t up = target_sfr(*s.target, "EDGP"), down = target_sfr(*s.target, "EDGN"),
                       flags = target_sfr(*s.target, "EDGF");
        if (!up || !down || !flags)
            return;
        const unsigned seen = ((rising & s.data[up]) | (falling & s.data[down])) & s.data[p.direction] & 0xF0;
        s.data[flags] |= static_cast<uint8_t>(seen);
        if (seen) {
            set(s, target_field(*s.target, "RBIF"), true);
            set(s, target_field(*s.target, "EDGIF"), true);
        }
    }
}

static void add_ports(devices_t &d, const sim_t &s)
{
    for (char c = 'A'; c <= 'Z'; c++) {
        const auto reg = [&](const char *name) { return target_sfr(*s.target, name + std::string(1, c)); };
        if (reg("PORT") && reg("LAT") && reg("DIR"))
            d.ports.push_back({reg("PORT"), reg("LAT"), reg("DIR")});
    }
}

// Interrupts.

static void add_sources(devices_t &d, const sim_t &s)
{
    const target_t &t = *s.target;
    for (const auto &[name, flag] : t.fields) {
        if (!name.ends_with("IF") || flag.bits != 1)
            continue;
        const std::string source = name.substr(0, name.size() - 2);
        const sfr_bits_t enable = target_field(t, source + "IE");
        if (!enable.bits)
            continue;
        const std::string in_table = source == "RB" ? "EDG" : source;   // the edges of port B have two names
        const int vector = t.sources.contains(in_table) ? static_cast<int>(t.sources.at(in_table)) : -1;
        d.sources.push_back({source, flag, enable, target_field(t, source + "IP"), vector,
                             !target_sfr_name(t, flag.address).starts_with("INTC")});
    }
    // Of those that wait, the one with the lowest number in the table is first.
    std::stable_sort(d.sources.begin(), d.sources.end(), [](const devices_source &a, const devices_source &b) {
        return static_cast<unsigned>(a.vector) < static_cast<unsigned>(b.vector);
    });
}

static bool is_high(const devices_t &d, const sim_t &s, const devices_source &source)
{
    return (d.priorities.bits && !get(s, d.priorities)) || !source.priority.bits || get(s, source.priority);
}

static bool waits(const sim_t &s, const devices_source &source) { return get(s, source.flag) && get(s, source.enable); }

static void show_running(const devices_t &d, sim_t &s)
{
    set(s, s.target->status_high, !d.running.empty() && std::count(d.running.begin(), d.running.end(), true));
    set(s, s.target->status_low, !d.running.empty() && std::count(d.running.begin(), d.running.end(), false));
}

static void begin_interrupt(devices_t &d, sim_t &s, const devices_source &source, bool high)
{
    if (s.depth >= s.target->stack_depth || s.depth + 1 >= s.stack.size())
        return sim_halt(s, SIM_STACK, zo_format("stack overflow by interrupt %s at 0x%X", source.name.c_str(), s.pc));
    s.stack[++s.depth] = s.pc;
    s.shadow = {s.data[s.wreg], s.data[s.status], s.data[s.bsr]};
    const std::pair<const char *, unsigned> saved[] = {
        {"SAVW", s.wreg}, {"SAVST", s.status}, {"SAVBSR", s.bsr}, {"SAVFSR0L", s.fsr[0]}, {"SAVFSR0H", s.fsr[0] + 1u}};
    for (const auto &[name, from] : saved)
        if (const uint16_t at = target_sfr(*s.target, name))
            s.data[at] = s.data[from];
    set(s, high ? d.enable_high : d.enable_low, false);
    d.running.push_back(high);
    if (s.target->status_high.bits)
        show_running(d, s);
    s.pc = high ? HIGH_VECTOR : LOW_VECTOR;
    if (d.use_table) {
        s.pc = 0;
        for (unsigned i = 0; i < 3; i++)
            s.pc |= uint32_t{s.data[s.target->vectors_at[i]]} << 8 * i;
        s.pc = (s.pc & ~1u) + static_cast<uint32_t>(source.vector) * TABLE_ENTRY;
    }
    s.cycles += INTERRUPT_CYCLES;
}

// `retfie` lets in again what the begin of its interrupt shut out; outside of one, all.
static void returned(void *context, sim_t &s)
{
    devices_t &d = *static_cast<devices_t *>(context);
    const bool high = d.running.empty() || d.running.back();
    set(s, high ? d.enable_high : d.enable_low, true);
    if (!d.running.empty())
        d.running.pop_back();
    if (s.target->status_high.bits)
        show_running(d, s);
    s.deadline = 0;
}

static void interrupt_if_any(devices_t &d, sim_t &s)
{
    const bool parts = !d.priorities.bits || get(s, d.priorities);   // into high and low
    const bool high_on = get(s, d.enable_high), low_on = high_on && get(s, d.enable_low),
               peripheral_on = parts || get(s, d.enable_low);
    const auto take = [&](bool high) {
        for (const devices_source &source : d.sources)
            if (waits(s, source) && is_high(d, s, source) == high && (peripheral_on || !source.peripheral) &&
                (!d.use_table || source.vector >= 0))
                return begin_interrupt(d, s, source, high), true;
        return false;
    };
    // While one of high priority runs, its enable is off, and that shuts out both kinds.
    if (!(high_on && take(true)) && low_on)
        take(false);
}

// The hooks of the core.

static void read(void *context, sim_t &s, uint32_t at)
{
    devices_t &d = *static_cast<devices_t *>(context);
    for (const devices_port &p : d.ports)
        if (p.pins == at)
            s.data[at] = pins(p, s);
    for (devices_timer &t : d.timers)
        if (t.low == at || t.high == at)
            show(s, t, at);
        else if (t.flag.address == at)
            advance(s, t);
    for (devices_serial &u : d.serials) {
        advance(s, u);
        if (u.receive == at) {
            u.full = false;
            s.deadline = 0;
        }
    }
}

static void write(void *context, sim_t &s, uint32_t at)
{
    devices_t &d = *static_cast<devices_t *>(context);
    for (const devices_port &p : d.ports)
        if (p.pins == at)
            s.data[p.latch] = s.data[at];
    for (devices_timer &t : d.timers)
        written(s, t, at);
    for (devices_serial &u : d.serials)
        written(s, u, at);
    if (at == d.exit_at) {
        d.exit_status = s.data[at];
        sim_halt(s, SIM_EXIT, "");
    }
    s.deadline = 0;
}

void devices_init(devices_t &d, sim_t &s)
{
    const target_t &t = *s.target;
    add_ports(d, s);
    add_timers(d, s);
    add_serials(d, s);
    add_sources(d, s);
    d.enable_high = target_field(t, "IENH");
    d.enable_low = target_field(t, "IENL");
    d.priorities = target_field(t, "PRIEN");
    d.idle = target_field(t, "IDLE");
    s.hooks = {&d, read, write, returned};
    const auto mark = [&](uint32_t at) {
        if (at && at <= s.mask)
            s.role[at] |= R_DEVICE;
    };
    for (const devices_port &p : d.ports) {
        mark(p.pins);
        s.data[p.direction] = 0xFF;
    }
    for (const devices_timer &timer : d.timers) {
        for (const uint16_t at : {timer.low, timer.high, timer.period, timer.on.address, timer.flag.address})
            mark(at);
        if (timer.period)
            s.data[timer.period] = 0xFF;
    }
    for (const devices_serial &u : d.serials)
        for (const uint16_t at : {u.send, u.receive, u.rate, u.rate_high, u.control, u.receive_control, u.mode})
            mark(at);
    for (const devices_source &source : d.sources) {
        for (const uint16_t at : {source.flag.address, source.enable.address, source.priority.address})
            mark(at);
        set(s, source.priority, true);
    }
    for (const sfr_bits_t &f : {d.enable_high, d.enable_low, d.priorities})
        mark(f.address);
    for (unsigned i = 0; i < 3; i++)
        if (t.vectors_at[i])
            s.data[t.vectors_at[i]] = t.vectors_reset[i];
    if (d.exit_at <= s.mask)
        s.role[d.exit_at] |= R_DEVICE;
}

static void sort_inputs(devices_t &d)
{
    std::stable_sort(d.inputs.begin(), d.inputs.end(),
                     [](const sim_input &a, const sim_input &b) { return a.cycle < b.cycle; });
}

std::string devices_add_input(devices_t &d, const sim_t &s, const sim_input &input)
{
    const uint16_t at = target_sfr(*s.target, input.name);
    const auto is_port = [&](const devices_port &p) { return p.pins == at; };
    if (input.kind == sim_input::PORT && (!at || std::none_of(d.ports.begin(), d.ports.end(), is_port)))
        return input.name + ": the chip has no such port";
    if (input.kind == sim_input::FLAG && target_field(*s.target, input.name + "IF").bits != 1)
        return input.name + ": the chip has no interrupt flag " + input.name + "IF";
    if (input.kind == sim_input::SERIAL && !devices_find_serial(d, s, input.name))
        return input.name + ": it isn't a register of a serial unit";
    d.inputs.push_back(input);
    sort_inputs(d);
    return "";
}

bool devices_release(devices_t &d, sim_t &s, size_t expectations)
{
    bool any = false;
    for (sim_input &input : d.inputs)
        if (input.after && input.after <= expectations) {
            input.after = 0;
            input.cycle = s.cycles;
            any = true;
        }
    if (any) {
        sort_inputs(d);
        s.deadline = 0;
    }
    return any;
}

static void take_inputs(devices_t &d, sim_t &s)
{
    for (; d.next_input < d.inputs.size() && d.inputs[d.next_input].cycle <= s.cycles; d.next_input++) {
        const sim_input &input = d.inputs[d.next_input];
        if (input.kind == sim_input::PORT)
            hold_pins(d, s, input);
        else if (input.kind == sim_input::FLAG)
            set(s, target_field(*s.target, input.name + "IF"), true);
        else if (devices_serial *const u = devices_find_serial(d, s, input.name))
            u->input.insert(u->input.end(), input.text.begin(), input.text.end());
    }
}

static void advance_all(devices_t &d, sim_t &s)
{
    take_inputs(d, s);
    for (devices_timer &t : d.timers)
        advance(s, t);
    for (devices_serial &u : d.serials)
        advance(s, u);
}

static uint64_t next_event(const devices_t &d, const sim_t &s, bool timers)
{
    uint64_t next = d.next_input < d.inputs.size() ? d.inputs[d.next_input].cycle : NEVER;
    for (const devices_timer &t : d.timers)
        next = timers ? std::min(next, due(s, t)) : next;
    for (const devices_serial &u : d.serials)
        next = std::min(next, due(s, u));
    return next;
}

// Timers stand still but in idle mode.
static void sleep(devices_t &d, sim_t &s, uint64_t limit)
{
    const auto wakes = [&](const devices_source &source) { return waits(s, source); };
    const bool idle = get(s, d.idle), woken = std::any_of(d.sources.begin(), d.sources.end(), wakes);
    const uint64_t next = next_event(d, s, idle);
    d.asleep = !woken && next != NEVER;
    if (woken)
        s.stop = SIM_RUNS;
    if (!d.asleep)
        return;
    const uint64_t passed = std::min(std::max(next, s.cycles), limit) - s.cycles;
    s.cycles += passed;
    for (devices_timer &t : d.timers)
        t.since += idle ? 0 : passed;
    advance_all(d, s);
}

uint8_t devices_peek(const devices_t &d, const sim_t &s, uint32_t at)
{
    if ((s.role[at] & R_MODE) == R_STKPTR)
        return static_cast<uint8_t>(s.depth);
    for (const devices_port &p : d.ports)
        if (p.pins == at)
            return pins(p, s);
    for (const devices_timer &t : d.timers)   // no period ends between two calls of devices_service
        if (t.low == at || (t.high == at && at))
            return static_cast<uint8_t>((t.count + (t.running ? (s.cycles - t.since) / t.each : 0)) >>
                                        (t.low == at ? 0 : 8));
    return s.data[at];
}

void devices_service(devices_t &d, sim_t &s, uint64_t limit)
{
    advance_all(d, s);
    if (s.stop == SIM_SLEEP && s.cycles < limit)
        sleep(d, s, limit);
    if (s.stop != SIM_RUNS)
        return;
    interrupt_if_any(d, s);
    if (s.stop == SIM_RUNS)
        s.deadline = std::min(std::max(next_event(d, s, true), s.cycles + 1), limit);
}
