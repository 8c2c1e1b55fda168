// Diagnostics, line by line as they come out on standard error.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "child.h"
#include "common/alert.h"

static std::string catalogue;   // path of the catalogue in use
static int64_t line = 12;

static void hook() { alert_set_location("main.as", &line, nullptr, nullptr); }

static const char *find() { return catalogue.c_str(); }
[[noreturn]] static void stop(int status) { exit(status); }
static const alert_services_t services = {find, stop};

static const char base_texts[] =
    "# numbers, types, texts\n"
    "140 E can't open %s file \"%s\": %m\n"
    "296 F out of memory\n"
    "337 -1 line does not have a newline on the end\n"
    "876 E syntax error\n"
    "1020\t0\tunknown attribute \"%s\"\n"
    "1503 F assertion failure: %s (%s:%d) \n"
    "2066 m %s\n";

// The output of `body` with the texts above and `more`, at line 12 of main.as.
template <class F> static outcome_t reported(F body, const std::string &more = "") {
    scratch_dir_t dir;
    catalogue = dir.path + "/en_msgs.txt";
    write_file(catalogue, base_texts + more);
    return in_child([&] {
        alert_set_services(&services);
        alert_set_formats(nullptr, nullptr, nullptr);
        hook();
        body();
    });
}

TEST(Alert, PlainLines) {
    EXPECT_EQ(reported([] {
        alert_msg_nl(1020, "FOO");
        errno = 0;
        alert_msg(140, "x", "y");
        alert_msg(4711);
        alert_text("E", "CMSG %s", "z");
        alert_text("0", "quoted %d%%", 7);
        alert_numbered_text(9, "m", "nine");
        alert_set_location("", &line, nullptr, nullptr);
        alert_msg(876);
        alert_set_location(nullptr, nullptr, nullptr, nullptr);
        alert_msg_nl(1020, "FOO");
    }).text,
        "Non line specific message: (1020) unknown attribute \"FOO\" (warning)\n"
        "main.as: 12: (140) can't open x file \"y\": \n"
        "main.as: 12: (4711) An error, warning or message was generated, but no description is available\n"
        "main.as: 12: (0) CMSG z\n"
        "main.as: 12: (0) quoted 7% (warning)\n"
        "main.as: 12: nine\n"
        "12: (876) syntax error\n"
        "Non line specific message: (1020) unknown attribute \"FOO\" (warning)\n");
}

TEST(Alert, StructuredLines) {
    EXPECT_EQ(reported([] {
        alert_set_structured(1);
        alert_msg_nl(1020, "c");
        setenv("OST_WARN_FORMAT", "%m|%s", 1);
        const char *start = "abcdef", *at = start + 4;
        alert_set_formats("[%f %l %c] %s", "unused", nullptr);
        alert_set_location("f", &line, &start, &at);
        alert_msg(876);
        errno = EACCES;
        alert_msg(1020, "d");
    }).text,
        "Non line specific message: : (1020) unknown attribute \"c\" (warning)\n"
        "[f 12 4] syntax error\n" +
        std::string(strerror(EACCES)) + "|unknown attribute \"d\"\n");
}

TEST(Alert, Cuts) {
    // 510 characters of text with the prefix, 8191 of line with the newline.
    std::string wide(9000, 'x');
    EXPECT_EQ(reported([&] { alert_text("E", "%s", wide.c_str()); }).text, "main.as: 12: (0) " + wide.substr(0, 506) + "\n");
    EXPECT_EQ(reported([&] { alert_print("%s", wide.c_str()); }).text, wide.substr(0, 8190) + "\n");
    EXPECT_EQ(reported([&] {
        alert_set_structured(1);
        alert_set_formats(("%n" + wide).c_str(), nullptr, nullptr);
        alert_msg(876);
    }).text, "876" + wide.substr(0, 8187) + "\n");
}

