// The configuration data file, the model that is made from it, and the `config` statements that change the model.
#include "chip/cfgdata.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "../common/child.h"
#include "chip/chipinfo.h"
#include "chip/config.h"
#include "common/alert.h"
#include "env/catalogue.h"
#include "env/registry.h"

static int64_t test_line;   // messages of the once form come once a line

struct stop_t {};           // thrown by a fatal message

struct Cfg : testing::Test {
    scratch_dir_t scratch;
    const std::string file = scratch.path + "/c";
    std::string said;       // messages, less the file's directory and the line
    chipinfo_t chip = {};
    void SetUp() override {
        static const alert_services_t services = {catalogue_path, [](int) { throw stop_t(); }};
        alert_set_services(&services);
        chip.c_arch = arch_find("ZEL8");
        chip.c_cfgmem = {0x100, 0x10F, nullptr};
        chip.c_useridmem = {0x200, 0x207, nullptr};
        opt.cur_chip = &chip;
        alert_set_emax(1000000);
        alert_set_location("", &test_line, nullptr, nullptr);
    }
    void TearDown() override { opt.cur_chip = nullptr; }
    template <class F> void listen(F body) {
        ++test_line;
        testing::internal::CaptureStderr();
        try {
            body();
        } catch (const stop_t &) {
        }
        said = testing::internal::GetCapturedStderr();
        for (const std::string &piece : {std::to_string(test_line) + ": ", scratch.path + "/"})
            for (size_t at; (at = said.find(piece)) != std::string::npos;) said.erase(at, piece.size());
    }
    // Makes `text` the configuration data and runs `body`.
    template <class F> void with(const std::string &text, F body) {
        write_file(file, text);
        listen([&] {
            cfg_set_file(file.c_str());
            body();
        });
    }
    // The model as text.
    static std::string names(vec_t<const char *> v) {
        std::string s;
        for (const char *name : v) s += (s.empty() ? "" : ",") + std::string("<") + name + ">";
        return s;
    }
    static std::string hex(uint64_t n) {
        char s[20];
        snprintf(s, sizeof s, "%lX", static_cast<unsigned long>(n));
        return s;
    }
    static std::string model() {
        std::string s;
        cfg_rewind();
        while (cfg_word_t *w = cfg_next_word()) {
            s += hex(w->address) + " " + hex(w->mask) + " " + hex(w->defvalue) + " " + names(w->names) + "\n";
            for (cfg_setting_t *set : w->settings) {
                s += " " + hex(set->mask) + " " + names(set->names) + " <" + set->description + ">\n";
                for (cfg_value_t *val : set->values) s += "  " + hex(val->value) + " " + names(val->names) + " <" + val->description + ">\n";
            }
        }
        return s;
    }
};

