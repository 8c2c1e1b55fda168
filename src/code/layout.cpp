// Gives everything its size and place.
//
// The size pass walks a psect's list, adding up sizes: every node gets its offset, every label its value. The size of a
// branch depends on how far away its label is, and that label may lie behind it. So the walk is repeated, each time with
// the label values that the walk before has left, until nothing moves any more. A label that lies ahead of the branch has
// its value from before the walk, when the branch stood elsewhere too: the distance is that of their places then, or a
// large psect would take a walk for every two kilobytes.
//
// Usually branches only shrink from one walk to the next and this is over after a few of them. Where one branch waits for
// another to shrink, and that for the next, it could take a walk for each of them. So after some walks those that are left
// are looked for where they can be, around a branch that has just become shorter (`squeeze`). That ends where the walks
// would, as long as distances only become smaller: the forms are the shortest that can be had from above, in any order.
//
// With padding, or an `org`, a shorter branch can make distances larger, branches can chase each other for ever, and only
// the walks themselves tell where they end. They go on until nothing moves or all is as it was before, which is a circle.
// There a label ahead of the branch is taken where it was, and the branch where it is now, as long as that may settle: it
// decides which of several ends is found. A large psect, of which each such walk settles a piece only, goes over to old places.
// In a circle, or when it takes too long, a branch may only grow from then on, so that each further walk makes at least one
// longer, and after some more all those that still have a choice take their longest form, which ends it.
//
// What may bite. An `org` stands where it says, so in front of one the form of a branch can't be told from the distance to
// the next node: branch_form works it out again from the final labels. Offsets are 32 bits. A position that would pass
// OFFS_MAX stays there, and emission stops, with a message, where it meets it.
#include "code/layout.h"

#include <algorithm>
#include <array>

#include "chip/chip.h"
#include "code/data.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/assertion.h"
#include "common/xalloc.h"
#include "options.h"

enum : unsigned { SQUEEZE_EVERY = 8, CIRCLE_FROM = 64, RIGID_WALKS = 128, GROWING_WALKS = 100, AHEAD = 12 };
// Walks may visit so many nodes in all, within these limits. The lower one grows with the psect: without the old places a
// walk settles some hundred nodes only.
enum : size_t { VISITS = 100000000, MOST_WALKS = 10000, LEAST_WALKS = 50, LEAST_WALKS_MORE = 1000, NODES_A_WALK = 100 };
enum : uint32_t { ARCH_14BIT = ARCH_X };

struct placed_t;
struct squeezed_t;

static struct {
    bool growing, longest;   // branches may only grow; no longer have a choice
    bool as_written;         // gotos are as long as without the optimiser
    placed_t *placed;        // the nodes of a psect that have to be walked again and again
    size_t placed_count, placed_room;
    bool rigid;             // not all nodes move when one grows
    bool old_places;        // how far a label ahead is, is told by where both were before the walk
    squeezed_t *squeezed;   // the branches that can become shorter, and one more element
    size_t squeezed_count, squeezed_room;
    uint32_t shrunk;   // the last branch that has become shorter and whose surroundings are still to see
} st;

static bool is_live_org(const op_t *op) { return op->op_type == T_ORG && !(op->op_flags & OPF_SKIPPED); }

// How far a branch at `here` has to reach. A distance relative to `$` counts from the branch itself when it goes forward.
struct reach_t {
    int64_t back, ahead;
};

static bool within(reach_t reach, bool (*fits)(int64_t distance)) { return fits(reach.back) && fits(reach.ahead); }

// The two-word form of a conditional branch: the reversed condition, and a short branch that it skips.
static bool fits_branch_behind_skip(int64_t distance) { return distance >= -2044 && distance <= 2043; }

static reach_t reach_from(uint64_t here, int64_t to)
{
    const int64_t distance = wrap_minus(wrap_minus(to, 2), static_cast<int64_t>(here));
    return {distance, distance};
}

