// changes: what became of each instruction, kept for those who show it.
//
// A rule tells that it fires; that opens a step, which lasts until the next one. What `edit` and a few others then do to nodes
// is noted, and when the step ends it becomes records that say what each instruction was and what it is. Nothing is kept, and
// nothing costs more than a test, unless a report was asked for.
#pragma once

#include "code/list.h"
#include "optim/rules.h"

struct source_t {
    const char *file;
    uint64_t line;   // 0: unknown
};

enum change_kind_t : uint8_t { CHANGE_DELETED, CHANGE_REPLACED, CHANGE_ADDED, CHANGE_MOVED, CHANGE_INLINED };

struct change_t {
    uint32_t step;   // from 1, in order of time; the same for all that one firing did
    opt_rule_t rule = NO_RULE;
    change_kind_t kind;
    uint32_t op_id;          // of the instruction
    source_t at;             // where the instruction was written
    source_t copy;           // line not 0: it belongs to the copy of a function for the call there
    source_t behind;         // MOVED: it stands behind this one now; line 0: at the psect's beginning
    const symbol_t *psect;   // INLINED: of the call
    const char *before;      // the instruction, or null: ADDED
    const char *after;       // the same: DELETED, INLINED
    const char *why;
    uint32_t copied;   // INLINED: instructions of the copy
    int64_t bytes;     // that the program has become longer. Branches count with their usual form
};

// A call that stays, though inlining was asked for.
struct refusal_t {
    source_t at, copy;
    const symbol_t *psect;
    const char *call, *why;
};

// Bytes without the optimiser, and as they are.
struct psect_sizes_t {
    const symbol_t *psect;
    uint64_t before, after;
    bool code;   // the optimiser deals with it
};

// What is kept, for reading. The arrays stand still once changes_end has been called.
struct changes_t {
    bool kept;
    change_t *changes;
    size_t change_count, change_room;
    refusal_t *refusals;
    size_t refusal_count, refusal_room;
    psect_sizes_t *psects;   // in psect order
    size_t psect_count, psect_room;
};
extern changes_t changes;

void changes_keep();                                 // from now on
void changes_begin(vec_t<symbol_t *> code_psects);   // takes the sizes from before; the psects are sized, as written
void changes_end();                                  // all is done, and all psects are sized

enum change_how_t : uint8_t { HOW_TOUCHED = 0, HOW_ADDED = 1, HOW_MOVED = 2, HOW_REMOVED = 4, HOW_COPIED = 8 };
void changes_step(opt_rule_t rule, const op_t *op);
void changes_note(op_t *op, change_how_t how);
void changes_settle_step();
void changes_note_copy(op_t *op, const op_t *call);
void changes_note_refusal(const op_t *call, const char *why);

// For who shows nodes beside the changes: the text of one as it stands in `before` and `after`, and the call for which it was
// copied, else line 0.
const char *changes_text_of(const op_t *op);
source_t changes_copy_of(const op_t *op);

// A step. `op` and its neighbours may be altered without a further word.
inline void change_step(opt_rule_t rule, const op_t *op)
{
    if (changes.kept)
        changes_step(rule, op);
}
// The step is over: what happens to nodes from here on is nobody's firing.
inline void change_settle()
{
    if (changes.kept)
        changes_settle_step();
}
// The node is going to be altered, moved or deleted.
inline void change_touch(op_t *op)
{
    if (changes.kept)
        changes_note(op, HOW_TOUCHED);
}
inline void change_move(op_t *op)
{
    if (changes.kept)
        changes_note(op, HOW_MOVED);
}
// The node is unlinked for good, though not deleted.
inline void change_remove(op_t *op)
{
    if (changes.kept)
        changes_note(op, HOW_REMOVED);
}
// The node is new.
inline void change_add(op_t *op)
{
    if (changes.kept)
        changes_note(op, HOW_ADDED);
}
// The node is part of the copy that is made for `call`, at which the step fired.
inline void change_copy(op_t *op, const op_t *call)
{
    if (changes.kept)
        changes_note_copy(op, call);
}
// The call stays, for the reason. The first one counts.
inline void change_refuse(const op_t *call, const char *why)
{
    if (changes.kept)
        changes_note_refusal(call, why);
}
