// The configuration data file, the model that is made from it, and the `config` statements that change the model.
#include "chip/cfgdata.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "../common/child.h"
#include "chip/chipinfo.h"
#include "chip/config.h"
#include "common/alert.h"
#include "common/stringcache.h"
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
        alert_set_emax(1000000);
        alert_set_location("", &test_line, nullptr, nullptr);
        write_file(file, "1386 0 %s %s\n1388 0 %s %lX %lX\n1389 E %s %s %s %s\n1363 E %s %s\n");   // short texts
        alert_load_file(file.c_str());
        chip.c_arch = arch_find("ZEL8");
        chip.c_cfgmem = {0x100, 0x10F, nullptr};
        chip.c_useridmem = {0x200, 0x207, nullptr};
        opt.cur_chip = &chip;
    }
    void TearDown() override { opt.cur_chip = nullptr; }
    // Runs `body` with `path` as the configuration data file.
    template <class F> void reading(const std::string &path, F body) {
        ++test_line;
        testing::internal::CaptureStderr();
        try {
            cfg_set_file(path.c_str());
            body();
        } catch (const stop_t &) {
        }
        said = testing::internal::GetCapturedStderr();
        for (const std::string &piece : {std::to_string(test_line) + ": ", scratch.path + "/"})
            for (size_t at; (at = said.find(piece)) != std::string::npos;) said.erase(at, piece.size());
    }
    template <class F> void with(const std::string &text, F body) {
        write_file(file, text);
        reading(file, body);
    }
};

static std::string hex(uint64_t n) { return cache_printf("%lX", static_cast<unsigned long>(n)); }

static std::string show(vec_t<const char *> names) {
    std::string s;
    for (const char *name : names) s += std::string(" <") + name + ">";
    return s;
}

// The model as text, with "{}" around descriptions.
static std::string model() {
    std::string s;
    cfg_rewind();
    while (const cfg_word_t *w = cfg_next_word()) {
        s += hex(w->address) + " " + hex(w->mask) + " " + hex(w->defvalue) + show(w->names) + "\n";
        for (const cfg_setting_t *set : w->settings) {
            s += " " + hex(set->mask) + show(set->names) + " {" + set->description + "}\n";
            for (const cfg_value_t *v : set->values)
                s += "  " + hex(v->value) + show(v->names) + " {" + v->description + "}\n";
        }
    }
    return s;
}

TEST_F(Cfg, File) {
    const std::string most(1023 - 16, 'd');   // the longest line there may be
    with("# comment: with colon\n\n \t\nCWORD:100:0xFF:0Xf0: A,B \r\nCSETTING:3: S,T, U:  of two: bits  \n"
         "  CVALUE:0x2:ON,1:\nCVALUE:1:OFF\nCSETTING:1:LONG:" + most + "\n#" + std::string(5000, 'x') + "\n"
         "CWORD:FFFFFFFFFFFFFFFF:FFFFFFFFFFFFFFFF:0\nCWORD:0FE:1:1:,Z,,\n"
         "CSETTING:8000000000000000:S:other S\nCMSG:1=1:0", [&] {
        EXPECT_EQ(model(), "100 FF F0 <A> <B>\n 3 < S> <T> < U> {of two: bits}\n  2 <ON> <1> {}\n  1 <OFF> {}\n"
                           " 1 <LONG> {" + most + "}\nFFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFF 0\nFE 1 1 <Z>\n"
                           " 8000000000000000 <S> {other S}\n");
        cfg_word_t *w = cfg_find_word(0x100), *last = cfg_find_word(UINT64_MAX);
        EXPECT_EQ(cfg_find_word_by_name("B"), w);
        EXPECT_FALSE(cfg_find_word_by_name("b") || cfg_find_word(0x100000100) || cfg_find_setting("t"));
        EXPECT_EQ(cfg_find_setting("S")->word, cfg_find_word(0xFE));
        EXPECT_STREQ(cfg_get_setting_name(cfg_find_setting("T")), " S");
        EXPECT_EQ(cfg_get_word_name(last), nullptr);
        EXPECT_TRUE(cfg_word_has_settings(w) && !cfg_word_has_settings(last));
        EXPECT_TRUE(w->state == CFG_UNSET && w->value == 0xF0);
        cfg_sort();
        EXPECT_EQ(model().substr(0, 4), "FE 1");
        EXPECT_EQ(cfg_next_word(), nullptr);
    });
    EXPECT_EQ(said, "(0) CMSG record (at c:13) references undefined CSETTING (1)\n");
    with("CWORD:1:1:1:N\n", [] { EXPECT_EQ(model(), "1 1 1 <N>\n"); });   // the model before is gone
}

