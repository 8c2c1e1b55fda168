// The record is made in two walks. The first one, ahead of the optimiser, notes what it may take away. The second one, when all is
// sized, has `encode` make each node's words, as the object file and the listing do, and lays them beside the line that the
// node comes from. What the optimiser made comes from no line: a copy of a function goes to the call that it replaces, anything
// else to the line that it took its place from, or to the one of the node before it if
// that has no place, or lies in the same expansion.
//
// Cycles are those of the simulator. A skip takes one more for each word that it passes over, as the words of an instruction
// behind its first one do nothing, in a cycle each; a branch that is taken takes one more, and so does a write to PCL.
#include "annotate/annotation.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "chip/sfrs.h"
#include "code/layout.h"
#include "code/oprows.h"
#include "code/reduce.h"
#include "common/srcpos.h"
#include "common/xalloc.h"
#include "optim/changes.h"
#include "optim/changes_out.h"
#include "optim/effects.h"
#include "out/emasm.h"
#include "out/encode.h"

static struct {
    annotation_t *a;   // that is being made
    std::vector<bool> dead;
    std::unordered_map<const symbol_t *, uint32_t> definitions;
    uint32_t last_written;                         // op_id of the last node that isn't the optimiser's
    std::vector<uint32_t> by_place;                // lines that stand in a file, by where messages show them
    std::unordered_map<uint32_t, uint32_t> made;   // lines of the optimiser's nodes, by op_id
} st;

// Ahead of the optimiser.

// Where a psect stands among its conditions while the lines go by.
struct arms_t {
    bool off;                      // the arm doesn't count
    std::vector<bool> enclosing;   // what `off` was around each level
};

// Returns whether the statement itself lies in an arm that doesn't count.
static bool pass_condition(arms_t *arms, const op_t *op)
{
    const bool opens = op->op_type == T_IF, constant = op->op_opnd1.opnd_value.v_rtype == RT_CONST;
    if (opens && !constant)
        return arms->off;
    if (opens)
        arms->enclosing.push_back(arms->off);
    const bool around = !arms->enclosing.empty() && arms->enclosing.back();
    if (op->op_type == T_ENDIF && !arms->enclosing.empty())
        arms->enclosing.pop_back();
    arms->off = op->op_flags & OPF_ARM_OFF;
    return around;
}

static void find_dead_lines(std::vector<const op_t *> *conditions)
{
    std::sort(conditions->begin(), conditions->end(), [](const op_t *a, const op_t *b) { return a->op_id < b->op_id; });
    std::unordered_map<const symbol_t *, arms_t> psects;
    auto next = conditions->begin();
    for (uint32_t i = 0; i < srclines.count; i++) {
        bool dead = psects[srclines.lines[i].psect].off;
        for (; next != conditions->end() && srclines_of_node((*next)->op_id) == i; ++next)
            dead = pass_condition(&psects[(*next)->op_psect], *next);
        st.dead.push_back(dead);
    }
}

static void define(const symbol_t *s, uint32_t line)
{
    if (s && line != NO_LINE)
        st.definitions.try_emplace(s, line);
}

// A macro's definition makes no node that tells its name.
static void find_macros()
{
    constexpr const char *blanks = " \t";
    for (uint32_t i = 0; i < srclines.count; i++) {
        const std::string_view line(srclines.lines[i].text, srclines.lines[i].length);
        const size_t name = line.find_first_not_of(blanks), behind = std::min(line.find_first_of(blanks, name), line.size());
        const size_t word = std::min(line.find_first_not_of(blanks, behind), line.size());
        const size_t end = std::min(line.find_first_of(" \t;", word), line.size());
        const op_row_t *row = op_lookup_keyword(line.data() + word, end - word);
        if (name >= behind || !row || row->token != T_MACRO)
            continue;
        const symbol_t *s = sym_find(line.data() + name, behind - name);
        if (s && s->s_flags & S_MACRO)
            define(s, i);
    }
}

