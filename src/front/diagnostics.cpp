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

#include "code/list.h"
#include "code/oprows.h"
#include "code/sym.h"
#include "common/alert.h"
#include "common/fileguard.h"
#include "common/srcpos.h"
#include "env/warnings.h"
#include "front/chars.h"
#include "front/lexutil.h"
#include "front/macro.h"
#include "front/messagelog.h"
#include "front/origins.h"
#include "front/sources.h"
#include "front/suggest.h"

enum form_t { FORM_DEFAULT, FORM_PLAIN, FORM_RICH, FORM_JSON, FORM_SARIF };
enum color_t { COLOR_AUTO, COLOR_ALWAYS, COLOR_NEVER };

constexpr unsigned NO_MEMORY = 296, TOO_MANY = 1;   // messages that are shown bare: the second comes behind another one
constexpr unsigned SYNTAX_ERROR = 876, UNDEFINED_SYMBOL = 800, NO_FILE = 140;
constexpr unsigned LAST_WORD[] = {223, 788, 794, 844, 876, 968};   // messages about the word that was scanned last
constexpr size_t WIDTH = 160;                                      // bytes shown of a line
constexpr size_t NOTES_SHOWN = 8;
constexpr off_t LARGEST_FILE = off_t{1} << 26;

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

static std::string_view word_from(std::string_view line, size_t at)
{
    size_t end = at;
    while (end < line.size() && class_of(line[end]) & C_WORD)
        end++;
    return line.substr(at, end - at);
}

static size_t skip_blanks(std::string_view line, size_t at)
{
    return std::min(line.find_first_not_of(" \t", at), line.size());
}

// Where the word of the statement stands, behind labels.
static size_t statement_at(std::string_view line)
{
    for (size_t at = skip_blanks(line, 0);;) {
        const size_t behind = skip_blanks(line, at + word_from(line, at).size());
        if (behind == at || behind >= line.size() || line[behind] != ':')
            return at;
        at = skip_blanks(line, behind + 1);
    }
}

// The operands behind a statement's word, without the blanks around them.
static std::vector<std::string_view> operands(std::string_view line, size_t at)
{
    std::vector<std::string_view> list;
    unsigned depth = 0;
    char quote = 0;
    size_t from = at = skip_blanks(line, at);
    for (;; at++) {
        const char c = at < line.size() ? line[at] : ';';
        if (at >= line.size() || (!quote && (c == ';' || (c == ',' && depth == 0)))) {
            const std::string_view one = line.substr(from, at - from);
            list.push_back(one.substr(0, one.find_last_not_of(" \t") + 1));
            if (c != ',')
                return list;
            from = skip_blanks(line, at + 1);
        } else if (quote) {
            quote = c == quote ? 0 : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '(' || c == '[') {
            depth++;
        } else if (depth > 0 && (c == ')' || c == ']')) {
            depth--;
        }
    }
}

// Marks what a pass behind the parser is at, if the line is that of its node: in the operand the word that the message quotes, or
// else all of the operand; without an operand, that word in the line, or else the word of the statement. In a line that calls a
// macro, there are no operands.
static void mark_node(excerpt_t *e, std::string_view word)
{
    const std::string_view line = e->text;
    const size_t at = statement_at(line);
    const std::string_view name = word_from(line, at);
    const op_row_t *row = op_lookup_keyword(name.data(), name.size());
    const symbol_t *s = row ? nullptr : sym_find(name.data(), name.size());
    if (row ? row->token != srcpos.node->op_type : !s || !(s->s_flags & S_MACRO))
        return;
    const std::vector<std::string_view> list = operands(line, at + name.size());
    size_t i = srcpos.operand - 1;
    if (i == 1 && list.size() > 2 && (list[i] == "b" || list[i] == "c"))
        i++;   // a word for the bank between the two
    if (!row || i >= list.size() || list[i].empty()) {
        mark_word(e, word);
        if (e->length == 0)
            *e = {e->text, at, name.size()};
        return;
    }
    excerpt_t within = {std::string(list[i]), 0, 0};
    mark_word(&within, word);
    e->at = static_cast<size_t>(list[i].data() - line.data()) + within.at;
    e->length = within.length > 0 ? within.length : list[i].size();
}

static std::string_view quoted_word(std::string_view text)
{
    const size_t open = text.find('"'), close = open == text.npos ? open : text.find('"', open + 1);
    return close == text.npos ? std::string_view() : text.substr(open + 1, close - open - 1);
}

