// returns: whether a return has a place to go back to and brings back what it should, for the check.
//
// The chip has room for W, STATUS and BSR of one call or interrupt. A call with `f` and an interrupt put theirs there, whoever
// else counts on what it holds.
#include <algorithm>

#include "zellink.h"

static void tell(zl_linker &l, const zl_flow &f, uint32_t at, const std::string &text)
{
    const zl_piece *const p = f.owner[at];   // control comes there
    zl_complain(l, *p, at - zl_address(*p), "may be wrong: " + text, true);
}

static bool may_interrupt(const zl_flow &f, const zl_root &other, const zl_root &r)
{
    return other.interrupt && (!r.interrupt || (!f.vector_table && other.entry < r.entry));
}

// Returns to what nothing called. Code that pushes an address goes there by one.
static void check_ends(zl_linker &l, const zl_flow &f, const zl_root &r)
{
    bool pushes = false, restores = false;
    std::map<uint32_t, zo_code> ends;
    zl_walk(f, r.entry, false, [&](uint32_t at, const zo_code &c, const zl_next &n) {
        pushes = pushes || std::string_view(c.name) == "push";
        const bool from_interrupt = std::string_view(c.name) == "retfie";
        restores = restores || (from_interrupt && c.fast);
        if (n.returns && !(r.interrupt && from_interrupt))
            ends[at] = c;
    });
    for (const auto &[at, c] : ends)
        if (!pushes)
            tell(l, f, at,
                 r.interrupt
                     ? "the " + r.what + " ends by `" + c.name + "`, which lets no interrupts in again: take `retfie`"
                     : "`" + std::string(c.name) + "` has no call to return to: end main in a loop or a `sleep`");
    if (r.interrupt && restores)
        zl_walk(f, r.entry, true, [&](uint32_t at, const zo_code &c, const zl_next &n) {
            if (n.calls && c.fast)
                tell(l, f, at,
                     "overwrites what `retfie f` of the " + r.what + " brings back: call without `f`, or save by moves");
        });
}

void zl_check_returns(zl_linker &l, const zl_flow &f)
{
    for (const zl_root &r : f.roots) {
        if (r.interrupt || r.what == "main")
            check_ends(l, f, r);
        const auto other =
            std::find_if(f.roots.begin(), f.roots.end(), [&](const zl_root &x) { return may_interrupt(f, x, r); });
        if (other == f.roots.end())
            continue;
        zl_walk(f, r.entry, true, [&](uint32_t at, const zo_code &c, const zl_next &n) {
            if (n.returns && c.fast)
                tell(l, f, at,
                     "`" + std::string(c.name) + " f` brings back what the " + other->what +
                         " has saved, if it came in between: save and restore W, STATUS and BSR by moves");
        });
    }
}