// Whether `addend` behind the place `v` is known to lie at some distance in the same psect.
static bool place_is_near(const value_t *v, int64_t addend, uint64_t here, reach_t *reach)
{
    const int64_t offs = wrap_plus(addend, v->v_offs);
    if (v->v_rtype == RT_HERE)
        *reach = {wrap_minus(offs, 2), offs};
    else
        *reach = reach_from(here, offs);
    return v->v_rtype == RT_HERE || (v->v_rtype == RT_PSECT && v->v_sym == cur_psect);
}

static bool is_near(const value_t *v, uint64_t here, reach_t *reach)
{
    if (psect_is_abs(cur_psect)) {
        *reach = reach_from(here, v->v_offs);
        return v->v_rtype == RT_CONST;
    }
    return value_is_reference(v) ? place_is_near(&v->v_sym->s_value, v->v_offs, here, reach)
                                 : place_is_near(v, 0, here, reach);
}

bool branch_has_forms(const op_t *op)
{
    switch (op->op_type) {
    case T_BCC: return !opt.no_trans && !(op->op_flags & OPF_COMPILED);
    case T_GOTO: return opt.optimise && !st.as_written && !(op->op_flags & OPF_FIXED);
    case T_CALL: return !opt.no_trans && !(op->op_subop & CALL_FAST);
    default: return false;
    }
}

// The size of a branch that has forms.
static uint64_t form_size(token_t type, bool near, reach_t reach)
{
    near &= !st.longest;
    if (type == T_BCC)
        return !near ? 6 : within(reach, fits_cond_branch) ? 2 : within(reach, fits_branch_behind_skip) ? 4 : 6;
    return near && within(reach, fits_short_branch) ? 2 : 4;
}

// These take a node of a row's kind at position `pos`. Sizes may be anything up to OFFS_MAX + 1.
static uint64_t size_branch(const op_t *op, uint64_t pos)
{
    if (!branch_has_forms(op))
        return op->op_type == T_BCC ? 2 : 4;
    if (op->op_flags & OPF_PINNED)
        return uint64_t{2} * ((op->op_flags & OPF_WORDS) / OPF_WORD);
    reach_t reach;
    const bool near = is_near(&op->op_opnd1.opnd_value, pos, &reach);
    return form_size(op->op_type, near, reach);
}

symbol_t *value_psect(const value_t *v)
{
    if (v->v_rtype == RT_PSECT)
        return v->v_sym;
    if (!value_is_reference(v))
        return nullptr;
    const value_t *behind = &v->v_sym->s_value;
    if (behind->v_rtype == RT_PSECT)
        return behind->v_sym;
    return behind->v_rtype == RT_SYM && behind->v_sym->s_defop ? behind->v_sym->s_defop->op_psect.get() : nullptr;
}

static bool is_low_address(const opnd_t *o)
{
    const value_t &v = o->opnd_value;
    return o->opnd_kind == OPND_DATA && v.v_rtype == RT_CONST && static_cast<uint64_t>(v.v_offs) < 4096;
}

static bool in_lowdata(const opnd_t *o)
{
    const symbol_t *psect = value_psect(&o->opnd_value);
    return psect && psect->s_psect->p_lowdata;
}

bool movff_is_short(const op_t *op)
{
    if (!chip_archIs(ARCH_14BIT))
        return true;
    if (is_low_address(&op->op_opnd1) && is_low_address(op_opnd2(op)))
        return true;
    return in_lowdata(&op->op_opnd1) && in_lowdata(op_opnd2(op));
}

static uint64_t size_movff(const op_t *op, uint64_t) { return movff_is_short(op) ? 4 : 6; }

static uint64_t size_nop(const op_t *op, uint64_t) { return op->op_subop == NOP2 && opt.errata_mask & ERRATA_NOP2 ? 4 : 2; }

unsigned data_item_width(const op_t *op)
{
    const unsigned delta = static_cast<unsigned>(psect_delta(cur_psect->s_psect));
    return op->op_subop > delta ? op->op_subop : delta;
}

static uint64_t size_db(const op_t *op, uint64_t) { return data_count(op) * data_item_width(op); }

uint64_t units_to_bytes(units_t units)
{
    const uint64_t delta = psect_delta(cur_psect->s_psect);
    return units.count > OFFS_MAX / delta ? OFFS_MAX + 1 : units.count * delta;
}

