// The reader of the chip information file: which section is taken, what a line means, what a bad file is told.
#include <random>

#include "chipfile.h"

struct ChipInfo : ChipFile {};

TEST_F(ChipInfo, WhichSection) {
    const std::string longer = zel8("MAKE=long\n", "XZEL8T1");
    EXPECT_EQ(load(longer + zel8())->c_make, nullptr);   // the whole name wins over a tail that comes first
    EXPECT_FALSE(load(zel8() + longer, "t1"));            // two names end in it
    EXPECT_TRUE(has(922, "chip \"t1\" not present in chipinfo file \"f\""));
    EXPECT_FALSE(load(zel8() + "[OTHER]\n", "T1"));       // ends right behind another header
    EXPECT_FALSE(load(""));
    EXPECT_TRUE(has(920, "empty chipinfo file"));
    listen([&] { chipinfo_load("/dev/zero", "A"); });
    EXPECT_TRUE(has(919, "too much text in chipinfo file \"/dev/zero\" at line 21846"));
    listen([&] { chipinfo_load(path("").c_str(), "A"); });
    EXPECT_NE(said.find("(141) can't open chip info file \"\": Is a directory"), said.npos) << said;
    EXPECT_FALSE(chip_find_INI_path("ZEL8K11") || chip_find_INI_path(nullptr));
}

TEST_F(ChipInfo, LinesAndCounts) {
    chipinfo_t *ci = load("MAKE=Head\nLIB=a\n lib b\n" + zel8("\t\v family \t=\tTwo = three\nLIB=c\n== =\nERRATA=e\r\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_EQ(said + ci->c_family + " " + ci->c_errata + " " + ci->c_make, "Two e Head");
    EXPECT_EQ(vec_size(chipinfo_get_list(ci, "lib")), 1u);   // hides both of the head's
    fails(zel8_without("BSRBITS", "[NEXT]\n"), 1015, "missing \"BSRBITS\" specification", 13);   // where the section ends
    fails(zel8("EEPROM=10-20\n"), 1015, "missing \"EEADRBITS\" specification", 14);
    EXPECT_TRUE(load(zel8("EEPROM=0-20\n"))) << said;   // only with both bounds non-zero
    fails(zel8("USERIDMEM=1-2\nUSERIDMEM=3-4\n"), 1019, "duplicate \"USERIDMEM\" specification", 15);
    fails(zel8("EXTMEM=1-2\nEXTMEM=1-2\nEXTMEM=1-2\n"), 1018,
          "illegal number of \"EXTMEM\" specifications (3 found; 1 expected)", 16);
}

TEST_F(ChipInfo, Architecture) {
    EXPECT_EQ(load("arch : zel8x\n" + zel8_without("ARCH"))->c_arch->mask, 0x100u);
    fails("[ZEL8T1]\nSFR=A,1,8\n", 1026, "missing architecture", 2);
    fails(zel8_without("ARCH", "ARCH=ZEL8\n"), 1026, "missing architecture", 2);   // too late for RAMSIZE
    fails("[ZEL8T1]\nARCH=ZEL9\n", 1025, "unknown architecture", 2);
    fails("[ ]\n[]\n", 1024, "syntax error", 2);
    fails("[ZEL8T1]\nARCH=ANY\n", 1015, "missing \"INTSRC\" specification", 2);   // of no family, but with vectors
}

TEST_F(ChipInfo, Values) {
    chipinfo_t *ci = load(zel8("EEPROM=240000-2400FF,250000,2503FF\nEEADRBITS=0xA\nVOLSFRS=F80-F8F,F90-F9F,F60-F61\nPLIB=1\n"
                               "VOLSFRS=0xF70-f7E\nPROBE2RAM=1-2,3-4\nPROBEXROM=5-6\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_EQ(show(&ci->c_eeprom), "250000-2503FF ");   // a later pair takes the place
    EXPECT_EQ(show(ci->c_volsfrs), "F60-F61 F70-F7E F80-F9F ");
    EXPECT_EQ(show(ci->c_probe[0]) + show(ci->c_probe[3]), "1-2 3-4 5-6 ");
    EXPECT_TRUE(ci->c_romlast == 0x7FFF && ci->c_eeadrbits == 10 && ci->c_plib == 1);
    for (std::string bad : {"1G", "0x", "-1", "100000000", "5,6"})
        fails(zel8("stackdepth=" + bad + "\n"), 1021, "syntax error reading \"STACKDEPTH\" value", 14);
    for (std::string bad : {"10", "20-10", "1-2,3", "x-y", ",", "0-100000000"})
        fails(zel8("EXTMEM=" + bad + "\n"), 1022, "syntax error reading \"EXTMEM\" range", 14);
    fails(zel8_without("COMMON", "COMMON=0-0,0-5F,60-7F\n"), 919, "Too many COMMON RAM ranges defined for chip ZEL8T1", 13);
}

TEST_F(ChipInfo, HostileFiles) {
    std::string filler(3071 - 7, 'x');   // a line that fills the buffer goes on as a further line
    chipinfo_t *ci = load(zel8("PROCID=" + filler + "FAMILY=tail\nSTART=" + std::string(2, '\0') + "\nERRATA=e\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_STREQ(ci->c_procid, filler.c_str());
    EXPECT_STREQ(ci->c_family, "tail");
    EXPECT_STREQ(ci->c_errata, "e");
    EXPECT_EQ(chipinfo_line(), 17);
    // Whatever the bytes are, the read ends with a chip or a message.
    std::mt19937 random(8);
    const std::string whole = zel8("INTSRC=A,1,b\nINTSTAT=1,2,3\nVOLSFRS=1-2,4-5\nSFR=X,F00,16\nSFR=XL,F00,8\n"
                                   "SFRFLD=F,F00,40,90\n");
    for (int i = 0; i < 100; ++i) {
        std::string text = whole;
        for (size_t n = random() % 12; n--;) text[random() % text.size()] = static_cast<char>(random());
        if (i % 3 == 0) text.resize(random() % text.size());
        ci = load(text);
        EXPECT_TRUE(ci || said.find("(") != said.npos) << text;
        if (ci) find(ci, "WREG");
        if (ci) listen([&] { chip_maximise(ci); });
    }
}

TEST_F(ChipInfo, Alias) {
    write_file(path("zel8t2.ini"), zel8("SFR=LENT,FF5,8\n", "ZEL8T2"));
    EXPECT_TRUE(find(load(zel8("ALIAS=ZEL8T2\n")), "lent")) << said;   // beside the chip's own file
    EXPECT_FALSE(find(load("ALIAS=ZEL8T2\n" + zel8("ALIAS\n")), "LENT"));
    write_file(path("zel8t4.ini"), zel8("ALIAS=ZEL8T5\n", "ZEL8T4"));
    write_file(path("zel8t5.ini"), zel8("ALIAS=ZEL8T4\n", "ZEL8T5"));
    find(load(zel8("ALIAS=ZEL8T4\n")), "WREG");
    EXPECT_NE(said.find("(919) ALIAS leads from chip to chip without end for chip ZEL8T"), said.npos) << said;
}
