// sim: executes the instruction set.
//
// Data memory is one array, and W, status and the other core registers are cells of it, at the addresses that the chip
// file tells; `role` marks the few cells that are more than memory. An instruction finds the address of its file operand
// once (`locate`), which is when the pre- and post-forms of an indirect register move the file select, and then reads,
// writes, or does both there.
//
// All arithmetic is one addition with carry: a subtraction adds the complement, and its borrow is the complement of the
// carry. A skip steps over one word only. What is left of a longer instruction are words that begin with 0xF, which do
// nothing; the same is true for a jump into the middle of one.
//
// Where an instruction changes status bits and names `status` as its destination, the bits that it changes win.
#include "sim.h"

#include "zelobj.h"

// clang-format off
enum role_t : uint8_t {
    R_PLAIN, R_INDF, R_POSTINC, R_POSTDEC, R_PREINC, R_PLUSW, R_STATUS, R_BSR, R_PCL, R_TOSL, R_TOSH, R_TOSU, R_STKPTR,
    R_HIGH4, R_MODE = 15, R_FSR = 4,   // the low four bits are the role, the others which file select
};
// clang-format on

constexpr uint32_t NOWHERE = UINT32_MAX;

void sim_init(sim_t &s, const target_t &t, const std::vector<uint8_t> &program)
{
    s.target = &t;
    s.program = program;
    const size_t size = t.wide ? 0x4000 : 0x1000;
    s.data.assign(size, 0);
    s.role.assign(size, R_PLAIN);
    s.watched.assign(size, false);
    static const char *const roles[] = {"STATUS", "BSR", "PCL", "TOSL", "TOSH", "TOSU", "STKPTR"};   // from R_STATUS on
    static const struct {
        const char *name;
        uint16_t sim_t::*at;
    } cells[] = {{"WREG", &sim_t::wreg},      {"STATUS", &sim_t::status}, {"BSR", &sim_t::bsr},      {"PRODL", &sim_t::prod},
                 {"TBLPTRL", &sim_t::tblptr}, {"TABLAT", &sim_t::tablat}, {"PCLATH", &sim_t::pclath}};
    static const char *const modes[] = {"INDF", "POSTINC", "POSTDEC", "PREINC", "PLUSW"};
    for (unsigned i = 0; i < 7; i++)
        s.role[target_sfr(t, roles[i])] = static_cast<uint8_t>(R_STATUS + i);
    for (const auto &c : cells)
        s.*c.at = target_sfr(t, c.name);
    for (unsigned i = 0; i < 3; i++) {
        for (unsigned mode = 0; mode < 5; mode++)
            s.role[target_sfr(t, modes[mode] + std::to_string(i))] = static_cast<uint8_t>((R_INDF + mode) | i << R_FSR);
        s.fsr[i] = target_sfr(t, "FSR" + std::to_string(i) + "L");
        s.role[s.fsr[i] + 1u] = R_HIGH4;
    }
}

static void halt(sim_t &s, sim_stop stop, const char *what, uint32_t at)
{
    s.stop = stop;
    s.why = zo_format("%s at 0x%X", what, at);
}

static uint32_t fetch(sim_t &s)
{
    const uint32_t at = s.pc;
    s.pc += 2;
    return at + 1 < s.program.size() ? s.program[at] | uint32_t{s.program[at + 1]} << 8 : NOWHERE;
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
    return s.depth ? s.stack[s.depth--] : s.pc;
}

// Data memory.

static uint32_t mask(const sim_t &s) { return static_cast<uint32_t>(s.data.size()) - 1; }

static uint32_t select(const sim_t &s, unsigned i) { return (s.data[s.fsr[i]] | s.data[s.fsr[i] + 1u] << 8) & mask(s); }

static void set_select(sim_t &s, unsigned i, uint32_t value)
{
    value &= mask(s);
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
    const unsigned i = role >> R_FSR;
    uint32_t at = select(s, i);
    switch (role & R_MODE) {
    case R_POSTINC: set_select(s, i, at + 1); break;
    case R_POSTDEC: set_select(s, i, at - 1); break;
    case R_PREINC: set_select(s, i, ++at); break;
    case R_PLUSW: at += static_cast<uint32_t>(static_cast<int8_t>(s.data[s.wreg])); break;
    }
    at &= mask(s);
    return indirect(s.role[at]) ? NOWHERE : at;
}

static uint32_t locate_operand(sim_t &s, uint32_t word)
{
    const uint32_t f = word & 255;
    const bool low = f <= s.target->common.hi;
    if (!(word & 0x100) && low && s.extended)
        return (select(s, 2) + f) & mask(s);
    return locate(s, word & 0x100 ? s.data[s.bsr] << 8 | f : low ? f : (s.target->sfr_common.hi & ~255u) | f);
}