static uint64_t size_ds(const op_t *op, uint64_t)
{
    const int64_t units = op->op_opnd1.opnd_value.v_offs;
    return units > 0 ? units_to_bytes({static_cast<uint64_t>(units)}) : 0;
}

static uint64_t size_align(const op_t *op, uint64_t pos)
{
    const uint64_t over = op_bytes(op) ? pos % op_bytes(op) : 0;
    const uint64_t padding = over ? op_bytes(op) - over : 0;
    return padding <= ALIGN_MAX ? padding : 0;
}

// One row a kind of node. A size function works out what a fixed number can't tell.
struct size_row_t {
    token_t type = T_NONE;
    uint8_t size = 0;                                              // bytes; the longest form of a branch
    uint64_t (*size_of)(const op_t *op, uint64_t pos) = nullptr;   // null: it is `size`
    bool placed = false;   // the position counts: for the size, for what follows, or for a symbol
};

// clang-format off
static constexpr size_row_t size_rows[] = {
    {T_SUBWF, 2}, {T_MOVF, 2}, {T_SWAPF, 2}, {T_RLCF, 2}, {T_DECFSZ, 2}, {T_ANDWF, 2}, {T_INCF, 2}, {T_ADDWF, 2},
    {T_MULWF, 2}, {T_CPFSEQ, 2}, {T_MOVWF, 2}, {T_CLRF, 2}, {T_BCF, 2}, {T_BTFSC, 2}, {T_CALLW, 2}, {T_PUSH, 2},
    {T_RETURN, 2}, {T_TRET, 2}, {T_DBOUT, 2}, {T_TBLRD, 2}, {T_TRAP, 2}, {T_ADDLW, 2}, {T_RETLW, 2}, {T_MOVLW, 2},
    {T_PUSHL, 2}, {T_ADDULNK, 2}, {T_ADDFSR, 2}, {T_SETCNT, 2}, {T_BANKSEL, 2}, {T_MOVLB, 2}, {T_BRA, 2}, {T_RCALL, 2},
    {T_NOP, 2, size_nop}, {T_LFSR, 4}, {T_MOVSF, 4}, {T_MOVSS, 4}, {T_MOVFF, 6, size_movff, true}, {T_MOVFFL, 6},
    {T_MOVSFL, 6}, {T_BCC, 6, size_branch}, {T_GOTO, 4, size_branch}, {T_CALL, 4, size_branch}, {T_DB, 0, size_db},
    {T_DS, 0, size_ds}, {T_ORG, 0, nullptr, true}, {T_ALIGN, 0, size_align, true}, {T_NAME, 0, nullptr, true},
    {T_NUMLABEL, 0, nullptr, true}, {T_IF, 0}, {T_ELSIF, 0}, {T_ELSE, 0}, {T_ENDIF, 0}, {T_ENDM, 0}, {T_TITLE, 0},
    {T_INCLUDE, 0}, {T_MESSG, 0}, {T_EQU, 0}, {T_SET, 0},
};
// clang-format on
static constexpr auto sizes = rows_by_kind(size_rows);

static const size_row_t *row_of(const op_t *op)
{
    const size_row_t *k = op->op_type < sizes.size() ? &sizes[op->op_type] : nullptr;
    return k && k->type ? k : nullptr;
}

static uint64_t row_size(const size_row_t *k, const op_t *op, uint64_t pos)
{
    return k->size_of ? k->size_of(op, pos) : k->size;
}

uint64_t op_size(const op_t *op, uint64_t pos)
{
    const size_row_t *k = row_of(op);
    return k ? row_size(k, op, pos) : 0;
}

uint64_t branch_form(const op_t *op)
{
    const op_t *next = op->op_next;
    return is_live_org(next) ? size_branch(op, op->op_offs) : next->op_offs - op->op_offs;
}

// The walks.

// A node whose position counts, or the end of the list. What a walk needs of the node is here: in a large program the nodes
// themselves are far from each other.
struct placed_t {
    op_t *op;
    symbol_t *sym;   // of a label; of a branch to nothing but a symbol: that; otherwise null
    token_t type;
    uint32_t ahead;        // bytes between the placed node before it and this one
    uint32_t at, behind;   // positions before and after it, as the last walk has found them
};

