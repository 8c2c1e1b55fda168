// A section begins with "### " and the line that the catalogue has for the message: number, type, text. It goes up to the next
// heading. So there is nothing to keep in step but the heading, and a test compares that with the catalogue.
#include "env/explain.h"

#include "env/catalogue.h"
#include "env/warnings.h"

constexpr std::string_view HEADING = "### ", FENCE = "```";

struct explained_t {
    std::string_view heading, body;
};

static std::string_view take_line(std::string_view *rest)
{
    const size_t end = rest->find('\n');
    const std::string_view line = rest->substr(0, end);
    rest->remove_prefix(end == rest->npos ? rest->size() : end + 1);
    return line;
}

static explained_t find_section(uint64_t number)
{
    std::string_view all(reinterpret_cast<const char *>(explanations_text), explanations_length);
    const std::string wanted = '\n' + std::string(HEADING) + std::to_string(number) + ' ';
    const size_t at = all.find(wanted);
    if (at == all.npos)
        return {};
    all.remove_prefix(at + 1 + HEADING.size());
    const std::string_view heading = take_line(&all);
    std::string_view body = all.substr(0, std::min(all.find("\n" + std::string(HEADING)), all.find("\n## ")));
    while (!body.empty() && body.front() == '\n')
        body.remove_prefix(1);
    while (!body.empty() && body.back() == '\n')
        body.remove_suffix(1);
    return {heading, body};
}

std::string_view explanation_body(uint64_t number) { return find_section(number).body; }

std::string_view explanation_text(uint64_t number)
{
    const std::string_view heading = find_section(number).heading;
    return heading.substr(std::min(heading.size(), heading.find(' ', heading.find(' ') + 1) + 1));
}

// "800 E text" as "(800) text", and what it is.
static std::string title(uint64_t message, std::string_view heading)
{
    const char *group = warning_group(static_cast<unsigned>(message));
    const size_t number = heading.find(' '), type = heading.find(' ', number + 1);
    const std::string_view kind = heading.substr(number + 1, type - number - 1);
    const std::string what = kind == "E"   ? "error"
                             : kind == "F" ? "error that ends the run"
                             : kind == "M"
                                 ? "message"
                                 : "warning of level " + std::string(kind) + (group ? std::string(", -W") + group : "");
    return '(' + std::string(heading.substr(0, number)) + ')' + std::string(heading.substr(type)) + " [" + what + "]\n\n";
}

// The line without the targets of its links.
static std::string without_links(std::string_view line)
{
    std::string text;
    for (size_t at; (at = line.find("](")) != line.npos;) {
        const size_t open = line.rfind('[', at), close = line.find(')', at);
        if (open == line.npos || close == line.npos)
            break;
        text += line.substr(0, open);
        text += line.substr(open + 1, at - open - 1);
        line.remove_prefix(close + 1);
    }
    return text += line;
}

std::string explanation(uint64_t number)
{
    explained_t section = find_section(number);
    if (section.heading.empty())
        return "";
    std::string text = title(number, section.heading);
    bool code = false;
    while (!section.body.empty()) {
        const std::string_view line = take_line(&section.body);
        if (line.starts_with(FENCE)) {
            code = !code;
            const size_t name = line.find(' ');
            if (name != line.npos)
                text += std::string(line.substr(name + 1)) + ":\n";
            continue;
        }
        text += code && !line.empty() ? "    " + std::string(line) : code ? "" : without_links(line);
        text += '\n';
    }
    return text;
}
