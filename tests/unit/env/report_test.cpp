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
#include "env/registry.h"

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
        {"", ""}, {"assert:fatal,debug:x:y", ""}, {"on", "assembler-1.out"}, {"num:3,on", "assembler-3.out"},
        {"ADTx,,num:4294967295", "assembler-4294967295.out"}, {"out:x.log", "x.log"}, {"out:x.log,default,zip", "x.log"},
        {"sdb,zip:p.zip", "assembler-1.out p.zip"}, {"zip", "assembler-1.out qvk_package.zip"},
    };
    for (auto &c : cases) {
        scratch_dir_t dir;
        EXPECT_EQ(said_by_option(dir, c.list), "") << c.list;
        EXPECT_EQ(files(dir), std::string(c.names) + "\n") << c.list;
    }
    scratch_dir_t dir;
    EXPECT_EQ(said_by_option(dir, "out:no/x.log"),
              "Non line specific message: (141) can't open debug-out file \"no/x.log\": No such file or directory\n1");
}

TEST(DebugOption, Warnings) {
    const char *number = "\"num\" option must be a decimal integer > 0, using \"7\"";
    const char *no_file = "option \"out\", must have a filename argument";
    struct { const char *list; std::vector<const char *> texts; } cases[] = {
        {"wrong:x,,Debug", {"unknown option \"wrong\"", "option \"debug\", must have at least one argument"}},
        {"num,num:7:8,num:0,num:-1,num:4294967296,num:9x",
         {"option \"num\", must have an argument", "ignoring extraneous arguments with \"num\" option, using \"7\"",
          number, number, number, number}},
        {"assert:,assert:ERROR:x,assert:err",
         {"option \"assert\", must have an argument",
          "ignoring extraneous arguments with \"assert\" option, using \"ERROR\"", "unknown argument (err) given to assert option"}},
        {"zip:+a.zip:b,zip:c.zip", {"ignoring extraneous arguments with \"zip\" option, using \"a.zip\"",
                                    "Zip file already set to \"a.zip\", ignoring addtional zip options"}},
        {"out,out:+,out:a:b,out:+c", {no_file, no_file, "ignoring extraneous arguments with \"out\" option, using \"a\"",
                                      "debug-out file was set to \"a\", resetting to \"c\""}},
        {"zip:sub", {"Package zip \"sub\" already exists and will be over-written",
                     "Unable to remove \"sub\", it will be updated if possible",
                     "Unable to open package zip file (sub) for reading to append \"assembler-1.out\""}},
    };
    for (auto &c : cases) {
        scratch_dir_t dir;
        mkdir((dir.path + "/sub").c_str(), 0700);
        std::string expected;
        for (const char *text : c.texts) expected += warning(text);
        EXPECT_EQ(said_by_option(dir, c.list), expected) << c.list;
    }
    scratch_dir_t dir;
    std::string extra = said(dir, [] {
        debug_option("assert:ignore");
        debug_option("on");
    });
    EXPECT_EQ(extra, warning("Ignoring extra --qvdebug options"));
    EXPECT_EQ(files(dir), "\n");
}

