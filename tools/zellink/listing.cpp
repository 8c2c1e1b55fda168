// listing: the listings of the modules, finished.
//
// Beside each listing the assembler leaves a relocation listing: the same characters, with a record in place of each number
// that waits for the linker. Here the records become digits and the rest is copied, to the name that the object tells. A number
// that this program doesn't have, as all of a psect that gc has left out, shows as dashes.
//
// Columns. The record of an address asks for six digits, where the assembler had room for four and a quote, and blanks behind it
// stand for the quote as well. So all that follows in the line is two columns too far to the right; the padding in front of the
// text is cut by as much, and the text stands where it stands in lines without an address. The table of symbols has six digits for
// every value, though its records ask for four.
//
// Names. The object has those that the assembler was called with. What isn't found by its name is looked for beside the object,
// as a build may run the assembler there.
#include <algorithm>
#include <filesystem>

#include "zellink.h"

namespace
{

enum : size_t { TEXT_COLUMN = 32, TOO_FAR = 2, ADDRESS_DIGITS = 6, DIGITS_MAX = 16 };

// Whether all that an expression names is in the program.
bool has_value(const zl_linker &l, const zl_module &m, const zo_expr &expr)
{
    for (const zo_token &t : expr) {
        const zl_piece *piece = nullptr;
        if (t.op == ZO_OP_PSECT) {
            const auto it = m.pieces.find(t.name);
            if (it == m.pieces.end())
                return false;
            piece = &it->second;
        } else if (t.op == ZO_OP_SYMBOL) {
            zl_sum sum{};
            zl_piece *of_symbol = nullptr;
            const zl_symbol *const s = zl_find(l, m, t.name);
            if (!s || !zl_symbol_value(l, *s, sum, &of_symbol))
                return false;
            piece = of_symbol;
        } else if (t.op == ZO_OP_SEG_PSECT || t.op == ZO_OP_SEG_SYMBOL) {
            return false;
        }
        if (piece && !piece->live)
            return false;
    }
    return true;
}

bool is_address(const zo_lr_reloc &r) { return r.base == 0 && zo_field_bits(r.type) == 32 && r.columns < 8; }

std::string digits(zl_linker &l, const zl_module &m, const zo_lr_reloc &r)
{
    const size_t told = r.columns ? r.columns : size_t{DIGITS_MAX};   // the record has room for 15
    const int width = static_cast<int>(is_address(r) ? size_t{ADDRESS_DIGITS} : told);
    const std::string none(static_cast<size_t>(width), '-');
    if (!has_value(l, m, r.value))
        return none;
    const size_t messages = l.messages.size();
    const uint64_t value = static_cast<uint64_t>(zl_evaluate(l, m, nullptr, 0, r.value).value);
    if (l.messages.size() > messages)   // the same as in the object, which has told it, or in what isn't used
        return l.messages.resize(messages), none;
    const unsigned bits = zo_field_bits(r.type);
    const unsigned long long field = bits >= 64 ? value : value & ((uint64_t{1} << bits) - 1);
    return zo_format("%0*llX", width, field + r.base);
}

// A line that begins with a relocated address. Text that begins with ";;" has no padding in front.
void pull_text(std::string &line)
{
    const size_t text = TEXT_COLUMN + TOO_FAR, words = line.find_first_not_of(' ', sizeof "     1  00000A  " - 1);
    if (line.size() <= text || line[text - 1] != ' ' || line.compare(std::min(words, line.size()), 2, ";;") == 0)
        return;
    const size_t padding = text - 1 - line.find_last_not_of(' ', text - 1);
    const size_t cut = std::min(size_t{TOO_FAR}, padding - 1);
    line.erase(text - cut, cut);
}

std::string finish(zl_linker &l, const zl_module &m, const zo_file &file)
{
    std::string out, line;
    bool addressed = false;
    const auto end_line = [&] {
        if (addressed)
            pull_text(line);
        out += line;
        line.clear();
        addressed = false;
    };
    for (const zo_record &record : file.records)
        if (const auto *text = std::get_if<zo_lr_text>(&record.body)) {
            for (char c : text->text) {
                line += c;
                if (c == '\n')
                    end_line();
            }
        } else if (const auto *field = std::get_if<zo_lr_reloc>(&record.body)) {
            addressed = addressed || (is_address(*field) && field->columns == ADDRESS_DIGITS);
            line += digits(l, m, *field);
        }
    end_line();
    return out;
}

const zo_listreloc *names_of(const zl_module &m)
{
    for (const zo_record &r : m.file->records)
        if (const auto *names = std::get_if<zo_listreloc>(&r.body))
            return names;
    return nullptr;
}

// Empty, or why the file is no relocation listing.
std::string fault_of(const zo_file &file)
{
    const bool listing = std::any_of(file.records.begin(), file.records.end(),
                                     [](const zo_record &r) { return r.type == ZO_LR_TEXT || r.type == ZO_LR_RELOC; });
    if (!listing)
        return "no relocation listing";
    return file.decoded() && file.records.back().type == ZO_END ? "" : "a damaged relocation listing";
}

}   // namespace

std::vector<zl_listing> zl_listings(zl_linker &l)
{
    std::vector<zl_listing> listings;
    std::map<std::string, const zl_module *> owners;
    bool some = false;
    for (const zl_module &m : l.modules) {
        const zo_listreloc *const names = names_of(m);
        if (!names)
            continue;
        some = true;
        const auto fail = [&](const std::string &what) {
            zl_complain(l, m.name, what + ": assemble it again with -L, or link without --listing");
        };
        std::filesystem::path folder;
        std::vector<uint8_t> bytes;
        if (!zo_read_file(names->relocs, bytes)) {
            bytes.clear();
            folder = std::filesystem::path(m.path).parent_path();
            if (folder.empty() || !zo_read_file(folder / names->relocs, bytes)) {
                fail("can't read its relocation listing " + zl_quoted(names->relocs));
                continue;
            }
        }
        const zo_file file = zo_read(bytes);
        const std::string path = folder / names->listing;
        const auto [owner, fresh] = owners.try_emplace(path, &m);
        if (const std::string fault = fault_of(file); !fault.empty())
            fail(zl_quoted(names->relocs) + " is " + fault);
        else if (!fresh)
            fail("its listing " + zl_quoted(path) + " is that of " + owner->second->name + ", too");
        else
            listings.push_back({path, folder / names->relocs, finish(l, m, file)});
    }
    if (!some)
        zl_complain(l, "", "--listing: no object has a listing: assemble with -L", true);
    return listings;
}
