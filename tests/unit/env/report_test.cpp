// What a run tells about itself: the debug file, its package, the HTML report.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <vector>

#include "../common/child.h"
#include "common/alert.h"
#include "common/assertion.h"
#include "common/hash.h"
#include "common/skiplist.h"
#include "env/archive.h"
#include "env/catalogue.h"
#include "env/html.h"
#include "env/osdep.h"
#include "env/qvdebug.h"
#include "env/qvinstdir.h"

[[noreturn]] static void stop(int status) {
    debug_finish();
    exit(status);
}

static const alert_services_t services = {catalogue_path, stop};

// What `body` writes to standard error when it is run in `dir`; a number behind it is its exit status.
template <class F> static std::string said(const scratch_dir_t &dir, F body) {
    outcome_t o = in_child([&] {
        alert_set_services(&services);
        if (chdir(dir.path.c_str()) != 0) abort();
        body();
        debug_finish();
    });
    return o.status == CAME_BACK ? o.text : o.text + std::to_string(o.status);
}

static std::string said_by_option(const scratch_dir_t &dir, const char *list) {
    return said(dir, [&] { debug_option(list); });
}

static std::string warning(const std::string &text) { return "QVDEBUG (warning): " + text + "\n"; }

static std::string files(const scratch_dir_t &dir) {
    if (system(("cd " + dir.path + " && echo $(ls) > .ls").c_str()) != 0) return "?";
    return read_file(dir.path + "/.ls");
}

TEST(DebugOption, FilesAndNames) {
    struct { const char *list, *names; } cases[] = {
        {"assert:fatal,debug:x:y", ""}, {"ADTx,,num:4294967295", "assembler-4294967295.out"},
        {"out:x.log,default,zip", "x.log"}, {"sdb,zip:p.zip", "assembler-1.out p.zip"},
        {"zip", "assembler-1.out qvk_package.zip"},
    };
    for (auto &c : cases) {
        scratch_dir_t dir;
        EXPECT_EQ(said_by_option(dir, c.list), "") << c.list;
        EXPECT_EQ(files(dir), std::string(c.names) + "\n") << c.list;
    }
    EXPECT_EQ(said_by_option({}, "out:no/x"),
              "Non line specific message: (141) can't open debug-out file \"no/x\": No such file or directory\n1");
}

TEST(DebugOption, Warnings) {
    struct { const char *list; std::vector<const char *> texts; } cases[] = {
        {"num,Debug:,assert:,assert:ERROR:x,zip:+a:b,num:4294967296",
         {"option \"num\", must have an argument", "option \"debug\", must have at least one argument",
          "option \"assert\", must have an argument",
          "ignoring extraneous arguments with \"assert\" option, using \"ERROR\"",
          "ignoring extraneous arguments with \"zip\" option, using \"a\"",
          "\"num\" option must be a decimal integer > 0, using \"1\""}},
        {"out:+,zip:.", {"option \"out\", must have a filename argument",
                   "Package zip \".\" already exists and will be over-written",
                   "Unable to remove \".\", it will be updated if possible",
                   "Unable to open package zip file (.) for reading to append \"assembler-1.out\""}},
    };
    for (auto &c : cases) {
        std::string expected;
        for (const char *text : c.texts) expected += warning(text);
        EXPECT_EQ(said_by_option({}, c.list), expected) << c.list;
    }
}

TEST(DebugFile, Lines) {
    scratch_dir_t dir;
    write_file(dir.path + "/x.log", "before\n");
    std::string text = said(dir, [] {
        const char *args[] = {"ASZEL8", "-O", "a.as"};
        debug_log_args(1, args);   // no file yet
        debug_option("out:+x.log,alerts,on,oops");
        debug_log_args(3, args);
        debug_log_args(1, args);
        trace_exit("a/b/src.cpp", 7, "f", nullptr);
        trace_enter("a/b/src.cpp", 10, "f", "%d, %s", 3, "x");
        tracef("a_long_name_of_a_file.cpp", 123, "one %d\n\ntwo\n", 1);
        trace("src.cpp", 12, "");
        trace_exit("src.cpp", 15, "f", "%d", -1);
        debug_finish();
        trace("src.cpp", 16, "late");
    });
    std::string warnings[] = {warning("unknown option \"oops\""), warning("min debug-out indent level reached"),
                              warning("trace (at src.cpp:12) contains no lines")};
    EXPECT_EQ(text, warnings[0] + warnings[1] + warnings[2]);
    EXPECT_EQ(read_file(dir.path + "/x.log"),
              "before\nALERT> " + warnings[0] + "\nAPP: ASSEMBLER\nARGS: -O a.as\nARGS: None\nALERT> " + warnings[1] +
                  "src.cpp:7           > EXIT f()\n"
                  "src.cpp:10          > ENTER f(3, x)\n"
                  "a_long_name_of_a_file.cpp:123>     one 1\n"
                  "a_long_name_of_a_file.cpp:123>     \n"
                  "a_long_name_of_a_file.cpp:123>     two\n"
                  "ALERT> " + warnings[2] +
                  "src.cpp:15          > EXIT f() -> -1\n");
}

