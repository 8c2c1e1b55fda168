// chipinfo: the reader of the chip information file.
//
// The file is a text in sections, one a chip, with a head of attributes that hold for all of them. Reading goes line by
// line: the head is taken in, sections of other chips are passed over, the wanted section is taken in up to the next
// header, and the record's own module checks the result. A chip may be asked for by the tail of its name, "8K10" for
// "ZEL8K10"; such a section is only remembered, since the whole name may stand further on, and it is gone back to at the
// end of the file.
//
// Every attribute's values are kept as text, in order, in a table of the head or of the section. ALIAS is the exception: it
// is a section's own affair, and one in the head is passed over. Numbers and ranges are
// handed to the record as they are read besides. The record forgets them at each section header: what the head says
// counts in look-ups and checks, but its numbers don't reach the chip. They need the architecture, so in a section ARCH
// comes before them.
//
// The words of a line come from strtok_r on the line buffer. A line that is longer than the buffer is read as several
// lines, as fgets gives them, and what stands behind a NUL byte is not seen. A user may name any path, so a file that
// never ends, as a device does, has to end in a message. What editors of other systems put around a text is not part of it:
// a byte order mark at its head, a Ctrl-Z at its end, a carriage return at the end of a line, which is white space.
#include "chip/chipinfo.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "chip/keys.h"
#include "common/alert.h"
#include "common/fileguard.h"
#include "common/number.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/osdep.h"
#include "env/registry.h"

constexpr int CTRL_Z = 0x1A;
enum : unsigned { LINE_SIZE = 3072, ATTRIBUTE_BUCKETS = 13, WARNED_BUCKETS = 127 };
constexpr size_t MOST_NAMES_TOLD = 200;          // bytes of the names of chips in a hint
constexpr size_t MOST_TEXT = size_t{64} << 20;   // bytes of a file

typedef hash_of<const char *, vector_t *> attrs_t;

static struct {
    const char *file = "";
    int line;
    size_t text_read;                         // bytes, about
    hash_of<const char *, uint64_t> warned;   // "line key" of the unknown attributes that were reported
    char text[LINE_SIZE];                     // the current line
    const char *chips;                        // the names in the file, in quotes, as far as it has been read
} st;

const char *chipinfo_file() { return st.file; }
int chipinfo_line() { return st.line; }

void chipinfo_fail(const chipinfo_t *ci, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const char *text = cache_vprintf(format, args);
    va_end(args);
    if (ci && ci->c_name)
        text = cache_printf("%s for chip %s", text, ci->c_name);
    alert_msg(919, text, st.file, st.line);
}

// ---- the file of a chip

const char *chip_find_INI_path(const char *chip)
{
    if (!chip)
        return nullptr;
    const char *lower = cache_lower(cache_concat(chip, ".ini"));
    const char *core = cache_after_prefix_nocase(chip, "zel");
    if (!core)
        core = chip;
    const char *names[] = {cache_concat("ini/", lower), lower, *core == '8' ? "zelc-8.ini" : "zelc.ini"};
    for (const char *name : names) {
        const char *path = reg_mkpath(REG_DAT, name);
        if (file_exists(path))
            return path;
    }
    return nullptr;
}

const char *chip_alias_INI_path(const chipinfo_t *ci)
{
    if (const char *path = chip_find_INI_path(ci->c_alias))
        return path;
    const char *path = cache_path_join(cache_dirname(ci->c_file), cache_lower(cache_concat(ci->c_alias, ".ini")));
    return file_exists(path) ? path : nullptr;
}

// ---- keys

static uint32_t attribute_hash(word_t key)
{
    uint32_t h = 0;
    for (const char *s = from_word<const char *>(key); *s; ++s) {
        unsigned char c = static_cast<unsigned char>(*s);
        h = h * 16 + (c >= 'A' && c <= 'Z' ? c + 32u : c);
    }
    return h;
}

vec_t<const char *> chipinfo_get_list(const chipinfo_t *ci, const char *key)
{
    vector_t *list = hash_lookup(ci->c_attrs, key);
    return {list ? list : hash_lookup(ci->c_fileattrs, key)};
}

const char *chipinfo_get_value(const chipinfo_t *ci, const char *key)
{
    vec_t<const char *> list = chipinfo_get_list(ci, key);
    return list ? vec_elementAt(list, 0) : nullptr;
}

