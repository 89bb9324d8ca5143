// Pointer-array change callbacks: the exact change record of every
// mutation, raised after the change is complete.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/ptrary.h"

namespace {

// event, item, index, other item, other index, count seen by the callback
using Change = std::tuple<D_WORD, D_WORD, D_WORD, D_WORD, D_WORD, D_INT4>;

void record(void *object, void *data, D_WORD arg) {
  auto *change = static_cast<D_PTR_ARY_CHANGE *>(data);
  EXPECT_NE(change->cb, nullptr);  // the machinery fills the reserved field
  reinterpret_cast<std::vector<Change> *>(arg)->emplace_back(
      change->event, change->item, change->index, change->other_item, change->other_index,
      D_GPA_COUNT(static_cast<D_PTR_ARY *>(object)));
}

class PtrAryChange : public ::testing::Test {
 protected:
  void SetUp() override {
    array_ = DutPtrAryCreate(2);
    ASSERT_NE(array_, nullptr);
    cb_ = DutPtrAryChangeCbCreate(array_, record, reinterpret_cast<D_WORD>(&seen_));
    ASSERT_NE(cb_, nullptr);
  }
  void TearDown() override { EXPECT_EQ(DutPtrAryDestroy(array_, nullptr, nullptr), D_TRUE); }
  D_PTR_ARY *array_ = nullptr;
  D_CB *cb_ = nullptr;
  std::vector<Change> seen_;
};

TEST_F(PtrAryChange, EveryMutationReportsItsRecordAfterTheChange) {
  DutPtrAryAppend(array_, 10, nullptr);                // 10
  DutPtrAryAppend(array_, 30, nullptr);                // 10 30
  DutPtrAryInsertAfter(array_, 10, 20);                // 10 20 30
  DutPtrAryInsertItemAtIndex(array_, 5, 0);            // 5 10 20 30
  DutPtrAryInsertBefore(array_, 10, 7);                // 5 7 10 20 30
  DutPtrAryInsertBefore(array_, 30, 9);                // 5 7 10 20 9 30
  D_WORD removed = 0;
  DutPtrAryRemoveItemAtIndex(array_, 1, &removed);     // 5 10 20 9 30
  DutPtrAryRemove(array_, 20);                         // 5 10 9 30
  DutPtrAryAppend(array_, 5, nullptr);                 // 5 10 9 30 5
  D_INT4 n = 0;
  DutPtrAryRemoveAll(array_, 5, &n);                   // 10 9 30
  DutPtrArySwapItems(array_, 0, 2);                    // 30 9 10
  DutPtrAryReplaceItemAtIndex(array_, 6, 1, nullptr);  // 30 6 10
  DutPtrArySort(array_, [](D_WORD a, D_WORD b) -> D_INT4 { return a < b ? -1 : (a > b ? 1 : 0); });
  DutPtrAryClear(array_, nullptr, nullptr);
  const std::vector<Change> expected{
      {D_PTR_ARY_ITEM_ADDED, 10, 0, 0, -1, 1}, {D_PTR_ARY_ITEM_ADDED, 30, 1, 0, -1, 2},
      {D_PTR_ARY_ITEM_ADDED, 20, 1, 0, -1, 3}, {D_PTR_ARY_ITEM_ADDED, 5, 0, 0, -1, 4},
      {D_PTR_ARY_ITEM_ADDED, 7, 1, 0, -1, 5},
      // Before the last item: the appended slot (count - 1), although the
      // new item sits at count - 2.
      {D_PTR_ARY_ITEM_ADDED, 9, 5, 0, -1, 6},
      {D_PTR_ARY_ITEM_REMOVED, 7, 1, 0, -1, 5}, {D_PTR_ARY_ITEM_REMOVED, 20, 2, 0, -1, 4},
      {D_PTR_ARY_ITEM_ADDED, 5, 4, 0, -1, 5},   {D_PTR_ARY_ALL_REMOVED, 5, -1, 0, -1, 3},  // one event for both
      {D_PTR_ARY_ITEMS_SWAPPED, 30, 0, 10, 2, 3}, {D_PTR_ARY_ITEM_REPLACED, 6, 1, 0, -1, 3},
      {D_PTR_ARY_SORTED, 0, -1, 0, -1, 3},      {D_PTR_ARY_CLEARED, 0, -1, 0, -1, 0},
  };
  ASSERT_EQ(seen_.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(seen_[i], expected[i]) << "change " << i;
}

TEST_F(PtrAryChange, RegistrationRulesAndFailedChangesRaiseNothing) {
  EXPECT_EQ(DutPtrAryChangeCbLookup(array_, record, reinterpret_cast<D_WORD>(&seen_)), cb_);
  EXPECT_FAILS(DutPtrAryChangeCbCreate(array_, record, reinterpret_cast<D_WORD>(&seen_)), nullptr,
               D_ERR_ALREADY_EXISTS);
  D_PTR_ARY *other = DutPtrAryCreate(1);
  EXPECT_FAILS(DutPtrAryChangeCbLookup(other, record, 0), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutPtrAryChangeCbCreate(nullptr, record, 0), nullptr, D_ERR_NULL_PTR);
  DutPtrAryAppend(array_, 1, nullptr);
  seen_.clear();
  EXPECT_EQ(DutPtrAryRemove(array_, 99), D_FALSE);
  EXPECT_EQ(DutPtrAryInsertItemAtIndex(array_, 5, 7), D_FALSE);
  EXPECT_EQ(DutPtrArySwapItems(array_, 0, 1), D_FALSE);
  EXPECT_TRUE(seen_.empty());
  D_CB_TYPE *type = DutCbTypeNumLookup(D_PTR_ARY_CHANGE_CB_TYPE);
  ASSERT_NE(type, nullptr);
  EXPECT_STREQ(D_GCT_NAME(type), "ptr_ary_change");
  EXPECT_EQ(D_GCT_LOCAL_FLAG(type), D_CB_LOCAL_DIRECT);
  DutPtrAryDestroy(other, nullptr, nullptr);
}

TEST_F(PtrAryChange, ACallbackCanDestroyItselfDuringAChange) {
  auto once = [](void *, void *data, D_WORD arg) {
    ++*reinterpret_cast<int *>(arg);
    DutCbDestroy(static_cast<D_CB *>(static_cast<D_CB_DATA *>(data)->cb));
  };
  int calls = 0;
  ASSERT_NE(DutPtrAryChangeCbCreate(array_, once, reinterpret_cast<D_WORD>(&calls)), nullptr);
  DutPtrAryAppend(array_, 1, nullptr);
  DutPtrAryAppend(array_, 2, nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(seen_.size(), 2u);
}

}  // namespace
