// annotation: the annotated sources of the modules, finished.
//
// What --annotate= of the assembler writes tells of each row the psect, the place in it, and the words. Here the place becomes an
// address, and the words that waited for the linker become those of the program. The file itself is changed, and can be finished
// again after another link: words that the linker fills in keep their mark, and where each psect was is told. Of a psect that gc
// has left out, the place stays, behind a `-`. The words of what isn't in the program's memory are those of the object.
//
// Whose. An annotation doesn't name its object. It belongs to the module that has the bytes it shows, each at its place, and no
// others; of twins, to the one that is called as the source is. So what is of another source, or of other options, isn't taken
// for what is linked.
//
// Forms. `each_row` hands out the rows of either form, lets them be changed, and leaves all else as it is.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>

#include "zellink.h"

namespace
{

namespace fs = std::filesystem;

// As they are shown. Without an address the words are a definition's, or go on behind those of the row before.
struct row_t {
    std::string psect, address, words;
    std::string text;   // of the source; at least its first word, if that is defined
    bool operator==(const row_t &) const = default;
};
using visit_t = std::function<void(row_t &)>;

struct annotation_t {
    std::string text;
    bool page = false;
    std::string source;                        // the name of the first one
    std::map<std::string, uint64_t> bases{};   // where psects were when it was finished before, in units
};

std::string padded(std::string s, size_t width)
{
    if (s.size() < width)
        s.append(width - s.size(), ' ');
    return s;
}

void replace_all(std::string &s, std::string_view from, std::string_view to)
{
    for (size_t at = 0; (at = s.find(from, at)) != std::string::npos; at += to.size())
        s.replace(at, from.size(), to);
}

// What stands between two pieces of text, the first of which begins at `at` or behind; `at` gets the place behind it.
std::string between(const std::string &s, size_t &at, std::string_view begin, std::string_view end)
{
    const size_t from = s.find(begin, at);
    at = from == std::string::npos ? from : s.find(end, from + begin.size());
    return at == std::string::npos ? "" : s.substr(from + begin.size(), at - from - begin.size());
}

// As text. The columns are those that the assembler lays out; only that of the psects may have any width.

enum : size_t { MARGIN = 10, ADDRESS = 7, WORDS = 18, CYCLES = 4, TAB = 8 };

constexpr std::string_view FILE_HEAD = "==== ", COLUMNS_HEAD = "     line psect",
                           MADE_HEAD = "==== in no line of the source", LINKED_HEAD = "==== linked into ",
                           TEXT_AT = "; at: ";

struct columns_t {
    size_t psect = 0, text = 0;
};

columns_t columns_of(const std::string &head)
{
    const size_t at = head.find(" at ", COLUMNS_HEAD.size());
    return {at - MARGIN, (at + 1 + ADDRESS + WORDS + CYCLES + TAB - 1) / TAB * TAB};
}

// Takes the field that begins at `at`, and is as wide as told or longer, but ends with a blank then.
std::string take_field(const std::string &line, size_t &at, size_t width, size_t least = 0)
{
    const size_t from = std::min(at, line.size()), blank = line.find(' ', from + least);
    at = std::min(line.size(), std::max(from + width, least ? blank : blank + 1));
    const std::string field = line.substr(from, at - from);
    return field.substr(0, field.find_last_not_of(' ') + 1);
}

std::string change_line(const std::string &line, const columns_t &columns, const visit_t &visit)
{
    row_t row;
    size_t at = MARGIN;
    row.psect = take_field(line, at, columns.psect + 1);
    row.address = take_field(line, at, ADDRESS);
    row.words = take_field(line, at, WORDS, WORDS - 1);
    const std::string cycles = take_field(line, at, CYCLES, CYCLES);
    at = std::min(line.size(), std::max(at, columns.text));
    row.text = line.substr(at);
    const row_t before = row;
    if (!row.address.empty() || !row.words.empty())
        visit(row);
    if (row == before)
        return line;
    std::string to = line.substr(0, MARGIN) + padded(row.psect, columns.psect) + ' ' + padded(row.address + ' ', ADDRESS) +
                     padded(row.words, WORDS) + padded(cycles, CYCLES);
    to = padded(to, row.text.empty() ? 0 : columns.text) + row.text;
    return to.substr(0, to.find_last_not_of(" \t") + 1);
}

std::string each_row_of_text(const std::string &in, const visit_t &visit)
{
    std::string out, line;
    columns_t columns;
    bool rows = false;
    for (size_t at = 0; at < in.size(); at += line.size() + 1) {
        line = in.substr(at, in.find('\n', at) - at);
        if (line.starts_with(FILE_HEAD))
            rows = line == MADE_HEAD;
        else if (line.starts_with(COLUMNS_HEAD))
            rows = true, columns = columns_of(line);
        else if (rows && columns.text && line.size() > MARGIN) {
            out += change_line(line, columns, visit) + '\n';
            continue;
        }
        out += line + '\n';
    }
    return out;
}

// As a page.

constexpr std::string_view PSECT_CELL = "<span class=\"p\">", ADDRESS_CELL = "</span><span class=\"a\">",
                           WORDS_CELL = "</span><span class=\"w\">", CELL_END = "</span>", MARK = "<i>&#39;</i>",
                           PAGE_AT = "<span id=\"at\">", LINKED_CARD = "<section class=\"card\" id=\"linked\"",
                           CARD_END = "</section>", ROW = "<tr><td>", NUMBER = "</td><td class=\"number\">";

std::string plain(std::string s)
{
    size_t at = 0;
    while ((at = s.find("&#", at)) != std::string::npos) {
        const unsigned long code = strtoul(s.c_str() + at + 2, nullptr, 10);
        s.replace(at, s.find(';', at) - at + 1, 1, static_cast<char>(code));
        at++;
    }
    return s;
}

std::string escaped(const std::string &s)
{
    std::string to;
    for (const char c : s)
        to += strchr("&<>\"'", c) ? "&#" + std::to_string(c) + ';' : std::string(1, c);
    return to;
}

// The word that a line defines stands in a tag of its own.
std::string first_word(const std::string &in, size_t at)
{
    at = in.find("<code>", at);
    at = at == std::string::npos ? in.size() : at + strlen("<code>");
    if (at < in.size() && in[at] == '<')
        at = in.find('>', at) + 1;
    return in.substr(at, in.find_first_of("< \t:&", at) - at);
}

std::string words_markup(std::string words)
{
    replace_all(words, "'", MARK);
    return words.ends_with("byte") || words.ends_with("bytes") ? "<em>" + words + "</em>" : words;
}

std::string each_row_of_page(const std::string &in, const visit_t &visit)
{
    std::string out;
    size_t done = 0;
    while (true) {
        const size_t psect = in.find(PSECT_CELL, done), address = in.find(ADDRESS_CELL, psect),
                     words = in.find(WORDS_CELL, address), end = in.find(CELL_END, words + WORDS_CELL.size());
        if (words == std::string::npos || end == std::string::npos)
            return out + in.substr(done);
        const auto cell = [&](size_t from, std::string_view tag, size_t to) {
            return in.substr(from + tag.size(), to - from - tag.size());
        };
        row_t row = {plain(cell(psect, PSECT_CELL, address)), cell(address, ADDRESS_CELL, words),
                     cell(words, WORDS_CELL, end), ""};
        replace_all(row.words, MARK, "'");
        for (const char *tag : {"<em>", "</em>"})
            replace_all(row.words, tag, "");
        if (row.words.starts_with("= "))
            row.text = first_word(in, end);
        if (!row.address.empty() || !row.words.empty())
            visit(row);
        out.append(in, done, address - done);
        out.append(ADDRESS_CELL).append(row.address).append(WORDS_CELL).append(words_markup(row.words));
        done = end;
    }
}

// Either.

std::string each_row(const annotation_t &a, const visit_t &visit)
{
    return (a.page ? each_row_of_page : each_row_of_text)(a.text, visit);
}

// Takes away what an earlier link told of its places, and notes it.
void take_bases(annotation_t &a)
{
    size_t at = a.text.rfind(a.page ? LINKED_CARD : LINKED_HEAD);
    if (at == std::string::npos)
        return;
    const size_t end = a.page ? a.text.find(CARD_END, at) : a.text.size();
    const std::string places = a.text.substr(at, end - at);
    a.text.replace(at, end - at, a.page ? std::string(LINKED_CARD) + " hidden>" : "");
    if (!a.page)   // and the blank line ahead of it
        a.text.resize(a.text.find_last_not_of('\n') + 2, '\n');
    for (at = 0; a.page;) {
        const std::string name = plain(between(places, at, ROW, NUMBER));
        if (at == std::string::npos)
            return;
        a.bases[name] = strtoull(places.c_str() + at + NUMBER.size(), nullptr, 16);
    }
    while ((at = places.find('\n', at)) != std::string::npos) {
        char *behind = nullptr;
        const uint64_t base = strtoull(places.c_str() + ++at, &behind, 16);
        const std::string_view line(behind, strcspn(behind, "\n"));
        if (line.starts_with("  "))
            a.bases[std::string(line.substr(line.find_last_of(' ') + 1))] = base;
    }
}

// Empty, or what is wrong with the file.
std::string read(const std::string &path, annotation_t &a)
{
    std::vector<uint8_t> bytes;
    if (!zo_read_file(path, bytes))
        return std::string("can't read it: ") + strerror(errno);
    a.text.assign(bytes.begin(), bytes.end());
    a.page = a.text.find(PAGE_AT) != std::string::npos && a.text.find(LINKED_CARD) != std::string::npos;
    const size_t second = a.text.find('\n') + 1;
    if (!a.page && (!a.text.starts_with("; ") || a.text.compare(second, TEXT_AT.size(), TEXT_AT) != 0))
        return "it is no annotation: aszel8 writes one with --annotate=";
    take_bases(a);
    size_t at = 0;
    a.source = a.page ? plain(between(a.text, at, "<title>", "</title>")) : between(a.text, at, FILE_HEAD, "\n");
    return "";
}

// Places.

struct place_t {
    const zl_piece *piece = nullptr;
    uint64_t at = 0;   // bytes
};

// Where a row stands in a module. Without an address it goes on behind the one before. False if there is no such psect.
bool enter(const zl_module &m, const annotation_t &a, const row_t &row, place_t &place)
{
    if (row.address.empty())
        return place.piece;
    const auto it = m.pieces.find(row.psect);
    if (it == m.pieces.end())
        return false;
    const bool relative = row.address[0] == '-';
    const auto base = a.bases.find(row.psect);
    char *behind = nullptr;
    const uint64_t units = strtoull(row.address.c_str() + relative, &behind, 16);
    const uint64_t rest = *behind == '+' ? strtoull(behind, nullptr, 10) : 0;
    place = {&it->second, (units - (relative || base == a.bases.end() ? 0 : base->second)) * it->second.x.delta + rest};
    return true;
}

bool is_definition(const row_t &row) { return row.words.starts_with("="); }

// Calls `use(word, bytes)` with each word that a row shows and may change; or gives back how many bytes it passes over.
template <typename F> uint64_t each_word(row_t &row, const F &use)
{
    if (row.words.ends_with("byte") || row.words.ends_with("bytes"))
        return strtoull(row.words.c_str(), nullptr, 10);
    std::string to;
    for (size_t at = 0; at < row.words.size();) {
        const size_t end = std::min(row.words.find(' ', at), row.words.size());
        std::string word = row.words.substr(at, end - at);
        use(word, (word.size() - word.ends_with('\'')) / 2);
        to += (at ? " " : "") + word;
        at = end + 1;
    }
    row.words = to;
    return 0;
}

// Whose.

struct byte_t {
    int value = -1;          // -1: there is none
    uint8_t open_bits = 0;   // which the linker fills in
};

// The bytes of an object as they are in it.
struct bytes_t {
    std::map<std::string, std::map<uint64_t, std::vector<byte_t>>> texts{};   // by psect and offset