// What is switched off is not even evaluated.
TEST(DebugFile, Flags) {
    struct { const char *list, *evaluated; } cases[] = {{"out:x", "0"}, {"out:x,sdb", "1"}, {"out:x,default", "2"}};
    for (auto &c : cases) {
        scratch_dir_t dir;
        EXPECT_EQ(said(dir, [&] {
            int n = 0;
            debug_option(c.list);
            TRACE_ENTER("%d", ++n);
            TRACEF("line %d", ++n);
            fprintf(stderr, "%d", n);
        }), c.evaluated) << c.list;
    }
}

TEST(DebugFile, Statistics) {
    scratch_dir_t dir;
    said_by_option(dir, "adt,out:none");
    EXPECT_EQ(read_file(dir.path + "/none"),
              "# Living Vector Master List:\n# Vector Master List Summary:\n# No hash tables were used\n# None.\n");
    unsigned line = __LINE__ + 4;
    auto use = [] {
        debug_option("out:x,adt");
        for (int i = 0; i < 2; i++) {
            vector_t *v = vec_new();
            for (word_t n = 0; n < 3u + i; n++) vec_add(v, n);
            vec_pop(v);
            if (i) vec_destroy(v);
        }
        hash_destroy(hash_new(1, nullptr, nullptr));
        skiplist_insert(skiplist_new(nullptr, nullptr), 1, 1);
    };
    EXPECT_EQ(said(dir, use), "");
    auto at = [line](unsigned n) { return "report_test.cpp:" + std::to_string(line + n); };
    EXPECT_EQ(read_file(dir.path + "/x"), "# Living Vector Master List:\n" + at(0) + ": most 3, now 2\n"
              "# Vector Master List Summary:\n" + at(0) + ": made 2, living 1, most 4\n"
              "# Hash Table Master List:\n" + at(5) + ": most 0, destroyed\n"
              "# Skiplist Master List:\n" + at(6) + ": most 1, now 1\n");
}

TEST(DebugAssertions, Modes) {
    auto failed = [](const char *list) {
        std::string text = said({}, [&] {
            debug_option(list);
            ASSERTION(1 < 0, "1 < 0");
            fprintf(stderr, "%d", alert_exit_status());
        });
        return text.replace(text.find(".cpp:") + 5, 3, "n");
    };
    const std::string place = "assertion failure: 1 < 0 (report_test.cpp:n) ", where = "Non line specific message: ";
    EXPECT_EQ(failed("assert:Warning"), where + "(1501) " + place + " (warning)\n0");
    EXPECT_EQ(failed("assert:error"), where + "(1502) " + place + "\n1");
    EXPECT_EQ(failed("assert:warning,assert:fatal"), where + "(1503) " + place + "\n1");
}

static std::string unzip(const scratch_dir_t &dir, const std::string &options) {
    std::string out = dir.path + "/.unzip";
    int status = system(("cd " + dir.path + " && unzip " + options + " > .unzip 2>&1").c_str());
    return status == 0 ? read_file(out) : "failed: " + read_file(out);
}