void chipinfo_check(const chipinfo_t *ci, bool required, uint32_t expected, std::initializer_list<const char *> names)
{
    const char *joined = nullptr;
    unsigned present = 0, found = 0;
    for (const char *name : names) {
        joined = joined ? cache_printf("%s/%s", joined, name) : name;
        vec_t<const char *> list = chipinfo_get_list(ci, name);
        present += static_cast<bool>(list);
        found += vec_size(list);
    }
    if (required && present == 0)
        alert_msg(1015, joined, st.file, st.line);
    if (expected == ANY_COUNT || present == 0 || found == expected)
        return;
    const char *plural = found == 1 ? "" : "s";
    if (found == 0)
        alert_msg(1016, expected == 1 ? "" : "s", joined, st.file, st.line);
    else if (expected == 0)
        alert_msg(1017, plural, joined, st.file, st.line);
    else if (expected == 1 && found == 2)
        alert_msg(1019, joined, st.file, st.line);
    else
        alert_msg(1018, joined, plural, found, expected, st.file, st.line);
}

// ---- attributes

// Reads hexadecimal digits, with an optional 0x ahead, that fill the whole text and 64 bits at most.
static bool scan_hex(const char *s, uint64_t *out)
{
    uint64_t n;
    s = scan_digits(s, 16, &n);
    if (!s || *s)
        return false;
    *out = n;
    return true;
}

// Hands a key's pairs of bounds to the record. The text is cut up.
static void read_ranges(chipinfo_t *ci, const key_row_t *key, char *text)
{
    char *rest, *word = strtok_r(text, "-,", &rest);
    do {
        uint64_t lo, hi;
        const char *second = word ? strtok_r(nullptr, "-,", &rest) : nullptr;
        if (!second || !scan_hex(word, &lo) || !scan_hex(second, &hi) || lo > hi) {
            alert_msg(1022, key_name(key), st.file, st.line);
            return;
        }
        key_add_range(ci, key, static_cast<uint32_t>(lo), static_cast<uint32_t>(hi));   // the record has 32 bits
        word = strtok_r(nullptr, "-,", &rest);
    } while (word);
}

// Where attributes go, and what was seen of them.
struct level_t {
    bool section;
    bool arch_seen;
    attrs_t *attrs;
};

static void set_arch(chipinfo_t *ci, level_t *level, const char *value)
{
    if (level->arch_seen)
        alert_msg(816, st.file, st.line);
    level->arch_seen = true;
    const arch_row_t *row = value ? arch_find(value) : nullptr;
    if (row)
        ci->c_arch = row;
    else
        alert_msg(value ? 1025 : 1024, st.file, st.line);
}

// Says once a line that a key is unknown.
static void report_unknown(const char *key)
{
    if (!st.warned)
        st.warned = hash_make<const char *, uint64_t>(WARNED_BUCKETS, hash_string, hash_strcmp);
    if (hash_insert(st.warned, cache_printf("%d %s", st.line, key), 1))
        alert_msg_nl(1020, key, st.file, st.line);
}

// Takes in one line that is neither empty, a comment nor a header.
static void read_attribute(chipinfo_t *ci, level_t *level, char *s)
{
    char *rest;
    char *name = strtok_r(s, level->section ? "= \t\r\n" : "=: \t\r\n", &rest);
    if (!name)
        return;
    char *text = strtok_r(nullptr, ":= \t\r\n", &rest);
    if (strcasecmp(name, "ARCH") == 0)
        return set_arch(ci, level, text);
    const key_row_t *row = key_find(name);
    if (!row)
        return report_unknown(name);

    const char *key = key_name(row), *value = cache_string(text);
    if (strcmp(key, "ALIAS") == 0) {   // of several the last one, also if it is bare
        if (level->section)
            ci->c_alias = value;
        return;
    }
    if (strcmp(key, "MAKE") == 0 && level->section)
        ci->c_make = value;
    const key_kind_t kind = key_kind(row);
    if (value && kind != KEY_TEXT && level->section && !ci->c_arch)
        alert_msg(1026, st.file, st.line);
    if (value && kind == KEY_NUMBER) {
        uint64_t number;
        if (scan_hex(value, &number))
            key_set_number(ci, row, number);
        else
            alert_msg(1021, key, st.file, st.line);
    } else if (value && kind == KEY_RANGES) {
        read_ranges(ci, row, text);
    }

    vec_t<const char *> list = {hash_lookup(*level->attrs, key)};
    if (!list) {
        list = vec_make<const char *>();
        hash_insert(*level->attrs, key, list.raw);
    }
    if (value)
        vec_add(list, value);
}

// ---- the read

static bool next_line(FILE *in)
{
    static const char byte_order_mark[] = "\xEF\xBB\xBF";
    if (!fgets(st.text, LINE_SIZE, in))
        return false;
    const size_t mark = sizeof byte_order_mark - 1;
    if (st.line == 0 && strncmp(st.text, byte_order_mark, mark) == 0)
        memmove(st.text, st.text + mark, LINE_SIZE - mark);
    if (feof(in)) {   // the last line, without a newline
        size_t n = strlen(st.text);
        if (n && st.text[n - 1] == CTRL_Z)
            st.text[--n] = '\0';
        if (n == 0)
            return false;
    }
    ++st.line;
    st.text_read += *st.text ? strlen(st.text) : sizeof st.text;   // a line of NUL bytes may be that long
    if (st.text_read <= MOST_TEXT)
        return true;
    chipinfo_fail(nullptr, "too much text");
    return false;
}

