// options: the command line, and link files, which hold the same words.
#include <algorithm>

#include "zellink.h"

// A hexadecimal number, with or without 0x.
static bool hex_number(std::string_view text, uint32_t &number)
{
    if (text.starts_with("0x") || text.starts_with("0X"))
        text.remove_prefix(2);
    if (text.empty() || text.size() > 8 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
        return false;
    number = static_cast<uint32_t>(std::stoul(std::string(text), nullptr, 16));
    return true;
}

static bool hex_ranges(std::string_view text, ranges_t &ranges)
{
    for (size_t at = 0; at <= text.size();) {
        const std::string_view part = text.substr(at, text.find(',', at) - at);
        const size_t dash = part.find('-');
        range_t r{};
        if (dash == std::string_view::npos || !hex_number(part.substr(0, dash), r.lo) ||
            !hex_number(part.substr(dash + 1), r.hi) || r.lo > r.hi)
            return false;
        ranges.push_back(r);
        at += part.size() + 1;
    }
    return true;
}

// NAME=REST
static bool split(const std::string &value, std::string &name, std::string &rest)
{
    const size_t equals = value.rfind('=');
    if (equals == std::string::npos || equals == 0)
        return false;
    name = value.substr(0, equals);
    rest = value.substr(equals + 1);
    return true;
}

static bool set_class(zl_options &o, const std::string &value)
{
    std::string name, rest;
    return split(value, name, rest) && hex_ranges(rest, o.classes[name] = {});
}

static bool set_psect(zl_options &o, const std::string &value)
{
    std::string name, rest;
    return split(value, name, rest) && hex_number(rest, o.addresses[name]);
}

static bool set_format(zl_options &o, const std::string &value)
{
    o.format = value;
    return value == "hex" || value == "bin" || value == "elf";
}

static bool set_keep(zl_options &o, const std::string &value) { return o.keep.insert(value), !value.empty(); }
static bool set_output_name(zl_options &o, const std::string &value) { return !(o.output_name = value).empty(); }
static bool set_map(zl_options &o, const std::string &value) { return !(o.map = value).empty(); }
// The name goes with the next input.
static bool set_input_name(zl_options &o, const std::string &value)
{
    o.input_names[o.inputs.size()] = value;
    return !value.empty();
}
static bool set_chip(zl_options &o, const std::string &value) { return !(o.chip = value).empty(); }
static bool set_chip_file(zl_options &o, const std::string &value) { return !(o.chip_file = value).empty(); }
static bool set_gc(zl_options &o, const std::string &) { return o.gc = true; }
static bool set_call_graph(zl_options &o, const std::string &) { return o.call_graph = true; }
static bool set_check(zl_options &o, const std::string &) { return o.check = true; }
static bool set_listing(zl_options &o, const std::string &) { return o.listing = true; }
static bool set_annotate(zl_options &o, const std::string &value) { return o.annotations.push_back(value), !value.empty(); }
static bool set_vectors(zl_options &o, const std::string &) { return o.vectors = true; }
static bool set_vectors_at(zl_options &o, const std::string &value)
{
    return o.vectors = hex_number(value, o.vectors_at.emplace()) && *o.vectors_at % 2 == 0;
}
static bool set_quiet(zl_options &o, const std::string &) { return o.quiet = true; }

static const struct {
    const char *word;                                 // with "=" if a value follows
    bool (*set)(zl_options &, const std::string &);   // false if the value is none
    const char *form;
} rows[] = {
    {"--annotate=", set_annotate, "FILE, as aszel8 wrote it"},
    {"--callgraph", set_call_graph, ""},
    {"--check", set_check, ""},
    {"--chipinfo=", set_chip_file, "FILE"},
    {"--class=", set_class, "NAME=lo-hi[,lo-hi], in hexadecimal"},
    {"--format=", set_format, "hex, bin or elf"},
    {"--gc", set_gc, ""},
    {"--input-name=", set_input_name, "NAME"},
    {"--keep=", set_keep, "NAME of a psect or symbol"},
    {"--listing", set_listing, ""},
    {"--map=", set_map, "FILE"},
    {"--output-name=", set_output_name, "NAME"},
    {"--psect=", set_psect, "NAME=address, in hexadecimal"},
    {"--quiet", set_quiet, ""},
    {"--vectors", set_vectors, ""},
    {"--vectors=", set_vectors_at, "address, in hexadecimal and even"},
    {"-mcpu=", set_chip, "CHIP"},
};

static std::string set_option(zl_options &o, const std::string &word)
{
    for (const auto &row : rows) {
        const std::string_view name = row.word;
        if (name.back() == '=' ? !word.starts_with(name) : word != name)
            continue;
        if (!row.set(o, word.substr(name.size())))
            return "wrong value in " + word + ": it is " + row.word + row.form;
        return "";
    }
    return "unknown option " + word;
}

static std::string format_by_name(const std::string &output)
{
    const size_t slash = output.rfind('/'), dot = output.rfind('.');
    std::string ending =
        dot == std::string::npos || (slash != std::string::npos && dot < slash) ? "" : output.substr(dot + 1);
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return ending == "bin" || ending == "elf" ? ending : "hex";
}

std::string zl_parse_options(const std::vector<std::string> &arguments, zl_options &o, bool &help, bool &version)
{
    std::vector<std::string> words;
    if (std::string error = zo_expand(arguments, words, "link file"); !error.empty())
        return error;
    for (size_t i = 0; i < words.size(); i++) {
        const std::string &word = words[i];
        if (word == "--help" || word == "--ver") {
            (word == "--help" ? help : version) = true;
            return "";
        }
        if (word == "-o") {
            if (++i == words.size())
                return "-o needs the name of a file";
            o.output = words[i];
        } else if (word.size() < 2 || word[0] != '-') {
            o.inputs.push_back(word);
        } else if (std::string error = set_option(o, word); !error.empty()) {
            return error;
        }
    }
    if (o.inputs.empty())
        return "no object files given";
    if (o.output.empty())
        return "no output given: name it with -o";
    if (o.output_name.empty())
        o.output_name = o.output;
    if (o.format.empty())
        o.format = format_by_name(o.output);
    return "";
}