static uint32_t within_limit(uint64_t pos) { return static_cast<uint32_t>(pos < OFFS_MAX ? pos : uint64_t{OFFS_MAX}); }

static uint32_t add_size(uint32_t pos, uint64_t size) { return within_limit(pos == OFFS_MAX ? pos : pos + size); }

static void append_placed(op_t *op, uint32_t ahead)
{
    xreserve(st.placed, st.placed_count, st.placed_count + 1, st.placed_room, size_t{256});
    const value_t &v = op->op_opnd1.opnd_value;
    symbol_t *sym = nullptr;
    if (op->op_type == T_NAME)
        sym = op->op_sym;
    else if (op->op_type == T_NUMLABEL ||
             (value_is_reference(&v) && v.v_offs == 0 && !psect_is_abs(cur_psect) && !(op->op_flags & OPF_PINNED)))
        sym = v.v_sym;
    st.placed[st.placed_count++] = {op, sym, op->op_type, ahead, OFFS_MAX, OFFS_MAX};
}

// Enters the psect's placed nodes.
static void find_placed(symbol_t *psect)
{
    uint32_t ahead = 0;
    st.placed_count = 0;
    bool odd = false;            // something has an odd size
    uint64_t most_aligned = 1;   // bytes
    st.rigid = psect_delta(psect->s_psect) != 1;
    op_t *op = psect->s_psect->p_code->head.op_next;
    for (; op->op_type != 0; op = op_step(op)) {
        ASSERTION(op->op_psect == psect, "op->op_psect == psect");
        if (op->op_flags & OPF_SKIPPED)
            continue;
        const size_row_t *k = row_of(op);
        if (!k) {
            op_set_position(op);
            alert_msg(813, op->op_type);
        } else if (k->placed || branch_has_forms(op)) {
            append_placed(op, ahead);
            ahead = 0;
            st.rigid |= op->op_type == T_ORG;
            if (op->op_type == T_ALIGN)
                most_aligned = std::max(most_aligned, op_bytes(op));
        } else {
            const uint64_t size = row_size(k, op, 0);
            odd |= size % 2 != 0;
            ahead = add_size(ahead, size);
        }
    }
    st.rigid |= most_aligned > (odd ? 1 : 2);   // instructions are even: `align 2` never makes a gap between them
    append_placed(op, ahead);
}

static uint64_t placed_branch_size(const placed_t *n, uint64_t pos, bool first)
{
    if (!n->sym)
        return size_branch(n->op, pos);
    reach_t reach;
    const value_t *target = &n->sym->s_value;
    const bool old = !first && st.old_places && target->v_offs > static_cast<int64_t>(pos);
    const bool near = place_is_near(target, 0, old ? n->at : pos, &reach);
    return form_size(n->type, near, reach);
}

// Where a placed node puts the position `pos` that it finds.
static uint32_t position_behind(const placed_t *n, uint32_t pos, bool first)
{
    uint64_t size = 0;
    switch (n->type) {
    case T_NAME:
    case T_NUMLABEL:
        if (first || n->at != pos)
            n->sym->s_value =
                value_psect_offset(cur_psect, static_cast<int64_t>(bytes_to_units(cur_psect->s_psect, pos).count));
        break;
    case T_ORG: return pos == OFFS_MAX ? pos : within_limit(units_to_bytes(op_units(n->op)));
    case T_ALIGN: size = size_align(n->op, pos); break;
    case T_MOVFF: size = size_movff(n->op, pos); break;
    default:
        size = placed_branch_size(n, pos, first);
        if (st.growing && size < n->behind - n->at)
            size = n->behind - n->at;
    }
    return add_size(pos, size);
}

// One walk over the placed nodes. True if any has moved.
static bool size_walk(bool first)
{
    bool moved = false;
    uint32_t pos = 0;
    placed_t *n = st.placed;
    for (; n->type != 0; n++) {
        if (n + AHEAD < st.placed + st.placed_count)
            __builtin_prefetch(n[AHEAD].sym);   // symbols lie in the order in which they were first named
        pos = add_size(pos, n->ahead);
        moved |= n->at != pos;
        const uint32_t behind = position_behind(n, pos, first);
        n->at = pos;
        n->behind = pos = behind;
    }
    pos = add_size(pos, n->ahead);
    moved |= n->at != pos;
    n->at = pos;
    return moved;
}