TEST_F(Cfg, File) {
    const std::string longest = "CSETTING:1:LONG:" + std::string(1023 - 16, 'd');
    with("# comment: with colon\n\n \t\n"
         "CWORD:100:0xFF:0Xf0: A,B \r\n"
         "CSETTING:3: S,T, U:  of two: bits  \n"
         "  CVALUE:0x2:ON,1:\n"
         "CVALUE:1:OFF\n" + longest + "\n#" + std::string(5000, 'x') + "\n"
         "CWORD:FFFFFFFFFFFFFFFF:FFFFFFFFFFFFFFFF:0\n"
         "CWORD:0FE:1:1:,Z,,\n"
         "CSETTING:8000000000000000:S:other S\n"
         "CMSG:1=1:0", [] {
        EXPECT_EQ(model(), "100 FF F0 <A>,<B>\n 3 < S>,<T>,< U> <of two: bits>\n  2 <ON>,<1> <>\n  1 <OFF> <>\n 1 <LONG> <" +
                               std::string(1007, 'd') + ">\nFFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFF 0 \nFE 1 1 <Z>\n 8000000000000000 <S> <other S>\n");
        cfg_word_t *w = cfg_find_word(0x100), *z = cfg_find_word(0xFE);
        EXPECT_EQ(cfg_find_word_by_name("B"), w);
        EXPECT_EQ(cfg_find_word_by_name("b"), nullptr);
        EXPECT_EQ(cfg_find_word(0x100000100), nullptr);
        EXPECT_EQ(cfg_find_setting("S"), vec_elementAt(z->settings, 0));
        EXPECT_EQ(cfg_find_setting("T"), vec_elementAt(w->settings, 0));
        EXPECT_STREQ(cfg_get_setting_name(cfg_find_setting("T")), " S");
        EXPECT_EQ(cfg_find_setting("t"), nullptr);
        EXPECT_TRUE(cfg_word_has_settings(w));
        EXPECT_FALSE(cfg_word_has_settings(cfg_find_word(UINT64_MAX)));
        EXPECT_EQ(cfg_get_word_name(cfg_find_word(UINT64_MAX)), nullptr);
        EXPECT_EQ(w->state, CFG_UNSET);
        EXPECT_EQ(w->value, 0xF0u);
        cfg_sort();
        EXPECT_EQ(model().substr(0, 4), "FE 1");   // addresses are compared as unsigned numbers
        EXPECT_EQ(cfg_next_word(), nullptr);
    });
    EXPECT_EQ(said, "(0) CMSG record (at c:13) references undefined CSETTING (1)\n");
    with("CWORD:1:1:1:N\n", [] { EXPECT_EQ(model(), "1 1 1 <N>\n"); });   // the model before is gone
    with("", [] { EXPECT_TRUE(cfg_ready()); });
    EXPECT_EQ(said, "");
}

TEST_F(Cfg, BadRecords) {
    static const char *const bad[] = {
        "CWORD", "cword:1:1:1", "CWORD :1:1:1", "no colon", ":", "CWORD:", "CWORD:2:2", "CWORD:2::2", "CWORD:x:1:1", "CWORD:0x:1:1", "CWORD:2:1 1:1",
        "CWORD:-1:1:1", "CWORD:2:1:10000000000000000", "CWORD:100:1:1:again", "CSETTING:0:S:no bit", "CSETTING:1", "CSETTING:1:", "CSETTING:1:,:d",
        "CSETTING:g:S:d", "CMSG:", "CMSG:S=ON", "CMSG:S=ON:1x", "CMSG:S=ON:4294967296", "CMSG:S=ON:-1"};
    const std::string good = "CWORD:100:FF:FF:W\nCSETTING:1:S:\n";
    for (std::string line : bad) {
        with(good + line + "\nCVALUE:1:ON:\nCWORD:101:1:1\n", [&] {   // a value behind a bad setting belongs nowhere
            const std::string value = line[0] == 'C' && line[1] != 'M' && line[5] != 0 && line[5] != ' ' ? "" : "  1 <ON> <>\n";
            EXPECT_EQ(model(), "100 FF FF <W>\n 1 <S> <>\n" + value + "101 1 1 \n") << line;
        });
        const bool orphan = line.compare(0, 6, "CWORD:") == 0;   // there is no setting yet
        EXPECT_EQ(said, "(0) Syntax error in \"c\" line 3\n" + std::string(orphan ? "(0) Syntax error in \"c\" line 4\n" : "")) << line;
    }
    with("CVALUE:1:ON:\nCSETTING:1:S:\nCVALUE:1:ON:\nCWORD:x:1:1\nCSETTING:1:S:\nCWORD:1:1:1:N\n", [] { EXPECT_EQ(model(), "1 1 1 <N>\n"); });
    EXPECT_EQ(said, "(0) Syntax error in \"c\" line 1\n(0) Syntax error in \"c\" line 2\n(0) Syntax error in \"c\" line 4\n");

    const std::string record = "CSETTING:1:L:", nul("CWORD:2:1:1:a\0b\n", 16);
    with(good + record + std::string(1024 - record.size(), 'x') + "\n" + nul + std::string(1, '\0') + "\n" + good.substr(0, 18) + std::string(3 << 20, 'y'),
         [] { EXPECT_EQ(model(), "100 FF FF <W>\n 1 <S> <>\n"); });
    const std::string error = "(0) Syntax error in \"c\" line ";
    EXPECT_EQ(said, error + "3\n" + error + "4\n" + error + "5\n" + error + "6\n" + error + "7\n");

    const std::string cmsgs = "CWORD:100:FF:FF\nCSETTING:1:S:\nCVALUE:1:ON:\nCSETTING:2:E:\n";
    with(cmsgs + "CMSG:S=ON,X=ON,E=ON:1\nCMSG:S:1\nCMSG:S=ON,:1\nCMSG:=:1\n", [] { cfg_ready(); });
    const std::string ref = " references undefined ";
    EXPECT_EQ(said, "(0) CMSG record (at c:5)" + ref + "CSETTING (X)\n(0) CMSG record (at c:5)" + ref + "CVALUE (ON)\n(0) CMSG record (at c:6)" + ref +
                        "CVALUE ()\n(0) CMSG record (at c:7)" + ref + "CSETTING ()\n(0) CMSG record (at c:8)" + ref + "CSETTING ()\n");
}