static void mark(excerpt_t *e, const alert_report_t *r, const lex_line_t *being_read)
{
    if (r->number == SYNTAX_ERROR && *r->hint == '"')
        mark_word(e, quoted_word(r->hint));
    if (e->length > 0)
        return;
    const bool last_word = std::find(std::begin(LAST_WORD), std::end(LAST_WORD), r->number) != std::end(LAST_WORD);
    if (last_word && being_read) {
        e->at = being_read->token;
        e->length = being_read->token_length;
    } else {
        if (srcpos.node && r->severity != ALERT_MESSAGE)
            mark_node(e, quoted_word(r->text));
        if (e->length == 0)
            mark_word(e, quoted_word(r->text));
    }
}

// Output.

static bool is_tail(char c) { return (c & 0xC0) == 0x80; }   // of a character of several bytes

// A form that a terminal takes for text and nothing else, with as many characters.
static std::string shown(std::string_view text)
{
    std::string to;
    for (const char c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte < 0xA0 && byte >= 0x80 && to.ends_with('\xC2'))   // control characters beyond ASCII
            to.back() = '?';
        else
            to += c == '\t' || (byte >= ' ' && byte != 0x7F) ? c : '?';
    }
    return to;
}

static bool is_colored()
{
    if (st.color != COLOR_AUTO)
        return st.color == COLOR_ALWAYS;
    const char *none = getenv("NO_COLOR"), *term = getenv("TERM");
    return !(none && *none) && term && strcmp(term, "dumb") != 0 && isatty(STDERR_FILENO);
}

static const char *color_of(alert_severity_t severity)
{
    return !is_colored()               ? ""
           : severity == ALERT_MESSAGE ? "\33[1;36m"
           : severity == ALERT_WARNING ? "\33[1;35m"
                                       : "\33[1;31m";
}

static const char *color_end() { return is_colored() ? "\33[0m" : ""; }

static void write_excerpt(const excerpt_t &e, int64_t number, const char *color)
{
    if (e.text.empty())
        return;
    size_t from = e.length > 0 && e.at + e.length > WIDTH ? e.at - std::min(e.at, WIDTH / 2) : 0;
    while (from < e.text.size() && is_tail(e.text[from]))
        from++;
    const size_t to = std::min(e.text.size(), from + WIDTH);
    const std::string line = shown(std::string_view(e.text).substr(from, to - from));
    std::string below;
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
    if (number > 0)
        fprintf(stderr, "%5lld | %s\n", static_cast<long long>(number), line.c_str());
    else
        fprintf(stderr, "      | %s\n", line.c_str());
    if (!below.empty())
        fprintf(stderr, "      | %s\n", below.c_str());
}

// A message with all that belongs to it.

// Of a line that has been read before, what macros put in isn't known any more: it is shown as the macro has it.
static void note_origins(diagnostic_t *d, const alert_report_t *r, const lex_line_t *being_read)
{
    const op_t *op = srcpos.placed;
    const bool of_node = op && r->line > 0 && op_line(op) + srcpos.below == static_cast<uint64_t>(r->line) && op_file(op) &&
                         strcmp(op_file(op), r->file) == 0 && r->severity != ALERT_MESSAGE;
    const std::vector<line_origin_t> way = being_read ? origins_here()
                                           : of_node  ? origins_of_node(op->op_id)
                                                      : std::vector<line_origin_t>();
    const char *outermost = nullptr;
    for (const line_origin_t &o : way) {
        if (!o.macro) {
            d->notes.push_back({"included here", o.file, o.line, {}});
            continue;
        }
        const macro_place_t place = macro_place(o.macro, o.behind);
        outermost = place.name;
        d->notes.push_back({"in the expansion of \"" + std::string(place.name) + '"', place.file, place.line, {}});
    }
    if (!outermost)
        return;
    if (d->main.excerpt.length == 0)
        mark_word(&d->main.excerpt, outermost);   // which is called there
    remark_t &inner = d->notes[0];
    if (way[0].macro && being_read)
        inner.excerpt.text.assign(being_read->text, being_read->length);
    if (way[0].macro && (being_read || line_of_file(inner.file.c_str(), inner.line, &inner.excerpt.text)))
        mark(&inner.excerpt, r, being_read);
}