static uint8_t read(sim_t &s, uint32_t at)
{
    if (at == NOWHERE)
        return 0;
    uint8_t &cell = s.data[at];
    const uint32_t top = s.depth ? s.stack[s.depth] : 0;
    switch (s.role[at]) {
    case R_PCL:
        cell = static_cast<uint8_t>(s.pc);
        s.data[s.pclath] = static_cast<uint8_t>(s.pc >> 8);
        s.data[s.pclath + 1u] = static_cast<uint8_t>(s.pc >> 16);
        break;
    case R_TOSL:
    case R_TOSH:
    case R_TOSU: cell = static_cast<uint8_t>(top >> (s.role[at] - R_TOSL) * 8); break;
    case R_STKPTR: cell = static_cast<uint8_t>(s.depth); break;
    }
    if (s.watched[at]) {
        if (s.random_inputs && in_ranges(s.target->changing, at))
            cell = static_cast<uint8_t>((++s.inputs * 2654435761u) >> 13);
        s.log.push_back({s.steps, at, cell, sim_access::READ});
    }
    return cell;
}

static uint32_t jump_address(const sim_t &s, uint32_t low)
{
    return (low & ~1u) | s.data[s.pclath] << 8 | (s.data[s.pclath + 1u] & 31u) << 16;
}

static void write(sim_t &s, uint32_t at, unsigned value)
{
    if (at == NOWHERE)
        return;
    const uint8_t byte = static_cast<uint8_t>(value);
    uint32_t none = 0, &top = s.depth ? s.stack[s.depth] : none;
    s.data[at] = byte;
    switch (s.role[at]) {
    case R_STATUS: s.data[at] &= ST_ALL; break;
    case R_BSR:
    case R_HIGH4: s.data[at] &= static_cast<uint8_t>(mask(s) >> 8); break;
    case R_PCL: s.pc = jump_address(s, byte); break;
    case R_TOSL: top = (top & ~0xFFu) | byte; break;
    case R_TOSH: top = (top & ~0xFF00u) | byte << 8; break;
    case R_TOSU: top = (top & 0xFFFFu) | (byte & 31u) << 16; break;
    case R_STKPTR: s.depth = byte & 31; break;
    }
    if (s.watched[at])
        s.log.push_back({s.steps, at, s.data[at], sim_access::WRITE});
}

// Arithmetic.

static unsigned zn(unsigned r) { return ((r & 255) == 0 ? ST_Z : 0) | (r & 128 ? ST_N : 0); }

struct result_t {
    unsigned value, bits, changed;
};   // changed: the status bits that take the value of bits

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

static void decimal_adjust(sim_t &s)
{
    unsigned w = s.data[s.wreg];
    const unsigned status = s.data[s.status], high = w > 0x99 || (status & ST_C) ? 0x60 : 0;
    w += ((w & 15) > 9 || (status & ST_DC) ? 6 : 0) + high;
    s.data[s.wreg] = static_cast<uint8_t>(w);
    flags(s, ST_C, high || w > 255 ? ST_C : 0);
}

// Instructions, by their groups. Each answers false if the word means nothing.

static bool byte_op(sim_t &s, unsigned word)
{
    const unsigned op = word >> 10;
    const uint32_t at = locate_operand(s, word), dest = word & 0x200 ? at : s.wreg;
    const unsigned w = s.data[s.wreg], c = s.data[s.status] & ST_C, f = read(s, at);
    const auto done = [&](const result_t &r) {
        store(s, dest, r);
        return true;
    };
    switch (op) {
    case 0x04: return done(logic(f | w));
    case 0x05: return done(logic(f & w));
    case 0x06: return done(logic(f ^ w));
    case 0x07: return done(logic(~f));
    case 0x01: return done(add(f, 255, 0));
    case 0x0A: return done(add(f, 1, 0));   // decf, incf
    case 0x08: return done(add(f, w, c));
    case 0x09: return done(add(f, w, 0));   // addwfc, addwf
    case 0x15: return done(sub(w, f, c));
    case 0x16: return done(sub(f, w, c));   // subfwb, subwfb
    case 0x17: return done(sub(f, w, 1));
    case 0x14: return done(logic(f));                         // subwf, movf
    case 0x0C: return done(rotate(f >> 1 | c << 7, f & 1));   // rrcf
    case 0x0D: return done(rotate(f << 1 | c, f >> 7));       // rlcf
    case 0x10: return done(logic(f >> 1 | f << 7));
    case 0x11: return done(logic(f << 1 | f >> 7));    // rrncf, rlncf
    case 0x0E: return done({f << 4 | f >> 4, 0, 0});   // swapf
    case 0x0B:
    case 0x0F:
    case 0x12:
    case 0x13: {   // decfsz, incfsz, infsnz, dcfsnz
        const unsigned r = (op == 0x0B || op == 0x13 ? f - 1 : f + 1) & 255;
        s.pc += (r == 0) == (op < 0x10) ? 2 : 0;
        return done({r, 0, 0});
    }
    default: return false;
    }
}

