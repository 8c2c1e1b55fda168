// logs: what the tools say, in the forms for other programs.
//
// The assembler writes these forms itself. Of what the preprocessor and the linker say, lines such as `file:line:column: error: text` become
// messages; the includes that led there, and notes, become theirs. Anything else comes first, as it is.
#include <cctype>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "common/uri.h"
#include "zel8.h"

using json = nlohmann::ordered_json;

namespace
{

struct message_t {
    std::string severity, text, file;
    unsigned line = 0, column = 0;   // 0: not told
    std::vector<message_t> notes{};
};

}   // namespace

// Takes `:number` from the end of a place.
static unsigned take_number(std::string &place)
{
    const size_t colon = place.find_last_not_of("0123456789");
    if (colon == std::string::npos || place[colon] != ':' || colon + 1 == place.size() || place.size() - colon > 9)
        return 0;
    const unsigned number = static_cast<unsigned>(std::stoul(place.substr(colon + 1)));
    place.resize(colon);
    return number;
}

static void set_place(message_t &m, std::string place, const std::string &tool)
{
    m.line = take_number(place);
    if (const unsigned before = take_number(place)) {
        m.column = m.line;
        m.line = before;
    }
    m.file = place == tool ? "" : place;
}

// False if the line is no message.
static bool parse(const std::string &line, const std::string &tool, message_t &m)
{
    size_t first = std::string::npos;
    for (const char *severity : {"fatal error", "error", "warning", "note"}) {
        const std::string mark = std::string(": ") + severity + ": ";
        const size_t at = line.find(mark);
        if (at >= first)
            continue;
        first = at;
        m.severity = strcmp(severity, "fatal error") == 0 ? "fatal" : severity;
        m.text = line.substr(at + mark.size());
        set_place(m, line.substr(0, at), tool);
    }
    return first != std::string::npos;
}

static std::vector<message_t> messages_of(const z8_said &said, std::string &others)
{
    std::vector<message_t> all, includes;
    std::istringstream lines(said.text);
    for (std::string line; std::getline(lines, line);) {
        message_t m;
        const size_t from = line.find("from ");
        if (line.starts_with("In file included from ") || (!includes.empty() && line.find_first_not_of(' ') == from)) {
            m.text = "included from here";
            set_place(m, line.substr(from + strlen("from "), line.find_last_not_of(":,") - from - strlen("from ") + 1),
                      said.tool);
            includes.push_back(m);
        } else if (!parse(line, said.tool, m)) {
            others += line == "compilation terminated." ? "" : line + '\n';
        } else if (m.severity == "note" && !all.empty()) {
            all.back().notes.push_back(m);
        } else {
            m.notes = std::exchange(includes, {});
            all.push_back(m);
        }
    }
    return all;
}

static json json_of(const message_t &m)
{
    json j = {{"text", m.text}};
    if (!m.file.empty())
        j["file"] = m.file;
    if (m.line)
        j["line"] = m.line;
    if (m.column)
        j["column"] = m.column;
    return j;
}

static std::string dumped(const json &j, int indent)
{
    return j.dump(indent, ' ', false, json::error_handler_t::replace) + '\n';   // names may have any bytes
}

std::string z8_json(const z8_said &said)
{
    if (said.tool == "aszel8")
        return said.text;
    std::string others, lines;
    for (const message_t &m : messages_of(said, others)) {
        json j = {{"tool", said.tool}, {"severity", m.severity}, {"number", 0}};
        j.update(json_of(m));
        j["notes"] = json::array();
        for (const message_t &note : m.notes)
            j["notes"].push_back(json_of(note));
        lines += dumped(j, -1);
    }
    return others + lines;
}

static json location(const message_t &m)
{
    json place = {{"artifactLocation", {{"uri", uri_of(m.file)}}}};
    if (m.line)
        place["region"]["startLine"] = m.line;
    if (m.column)
        place["region"]["startColumn"] = m.column;
    return {{"physicalLocation", place}};
}

static json result(const message_t &m)
{
    json j = {{"level", m.severity == "fatal" ? "error" : m.severity}, {"message", {{"text", m.text}}}};
    if (!m.file.empty())
        j["locations"] = json::array({location(m)});
    for (const message_t &note : m.notes) {
        json related = location(note);
        related["message"] = {{"text", note.text}};
        j["relatedLocations"].push_back(related);
    }
    return j;
}

static json run_of(const z8_said &said, std::string &others)
{
    json results = json::array();
    for (const message_t &m : messages_of(said, others))
        results.push_back(result(m));
    const json driver = {{"name", said.tool}};
    const json invocation = {{"executionSuccessful", said.good}};
    return {{"tool", {{"driver", driver}}}, {"invocations", json::array({invocation})}, {"results", results}};
}

std::string z8_sarif(const std::vector<z8_said> &all)
{
    json runs = json::array();
    std::string others;
    for (const z8_said &said : all) {
        const json log = said.tool == "aszel8" ? json::parse(said.text, nullptr, false) : json();
        if (log.is_object() && log.contains("runs"))
            runs.insert(runs.end(), log["runs"].begin(), log["runs"].end());
        else if (said.tool == "aszel8")
            others += said.text;
        else if (!said.good || !said.text.empty())
            runs.push_back(run_of(said, others));
    }
    const json log = {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"}, {"version", "2.1.0"}, {"runs", runs}};
    return others + dumped(log, 2);
}
