// Tests of the linker and of the simulator: without them, two faults could hide each other in the comparison.
#include <gtest/gtest.h>

#include "sim.h"
#include "zellink.h"

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
                    ASSERT_TRUE(got == byte && s.data[s.status] == bits)
                        << m.name << " f " << f << " W " << w << " C " << c << ": " << +got << ", " << +s.data[s.status];
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
        EXPECT_TRUE(sim_run(s, 20) == SIM_SLEEP && s.depth == 0) << std::hex << e.words[0] << s.why;
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

// A module made by hand.
struct module_maker {
    link_module m;
    explicit module_maker(const char *name) { m.name = name; }
    template <typename T> module_maker &add(T body, bool front = false)
    {
        m.file.records.insert(front ? m.file.records.begin() : m.file.records.end(), {ZO_TEXT, 0, {}, "", std::move(body)});
        return *this;
    }
    // The psects of a file stand in front, the last one first.
    module_maker &psect(const char *name, uint16_t flags, uint8_t space, const char *class_name, uint16_t reloc = 1,
                        const char *with = "")
    {
        return add(zo_xpsect{0, reloc, space, 1, name, class_name, with, false}, true).add(zo_psect{flags, name}, true);
    }
    module_maker &text(const char *psect, uint32_t at, std::vector<uint8_t> data, std::vector<zo_reloc_entry> relocs = {})
    {
        add(zo_text{at, psect, std::move(data)});
        return relocs.empty() ? *this : add(zo_reloc{std::move(relocs)});
    }
    module_maker &symbol(const char *psect, const char *name, uint32_t value, uint16_t flags)
    {
        return add(zo_sym{{{value, flags, psect, name}}});
    }
};

static zo_token leaf(uint8_t op, const char *name) { return {op, 0, name}; }
static zo_token constant(uint32_t n) { return {ZO_OP_CONST, n, ""}; }
static zo_token oper(uint8_t op) { return {op, 0, ""}; }

static std::string linked(const std::vector<module_maker> &makers, image_t &image)
{
    std::vector<link_module> modules;
    for (const module_maker &m : makers)
        modules.push_back(m.m);
    std::string text;
    for (const std::string &error : link_modules(modules, chip, image))
        text += error + "\n";
    return text;
}

TEST(link, places_and_joins)
{
    module_maker a("a"), b("b");
    a.psect("vec", ZO_F_GLOBAL, 0, "RESETVEC", 2).psect("code", ZO_F_GLOBAL, 0, "CODE", 2);
    a.psect("fix", ZO_F_ABS | ZO_F_OVRLD, 0, "CODE").psect("near", ZO_F_GLOBAL, 1, "COMRAM");
    a.psect("far", ZO_F_GLOBAL, 1, "BANK2", 16).psect("mate", ZO_F_GLOBAL, 1, "BANK2", 4, "far");
    a.psect("shared", ZO_F_GLOBAL | ZO_F_OVRLD, 1, "COMRAM").psect("own", 0, 0, "CODE");
    a.text("vec", 0, {1, 2, 3, 4}).text("fix", 8, {5, 6}).text("code", 0, {7, 8, 9}).text("near", 3, {}).text("far", 5, {});
    a.text("mate", 2, {}).text("shared", 4, {}).text("own", 0, {0x50});
    b.psect("code", ZO_F_GLOBAL, 0, "CODE", 2).psect("near", ZO_F_GLOBAL, 1, "COMRAM");
    b.psect("shared", ZO_F_GLOBAL | ZO_F_OVRLD, 1, "COMRAM").psect("own", 0, 0, "CODE");
    b.text("code", 0, {10}).text("near", 2, {}).text("shared", 6, {}).text("own", 0, {0x51});
    a.symbol("mate", "m", 1, ZO_S_GLOBAL).symbol("shared", "s1", 1, ZO_S_GLOBAL);
    b.symbol("near", "n", 1, ZO_S_GLOBAL).symbol("shared", "s2", 1, ZO_S_GLOBAL).symbol("code", "c", 0, ZO_S_GLOBAL);
    image_t image;
    ASSERT_EQ(linked({a, b}, image), "");
    EXPECT_EQ(image.symbols["c"], 14);   // behind the vector at 0 and `fix` at 8: 10, and there on the boundary of 2
    EXPECT_EQ(std::vector<uint8_t>(image.program.begin(), image.program.begin() + 15),
              (std::vector<uint8_t>{1, 2, 3, 4, 0x50, 0x51, 255, 255, 5, 6, 7, 8, 9, 255, 10}));
    EXPECT_EQ(image.symbols["n"], 10);      // behind `shared`, which is larger, and the three bytes of the other module
    EXPECT_EQ(image.symbols["m"], 0x209);   // `far` at 0x200, `mate` with it on its own boundary
    EXPECT_EQ(image.symbols["s1"], image.symbols["s2"]);
    module_maker full("full");
    full.psect("big", ZO_F_GLOBAL, 1, "COMRAM").text("big", 0x61, {});
    EXPECT_EQ(
        linked({full}, image),
        "full: psect \"big\" of class \"COMRAM\", 0x61 bytes, doesn't fit into 0-5F, where the largest gap has 0x60 bytes: make it "
        "smaller, take another class, or give that one more memory with --class= (psect \"big\"+0x0)\n");
}

