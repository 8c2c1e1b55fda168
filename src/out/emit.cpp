// Emits psects: walks a code list, and writes line information for debuggers ahead of each node.
#include "out/emit.h"

#include <cstring>

#include "code/layout.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "env/pathmap.h"
#include "env/registry.h"
#include "options.h"
#include "out/doubts.h"
#include "out/encode.h"
#include "out/objsym.h"
#include "out/objtext.h"

static struct {
    const char *last_file;   // told to debuggers
    uint64_t last_line;
    bool full;   // the psect being emitted reaches what offsets can't tell
} st;

static void move_to(uint64_t position)
{
    obj_text_flush();
    cur_psect->s_psect->p_curr = position;
    obj_text_begin();
}

static void check_offset(uint64_t offset)
{
    if (offset >= OFFS_MAX && !st.full) {
        alert_text("E", "psect \"%.60s\" reaches the offset 0xFFFFFFFF", cur_psect->s_name);
        st.full = true;
    }
}

// What a statement is asked when it has been encoded, and the next one ahead of that.
static bool step_down(uint32_t lines)
{
    doubts_past();
    srcpos.cur_line += lines;
    srcpos.below += lines;
    srcpos.operand = 0;
    check_offset(cur_psect->s_psect->p_curr);
    return !st.full;
}

static constexpr code_sink_t object = {
    .put = emit_bytes,
    .move = move_to,
    .step = step_down,
    .define = nullptr,
    .condition = obj_cond_expr,
    .check = obj_range_check,
    .reports = true,
};

// With --lib, files of the installation are told relative to it.
static const char *told_name(const char *file)
{
    const char *base = opt.lib_paths && *file == '/' ? reg_instdir(REG_BASE) : nullptr;
    const size_t n = base ? strlen(base) : 0;
    if (n == 0 || strncmp(file, base, n) != 0 || (file[n] != '/' && base[n - 1] != '/'))
        return pathmap_apply(file);
    for (file += n; *file == '/';)
        file++;
    return file;
}

static void line_information(const op_t *op)
{
    const psect_t *p = cur_psect->s_psect;
    const char *file = op_source_file(op);
    const uint64_t line = op_source_line(op);
    if (p->p_space != 0 || p->p_noexec || line == 0)
        return;
    if (file && file != st.last_file && (!st.last_file || strcmp(file, st.last_file) != 0)) {
        st.last_file = file;
        st.last_line = 0;
        obj_file_entry(told_name(file));
    }
    const bool no_line = op->op_type == T_DS || op->op_type == T_EQU || op->op_type == T_SET;
    if (line != st.last_line && !no_line) {
        st.last_line = line;
        obj_line_entry(line);
    }
}

// Passed over, line information and all.
static bool is_silent(const op_t *op)
{
    if (op->op_type == T_NAME)
        return cur_psect->s_psect->p_noexec || strncmp(op->op_sym->s_name, "__end_of", 8) == 0;
    return op->op_type == T_NUMLABEL || op->op_type == T_ENDM || op->op_type == T_TITLE;
}

void emit_psect(symbol_t *psect)
{
    psect_t *p = psect->s_psect;
    obj_text_flush();
    const in_psect_t here(psect);
    p->p_curr = 0;
    obj_text_begin();
    st.last_file = nullptr;
    st.full = false;
    doubts_begin();
    for (const op_t *op = p->p_code->head.op_next;; op = op_step(op)) {
        const bool end = op->op_type == 0;
        if (!end)
            op_set_position(op);
        check_offset(op->op_offs);
        if (end || st.full)
            break;
        if (op->op_flags & OPF_SKIPPED || is_silent(op))
            continue;
        line_information(op);
        srcpos.node = op;
        doubts_check(op);
        emobj(op, &object);
        doubts_past();
    }
    srcpos.node = nullptr;
}
