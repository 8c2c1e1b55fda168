// What a well-made file keeps to, beyond being decodable.
//
// The reader takes anything that has a meaning. This goes through the records once in order, with what came before in
// mind, and once more for the names, since a name may be used before the SYM record that tells of it. A relocation
// listing, known by its LR_ records, carries no psects and no symbols: its names are those of the object file beside it,
// and it may identify itself several times.
#include "zelobj.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace
{

struct checker {
    const zo_file &file;
    std::vector<std::string> problems;
    std::set<std::string> psects, symbols;
    size_t i = 0;                         // record at hand
    const std::string *owner = nullptr;   // the psect whose records these are
    unsigned owner_rank = 0;

    void say(const std::string &what)
    {
        problems.push_back(zo_format("record %zu (%s): ", i + 1, zo_type_name(file.records[i].type)) + what);
    }
    void need(bool good, const std::string &what)
    {
        if (!good)
            say(what);
    }
    void reserved(bool set) { need(!set, "reserved bytes are not 0"); }
    void need_psect(const std::string &name) { need(psects.count(name), "no PSECT record for psect " + zo_name(name)); }
    void need_symbol(const std::string &name) { need(symbols.count(name), "no SYM entry for symbol " + zo_name(name)); }

    void expr(const zo_expr &e)
    {
        for (const zo_token &t : e) {
            if (t.op == ZO_OP_PSECT || t.op == ZO_OP_SEG_PSECT)
                need_psect(t.name);
            else if (t.op == ZO_OP_SYMBOL || t.op == ZO_OP_SEG_SYMBOL)
                need_symbol(t.name);
        }
    }

    // A record that belongs to a psect stands directly behind the psect's PSECT, in the order of `rank`, one of each.
    void psect_part(const std::string &name, unsigned rank)
    {
        need(owner && *owner == name && rank > owner_rank, "out of place");
        owner_rank = rank;
    }

    void check(const zo_ident &b)
    {
        need(b.order == ZO_ORDER, "strange byte order");
        need(b.major == ZO_MAJOR && b.minor == ZO_MINOR, zo_format("format version %u.%u", b.major, b.minor));
    }

    void check(const zo_psect &b)
    {
        need(!(b.flags & ~0x14F0), zo_format("flags 0x%04X", b.flags));
        owner = &b.name;
        owner_rank = 0;
    }

    void check(const zo_xpsect &b)
    {
        psect_part(b.name, 1);
        reserved(b.reserved);
        if (!b.with.empty())
            need_psect(b.with);
    }

    void check(const zo_psectlim &b)
    {
        psect_part(b.name, 2);
        reserved(b.reserved);
    }

    void check(const zo_psectbound &b)
    {
        psect_part(b.name, 3);
        need(b.tag == 13, zo_format("begins with %u", b.tag));
        need(!(b.flags & ~0x04F0), zo_format("flags 0x%04X", b.flags));
    }

    void check(const zo_text &b)
    {
        need_psect(b.psect);
        need(b.data.size() <= 0xFFFFFFFF - b.offset, "data passes the end of memory");
    }

    void check(const zo_reloc &r)
    {
        const zo_text *text = i ? std::get_if<zo_text>(&file.records[i - 1].body) : nullptr;
        need(text && !text->data.empty(), "not directly behind a TEXT with data");
        need(!r.entries.empty(), "no entries");
        for (const zo_reloc_entry &e : r.entries) {
            zo_kind kind = zo_field_kind(e.type);
            unsigned bits = zo_field_bits(e.type);
            std::string where = "entry at " + zo_number(e.offset) + " ";
            need(kind == ZO_CHECK || bits, where + "has width 0");
            need(!text || e.offset + (bits + 7) / 8 <= text->data.size(), where + "lies outside the TEXT");
            if (kind == ZO_ADD_PSECT)
                need_psect(e.name);
            else if (kind == ZO_ADD_SYMBOL)
                need_symbol(e.name);
            expr(e.value);
            expr(e.limit);
        }
    }

    void check(const zo_sym &b)
    {
        need(!b.symbols.empty(), "no entries");
        for (const zo_symbol &s : b.symbols)
            symbol(s);
    }

    void symbol(const zo_symbol &s)
    {
        static const uint16_t known[] = {ZO_S_LINE,   ZO_S_FILE,  ZO_S_UNDEF_LOCAL, ZO_S_LOCAL,
                                         ZO_S_GLOBAL, ZO_S_UNDEF, ZO_S_ALIAS};
        std::string where = "symbol " + zo_name(s.name) + " ";
        need(std::count(std::begin(known), std::end(known), s.flags), where + zo_format("has flags 0x%02X", s.flags));
        if (s.flags == ZO_S_ALIAS)
            need_symbol(s.psect);
        else if (s.flags == ZO_S_FILE || s.flags == ZO_S_UNDEF || s.flags == ZO_S_UNDEF_LOCAL)
            need(s.psect.empty(), where + "has a psect");
        else if (!s.psect.empty() || s.flags == ZO_S_LINE)
            need_psect(s.psect);
        if (s.flags == ZO_S_LINE)
            need(!s.name.empty() && std::all_of(s.name.begin(), s.name.end(), [](unsigned char c) { return isdigit(c); }),
                 "line entry " + zo_name(s.name) + " is no number");
    }

    void check(const zo_lr_reloc &b)
    {
        need(zo_field_bits(b.type), "field of width 0");
        reserved(b.reserved);
    }

    void check(const zo_cond_expr &b) { expr(b.condition); }
    void check(const zo_start &b) { need_psect(b.psect); }
    void check(const zo_end &b) { reserved(b.reserved); }
    void check(const zo_fninfo &b) { need(!b.entries.empty(), "no entries"); }
    void check(const zo_fnalign &b) { need(!b.names.empty(), "no names"); }
    void check(const zo_dabs &b) { need(!b.entries.empty(), "no entries"); }
    template <class other> void check(const other &) {}

    void all();
};

void checker::all()
{
    bool listing = false;
    for (const zo_record &r : file.records) {
        listing = listing || r.type == ZO_LR_TEXT || r.type == ZO_LR_RELOC;
        if (auto *p = std::get_if<zo_psect>(&r.body))
            if (!psects.insert(p->name).second)
                problems.push_back("two PSECT records for psect " + zo_name(p->name));
        if (auto *s = std::get_if<zo_sym>(&r.body))
            for (const zo_symbol &e : s->symbols)
                if (e.flags != ZO_S_FILE && e.flags != ZO_S_LINE)
                    symbols.insert(e.name);
    }
    for (i = 0; i < file.records.size(); i++) {
        const zo_record &r = file.records[i];
        bool first = i == 0, last = i + 1 == file.records.size();
        need(!first || r.type == ZO_IDENT, "the first record isn't IDENT");
        need(first || listing || r.type != ZO_IDENT, "a second IDENT");
        need(!last || r.type == ZO_END, "the last record isn't END");
        need(last || r.type != ZO_END, "END isn't the last record");
        need(!listing || r.type == ZO_IDENT || r.type == ZO_LR_TEXT || r.type == ZO_LR_RELOC || r.type == ZO_END,
             "has no place in a relocation listing");
        need(r.raw.size() <= (r.type == ZO_FNALIGN ? ZO_BODY_MAX : ZO_BODY_WRITTEN),
             zo_format("body of %zu bytes", r.raw.size()));
        need(r.error.empty(), r.error);
        if (r.type != ZO_XPSECT && r.type != ZO_PSECTLIM && r.type != ZO_PSECTBOUND)
            owner = nullptr;
        std::visit([this](const auto &body) { check(body); }, r.body);
    }
    if (file.records.empty())
        problems.push_back("no records");
    if (!file.error.empty())
        problems.push_back(file.error);
}

}   // namespace

std::vector<std::string> zo_verify(const zo_file &file)
{
    checker c = {file, {}, {}, {}};
    c.all();
    return std::move(c.problems);
}
