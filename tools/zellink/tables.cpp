// tables: slips in jump tables, for the check.
//
// A table is the run of branches and returns behind `addwf PCL,f`. Reading PCL takes PCLATH from the program counter, so that the
// sum stays in the 256 bytes in which the table begins: rows behind that boundary are never reached, whatever PCLATH held. Which
// rows an index asks for is known if a mask or a comparison bounds it right ahead, with nothing but doublings or a product
// between; then each index has to lead to the begin of a row. One past the last row may be the last arm itself, written out, if
// nothing else leads there.
#include <algorithm>

#include "zellink.h"

namespace
{

using reached_t = std::map<uint32_t, uint32_t>;   // instructions, and their bytes

// What W may be ahead of the jump: a value up to `most`, of the bits of `mask`, times a factor.
struct index_t {
    uint32_t mask = 255, most = 255, factor = 1;
    std::string by{};   // the instructions that see to that
};

struct step_t {
    uint32_t at;
    zo_code code;   // no name if nothing is known to lead here in a straight line
};

}   // namespace

static bool named(const zo_code &c, std::string_view name) { return c.name && c.name == name; }
static bool loads(const zo_code &c, std::string_view name) { return named(c, name) && !c.file; }
static bool same_file(const zo_code &x, const zo_code &y) { return x.a == y.a && x.banked == y.banked; }

static step_t before(const zl_flow &f, const reached_t &reached, uint32_t at)
{
    for (const uint32_t bytes : {2u, 4u})
        if (const auto it = reached.find(at - bytes); it != reached.end() && it->second == bytes)
            return {at - bytes, zl_code_at(f, at - bytes)};
    return {at, zl_code_at(f, 1)};   // no instruction
}

// A comparison ahead of `at`, which only a small value of the register that `x` loads gets past: behind it all others leave, or
// a branch to `at` goes around the instruction by which they do.
static bool find_comparison(const zl_flow &f, const reached_t &reached, uint32_t at, const zo_code &x, index_t &index)
{
    const auto leaves = [&](const step_t &s) {
        const zl_next n = zl_next_of(f, s.at, s.code);
        return s.code.name && std::find(n.to.begin(), n.to.end(), s.at + 2 * s.code.words) == n.to.end();
    };
    const step_t last = before(f, reached, at), ahead = before(f, reached, last.at);
    const bool around = leaves(last) && (ahead.code.form == ZO_REL8 || named(ahead.code, "bra")) && ahead.code.a == at;
    const step_t branch = around ? ahead : last, test = before(f, reached, branch.at);
    const zo_code first = before(f, reached, test.at).code;
    const bool loaded = loads(first, "movf") && same_file(first, x);
    const bool clamps = named(branch.code, "movwf") && same_file(branch.code, x);
    index.by = zo_format("`%s 0x%X`", test.code.name ? test.code.name : "", test.code.a);
    if (loaded && named(test.code, "sublw") && named(branch.code, around ? "bc" : "bnc")) {
        index.most = test.code.a;
        return true;
    }
    if (loaded && named(test.code, "addlw") && named(branch.code, around ? "bnc" : "bc")) {
        index.most = 255 - test.code.a;
        return true;
    }
    index.by = zo_format("`movlw 0x%X` with `%s`", first.a, around ? "cpfsgt" : "cpfslt");
    index.most = first.a - (around || clamps ? 0 : 1);
    return named(first, "movlw") && first.a && same_file(test.code, x) && named(test.code, around ? "cpfsgt" : "cpfslt") &&
           (around ? named(branch.code, "bra") : clamps || leaves(branch));
}

static bool find_index(const zl_flow &f, const reached_t &reached, uint32_t jump, index_t &index)
{
    const target_t &t = f.l.target;
    const uint32_t w = target_sfr(t, "WREG"), product = target_sfr(t, "PRODL");
    for (step_t s = before(f, reached, jump); index.factor < 256; s = before(f, reached, s.at)) {
        const zo_code c = s.code;
        const step_t ahead = before(f, reached, s.at);
        const zo_code first = ahead.code;
        const bool masks = loads(c, "andwf") && named(first, "movlw");
        if (named(c, "andlw") || masks) {
            index.mask = masks ? first.a : c.a;
            index.by = zo_format("`%s 0x%X`", masks ? "movlw" : "andlw", index.mask) + (masks ? " with `andwf`" : "");
            return true;
        }
        if (named(c, "addlw") && named(first, "bc")) {
            const zo_code test = before(f, reached, ahead.at).code;
            index.most = c.a - 1;
            index.by = zo_format("`addlw 0x%X`", test.a);
            return named(test, "addlw") && c.a && test.a + c.a == 256;
        }
        if (c.form != ZO_FILE_DEST)
            return false;
        if ((named(c, "rlncf") || named(c, "addwf")) && zl_access_address(t, c) == w)
            index.factor *= 2;
        else if (loads(c, "addwf") && named(first, "movwf") && same_file(first, c))
            index.factor *= 2, s = ahead;
        else if (loads(c, "movf") && zl_access_address(t, c) == product && named(first, "mullw"))
            index.factor *= first.a, s = ahead;
        else if (index.factor *= named(c, "rlncf") ? 2 : 1; loads(c, "movf") || loads(c, "rlncf"))
            return find_comparison(f, reached, s.at, c, index);
        else
            return false;
    }
    return false;
}

// The first index that leads to no row, with where it leads.
static bool find_slip(const zl_flow &f, const reached_t &reached, uint32_t jump, const zl_next &n, const index_t &index,
                      uint32_t &value, uint32_t &to)
{
    const uint32_t next = jump + 2, last = n.to.back(), end = last + 2 * zl_code_at(f, last).words;
    const zl_piece *const p = f.owner[jump];
    const auto is_arm = [&](uint32_t at) {   // nothing else comes there: the jumps of all rows end ahead of it
        const bool entered = f.functions.contains(at) || f.l.mentions.contains(at) || reached.contains(at);
        return at == end && f.owner[at] == p && zl_code_at(f, at).name && !entered;
    };
    for (value = 0; value < 256; value++) {
        const uint32_t w = value * index.factor;
        if (value & ~index.mask || value > index.most || w > 255)
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
            tell(zo_format(
                "the table crosses 0x%X, behind which an addition to PCL doesn't lead: place it within 256 bytes, or "
                "set PCLATH and PCL by `movwf`",
                boundary));
        else if (find_index(f, reached, at, index) && find_slip(f, reached, at, n, index, value, to))
            tell(zo_format("the index %u, which %s lets through, leads to 0x%X, where none of the table's %zu rows "
                           "begins: add rows, or bound and scale the index by them",
                           value, index.by.c_str(), to, n.to.size()));
    }
}
