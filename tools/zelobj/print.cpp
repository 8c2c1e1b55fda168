// From records to text.
//
// Each record is a header line with its name and the length of its body, and indented lines for what it holds. Test cases
// compare this text line by line, so what is printed depends on nothing but the record (and, for a TEXT, on what its
// psect is and on the RELOC behind it): file offsets come only when asked for.
//
// A TEXT of a program psect is disassembled, one instruction a line; any other is shown with 16 bytes a line. A program
// psect is one that lies in space 0 by its XPSECT, or that has no XPSECT, and has neither the `bit` nor the `note` flag.
// The entries of a RELOC stand below the lines that they apply to, with their offset from the first byte of the line; the
// RELOC's own place shows their number only. An entry that has no such line is shown at the RELOC's own place.
#include "zelobj.h"

#include <cctype>
#include <map>

namespace
{

enum { LINE_BYTES = 16 };

std::string quoted(const std::string &s)
{
    std::string q = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\')
            q += zo_format("\\%c", c);
        else if (c == '\n')
            q += "\\n";
        else if (c < ' ' || c > '~')
            q += zo_format("\\x%02X", c);
        else
            q += static_cast<char>(c);
    }
    return q + '"';
}

std::string name_or_dash(const std::string &s) { return s.empty() ? "-" : zo_name(s); }

std::string psect_flags(unsigned flags)
{
    static const struct {
        uint16_t bit;
        const char *name;
    } bits[] = {
        {ZO_F_GLOBAL, "global"}, {ZO_F_PURE, "pure"}, {ZO_F_OVRLD, "ovrld"},
        {ZO_F_ABS, "abs"},       {ZO_F_BIT, "bit"},   {ZO_F_NOTE, "note"},
    };
    std::string s;
    for (auto &b : bits)
        if (flags & b.bit) {
            s += std::string(" ") + b.name;
            flags &= ~unsigned(b.bit);
        }
    if (flags)
        s += zo_format(" 0x%04X", flags);
    return "flags" + (s.empty() ? " none" : s);
}

std::string field_width(uint8_t type)
{
    unsigned n = zo_field_bits(type);
    bool bits = zo_field_in_bits(type);
    if (!bits)
        n /= 8;
    return zo_format("%u %s%s", n, bits ? "bit" : "byte", n == 1 ? "" : "s");
}

std::string bytes_text(std::span<const uint8_t> bytes)
{
    std::string s;
    for (uint8_t b : bytes)
        s += zo_format(s.empty() ? "%02X" : " %02X", b);
    return s;
}

std::string reloc_text(const zo_reloc_entry &e, size_t offset)
{
    std::string head = "reloc +" + zo_number(static_cast<uint32_t>(offset));
    switch (zo_field_kind(e.type)) {
    case ZO_ADD_PSECT: return head + ", " + field_width(e.type) + ": simple psect " + zo_name(e.name);
    case ZO_ADD_SYMBOL: return head + ", " + field_width(e.type) + ": simple symbol " + zo_name(e.name);
    case ZO_CHECK:
        return head + ": range check " + quoted(e.name) + ", value " + zo_infix(e.value) + ", limit " + zo_infix(e.limit);
    default: return head + ", " + field_width(e.type) + ": complex " + zo_infix(e.value);
    }
}

std::string symbol_text(const zo_symbol &s)
{
    std::string value = zo_number(s.value), name = zo_name(s.name);
    std::string place = s.psect.empty() ? value : zo_name(s.psect) + "+" + value;
    switch (s.flags) {
    case ZO_S_GLOBAL: return "global " + name + " = " + place;
    case ZO_S_LOCAL: return "local " + name + " = " + place;
    case ZO_S_ALIAS: return "alias " + name + " = " + place;
    case ZO_S_UNDEF:
    case ZO_S_UNDEF_LOCAL:
        return (s.flags == ZO_S_UNDEF ? "undefined " : "undefined local ") + name +
               (s.value || !s.psect.empty() ? " = " + place : "");
    case ZO_S_FILE: return "file " + quoted(s.name) + (s.value || !s.psect.empty() ? ", value " + place : "");
    case ZO_S_LINE: return "line " + name + " at " + place;
    default: return zo_format("flags 0x%02X ", s.flags) + name + " = " + place;
    }
}

std::string placement(unsigned space, unsigned delta, const std::string &class_name)
{
    return zo_format(", space %u, delta %u", space, delta) + ", class " + name_or_dash(class_name);
}

const char *plural(size_t n) { return n == 1 ? "" : "s"; }

// The record at hand, and its neighbours or null. One `show` for each kind of body.
struct printer {
    const zo_style &style;
    std::string out;
    std::map<std::string, bool> program;   // psect name: holds instructions
    const zo_record *before, *at, *after;

    void line(const std::string &s) { out += "    " + s + "\n"; }

    void dump(std::span<const uint8_t> bytes, uint32_t offset)
    {
        for (size_t i = 0; i < bytes.size(); i += LINE_BYTES)
            line(zo_format("%04X  ", offset + static_cast<uint32_t>(i)) +
                 bytes_text(bytes.subspan(i, std::min<size_t>(LINE_BYTES, bytes.size() - i))));
    }

