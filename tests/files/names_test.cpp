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

TEST(FileNames, HasExtensionAndBuildNames) {
  const struct {
    const char *name, *ext;
    bool has;
  } extensions[] = {{"notes.TXT", ".txt", true},
                    {".cm", ".CM", true},
                    {"cm", ".cm", false},
                    {"notes.txt.bak", ".txt", false}};
  for (const auto &c : extensions) {
    EXPECT_EQ(DutHasExtension(c.name, c.ext) != 0, c.has) << c.name << " " << c.ext;
  }

  const struct {
    const char *dir, *base, *ext, *expected;
  } builds[] = {{"/usr/lib", "help", ".hlp", "/usr/lib/help.hlp"},
                {"/usr/lib/", "help", ".hlp", "/usr/lib/help.hlp"},
                {"dir", "base", "txt", "dir/basetxt"},  // no dot is invented
                {nullptr, "base", nullptr, "base"},
                {"", "base", nullptr, "/base"}};
  char out[256];
  for (const auto &c : builds) {
    EXPECT_STREQ(DutBuildFileName(out, c.dir, c.base, c.ext), c.expected) << c.expected;
  }
  EXPECT_STREQ(DutBuildDirName(out, "/opt/vq", "standard"), "/opt/vq/standard");
  EXPECT_STREQ(DutBuildDirName(out, "/opt/vq/", "standard"), "/opt/vq/standard");
  // The destination may be the base directory itself.
  std::strcpy(out, "/opt");
  EXPECT_STREQ(DutBuildDirName(out, out, "help"), "/opt/help");
}

TEST(FileNames, GetFileNameCallerAndStaticBuffers) {
  char out[64];
  EXPECT_STREQ(DutGetFileName("/a/b/c.txt", out), "c.txt");
  EXPECT_STREQ(DutGetFileName("plain", out), "plain");
  EXPECT_STREQ(DutGetFileName("/a/dir/", out), "");
  char *shared = DutGetFileName("/x/first", nullptr);
  EXPECT_STREQ(shared, "first");
  EXPECT_EQ(DutGetFileName("/y/second", nullptr), shared);
  EXPECT_STREQ(shared, "second");
}

TEST(FileNames, ExplodeAndRebuild) {
  const struct {
    const char *path, *dir, *base, *ext;
  } cases[] = {{"/home/u/report.final.txt", "/home/u", "report.final", ".txt"},
               {"README", "", "README", ""},
               {"/etc/.profile", "/etc", ".profile", ""},
               {"/top.c", "/", "top", ".c"},
               {"a.d/file", "a.d", "file", ""},  // a dot in a directory is no extension
               {"rel/dir/name.tar", "rel/dir", "name", ".tar"}};
  for (const auto &c : cases) {
    char *dir = nullptr, *base = nullptr, *ext = nullptr;
    ASSERT_TRUE(DutFileExplodeName(c.path, &dir, &base, &ext)) << c.path;
    EXPECT_STREQ(dir, c.dir) << c.path;
    EXPECT_STREQ(base, c.base) << c.path;
    EXPECT_STREQ(ext, c.ext) << c.path;
    if (*dir != '\0') {
      char rebuilt[256];
      EXPECT_STREQ(DutBuildFileName(rebuilt, dir, base, ext), c.path);
    }
    for (char *part : {dir, base, ext}) DutFree(part);
  }
}

// ---- Short names ---------------------------------------------------------

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
    DutFree(b);
    return text;
  }

  std::string mapFile(const std::string &digits) { return dir.file(digits + ".nam"); }

  TempDir dir;
};

TEST_F(ShortNames, PlainNamesUpToTheLimitAreTheirOwnBase) {
  EXPECT_EQ(base("abc_123", 1), "abc_123");
  EXPECT_EQ(base("", 1), "");
  std::string longest(255, 'x');
  EXPECT_EQ(base(longest, 1), longest);
  EXPECT_TRUE(fs::is_empty(dir.path()));
  // At least 9 bytes even for a short name: a caller may write 8 digits.
  char *b = nullptr;
  ASSERT_TRUE(DutBuildBaseName(dir.str().c_str(), "a", &b, 0));
  std::strcpy(b, "01234567");
  EXPECT_STREQ(b, "01234567");
  DutFree(b);

  setenv("VQ_MAX_BASE_NAME", "5", 1);
  EXPECT_EQ(base("abcde", 1), "abcde");
  std::string mapped = base("abcdef", 1);
  EXPECT_EQ(mapped.size(), 8u);
  EXPECT_NE(mapped, "abcdef");
}

TEST_F(ShortNames, LongOrUnusualNamesMapToHashDigits) {
  EXPECT_EQ(base("My File.txt", 1), "b052727e");
  EXPECT_EQ(readFile(mapFile("b052727e")), "My File.txt\n");
  // Case is kept: the file system tells the two apart.
  EXPECT_NE(base("my file.txt", 1), "b052727e");
  std::string too_long(256, 'x');
  std::string digits = base(too_long, 1);
  EXPECT_EQ(digits.size(), 8u);
  EXPECT_EQ(readFile(mapFile(digits)), too_long + "\n");
}

TEST_F(ShortNames, ExistingMappingIsFoundAndCreateZeroDoesNotWrite) {
  std::string first = base("report 2024-01.csv", 1);
  auto written = fs::last_write_time(mapFile(first));
  EXPECT_EQ(base("report 2024-01.csv", 1), first);
  EXPECT_EQ(base("report 2024-01.csv", 0), first);
  EXPECT_EQ(fs::last_write_time(mapFile(first)), written);

  std::string digits = base("no map please!", 0);
  EXPECT_EQ(digits.size(), 8u);
  EXPECT_FALSE(fs::exists(mapFile(digits)));
}

TEST_F(ShortNames, CollisionsGetDifferentDigits) {
  // These two hash alike: the second character from the end is one more
  // and the last is 27 less.
  std::string a = base("long-name-az", 1);
  EXPECT_EQ(a, "095c4fc2");
  std::string b = base("long-name-b_", 1);
  EXPECT_EQ(b, "964b7924");  // the hash went on from the first value
  EXPECT_EQ(readFile(mapFile(a)), "long-name-az\n");
  EXPECT_EQ(readFile(mapFile(b)), "long-name-b_\n");
  // Each resolves to its own digits again, in either order.
  EXPECT_EQ(base("long-name-b_", 0), b);
  EXPECT_EQ(base("long-name-az", 0), a);
}

TEST_F(ShortNames, CheckOnlyRefusesNewMappings) {
  std::string known = base("known name", 1);
  DutSetCheckOnly(1);
  EXPECT_EQ(base("known name", 1), known);
  DutErrNumSet(0);
  EXPECT_EQ(base("unknown name", 1, false), "");
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 1);
}

TEST_F(ShortNames, CorruptMapUnwritableDirectoryAndBadCreate) {
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
