// alert: the road of a message from its number to a line on standard error.
//
// Catalogue. A text file with a line for each message: number, type, text. The first file loaded is the primary catalogue,
// the one an installation carries; it alone decides types and levels. The file loaded last is the override catalogue and
// lends its texts. Both are sparse vectors of records indexed by number, and so are the actions by which the user silences
// single numbers. A lookup puts a record together from the three and never fails: a number that nobody knows is an error
// with a stock text.
//
// Texts are printf formats, and the arguments are what the calls in this program pass. So a third table stands behind the two:
// the program's own, of the catalogue that it is built with. A text of a file is taken only if it takes the arguments that the
// own one takes, or the first few of them, so that neither a slip nor malice can read or write wild memory. A message that is
// fatal in the own table stays so: no caller has to think of a return. `%m` is ours: it stands for the system's error text of
// the moment the reporting call was entered.
//
// Order in a report: type and level first, so that a dropped message has no effect at all; then the hook, which sets the
// location; then the counts, where one error too many ends the run; then the line. A fatal message ends the run behind its
// line. Callers are never unwound: stop() exits.
//
// Lines are built in fixed buffers, text in one and the line in another. What does not fit is cut. The one nested report
// ("too many errors") comes when the current message has been given up, so sharing the buffers is harmless. Once the
// catalogue is loaded, nothing on the way of alert_msg to the line allocates memory, as running out of it is one of the messages.
#include "common/alert.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/failure.h"
#include "common/fileguard.h"
#include "common/hash.h"
#include "common/number.h"
#include "common/stringcache.h"
#include "common/vector.h"
#include "common/xalloc.h"

enum alert_type_t : uint32_t { UNKNOWN, FATAL, MESSAGE, ERROR, WARNING, SUPPRESSED };
enum alert_form_t { ERROR_FORM, WARNING_FORM, MESSAGE_FORM, FORMS };
enum alert_action_t : uint32_t {
    NO_ACTION = 0,
    HIDE_MILD = 1,
    SHOW = 2,
    HIDE_ALL = 4
};   // HIDE_MILD: warnings and messages only
enum : unsigned { MAX_NUMBER = 10000, REPORTED_BUCKETS = 199 };
enum : unsigned { LINES_MAX = 100000 };   // of a catalogue: a device may have no end
enum : unsigned { FAULTS_TOLD = 5 };      // of a catalogue; the rest is summed up
enum : size_t { WIDTH_DIGITS = 3 };       // of a conversion: a larger width only costs time
enum : size_t { LINE_BUFFER = 256, TEXT_LIMIT = 511, LINE_LIMIT = 8192 };

struct alert_record_t {
    alert_type_t type;
    uint32_t number;
    const char *text;
    int32_t level;   // of warnings
};

// What a once form remembers.
struct alert_reported_t {
    unsigned number;
    int64_t line;
    const char *file;
};

static const char *const default_formats[FORMS] = {"%f: %l: (%n) %s (error)", "%f: %l: (%n) %s (warning)", "%f: %l: %s"};
static const char *const format_variables[FORMS] = {"OST_ERR_FORMAT", "OST_WARN_FORMAT", "OST_MSG_FORMAT"};
static const char no_line_text[] = "Non line specific message";

static struct {
    const alert_services_t *services;
    void (*log)(const char *line);
    bool (*show)(const alert_report_t *report);
    bool ready;   // the formats are set and the catalogue is loaded
    vec_t<alert_record_t *> own, primary, override_texts;
    vec_t<uint32_t> actions;
    const char *loaded;   // cached name of the file loaded last
    hash_of<alert_reported_t *, bool> reported;

    unsigned limit = 20, errors, warnings;
    int threshold;
    bool werror, structured, no_line;
    bool bare;   // the caller has no arguments, whatever the text wants
    const char *formats[FORMS] = {default_formats[0], default_formats[1], default_formats[2]};
    const char *file;
    const int64_t *line_pointer;
    const char *const *line_start, *const *character;
    void (*hook)();