void annotation_begin()
{
    std::vector<const op_t *> conditions;
    for (const code_list_t *list : psect_list)
        for (const op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op))
            switch (op->op_type) {
            case T_IF:
            case T_ELSIF:
            case T_ELSE:
            case T_ENDIF: conditions.push_back(op); break;
            case T_NAME: define(op->op_sym, srclines_of_node(op->op_id)); break;
            case T_EQU:
            case T_SET: define(op->op_opnd1.opnd_value.v_sym, srclines_of_node(op->op_id)); break;
            default: break;
            }
    find_macros();
    find_dead_lines(&conditions);
    st.last_written = op_last_id();
}

// Lines by their place.

static bool shown_before(const source_t &a, const source_t &b)
{
    const int files = strcmp(a.file, b.file);
    return files ? files < 0 : a.line < b.line;
}

static source_t place_of(uint32_t line)
{
    return {srclines.lines[line].told_file, static_cast<uint64_t>(srclines.lines[line].told_line)};
}

static void sort_by_place()
{
    for (uint32_t i = 0; i < srclines.count; i++)
        if (srclines.lines[i].depth == 0)
            st.by_place.push_back(i);
    std::stable_sort(st.by_place.begin(), st.by_place.end(),
                     [](uint32_t a, uint32_t b) { return shown_before(place_of(a), place_of(b)); });
}

static uint32_t line_at(const source_t &at)
{
    const auto found =
        std::lower_bound(st.by_place.begin(), st.by_place.end(), at,
                         [](uint32_t line, const source_t &wanted) { return shown_before(place_of(line), wanted); });
    return found == st.by_place.end() || shown_before(at, place_of(*found)) ? uint32_t{NO_LINE} : *found;
}

// `before`: the line of the node before it.
static uint32_t line_of(const op_t *op, uint32_t before)
{
    const uint32_t own = srclines_of_node(op->op_id);
    if (own != NO_LINE)
        return own;
    const source_t copy = changes_copy_of(op);
    if (copy.line != 0)
        return line_at(copy);
    if (op_line(op) == 0 || !op_file(op))
        return before;
    const source_t taken = {op_file(op), op_line(op)};
    if (before != NO_LINE && !shown_before(place_of(before), taken) && !shown_before(taken, place_of(before)))
        return before;   // in the same expansion
    const uint32_t line = line_at(taken);
    return line != NO_LINE ? line : before;
}

// Cycles.

struct cycles_t {
    uint8_t least, most;
};

// Words that a skip before it passes over: not the jump that a conditional branch may have behind its first word.
static unsigned skipped_words(const op_t *op)
{
    op = op_past_silent(op->op_next);
    const bool several = op && op->op_type != 0 && op->op_type != T_BCC && op->op_type != T_DB;
    return several && op->op_next->op_offs > op->op_offs + 2 ? (op->op_next->op_offs - op->op_offs) / 2 : 1;
}

static bool writes_pcl(const op_t *op)
{
    const opnd_t *written = op_written(op);
    if (!written)
        return false;
    value_t v = written->opnd_value;
    operand_reduce(&v);
    const int64_t pcl = sfr_addrOf(SFR_PCL);
    return v.v_rtype == RT_CONST && (v.v_offs == pcl || (op->op_access == ACCESS_C && v.v_offs == (pcl & 0xFF)));
}

static cycles_t cycles_of(const op_t *op, unsigned words)
{
    const auto times = [](unsigned n) { return cycles_t{static_cast<uint8_t>(n), static_cast<uint8_t>(n)}; };
    switch (op->op_type) {
    case T_DB:
    case T_ALIGN:
    case T_TRET:
    case T_DBOUT:
    case T_SETCNT: return {0, 0};   // data, or nothing that the program itself runs
    case T_GOTO:
    case T_CALL:
    case T_CALLW:
    case T_BRA:
    case T_RCALL:
    case T_RETURN:
    case T_RETLW:
    case T_TBLRD:
    case T_ADDULNK: return times(2);
    case T_BCC: return words == 1 ? cycles_t{1, 2} : cycles_t{2, 3};
    case T_BTFSC:
    case T_DECFSZ:
    case T_CPFSEQ: return {1, static_cast<uint8_t>(1 + skipped_words(op))};
    case T_NOP: return times(op->op_subop == NOP2 && words == 1 ? 2 : words);
    default: return times(words + writes_pcl(op));
    }
}

