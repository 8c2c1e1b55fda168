// fields: what the assembler left open is filled in, and the bytes go to their addresses.
//
// A relocation adds to what stands in its field. The sum has to fit, as a signed or as an unsigned number. An operand in data
// memory is an exception: the instruction holds its place in the bank, and which bank is selected is the program's affair.
// Whether it is in the access bank isn't: an instruction that addresses that bank can't reach another.
#include <algorithm>

#include "zellink.h"

static const char *plural(unsigned n) { return n == 1 ? "" : "s"; }

// The word of an instruction with a file operand, the low byte of which is the operand. Data may look like one, too, but then
// an address that needs more than eight bits has no business in it either.
static bool has_file_operand(unsigned word)
{
    return word >> 9 == 1 || word >> 10 == 1 || (word >= 0x1000 && word < 0xC000);
}

static std::string number(int64_t value)
{
    return value < 0 ? std::to_string(value) : zo_format("0x%llX", static_cast<unsigned long long>(value));
}

namespace
{

struct field_t {
    const zl_module &module;
    const zl_piece &piece;
    uint64_t offset;   // in the piece
    const zo_reloc_entry &entry;
    unsigned bits;
    uint64_t stood;   // what was in the field
    unsigned word;    // two bytes at the field, 0 if it isn't at the begin of an instruction
};

}   // namespace

// What a field refers to. A place in a psect goes by the name that it has, if it has one.
static std::string described(const zl_linker &l, const field_t &f)
{
    const zo_reloc_entry &e = f.entry;
    if (zo_field_kind(e.type) == ZO_COMPLEX)
        return zo_infix(e.value);
    const auto psect = f.module.pieces.find(e.name);
    if (zo_field_kind(e.type) == ZO_ADD_PSECT && psect != f.module.pieces.end())
        for (const zl_symbols *table : {&f.module.locals, &l.globals})
            for (const auto &[name, s] : *table)
                if (s.piece == &psect->second && !s.alias && s.value == static_cast<int64_t>(f.stood))
                    return zl_quoted(std::string(name));
    return zl_quoted(e.name) + (f.stood ? zo_format(" + 0x%llX", static_cast<unsigned long long>(f.stood)) : "");
}

static void check_fit(zl_linker &l, const field_t &f, zl_sum sum)
{
    const auto what = [&] { return described(l, f) + " is " + number(sum.value); };   // it looks through all symbols
    const int64_t top = int64_t{1} << f.bits, half = top / 2;
    if (sum.data && f.bits == 8 && f.word && has_file_operand(f.word) && sum.value >= 0) {
        const uint64_t address = static_cast<uint64_t>(sum.value);
        const target_t &t = l.target;
        const bool reached = address <= UINT32_MAX && in_ranges({t.common, t.sfr_common}, static_cast<uint32_t>(address));
        if (!(f.word & 0x100) && !reached)
            zl_complain(l, f.piece, f.offset,
                        what() +
                            ", outside of the access bank, which the instruction addresses: select the bank and let the "
                            "operand be banked (\",b\"), or put the psect into class COMRAM");
        else if (address >= (t.wide ? 0x4000 : 0x1000))
            zl_complain(l, f.piece, f.offset, what() + ", no address of data memory");
    } else if (f.bits == 11) {   // only branches have such a field: a distance in words
        if (sum.value < -half || sum.value >= half)
            zl_complain(l, f.piece, f.offset,
                        what() + zo_format(", farther than the branch reaches, %lld to %lld words: take "
                                           "`goto` or `call`",
                                           static_cast<long long>(-half), static_cast<long long>(half - 1)));
    } else if (sum.value < -half || sum.value >= top) {
        zl_complain(l, f.piece, f.offset,
                    what() + zo_format(", which doesn't fit into %u bit%s: take a part of it, as low() does", f.bits,
                                       plural(f.bits)));
    }
}