    int saved_errno;
    char text[TEXT_LIMIT];
    char hint[TEXT_LIMIT];
    char line[LINE_LIMIT];
    size_t length;   // of `line`
} st;

void alert_set_services(const alert_services_t *services) { st.services = services; }
void alert_set_log(void (*log)(const char *line)) { st.log = log; }
void alert_set_show(bool (*show)(const alert_report_t *report)) { st.show = show; }

void alert_stop(int status)
{
    if (st.services)
        st.services->stop(status);
    exit(status);
}

// What stands below has this from the start, so that memory may run out at any time.
static constexpr failure_services_t for_failures = {
    .no_memory = [] { alert_msg(296); },
    .assertion = [](unsigned number, const char *text, const char *file,
                    int line) { alert_msg_nl(number, text, file, line); },
    .stop = [](int status) { alert_stop(status); },
};
[[maybe_unused]] static const bool failures_taken = (failure_services = &for_failures, true);

// ---- The catalogue

static const char *skip(const char *s, const char *set) { return s + strspn(s, set); }

// A decimal number that the token consists of, or -1.
static int64_t whole_number(const char *s, size_t n)
{
    int64_t value = 0;
    for (size_t i = 0; i < n; i++) {
        if (s[i] < '0' || s[i] > '9' || value > MAX_NUMBER)
            return -1;
        value = value * 10 + (s[i] - '0');
    }
    return n ? value : -1;
}

static bool is_level(const char *s)
{
    s += *s == '-';
    return *s >= '0' && *s <= '9';
}

static alert_type_t type_of_token(char c)
{
    switch (c | 0x20) {
    case 'f': return FATAL;
    case 'e': return ERROR;
    case 'm': return MESSAGE;
    default: return c == '-' || (c >= '0' && c <= '9') ? WARNING : UNKNOWN;
    }
}

// One conversion of a printf format: what it takes from the argument list, reduced to a class of exchangeable conversions.
struct alert_conversion_t {
    size_t length;   // of the length modifier
    const char *modifier;
    char kind;   // 'i' integer, 's', 'f', 'p'; 0 none is left; '?' not understood
};

static const char DIGITS[] = "0123456789";

static alert_conversion_t next_conversion(const char *&s)
{
    while ((s = strchr(s, '%'))) {
        s = skip(s + 1, "-+ #0");
        const size_t width = strspn(s, DIGITS), precision = s[width] == '.' ? strspn(s + width + 1, DIGITS) : 0;
        s += width + (s[width] == '.') + precision;
        alert_conversion_t c = {strspn(s, "hlLqjzt"), s, '?'};
        const bool huge = width > WIDTH_DIGITS || precision > WIDTH_DIGITS;
        s += c.length;
        if (!*s)
            return c;
        char ch = *s++;
        if (huge || (ch == 'c' && c.length))
            return c;
        if (ch == '%' || ch == 'm')
            continue;
        if (strchr("diuoxXc", ch))
            c.kind = 'i';
        else if (strchr("eEfFgGaA", ch))
            c.kind = 'f';
        else if (ch == 's' || ch == 'p')
            c.kind = ch;
        return c;
    }
    s = "";
    return {0, "", 0};
}

// Whether `text` takes its arguments as `model` does, or the first few of them.
static bool takes_arguments_of(const char *text, const char *model)
{
    for (;;) {
        alert_conversion_t a = next_conversion(text), b = next_conversion(model);
        if (!a.kind)
            return true;
        bool same = a.kind == b.kind && a.length == b.length && !memcmp(a.modifier, b.modifier, a.length);
        if (a.kind == '?' || !same)
            return false;
    }
}

// Why a line can't be used, or not all of it.
enum line_fault_t { LINE_GOOD, LINE_MALFORMED, LINE_OTHER_ARGUMENTS };

