// options: the words of the command line. What isn't known is an error, with the nearest word that is.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "env/warning_groups.h"
#include "zel8.h"
#include "zelobj.h"

enum : size_t { FAR = 3 };

using value_t = const std::string &;

static std::string split_words(std::vector<std::string> &to, std::string_view list)
{
    while (true) {
        const size_t comma = list.find(',');
        if (comma == 0 || list.empty())
            return "-Wa, and -Wl, need words between the commas";
        to.emplace_back(list.substr(0, comma));
        if (comma == std::string_view::npos)
            return "";
        list.remove_prefix(comma + 1);
    }
}

// What the assembler takes for the name of a symbol, but for its keywords.
static bool is_name(std::string_view name)
{
    const auto fits = [](char c) { return isalnum(static_cast<unsigned char>(c)) || strchr("_$?@", c); };
    return !name.empty() && !isdigit(static_cast<unsigned char>(name[0])) && std::all_of(name.begin(), name.end(), fits);
}

// Decimal, or hexadecimal with 0x; either with a sign.
static bool is_number(std::string_view text)
{
    if (text.starts_with('-'))
        text.remove_prefix(1);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal)
        text.remove_prefix(2);
    return !text.empty() &&
           text.find_first_not_of(hexadecimal ? "0123456789abcdefABCDEF" : "0123456789") == std::string_view::npos;
}

static std::string set_define(z8_options &o, value_t value)
{
    const size_t equals = std::min(value.find('='), value.size());
    std::erase_if(o.undefines, [&](const std::string &name) { return name == value.substr(0, equals); });
    o.defines.emplace_back(value.substr(0, equals), value.substr(equals));
    return "";
}

static std::string undefine(z8_options &o, value_t value)
{
    std::erase_if(o.defines, [&](const auto &d) { return d.first == value; });
    o.undefines.push_back(value);
    return "";
}

static std::string set_jobs(z8_options &o, value_t value)
{
    const char *end = value.data() + value.size();
    const auto [rest, error] = std::from_chars(value.data(), end, o.jobs);
    return error == std::errc() && rest == end && o.jobs > 0 ? "" : "-j needs a number of processes, not " + value;
}

static std::string unknown(const std::string &word);

static bool is_group(std::string_view name)
{
    return std::any_of(std::begin(warning_groups), std::end(warning_groups), [&](auto &row) { return name == row.group; });
}

static std::vector<std::string> groups()
{
    std::vector<std::string> names;
    for (const auto &row : warning_groups)
        names.emplace_back(row.group);
    return names;
}

// A message by its number, or a group of warnings.
static std::string silence(z8_options &o, value_t value)
{
    const bool number = value.find_first_not_of("0123456789") == std::string::npos;
    if (!number && !is_group(value))
        return "-Wno- needs the number of a message or a group of warnings, not " + value + z8_meant(value, groups());
    o.assembler.push_back((number ? "--msgdisable=" : "--warn=no-") + value);
    return "";
}

static std::string warn(z8_options &o, value_t group, int level = 0)
{
    if (group != "all" && !is_group(group))
        return unknown("-W" + group);
    o.level = std::min(o.level, level);
    o.assembler.push_back("--warn=" + group);
    return "";
}

static std::string set_language(z8_options &o, value_t value)
{
    o.language = value;
    const bool known = value == "assembler" || value == "assembler-with-cpp" || value == "none";
    return known ? "" : "-x: the languages are assembler, assembler-with-cpp and none, not " + value;
}

static std::string optimise(z8_options &o, bool on, bool space)
{
    std::erase_if(o.assembler, [](const std::string &w) { return w == "-O" || w == "--opt=space"; });
    if (on)
        o.assembler.push_back("-O");
    if (space)
        o.assembler.push_back("--opt=space");
    return "";
}

static std::string set_messages(z8_options &o, value_t form)
{
    o.messages = form;
    o.assembler.push_back("--diagnostics=" + form);
    const bool known = form == "plain" || form == "rich" || form == "json" || form == "sarif";
    return known ? "" : "--diagnostics=" + form + ": the forms are plain, rich, json and sarif";
}

static std::string set_color(z8_options &o, value_t when)
{
    o.assembler.push_back("--color=" + when);
    const bool known = when == "auto" || when == "always" || when == "never";
    return known ? "" : "--color=" + when + ": it is auto, always or never";
}