TEST(DebugPackage, MadeReplacedAppended) {
    scratch_dir_t dir;
    EXPECT_EQ(archive_add((dir.path + "/a.zip").c_str(), "dir/old.out", "/proc/self/status"), ARCHIVE_DONE);
    write_file(dir.path + "/qvk_package.zip", "no archive");
    EXPECT_EQ(said_by_option(dir, "zip,on"),
              warning("Package zip \"qvk_package.zip\" already exists and will be over-written"));
    EXPECT_EQ(said(dir, [] {
        debug_option("zip:+a.zip,default,num:2");
        trace("s.cpp", 1, "packed");
    }), "");
    EXPECT_EQ(unzip(dir, "-Z1 qvk_package.zip"), "assembler-1.out\n");
    EXPECT_EQ(unzip(dir, "-Z1 a.zip"), "dir/old.out\nassembler-2.out\n");
    EXPECT_EQ(unzip(dir, "-p a.zip assembler-2.out"), read_file(dir.path + "/assembler-2.out"));
    EXPECT_STREQ(archive_member_name("/a\\b/c"), "SYSTEM_ROOT/a/b/c");
}

TEST(DebugPackage, Failures) {
    scratch_dir_t dir;
    write_file(dir.path + "/bad.zip", "PK\3\4 cut short");
    EXPECT_EQ(said_by_option(dir, "on,zip:+bad.zip"),
              warning("Unable to open package zip file (bad.zip) for reading to append \"assembler-1.out\""));
    EXPECT_EQ(read_file(dir.path + "/bad.zip"), "PK\3\4 cut short");
    EXPECT_EQ(said_by_option(dir, "on,zip:no/a.zip"),
              warning("Unable to init package zip file (no/a.zip) to add \"assembler-1.out\""));
    std::string zip = dir.path + "/a.zip";
    EXPECT_EQ(archive_add(zip.c_str(), "x", (dir.path + "/missing").c_str()), ARCHIVE_NOT_ADDED);
    EXPECT_EQ(archive_add(zip.c_str(), "x", dir.path.c_str()), ARCHIVE_NOT_FINALIZED);   // opens, and can't be read
    EXPECT_FALSE(file_exists(zip.c_str()));
}

TEST(DebugTrace, Installation) {
    scratch_dir_t dir;
    std::string zel = dir.path + "/zel", text;
    EXPECT_EQ(said(dir, [&] {
        const char *root, *version;
        debug_option("on,out:x");
        for (const char *exe_dir : {"", "/bin", "/ZEL/bin"}) qvinst_discover((dir.path + exe_dir).c_str(), &root, &version);
    }), "");
    text = read_file(dir.path + "/x");
    for (std::string line : {std::string("ERROR - the application is not running from a 'bin' directory"),
                             "The 'zel' directory could not be found: \"" + zel + "\"",
                             "Identified as running from the 'zel' directory: \"" + dir.path + "/ZEL\""})
        EXPECT_NE(text.find("> " + line + "\n"), std::string::npos) << text;
}

static const char toc_start[] = "<!-- labelCnt:000: -->\n<i>Table of Contents</i><br>\n";

static void report(const char *file, int depth) {
    HTML_open(file, nullptr, nullptr, nullptr);
    HTML_useTOC(depth);
    const char *arguments[] = {"-x"};
    HTML_commandLine(arguments, 1, "Tool");
}

TEST(Html, OtherRoads) {
    scratch_dir_t dir;
    EXPECT_EQ(said(dir, [] { report("r.html", 2); }), "");   // never closed
    EXPECT_EQ(read_file(dir.path + "/toc_r.html"), toc_start + std::string(" &nbsp <a class=\"\" HREF=\"main_r.html#0\""
                                                   "target=\"main\">Command Line Arguments for Tool</A><br>\n"));
    EXPECT_EQ(said(dir, [] { report("r.html", 1); }), "");   // the heading lies too deep
    EXPECT_EQ(read_file(dir.path + "/toc_r.html"), toc_start);
    EXPECT_EQ(read_file(dir.path + "/main_r.html"), "<HTML>\n<HEAD>\n</HEAD>\n<BODY>\n<a name=\"CLA\"><h2 class=\"\">"
                                                    "Command Line Arguments for Tool</h2>\n<code>-x</code><br>\n");
    EXPECT_EQ(said(dir, [] { report("no/r.html", 2); }), "(0) Could not open file no/r.html\n1");
    mkdir((dir.path + "/main_x").c_str(), 0700);
    EXPECT_EQ(said(dir, [] { report("x", 2), HTML_close(); }), "(0) Could not open file main_x (warning)\n");
}