// Reads one line, whose newline is gone, into the table.
static line_fault_t load_line(vec_t<alert_record_t *> table, const char *s)
{
    s = skip(s, " \t");
    size_t n = strcspn(s, " \t");
    int64_t number = whole_number(s, n);
    const char *type = skip(s + n, " \t"), *text = type + strcspn(type, " \t");
    if (number < 0 || number > MAX_NUMBER || !*text || !*++text)
        return LINE_MALFORMED;
    alert_record_t *m = xnew<alert_record_t>();
    m->type = type_of_token(*type);
    m->number = static_cast<uint32_t>(number);
    m->level = m->type == WARNING ? scan_decimal(type) : 0;
    vec_setAt(table, m, m->number);
    const alert_record_t *own = st.own ? vec_elementAt(st.own, m->number) : nullptr;
    const bool fits = !own || takes_arguments_of(text, own->text);
    m->text = fits ? cache_string(text) : own->text;
    return m->type == UNKNOWN ? LINE_MALFORMED : fits ? LINE_GOOD : LINE_OTHER_ARGUMENTS;
}

// `path` is for messages.
static vec_t<alert_record_t *> read_catalogue(FILE *in, const char *path)
{
    vec_t<alert_record_t *> table = vec_make<alert_record_t *>();
    char line[LINE_BUFFER];
    unsigned faults = 0;
    for (unsigned number = 1; number <= LINES_MAX && fgets(line, sizeof line, in); number++) {
        char *s = line, *end = line + strcspn(line, "\n");
        if (number == 1 && !strncmp(s, "\xEF\xBB\xBF", 3))
            s += 3;   // a byte order mark
        const bool whole = *end;
        if (whole && end > s && end[-1] == '\r')
            end--;
        while (!whole && end > s && end[-1] == '\x1A')
            end--;   // a Ctrl-Z at the end of the file
        if (!whole && end == s)
            break;
        *end = '\0';
        if (*s == '#')
            continue;
        const line_fault_t fault = load_line(table, s);
        if (fault == LINE_GOOD || faults++ >= FAULTS_TOLD)
            continue;
        if (fault == LINE_MALFORMED)
            alert_numbered_text(3, "M", "Malformed error information on line %u, in file %s\n", number, path);
        else
            alert_numbered_text(3, "M", "Text on line %u, in file %s, has other arguments than its message", number, path);
    }
    if (faults > FAULTS_TOLD)
        alert_numbered_text(3, "M", "%u more lines like these in file %s", faults - FAULTS_TOLD, path);
    return table;
}

static void load_own()
{
    if (!st.services || !st.services->own_catalogue)
        return;
    FILE *in = fmemopen(const_cast<void *>(st.services->own_catalogue), st.services->own_length, "r");
    if (!in)
        return;
    st.own = read_catalogue(in, "of the program");
    fclose(in);
}

static bool load_catalogue(const char *path)
{
    FILE *in = path ? fopen(path, "r") : nullptr;
    if (!in)
        return false;
    guard_input(fileno(in));
    path = cache_string(path);
    st.override_texts = read_catalogue(in, path);
    fclose(in);
    if (!st.primary)
        st.primary = st.override_texts;
    st.loaded = path;
    return true;
}

static void initialise()
{
    if (st.ready)
        return;
    st.ready = true;
    for (int i = 0; i < FORMS; i++)
        if (const char *value = getenv(format_variables[i]))
            st.formats[i] = value;
    load_own();
    if (!load_catalogue(st.services ? st.services->find_catalogue() : nullptr))
        st.primary = st.override_texts = st.own;
}

