// From instruction words to assembly language.
//
// One table of patterns, tried from the first to the last: a word that agrees with `match` in the bits of `mask` is the
// instruction, and its form tells how the remaining bits are laid out. The operands are written in the language of the
// assembler, always in full: destination and access are told even where the language has a default. Instructions of two
// and three words go on in words of the form 0xFnnn; if such a word is missing, or has bits set that no operand uses, the
// first word isn't taken for that instruction. What fits no pattern is shown as `dw`.
//
// Words alone don't tell everything: `nop` has two encodings, `clrw` and `clrf` of its register are one word, and `lfsr`
// splits its address differently on chips with wide data addresses, hence the parameter `wide`.
#include "zelobj.h"

namespace
{

struct pattern_t {
    uint16_t mask, match;
    const char *name;
    zo_form form;
};

const pattern_t patterns[] = {
    {0xFFFF, 0x0000, "nop", ZO_PLAIN},        {0xFFFF, 0x0001, "halt", ZO_PLAIN},
    {0xFFFF, 0x0002, "movsfl", ZO_MOVSFL},    {0xFFFF, 0x0003, "sleep", ZO_PLAIN},
    {0xFFFF, 0x0004, "clrwdt", ZO_PLAIN},     {0xFFFF, 0x0005, "push", ZO_PLAIN},
    {0xFFFF, 0x0006, "pop", ZO_PLAIN},        {0xFFFF, 0x0007, "daw", ZO_PLAIN},
    {0xFFFC, 0x0008, "tblrd", ZO_TABLE},      {0xFFFC, 0x000C, "tblwt", ZO_TABLE},
    {0xFFFE, 0x0010, "retfie", ZO_FAST},      {0xFFFE, 0x0012, "return", ZO_FAST},
    {0xFFFF, 0x0014, "callw", ZO_PLAIN},      {0xFFF0, 0x0060, "movffl", ZO_MOVFFL},
    {0xFFFF, 0x0070, "dboff", ZO_PLAIN},      {0xFFFF, 0x0071, "dbout", ZO_PLAIN},
    {0xFFFF, 0x0072, "extexit", ZO_PLAIN},    {0xFFFF, 0x0073, "dbin", ZO_PLAIN},
    {0xFFFF, 0x00C0, "trap", ZO_PLAIN},       {0xFFFF, 0x00E0, "trap", ZO_PLAIN},
    {0xFFFF, 0x00E1, "tret", ZO_PLAIN},       {0xFFFF, 0x00FF, "reset", ZO_PLAIN},
    {0xFFC0, 0x0100, "movlb", ZO_LIT6},       {0xFFC0, 0x0140, "setcnt", ZO_LIT6},
    {0xFE00, 0x0200, "mulwf", ZO_FILE_ACC},   {0xFC00, 0x0400, "decf", ZO_FILE_DEST},
    {0xFF00, 0x0800, "sublw", ZO_LIT8},       {0xFF00, 0x0900, "iorlw", ZO_LIT8},
    {0xFF00, 0x0A00, "xorlw", ZO_LIT8},       {0xFF00, 0x0B00, "andlw", ZO_LIT8},
    {0xFF00, 0x0C00, "retlw", ZO_LIT8},       {0xFF00, 0x0D00, "mullw", ZO_LIT8},
    {0xFF00, 0x0E00, "movlw", ZO_LIT8},       {0xFF00, 0x0F00, "addlw", ZO_LIT8},
    {0xFC00, 0x1000, "iorwf", ZO_FILE_DEST},  {0xFC00, 0x1400, "andwf", ZO_FILE_DEST},
    {0xFC00, 0x1800, "xorwf", ZO_FILE_DEST},  {0xFC00, 0x1C00, "comf", ZO_FILE_DEST},
    {0xFC00, 0x2000, "addwfc", ZO_FILE_DEST}, {0xFC00, 0x2400, "addwf", ZO_FILE_DEST},
    {0xFC00, 0x2800, "incf", ZO_FILE_DEST},   {0xFC00, 0x2C00, "decfsz", ZO_FILE_DEST},
    {0xFC00, 0x3000, "rrcf", ZO_FILE_DEST},   {0xFC00, 0x3400, "rlcf", ZO_FILE_DEST},
    {0xFC00, 0x3800, "swapf", ZO_FILE_DEST},  {0xFC00, 0x3C00, "incfsz", ZO_FILE_DEST},
    {0xFC00, 0x4000, "rrncf", ZO_FILE_DEST},  {0xFC00, 0x4400, "rlncf", ZO_FILE_DEST},
    {0xFC00, 0x4800, "infsnz", ZO_FILE_DEST}, {0xFC00, 0x4C00, "dcfsnz", ZO_FILE_DEST},
    {0xFC00, 0x5000, "movf", ZO_FILE_DEST},   {0xFC00, 0x5400, "subfwb", ZO_FILE_DEST},
    {0xFC00, 0x5800, "subwfb", ZO_FILE_DEST}, {0xFC00, 0x5C00, "subwf", ZO_FILE_DEST},
    {0xFE00, 0x6000, "cpfslt", ZO_FILE_ACC},  {0xFE00, 0x6200, "cpfseq", ZO_FILE_ACC},
    {0xFE00, 0x6400, "cpfsgt", ZO_FILE_ACC},  {0xFE00, 0x6600, "tstfsz", ZO_FILE_ACC},
    {0xFE00, 0x6800, "setf", ZO_FILE_ACC},    {0xFE00, 0x6A00, "clrf", ZO_FILE_ACC},
    {0xFE00, 0x6C00, "negf", ZO_FILE_ACC},    {0xFE00, 0x6E00, "movwf", ZO_FILE_ACC},
    {0xF000, 0x7000, "btg", ZO_FILE_BIT},     {0xF000, 0x8000, "bsf", ZO_FILE_BIT},
    {0xF000, 0x9000, "bcf", ZO_FILE_BIT},     {0xF000, 0xA000, "btfss", ZO_FILE_BIT},
    {0xF000, 0xB000, "btfsc", ZO_FILE_BIT},   {0xF000, 0xC000, "movff", ZO_MOVFF},
    {0xF800, 0xD000, "bra", ZO_REL11},        {0xF800, 0xD800, "rcall", ZO_REL11},
    {0xFF00, 0xE000, "bz", ZO_REL8},          {0xFF00, 0xE100, "bnz", ZO_REL8},
    {0xFF00, 0xE200, "bc", ZO_REL8},          {0xFF00, 0xE300, "bnc", ZO_REL8},
    {0xFF00, 0xE400, "bov", ZO_REL8},         {0xFF00, 0xE500, "bnv", ZO_REL8},
    {0xFF00, 0xE600, "bmi", ZO_REL8},         {0xFF00, 0xE700, "bnn", ZO_REL8},
    {0xFFC0, 0xE8C0, "addulnk", ZO_LIT6},     {0xFFC0, 0xE9C0, "subulnk", ZO_LIT6},
    {0xFF00, 0xE800, "addfsr", ZO_FSR_LIT},   {0xFF00, 0xE900, "subfsr", ZO_FSR_LIT},
    {0xFF00, 0xEA00, "pushl", ZO_LIT8},       {0xFF80, 0xEB00, "movsf", ZO_MOVSF},
    {0xFF80, 0xEB80, "movss", ZO_MOVSS},      {0xFE00, 0xEC00, "call", ZO_CALL},
    {0xFFC0, 0xEE00, "lfsr", ZO_LFSR},        {0xFF00, 0xEF00, "goto", ZO_GOTO},
    {0xFFFF, 0xF000, "nop", ZO_PLAIN},
};

// The target of a branch of `bits` bits of signed words, as an offset in the psect in bytes.
uint32_t target(unsigned word, unsigned bits, uint32_t offset)
{
    unsigned sign = 1u << (bits - 1);
    uint32_t words = ((word & (2 * sign - 1)) ^ sign) - sign;
    return offset + 2 + 2 * words;
}

}   // namespace

