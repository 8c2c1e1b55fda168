// The page is page.html, which the program carries, with what stands in its double braces filled in. Nothing of it has to be
// fetched, and without its script all of it can be read.
//
// A row is an element with a cell for each column. Where the lines behind it lie deeper in expansions, the row becomes the head
// of a fold, which holds them; so the folds nest as the expansions do.
//
// zellink finishes the page: it knows the cells of a row by their classes, and `at` and `linked` by their ids.
//
// What may bite: whatever comes from the source goes through put_text, which has no other way out for the characters that mean
// something in HTML, and makes text of bytes that aren't UTF-8.
#include "annotate/annotation_html.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <map>

#include "annotate/annotation_text.h"
#include "chip/chip.h"
#include "code/ops.h"
#include "env/catalogue.h"
#include "optim/changes.h"
#include "optim/changes_out.h"
#include "options.h"

static struct {
    FILE *to;
    const annotation_t *a;
    std::string out;
    std::map<uint32_t, uint32_t> included;   // of a line: the reading that it began
    std::vector<bool> numbered;              // of a line: its number is the first of its kind
} st;

static constexpr size_t FLUSH = 1 << 16, PSECT_MOST = 16;

static void put(std::string_view markup)
{
    st.out += markup;
    if (st.out.size() > FLUSH) {
        fwrite(st.out.data(), 1, st.out.size(), st.to);
        st.out.clear();
    }
}

static void put_number(int64_t n) { put(std::to_string(n)); }

static void put_signed(int64_t n)
{
    put(n > 0 ? "+" : n < 0 ? "−" : "");
    put_number(n < 0 ? -n : n);
}

// The length of the character of UTF-8 that `s` begins with; 0 if that is none.
static size_t character_length(std::string_view s)
{
    const auto byte = [s](size_t i) { return static_cast<unsigned char>(s[i]); };
    const size_t length = byte(0) < 0xC2 ? 0 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : byte(0) < 0xF5 ? 4 : 0;
    if (length == 0 || length > s.size())
        return 0;
    for (size_t i = 1; i < length; i++)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    const bool too_long = (byte(0) == 0xE0 && byte(1) < 0xA0) || (byte(0) == 0xF0 && byte(1) < 0x90);
    const bool none = (byte(0) == 0xED && byte(1) >= 0xA0) || (byte(0) == 0xF4 && byte(1) >= 0x90);
    return too_long || none ? 0 : length;
}

// Control characters are shown as their pictures, stray bytes as the characters that they are in Latin-1.
static void put_text(std::string_view s)
{
    char code[16];
    while (!s.empty()) {
        const auto c = static_cast<unsigned char>(s[0]);
        size_t length = 1;
        if (c >= 0x80 && (length = character_length(s)) > 0) {
            put(s.substr(0, length));
        } else if (c == '&' || c == '<' || c == '>' || c == '"' || c == '\'' || c >= 0xA0) {
            length = 1;
            snprintf(code, sizeof code, "&#%u;", c);
            put(code);
        } else if (c >= 0x7F || (c < ' ' && c != '\t')) {
            length = 1;
            snprintf(code, sizeof code, "&#x%X;", c < ' ' ? 0x2400u + c : c == 0x7F ? 0x2421u : 0xFFFDu);
            put(code);
        } else {
            put(s.substr(0, 1));
        }
        s.remove_prefix(length);
    }
}

// Places to lead to: lines of files by their number, so that a link outlives a change elsewhere; others by their count. In a
// preprocessed source several lines may have one number.
static std::string anchor(uint32_t line)
{
    const srcline_t &l = srclines.lines[line];
    return st.numbered[line] ? 'r' + std::to_string(l.reading) + '-' + std::to_string(l.number) : 'x' + std::to_string(line);
}

static void find_numbered()
{
    std::vector<uint32_t> highest(srclines.reading_count);
    for (const srcline_t *l = srclines.lines; l < srclines.lines + srclines.count; l++) {
        st.numbered.push_back(l->depth == 0 && l->number > highest[l->reading]);
        if (st.numbered.back())
            highest[l->reading] = l->number;
    }
}

