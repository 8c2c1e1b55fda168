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

// clang-format off
enum form_t : uint8_t {
    PLAIN, FAST, TABLE, LIT6, LIT8, FSR_LIT, FILE_ACC, FILE_DEST, FILE_BIT, REL8, REL11, CALL, GOTO, LFSR, MOVFF, MOVFFL,
    MOVSF, MOVSFL, MOVSS,
};
// clang-format on

struct pattern_t {
    uint16_t mask, match;
    const char *name;
    form_t form;
};

const pattern_t patterns[] = {
    {0xFFFF, 0x0000, "nop", PLAIN},        {0xFFFF, 0x0001, "halt", PLAIN},       {0xFFFF, 0x0002, "movsfl", MOVSFL},
    {0xFFFF, 0x0003, "sleep", PLAIN},      {0xFFFF, 0x0004, "clrwdt", PLAIN},     {0xFFFF, 0x0005, "push", PLAIN},
    {0xFFFF, 0x0006, "pop", PLAIN},        {0xFFFF, 0x0007, "daw", PLAIN},        {0xFFFC, 0x0008, "tblrd", TABLE},
    {0xFFFC, 0x000C, "tblwt", TABLE},      {0xFFFE, 0x0010, "retfie", FAST},      {0xFFFE, 0x0012, "return", FAST},
    {0xFFFF, 0x0014, "callw", PLAIN},      {0xFFF0, 0x0060, "movffl", MOVFFL},    {0xFFFF, 0x0070, "dboff", PLAIN},
    {0xFFFF, 0x0071, "dbout", PLAIN},      {0xFFFF, 0x0072, "extexit", PLAIN},    {0xFFFF, 0x0073, "dbin", PLAIN},
    {0xFFFF, 0x00C0, "trap", PLAIN},       {0xFFFF, 0x00E0, "trap", PLAIN},       {0xFFFF, 0x00E1, "tret", PLAIN},
    {0xFFFF, 0x00FF, "reset", PLAIN},      {0xFFC0, 0x0100, "movlb", LIT6},       {0xFFC0, 0x0140, "setcnt", LIT6},
    {0xFE00, 0x0200, "mulwf", FILE_ACC},   {0xFC00, 0x0400, "decf", FILE_DEST},   {0xFF00, 0x0800, "sublw", LIT8},
    {0xFF00, 0x0900, "iorlw", LIT8},       {0xFF00, 0x0A00, "xorlw", LIT8},       {0xFF00, 0x0B00, "andlw", LIT8},
    {0xFF00, 0x0C00, "retlw", LIT8},       {0xFF00, 0x0D00, "mullw", LIT8},       {0xFF00, 0x0E00, "movlw", LIT8},
    {0xFF00, 0x0F00, "addlw", LIT8},       {0xFC00, 0x1000, "iorwf", FILE_DEST},  {0xFC00, 0x1400, "andwf", FILE_DEST},
    {0xFC00, 0x1800, "xorwf", FILE_DEST},  {0xFC00, 0x1C00, "comf", FILE_DEST},   {0xFC00, 0x2000, "addwfc", FILE_DEST},
    {0xFC00, 0x2400, "addwf", FILE_DEST},  {0xFC00, 0x2800, "incf", FILE_DEST},   {0xFC00, 0x2C00, "decfsz", FILE_DEST},
    {0xFC00, 0x3000, "rrcf", FILE_DEST},   {0xFC00, 0x3400, "rlcf", FILE_DEST},   {0xFC00, 0x3800, "swapf", FILE_DEST},
    {0xFC00, 0x3C00, "incfsz", FILE_DEST}, {0xFC00, 0x4000, "rrncf", FILE_DEST},  {0xFC00, 0x4400, "rlncf", FILE_DEST},
    {0xFC00, 0x4800, "infsnz", FILE_DEST}, {0xFC00, 0x4C00, "dcfsnz", FILE_DEST}, {0xFC00, 0x5000, "movf", FILE_DEST},
    {0xFC00, 0x5400, "subfwb", FILE_DEST}, {0xFC00, 0x5800, "subwfb", FILE_DEST}, {0xFC00, 0x5C00, "subwf", FILE_DEST},
    {0xFE00, 0x6000, "cpfslt", FILE_ACC},  {0xFE00, 0x6200, "cpfseq", FILE_ACC},  {0xFE00, 0x6400, "cpfsgt", FILE_ACC},
    {0xFE00, 0x6600, "tstfsz", FILE_ACC},  {0xFE00, 0x6800, "setf", FILE_ACC},    {0xFE00, 0x6A00, "clrf", FILE_ACC},
    {0xFE00, 0x6C00, "negf", FILE_ACC},    {0xFE00, 0x6E00, "movwf", FILE_ACC},   {0xF000, 0x7000, "btg", FILE_BIT},
    {0xF000, 0x8000, "bsf", FILE_BIT},     {0xF000, 0x9000, "bcf", FILE_BIT},     {0xF000, 0xA000, "btfss", FILE_BIT},
    {0xF000, 0xB000, "btfsc", FILE_BIT},   {0xF000, 0xC000, "movff", MOVFF},      {0xF800, 0xD000, "bra", REL11},
    {0xF800, 0xD800, "rcall", REL11},      {0xFF00, 0xE000, "bz", REL8},          {0xFF00, 0xE100, "bnz", REL8},
    {0xFF00, 0xE200, "bc", REL8},          {0xFF00, 0xE300, "bnc", REL8},         {0xFF00, 0xE400, "bov", REL8},
    {0xFF00, 0xE500, "bnv", REL8},         {0xFF00, 0xE600, "bmi", REL8},         {0xFF00, 0xE700, "bnn", REL8},
    {0xFFC0, 0xE8C0, "addulnk", LIT6},     {0xFFC0, 0xE9C0, "subulnk", LIT6},     {0xFF00, 0xE800, "addfsr", FSR_LIT},
    {0xFF00, 0xE900, "subfsr", FSR_LIT},   {0xFF00, 0xEA00, "pushl", LIT8},       {0xFF80, 0xEB00, "movsf", MOVSF},
    {0xFF80, 0xEB80, "movss", MOVSS},      {0xFE00, 0xEC00, "call", CALL},        {0xFFC0, 0xEE00, "lfsr", LFSR},
    {0xFF00, 0xEF00, "goto", GOTO},        {0xFFFF, 0xF000, "nop", PLAIN},
};

