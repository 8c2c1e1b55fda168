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

#include "chip/chip.h"
#include "chip/chipinfo.h"
#include "chip/sfrs.h"
#include "cmdline.h"
#include "code/cfgpsect.h"
#include "code/layout.h"
#include "code/list.h"
#include "code/tlab.h"
#include "common/alert.h"
#include "common/fileguard.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "common/xalloc.h"
#include "env/catalogue.h"
#include "env/html.h"
#include "env/qvdebug.h"
#include "front/cond.h"
#include "front/lexutil.h"
#include "front/parser.h"
#include "optim/changes.h"
#include "optim/changes_out.h"
#include "optim/driver.h"
#include "options.h"
#include "out/emasm.h"
#include "out/emlist.h"
#include "out/objout.h"

constexpr size_t OUTPUT_BUFFER = size_t{1} << 18;

void run_stop(int status) { exit(debug_finish() ? status : 1); }

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

static void load_chip()
{
    if (!opt.chip_name)
        alert_msg(2042);
    opt.cur_chip = chipinfo_load(opt.user_chipinfo_path, opt.chip_name);
    sfr_init(opt.cur_chip);
    if (opt.maxizel)
        chip_maximise(opt.cur_chip);
}

// The name with what follows its last dot replaced, wherever that dot stands; without a dot, with the extension behind it.
static const char *with_extension(const char *name, const char *extension)
{
    const char *dot = strrchr(name, '.');
    return dot ? cache_printf("%.*s.%s", static_cast<int>(dot - name), name, extension) : cache_add_ext(name, extension);
}

// Every file that is written lies beside the first source unless an option says otherwise.
static const char *beside_source(const char *extension) { return with_extension(opt.src_files[0], extension); }

static void no_cross_reference(const char *name)
{
    guard_perror(name);
    const srcpos_nowhere_t nowhere;
    alert_msg(461, "cross reference", name);
}

static void open_cross_reference()
{
    if (opt.cross_ref == 0)
        return;
    opt.crf_file = beside_source("crf");
    opt.crf_stream = guard_open(opt.crf_file, "w", no_cross_reference);
    if (!opt.crf_stream)
        no_cross_reference(opt.crf_file);
}

static void close_cross_reference()
{
    if (opt.crf_stream && !guard_close(opt.crf_stream))
        no_cross_reference(opt.crf_file);
}

static void parse_sources()
{
    sym_init();
    opt.radix = 10;
    opt.src_next = 0;
    tlab_init();
    lex_init();
    yyparse();
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

static void settle_names()
{
    if (!opt.obj_file)
        opt.obj_file = beside_source(opt.asm_output ? "opt" : "obj");
    if (!opt.list_file)
        opt.list_file = beside_source("lst");
    opt.rlf_file = with_extension(opt.list_file, "rlf");
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
    if (opt.asm_output)
        return nullptr;
    opt.list_on = opt.list_enabled;
    if (!opt.list_enabled)
        return nullptr;
    if (FILE *to = open_output(opt.list_file))
        return to;
    no_listing();
    return fopen("/dev/null", "w");
}

static void write_listing(FILE *to)
{
    if (opt.page_width == 0)
        opt.page_width = 132;
    if (opt.form_length != 0 && opt.form_length <= 15)
        opt.form_length = 66;
    opt.out_stream = open_output(opt.out_file = opt.rlf_file);
    if (!opt.out_stream) {
        guard_perror(opt.rlf_file);
        const srcpos_nowhere_t nowhere;
        alert_msg(1221, opt.rlf_file);
        opt.rlf_file = nullptr;
    }
    list_write(to);
    if (!guard_close(to))
        no_listing();
}

static void write_assembly()
{
    FILE *to = open_output(opt.obj_file);
    if (to)
        asm_write(to);
    if (!to || !guard_close(to)) {
        const int why = errno;
        const srcpos_nowhere_t nowhere;
        alert_msg(1220, opt.obj_file);
        errno = why;
        guard_perror(opt.obj_file);
    }
}

static void write_object()
{
    opt.out_stream = open_output(opt.out_file = opt.obj_file);
    if (!opt.out_stream) {
        guard_perror(opt.obj_file);
        const srcpos_nowhere_t nowhere;
        alert_msg(1222, opt.obj_file);
        return;
    }
    obj_write(chip_getName());
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
        (cache_ends_with(opt.report_file, ".json") ? changes_write_json : changes_write_text)(to);
    if (!to || !guard_close(to))
        no_report();
}

void run_start(int argc, char **argv)
{
    static const alert_services_t services = {catalogue_path, run_stop, catalogue_text, catalogue_length};
    alert_set_services(&services);
    alert_set_formats("%f: %l: (%n) %s (error)", "%f: %l: (%n) %s (warning)", "%f: %l: %s");
    cmdline_collect(&argc, &argv);
    srcpos.cur_file = "";
    alert_set_hook(show_position);
    show_position();
    cut_program_name(argv[0]);
    const int first_source = cmdline_options(argc, argv);
    load_chip();
    errno = 0;   // messages about the source don't show what looking for files of the installation has left
    HTML_anchor("AS");
    HTML_commandLine(argv, argc, "Assembler");
    if (first_source >= argc)
        alert_msg(836);
    opt.src_files = argv + first_source;
    opt.src_count = static_cast<uint32_t>(argc - first_source);
    opt.version_text = cmdline_version_text(opt.version_text);
}

int run_assemble()
{
    open_cross_reference();
    parse_sources();
    if (opt.xinst)
        opt.optimise = false;   // code for the extended set is never optimised
    cfg_make_psects();
    pending_comments_free();   // those of locations that were skipped last
    settle_names();
    opt.radix = 10;
    opt.src_next = 0;
    srcpos.cur_line = 0;   // nothing from here on is about a line that was read last
    FILE *listing = open_listing();
    srcpos.src_line = 0;
    srcpos.src_file = nullptr;
    srcpos.line_volatile = srcpos.line_volsfr = srcpos.line_compiled = false;
    for (const code_list_t *list : psect_list)
        cond_evaluate(list->psect);
    srcpos.cur_file = "";
    srcpos.cur_line = 0;
    if (opt.report_file)
        changes_keep();
    optimise_run();
    if (opt.asm_output) {
        write_assembly();
        if (opt.report_file)
            size_all();
        changes_end();
    } else {
        size_all();
        changes_end();
        if (listing)
            write_listing(listing);
        write_object();
    }
    write_report();
    close_cross_reference();
    HTML_close();
    debug_finish();
    return alert_exit_status();
}

int run_main(int argc, char **argv)
{
    run_start(argc, argv);
    return run_assemble();
}