static alert_record_t look_up(unsigned number)
{
    const alert_record_t *own = st.own ? vec_elementAt(st.own, number) : nullptr;
    alert_record_t m = {ERROR, number, "An error, warning or message was generated, but no description is available", 0};
    if (const alert_record_t *entry = st.primary ? vec_elementAt(st.primary, number) : nullptr) {
        m = *entry;
        const alert_record_t *other = vec_elementAt(st.override_texts, number);
        if (other && (own || takes_arguments_of(other->text, m.text)))
            m.text = other->text;
    }
    if (own && own->type == FATAL)
        m.type = FATAL;
    uint32_t action = st.actions ? vec_elementAt(st.actions, number) : 0;
    if (action == HIDE_MILD && (m.type == MESSAGE || m.type == WARNING))
        m.type = SUPPRESSED;
    if (action == SHOW)
        m.level = INT32_MAX;
    if (action == HIDE_ALL && m.type != FATAL)
        m.type = SUPPRESSED;
    return m;
}

static bool is_dropped(const alert_record_t &m)
{
    return m.type == SUPPRESSED || (m.type == WARNING && m.level < st.threshold);
}

// ---- The line

static const char *system_error() { return st.saved_errno ? strerror(st.saved_errno) : ""; }

static void put(const char *s, size_t n)
{
    size_t room = LINE_LIMIT - 1 - st.length;
    if (n > room)
        n = room;
    memcpy(st.line + st.length, s, n);
    st.length += n;
}

static void put(const char *s) { put(s, strlen(s)); }

static void put_number(int64_t n)
{
    char digits[24];
    snprintf(digits, sizeof digits, "%lld", static_cast<long long>(n));
    put(digits);
}

static void write_line(alert_severity_t severity, unsigned number, const char *text)
{
    if (st.length == LINE_LIMIT - 1)
        st.length--;
    put("\n");
    st.line[st.length] = '\0';
    if (st.log)
        st.log(st.line);
    const bool nowhere = st.no_line || !st.file;
    const alert_report_t report = {
        severity, number, text, nowhere ? "" : st.file, !nowhere && st.line_pointer ? *st.line_pointer : 0,
        st.line,  st.hint};
    if (!st.show || !st.show(&report))
        fwrite(st.line, 1, st.length, stderr);
    fflush(stderr);
}

// The format with each %m replaced; the format itself if there is none. It is cut before what doesn't fit.
static const char *expand_errors(const char *format)
{
    static char expanded[LINE_LIMIT];
    if (!strstr(format, "%m"))
        return format;
    size_t length = 0;
    while (*format) {
        const char *piece = format;
        size_t n = *format == '%' && format[1] ? 2 : 1;
        format += n;
        if (n == 2 && piece[1] == 'm') {
            piece = system_error();
            n = strlen(piece);
        }
        if (n >= sizeof expanded - length)
            break;
        memcpy(expanded + length, piece, n);
        length += n;
    }
    expanded[length] = '\0';
    return expanded;
}

static void put_location()
{
    if (st.no_line)
        put(no_line_text);
    else if (st.file && *st.file)
        put(st.file);
}

static void put_structured(const char *format, unsigned number)
{
    for (; *format; format++) {
        if (*format != '%') {
            put(format, 1);
            continue;
        }
        switch (*++format) {
        case '\0': return;
        case 'a': put("assembler"); break;
        case 'c':
            if (st.character && st.line_start)
                put_number(*st.character - *st.line_start);
            break;
        case 'f': put_location(); break;
        case 'l':
            if (st.line_pointer && !st.no_line)
                put_number(*st.line_pointer);
            break;
        case 'm': put(system_error()); break;
        case 'n': put_number(number); break;
        case 's': put(st.text); break;
        default: put(format, 1);
        }
    }
}

static void put_plain(alert_form_t form)
{
    if (st.no_line || (st.file && *st.file)) {
        put_location();
        put(": ");
    }
    if (st.line_pointer && !st.no_line) {
        put_number(*st.line_pointer);
        put(": ");
    }
    put(st.text);
    if (form == WARNING_FORM)
        put(" (warning)");
}

static alert_form_t form_of(alert_type_t type)
{
    return type == FATAL || type == ERROR ? ERROR_FORM : type == MESSAGE ? MESSAGE_FORM : WARNING_FORM;
}

