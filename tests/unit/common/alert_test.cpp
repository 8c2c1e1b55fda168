// Diagnostics, line by line as they come out on standard error.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "child.h"
#include "common/alert.h"
#include "common/assertion.h"

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
    "1501 0 assertion failure: %s (%s:%d) \n"
    "1503 F assertion failure: %s (%s:%d) \n"
    "1522 0 assuming %s\n"
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
        alert_set_hook(hook);
        alert_msg(876);
        alert_msg(1522, "access");
        alert_msg(2066, "hello");
        alert_msg_nl(1020, "FOO");
        errno = ENOENT;
        alert_msg(140, "x", "y");
        errno = 0;
        alert_msg(140, "x", "y");
        alert_msg(4711);
        alert_text("E", "CMSG %s", "z");
        alert_text("0", "quoted %d%%", 7);
        alert_numbered_text(9, "m", "nine");
        alert_print("bare %s\n", "line");
    }).text,
        "main.as: 12: (876) syntax error\n"
        "main.as: 12: (1522) assuming access (warning)\n"
        "main.as: 12: hello\n"
        "Non line specific message: (1020) unknown attribute \"FOO\" (warning)\n"
        "main.as: 12: (140) can't open x file \"y\": " + std::string(strerror(ENOENT)) + "\n"
        "main.as: 12: (140) can't open x file \"y\": \n"
        "main.as: 12: (4711) An error, warning or message was generated, but no description is available\n"
        "main.as: 12: (0) CMSG z\n"
        "main.as: 12: (0) quoted 7% (warning)\n"
        "main.as: 12: nine\n"
        "bare line\n\n");
    EXPECT_EQ(reported([] {
        alert_set_location("", &line, nullptr, nullptr);
        alert_msg(876);
        alert_set_location(nullptr, nullptr, nullptr, nullptr);
        alert_msg(876);
        alert_msg_nl(1020, "FOO");
    }).text, "12: (876) syntax error\n(876) syntax error\n"
             "Non line specific message: (1020) unknown attribute \"FOO\" (warning)\n");
}

TEST(Alert, StructuredLines) {
    EXPECT_EQ(reported([] {
        alert_set_structured(1);
        alert_msg(876);
        alert_msg(1522, "a");
        alert_msg(2066, "b");
        alert_msg_nl(1020, "c");
        setenv("OST_WARN_FORMAT", "%a|%%|%x|%n|%m|%s|%", 1);
        const char *start = "abcdef", *at = start + 4;
        alert_set_formats("[%f %l %c] %s", "unused", nullptr);
        alert_set_location("f", &line, &start, &at);
        alert_msg(876);
        errno = EACCES;
        alert_msg(1522, "d");
        alert_set_formats(nullptr, nullptr, nullptr);
        alert_msg(876);
    }).text,
        "main.as: 12: (876) syntax error (error)\n"
        "main.as: 12: (1522) assuming a (warning)\n"
        "main.as: 12: b\n"
        "Non line specific message: : (1020) unknown attribute \"c\" (warning)\n"
        "[f 12 4] syntax error\n"
        "assembler|%|x|1522|" + std::string(strerror(EACCES)) + "|assuming d|\n"
        "f: 12: (876) syntax error (error)\n");
}

TEST(Alert, Cuts) {
    // 510 characters of text with the prefix, 8191 of line with the newline.
    std::string wide(9000, 'x');
    EXPECT_EQ(reported([&] { alert_text("E", "%s", wide.c_str()); }).text, "main.as: 12: (0) " + wide.substr(0, 506) + "\n");
    EXPECT_EQ(reported([&] { alert_msg(2066, wide.c_str()); }).text, "main.as: 12: " + wide.substr(0, 510) + "\n");
    EXPECT_EQ(reported([&] { alert_print("%s", wide.c_str()); }).text, wide.substr(0, 8190) + "\n");
    EXPECT_EQ(reported([&] {
        alert_set_structured(1);
        alert_set_formats(("%n" + wide).c_str(), nullptr, nullptr);
        alert_msg(876);
    }).text, "876" + wide.substr(0, 8187) + "\n");
}

TEST(Alert, ErrorsAndStatus) {
    auto errors = [](unsigned limit, int n) {
        return reported([=] {
            EXPECT_EQ(alert_set_emax(limit), 20u);
            for (int i = 0; i < n; i++) alert_msg(876);
            exit(10 + alert_exit_status());
        });
    };
    EXPECT_EQ(errors(0, 1).text, "main.as: 12: too many errors (1)\n");
    EXPECT_EQ(errors(0, 1).status, 1);
    EXPECT_EQ(errors(2, 3).text,
        "main.as: 12: (876) syntax error\nmain.as: 12: (876) syntax error\nmain.as: 12: too many errors (3)\n");
    EXPECT_EQ(errors(2, 2).status, 11);
    EXPECT_EQ(errors(2, 0).status, 10);
    EXPECT_EQ(reported([] { alert_set_emax(0); alert_text("e", "x"); }).text, "main.as: 12: too many errors (1)\n");
    EXPECT_EQ(reported([] { alert_msg(1522, ""), alert_set_werror(1), exit(10 + alert_exit_status()); }).status, 11);
    EXPECT_EQ(reported([] { alert_text("0", "x"), alert_set_werror(1), exit(10 + alert_exit_status()); }).status, 10);
    outcome_t fatal = reported([] { alert_msg(296); });
    EXPECT_EQ(fatal.text, "main.as: 12: (296) out of memory\n");
    EXPECT_EQ(fatal.status, 1);
    EXPECT_EQ(reported([] { alert_text("F", "x"); }).status, 1);
}