static std::string annotate(z8_options &o, value_t value)
{
    o.annotate = value;
    const bool form = value == "txt" || value == "html";
    return form || value.ends_with(".txt") || value.ends_with(".html")
               ? ""
               : "--annotate=" + value + ": it is txt, html, or a file that ends in .txt or .html";
}

static std::string explain(z8_options &o, value_t number)
{
    const std::string digits = number.substr(number[0] == '=');
    o.what = z8_options::EXPLAIN;
    o.assembler = {"--explain=" + digits};
    const bool known = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    return known ? "" : "--explain= needs the number of a message, not " + digits;
}

// How a word takes its value.
enum form_t { BARE, BEHIND, BEHIND_OR_NEXT };

// clang-format off
static const struct {
    const char *word;
    form_t form;
    std::string (*set)(z8_options &, value_t);
} rows[] = {
    {"-E", BARE, [](z8_options &o, value_t) { o.only_preprocess = true; return std::string(); }},
    {"-x", BEHIND_OR_NEXT, set_language},
    {"--chipinfo=", BEHIND, [](z8_options &o, value_t v) { o.chip_file = v; return std::string(); }},
    {"-mcpu=", BEHIND, [](z8_options &o, value_t v) { o.chip = v; return std::string(); }},
    {"-o", BEHIND_OR_NEXT, [](z8_options &o, value_t v) { o.output = v; return std::string(); }},
    {"-c", BARE, [](z8_options &o, value_t) { o.only_assemble = true; return std::string(); }},
    {"-S", BARE, [](z8_options &o, value_t) { o.text = true; return std::string(); }},
    {"-fsyntax-only", BARE, [](z8_options &o, value_t) { o.only_check = true; return std::string(); }},
    {"-I", BEHIND_OR_NEXT, [](z8_options &o, value_t v) { o.folders.push_back(v); return std::string(); }},
    {"-D", BEHIND_OR_NEXT, set_define},
    {"-U", BEHIND_OR_NEXT, undefine},
    {"-O0", BARE, [](z8_options &o, value_t) { return optimise(o, false, false); }},
    {"-O", BARE, [](z8_options &o, value_t) { return optimise(o, true, false); }},
    {"-Os", BARE, [](z8_options &o, value_t) { return optimise(o, true, true); }},
    {"-g", BARE, [](z8_options &o, value_t) { o.assembler.push_back("-V"); return std::string(); }},
    {"-Wall", BARE, [](z8_options &o, value_t) { return warn(o, "all", -4); }},
    {"-Wextra", BARE, [](z8_options &o, value_t) { return warn(o, "all", -9); }},
    {"-Werror", BARE, [](z8_options &o, value_t) { o.werror = true; return std::string(); }},
    {"-Wno-", BEHIND, silence},
    {"-W", BEHIND, [](z8_options &o, value_t v) { return warn(o, v); }},
    {"-Wa,", BEHIND, [](z8_options &o, value_t v) { return split_words(o.assembler, v); }},
    {"-Wl,", BEHIND, [](z8_options &o, value_t v) { return split_words(o.linker, v); }},
    {"-w", BARE, [](z8_options &o, value_t) { o.silent = true; return std::string(); }},
    {"-MD", BARE, [](z8_options &o, value_t) { o.deps = true; return std::string(); }},
    {"-MMD", BARE, [](z8_options &o, value_t) { o.deps = o.own_deps = true; return std::string(); }},
    {"-MP", BARE, [](z8_options &o, value_t) { o.phony = true; return std::string(); }},
    {"-MF", BEHIND_OR_NEXT, [](z8_options &o, value_t v) { o.dep_file = v; return std::string(); }},
    {"-MT", BEHIND_OR_NEXT, [](z8_options &o, value_t v) { o.dep_target = v; return std::string(); }},
    {"-j", BEHIND_OR_NEXT, set_jobs},
    {"-v", BARE, [](z8_options &o, value_t) { o.verbose = true; return std::string(); }},
    {"-###", BARE, [](z8_options &o, value_t) { o.dry = true; return std::string(); }},
    {"--annotate=", BEHIND, annotate},
    {"--diagnostics=", BEHIND, set_messages},
    {"--color=", BEHIND, set_color},
    {"--explain", BEHIND_OR_NEXT, explain},
    {"--help", BARE, [](z8_options &o, value_t) { o.what = z8_options::HELP; return std::string(); }},
    {"--version", BARE, [](z8_options &o, value_t) { o.what = z8_options::VERSION; return std::string(); }},
    {"--list-chips", BARE, [](z8_options &o, value_t) { o.what = z8_options::CHIPS; return std::string(); }},
    {"--print-search-dirs", BARE, [](z8_options &o, value_t) { o.what = z8_options::DIRECTORIES; return std::string(); }},
};
// clang-format on

