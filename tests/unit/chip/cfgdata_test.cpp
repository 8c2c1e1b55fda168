// The configuration data file and the model that is made from it.
#include "chip/cfgdata.h"

#include <gtest/gtest.h>

#include "../common/child.h"
#include "common/alert.h"
#include "common/stringcache.h"
#include "env/catalogue.h"

static int64_t test_line;   // messages of the once form come once a line

struct stop_t {};           // thrown by a fatal message

struct Cfg : testing::Test {
    scratch_dir_t scratch;
    const std::string file = scratch.path + "/c";
    std::string said;       // messages, less the file's directory and the line
    void SetUp() override {
        static const alert_services_t services = {catalogue_path, [](int) { throw stop_t(); }};
        alert_set_services(&services);
        alert_set_emax(1000000);
        alert_set_location("", &test_line, nullptr, nullptr);
    }
    // Runs `body` with a configuration data file of that text.
    template <class F> void with(const std::string &text, F body) {
        write_file(file, text);
        ++test_line;
        testing::internal::CaptureStderr();
        try {
            cfg_set_file(file.c_str());
            body();
        } catch (const stop_t &) {
        }
        said = testing::internal::GetCapturedStderr();
        for (const std::string &piece : {std::to_string(test_line) + ": ", scratch.path + "/"})
            for (size_t at; (at = said.find(piece)) != std::string::npos;) said.erase(at, piece.size());
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
        {"CWORD :1:1:1", false}, {"no colon", false}, {"CMSG:S=ON", false}, {"CMSG:S=ON:4294967296", false},
        {"CWORD:2:2", true}, {"CWORD:0x:1:1", true}, {"CWORD:-1:1:1", true}, {"CWORD:2:1:10000000000000000", true},
        {"CWORD:100:1:1:again", true}, {"CSETTING:0:S:no bit", true}, {"CSETTING:1:,:no name", true}};
    const std::string good = "CWORD:100:FF:FF:W\nCSETTING:1:S:\n", model_of_good = "100 FF FF <W>\n 1 <S> {}\n";
    for (const auto &b : bad) {
        with(good + b.line + "\nCVALUE:1:ON:\nCWORD:101:1:1\n", [&] {
            EXPECT_EQ(model(), model_of_good + (b.ends_setting ? "" : "  1 <ON> {}\n") + "101 1 1\n") << b.line;
        });
        EXPECT_EQ(said, syntax + "3\n" + (strncmp(b.line, "CWORD:", 6) == 0 ? syntax + "4\n" : "")) << b.line;
    }
    // Too long by one, a NUL in a record, a line of one NUL, no end to it.
    with(good + "CSETTING:1:L:" + std::string(1024 - 13, 'x') + std::string("\nCWORD:2:1:1:a\0b\n\0\nCWORD:", 25) +
         std::string(3 << 20, '1'), [&] { EXPECT_EQ(model(), model_of_good); });
    EXPECT_EQ(said, syntax + "3\n" + syntax + "4\n" + syntax + "5\n" + syntax + "6\n");
}
