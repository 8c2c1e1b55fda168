// The chip record: registers and fields, the accessors, --maxizel, and the four sample chips.
#include <strings.h>

#include "chip/sfrs.h"
#include "chipfile.h"

struct Chip : ChipFile {};

TEST_F(Chip, RegisterTable) {
    chipinfo_t *ci = load(zel8("SFR=A,F00,16\nSFR=B,F00,16\nSFR=AL,F00,8\nSFR=LOW,F00,8\nSFR=AH,F01,8\nSFR=C,F02,8\n"
                               "SFR=a,F04,8\nSFRFLD=F,F00,2,3\nSFRFLD=f,F00,0,1\nSFRFLD=F,F00,2,3\nSFRFLD=F,F02,31,9\n"
                               "SFRFLD=G,F02,40,1\nSFRFLD=H,F02,4,32\nSFRFLD=I,F02,0,4294967295\nSFR=N,E00,8\n"));
    sfr_t *a = find(ci, "a"), *al = find(ci, "low"), *ah = find(ci, "AH"), *c = find(ci, "C");
    ASSERT_TRUE(a && al && ah && c) << said;
    EXPECT_TRUE(find(ci, "B") == a && a->sfr_width == 16 && !a->sfr_fields);
    EXPECT_STREQ(al->sfr_name, "AL");
    EXPECT_TRUE(vec_size(a->sfr_kids) == 2 && vec_elementAt(a->sfr_kids, 1) == ah && ah->sfr_parent == a);
    EXPECT_EQ(c->sfr_parent, nullptr);   // the joined register was full
    EXPECT_EQ(skiplist_lookup(ci->c_sfrtab->sfrsAddrTab, 0xF00), a);
    static const struct { sfr_t *owner; const char *name; uint32_t mask; } fields[] = {
        {al, "F", 0x1C}, {al, "f", 1}, {c, "F", 0x80000000}, {c, "G", 0}, {c, "H", 0xFFFFFFF0}, {c, "I", 0xFFFFFFFF}};
    for (const auto &f : fields) EXPECT_EQ(skiplist_lookup(f.owner->sfr_fields, f.name)->fld_mask, f.mask) << f.name;
    EXPECT_EQ(vec_size(skiplist_lookup(ci->c_sfrtab->fldsNameTab, "F")), 2u);
    EXPECT_EQ(find(ci, "N")->sfr_address, 0xE00u);   // out of order, and no harm
}

TEST_F(Chip, BadRegisters) {
    static const struct { const char *line; unsigned number; const char *text; } bad[] = {
        {"SFR=A,F00", 1016, "missing argument(s) to \"SFR\" specification"},
        {"SFR=A,F00,8,9", 1017, "extraneous argument to \"SFR\" specification"},
        {"SFR=A,xyz,8", 1021, "syntax error reading \"SFR (A) address (xyz)\" value"},
        {"SFRFLD=A,FF3,0", 1016, "missing argument(s) to \"SFRFLD\" specification"},
        {"SFRFLD=A,FF3,0,y", 1021, "syntax error reading \"SFRFLD (A) bit-width (y)\" value"},
        {"SFRFLD=A,FF2,0,1", 919, "SFRFLD (A) at an address without SFR (FF2) for chip ZEL8T1"},
        {"SFRFLD=W0,FF3,1,1", 919, "invalid duplicate SFRFLD (W0) for chip ZEL8T1"},
    };
    for (const auto &b : bad) {
        find(load(zel8(std::string(b.line) + "\n[NEXT]\n")), "WREG");
        EXPECT_TRUE(has(b.number, b.text, 15)) << b.line;
    }
    for (std::string key : {"SFR", "SFRFLD"}) {
        find(load(zel8_without(key)), "WREG");
        EXPECT_TRUE(has(1015, "missing \"" + key + "\" specification", 12));
    }
}