static alert_severity_t severity_of(alert_type_t type)
{
    static constexpr alert_severity_t by_form[FORMS] = {ALERT_ERROR, ALERT_WARNING, ALERT_MESSAGE};
    return type == FATAL ? ALERT_FATAL : by_form[form_of(type)];
}

static void write_message(alert_type_t type, unsigned number, const char *format, va_list args)
{
    const alert_form_t form = form_of(type);
    size_t n = 0;
    st.text[0] = '\0';
    if (!st.structured && form != MESSAGE_FORM)
        n = static_cast<size_t>(snprintf(st.text, TEXT_LIMIT, "(%u) ", number));
    vsnprintf(st.text + n, TEXT_LIMIT - n, expand_errors(format), args);
    st.length = 0;
    if (st.structured)
        put_structured(st.formats[form], number);
    else
        put_plain(form);
    write_line(severity_of(type), number, st.text + n);
}

// ---- Reports

static void call_hook()
{
    if (st.hook)
        st.hook();
}

static void count_error()
{
    unsigned before = st.errors++;
    if (before < st.limit)
        return;
    alert_numbered_text(1, "M", "too many errors (%u)", before + 1);
    alert_stop(1);
}

static int report(unsigned number, va_list args)
{
    initialise();
    alert_record_t m = look_up(number);
    if (is_dropped(m))
        return 0;
    call_hook();
    if (m.type == ERROR)
        count_error();
    if (m.type == WARNING)
        st.warnings++;
    const char *text = st.bare && !takes_arguments_of(m.text, "") ? cache_escape(m.text, "%", '%') : m.text;
    write_message(m.type, number, text, args);
    if (m.type == FATAL)
        alert_stop(1);
    return 1;
}

static uint32_t reported_hash(word_t key)
{
    const alert_reported_t *r = from_word<const alert_reported_t *>(key);
    return hash_string(to_word(r->file)) ^ static_cast<uint32_t>(r->line) * 0x9E3779B1 ^ r->number;
}

static int reported_compare(word_t v, word_t w)
{
    const alert_reported_t *a = from_word<const alert_reported_t *>(v), *b = from_word<const alert_reported_t *>(w);
    if (a->number != b->number)
        return a->number < b->number ? -1 : 1;
    if (a->line != b->line)
        return a->line < b->line ? -1 : 1;
    return strcmp(a->file, b->file);
}

static int report_once(unsigned number, va_list args)
{
    call_hook();
    initialise();
    if (!st.reported)
        st.reported = hash_make<alert_reported_t *, bool>(REPORTED_BUCKETS, reported_hash, reported_compare);
    alert_reported_t key = {number, st.line_pointer ? *st.line_pointer : 0, st.file ? st.file : ""};
    if (hash_haskey(st.reported, &key))
        return 0;
    if (!is_dropped(look_up(number))) {
        alert_reported_t *kept = xnew<alert_reported_t>();
        *kept = {key.number, key.line, cache_string(key.file)};
        hash_insert(st.reported, kept, true);
    }
    return report(number, args);
}

// The forms differ in the function behind them and in the no-line flag.
#define NUMBER_FORM(name, function, flag)     \
    int name(unsigned number, ...)            \
    {                                         \
        st.saved_errno = errno;               \
        bool before = st.no_line;             \
        st.no_line = flag;                    \
        va_list args;                         \
        va_start(args, number);               \
        int written = function(number, args); \
        va_end(args);                         \
        st.no_line = before;                  \
        st.hint[0] = '\0';                    \
        return written;                       \
    }
NUMBER_FORM(alert_msg, report, false)
NUMBER_FORM(alert_msg_nl, report, true)
NUMBER_FORM(alert_once, report_once, false)
NUMBER_FORM(alert_once_nl, report_once, true)

void alert_hint(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(st.hint, sizeof st.hint, format, args);
    va_end(args);
}

