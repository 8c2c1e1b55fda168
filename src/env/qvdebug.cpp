// qvdebug: a run that explains itself.
//
// The option is a list of items, a row of a table each. A row has a flag bit, or a handler for its arguments, or both. An
// item is taken when it is met, so a later one can change what an earlier one set; only the debug file's default name waits
// for the end of the list, as `num` may come behind the item that asks for the file.
//
// An item that makes no sense draws a warning and is passed over: a debugging aid mustn't keep a run from happening. A
// debug file that can't be opened does end the run, since its user would wait for it in vain.
//
// A file that the user named is the user's; one with the default name goes into the package, if a package is asked for. So a
// package is reason enough to open that file. Packing comes first at the end of a run and the statistics of the containers
// come behind it, in the file alone.
//
// The file is written line by line, so that a run that dies leaves its trace behind.
#include "env/qvdebug.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "common/alert.h"
#include "common/assertion.h"
#include "common/container_stats.h"
#include "common/fileguard.h"
#include "common/number.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/archive.h"
#include "env/osdep.h"

#define WARN(...) alert_print("QVDEBUG (warning): " __VA_ARGS__)

enum : int { PREFIX_WIDTH = 20, INDENT_STEP = 4 };
enum : size_t { TRACE_TEXT = 8192 };
static const char app_name[] = "ASSEMBLER";

unsigned debug_flags;

static struct {
    bool seen, finished;
    FILE *out;   // the debug file
    const char *out_name;
    bool default_name = true;
    bool has_app_line;
    const char *zip_name;   // the package; null if none is wanted
    unsigned num = 1;       // run number
    int level;              // of indentation
} st;

// ---- The option

// Closes the debug file, if there is one. False, and told, if something of it got lost.
static bool close_out()
{
    FILE *out = st.out;
    st.out = nullptr;
    if (!out || guard_close(out))
        return true;
    guard_perror(st.out_name);
    alert_msg_nl(461, "debug-out", st.out_name);
    return false;
}

// The file can't be had. What else was to come of it is not, either.
static void no_out(const char *name)
{
    st.out = nullptr;
    if (guard_refused())
        guard_perror(name);
    alert_once_nl(141, "debug-out", name);
}

static void open_out(const char *name, const char *mode)
{
    close_out();
    st.out_name = name;
    st.has_app_line = false;
    FILE *out = guard_open(name, mode, no_out);
    if (!out) {
        no_out(name);
        return;
    }
    setvbuf(out, nullptr, _IOLBF, BUFSIZ);
    st.out = out;
}

// Whether there is an argument; more than one draws a warning.
static bool one_argument(const char *option, const char *kind, const char *arg, bool more)
{
    if (!arg)
        WARN("option \"%s\", must have %s argument", option, kind);
    else if (more)
        WARN("ignoring extraneous arguments with \"%s\" option, using \"%s\"", option, arg);
    return arg;
}

static void take_out(const char *arg, bool more)
{
    bool append = arg && *arg == '+';
    const char *name = append ? arg + 1 : arg;
    if (!one_argument("out", "a filename", name && *name ? name : nullptr, more))
        return;
    if (!st.default_name)
        WARN("debug-out file was set to \"%s\", resetting to \"%s\"", st.out_name, name);
    st.default_name = false;
    open_out(name, append ? "a" : "w");
}

// The package would overwrite a file of the run.
static void no_zip()
{
    guard_perror(st.zip_name);
    alert_msg_nl(461, "package", st.zip_name);
    st.zip_name = nullptr;
}

static void take_zip(const char *arg, bool more)
{
    if (st.zip_name) {
        WARN("Zip file already set to \"%s\", ignoring addtional zip options", st.zip_name);
        return;
    }
    bool keep = arg && *arg == '+';
    st.zip_name = keep ? arg + 1 : arg;
    if (!st.zip_name || !*st.zip_name)
        st.zip_name = "qvk_package.zip";
    if (more)
        WARN("ignoring extraneous arguments with \"zip\" option, using \"%s\"", st.zip_name);
    if (!guard_allows(st.zip_name)) {
        no_zip();
        return;
    }
    if (keep || !file_exists(st.zip_name))
        return;
    WARN("Package zip \"%s\" already exists and will be over-written", st.zip_name);
    if (unlink(st.zip_name) != 0)
        WARN("Unable to remove \"%s\", it will be updated if possible", st.zip_name);
}

static void take_assert(const char *arg, bool more)
{
    static const char *const modes[] = {"ignore", "fatal", "error", "warning"};
    if (!one_argument("assert", "an", arg, more))
        return;
    for (int mode = 0; mode < 4; mode++)
        if (!strcasecmp(arg, modes[mode])) {
            assertion_mode = mode;
            return;
        }
    WARN("unknown argument (%s) given to assert option", arg);
}

// The names are for other tools.
static void take_debug(const char *arg, bool)
{
    if (!arg)
        WARN("option \"debug\", must have at least one argument");
}

static void take_num(const char *arg, bool more)
{
    if (!one_argument("num", "an", arg, more))
        return;
    uint64_t n;
    const char *behind = scan_digits(arg, 10, &n);
    if (behind && !*behind && n > 0 && n <= UINT32_MAX)
        st.num = static_cast<unsigned>(n);
    else
        WARN("\"num\" option must be a decimal integer > 0, using \"%u\"", st.num);
}

