// Lambdas behind C callbacks: called with the right data, released once,
// and never called after their owner let go of them.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "vqutil/vqutil.hpp"

namespace {

D_CB_TYPE *testType() {
  static D_CB_TYPE *type = DutCbTypeCreate(4711, "cpp_test");
  return type;
}

TEST(CppCallbacks, ListCallbackCalledThenReleased) {
  D_CB_LIST *list = DutCbListCreate(testType(), nullptr);
  ASSERT_NE(list, nullptr);
  auto life = std::make_shared<int>(0);
  std::vector<int> order;
  int object = 0;
  {
    vqutil::Callback low = vqutil::on_list(list, [life, &order, &object](void *o, void *) {
      EXPECT_EQ(o, &object);
      order.push_back(1);
    });
    vqutil::Callback high = vqutil::on_list(list, [life, &order](void *, void *) { order.push_back(2); });
    ASSERT_TRUE(low && high);
    DutCbSetPriority(high.get(), 5);
    EXPECT_EQ(life.use_count(), 3);
    D_CB_DATA data{nullptr};
    ASSERT_TRUE(DutCbListCall(list, &object, &data));
    EXPECT_EQ(order, (std::vector<int>{2, 1}));

    vqutil::Callback moved = std::move(high);
    EXPECT_FALSE(high);
    low.reset();
    EXPECT_EQ(life.use_count(), 2);
    ASSERT_TRUE(DutCbListCall(list, &object, &data));
    EXPECT_EQ(order, (std::vector<int>{2, 1, 2}));
  }
  EXPECT_EQ(life.use_count(), 1);
  D_CB_DATA data{nullptr};
  ASSERT_TRUE(DutCbListCall(list, &object, &data));
  EXPECT_EQ(order.size(), 3u);
  EXPECT_TRUE(DutCbListDestroy(list));
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
    a.insert(0, 20);
    a.remove(10);
    vqutil::PtrArray moved = std::move(a);
    moved.append(30);
    EXPECT_EQ(life.use_count(), 3);
  }
  // The array's destruction took the callbacks, then the lambdas.
  EXPECT_EQ(life.use_count(), 1);
  const std::vector<std::pair<D_WORD, D_WORD>> expected = {
      {D_PTR_ARY_ITEM_ADDED, 10},   {-D_PTR_ARY_ITEM_ADDED, 10},  {D_PTR_ARY_ITEM_ADDED, 20},
      {-D_PTR_ARY_ITEM_ADDED, 20},  {D_PTR_ARY_ITEM_REMOVED, 10}, {-D_PTR_ARY_ITEM_REMOVED, 10},
      {D_PTR_ARY_ITEM_ADDED, 30},   {-D_PTR_ARY_ITEM_ADDED, 30}};
  EXPECT_EQ(events, expected);
}

TEST(CppCallbacks, RingOverwriteSeesTheOldValue) {
  DutSetCurrentTime(0.0);  // values go into the buffers only once time is known
  vqutil::Ring ring(D_RING_TYPE_INT);
  ASSERT_NE(ring.add_fixed_buffer(2, {0, 0}), nullptr);
  std::vector<D_INT4> overwritten;
  ring.on_overwrite([&](const D_RING_OVERWRITE_CB_DATA &d) { overwritten.push_back(d.entry->value.i); });
  for (D_INT4 v = 1; v <= 5; ++v) ring.archive({v, 0}, &v);
  EXPECT_EQ(overwritten, (std::vector<D_INT4>{1, 2, 3}));
}

TEST(CppCallbacks, FailedRegistrationKeepsNothing) {
  auto life = std::make_shared<int>(0);
  vqutil::Callback cb = vqutil::on_list(nullptr, [life](void *, void *) {});
  EXPECT_FALSE(cb);
  EXPECT_EQ(vqutil::last_error().value(), D_ERR_NULL_PTR);
  EXPECT_EQ(life.use_count(), 1);
}

}  // namespace