TEST_F(Cfg, NoFile) {
    const std::string what = "can't open configuration registers data file ";
    listen([&] { cfg_set_file((file + "x").c_str()), cfg_find_word(1), ADD_FAILURE(); });
    EXPECT_EQ(said, "(141) " + what + "\"cx\": No such file or directory\n");
    listen([&] { cfg_set_file((scratch.path + "/").c_str()), cfg_rewind(), ADD_FAILURE(); });
    EXPECT_EQ(said, "(141) " + what + "\"\": Is a directory\n");
    listen([&] { cfg_set_file(nullptr), cfg_prog_with_name("pad_punits", "off"), ADD_FAILURE(); });
    EXPECT_EQ(said, "(141) " + what + "\"\": No such file or directory\n");
    write_file(file, "CWORD:100:1:1:W\nCSETTING:1:S:\n");
    outcome_t o = in_child([&] {
        cfg_set_file(file.c_str());
        cfg_disable();
        if (cfg_ready() || cfg_find_word(0x100) || cfg_find_word_by_name("W") || cfg_find_setting("S")) exit(1);
        cfg_rewind();
        cfg_sort();
        if (cfg_next_word()) exit(1);
        cfg_prog_with_value("S", 1);
        cfg_prog_with_value("PAD_punits", 1);
        exit(cfg_options()->pad_punits == 1 ? CAME_BACK : 1);
    });
    EXPECT_EQ(o.status, CAME_BACK);
    EXPECT_NE(o.text.find("(1363) unknown configuration setting/register (S = 0x1) used\n"), std::string::npos) << o.text;
}

// A word with fields of 3, 2 and 1 bits and a bit that the chip lacks, one without settings, an ID location.
static const std::string words = "CWORD:100:7F:D1:W,W2\nCSETTING:7:CLK,OSC:Clock\nCVALUE:0:LOW:\nCVALUE:1:MID,M:\nCSETTING:18:PS:\nCVALUE:8:P1:\n"
                                 "CSETTING:40:BIT:\nCVALUE:40:ON:\nCVALUE:0:OFF:\nCWORD:101:F:F:V\nCWORD:200:FF:FF:ID\n";