// What the last walk found, as a number; it decides what the next one finds.
static uint64_t walk_hash()
{
    uint64_t hash = 0;
    for (const placed_t *n = st.placed; n < st.placed + st.placed_count; n++)
        hash = (hash ^ n->at) * 0x100000001B3;
    return hash;
}

// The squeeze. Positions stay those of the last walk until it is over; what has been saved since is kept apart, so that a
// distance is known at any time.

// A branch whose distance can become smaller. Element i has the sum of what i & -i of them up to the one before it saved.
struct squeezed_t {
    placed_t *node;
    uint32_t at;       // node->at
    uint32_t to;       // where it leads,
    uint32_t target;   // and the first of these branches behind that place
    uint32_t saved;
    uint32_t next;   // if its surroundings are still to see: the branch after whose they are, or LAST; else IDLE
};
enum : uint32_t { IDLE = UINT32_MAX, LAST = UINT32_MAX - 1, SHORTEST = 2 };
// As far as a branch can be from its target and still reach it when all between them has its shortest form, a third.
enum : uint32_t { SQUEEZE_REACH = 3 * 2056 };

static uint32_t saved_before(size_t branch)
{
    uint32_t saved = 0;
    for (size_t i = branch; i != 0; i &= i - 1)
        saved += st.squeezed[i].saved;
    return saved;
}

static uint64_t squeezed_size(size_t branch)
{
    const squeezed_t &s = st.squeezed[branch];
    return form_size(s.node->type, true, reach_from(s.at - saved_before(branch), s.to - saved_before(s.target)));
}

static void squeeze_branch(size_t branch)
{
    squeezed_t &s = st.squeezed[branch];
    const uint32_t now = s.node->behind - s.at, size = now == SHORTEST ? now : static_cast<uint32_t>(squeezed_size(branch));
    if (size >= now)
        return;
    s.node->behind = s.at + size;
    for (size_t i = branch + 1; i <= st.squeezed_count; i += i & (~i + 1))
        st.squeezed[i].saved += now - size;
    if (s.next == IDLE) {
        s.next = st.shrunk;
        st.shrunk = static_cast<uint32_t>(branch);
    }
}

// Enters the branches. False if a distance could become larger, or a branch would have to grow.
static bool squeeze_begin()
{
    const placed_t *end = st.placed + st.placed_count;
    if (st.rigid || end[-1].at == OFFS_MAX)
        return false;
    st.squeezed_count = 0;
    for (placed_t *n = st.placed; n < end; n++) {
        if (n->type != T_BCC && n->type != T_GOTO && n->type != T_CALL)
            continue;
        reach_t reach;
        const value_t *v = n->sym ? &n->sym->s_value : &n->op->op_opnd1.opnd_value;
        if (v->v_rtype == RT_HERE || !(n->sym ? place_is_near(v, 0, n->at, &reach) : is_near(v, n->at, &reach)))
            continue;
        if (!n->sym && n->op->op_flags & OPF_PINNED)
            continue;
        if (!n->sym || n->sym->s_flags & (S_EQU | S_SET))
            return false;
        const size_t count = st.squeezed_count++;
        xreserve(st.squeezed, count, count + 2, st.squeezed_room, size_t{256});
        st.squeezed[count] = {n, n->at, static_cast<uint32_t>(v->v_offs), 0, 0, IDLE};
    }
    squeezed_t *all = st.squeezed;
    const size_t count = st.squeezed_count;
    if (count == 0)
        return false;
    all[count] = {};
    const auto before = [](const squeezed_t &s, uint32_t place) { return s.at < place; };
    for (size_t i = 0; i < count; i++)
        all[i].target = static_cast<uint32_t>(std::lower_bound(all, all + count, all[i].to, before) - all);
    for (size_t i = 0; i < count; i++)
        if (squeezed_size(i) > all[i].node->behind - all[i].at)
            return false;
    return true;
}

