// The C++ face's owning handles: every object is released exactly once,
// through the right destroy function, whatever moves happened before.
#include <gtest/gtest.h>

#include <map>

#include "support/temp_dir.hpp"
#include "vqutil/vqutil.hpp"

namespace {

// Per item, how often a release function saw it.
using Releases = std::map<D_WORD, int>;

// Every item in [1, n] exactly once, nothing else.
Releases once(int n) {
  Releases seen;
  for (int i = 1; i <= n; ++i) seen[i] = 1;
  return seen;
}

void releaseItem(D_INT4, D_WORD item, void *arg) { ++(*static_cast<Releases *>(arg))[item]; }
void releaseEntry(D_WORD, D_WORD value, void *arg) { ++(*static_cast<Releases *>(arg))[value]; }

// One object goes through every move a handle has: construction from it,
// assignment over a live handle (whose object goes at once) and into an
// emptied one; it is released once, when its last owner dies.
template <class Make, class Fill>
void expectReleasedOnce(Make make, Fill fill) {
  Releases kept, dropped;
  {
    auto a = make(&kept);
    fill(a, 5);
    auto b = std::move(a);
    EXPECT_FALSE(a);
    auto c = make(&dropped);
    fill(c, 3);
    c = std::move(b);
    EXPECT_EQ(dropped, once(3));
    a = std::move(c);
    EXPECT_TRUE(kept.empty());
  }
  EXPECT_EQ(kept, once(5));
}

TEST(CppHandles, ArrayItemsAndTableEntriesReleasedOnce) {
  expectReleasedOnce([](Releases *r) { return vqutil::PtrArray(2, releaseItem, r); },
                     [](vqutil::PtrArray &a, int n) {
                       for (D_WORD i = 1; i <= n; ++i) ASSERT_TRUE(a.append(i));
                     });
  expectReleasedOnce([](Releases *r) { return vqutil::HashTable(vqutil::HashTable::Keys::Int, 0, releaseEntry, r); },
                     [](vqutil::HashTable &t, int n) {
                       for (D_WORD i = 1; i <= n; ++i) t.insert(i * 100, i);
                     });
}

int g_ring_frees = 0;
void countRingFree(void *value) {
  ++g_ring_frees;
  delete static_cast<int *>(value);
}

TEST(CppHandles, RingPointersFreedOnceAndRecordReleased) {
  g_ring_frees = 0;
  DutSetCurrentTime(0.0);  // values go into the buffers only once time is known
  {
    vqutil::Ring ring(D_RING_TYPE_VOID, "cpp");
    ASSERT_TRUE(ring);
    ASSERT_TRUE(ring.set_free_func(countRingFree));
    // Two buffers share each pointer; it must still be freed once.
    ASSERT_NE(ring.add_buffer({10, 0}, {0, 0}, 4), nullptr);
    ASSERT_NE(ring.add_buffer({100, 0}, {1, 0}, 4), nullptr);
    int overwrites = 0;
    ring.on_overwrite([&](const D_RING_OVERWRITE_CB_DATA &d) { overwrites += d.entry != nullptr; });
    for (int s = 1; s <= 3; ++s) ASSERT_NE(ring.archive({s, 0}, new int(s)), nullptr);
    vqutil::Ring moved = std::move(ring);
    EXPECT_FALSE(ring);
    EXPECT_EQ(g_ring_frees, 0);
    EXPECT_EQ(overwrites, 0);
  }
  EXPECT_EQ(g_ring_frees, 3);
}

TEST(CppHandles, FileLockReleasesItsLockFile) {
  const vqtest::TempDir dir("vqcpplock");
  const std::string resource = dir.file("res");
  const std::string lock_file = resource + D_LOCK_FILE_SUFFIX;
  {
    auto lock = vqutil::FileLock::acquire(resource, vqutil::FileLock::Mode::Shared);
    auto second = vqutil::FileLock::acquire(resource, vqutil::FileLock::Mode::Shared);
    ASSERT_TRUE(lock && second);
    // The first release keeps the file: the other handle still holds it.
    EXPECT_TRUE(lock.unlock());
    EXPECT_FALSE(lock.unlock());
    EXPECT_TRUE(std::filesystem::exists(lock_file));
    vqutil::FileLock moved = std::move(second);
  }
  EXPECT_FALSE(std::filesystem::exists(lock_file));
  DutErrNumSet(0);
  EXPECT_FALSE(vqutil::FileLock::acquire(""));
  EXPECT_EQ(vqutil::last_error().value(), D_ERR_VAL_INVALID);
}

}  // namespace
