// A message brings its text and the line that it is shown at. The rest is found here, and only when there is a message: a run
// without one pays nothing.
//
// Where the column comes from. While the source is read, the scanner knows the word that it scanned last, which is the one that a
// syntax error or a lexical error is about. Other messages are told when a statement has been read, or when all have; most of
// them quote the word that they mean, and if that stands in the line just once, it is marked. Where neither tells, nothing is
// marked: a mark at the wrong word would be worse than none.
//
// The line comes out of the scanner's memory if it is the one being read, as a pipe can't be read again, and else out of the
// file. In an expansion messages show the line of the call, and the line of the expansion is a note of its own.
#include "front/diagnostics.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "common/alert.h"
#include "common/srcpos.h"
#include "front/chars.h"
#include "front/lexutil.h"

enum form_t { FORM_DEFAULT, FORM_PLAIN, FORM_RICH };
enum color_t { COLOR_AUTO, COLOR_ALWAYS, COLOR_NEVER };

constexpr unsigned NO_MEMORY = 296, TOO_MANY = 1;           // messages that are shown bare: the second comes behind another one
constexpr unsigned UNKNOWN_WORD[] = {223, 788, 794, 844, 876, 968};   // messages about the word that was scanned last
constexpr size_t WIDTH = 160;                               // bytes shown of a line
constexpr unsigned ORIGINS_SHOWN = 8;
constexpr off_t LARGEST_FILE = off_t{1} << 26;

// A line of a source, and bytes of it that are marked; length 0: none.
struct excerpt_t {
    std::string text;
    size_t at, length;
};

static struct {
    form_t form;
    color_t color;
    bool plain_asked;
    std::map<std::string, std::vector<std::string>> files;   // lines by name
} st;

// Lines.