TEST_F(Chip, Accessors) {
    opt.cur_chip = load(zel8("USERIDMEM=210000-210007\n", "ZEL8T1", "ZEL8X"));
    EXPECT_TRUE(chip_arch() == 0x100 && chip_archIs(0x380) && !chip_archIs(0x280));
    static const struct { int64_t addr; const char *where; } cases[] = {
        {0x5F, "c"}, {0x60, ""}, {0xFFF, "cs"}, {0x1000, ""}, {-1, ""}, {0x100000000, ""}, {0x230009, "f"}, {0x23000A, ""},
        {0x210007, "i"}, {0x210008, ""}};
    auto where = [](int64_t addr) {
        return std::string(chip_isCommonAddr(addr) ? "c" : "") + (chip_isSfrCommonAddr(addr) ? "s" : "") +
               (chip_isConfigAddr(addr) ? "f" : "") + (is_useridmem(addr) ? "i" : "");
    };
    for (const auto &c : cases) EXPECT_EQ(where(c.addr), c.where) << c.addr;
    opt.cur_chip->c_useridmem = {};
    opt.cur_chip->c_cfgmem = {8, 8, nullptr};   // one address isn't a configuration memory
    EXPECT_EQ(where(0) + where(8), "cc");
    opt.cur_chip->c_arch = arch_find("zel4");   // the mid-range family has ranges of its own
    opt.cur_chip->c_config = {9, 9, nullptr};
    opt.cur_chip->c_idloc = {5, 6, nullptr};
    EXPECT_EQ(where(9) + where(5) + where(8) + where(0xF60), "fi");
    opt.cur_chip = nullptr;
    listen([&] {
        EXPECT_STREQ(chip_getName(), "none");
        EXPECT_FALSE(chip_arch() || chip_archIs(UINT32_MAX));
        EXPECT_EQ(where(0), "");
    });
    EXPECT_TRUE(has(814, "processor type not defined"));
}

TEST_F(Chip, Maximise) {
    chipinfo_t *ci = load(zel8("EEPROM=240000-2400FF\nEEADRBITS=A\n"));
    ci->c_bsrbits = 2;
    ci->c_sfrcommon = {0x360, 0x3FF, nullptr};
    *vec_elementAt(ci->c_sfrbanks, 0) = {0x1F0, 0x20F, nullptr};
    chip_maximise(ci);
    EXPECT_TRUE(ci->c_romlast == 1u << 21 && ci->c_eeprom.hi == 0x2403FF && ci->c_ramsize == 0x400);
    EXPECT_EQ(show(ci->c_gprbanks), "60-FF 100-1EF 210-2FF 300-35F ");
    ci = load(zel8("EXTMEM=20000-3FFFF\n"));
    ci->c_bsrbits = 0;
    for (uint32_t lo : {0x500u, 0x600u}) chip_addRange(ci, RANGE_GPRBANKS, lo, lo + 1);
    chip_maximise(ci);
    EXPECT_EQ(ci->c_romlast, 0x3FFFFu);
    EXPECT_EQ(show(ci->c_gprbanks), "60-FF 100-1FF 500-501 600-601 ");   // old entries beyond the result stay
    ci->c_bsrbits = ci->c_pcbits = ci->c_eeadrbits = UINT32_MAX;           // absurd widths are cut
    ci->c_extmem = {};
    ci->c_eeprom = {1, 2, nullptr};
    vec_elementAt(ci->c_sfrbanks, 0)->hi = UINT32_MAX;
    chip_maximise(ci);
    EXPECT_TRUE(ci->c_romlast == 1u << 31 && ci->c_eeprom.hi == 1u << 31 && ci->c_ramsize == 1u << 24);
    EXPECT_EQ(vec_elementAt(ci->c_gprbanks, 15)->hi, 0xF3Fu);

    ci = load(mid("ZEL4", "EEPROM=1-1\nEEADRBITS=4\n"));
    chip_maximise(ci);
    EXPECT_TRUE(ci->c_romsize == 0x800 && ci->c_eeprom.hi == 0x10 && ci->c_banks == 4);
    EXPECT_EQ(show(ci->c_rambank), "20-7F B0-EF 120-17F 1A0-1FF ");   // offsets 20 to 7F of a bank
    EXPECT_EQ(show(ci->c_commons), "70-7F F0-FF 170-17F 1F0-1FF ");
    ci = load(mid("ZEL2E", "CONFIG=400-400\n"));
    chip_maximise(ci);
    EXPECT_EQ(ci->c_romsize, 0x3FFu);
    EXPECT_EQ(vec_size(ci->c_commons), 1u);
    ci = load(mid("ZEL2", "CONFIG=900-900\n"));
    ci->c_bankselbits = 40;
    ci->c_banksize = 0;   // nothing to place banks by
    chip_maximise(ci);
    EXPECT_TRUE(ci->c_romsize == 0x800 && ci->c_banks == 0 && vec_size(ci->c_rambank) == 2);
}

