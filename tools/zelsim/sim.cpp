// sim: executes the instruction set.
//
// An instruction is decoded once, when it is first met: into the function that does it, its operands, and what it takes. From
// then on a step is a look into the table and a call.
//
// Data memory is one array, and W, status and the other core registers are cells of it, at the addresses that the chip
// file tells; `role` marks the cells that are more than memory, or less. An instruction finds the address of its file
// operand once (`locate`), which is when the pre- and post-forms of an indirect register move the file select, and then
// reads, writes, or does both there. What goes nowhere goes to a cell of its own behind the last address.
//
// All arithmetic is one addition with carry: a subtraction adds the complement, and its borrow is the complement of the
// carry. A skip steps over one word only. What is left of a longer instruction are words that begin with 0xF, which do
// nothing, in a cycle each; the same is true for a jump into the middle of one.
//
// Where an instruction changes status bits and names `status` as its destination, the bits that it changes win.
#include "sim.h"

#include <algorithm>

#include "zelobj.h"

namespace
{

enum where_t : uint8_t { FIXED, BANKED, INDEXED };

}   // namespace

static sim_op decode(const sim_t &s, uint32_t at);

void sim_init(sim_t &s, const target_t &t, const std::vector<uint8_t> &program)
{
    s.target = &t;
    s.program = program;
    s.ops.assign(program.size() / 2 + 1, {});
    const size_t size = t.wide ? 0x4000 : 0x1000;
    s.mask = static_cast<uint32_t>(size) - 1;
    s.data.assign(size + 1, 0);
    s.role.assign(size + 1, R_PLAIN);
    s.role[size] = R_NOWHERE;
    static const char *const roles[] = {"STATUS", "BSR", "PCL", "TOSL", "TOSH", "TOSU", "STKPTR"};   // from R_STATUS on
    static const struct {
        const char *name;
        uint16_t sim_t::*at;
    } cells[] = {{"WREG", &sim_t::wreg},      {"STATUS", &sim_t::status}, {"BSR", &sim_t::bsr},      {"PRODL", &sim_t::prod},
                 {"TBLPTRL", &sim_t::tblptr}, {"TABLAT", &sim_t::tablat}, {"PCLATH", &sim_t::pclath}};
    static const char *const modes[] = {"INDF", "POSTINC", "POSTDEC", "PREINC", "PLUSW"};
    const auto address = [&](const std::string &name) { return static_cast<uint16_t>(target_sfr(t, name) & s.mask); };
    for (unsigned i = 0; i < 7; i++)
        s.role[address(roles[i])] = static_cast<uint8_t>(R_STATUS + i);
    for (const auto &c : cells)
        s.*c.at = address(c.name);
    for (unsigned i = 0; i < 3; i++) {
        for (unsigned mode = 0; mode < 5; mode++)
            s.role[address(modes[mode] + std::to_string(i))] = static_cast<uint8_t>((R_INDF + mode) | i << R_FSR);
        s.fsr[i] = address("FSR" + std::to_string(i) + "L");
        s.role[s.fsr[i] + 1u] = R_HIGH4;
    }
}

void sim_watch(sim_t &s, uint32_t address) { s.role[address] |= R_WATCHED; }

void sim_patch(sim_t &s, uint32_t address, uint8_t byte)
{
    s.program[address] = byte;
    for (uint32_t word = address / 2, back = 0; back < 3 && back <= word; back++)   // what may hold it as an operand
        s.ops[word - back] = {};
}

void sim_halt(sim_t &s, sim_stop stop, const std::string &why)
{
    s.stop = stop;
    s.why = why;
    s.stopped_at = s.pc;
    s.deadline = 0;
}

static void halt(sim_t &s, sim_stop stop, const char *what, uint32_t at)
{
    sim_halt(s, stop, zo_format("%s at 0x%X", what, at));
}

// The stack.

static void push(sim_t &s, uint32_t address)
{
    if (s.depth >= s.target->stack_depth || s.depth + 1 >= s.stack.size())
        return halt(s, SIM_STACK, "stack overflow", s.pc);
    s.stack[++s.depth] = address;
}

static uint32_t pop(sim_t &s)
{
    if (s.depth == 0)
        halt(s, SIM_STACK, "stack underflow", s.pc);
    return s.depth ? s.stack[s.depth--] & ~1u : s.pc;
}

