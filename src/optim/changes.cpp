// Rules edit nodes in place, so what an instruction was has to be noted before, and what has become of it is known only
// behind the rule. The step that is under way has a note of each node that was touched, with its text; at the step's end
// text and node are compared. A node that was deleted is told by its op_id, which is 0 or somebody else's.
//
// Of the node at which a rule fires and its neighbours a note is made at once: nothing else is altered without a word.
#include "optim/changes.h"

#include <string_view>

#include "code/layout.h"
#include "code/ops.h"
#include "common/hash.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "optim/node.h"
#include "out/emasm.h"

enum : int64_t { LITERAL_MAX = 255 };   // numbers up to this mean all sorts of things
enum : size_t { BESIDE = 3 };           // the node at which a step fires, and its neighbours: the first notes

struct note_t {
    op_t *op;
    uint32_t id;
    uint8_t how;
    uint8_t label;   // it is one
    source_t at, copy;
    symbol_t *psect;
    const char *text;
    int64_t size;
};

changes_t changes;

static struct {
    opt_rule_t rule = NO_RULE;   // of the step that is open
    uint32_t step;               // its number
    const char *why;
    note_t *notes;
    size_t note_count, note_room;
    hash_of<int64_t, symbol_t *> registers;       // of their numbers; null: several
    hash_of<uint32_t, const source_t *> copies;   // of op_id: the call for which the node was copied
    hash_of<uint32_t, bool> refused;              // op_id of calls
    uint32_t copied_call;                         // the last call of these, and its place
    const source_t *copied_for;
} st;

// Looking at nodes.

// Names of constants have become numbers long ago. The number of a register gets its name back if it has one name only.
static void remember_register(symbol_t *s)
{
    const value_t &v = s->s_value;
    if (s->s_flags & (S_SPACE_MASK | S_MACRO) || !(s->s_flags & S_EQU) || v.v_rtype != RT_CONST || v.v_offs <= LITERAL_MAX)
        return;
    const bool known = hash_haskey(st.registers, v.v_offs);
    hash_replace(st.registers, v.v_offs, known ? nullptr : s);
}

const char *changes_text_of(const op_t *op)
{
    op_t shown = *op;
    static opnd_t *const second = xnew<opnd_t>();
    *second = *op_opnd2(op);
    shown.op_second = second;
    for (opnd_t *o : {&shown.op_opnd1, second})
        if (symbol_t *s = o->opnd_kind == OPND_DATA && o->opnd_value.v_rtype == RT_CONST
                              ? hash_lookup(st.registers, o->opnd_value.v_offs)
                              : nullptr)
            o->opnd_value = value_sym(s);
    std::string_view text = asm_op(&shown, ASM_NAMES);
    const auto blank = [](char c) { return c == '\t' || c == '\n'; };
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    char *copy = xstrndup(text.data(), text.size());
    char *to = copy;   // with a blank for each gap
    for (const char *from = copy; *from; from++)
        if (!blank(*from))
            *to++ = *from;
        else if (to[-1] != ' ')
            *to++ = ' ';
    *to = 0;
    return cache_adopt(copy);
}

// Its bytes, with branches in the form that they have unless their target is very near or far.
static int64_t size_of(const op_t *op)
{
    switch (op->op_type) {
    case T_GOTO:
    case T_CALL: return 4;
    case T_BCC: return 2;
    case T_ALIGN:
    case T_ORG: return 0;
    default: break;
    }
    symbol_t *before = cur_psect;
    cur_psect = op->op_psect;
    const int64_t size = static_cast<int64_t>(op_size(op, 0));
    cur_psect = before;
    return size;
}

// A node that was made has no line of its own and takes that of the one before.
static source_t source_of(const op_t *op)
{
    while (op->op_type != 0 && op_line(op) == 0)
        op = op->op_prev;
    return {op_file(op) ? op_file(op) : "", op_line(op)};
}

