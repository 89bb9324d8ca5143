// Search paths, the temporary directory, directory listings, and the
// null-argument errors of the whole file family.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/file.h"
#include "vqutil/memory.h"

using namespace files_test;

namespace {

void *collectDirs(const char *directory, void *arg) {
  static_cast<std::vector<std::string> *>(arg)->push_back(directory);
  return nullptr;
}

std::vector<std::string> dirsOf(D_PATH *path) {
  std::vector<std::string> dirs;
  EXPECT_EQ(DutPathForEachDir(path, &collectDirs, &dirs), nullptr);
  return dirs;
}

using Dirs = std::vector<std::string>;

TEST(SearchPaths, OrderOwnCopiesAndEarlyStop) {
  D_PATH *path = DutPathCreate();
  ASSERT_NE(path, nullptr);
  EXPECT_TRUE(dirsOf(path).empty());
  char dir[16] = "first";
  EXPECT_TRUE(DutPathAddDir(path, dir));
  std::strcpy(dir, "changed");
  EXPECT_TRUE(DutPathAddDir(path, "second"));
  EXPECT_TRUE(DutPathAddDir(path, "first"));
  EXPECT_EQ(dirsOf(path), (Dirs{"first", "second", "first"}));

  int count = 0;
  void *hit = DutPathForEachDir(
      path,
      [](const char *d, void *arg) -> void * {
        return ++*static_cast<int *>(arg) == 2 ? const_cast<char *>(d) : nullptr;
      },
      &count);
  ASSERT_NE(hit, nullptr);
  EXPECT_STREQ(static_cast<char *>(hit), "second");
  EXPECT_EQ(count, 2);
  DutPathDestroy(path);
}

TEST(SearchPaths, DeleteRemovesFirstExactMatch) {
  D_PATH *path = DutPathCreate();
  for (const char *d : {"a", "B", "a", "c"}) DutPathAddDir(path, d);
  EXPECT_TRUE(DutPathDeleteDir(path, "a"));
  EXPECT_EQ(dirsOf(path), (Dirs{"B", "a", "c"}));
  EXPECT_FAILS(DutPathDeleteDir(path, "b"), D_FALSE, D_ERR_DOESNT_EXIST);
  // Deleting the last entry, then every entry, keeps appends working.
  EXPECT_TRUE(DutPathDeleteDir(path, "c"));
  EXPECT_TRUE(DutPathAddDir(path, "d"));
  EXPECT_EQ(dirsOf(path), (Dirs{"B", "a", "d"}));
  for (const char *d : {"B", "a", "d"}) EXPECT_TRUE(DutPathDeleteDir(path, d)) << d;
  EXPECT_TRUE(dirsOf(path).empty());
  EXPECT_TRUE(DutPathAddDir(path, "e"));
  EXPECT_EQ(dirsOf(path), Dirs{"e"});
  DutPathDestroy(path);
  DutPathDestroy(nullptr);
}

TEST(SearchPaths, FindFileUsesPathOrder) {
  TempDir dir;
  for (const char *d : {"one", "two", "three"}) fs::create_directory(d);
  writeFile("two/target.cm", "2");
  writeFile("three/target.cm", "3");
  writeFile("here.txt", "");
  D_PATH *path = DutPathCreate();
  for (const char *d : {"one", "three/", "two"}) DutPathAddDir(path, d);
  char buffer[256];
  EXPECT_STREQ(DutPathFindFile(path, "target.cm", buffer), "three/target.cm");
  EXPECT_TRUE(DutPathDeleteDir(path, "three/"));
  EXPECT_EQ(DutPathFindFile(path, "target.cm", buffer), buffer);
  EXPECT_STREQ(buffer, "two/target.cm");
  char *shared = DutPathFindFile(path, "target.cm", nullptr);
  ASSERT_NE(shared, nullptr);
  EXPECT_STREQ(shared, "two/target.cm");
  std::strcpy(buffer, "stale");
  EXPECT_EQ(DutPathFindFile(path, "absent.cm", buffer), nullptr);
  EXPECT_STREQ(buffer, "");
  // Names are not folded: the file system tells cases apart.
  EXPECT_EQ(DutPathFindFile(path, "TARGET.cm", buffer), nullptr);
  DutPathDestroy(path);

  // Without a path the name itself is tested.
  EXPECT_STREQ(DutPathFindFile(nullptr, "here.txt", buffer), "here.txt");
  std::strcpy(buffer, "stale");
  EXPECT_EQ(DutPathFindFile(nullptr, "gone.txt", buffer), nullptr);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(DutPathFindFile(nullptr, nullptr, buffer), nullptr);
}

TEST(TempPath, CurrentThenHomeThenTempThenRootTmp) {
  TempDir dir;
  char out[512];
  EXPECT_TRUE(DutGetTmpFilePath(out));
  EXPECT_STREQ(out, "./");
  // Read-only even for the superuser on Linux; TempDir restores the cwd.
  if (access("/proc/sys", W_OK) == 0) GTEST_SKIP() << "no read-only directory to stand in";
  fs::current_path("/proc/sys");
  EnvVar home("HOME", dir.str().c_str());
  EnvVar temp("TEMP", "/proc/sys");
  EXPECT_TRUE(DutGetTmpFilePath(out));
  EXPECT_EQ(std::string(out), dir.str() + "/");
  home.set(nullptr);
  temp.set(dir.str().c_str());
  EXPECT_TRUE(DutGetTmpFilePath(out));
  EXPECT_EQ(std::string(out), dir.str() + "/");
  // HOME wins even when it is not writable: TEMP is only its stand-in.
  home.set("/proc/sys");
  EXPECT_EQ(DutGetTmpFilePath(out), access("/tmp/", W_OK) == 0 ? D_TRUE : D_FALSE);
  EXPECT_STREQ(out, "/tmp/");
}

TEST(DirListing, SortedEntriesWithoutDotsAndErrors) {
  TempDir dir;
  writeFile("b.txt", "");
  writeFile("a.txt", "");
  fs::create_directory("sub");
  char **names = nullptr;
  D_INT4 count = -1;
  ASSERT_TRUE(DutDirGetFileNames(".", &names, &count));
  ASSERT_EQ(count, 3);
  EXPECT_EQ(Dirs(names, names + count), (Dirs{"a.txt", "b.txt", "sub"}));
  for (D_INT4 i = 0; i < count; ++i) DutFree(names[i]);
  DutFree(names);
  ASSERT_TRUE(DutDirGetFileNames("sub", &names, &count));
  EXPECT_EQ(count, 0);
  EXPECT_EQ(names, nullptr);

  EXPECT_FAILS(DutDirGetFileNames("nowhere", &names, &count), D_FALSE, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_FAILS(DutDirGetFileNames("b.txt", &names, &count), D_FALSE, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOTDIR);
}

// Every function of the family refuses a null where it needs a pointer.
TEST(FileArguments, NullPointersSetErrorThree) {
  D_PATH *path = DutPathCreate();
  char buffer[256];
  char *text = nullptr;
  char **names = nullptr;
  D_INT4 count = 0;
  const struct {
    const char *what;
    std::function<bool()> failed;
  } cases[] = {
      {"HasExtension", [] { return !DutHasExtension(nullptr, ".txt"); }},
      {"BuildFileName base", [&] { return !DutBuildFileName(buffer, "d", nullptr, nullptr); }},
      {"BuildFileName dest", [] { return !DutBuildFileName(nullptr, "d", "b", nullptr); }},
      {"BuildDirName", [&] { return !DutBuildDirName(buffer, "/opt", nullptr); }},
      {"GetFileName", [&] { return !DutGetFileName(nullptr, buffer); }},
      {"ExplodeName", [&] { return !DutFileExplodeName("x", &text, nullptr, &text); }},
      {"BuildBaseName dir", [&] { return !DutBuildBaseName(nullptr, "x", &text, 1); }},
      {"BuildBaseName out", [] { return !DutBuildBaseName(".", "x", nullptr, 1); }},
      {"FileWritable", [] { return !DutFileWritable(nullptr); }},
      {"FileGetSize", [&] { return !DutFileGetSize(nullptr, &count); }},
      {"BackupFile", [] { return !DutBackupFile(nullptr); }},
      {"OpenFile name", [] { return !DutOpenFile(nullptr, "r"); }},
      {"OpenFile mode", [] { return !DutOpenFile("x", nullptr); }},
      {"LookupFile", [] { return !DutLookupFile(nullptr); }},
      {"FlushFile", [] { return !DutFlushFile(nullptr); }},
      {"CloseFile", [] { return !DutCloseFile(nullptr); }},
      {"System", [] { return DutSystem(nullptr) == -1; }},
      {"CatFile", [] { return !DutCatFile(nullptr); }},
      {"EditFile", [] { return !DutEditFile(nullptr, 1); }},
      {"PathAddDir dir", [&] { return !DutPathAddDir(path, nullptr); }},
      {"PathAddDir path", [] { return !DutPathAddDir(nullptr, "x"); }},
      {"PathDeleteDir", [&] { return !DutPathDeleteDir(path, nullptr); }},
      {"PathForEachDir", [&] { return !DutPathForEachDir(path, nullptr, nullptr); }},
      {"GetTmpFilePath", [] { return !DutGetTmpFilePath(nullptr); }},
      {"DirGetFileNames out", [&] { return !DutDirGetFileNames(".", nullptr, &count); }},
      {"DirGetFileNames dir", [&] { return !DutDirGetFileNames(nullptr, &names, &count); }},
      {"ReadAtomic", [] { return DutReadAtomic(-1, nullptr, 1) == -1; }},
      {"UnlinkAtomic", [] { return DutUnlinkAtomic(nullptr) == -1; }},
  };
  for (const auto &c : cases) {
    DutErrNumSet(0);
    EXPECT_TRUE(c.failed()) << c.what;
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR) << c.what;
  }
  DutPathDestroy(path);
}

}  // namespace
