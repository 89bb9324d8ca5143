// Search paths, the temporary directory, directory listings, and the
// null-argument errors of the whole file family.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/file.h"
#include "vqutil/memory.h"

using namespace files_test;

namespace {

using Dirs = std::vector<std::string>;

void *collectDirs(const char *directory, void *arg) {
  static_cast<Dirs *>(arg)->push_back(directory);
  return nullptr;
}

// Random adds and deletes against a list: the path keeps its own copies in
// order, and a delete removes the first exact match, wherever it is.
TEST(SearchPaths, AddAndDeleteFollowAListModel) {
  D_PATH *path = DutPathCreate();
  Dirs model;
  std::mt19937 random(11);
  for (int step = 0; step < 400; ++step) {
    char dir[8] = {"aBbc"[random() % 4], '\0'};
    SCOPED_TRACE(testing::Message() << "step " << step << " dir " << dir);
    auto at = std::find(model.begin(), model.end(), dir);
    if (random() % 2 == 0) {
      EXPECT_TRUE(DutPathAddDir(path, dir));
      model.push_back(dir);
    } else {
      EXPECT_FAILS(DutPathDeleteDir(path, dir), at != model.end(), at != model.end() ? 0 : D_ERR_DOESNT_EXIST);
      if (at != model.end()) model.erase(at);
    }
    std::strcpy(dir, "changed");
    Dirs seen;
    EXPECT_EQ(DutPathForEachDir(path, &collectDirs, &seen), nullptr);
    ASSERT_EQ(seen, model);
  }
  // The walk stops at the first function result that is not null.
  int count = 0;
  auto second = [](const char *d, void *arg) -> void * {
    return ++*static_cast<int *>(arg) == 2 ? const_cast<char *>(d) : nullptr;
  };
  ASSERT_GE(model.size(), 2u);
  EXPECT_STREQ(static_cast<char *>(DutPathForEachDir(path, second, &count)), model[1].c_str());
  DutPathDestroy(path);
  DutPathDestroy(nullptr);
}

// The first directory of the path holding the name (not folded: the file
// system tells cases apart); without a path, the name itself.
TEST(SearchPaths, FindFileUsesPathOrder) {
  TempDir dir;
  for (const char *d : {"one", "two", "three"}) fs::create_directory(d);
  writeFile("two/target.cm", "2");
  writeFile("three/target.cm", "3");
  D_PATH *path = DutPathCreate();
  for (const char *d : {"one", "three/", "two"}) DutPathAddDir(path, d);
  char buffer[256];
  EXPECT_EQ(DutPathFindFile(path, "target.cm", buffer), buffer);
  EXPECT_STREQ(buffer, "three/target.cm");
  EXPECT_TRUE(DutPathDeleteDir(path, "three/"));
  EXPECT_STREQ(DutPathFindFile(path, "target.cm", nullptr), "two/target.cm");
  EXPECT_EQ(DutPathFindFile(path, "TARGET.cm", buffer), nullptr);
  EXPECT_STREQ(buffer, "");
  DutPathDestroy(path);
  EXPECT_STREQ(DutPathFindFile(nullptr, "two/target.cm", buffer), "two/target.cm");
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
  EnvVar home("HOME", nullptr);
  EnvVar temp("TEMP", dir.str().c_str());
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
  EXPECT_TRUE(count == 0 && names == nullptr);
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
  EXPECT_FAILS(DutHasExtension(nullptr, ".txt"), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutBuildFileName(buffer, "d", nullptr, nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutBuildFileName(nullptr, "d", "b", nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutBuildDirName(buffer, "/opt", nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGetFileName(nullptr, buffer), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutFileExplodeName("x", &text, nullptr, &text), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutBuildBaseName(nullptr, "x", &text, 1), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutBuildBaseName(".", "x", nullptr, 1), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutFileWritable(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutFileGetSize(nullptr, &count), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutBackupFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutOpenFile(nullptr, "r"), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutOpenFile("x", nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutLookupFile(nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutFlushFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCloseFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutSystem(nullptr), -1, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCatFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutEditFile(nullptr, 1), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutViewFilePtr(nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutPathAddDir(path, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutPathAddDir(nullptr, "x"), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutPathDeleteDir(path, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutPathForEachDir(path, nullptr, nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutFileTraverse(nullptr, nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGetTmpFilePath(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutDirGetFileNames(".", nullptr, &count), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutDirGetFileNames(nullptr, &names, &count), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutReadAtomic(-1, nullptr, 1), -1, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutWriteAtomic(-1, nullptr, 1), -1, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutUnlinkAtomic(nullptr), -1, D_ERR_NULL_PTR);
  DutPathDestroy(path);
}

}  // namespace
