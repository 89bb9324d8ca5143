// Lambdas behind C callbacks: called with the right data, released once,
// and never called after their owner let go of them.
#include <gtest/gtest.h>

#include "vqutil/vqutil.hpp"

namespace {

TEST(CppCallbacks, ListCallbackCalledThenReleased) {
  static D_CB_TYPE *type = DutCbTypeCreate(4711, "cpp_test");
  D_CB_LIST *list = DutCbListCreate(type, nullptr);
  ASSERT_NE(list, nullptr);
  auto life = std::make_shared<int>(0);
  std::vector<int> order;
  int object = 0;
  D_CB_DATA data{nullptr};
  auto call = [&] { EXPECT_TRUE(DutCbListCall(list, &object, &data)); };
  {
    vqutil::Callback low = vqutil::on_list(list, [life, &order, &object](void *o, void *) {
      EXPECT_EQ(o, &object);
      order.push_back(1);
    });
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
