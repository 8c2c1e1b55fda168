// What a run tells about itself: the debug file and its package.
#include <gtest/gtest.h>

#include "../common/child.h"
#include "common/alert.h"
#include "env/archive.h"
#include "env/catalogue.h"
#include "env/qvdebug.h"

[[noreturn]] static void stop(int status) {
    debug_finish();
    exit(status);
}

static const alert_services_t services = {catalogue_path, stop};

// What `body` writes to standard error when it is run in `dir`.
template <class F> static std::string said(const scratch_dir_t &dir, F body) {
    return in_child([&] {
        alert_set_services(&services);
        if (chdir(dir.path.c_str()) != 0) abort();
        body();
        debug_finish();
    }).text;
}

static std::string warning(const std::string &text) { return "QVDEBUG (warning): " + text + "\n"; }

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

static std::string unzip(const scratch_dir_t &dir, const std::string &options) {
    std::string out = dir.path + "/.unzip";
    int status = system(("cd " + dir.path + " && unzip " + options + " > .unzip 2>&1").c_str());
    return status == 0 ? read_file(out) : "failed: " + read_file(out);
}

TEST(DebugPackage, Appended) {
    scratch_dir_t dir;
    EXPECT_EQ(archive_add((dir.path + "/a.zip").c_str(), "dir/old.out", "/proc/self/status"), ARCHIVE_DONE);
    EXPECT_EQ(said(dir, [] {
        debug_option("zip:+a.zip,default,num:2");
        trace("s.cpp", 1, "packed");
    }), "");
    EXPECT_EQ(unzip(dir, "-Z1 a.zip"), "dir/old.out\nassembler-2.out\n");
    EXPECT_EQ(unzip(dir, "-p a.zip assembler-2.out"), read_file(dir.path + "/assembler-2.out"));
    EXPECT_STREQ(archive_member_name("/a\\b/c"), "SYSTEM_ROOT/a/b/c");
}