// The target of a branch of `bits` bits of signed words, as an offset in the psect in bytes.
uint32_t target(unsigned word, unsigned bits, uint32_t offset)
{
    unsigned sign = 1u << (bits - 1);
    uint32_t words = ((word & (2 * sign - 1)) ^ sign) - sign;
    return offset + 2 + 2 * words;
}

}   // namespace

zo_instruction zo_disassemble(std::span<const uint8_t> code, uint32_t offset, bool wide)
{
    unsigned w[3] = {};
    bool more[3] = {};   // is there, and is a continuation word
    for (size_t i = 0; i < 3 && code.size() >= 2 * i + 2; i++) {
        w[i] = code[2 * i] | static_cast<unsigned>(code[2 * i + 1]) << 8;
        more[i] = w[i] >> 12 == 0xF;
    }
    const pattern_t *p = patterns;
    while (p != std::end(patterns) && (w[0] & p->mask) != p->match)
        p++;
    const zo_instruction unknown = {1, zo_format("%-7s 0x%04X", "dw", w[0])};
    if (p == std::end(patterns))
        return unknown;

    auto number = [](unsigned n) { return zo_number(n); };
    std::string file = number(w[0] & 255), access = w[0] & 0x100 ? ",b" : ",c";
    unsigned words = 1;
    std::string operands;
    switch (p->form) {
    case PLAIN: break;
    case FAST: operands = w[0] & 1 ? "f" : ""; break;
    case TABLE: {
        static const char *const modes[] = {"*", "*+", "*-", "+*"};
        operands = modes[w[0] & 3];
        break;
    }
    case LIT6: operands = number(w[0] & 63); break;
    case LIT8: operands = number(w[0] & 255); break;
    case FSR_LIT: operands = number(w[0] >> 6 & 3) + "," + number(w[0] & 63); break;
    case FILE_ACC: operands = file + access; break;
    case FILE_DEST: operands = file + (w[0] & 0x200 ? ",f" : ",w") + access; break;
    case FILE_BIT: operands = file + "," + number(w[0] >> 9 & 7) + access; break;
    case REL8: operands = number(target(w[0], 8, offset)); break;
    case REL11: operands = number(target(w[0], 11, offset)); break;
    case CALL:
    case GOTO:
        if (!more[1])
            return unknown;
        words = 2;
        operands = number((w[0] & 255) * 2 + (w[1] & 0xFFF) * 512);
        if (p->form == CALL && w[0] & 0x100)
            operands += ",f";
        break;
    case LFSR:
        if (!more[1] || w[1] & 0xC00)
            return unknown;
        words = 2;
        operands = number(w[0] >> 4 & 3) + "," + number((w[0] & 15) << (wide || w[1] & 0x300 ? 10 : 8) | (w[1] & 0x3FF));
        break;
    case MOVFF:
        if (!more[1])
            return unknown;
        words = 2;
        operands = number(w[0] & 0xFFF) + "," + number(w[1] & 0xFFF);
        break;
    case MOVFFL:
        if (!more[1] || !more[2])
            return unknown;
        words = 3;
        operands = number((w[0] & 15) << 10 | (w[1] >> 2 & 0x3FF)) + "," + number((w[1] & 3) << 12 | (w[2] & 0xFFF));
        break;
    case MOVSF:
        if (!more[1])
            return unknown;
        words = 2;
        operands = "[" + number(w[0] & 127) + "]," + number(w[1] & 0xFFF);
        break;
    case MOVSFL:
        if (!more[1] || w[1] & 0xE00 || !more[2])
            return unknown;
        words = 3;
        operands = "[" + number(w[1] >> 2 & 127) + "]," + number((w[1] & 3) << 12 | (w[2] & 0xFFF));
        break;
    case MOVSS:
        if (!more[1] || w[1] & 0xF80)
            return unknown;
        words = 2;
        operands = "[" + number(w[0] & 127) + "],[" + number(w[1] & 127) + "]";
        break;
    }
    return {words, operands.empty() ? p->name : zo_format("%-7s %s", p->name, operands.c_str())};
}