static const std::string syntax = "(0) Syntax error in \"c\" line ";

TEST_F(Cfg, BadRecords) {
    // Each stands behind a good word and setting; a value that follows belongs to the last good or bad setting.
    static const struct { const char *line; bool ends_setting; } bad[] = {
        {"CWORD", false}, {"cword:1:1:1", false}, {"CWORD :1:1:1", false}, {"no colon", false}, {":", false},
        {"CMSG:", false}, {"CMSG:S=ON", false}, {"CMSG:S=ON:1x", false}, {"CMSG:S=ON:4294967296", false},
        {"CMSG:S=ON:-1", false},
        {"CWORD:", true}, {"CWORD:2:2", true}, {"CWORD:2::2", true}, {"CWORD:x:1:1", true}, {"CWORD:0x:1:1", true},
        {"CWORD:2:1 1:1", true}, {"CWORD:-1:1:1", true}, {"CWORD:2:1:10000000000000000", true},
        {"CWORD:100:1:1:again", true}, {"CSETTING:0:S:no bit", true}, {"CSETTING:1", true},
        {"CSETTING:1:,:no name", true}, {"CSETTING:g:S:d", true}};
    const std::string good = "CWORD:100:FF:FF:W\nCSETTING:1:S:\n", model_of_good = "100 FF FF <W>\n 1 <S> {}\n";
    for (const auto &b : bad) {
        with(good + b.line + "\nCVALUE:1:ON:\nCWORD:101:1:1\n", [&] {
            EXPECT_EQ(model(), model_of_good + (b.ends_setting ? "" : "  1 <ON> {}\n") + "101 1 1\n") << b.line;
        });
        EXPECT_EQ(said, syntax + "3\n" + (strncmp(b.line, "CWORD:", 6) == 0 ? syntax + "4\n" : "")) << b.line;
    }
    with("CVALUE:1:ON:\nCSETTING:1:S:\nCVALUE:1:ON:\nCWORD:x:1:1\nCSETTING:1:S:\nCWORD:1:1:1:N\n",
         [] { EXPECT_EQ(model(), "1 1 1 <N>\n"); });
    EXPECT_EQ(said, syntax + "1\n" + syntax + "2\n" + syntax + "4\n");
    // Too long by one, a NUL in a record, a line of one NUL, no end to it.
    with(good + "CSETTING:1:L:" + std::string(1024 - 13, 'x') + std::string("\nCWORD:2:1:1:a\0b\n\0\nCWORD:", 25) +
         std::string(3 << 20, '1'), [&] { EXPECT_EQ(model(), model_of_good); });
    EXPECT_EQ(said, syntax + "3\n" + syntax + "4\n" + syntax + "5\n" + syntax + "6\n");

    with(good + "CVALUE:1:ON:\nCSETTING:2:E:\nCMSG:S=ON,X=ON,E=ON:1\nCMSG:S:1\nCMSG:S=ON,:1\nCMSG:=:1\n",
         [] { cfg_ready(); });
    std::string expected;
    for (const char *at : {"5) # CSETTING (X", "5) # CVALUE (ON", "6) # CVALUE (", "7) # CSETTING (", "8) # CSETTING ("})
        expected += "(0) CMSG record (at c:" + std::string(at).replace(3, 1, "references undefined") + ")\n";
    EXPECT_EQ(said, expected);
}

// A word with fields of 3, 2 and 1 bits and a bit that the chip lacks, one without settings, an ID location.
static const std::string words =
    "CWORD:100:7F:D1:W,W2\nCSETTING:7:CLK,OSC:Clock\nCVALUE:0:LOW:\nCVALUE:1:MID,M:\nCSETTING:18:PS:\nCVALUE:8:P1:\n"
    "CSETTING:40:BIT:\nCVALUE:40:ON:\nCVALUE:0:OFF:\nCWORD:101:F:F:V\nCWORD:200:FF:FF:ID\n";

// A statement: "name=value", or "name=#number" with the number in base 16.
static void say(const std::string &s) {
    const size_t at = s.find('=');
    const std::string what = s.substr(0, at), with = s.substr(at + 1);
    if (with[0] == '#') cfg_prog_with_value(what.c_str(), strtoul(with.c_str() + 1, nullptr, 16));
    else cfg_prog_with_name(what.c_str(), with.c_str());
}

