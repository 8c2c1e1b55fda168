// What explains a message comes as a message of its own behind it, without a number. So a message is kept until the next one
// begins. A SARIF log is one object, and is written when the run ends.
//
// JSON counts columns in bytes; SARIF in characters, and its files are URIs.
#include "front/messagelog.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "common/uri.h"
#include "env/explain.h"
#include "env/warnings.h"

using json = nlohmann::ordered_json;

static struct {
    std::optional<diagnostic_t> pending;
    json results = json::array(), rules = json::array();
    std::map<unsigned, int> rule_of;   // by number
    bool failed, ended;
} st;

static void write_text(const json &j, int indent)
{
    const std::string text = j.dump(indent, ' ', false, json::error_handler_t::replace) + '\n';   // names may have any bytes
    fwrite(text.data(), 1, text.size(), stderr);
    fflush(stderr);
}

// JSON.

static void put_place(json *j, const remark_t &n)
{
    (*j)["text"] = n.text;
    if (!n.file.empty())
        (*j)["file"] = n.file;
    if (n.line > 0)
        (*j)["line"] = n.line;
    if (n.excerpt.length > 0) {
        (*j)["column"] = n.excerpt.at + 1;
        (*j)["length"] = n.excerpt.length;
    }
    if (!n.excerpt.text.empty())
        (*j)["source"] = n.excerpt.text;
}

static void write_json(const diagnostic_t &d)
{
    static constexpr const char *severities[] = {"fatal", "error", "warning", "message", "message"};
    json j = {{"severity", severities[d.severity]}, {"number", d.number}};
    if (const char *group = d.severity == ALERT_WARNING ? warning_group(d.number) : nullptr)
        j["group"] = group;
    put_place(&j, d.main);
    j["notes"] = json::array();
    for (const remark_t &n : d.notes) {
        json note;
        put_place(&note, n);
        j["notes"].push_back(note);
    }
    for (const fix_t &f : d.fixes)
        j["fixes"].push_back({{"column", f.at + 1}, {"length", f.length}, {"text", f.text}});
    write_text(j, -1);
}

// SARIF.

// The column, from 1, of a byte; it may stand behind the line's end.
static size_t column(std::string_view line, size_t at)
{
    const size_t within = std::min(at, line.size());
    const auto starts = std::count_if(line.begin(), line.begin() + within, [](char c) { return (c & 0xC0) != 0x80; });
    return static_cast<size_t>(starts) + (at - within) + 1;
}

static json region(const std::string &text, int64_t line, size_t at, size_t length)
{
    json j = {{"startLine", line}};
    if (length > 0) {
        j["startColumn"] = column(text, at);
        j["endColumn"] = column(text, at + length);
    }
    return j;
}

static json artifact(const std::string &file) { return {{"uri", uri_of(file)}}; }

static json location(const remark_t &n)
{
    json j;
    j["artifactLocation"] = artifact(n.file);
    if (n.line > 0) {
        j["region"] = region(n.excerpt.text, n.line, n.excerpt.at, n.excerpt.length);
        if (!n.excerpt.text.empty())
            j["region"]["snippet"] = {{"text", n.excerpt.text}};
    }
    return {{"physicalLocation", j}};
}

// The rule of the message among those of the log; -1: it has none.
static int rule_index(unsigned number)
{
    const auto [entry, is_new] = st.rule_of.try_emplace(number, -1);
    const std::string text{is_new ? explanation_text(number) : ""};
    if (text.empty())
        return entry->second;
    json rule = {{"id", std::to_string(number)},
                 {"shortDescription", {{"text", text}}},
                 {"help", {{"text", explanation(number)}, {"markdown", explanation_body(number)}}}};
    if (const char *group = warning_group(number))
        rule["properties"] = {{"tags", json::array({group})}};
    entry->second = static_cast<int>(st.rules.size());
    st.rules.push_back(std::move(rule));
    return entry->second;
}

static json sarif_fix(const diagnostic_t &d, const fix_t &f)
{
    const json replacement = {{"deletedRegion", region(d.main.excerpt.text, d.main.line, f.at, f.length)},
                              {"insertedContent", {{"text", f.text}}}};
    const json change = {{"artifactLocation", artifact(d.main.file)}, {"replacements", json::array({replacement})}};
    return {{"description", {{"text", "write \"" + f.text + '"'}}}, {"artifactChanges", json::array({change})}};
}

static void add_result(const diagnostic_t &d)
{
    static constexpr const char *levels[] = {"error", "error", "warning", "note", "note"};
    json j;
    if (const int rule = rule_index(d.number); rule >= 0) {
        j["ruleId"] = std::to_string(d.number);
        j["ruleIndex"] = rule;
    }
    j["level"] = levels[d.severity];
    std::string text = d.main.text;
    for (const remark_t &n : d.notes)
        if (n.file.empty())
            text += '\n' + n.text;
    j["message"] = {{"text", text}};
    if (!d.main.file.empty())
        j["locations"] = json::array({location(d.main)});
    for (const remark_t &n : d.notes)
        if (!n.file.empty()) {
            json related = location(n);
            related["message"] = {{"text", n.text}};
            j["relatedLocations"].push_back(std::move(related));
        }
    for (const fix_t &f : d.fixes)
        j["fixes"].push_back(sarif_fix(d, f));
    st.results.push_back(std::move(j));
    st.failed |= d.severity == ALERT_FATAL;
}

static void write_sarif()
{
    const json driver = {{"name", "aszel8"}, {"version", ASZEL8_VERSION}, {"rules", st.rules}};
    const json invocation = {{"executionSuccessful", !st.failed && alert_exit_status() == 0}};
    const json run = {{"tool", {{"driver", driver}}},
                      {"columnKind", "unicodeCodePoints"},
                      {"invocations", json::array({invocation})},
                      {"results", st.results}};
    const json log = {
        {"$schema", "https://json.schemastore.org/sarif-2.1.0.json"}, {"version", "2.1.0"}, {"runs", json::array({run})}};
    write_text(log, 2);
}

static void end_pending(log_form_t form)
{
    if (st.pending)
        (form == LOG_SARIF ? add_result : write_json)(*st.pending);
    st.pending.reset();
}

void log_add(log_form_t form, diagnostic_t d)
{
    const size_t end = d.main.text.find_last_not_of('\n');
    d.main.text.resize(end == std::string::npos ? 0 : end + 1);
    if (d.severity == ALERT_MESSAGE && d.number == 0 && st.pending) {
        st.pending->notes.push_back(d.main);
        return;
    }
    end_pending(form);
    st.pending = std::move(d);
}

void log_end(log_form_t form)
{
    end_pending(form);
    if (form == LOG_SARIF && !st.ended)
        write_sarif();
    st.ended = true;
}
