// Two tables hold the options: one by the character behind the dash, one by the words behind two dashes. A row is what an
// option looks like and a function that takes the whole argument. Rows are tried in their order, and the first that fits
// takes the argument; the last row of the first table takes whatever no other wants, as a chip name.
//
// A driver that has too many arguments for a command line passes them through a file or through standard input. Those
// words follow the small quoting rules of `read_words`, which are not a shell's.
#include "cmdline.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

#include "chip/cfgdata.h"
#include "common/alert.h"
#include "common/fileguard.h"
#include "common/number.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/cmode.h"
#include "env/html.h"
#include "env/qvdebug.h"
#include "options.h"

constexpr const char *PRODUCT = "ZEL8 Assembler";

static struct {
    const char *at_argument;   // @file, or null; it and the next two are for the debug log
    int argc;
    char **argv;
    int first_errors = -1;   // what standard error was before the first -E<file>
    const char *obj_file, *list_file;
    const char *version = "";   // of -ver=
} command;

static options_t &asked = options_to_write();

// Words of a stream.

constexpr char CTRL_Z = 0x1A;
constexpr int WORD_BUFFER = 2048;   // a word's bytes with its NUL
constexpr int WORDS_FIRST = 1024;

struct words_t {
    char **list;
    int count, room;
    char word[WORD_BUFFER];
    int length;
};

static void end_word(words_t *w)
{
    xreserve(w->list, w->count, w->count + 2, w->room, WORDS_FIRST);   // with a null behind the last
    w->list[w->count++] = xstrndup(w->word, static_cast<size_t>(w->length));
    w->length = 0;
}

// False, after message 917, when the word buffer is full; the word is cut.
static bool store(words_t *w, char c)
{
    if (w->length == WORD_BUFFER - 1) {
        alert_msg(917);
        return false;
    }
    w->word[w->length++] = c;
    return true;
}

// The words of one line. False when a word was too long: the words so far stand, and nothing more is read.
static bool read_line_words(words_t *w, const char *line, size_t length)
{
    char quote = 0;
    bool escaped = false, stored = true;
    for (size_t i = 0; i < length && stored; i++) {
        const char c = line[i];
        if (c == ' ') {
            if (quote || escaped)
                stored = store(w, c);
            else
                end_word(w);
            escaped = false;
        } else if (c == '\t') {
            end_word(w);
            quote = 0;
            escaped = false;
        } else if (c == '"' || c == '\'') {
            if (escaped || (quote && quote != c))
                stored = store(w, c);
            else
                quote = quote ? 0 : c;
            escaped = false;
        } else if (c == '\\') {
            if (escaped)
                stored = store(w, c);
            escaped = !escaped;
        } else {
            if (escaped)
                stored = store(w, '\\');
            escaped = false;
            stored = stored && store(w, c);
        }
    }
    if (w->length > 0)
        end_word(w);
    return stored;
}

static void read_words(FILE *in, int *argc, char ***argv)
{
    words_t *w = xnew<words_t>();
    w->length = 6;
    memcpy(w->word, "ASZEL8", 6);
    end_word(w);
    guard_input(fileno(in));
    const bool prompt = isatty(fileno(in));
    char *line = nullptr;
    size_t size = 0;
    bool first = true;
    for (;;) {
        if (prompt) {
            fputs("ASZEL8> ", stdout);
            fflush(stdout);
        }
        ssize_t length = getline(&line, &size, in);
        if (length < 0)
            break;
        const bool whole = length > 0 && line[length - 1] == '\n';
        if (whole && --length > 0 && line[length - 1] == '\r')
            length--;
        while (!whole && length > 0 && line[length - 1] == CTRL_Z)
            length--;
        const size_t mark = first && length >= 3 && memcmp(line, "\xEF\xBB\xBF", 3) == 0 ? 3 : 0;
        first = false;
        if (!read_line_words(w, line + mark, static_cast<size_t>(length) - mark))
            break;
    }
    free(line);
    *argc = w->count;
    *argv = w->list;
}

void cmdline_collect(int *argc, char ***argv)
{
    if (*argc > 2 || (*argc == 2 && (*argv)[1][0] != '@'))
        return;
    if (*argc == 2) {
        command.at_argument = (*argv)[1];
        const char *file = command.at_argument + 1;
        FILE *in = fopen(file, "r");
        const int first = in ? fgetc(in) : EOF;
        if (in && first == EOF && ferror(in)) {   // a directory opens and can't be read
            fclose(in);
            in = nullptr;
            errno = EISDIR;
        }
        if (!in) {
            const int why = errno;
            alert_msg(1217, file);
            errno = why;
            perror(file);
            *argc = 1;
            return;
        }
        ungetc(first, in);
        read_words(in, argc, argv);
        fclose(in);
    } else {
        read_words(stdin, argc, argv);
    }
}

