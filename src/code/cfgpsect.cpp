// cfgpsect: turns the model of the configuration words into nodes of two code lists.
//
// Statements only change the model, since what they say of a word is spread over the source. When all has been read, one
// walk over the words in order of address writes each of them as `org address` and `db value`, and from there on they are
// plain data on the way to the object file. Comments ahead of the nodes tell the reader of a listing what each word says.
//
// A device programs its locations in groups, the programming units, and what is left out of a group is written all the
// same, as whatever the programmer takes for it. So the walk goes by units: where one location of a unit is wanted, the
// others are looked at with it, and the user hears of those that he left alone. A location that was reached through its
// neighbour's unit is stepped over in the walk, for it is done.
//
// That reckons with words that lie in their units. A word of two bytes may lie across two of them: an ID location at an odd
// address is never met, and a pad byte may come to lie on an upper byte. What is written stays as it is, but it is told.
#include "code/cfgpsect.h"

#include <cstring>

#include "chip/cfgdata.h"
#include "chip/chip.h"
#include "chip/config.h"
#include "code/data.h"
#include "code/list.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"

enum : uint8_t { SPACE_CONFIG = 4, SPACE_IDLOC = 5 };
enum : uint64_t { PAD_BYTE = 0xFF };

// num_cregs locations, delta apart, from an address that is a multiple of alignment, a power of two.
struct punit_t {
    uint32_t num_cregs, delta, alignment;
};

static struct {
    punit_t punit = {1, 1, 1};
    symbol_t *config, *idloc;   // the psects; null until used
    srcpos_t behind_source;
    uint64_t written, end;   // where the location that was written last begins and ends
} st;

static bool in_idlocs(uint64_t address) { return is_useridmem(static_cast<int64_t>(address)); }
static bool in_configs(uint64_t address) { return chip_isConfigAddr(static_cast<int64_t>(address)); }

static void set_punit(const cfg_word_t *word)
{
    static const punit_t config = {2, 1, 2}, narrow_idloc = {1, 1, 1}, wide_idloc = {1, 2, 2};
    st.punit = !in_idlocs(word->address) ? config : word->mask < 256 ? narrow_idloc : wide_idloc;
}

static void comment(const char *text) { op_comment_add(text, strlen(text)); }

static unsigned long number(uint64_t n) { return static_cast<unsigned long>(n); }

// Nodes.

static symbol_t *make_psect(const char *name, const char *class_name, uint8_t space)
{
    symbol_t *psect = psect_new(name, P_GLOBAL | P_OVRLD | P_ABS);
    psect_t *p = psect->s_psect;
    p->p_class = sym_enter(class_name, S_CLASS);
    p->p_space = space;
    p->p_delta = 1;
    p->p_noexec = true;
    return psect;
}

static symbol_t *psect_for(uint64_t address)
{
    if (in_idlocs(address)) {
        if (!st.idloc)
            st.idloc = make_psect("idloc", "IDLOC", SPACE_IDLOC);
        return st.idloc;
    }
    if (!st.config)
        st.config = make_psect("config", "CONFIG", SPACE_CONFIG);
    return st.config;
}

// Messages are shown at the statement that programmed the word, or else at the last one. The nodes have no line.
static void show_place(const cfg_word_t *word)
{
    const cfg_place_t &place = word->programmed ? word->place : cfg_options()->place;
    srcpos.cur_file = place.file ? place.file : "";
    srcpos.cur_line = place.line;
}

static op_t *append(code_list_t *list, token_t type)
{
    const srcpos_t place = srcpos;
    srcpos = st.behind_source;
    op_t *op = op_insert_after(list->tail.op_prev, op_new());
    srcpos = place;
    op_note_position(op);
    op->op_type = type;
    return op;
}

// `what`: how a message names it.
static void write_location(uint64_t address, uint64_t mask, uint64_t value, const char *what)
{
    if (address > st.written && address < st.end)
        alert_msg(2221, what, number(address), number(st.written));
    st.written = address;
    st.end = address + (mask < 256 ? 1 : 2);
    code_list_t *list = psect_for(address)->s_psect->p_code;
    op_t *org = append(list, T_ORG);
    op_set_number(org, address);
    org->op_opnd1.opnd_kind = OPND_LIT;
    op_t *db = append(list, T_DB);
    db->op_subop = mask < 256 ? 1 : 2;
    db->op_data = data_number(static_cast<int64_t>(value));
}

