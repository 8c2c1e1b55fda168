// From bytes to records.
//
// A file is a run of frames: length, type, body. Frames are read first and strictly, for a wrong length makes nonsense of
// all that follows. A body is decoded with a cursor that never passes its end: a read beyond it gives zeros and leaves a
// reason in the cursor, and the decoder need only look at that once it is done. Loops over entries end at the first
// reason, and each turn takes at least one byte, so that no body can hold them up.
//
// Postfix code is checked as it is read: the depth of the stack that it would need is counted, and code that takes more
// than there is, or leaves more or less than one value, is an error. Whoever gets a zo_expr can rely on it.
#include "zelobj.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

std::string zo_format(const char *format, ...)
{
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    std::string s(static_cast<size_t>(std::max(0, vsnprintf(nullptr, 0, format, args))), '\0');
    vsnprintf(s.data(), s.size() + 1, format, again);
    va_end(again);
    va_end(args);
    return s;
}

const char *zo_type_name(uint8_t type)
{
    static const char *const names[] = {
        "",          "TEXT",    "PSECT",    "RELOC",     "SYM",    "START",   "END",      "IDENT",
        "XPSECT",    "SEGMENT", "XSYM",     "SIGNAT",    "FNINFO", "FNCONF",  "SEGSTART", "PSECTLIM",
        "LISTRELOC", "LR_TEXT", "LR_RELOC", "COND_EXPR", "DABS",   "Unknown", "FNALIGN",  "PSECTBOUND",
    };
    static_assert(std::size(names) == ZO_LAST + 1);
    return type <= ZO_LAST ? names[type] : "";
}

zo_kind zo_field_kind(uint8_t type)
{
    if (type == 0x30)
        return ZO_CHECK;
    unsigned high = type >> 4;
    if (high >= 0xD)
        high -= 0xC;
    return high >= 1 && high <= 3 ? static_cast<zo_kind>(high) : ZO_BAD_KIND;
}

bool zo_field_in_bits(uint8_t type) { return type >> 4 >= 0xD; }
unsigned zo_field_bits(uint8_t type) { return zo_field_in_bits(type) ? type & 15u : (type & 15u) * 8; }

namespace
{

struct cursor {
    std::span<const uint8_t> left;
    std::string error;

    bool more() const { return error.empty() && !left.empty(); }

    void fail(std::string reason)
    {
        if (error.empty())
            error = std::move(reason);
        left = {};
    }

    uint32_t number(size_t bytes)
    {
        if (left.size() < bytes) {
            fail("body ends inside a number");
            return 0;
        }
        uint32_t n = 0;
        for (size_t i = 0; i < bytes; i++)
            n |= static_cast<uint32_t>(left[i]) << (8 * i);
        left = left.subspan(bytes);
        return n;
    }
    uint8_t byte() { return static_cast<uint8_t>(number(1)); }
    uint16_t half() { return static_cast<uint16_t>(number(2)); }
    uint32_t word() { return number(4); }

    std::string string()
    {
        auto nul = std::find(left.begin(), left.end(), 0);
        if (nul == left.end()) {
            fail("string without terminator");
            return {};
        }
        std::string s(left.begin(), nul);
        left = left.subspan(s.size() + 1);
        return s;
    }

