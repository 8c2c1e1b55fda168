// A run is one straight line: options, chip, parsing, sizing, writing. Parsing reads all sources once and leaves code
// lists; nothing is encoded before all input has been read, so that a forward reference needs no second pass. An error
// lets the run go on to its end, so that all errors of a source are seen; a fatal message ends it from where it is told.
//
// Nothing is freed: the process ends and its memory with it.
#include "run.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "annotate/annotation.h"
#include "annotate/annotation_html.h"
#include "annotate/annotation_text.h"
#include "chip/chip.h"
#include "chip/chipinfo.h"
#include "chip/sfrs.h"
#include "cmdline.h"
#include "code/cfgpsect.h"
#include "code/crossref.h"
#include "code/layout.h"
#include "code/list.h"
#include "code/program.h"
#include "code/srclines.h"
#include "code/tlab.h"
#include "common/alert.h"
#include "common/fileguard.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/catalogue.h"
#include "env/depfile.h"
#include "env/html.h"
#include "env/qvdebug.h"
#include "env/registry.h"
#include "front/cond.h"
#include "front/diagnostics.h"
#include "front/lexutil.h"
#include "front/origins.h"
#include "front/suggest.h"
#include "front/statement.h"
#include "optim/changes.h"
#include "optim/changes_out.h"
#include "optim/driver.h"
#include "options.h"
#include "out/emasm.h"
#include "out/emlist.h"
#include "out/objout.h"

constexpr size_t OUTPUT_BUFFER = size_t{1} << 18;

// The orderly stop, which `alert` is given.
static void stop(int status) { exit(debug_finish() ? status : 1); }

static void show_position() { alert_set_location(srcpos.cur_file, &srcpos.cur_line, nullptr, nullptr); }

// Leaves the directory part of the program's name.
static void cut_program_name(char *name)
{
    char *last = strrchr(name, '\\');
    if (!last)
        last = strrchr(name, '/');
    if (last)
        *last = 0;
}

static void hint_at_chip()
{
    const char *chips = reg_mkpath(REG_DAT, "ini");
    if (!chips)   // the program isn't in an installation
        return;
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator at(chips, error), end; !error && at != end; at.increment(error))
        if (const auto &path = at->path(); path.extension() == ".ini")
            names.emplace_back(cache_upper(path.stem().c_str()));
    if (const std::string meant = suggest_word(opt.chip_name, names).meant; !meant.empty())
        alert_hint("did you mean \"%s\"?", meant.c_str());
}

static void load_chip()
{
    errno = 0;   // what the search for the installation has left, which %m would tell
    if (!opt.chip_name)
        alert_msg(2042);
    if (opt.chip_name && !opt.user_chipinfo_path && !chip_find_INI_path(opt.chip_name))
        hint_at_chip();
    chipinfo_t *chip = chipinfo_load(opt.user_chipinfo_path, opt.chip_name);
    chip_select(chip);
    sfr_init(chip);
    if (opt.maxizel)
        chip_maximise(chip);
}

// They belong to this module alone, and the source may say the same again, or change them by `set`.
static void define_symbols()
{
    for (const define_t *d : opt.defines) {
        symbol_t *s = sym_enter(d->name, 0);
        if (!(s->s_flags & S_UNDEF) && s->s_flags & S_GLOBAL) {
            alert_text("E", "--define=%s: the assembler defines this symbol itself", d->name);
            continue;
        }
        s->s_flags &= ~static_cast<uint64_t>(S_UNDEF);
        s->s_flags |= S_SET;
        s->s_value = value_const(d->value);
    }
}

static void parse_sources()
{
    program_init();
    sym_init();
    define_symbols();
    tlab_init();
    lex_init();
    yyparse();
    srclines_end();
    tlab_finish();
    pending_comments_free();
}

// An output that all inputs are known of. Null, with errno set, if the file can't be made.
static FILE *open_output(const char *name)
{
    FILE *to = guard_open(name, "w");
    if (to)
        setvbuf(to, static_cast<char *>(xalloc(OUTPUT_BUFFER)), _IOFBF, OUTPUT_BUFFER);
    return to;
}

static void no_listing()
{
    guard_perror(opt.list_file);
    const srcpos_nowhere_t nowhere;
    alert_msg(1219, opt.list_file);
}

// Null if there is to be none. Where the listing can't be made, the relocation listing still can.
static FILE *open_listing()
{
    if (opt.asm_output || !opt.list_enabled)
        return nullptr;
    if (FILE *to = open_output(opt.list_file))
        return to;
    no_listing();
    return fopen("/dev/null", "w");
}

