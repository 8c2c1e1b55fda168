// A reader of the report has the source beside it, so changes stand in the order of the source, and in the order of time where
// several were made to one line. Sums follow: by psect, as the object file has them, and by rule. Rules count a branch with its
// usual size; what the final distances make of branches, and of padding, is the difference between the two and has a row of
// its own.
//
// JSON has the changes in order of time. Its members are a promise to other programs; they may become more, and none changes
// its meaning.
#include "optim/changes_out.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string>
#include <vector>

#include "optim/changes.h"
#include "options.h"

using json = nlohmann::ordered_json;

constexpr int JSON_FORM = 1;
constexpr const char *kinds[] = {"deleted", "replaced", "added", "moved", "inlined"};

// Sums.

change_sums_t changes_sums()
{
    change_sums_t s = {};
    uint32_t step = 0;
    int64_t by_rules = 0;
    for (const change_t *c = changes.changes; c < changes.changes + changes.change_count; c++) {
        change_sum_t &sum = s.rules[c->rule.at];
        sum.times += c->step != step;
        sum.bytes += c->bytes;
        by_rules += c->bytes;
        step = c->step;
    }
    for (const psect_sizes_t *p = changes.psects; p < changes.psects + changes.psect_count; p++)
        if (p->code || p->before != p->after) {
            s.before += p->before;
            s.after += p->after;
        }
    s.branches = static_cast<int64_t>(s.after) - static_cast<int64_t>(s.before) - by_rules;
    return s;
}

bool changes_show_psect(const psect_sizes_t &p) { return (p.code && p.before + p.after > 0) || p.before != p.after; }

static const char *name_of(const symbol_t *psect) { return psect->s_name; }

// Lines.

struct line_t {
    source_t at;
    std::string text;
};

static std::string quoted(const char *instruction) { return '"' + std::string(instruction) + '"'; }

static std::string place(const source_t &at) { return std::string(at.file) + ':' + std::to_string(at.line); }

std::string change_text(const change_t &c)
{
    std::string text = std::string(c.rule.row().name) + ' ' + (c.kind == CHANGE_INLINED ? "replaced" : kinds[c.kind]) + ' ';
    text += quoted(c.before ? c.before : c.after);
    if (c.kind == CHANGE_REPLACED)
        text += " with " + quoted(c.after);
    if (c.kind == CHANGE_INLINED)
        text += " with " + std::to_string(c.copied) + (c.copied == 1 ? " instruction" : " instructions");
    if (c.kind == CHANGE_MOVED && c.behind.line == 0)
        text += " to the beginning";
    else if (c.kind == CHANGE_MOVED)
        text +=
            " behind " + (strcmp(c.behind.file, c.at.file) == 0 ? "line " + std::to_string(c.behind.line) : place(c.behind));
    text += std::string(": ") + c.why;
    return c.copy.line ? text + " (in the copy for " + place(c.copy) + ')' : text;
}

std::string refusal_text(const refusal_t &r)
{
    const std::string text = "inlining left " + quoted(r.call) + ": " + r.why;
    return r.copy.line ? text + " (in the copy for " + place(r.copy) + ')' : text;
}

static bool stands_before(const line_t &a, const line_t &b)
{
    const int files = strcmp(a.at.file, b.at.file);
    return files ? files < 0 : a.at.line < b.at.line;
}

void changes_write_sums(FILE *to)
{
    const change_sums_t s = changes_sums();
    fprintf(to, "%10s%10s  psect\n", "before", "after");
    for (const psect_sizes_t *p = changes.psects; p < changes.psects + changes.psect_count; p++)
        if (changes_show_psect(*p))
            fprintf(to, "%10llu%10llu  %s\n", static_cast<unsigned long long>(p->before),
                    static_cast<unsigned long long>(p->after), name_of(p->psect));
    fprintf(to, "%10llu%10llu  bytes in all\n\n", static_cast<unsigned long long>(s.before),
            static_cast<unsigned long long>(s.after));
    fprintf(to, "%10s%10s  rule\n", "times", "bytes");
    for (unsigned i = 0; i < RULES; i++)
        if (s.rules[i].times)
            fprintf(to, "%10u%+10lld  %s\n", s.rules[i].times, static_cast<long long>(s.rules[i].bytes),
                    rule_rows[i].name.data());
    fprintf(to, "%10s%+10lld  sizes of branches, padding\n", "", static_cast<long long>(s.branches));
    fprintf(to, "%10s%+10lld  bytes in all\n", "", static_cast<long long>(s.after) - static_cast<long long>(s.before));
}

void changes_write_text(FILE *to)
{
    std::vector<line_t> lines;
    for (const change_t *c = changes.changes; c < changes.changes + changes.change_count; c++)
        lines.push_back({c->at, change_text(*c)});
    for (const refusal_t *r = changes.refusals; r < changes.refusals + changes.refusal_count; r++)
        lines.push_back({r->at, refusal_text(*r)});
    std::stable_sort(lines.begin(), lines.end(), stands_before);
    for (const line_t &line : lines)
        fprintf(to, "%s: %s\n", place(line.at).c_str(), line.text.c_str());
    if (!lines.empty())
        fputc('\n', to);
    changes_write_sums(to);
}

// JSON.

static json json_place(const source_t &at) { return {{"file", at.file}, {"line", at.line}}; }

static json json_change(const change_t &c)
{
    json j = {{"step", c.step},    {"rule", c.rule.row().name}, {"action", kinds[c.kind]},
              {"file", c.at.file}, {"line", c.at.line},         {"psect", name_of(c.psect)}};
    if (c.before)
        j["before"] = c.before;
    if (c.after)
        j["after"] = c.after;
    if (c.kind == CHANGE_INLINED)
        j["instructions"] = c.copied;
    if (c.kind == CHANGE_MOVED)
        j["behind"] = c.behind.line ? json_place(c.behind) : json();
    if (c.copy.line)
        j["copy_for"] = json_place(c.copy);
    j["bytes"] = c.bytes;
    j["why"] = c.why;
    return j;
}

static json json_refusal(const refusal_t &r)
{
    json j = {{"file", r.at.file}, {"line", r.at.line}, {"psect", name_of(r.psect)}, {"call", r.call}};
    if (r.copy.line)
        j["copy_for"] = json_place(r.copy);
    j["why"] = r.why;
    return j;
}

void changes_write_json(FILE *to)
{
    const change_sums_t s = changes_sums();
    json all = {
        {"form", JSON_FORM},       {"optimised", opt.optimise}, {"changes", json::array()}, {"not_inlined", json::array()},
        {"psects", json::array()}, {"rules", json::array()},    {"branches", s.branches},   {"before", s.before},
        {"after", s.after}};
    for (const change_t *c = changes.changes; c < changes.changes + changes.change_count; c++)
        all["changes"].push_back(json_change(*c));
    for (const refusal_t *r = changes.refusals; r < changes.refusals + changes.refusal_count; r++)
        all["not_inlined"].push_back(json_refusal(*r));
    for (const psect_sizes_t *p = changes.psects; p < changes.psects + changes.psect_count; p++)
        if (changes_show_psect(*p))
            all["psects"].push_back({{"name", name_of(p->psect)}, {"before", p->before}, {"after", p->after}});
    for (unsigned i = 0; i < RULES; i++)
        if (s.rules[i].times)
            all["rules"].push_back({{"name", rule_rows[i].name}, {"times", s.rules[i].times}, {"bytes", s.rules[i].bytes}});
    const std::string text = all.dump(1, ' ', false, json::error_handler_t::replace) + '\n';   // names may have any bytes
    fwrite(text.data(), 1, text.size(), to);
}