TEST(DebugFile, Lines) {
    scratch_dir_t dir;
    write_file(dir.path + "/x.log", "before\n");
    std::string text = said(dir, [] {
        const char *at[] = {"aszel8", "@file"}, *args[] = {"ASZEL8", "-O", "a.as"};
        debug_log_args(1, args);   // no file yet
        debug_option("out:+x.log,alerts,on,oops");
        if (!debug_active()) abort();
        debug_log_args(2, at);
        debug_log_args(3, args);
        debug_log_args(1, args);
        trace_exit("a/b/src.cpp", 7, "f", nullptr);
        trace_enter("a/b/src.cpp", 10, "f", "%d, %s", 3, "x");
        tracef("a_long_name_of_a_file.cpp", 123, "one %d\n\ntwo\n", 1);
        trace_enter("src.cpp", 11, "g", nullptr);
        trace("src.cpp", 12, "");
        tracef("src.cpp", 13, "%s", "");
        trace_exit("src.cpp", 14, "g", "%d", -1);
        trace_exit("src.cpp", 15, "f", nullptr);
        debug_finish();
        trace("src.cpp", 16, "late");
        alert_print("late");
    });
    std::string warnings[] = {warning("unknown option \"oops\""), warning("min debug-out indent level reached"),
                              warning("trace (at src.cpp:12) contains no lines"),
                              warning("tracef (at src.cpp:13) contains no lines")};
    EXPECT_EQ(text, warnings[0] + warnings[1] + warnings[2] + warnings[3] + "late\n");
    EXPECT_EQ(read_file(dir.path + "/x.log"),
              "before\nALERT> " + warnings[0] + "\nAPP: ASSEMBLER\nARGS: @file\nARGS: -O a.as\nARGS: None\n"
                  "ALERT> " + warnings[1] +
                  "src.cpp:7           > EXIT f()\n"
                  "src.cpp:10          > ENTER f(3, x)\n"
                  "a_long_name_of_a_file.cpp:123>     one 1\n"
                  "a_long_name_of_a_file.cpp:123>     \n"
                  "a_long_name_of_a_file.cpp:123>     two\n"
                  "src.cpp:11          >     ENTER g()\n"
                  "ALERT> " + warnings[2] + "ALERT> " + warnings[3] +
                  "src.cpp:14          >     EXIT g() -> -1\n"
                  "src.cpp:15          > EXIT f()\n");
}

TEST(DebugFile, FlagsAndMacros) {
    auto traced = [](const char *list, const char *evaluated) {
        scratch_dir_t dir;
        EXPECT_EQ(said(dir, [&] {
            int n = 0;
            debug_option(list);
            TRACE_ENTER("%d", ++n);
            TRACEF("line %d", ++n);
            TRACE_EXIT(nullptr);
            fprintf(stderr, "%d", n);
        }), evaluated) << list;
        return read_file(dir.path + "/x");
    };
    EXPECT_EQ(traced("out:x", "0"), "");
    std::string calls = traced("out:x,sdb", "1"), all = traced("out:x,default", "2");
    EXPECT_NE(calls.find("> ENTER operator()(1)\n"), std::string::npos);
    EXPECT_NE(calls.find("> EXIT operator()()\n"), std::string::npos);
    EXPECT_EQ(calls.find("line"), std::string::npos);
    EXPECT_NE(all.find(">     line 2\n"), std::string::npos);
}

TEST(DebugFile, Statistics) {
    scratch_dir_t dir;
    said(dir, [] {
        vec_new();   // too early to be seen
        debug_option("adt,out:none");
    });
    EXPECT_EQ(read_file(dir.path + "/none"),
              "# Living Vector Master List:\n# Vector Master List Summary:\n# No hash tables were used\n# None.\n");
    unsigned line = __LINE__ + 4;
    auto use = [] {
        debug_option("out:x,adt");
        for (int i = 0; i < 2; i++) {
            vec_t<int> v = vec_make<int>();
            for (int n = 0; n < 3 + i; n++) vec_add(v, n);
            vec_pop(v);
            if (i) vec_destroy(v.raw);
        }
        hash_of<int, int> h = hash_make<int, int>(3, nullptr, nullptr);
        for (int n = 0; n < 5; n++) hash_insert(h, n, n);
        hash_remove(h.raw, 1);
        hash_destroy(hash_new(1, nullptr, nullptr));
        skiplist_insert(skiplist_new(nullptr, nullptr), 1, 1);
    };
    EXPECT_EQ(said(dir, use), "");
    auto at = [line](unsigned n) { return "report_test.cpp:" + std::to_string(line + n); };
    EXPECT_EQ(read_file(dir.path + "/x"), "# Living Vector Master List:\n" + at(0) + ": most 3, now 2\n"
              "# Vector Master List Summary:\n" + at(0) + ": made 2, living 1, most 4\n"
              "# Hash Table Master List:\n" + at(5) + ": most 5, now 4\n" + at(8) + ": most 0, destroyed\n"
              "# Skiplist Master List:\n" + at(9) + ": most 1, now 1\n");
}