source_t changes_copy_of(const op_t *op)
{
    const source_t *call = st.copies ? hash_lookup(st.copies, op->op_id) : nullptr;
    return call ? *call : source_t{"", 0};
}

// The reason, with what the instruction names first in place of {}.
static const char *reason(std::string_view why, std::string_view instruction)
{
    const size_t at = why.find("{}"), blank = instruction.find(' ');
    if (at == why.npos)
        return cache_substring(why.data(), why.size());
    std::string_view operand = blank == instruction.npos ? "it" : instruction.substr(blank + 1);
    operand = operand.substr(0, operand.find(','));
    return cache_printf("%.*s%.*s%s", static_cast<int>(at), why.data(), static_cast<int>(operand.size()), operand.data(),
                        why.data() + at + 2);
}

// Steps.

// The nodes that a step alters in place come first, and what is deleted was seldom touched long before.
static note_t *note_of(const op_t *op)
{
    for (size_t i = 0; i < st.note_count; i++) {
        if (i == BESIDE && st.note_count > 2 * BESIDE)
            i = st.note_count - BESIDE;
        if (st.notes[i].op == op && st.notes[i].id == op->op_id)
            return &st.notes[i];
    }
    return nullptr;
}

void changes_note(op_t *op, change_how_t how)
{
    const bool label = op->op_type == T_NAME;
    if (!st.rule || op->op_type == 0 || (label ? op_line(op) == 0 : op_is_silent(op)))
        return;   // a label without a place is one that the optimiser made
    if (note_t *known = note_of(op)) {
        known->how |= how;
        return;
    }
    xreserve(st.notes, st.note_count, st.note_count + 1, st.note_room, size_t{16});
    const bool described = how != HOW_ADDED && how != HOW_COPIED;   // which are known when they are complete
    st.notes[st.note_count++] = {op,
                                 op->op_id,
                                 how,
                                 label,
                                 source_of(op),
                                 changes_copy_of(op),
                                 op->op_psect,
                                 described ? changes_text_of(op) : nullptr,
                                 described ? size_of(op) : 0};
}

static change_t *new_change(const note_t &n, change_kind_t kind, int64_t bytes)
{
    xreserve(changes.changes, changes.change_count, changes.change_count + 1, changes.change_room, size_t{64});
    change_t *c = &changes.changes[changes.change_count++];
    *c = {};
    c->step = st.step;
    c->rule = st.rule;
    c->kind = kind;
    c->op_id = n.id;
    c->at = n.at;
    c->copy = n.copy;
    c->psect = n.psect;
    c->before = n.text;
    c->why = st.why;
    c->bytes = bytes;
    return c;
}

static source_t source_before(const op_t *op)
{
    const op_t *before = op->op_prev;
    while (op_is_silent(before))
        before = before->op_prev;
    return source_of(before);
}

static void settle(const note_t &n)
{
    const bool gone = n.op->op_id != n.id || n.how & HOW_REMOVED;
    if (n.how & (HOW_ADDED | HOW_COPIED) ? gone || n.label || n.how & HOW_COPIED : n.label && !gone)
        return;
    if (gone) {
        new_change(n, CHANGE_DELETED, -n.size);
        return;
    }
    const char *after = changes_text_of(n.op);
    const int64_t size = size_of(n.op);
    if (n.how & HOW_ADDED)
        new_change(n, CHANGE_ADDED, size)->after = after;
    else if (after != n.text)   // texts are cached
        new_change(n, CHANGE_REPLACED, size - n.size)->after = after;
    else if (n.how & HOW_MOVED)
        new_change(n, CHANGE_MOVED, 0)->behind = source_before(n.op);
}

// The copy stands in the record of its call.
static void settle_copy(size_t first)
{
    uint32_t copied = 0;
    int64_t bytes = 0;
    for (const note_t *n = st.notes; n < st.notes + st.note_count; n++)
        if (n->how & HOW_COPIED && n->op->op_id == n->id && !n->label) {
            copied++;
            bytes += size_of(n->op);
        }
    for (change_t *c = changes.changes + first; copied && c < changes.changes + changes.change_count; c++) {
        c->kind = CHANGE_INLINED;
        c->copied = copied;
        c->bytes += bytes;
    }
}

