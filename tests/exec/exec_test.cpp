// Tests of the simulator, which the comparison takes its word for; those of the linker are cases.
#include <gtest/gtest.h>

#include "sim.h"

// A chip with the registers that instructions need, at the usual places.
static target_t make_chip(bool wide)
{
    target_t t;
    t.wide = wide;
    t.rom_size = 0x400;
    t.common = {0, 0x5F};
    t.sfr_common = {0xF60, 0xFFF};
    t.banks = {{0x60, 0xFF}, {0x100, 0x1FF}, {0x200, 0x2FF}};
    t.sfr = {{"TOSL", 0xFE8},  {"TOSH", 0xFE9}, {"TOSU", 0xFEA}, {"STKPTR", 0xFEB}, {"PCL", 0xFEC},    {"PCLATH", 0xFED},
             {"PRODL", 0xFF0}, {"BSR", 0xFF2},  {"WREG", 0xFF3}, {"STATUS", 0xFF4}, {"TABLAT", 0xFF5}, {"TBLPTRL", 0xFF6}};
    static const char *const modes[] = {"INDF", "POSTINC", "POSTDEC", "PREINC", "PLUSW", "FSR"};
    for (uint16_t i = 0; i < 3; i++)
        for (uint16_t mode = 0; mode < 6; mode++)
            t.sfr[modes[mode] + std::to_string(i) + (mode == 5 ? "L" : "")] = static_cast<uint16_t>(0xFD0 + mode + i * 8);
    return t;
}
static const target_t chip = make_chip(false), wide_chip = make_chip(true);

static sim_t machine(const std::vector<uint16_t> &words, const target_t &target = chip)
{
    std::vector<uint8_t> bytes(target.rom_size, 0);
    for (size_t i = 0; i < 2 * words.size(); i++)
        bytes[i] = static_cast<uint8_t>(words[i / 2] >> i % 2 * 8);
    sim_t s;
    sim_init(s, target, bytes);
    return s;
}

// What an instruction of the arithmetic group means, in wide integers: the exact result, as a sum of signed and of unsigned
// numbers and of low nibbles. Carry of a subtraction is "no borrow", that is, the result isn't negative.
struct meaning_t {
    const char *name;
    uint16_t word;
    int f, w, c, constant;
    bool subtracts;
};   // factors of f, W, C and 1

static const meaning_t meanings[] = {
    {"addwf", 0x2400, 1, 1, 0, 0, false},   {"addwfc", 0x2000, 1, 1, 1, 0, false},  {"subwf", 0x5C00, 1, -1, 0, 0, true},
    {"subwfb", 0x5800, 1, -1, 1, -1, true}, {"subfwb", 0x5400, -1, 1, 1, -1, true}, {"incf", 0x2800, 1, 0, 0, 1, false},
    {"addlw", 0x0F00, 1, 1, 0, 0, false},   {"sublw", 0x0800, 1, -1, 0, 0, true},   {"negf", 0x6C00, -1, 0, 0, 0, true},
    {"decf", 0x0400, 1, 0, 0, -1, true},
};

static int as_signed(int byte) { return byte < 128 ? byte : byte - 256; }

TEST(sim, arithmetic)
{
    for (const meaning_t &m : meanings) {
        const bool literal = m.word == 0x0F00 || m.word == 0x0800;
        sim_t s = machine({0});
        for (int f = 0; f < 256; f++) {
            sim_patch(s, 0, static_cast<uint8_t>(literal ? f : 0x10));
            sim_patch(s, 1, static_cast<uint8_t>(m.word >> 8));
            for (int w = 0; w < 256; w++)
                for (int c = 0; c < 2; c++) {
                    s.pc = 0;
                    s.data[0x10] = static_cast<uint8_t>(f);
                    s.data[s.wreg] = static_cast<uint8_t>(w);
                    s.data[s.status] = static_cast<uint8_t>(c ? ST_C : ST_ALL & ~ST_C);
                    sim_step(s);
                    const int all = m.f * f + m.w * w + m.c * c + m.constant;
                    const int low = m.f * (f & 15) + m.w * (w & 15) + m.c * c + m.constant;
                    const int sum = m.f * as_signed(f) + m.w * as_signed(w) + m.c * c + m.constant, byte = all & 255;
                    const unsigned bits = (m.subtracts ? all >= 0 : all > 255) * ST_C +
                                          (m.subtracts ? low >= 0 : low > 15) * ST_DC + (byte == 0) * ST_Z +
                                          (sum < -128 || sum > 127) * ST_OV + (byte > 127) * ST_N;
                    const uint8_t got = s.data[m.word == 0x6C00 ? 0x10 : s.wreg];
                    ASSERT_EQ(got, byte) << m.name << " f " << f << " W " << w << " C " << c;
                    ASSERT_EQ(s.data[s.status], bits) << m.name << " f " << f << " W " << w << " C " << c;
                }
        }
    }
}