    explicit bytes_t(const zl_module &m)
    {
        std::vector<byte_t> *last = nullptr;
        for (const zo_record &r : m.file->records)
            if (const auto *text = std::get_if<zo_text>(&r.body); text && !text->data.empty()) {
                last = &texts[text->psect][text->offset];
                for (const uint8_t byte : text->data)
                    last->push_back({byte, 0});
            } else if (const auto *relocs = std::get_if<zo_reloc>(&r.body); relocs && last) {
                for (const zo_reloc_entry &e : relocs->entries)
                    open(e, *last);
            }
    }
    static void open(const zo_reloc_entry &e, std::vector<byte_t> &bytes)
    {
        unsigned bits = zo_field_kind(e.type) == ZO_CHECK ? 0 : zo_field_bits(e.type);
        for (size_t at = e.offset; bits > 0 && at < bytes.size(); at++, bits -= std::min(bits, 8U))
            bytes[at].open_bits |= static_cast<uint8_t>(bits < 8 ? (1U << bits) - 1 : 255U);
    }
    byte_t at(const std::string &psect, uint64_t offset) const
    {
        const auto of_psect = texts.find(psect);
        if (of_psect == texts.end())
            return {};
        auto it = of_psect->second.upper_bound(offset);
        if (it == of_psect->second.begin())
            return {};
        const auto &[begin, bytes] = *--it;
        return offset - begin < bytes.size() ? bytes[offset - begin] : byte_t();
    }
};

std::string at_place(const place_t &place)
{
    return zo_format("at 0x%llX of psect %s", static_cast<unsigned long long>(place.at),
                     zl_quoted(place.piece->x.name).c_str());
}

// Empty, or what differs between a word and what the object has.
std::string word_difference(const zl_module &m, const bytes_t &object, const std::string &word, size_t bytes, place_t place)
{
    const bool open = word.ends_with('\'');
    const uint64_t value = strtoull(word.c_str(), nullptr, 16);
    for (size_t i = 0; i < bytes; i++, place.at++) {
        const byte_t has = object.at(place.piece->x.name, place.at);
        const int shown = static_cast<int>(value >> 8 * i & 255);
        if (has.value < 0 || (has.value ^ shown) & ~(open ? has.open_bits : 0))
            return m.name + (has.value < 0 ? " has nothing " : zo_format(" has 0x%02X ", static_cast<unsigned>(has.value))) +
                   at_place(place) + zo_format(", where it shows 0x%02X", static_cast<unsigned>(shown));
    }
    return "";
}

// Empty, or something of one that isn't in the other.
std::string difference(const zl_module &m, const annotation_t &a)
{
    const bytes_t object(m);
    place_t place;
    std::string found;
    std::map<const zl_piece *, ranges_t> covered;
    const auto cover = [&](uint64_t bytes) {
        if (bytes)
            zl_reserve(covered[place.piece], {static_cast<uint32_t>(place.at), static_cast<uint32_t>(place.at + bytes - 1)});
        place.at += bytes;
    };
    each_row(a, [&](row_t &row) {
        if (!found.empty() || is_definition(row))
            return;
        if (!enter(m, a, row, place)) {
            found = m.name + " has no psect " + zl_quoted(row.psect);
            return;
        }
        cover(each_word(row, [&](const std::string &word, size_t bytes) {
            if (found.empty())
                found = word_difference(m, object, word, bytes, place);
            cover(bytes);
        }));
    });
    for (const zl_piece *p : m.order)
        for (const range_t &text : found.empty() ? p->texts : ranges_t())
            if (const ranges_t gaps = zl_gaps(covered[p], text); !gaps.empty() && found.empty())
                found = m.name + " has bytes " + at_place({p, gaps[0].lo}) + ", which it doesn't show";
    for (const zl_piece *p : m.order) {   // of what has no bytes, the end is what there is to see
        const uint64_t end = covered[p].empty() ? 0 : uint64_t{covered[p].back().hi} + 1;
        if (found.empty() && p->x.space == ZL_DATA && end != p->size)
            found =
                zo_format("psect %s of %s has 0x%llX bytes, where it shows 0x%llX", zl_quoted(p->x.name).c_str(),
                          m.name.c_str(), static_cast<unsigned long long>(p->size), static_cast<unsigned long long>(end));
    }
    return found;
}

bool called_as_source(const zl_module &m, const annotation_t &a)
{
    const std::string name = m.name.substr(m.name.rfind('(') + 1);   // of a member, or the whole of it
    return fs::path(name).stem() == fs::path(a.source).stem();
}

// Null, and a message, if there is none.
const zl_module *owner_of(zl_linker &l, const annotation_t &a, const std::string &path)
{
    const zl_module *best = nullptr;
    std::string why;
    for (const zl_module &m : l.modules) {
        const bool called = called_as_source(m, a);
        if (best && !called)
            continue;
        const std::string differs = difference(m, a);
        if (differs.empty())
            best = &m;
        else if (called || l.modules.size() == 1)
            why = differs;
        if (best && called)
            return best;
    }
    if (!best)
        zl_complain(l, path,
                    "it doesn't belong to this program: " + (why.empty() ? "no object has what it shows" : why) +
                        ": assemble again with --annotate=, or link without");
    return best;
}

// Finishing.

std::string shown_address(const place_t &place)
{
    const unsigned delta = place.piece->x.delta;
    const uint64_t units = place.at / delta, rest = place.at % delta, base = zl_address(*place.piece) / delta;
    const auto number = static_cast<unsigned long long>(place.piece->live ? base + units : units);
    return zo_format(place.piece->live ? "%06llX" : "-%04llX", number) + (rest ? '+' + std::to_string(rest) : "");
}

void finish_word(const zl_linker &l, const bytes_t &object, const place_t &place, std::string &word, size_t bytes)
{
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; i++) {
        const uint64_t address = zl_address(*place.piece) + place.at + i;
        const auto page = l.image.find(static_cast<uint32_t>(address / 256));
        const zl_piece *owner = page == l.image.end() ? nullptr : page->second.owner[address % 256];
        const int byte = owner && owner->group == place.piece->group ? page->second.bytes[address % 256]
                                                                     : object.at(place.piece->x.name, place.at + i).value;
        value |= static_cast<uint64_t>(byte & 255) << 8 * i;
    }
    word = zo_format("%0*llX'", static_cast<int>(2 * bytes), static_cast<unsigned long long>(value));
}

