// tables: slips in jump tables, for the check.
//
// A table is the run of branches and returns behind `addwf PCL,f`. Reading PCL takes PCLATH from the program counter, so that the
// sum stays in the 256 bytes in which the table begins: rows behind that boundary are never reached, whatever PCLATH held. Which
// rows an index asks for is known if `andlw` bounds it right ahead, with nothing but doublings or a product between; then
// each index has to lead to the begin of a row. One past the last row may be the last arm itself, written out, if nothing else
// leads there.
#include <algorithm>

#include "zellink.h"

namespace
{

// What W may be ahead of the jump: some bits, times a factor.
struct index_t {
    uint32_t mask, factor, at;   // at: the `andlw`
};

}   // namespace

static bool named(const zo_code &c, std::string_view name) { return c.name && c.name == name; }

static bool find_index(const zl_flow &f, const std::map<uint32_t, uint32_t> &reached, uint32_t jump, index_t &index)
{
    const target_t &t = f.l.target;
    const uint32_t w = target_sfr(t, "WREG"), product = target_sfr(t, "PRODL");
    index.factor = 1;
    const auto before = [&](uint32_t at) {
        return at >= 2 && reached.contains(at - 2) ? zl_code_at(f, at - 2) : zl_code_at(f, 1);   // no instruction
    };
    for (uint32_t at = jump; index.factor < 256; at -= 2) {
        const zo_code c = before(at), first = before(at - 2);
        if (named(c, "andlw")) {
            index.mask = c.a;
            index.at = at - 2;
            return true;
        }
        if (c.form != ZO_FILE_DEST)
            return false;
        const bool pair = named(first, "movwf") && first.a == c.a && first.banked == c.banked;
        if ((named(c, "rlncf") || named(c, "addwf")) && zl_access_address(t, c) == w)
            index.factor *= 2;
        else if (named(c, "addwf") && !c.file && pair)
            index.factor *= 2, at -= 2;
        else if (named(c, "movf") && !c.file && zl_access_address(t, c) == product && named(first, "mullw"))
            index.factor *= first.a, at -= 2;
        else
            return false;
    }
    return false;
}

// The first index that leads to no row, with where it leads.
static bool find_slip(const zl_flow &f, const std::map<uint32_t, uint32_t> &reached, uint32_t jump, const zl_next &n,
                      const index_t &index, uint32_t &value, uint32_t &to)
{
    const uint32_t next = jump + 2, last = n.to.back(), end = last + 2 * zl_code_at(f, last).words;
    const zl_piece *const p = f.owner[jump];
    const auto is_arm = [&](uint32_t at) {   // nothing else comes there: the jumps of all rows end ahead of it
        const bool entered = f.functions.contains(at) || f.l.mentions.contains(at) || reached.contains(at);
        return at == end && f.owner[at] == p && zl_code_at(f, at).name && !entered;
    };
    for (value = 0; value < 256; value++) {
        const uint32_t w = value * index.factor;
        if (value & ~index.mask || w > 255)
            continue;
        to = (next & ~0xFFu) | ((next + w) & 0xFF);
        if (std::find(n.to.begin(), n.to.end(), to) == n.to.end() && !(to < f.owner.size() && is_arm(to)))
            return true;
    }
    return false;
}

void zl_check_tables(zl_linker &l, const zl_flow &f, const std::map<uint32_t, uint32_t> &reached)
{
    for (const auto &[at, bytes] : reached) {
        const zo_code c = zl_code_at(f, at);
        const zl_next n = zl_next_of(f, at, c);
        if (!n.computed || n.to.empty() || !named(c, "addwf"))
            continue;
        const zl_piece &p = *f.owner[at];
        const auto tell = [&, place = at](const std::string &text) {
            zl_complain(l, p, place - zl_address(p), "may be wrong: " + text, true);
        };
        const uint32_t next = at + bytes;
        index_t index{};
        uint32_t value = 0, to = 0;
        if (const uint32_t boundary = (next | 0xFF) + 1; n.to.back() >= boundary)
            tell(zo_format("the table crosses 0x%X, behind which an addition to PCL doesn't lead: place it within 256 bytes, or "
                           "set PCLATH and PCL by `movwf`",
                           boundary));
        else if (find_index(f, reached, at, index) && find_slip(f, reached, at, n, index, value, to))
            tell(zo_format("the index %u, which `andlw 0x%X` lets through, leads to 0x%X, where none of the table's %zu rows "
                           "begins: add rows, or bound and scale the index by them",
                           value, index.mask, to, n.to.size()));
    }
}