TEST_F(Cfg, Statements) {
    // After the statements: contents and state of W, V and ID, P for programmed; the messages.
    static const struct { std::initializer_list<const char *> statements; const char *result, *messages; } cases[] = {
        {{"CLK=LOW", "CLK=MID"}, "D0 0P F 2 FF 2 ", "(1389) setting CLK MID LOW\n"},
        {{"CLK=HIGH", "CLK=low", "clk=LOW"}, "D1 2 F 2 FF 2 ", "(1363) CLK HIGH\n(1363) CLK low\n(1363) clk LOW\n"},
        {{"PS=#2", "PS=#2", "PS=#1", "PS=P1"}, "D1 0P F 2 FF 2 ",
            "(1389) setting PS 0x1 0x2\n(1363) PS 0x1\n(1389) setting PS P1 0x2\n"},
        {{"PS=P1", "PS=#1"}, "C9 0P F 2 FF 2 ", "(1389) setting PS 0x1 P1\n(1363) PS 0x1\n"},
        {{"V=#123", "ID=#0"}, "D1 2 3 1P 0 1P ", "(1388) V 123 F (warning)\n"},
        // The whole word. CLK and BIT are named. What PS has no record names: its default, which leaves it alone; others.
        {{"W2=#50", "BIT=ON", "PS=P1", "CLK=MID"}, "C8 0P F 2 FF 2 ", "(1389) setting CLK MID LOW\n"},
        {{"W=#59", "PS=P1"}, "D9 0P F 2 FF 2 ", "(1386) PS W (warning)\n(1389) setting PS P1 0x3\n"},
        {{"CLK=MID", "W=#52"}, "D2 0P F 2 FF 2 ", "(1386) CLK W (warning)\n(1389) setting CLK 0x2 MID\n"},
    };
    for (const auto &c : cases) {
        std::string result;
        with(words, [&] {
            for (const char *s : c.statements) say(s);
            cfg_rewind();
            while (const cfg_word_t *w = cfg_next_word())
                result += hex(w->value) + " " + std::to_string(w->state) + (w->programmed ? "P " : " ");
        });
        EXPECT_EQ(result, c.result) << *c.statements.begin();
        EXPECT_EQ(said, c.messages) << *c.statements.begin();
    }
}

// The data of the sample chips: each word in one memory and all of it described, names that don't clash, a message.
TEST_F(Cfg, Samples) {
    for (std::string n : {"10", "20", "30", "40"}) {
        outcome_t o = in_child([&] {
            opt.cur_chip = chipinfo_load(nullptr, ("ZEL8K" + n).c_str());
            cfg_set_file(reg_mkpath(REG_DAT, ("cfgdata/zel8k" + n + ".cfgdata").c_str()));
            cfg_rewind();
            unsigned configs = 0, idlocs = 0;
            while (const cfg_word_t *w = cfg_next_word()) {
                const bool is_config = chip_isConfigAddr(static_cast<int64_t>(w->address));
                bool right = is_config != is_useridmem(static_cast<int64_t>(w->address)) && !(w->defvalue & ~w->mask);
                uint64_t covered = 0;
                for (const cfg_setting_t *set : w->settings) {
                    uint64_t seen = 0;
                    for (const cfg_value_t *v : set->values) {
                        right = right && !(v->value & ~set->mask) && *v->description;
                        seen |= uint64_t{1} << (v->value >> cfg_setting_shift(set));
                    }
                    right = right && seen + 1 == uint64_t{2} << (set->mask >> cfg_setting_shift(set));
                    right = right && !(set->mask & covered) && cfg_find_setting(cfg_get_setting_name(set)) == set;
                    covered |= set->mask;
                }
                if (!right || covered != (is_config ? w->mask : 0) || cfg_find_word_by_name(cfg_get_word_name(w)) != w)
                    fprintf(stderr, "word %s\n", cfg_get_word_name(w));
                ++(is_config ? configs : idlocs);
            }
            const chip_ivtenable_t *ivt = opt.cur_chip->c_ivtenable;
            if (ivt && cfg_find_setting(ivt->name)->mask != ivt->value) fprintf(stderr, "%s\n", ivt->name);
            for (const char *s : {"ignore_cmsgs=off", "WDT=OFF", "BROWNOUT=OFF"}) say(s);
            exit(configs >= 6 && configs <= 10 && idlocs >= 4 ? CAME_BACK : 1);
        });
        EXPECT_EQ(o.status, CAME_BACK) << n << o.text;
        EXPECT_EQ(o.text.find("(2102) "), o.text.find('(')) << n << o.text;
        EXPECT_EQ(std::count(o.text.begin(), o.text.end(), '\n'), 1) << n << o.text;
    }
}