TEST(Alert, LevelsAndOnce) {
    EXPECT_EQ(reported([] {
        alert_set_hook(hook);
        EXPECT_EQ(alert_once(337), 0);
        EXPECT_EQ(alert_set_level(-1), 0);
        EXPECT_EQ(alert_once(337), 1);   // the dropped call left no mark
        EXPECT_EQ(alert_once(337), 0);
        line = 13;
        EXPECT_EQ(alert_once(337), 1);
        EXPECT_EQ(alert_once_nl(1020, "a"), 1);
        EXPECT_EQ(alert_once(1020, "b"), 0);   // same number, file and line
        EXPECT_EQ(alert_msg(337), 1);
        EXPECT_EQ(alert_set_level(1), -1);
        EXPECT_EQ(alert_msg(1522, ""), 0);
        EXPECT_EQ(alert_text("0", "x"), 0);
        EXPECT_EQ(alert_text("2", "level 2"), 1);
        EXPECT_EQ(alert_msg(2066, "messages have no level"), 1);
        alert_set_werror(1);
        exit(10 + alert_exit_status());
    }).text,
        "main.as: 12: (337) line does not have a newline on the end (warning)\n"
        "main.as: 13: (337) line does not have a newline on the end (warning)\n"
        "Non line specific message: (1020) unknown attribute \"a\" (warning)\n"
        "main.as: 13: (337) line does not have a newline on the end (warning)\n"
        "main.as: 13: (0) level 2 (warning)\n"
        "main.as: 13: messages have no level\n");
}

TEST(Alert, DisableList) {
    // Which of an error, a warning, a message and a fatal still come.
    auto left = [](const char *list) {
        return reported([=] {
            alert_set_location(nullptr, nullptr, nullptr, nullptr);
            alert_disable_list(list);
            alert_msg(876);
            alert_msg(1522, "w");
            alert_msg(2066, "m");
            alert_msg(296);
        }).text;
    };
    const std::string e = "(876) syntax error\n", w = "(1522) assuming w (warning)\n", m = "m\n";
    const std::string f = "(296) out of memory\n";
    EXPECT_EQ(left(nullptr), e + w + m + f);
    EXPECT_EQ(left("1522,876,296"), e + m + f);
    EXPECT_EQ(left("876:off,x,,296:off,2066"), w + f);
    EXPECT_EQ(left("0"), e + f);
    EXPECT_EQ(left("4294967295,99999999999999999999,-1,1522"), e + m + f);
}

TEST(Alert, ReplacementTexts) {
    scratch_dir_t dir;
    std::string path = dir.path + "/edf";
    write_file(path, "876 M new text\n1522 9 %d wild\n140 E %s only: %m\n2066 E %s%n\n42 E not known\n1020 0 %5s!\n");
    EXPECT_EQ(reported([&] {
        EXPECT_FALSE(alert_load_file(nullptr));
        EXPECT_FALSE(alert_load_file((path + "x").c_str()));
        EXPECT_FALSE(alert_load_file(dir.path.c_str()));
        EXPECT_TRUE(alert_load_file(path.c_str()));
        EXPECT_TRUE(alert_load_file(path.c_str()));
        alert_msg(876);
        alert_msg(1522, "a");   // %d where the call passes a string: the text stays
        errno = 0;
        alert_msg(140, "x", "y");
        alert_msg(2066, "z");
        alert_msg(1020, "abc");
        alert_msg(42);
    }).text,
        "main.as: 12: (876) new text\n"
        "main.as: 12: (1522) assuming a (warning)\n"
        "main.as: 12: (140) x only: \n"
        "main.as: 12: z\n"
        "main.as: 12: (1020)   abc! (warning)\n"
        "main.as: 12: (42) An error, warning or message was generated, but no description is available\n");
}

TEST(Alert, CatalogueLines) {
    outcome_t o = reported([] {
        alert_msg(10000);
        alert_msg(50);
        alert_msg(51);
        alert_msg(52);
    }, "10000 E largest\n10001 E too large\n-1 E negative\nabc E no number\n\n50 E\n50 E \n50 x odd\n51 E first\n"
       " 51 \t e  second \n52 -3 hidden\n52 e shown");
    std::string bad, name = "Malformed error information on line ";
    for (int n : {12, 13, 14, 15, 16, 17, 18}) bad += name + std::to_string(n) + ", in file " + catalogue + "\n\n";
    EXPECT_EQ(o.text, bad +
        "main.as: 12: (10000) largest\n"
        "main.as: 12: (50) odd (warning)\n"
        "main.as: 12: (51)  second \n"
        "main.as: 12: (52) shown\n");
    o = reported([] { alert_msg(60); }, "60 E " + std::string(300, 'y') + "\n");   // 255 characters a line, then the next
    EXPECT_EQ(o.text, name + "12, in file " + catalogue + "\n\nmain.as: 12: (60) " + std::string(250, 'y') + "\n");
}

TEST(Alert, Assertions) {
    auto fail = [](int mode) {
        return reported([=] {
            assertion_mode = mode;
            bool evaluated = false;
            ASSERTION((evaluated = true, false), "p != NULL");
            exit(evaluated ? 11 : 10);
        });
    };
    EXPECT_EQ(fail(0).status, 10);
    EXPECT_EQ(fail(3).status, 11);
    EXPECT_EQ(fail(1).status, 1);
    EXPECT_EQ(fail(1).text.substr(0, 78), "Non line specific message: (1503) assertion failure: p != NULL (alert_test.cpp");
}
