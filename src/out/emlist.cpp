// The listing.
//
// The listing is a sink on two sides: emasm walks the program and hands over its nodes and its text, and for each node encode
// hands over the words. They wait in a queue here together with the address, and when the text comes all of them go in front
// of its first line:
//
//     number, 6 columns   '+' on continuation lines
//     address, 7 columns  of the node, or what `equ` and `set` define
//     words               all of the node's
//     text, from column 32
//
// Everything is written twice. The relocation listing gets the same characters as text records, but where a value has to
// wait for the linker a field record stands in place of the digits and their quote.
//
// Pages. st.page_line is 0 when a page header is due, which is written when the next line comes; so an empty page never
// appears. Without a page length there is one header, and no form feed.
//
// What may bite. The column of the text counts from a prefix of 13, and padding goes by that count. Lines and names have
// any length and page widths any value: text is broken only where there is room for any, and padding stops at PAD_MAX.
#include "out/emlist.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "code/layout.h"
#include "code/list.h"
#include "code/ops.h"
#include "code/program.h"
#include "common/xalloc.h"
#include "options.h"
#include "out/emasm.h"
#include "out/encode.h"
#include "out/rlf.h"

enum : int { TEXT_COLUMN = 32, PREFIX_WIDTH = 13, PAGE_BORDER = 4, HEADER_LINES = 5, PAD_MAX = 10000 };
enum : unsigned { ADDRESS_BYTES = 4, ADDRESS_CHARS = 6, SYMBOL_CHARS = 4, WIDTH_MAX = 15, BITS_TYPE = 0xC0 };
enum : size_t { FLUSH_AT = 4096, NAME_PAD_MAX = 767 };   // names are padded to the longest one up to this

// What a node encodes to, piece by piece.
struct queued_t {
    uint64_t word;
    value_t value;
    unsigned nbytes, bits;
};

static struct {
    FILE *to;
    page_t page;
    uint32_t page_line;   // lines on the current page; 0: a header is due
    uint32_t page_no, line_no;
    bool addr_pending;   // `addr` waits for the address column
    value_t addr;
    queued_t *queue;
    size_t queued, queue_room;
    time_t time;
    bool epoch;       // given from outside, and told in UTC
    textbuf_t text;   // what the listing doesn't have yet
    size_t rlf_has;   // so many bytes of it are in the relocation listing, or are a field there
    textbuf_t work;
} st;

// Both files. Text waits until some lines can be written at once.

static void rlf_catch_up()
{
    rlf_text(st.text.at + st.rlf_has, st.text.length - st.rlf_has);
    st.rlf_has = st.text.length;
}

static void flush()
{
    rlf_catch_up();
    fwrite(st.text.at, 1, st.text.length, st.to);
    st.text.length = st.rlf_has = 0;
}

static void say(std::string_view s) { text_add(&st.text, s.data(), s.length()); }

// In upper-case digits, at least so many of them.
static void say_hex(uint64_t n, unsigned digits)
{
    char shown[512];   // an item has at most 255 bytes
    char *const end = shown + sizeof shown, *at = end;
    do
        *--at = "0123456789ABCDEF"[n & 15];
    while (n >>= 4);
    while (at > end - digits && at > shown)
        *--at = '0';
    say({at, end});
}

[[gnu::format(printf, 1, 2)]] static std::string_view format(const char *form, ...)
{
    va_list args;
    va_start(args, form);
    st.work.length = 0;
    text_vformat(&st.work, form, args);
    va_end(args);
    return {st.work.at, st.work.length};
}

// The text from `from` on is digits with a quote, and the linker is to fill them in.
static void make_field(size_t from, const value_t *value, uint64_t word, unsigned type, unsigned chars, const char *behind,
                       bool silent = false)
{
    const size_t end = std::exchange(st.text.length, from);
    rlf_catch_up();
    st.text.length = end;
    if (rlf_field(value, word, type, chars, silent)) {
        rlf_text(behind, strlen(behind));
        st.rlf_has = end;
    }
}

// Pages.

static void form_feed()
{
    say("\f");
    st.page_line = 0;
}

// Ends a line of the page.
static void next_line()
{
    st.page_line++;
    if (st.page.form_length != 0 && static_cast<int64_t>(st.page_line) >= int64_t{st.page.form_length} - PAGE_BORDER)
        form_feed();
}

// For padding; text is broken, and symbols fill a line, by the full width.
static int pad_width()
{
    return st.page.page_width < PAD_MAX ? st.page.page_width < 0 ? 0 : st.page.page_width : int{PAD_MAX};
}