zo_code zo_decode(std::span<const uint8_t> code, uint32_t offset, bool wide)
{
    unsigned w[3] = {};
    bool more[3] = {};   // is there, and is a continuation word
    for (size_t i = 0; i < 3 && code.size() >= 2 * i + 2; i++) {
        w[i] = code[2 * i] | static_cast<unsigned>(code[2 * i + 1]) << 8;
        more[i] = w[i] >> 12 == 0xF;
    }
    const zo_code unknown = {nullptr, ZO_PLAIN, 1, 0, 0, false, false, false};
    const pattern_t *p = patterns;
    while (p != std::end(patterns) && (w[0] & p->mask) != p->match)
        p++;
    if (p == std::end(patterns))
        return unknown;

    zo_code c = {p->name, p->form, 1, w[0] & 255, 0, (w[0] & 0x200) != 0, (w[0] & 0x100) != 0, false};
    const auto two = [&](bool sound, uint32_t a, uint32_t b) {
        c.words = 2;
        c.a = a;
        c.b = b;
        return sound && more[1] ? c : unknown;
    };
    const auto three = [&](bool sound, uint32_t a, uint32_t b) {
        c = two(sound && more[2], a, b);
        c.words = c.name ? 3 : 1;
        return c;
    };
    switch (p->form) {
    case ZO_PLAIN:
    case ZO_LIT8:
    case ZO_FILE_ACC:
    case ZO_FILE_DEST: break;
    case ZO_FAST: c.fast = w[0] & 1; break;
    case ZO_TABLE: c.a = w[0] & 3; break;
    case ZO_LIT6: c.a = w[0] & 63; break;
    case ZO_FSR_LIT:
        c.a = w[0] >> 6 & 3;
        c.b = w[0] & 63;
        break;
    case ZO_FILE_BIT: c.b = w[0] >> 9 & 7; break;
    case ZO_REL8: c.a = target(w[0], 8, offset); break;
    case ZO_REL11: c.a = target(w[0], 11, offset); break;
    case ZO_CALL:
    case ZO_GOTO: c.fast = p->form == ZO_CALL && w[0] & 0x100; return two(true, (w[0] & 255) * 2 + (w[1] & 0xFFF) * 512, 0);
    case ZO_LFSR:
        return two(!(w[1] & 0xC00), w[0] >> 4 & 3, (w[0] & 15) << (wide || w[1] & 0x300 ? 10 : 8) | (w[1] & 0x3FF));
    case ZO_MOVFF: return two(true, w[0] & 0xFFF, w[1] & 0xFFF);
    case ZO_MOVFFL: return three(true, (w[0] & 15) << 10 | (w[1] >> 2 & 0x3FF), (w[1] & 3) << 12 | (w[2] & 0xFFF));
    case ZO_MOVSF: return two(true, w[0] & 127, w[1] & 0xFFF);
    case ZO_MOVSFL: return three(!(w[1] & 0xE00), w[1] >> 2 & 127, (w[1] & 3) << 12 | (w[2] & 0xFFF));
    case ZO_MOVSS: return two(!(w[1] & 0xF80), w[0] & 127, w[1] & 127);
    }
    return c;
}

