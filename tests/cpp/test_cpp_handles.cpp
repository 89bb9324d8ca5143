// The C++ face's owning handles: every object is released exactly once,
// through the right destroy function, whatever moves happened before; and
// lambdas behind C callbacks: called with the right data, released once,
// and never called after their owner let go of them.
#include <gtest/gtest.h>

#include <map>

#include "support/temp_dir.hpp"
#include "vqutil/vqutil.hpp"

namespace {

// Per item, how often a release function saw it.
using Releases = std::map<D_WORD, int>;

void releaseItem(D_INT4, D_WORD item, void *arg) { ++(*static_cast<Releases *>(arg))[item]; }
void releaseEntry(D_WORD, D_WORD value, void *arg) { ++(*static_cast<Releases *>(arg))[value]; }

// One object goes through every move a handle has: construction from it,
// assignment over a live handle (whose object goes at once) and into an
// emptied one; it is released once, when its last owner dies.
template <class Make, class Add>
void expectReleasedOnce(Make make, Add add) {
  auto fill = [&](auto &handle, D_WORD n) {
    for (D_WORD i = 1; i <= n; ++i) add(handle, i);
  };
  Releases kept, dropped;
  const Releases three{{1, 1}, {2, 1}, {3, 1}}, five{{1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}};
  {
    auto a = make(&kept);
    fill(a, 5);
    auto b = std::move(a);
    EXPECT_FALSE(a);
    auto c = make(&dropped);
    fill(c, 3);
    c = std::move(b);
    EXPECT_EQ(dropped, three);
    a = std::move(c);
    EXPECT_TRUE(kept.empty());
  }
  EXPECT_EQ(kept, five);
}

TEST(CppHandles, ArrayItemsAndTableEntriesReleasedOnce) {
  expectReleasedOnce([](Releases *r) { return vqutil::PtrArray(2, releaseItem, r); },
                     [](vqutil::PtrArray &a, D_WORD i) { ASSERT_TRUE(a.append(i)); });
  expectReleasedOnce([](Releases *r) { return vqutil::HashTable(vqutil::HashTable::Keys::Int, 0, releaseEntry, r); },
                     [](vqutil::HashTable &t, D_WORD i) { t.insert(i * 100, i); });
}

TEST(CppHandles, RingPointersFreedOnceAndRecordReleased) {
  static int frees;
  frees = 0;
  DutSetCurrentTime(0.0);  // values go into the buffers only once time is known
  {
    vqutil::Ring ring(D_RING_TYPE_VOID, "cpp");
    ASSERT_TRUE(ring.set_free_func([](void *value) {
      ++frees;
      delete static_cast<int *>(value);
    }));
    // Two buffers share each pointer; it must still be freed once.
    ASSERT_TRUE(ring.add_buffer({10, 0}, {0, 0}, 4) && ring.add_buffer({100, 0}, {1, 0}, 4));
    int overwrites = 0;
    ring.on_overwrite([&](const D_RING_OVERWRITE_CB_DATA &d) { overwrites += d.entry != nullptr; });
    for (int s = 1; s <= 3; ++s) ASSERT_NE(ring.archive({s, 0}, new int(s)), nullptr);
    vqutil::Ring moved = std::move(ring);
    EXPECT_FALSE(ring);
    EXPECT_EQ(std::pair(frees, overwrites), std::pair(0, 0));
  }
  EXPECT_EQ(frees, 3);
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
}

TEST(CppCallbacks, ListCallbackCalledThenReleased) {
  static D_CB_TYPE *type = DutCbTypeCreate(4711, "cpp_test");
  D_CB_LIST *list = DutCbListCreate(type, nullptr);
  auto life = std::make_shared<int>(0);
  std::vector<int> order;
  int object = 0;
  D_CB_DATA data{nullptr};
  auto call = [&] { EXPECT_TRUE(DutCbListCall(list, &object, &data)); };
  {
    // Each call records who ran: 2, or 1 for the first lambda given the object.
    auto low = vqutil::on_list(list, [life, &order, &object](void *o, void *) { order.push_back(o == &object); });
    vqutil::Callback high = vqutil::on_list(list, [life, &order](void *, void *) { order.push_back(2); });
    ASSERT_TRUE(low && high && life.use_count() == 3);
    call();
    vqutil::Callback moved = std::move(high);
    low.reset();
    EXPECT_TRUE(!high && life.use_count() == 2);
    call();
  }
  call();
  EXPECT_TRUE(order == (std::vector<int>{1, 2, 2}) && life.use_count() == 1);
  EXPECT_TRUE(DutCbListDestroy(list));

  // A failed registration keeps nothing of the lambda.
  vqutil::Callback none = vqutil::on_list(nullptr, [life](void *, void *) {});
  EXPECT_TRUE(!none && vqutil::last_error().value() == D_ERR_NULL_PTR && life.use_count() == 1);
}

TEST(CppCallbacks, PtrArrayChangesReachTheLambda) {
  auto life = std::make_shared<int>(0);
  std::vector<std::pair<D_WORD, D_WORD>> events;  // (event, item)
  {
    vqutil::PtrArray a(2);
    ASSERT_NE(a.on_change([life, &events](const D_PTR_ARY_CHANGE &c) { events.emplace_back(c.event, c.item); }),
              nullptr);
    // A second lambda of the same type is a distinct callback, not a duplicate.
    ASSERT_NE(a.on_change([life, &events](const D_PTR_ARY_CHANGE &c) { events.emplace_back(-c.event, c.item); }),
              nullptr);
    a.append(10);
    a.remove(10);
    vqutil::PtrArray moved = std::move(a);
    moved.append(30);
    EXPECT_EQ(life.use_count(), 3);
  }
  // The array's destruction took the callbacks, then the lambdas.
  EXPECT_EQ(life.use_count(), 1);
  const std::vector<std::pair<D_WORD, D_WORD>> expected = {
      {D_PTR_ARY_ITEM_ADDED, 10},   {-D_PTR_ARY_ITEM_ADDED, 10}, {D_PTR_ARY_ITEM_REMOVED, 10},
      {-D_PTR_ARY_ITEM_REMOVED, 10}, {D_PTR_ARY_ITEM_ADDED, 30},  {-D_PTR_ARY_ITEM_ADDED, 30}};
  EXPECT_EQ(events, expected);
}

}  // namespace