static bool file_op(sim_t &s, unsigned word)
{
    const uint32_t at = locate_operand(s, word);
    const unsigned w = s.data[s.wreg];
    switch (word >> 9) {
    case 0x30: s.pc += read(s, at) < w ? 2 : 0; return true;   // cpfslt
    case 0x31: s.pc += read(s, at) == w ? 2 : 0; return true;
    case 0x32: s.pc += read(s, at) > w ? 2 : 0; return true;    // cpfsgt
    case 0x33: s.pc += read(s, at) == 0 ? 2 : 0; return true;   // tstfsz
    case 0x34: write(s, at, 255); return true;
    case 0x35:
        write(s, at, 0);
        flags(s, ST_Z, ST_Z);
        return true;
    case 0x36: store(s, at, sub(0, read(s, at), 1)); return true;   // negf
    default: write(s, at, w); return true;
    }
}

static bool bit_op(sim_t &s, unsigned word)
{
    const uint32_t at = locate_operand(s, word);
    const unsigned f = read(s, at), bit = 1u << (word >> 9 & 7), op = word >> 12;
    if (op <= 9)
        write(s, at, op == 7 ? f ^ bit : op == 8 ? f | bit : f & ~bit);
    else
        s.pc += ((f & bit) != 0) == (op == 10) ? 2 : 0;
    return true;
}

static bool literal_op(sim_t &s, unsigned word)
{
    const unsigned k = word & 255, w = s.data[s.wreg];
    switch (word >> 8) {
    case 0x01:
        if (k > (s.target->wide ? 63 : 15))
            return false;
        write(s, s.bsr, k);
        return true;
    case 0x02:
    case 0x03: multiply(s, read(s, locate_operand(s, word))); return true;
    case 0x08: store(s, s.wreg, sub(k, w, 1)); return true;
    case 0x09: store(s, s.wreg, logic(w | k)); return true;
    case 0x0A: store(s, s.wreg, logic(w ^ k)); return true;
    case 0x0B: store(s, s.wreg, logic(w & k)); return true;
    case 0x0C:
        s.data[s.wreg] = static_cast<uint8_t>(k);
        s.pc = pop(s);
        return true;
    case 0x0D: multiply(s, k); return true;
    case 0x0E: s.data[s.wreg] = static_cast<uint8_t>(k); return true;
    case 0x0F: store(s, s.wreg, add(w, k, 0)); return true;
    default: return byte_op(s, word);
    }
}

static void call(sim_t &s, uint32_t to, bool fast)
{
    push(s, s.pc);
    s.pc = to;
    if (fast)
        s.shadow = {s.data[s.wreg], s.data[s.status], s.data[s.bsr]};
}

static void table(sim_t &s, unsigned word)
{
    uint32_t at = s.data[s.tblptr] | s.data[s.tblptr + 1u] << 8 | (s.data[s.tblptr + 2u] & 63u) << 16;
    if ((word & 3) == 3)
        at++;
    if (word & 4)
        s.log.push_back({s.steps, at, s.data[s.tablat], sim_access::TABLE});
    else
        s.data[s.tablat] = at < s.program.size() ? s.program[at] : 255;
    at += (word & 3) == 1 ? 1 : (word & 3) == 2 ? UINT32_MAX : 0;
    for (unsigned i = 0; i < 3; i++)
        s.data[s.tblptr + i] = static_cast<uint8_t>(at >> 8 * i & (i == 2 ? 63 : 255));
}

// The second or third word of an instruction.
static uint32_t operand_word(sim_t &s, bool &sound)
{
    const uint32_t word = fetch(s);
    sound = sound && word != NOWHERE && word >> 12 == 0xF;
    return word & 0xFFF;
}

static bool move(sim_t &s, uint32_t from, uint32_t to, bool sound)
{
    if (sound) {
        const uint8_t value = read(s, locate(s, from & mask(s)));
        write(s, locate(s, to & mask(s)), value);
    }
    return sound;
}

