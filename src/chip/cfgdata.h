// cfgdata: the configuration data file, and the model of the chip's configuration words that is made from it.
//
// The file lists each configuration byte and ID location, its fields ("settings"), the values that they can take, and
// messages on combinations of values. It is read when something is first looked up. Names of words, settings and values
// compare with regard to case. Everything lives to the end of the run.
#pragma once

#include <cstdint>

#include "common/hash.h"
#include "common/vector.h"

// How a word or a setting came to what it holds.
enum cfg_state_t : uint8_t {
    CFG_NAME = 0,      // a named value
    CFG_LITERAL = 1,   // a number
    CFG_UNSET = 2,     // the default
};

struct cfg_setting_t;
struct cfg_word_t;

// A message to give when each of its conditions holds, once.
struct cfg_msg_t {
    unsigned msgno;
    unsigned order;              // rises in the file
    uint32_t conditions, held;   // how many there are, and hold
};

struct cfg_value_t {
    vec_t<const char *> names;   // one at least, the primary name first
    const char *description;
    uint64_t value;   // in place: already shifted to the setting's bits
    cfg_setting_t *setting;
};

// On the setting that it asks about.
struct cfg_condition_t {
    const cfg_value_t *value;
    cfg_msg_t *msg;
};

union cfg_current_t {
    cfg_value_t *value;   // with CFG_NAME
    uint64_t literal;     // with CFG_LITERAL, not shifted into place
};

struct cfg_setting_t {
    vec_t<const char *> names;   // one at least, the primary name first
    const char *description;
    uint64_t mask;                                         // its bits in the word; never 0
    hash_of<const char *, cfg_value_t *> values_by_name;   // null until the first value
    hash_of<uint64_t, cfg_value_t *> values_by_bits;       // the same, in place
    vec_t<cfg_condition_t *> conditions;                   // of messages, on this setting; null if none
    cfg_state_t state;
    cfg_word_t *word;
    cfg_current_t current;
};

// A line of the source.
struct cfg_place_t {
    const char *file;
    int64_t line;
};

struct cfg_word_t {
    uint64_t address;
    uint64_t mask;                     // the bits that the chip has
    uint64_t defvalue;                 // the contents of an unprogrammed word
    uint64_t value;                    // the contents now
    vec_t<cfg_setting_t *> settings;   // in file order; null if none
    cfg_state_t state;
    vec_t<const char *> names;   // null if none
    bool programmed;             // by a statement of the source; kept by `config`
    cfg_place_t place;           // of the last such statement
};

void cfg_set_file(const char *path);   // drops what is loaded. Without it the first look-up ends in message 141
void cfg_disable();                    // from now on nothing is loaded
bool cfg_given();                      // whether a file was named
bool cfg_ready();                      // loads if need be; whether there is a model

// All of these load if need be. The errors of a file are reported as they come, and the record dropped.
void cfg_rewind();             // puts the walk of cfg_next_word on the first word
void cfg_sort();               // the words by address
cfg_word_t *cfg_next_word();   // null at the end
cfg_word_t *cfg_find_word(uint64_t address);
cfg_word_t *cfg_find_word_by_name(const char *name);
cfg_setting_t *cfg_find_setting(const char *name);   // of the first word that has one of that name

inline bool cfg_word_has_settings(const cfg_word_t *word) { return vec_size(word->settings) != 0; }
inline const char *cfg_get_word_name(const cfg_word_t *word)
{   // null if it has none
    return word->names ? vec_elementAt(word->names, 0) : nullptr;
}
inline const char *cfg_get_setting_name(const cfg_setting_t *set) { return vec_elementAt(set->names, 0); }
inline const char *cfg_get_value_name(const cfg_value_t *val) { return vec_elementAt(val->names, 0); }
uint32_t cfg_setting_shift(const cfg_setting_t *set);   // position of its lowest bit

// Programming. A setting can be given the same thing again, but no other: message 1389.
void cfg_set_ignore_cmsgs(bool flag);   // set at first: no message of the file is given
// False: refused, and nothing is changed; with a number, after message 1389.
bool cfg_prog_word_literal(cfg_word_t *word, uint64_t number);               // messages 1388, 1389, 1386
bool cfg_prog_setting_by_name(cfg_setting_t *set, const char *value_name);   // false: no such value
bool cfg_prog_setting_literal(cfg_setting_t *set, uint64_t number);          // 2220 if it is wider than the setting