    void reserved(bool set)
    {
        if (set)
            line("reserved bytes are not 0");
    }

    void show(const zo_other &)
    {
        if (!at->error.empty())
            line("malformed: " + at->error);
        dump(at->raw, 0);
    }

    void show(const zo_ident &b)
    {
        line(zo_format("chip %s, version %u.%u, byte order %u %u %u %u, %u %u", zo_name(b.chip).c_str(), b.major, b.minor,
                       b.order[0], b.order[1], b.order[2], b.order[3], b.order[4], b.order[5]));
    }

    void show(const zo_psect &b) { line("psect " + zo_name(b.name) + ", " + psect_flags(b.flags)); }

    void show(const zo_xpsect &b)
    {
        line("psect " + zo_name(b.name) + ", size " + zo_number(b.size) + ", reloc " + zo_number(b.reloc) +
             placement(b.space, b.delta, b.class_name) + ", with " + name_or_dash(b.with));
        reserved(b.reserved);
    }

    void show(const zo_psectlim &b)
    {
        line("psect " + zo_name(b.name) + ", limit " + zo_number(b.limit));
        reserved(b.reserved);
    }

    void show(const zo_psectbound &b)
    {
        line("psect " + zo_name(b.name) + ", " + psect_flags(b.flags) + ", base " + zo_number(b.base) + ", top " +
             zo_number(b.top) + placement(b.space, b.delta, b.class_name));
        if (b.tag != 13)
            line(zo_format("first byte %u", b.tag));
    }

    void show(const zo_sym &b)
    {
        for (const zo_symbol &s : b.symbols)
            line(symbol_text(s));
    }

    // One line of a TEXT from data byte `i` on; gives back how many bytes it shows.
    size_t text_line(const zo_text &t, size_t i, bool code)
    {
        std::span<const uint8_t> data = std::span(t.data).subspan(i);
        uint32_t offset = t.offset + static_cast<uint32_t>(i);
        if (!code) {
            size_t n = std::min<size_t>(LINE_BYTES, data.size());
            dump(data.first(n), offset);
            return n;
        }
        if (data.size() == 1) {
            line(zo_format("%04X  %-14.02X  %-7s 0x%02X", offset, data[0], "db", data[0]));
            return 1;
        }
        zo_instruction in = zo_disassemble(data, offset, style.wide);
        std::string words;
        for (size_t k = 0; k < in.words; k++)
            words += zo_format(k ? " %02X%02X" : "%02X%02X", data[2 * k + 1], data[2 * k]);
        line(zo_format("%04X  %-14s  %s", offset, words.c_str(), in.text.c_str()));
        return size_t(in.words) * 2;
    }

    void show(const zo_text &t)
    {
        const zo_reloc *relocs = after ? std::get_if<zo_reloc>(&after->body) : nullptr;
        auto found = program.find(t.psect);
        bool code = style.disassembly && found != program.end() && found->second && t.offset % 2 == 0;
        line("psect " + zo_name(t.psect) + ", offset " + zo_number(t.offset) + ", " +
             (t.data.empty() ? "no data" : zo_format("%zu data byte%s", t.data.size(), plural(t.data.size()))));
        for (size_t i = 0, n; i < t.data.size(); i += n) {
            n = text_line(t, i, code);
            if (relocs)
                for (const zo_reloc_entry &e : relocs->entries)
                    if (e.offset >= i && e.offset < i + n)
                        line("      " + reloc_text(e, e.offset - i));
        }
    }

    void show(const zo_reloc &r)
    {
        const zo_text *text = before ? std::get_if<zo_text>(&before->body) : nullptr;
        size_t shown = 0;
        for (const zo_reloc_entry &e : r.entries)
            shown += text && e.offset < text->data.size();
        if (shown)
            line(zo_format("%zu entr%s, shown above", shown, shown == 1 ? "y" : "ies"));
        for (const zo_reloc_entry &e : r.entries)
            if (!text || e.offset >= text->data.size())
                line(reloc_text(e, e.offset));
    }

    void show(const zo_signat &b) { line(zo_name(b.name) + ", signature " + zo_number(b.signature)); }

    void show(const zo_fninfo &b)
    {
        static const char *const words[] = {"",        "fncall ", "fnarg ", "fnindir ", "fnaddr ",
                                            "fnsize ", "fnroot ", "",       "",         "fnbreak "};
        for (const zo_fninfo_entry &e : b.entries) {
            std::string s = words[e.subcode] + zo_name(e.function);
            if (e.subcode == ZO_FNCALL || e.subcode == ZO_FNARG || e.subcode == ZO_FNBREAK)
                s += ", " + zo_name(e.name);
            else if (e.subcode == ZO_FNINDIR)
                s += ", signature " + zo_number(e.number);
            else if (e.subcode == ZO_FNSIZE)
                s += ", arguments " + zo_number(e.number) + ", autos " + zo_number(e.autosize);
            line(s);
        }
    }