    bool zeros(size_t bytes)   // all of them 0
    {
        bool zero = true;
        for (size_t i = 0; i < bytes; i++)
            zero = byte() == 0 && zero;
        return zero;
    }
};

// Postfix code up to the byte `stop`, which is taken too. `lasts[d]` gets the number of tokens read when the stack's
// depth was last d, so that the caller can tell where each value of several ends.
zo_expr read_tokens(cursor &c, uint8_t stop, unsigned values, size_t *lasts)
{
    zo_expr expr;
    unsigned depth = 0;
    for (;;) {
        if (c.left.empty()) {
            c.fail("postfix code without terminator");
            return {};
        }
        zo_token t = {c.byte(), 0, {}};
        if (t.op == stop)
            break;
        unsigned takes = 0;
        switch (t.op) {
        case ZO_OP_CONST: t.number = c.word(); break;
        case ZO_OP_PSECT:
        case ZO_OP_SEG_PSECT:
        case ZO_OP_SYMBOL:
        case ZO_OP_SEG_SYMBOL:
        case ZO_OP_DEFINED: t.name = c.string(); break;
        case ZO_OP_LOW:
        case ZO_OP_HIGH:
        case ZO_OP_NOT:
        case ZO_OP_NEG: takes = 1; break;
        case ZO_OP_ADD:
        case ZO_OP_SUB:
        case ZO_OP_MUL:
        case ZO_OP_DIV:
        case ZO_OP_SHL:
        case ZO_OP_SHR:
        case ZO_OP_AND:
        case ZO_OP_OR:
        case ZO_OP_XOR:
        case ZO_OP_MOD: takes = 2; break;
        default: c.fail(zo_format("unknown postfix token %u", t.op));
        }
        if (depth < takes)
            c.fail(zo_format("postfix token %u lacks an operand", t.op));
        if (!c.error.empty())
            return {};
        depth += 1 - takes;
        expr.push_back(std::move(t));
        if (depth <= values)
            lasts[depth] = expr.size();
    }
    if (depth != values)
        c.fail(zo_format("postfix code leaves %u values, not %u", depth, values));
    return expr;
}

zo_expr read_expr(cursor &c)
{
    size_t lasts[2];
    return read_tokens(c, ZO_OP_END, 1, lasts);
}

zo_reloc_entry read_reloc(cursor &c)
{
    zo_reloc_entry e = {c.half(), c.byte(), {}, {}, {}};
    switch (zo_field_kind(e.type)) {
    case ZO_ADD_PSECT:
    case ZO_ADD_SYMBOL: e.name = c.string(); break;
    case ZO_COMPLEX: e.value = read_expr(c); break;
    case ZO_CHECK: {
        if (c.byte() != ZO_OP_CHECK)
            c.fail("range check without its opener");
        e.name = c.string();
        size_t lasts[3] = {};
        zo_expr both = read_tokens(c, ZO_OP_CHECK_END, 2, lasts);
        if (c.error.empty()) {   // the value is all up to where it stood alone for the last time
            auto split = both.begin() + static_cast<std::ptrdiff_t>(lasts[1]);
            e.limit.assign(split, both.end());
            e.value.assign(both.begin(), split);
        }
        break;
    }
    case ZO_BAD_KIND: c.fail(zo_format("unknown relocation type 0x%02X", e.type));
    }
    return e;
}

zo_fninfo_entry read_fninfo(cursor &c)
{
    zo_fninfo_entry e = {c.byte(), {}, {}, 0, 0};
    switch (e.subcode) {
    case ZO_FNCALL:
    case ZO_FNARG:
    case ZO_FNBREAK:
        e.function = c.string();
        e.name = c.string();
        break;
    case ZO_FNINDIR:
        e.function = c.string();
        e.number = c.half();
        break;
    case ZO_FNADDR:
    case ZO_FNROOT: e.function = c.string(); break;
    case ZO_FNSIZE:
        e.function = c.string();
        e.number = c.word();
        e.autosize = c.word();
        break;
    default: c.fail(zo_format("unknown FNINFO subcode %u", e.subcode));
    }
    return e;
}

// Braced initialisers run left to right, so that the fields below are read in the order in which they are written.
void read_body(zo_record &r)
{
    cursor c = {r.raw, {}};
    switch (r.type) {
    case ZO_IDENT: {
        zo_ident b = {};
        for (uint8_t &o : b.order)
            o = c.byte();
        b.chip = c.string();
        b.major = c.byte();
        b.minor = c.byte();
        r.body = b;
        break;
    }
    case ZO_PSECT: r.body = zo_psect{c.half(), c.string()}; break;
    case ZO_XPSECT: {
        zo_xpsect b = {};
        b.size = c.word();
        b.reloc = c.half();
        b.reserved = !c.zeros(2);
        b.space = c.byte();
        b.delta = c.byte();
        b.reserved = !c.zeros(2) || b.reserved;
        b.name = c.string();
        b.class_name = c.string();
        b.with = c.string();
        r.body = b;
        break;
    }
    case ZO_PSECTLIM: {
        zo_psectlim b = {};
        b.limit = c.half();
        b.reserved = !c.zeros(14);
        b.name = c.string();
        r.body = b;
        break;
    }
    case ZO_PSECTBOUND:
        r.body = zo_psectbound{c.byte(), c.half(), c.word(), c.word(), c.byte(), c.byte(), c.string(), c.string()};
        break;
    case ZO_SYM: {
        zo_sym b;
        while (c.more())
            b.symbols.push_back(zo_symbol{c.word(), c.half(), c.string(), c.string()});
        r.body = b;
        break;
    }
    case ZO_TEXT: {
        zo_text b = {c.word(), c.string(), {}};
        b.data.assign(c.left.begin(), c.left.end());
        c.left = {};
        r.body = b;
        break;
    }
    case ZO_RELOC: {
        zo_reloc b;
        while (c.more())
            b.entries.push_back(read_reloc(c));
        r.body = b;
        break;
    }
    case ZO_SIGNAT: r.body = zo_signat{c.half(), c.string()}; break;
    case ZO_FNINFO: {
        zo_fninfo b;
        while (c.more())
            b.entries.push_back(read_fninfo(c));
        r.body = b;
        break;
    }
    case ZO_FNCONF: r.body = zo_fnconf{{c.string(), c.string(), c.string()}, c.half()}; break;
    case ZO_FNALIGN: {
        zo_fnalign b = {c.half(), {}};
        while (c.more())
            b.names.push_back(c.string());
        r.body = b;
        break;
    }
    case ZO_DABS: {
        zo_dabs b;
        while (c.more())
            b.entries.push_back(zo_dabs_entry{c.byte(), c.word(), c.word(), c.string()});
        r.body = b;
        break;
    }
    case ZO_START: r.body = zo_start{c.word(), c.string()}; break;
    case ZO_END: r.body = zo_end{!c.zeros(2)}; break;
    case ZO_LISTRELOC: r.body = zo_listreloc{c.string(), c.string()}; break;
    case ZO_COND_EXPR: r.body = zo_cond_expr{read_expr(c)}; break;
    case ZO_LR_TEXT:
        r.body = zo_lr_text{std::string(c.left.begin(), c.left.end())};
        c.left = {};
        break;
    case ZO_LR_RELOC: {
        zo_lr_reloc b = {};
        b.base = c.word();
        b.reserved = !c.zeros(1);
        b.type = c.byte();
        uint8_t columns = c.byte();
        b.columns = columns & 15;
        b.value = read_expr(c);
        if (zo_field_kind(b.type) != ZO_COMPLEX)
            c.fail(zo_format("relocation type 0x%02X is not complex", b.type));
        r.body = b;
        break;
    }
    case ZO_SEGMENT:
    case ZO_XSYM:
    case ZO_SEGSTART:
    case ZO_UNKNOWN: c.left = {}; break;
    }
    if (!c.left.empty())
        c.fail(zo_format("%zu bytes too many", c.left.size()));
    if (!c.error.empty()) {
        r.error = c.error;
        r.body = zo_other{};
    }
}

}   // namespace

bool zo_file::decoded() const
{
    return error.empty() && std::all_of(records.begin(), records.end(), [](const zo_record &r) { return r.error.empty(); });
}

zo_file zo_read(std::span<const uint8_t> bytes)
{
    zo_file file;
    for (size_t at = 0; at < bytes.size();) {
        if (bytes.size() - at < ZO_HEAD) {
            file.error = "file ends inside a record's head";
            break;
        }
        size_t length = bytes[at] + bytes[at + 1] * size_t(256);
        uint8_t type = bytes[at + 2];
        if (type < ZO_TEXT || type > ZO_LAST) {
            file.error = zo_format("Unknown record type: %d", type);
            break;
        }
        if (length > ZO_BODY_MAX) {
            file.error = zo_format("Record too long: \"%s\" (%zu)", zo_type_name(type), length);
            break;
        }
        if (length > bytes.size() - at - ZO_HEAD) {
            file.error = zo_format("Incomplete record: \"%s\" (%zu)", zo_type_name(type), length);
            break;
        }
        zo_record r = {static_cast<zo_type>(type), at, bytes.subspan(at + ZO_HEAD, length), {}, {}};
        read_body(r);
        file.records.push_back(std::move(r));
        at += ZO_HEAD + length;
    }
    return file;
}