static const struct {
    const char *name;
    unsigned bit;
    void (*take)(const char *arg, bool more);   // the first argument or null, and whether others follow
} rows[] = {
    {"default", DEBUG_TRACE, nullptr},
    {"on", DEBUG_TRACE, nullptr},
    {"out", 0, take_out},
    {"sdb", DEBUG_SDB, nullptr},
    {"dwarf", DEBUG_DWARF, nullptr},
    {"zip", 0, take_zip},
    {"alerts", DEBUG_ALERTS, nullptr},
    {"assert", 0, take_assert},
    {"debug", 0, take_debug},
    {"adt", DEBUG_ADT, nullptr},
    {"num", 0, take_num},
};

static char *cut(char *s, char c)
{
    char *end = s ? strchr(s, c) : nullptr;
    if (end)
        *end++ = '\0';
    return end;
}

static void take_item(char *item)
{
    char *arg = cut(item, ':'), *more = cut(arg, ':');
    for (const auto &row : rows)
        if (cache_starts_with_nocase(item, row.name)) {
            debug_flags |= row.bit;
            if (row.take)
                row.take(arg && *arg ? arg : nullptr, more);
            return;
        }
    WARN("unknown option \"%s\"", item);
}

static void debug_alert(const char *line)
{
    if ((debug_flags & DEBUG_ALERTS) && st.out)
        fprintf(st.out, "ALERT> %s", line);
}

void debug_option(const char *list)
{
    if (st.seen) {
        WARN("Ignoring extra --qvdebug options");
        return;
    }
    st.seen = true;
    alert_set_log(debug_alert);
    for (char *item = xstrdup(list), *next; item; item = next) {
        next = cut(item, ',');
        if (*item)
            take_item(item);
    }
    if ((debug_flags || st.zip_name) && !st.out)
        open_out(cache_printf("assembler-%u.out", st.num), "w");
    container_stats_on = debug_flags & DEBUG_ADT;
}

bool debug_active() { return st.out; }

void debug_log_args(int argc, const char *const *argv)
{
    if (!st.out)
        return;
    if (!st.has_app_line)
        fprintf(st.out, "\nAPP: %s\n", app_name);
    st.has_app_line = true;
    fputs("ARGS:", st.out);
    for (int i = 1; i < argc; i++)
        fprintf(st.out, " %s", argv[i]);
    fputs(argc > 1 ? "\n" : " None\n", st.out);
}

// ---- The end

static void pack()
{
    const char *zip = st.zip_name, *file = st.out_name, *member = archive_member_name(file);
    if (!guard_allows(zip)) {
        no_zip();
        return;
    }
    switch (archive_add(zip, member, file)) {
    case ARCHIVE_DONE: return;
    case ARCHIVE_NO_READER: WARN("Unable to open package zip file (%s) for reading to append \"%s\"", zip, file); return;
    case ARCHIVE_NO_APPENDER:
        WARN("Unable to covert package zip file (%s) reader to a writer to append \"%s\"", zip, file);
        return;
    case ARCHIVE_NO_WRITER: WARN("Unable to init package zip file (%s) to add \"%s\"", zip, file); return;
    case ARCHIVE_NOT_ADDED:
        WARN("Unable to add archive \"%s\" (from \"%s\") to package zip (%s)", member, file, zip);
        return;
    case ARCHIVE_NOT_FINALIZED: WARN("Unable to finalize package zip (%s) after adding \"%s\"", zip, file); return;
    case ARCHIVE_NOT_ENDED: WARN("Unable to end package zip (%s) after adding \"%s\"", zip, file); return;
    }
}

bool debug_finish()
{
    if (st.finished || !st.out)
        return true;
    st.finished = true;
    fflush(st.out);
    if (st.default_name && st.zip_name && file_exists(st.out_name))
        pack();
    if (debug_flags & DEBUG_ADT)
        container_stats_dump(st.out);
    debug_flags = 0;
    return close_out();
}

// ---- The trace

static void put_prefix(const char *src, int line)
{
    int width = fprintf(st.out, "%s:%d", path_tail(src), line);
    fprintf(st.out, "%*s> %*s", width < PREFIX_WIDTH ? PREFIX_WIDTH - width : 0, "", st.level * INDENT_STEP, "");
}

void trace_enter(const char *src, int line, const char *func, const char *fmt, ...)
{
    if (!st.out)
        return;
    put_prefix(src, line);
    fprintf(st.out, "ENTER %s(", func);
    if (fmt) {
        va_list args;
        va_start(args, fmt);
        vfprintf(st.out, fmt, args);
        va_end(args);
    }
    fputs(")\n", st.out);
    st.level++;
}

void trace_exit(const char *src, int line, const char *func, const char *fmt, ...)
{
    if (!st.out)
        return;
    if (st.level > 0)
        st.level--;
    else
        WARN("min debug-out indent level reached");
    put_prefix(src, line);
    fprintf(st.out, "EXIT %s()", func);
    if (fmt) {
        fputs(" -> ", st.out);
        va_list args;
        va_start(args, fmt);
        vfprintf(st.out, fmt, args);
        va_end(args);
    }
    fputc('\n', st.out);
}

static void put_lines(const char *operation, const char *src, int line, const char *text)
{
    if (!st.out)
        return;
    if (!*text)
        WARN("%s (at %s:%d) contains no lines", operation, path_tail(src), line);
    while (*text) {
        size_t n = strcspn(text, "\n");
        put_prefix(src, line);
        fwrite(text, 1, n, st.out);
        fputc('\n', st.out);
        text += n + (text[n] == '\n');
    }
}

void tracef(const char *src, int line, const char *fmt, ...)
{
    char text[TRACE_TEXT];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    put_lines("tracef", src, line, text);
}

void trace(const char *src, int line, const char *text) { put_lines("trace", src, line, text); }