// Options by the character behind the dash. A row's function gets the whole argument.

static void option_a(const char *arg)
{
    (strcasecmp(arg + 1, "auto_inline") == 0 ? asked.auto_inline : asked.asm_output) = true;
}

static void option_b(const char *arg)
{
    if (!asked.keep_labels)
        asked.keep_labels = hash_make<const char *, uint64_t>(127, hash_string, hash_strcmp);
    hash_insert(asked.keep_labels, cache_string(arg + 2), 1);
}

static void option_c(const char *arg)
{
    if (arg[2])
        asked.user_chipinfo_path = arg + 2;
    else if (asked.cross_ref < UINT8_MAX)
        asked.cross_ref++;
}

static void no_error_file(const char *file)
{
    guard_perror(file);
    const srcpos_nowhere_t nowhere;
    alert_msg(461, "error", file);
}

// The file turns out to be an input: errors go where they went at first.
static void lost_error_file(const char *file)
{
    dup2(command.first_errors, STDERR_FILENO);
    no_error_file(file);
}

static void option_e(const char *arg)
{
    const char *rest = arg + 2;
    if (!*rest) {
        asked.structured = 1;
    } else if (rest[0] >= '0' && rest[0] <= '9' && !rest[1]) {
        asked.structured = static_cast<uint8_t>(rest[0] - '0');
    } else {
        // Opened first, since a stream that fails to reopen would swallow the message that says so.
        FILE *to = guard_open(rest, "a", lost_error_file);
        if (command.first_errors < 0)
            command.first_errors = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (to && freopen(rest, "a", stderr))
            setvbuf(stderr, nullptr, _IOLBF, 1024);
        else
            no_error_file(rest);
        if (to)
            fclose(to);
    }
    alert_set_structured(asked.structured);
}

static void option_f(const char *arg)
{
    asked.form_length = scan_decimal(arg + 2);
    if (asked.form_length != 0 && asked.form_length <= 14)
        alert_msg(835);
}

static void option_h(const char *) { asked.hex_output = true; }
static void option_i(const char *) { asked.list_all = true; }

static void option_l(const char *arg)
{
    asked.list_enabled = true;
    if (arg[2])
        command.list_file = arg + 2;
}

static void option_m(const char *arg)
{
    if (strncmp(arg, "-mcpu=", 6) == 0)
        asked.chip_name = cache_upper(arg + 6);
}

static void option_n(const char *arg)
{
    if (strncasecmp(arg + 1, "no_pa", 5) == 0)
        asked.no_pa = true;
    else if (strncasecmp(arg + 1, "no_inline", 9) == 0)
        asked.no_inline = true;
    else if (strncasecmp(arg + 1, "no_trans", 8) == 0)
        asked.no_trans = true;
}

static void option_o(const char *arg)
{
    if (arg[2])
        command.obj_file = arg + 2;
    else
        asked.optimise = true;
}

static void option_r(const char *) {}   // a number that no part of the program needs any more

static void option_t(const char *arg)
{
    asked.page_width = scan_decimal(arg + 2);
    if (asked.page_width < 60)
        alert_msg(834);
}

static void option_v(const char *arg)
{
    if (strncmp(arg, "-ver=", 5) == 0)
        command.version = arg + 5;
    else
        asked.line_records = true;
}

static void option_w(const char *arg)
{
    if (strchr(arg, '!'))
        alert_set_werror(1);
    alert_set_level(scan_decimal(arg + 2));
}

static void option_x(const char *) { asked.no_locals = true; }

static void option_chip(const char *arg)
{
    if (!asked.chip_name)
        asked.chip_name = cache_upper(arg + 1);
}

static void long_option(const char *arg);

static const struct {
    const char *letters;   // null: any
    void (*take)(const char *arg);
} short_rows[] = {
    {"Aa", option_a}, {"B", option_b},  {"Cc", option_c}, {"Ee", option_e}, {"Ff", option_f},   {"Hh", option_h},
    {"Ii", option_i}, {"Ll", option_l}, {"m", option_m},  {"Nn", option_n}, {"Oo", option_o},   {"Rr", option_r},
    {"Tt", option_t}, {"Vv", option_v}, {"Ww", option_w}, {"Xx", option_x}, {"-", long_option}, {nullptr, option_chip},
};

// Options by the words behind two dashes, compared without regard to case. A row's function gets the text behind its words.

static void option_edf(const char *file)
{
    if (!alert_load_file(file))
        alert_print("Could not open error description file %s\n", file);
}

static void option_emax(const char *n) { alert_set_emax(static_cast<unsigned>(scan_decimal(n))); }