zo_instruction zo_disassemble(std::span<const uint8_t> code, uint32_t offset, bool wide)
{
    const zo_code c = zo_decode(code, offset, wide);
    if (!c.name)
        return {1, zo_format("%-7s 0x%04X", "dw", code[0] | static_cast<unsigned>(code[1]) << 8)};
    static const char *const modes[] = {"*", "*+", "*-", "+*"};
    const std::string a = zo_number(c.a), b = zo_number(c.b), access = c.banked ? ",b" : ",c";
    std::string operands;
    switch (c.form) {
    case ZO_PLAIN: break;
    case ZO_FAST: operands = c.fast ? "f" : ""; break;
    case ZO_TABLE: operands = modes[c.a]; break;
    case ZO_LIT6:
    case ZO_LIT8:
    case ZO_REL8:
    case ZO_REL11:
    case ZO_GOTO: operands = a; break;
    case ZO_CALL: operands = a + (c.fast ? ",f" : ""); break;
    case ZO_FILE_ACC: operands = a + access; break;
    case ZO_FILE_DEST: operands = a + (c.file ? ",f" : ",w") + access; break;
    case ZO_FILE_BIT: operands = a + "," + b + access; break;
    case ZO_FSR_LIT:
    case ZO_LFSR:
    case ZO_MOVFF:
    case ZO_MOVFFL: operands = a + "," + b; break;
    case ZO_MOVSF:
    case ZO_MOVSFL: operands = "[" + a + "]," + b; break;
    case ZO_MOVSS: operands = "[" + a + "],[" + b + "]"; break;
    }
    return {c.words, operands.empty() ? c.name : zo_format("%-7s %s", c.name, operands.c_str())};
}