TEST(DebugAssertions, Modes) {
    struct { const char *list, *text; } cases[] = {
        {"on", "0"},
        {"assert:ignore", "0"},
        {"assert:Warning", "(1501) assertion failure: n < 0 (report_test.cpp:%)  (warning)\n10"},
        {"assert:error", "(1502) assertion failure: n < 0 (report_test.cpp:%) \n11"},
        {"assert:warning,assert:fatal", "(1503) assertion failure: n < 0 (report_test.cpp:%) \n1"},
    };
    for (auto &c : cases) {
        scratch_dir_t dir;
        std::string text = c.text;
        if (size_t i = text.find('%'); i != std::string::npos)
            text = "Non line specific message: " + text.replace(i, 1, std::to_string(__LINE__ + 4));
        EXPECT_EQ(said(dir, [&] {
            debug_option(c.list);
            int n = 0;
            ASSERTION(n++ < 0, "n < 0");
            fprintf(stderr, n ? "%d%d" : "%d", n, alert_exit_status());
        }), text) << c.list;
    }
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
    EXPECT_NE(unzip(dir, "-tq a.zip").find("No errors"), std::string::npos);
    EXPECT_EQ(unzip(dir, "-p a.zip assembler-2.out"), read_file(dir.path + "/assembler-2.out"));
    EXPECT_EQ(read_file(dir.path + "/assembler-2.out"), "s.cpp:1             > packed\n");
    EXPECT_STREQ(archive_member_name("/a\\b/c"), "SYSTEM_ROOT/a/b/c");
    EXPECT_STREQ(archive_member_name("a/b"), "a/b");
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
    EXPECT_FALSE(file_exists(zip.c_str()));
    EXPECT_EQ(archive_add(zip.c_str(), "x", dir.path.c_str()), ARCHIVE_NOT_FINALIZED);   // opens, and can't be read
    EXPECT_FALSE(file_exists(zip.c_str()));
    EXPECT_EQ(said(dir, [] {   // the user took the file away
        debug_option("on,zip:a.zip");
        remove("assembler-1.out");
    }), "");
    EXPECT_FALSE(file_exists(zip.c_str()));
}

TEST(DebugTrace, MissingInstallation) {
    scratch_dir_t dir;   // a version directory
    std::string self = "cp /proc/" + std::to_string(getpid()) + "/exe " + dir.path;
    std::string filter = " --gtest_also_run_disabled_tests --gtest_filter=Outside.DISABLED_Trace > ls";
    for (const char *place : {"", "/bin", "/zel", "/zel/bin"}) {
        mkdir((dir.path + place).c_str(), 0700);
        ASSERT_EQ(system((self + place + "/unit").c_str()), 0);
    }
    auto trace_of = [&](const char *program) {
        EXPECT_EQ(system(("cd " + dir.path + " && ." + program + filter).c_str()), 0) << read_file(dir.path + "/ls");
        std::string text = read_file(dir.path + "/x"), lines;
        for (size_t i = 0; (i = text.find("> ", i)) != std::string::npos;) {
            size_t end = text.find('\n', i);
            lines += text.substr(i + 2, end - i - 1);
            i = end;
        }
        return lines;
    };
    EXPECT_EQ(trace_of("/unit"), "ERROR - the application is not running from a 'bin' directory\n"
                                 "ERROR - the application is not running from a 'bin' directory\n"
                                 "Could not locate installation directory\n");
    EXPECT_EQ(trace_of("/zel/bin/unit"), "Identified as running from the 'zel' directory: \"" + dir.path + "/zel\"\n");
    ASSERT_EQ(system(("rm -r " + dir.path + "/zel").c_str()), 0);
    std::string missing = "The 'zel' directory could not be found: \"" + dir.path + "/zel\"\n";
    EXPECT_EQ(trace_of("/bin/unit"), missing + missing + "Could not locate installation directory\n");
}

TEST(Outside, DISABLED_Trace) {
    debug_option("on,out:x");
    reg_instdir(REG_BASE);
    debug_finish();
}