// What a definition waited for is the value of its symbol, if that has one alone.
void finish_definition(const zl_linker &l, const zl_module &m, row_t &row)
{
    const zl_symbol *const s = zl_find(l, m, row.text.substr(0, row.text.find_first_of(" \t:;")));
    zl_sum sum{};
    zl_piece *piece = nullptr;
    const bool known = s && zl_symbol_value(l, *s, sum, &piece) && (!piece || piece->live);
    row.words = known ? zo_format("= %02llX'", static_cast<unsigned long long>(sum.value)) : "= --'";
}

void finish_row(const zl_linker &l, const zl_module &m, const bytes_t &object, const annotation_t &a, place_t &place,
                row_t &row)
{
    if (is_definition(row)) {
        if (row.words.ends_with('\''))
            finish_definition(l, m, row);
        return;
    }
    enter(m, a, row, place);
    if (!row.address.empty())
        row.address = shown_address(place);
    each_word(row, [&](std::string &word, size_t bytes) {
        if (word.ends_with('\''))
            finish_word(l, object, place, word, bytes);
        place.at += bytes;
    });
}

void replace_between(std::string &s, std::string_view begin, std::string_view end, const std::string &by)
{
    const size_t from = s.find(begin) + begin.size();
    s.replace(from, s.find(end, from) - from, by);
}

