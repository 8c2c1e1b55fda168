// Files stand one after the other in the order in which they were opened, each line by itself, and what an expansion or the
// optimiser put in follows its line. The columns are as wide as the widest psect name needs, and end where a tab stop is, so
// that the tabs of the source line up as they do in an editor.
//
// zellink finishes the file, and knows these columns as well.
#include "annotate/annotation_text.h"

#include <algorithm>

#include "chip/chip.h"
#include "optim/changes_out.h"
#include "options.h"
#include "out/emasm.h"

constexpr size_t TAB = 8, PSECT_MOST = 16, WORDS_WIDTH = 17, MARGIN = 10;   // the margin: two marks and the number

static struct {
    FILE *to;
    const annotation_t *a;
    size_t psect_width, text_column;
} st;

std::string annotation_word(const shown_word_t &w)
{
    char text[32];
    snprintf(text, sizeof text, "%s%0*llX%s", w.bytes == 0 ? "= " : "", w.bytes == 0 ? 2 : 2 * w.bytes,
             static_cast<unsigned long long>(w.value), w.open ? "'" : "");
    return text;
}

std::string annotation_cycles(const shown_row_t &row)
{
    if (row.most == 0)
        return "";
    return std::to_string(row.least) + (row.most > row.least ? '/' + std::to_string(row.most) : "");
}

std::string annotation_address(const shown_row_t &row)
{
    char text[24] = "";
    if (row.placed)
        snprintf(text, sizeof text, row.rest ? "%04llX+%u" : "%04llX", static_cast<unsigned long long>(row.address),
                 unsigned{row.rest});
    return text;
}

std::string annotation_reserved(const shown_row_t &row)
{
    return row.reserved == 0 ? "" : std::to_string(row.reserved) + (row.reserved == 1 ? " byte" : " bytes");
}

static void put(std::string_view s) { fwrite(s.data(), 1, s.size(), st.to); }

static std::string padded(std::string s, size_t width)
{
    if (s.size() < width)
        s.append(width - s.size(), ' ');
    return s;
}

// A terminal takes it for text and nothing else.
static std::string printable(std::string_view s)
{
    std::string text(s);
    for (char &c : text)
        if (const auto byte = static_cast<unsigned char>(c); (byte < ' ' && c != '\t') || byte == 0x7F)
            c = c == '\f' ? ' ' : '?';
    return text;
}

// Rows.

// The next words that fit into their column.
static std::string take_words(std::span<const shown_word_t> *words)
{
    std::string text;
    while (!words->empty()) {
        const std::string word = annotation_word(words->front());
        if (!text.empty() && text.size() + 1 + word.size() > WORDS_WIDTH)
            break;
        text += (text.empty() ? "" : " ") + word;
        *words = words->subspan(1);
    }
    return text;
}

static void put_line(std::string_view margin, const shown_row_t &row, std::string words, std::string cycles,
                     std::string_view text)
{
    std::string line(margin);
    line += padded(row.placed && row.psect ? printable(row.psect->s_name) : "", st.psect_width) + ' ';
    line +=
        padded(annotation_address(row) + ' ', 7) + padded(std::move(words), WORDS_WIDTH + 1) + padded(std::move(cycles), 4);
    line = padded(line, text.empty() ? 0 : st.text_column) + std::string(text);
    line.resize(line.find_last_not_of(" \t") + 1);
    put(line + '\n');
}

static void put_row(std::string_view margin, const shown_row_t &row, std::string_view text)
{
    std::span<const shown_word_t> words = std::span(st.a->words).subspan(row.word, row.word_count);
    const bool none = words.empty();
    put_line(margin, row, none ? annotation_reserved(row) : take_words(&words), annotation_cycles(row), text);
    while (!words.empty())
        put_line(std::string(MARGIN, ' '), {}, take_words(&words), "", "");
}

static std::string margin(char first, char second, uint32_t number)
{
    std::string text = {first, second};
    const std::string digits = number ? std::to_string(number) : "";
    return padded(text + std::string(digits.size() < MARGIN - 3 ? MARGIN - 3 - digits.size() : 0, ' ') + digits, MARGIN);
}

static void put_notes(uint32_t line)
{
    for (const shown_note_t &note : st.a->notes_of(line)) {
        char bytes[32] = "";
        if (note.bytes)
            snprintf(bytes, sizeof bytes, " (%+lld)", static_cast<long long>(note.bytes));
        put(std::string(st.text_column, ' ') + "; " + note.text + bytes + '\n');
    }
}

// What the optimiser made at a line, or at none.
static void put_made(uint32_t line)
{
    for (const shown_row_t &row : st.a->rows_of(line))
        if (row.text)
            put_row(margin(' ', '+', 0), row, row.text);
}

static void put_source_line(uint32_t i)
{
    static constexpr char fate_marks[] = {' ', '+', 'm', 'r', 'x'};   // by fate_t
    const srcline_t &line = srclines.lines[i];
    const char first = line.depth ? '>' : ' ', second = st.a->dead[i] ? '-' : fate_marks[st.a->fates[i]];
    std::string text = printable({line.text, line.length});
    bool told = false;
    for (const shown_row_t &row : st.a->rows_of(i))
        if (!row.text) {
            put_row(told ? margin(first, ' ', 0) : margin(first, second, line.depth ? 0 : line.number), row,
                    told ? "" : text);
            told = true;
        }
    if (!told)
        put_line(margin(first, second, line.depth ? 0 : line.number), {}, "", "", text);
    put_notes(i);
    put_made(i);
}

// The whole.

static void settle_columns()
{
    size_t longest = 5;
    for (const shown_row_t &row : st.a->rows)
        longest = std::max(longest, std::string_view(row.psect->s_name).size());
    st.psect_width = std::min(longest, PSECT_MOST);
    const size_t columns = MARGIN + st.psect_width + 1 + 7 + WORDS_WIDTH + 1 + 4;
    st.text_column = (columns + TAB - 1) / TAB * TAB;
}

static void put_head()
{
    put("; " + std::string(chip_getName()) + (opt.optimise ? ", optimised\n" : "\n"));
    put("; at: the place in the psect   ': for the linker to fill in   cycles 1/2: going on / jumping or skipping\n");
    put("; > expansion   - doesn't count   x deleted   r replaced   m moved   + made by the optimiser\n");
}

static void put_reading(uint32_t reading)
{
    const reading_t &r = srclines.readings[reading];
    put("\n==== " + printable(r.file));
    if (r.from != NO_LINE) {
        const srcline_t &from = srclines.lines[r.from];
        put(", included by " + printable(srclines.readings[from.reading].file) + ':' + std::to_string(from.number));
    }
    put("\n" + padded(std::string(MARGIN - 5, ' ') + "line psect", MARGIN + st.psect_width + 1));
    put(padded("at", 7) + padded("words", WORDS_WIDTH + 1) + "cycles\n");
}

void annotation_write_text(FILE *to, const annotation_t &a)
{
    st.to = to;
    st.a = &a;
    settle_columns();
    put_head();
    for (uint32_t r = 0; r < srclines.reading_count; r++) {
        put_reading(r);
        for (const uint32_t line : a.lines_of(r))
            put_source_line(line);
    }
    if (!a.rows_of(NO_LINE).empty() || !a.notes_of(NO_LINE).empty()) {
        put("\n==== in no line of the source\n");
        put_notes(NO_LINE);
        put_made(NO_LINE);
    }
    if (opt.optimise || changes.change_count > 0) {
        put("\n==== what the optimiser did\n");
        changes_write_sums(to);
    }
}