static void put_link(uint32_t line, const char *attributes, std::string_view text)
{
    put("<a href=\"#" + anchor(line) + '"');
    put(attributes);
    put(">");
    put_text(text);
    put("</a>");
}

// The text of a line.

static bool is_word(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '$' || c == '?' ||
           c == '@';
}

static void put_classed(const char *name, std::string_view text)
{
    put("<span class=\"");
    put(name);
    put("\">");
    put_text(text);
    put("</span>");
}

// `names`: words may be those of symbols, which stays so up to a word behind which names are of other things.
static void put_word(std::string_view word, uint32_t line, bool *names)
{
    const bool number = word[0] >= '0' && word[0] <= '9';
    const uint32_t defined = number || !*names ? uint32_t{NO_LINE} : annotation_definition(*st.a, word);
    const op_row_t *row = number ? nullptr : op_lookup_keyword(word.data(), word.size());
    *names = *names && !(row && row->token == T_PSECT);
    if (defined == line)
        put_classed("d", word);
    else if (defined != NO_LINE)
        put_link(defined, "", word);
    else if (row)
        put_classed("k", word);
    else
        put_text(word);
}

static void put_code(std::string_view text, uint32_t line)
{
    bool names = true;
    while (!text.empty()) {
        const char c = text[0];
        size_t end = 1;
        if (c == ';') {
            end = text.size();
            put_classed("t", text);
        } else if (c == '"' || c == '\'') {
            end = std::min(text.find(c, 1), text.size() - 1) + 1;
            put_classed("s", text.substr(0, end));
        } else if (is_word(c)) {
            while (end < text.size() && is_word(text[end]))
                end++;
            put_word(text.substr(0, end), line, &names);
        } else {
            while (end < text.size() && text[end] != ';' && text[end] != '"' && text[end] != '\'' && !is_word(text[end]))
                end++;
            put_text(text.substr(0, end));
        }
        text.remove_prefix(end);
    }
}

// Rows.

static void put_words(const shown_row_t &row)
{
    put("<span class=\"w\">");
    for (uint32_t i = 0; i < row.word_count; i++) {
        const std::string word = annotation_word(st.a->words[row.word + i]);
        const bool open = word.back() == '\'';
        put(i ? " " : "");
        put(open ? word.substr(0, word.size() - 1) + "<i>&#39;</i>" : word);
    }
    if (row.word_count == 0 && row.reserved)
        put("<em>" + annotation_reserved(row) + "</em>");
    put("</span>");
}

// The cells between the number and the text.
static void put_columns(const shown_row_t &row)
{
    put("<span class=\"p\">");
    if (row.placed && row.psect)
        put_text(row.psect->s_name);
    put("</span><span class=\"a\">" + annotation_address(row) + "</span>");
    put_words(row);
    put("<span class=\"c\">" + annotation_cycles(row) + "</span>");
}

// Of a line and what lies in its fold.
struct extent_t {
    uint32_t lines, changed;
    uint64_t bytes;
    const shown_row_t *first;   // that has a place
};

static void add_to_extent(extent_t *e, uint32_t line)
{
    e->lines++;
    e->changed += !st.a->notes_of(line).empty();
    for (const shown_row_t &row : st.a->rows_of(line)) {
        if (!e->first && row.placed)
            e->first = &row;
        for (uint32_t i = 0; i < row.word_count; i++)
            e->bytes += st.a->words[row.word + i].bytes;
    }
}

static void put_chips(uint32_t line, const extent_t *fold)
{
    if (fold) {
        put("<span class=\"chip\">" + std::to_string(fold->lines) + (fold->lines == 1 ? " line" : " lines"));
        if (fold->bytes)
            put(", " + std::to_string(fold->bytes) + (fold->bytes == 1 ? " byte" : " bytes"));
        if (fold->changed)
            put(", " + std::to_string(fold->changed) + " changed");
        put("</span>");
    }
    if (const auto reading = st.included.find(line); reading != st.included.end()) {
        put("<span class=\"chip\"><a href=\"#r" + std::to_string(reading->second) + "\">→ ");
        put_text(srclines.readings[reading->second].file);
        put("</a></span>");
    }
}