TEST_F(Cfg, Statements) {
    // Each a run of its own: the statements, the words' contents and states, P for programmed; the messages.
    struct statement_t { const char *what, *with; uint64_t number; };
    static const struct { statement_t s[3]; const char *result, *messages; } cases[] = {
        {{{"CLK", "MID", 0}, {"OSC", "M", 0}, {}}, "D1 0P F 2 FF 2 ", ""},
        {{{"CLK", "LOW", 0}, {"CLK", "MID", 0}, {}}, "D0 0P F 2 FF 2 ", "(1389) attempt to reprogram configuration setting \"CLK\" with MID (is LOW)\n"},
        {{{"CLK", "HIGH", 0}, {"CLK", "low", 0}, {"clk", "LOW", 0}}, "D1 2 F 2 FF 2 ", "(1363) unknown configuration setting/register (CLK = HIGH) used\n"
            "(1363) unknown configuration setting/register (CLK = low) used\n(1363) unknown configuration setting/register (clk = LOW) used\n"},
        {{{"PS", nullptr, 2}, {"PS", nullptr, 2}, {"PS", "P1", 0}}, "D1 0P F 2 FF 2 ", "(1389) attempt to reprogram configuration setting \"PS\" with P1 (is 0x2)\n"},
        {{{"PS", "P1", 0}, {"PS", nullptr, 1}, {}}, "C9 0P F 2 FF 2 ", "(1389) attempt to reprogram configuration setting \"PS\" with 0x1 (is P1)\n"
            "(1363) unknown configuration setting/register (PS = 0x1) used\n"},
        {{{"W", "MID", 0}, {"none", nullptr, 0xABCDEF0123}, {}}, "D1 2 F 2 FF 2 ",
            "(1363) unknown configuration setting/register (W = MID) used\n(1363) unknown configuration setting/register (none = 0xABCDEF0123) used\n"},
        {{{"V", nullptr, 3}, {"V", nullptr, 3}, {"V", nullptr, 0x4}}, "D1 2 3 1P FF 2 ", "(1389) attempt to reprogram configuration register \"V\" with 0x4 (is 0x3)\n"},
        {{{"V", nullptr, 0x123}, {"ID", nullptr, 0}, {}}, "D1 2 3 1P 0 1P ", "(1388) configuration setting/register of \"V\" with 0x123 will be truncated by 0xF (warning)\n"},
        // The whole word: CLK is named, PS has its default, BIT is named. Then PS gets what no record has.
        {{{"W2", nullptr, 0x50}, {"BIT", "ON", 0}, {"W", nullptr, 0x58}}, "D8 0P F 2 FF 2 ", ""},
        {{{"W", nullptr, 0x59}, {"PS", "P1", 0}, {}}, "D9 0P F 2 FF 2 ",
            "(1386) unable to determine the semantics of the configuration setting \"PS\" for register \"W\" (warning)\n"
            "(1389) attempt to reprogram configuration setting \"PS\" with P1 (is 0x3)\n"},
        {{{"CLK", "MID", 0}, {"W", nullptr, 0x52}, {}}, "D2 0P F 2 FF 2 ",
            "(1386) unable to determine the semantics of the configuration setting \"CLK\" for register \"W\" (warning)\n"
            "(1389) attempt to reprogram configuration setting \"CLK\" with 0x2 (is MID)\n"},
    };
    int number = 0;
    for (const auto &c : cases) {
        std::string text = words, result;
        if (++number == 9) text.replace(text.find("CSETTING:18:PS:\n"), 16, "CSETTING:18:PS:\nCVALUE:18:P3:\n");
        with(text, [&] {
            for (const statement_t &s : c.s)
                if (s.with) cfg_prog_with_name(s.what, s.with);
                else if (s.what) cfg_prog_with_value(s.what, s.number);
            cfg_rewind();
            while (cfg_word_t *w = cfg_next_word()) result += hex(w->value) + " " + std::to_string(w->state) + (w->programmed ? "P " : " ");
        });
        EXPECT_EQ(result, c.result) << number;
        EXPECT_EQ(said, c.messages) << number;
    }
    with(words, [] {
        cfg_prog_with_value("W", 0x50);
        EXPECT_EQ(cfg_find_setting("CLK")->state, CFG_NAME);
        EXPECT_STREQ(cfg_get_value_name(cfg_find_setting("CLK")->current.value), "LOW");
        EXPECT_EQ(cfg_find_setting("PS")->state, CFG_UNSET);
        EXPECT_EQ(cfg_find_setting("BIT")->state, CFG_NAME);
    });
}

