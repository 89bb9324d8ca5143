// Pointer-array change callbacks: the exact change record of every
// mutation, raised after the change is complete.
#include <gtest/gtest.h>

#include <vector>

#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/ptrary.h"

namespace {

struct Seen {
  D_WORD event, item, index, other_item, other_index;
  D_INT4 count_at_call;
  bool head_set;
};

void record(void *object, void *data, D_WORD arg) {
  auto *change = static_cast<D_PTR_ARY_CHANGE *>(data);
  auto *seen = reinterpret_cast<std::vector<Seen> *>(arg);
  seen->push_back({change->event, change->item, change->index, change->other_item, change->other_index,
                   D_GPA_COUNT(static_cast<D_PTR_ARY *>(object)), change->cb != nullptr});
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
  const Seen &last() const { return seen_.back(); }
  D_PTR_ARY *array_ = nullptr;
  D_CB *cb_ = nullptr;
  std::vector<Seen> seen_;
};

TEST_F(PtrAryChange, AdditionsReportTheNewItemAndItsPosition) {
  DutPtrAryAppend(array_, 10, nullptr);
  EXPECT_EQ(last().event, D_PTR_ARY_ITEM_ADDED);
  EXPECT_EQ(last().item, 10);
  EXPECT_EQ(last().index, 0);
  EXPECT_EQ(last().other_item, 0);
  EXPECT_EQ(last().other_index, -1);
  EXPECT_EQ(last().count_at_call, 1) << "raised after the change";
  EXPECT_TRUE(last().head_set);
  DutPtrAryAppend(array_, 30, nullptr);
  DutPtrAryInsertAfter(array_, 10, 20);  // 10 20 30
  EXPECT_EQ(last().item, 20);
  EXPECT_EQ(last().index, 1);
  DutPtrAryInsertItemAtIndex(array_, 5, 0);  // 5 10 20 30
  EXPECT_EQ(last().index, 0);
  DutPtrAryInsertBefore(array_, 10, 7);  // 5 7 10 20 30
  EXPECT_EQ(last().item, 7);
  EXPECT_EQ(last().index, 1);
}

TEST_F(PtrAryChange, InsertBeforeTheLastItemReportsTheAppendedSlot) {
  DutPtrAryAppend(array_, 1, nullptr);
  DutPtrAryAppend(array_, 2, nullptr);
  ASSERT_EQ(DutPtrAryInsertBefore(array_, 2, 9), D_TRUE);  // 1 9 2
  D_WORD *items = DutPtrAryGetArray(array_);
  EXPECT_EQ(items[1], 9);
  EXPECT_EQ(items[2], 2);
  EXPECT_EQ(last().event, D_PTR_ARY_ITEM_ADDED);
  EXPECT_EQ(last().item, 9);
  EXPECT_EQ(last().index, 2) << "count - 1, although the new item sits at count - 2";
}

TEST_F(PtrAryChange, RemovalsReplaceSwapClearSort) {
  for (D_WORD v : {4, 1, 4, 3, 4}) DutPtrAryAppend(array_, v, nullptr);
  seen_.clear();
  D_WORD removed = 0;
  DutPtrAryRemoveItemAtIndex(array_, 1, &removed);  // 4 4 3 4
  EXPECT_EQ(last().event, D_PTR_ARY_ITEM_REMOVED);
  EXPECT_EQ(last().item, 1);
  EXPECT_EQ(last().index, 1);
  D_INT4 n = 0;
  DutPtrAryRemoveAll(array_, 4, &n);  // 3
  EXPECT_EQ(n, 3);
  EXPECT_EQ(seen_.size(), 2u) << "remove-all raises one event";
  EXPECT_EQ(last().event, D_PTR_ARY_ALL_REMOVED);
  EXPECT_EQ(last().item, 4);
  EXPECT_EQ(last().index, -1);
  DutPtrAryAppend(array_, 8, nullptr);  // 3 8
  DutPtrArySwapItems(array_, 0, 1);      // 8 3
  EXPECT_EQ(last().event, D_PTR_ARY_ITEMS_SWAPPED);
  EXPECT_EQ(last().item, 8);
  EXPECT_EQ(last().index, 0);
  EXPECT_EQ(last().other_item, 3);
  EXPECT_EQ(last().other_index, 1);
  DutPtrAryReplaceItemAtIndex(array_, 6, 1, nullptr);  // 8 6
  EXPECT_EQ(last().event, D_PTR_ARY_ITEM_REPLACED);
  EXPECT_EQ(last().item, 6);
  EXPECT_EQ(last().index, 1);
  DutPtrArySort(array_, [](D_WORD a, D_WORD b) -> D_INT4 { return a < b ? -1 : (a > b ? 1 : 0); });
  EXPECT_EQ(last().event, D_PTR_ARY_SORTED);
  DutPtrAryClear(array_, nullptr, nullptr);
  EXPECT_EQ(last().event, D_PTR_ARY_CLEARED);
  EXPECT_EQ(last().item, 0);
  EXPECT_EQ(last().index, -1);
}

TEST_F(PtrAryChange, FailedChangesRaiseNothing) {
  DutPtrAryAppend(array_, 1, nullptr);
  seen_.clear();
  EXPECT_EQ(DutPtrAryRemove(array_, 99), D_FALSE);
  EXPECT_EQ(DutPtrAryInsertItemAtIndex(array_, 5, 7), D_FALSE);
  EXPECT_TRUE(seen_.empty());
}

TEST_F(PtrAryChange, RegistrationRules) {
  EXPECT_EQ(DutPtrAryChangeCbLookup(array_, record, reinterpret_cast<D_WORD>(&seen_)), cb_);
  EXPECT_EQ(DutPtrAryChangeCbCreate(array_, record, reinterpret_cast<D_WORD>(&seen_)), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  D_PTR_ARY *other = DutPtrAryCreate(1);
  EXPECT_EQ(DutPtrAryChangeCbLookup(other, record, 0), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(DutPtrAryChangeCbCreate(nullptr, record, 0), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
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
