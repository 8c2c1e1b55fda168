// config: finds what a `config` statement names and hands the value on.
//
// A name is looked for among the words, then the settings, then the options; the first two are the business of the
// configuration data file and its case counts, the options are ours and it doesn't. With configuration data switched
// off only the options are left. An error leaves things as they were, and the next statement is looked at all the same.
//
// A word may be given a number even if it has settings. Its settings then follow from the number, so from there on it is
// treated as one whose settings were programmed one by one. Bits that the chip doesn't have keep their default, which is
// what a programmer reads back.
#include "chip/config.h"

#include <strings.h>

#include "chip/chip.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "common/stringcache.h"

static struct {
    cfg_options_t options;
} st;

const cfg_options_t *cfg_options() { return &st.options; }

struct option_t {
    const char *name;
    uint8_t most;   // value of the last of `words`, which a number other than 0 stands for
    const char *words[CFG_ALWAYS + 1];
    uint8_t cfg_options_t::*value;
};
static const option_t option_rows[] = {
    {"ignore_cmsgs", 1, {"off", "on"}, &cfg_options_t::ignore_cmsgs},
    {"apply_mask", 1, {"off", "on"}, &cfg_options_t::apply_mask},
    {"pad_punits", 1, {"off", "on"}, &cfg_options_t::pad_punits},
    {"default_idlocs", CFG_ALWAYS, {"off", "auto", "always"}, &cfg_options_t::default_idlocs},
    {"default_configs", CFG_ALWAYS, {"off", "auto", "always"}, &cfg_options_t::default_configs},
};

static void pass_ignore_cmsgs() { cfg_set_ignore_cmsgs(st.options.ignore_cmsgs); }

static void begin_statement()
{
    st.options.place = {srcpos.cur_file, srcpos.cur_line};
    pass_ignore_cmsgs();
}

static const option_t *find_option(const char *name)
{
    for (const option_t &option : option_rows)
        if (strcasecmp(option.name, name) == 0)
            return &option;
    return nullptr;
}

static void option_by_name(const option_t *option, const char *with)
{
    uint8_t i = 0;
    while (i <= option->most && strcasecmp(option->words[i], with) != 0)
        ++i;
    if (i <= option->most)
        st.options.*option->value = i;
    else
        alert_msg(1361);
    pass_ignore_cmsgs();
}

static void option_by_value(const option_t *option, uint64_t number)
{
    st.options.*option->value = number != 0 ? option->most : 0;
    pass_ignore_cmsgs();
}

static void note_region(const cfg_word_t *word)
{
    if (chip_isConfigAddr(static_cast<int64_t>(word->address)))
        st.options.cfg_any_config = true;
    else
        st.options.cfg_any_idloc = true;
}

static void note_programmed(cfg_word_t *word, cfg_state_t state)
{
    word->programmed = true;
    word->place = st.options.place;
    word->state = state;
}

void cfg_prog_with_name(const char *what, const char *with)
{
    bool known = false;
    begin_statement();
    if (const cfg_word_t *word = cfg_find_word_by_name(what)) {
        note_region(word);   // a word takes no named value
    } else if (cfg_setting_t *set = cfg_find_setting(what)) {
        note_region(set->word);
        known = cfg_prog_setting_by_name(set, with);
        if (known)
            note_programmed(set->word, CFG_NAME);
    } else if (const option_t *option = find_option(what)) {
        option_by_name(option, with);
        known = true;
    }
    if (!known)
        alert_msg(1363, what, with);
}

static void word_by_value(cfg_word_t *word, uint64_t number)
{
    bool settings = cfg_word_has_settings(word);
    if (!cfg_prog_word_literal(word, number))
        return;
    note_programmed(word, settings ? CFG_NAME : CFG_LITERAL);
    if (settings)
        word->value |= ~word->mask & word->defvalue;
}

void cfg_prog_with_value(const char *what, uint64_t number)
{
    bool known = true;
    begin_statement();
    if (cfg_word_t *word = cfg_find_word_by_name(what)) {
        note_region(word);
        word_by_value(word, number);
    } else if (cfg_setting_t *set = cfg_find_setting(what)) {
        note_region(set->word);
        known = cfg_prog_setting_literal(set, number);
        if (known)
            note_programmed(set->word, CFG_NAME);
    } else if (const option_t *option = find_option(what)) {
        option_by_value(option, number);
    } else {
        known = false;
    }
    if (!known)
        alert_msg(1363, what, cache_printf("0x%lX", static_cast<unsigned long>(number)));
}
