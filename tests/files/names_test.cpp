// File-name building, splitting and the short-name mapping.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"

using files_test::readFile;
using files_test::TempDir;
using files_test::writeFile;

namespace {

TEST(FileNames, HasExtensionIgnoresCaseAndShortNames) {
  EXPECT_TRUE(DutHasExtension("notes.TXT", ".txt"));
  EXPECT_TRUE(DutHasExtension(".cm", ".CM"));
  EXPECT_FALSE(DutHasExtension("cm", ".cm"));
  EXPECT_FALSE(DutHasExtension("notes.txt.bak", ".txt"));
  DutErrNumSet(0);
  EXPECT_FALSE(DutHasExtension(nullptr, ".txt"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(FileNames, BuildFileNameJoinsWithOneSeparator) {
  char out[256];
  EXPECT_STREQ(DutBuildFileName(out, "/usr/lib", "help", ".hlp"), "/usr/lib/help.hlp");
  EXPECT_STREQ(DutBuildFileName(out, "/usr/lib/", "help", ".hlp"), "/usr/lib/help.hlp");
  // No dot is invented for the extension, and null parts are left out.
  EXPECT_STREQ(DutBuildFileName(out, "dir", "base", "txt"), "dir/basetxt");
  EXPECT_STREQ(DutBuildFileName(out, nullptr, "base", nullptr), "base");
  EXPECT_STREQ(DutBuildFileName(out, "", "base", nullptr), "/base");
  DutErrNumSet(0);
  EXPECT_EQ(DutBuildFileName(out, "dir", nullptr, nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutBuildFileName(nullptr, "dir", "b", nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(FileNames, BuildDirName) {
  char out[256];
  EXPECT_STREQ(DutBuildDirName(out, "/opt/vq", "standard"), "/opt/vq/standard");
  EXPECT_STREQ(DutBuildDirName(out, "/opt/vq/", "standard"), "/opt/vq/standard");
  // The destination may be the base directory itself.
  std::strcpy(out, "/opt");
  EXPECT_STREQ(DutBuildDirName(out, out, "help"), "/opt/help");
  DutErrNumSet(0);
  EXPECT_EQ(DutBuildDirName(out, "/opt", nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
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
  DutErrNumSet(0);
  EXPECT_EQ(DutGetFileName(nullptr, out), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

struct Exploded {
  std::string dir, base, ext;
};

Exploded explode(const char *path) {
  char *dir = nullptr;
  char *base = nullptr;
  char *ext = nullptr;
  EXPECT_TRUE(DutFileExplodeName(path, &dir, &base, &ext));
  Exploded e{dir, base, ext};
  DutFree(dir);
  DutFree(base);
  DutFree(ext);
  return e;
}

TEST(FileNames, ExplodeNameParts) {
  Exploded e = explode("/home/u/report.final.txt");
  EXPECT_EQ(e.dir, "/home/u");
  EXPECT_EQ(e.base, "report.final");
  EXPECT_EQ(e.ext, ".txt");
  e = explode("README");
  EXPECT_EQ(e.dir, "");
  EXPECT_EQ(e.base, "README");
  EXPECT_EQ(e.ext, "");
  e = explode("/etc/.profile");
  EXPECT_EQ(e.dir, "/etc");
  EXPECT_EQ(e.base, ".profile");
  EXPECT_EQ(e.ext, "");
  e = explode("/top.c");
  EXPECT_EQ(e.dir, "/");
  EXPECT_EQ(e.base, "top");
  EXPECT_EQ(e.ext, ".c");
  // A dot in a directory name is not an extension.
  e = explode("a.d/file");
  EXPECT_EQ(e.dir, "a.d");
  EXPECT_EQ(e.base, "file");
  EXPECT_EQ(e.ext, "");
}

TEST(FileNames, ExplodeThenBuildRoundTrips) {
  for (const char *path : {"/var/log/x.log", "rel/dir/name.tar", "/top.c"}) {
    Exploded e = explode(path);
    char rebuilt[256];
    DutBuildFileName(rebuilt, e.dir.c_str(), e.base.c_str(), e.ext.c_str());
    EXPECT_STREQ(rebuilt, path);
  }
  char *dir = nullptr;
  DutErrNumSet(0);
  EXPECT_FALSE(DutFileExplodeName("x", &dir, nullptr, &dir));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

// ---- Short names ---------------------------------------------------------

class ShortNames : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("VQ_MAX_BASE_NAME");
    DutSetCheckOnly(0);
  }
  void TearDown() override {
    unsetenv("VQ_MAX_BASE_NAME");
    DutSetCheckOnly(0);
  }

  // The base for name, or "" when the call failed.
  std::string base(const char *name, int create, bool expect_ok = true) {
    char *b = reinterpret_cast<char *>(0x1);
    D_BOOL ok = DutBuildBaseName(dir.str().c_str(), name, &b, create);
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

TEST_F(ShortNames, PlainNamesAreTheirOwnBase) {
  EXPECT_EQ(base("abc_123", 1), "abc_123");
  EXPECT_EQ(base("", 1), "");
  std::string longest(255, 'x');
  EXPECT_EQ(base(longest.c_str(), 1), longest);
  // Nothing was written for plain names.
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST_F(ShortNames, BaseBufferHasRoomForDigits) {
  char *b = nullptr;
  ASSERT_TRUE(DutBuildBaseName(dir.str().c_str(), "a", &b, 0));
  // At least 9 bytes: a caller may overwrite it with 8 digits.
  std::strcpy(b, "01234567");
  EXPECT_STREQ(b, "01234567");
  DutFree(b);
}

TEST_F(ShortNames, LongOrUnusualNamesMapToHashDigits) {
  EXPECT_EQ(base("My File.txt", 1), "b052727e");
  EXPECT_EQ(readFile(mapFile("b052727e")), "My File.txt\n");
  // Case is kept: the file system tells the two apart.
  EXPECT_NE(base("my file.txt", 1), "b052727e");
  std::string too_long(256, 'x');
  std::string digits = base(too_long.c_str(), 1);
  EXPECT_EQ(digits.size(), 8u);
  EXPECT_EQ(readFile(mapFile(digits)), too_long + "\n");
}

TEST_F(ShortNames, MaxBaseNameFromEnvironment) {
  setenv("VQ_MAX_BASE_NAME", "5", 1);
  EXPECT_EQ(base("abcde", 1), "abcde");
  std::string mapped = base("abcdef", 1);
  EXPECT_EQ(mapped.size(), 8u);
  EXPECT_NE(mapped, "abcdef");
}

TEST_F(ShortNames, RoundTripFindsExistingMapping) {
  std::string first = base("report 2024-01.csv", 1);
  auto written = std::filesystem::last_write_time(mapFile(first));
  EXPECT_EQ(base("report 2024-01.csv", 1), first);
  EXPECT_EQ(base("report 2024-01.csv", 0), first);
  EXPECT_EQ(std::filesystem::last_write_time(mapFile(first)), written);
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

TEST_F(ShortNames, CreateZeroDoesNotWrite) {
  std::string digits = base("no map please!", 0);
  EXPECT_EQ(digits.size(), 8u);
  EXPECT_FALSE(std::filesystem::exists(mapFile(digits)));
}

TEST_F(ShortNames, CheckOnlyRefusesNewMappings) {
  std::string known = base("known name", 1);
  DutSetCheckOnly(1);
  EXPECT_EQ(base("known name", 1), known);
  DutErrNumSet(0);
  EXPECT_EQ(base("unknown name", 1, false), "");
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  int entries = 0;
  for (auto &e : std::filesystem::directory_iterator(dir.path())) {
    (void)e;
    ++entries;
  }
  EXPECT_EQ(entries, 1);
}

TEST_F(ShortNames, EmptyMapFileIsCorrupt) {
  writeFile(mapFile("b052727e"), "");
  DutErrNumSet(0);
  EXPECT_EQ(base("My File.txt", 1, false), "");
  EXPECT_EQ(DutErrNumGet(), D_ERR_FILE_CORRUPT);
}

TEST_F(ShortNames, UnwritableDirectoryClearsBase) {
  DutErrNumSet(0);
  char *b = nullptr;
  EXPECT_FALSE(DutBuildBaseName((dir.str() + "/missing").c_str(), "x y", &b, 1));
  EXPECT_EQ(b, nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
}

TEST_F(ShortNames, ArgumentErrors) {
  char *b = nullptr;
  DutErrNumSet(0);
  EXPECT_FALSE(DutBuildBaseName(nullptr, "x", &b, 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutBuildBaseName(".", "x", nullptr, 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutBuildBaseName(".", "x", &b, 2));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
}

}  // namespace