// Data memory.

static uint32_t select(const sim_t &s, unsigned i) { return (s.data[s.fsr[i]] | s.data[s.fsr[i] + 1u] << 8) & s.mask; }

static void set_select(sim_t &s, unsigned i, uint32_t value)
{
    value &= s.mask;
    s.data[s.fsr[i]] = static_cast<uint8_t>(value);
    s.data[s.fsr[i] + 1u] = static_cast<uint8_t>(value >> 8);
}

static bool indirect(uint8_t role) { return (role & R_MODE) >= R_INDF && (role & R_MODE) <= R_PLUSW; }

// Where an access to an address really goes. An indirect register that points to one goes nowhere.
static uint32_t locate(sim_t &s, uint32_t address)
{
    const uint8_t role = s.role[address];
    if (!indirect(role))
        return address;
    const unsigned i = role >> R_FSR & 3;
    uint32_t at = select(s, i);
    switch (role & R_MODE) {
    case R_POSTINC: set_select(s, i, at + 1); break;
    case R_POSTDEC: set_select(s, i, at - 1); break;
    case R_PREINC: set_select(s, i, ++at); break;
    case R_PLUSW: at += static_cast<uint32_t>(static_cast<int8_t>(s.data[s.wreg])); break;
    }
    at &= s.mask;
    return indirect(s.role[at]) ? s.mask + 1 : at;
}

static uint32_t operand(sim_t &s, const sim_op &op)
{
    if (op.where == INDEXED)
        return (select(s, 2) + op.value) & s.mask;
    const uint32_t at = op.where == FIXED ? op.value : (s.data[s.bsr] << 8 | op.value) & s.mask;
    return s.role[at] ? locate(s, at) : at;
}

static uint8_t read_special(sim_t &s, uint32_t at)
{
    uint8_t &cell = s.data[at];
    const uint32_t top = s.depth ? s.stack[s.depth] : 0;
    const unsigned role = s.role[at] & R_MODE;
    switch (role) {
    case R_PCL:
        cell = static_cast<uint8_t>(s.pc);
        s.data[s.pclath] = static_cast<uint8_t>(s.pc >> 8);
        s.data[s.pclath + 1u] = static_cast<uint8_t>(s.pc >> 16);
        break;
    case R_TOSL:
    case R_TOSH:
    case R_TOSU: cell = static_cast<uint8_t>(top >> (role - R_TOSL) * 8); break;
    case R_STKPTR: cell = static_cast<uint8_t>(s.depth); break;
    }
    if (s.role[at] & R_DEVICE)
        s.hooks.read(s.hooks.context, s, at);
    if (s.role[at] & R_WATCHED) {
        if (s.random_inputs && in_ranges(s.target->changing, at))
            cell = static_cast<uint8_t>((++s.inputs * 2654435761u) >> 13);
        s.log.push_back({s.steps, at, cell, sim_access::READ});
    }
    return cell;
}

static uint8_t read(sim_t &s, uint32_t at) { return s.role[at] ? read_special(s, at) : s.data[at]; }

static uint32_t jump_address(const sim_t &s, uint32_t low)
{
    return (low & ~1u) | s.data[s.pclath] << 8 | (s.data[s.pclath + 1u] & 31u) << 16;
}

static void write_special(sim_t &s, uint32_t at, uint8_t byte)
{
    uint32_t none = 0, &top = s.depth ? s.stack[s.depth] : none;
    switch (s.role[at] & R_MODE) {
    case R_ABSENT:
        if (s.strict)
            halt(s, SIM_MEMORY, zo_format("write to unimplemented memory 0x%03X", at).c_str(), s.pc);
        return;
    case R_NOWHERE: return;
    case R_STATUS: byte &= ST_ALL; break;
    case R_BSR:
    case R_HIGH4: byte &= static_cast<uint8_t>(s.mask >> 8); break;
    case R_PCL:
        s.pc = jump_address(s, byte);
        s.cycles++;
        break;
    case R_TOSL: top = (top & ~0xFFu) | byte; break;
    case R_TOSH: top = (top & ~0xFF00u) | byte << 8; break;
    case R_TOSU: top = (top & 0xFFFFu) | (byte & 31u) << 16; break;
    case R_STKPTR: s.depth = byte & 31; break;
    }
    s.data[at] = byte;
    if (s.role[at] & R_DEVICE)
        s.hooks.write(s.hooks.context, s, at);
    if (s.role[at] & R_WATCHED)
        s.log.push_back({s.steps, at, s.data[at], sim_access::WRITE});
}