TEST_F(Cfg, Options) {
    // The five values after each statement.
    auto options = [] {
        const cfg_options_t *o = cfg_options();
        std::string s;
        for (unsigned n : {o->ignore_cmsgs, o->apply_mask, o->pad_punits, o->default_idlocs, o->default_configs}) s += static_cast<char>('0' + n);
        return s;
    };
    write_file(file, words);
    static const struct { const char *what, *with; uint64_t number; const char *result; } statements[] = {
        {"Ignore_Cmsgs", "OFF", 0, "01001"}, {"apply_mask", nullptr, 0, "00001"}, {"pad_punits", nullptr, 7, "00101"}, {"pad_punits", "auto", 0, "00101"},
        {"default_idlocs", "Auto", 0, "00111"}, {"default_configs", nullptr, 0, "00110"}, {"default_configs", nullptr, 1, "00112"},
        {"default_idlocs", "on", 0, "00112"}, {"default_idlocs", "always", 0, "00122"}, {"ignore_cmsgs", "on", 0, "10122"}};
    outcome_t o = in_child([&] {
        cfg_set_file(file.c_str());
        if (options() != "11001") fprintf(stderr, "at start %s\n", options().c_str());
        for (const auto &s : statements) {
            ++test_line;
            if (s.with) cfg_prog_with_name(s.what, s.with);
            else cfg_prog_with_value(s.what, s.number);
            if (options() != s.result) fprintf(stderr, "%s: %s\n", s.what, options().c_str());
        }
    });
    const std::string error = ": (1361) syntax error in configuration argument\n";
    EXPECT_EQ(o.text, std::to_string(test_line + 4) + error + std::to_string(test_line + 8) + error);
}

TEST_F(Cfg, Messages) {
    // A text that wants arguments comes as it stands: there are none.
    with(words + "CMSG::1507\nCMSG:CLK=MID,BIT=OFF:1519\nCMSG:PS=P1:2066\nCMSG:CLK=MID:1311\nCMSG:CLK=LOW:2069\nCMSG:PS=P1:0\n", [] {
        cfg_prog_with_name("CLK", "MID");
        fputs("-", stderr);
        cfg_prog_with_name("ignore_cmsgs", "off");
        fputs("-", stderr);
        cfg_prog_with_value("PS", 8);   // a number is compared as it was given
        fputs("-", stderr);
        cfg_prog_with_value("PS", 9);
        fputs("-", stderr);
        cfg_prog_with_name("BIT", "OFF");
        cfg_prog_with_name("BIT", "OFF");
        cfg_prog_with_name("ignore_cmsgs", "on");
    });
    EXPECT_EQ(said, "--(1507) asmopt state popped when there was no pushed state (warning)\n%s\n"
                    "(1311) missing configuration setting for config word 0x%X; using default (warning)\n"
                    "-(1389) attempt to reprogram configuration setting \"PS\" with 0x9 (is 0x8)\n(1363) unknown configuration setting/register (PS = 0x9) used\n"
                    "-(1519) note-psects will ignore optimisation-related psect flags  (warning)\n");
}