void changes_settle_step()
{
    const size_t first = changes.change_count;
    for (size_t i = 0; i < st.note_count; i++)
        settle(st.notes[i]);
    settle_copy(first);
    if (changes.change_count == first && st.rule)
        st.step--;   // nothing came of it
    st.note_count = 0;
    st.rule = NO_RULE;
}

void changes_step(opt_rule_t rule, const op_t *op)
{
    changes_settle_step();
    st.rule = rule;
    st.step++;
    changes_note(const_cast<op_t *>(op), HOW_TOUCHED);
    st.why = reason(rule.row().why, st.note_count ? st.notes[0].text : "");
    for (op_t *beside : {op->op_prev, op->op_next})
        if (beside->op_type != T_NAME)
            changes_note(beside, HOW_TOUCHED);
}

// Copies.

void changes_note_copy(op_t *op, const op_t *call)
{
    changes_note(op, HOW_COPIED);
    if (!st.copies)
        st.copies = hash_make<uint32_t, const source_t *>(5003, nullptr, nullptr);
    if (st.copied_call != call->op_id) {
        st.copied_call = call->op_id;
        st.copied_for = hash_lookup(st.copies, call->op_id);   // the call that stands in the source, if this one is a copy
        if (!st.copied_for) {
            source_t *place = xnew<source_t>();
            *place = source_of(call);
            st.copied_for = place;
        }
    }
    hash_insert(st.copies, op->op_id, st.copied_for);
}

void changes_note_refusal(const op_t *call, const char *why)
{
    if (!st.refused)
        st.refused = hash_make<uint32_t, bool>(1009, nullptr, nullptr);
    if (hash_haskey(st.refused, call->op_id))
        return;
    hash_insert(st.refused, call->op_id, true);
    xreserve(changes.refusals, changes.refusal_count, changes.refusal_count + 1, changes.refusal_room, size_t{16});
    changes.refusals[changes.refusal_count++] = {source_of(call), changes_copy_of(call), call->op_psect,
                                                 changes_text_of(call), why};
}

// The whole.

void changes_keep() { changes.kept = true; }

// An empty list isn't sized anew.
static uint64_t bytes_of(const symbol_t *psect)
{
    const psect_t *p = psect->s_psect;
    return list_empty(p->p_code) ? 0 : p->p_top - p->p_base;
}

void changes_begin(vec_t<symbol_t *> code_psects)
{
    if (!changes.kept)
        return;
    st.registers = hash_make<int64_t, symbol_t *>(1009, nullptr, nullptr);
    for (symbol_t *s : sym_name_order())
        remember_register(s);
    for (const code_list_t *list : psect_list) {
        const auto delta = list->psect->s_psect->p_delta;
        if (!list_empty(list))
            size_psect_as_written(list->psect);
        list->psect->s_psect->p_delta = delta;   // assembly text doesn't tell what nobody told
        xreserve(changes.psects, changes.psect_count, changes.psect_count + 1, changes.psect_room, size_t{16});
        changes.psects[changes.psect_count++] = {list->psect, bytes_of(list->psect), 0,
                                                 vec_indexOf(code_psects, list->psect) >= 0};
    }
}

void changes_end()
{
    if (!changes.kept)
        return;
    changes_settle_step();
    size_t count = 0;
    for (const code_list_t *list : psect_list) {
        xreserve(changes.psects, changes.psect_count, count + 1, changes.psect_room, size_t{16});
        psect_sizes_t *p = &changes.psects[count++];
        if (changes.psect_count < count) {   // made since
            *p = {list->psect, 0, 0, true};
            changes.psect_count = count;
        }
        p->after = bytes_of(list->psect);
    }
}
