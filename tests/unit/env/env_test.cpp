// The surroundings: temporary files, kinds of files, the installation, the catalogue.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "../common/child.h"
#include "env/catalogue.h"
#include "env/fileutils.h"
#include "env/osdep.h"
#include "env/qvinstdir.h"
#include "env/registry.h"

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
    for (const char *bin : {"/bin", "/BIN", "/zel/bin", "/ZEL.x/bin", "/zel-as/bin"}) EXPECT_EQ(version(ver + bin), found);
    for (const std::string &bin : {ver + "/zelas/bin", dir.path + "/bin", std::string("/bin"), std::string("bin")})
        EXPECT_EQ(version(bin), "none") << bin;   // the first: <version> is zelas, and has no zel
}

TEST(Installation, OfTheBuildTree) {   // <build>/bin/<this program>, and <build>/zel is there
    std::string exe = qvinst_exe_dir(), base = exe.substr(0, exe.rfind('/'));
    EXPECT_EQ(qvinstdir(1), base);
    EXPECT_EQ(reg_mkpath(REG_DAT, "x.ini"), base + "/zel/dat/x.ini");
    EXPECT_EQ(reg_mkpath(REG_DOCS, "/x/y"), std::string("/x/y"));
    EXPECT_EQ(catalogue_path(), base + "/zel/dat/en_msgs.txt");
    EXPECT_EQ(read_file(catalogue_path()), std::string(reinterpret_cast<const char *>(catalogue_text), catalogue_length));
}

TEST(Fileid, Words) {
    scratch_dir_t dir;
    struct { const char *name; uint64_t word; bool preprocessed; } cases[] = {
        {"t.as", 0x200209, false}, {"t.I", 0x100205, true}, {"t.PRE", 0x80205, true}, {"t.s", 0x800209, false},
        {"t.S", 0x400000020D, false}, {"t.C", 0x1203, false}, {"t.obj", 0, false}, {"pre", 0, false},
    };
    for (auto &c : cases) {
        std::string path = dir.path + "/" + c.name;
        EXPECT_EQ(fileid(path.c_str()), c.word | 0x1000) << c.name;
        write_file(path, "");
        EXPECT_EQ(fileid(path.c_str()), c.word) << c.name;
        EXPECT_EQ(fileid_is_preprocessed(c.word), c.preprocessed) << c.name;
    }
}