static void write(sim_t &s, uint32_t at, unsigned value)
{
    if (s.role[at])
        write_special(s, at, static_cast<uint8_t>(value));
    else
        s.data[at] = static_cast<uint8_t>(value);
}

// Arithmetic.

static unsigned zn(unsigned r) { return ((r & 255) == 0 ? ST_Z : 0) | (r & 128 ? ST_N : 0); }

namespace
{

struct result_t {
    unsigned value, bits, changed;
};   // changed: the status bits that take the value of bits

}   // namespace

static result_t add(unsigned a, unsigned b, unsigned carry)
{
    const unsigned r = a + b + carry;
    return {r & 255,
            zn(r) | (r > 255 ? ST_C : 0) | ((a & 15) + (b & 15) + carry > 15 ? ST_DC : 0) |
                ((a ^ r) & (b ^ r) & 128 ? ST_OV : 0),
            ST_ALL};
}

static result_t sub(unsigned a, unsigned b, unsigned not_borrow) { return add(a, ~b & 255, not_borrow); }
static result_t logic(unsigned r) { return {r & 255, zn(r), ST_Z | ST_N}; }
static result_t rotate(unsigned r, unsigned out) { return {r & 255, zn(r) | out, ST_C | ST_Z | ST_N}; }

static void flags(sim_t &s, unsigned changed, unsigned bits)
{
    s.data[s.status] = static_cast<uint8_t>((s.data[s.status] & ~changed) | (bits & changed));
}

static void store(sim_t &s, uint32_t at, const result_t &r)
{
    write(s, at, r.value);
    flags(s, r.changed, r.bits);
}

static void multiply(sim_t &s, unsigned a)
{
    const unsigned product = a * s.data[s.wreg];
    s.data[s.prod] = static_cast<uint8_t>(product);
    s.data[s.prod + 1u] = static_cast<uint8_t>(product >> 8);
}

// Handlers: of the byte group, which have a file operand and a destination.

namespace
{

enum byte_op_t {
    IORWF,
    ANDWF,
    XORWF,
    COMF,
    DECF,
    INCF,
    ADDWFC,
    ADDWF,
    SUBFWB,
    SUBWFB,
    SUBWF,
    MOVF,
    RRCF,
    RLCF,
    RRNCF,
    RLNCF,
    SWAPF
};

}   // namespace

template <byte_op_t OP> static result_t combine(unsigned f, unsigned w, unsigned c)
{
    switch (OP) {
    case IORWF: return logic(f | w);
    case ANDWF: return logic(f & w);
    case XORWF: return logic(f ^ w);
    case COMF: return logic(~f);
    case DECF: return add(f, 255, 0);
    case INCF: return add(f, 1, 0);
    case ADDWFC: return add(f, w, c);
    case ADDWF: return add(f, w, 0);
    case SUBFWB: return sub(w, f, c);
    case SUBWFB: return sub(f, w, c);
    case SUBWF: return sub(f, w, 1);
    case MOVF: return logic(f);
    case RRCF: return rotate(f >> 1 | c << 7, f & 1);
    case RLCF: return rotate(f << 1 | c, f >> 7);
    case RRNCF: return logic(f >> 1 | f << 7);
    case RLNCF: return logic(f << 1 | f >> 7);
    case SWAPF: return {f << 4 | f >> 4, 0, 0};
    }
}

template <byte_op_t OP> static void byte_op(sim_t &s, const sim_op &op)
{
    const uint32_t at = operand(s, op), dest = op.second ? at : s.wreg;
    const unsigned w = s.data[s.wreg], c = s.data[s.status] & ST_C;
    store(s, dest, combine<OP>(read(s, at), w, c));
}

static void skip_if(sim_t &s, bool condition)
{
    s.pc += condition ? 2 : 0;
    s.cycles += condition;
}

template <unsigned STEP, bool ZERO> static void step_and_skip(sim_t &s, const sim_op &op)
{
    const uint32_t at = operand(s, op);
    const unsigned r = (read(s, at) + STEP) & 255;
    skip_if(s, (r == 0) == ZERO);
    write(s, op.second ? at : s.wreg, r);
}