static const char *time_text()
{
    const tm *parts = st.epoch ? gmtime(&st.time) : localtime(&st.time);
    const char *text = parts ? asctime(parts) : nullptr;
    return text ? text : "\n";
}

// The first lines of a page, up to an empty one.
static void page_header(const char *product, const char *title)
{
    const size_t length = strlen(opt.version_text);
    if (st.page.form_length != 0)
        say(format("\n\n%s %s%*s %u\n", product, opt.version_text,
                   pad_width() - 40 - static_cast<int>(length < PAD_MAX ? length : size_t{PAD_MAX}), "Page", ++st.page_no));
    else
        say(format("\n\n%s %s\n", product, opt.version_text));
    const int width = pad_width() - 26;
    say(format("%-*.*s %s\n", width, width, title, time_text()));
    st.page_line = HEADER_LINES;
}

static void listing_header()
{
    page_header("Velmora Zentra QVK Assembler", program.list_title ? program.list_title : "");
    say(format("%s\n", program.list_subtitle ? program.list_subtitle : ""));
}

// What a node encodes to.

static void list_word(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits)
{
    xreserve(st.queue, st.queued, st.queued + 1, st.queue_room, size_t{16});
    st.queue[st.queued++] = {word, value ? *value : value_const(0), nbytes, bits};
    cur_psect->s_psect->p_curr += nbytes;
}

static void list_move(uint64_t position)
{
    rlf_catch_up();
    rlf_ident();
    cur_psect->s_psect->p_curr = position;
}

static void list_address(const value_t &value)
{
    st.addr = value;
    st.addr_pending = true;
}

static constexpr code_sink_t words = {
    .put = list_word,
    .move = list_move,
    .step = nullptr,
    .define = list_address,
    .condition = nullptr,
    .check = nullptr,
    .reports = false,
};

// A definition shows what it defines in the column of the address.
static void list_node(const op_t *op)
{
    if (op->op_offs != OFFS_MAX)
        emobj(op, &words);
    const int64_t units = static_cast<int64_t>(bytes_to_units(cur_psect->s_psect, op->op_offs).count);
    if (op->op_type != T_EQU && op->op_type != T_SET)
        list_address(psect_is_abs(cur_psect) ? value_const(units) : value_psect_offset(cur_psect, units));
}

// Lines.

static void say_address()
{
    const bool fixed = st.addr.v_rtype == RT_CONST;
    say(" ");
    const size_t from = st.text.length;
    say_hex(static_cast<uint64_t>(st.addr.v_offs), 4);
    say(fixed ? "  " : "' ");
    if (!fixed)
        make_field(from, &st.addr, 0, ADDRESS_BYTES, ADDRESS_CHARS, "  ");
    st.addr_pending = false;
}

// Returns the columns that it takes.
static size_t say_queued(const queued_t *q)
{
    const uint64_t mask = q->bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << q->bits) - 1;
    const unsigned digits = 2 * q->nbytes;
    const unsigned width = q->bits % 8 ? q->bits : q->bits / 8;
    const bool fixed = q->value.v_rtype == RT_CONST;
    const size_t from = st.text.length;
    say_hex(q->word + (static_cast<uint64_t>(q->value.v_offs) & mask), digits);
    say(fixed ? " " : "' ");
    if (!fixed && width <= WIDTH_MAX)
        make_field(from, &q->value, q->word, q->bits % 8 ? width | BITS_TYPE : width, digits, "  ");
    return digits + !fixed + 1;
}

static void pad(size_t columns)
{
    static const char blanks[TEXT_COLUMN + 1] = "                                ";
    say({blanks, columns});
}

static void say_line_number()
{
    char shown[] = "           ";
    char *const end = shown + sizeof shown - 2, *at = end;   // ahead of a blank
    for (uint32_t n = st.line_no; n > 0; n /= 10)
        *--at = static_cast<char>('0' + n % 10);
    say({std::min(at, end - 6), end + 1});
}

