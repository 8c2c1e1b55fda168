// The surroundings: temporary files, the installation, the catalogue, the debug file and its package.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "../common/child.h"
#include "common/alert.h"
#include "env/archive.h"
#include "env/catalogue.h"
#include "env/fileutils.h"
#include "env/osdep.h"
#include "env/qvdebug.h"
#include "env/qvinstdir.h"
#include "env/registry.h"

TEST(Osdep, TemporaryFilesGoAtExit)
{
    outcome_t o = in_child([] {
        const char *gone = tmp_file_name(), *kept = tmp_file_name();
        remove(gone);
        scratch_dir_t *dir = new scratch_dir_t;   // not removed by its destructor
        mkdir((dir->path + "/sub").c_str(), 0700);
        write_file(dir->path + "/sub/file", "x");
        tmp_remove_at_exit(dir->path.c_str());
        fprintf(stderr, "%s\n%s\n%d%d", kept, dir->path.c_str(), file_exists(kept), strncmp(kept, "/tmp/qv", 7));
    });
    size_t a = o.text.find('\n'), b = o.text.find('\n', a + 1);
    ASSERT_NE(b, std::string::npos);
    EXPECT_EQ(o.text.substr(b), "\n10");
    EXPECT_FALSE(file_exists(o.text.substr(0, a).c_str()));
    EXPECT_FALSE(file_exists(o.text.substr(a + 1, b - a - 1).c_str()));
}

TEST(Installation, Layouts)
{
    scratch_dir_t dir;
    std::string ver = dir.path + "/v1.2";
    for (const char *sub : {"", "/zel"})
        mkdir((ver + sub).c_str(), 0700);
    auto version = [](const std::string &exe_dir) -> std::string {
        const char *root = nullptr, *v = nullptr;
        if (!qvinst_discover(exe_dir.c_str(), &root, &v))
            return root || v ? "half set" : "none";
        return std::string(v) + " in " + root;
    };
    const std::string found = ver + " in " + dir.path;
    for (const char *bin : {"/bin", "/BIN", "/zel/bin", "/ZEL.x/bin", "/zel-as/bin"})
        EXPECT_EQ(version(ver + bin), found);
    for (const std::string &bin : {ver + "/zelas/bin", dir.path + "/bin", std::string("/bin"), std::string("bin")})
        EXPECT_EQ(version(bin), "none") << bin;   // the first: <version> is zelas, and has no zel
}

[[noreturn]] static void stop(int status)
{
    debug_finish();
    exit(status);
}

static const alert_services_t services = {catalogue_path, stop};

// What `body` writes to standard error when it is run in `dir`.
template <class F> static std::string said(const scratch_dir_t &dir, F body)
{
    return in_child([&] {
               alert_set_services(&services);
               if (chdir(dir.path.c_str()) != 0)
                   abort();
               body();
               debug_finish();
           })
        .text;
}

TEST(DebugFile, Traces)
{
    scratch_dir_t dir;
    EXPECT_EQ(said(dir,
                   [] {
                       trace("src.cpp", 1, "no file yet");
                       debug_option("out:x.log,alerts");
                       trace_exit("a/b/src.cpp", 7, "f", nullptr);
                       trace_enter("a/b/src.cpp", 10, "f", "%d, %s", 3, "x");
                       tracef("a_long_name_of_a_file.cpp", 123, "one %d\n\ntwo\n", 1);
                       trace("src.cpp", 12, "");
                       trace_exit("src.cpp", 15, "f", "%d", -1);
                       debug_finish();
                       trace("src.cpp", 16, "late");
                   }),
              "QVDEBUG (warning): min debug-out indent level reached\n"
              "QVDEBUG (warning): trace (at src.cpp:12) contains no lines\n");
    EXPECT_EQ(read_file(dir.path + "/x.log"), "ALERT> QVDEBUG (warning): min debug-out indent level reached\n"
                                              "src.cpp:7           > EXIT f()\n"
                                              "src.cpp:10          > ENTER f(3, x)\n"
                                              "a_long_name_of_a_file.cpp:123>     one 1\n"
                                              "a_long_name_of_a_file.cpp:123>     \n"
                                              "a_long_name_of_a_file.cpp:123>     two\n"
                                              "ALERT> QVDEBUG (warning): trace (at src.cpp:12) contains no lines\n"
                                              "src.cpp:15          > EXIT f() -> -1\n");
}

static std::string unzip(const scratch_dir_t &dir, const std::string &options)
{
    std::string out = dir.path + "/.unzip";
    int status = system(("cd " + dir.path + " && unzip " + options + " > .unzip 2>&1").c_str());
    return status == 0 ? read_file(out) : "failed: " + read_file(out);
}

TEST(DebugPackage, Appended)
{
    scratch_dir_t dir;
    EXPECT_EQ(archive_add((dir.path + "/a.zip").c_str(), "dir/old.out", "/proc/self/status"), ARCHIVE_DONE);
    EXPECT_EQ(said(dir,
                   [] {
                       debug_option("zip:+a.zip,default,num:2");
                       trace("s.cpp", 1, "packed");
                   }),
              "");
    EXPECT_EQ(unzip(dir, "-Z1 a.zip"), "dir/old.out\nassembler-2.out\n");
    EXPECT_EQ(unzip(dir, "-p a.zip assembler-2.out"), read_file(dir.path + "/assembler-2.out"));
    EXPECT_STREQ(archive_member_name("/a\\b/c"), "SYSTEM_ROOT/a/b/c");
}