// Rows.

static void take_word(uint64_t word, const value_t *value, unsigned nbytes, unsigned bits)
{
    const uint64_t field = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
    const uint64_t all = nbytes >= 8 ? ~uint64_t{0} : (uint64_t{1} << 8 * nbytes) - 1;
    const uint64_t sum = word + (value ? static_cast<uint64_t>(value->v_offs) & field : 0);
    st.a->words.push_back({sum & all, static_cast<uint8_t>(nbytes), value && value->v_rtype != RT_CONST});
    cur_psect->s_psect->p_curr += nbytes;
}

static void pass_over(uint64_t position) { cur_psect->s_psect->p_curr = position; }

static void take_definition(const value_t &value)
{
    st.a->words.push_back({static_cast<uint64_t>(value.v_offs), 0, value.v_rtype != RT_CONST});
}

static constexpr code_sink_t sink = {
    .put = take_word,
    .move = pass_over,
    .step = nullptr,
    .define = take_definition,
    .condition = nullptr,
    .check = nullptr,
    .reports = false,
};

static bool is_definition(const op_t *op) { return op->op_type == T_EQU || op->op_type == T_SET; }

// Nothing to see, and not a place that anybody needs.
static bool has_no_row(const op_t *op)
{
    switch (op->op_type) {
    case T_IF:
    case T_ELSIF:
    case T_ELSE:
    case T_ENDIF:
    case T_ENDM:
    case T_TITLE:
    case T_INCLUDE:
    case T_MESSG: return true;
    case T_NAME: return strncmp(op->op_sym->s_name, "__end_of", 8) == 0;
    default: return false;
    }
}

// As a line of source would have it.
static const char *made_text(const op_t *op)
{
    std::string text = changes_text_of(op);
    const size_t blank = text.find(' ');
    if (blank != text.npos)
        text[blank] = '\t';
    if (op->op_type != T_NAME)
        text.insert(0, 1, '\t');
    return xstrndup(text.data(), text.size());
}

static void add_row(const op_t *op, uint32_t line)
{
    annotation_t *a = st.a;
    psect_t *p = cur_psect->s_psect;
    shown_row_t row = {};
    row.line = line;
    row.psect = cur_psect;
    row.placed = !is_definition(op);
    row.address = bytes_to_units(p, op->op_offs).count;
    row.rest = static_cast<uint8_t>(op->op_offs % psect_delta(p));
    row.word = static_cast<uint32_t>(a->words.size());
    row.text = op->op_id > st.last_written ? made_text(op) : nullptr;
    p->p_curr = op->op_offs;
    if (op->op_type == T_ALIGN)   // of zeros, thousands maybe
        pass_over(op->op_offs + op_size(op, op->op_offs));
    else
        emobj(op, &sink);
    row.word_count = static_cast<uint32_t>(a->words.size()) - row.word;
    const uint64_t bytes = p->p_curr > op->op_offs ? p->p_curr - op->op_offs : 0;
    if (row.word_count == 0)
        row.reserved = bytes;
    else if (row.placed) {
        const cycles_t cycles = cycles_of(op, static_cast<unsigned>(bytes / 2));
        row.least = cycles.least;
        row.most = cycles.most;
    }
    shown_row_t *last = a->rows.empty() ? nullptr : &a->rows.back();
    const bool same_place = last && last->line == line && last->psect == row.psect && last->placed && row.placed &&
                            last->address == row.address && last->rest == row.rest && !last->text && !row.text;
    if (same_place && last->word_count == 0 && last->reserved == 0)
        *last = row;   // what is labelled
    else
        a->rows.push_back(row);
}

static void add_psect(symbol_t *psect)
{
    const in_psect_t here(psect);
    uint32_t line = NO_LINE;
    for (const op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op_step(op)) {
        if (op->op_offs == OFFS_MAX)
            return;
        line = line_of(op, line);
        if (op->op_id > st.last_written)
            st.made.emplace(op->op_id, line);
        if (op->op_flags & OPF_SKIPPED || has_no_row(op))
            continue;
        op_set_position(op);
        add_row(op, line);
    }
}