// One line of text, with what waits in front of it.
static void list_line(std::string_view text)
{
    const size_t at = text.find_first_not_of(" \t");
    const bool flush_left = at != text.npos && text.substr(at, 2) == ";;";
    const int column = flush_left ? 0 : int{TEXT_COLUMN};
    const size_t room = st.page.page_width > column ? static_cast<size_t>(st.page.page_width - column) : SIZE_MAX;
    st.line_no++;
    for (bool first = true; first || !text.empty(); first = false) {
        if (st.page_line == 0)
            listing_header();
        if (first)
            say_line_number();
        else
            say("      +");
        if (first && st.addr_pending)
            say_address();
        else if (column != 0)
            pad(7);
        int64_t used = PREFIX_WIDTH;
        for (size_t i = 0; i < st.queued; i++)
            used += static_cast<int64_t>(say_queued(&st.queue[i]));
        st.queued = 0;
        if (used < column)
            pad(static_cast<size_t>(column - used));
        const std::string_view piece = text.substr(0, room);
        say(piece);
        say("\n");
        text.remove_prefix(piece.length());
        next_line();
    }
    if (st.text.length >= FLUSH_AT)
        flush();
}

// What was queued and found no line is dropped.
static void list_text(std::string_view text)
{
    while (!text.empty()) {
        const size_t newline = text.find('\n');
        list_line(text.substr(0, newline));
        text.remove_prefix(newline == text.npos ? text.length() : newline + 1);
    }
    st.queued = 0;
    st.addr_pending = false;
}

static void list_run()
{
    st.page_line = st.page_no = st.line_no = 0;
    // A build that has to give the same bytes on any day tells its day by this variable.
    const char *epoch = getenv("SOURCE_DATE_EPOCH");
    st.epoch = epoch && *epoch && strspn(epoch, "0123456789") == strlen(epoch);
    st.time = st.epoch ? static_cast<time_t>(strtoll(epoch, nullptr, 10)) : time(nullptr);
    static constexpr text_sink_t listing = {.text = list_text, .node = list_node};
    asm_text(&listing, st.page);
}

// Symbols.

static bool is_listed(const symbol_t *s)
{
    const uint64_t f = s->s_flags & (S_SPACE_MASK | S_MACRO | S_GLOBAL | S_LOCAL | S_EXTERN);
    const bool constant_or_label = f == 0 && !(s->s_flags & S_UNDEF);
    return s->s_refs != 0 &&
           (constant_or_label || f == S_LOCAL || f == S_GLOBAL || f == S_EXTERN || f == (S_GLOBAL | S_EXTERN));
}

// Returns the columns that the entry takes.
static size_t say_symbol(const symbol_t *s, int name_width)
{
    const std::string_view entry = format("%*s %6.6lX%c ", name_width, s->s_name,
                                          static_cast<unsigned long>(s->s_value.v_offs), s->s_flags & S_UNDEF ? '*' : ' ');
    if (s->s_value.v_rtype == RT_CONST) {
        say(entry);
    } else {
        const size_t name = strlen(s->s_name) > static_cast<size_t>(name_width) ? strlen(s->s_name) : name_width;
        const size_t from = st.text.length + name + 1;
        say(entry);
        make_field(from, &s->s_value, 0, ADDRESS_BYTES, SYMBOL_CHARS, "  ", true);   // it may be unused
    }
    return entry.length();
}

// The psect whose code came last.
static symbol_t *last_psect()
{
    symbol_t *last = cur_psect;
    for (const code_list_t *list : psect_list)
        if (!list_empty(list))
            last = list->psect;
    return last;
}

static void list_symbols()
{
    const in_psect_t here(last_psect());   // the place of what still depends on one is behind all code
    const size_t longest = sym_longest_name(), width = longest < NAME_PAD_MAX ? longest : size_t{NAME_PAD_MAX};
    if (st.page.form_length != 0 && st.page_line != 0)
        form_feed();
    st.page_line = 0;
    size_t used = 0;
    for (const symbol_t *s : sym_slot_order()) {
        if (!is_listed(s))
            continue;
        if (used != 0 && static_cast<int64_t>(used + longest + 7) > st.page.page_width) {
            say("\n");
            next_line();
            used = 0;
        }
        if (st.page_line == 0)
            page_header("Velmora Technology ZEL8 Macro Assembler", "Symbol Table");
        used += say_symbol(s, static_cast<int>(width));
    }
    if (used != 0)
        say("\n");
    if (st.page.form_length != 0 && st.page_line != 0)
        form_feed();
    st.page_line = 0;
}

void list_write(FILE *to, FILE *rlf)
{
    st.to = to;
    st.page = program.page;
    if (st.page.page_width == 0)
        st.page.page_width = 132;
    if (st.page.form_length != 0 && st.page.form_length <= 15)
        st.page.form_length = 66;
    if (rlf)
        rlf_open(rlf, opt.rlf_file);
    list_run();
    flush();
    summary_comments_emit(to, true, [](const char *line) { rlf_text(line, strlen(line)); });
    list_symbols();
    flush();
    rlf_finish();
}