static std::vector<std::string> read_lines(const char *name)
{
    std::vector<std::string> lines;
    struct stat info;
    if (stat(name, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > LARGEST_FILE)
        return lines;
    FILE *in = fopen(name, "r");
    if (!in)
        return lines;
    char *line = nullptr;
    size_t size = 0;
    for (ssize_t length; (length = getline(&line, &size, in)) >= 0;) {
        while (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r'))
            length--;
        lines.emplace_back(line, static_cast<size_t>(length));
    }
    free(line);
    fclose(in);
    return lines;
}

static bool line_of_file(const char *name, int64_t number, std::string *text)
{
    const auto [entry, is_new] = st.files.try_emplace(name);
    if (is_new)
        entry->second = read_lines(name);
    if (number < 1 || static_cast<size_t>(number) > entry->second.size())
        return false;
    *text = entry->second[static_cast<size_t>(number) - 1];
    return true;
}

// Whether the message is about the line that is being read, as it stands in its file.
static bool is_line_being_read(const alert_report_t *r, lex_line_t *line)
{
    return r->line > 0 && r->line == srcpos.phys_line && strcmp(r->file, srcpos.phys_file) == 0 && lex_line(line);
}

// Marks a word that stands in the line just once.
static void mark_word(excerpt_t *e, std::string_view word)
{
    const std::string_view text = e->text;
    size_t found = 0;
    for (size_t at = 0; !word.empty() && (at = text.find(word, at)) != text.npos; at++) {
        const size_t behind = at + word.size();
        if ((at > 0 && class_of(text[at - 1]) & C_WORD) || (behind < text.size() && class_of(text[behind]) & C_WORD))
            continue;
        if (found++ > 0) {
            e->length = 0;
            return;
        }
        e->at = at;
        e->length = word.size();
    }
}

static std::string_view quoted_word(std::string_view text)
{
    const size_t open = text.find('"'), close = open == text.npos ? open : text.find('"', open + 1);
    return close == text.npos ? std::string_view() : text.substr(open + 1, close - open - 1);
}

static void mark(excerpt_t *e, const alert_report_t *r, const lex_line_t *being_read)
{
    const bool last_word = std::find(std::begin(UNKNOWN_WORD), std::end(UNKNOWN_WORD), r->number) != std::end(UNKNOWN_WORD);
    if (last_word && being_read) {
        e->at = being_read->token;
        e->length = being_read->token_length;
    } else {
        mark_word(e, quoted_word(r->text));
    }
}

// Output.

static bool is_tail(char c) { return (c & 0xC0) == 0x80; }   // of a character of several bytes

// A form that a terminal takes for text and nothing else.
static char shown(char c) { return c == '\t' || static_cast<unsigned char>(c) >= 0x80 || (c >= ' ' && c < 0x7F) ? c : '?'; }

static bool is_colored()
{
    if (st.color != COLOR_AUTO)
        return st.color == COLOR_ALWAYS;
    const char *none = getenv("NO_COLOR"), *term = getenv("TERM");
    return !(none && *none) && term && strcmp(term, "dumb") != 0 && isatty(STDERR_FILENO);
}

static const char *color_of(alert_severity_t severity)
{
    return !is_colored() ? "" : severity == ALERT_MESSAGE ? "\33[1;36m" : severity == ALERT_WARNING ? "\33[1;35m" : "\33[1;31m";
}

static const char *color_end() { return is_colored() ? "\33[0m" : ""; }

static void write_excerpt(const excerpt_t &e, int64_t number, const char *color)
{
    size_t from = e.length > 0 && e.at + e.length > WIDTH ? e.at - std::min(e.at, WIDTH / 2) : 0;
    while (from < e.text.size() && is_tail(e.text[from]))
        from++;
    const size_t to = std::min(e.text.size(), from + WIDTH);
    std::string line = e.text.substr(from, to - from), below;
    if (e.length > 0) {
        for (size_t i = from; i < e.at; i++)
            if (i >= e.text.size() || !is_tail(e.text[i]))
                below += i < e.text.size() && e.text[i] == '\t' ? '\t' : ' ';
        below += color;
        for (size_t i = e.at; i < std::max(e.at + 1, std::min(e.at + e.length, to)); i++)
            if (i == e.at || !is_tail(e.text[i]))
                below += i == e.at ? '^' : '~';
        below += color_end();
    }
    std::transform(line.begin(), line.end(), line.begin(), shown);
    if (number > 0)
        fprintf(stderr, "%5lld | %s\n", static_cast<long long>(number), line.c_str());
    else
        fprintf(stderr, "      | %s\n", line.c_str());
    if (!below.empty())
        fprintf(stderr, "      | %s\n", below.c_str());
}

static void write_origin(const lex_origin_t &o)
{
    fputs(o.file, stderr);
    if (o.line > 0)
        fprintf(stderr, ": %lld", static_cast<long long>(o.line));
    if (o.macro)
        fprintf(stderr, ": in the expansion of \"%s\"\n", o.macro);
    else
        fputs(": included here\n", stderr);
}

static void write_rich(const alert_report_t *r)
{
    const char *color = color_of(r->severity);
    const int length = static_cast<int>(strcspn(r->whole, "\n"));
    fprintf(stderr, "%s%.*s%s\n", color, length, r->whole, color_end());
    lex_line_t being_read;
    const bool reading = is_line_being_read(r, &being_read), expanded = reading && lex_in_expansion();
    lex_origin_t origins[LEX_MAX_DEPTH];
    const unsigned count = reading ? lex_origins(origins) : 0;
    excerpt_t e = {"", 0, 0};
    if (reading && !expanded) {
        e.text.assign(being_read.text, being_read.length);
        mark(&e, r, &being_read);
    } else if (line_of_file(r->file, r->line, &e.text)) {
        mark(&e, r, nullptr);
        for (unsigned i = 0; e.length == 0 && i < count; i++)   // the outermost expansion is called here
            if (origins[i].macro && (i + 1 == count || !origins[i + 1].macro))
                mark_word(&e, origins[i].macro);
    }
    if (!e.text.empty())
        write_excerpt(e, r->line, color);
    for (unsigned i = 0; i < count && i < ORIGINS_SHOWN; i++) {
        write_origin(origins[i]);
        if (i > 0 || !expanded)
            continue;
        e = {std::string(being_read.text, being_read.length), 0, 0};
        mark(&e, r, &being_read);
        write_excerpt(e, origins[i].line, color);
    }
    if (count > ORIGINS_SHOWN)
        fprintf(stderr, "... %u more\n", count - ORIGINS_SHOWN);
}

static form_t form()
{
    if (st.form != FORM_DEFAULT)
        return st.form;
    for (const char *variable : {"OST_ERR_FORMAT", "OST_WARN_FORMAT", "OST_MSG_FORMAT"})
        if (getenv(variable))
            return FORM_PLAIN;
    return !st.plain_asked && isatty(STDERR_FILENO) ? FORM_RICH : FORM_PLAIN;
}

static bool show(const alert_report_t *r)
{
    if (r->number == NO_MEMORY || r->number == TOO_MANY || form() == FORM_PLAIN)
        return false;
    write_rich(r);
    return true;
}

void diagnostics_start() { alert_set_show(show); }

bool diagnostics_set_form(const char *form)
{
    if (strcmp(form, "plain") == 0)
        st.form = FORM_PLAIN;
    else if (strcmp(form, "rich") == 0)
        st.form = FORM_RICH;
    else
        return false;
    return true;
}

bool diagnostics_set_color(const char *when)
{
    static constexpr const char *words[] = {"auto", "always", "never"};
    for (int i = 0; i < 3; i++)
        if (strcmp(when, words[i]) == 0) {
            st.color = static_cast<color_t>(i);
            return true;
        }
    return false;
}

void diagnostics_stay_plain() { st.plain_asked = true; }
