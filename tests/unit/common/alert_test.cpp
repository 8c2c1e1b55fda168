// Diagnostics, line by line as they come out on standard error.
#include <gtest/gtest.h>

#include "child.h"
#include "common/alert.h"

static std::string catalogue;   // path of the catalogue in use
static int64_t line = 12;

static void hook() { alert_set_location("main.as", &line, nullptr, nullptr); }
static const char *find() { return catalogue.c_str(); }
[[noreturn]] static void stop(int status) { exit(status); }

static const char base_texts[] =
    "# numbers, types, texts\n"
    "296 F out of memory\n"
    "337 -1 line does not have a newline on the end\n"
    "876 E syntax error\n"
    "1020\t0\tunknown attribute \"%s\"\n"
    "1503 F assertion failure: %s (%s:%d) \n";

// The output of `body` with the texts above and `more`, at line 12 of main.as.
template <class F> static std::string reported(F body, const std::string &more = "") {
    static const alert_services_t services = {find, stop};
    scratch_dir_t dir;
    catalogue = dir.path + "/en_msgs.txt";
    write_file(catalogue, base_texts + more);
    return in_child([&] {
        alert_set_services(&services);
        alert_set_formats(nullptr, nullptr, nullptr);
        hook();
        body();
    }).text;
}

TEST(Alert, CutsAndColumn) {
    // 510 characters of text with the prefix, 8191 of line with the newline.
    std::string wide(9000, 'x');
    EXPECT_EQ(reported([&] { alert_text("E", "%s", wide.c_str()); }), "main.as: 12: (0) " + wide.substr(0, 506) + "\n");
    EXPECT_EQ(reported([&] { alert_print("%s", wide.c_str()); }), wide.substr(0, 8190) + "\n");
    EXPECT_EQ(reported([&] {
        alert_set_structured(1);
        alert_set_formats(("%n" + wide).c_str(), nullptr, nullptr);
        alert_msg(876);
        const char *start = "abcdef", *at = start + 4;
        alert_set_formats("[%f %l %c] %s", nullptr, nullptr);
        alert_set_location("f", &line, &start, &at);
        alert_msg(876);
    }), "876" + wide.substr(0, 8187) + "\n[f 12 4] syntax error\n");
}

TEST(Alert, OnceAndDisabled) {
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
        alert_disable_list("4294967295,99999999999999999999,-1,296:off,4711:off");
        EXPECT_EQ(alert_msg(4711), 0);
        alert_msg(296);   // fatal ones are not silenced
    }),
        "main.as: 12: (337) line does not have a newline on the end (warning)\n"
        "Non line specific message: (1020) unknown attribute \"a\" (warning)\n"
        "main.as: 13: (337) line does not have a newline on the end (warning)\n"
        "main.as: 13: (296) out of memory\n");
}

// The first catalogue decides types and levels; of several lines for a number the last one counts.
TEST(Alert, CatalogueLines) {
    const std::string said = reported([] { alert_msg(10000), alert_msg(50), alert_msg(51), alert_msg(60); },
        "10000 E largest\n10001 E too large\n50 x odd\n51 -3 hidden\n 51 \t e  second \n60 E " +
        std::string(300, 'y') + "\n");   // 255 characters make a line, and what follows the next one
    std::string bad;
    for (int n : {8, 9, 13})
        bad += "Malformed error information on line " + std::to_string(n) + ", in file " + catalogue + "\n\n";
    EXPECT_EQ(said, bad + "main.as: 12: (10000) largest\nmain.as: 12: (50) odd (warning)\nmain.as: 12: (51)  second \n"
                          "main.as: 12: (60) " + std::string(250, 'y') + "\n");
}
