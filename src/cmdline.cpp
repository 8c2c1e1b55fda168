// Two tables hold the options: one by the character behind the dash, one by the words behind two dashes. A row is what an
// option looks like and a function that takes the whole argument. Rows are tried in their order, and the first that fits
// takes the argument; the last row of the first table takes whatever no other wants, as a chip name.
#include "cmdline.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <strings.h>
#include <unistd.h>
#include <vector>

#include "chip/cfgdata.h"
#include "code/oprows.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/fileguard.h"
#include "common/number.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/arguments.h"
#include "env/cmode.h"
#include "env/explain.h"
#include "env/html.h"
#include "env/pathmap.h"
#include "env/qvdebug.h"
#include "env/warnings.h"
#include "front/diagnostics.h"
#include "front/lexutil.h"
#include "front/suggest.h"
#include "options.h"

constexpr const char *PRODUCT = "ZEL8 Assembler";

static struct {
    const char *at_argument;   // @file, or null; it and the next two are for the debug log
    int argc;
    char **argv;
    int first_errors = -1;   // what standard error was before the first -E<file>
    const char *obj_file, *object_name, *list_file, *dep_target;
    const char *version = "";   // of -ver=
} command;

static options_t &asked = options_to_write();

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
            guard_perror(file);
            *argc = 1;
            return;
        }
        ungetc(first, in);
        arguments_read(in, argc, argv);
        fclose(in);
    } else {
        arguments_read(stdin, argc, argv);
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
    diagnostics_stay_plain();
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

[[noreturn]] static void end_output()
{
    if (fflush(stdout) != 0) {
        perror("standard output");
        alert_stop(1);
    }
    alert_stop(0);
}

static void option_version(const char *)
{
    printf("\nProduct:\t%s\nComponent:\t%s\nVersion:\t%s%c\nBuild date:\t%s\nRelease:\t%s\nBuild number:\t%s\n", PRODUCT,
           "assembler", ASZEL8_VERSION, ' ', BUILD_DATE, "release", BUILD_STAMP);
    end_output();
}

static void option_explain(const char *number)
{
    uint64_t n;
    const char *rest = scan_digits(number, 10, &n);
    const std::string text = rest && !*rest ? explanation(n) : "";
    if (text.empty())
        alert_text("F", "--explain=%s: there is no message of this number", number);
    fputs(text.c_str(), stdout);
    end_output();
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

static bool has_value(const char *option, const char *value)
{
    if (!*value)
        alert_text("E", "%s needs a value", option);
    return *value;
}

static void option_include(const char *dir)
{
    if (!has_value("--include=", dir))
        return;
    if (!asked.include_dirs)
        asked.include_dirs = vec_make<const char *>();
    vec_add(asked.include_dirs, dir);
}

// Whether the scanner takes it for the name of a symbol, whatever a statement expects.
static bool is_symbol_name(const char *name)
{
    const size_t length = strlen(name);
    if (!lex_is_letter(*name) || *name == '$')
        return false;
    for (const char *s = name; *s; s++)
        if (!lex_is_letter(*s) && !lex_is_digit(*s) && *s != '@')
            return false;
    return (*name == '_' && length > 1 && name[1] != '_') || !op_lookup_keyword(name, length);
}

// A decimal number, or a hexadecimal one with 0x; either with a sign.
static bool read_value(const char *text, int64_t *value)
{
    const bool negative = *text == '-';
    text += negative;
    uint64_t n;
    const char *rest = scan_digits(text, strncasecmp(text, "0x", 2) == 0 ? 16 : 10, &n);
    *value = static_cast<int64_t>(negative ? 0 - n : n);
    return rest && !*rest;
}

static void option_define(const char *text)
{
    if (!has_value("--define=", text))
        return;
    const char *equals = strchr(text, '=');
    define_t *d = xnew<define_t>();
    d->name = equals ? cache_substring(text, static_cast<size_t>(equals - text)) : text;
    d->value = 1;
    if (!is_symbol_name(d->name)) {
        alert_text("E", "--define=%s: \"%s\" can't be the name of a symbol", text, d->name);
    } else if (equals && !read_value(equals + 1, &d->value)) {
        alert_text("E", "--define=%s: the value has to be a number, decimal or with 0x", text);
    } else {
        if (!asked.defines)
            asked.defines = vec_make<const define_t *>();
        vec_add(asked.defines, d);
    }
}

static void option_annotate(const char *file)
{
    const std::string_view name = file;
    if (name.ends_with(".txt") || name.ends_with(".html"))
        asked.annotation_file = file;
    else
        alert_text("E", "--annotate=%s: the name of the file has to end in .txt or .html, which tells its form", file);
}

static void option_depfile(const char *file)
{
    if (has_value("--depfile=", file))
        asked.dep_file = file;
}

static void option_deptarget(const char *name)
{
    if (has_value("--deptarget=", name))
        command.dep_target = name;
}

static void option_object_name(const char *name)
{
    if (has_value("--object-name=", name))
        command.object_name = name;
}

static void option_source_name(const char *name)
{
    if (has_value("--source-name=", name))
        asked.source_name = name;
}

static void option_path_map(const char *map)
{
    if (has_value("--path-map=", map) && !pathmap_add(map))
        alert_text("E", "--path-map=%s: it is OLD=NEW", map);
}

static void option_warn(const char *groups)
{
    if (const char *wrong = warnings_choose(groups))
        alert_text("E", "--warn=%s: the groups are %s, and all; no- in front hides them", wrong, warning_group_names());
}

static void option_diagnostics(const char *form)
{
    if (!diagnostics_set_form(form))
        alert_text("E", "--diagnostics=%s: the forms are plain, rich, json and sarif", form);
}

static void option_color(const char *when)
{
    if (!diagnostics_set_color(when))
        alert_text("E", "--color=%s: it is auto, always or never", when);
}

static void option_help(const char *)
{
    fputs("usage: aszel8 -mcpu=CHIP [option...] file...      or: aszel8 @FILE, with these words in the file\n"
          "  -mcpu=CHIP            the chip; -CFILE or -cFILE: its file, if it isn't to be that of the installation\n"
          "  --cfgdata=FILE        what config statements need\n"
          "  --maxizel, --xinst    all memory that addresses reach; the extended instruction set\n"
          "  -OFILE                name of the object file, or with -A of the assembly text\n"
          "  -A                    assembly text instead of an object file\n"
          "  -L, -LFILE            a listing; its page: -FLINES, -TCOLUMNS, -ver=TEXT; numbers in hexadecimal: -H\n"
          "  -C                    a cross-reference\n"
          "  -V                    lines of the source for a debugger\n"
          "  --annotate=FILE       the source with places, words and cycles: FILE.txt or FILE.html\n"
          "  --depfile=FILE        what was read, as a rule for Make; --deptarget=NAME: the target that it names\n"
          "  --source-name=NAME, --object-name=NAME   what they are known as, if they lie elsewhere\n"
          "  --path-map=OLD=NEW    what a folder is called in the object file\n"
          "  --include=DIR         where includes are looked for that aren't found as they are told\n"
          "  --define=NAME[=N]     a symbol; 1 without a number\n"
          "  -no_trans, --cmode=MODE   instructions as written; a source for another tool\n"
          "  -O                    optimise; -no_pa, -no_inline, -auto_inline, -BLABEL, --opt=WORDS steer that\n"
          "  --opt-report=FILE     what the optimiser did; --errata=N: chip errors to work around\n"
          "  -WN, -WN!             warnings of level N and above; and they make the exit status 1\n"
          "  --warn=GROUPS         warnings by group, as odd,no-skip or all, whatever their level\n"
          "  --emax=N, --msgdisable=LIST   errors allowed; messages silenced. The same: --disl=LIST\n"
          "  -EFILE, -E, --edf=FILE    messages go to a file; follow formats; have other texts\n"
          "  --diagnostics=plain|rich|json|sarif, --color=auto|always|never   how messages look\n"
          "  --explain=N           what message N means, an example, the remedy\n"
          "  --udf=FILE, --qvdebug=LIST, --lib   a report, a trace, names relative to the installation\n"
          "  --keywords            the words that can't be symbols\n"
          "  --ver, --help         the version, this text\n"
          "An option is one word, its value behind it: -Omain.obj. A bare -O optimises. Options come first.\n",
          stdout);
    end_output();
}

static void option_keywords(const char *)
{
    std::set<std::string_view> words;
    for (const op_row_t &row : oprows::op_rows)
        if (isalpha(static_cast<unsigned char>(row.name[0])))
            words.insert(row.name);
    for (const std::string_view word : words)
        printf("%s\n", word.data());
    end_output();
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
    {"include=", false, option_include},
    {"define=", false, option_define},
    {"annotate=", false, option_annotate},
    {"depfile=", false, option_depfile},
    {"deptarget=", false, option_deptarget},
    {"object-name=", false, option_object_name},
    {"source-name=", false, option_source_name},
    {"path-map=", false, option_path_map},
    {"warn=", false, option_warn},
    {"diagnostics=", false, option_diagnostics},
    {"color=", false, option_color},
    {"explain=", false, option_explain},
    {"help", true, option_help},
    {"keywords", true, option_keywords},
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
    std::vector<std::string> words;
    for (const auto &row : long_rows)
        words.push_back(std::string("--") + row.words);
    const size_t name = strcspn(arg, "=");   // what stands behind it is no part of a word that is near
    if (const std::string meant = suggest_word(std::string(arg, name) + (arg[name] ? "=" : ""), words).meant; !meant.empty())
        alert_hint("did you mean \"%s\"?", meant.c_str());
    alert_msg(168, arg);
}

// How messages look is settled ahead of all that may bring one.
static bool is_about_messages(const char *arg)
{
    return strncasecmp(arg, "--diagnostics=", 14) == 0 || strncasecmp(arg, "--color=", 8) == 0;
}

static void take_option(const char *arg)
{
    for (const auto &row : short_rows)
        if (!row.letters || (arg[1] && strchr(row.letters, arg[1]))) {
            row.take(arg);
            return;
        }
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
    const char *source = asked.source_name ? asked.source_name : asked.src_files[0];
    asked.obj_file = command.obj_file ? command.obj_file : with_extension(source, asked.asm_output ? "opt" : "obj");
    asked.object_name = command.object_name ? command.object_name : asked.obj_file;
    asked.dep_target = command.dep_target ? command.dep_target : asked.object_name;
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
    for (const bool now : {true, false})
        for (i = 1; i < argc && argv[i][0] == '-'; i++)
            if (is_about_messages(argv[i]) == now)
                take_option(argv[i]);
    if (asked.src_count != 0)
        settle_names();
    asked.xinst_optimise = asked.optimise && asked.xinst;
    if (asked.xinst)
        asked.optimise = false;   // code for the extended set is never optimised
    asked.version_text = cache_printf("%s build %s ", command.version, BUILD_STAMP);
}