// Of the group with a file operand alone.

namespace
{

enum compare_t { LESS, EQUAL, GREATER, ZERO };

}   // namespace

template <compare_t C> static void compare_and_skip(sim_t &s, const sim_op &op)
{
    const unsigned f = read(s, operand(s, op)), w = s.data[s.wreg];
    skip_if(s, C == LESS ? f < w : C == EQUAL ? f == w : C == GREATER ? f > w : f == 0);
}

static void op_setf(sim_t &s, const sim_op &op) { write(s, operand(s, op), 255); }
static void op_movwf(sim_t &s, const sim_op &op) { write(s, operand(s, op), s.data[s.wreg]); }
static void op_mulwf(sim_t &s, const sim_op &op) { multiply(s, read(s, operand(s, op))); }

static void op_clrf(sim_t &s, const sim_op &op)
{
    write(s, operand(s, op), 0);
    flags(s, ST_Z, ST_Z);
}

static void op_negf(sim_t &s, const sim_op &op)
{
    const uint32_t at = operand(s, op);
    store(s, at, sub(0, read(s, at), 1));
}

// Of bits; `second` is the bit.

namespace
{

enum bit_op_t { TOGGLE, SET, CLEAR };

}   // namespace

template <bit_op_t OP> static void bit_op(sim_t &s, const sim_op &op)
{
    const uint32_t at = operand(s, op);
    const unsigned f = read(s, at);
    write(s, at, OP == TOGGLE ? f ^ op.second : OP == SET ? f | op.second : f & ~unsigned{op.second});
}

template <bool IS_SET> static void test_and_skip(sim_t &s, const sim_op &op)
{
    skip_if(s, ((read(s, operand(s, op)) & op.second) != 0) == IS_SET);
}

// Of literals.

static void op_movlb(sim_t &s, const sim_op &op) { write(s, s.bsr, op.value); }
static void op_sublw(sim_t &s, const sim_op &op) { store(s, s.wreg, sub(op.value, s.data[s.wreg], 1)); }
static void op_iorlw(sim_t &s, const sim_op &op) { store(s, s.wreg, logic(s.data[s.wreg] | op.value)); }
static void op_xorlw(sim_t &s, const sim_op &op) { store(s, s.wreg, logic(s.data[s.wreg] ^ op.value)); }
static void op_andlw(sim_t &s, const sim_op &op) { store(s, s.wreg, logic(s.data[s.wreg] & op.value)); }
static void op_addlw(sim_t &s, const sim_op &op) { store(s, s.wreg, add(s.data[s.wreg], op.value, 0)); }
static void op_movlw(sim_t &s, const sim_op &op) { write(s, s.wreg, op.value); }
static void op_mullw(sim_t &s, const sim_op &op) { multiply(s, op.value); }

// Of the program's flow; `value` is where it leads.

static void op_goto(sim_t &s, const sim_op &op) { s.pc = op.value; }

static void op_call(sim_t &s, const sim_op &op)
{
    push(s, s.pc);
    s.pc = op.value;
    if (op.second)
        s.shadow = {s.data[s.wreg], s.data[s.status], s.data[s.bsr]};
}

static void op_callw(sim_t &s, const sim_op &)
{
    push(s, s.pc);
    s.pc = jump_address(s, s.data[s.wreg]);
}

static void op_retlw(sim_t &s, const sim_op &op)
{
    write(s, s.wreg, op.value);
    s.pc = pop(s);
}

static void op_return(sim_t &s, const sim_op &op)
{
    for (unsigned i = 0; i < 3 && op.second; i++)   // the fast form
        s.data[i == 0 ? s.wreg : i == 1 ? s.status : s.bsr] = s.shadow[i];
    s.pc = pop(s);
}

static void op_retfie(sim_t &s, const sim_op &op)
{
    op_return(s, op);
    if (s.hooks.returned)
        s.hooks.returned(s.hooks.context, s);
}

template <bool IS_SET> static void branch(sim_t &s, const sim_op &op)
{
    if (((s.data[s.status] & op.second) != 0) == IS_SET) {
        s.pc = op.value;
        s.cycles++;
    }
}

