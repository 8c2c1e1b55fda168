// cfgdata: reads the configuration data file and puts values into the words that it describes.
//
// The file. A text of records, one a line: keyword, colon, fields with colons between. A CWORD record begins a word, the
// CSETTING records behind it are its fields, the CVALUE records behind one of those what the field can hold. CMSG
// records come behind the settings and values that they name. So the reader has a current word and a current setting, and
// each record is entered where it belongs as it is read. A line that isn't right is reported and dropped, and reading goes
// on. What hangs on a dropped word or setting goes to a record that is entered nowhere: it is checked, but one slip in a
// CWORD line isn't reported for each of its settings again.
//
// Nothing of the file is trusted. Lines are read into a buffer of fixed size and a longer one is an error; so is a line
// with a NUL byte in it, and a line that goes on for a megabyte ends the file. Numbers have to be numbers, a setting has
// at least one bit, a word's address is its own.
//
// The model. A word holds its contents as a number; each setting also remembers whether it was given a named value, a
// number, or nothing. Every change of a setting goes through do_cmsgs, which sees to it that a second statement doesn't
// silently change what a first one said, and then gives the messages of the file that now apply. A word may be programmed as
// a whole, by number; then its settings are worked out from the number, so that they are described and checked all the same.
//
// A setting changes once at most, and so does each condition of a message. So a message counts the conditions that hold, a
// changed setting tells those that ask about it, and one whose last condition has come true is due. It waits there as long
// as messages are held back.
#include "chip/cfgdata.h"

#include <bit>
#include <cstdio>
#include <cstring>

#include "common/alert.h"
#include "common/fileguard.h"
#include "common/number.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/depfile.h"

constexpr int CTRL_Z = 0x1A;
enum : size_t { LINE_SIZE = 1024, ENDLESS_LINE = 1 << 20 };
enum : uint32_t { WORD_BUCKETS = 23, SETTING_BUCKETS = 31, VALUE_BUCKETS = 7 };

// What comes from the file.
struct cfg_model_t {
    vec_t<cfg_word_t *> words;   // in file order, or sorted
    hash_of<uint64_t, cfg_word_t *> by_address;
    hash_of<const char *, cfg_word_t *> by_name;       // null until the first name
    hash_of<const char *, cfg_setting_t *> settings;   // of all words, by every name; null until the first one
    vec_t<cfg_msg_t *> due;                            // messages to give, in the order in which they became due
    uint32_t next, count;                              // the walk over the words
};

static struct {
    cfg_model_t model;
    const char *cfg_filename = "";
    bool is_ready;   // the file is loaded
    bool enabled = true;
    bool ignore_cmsgs = true;
    // Of the reader.
    unsigned line;
    cfg_word_t *word;   // current ones; null if there is none
    cfg_setting_t *setting;
} st;

// ---- fields of a line

static const char blanks[] = " \t\v\f\r\n";

static char *skip_blanks(char *s) { return s + strspn(s, blanks); }

// Cuts the text ahead of the first of `ends` off `*rest` and returns it; null if nothing is left, not even an empty field.
static char *take_field(char **rest, const char *ends)
{
    char *field = *rest;
    if (!field)
        return nullptr;
    char *end = field + strcspn(field, ends);
    *rest = *end ? end + 1 : nullptr;
    *end = '\0';
    return field;
}

// The number that a field consists of, blanks around it and in base 16 a "0x" ahead of it aside.
static bool read_number(char *field, unsigned base, uint64_t *number)
{
    if (!field)
        return false;
    const char *behind = scan_digits(skip_blanks(field), base, number);
    return behind && behind[strspn(behind, blanks)] == '\0';
}

// The names of a comma-separated list; null if there is none. Two commas in a row have no name between them.
static vec_t<const char *> read_names(const char *list)
{
    vec_t<const char *> names;
    for (; list; list = *list ? list + 1 : nullptr) {
        size_t n = strcspn(list, ",");
        if (n && !names)
            names = vec_make<const char *>(2);
        if (n)
            vec_add(names, cache_substring(list, n));
        list += n;
    }
    return names;
}