    void show(const zo_fnconf &b)
    {
        line(zo_name(b.names[0]) + ", " + zo_name(b.names[1]) + ", " + zo_name(b.names[2]) + ", " + zo_number(b.number));
    }

    void show(const zo_fnalign &b)
    {
        std::string names;
        for (const std::string &n : b.names)
            names += (names.empty() ? " " : ", ") + zo_name(n);
        line("group " + zo_number(b.group) + ":" + names);
    }

    void show(const zo_dabs &b)
    {
        for (const zo_dabs_entry &e : b.entries)
            line(zo_format("space %u", e.space) + ", address " + zo_number(e.address) + ", size " + zo_number(e.size) +
                 ", name " + name_or_dash(e.name));
    }

    void show(const zo_start &b) { line("psect " + zo_name(b.psect) + ", offset " + zo_number(b.offset)); }
    void show(const zo_end &b) { reserved(b.reserved); }
    void show(const zo_listreloc &b) { line("relocations " + quoted(b.relocs) + ", listing " + quoted(b.listing)); }
    void show(const zo_cond_expr &b) { line("condition " + zo_infix(b.condition)); }

    // Listing text, cut behind each newline.
    void show(const zo_lr_text &b)
    {
        for (size_t i = 0, end; i < b.text.size(); i = end) {
            end = std::min(b.text.find('\n', i), b.text.size() - 1) + 1;
            line(quoted(b.text.substr(i, end - i)));
        }
    }

    void show(const zo_lr_reloc &b)
    {
        line("field of " + field_width(b.type) + zo_format(", %u columns", b.columns) + ", base " + zo_number(b.base) +
             ": " + zo_infix(b.value));
        reserved(b.reserved);
    }
};

}   // namespace

std::string zo_number(uint32_t number) { return zo_format(number < 10 ? "%u" : "0x%X", number); }

std::string zo_name(const std::string &name)
{
    for (unsigned char c : name)
        if (!isalnum(c) && c != '_' && c != '$' && c != '?' && c != '@' && c != '.')
            return quoted(name);
    return name.empty() ? "\"\"" : name;
}

// The operands wait on an explicit stack, each with whether it needs parentheses as an operand.
std::string zo_infix(const zo_expr &expr)
{
    struct term {
        std::string text;
        bool bare;
    };
    std::vector<term> stack;
    auto pop = [&] {
        if (stack.empty())
            return std::string("?");
        term t = std::move(stack.back());
        stack.pop_back();
        return t.bare ? t.text : "(" + t.text + ")";
    };
    static const char *const binary[] = {" + ", " - ", " * ", " / ", " shl ", " shr ", " & ", " | ", " ^ "};
    for (const zo_token &t : expr) {
        switch (t.op) {
        case ZO_OP_CONST: stack.push_back({zo_number(t.number), true}); break;
        case ZO_OP_PSECT: stack.push_back({"psect " + zo_name(t.name), true}); break;
        case ZO_OP_SEG_PSECT: stack.push_back({"seg psect " + zo_name(t.name), true}); break;
        case ZO_OP_SYMBOL: stack.push_back({zo_name(t.name), true}); break;
        case ZO_OP_SEG_SYMBOL: stack.push_back({"seg " + zo_name(t.name), true}); break;
        case ZO_OP_DEFINED: stack.push_back({"defined(" + zo_name(t.name) + ")", true}); break;
        case ZO_OP_LOW:
        case ZO_OP_HIGH:
        case ZO_OP_NOT:
        case ZO_OP_NEG: {
            const char *word = t.op == ZO_OP_LOW ? "low " : t.op == ZO_OP_HIGH ? "high " : t.op == ZO_OP_NOT ? "not " : "-";
            stack.push_back({word + pop(), false});
            break;
        }
        default: {
            std::string left = pop(), right = pop();
            bool known = t.op >= ZO_OP_ADD && t.op <= ZO_OP_XOR;
            stack.push_back({left + (known ? binary[t.op - ZO_OP_ADD] : " mod ") + right, false});
        }
        }
    }
    return stack.empty() ? "?" : stack.back().text;
}

std::string zo_print(const zo_file &file, const zo_style &style)
{
    printer p = {style, {}, {}, nullptr, nullptr, nullptr};
    for (const zo_record &r : file.records) {
        if (auto *f = std::get_if<zo_psect>(&r.body))
            p.program[f->name] = !(f->flags & (ZO_F_BIT | ZO_F_NOTE));
        if (auto *x = std::get_if<zo_xpsect>(&r.body); x && x->space != 0)
            p.program[x->name] = false;
    }
    size_t count = file.records.size();
    for (size_t i = 0; i < count; i++) {
        const zo_record *r = p.at = &file.records[i];
        p.before = i ? r - 1 : nullptr;
        p.after = i + 1 < count ? r + 1 : nullptr;
        if (style.offsets)
            p.out += zo_format("%04zX  ", r->at);
        p.out += zo_format("%s %zu byte%s\n", zo_type_name(r->type), r->raw.size(), plural(r->raw.size()));
        std::visit([&p](const auto &body) { p.show(body); }, r->body);
    }
    return std::move(p.out);
}