static void op_nop(sim_t &, const sim_op &) {}
static void op_push(sim_t &s, const sim_op &) { push(s, s.pc); }
static void op_pop(sim_t &s, const sim_op &) { pop(s); }
static void op_sleep(sim_t &s, const sim_op &) { sim_halt(s, SIM_SLEEP, ""); }
static void op_halt(sim_t &s, const sim_op &) { halt(s, SIM_HALT, "halt", s.pc - 2); }
static void op_trap(sim_t &s, const sim_op &) { halt(s, SIM_HALT, "trap", s.pc - 2); }
static void op_reset(sim_t &s, const sim_op &) { halt(s, SIM_RESET, "reset", s.pc - 2); }

static void op_illegal(sim_t &s, const sim_op &op)
{
    halt(s, SIM_ILLEGAL, zo_format("illegal word 0x%04X", op.value).c_str(), s.pc - 2);
}

// Nothing stands here: the one before led out.
static void op_end(sim_t &s, const sim_op &) { halt(s, SIM_ILLEGAL, "end of program memory", s.pc -= 2); }

static void op_daw(sim_t &s, const sim_op &)
{
    unsigned w = s.data[s.wreg];
    const unsigned status = s.data[s.status], high = w > 0x99 || (status & ST_C) ? 0x60 : 0;
    w += ((w & 15) > 9 || (status & ST_DC) ? 6 : 0) + high;
    write(s, s.wreg, w);
    flags(s, ST_C, high || w > 255 ? ST_C : 0);
}

// Of tables, `value` the mode; of moves between registers, `value` and `second` the addresses or offsets.

static void op_table(sim_t &s, const sim_op &op)
{
    uint32_t at = s.data[s.tblptr] | s.data[s.tblptr + 1u] << 8 | (s.data[s.tblptr + 2u] & 63u) << 16;
    const unsigned mode = op.value & 3;
    if (mode == 3)
        at++;
    if (!(op.value & 4))
        s.data[s.tablat] = at < s.program.size() ? s.program[at] : 255;
    else if (s.log_tables)
        s.log.push_back({s.steps, at, s.data[s.tablat], sim_access::TABLE});
    at += mode == 1 ? 1 : mode == 2 ? UINT32_MAX : 0;
    for (unsigned i = 0; i < 3; i++)
        s.data[s.tblptr + i] = static_cast<uint8_t>(at >> 8 * i & (i == 2 ? 63 : 255));
}

static void move(sim_t &s, uint32_t from, uint32_t to)
{
    const uint8_t value = read(s, locate(s, from & s.mask));
    write(s, locate(s, to & s.mask), value);
}

static void op_movff(sim_t &s, const sim_op &op) { move(s, op.value, op.second); }
static void op_movsf(sim_t &s, const sim_op &op) { move(s, select(s, 2) + op.value, op.second); }
static void op_movss(sim_t &s, const sim_op &op) { move(s, select(s, 2) + op.value, select(s, 2) + op.second); }

static void op_pushl(sim_t &s, const sim_op &op)
{
    write(s, locate(s, select(s, 2)), op.value);
    set_select(s, 2, select(s, 2) - 1);
}

static void op_lfsr(sim_t &s, const sim_op &op) { set_select(s, op.second, op.value); }
static void op_addfsr(sim_t &s, const sim_op &op) { set_select(s, op.second, select(s, op.second) + op.value); }

static void op_addulnk(sim_t &s, const sim_op &op)
{
    set_select(s, 2, select(s, 2) + op.value);
    s.pc = pop(s);
}

// Decoding.

static int32_t signed_bits(unsigned word, unsigned bits)
{
    const unsigned value = word & ((1u << bits) - 1);
    return static_cast<int32_t>(value) - (value >> (bits - 1) ? 1 << bits : 0);
}

// A word of the program; 0 behind its end, where it can't be taken for an operand.
static unsigned word_at(const sim_t &s, uint32_t at)
{
    return at + 1 < s.program.size() ? s.program[at] | unsigned{s.program[at + 1]} << 8 : 0;
}

static sim_op illegal(unsigned word) { return {op_illegal, word}; }

static sim_op file_operand(const sim_t &s, unsigned word, sim_handler run, unsigned second)
{
    const uint32_t f = word & 255;
    const bool low = f <= s.target->common.hi - s.target->common.lo;
    sim_op op{run, f, static_cast<uint16_t>(second), BANKED};
    if (word & 0x100)
        return op;
    op.where = low && s.extended ? INDEXED : FIXED;
    if (op.where == FIXED)
        op.value = ((low ? s.target->common.lo : s.target->sfr_common.hi & ~255u) | f) & s.mask;
    return op;
}