TEST(Alert, LimitAndStatus) {
    auto status = [](auto body) {
        outcome_t o = reported([=] { body(), exit(10 + alert_exit_status()); });
        return o.text + std::to_string(o.status);
    };
    EXPECT_EQ(status([] { alert_set_emax(0), alert_msg(876); }), "main.as: 12: too many errors (1)\n1");
    EXPECT_EQ(status([] { alert_set_emax(1), alert_msg(876), alert_text("e", "x"); }),
              "main.as: 12: (876) syntax error\nmain.as: 12: too many errors (2)\n1");
    EXPECT_EQ(status([] { alert_set_werror(1), alert_text("0", "x"); }), "main.as: 12: (0) x (warning)\n10");
    EXPECT_EQ(status([] { alert_set_level(99), alert_text("F", "x"); }), "main.as: 12: (0) x\n1");
}

TEST(Alert, Once) {
    EXPECT_EQ(reported([] {
        alert_set_hook(hook);
        EXPECT_EQ(alert_once(337), 0);
        EXPECT_EQ(alert_set_level(-1), 0);
        EXPECT_EQ(alert_once(337), 1);   // the dropped call left no mark
        EXPECT_EQ(alert_once(337), 0);
        line = 13;
        EXPECT_EQ(alert_once_nl(1020, "a"), 1);
        EXPECT_EQ(alert_once(1020, "b"), 0);   // same number, file and line
        EXPECT_EQ(alert_msg(337), 1);
        EXPECT_EQ(alert_set_level(1), -1);
        EXPECT_EQ(alert_text("0", "x"), 0);
        EXPECT_EQ(alert_text("2", "level 2"), 1);
    }).text,
        "main.as: 12: (337) line does not have a newline on the end (warning)\n"
        "Non line specific message: (1020) unknown attribute \"a\" (warning)\n"
        "main.as: 13: (337) line does not have a newline on the end (warning)\n"
        "main.as: 13: (0) level 2 (warning)\n");
}

TEST(Alert, DisableList) {
    EXPECT_EQ(reported([] {
        alert_disable_list("4294967295,99999999999999999999,-1,296:off,4711:off");
        EXPECT_EQ(alert_msg(4711), 0);
        alert_msg(296);
    }).text, "main.as: 12: (296) out of memory\n");
}

// A replacement that doesn't take the arguments of the call must not be used.
TEST(Alert, ReplacementTexts) {
    scratch_dir_t dir;
    std::string path = dir.path + "/edf";
    write_file(path, "1020 9 %d wild\n2066 E %s%n\n1503 0 %5s!\n");
    EXPECT_EQ(reported([&] {
        EXPECT_FALSE(alert_load_file(nullptr));
        EXPECT_FALSE(alert_load_file(dir.path.c_str()));
        EXPECT_TRUE(alert_load_file(path.c_str()));
        alert_msg(1020, "a");
        alert_msg(2066, "z");
        alert_msg(1503, "abc", "", 0);
    }).text,
        "main.as: 12: (1020) unknown attribute \"a\" (warning)\n"
        "main.as: 12: z\n"
        "main.as: 12: (1503)   abc!\n");
}

// The first catalogue decides types and levels; of several lines for a number the last one counts.
TEST(Alert, CatalogueLines) {
    outcome_t o = reported([] {
        alert_msg(10000);
        alert_msg(50);
        alert_msg(51);
        alert_msg(60);
    }, "10000 E largest\n10001 E too large\n50 x odd\n51 -3 hidden\n 51 \t e  second \n60 E " +
       std::string(300, 'y') + "\n");   // 255 characters make a line, and what follows the next one
    std::string bad;
    for (int n : {10, 11, 15})
        bad += "Malformed error information on line " + std::to_string(n) + ", in file " + catalogue + "\n\n";
    EXPECT_EQ(o.text, bad +
        "main.as: 12: (10000) largest\n"
        "main.as: 12: (50) odd (warning)\n"
        "main.as: 12: (51)  second \n"
        "main.as: 12: (60) " + std::string(250, 'y') + "\n");
}