template <class T> static void enter_names(hash_of<const char *, T *> *table, uint32_t buckets, T *record)
{
    for (const char *name : record->names) {
        if (!*table)
            *table = hash_make<const char *, T *>(buckets, hash_string, hash_strcmp);
        hash_insert(*table, name, record);   // the first record of a name keeps it
    }
}

template <class T> static T *find_name(hash_of<const char *, T *> table, const char *name)
{
    return table && name ? hash_lookup(table, name) : nullptr;
}

static cfg_word_t *find_word(uint64_t address)
{
    return st.model.by_address ? hash_lookup(st.model.by_address, address) : nullptr;
}

static cfg_setting_t *find_setting(const char *name) { return find_name(st.model.settings, name); }

// ---- records: false is a syntax error

static bool read_cword(char *rest)
{
    cfg_word_t *word = xnew<cfg_word_t>();
    word->state = CFG_UNSET;
    st.word = word;
    st.setting = nullptr;
    if (!read_number(take_field(&rest, ":"), 16, &word->address) || !read_number(take_field(&rest, ":"), 16, &word->mask) ||
        !read_number(take_field(&rest, ":"), 16, &word->defvalue) || find_word(word->address))
        return false;
    word->value = word->defvalue;
    word->names = read_names(cache_trim(take_field(&rest, ":")));
    if (!st.model.by_address) {
        st.model.words = vec_make<cfg_word_t *>(32);
        st.model.by_address = hash_make<uint64_t, cfg_word_t *>(WORD_BUCKETS, nullptr, nullptr);
    }
    vec_add(st.model.words, word);
    hash_insert(st.model.by_address, word->address, word);
    enter_names(&st.model.by_name, WORD_BUCKETS, word);
    return true;
}

// The fields that a setting and a value have in common.
template <class T> static bool read_described(char *rest, uint64_t *number, T *record)
{
    if (!read_number(take_field(&rest, ":"), 16, number))
        return false;
    record->names = read_names(take_field(&rest, ":"));
    record->description = rest ? cache_trim(rest) : "";
    return static_cast<bool>(record->names);
}

static bool read_csetting(char *rest)
{
    cfg_setting_t *set = xnew<cfg_setting_t>();
    cfg_word_t *word = st.word;
    set->state = CFG_UNSET;
    set->word = word;
    st.setting = set;
    if (!read_described(rest, &set->mask, set) || set->mask == 0 || !word)
        return false;
    if (!word->settings)
        word->settings = vec_make<cfg_setting_t *>();
    vec_add(word->settings, set);
    if (find_word(word->address) == word)
        enter_names(&st.model.settings, SETTING_BUCKETS, set);   // or else it was dropped
    return true;
}

static bool read_cvalue(char *rest)
{
    cfg_value_t *val = xnew<cfg_value_t>();
    cfg_setting_t *set = val->setting = st.setting;
    if (!read_described(rest, &val->value, val) || !set)
        return false;
    if (!set->values_by_bits)
        set->values_by_bits = hash_make<uint64_t, cfg_value_t *>(VALUE_BUCKETS, nullptr, nullptr);
    hash_insert(set->values_by_bits, val->value, val);   // the first value of the same bits keeps them
    enter_names(&set->values_by_name, VALUE_BUCKETS, val);
    return true;
}

static bool unknown_in_cmsg(const char *what, const char *name)
{
    alert_text("E", "CMSG record (at %s:%u) references undefined %s (%s)", st.cfg_filename, st.line, what, name);
    return false;
}

static void message_due(cfg_msg_t *msg)
{
    if (!st.model.due)
        st.model.due = vec_make<cfg_msg_t *>();
    vec_add(st.model.due, msg);
}