static sim_op decode_file(const sim_t &s, unsigned word)
{
    static constexpr sim_handler bytes[] = {
        // from 0x04 on, by the upper six bits of the word
        byte_op<IORWF>,  byte_op<ANDWF>,  byte_op<XORWF>,          byte_op<COMF>,
        byte_op<ADDWFC>, byte_op<ADDWF>,  byte_op<INCF>,           step_and_skip<255, true>,
        byte_op<RRCF>,   byte_op<RLCF>,   byte_op<SWAPF>,          step_and_skip<1, true>,
        byte_op<RRNCF>,  byte_op<RLNCF>,  step_and_skip<1, false>, step_and_skip<255, false>,
        byte_op<MOVF>,   byte_op<SUBFWB>, byte_op<SUBWFB>,         byte_op<SUBWF>};
    static constexpr sim_handler others[] = {compare_and_skip<LESS>,
                                             compare_and_skip<EQUAL>,
                                             compare_and_skip<GREATER>,
                                             compare_and_skip<ZERO>,
                                             op_setf,
                                             op_clrf,
                                             op_negf,
                                             op_movwf};
    static constexpr sim_handler bits[] = {bit_op<TOGGLE>, bit_op<SET>, bit_op<CLEAR>, test_and_skip<true>,
                                           test_and_skip<false>};
    const unsigned group = word >> 12, to_file = word >> 9 & 1;
    if (group == 6)
        return file_operand(s, word, others[word >> 9 & 7], 0);
    if (group >= 7)
        return file_operand(s, word, bits[group - 7], 1u << (word >> 9 & 7));
    return file_operand(s, word, group == 0 ? byte_op<DECF> : bytes[(word >> 10) - 4], to_file);
}

static sim_op decode_control(const sim_t &s, uint32_t at, unsigned word)
{
    const unsigned second = word_at(s, at + 2), third = word_at(s, at + 4);
    const bool three = second >> 12 == 0xF && third >> 12 == 0xF;
    const auto long_move = [&](sim_handler run, uint32_t from) {
        const unsigned to = (second & 3) << 12 | (third & 0xFFF);
        return three ? sim_op{run, from, static_cast<uint16_t>(to), 0, 3, 3} : illegal(word);
    };
    switch (word) {
    case 0x0000:
    case 0x0004: return {op_nop};   // nop, clrwdt
    case 0x0001: return {op_halt};
    case 0x0002: return long_move(op_movsf, second >> 2 & 127);   // movsfl
    case 0x0003: return {op_sleep};
    case 0x0005: return {op_push};
    case 0x0006: return {op_pop};
    case 0x0007: return {op_daw};
    case 0x0010:
    case 0x0011: return {op_retfie, 0, static_cast<uint16_t>(word & 1), 0, 1, 2};
    case 0x0012:
    case 0x0013: return {op_return, 0, static_cast<uint16_t>(word & 1), 0, 1, 2};
    case 0x0014: return {op_callw, 0, 0, 0, 1, 2};
    case 0x00FF: return {op_reset};
    }
    if (word >> 3 == 1)   // tblrd, tblwt
        return {op_table, word & 7, 0, 0, 1, 2};
    if (word == (s.target->short_trap ? 0x00C0u : 0x00E0u))
        return {op_trap};
    if (word >> 4 == 0x006 && s.target->wide)
        return long_move(op_movff, (word & 15) << 10 | (second & 0xFFF) >> 2);   // movffl
    return illegal(word);
}

static sim_op decode_literal(const sim_t &s, uint32_t at, unsigned word)
{
    const unsigned k = word & 255;
    switch (word >> 8) {
    case 0x00: return decode_control(s, at, word);
    case 0x01: return k > (s.target->wide ? 63u : 15u) ? illegal(word) : sim_op{op_movlb, k};
    case 0x02:
    case 0x03: return file_operand(s, word, op_mulwf, 0);
    case 0x08: return {op_sublw, k};
    case 0x09: return {op_iorlw, k};
    case 0x0A: return {op_xorlw, k};
    case 0x0B: return {op_andlw, k};
    case 0x0C: return {op_retlw, k, 0, 0, 1, 2};
    case 0x0D: return {op_mullw, k};
    case 0x0E: return {op_movlw, k};
    case 0x0F: return {op_addlw, k};
    default: return decode_file(s, word);
    }
}

