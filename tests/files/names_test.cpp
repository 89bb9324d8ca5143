// File-name building, splitting and the short-name mapping.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/file.h"
#include "vqutil/memory.h"

using namespace files_test;

namespace {

TEST(FileNames, ExtensionsBuildingAndLastComponent) {
  EXPECT_TRUE(DutHasExtension("notes.TXT", ".txt") && DutHasExtension(".cm", ".CM"));
  EXPECT_FALSE(DutHasExtension("cm", ".cm") || DutHasExtension("notes.txt.bak", ".txt"));
  char out[256];
  EXPECT_STREQ(DutBuildFileName(out, "/usr/lib/", "help", ".hlp"), "/usr/lib/help.hlp");
  EXPECT_STREQ(DutBuildFileName(out, "dir", "base", "txt"), "dir/basetxt");  // no dot is invented
  EXPECT_STREQ(DutBuildFileName(out, nullptr, "base", nullptr), "base");
  EXPECT_STREQ(DutBuildFileName(out, "", "base", nullptr), "/base");
  // The destination may be the base directory itself.
  std::strcpy(out, "/opt/");
  EXPECT_STREQ(DutBuildDirName(out, out, "help"), "/opt/help");
  EXPECT_STREQ(DutGetFileName("/a/b/c.txt", out), "c.txt");
  EXPECT_STREQ(DutGetFileName("/a/dir/", out), "");
  char *shared = DutGetFileName("/x/first", nullptr);
  EXPECT_EQ(DutGetFileName("/y/second", nullptr), shared);
  EXPECT_STREQ(shared, "second");
}

// Split into directory, base and extension, the parts build the path again.
TEST(FileNames, ExplodeAndRebuild) {
  const struct {
    const char *path, *dir, *base, *ext;
  } cases[] = {{"/home/u/report.final.txt", "/home/u", "report.final", ".txt"},
               {"README", "", "README", ""},
               {"/etc/.profile", "/etc", ".profile", ""},
               {"/top.c", "/", "top", ".c"},
               {"a.d/file", "a.d", "file", ""}};  // a dot in a directory is no extension
  for (const auto &c : cases) {
    char *dir = nullptr, *base = nullptr, *ext = nullptr;
    ASSERT_TRUE(DutFileExplodeName(c.path, &dir, &base, &ext)) << c.path;
    char rebuilt[256];
    EXPECT_EQ(std::string(dir) + "|" + base + "|" + ext, std::string(c.dir) + "|" + c.base + "|" + c.ext);
    EXPECT_STREQ(*dir != '\0' ? DutBuildFileName(rebuilt, dir, base, ext) : c.path, c.path);
    for (char *part : {dir, base, ext}) DutFree(part);
  }
}

class ShortNames : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("VQ_MAX_BASE_NAME");
    DutSetCheckOnly(0);
  }
  void TearDown() override { SetUp(); }

  // The base for name, or "" when the call failed (then *base must be null).
  std::string base(const std::string &name, int create, bool expect_ok = true) {
    char *b = reinterpret_cast<char *>(0x1);
    D_BOOL ok = DutBuildBaseName(dir.str().c_str(), name.c_str(), &b, create);
    EXPECT_EQ(ok != 0, expect_ok) << name;
    if (!ok) {
      EXPECT_EQ(b, nullptr);
      return "";
    }
    std::string text = b;
    std::strcpy(b, "01234567");  // at least 9 bytes even for a short name
    DutFree(b);
    return text;
  }
  std::string mapFile(const std::string &digits) { return dir.file(digits + ".nam"); }

  TempDir dir;
};

// Plain names up to the limit are their own base; others map to eight hash
// digits, recorded in a map file unless create is 0. Names hash as given;
// two that hash alike (the second character from the end one more, the
// last 27 less) get different digits, the hash going on from the first.
TEST_F(ShortNames, PlainNamesStayOthersMapToHashDigits) {
  EXPECT_EQ(base("abc_123", 1), "abc_123");
  EXPECT_EQ(base("", 1), "");
  EXPECT_EQ(base(std::string(255, 'x'), 1), std::string(255, 'x'));
  EXPECT_TRUE(fs::is_empty(dir.path()));
  EXPECT_EQ(base("My File.txt", 1), "b052727e");
  EXPECT_EQ(readFile(mapFile("b052727e")), "My File.txt\n");
  EXPECT_NE(base("my file.txt", 1), "b052727e");
  EXPECT_EQ(base("long-name-az", 1), "095c4fc2");
  EXPECT_EQ(base("long-name-b_", 1), "964b7924");
  EXPECT_EQ(base("long-name-az", 0), "095c4fc2");
  EXPECT_EQ(readFile(mapFile("964b7924")), "long-name-b_\n");
  auto written = fs::last_write_time(mapFile("964b7924"));
  EXPECT_EQ(base("long-name-b_", 0), "964b7924");
  EXPECT_EQ(fs::last_write_time(mapFile("964b7924")), written);
  std::string digits = base(std::string(256, 'x'), 0);
  EXPECT_EQ(digits.size(), 8u);
  EXPECT_FALSE(fs::exists(mapFile(digits)));
  setenv("VQ_MAX_BASE_NAME", "5", 1);
  EXPECT_EQ(base("abcde", 1), "abcde");
  EXPECT_EQ(base("abcdef", 1).size(), 8u);
}

TEST_F(ShortNames, CheckOnlyCorruptMapUnwritableDirectoryAndBadCreate) {
  std::string known = base("known name", 1);
  DutSetCheckOnly(1);
  EXPECT_EQ(base("known name", 1), known);
  DutErrNumSet(0);
  EXPECT_EQ(base("unknown name", 1, false), "");
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  DutSetCheckOnly(0);
  writeFile(mapFile("b052727e"), "");
  DutErrNumSet(0);
  EXPECT_EQ(base("My File.txt", 1, false), "");
  EXPECT_EQ(DutErrNumGet(), D_ERR_FILE_CORRUPT);
  char *b = reinterpret_cast<char *>(0x1);
  EXPECT_FAILS(DutBuildBaseName((dir.str() + "/missing").c_str(), "x y", &b, 1), D_FALSE, D_ERR_C);
  EXPECT_EQ(b, nullptr);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_FAILS(DutBuildBaseName(".", "x", &b, 2), D_FALSE, D_ERR_VAL_INVALID);
}

}  // namespace