struct fate_row_t {
    const char *name, *note, *mark, *title;
};
static constexpr std::array<fate_row_t, 5> fate_rows = {{
    {"", "", "", ""},
    {"made", "oa", "+", "made by the optimiser"},
    {"v", "om", "m", "moved"},
    {"r", "or", "r", "replaced"},
    {"x", "ox", "x", "deleted"},
}};

static void open_row(const fate_row_t &fate, const char *more, std::string_view id)
{
    put("<span class=\"l");
    put(*fate.name ? std::string(" ") + fate.name : "");
    put(more);
    put("\"");
    if (!id.empty())
        put(" id=\"" + std::string(id) + '"');
    put(std::string("><span class=\"m\"") + (*fate.title ? std::string(" title=\"") + fate.title + '"' : "") + '>' +
        fate.mark + "</span>");
}

static void put_notes(uint32_t line)
{
    for (const shown_note_t &note : st.a->notes_of(line)) {
        put(std::string("<span class=\"o ") + fate_rows[note.fate].note + "\"><span><b>");
        const size_t what = note.text.find('"');   // the rule and what it did are in front of the instruction
        put_text(std::string_view(note.text).substr(0, what));
        put("</b>");
        put_text(what == std::string::npos ? "" : std::string_view(note.text).substr(what));
        if (note.bytes) {
            put(" (");
            put_signed(note.bytes);
            put(")");
        }
        put("</span></span>\n");
    }
}

static void put_made(uint32_t line)
{
    for (const shown_row_t &row : st.a->rows_of(line))
        if (row.text) {
            open_row(fate_rows[FATE_ADDED], " chg", "");
            put("<span class=\"n\"></span>");
            put_columns(row);
            put("<code>");
            put_text(row.text);
            put("</code></span>\n");
        }
}

// The row itself, one for each place; `fold`: it is the head of one.
static void put_line(uint32_t i, const extent_t *fold)
{
    const srcline_t &line = srclines.lines[i];
    const bool changed = !st.a->notes_of(i).empty() || (fold && fold->changed);
    const std::string more = std::string(st.a->dead[i] ? " dead" : "") + (changed ? " chg" : "");
    bool told = false;
    const auto row_of = [&](const shown_row_t &row) {
        open_row(fate_rows[told ? FATE_KEPT : st.a->fates[i]], more.c_str(), told ? "" : anchor(i));
        if (told || line.depth)
            put("<span class=\"n\"></span>");
        else
            put_link(i, " class=\"n\"", std::to_string(line.number));
        put_columns(row);
        put("<code>");
        if (!told)
            put_code({line.text, line.length}, i);
        put("</code>");
        if (!told)
            put_chips(i, fold);
        put("</span>\n");
        told = true;
    };
    for (const shown_row_t &row : st.a->rows_of(i))
        if (!row.text)
            row_of(row);
    shown_row_t none = {};
    if (!told && fold && fold->first) {   // where the fold begins
        none.placed = true;
        none.psect = fold->first->psect;
        none.address = fold->first->address;
        none.rest = fold->first->rest;
    }
    if (!told)
        row_of(none);
}

static void put_below(uint32_t line)
{
    put_notes(line);
    put_made(line);
}

// Lines from lines[from] on that lie deeper than lines[from - 1].
static size_t end_of_fold(std::span<const uint32_t> lines, size_t from, extent_t *extent)
{
    const unsigned depth = srclines.lines[lines[from - 1]].depth;
    size_t i = from;
    for (; i < lines.size() && srclines.lines[lines[i]].depth > depth; i++)
        add_to_extent(extent, lines[i]);
    return i;
}