static void check_range(zl_linker &l, const zl_module &m, const zl_piece &p, uint64_t offset, const zo_reloc_entry &e)
{
    const int64_t value = zl_evaluate(l, m, &p, offset, e.value).value, limit = zl_evaluate(l, m, &p, offset, e.limit).value;
    if (value < 0 || value > limit)
        zl_complain(l, p, offset,
                    e.name + " " + zo_infix(e.value) + " is " + number(value) + ", where " + number(limit) + " is the most");
}

// What a check of the whole program has to know beside the bytes.
static void note_use(zl_linker &l, const zl_piece &p, const zo_text &text, uint64_t offset, unsigned word, const zl_sum &sum,
                     const std::vector<int64_t> &mentions, const std::vector<uint8_t> &data)
{
    const uint64_t address = zl_address(p) + offset, at = offset - text.offset;
    if (address >= l.target.rom_size)
        return;
    if (p.x.space == ZL_PROGRAM && sum.data && sum.value >= 0 && word && has_file_operand(word))
        l.operands[static_cast<uint32_t>(address)] = static_cast<uint32_t>(sum.value);
    if (p.x.space == ZL_PROGRAM && address % 2 == 0 && at + 2 <= data.size()) {
        const zo_form form = zo_decode(std::span(data).subspan(at), 0, l.target.wide).form;
        if (form == ZO_CALL || form == ZO_GOTO || form == ZO_REL8 || form == ZO_REL11)
            return;
    }
    for (int64_t value : mentions)
        if (value >= 0 && value < static_cast<int64_t>(l.target.rom_size))
            l.mentions.insert(static_cast<uint32_t>(value));
}

// The begin of the instruction of which a field is part: its second and third word begin with 0xF.
static uint64_t instruction_offset(const zl_piece &p, const zo_text &text, const zo_reloc_entry &e)
{
    size_t at = e.offset;
    const auto odd = [&] { return (zl_address(p) + text.offset + at) % 2; };
    while (p.x.space == ZL_PROGRAM && !odd() && at >= 2 && at + 1 < text.data.size() && text.data[at + 1] >> 4 == 0xF)
        at -= 2;
    return uint64_t{text.offset} + at;
}

static void patch(zl_linker &l, const zl_module &m, const zl_piece &p, const zo_text &text, const zo_reloc_entry &e,
                  std::vector<uint8_t> &data)
{
    const uint64_t offset = instruction_offset(p, text, e);
    const zo_kind kind = zo_field_kind(e.type);
    if (kind == ZO_CHECK)
        return check_range(l, m, p, offset, e);
    const unsigned bits = zo_field_bits(e.type), bytes = (bits + 7) / 8;
    if (kind == ZO_BAD_KIND || bits == 0 || bytes > 4 || e.offset + bytes > data.size())
        return zl_complain(l, p, offset, zo_format("damaged object file: relocation of type 0x%02X", e.type));
    const size_t faults = l.messages.size();
    std::vector<int64_t> mentions;
    zl_sum sum = zl_evaluate(
        l, m, &p, offset,
        kind == ZO_COMPLEX ? e.value : zo_expr{{kind == ZO_ADD_PSECT ? ZO_OP_PSECT : ZO_OP_SYMBOL, 0, e.name}}, &mentions);
    uint64_t word = 0;
    for (unsigned i = 0; i < bytes; i++)
        word |= uint64_t{data[e.offset + i]} << 8 * i;
    const uint64_t mask = (uint64_t{1} << bits) - 1;
    sum.value = static_cast<int64_t>(static_cast<uint64_t>(sum.value) + (word & mask));
    const bool instruction =
        p.x.space == ZL_PROGRAM && (zl_address(p) + text.offset + e.offset) % 2 == 0 && e.offset + 2u <= data.size();
    const unsigned whole = instruction ? data[e.offset] | unsigned{data[e.offset + 1]} << 8 : 0;
    if (l.messages.size() == faults)
        check_fit(l, {m, p, offset, e, bits, word & mask, whole}, sum);
    if (kind != ZO_COMPLEX && sum.code)
        mentions = {sum.value};
    note_use(l, p, text, offset, whole, sum, mentions, data);
    word = (word & ~mask) | (static_cast<uint64_t>(sum.value) & mask);
    for (unsigned i = 0; i < bytes; i++)
        data[e.offset + i] = static_cast<uint8_t>(word >> 8 * i);
}