// Comments on the settings of a word.

static void comment_settings(const cfg_word_t *word)
{
    for (const cfg_setting_t *set : word->settings) {
        const char *name = cfg_get_setting_name(set);
        comment(cache_printf(";\t%s", set->description));
        switch (set->state) {
        case CFG_LITERAL:
            comment(cache_printf(";\t%s = 0x%lX, user specified literal", name, number(set->current.literal)));
            break;
        case CFG_NAME:
            comment(cache_printf(";\t%s = %s, %s", name, cfg_get_value_name(set->current.value),
                                 set->current.value->description));
            break;
        case CFG_UNSET:
            comment(cache_printf(";\t%s = 0x%lX, unprogrammed default", name,
                                 number((word->value & set->mask) >> cfg_setting_shift(set))));
            break;
        }
    }
}

// The walk.

static bool choice_forces(uint8_t choice, bool any) { return choice == CFG_ALWAYS || (choice == CFG_AUTO && any); }

static bool any_programmed(uint64_t punit_address)
{
    for (uint64_t i = 0; i < st.punit.num_cregs; i++) {
        const cfg_word_t *word = cfg_find_word(punit_address + i * st.punit.delta);
        if (word && word->programmed)
            return true;
    }
    return false;
}

// Comments on the word; false if it is to be left out.
static bool announce_word(const cfg_word_t *r, bool forced)
{
    const char *name = cfg_get_word_name(r);
    comment(cache_printf(";Config register %s%s@ 0x%lX", name ? name : "", name ? " " : "", number(r->address)));
    if (r->state == CFG_LITERAL) {
        comment(";\tusing specified literal value");
        return true;
    }
    if (r->state == CFG_UNSET) {
        if (cfg_word_has_settings(r))
            alert_msg(1311, static_cast<unsigned>(r->address));
        if (!forced && !cfg_options()->pad_punits) {
            comment(";\tunspecified, skipping");
            return false;
        }
        comment(";\tunspecified, using default values");
    }
    comment_settings(r);
    return true;
}

static bool forced_at(uint64_t address)
{
    const cfg_options_t *options = cfg_options();
    return (in_configs(address) && choice_forces(options->default_configs, options->cfg_any_config)) ||
           (in_idlocs(address) && choice_forces(options->default_idlocs, options->cfg_any_idloc));
}

// Tells that a word isn't written since `odd` lies across two units.
static void note_missed(const cfg_word_t *word, const cfg_word_t *odd)
{
    show_place(word);
    if (word->programmed || forced_at(word->address))
        alert_msg(2222, number(word->address), number(odd->address));
}

// One location of the unit that `w` lies in.
static void make_location(uint64_t punit_address, uint64_t creg_address, const cfg_word_t *w)
{
    const bool forced = forced_at(creg_address);
    if (!forced && !any_programmed(punit_address))
        return;
    const cfg_word_t *r = cfg_find_word(creg_address);
    if (!r) {
        show_place(w);
        if (cfg_options()->pad_punits) {
            comment("; Padding undefined space");
            write_location(creg_address, PAD_BYTE, PAD_BYTE, "padding");
        }
        return;
    }
    show_place(r);
    if (announce_word(r, forced))
        write_location(r->address, r->mask, r->value, "word");
    const cfg_word_t *passed = r != w ? cfg_next_word() : r;
    if (passed && passed != r)
        note_missed(passed, w);
}

void cfg_make_psects()
{
    // A program that was given no data, and never asked for any, needs none.
    if (!cfg_given() || !cfg_ready())
        return;
    st.behind_source = srcpos;
    cfg_rewind();
    cfg_sort();
    while (const cfg_word_t *w = cfg_next_word()) {
        set_punit(w);
        const uint64_t punit_address = w->address & ~uint64_t{st.punit.alignment - 1};
        for (uint64_t i = 0; i < st.punit.num_cregs; i++)
            make_location(punit_address, punit_address + i * st.punit.delta, w);
        const uint64_t offset = w->address - punit_address;
        if (offset % st.punit.delta != 0 || offset / st.punit.delta >= st.punit.num_cregs)
            note_missed(w, w);
    }
    srcpos = st.behind_source;
}