static const char toc_start[] = "<!-- labelCnt:000: -->\n<i>Table of Contents</i><br>\n";
static const char toc_entry[] =
    " &nbsp <a class=\"\" HREF=\"main_r.html#0\"target=\"main\">Command Line Arguments for Assembler</A><br>\n";
static const char style[] = "<LINK rel=stylesheet href=\"udf_styles.css\" type=\"text/css\">\n";

static void report(const char *file, int depth = 3) {
    HTML_open(file, "Assembler information for ", file, "udf_styles.css");
    HTML_useTOC(depth);
    HTML_useTOC(depth);
    const char *arguments[] = {"/bin", "-<x>"};
    HTML_anchor("AS");
    HTML_commandLine(arguments, 2, "Assembler");
}

TEST(Html, ThreeFiles) {
    scratch_dir_t dir;
    mkdir((dir.path + "/out").c_str(), 0700);
    for (std::string sub : {"out/", ""}) {
        EXPECT_EQ(said(dir, [&] {
            report((sub + "r.html").c_str());
            HTML_close();
            HTML_close();
        }), "");
        std::string at = dir.path + "/" + sub;
        EXPECT_EQ(read_file(at + "r.html"), "<HTML>\n<HEAD>\n<TITLE>Assembler information for " + sub + "r.html</TITLE>\n" +
                  style +
                  "</HEAD>\n<BODY>\n<frameset rows=\"15%,85%\"><frame name =\"toc\" src=\"toc_r.html\" />"
                  "<frame name =\"main\" src=\"main_r.html\" /></frameset></HTML>\n");
        EXPECT_EQ(read_file(at + "main_r.html"), std::string("<HTML>\n<HEAD>\n") + style +
                  "</HEAD>\n<BODY>\n<a name=\"AS\"><a name=\"CLA\"><a name=\"0\">"
                  "<h2 class=\"\">Command Line Arguments for Assembler</h2>\n"
                  "<code>/bin</code><br>\n<code>-<x></code><br>\n</BODY>\n</HTML>\n");
        std::string toc = std::string(toc_start) + toc_entry;
        EXPECT_EQ(read_file(at + "toc_r.html"), toc.replace(14, 3, "  1"));
    }
}

TEST(Html, OtherRoads) {
    scratch_dir_t dir;
    EXPECT_EQ(said(dir, [] { report("r.html"); }), "");   // never closed
    std::string page = read_file(dir.path + "/main_r.html");
    EXPECT_EQ(read_file(dir.path + "/toc_r.html"), std::string(toc_start) + toc_entry);
    EXPECT_EQ(page.find("</BODY>"), std::string::npos);
    EXPECT_EQ(said(dir, [] { report("r.html", 1); }), "");   // the heading lies too deep
    EXPECT_EQ(read_file(dir.path + "/toc_r.html"), toc_start);
    page = read_file(dir.path + "/main_r.html");
    EXPECT_NE(page.find("<a name=\"CLA\"><h2"), std::string::npos);
    EXPECT_EQ(said(dir, [] {   // no table of contents, title or style
        HTML_close();
        HTML_open("one.html", nullptr, "x", nullptr);
        HTML_close();
    }), "");
    EXPECT_EQ(read_file(dir.path + "/one.html"), "<HTML>\n<HEAD>\n</HEAD>\n<BODY>\n</BODY>\n</HTML>\n");
}

TEST(Html, Failures) {
    scratch_dir_t dir;
    EXPECT_EQ(said(dir, [] { report("no/r.html"); }), "(0) Could not open file no/r.html\n1");
    for (std::string name : {"toc_r.html", "main_r.html"}) {
        mkdir((dir.path + "/" + name).c_str(), 0700);
        EXPECT_EQ(said(dir, [&] {
            report((dir.path + "/r.html").c_str());
            HTML_close();
            alert_set_werror(1);
            fprintf(stderr, "%d", alert_exit_status());
        }), "(0) Could not open file " + name + " (warning)\n0");
        rmdir((dir.path + "/" + name).c_str());
    }
}