static size_t distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        size_t corner = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t changed = corner + (a[i - 1] != b[j - 1]);
            corner = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

std::string z8_meant(const std::string &word, const std::vector<std::string> &words)
{
    const std::string *nearest = nullptr;
    size_t least =
        word.size() < 3 ? 1 : std::min<size_t>(FAR, word.size() / 2 + 1);   // all short words are near to each other
    for (const std::string &other : words)
        if (const size_t d = word.size() < 40 ? distance(word, other) : size_t{FAR}; d < least) {
            least = d;
            nearest = &other;
        }
    return nearest ? "; did you mean " + *nearest + "?" : "";
}

// What other compilers have for an option that is here, too.
static const char *of_other_compilers(std::string_view word)
{
    static constexpr const char *pairs[][2] = {
        {"-O1", "-O"},
        {"-O2", "-O"},
        {"-O3", "-O"},
        {"-Og", "-O0"},
        {"-Oz", "-Os"},
        {"-g1", "-g"},
        {"-g2", "-g"},
        {"-g3", "-g"},
        {"-ggdb", "-g"},
        {"-M", "-MD"},
        {"-MM", "-MMD"},
        {"-MQ", "-MT"},
        {"-march", "-mcpu="},
        {"-mmcu", "-mcpu="},
        {"-Xassembler", "-Wa,"},
        {"-Xlinker", "-Wl,"},
        {"-fdiagnostics-color", "--color="},
        {"-fdiagnostics-format", "--diagnostics="},
        {"-h", "--help"},
        {"-?", "--help"},
        {"-V", "--version"},
        {"-dumpversion", "--version"},
        {"-Map", "-Wl,--map="},
    };
    for (const auto &[theirs, ours] : pairs)
        if (word.substr(0, word.find('=')) == theirs)
            return ours;
    return nullptr;
}

static std::string unknown(const std::string &word)
{
    if (const char *ours = of_other_compilers(word))
        return "unknown option " + word + "; here it is " + ours;
    std::vector<std::string> words;
    for (const auto &row : rows)
        words.emplace_back(row.word);
    for (const auto &row : warning_groups)
        words.push_back(std::string("-W") + row.group);
    const size_t equals = word.find('=');
    return "unknown option " + word + z8_meant(word.substr(0, equals == std::string::npos ? equals : equals + 1), words);
}

// The row that takes the word: one that is the whole of it, or else the longest that begins it and takes a value.
static std::string set_option(z8_options &o, const std::vector<std::string> &words, size_t &i)
{
    const std::string &word = words[i];
    const auto *found = static_cast<decltype(&rows[0])>(nullptr);
    for (const auto &row : rows) {
        if (row.form == BARE ? word == row.word : word.starts_with(row.word))
            if (!found || std::string_view(row.word).size() > std::string_view(found->word).size())
                found = &row;
    }
    if (!found)
        return unknown(word);
    std::string value = found->form == BARE ? "" : word.substr(std::string_view(found->word).size());
    if (found->form == BEHIND_OR_NEXT && value.empty() && i + 1 < words.size())
        value = words[++i];
    if (found->form != BARE && value.empty())
        return std::string(found->word) + " needs a value";
    return found->set(o, value);
}

static z8_kind kind_of(const z8_options &o, const std::string &path)
{
    if (o.language != "none")
        return o.language == "assembler" ? Z8_ASSEMBLER : Z8_PREPROCESSED;
    const std::string extension = std::filesystem::path(path).extension();
    if (extension == ".S")
        return Z8_PREPROCESSED;
    const char *const plain[] = {".as", ".asm", ".s", ".AS", ".ASM"};
    return path == "-" || std::find(std::begin(plain), std::end(plain), extension) != std::end(plain) ? Z8_ASSEMBLER
                                                                                                      : Z8_OBJECT;
}

