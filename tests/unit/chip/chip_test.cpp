// The reader of the chip information file, the record that comes out, and range lists.
#include "chip/chip.h"

#include <gtest/gtest.h>

#include "../common/child.h"
#include "chip/chipinfo.h"
#include "common/alert.h"
#include "common/assertion.h"
#include "env/catalogue.h"

// All that a ZEL8 section needs, in 13 lines with the header; `more` comes behind.
static std::string zel8(const std::string &more = "", const std::string &name = "ZEL8T1")
{
    return "[" + name +
           "]\nARCH=ZEL8\nRAMSIZE=600\nROMSIZE=8000\nCOMMON=0-5F\nSFRCOMMON=F60-FFF\n"
           "GPRBANKS=60-FF,100-1FF\nSFRBANKS=F40-F5F\nCFGMEM=230000-230009\nPCBITS=14\nBSRBITS=4\nSFR=WREG,FF3,8\n"
           "SFRFLD=W0,FF3,0,1\n" +
           more;
}
static std::string show(const memrange_t *list)
{
    std::string text;
    for (char piece[32]; list; list = list->next) {
        snprintf(piece, sizeof piece, "%X-%X ", list->lo, list->hi);
        text += piece;
    }
    return text;
}
static std::string show(vec_t<memrange_t *> ranges)
{
    std::string text;
    for (const memrange_t *r : ranges)
        text += show(r);
    return text;
}

struct stopped_t {
};   // thrown by a fatal message

struct Chip : testing::Test {
    scratch_dir_t scratch;
    std::string said;   // messages, a line each, without the directory's name
    ~Chip() override { chip_select(nullptr); }
    std::string path(const std::string &name) const { return scratch.path + "/" + name; }
    template <class F> void listen(F fn)
    {
        static const alert_services_t services = {catalogue_path, [](int) { throw stopped_t(); }};
        alert_set_services(&services);
        alert_set_formats("%f: (%n) %s", "%f: (%n) %s", nullptr);
        testing::internal::CaptureStderr();
        try {
            fn();
        } catch (const stopped_t &) {
        }
        said = testing::internal::GetCapturedStderr();
        for (size_t at; (at = said.find(path(""))) != std::string::npos;)
            said.erase(at, path("").size());
    }
    // Reads `chip` from a file "f" of that text and looks a register up; null after a fatal message.
    chipinfo_t *load(const std::string &text, const char *chip = "ZEL8T1")
    {
        chipinfo_t *ci = nullptr;
        write_file(path("f"), text);
        listen([&] {
            chipinfo_t *read = chipinfo_load(path("f").c_str(), chip);
            chip_findSFR(read, "WREG");
            ci = read;
        });
        return ci;
    }
    // A file that is refused in that line.
    void fails(const std::string &text, unsigned number, const std::string &words, int line)
    {
        EXPECT_EQ(load(text), nullptr);
        EXPECT_EQ(said, "(" + std::to_string(number) + ") " + words + " in chipinfo file \"f\" at line " +
                            std::to_string(line) + "\n")
            << text;
    }
};

