// observe: what a run looks like from outside.
//
// A cycle counts as a microsecond in the waves. A line's count is that of the instruction it begins with; where a line has
// code in several places, as in a macro, they add up.
#include "observe.h"

#include <algorithm>

#include "zelobj.h"

const source_line *line_at(const program_t &p, uint32_t at)
{
    auto piece = p.pieces.upper_bound(at);
    auto line = p.lines.upper_bound(at);
    if (piece == p.pieces.begin() || line == p.lines.begin())
        return nullptr;
    --piece;
    --line;
    return at < piece->second && line->first >= piece->first ? &line->second : nullptr;
}

// The label at or ahead of an address.
static std::pair<uint32_t, std::string> label_at(const program_t &p, uint32_t at)
{
    auto label = p.labels.upper_bound(at);
    if (label == p.labels.begin())
        return {0, ""};
    --label;
    return *label;
}

std::string place_text(const program_t &p, uint32_t at)
{
    std::string more;
    if (const auto [from, label] = label_at(p, at); !label.empty())
        more = label + (at > from ? zo_format("+0x%X", at - from) : "");
    if (const source_line *line = line_at(p, at))
        more += (more.empty() ? "" : ", ") + line->file + zo_format(":%u", line->line);
    return zo_format("0x%X", at) + (more.empty() ? "" : " (" + more + ")");
}

// Waves.

namespace
{

struct wave_t {
    std::string name;
    unsigned bits;
    uint32_t value;
};

}   // namespace

static std::vector<wave_t> signals(const devices_t &d, const sim_t &s)
{
    std::vector<wave_t> all;
    for (const devices_port &p : d.ports) {
        all.push_back({target_sfr_name(*s.target, p.pins), 8, devices_peek(d, s, p.pins)});
        all.push_back({target_sfr_name(*s.target, p.latch), 8, s.data[p.latch]});
        all.push_back({target_sfr_name(*s.target, p.direction), 8, s.data[p.direction]});
    }
    const std::pair<const char *, uint16_t> registers[] = {{"WREG", s.wreg}, {"STATUS", s.status}, {"BSR", s.bsr}};
    for (const auto &[name, at] : registers)
        all.push_back({name, 8, s.data[at]});
    for (unsigned i = 0; i < 3; i++)
        all.push_back({zo_format("FSR%u", i), 16, s.data[s.fsr[i]] | uint32_t{s.data[s.fsr[i] + 1u]} << 8});
    all.push_back({"stack_depth", 8, s.depth});
    all.push_back({"interrupts", 8, static_cast<uint32_t>(d.running.size())});
    all.push_back({"pc", 21, s.pc});
    return all;
}

static std::string binary(uint32_t value, unsigned bits)
{
    std::string text;
    for (unsigned i = bits; i-- > 0;)
        text += static_cast<char>('0' + (value >> i & 1));
    return text;
}

static void show_waves(observe_t &o, const devices_t &d, const sim_t &s)
{
    const std::vector<wave_t> all = signals(d, s);
    bool timed = false;
    for (size_t i = 0; i < all.size(); i++) {
        if (i < o.waves.size() && o.waves[i] == all[i].value)
            continue;
        if (!timed)
            fprintf(o.vcd, "#%llu\n", static_cast<unsigned long long>(s.cycles));
        timed = true;
        fprintf(o.vcd, "b%s %c\n", binary(all[i].value, all[i].bits).c_str(), static_cast<char>('!' + i));
    }
    o.waves.clear();
    for (const wave_t &signal : all)
        o.waves.push_back(signal.value);
}

// A call within a call of the same function is a part of that.
static void add_frame(const observe_t &o, size_t i, std::map<uint32_t, uint64_t> &whole)
{
    const auto same = [&](const observe_t::frame &f) { return f.entry == o.frames[i].entry; };
    if (std::none_of(o.frames.begin(), o.frames.begin() + static_cast<std::ptrdiff_t>(i), same))
        whole[o.frames[i].entry] += o.now - o.frames[i].began;
}

// Whatever moves the depth of the return stack: calls, interrupts, returns, the program itself.
static void follow_calls(observe_t &o, const program_t &p, const sim_t &s)
{
    o.now = s.cycles;
    for (; o.frames.size() > s.depth; o.frames.pop_back())
        add_frame(o, o.frames.size() - 1, o.whole);
    while (o.frames.size() < s.depth)
        o.frames.push_back({label_at(p, s.pc).first, s.cycles});
}

void observe_begin(observe_t &o, const program_t &p, const devices_t &d, const sim_t &s)
{
    o.counts.assign(p.bytes.size() / 2 + 1, 0);
    o.cycles = o.counts;
    if (!o.vcd)
        return;
    fprintf(o.vcd, "$timescale 1 us $end\n$scope module %s $end\n", p.target.name.c_str());
    const std::vector<wave_t> all = signals(d, s);
    for (size_t i = 0; i < all.size(); i++)
        fprintf(o.vcd, "$var wire %u %c %s $end\n", all[i].bits, static_cast<char>('!' + i), all[i].name.c_str());
    fprintf(o.vcd, "$upscope $end\n$enddefinitions $end\n");
    show_waves(o, d, s);
}