// Puts the nodes where they are now.
static void squeeze_end()
{
    uint32_t pos = 0;
    for (placed_t *n = st.placed; n < st.placed + st.placed_count; n++) {
        const uint32_t size = n->behind - n->at;
        pos += n->ahead;
        n->at = pos;
        if (n->type == T_NAME || n->type == T_NUMLABEL)
            n->sym->s_value = value_psect_offset(cur_psect, pos);
        n->behind = pos += size;
    }
}

// Makes all branches shorter that can be, if nothing else can come of further walks.
static void squeeze()
{
    if (!squeeze_begin())
        return;
    squeezed_t *all = st.squeezed;
    const size_t count = st.squeezed_count;
    st.shrunk = LAST;
    for (size_t i = count; i-- > 0;)
        squeeze_branch(i);
    while (st.shrunk != LAST) {
        const size_t middle = st.shrunk;
        st.shrunk = all[middle].next;
        all[middle].next = IDLE;
        for (size_t i = middle + 1; i-- > 0 && all[middle].at - all[i].at <= SQUEEZE_REACH;)
            if (all[i].target > middle)
                squeeze_branch(i);
        for (size_t i = middle + 1; i < count && all[i].at - all[middle].at <= SQUEEZE_REACH; i++)
            if (all[i].target <= middle)
                squeeze_branch(i);
    }
    squeeze_end();
}

// Gives all nodes their final offsets. An `org` stands where it puts the position. The psect begins at the lowest code; an
// `org` in front of it all tells where too, for a psect without code.
static void settle_offsets(psect_t *p)
{
    const placed_t *n = st.placed;
    bool started = false;
    uint32_t pos = 0;
    op_t *op = p->p_code->head.op_next;
    p->p_base = 0;
    for (; op->op_type != 0; op = op_step(op)) {
        const uint32_t before = pos;
        if (op == n->op)
            pos = n++->behind;
        else if (!(op->op_flags & OPF_SKIPPED))
            pos = add_size(pos, op_size(op, 0));
        const bool org = is_live_org(op);
        op->op_offs = org ? pos : before;
        if (org && !started) {
            p->p_base = pos;
        } else if (!org && pos != before) {
            if (!started || before < p->p_base)
                p->p_base = before;
            started = true;
        }
    }
    op->op_offs = pos;
    p->p_top = pos;
}

// Walks until branches may only grow.
static size_t walks_allowed(size_t nodes)
{
    const size_t least = LEAST_WALKS + std::min<size_t>(nodes / NODES_A_WALK, LEAST_WALKS_MORE);
    return std::max(std::min<size_t>(VISITS / nodes, MOST_WALKS), least);
}

void size_psect(symbol_t *psect)
{
    const in_psect_t here(psect);
    if (psect->s_psect->p_delta == 0)
        psect->s_psect->p_delta = 1;
    find_placed(psect);
    size_t free_walks = walks_allowed(st.placed_count), remember_at = CIRCLE_FROM;
    uint64_t remembered = 0;
    for (size_t pass = 1;; pass++) {
        st.growing = pass > free_walks;
        st.longest = pass > free_walks + GROWING_WALKS;
        st.old_places = !st.rigid || pass > RIGID_WALKS;
        if (!size_walk(pass == 1) && pass > 1)
            break;
        if (pass % SQUEEZE_EVERY == 0 && !st.growing)
            squeeze();
        if (pass < CIRCLE_FROM || st.growing)
            continue;
        const uint64_t hash = walk_hash();
        if (pass == remember_at) {
            remembered = hash;
            remember_at *= 2;
        } else if (hash == remembered) {
            free_walks = pass;
        }
    }
    st.growing = st.longest = false;
    settle_offsets(psect->s_psect);
    psect->s_psect->p_curr = 0;
}

void size_psect_as_written(symbol_t *psect)
{
    st.as_written = true;
    size_psect(psect);
    st.as_written = false;
}

void size_all()
{
    for (const code_list_t *list : psect_list)
        if (list->psect->s_psect->p_delta == 0)
            list->psect->s_psect->p_delta = 1;
    for (const code_list_t *list : psect_list)
        if (!list_empty(list))
            size_psect(list->psect);
}