static sim_op decode_jump(const sim_t &s, uint32_t at, unsigned word)
{
    static const uint8_t bits[] = {ST_Z, ST_C, ST_OV, ST_N};
    const unsigned second = word_at(s, at + 2), k = word & 63, reg = word >> 6 & 3;
    const bool sound = second >> 12 == 0xF;
    switch (word >> 8 & 15) {
    default:   // bz, bnz and so on
        return {word & 0x100 ? branch<false> : branch<true>, at + 2 + static_cast<uint32_t>(signed_bits(word, 8) * 2),
                bits[word >> 9 & 3]};
    case 0x8:
    case 0x9: {   // addfsr, subfsr; addulnk, subulnk
        const uint32_t distance = word & 0x100 ? 0u - k : k;
        return reg == 3 ? sim_op{op_addulnk, distance, 0, 0, 1, 2} : sim_op{op_addfsr, distance, static_cast<uint16_t>(reg)};
    }
    case 0xA: return {op_pushl, word & 255};
    case 0xB:   // movsf, movss
        if (!sound)
            return illegal(word);
        return {word & 128 ? op_movss : op_movsf,
                word & 127,
                static_cast<uint16_t>(second & (word & 128 ? 127u : 0xFFFu)),
                0,
                2,
                2};
    case 0xC:
    case 0xD:
    case 0xF: {   // call, goto
        const uint32_t to = ((word & 255) | (second & 0xFFF) << 8) << 1;
        const bool jump = word >> 8 == 0xEF;
        return sound ? sim_op{jump ? op_goto : op_call, to, static_cast<uint16_t>(word >> 8 & 1), 0, 2, 2} : illegal(word);
    }
    case 0xE: {   // lfsr
        const unsigned low = s.target->wide ? 10 : 8;
        if (!sound || word & 0xC0 || word >> 4 == 0xEE3)
            return illegal(word);
        return {op_lfsr, (word & 15) << low | (second & ((1u << low) - 1)), static_cast<uint16_t>(word >> 4 & 3), 0, 2, 2};
    }
    }
}

static sim_op decode(const sim_t &s, uint32_t at)
{
    if (at + 1 >= s.program.size())
        return {op_end};
    const unsigned word = word_at(s, at), second = word_at(s, at + 2);
    switch (word >> 12) {
    case 0x0: return word >> 10 == 1 ? decode_file(s, word) : decode_literal(s, at, word);
    case 0xC:
        if (second >> 12 != 0xF)
            return illegal(word);
        return {op_movff, word & 0xFFF, static_cast<uint16_t>(second & 0xFFF), 0, 2, 2};
    case 0xD: {
        const uint32_t to = at + 2 + static_cast<uint32_t>(signed_bits(word, 11) * 2);
        return {word & 0x800 ? op_call : op_goto, to, 0, 0, 1, 2};
    }
    case 0xE: return decode_jump(s, at, word);
    case 0xF: return {op_nop};
    default: return decode_file(s, word);
    }
}

// A step.

static inline void step(sim_t &s)
{
    const size_t index = std::min<size_t>(s.pc >> 1, s.ops.size() - 1);
    sim_op &op = s.ops[index];
    if (!op.run)
        op = decode(s, index == s.ops.size() - 1 ? s.pc : static_cast<uint32_t>(index * 2));
    s.steps++;
    s.cycles += op.cycles;
    s.pc += op.words * 2u;
    op.run(s, op);
}

void sim_step(sim_t &s) { step(s); }
[[gnu::cold]] void sim_poke(sim_t &s, uint32_t address, uint8_t byte) { write_special(s, address, byte); }

void sim_go(sim_t &s)
{
    while (s.cycles < s.deadline)
        step(s);
}

sim_stop sim_run(sim_t &s, uint64_t limit)
{
    while (s.stop == SIM_RUNS && s.steps < limit)
        step(s);
    if (s.stop == SIM_RUNS)
        halt(s, SIM_LIMIT, "limit of steps", s.pc);
    return s.stop;
}