// Loads a sample chip as a run does; the result is what is wrong with it.
static const char *fault_of_sample(const char *name, uint32_t mask) {
    chipinfo_t *ci = opt.cur_chip = chipinfo_load(nullptr, name);
    bool wide = mask & ARCH_X;
    sfr_init(ci);
    sfr_init(nullptr);   // returns at once
    for (uint32_t id = SFR_TOSU; id < SFR_END; ++id) {
        if (!chip_isSfrCommonAddr(sfr_addrOf(id))) return "a core register is missing or outside the access bank";
        if (sfr_idAt(sfr_addrOf(id)) != id) return "two core registers share an address";
    }
    const char *status = sfr_nameAt(sfr_addrOf(SFR_STATUS));
    if (!status || strcmp(status, "status") != 0) return "no name of an address";
    if (sfr_nameAt(-1) || sfr_nameAt(0) || sfr_addrOf(0) || sfr_addrOf(SFR_END)) return "a register where there is none";
    if (ci->c_arch->mask != mask || strcasecmp(ci->c_name, name) != 0) return "wrong chip";
    if ((sfr_addrOf(SFR_WREG) & 0xFF) != 0xF3) return "wreg is misplaced";
    if (!wide && sfr_addrOf(SFR_TABLAT) != 0xFF5) return "tablat is misplaced";
    if (ci->c_bsrbits != (wide ? 6 : 4)) return "bank bits";
    if (ci->c_common.lo % 256 != 0 || ci->c_common.hi % 256 != 0x5F) return "access bank, memory half";
    if (ci->c_sfrcommon.lo % 256 != 0x60 || ci->c_sfrcommon.hi % 256 != 0xFF) return "access bank, register half";
    if (ci->c_cfgmem.hi - ci->c_cfgmem.lo < 7 || ci->c_useridmem.hi - ci->c_useridmem.lo != 7) return "configuration memory";
    for (const sfr_t *sfr : skiplist_values(ci->c_sfrtab->sfrsAddrTab)) {   // in the access bank or a register bank
        bool banked = chip_isSfrCommonAddr(sfr->sfr_address);
        for (const memrange_t *r : ci->c_sfrbanks) banked |= range_holds(*r, sfr->sfr_address);
        if (!banked) return sfr->sfr_name;
    }
    uint32_t bytes = ci->c_common.hi - ci->c_common.lo + 1;
    for (const memrange_t *r : ci->c_gprbanks) {
        if (r->lo / 256 != r->hi / 256) return "a range of memory crosses a bank";
        bytes += r->hi - r->lo + 1;
    }
    return bytes == ci->c_ramsize ? nullptr : "RAMSIZE";
}

TEST_F(Chip, SampleChips) {
    static const struct { const char *name; uint32_t mask; } chips[] = {
        {"ZEL8K10", 0x80}, {"zel8k20", 0x100}, {"ZEL8K30", 0x200}, {"ZEL8K40", 0x300}};
    listen([] {});   // readies the messages
    for (const auto &c : chips) {   // each in a process of its own, since the core registers are looked up once in a run
        outcome_t o = in_child([&] {
            if (const char *fault = fault_of_sample(c.name, c.mask)) fprintf(stderr, "%s", fault);
        });
        EXPECT_EQ(o.status, CAME_BACK) << c.name;
        EXPECT_EQ(o.text, "") << c.name;
    }
    // STATUS falls on WREG's slot of the table; BSR lies where WREG does, and the first of the list stays; PCL is missing.
    chipinfo_t *ci = load(zel8("SFR=BSR,FF3,8\nSFR=STATUS,F73,8\n"));
    outcome_t o = in_child([&] {
        sfr_init(ci);
        fprintf(stderr, "%s %s %X %X", sfr_nameAt(0xFF3), sfr_nameAt(0xF73), sfr_addrOf(SFR_BSR), sfr_addrOf(SFR_PCL));
    });
    EXPECT_EQ(o.text, "wreg status FF3 0");
}