TEST_F(Cfg, Garbage) {
    // Bytes of the format's own alphabet, and any bytes; what comes behind them is read.
    static const char *const pieces[] = {"CWORD:", "CSETTING:", "CVALUE:", "CMSG:", "S=ON", ",", ":", "FF", "0", "\n", "\n", "x", "=", " ", "\r", "\xFF"};
    uint32_t random = 1;
    auto next = [&] { return (random = random * 1664525 + 1013904223) >> 16; };
    for (int round = 0; round < 60; ++round) {
        std::string text;
        for (int i = 0; i < 2000; ++i) {
            if (round % 2) text += pieces[next() % 16];
            else text += static_cast<char>(next());
        }
        with(text + "\nCWORD:123456789:FF:FF:LAST\nCSETTING:F0:LASTSET:\nCVALUE:10:LASTVALUE:\n", [] {
            cfg_set_ignore_cmsgs(false);
            cfg_rewind();
            while (cfg_word_t *w = cfg_next_word()) {
                cfg_prog_word_literal(w, 0x5A5A5A5A5A5A5A5A);
                for (cfg_setting_t *set : w->settings) cfg_prog_setting_literal(set, UINT64_MAX);
            }
            cfg_set_ignore_cmsgs(true);
            EXPECT_STREQ(cfg_get_word_name(cfg_find_word(0x123456789)), "LAST");
            EXPECT_TRUE(cfg_prog_setting_by_name(cfg_find_setting("LASTSET"), "LASTVALUE"));
        });
    }
}

// What is wrong with the data of a sample chip; "" if nothing is.
static std::string fault_of_sample(const char *chip, const std::string &file) {
    opt.cur_chip = chipinfo_load(nullptr, chip);
    cfg_set_file(reg_mkpath(REG_DAT, file.c_str()));
    cfg_rewind();
    unsigned configs = 0, idlocs = 0;
    while (const cfg_word_t *w = cfg_next_word()) {
        const int64_t address = static_cast<int64_t>(w->address);
        const std::string name = cfg_get_word_name(w) ? cfg_get_word_name(w) : "";
        if (cfg_find_word_by_name(name.c_str()) != w) return name + ": the name isn't its own";
        if (is_useridmem(address)) ++idlocs;
        else if (chip_isConfigAddr(address)) ++configs;
        else return name + ": in neither memory";
        uint64_t covered = 0;
        for (const cfg_setting_t *set : w->settings) {
            const std::string setting = cfg_get_setting_name(set);
            if (cfg_find_setting(setting.c_str()) != set || cfg_find_word_by_name(setting.c_str())) return setting + ": the name isn't its own";
            if (set->mask & (covered | ~w->mask)) return setting + ": bits of another, or none of the chip";
            covered |= set->mask;
            uint64_t seen = 0;
            for (const cfg_value_t *val : set->values) {
                const uint64_t bit = uint64_t{1} << (val->value >> cfg_setting_shift(set));
                if ((val->value & ~set->mask) || (seen & bit) || !*val->description) return setting + ": a value is out of place or there twice";
                seen |= bit;
            }
            if (seen + 1 != uint64_t{2} << (set->mask >> cfg_setting_shift(set))) return setting + ": values are missing";
        }
        if (w->defvalue & ~w->mask) return name + ": default";
        if (cfg_word_has_settings(w) && covered != w->mask) return name + ": bits without a setting";
    }
    if (configs < 6 || configs > 10 || idlocs == 0) return "number of words";
    const chip_ivtenable_t *ivt = opt.cur_chip->c_ivtenable;
    const cfg_setting_t *set = ivt ? cfg_find_setting(ivt->name) : nullptr;
    if (ivt && (!set || set->mask != 1 || ivt->value != 1)) return "interrupt vectors";
    cfg_prog_with_name("ignore_cmsgs", "off");
    cfg_prog_with_name("WDT", "OFF");
    cfg_prog_with_name("BROWNOUT", "OFF");
    return "";
}

TEST_F(Cfg, Samples) {
    for (std::string n : {"10", "20", "30", "40"}) {
        outcome_t o = in_child([&] {
            static const alert_services_t services = {catalogue_path, exit};
            alert_set_services(&services);
                fputs(fault_of_sample(("ZEL8K" + n).c_str(), "cfgdata/zel8k" + n + ".cfgdata").c_str(), stderr);
        });
        EXPECT_EQ(o.status, CAME_BACK) << o.text;
        EXPECT_EQ(o.text.find("(2102)"), o.text.find('(')) << n << o.text;
        EXPECT_EQ(std::count(o.text.begin(), o.text.end(), '\n'), 1) << n << o.text;
    }
}
