// A store through a file select can change whatever there is: W, STATUS, BSR, even the program counter. If each one were
// taken to do so, code with a stack of its own would lose an eighth of what -O saves. Hardly any program has a pointer to a
// core register, though, and one that has says so: it loads a number into the file select that lies in the bank of these
// registers. That makes every access through this file select doubtful, wherever it stands: in which order control passes
// by both doesn't matter then.
//
// Not seen are addresses that are worked out, come from memory, or are known to the linker alone. The manual says so.
#include "optim/pointers.h"

#include "code/ops.h"
#include "code/place.h"
#include "code/sfrop.h"
#include "optim/templates.h"

constexpr int64_t PAGE = 256;

uint8_t pointers_at_core;

bool pointer_may_be_core(const opnd_t *o)
{
    return pointers_at_core && sfr_isIndirect(o) && (pointers_at_core >> (sfr_fileSelect(o) - 1) & 1);
}

// Whether the value is a number, and `*n` it.
static bool is_number(const value_t &v, int64_t *n)
{
    const opnd_t address = {.opnd_kind = OPND_DATA, .opnd_access = {}, .opnd_value = v};
    const place_t p = place_of(&address);
    *n = p.at;
    return p.kind == place_t::ADDRESS;
}

// Addresses have 12 to 14 bits, and the core registers lie in the last of the banks.
static bool in_last_bank(int64_t bank)
{
    const int64_t last = sfr_page / PAGE;
    return (bank & last) == last;
}

// What W is loaded with, if that is stored, perhaps several times.
static const op_t *load_of_stored(const op_t *store)
{
    const op_t *op = store->op_prev;
    while (op_is_silent(op) || op->op_type == T_MOVWF)
        op = op->op_prev;
    return op->op_type == T_MOVLW ? op : nullptr;
}

// The file select that `op` leads into the last bank, from 0; -1 for none.
static int select_led_there(const op_t *op)
{
    int64_t n;
    if (op->op_type == T_LFSR)
        return is_number(op_opnd2(op)->opnd_value, &n) && in_last_bank(n / PAGE) ? op->op_subop >> 4 & 3 : -1;
    if (op->op_type != T_MOVWF && op->op_type != T_CLRF)
        return -1;
    const uint32_t id = sfr_idOf(&op->op_opnd1);
    const int select = id == SFR_FSR0H ? 0 : id == SFR_FSR1H ? 1 : id == SFR_FSR2H ? 2 : -1;
    if (op->op_type == T_CLRF)
        return op->op_subop == TPL_SETF ? select : -1;
    const op_t *load = load_of_stored(op);
    return load && is_number(load->op_opnd1.opnd_value, &n) && in_last_bank(n) ? select : -1;
}

void pointers_set()
{
    pointers_at_core = 0;
    for (const code_list_t *list : psect_list)
        for (const op_t *op = list->head.op_next; op->op_type != 0; op = op_step(op))
            if (const int select = select_led_there(op); select >= 0)
                pointers_at_core |= static_cast<uint8_t>(1 << select);
}