static bool control_op(sim_t &s, unsigned word)
{
    bool sound = true;
    switch (word) {
    case 0x0000:
    case 0x0004: return true;   // nop, clrwdt
    case 0x0001: halt(s, SIM_HALT, "halt", s.pc - 2); return true;
    case 0x0003: s.stop = SIM_SLEEP; return true;
    case 0x0005: push(s, s.pc); return true;
    case 0x0006: pop(s); return true;
    case 0x0007: decimal_adjust(s); return true;
    case 0x0010:
    case 0x0011:
    case 0x0012:
    case 0x0013:   // retfie, return, and fast
        for (unsigned i = 0; i < 3 && word & 1; i++)
            s.data[i == 0 ? s.wreg : i == 1 ? s.status : s.bsr] = s.shadow[i];
        return s.pc = pop(s), true;
    case 0x0014: call(s, jump_address(s, s.data[s.wreg]), false); return true;   // callw
    case 0x0002: {                                                               // movsfl
        const uint32_t middle = operand_word(s, sound), last = operand_word(s, sound);
        return move(s, select(s, 2) + (middle >> 2 & 127), (middle & 3) << 12 | last, sound);
    }
    case 0x00FF: halt(s, SIM_RESET, "reset", s.pc - 2); return true;
    }
    if (word >> 3 == 1)   // tblrd, tblwt
        table(s, word);
    if (word == (s.target->short_trap ? 0x00C0u : 0x00E0u))
        halt(s, SIM_HALT, "trap", s.pc - 2);
    if (word >> 4 == 0x006 && s.target->wide) {   // movffl
        const uint32_t middle = operand_word(s, sound), last = operand_word(s, sound);
        return move(s, (word & 15) << 10 | middle >> 2, (middle & 3) << 12 | last, sound);
    }
    return word >> 3 == 1 || s.stop == SIM_HALT;
}

static int32_t signed_bits(unsigned word, unsigned bits)
{
    const unsigned value = word & ((1u << bits) - 1);
    return static_cast<int32_t>(value) - (value >> (bits - 1) ? 1 << bits : 0);
}

static bool jump_op(sim_t &s, unsigned word)
{
    bool sound = true;
    const unsigned k = word & 63, reg = word >> 6 & 3;
    static const uint8_t bits[] = {ST_Z, ST_C, ST_OV, ST_N};
    switch (word >> 8 & 15) {
    default:   // bz, bnz and so on
        if (((s.data[s.status] & bits[word >> 9 & 3]) != 0) != (word >> 8 & 1))
            s.pc += static_cast<uint32_t>(signed_bits(word, 8) * 2);
        return true;
    case 0x8:
    case 0x9: {   // addfsr, subfsr; addulnk, subulnk
        const unsigned i = reg == 3 ? 2 : reg;
        set_select(s, i, word & 0x100 ? select(s, i) - k : select(s, i) + k);
        if (reg == 3)
            s.pc = pop(s);
        return true;
    }
    case 0xA:   // pushl
        write(s, locate(s, select(s, 2)), word & 255);
        set_select(s, 2, select(s, 2) - 1);
        return true;
    case 0xB: {   // movsf, movss
        const uint32_t second = operand_word(s, sound), base = select(s, 2);
        return move(s, base + (word & 127), word & 128 ? base + (second & 127) : second, sound);
    }
    case 0xC:
    case 0xD:
    case 0xF: {   // call, goto
        const uint32_t to = ((word & 255) | operand_word(s, sound) << 8) << 1;
        if (word >> 8 != 0xEF && sound)
            call(s, to, word & 0x100);
        s.pc = to;
        return sound;
    }
    case 0xE: {   // lfsr
        const unsigned low = s.target->wide ? 10 : 8;
        const uint32_t second = operand_word(s, sound);
        if (!sound || word & 0xC0 || word >> 4 == 0xEE3)
            return false;
        set_select(s, word >> 4 & 3, (word & 15) << low | (second & ((1u << low) - 1)));
        return true;
    }
    }
}

static bool execute(sim_t &s, unsigned word)
{
    bool sound = true;
    switch (word >> 12) {
    case 0x0: return word >> 8 ? literal_op(s, word) : control_op(s, word);
    case 0x6: return file_op(s, word);
    case 0x7:
    case 0x8:
    case 0x9:
    case 0xA:
    case 0xB: return bit_op(s, word);
    case 0xC: {
        const uint32_t to = operand_word(s, sound);
        return move(s, word & 0xFFF, to, sound);
    }
    case 0xD:
        if (word & 0x800)
            push(s, s.pc);
        s.pc += static_cast<uint32_t>(signed_bits(word, 11) * 2);
        return true;
    case 0xE: return jump_op(s, word);
    case 0xF: return true;
    default: return byte_op(s, word);
    }
}

void sim_step(sim_t &s)
{
    const uint32_t at = s.pc, word = fetch(s);
    s.steps++;
    if (word == NOWHERE)
        halt(s, SIM_ILLEGAL, "end of program memory", at);
    else if (!execute(s, word))
        halt(s, SIM_ILLEGAL, zo_format("illegal word 0x%04X", word).c_str(), at);
}

sim_stop sim_run(sim_t &s, uint64_t limit)
{
    while (s.stop == SIM_RUNS && s.steps < limit)
        sim_step(s);
    if (s.stop == SIM_RUNS)
        halt(s, SIM_LIMIT, "limit of steps", s.pc);
    return s.stop;
}
