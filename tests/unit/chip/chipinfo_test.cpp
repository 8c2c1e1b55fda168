// The reader of the chip information file: which section is taken, what a line means, what a bad file is told.
#include <random>

#include "chipfile.h"

struct ChipInfo : ChipFile {};

TEST_F(ChipInfo, WhichSection) {
    const std::string longer = zel8("MAKE=long\n", "XZEL8T1");
    chipinfo_t *ci = load(longer + zel8());   // the whole name wins over a tail that comes first
    ASSERT_TRUE(ci) << said;
    EXPECT_STREQ(ci->c_name, "ZEL8T1");
    EXPECT_EQ(ci->c_make, nullptr);
    ASSERT_TRUE(ci = load("# head\n\n" + longer + "[OTHER]\nNONSENSE\n", "8t1"));
    EXPECT_STREQ(ci->c_name, "XZEL8T1");
    EXPECT_STREQ(ci->c_make, "long");
    EXPECT_EQ(said, "");   // sections of other chips are not looked into
    EXPECT_TRUE(load(" \t" + zel8(), ""));
    EXPECT_FALSE(load(zel8() + longer, "t1"));   // two names end in it
    EXPECT_TRUE(has(922, "chip \"t1\" not present in chipinfo file \"f\""));
    EXPECT_FALSE(load(zel8_without("PCBITS") + "[OTHER]\n#\n", "T1"));   // lines are counted on from its header
    EXPECT_TRUE(has(1015, "missing \"PCBITS\" specification", 13));
    EXPECT_FALSE(load(zel8() + "[OTHER]\n", "T1"));   // ends right behind another header

    listen([&] { chipinfo_load(path("none").c_str(), "A"); });
    EXPECT_TRUE(has(141, "can't open chip info file \"none\": No such file or directory"));
    listen([&] { chipinfo_load(nullptr, "NO/SUCH"); });
    EXPECT_TRUE(has(2043, "target device was not recognized"));
    listen([&] { chipinfo_load("/dev/zero", "A"); });
    EXPECT_TRUE(has(919, "too much text in chipinfo file \"/dev/zero\" at line 21846"));
    listen([&] { chipinfo_load(path("").c_str(), "A"); });
    EXPECT_NE(said.find("(141) can't open chip info file \"\": Is a directory"), said.npos) << said;
    EXPECT_FALSE(load(""));
    EXPECT_TRUE(has(920, "empty chipinfo file"));
    const char *found = chip_find_INI_path("Zel8K10");
    EXPECT_TRUE(found && std::string(found).ends_with("/dat/ini/zel8k10.ini"));
    EXPECT_FALSE(chip_find_INI_path("ZEL8K11") || chip_find_INI_path(nullptr));
}

TEST_F(ChipInfo, Architecture) {
    EXPECT_EQ(load("arch : zel8x\n" + zel8_without("ARCH"))->c_arch->mask, 0x100u);
    EXPECT_EQ(load("ARCH=ZEL2\nARCH=ZEL4\n" + zel8())->c_arch->mask, 0x80u);
    EXPECT_TRUE(has(816, "duplicate ARCH specification", 2));
    fails("[ZEL8T1]\nSFR=A,1,8\n", 1026, "missing architecture", 2);
    fails(zel8_without("ARCH", "ARCH=ZEL8\n"), 1026, "missing architecture", 2);   // too late for RAMSIZE
    fails("[ZEL8T1]\nARCH\n", 1024, "syntax error", 2);
    fails("[ZEL8T1]\nARCH=ZEL9\n", 1025, "unknown architecture", 2);
    fails("[ ]\n[]\n", 1024, "syntax error", 2);
    fails("[ZEL8T1]\nARCH=ANY\n", 1015, "missing \"INTSRC\" specification", 2);   // of no family, but with vectors
}