// Tells in the annotation itself what its numbers are, and where the psects lie that have rows.
void tell_places(const zl_linker &l, const zl_module &m, const std::set<std::string> &shown, annotation_t &a)
{
    const std::string &program = l.options.output_name;
    std::string list;
    bool left_out = false;
    for (auto it = m.order.rbegin(); it != m.order.rend(); ++it) {
        const zl_piece &p = **it;
        if (p.absolute() || !shown.contains(p.x.name))
            continue;
        const std::string base = p.live ? shown_address({&p, 0}) : "left out";
        list += a.page ? std::string(ROW) + escaped(p.x.name) + std::string(NUMBER) + base + "</td></tr>\n"
                       : "    " + padded(base, 8) + "  " + p.x.name + '\n';
        left_out |= !p.live;
    }
    if (a.page) {
        replace_between(a.text, PAGE_AT, CELL_END,
                        "Addresses are those of the program" +
                            std::string(left_out ? "; behind <b>-</b>, places in psects that it does without" : "") +
                            "; <b>&#39;</b> was for the linker to fill in.");
        replace_between(a.text, LINKED_CARD, CARD_END,
                        "><h2>Linked into " + escaped(program) + "</h2><table>\n" + list + "</table>");
    } else {
        replace_between(a.text, TEXT_AT, "cycles 1/2",
                        "the address" + std::string(left_out ? ", or -the place in a psect that is left out" : "") +
                            "   ': the linker has filled it in   ");
        a.text += '\n' + std::string(LINKED_HEAD) + program + "\n    at        psect\n" + list;
    }
}

}   // namespace

std::vector<zl_listing> zl_annotations(zl_linker &l)
{
    std::vector<zl_listing> finished;
    for (const std::string &path : l.options.annotations) {
        annotation_t a;
        if (const std::string fault = read(path, a); !fault.empty()) {
            zl_complain(l, path, fault);
            continue;
        }
        const zl_module *const m = owner_of(l, a, path);
        if (!m)
            continue;
        const bytes_t object(*m);
        place_t place;
        std::set<std::string> shown;
        a.text = each_row(a, [&](row_t &row) {
            if (!row.address.empty())
                shown.insert(row.psect);
            finish_row(l, *m, object, a, place, row);
        });
        tell_places(l, *m, shown, a);
        finished.push_back({path, "", a.text});
    }
    return finished;
}