int alert_once_bare(unsigned number)
{
    st.bare = true;
    int written = alert_once(number);
    st.bare = false;
    return written;
}

static int report_text(unsigned number, bool hook, const char *kind, const char *format, va_list args)
{
    alert_type_t type = type_of_token(*kind);
    if (type == ERROR)
        count_error();
    int level = is_level(kind) ? scan_decimal(kind) : 10;
    if (level < st.threshold && type != FATAL)
        return 0;
    if (hook)
        call_hook();
    write_message(type, number, format, args);
    if (type == FATAL)
        alert_stop(1);
    return 1;
}

int alert_text(const char *kind, const char *format, ...)
{
    st.saved_errno = errno;
    va_list args;
    va_start(args, format);
    int written = report_text(0, true, kind, format, args);
    va_end(args);
    return written;
}

int alert_numbered_text(unsigned number, const char *kind, const char *format, ...)
{
    st.saved_errno = errno;
    va_list args;
    va_start(args, format);
    int written = report_text(number, false, kind, format, args);
    va_end(args);
    return written;
}

void alert_print(const char *format, ...)
{
    st.saved_errno = errno;
    va_list args;
    va_start(args, format);
    int n = vsnprintf(st.line, LINE_LIMIT, format, args);
    va_end(args);
    st.length = n < 0 ? 0 : strlen(st.line);
    const bool before = st.no_line;
    st.no_line = true;
    write_line(ALERT_BARE, 0, st.line);
    st.no_line = before;
}

// ---- Settings

void alert_set_formats(const char *error_format, const char *warning_format, const char *message_format)
{
    initialise();
    const char *formats[FORMS] = {error_format, warning_format, message_format};
    for (int i = 0; i < FORMS; i++) {
        const char *variable = getenv(format_variables[i]);
        st.formats[i] = cache_string(variable ? variable : formats[i] ? formats[i] : default_formats[i]);
    }
}

unsigned alert_set_emax(unsigned limit)
{
    initialise();
    return std::exchange(st.limit, limit);
}

int alert_set_level(int level) { return std::exchange(st.threshold, level); }
void alert_set_werror(int flag) { st.werror = flag; }
void alert_set_structured(int flag) { st.structured = flag; }
void alert_set_hook(void (*hook)()) { st.hook = hook; }

void alert_set_location(const char *file, const int64_t *line, const char *const *line_start, const char *const *character)
{
    st.file = file;
    st.line_pointer = line;
    st.line_start = line_start;
    st.character = character;
}

bool alert_load_file(const char *path)
{
    initialise();
    struct stat info;
    if (!path || stat(path, &info) != 0 || S_ISDIR(info.st_mode))
        return false;
    return cache_string(path) == st.loaded || load_catalogue(path);
}

static void set_action(unsigned number, alert_action_t action)
{
    if (!st.actions)
        st.actions = vec_make<uint32_t>();
    vec_setAt(st.actions, action, number);
}

void alert_choose(unsigned number, bool shown) { set_action(number, shown ? SHOW : HIDE_MILD); }

bool alert_is_shown(unsigned number)
{
    initialise();
    return !is_dropped(look_up(number));
}

void alert_disable_list(const char *text)
{
    if (!text || !*text)
        return;
    if (*text == '0') {
        for (uint32_t i = 0, n = vec_size(st.primary); i < n; i++) {
            const alert_record_t *m = vec_elementAt(st.primary, i);
            if (m && (m->type == MESSAGE || m->type == WARNING))
                set_action(i, HIDE_MILD);
        }
        return;
    }
    for (const char *s = text;; s++) {
        char *end;
        unsigned long number = strtoul(s, &end, 10);
        if (end != s && number <= MAX_NUMBER)
            set_action(static_cast<uint32_t>(number), strncmp(end, ":off", 4) ? HIDE_MILD : HIDE_ALL);
        if (!(s = strchr(s, ',')))
            return;
    }
}

int alert_exit_status() { return st.errors || (st.werror && st.warnings); }
