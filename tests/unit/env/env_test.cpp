// The surroundings: paths, temporary files, the installation, the catalogue.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "../common/child.h"
#include "env/catalogue.h"
#include "env/fileutils.h"
#include "env/osdep.h"
#include "env/qvinstdir.h"
#include "env/registry.h"

TEST(Osdep, Paths) {
    EXPECT_STREQ(path_tail("a/b.c"), "b.c");
    EXPECT_STREQ(path_basename("b.c"), "b.c");
    EXPECT_STREQ(path_stem("x.y/a.b.c"), "a.b");
    EXPECT_STREQ(path_stem("x.y/a"), "a");
    EXPECT_STREQ(path_dirname("/a/b"), "/a");
    EXPECT_STREQ(path_dirname("/a"), "");
    EXPECT_EQ(path_dirname("a"), nullptr);
    EXPECT_STREQ(path_extension("a.b.c"), ".c");
    EXPECT_STREQ(path_extension("a"), "");
    EXPECT_STREQ(path_concat("a/", "/b"), "a/b");
    EXPECT_STREQ(path_concat("a", "b"), "a/b");
    EXPECT_EQ(path_concat("", "b"), nullptr);
    EXPECT_EQ(path_concat(nullptr, "b"), nullptr);
    EXPECT_FALSE(file_exists(nullptr));
    EXPECT_TRUE(file_exists("/tmp"));
}

TEST(Osdep, TemporaryFilesGoAtExit) {
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

TEST(Installation, Layouts) {
    scratch_dir_t dir;
    std::string ver = dir.path + "/v1.2";
    for (const char *sub : {"", "/zel"}) mkdir((ver + sub).c_str(), 0700);
    auto version = [](const std::string &exe_dir) -> std::string {
        const char *root = nullptr, *v = nullptr;
        if (!qvinst_discover(exe_dir.c_str(), &root, &v)) return root || v ? "half set" : "none";
        return std::string(v) + " in " + root;
    };
    const std::string found = ver + " in " + dir.path;
    EXPECT_EQ(version(ver + "/bin"), found);
    EXPECT_EQ(version(ver + "/BIN"), found);
    EXPECT_EQ(version(ver + "/zel/bin"), found);
    EXPECT_EQ(version(ver + "/ZEL.x/bin"), found);
    EXPECT_EQ(version(ver + "/zel-as/bin"), found);
    EXPECT_EQ(version(ver + "/zelas/bin"), "none");   // <version> is zelas, and has no zel
    EXPECT_EQ(version(ver + "/binary"), "none");
    EXPECT_EQ(version(dir.path + "/bin"), "none");
    EXPECT_EQ(version("/bin"), "none");
    EXPECT_EQ(version("bin"), "none");
}

TEST(Installation, OfTheBuildTree) {   // <build>/bin/<this program>, and <build>/zel is there
    std::string exe = qvinst_exe_dir(), base = exe.substr(0, exe.rfind('/'));
    EXPECT_EQ(qvinstdir(1), base);
    EXPECT_EQ(qvinstdir(6), base + "/zel");
    EXPECT_EQ(reg_instdir(0), base + "/zel");
    EXPECT_EQ(reg_mkpath(REG_DAT, "x.ini"), base + "/zel/dat/x.ini");
    EXPECT_EQ(reg_mkpath(REG_DOCS, "/x/y"), std::string("/x/y"));
    EXPECT_EQ(reg_instdir(9), nullptr);
    EXPECT_EQ(catalogue_path(), base + "/zel/dat/en_msgs.txt");
    EXPECT_EQ(read_file(catalogue_path()), std::string(reinterpret_cast<const char *>(catalogue_text), catalogue_length));
}

// The same program outside any installation runs the disabled test.
TEST(Installation, None) {
    scratch_dir_t dir;
    std::string exe = dir.path + "/unit";
    std::string run = "cd " + dir.path + " && " + exe + " --gtest_also_run_disabled_tests --gtest_filter=Outside.* > out";
    ASSERT_EQ(system(("cp /proc/" + std::to_string(getpid()) + "/exe " + exe).c_str()), 0);
    EXPECT_EQ(system(run.c_str()), 0) << read_file(dir.path + "/out");
}

TEST(Outside, DISABLED_NoInstallation) {
    EXPECT_EQ(qvinstdir(1), nullptr);
    EXPECT_EQ(reg_mkpath(REG_DAT, "x.ini"), nullptr);
    EXPECT_STREQ(reg_mkpath(REG_DAT, "/x.ini"), "/x.ini");
    std::string path = catalogue_path();
    EXPECT_EQ(path.substr(0, 7), "/tmp/qv");
    EXPECT_EQ(path, catalogue_path());   // made once
    EXPECT_EQ(read_file(path), std::string(reinterpret_cast<const char *>(catalogue_text), catalogue_length));
    write_file("en_msgs.txt", "");
    EXPECT_STREQ(catalogue_path(), "en_msgs.txt");
    remove("en_msgs.txt");
}

TEST(Fileid, Words) {
    scratch_dir_t dir;
    auto word = [&](const char *name) {
        std::string path = dir.path + "/" + name;
        write_file(path, "");
        uint64_t w = fileid(path.c_str());
        remove(path.c_str());
        EXPECT_EQ(fileid(path.c_str()), w | 0x1000) << name;
        return w;
    };
    EXPECT_EQ(word("t.as"), 0x200209u);
    EXPECT_EQ(word("t.I"), 0x100205u);
    EXPECT_EQ(word("t.s"), 0x800209u);
    EXPECT_EQ(word("t.S"), 0x400000020Du);
    EXPECT_EQ(word("t.C"), 0x1203u);
    EXPECT_EQ(word("t.x.rlf"), 0x20000000500u);
    EXPECT_EQ(word("pre"), 0u);   // no dot, no extension
    EXPECT_TRUE(fileid_is_preprocessed(word("t.PRE")));
    EXPECT_TRUE(fileid_is_preprocessed(fileid("missing.i")));
    for (const char *name : {"t.as", "t.sx", "t.obj", "t.inc", "t.h", "t"})
        EXPECT_FALSE(fileid_is_preprocessed(word(name))) << name;
}