// Folds nest at most as deep as expansions do, which the scanner limits.
static void put_lines(std::span<const uint32_t> lines)
{
    for (size_t i = 0; i < lines.size();) {
        extent_t extent = {};
        const size_t end = end_of_fold(lines, i + 1, &extent);
        if (end == i + 1) {
            put_line(lines[i], nullptr);
            put_below(lines[i]);
        } else {
            put(extent.changed ? "<details class=\"fold chg\"><summary>" : "<details class=\"fold\"><summary>");
            put_line(lines[i], &extent);
            put("</summary><div class=\"in\">\n");
            put_lines(lines.subspan(i + 1, end - i - 1));
            put("</div></details>\n");
            put_below(lines[i]);
        }
        i = end;
    }
}

// Files.

static void put_readings()
{
    for (uint32_t r = 0; r < srclines.reading_count; r++) {
        const reading_t &reading = srclines.readings[r];
        put("<details class=\"file\" open id=\"r" + std::to_string(r) + "\"><summary><h2>");
        put_text(reading.file);
        put("</h2>");
        if (reading.from != NO_LINE) {
            const srcline_t &from = srclines.lines[reading.from];
            put("<span>included by ");
            put_link(reading.from, "",
                     std::string(srclines.readings[from.reading].file) + ':' + std::to_string(from.number));
            put("</span>");
        }
        put("</summary><div class=\"rows\">\n<span class=\"l head\"><span></span><span class=\"n\">line</span><span>psect</span>"
            "<span>at</span><span>words</span><span>cycles</span></span>\n");
        put_lines(st.a->lines_of(r));
        put("</div></details>\n");
    }
    if (st.a->rows_of(NO_LINE).empty() && st.a->notes_of(NO_LINE).empty())
        return;
    put("<details class=\"file\" open><summary><h2>In no line of the source</h2></summary><div class=\"rows\">\n");
    put_below(NO_LINE);
    put("</div></details>\n");
}

// Above them.

static void put_psects()
{
    put("<section class=\"card\"><h2>Psects</h2><table><tr><th></th>");
    put(opt.optimise ? "<th class=\"number\">written</th><th class=\"number\">bytes</th></tr>\n"
                     : "<th class=\"number\">bytes</th></tr>\n");
    for (const psect_sizes_t *p = changes.psects; p < changes.psects + changes.psect_count; p++) {
        if (p->before + p->after == 0)
            continue;
        put("<tr><td>");
        put_text(*p->psect->s_name ? p->psect->s_name : "(absolute)");
        if (opt.optimise)
            put("</td><td class=\"number\">" + std::to_string(p->before));
        put("</td><td class=\"number\">" + std::to_string(p->after) + "</td></tr>\n");
    }
    put("</table></section>\n");
}

static void put_rule(std::string_view name, std::string_view why, const change_sum_t &sum, int64_t most)
{
    put("<tr title=\"");
    put_text(why);
    put("\"><td>");
    put_text(name);
    put("</td><td class=\"number\">");
    put(sum.times ? std::to_string(sum.times) : "");
    put("</td><td class=\"number\">");
    put_signed(sum.bytes);
    const int64_t share = most ? 100 * (sum.bytes < 0 ? -sum.bytes : sum.bytes) / most : 0;
    put("</td><td class=\"bar\"><i");
    put(sum.bytes > 0 ? " class=\"cost\"" : "");
    put(" style=\"width: " + std::to_string(share) + "%\"></i></td></tr>\n");
}

// What rules saved is a bar, what they cost one of another colour; the largest first.
static void put_rules()
{
    const change_sums_t sums = changes_sums();
    std::vector<unsigned> rules;
    int64_t most = sums.branches < 0 ? -sums.branches : sums.branches;
    for (unsigned i = 0; i < RULES; i++)
        if (sums.rules[i].times) {
            rules.push_back(i);
            most = std::max(most, sums.rules[i].bytes < 0 ? -sums.rules[i].bytes : sums.rules[i].bytes);
        }
    std::stable_sort(rules.begin(), rules.end(),
                     [&](unsigned x, unsigned y) { return sums.rules[x].bytes < sums.rules[y].bytes; });
    put("<section class=\"card\"><h2>Bytes by rule</h2><table>\n"
        "<tr><th></th><th class=\"number\">times</th><th class=\"number\">bytes</th><th></th></tr>\n");
    for (const unsigned i : rules)
        put_rule(rule_rows[i].name, rule_rows[i].why, sums.rules[i], most);
    put_rule("sizes of branches, padding", "what the final distances make of them", {0, sums.branches}, most);
    put("<tr class=\"total\"><td>in all</td><td></td><td class=\"number\">");
    put_signed(static_cast<int64_t>(sums.after) - static_cast<int64_t>(sums.before));
    put("</td><td></td></tr></table></section>\n");
}

