// File locks: one uncontended DptLockFile + DptUnlockFile against the
// system's own lock and unlock of an open file (two fcntl F_OFD_SETLK
// calls), in the same run.
//
// The library's pair also creates the lock file, checks that the locked
// file is still the one its name leads to, and removes it again at unlock;
// BM_SystemCallFloor does just those system calls (open, lock, fstat,
// stat, unlink, close) to show what of the difference the file's life
// costs and what the library adds on top.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "vqutil/filelock.h"

namespace {

// A scratch directory for the run, removed at the end.
struct Scratch {
  Scratch() {
    char pattern[] = "/tmp/vqbench-lock-XXXXXX";
    dir = mkdtemp(pattern);
  }
  ~Scratch() { std::filesystem::remove_all(dir); }
  std::string dir;
};

bool setRegion(int fd, short type) {
  struct flock region = {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_len = 16;
  return fcntl(fd, F_OFD_SETLK, &region) == 0;
}

void BM_LibraryLockUnlock(benchmark::State &state) {
  Scratch scratch;
  const std::string resource = scratch.dir + "/resource";
  for (auto _ : state) {
    D_LOCK_HANDLE *handle = nullptr;
    if (DptLockFile(resource.c_str(), 0, D_LOCK_EXCLUSIVE, &handle) != D_TRUE || DptUnlockFile(&handle) != D_TRUE)
      state.SkipWithError("lock failed");
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_FcntlLockUnlock(benchmark::State &state) {
  Scratch scratch;
  const std::string name = scratch.dir + "/resource-LOCKFILE-";
  const int fd = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  for (auto _ : state) {
    if (!setRegion(fd, F_WRLCK) || !setRegion(fd, F_UNLCK)) state.SkipWithError("fcntl failed");
  }
  close(fd);
  state.SetItemsProcessed(state.iterations());
}

void BM_SystemCallFloor(benchmark::State &state) {
  Scratch scratch;
  const std::string name = scratch.dir + "/resource-LOCKFILE-";
  for (auto _ : state) {
    const int fd = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    struct stat held;
    struct stat named;
    if (fd < 0 || !setRegion(fd, F_WRLCK) || fstat(fd, &held) != 0 || stat(name.c_str(), &named) != 0)
      state.SkipWithError("system call failed");
    unlink(name.c_str());
    setRegion(fd, F_UNLCK);
    close(fd);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_LibraryLockUnlock);
BENCHMARK(BM_FcntlLockUnlock);
BENCHMARK(BM_SystemCallFloor);

}  // namespace

BENCHMARK_MAIN();