// Changes.

static constexpr fate_t fates[] = {FATE_DELETED, FATE_REPLACED, FATE_ADDED, FATE_MOVED, FATE_REPLACED};   // by change_kind_t

static bool is_label(const change_t &c) { return c.before && *c.before && c.before[strlen(c.before) - 1] == ':'; }

static uint32_t line_of(const change_t &c)
{
    const uint32_t own = srclines_of_node(c.op_id);
    if (own != NO_LINE)
        return own;
    if (const auto made = st.made.find(c.op_id); made != st.made.end())
        return made->second;
    return line_at(c.copy.line ? c.copy : c.at);
}

static void add_changes()
{
    annotation_t *a = st.a;
    for (const change_t *c = changes.changes; c < changes.changes + changes.change_count; c++) {
        const uint32_t line = line_of(*c);
        a->notes.push_back({line, fates[c->kind], c->bytes, change_text(*c)});
        if (line != NO_LINE && srclines_of_node(c->op_id) == line && c->kind != CHANGE_ADDED && !is_label(*c))
            a->fates[line] = std::max(a->fates[line], fates[c->kind]);
    }
    for (const refusal_t *r = changes.refusals; r < changes.refusals + changes.refusal_count; r++) {
        a->notes.push_back({line_at(r->copy.line ? r->copy : r->at), FATE_KEPT, 0, refusal_text(*r)});
    }
}

// The whole.

static void sort_by_reading(annotation_t *a)
{
    a->reading_at.resize(srclines.reading_count + 1);
    for (uint32_t i = 0; i < srclines.count; i++)
        a->reading_at[srclines.lines[i].reading + 1]++;
    std::partial_sum(a->reading_at.begin(), a->reading_at.end(), a->reading_at.begin());
    std::vector<uint32_t> next = a->reading_at;
    a->lines.resize(srclines.count);
    for (uint32_t i = 0; i < srclines.count; i++)
        a->lines[next[srclines.lines[i].reading]++] = i;
}

// Sorts by line; `at` gets the index of each line's first.
template <class T> static void index_by_line(std::vector<T> *all, std::vector<uint32_t> *at)
{
    std::stable_sort(all->begin(), all->end(), [](const T &a, const T &b) { return a.line < b.line; });
    uint32_t i = 0;
    for (uint32_t line = 0; line <= srclines.count; line++) {
        while (i < all->size() && (*all)[i].line < line)
            i++;
        at->push_back(i);
    }
}

annotation_t annotation_make()
{
    annotation_t a;
    const srcpos_t position = srcpos;
    st.a = &a;
    a.dead = std::move(st.dead);
    a.definitions = std::move(st.definitions);
    a.fates.resize(srclines.count);
    sort_by_place();
    sort_by_reading(&a);
    for (const code_list_t *list : psect_list)
        if (!list_empty(list))
            add_psect(list->psect);
    add_changes();
    index_by_line(&a.rows, &a.row_at);
    index_by_line(&a.notes, &a.note_at);
    srcpos = position;
    return a;
}

template <class T>
static std::span<const T> of_line(const std::vector<T> &all, const std::vector<uint32_t> &at, uint32_t line)
{
    const size_t from = at[std::min(line, srclines.count)], to = line < srclines.count ? at[line + 1] : all.size();
    return std::span(all).subspan(from, to - from);
}

std::span<const uint32_t> annotation_t::lines_of(uint32_t reading) const
{
    return std::span(lines).subspan(reading_at[reading], reading_at[reading + 1] - reading_at[reading]);
}

std::span<const shown_row_t> annotation_t::rows_of(uint32_t line) const { return of_line(rows, row_at, line); }
std::span<const shown_note_t> annotation_t::notes_of(uint32_t line) const { return of_line(notes, note_at, line); }

uint32_t annotation_definition(const annotation_t &a, std::string_view name)
{
    const auto found = a.definitions.find(sym_find(name.data(), name.size()));
    return found == a.definitions.end() ? uint32_t{NO_LINE} : found->second;
}