// True if there is a relocation listing, too.
static bool write_listing(FILE *to)
{
    FILE *rlf = open_output(opt.rlf_file);
    if (!rlf) {
        guard_perror(opt.rlf_file);
        const srcpos_nowhere_t nowhere;
        alert_msg(1221, opt.rlf_file);
    }
    list_write(to, rlf);
    if (!guard_close(to))
        no_listing();
    return rlf;
}

static void write_assembly()
{
    FILE *to = open_output(opt.obj_file);
    if (to)
        asm_write(to);
    if (!to || !guard_close(to)) {
        const int why = errno;
        const srcpos_nowhere_t nowhere;
        alert_msg(1220, opt.object_name);
        errno = why;
        guard_perror(opt.object_name);
    }
}

static void write_object(bool with_rlf)
{
    FILE *to = open_output(opt.obj_file);
    if (!to) {
        guard_perror(opt.object_name);
        const srcpos_nowhere_t nowhere;
        alert_msg(1222, opt.object_name);
        return;
    }
    obj_write(to, with_rlf);
}

static void no_report()
{
    guard_perror(opt.report_file);
    const srcpos_nowhere_t nowhere;
    alert_msg(461, "optimiser report", opt.report_file);
}

// All psects are sized.
static void write_report()
{
    if (!opt.report_file)
        return;
    FILE *to = open_output(opt.report_file);
    if (to)
        (std::string_view(opt.report_file).ends_with(".json") ? changes_write_json : changes_write_text)(to);
    if (!to || !guard_close(to))
        no_report();
}

// All psects are sized. As a program with errors is none, an annotation of what it was before stays.
static void write_annotation()
{
    if (!opt.annotation_file || alert_exit_status() != 0)
        return;
    FILE *to = guard_open_beside(opt.annotation_file);
    const bool page = std::string_view(opt.annotation_file).ends_with(".html");
    if (to)
        (page ? annotation_write_html : annotation_write_text)(to, annotation_make());
    if (to && guard_close_beside(to))
        return;
    guard_perror(opt.annotation_file);
    const srcpos_nowhere_t nowhere;
    alert_msg(461, "annotation", opt.annotation_file);
}

static void write_dependencies()
{
    if (!opt.dep_file)
        return;
    if (opt.user_chipinfo_path)
        depfile_add(opt.user_chipinfo_path);
    FILE *to = open_output(opt.dep_file);
    if (to)
        depfile_write(to, opt.dep_target);
    if (to && guard_close(to))
        return;
    guard_perror(opt.dep_file);
    const srcpos_nowhere_t nowhere;
    alert_msg(461, "dependency", opt.dep_file);
}

void run_start(int argc, char **argv)
{
    static const alert_services_t services = {catalogue_path, stop, catalogue_text, catalogue_length};
    alert_set_services(&services);
    diagnostics_start();
    alert_set_formats("%f: %l: (%n) %s (error)", "%f: %l: (%n) %s (warning)", "%f: %l: %s");
    cmdline_collect(&argc, &argv);
    srcpos.cur_file = "";
    alert_set_hook(show_position);
    show_position();
    cut_program_name(argv[0]);
    cmdline_options(argc, argv);
    load_chip();
    errno = 0;   // messages about the source don't show what looking for files of the installation has left
    HTML_anchor("AS");
    HTML_commandLine(argv, argc, "Assembler");
    if (opt.src_count == 0)
        alert_msg(836);
}

int run_assemble()
{
    if (opt.cross_ref != 0)
        crossref_open(opt.crf_file);
    if (opt.annotation_file)
        srclines_keep();
    if (diagnostics_show_origins())
        origins_keep();
    parse_sources();
    cfg_make_psects();
    pending_comments_free();   // those of locations that were skipped last
    srcpos.cur_line = 0;       // nothing from here on is about a line that was read last
    FILE *listing = open_listing();
    srcpos.src_line = 0;
    srcpos.src_file = nullptr;
    srcpos.line_volatile = srcpos.line_volsfr = srcpos.line_compiled = false;
    for (const code_list_t *list : psect_list)
        cond_evaluate(list->psect);
    srcpos.cur_file = "";
    srcpos.cur_line = 0;
    if (opt.annotation_file)
        annotation_begin();
    if (opt.report_file || opt.annotation_file)
        changes_keep();
    optimise_run();
    if (opt.asm_output) {
        write_assembly();
        if (changes.kept)
            size_all();
        changes_end();
    } else {
        size_all();
        changes_end();
        const bool with_rlf = listing && write_listing(listing);
        write_object(with_rlf);
    }
    write_report();
    write_annotation();
    write_dependencies();
    crossref_close();
    HTML_close();
    debug_finish();
    return alert_exit_status();
}

int run_main(int argc, char **argv)
{
    run_start(argc, argv);
    return run_assemble();
}
