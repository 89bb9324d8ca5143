// Search paths, the temporary directory and directory listings.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"

using files_test::TempDir;
using files_test::writeFile;

namespace {

void *collectDirs(const char *directory, void *arg) {
  static_cast<std::vector<std::string> *>(arg)->push_back(directory);
  return nullptr;
}

void *findSecond(const char *directory, void *arg) {
  int *count = static_cast<int *>(arg);
  return ++*count == 2 ? const_cast<char *>(directory) : nullptr;
}

std::vector<std::string> dirsOf(D_PATH *path) {
  std::vector<std::string> dirs;
  EXPECT_EQ(DutPathForEachDir(path, &collectDirs, &dirs), nullptr);
  return dirs;
}

TEST(SearchPaths, KeepInsertionOrderAndOwnCopies) {
  D_PATH *path = DutPathCreate();
  ASSERT_NE(path, nullptr);
  EXPECT_TRUE(dirsOf(path).empty());
  char dir[16] = "first";
  EXPECT_TRUE(DutPathAddDir(path, dir));
  std::strcpy(dir, "changed");
  EXPECT_TRUE(DutPathAddDir(path, "second"));
  EXPECT_TRUE(DutPathAddDir(path, "first"));
  EXPECT_EQ(dirsOf(path), (std::vector<std::string>{"first", "second", "first"}));

  int count = 0;
  void *hit = DutPathForEachDir(path, &findSecond, &count);
  ASSERT_NE(hit, nullptr);
  EXPECT_STREQ(static_cast<char *>(hit), "second");
  EXPECT_EQ(count, 2);
  DutPathDestroy(path);
}

TEST(SearchPaths, DeleteRemovesFirstExactMatch) {
  D_PATH *path = DutPathCreate();
  for (const char *d : {"a", "B", "a", "c"}) DutPathAddDir(path, d);
  EXPECT_TRUE(DutPathDeleteDir(path, "a"));
  EXPECT_EQ(dirsOf(path), (std::vector<std::string>{"B", "a", "c"}));
  DutErrNumSet(0);
  EXPECT_FALSE(DutPathDeleteDir(path, "b"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_TRUE(DutPathDeleteDir(path, "c"));
  // Deleting the last entry keeps appends working.
  EXPECT_TRUE(DutPathAddDir(path, "d"));
  EXPECT_EQ(dirsOf(path), (std::vector<std::string>{"B", "a", "d"}));
  EXPECT_TRUE(DutPathDeleteDir(path, "B"));
  EXPECT_TRUE(DutPathDeleteDir(path, "a"));
  EXPECT_TRUE(DutPathDeleteDir(path, "d"));
  EXPECT_TRUE(dirsOf(path).empty());
  EXPECT_TRUE(DutPathAddDir(path, "e"));
  EXPECT_EQ(dirsOf(path), std::vector<std::string>{"e"});
  DutPathDestroy(path);
}

TEST(SearchPaths, NullArguments) {
  D_PATH *path = DutPathCreate();
  DutErrNumSet(0);
  EXPECT_FALSE(DutPathAddDir(path, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutPathAddDir(nullptr, "x"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutPathDeleteDir(path, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutPathForEachDir(path, nullptr, nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutPathDestroy(path);
  DutPathDestroy(nullptr);
}

TEST(SearchPaths, FindFileUsesPathOrder) {
  TempDir dir;
  for (const char *d : {"one", "two", "three"}) std::filesystem::create_directory(d);
  writeFile("two/target.cm", "2");
  writeFile("three/target.cm", "3");
  D_PATH *path = DutPathCreate();
  DutPathAddDir(path, "one");
  DutPathAddDir(path, "three/");
  DutPathAddDir(path, "two");
  char buffer[256];
  EXPECT_STREQ(DutPathFindFile(path, "target.cm", buffer), "three/target.cm");
  EXPECT_TRUE(DutPathDeleteDir(path, "three/"));
  EXPECT_EQ(DutPathFindFile(path, "target.cm", buffer), buffer);
  EXPECT_STREQ(buffer, "two/target.cm");
  // With a null buffer the answer is shared.
  char *shared = DutPathFindFile(path, "target.cm", nullptr);
  ASSERT_NE(shared, nullptr);
  EXPECT_STREQ(shared, "two/target.cm");
  std::strcpy(buffer, "stale");
  EXPECT_EQ(DutPathFindFile(path, "absent.cm", buffer), nullptr);
  EXPECT_STREQ(buffer, "");
  // Names are not folded: the file system tells cases apart.
  EXPECT_EQ(DutPathFindFile(path, "TARGET.cm", buffer), nullptr);
  DutPathDestroy(path);
}

TEST(SearchPaths, FindFileWithoutPathTestsTheNameItself) {
  TempDir dir;
  writeFile("here.txt", "");
  char buffer[64];
  EXPECT_STREQ(DutPathFindFile(nullptr, "here.txt", buffer), "here.txt");
  EXPECT_EQ(DutPathFindFile(nullptr, "gone.txt", buffer), nullptr);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(DutPathFindFile(nullptr, nullptr, buffer), nullptr);
}

TEST(TempPath, CurrentDirectoryFirst) {
  TempDir dir;
  char out[512];
  EXPECT_TRUE(DutGetTmpFilePath(out));
  EXPECT_STREQ(out, "./");
  DutErrNumSet(0);
  EXPECT_FALSE(DutGetTmpFilePath(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

// Restores the current directory and the two variables the rule reads.
class UnwritableCwd {
 public:
  UnwritableCwd() : old_(std::filesystem::current_path()) {
    for (const char *name : {"HOME", "TEMP"}) {
      const char *v = std::getenv(name);
      saved_.emplace_back(name, v != nullptr ? std::optional<std::string>(v) : std::nullopt);
    }
    // Read-only even for the superuser on Linux.
    std::filesystem::current_path("/proc/sys");
  }
  ~UnwritableCwd() {
    std::filesystem::current_path(old_);
    for (auto &[name, value] : saved_) {
      if (value) {
        setenv(name.c_str(), value->c_str(), 1);
      } else {
        unsetenv(name.c_str());
      }
    }
  }

 private:
  std::filesystem::path old_;
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST(TempPath, HomeThenTempThenRootTmp) {
  TempDir dir;
  if (access("/proc/sys", W_OK) == 0) GTEST_SKIP() << "no read-only directory to stand in";
  UnwritableCwd cwd;
  char out[512];
  setenv("HOME", dir.str().c_str(), 1);
  setenv("TEMP", "/proc/sys", 1);
  EXPECT_TRUE(DutGetTmpFilePath(out));
  EXPECT_EQ(std::string(out), dir.str() + "/");

  unsetenv("HOME");
  setenv("TEMP", dir.str().c_str(), 1);
  EXPECT_TRUE(DutGetTmpFilePath(out));
  EXPECT_EQ(std::string(out), dir.str() + "/");

  // HOME wins even when it is not writable: TEMP is only its stand-in.
  setenv("HOME", "/proc/sys", 1);
  EXPECT_EQ(DutGetTmpFilePath(out), access("/tmp/", W_OK) == 0 ? D_TRUE : D_FALSE);
  EXPECT_STREQ(out, "/tmp/");
}

TEST(DirListing, SortedEntriesWithoutDots) {
  TempDir dir;
  writeFile("b.txt", "");
  writeFile("a.txt", "");
  std::filesystem::create_directory("sub");
  char **names = nullptr;
  D_INT4 count = -1;
  ASSERT_TRUE(DutDirGetFileNames(".", &names, &count));
  ASSERT_EQ(count, 3);
  std::vector<std::string> got(names, names + count);
  EXPECT_EQ(got, (std::vector<std::string>{"a.txt", "b.txt", "sub"}));
  for (D_INT4 i = 0; i < count; ++i) DutFree(names[i]);
  DutFree(names);

  ASSERT_TRUE(DutDirGetFileNames("sub", &names, &count));
  EXPECT_EQ(count, 0);
  EXPECT_EQ(names, nullptr);
}

TEST(DirListing, Errors) {
  TempDir dir;
  char **names = nullptr;
  D_INT4 count = 0;
  DutErrNumSet(0);
  EXPECT_FALSE(DutDirGetFileNames("nowhere", &names, &count));
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  writeFile("plain", "");
  DutErrNumSet(0);
  EXPECT_FALSE(DutDirGetFileNames("plain", &names, &count));
  EXPECT_EQ(DutErrNumGetC(), ENOTDIR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutDirGetFileNames(".", nullptr, &count));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

}  // namespace