TEST(sim, rotates_logic_and_daw)
{
    for (unsigned f = 0; f < 256; f++)
        for (unsigned c = 0; c < 2; c++) {
            const struct {
                uint16_t word;
                unsigned result, carry;
                bool flags;
            } list[] = {{0x3410, (f << 1 | c) & 255, f >> 7, true},
                        {0x3010, f >> 1 | c << 7, f & 1, true},   // rlcf, rrcf
                        {0x4410, (f << 1 | f >> 7) & 255, c, true},
                        {0x4010, (f >> 1 | f << 7) & 255, c, true},   // rlncf, rrncf
                        {0x3810, (f << 4 | f >> 4) & 255, c, false},
                        {0x1C10, 255 - f, c, true},
                        {0x5010, f, c, true},
                        {0x1410, f & 0x5A, c, true},
                        {0x1010, f | 0x5A, c, true},
                        {0x1810, f ^ 0x5A, c, true}};
            for (const auto &e : list) {
                sim_t s = machine({e.word});
                s.data[0x10] = static_cast<uint8_t>(f);
                s.data[s.wreg] = 0x5A;
                s.data[s.status] = static_cast<uint8_t>(c);
                sim_step(s);
                EXPECT_EQ(s.data[s.wreg], e.result) << std::hex << e.word << " f " << f;
                EXPECT_EQ(s.data[s.status], e.carry + (e.flags ? (e.result == 0) * ST_Z + (e.result > 127) * ST_N : 0))
                    << e.word;
            }
        }
    // daw: the sum of two decimal numbers is right again, and so is its carry.
    for (unsigned a = 0; a < 100; a++)
        for (unsigned b = 0; b < 100; b++) {
            sim_t s = machine({static_cast<uint16_t>(0x0F00 | (b / 10 * 16 + b % 10)), 0x0007});
            s.data[s.wreg] = static_cast<uint8_t>(a / 10 * 16 + a % 10);
            sim_step(s);
            sim_step(s);
            EXPECT_EQ(s.data[s.wreg], (a + b) / 10 % 10 * 16 + (a + b) % 10);
            EXPECT_EQ(s.data[s.status] & ST_C, a + b > 99);
        }
}

TEST(sim, skips_and_moves)
{
    // A skip passes over one instruction of one to three words, or doesn't, and the way leads to `sleep`.
    const struct {
        uint16_t word;
        uint8_t f, w;
        bool skips;
    } skips[] = {
        {0xB210, 2, 0, false},  {0xB210, 0xFD, 0, true}, {0xA210, 2, 0, true},    {0xA210, 0xFD, 0, false},   // btfsc, btfss
        {0x6210, 7, 7, true},   {0x6210, 8, 7, false},   {0x6410, 8, 7, true},    {0x6410, 7, 7, false},   // cpfseq, cpfsgt
        {0x6010, 6, 7, true},   {0x6010, 200, 7, false}, {0x6610, 0, 7, true},    {0x6610, 1, 7, false},   // cpfslt, tstfsz
        {0x2E10, 1, 7, true},   {0x2E10, 0, 7, false},   {0x4E10, 1, 7, false},   {0x4E10, 0, 7, true},    // decfsz, dcfsnz
        {0x3E10, 255, 7, true}, {0x3E10, 0, 7, false},   {0x4A10, 255, 7, false}, {0x4A10, 0, 7, true}};   // incfsz, infsnz
    for (const auto &e : skips)
        for (const std::vector<uint16_t> &words :
             {std::vector<uint16_t>{e.word, 0x6A11, 3}, {e.word, 0xC012, 0xF011, 3}, {e.word, 0x60, 0xF048, 0xF011, 3}}) {
            sim_t s = machine(words, wide_chip);
            s.data[0x10] = e.f;
            s.data[0x11] = 9;
            s.data[s.wreg] = e.w;
            EXPECT_EQ(sim_run(s, 20), SIM_SLEEP) << std::hex << e.word;
            EXPECT_EQ(s.data[0x11], e.skips ? 9 : 0) << std::hex << e.word << " f " << int{e.f};
        }
}