static void enter_message(cfg_msg_t *msg, vec_t<cfg_setting_t *> settings, vec_t<cfg_value_t *> values)
{
    msg->conditions = vec_size(settings);
    if (msg->conditions == 0)
        return message_due(msg);
    for (uint32_t i = 0; i < msg->conditions; i++) {
        cfg_setting_t *set = vec_elementAt(settings, i);
        cfg_condition_t *condition = xnew<cfg_condition_t>();
        *condition = {vec_elementAt(values, i), msg};
        if (!set->conditions)
            set->conditions = vec_make<cfg_condition_t *>(2);
        vec_add(set->conditions, condition);
    }
}

static bool read_cmsg(char *rest)
{
    char *pairs = take_field(&rest, ":");
    uint64_t number;
    if (!read_number(take_field(&rest, ":"), 10, &number) || number > UINT32_MAX)
        return false;
    cfg_msg_t *msg = xnew<cfg_msg_t>();
    msg->msgno = static_cast<unsigned>(number);
    msg->order = st.line;
    vec_t<cfg_setting_t *> settings = vec_make<cfg_setting_t *>();   // in pairs with the values
    vec_t<cfg_value_t *> values = vec_make<cfg_value_t *>();
    bool known = true;
    if (pairs && !*pairs)
        pairs = nullptr;
    while (char *name = take_field(&pairs, ",=")) {
        char *value_name = take_field(&pairs, ",=");
        cfg_setting_t *set = find_setting(name);
        cfg_value_t *val = set ? find_name(set->values_by_name, value_name) : nullptr;
        if (!set)
            known = unknown_in_cmsg("CSETTING", name);
        else if (!val)
            known = unknown_in_cmsg("CVALUE", value_name ? value_name : "");
        if (!known)
            continue;
        vec_add(settings, set);
        vec_add(values, val);
    }
    if (known && number != 0)
        enter_message(msg, settings, values);
    vec_destroy(settings.raw);
    vec_destroy(values.raw);
    return true;
}

static bool read_record(char *line)
{
    static const struct {
        const char *keyword;
        bool (*read)(char *rest);
    } kinds[] = {{"CWORD", read_cword}, {"CSETTING", read_csetting}, {"CVALUE", read_cvalue}, {"CMSG", read_cmsg}};
    char *rest = line, *keyword = take_field(&rest, ":");
    for (const auto &kind : kinds)
        if (rest && strcmp(keyword, kind.keyword) == 0)
            return kind.read(rest);
    return false;
}

// ---- the file

enum line_result_t { LINE_GOOD, LINE_BAD, LINE_ENDLESS, LINE_NONE };

// One line without its newline, cut if it is too long. A carriage return belongs to the newline, a Ctrl-Z to the end of the
// file, and a byte order mark to its beginning.
static line_result_t read_line(FILE *in, char (&line)[LINE_SIZE])
{
    size_t n = 0;
    bool bad = false;
    int c, last = 0;
    line[LINE_SIZE - 1] = '\0';
    while ((c = getc(in)) != EOF && c != '\n') {
        if (n < LINE_SIZE - 1)
            line[n] = static_cast<char>(c);
        bad |= c == '\0';
        last = c;
        if (++n > ENDLESS_LINE)
            return LINE_ENDLESS;
        if (n == 3 && st.line == 1 && memcmp(line, "\xEF\xBB\xBF", 3) == 0)
            n = 0;
    }
    if (n && last == (c == '\n' ? '\r' : CTRL_Z))
        --n;
    if (n < LINE_SIZE)
        line[n] = '\0';
    if (c == EOF && n == 0)
        return LINE_NONE;
    return bad || n >= LINE_SIZE ? LINE_BAD : LINE_GOOD;
}