TEST_F(Chip, LinesAndValues)
{
    const std::string filler(3071 - 7, 'x');   // a line that fills the buffer goes on as a further line
    chipinfo_t *ci =
        load("MAKE=Head\nLIB=a\n lib b\n" +
             zel8("PROCID=" + filler + "FAMILY \t=\tTwo = three\nLIB=c\n== =\nSTART=" + std::string(2, '\0') +
                  "\nMAKE=Own\nERRATA=e\r\nDEVIDMEM=1-FFFFFFFF00000005\nEEPROM=240000-2400FF,250000,2503FF\nEEADRBITS=0xA\n"
                  "VOLSFRS=F80-F8F,F90-F9F,F60-F61\nVOLSFRS=0xF70-f7E\nPROBE2RAM=1-2,3-4\nPROBEXROM=5-6\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_EQ(said + ci->c_procid + ci->c_family + ci->c_errata + ci->c_make, filler + "TwoeOwn");
    EXPECT_EQ(vec_size(chipinfo_get_list(ci, "lib")), 1u);   // hides both of the head's
    EXPECT_EQ(show(&ci->c_eeprom), "250000-2503FF ");        // a later pair takes the place
    EXPECT_EQ(show(&ci->c_devidmem), "1-5 ");                // of 64 bits the lower ones
    EXPECT_EQ(show(ci->c_volsfrs), "F60-F61 F70-F7E F80-F9F ");
    EXPECT_EQ(show(ci->c_probe[0]) + show(ci->c_probe[3]), "1-2 3-4 5-6 ");
    EXPECT_EQ(ci->c_romlast, 0x7FFFu);
    EXPECT_EQ(ci->c_eeadrbits, 10u);
    for (const char *bad : {"1G", "0x", "-1", "10000000000000000", "5,6"})
        fails(zel8(std::string("stackdepth=") + bad + "\n"), 1021, "syntax error reading \"STACKDEPTH\" value", 14);
    for (const char *bad : {"10", "20-10", "1-2,3", "x-y", ",", "0-10000000000000000"})
        fails(zel8(std::string("EXTMEM=") + bad + "\n"), 1022, "syntax error reading \"EXTMEM\" range", 14);
}

TEST_F(Chip, Registers)
{
    chipinfo_t *ci = load(zel8("SFR=A,F00,16\nSFR=B,F00,16\nSFR=AL,F00,8\nSFR=LOW,F00,8\nSFR=AH,F01,8\nSFR=C,F02,8\n"
                               "SFRFLD=F,F00,2,3\nSFRFLD=f,F00,0,1\nSFRFLD=F,F00,2,3\nSFRFLD=F,F02,31,9\n"
                               "SFRFLD=G,F02,40,1\nSFRFLD=H,F02,4,32\nSFRFLD=I,F02,0,4294967295\nSFR=N,100000E00,8\n"));
    ASSERT_TRUE(ci) << said;
    sfr_t *a = chip_findSFR(ci, "a"), *al = chip_findSFR(ci, "low"), *ah = chip_findSFR(ci, "AH");
    sfr_t *c = chip_findSFR(ci, "C");
    ASSERT_TRUE(a && al && ah && c);
    EXPECT_EQ(chip_findSFR(ci, "B"), a);
    EXPECT_EQ(a->sfr_width, 16u);
    EXPECT_FALSE(a->sfr_fields);
    EXPECT_EQ(vec_size(a->sfr_kids), 2u);
    EXPECT_EQ(vec_elementAt(a->sfr_kids, 1), ah);
    EXPECT_EQ(ah->sfr_parent, a);
    EXPECT_EQ(c->sfr_parent, nullptr);   // the joined register was full
    EXPECT_EQ(skiplist_lookup(ci->c_sfrtab->sfrsAddrTab, 0xF00), a);
    static const struct {
        sfr_t *owner;
        const char *name;
        uint32_t mask;
    } fields[] = {{al, "F", 0x1C}, {al, "f", 1},         {c, "F", 0x80000000},
                  {c, "G", 0},     {c, "H", 0xFFFFFFF0}, {c, "I", 0xFFFFFFFF}};
    for (const auto &f : fields)
        EXPECT_EQ(skiplist_lookup(f.owner->sfr_fields, f.name)->fld_mask, f.mask) << f.name;
    EXPECT_EQ(chip_findSFR(ci, "N")->sfr_address, 0xE00u);   // out of order, and no harm
    EXPECT_TRUE(load(zel8("SFRFLD=A,FF2,0,1\n"))) << said;
    EXPECT_TRUE(said.empty()) << said;   // of no register: passed over
    assertion_mode = 2;
    load(zel8("SFRFLD=A,FF2,0,1\n"));
    assertion_mode = 0;
    EXPECT_NE(said.find("(1502) assertion failure: sfr != NULL (chip.cpp:"), said.npos) << said;
    write_file(path("zel8t2.ini"), zel8("SFR=LENT,FF5,8\n", "ZEL8T2"));
    ci = load(zel8("ALIAS=ZEL8T2\n"));
    ASSERT_TRUE(ci) << said;
    EXPECT_TRUE(chip_findSFR(ci, "lent")) << said;                         // beside the chip's own file
    EXPECT_FALSE(chip_findSFR(load("ALIAS=ZEL8T2\n" + zel8()), "LENT"));   // of no section
    EXPECT_FALSE(chip_findSFR(load(zel8("ALIAS=ZEL8T2\nALIAS\n")), "LENT"));
    write_file(path("zel8t4.ini"), zel8("ALIAS=ZEL8T5\n", "ZEL8T4"));
    write_file(path("zel8t5.ini"), zel8("ALIAS=ZEL8T4\n", "ZEL8T5"));
    EXPECT_FALSE(load(zel8("ALIAS=ZEL8T4\n")));
    EXPECT_NE(said.find("(919) ALIAS leads from chip to chip without end for chip ZEL8T"), said.npos) << said;
}

TEST_F(Chip, Maximise)
{
    chipinfo_t *ci = load(zel8("EEPROM=240000-2400FF\nEEADRBITS=A\n"));
    ci->c_bsrbits = 2;
    ci->c_sfrcommon = {0x360, 0x3FF, nullptr};
    *vec_elementAt(ci->c_sfrbanks, 0) = {0x1F0, 0x20F, nullptr};
    chip_maximise(ci);
    EXPECT_EQ(ci->c_romlast, 1u << 21);
    EXPECT_EQ(ci->c_eeprom.hi, 0x2403FFu);
    EXPECT_EQ(ci->c_ramsize, 0x400u);
    EXPECT_EQ(show(ci->c_gprbanks), "60-FF 100-1EF 210-2FF 300-35F ");
    ci->c_bsrbits = ci->c_pcbits = ci->c_eeadrbits = UINT32_MAX;   // absurd widths are cut
    vec_elementAt(ci->c_sfrbanks, 0)->hi = UINT32_MAX;
    chip_maximise(ci);
    EXPECT_EQ(ci->c_romlast, 1u << 31);
    EXPECT_EQ(ci->c_ramsize, 1u << 24);
    EXPECT_EQ(show(ci->c_gprbanks), "60-FF 100-1EF 210-2FF 300-35F ");   // old entries beyond the result stay
    ci = load("[ZEL8T1]\nARCH=ZEL2E\nROMSIZE=800\nBANKS=104\nBANKSIZE=80\nPAGESIZE=800\nSTACKDEPTH=8\nPCBITS=B\n"
              "BANKSELBITS=2\nRAMBANK=20-7F,B0-EF\nCOMMON=70-7F\nCONFIG=400-400\nSFR=WREG,3,8\nSFRFLD=W,3,0,1\n");
    chip_maximise(ci);
    EXPECT_EQ(show(ci->c_rambank), "20-7F B0-EF 120-17F 1A0-1FF ");   // offsets 20 to 7F of a bank
}

static memrange_t *parse(const char *text)
{
    memrange_t *list = nullptr, **tail = &list;
    uint32_t lo, hi;
    for (int n; sscanf(text, "%X-%X %n", &lo, &hi, &n) == 2; text += n, tail = &(*tail)->next)
        add_discrete_range(tail, lo, hi, false);
    return list;
}

TEST(Lists, AddAndSubtract)
{
    static const struct {
        const char *before;
        uint32_t lo, hi, page;
        bool join;
        const char *after;
    } sums[] = {
        {"10-20 30-35 ", 5, 0x40, 0, false, "5-40 "},
        {"10-20 30-35 ", 0x12, 0x18, 0, true, "10-20 30-35 "},
        {"10-20 ", 0x21, 0x25, 0, true, "10-25 "},
        {"10-20 30-40 50-60 ", 0x20, 0x30, 0, false, "10-40 50-60 "},
        {"10-20 ", 8, 0xF, 0, true, "8-20 "},
        {"10-20 ", 0xFFFFFFF0, 0xFFFFFFFF, 0, true, "10-20 FFFFFFF0-FFFFFFFF "},
        {"", 0xF0, 0x110, 0x100, false, "F0-FF 100-110 "},
        {"", 0, 0x1FF, 0x100, false, "0-FF 100-1FF "},
        {"", 0xFFFFFEF0, 0xFFFFFFFF, 0x100, false, "FFFFFEF0-FFFFFEFF FFFFFF00-FFFFFFFF "},
    };
    for (const auto &c : sums) {
        memrange_t *list = parse(c.before);
        add_range_split(&list, c.lo, c.hi, c.page, c.join);
        EXPECT_EQ(show(list), c.after) << c.before << " + " << c.lo << "-" << c.hi;
        range_free(list);
    }
    static const struct {
        const char *a, *b, *rest;
    } differences[] = {
        {"0-FF ", "60-7F ", "0-5F 80-FF "},
        {"0-FF 100-1FF ", "", "0-FF 100-1FF "},
        {"10-20 30-40 ", "0-FFFFFFFF ", ""},
        {"0-FF 100-1FF ", "F0-10F ", "0-EF 110-1FF "},
        {"10-20 ", "10-10 20-20 ", "11-1F "},
        {"0-FF 100-1FF 200-2FF ", "40-4F 60-6F 150-FFFFFFFF ", "0-3F 50-5F 70-FF 100-14F "},
    };
    for (const auto &c : differences) {
        memrange_t *a = parse(c.a), *b = parse(c.b);
        EXPECT_EQ(show(range_subtract(a, b)) + show(a) + show(b), std::string(c.rest) + c.a + c.b);
    }
}