// The image.

static bool implemented(const target_t &t, uint64_t lo, uint64_t end)
{
    const auto holds = [&](range_t r) { return lo >= r.lo && end <= uint64_t{r.hi} + 1; };
    return end <= t.rom_size || holds(t.config) || holds(t.idloc) || holds(t.eeprom);
}

static void put(zl_linker &l, const zl_piece &p, uint64_t offset, const std::vector<uint8_t> &data)
{
    const uint64_t address = zl_address(p) + offset;
    if (!implemented(l.target, address, address + data.size()))
        return zl_complain(l, p, offset,
                           zo_format("0x%llX is no address of the chip's memory: see its map in the chip file",
                                     static_cast<unsigned long long>(address)));
    zl_page *page = nullptr;
    for (size_t i = 0; i < data.size(); i++) {
        const uint32_t at = static_cast<uint32_t>(address + i);
        if (!page || at % 256 == 0)
            page = &l.image[at / 256];
        const zl_piece *&owner = page->owner[at % 256];
        if (owner && owner != &p && !(p.group == owner->group && p.group->overlaid && !p.group->absolute))
            return zl_complain(l, p, offset + i,
                               zo_format("psect %s of %s has bytes at 0x%X already: move one of them",
                                         zl_quoted(owner->x.name).c_str(), owner->module->name.c_str(), at));
        if (owner == &p && !p.group->overlaid && page->bytes[at % 256] != data[i])
            return zl_complain(
                l, p, offset + i,
                zo_format("other bytes of the psect are at 0x%X already: what stands before an `org` has run over "
                          "its place, or the `org` goes back: move one of them",
                          at));
        owner = &p;
        page->bytes[at % 256] = data[i];
    }
}

static void emit_text(zl_linker &l, const zl_module &m, const zl_piece &p, const zo_text &text, const zo_reloc *relocs)
{
    std::vector<uint8_t> data = text.data;
    for (const zo_reloc_entry &e : relocs ? relocs->entries : std::vector<zo_reloc_entry>{})
        patch(l, m, p, text, e, data);
    if (p.flags & ZO_F_NOTE || p.x.space == ZL_NOTE)   // for tools
        return;
    if (p.x.space == ZL_DATA)
        return zl_complain(l, p, text.offset,
                           "bytes can't be put into data memory: reserve room with `ds`, and let the program "
                           "write there");
    if (zl_memory(p.x.space) != ZL_PROGRAM && p.group->class_name != "EEPROM")
        return zl_complain(l, p, text.offset,
                           zo_format("the chip has no memory for bytes of space %u: take space 0, or the flag "
                                     "`note` if they aren't for the chip",
                                     p.x.space));
    if (!p.group->homeless)
        put(l, p, text.offset, data);
}

void zl_emit(zl_linker &l)
{
    for (zl_module &m : l.modules) {
        const std::vector<zo_record> &records = m.file->records;
        for (size_t i = 0; i < records.size(); i++) {
            const auto *text = std::get_if<zo_text>(&records[i].body);
            const auto *start = std::get_if<zo_start>(&records[i].body);
            const auto it = m.pieces.find(text ? text->psect : start ? start->psect : std::string());
            if (it == m.pieces.end() || !it->second.live)
                continue;
            const zl_piece &p = it->second;
            if (start) {
                if (l.has_start)
                    zl_complain(l, m.name, "another module has told an address behind `end`, too: leave one of them out");
                l.has_start = true;
                l.start = static_cast<uint32_t>(zl_address(p) + uint64_t{start->offset} * p.x.delta);
            } else if (text && !text->data.empty()) {
                const auto *relocs = i + 1 < records.size() ? std::get_if<zo_reloc>(&records[i + 1].body) : nullptr;
                emit_text(l, m, p, *text, relocs);
            }
        }
    }
}
