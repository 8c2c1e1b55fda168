// From bytes to records.
//
// A file is a run of frames: length, type, body. Frames are read first and strictly, for a wrong length makes nonsense of
// all that follows. A body is decoded with a cursor, whose reason for a fault the decoder looks at once it is done. Loops over
// entries end at the first reason, and each turn takes at least one byte, so that no body can hold them up.
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

uint8_t byte(zo_cursor &c) { return static_cast<uint8_t>(c.number(1)); }
uint16_t half(zo_cursor &c) { return static_cast<uint16_t>(c.number(2)); }
uint32_t word(zo_cursor &c) { return c.number(4); }
std::string string(zo_cursor &c) { return std::string(c.text()); }

bool zeros(zo_cursor &c, size_t bytes)   // all of them 0
{
    return c.part(bytes).find_first_not_of('\0') == std::string_view::npos;
}

// Postfix code up to the byte `stop`, which is taken too. `lasts[d]` gets the number of tokens read when the stack's
// depth was last d, so that the caller can tell where each value of several ends.
zo_expr read_tokens(zo_cursor &c, uint8_t stop, unsigned values, size_t *lasts)
{
    zo_expr expr;
    unsigned depth = 0;
    for (;;) {
        if (!c.more()) {
            c.fail("postfix code without terminator");
            return {};
        }
        zo_token t = {byte(c), 0, {}};
        if (t.op == stop)
            break;
        unsigned takes = 0;
        switch (t.op) {
        case ZO_OP_CONST: t.number = word(c); break;
        case ZO_OP_PSECT:
        case ZO_OP_SEG_PSECT:
        case ZO_OP_SYMBOL:
        case ZO_OP_SEG_SYMBOL:
        case ZO_OP_DEFINED: t.name = string(c); break;
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

zo_expr read_expr(zo_cursor &c)
{
    size_t lasts[2];
    return read_tokens(c, ZO_OP_END, 1, lasts);
}

zo_reloc_entry read_reloc(zo_cursor &c)
{
    zo_reloc_entry e = {half(c), byte(c), {}, {}, {}};
    switch (zo_field_kind(e.type)) {
    case ZO_ADD_PSECT:
    case ZO_ADD_SYMBOL: e.name = string(c); break;
    case ZO_COMPLEX: e.value = read_expr(c); break;
    case ZO_CHECK: {
        if (byte(c) != ZO_OP_CHECK)
            c.fail("range check without its opener");
        e.name = string(c);
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

zo_fninfo_entry read_fninfo(zo_cursor &c)
{
    zo_fninfo_entry e = {byte(c), {}, {}, 0, 0};
    switch (e.subcode) {
    case ZO_FNCALL:
    case ZO_FNARG:
    case ZO_FNBREAK:
        e.function = string(c);
        e.name = string(c);
        break;
    case ZO_FNINDIR:
        e.function = string(c);
        e.number = half(c);
        break;
    case ZO_FNADDR:
    case ZO_FNROOT: e.function = string(c); break;
    case ZO_FNSIZE:
        e.function = string(c);
        e.number = word(c);
        e.autosize = word(c);
        break;
    default: c.fail(zo_format("unknown FNINFO subcode %u", e.subcode));
    }
    return e;
}

// Braced initialisers run left to right, so that the fields below are read in the order in which they are written.
void read_body(zo_record &r)
{
    zo_cursor c{zo_view(r.raw)};
    switch (r.type) {
    case ZO_IDENT: {
        zo_ident b = {};
        for (uint8_t &o : b.order)
            o = byte(c);
        b.chip = string(c);
        b.major = byte(c);
        b.minor = byte(c);
        r.body = b;
        break;
    }
    case ZO_PSECT: r.body = zo_psect{half(c), string(c)}; break;
    case ZO_XPSECT: {
        zo_xpsect b = {};
        b.size = word(c);
        b.reloc = half(c);
        b.reserved = !zeros(c, 2);
        b.space = byte(c);
        b.delta = byte(c);
        b.reserved = !zeros(c, 2) || b.reserved;
        b.name = string(c);
        b.class_name = string(c);
        b.with = string(c);
        r.body = b;
        break;
    }
    case ZO_PSECTLIM: {
        zo_psectlim b = {};
        b.limit = half(c);
        b.reserved = !zeros(c, 14);
        b.name = string(c);
        r.body = b;
        break;
    }
    case ZO_PSECTBOUND:
        r.body = zo_psectbound{byte(c), half(c), word(c), word(c), byte(c), byte(c), string(c), string(c)};
        break;
    case ZO_SYM: {
        zo_sym b;
        while (c.more())
            b.symbols.push_back(zo_symbol{word(c), half(c), string(c), string(c)});
        r.body = b;
        break;
    }
    case ZO_TEXT: {
        zo_text b = {word(c), string(c), {}};
        const std::string_view data = c.rest();
        b.data.assign(data.begin(), data.end());
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
    case ZO_SIGNAT: r.body = zo_signat{half(c), string(c)}; break;
    case ZO_FNINFO: {
        zo_fninfo b;
        while (c.more())
            b.entries.push_back(read_fninfo(c));
        r.body = b;
        break;
    }
    case ZO_FNCONF: r.body = zo_fnconf{{string(c), string(c), string(c)}, half(c)}; break;
    case ZO_FNALIGN: {
        zo_fnalign b = {half(c), {}};
        while (c.more())
            b.names.push_back(string(c));
        r.body = b;
        break;
    }
    case ZO_DABS: {
        zo_dabs b;
        while (c.more())
            b.entries.push_back(zo_dabs_entry{byte(c), word(c), word(c), string(c)});
        r.body = b;
        break;
    }
    case ZO_START: r.body = zo_start{word(c), string(c)}; break;
    case ZO_END: r.body = zo_end{!zeros(c, 2)}; break;
    case ZO_LISTRELOC: r.body = zo_listreloc{string(c), string(c)}; break;
    case ZO_COND_EXPR: r.body = zo_cond_expr{read_expr(c)}; break;
    case ZO_LR_TEXT: r.body = zo_lr_text{std::string(c.rest())}; break;
    case ZO_LR_RELOC: {
        zo_lr_reloc b = {};
        b.base = word(c);
        b.reserved = !zeros(c, 1);
        b.type = byte(c);
        uint8_t columns = byte(c);
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
    case ZO_UNKNOWN: c.rest(); break;
    }
    if (c.more())
        c.fail(zo_format("%zu bytes too many", c.bytes.size() - c.at));
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
