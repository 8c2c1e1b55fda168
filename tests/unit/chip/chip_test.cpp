// The chip record: registers and fields, --maxizel, and the core registers.
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

TEST_F(Chip, FieldsWithoutPlace) {
    find(load(zel8("SFRFLD=A,FF2,0,1\n[NEXT]\n")), "WREG");
    EXPECT_TRUE(has(919, "SFRFLD (A) at an address without SFR (FF2) for chip ZEL8T1", 15));
    find(load(zel8("SFRFLD=W0,FF3,1,1\n[NEXT]\n")), "WREG");
    EXPECT_TRUE(has(919, "invalid duplicate SFRFLD (W0) for chip ZEL8T1", 15));
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

// What is wrong with the core registers of a sample chip.
static const char *fault_of_sample(const char *name) {
    chipinfo_t *ci = opt.cur_chip = chipinfo_load(nullptr, name);
    sfr_init(ci);
    for (uint32_t id = SFR_TOSU; id < SFR_END; ++id) {
        if (!chip_isSfrCommonAddr(sfr_addrOf(id))) return "a core register is missing or outside the access bank";
        if (sfr_idAt(sfr_addrOf(id)) != id) return "two core registers share an address";
    }
    if (sfr_nameAt(-1) || sfr_nameAt(0) || sfr_addrOf(0) || sfr_addrOf(SFR_END)) return "a register where there is none";
    return "";
}

TEST_F(Chip, CoreRegisters) {
    listen([] {});   // readies the messages
    for (const char *name : {"ZEL8K10", "zel8k20", "ZEL8K30", "ZEL8K40"})   // a process each: looked up once in a run
        EXPECT_EQ(in_child([&] { fputs(fault_of_sample(name), stderr); }).text, "") << name;
    // STATUS falls on WREG's slot of the table; BSR lies where WREG does, and the first of the list stays; PCL is missing.
    chipinfo_t *ci = load(zel8("SFR=BSR,FF3,8\nSFR=STATUS,F73,8\n"));
    EXPECT_EQ(in_child([&] {
        sfr_init(ci);
        fprintf(stderr, "%s %s %X %X", sfr_nameAt(0xFF3), sfr_nameAt(0xF73), sfr_addrOf(SFR_BSR), sfr_addrOf(SFR_PCL));
    }).text, "wreg status FF3 0");
}