// False after a read error.
static bool parse(FILE *in)
{
    char line[LINE_SIZE];
    line_result_t result;
    st.line = 0;
    st.word = nullptr;
    st.setting = nullptr;
    const srcpos_t before = srcpos;
    srcpos.cur_file = st.cfg_filename;
    do {
        srcpos.cur_line = ++st.line;
        result = read_line(in, line);
        char *s = skip_blanks(line);
        if (result == LINE_NONE || (result != LINE_ENDLESS && *s == '#') || (result == LINE_GOOD && !*s))
            continue;
        if (result != LINE_GOOD || !read_record(s))
            alert_text("E", "Syntax error in \"%s\" line %u", st.cfg_filename, st.line);
    } while (result == LINE_GOOD || result == LINE_BAD);
    srcpos = before;
    st.model.count = vec_size(st.model.words);
    return !ferror(in);
}

static void load()
{
    if (!st.enabled || st.is_ready)
        return;
    FILE *in = fopen(st.cfg_filename, "r");
    if (in)
        depfile_add(st.cfg_filename);
    if (in)
        guard_input(fileno(in));
    if (!in || !parse(in))
        alert_msg(141, "configuration registers data", st.cfg_filename);
    if (in)
        fclose(in);
    st.is_ready = true;
}

void cfg_set_file(const char *path)
{
    st.model = {};
    st.is_ready = false;
    st.cfg_filename = cache_string(path ? path : "");
}

void cfg_disable() { st.enabled = false; }

bool cfg_given() { return st.cfg_filename && *st.cfg_filename; }

bool cfg_ready()
{
    load();
    return st.is_ready;
}

// ---- look-ups

void cfg_rewind()
{
    load();
    st.model.next = 0;
}

static int by_address(cfg_word_t *a, cfg_word_t *b) { return (a->address > b->address) - (a->address < b->address); }

void cfg_sort()
{
    load();
    if (st.model.words)
        vec_sort_by<cfg_word_t *, by_address>(st.model.words);
}

cfg_word_t *cfg_next_word()
{
    load();
    return st.model.next < st.model.count ? vec_elementAt(st.model.words, st.model.next++) : nullptr;
}

cfg_word_t *cfg_find_word(uint64_t address)
{
    load();
    return find_word(address);
}

cfg_word_t *cfg_find_word_by_name(const char *name)
{
    load();
    return find_name(st.model.by_name, name);
}

cfg_setting_t *cfg_find_setting(const char *name)
{
    load();
    return find_setting(name);
}

uint32_t cfg_setting_shift(const cfg_setting_t *set) { return static_cast<uint32_t>(std::countr_zero(set->mask)); }

// ---- programming

void cfg_set_ignore_cmsgs(bool flag) { st.ignore_cmsgs = flag; }

static const char *number_text(uint64_t number) { return cache_printf("0x%lX", static_cast<unsigned long>(number)); }

static const char *shown(cfg_state_t kind, cfg_current_t what)
{
    return kind == CFG_NAME ? cfg_get_value_name(what.value) : number_text(what.literal);
}

static bool is_same(cfg_state_t kind, cfg_current_t a, cfg_current_t b)
{
    return kind == CFG_NAME ? a.value == b.value : a.literal == b.literal;
}

// Whether a setting that has changed now holds `val`.
static bool condition_holds(const cfg_setting_t *set, const cfg_value_t *val)
{
    return set->state == CFG_NAME ? set->current.value == val : set->current.literal == val->value;
}

static int by_order(cfg_msg_t *a, cfg_msg_t *b) { return (a->order > b->order) - (a->order < b->order); }

static void give_messages()
{
    if (!st.model.due)
        return;
    vec_sort_by<cfg_msg_t *, by_order>(st.model.due);
    for (const cfg_msg_t *msg : st.model.due)
        alert_once_bare(msg->msgno);
    vec_removeAll(st.model.due);
}

// Whether a setting may be given something: it has nothing yet, or the same.
static bool accepts(const cfg_setting_t *set, cfg_state_t kind, cfg_current_t what)
{
    return set->state == CFG_UNSET || (set->state == kind && is_same(kind, set->current, what));
}