TEST(link, relocates_and_complains)
{
    module_maker a("a"), b("b");
    a.psect("code", ZO_F_GLOBAL, 0, "CODE", 2).psect("data", ZO_F_GLOBAL, 1, "BANK1").text("data", 0x20, {});
    b.psect("data", ZO_F_GLOBAL, 1, "BANK1").text("data", 2, {});
    b.symbol("data", "x", 1, ZO_S_GLOBAL).symbol("", "bit", 5, ZO_S_GLOBAL).symbol("x", "alias", 2, ZO_S_ALIAS);
    a.text("code", 0, {0x00, 0x6F, 0x00, 0xC0, 0x05, 0xF0, 0x00, 0x91, 0, 0, 0, 0},
           {{0, 0x21, "x", {}, {}},   // movwf x,b: 0x121 is its place in the bank
            {2, 0xEC, "x", {}, {}},   // movff x,data+5
            {4, 0xDC, "data", {}, {}},
            // bcf with both operands open; the access bit stays
            {6,
             0xFC,
             "",
             {constant(9), constant(7), leaf(ZO_OP_SYMBOL, "bit"), oper(ZO_OP_AND), oper(ZO_OP_SHL), constant(0x21),
              oper(ZO_OP_ADD)},
             {}},
            {6, 0x30, "bit number", {leaf(ZO_OP_SYMBOL, "bit")}, {constant(7)}},
            {8, 0x32, "", {leaf(ZO_OP_PSECT, "data"), leaf(ZO_OP_SYMBOL, "alias"), oper(ZO_OP_SUB)}, {}},
            {10, 0x31, "", {leaf(ZO_OP_SYMBOL, "x"), oper(ZO_OP_HIGH)}, {}}});
    image_t image;
    ASSERT_EQ(linked({a, b}, image), "");
    EXPECT_EQ(std::vector<uint8_t>(image.program.begin(), image.program.begin() + 12),
              (std::vector<uint8_t>{0x21, 0x6F, 0x21, 0xC1, 0x05, 0xF1, 0x21, 0x9B, 0x23, 0, 1, 0}));
    const struct {
        zo_reloc_entry entry;
        const char *error;
    } faults[] = {{{0, 0x21, "nowhere", {}, {}}, "undefined symbol \"nowhere\""},
                  {{0, 0x31, "", {constant(300)}, {}}, "0x12C is 0x12C, which doesn't fit into 8 bits"},
                  {{1, 0x12, "data", {}, {}}, "damaged object file: relocation of type 0x12"},
                  {{0, 0x30, "bit", {constant(8)}, {constant(7)}}, "bit 8 is 0x8, where 0x7 is the most"},
                  {{0, 0x31, "", {constant(0), constant(1), oper(ZO_OP_DIV)}, {}}, "division by 0"}};
    for (const auto &fault : faults) {
        module_maker c("c");
        c.psect("code", ZO_F_GLOBAL, 0, "CODE").psect("data", ZO_F_GLOBAL, 1, "").text("code", 0, {0, 0}, {fault.entry});
        EXPECT_TRUE(linked({c}, image).starts_with("c: " + std::string(fault.error))) << linked({c}, image);
    }
    module_maker twice("twice");
    twice.symbol("", "bit", 6, ZO_S_GLOBAL);
    EXPECT_EQ(linked({b, twice}, image),
              "twice: symbol \"bit\" is defined in b, too: rename one of them, or declare it `local`\n");
}
