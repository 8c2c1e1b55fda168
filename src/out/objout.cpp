// The object file.
//
// Most records say something about the module as a whole: its psects, its symbols, its call graph. The code itself is a
// run of TEXT records, each a piece of one psect with a start offset, and behind a TEXT perhaps a RELOC, whose entries tell
// what the linker has to put into it.
//
// TEXT, RELOC, SYM, DABS and FNINFO records are filled entry by entry and written when the next entry finds no room; each
// buffer has its own test, and where records break depends on it. Each is its own module's: objtext, objsym, objfn. This
// one has the records that are written whole, and the order of all.
#include "out/objout.h"

#include <cstring>

#include "chip/chip.h"
#include "code/list.h"
#include "code/program.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "env/pathmap.h"
#include "options.h"
#include "out/emit.h"
#include "out/objfn.h"
#include "out/objsym.h"
#include "out/objtext.h"
#include "out/record.h"

enum : uint8_t { PSECTBOUND_FORM = 13 };
enum : uint64_t {
    PSECTBOUND_FLAGS = P_GLOBAL | P_PURE | P_OVRLD | P_ABS | P_BIT,
    PSECT_FLAGS = PSECTBOUND_FLAGS | P_NOTE,
};
enum : uint8_t { SPACE_DATA = 1, SPACE_IO = 2 };

static const char *name_of(const symbol_t *s) { return s ? s->s_name : ""; }

static void obj_psect(const symbol_t *s)
{
    const psect_t *p = s->s_psect;
    buf_t *b = rec_begin(REC_PSECT);
    buf_put(b, p->p_flags & PSECT_FLAGS, 2);
    buf_put_z(b, s->s_name);
    rec_end("psect name", s->s_name);
    if (p->p_size || p->p_reloc || p->p_class || p->p_with || p->p_space || p->p_delta) {
        rec_begin(REC_XPSECT);
        buf_put(b, p->p_size, 4);
        buf_put(b, p->p_reloc, 2);
        buf_put(b, 0, 2);
        buf_put(b, p->p_space, 1);
        buf_put(b, p->p_delta, 1);
        buf_put(b, 0, 2);
        buf_put_z(b, s->s_name);
        buf_put_z(b, name_of(p->p_class));
        buf_put_z(b, name_of(p->p_with));
        rec_end("name, class or \"with\" of psect", s->s_name);
    }
    if (p->p_limit) {
        rec_begin(REC_PSECTLIM);
        buf_put(b, p->p_limit, 2);
        buf_put(b, 0, 14);
        buf_put_z(b, s->s_name);
        rec_end("psect name", s->s_name);
    }
    if (psect_is_abs(s) || p->p_base) {
        rec_begin(REC_PSECTBOUND);
        buf_put(b, PSECTBOUND_FORM, 1);
        buf_put(b, p->p_flags & PSECTBOUND_FLAGS, 2);
        buf_put(b, p->p_base, 4);
        buf_put(b, p->p_top, 4);
        buf_put(b, p->p_space, 1);
        buf_put(b, p->p_delta, 1);
        buf_put_z(b, s->s_name);
        buf_put_z(b, name_of(p->p_class));
        rec_end("name or class of psect", s->s_name);
    }
}

static void obj_psects()
{
    for (const symbol_t *s : psect_order())
        obj_psect(s);
}

static void obj_dabs()
{
    buf_t dabs;
    rec_reset(&dabs, REC_DABS);
    for (const dabs_t *d : program.dabs_list) {
        if (!buf_room(&dabs, strlen(d->name) + 18, "symbol", d->name))
            continue;
        buf_put(&dabs, d->space, 1);
        buf_put(&dabs, static_cast<uint64_t>(d->address), 4);
        buf_put(&dabs, static_cast<uint64_t>(d->size), 4);
        buf_put_z(&dabs, d->name);
    }
    buf_flush(&dabs);
}

// The final size of a psect, where its data don't tell it.
static void size_record(const symbol_t *s)
{
    psect_t *p = s->s_psect;
    if (p->p_space == 0 && p->p_reloc == 2)
        p->p_top += p->p_top & 1;
    if (p->p_space != SPACE_DATA && p->p_space != SPACE_IO && p->p_curr >= p->p_top)
        return;
    buf_t *b = rec_begin(REC_TEXT);
    buf_put(b, p->p_top, 4);
    buf_put_z(b, s->s_name);
    rec_end("psect name", s->s_name);
}

static void obj_code()
{
    for (const code_list_t *list : psect_list)
        emit_psect(list->psect);
    obj_text_flush();
    for (const code_list_t *list : psect_list)
        size_record(list->psect);
    obj_sym_flush();
    obj_text_flush();
}

static void obj_start()
{
    value_t v = program.end_value;
    if (!obj_follow(&v) || v.v_rtype != RT_PSECT) {
        const srcpos_elsewhere_t end(program.end_file, program.end_line);
        const symbol_t *s = program.end_value.v_rtype == RT_SYM ? program.end_value.v_sym.get() : nullptr;
        if (alert_msg(802) && s)
            alert_text("M", s->s_flags & S_UNDEF ? "\"%s\" isn't defined in this module" : "\"%s\" is no place in a psect",
                       s->s_name);
        return;
    }
    if (!rec_fits(v.v_offs))
        rec_too_large("address behind end, in psect", v.v_sym->s_name, v.v_offs);
    buf_t *b = rec_begin(REC_START);
    buf_put(b, static_cast<uint64_t>(v.v_offs), 4);
    buf_put_z(b, v.v_sym->s_name);
    rec_end("psect name", v.v_sym->s_name);
}

static void obj_finish(bool with_rlf)
{
    if (with_rlf) {
        buf_t *b = rec_begin(REC_LISTRELOC);
        buf_put_z(b, pathmap_apply(opt.rlf_file));
        buf_put_z(b, pathmap_apply(opt.list_file));
        rec_end("listing file name", opt.list_file);
    }
    if (program.has_end_value)
        obj_start();
    obj_fn_flush();
    buf_t *b = rec_begin(REC_END);
    buf_put(b, 0, 2);
    rec_write(b);
    rec_file_end();
}

static void obj_fnconf()
{
    if (!program.has_fnconf)
        return;
    buf_t *b = rec_begin(REC_FNCONF);
    for (const char *word : program.fnconf_words)
        buf_put_z(b, word);
    buf_put(b, static_cast<uint64_t>(program.fnconf_number), 2);
    rec_end("fnconf", program.fnconf_words[0]);
}

void obj_write(FILE *to, bool with_rlf)
{
    rec_file_begin(to, opt.object_name);
    inline_symbols();
    obj_text_init();
    obj_sym_init();
    obj_fn_init();
    rec_ident(chip_getName());
    obj_fnconf();
    obj_psects();
    const vec_t<symbol_t *> symbols = sym_slot_order();
    obj_symbols(symbols);
    obj_functions(symbols);
    obj_dabs();
    obj_code();
    obj_finish(with_rlf);
}