static bool refuse(const cfg_setting_t *set, cfg_state_t kind, cfg_current_t what)
{
    alert_msg(1389, "setting", cfg_get_setting_name(set), shown(kind, what), shown(set->state, set->current));
    return false;
}

// The one place where a setting changes. False, and no change, if it holds something else already.
static bool do_cmsgs(cfg_setting_t *set, cfg_state_t kind, cfg_current_t what)
{
    if (!accepts(set, kind, what))
        return refuse(set, kind, what);
    if (set->state == CFG_UNSET) {
        uint64_t bits = kind == CFG_NAME ? what.value->value : what.literal << cfg_setting_shift(set);
        set->state = kind;
        set->current = what;
        set->word->value = (set->word->value & ~set->mask) | bits;
        for (cfg_condition_t *condition : set->conditions)
            if (condition_holds(set, condition->value) && ++condition->msg->held == condition->msg->conditions)
                message_due(condition->msg);
    }
    if (!st.ignore_cmsgs)
        give_messages();
    return true;
}

bool cfg_prog_setting_by_name(cfg_setting_t *set, const char *value_name)
{
    cfg_value_t *val = find_name(set->values_by_name, value_name);
    if (!val)
        return false;
    do_cmsgs(set, CFG_NAME, {.value = val});
    return true;
}

bool cfg_prog_setting_literal(cfg_setting_t *set, uint64_t number)
{
    const uint64_t field = set->mask >> cfg_setting_shift(set);
    if (set->state == CFG_UNSET && number & ~field)
        alert_msg(2220, cfg_get_setting_name(set), static_cast<unsigned long>(number), static_cast<unsigned long>(field));
    return do_cmsgs(set, CFG_LITERAL, {.literal = number});
}

// What a setting gets from the number of its word. False if that leaves it alone.
static bool setting_of_word(const cfg_setting_t *set, uint64_t number, cfg_state_t *kind, cfg_current_t *what)
{
    const uint64_t bits = number & set->mask;
    cfg_value_t *val = set->values_by_bits ? hash_lookup(set->values_by_bits, bits) : nullptr;
    *kind = val ? CFG_NAME : CFG_LITERAL;
    if (val)
        what->value = val;
    else
        what->literal = bits >> cfg_setting_shift(set);
    return val || bits != (set->word->defvalue & set->mask);
}

static bool settings_accept(const cfg_word_t *word, uint64_t number)
{
    cfg_state_t kind;
    cfg_current_t what;
    for (const cfg_setting_t *set : word->settings)
        if (setting_of_word(set, number, &kind, &what) && !accepts(set, kind, what))
            return false;
    return true;
}

bool cfg_prog_word_literal(cfg_word_t *word, uint64_t number)
{
    const char *name = cfg_get_word_name(word);
    if (!name)
        name = "";
    if (number & ~word->mask)
        alert_msg(1388, name, static_cast<unsigned long>(number), static_cast<unsigned long>(word->mask));
    number &= word->mask;
    if (word->state == CFG_LITERAL && word->value != number && !cfg_word_has_settings(word)) {
        alert_msg(1389, "register", name, number_text(number), number_text(word->value));
        return false;
    }
    const bool accepted = settings_accept(word, number);   // or else nothing changes, and the settings say why
    if (accepted) {
        word->value = number;
        word->state = CFG_LITERAL;
    }
    for (cfg_setting_t *set : word->settings) {
        cfg_state_t kind;
        cfg_current_t what;
        if (!setting_of_word(set, number, &kind, &what))
            continue;
        if (kind == CFG_LITERAL)
            alert_msg(1386, cfg_get_setting_name(set), name);
        if (accepted)
            do_cmsgs(set, kind, what);
        else if (!accepts(set, kind, what))
            refuse(set, kind, what);
    }
    return accepted;
}