static void put_files()
{
    put("<section class=\"card\"><h2>Files</h2><ul>\n");
    for (uint32_t r = 0; r < srclines.reading_count; r++) {
        put("<li><a href=\"#r" + std::to_string(r) + "\">");
        put_text(srclines.readings[r].file);
        put("</a></li>\n");
    }
    put("</ul></section>\n");
}

static void put_symbols()
{
    std::vector<std::pair<std::string_view, uint32_t>> symbols;
    for (const auto &[symbol, line] : st.a->definitions)
        if (srclines.lines[line].depth == 0)
            symbols.emplace_back(symbol->s_name, line);
    if (symbols.empty())
        return;
    std::sort(symbols.begin(), symbols.end());
    put("<details class=\"card\"><summary><h2>Symbols</h2> <span class=\"keys\">" + std::to_string(symbols.size()) +
        "</span></summary><div class=\"symbols\">\n");
    for (const auto &[name, line] : symbols) {
        put_link(line, "", name);
        put("\n");
    }
    put("</div></details>\n");
}

static void put_summary()
{
    put("<div class=\"cards\">\n");
    put_psects();
    put("<section class=\"card\" id=\"linked\" hidden></section>\n");   // for the linker to tell its places
    if (changes.change_count > 0)
        put_rules();
    put_files();
    put_symbols();
    put("</div>\n<p class=\"keys\"><span id=\"at\">Addresses are places in the psect; <b>&#39;</b> is for the linker to fill "
        "in.</span> Cycles <b>1/2</b>: going on, or jumping or skipping.");
    if (changes.change_count > 0)
        put(" <b>x</b> deleted, <b>r</b> replaced, <b>m</b> moved, <b>+</b> made by the optimiser.");
    put("</p>\n");
}

// The page.

static void put_width()
{
    size_t longest = 4;
    for (const shown_row_t &row : st.a->rows)
        longest = std::max(longest, std::string_view(row.psect->s_name).size());
    put_number(static_cast<int64_t>(std::min(longest, PSECT_MOST)));
}

static const struct {
    std::string_view name;
    void (*put)();
} holes[] = {
    {"title", [] { put_text(opt.src_files[0]); }},
    {"subtitle",
     [] {
         put_text(chip_getName());
         put(opt.optimise ? ", optimised" : "");
     }},
    {"changed",
     [] {
         if (changes.change_count > 0)
             put("<label><input type=\"checkbox\" id=\"changed\"> Changed only</label>");
     }},
    {"width", put_width},
    {"summary", put_summary},
    {"sources", put_readings},
};

void annotation_write_html(FILE *to, const annotation_t &a)
{
    st.to = to;
    st.a = &a;
    find_numbered();
    for (uint32_t r = 0; r < srclines.reading_count; r++)
        st.included.try_emplace(srclines.readings[r].from, r);
    std::string_view page(reinterpret_cast<const char *>(annotation_page_text), annotation_page_length);
    while (!page.empty()) {
        const size_t hole = page.find("{{"), end = page.find("}}", hole);
        put(page.substr(0, hole));
        if (hole == page.npos)
            break;
        for (const auto &h : holes)
            if (h.name == page.substr(hole + 2, end - hole - 2))
                h.put();
        page.remove_prefix(end + 2);
    }
    fwrite(st.out.data(), 1, st.out.size(), to);
    st.out.clear();
}