TEST(sim, programs_and_stops)
{
    enum : uint16_t { FSR0L = 0xFD5, PRODL = 0xFF0, PRODH, BSR, W, STATUS, TABLAT, TBLPTRL };
    const struct {
        std::vector<uint16_t> words;
        std::map<uint16_t, uint8_t> before, after;
    } programs[] = {
        // lfsr 0,0x123 / movwf POSTINC0 / movwf PREINC0 / movwf POSTDEC0 / movlw -1 / movff PLUSW0,0x200 / clrf INDF0 /
        // movlb 1 / setf 0x23,b
        {{0xEE01, 0xF023, 0x6ED1, 0x6ED3, 0x6ED2, 0x0EFF, 0xCFD4, 0xF200, 0x6AD0, 0x0101, 0x6923, 0x0003},
         {{W, 0x42}},
         {{0x123, 255}, {0x124, 0}, {0x125, 0x42}, {0x200, 0x42}, {FSR0L, 0x24}}},
        // An indirect register that points to one reads as 0 and isn't written.
        {{0xEE0F, 0xF0D8, 0x6ED0, 0x50D0, 0x0003}, {{W, 9}}, {{W, 0}}},
        // Extended set: lfsr 2,0x120 / addfsr 2,5 / pushl 0x77 / subfsr 2,1 / movsf [2],0x30 / movss [2],[3] / mullw 3
        {{0xEE21, 0xF020, 0xE885, 0xEA77, 0xE981, 0xEB02, 0xF030, 0xEB82, 0xF003, 0x0D03, 0x0003},
         {{W, 100}},
         {{0x30, 0x77}, {0x126, 0x77}, {PRODL, 300 & 255}, {PRODH, 1}}},
        // call 0x10 fast / sleep; at 0x10: movlw 1, movlb 2, addlw 255, return fast
        {{0xED08, 0xF000, 0x0003, 0, 0, 0, 0, 0, 0x0E01, 0x0102, 0x0FFF, 0x0013},
         {{W, 5}, {STATUS, ST_N}},
         {{W, 5}, {STATUS, ST_N}, {BSR, 0}}},
        // rcall to a table jump by PCL: movlw 2 / rcall +1 / sleep / addwf PCL,f / retlw 1 / retlw 9
        {{0x0E02, 0xD801, 0x0003, 0x26EC, 0x0C01, 0x0C09}, {}, {{W, 9}}},
        // movlw 14 / movwf TBLPTRL / tblrd*+ / movff TABLAT,0x20 / tblrd+* / sleep; the bytes 0x11 0x22 0x33 at 14
        {{0x0E0E, 0x6EF6, 0x0009, 0xCFF5, 0xF020, 0x000B, 0x0003, 0x2211, 0x4433},
         {},
         {{0x20, 0x11}, {TABLAT, 0x33}, {TBLPTRL, 16}}},
        // push / movff TOSL,0x20 / pop / sleep
        {{0x0005, 0xCFE8, 0xF020, 0x0006, 0x0003}, {}, {{0x20, 2}}}};
    for (const auto &e : programs) {
        sim_t s = machine(e.words);
        for (const auto &[at, value] : e.before)
            s.data[at] = value;
        EXPECT_EQ(sim_run(s, 20), SIM_SLEEP) << std::hex << e.words[0] << s.why;
        EXPECT_EQ(s.depth, 0) << std::hex << e.words[0];
        for (const auto &[at, value] : e.after)
            EXPECT_EQ(s.data[at], value) << std::hex << e.words[0] << " at " << at;
    }
    const struct {
        std::vector<uint16_t> words;
        sim_stop stop;
        const char *why;
    } stops[] = {{{0x0000, 0x0015}, SIM_ILLEGAL, "illegal word 0x0015 at 0x2"},
                 {{0xD7FF}, SIM_LIMIT, "limit of steps at 0x0"},
                 {{0xEC00, 0x0003}, SIM_ILLEGAL, "illegal word 0xEC00 at 0x0"},
                 {{0x00FF}, SIM_RESET, "reset at 0x0"},
                 {{0x0006}, SIM_STACK, "stack underflow at 0x2"},
                 {{0xDFFF}, SIM_STACK, "stack overflow at 0x2"},
                 {{0xD9FF}, SIM_ILLEGAL, "end of program memory at 0x400"}};
    for (const auto &e : stops) {
        sim_t s = machine(e.words);
        EXPECT_EQ(sim_run(s, e.stop == SIM_STACK ? 100 : 20 + 500 * (e.words[0] == 0xD9FF)), e.stop) << e.why;
        EXPECT_TRUE(s.why.starts_with(e.why)) << s.why;
    }
}