static void option_version(const char *)
{
    printf("\nProduct:\t%s\nComponent:\t%s\nVersion:\t%s%c\nBuild date:\t%s\nRelease:\t%s\nBuild number:\t%s\n", PRODUCT,
           "assembler", ASZEL8_VERSION, ' ', BUILD_DATE, "release", BUILD_STAMP);
    if (fflush(stdout) != 0) {
        perror("standard output");
        alert_stop(1);
    }
    alert_stop(0);
}

// Two spellings of each word count, and no mixture of them.
static bool has_word(const char *text, const char *upper, const char *lower)
{
    return strstr(text, upper) || strstr(text, lower);
}

static void option_opt(const char *words)
{
    asked.opt_debug |= has_word(words, "DEBUG", "debug");
    asked.opt_speed |= has_word(words, "SPEED", "speed");
    asked.opt_space |= has_word(words, "SPACE", "space");
}

static void option_opt_report(const char *file) { asked.report_file = file; }

// The number is read from the tenth character of the argument on, whatever stands in the ninth.
static void option_errata(const char *rest)
{
    asked.errata_mask = *rest ? static_cast<uint32_t>(strtoul(rest + 1, nullptr, 10)) : 0;
}

static void option_udf(const char *file)
{
    HTML_open(file, "Assembler information for ", file, "udf_styles.css");
    HTML_useTOC(3);
}

static void option_qvdebug(const char *list)
{
    debug_option(list);
    if (!debug_active())
        return;
    const char *at[] = {"", command.at_argument};
    if (command.at_argument)
        debug_log_args(2, at);
    debug_log_args(command.argc, command.argv);
}

static void option_lib(const char *) { asked.lib_paths = true; }
static void option_maxizel(const char *) { asked.maxizel = true; }
static void option_xinst(const char *) { asked.xinst = true; }

static void option_cfgdata(const char *file)
{
    if (strcmp(file, "disabled") == 0)
        cfg_disable();
    else
        cfg_set_file(file);
}

// clang-format off
static const struct {
    const char *words;
    bool whole;   // nothing may follow
    void (*take)(const char *rest);
} long_rows[] = {
    {"edf=", false, option_edf},
    {"disl=", false, alert_disable_list},
    {"emax=", false, option_emax},
    {"msgdisable=", false, alert_disable_list},
    {"ver", true, option_version},
    {"opt=", false, option_opt},
    {"opt-report=", false, option_opt_report},
    {"errata", false, option_errata},
    {"cmode=", false, cmode_set},
    {"udf=", false, option_udf},
    {"lib", true, option_lib},
    {"maxizel", true, option_maxizel},
    {"qvdebug=", false, option_qvdebug},
    {"xinst", true, option_xinst},
    {"cfgdata=", false, option_cfgdata},
};
// clang-format on

static void long_option(const char *arg)
{
    for (const auto &row : long_rows) {
        const size_t length = strlen(row.words);
        if (strncasecmp(arg + 2, row.words, length) == 0 && (!row.whole || !arg[2 + length])) {
            row.take(arg + 2 + length);
            return;
        }
    }
    alert_msg(168, arg);
}

// The name with what follows its last dot replaced, wherever that dot stands; without a dot, with the extension behind it.
static const char *with_extension(const char *name, const char *extension)
{
    const char *dot = strrchr(name, '.');
    return dot ? cache_printf("%.*s.%s", static_cast<int>(dot - name), name, extension) : cache_add_ext(name, extension);
}

// Every file that is written lies beside the first source unless an option says otherwise.
static void settle_names()
{
    const char *source = asked.src_files[0];
    asked.obj_file = command.obj_file ? command.obj_file : with_extension(source, asked.asm_output ? "opt" : "obj");
    asked.list_file = command.list_file ? command.list_file : with_extension(source, "lst");
    asked.rlf_file = with_extension(asked.list_file, "rlf");
    asked.crf_file = with_extension(source, "crf");
}

void cmdline_options(int argc, char **argv)
{
    command.argc = argc;
    command.argv = argv;
    int i = 1;
    while (i < argc && argv[i][0] == '-')
        i++;
    asked.src_files = argv + i;
    asked.src_count = static_cast<uint32_t>(argc - i);
    for (; i < argc; i++)   // no output that an option names may be one of them
        guard_source(argv[i]);
    for (i = 1; i < argc && argv[i][0] == '-'; i++)
        for (const auto &row : short_rows)
            if (!row.letters || (argv[i][1] && strchr(row.letters, argv[i][1]))) {
                row.take(argv[i]);
                break;
            }
    if (asked.src_count != 0)
        settle_names();
    asked.xinst_optimise = asked.optimise && asked.xinst;
    if (asked.xinst)
        asked.optimise = false;   // code for the extended set is never optimised
    asked.version_text = cache_printf("%s build %s ", command.version, BUILD_STAMP);
}