TEST_F(ChipInfo, LinesAndKeys) {
    chipinfo_t *ci = load("PROCID : one rest\nMAKE=Head\nLIB=a\n lib b\n" + zel8(
        "\t\v family \t=\tTwo = three\nMAKE=Own\nLIB=c\nSTART\n== =\n# FAMILY=x\nERRATA=e\r\n[NEXT]\nFAMILY=y\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_EQ(said, "");
    EXPECT_EQ(std::string(ci->c_procid) + " " + ci->c_family + " " + ci->c_errata + " " + ci->c_make, "one Two e Own");
    EXPECT_EQ(vec_size(chipinfo_get_list(ci, "lib")), 1u);   // hides both of the head's
    EXPECT_TRUE(chipinfo_get_list(ci, "START") && !chipinfo_get_value(ci, "START"));
    EXPECT_FALSE(chipinfo_get_list(ci, "MODULE") || chipinfo_get_list(ci, "ARCH"));

    const std::string unknown = zel8("LIBRARY=1\nLIBRARY=2\nSFR:A,1,8\n");
    load(unknown);
    for (const char *what : {"LIBRARY\" in chipinfo file \"f\" at line 15", "SFR:A,1,8\" in chipinfo file \"f\" at line 16"})
        EXPECT_TRUE(has(1020, std::string("unknown attribute \"") + what + " (warning)"));
    load(unknown);
    EXPECT_EQ(said, "");   // these lines have been warned about

}

TEST_F(ChipInfo, Values) {
    chipinfo_t *ci = load(zel8("EEPROM=240000-2400FF,250000,2503FF\nEEADRBITS=0xA\nVOLSFRS=F80-F8F,F90-F9F,F60-F61\nPLIB=1\n"
                               "VOLSFRS=0xF70-f7E\nPROBE2RAM=1-2,3-4\nPROBEXROM=5-6\nFLASH_EW=40,0x20\nSTACKDEPTH=0\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_EQ(show(&ci->c_eeprom), "250000-2503FF ");   // a later pair takes the place
    EXPECT_EQ(show(ci->c_volsfrs), "F60-F61 F70-F7E F80-F9F ");
    EXPECT_EQ(show(ci->c_probe[0]) + show(ci->c_probe[3]), "1-2 3-4 5-6 ");
    EXPECT_TRUE(ci->c_romlast == 0x7FFF && ci->c_eeadrbits == 10 && ci->c_plib == 1);
    EXPECT_TRUE(ci->c_flash_erase == 0x40 && ci->c_flash_write == 0x20 && ci->c_stackdepth == 31);
    for (std::string bad : {"1G", "0x", "-1", "100000000", "5,6"})
        fails(zel8("stackdepth=" + bad + "\n"), 1021, "syntax error reading \"STACKDEPTH\" value", 14);
    for (std::string bad : {"10", "20-10", "1-2,3", "x-y", ",", "0-100000000"})
        fails(zel8("EXTMEM=" + bad + "\n"), 1022, "syntax error reading \"EXTMEM\" range", 14);
    fails(zel8_without("COMMON", "COMMON=0-0,0-5F,60-7F\n"), 919, "Too many COMMON RAM ranges defined for chip ZEL8T1", 13);
    fails(zel8("SFRCOMMON=F00-F01\n"), 919, "Too many SFRCOMMON RAM ranges defined for chip ZEL8T1", 14);
    ci = load(zel8());
    ci->c_common = {};
    listen([&] { chip_addRange(ci, RANGE_COMMON, 2, 1); });
    EXPECT_TRUE(has(919, "Invalid COMMON limits for chip ZEL8T1", 13));
}

TEST_F(ChipInfo, Counts) {
    for (std::string key : {"RAMSIZE", "ROMSIZE", "COMMON", "SFRCOMMON", "GPRBANKS", "SFRBANKS", "CFGMEM", "BSRBITS"})
        fails(zel8_without(key, "[NEXT]\n"), 1015, "missing \"" + key + "\" specification", 13);   // where the section ends
    fails(zel8("EEPROM=10-20\n"), 1015, "missing \"EEADRBITS\" specification", 14);
    EXPECT_TRUE(load(zel8("EEPROM=0-20\n"))) << said;   // only with both bounds non-zero
    fails(zel8("USERIDMEM=1-2\nUSERIDMEM=3-4\n"), 1019, "duplicate \"USERIDMEM\" specification", 15);
    fails(zel8("EXTMEM=1-2\nEXTMEM=1-2\nEXTMEM=1-2\n"), 1018,
          "illegal number of \"EXTMEM\" specifications (3 found; 1 expected)", 16);
    fails(zel8("FLASH_EW=40\n"), 1016, "missing argument(s) to \"FLASH_EW\" specification", 14);

    chipinfo_t *ci = load(zel8("LIB\nSTART=a\nMAKE=a\nMAKE=b\n"));
    auto check = [&](bool required, uint32_t expected, std::initializer_list<const char *> keys) {
        listen([&] { chipinfo_check(ci, required, expected, keys); });
    };
    check(true, 2, {"LIB"});
    EXPECT_TRUE(has(1016, "missing arguments to \"LIB\" specification", 17));
    check(false, 0, {"START", "MAKE"});
    EXPECT_TRUE(has(1017, "extraneous arguments to \"START/MAKE\" specification", 17));
    check(true, 3, {"START", "MAKE"});
    EXPECT_EQ(said, "");
}

TEST_F(ChipInfo, Interrupts) {
    const char *lines[] = {"INTSRC=A,3,timer*one*\nINTSRC=B,0\n", "INTSTAT=FFA,0,1\n", "IVTBASE=F40,08,F41,1,F42,0\n",
                           "IVTENABLE=MV,12\n"};
    const char *keys[] = {"INTSRC", "INTSTAT", "IVTBASE", "IVTENABLE"};
    auto without = [&](int left_out) {
        std::string text;
        for (int i = 0; i < 4; ++i) text += i == left_out ? "" : lines[i];
        return zel8(text, "ZEL8T1", "ZEL8V");
    };
    chipinfo_t *ci = load(without(-1));
    ASSERT_TRUE(ci) << said;
    EXPECT_STREQ(vec_elementAt(ci->c_intsrc->sources, 3)->description, "timer one ");
    EXPECT_TRUE(ci->c_intsrc->highest == 3 && !vec_elementAt(ci->c_intsrc->sources, 1));
    EXPECT_TRUE(ci->c_intstat->address == 0xFFA && ci->c_intstat->bits[1] == 1);
    EXPECT_TRUE(ci->c_ivtbase->addresses[2] == 0xF42 && ci->c_ivtbase->bytes[0] == 8 && ci->c_ivtbase->bytes[1] == 1);
    EXPECT_TRUE(!strcmp(ci->c_ivtenable->name, "MV") && ci->c_ivtenable->value == 12);
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(load(without(i)));
        EXPECT_NE(said.find("(1015) missing \"" + std::string(keys[i]) + "\""), said.npos) << said;
    }
    for (std::string bad : {"INTSRC=A", "INTSTAT=FFA,0", "INTSTAT=FFA,0,x", "INTSTAT", "IVTBASE=1,2,3,4,5,", "IVTENABLE=X",
                            "IVTENABLE"})
        fails(zel8(bad + "\n"), 1016, "missing argument(s) to \"" + bad.substr(0, bad.find('=')) + "\" specification", 14);
    fails(zel8("IVTENABLE=X,\n"), 1016, "missing argument to \"IVTENABLE\" specification", 14);
    for (std::string huge : {"65536", "99999999999999999999"})
        fails(zel8("INTSRC=A," + huge + "\n"), 919, "index of INTSRC (A," + huge + ") out of range for chip ZEL8T1", 14);
}

TEST_F(ChipInfo, MidRange) {
    chipinfo_t *ci = load(mid("ZEL4", "FLASH_WRITE=20\nFLASHTYPE=READWRITE_A\nOSCHOW=CALWORD\nEEPROMINT=NVMREG_INT\n"
                                      "CFGMEM=1-2\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_TRUE(ci->c_romsize == 0x800 && ci->c_romlast == 0);
    EXPECT_TRUE(ci->c_banks == 4 && ci->c_rambanks == 2 && vec_size(ci->c_commons) == 1);   // BANKS in 8 bits
    EXPECT_EQ(ci->c_flash_erase, 0x20u);   // follows FLASH_WRITE while it is 0
    EXPECT_TRUE(ci->c_flashtype == 2 && ci->c_oschow == 2 && ci->c_eeprom_if == 2 && ci->c_cfgmem.lo == 0);
    ci = load(mid("ZEL4EX", "FLASH_ERASE=40\nFLASH_WRITE=20\nLINEARBASE=2000\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_TRUE(ci->c_flash_erase == 0x40 && ci->c_flashtype == 240);
    static const struct { const char *line; unsigned number; const char *text; } bad[] = {
        {"FLASHTYPE=read", 919, "Unknown FLASHTYPE for chip ZEL8T1"}, {"OSCHOW=X", 919, "Unknown OSCHOW for chip ZEL8T1"},
        {"EEPROMINT=X", 919, "Unknown register interface for chip ZEL8T1"},
        {"CONFIG=1-2,3-4", 919, "Too many CONFIG ranges defined for chip ZEL8T1"},
        {"IDLOC=1-2,3-4", 919, "Too many IDLOC ranges defined for chip ZEL8T1"},
        {"LINEARBASE=2000", 1017, "extraneous argument to \"LINEARBASE\" specification"},
    };
    for (const auto &b : bad) fails(mid("ZEL4", b.line), b.number, b.text, 12);
    fails(mid("ZEL4E", ""), 1015, "missing \"LINEARBASE\" specification", 11);
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
    EXPECT_TRUE(find(load("ALIAS=ZEL8T2\n" + zel8()), "LENT"));
    EXPECT_FALSE(find(load("ALIAS=ZEL8T2\n" + zel8("ALIAS\n")), "LENT"));
    chipinfo_t *ci = load(zel8("ALIAS=ZEL8T9\n"));   // not found: its own registers
    EXPECT_TRUE(find(ci, "WREG"));
    EXPECT_FALSE(chipinfo_get_list(ci, "ALIAS"));
    write_file(path("zel8t3.ini"), zel8("", "OTHER"));
    find(load(zel8("ALIAS=ZEL8T3\n")), "WREG");
    EXPECT_TRUE(has(922, "chip \"ZEL8T3\" not present in chipinfo file \"zel8t3.ini\""));
    write_file(path("zel8t4.ini"), zel8("ALIAS=ZEL8T5\n", "ZEL8T4"));
    write_file(path("zel8t5.ini"), zel8("ALIAS=ZEL8T4\n", "ZEL8T5"));
    find(load(zel8("ALIAS=ZEL8T4\n")), "WREG");
    EXPECT_NE(said.find("(919) ALIAS leads from chip to chip without end for chip ZEL8T"), said.npos) << said;
}