static std::string check_inputs(const z8_options &o)
{
    size_t sources = 0, standard = 0;
    for (const z8_input &input : o.inputs) {
        sources += input.kind != Z8_OBJECT;
        standard += input.path == "-";
        if (!o.links() && input.kind == Z8_OBJECT)
            return input.path + " is no source, and nothing is linked here";
        if (o.only_preprocess && input.kind != Z8_PREPROCESSED)
            return input.path + " isn't preprocessed: its name would end in .S, or -x assembler-with-cpp stand ahead of it";
        std::error_code ignored;
        for (const std::string &out : {o.output, o.dep_file, o.annotate})
            if (!out.empty() && out != "-" && (out == input.path || std::filesystem::equivalent(out, input.path, ignored)))
                return "output " + out + " would overwrite input " + input.path;
    }
    if (standard > 1)
        return "standard input can be read once only";
    if (standard && (o.only_assemble || o.text) && (o.output.empty() || o.deps))
        return "standard input gives no name to an output: -o is needed, and -MD can't be had";
    if (!o.links() && sources > 1 && (!o.output.empty() || !o.dep_file.empty() || !o.dep_target.empty()))
        return "-o, -MF and -MT name one file, and there are several sources";
    if (sources > 1 && o.annotate.find('.') != std::string::npos)
        return "--annotate=" + o.annotate + " names one file, and there are several sources: txt or html names one of each";
    return "";
}

static std::string check_defines(const z8_options &o)
{
    for (const auto &[name, value] : o.defines) {
        if (!is_name(name))
            return "-D " + name + value + ": \"" + name + "\" can't be the name of a symbol";
        if (!value.empty() && !is_number(value.substr(1)))
            return "-D " + name + value + ": the value has to be a number, decimal or with 0x";
    }
    return "";
}

static std::string check(const z8_options &o)
{
    if (o.inputs.empty())
        return "no files given";
    if (o.chip.empty())
        return "no chip given: name it with -mcpu=; --list-chips shows which there are";
    if ((o.output == "-" && !o.only_preprocess) || o.dep_file == "-")
        return "only -E writes to standard output";
    if (std::string error = check_inputs(o); !error.empty())
        return error;
    if (std::string error = check_defines(o); !error.empty())
        return error;
    if (o.links() && (o.output.ends_with(".obj") || o.output.ends_with(".o")))
        return "-o " + o.output +
               " would hold the linked program: -c makes an object, and a program's name ends in .hex, .bin or .elf";
    if (!o.deps && (!o.dep_file.empty() || !o.dep_target.empty() || o.phony))
        return "-MF, -MT and -MP go with -MD";
    if (!o.annotate.empty() && (o.only_preprocess || o.only_check))
        return "--annotate= goes with what is assembled";
    if (o.deps && !o.only_assemble && !o.text)
        return "-MD goes with -c or -S: each object has its own dependencies";
    return "";
}

std::string z8_parse(const std::vector<std::string> &arguments, z8_options &o)
{
    std::vector<std::string> words;
    if (std::string error = zo_expand(arguments, words, "option file"); !error.empty())
        return error;
    const bool header = !words.empty() && words[0] == "header";
    if (header) {
        o.what = z8_options::HEADER;
        words.erase(words.begin());
    }
    const auto before = o.what;
    for (size_t i = 0; i < words.size() && o.what == before; i++) {
        if (words[i].empty())
            return "an empty word stands where a file is wanted";
        if (words[i][0] != '-' || words[i] == "-")
            o.inputs.push_back({words[i], kind_of(o, words[i])});
        else if (header && !words[i].starts_with("-o") && !words[i].starts_with("--chipinfo=") && words[i] != "--help")
            return "zel8 header takes -o and --chipinfo= alone, not " + words[i];
        else if (std::string error = set_option(o, words, i); !error.empty())
            return error;
    }
    for (z8_input &input : o.inputs)   // without a language, -E tells what standard input is
        if (input.path == "-" && input.kind == Z8_ASSEMBLER && o.only_preprocess)
            input.kind = Z8_PREPROCESSED;
    if (o.what == z8_options::HEADER) {
        if (o.inputs.size() != 1)
            return "zel8 header needs the name of one chip";
        o.chip = o.inputs[0].path;
        o.inputs.clear();
    }
    return o.what == z8_options::WORK ? check(o) : "";
}