void observe_step(observe_t &o, const program_t &p, const devices_t &d, const sim_t &s, uint32_t at, uint64_t began)
{
    const size_t word = std::min<size_t>(at / 2, o.counts.size() - 1);
    o.counts[word]++;
    o.cycles[word] += s.cycles - began;
    follow_calls(o, p, s);
    if (o.trace && at + 1 < s.program.size()) {
        const std::span<const uint8_t> code(s.program.data() + at, s.program.size() - at);
        std::string label;
        if (const auto found = p.labels.find(at); found != p.labels.end())
            label = found->second + ":";
        fprintf(o.trace, "%10llu  %05X  %-12s %-24s W %02X STATUS %02X BSR %02X\n", static_cast<unsigned long long>(began),
                at, label.c_str(),
                zo_disassemble(code.first(std::min<size_t>(code.size(), 6)), at, s.target->wide).text.c_str(),
                s.data[s.wreg], s.data[s.status], s.data[s.bsr]);
    }
    if (o.vcd)
        show_waves(o, d, s);
}

// Reports.

namespace
{

struct share_t {
    std::string name;
    uint64_t count = 0, cycles = 0;
    uint64_t whole = 0;   // with all that is called; 0 if it was never called
};

}   // namespace

static std::string share_table(const std::map<std::string, share_t> &shares, uint64_t total, bool calls)
{
    std::vector<share_t> sorted;
    for (const auto &[key, share] : shares)
        if (share.cycles)
            sorted.push_back(share);
    std::stable_sort(sorted.begin(), sorted.end(), [](const share_t &a, const share_t &b) { return a.cycles > b.cycles; });
    std::string out =
        zo_format("%12s %6s %12s", "cycles", "%", "times") + (calls ? "   with calls  from label\n" : "  line\n");
    for (const share_t &x : sorted) {
        const unsigned long long cycles = x.cycles, count = x.count, whole = x.whole;
        out += zo_format("%12llu %6.1f %12llu", cycles, 100.0 * static_cast<double>(cycles) / static_cast<double>(total),
                         count);
        out += calls ? zo_format(" %12s", whole ? zo_format("%llu", whole).c_str() : "-") : "";
        out += "  " + x.name + "\n";
    }
    return out;
}

std::string observe_profile(const observe_t &o, const program_t &p)
{
    std::map<std::string, share_t> functions, lines;
    uint64_t total = 0;
    std::map<uint32_t, uint64_t> whole = o.whole;
    for (size_t i = 0; i < o.frames.size(); i++)
        add_frame(o, i, whole);
    for (uint32_t word = 0; word < o.counts.size(); word++) {
        const uint32_t at = word * 2;
        const auto [from, label] = label_at(p, at);
        share_t &function = functions[label];
        function.name = label.empty() ? "(no label)" : label;
        if (at == from)
            function.count = o.counts[word];
        if (const auto called = whole.find(at); called != whole.end() && at == from)
            function.whole = called->second;
        function.cycles += o.cycles[word];
        total += o.cycles[word];
        const source_line *const line = line_at(p, at);
        share_t &share = lines[line ? line->file + zo_format(":%010u", line->line) : zo_format("0x%06X", at)];
        share.name = line ? line->file + zo_format(":%u", line->line) : place_text(p, at);
        if (p.lines.contains(at) || !line)
            share.count += o.counts[word];
        share.cycles += o.cycles[word];
    }
    total = std::max<uint64_t>(total, 1);
    return share_table(functions, total, true) + "\n" + share_table(lines, total, false);
}

std::string observe_coverage(const observe_t &o, const program_t &p)
{
    struct file_t {
        std::map<uint32_t, uint64_t> lines;
        std::map<std::string, std::pair<uint32_t, uint64_t>> functions;   // line and count by name
    };
    std::map<std::string, file_t> files;
    const auto count = [&](uint32_t at) { return at / 2 < o.counts.size() ? o.counts[at / 2] : 0; };
    for (const auto &[at, line] : p.lines)
        if (line_at(p, at))
            files[line.file].lines[line.line] += count(at);
    for (const auto &[at, label] : p.labels)
        if (const source_line *line = line_at(p, at))
            files[line->file].functions[label] = {line->line, count(at)};
    std::string out = "TN:\n";
    for (const auto &[name, file] : files) {
        const auto hit = [](const auto &all, auto counted) { return std::count_if(all.begin(), all.end(), counted); };
        out += "SF:" + name + "\n";
        for (const auto &[label, x] : file.functions)
            out += zo_format("FN:%u,", x.first) + label + "\n";
        for (const auto &[label, x] : file.functions)
            out += zo_format("FNDA:%llu,", static_cast<unsigned long long>(x.second)) + label + "\n";
        out += zo_format("FNF:%zu\nFNH:%td\n", file.functions.size(),
                         hit(file.functions, [](const auto &f) { return f.second.second != 0; }));
        for (const auto &[line, n] : file.lines)
            out += zo_format("DA:%u,%llu\n", line, static_cast<unsigned long long>(n));
        out += zo_format("LF:%zu\nLH:%td\nend_of_record\n", file.lines.size(),
                         hit(file.lines, [](const auto &l) { return l.second != 0; }));
    }
    return out;
}