// The current line less what it begins with; null if it is empty or a comment.
static char *line_content()
{
    char *s = st.text + strspn(st.text, "\t\n\v\f\r ");
    return *s && *s != '#' ? s : nullptr;
}

static void clear_derived(chipinfo_t *ci)
{
    chipinfo_t cleared = {};
    cleared.c_name = ci->c_name;
    cleared.c_alias = ci->c_alias;
    cleared.c_file = ci->c_file;
    cleared.c_make = ci->c_make;
    cleared.c_arch = ci->c_arch;
    cleared.c_fileattrs = ci->c_fileattrs;
    cleared.c_attrs = ci->c_attrs;
    *ci = cleared;
}

// Goes through the head and the headers up to the wanted section. The result is the section's name, with the file behind
// its header; null if there is none.
static const char *seek_section(FILE *in, chipinfo_t *ci, const char *chip)
{
    level_t head = {false, false, &ci->c_fileattrs};
    bool in_head = true, at_other_header = false;
    const char *tail_name = nullptr;   // the section whose name ends in the chip's
    long tail_at = 0;
    int tail_line = 0;
    do {
        at_other_header = false;
        char *s = line_content();
        if (!s)
            continue;
        if (*s != '[') {
            if (in_head)
                read_attribute(ci, &head, s);
            continue;
        }
        in_head = false;
        char *rest;
        const char *name = strtok_r(s, "][\r\n", &rest);
        if (!name) {
            alert_msg(1024, st.file, st.line);
            continue;
        }
        clear_derived(ci);
        if (strlen(st.chips) < MOST_NAMES_TOLD)
            st.chips = cache_printf("%s \"%s\"", st.chips, name);
        if (!*chip || strcasecmp(chip, name) == 0)
            return cache_string(name);
        if (cache_ends_with_nocase(name, chip)) {
            if (tail_name)
                return nullptr;
            tail_name = cache_string(name);
            tail_at = ftell(in);
            tail_line = st.line;
        } else {
            at_other_header = true;
        }
    } while (next_line(in));
    if (!tail_name || at_other_header || tail_at < 0 || fseek(in, tail_at, SEEK_SET) != 0)
        return nullptr;
    st.line = tail_line;
    return tail_name;
}

static chipinfo_t *read_chip(FILE *in, const char *chip)
{
    chipinfo_t *ci = xnew<chipinfo_t>();
    ci->c_file = st.file;
    ci->c_fileattrs = hash_make<const char *, vector_t *>(ATTRIBUTE_BUCKETS, attribute_hash, hash_strcasecmp);
    ci->c_attrs = hash_make<const char *, vector_t *>(ATTRIBUTE_BUCKETS, attribute_hash, hash_strcasecmp);
    if (!next_line(in)) {
        if (ferror(in))
            alert_msg(141, "chip info", st.file);   // a directory can be opened, but not read
        else
            alert_msg(920);
        return nullptr;
    }
    const char *name = seek_section(in, ci, chip);
    if (!name)
        return nullptr;
    ci->c_name = name;
    level_t section = {true, false, &ci->c_attrs};
    while (next_line(in)) {
        char *s = line_content();
        if (!s)
            continue;
        if (*s == '[')
            break;
        read_attribute(ci, &section, s);
    }
    if (!ci->c_arch)
        alert_msg(1026, st.file, st.line);
    zel1x_chip_post(ci);
    return ci;
}

chipinfo_t *chipinfo_read(const char *path, const char *chip)
{
    if (!chip)
        return nullptr;
    if (!path) {
        alert_msg(2043);
        return nullptr;
    }
    FILE *in = fopen(path, "r");
    if (!in) {
        alert_msg(141, "chip info", path);
        return nullptr;
    }
    guard_input(fileno(in));
    st.file = cache_string(path);
    st.line = 0;
    st.text_read = 0;
    st.chips = "";
    chipinfo_t *ci = read_chip(in, chip);
    fclose(in);
    return ci;
}

chipinfo_t *chipinfo_load(const char *path, const char *chip)
{
    if (!path)
        path = chip_find_INI_path(chip);
    chipinfo_t *ci = chipinfo_read(path, chip);
    if (!ci && st.chips && *st.chips)
        alert_hint("the file has%s", st.chips);
    if (!ci)
        alert_msg(922, chip ? chip : "", path ? path : "");
    return ci;
}