// A suggestion is a fix where no other one is as near, in a line that is shown as it stands in its file.
static void note_meant(diagnostic_t *d, const lex_line_t *being_read)
{
    suggestion_t s;
    if (d->number == NO_FILE) {
        std::vector<const char *> folders = being_read ? source_folders() : std::vector<const char *>();
        folders.insert(folders.begin(), ".");
        s = suggest_file(quoted_word(d->main.text), folders);
    } else if (d->number == UNDEFINED_SYMBOL)
        s = suggest_symbol(quoted_word(d->main.text));
    else if (d->number == SYNTAX_ERROR && being_read) {
        const std::string_view line(being_read->text, being_read->length);
        s = suggest_keyword(line, statement_at(line), being_read->token);
    }
    if (s.meant.empty())
        return;
    d->notes.push_back({'"' + s.word + "\": did you mean \"" + s.meant + "\"?", "", 0, {}});
    excerpt_t place = d->main.excerpt;
    place.length = 0;
    mark_word(&place, s.word);
    if (s.certain && place.length > 0 && !lex_in_expansion())
        d->fixes.push_back({place.at, place.length, s.meant});
}

static diagnostic_t gather(const alert_report_t *r)
{
    diagnostic_t d = {r->severity, r->number, {r->text, r->file, r->line, {}}, {}, {}};
    if (r->number == TOO_MANY)
        return d;   // it comes behind another message, which has it all
    lex_line_t being_read;
    const bool reading = is_line_being_read(r, &being_read);
    excerpt_t *e = &d.main.excerpt;
    if (reading && !lex_in_expansion()) {
        e->text.assign(being_read.text, being_read.length);
        mark(e, r, &being_read);
    } else if (line_of_file(r->file, r->line, &e->text)) {
        mark(e, r, nullptr);
    }
    note_origins(&d, r, reading ? &being_read : nullptr);
    if (*r->hint)
        d.notes.push_back({r->hint, "", 0, {}});
    note_meant(&d, reading ? &being_read : nullptr);
    return d;
}

// Rich.

static void write_rich(const alert_report_t *r)
{
    const diagnostic_t d = gather(r);
    const char *color = color_of(r->severity);
    const std::string first = shown({r->whole, strcspn(r->whole, "\n")});
    const char *group = r->severity == ALERT_WARNING ? warning_group(r->number) : nullptr;
    fprintf(stderr, "%s%s%s%s%s%s\n", color, first.c_str(), group ? " [-W" : "", group ? group : "", group ? "]" : "",
            color_end());
    write_excerpt(d.main.excerpt, r->line, color);
    size_t told = 0;
    for (const remark_t &n : d.notes) {
        if (told++ == NOTES_SHOWN) {
            fprintf(stderr, "... %zu more\n", d.notes.size() - NOTES_SHOWN);
            break;
        }
        if (!n.file.empty())
            fprintf(stderr, "%s: ", shown(n.file).c_str());
        if (n.line > 0)
            fprintf(stderr, "%lld: ", static_cast<long long>(n.line));
        fprintf(stderr, "%s\n", shown(n.text).c_str());
        write_excerpt(n.excerpt, n.line, color);
    }
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

static log_form_t log_form()
{
    const form_t as = form();
    return as == FORM_JSON ? LOG_JSON : as == FORM_SARIF ? LOG_SARIF : LOG_NONE;
}

static void end_log() { log_end(log_form()); }

static bool show(const alert_report_t *r)
{
    if (r->number == NO_MEMORY) {
        end_log();
        return false;
    }
    if (log_form() != LOG_NONE)
        log_add(log_form(), gather(r));
    else if (form() == FORM_RICH)
        write_rich(r);
    return form() != FORM_PLAIN;
}

// A line of the system.
static void tell(const char *line)
{
    if (log_form() == LOG_NONE)
        fprintf(stderr, "%s\n", line);
    else
        log_add(log_form(), {ALERT_BARE, 0, {line, "", 0, {}}, {}, {}});
}

void diagnostics_start()
{
    alert_set_show(show);
    guard_set_tell(tell);
    atexit(end_log);
}

bool diagnostics_set_form(const char *form)
{
    static constexpr const char *words[] = {"plain", "rich", "json", "sarif"};
    for (int i = 0; i < 4; i++)
        if (strcmp(form, words[i]) == 0) {
            st.form = static_cast<form_t>(FORM_PLAIN + i);
            return true;
        }
    return false;
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

bool diagnostics_show_origins() { return form() != FORM_PLAIN; }

void diagnostics_stay_plain() { st.plain_asked = true; }
