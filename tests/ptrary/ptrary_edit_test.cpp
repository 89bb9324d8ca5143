// Creation, linear growth, insertion, removal and lookup of pointer arrays,
// with the error numbers of every refusal and the unchanged contents after
// it.
#include <gtest/gtest.h>

#include <vector>

#include "ptrary_support.hpp"

namespace {

using ptrary_test::Array;
using ptrary_test::Items;
using ptrary_test::resetErr;

// ---- Creation and growth --------------------------------------------------

TEST(PtrAryCreate, RefusesSizesBelowOne) {
  for (D_INT4 size : {0, -1, INT32_MIN}) {
    resetErr();
    EXPECT_EQ(DutPtrAryCreate(size), nullptr) << size;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL) << size;
  }
}

TEST(PtrAryCreate, RefusesSizesNoBlockCanHold) {
  resetErr();
  EXPECT_EQ(DutPtrAryCreate(INT32_MAX), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_LARGE);
}

TEST(PtrAryCreate, StartsEmptyWithCapacityAndIncrementEqual) {
  Array a(7);
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(D_GPA_COUNT(a.get()), 0);
  EXPECT_EQ(a->capacity, 7);
  EXPECT_EQ(a->increment, 7);
  EXPECT_EQ(a->change_cb_list, nullptr);
  EXPECT_NE(DutPtrAryGetArray(a.get()), nullptr);
}

TEST(PtrAryGrowth, AppendGrowsByTheInitialCapacityNotByDoubling) {
  Array a(10);
  std::vector<D_INT4> capacity_after;  // capacity after each append
  for (D_WORD i = 0; i < 41; ++i) {
    D_INT4 index = -1;
    ASSERT_TRUE(DutPtrAryAppend(a.get(), i * 3, &index));
    EXPECT_EQ(index, i);
    capacity_after.push_back(a->capacity);
  }
  EXPECT_EQ(capacity_after[9], 10);
  EXPECT_EQ(capacity_after[10], 20);  // the 11th item
  EXPECT_EQ(capacity_after[19], 20);
  EXPECT_EQ(capacity_after[20], 30);
  EXPECT_EQ(capacity_after[30], 40);
  EXPECT_EQ(capacity_after[40], 50);
  EXPECT_EQ(a->increment, 10);
  Items items = a.items();
  ASSERT_EQ(items.size(), 41u);
  for (D_WORD i = 0; i < 41; ++i) EXPECT_EQ(items[static_cast<size_t>(i)], i * 3);
}

TEST(PtrAryGrowth, EveryInsertionFormGrowsAFullArray) {
  struct Case {
    const char *name;
    D_BOOL (*insert)(D_PTR_ARY *);
    Items expected;
  };
  const Case cases[] = {
      {"at index 1", [](D_PTR_ARY *p) { return DutPtrAryInsertItemAtIndex(p, 9, 1); }, {1, 9, 2}},
      {"at index count", [](D_PTR_ARY *p) { return DutPtrAryInsertItemAtIndex(p, 9, 2); }, {1, 2, 9}},
      {"before first", [](D_PTR_ARY *p) { return DutPtrAryInsertBefore(p, 1, 9); }, {9, 1, 2}},
      {"before last", [](D_PTR_ARY *p) { return DutPtrAryInsertBefore(p, 2, 9); }, {1, 9, 2}},
      {"after first", [](D_PTR_ARY *p) { return DutPtrAryInsertAfter(p, 1, 9); }, {1, 9, 2}},
      {"after last", [](D_PTR_ARY *p) { return DutPtrAryInsertAfter(p, 2, 9); }, {1, 2, 9}},
  };
  for (const Case &c : cases) {
    Array a(2, {1, 2});
    ASSERT_TRUE(c.insert(a.get())) << c.name;
    EXPECT_EQ(a->capacity, 4) << c.name;
    EXPECT_EQ(a.items(), c.expected) << c.name;
  }
}

// ---- Insertion --------------------------------------------------------------

TEST(PtrAryInsert, AtIndexAcceptsZeroToCountInclusive) {
  Array a(4, {10, 20});
  ASSERT_TRUE(DutPtrAryInsertItemAtIndex(a.get(), 5, 0));
  ASSERT_TRUE(DutPtrAryInsertItemAtIndex(a.get(), 15, 2));
  ASSERT_TRUE(DutPtrAryInsertItemAtIndex(a.get(), 25, D_GPA_COUNT(a.get())));
  EXPECT_EQ(a.items(), (Items{5, 10, 15, 20, 25}));

  for (D_INT4 bad : {-1, D_GPA_COUNT(a.get()) + 1, INT32_MAX}) {
    resetErr();
    EXPECT_FALSE(DutPtrAryInsertItemAtIndex(a.get(), 99, bad)) << bad;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << bad;
  }
  EXPECT_EQ(a.items(), (Items{5, 10, 15, 20, 25}));
}

TEST(PtrAryInsert, BeforeAndAfterUseTheFirstOccurrence) {
  Array a(8, {1, 2, 3, 2});
  ASSERT_TRUE(DutPtrAryInsertBefore(a.get(), 2, 7));
  EXPECT_EQ(a.items(), (Items{1, 7, 2, 3, 2}));
  ASSERT_TRUE(DutPtrAryInsertAfter(a.get(), 2, 8));
  EXPECT_EQ(a.items(), (Items{1, 7, 2, 8, 3, 2}));
}

TEST(PtrAryInsert, BeforeTheLastItemLeavesTheNewItemSecondToLast) {
  Array a(3, {1, 2, 3});
  ASSERT_TRUE(DutPtrAryInsertBefore(a.get(), 3, 9));
  Items items = a.items();
  ASSERT_EQ(items.size(), 4u);
  EXPECT_EQ(items[2], 9);  // count - 2
  EXPECT_EQ(items[3], 3);  // count - 1: the existing item, appended again
  EXPECT_EQ(a->capacity, 6);

  // A single-item array takes the same path.
  Array b(1, {5});
  ASSERT_TRUE(DutPtrAryInsertBefore(b.get(), 5, 4));
  EXPECT_EQ(b.items(), (Items{4, 5}));
}

TEST(PtrAryInsert, BeforeOrAfterAnAbsentItemChangesNothing) {
  Array empty(2);
  Array a(2, {1, 2});
  for (D_PTR_ARY *array : {empty.get(), a.get()}) {
    resetErr();
    EXPECT_FALSE(DutPtrAryInsertBefore(array, 3, 9));
    EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
    resetErr();
    EXPECT_FALSE(DutPtrAryInsertAfter(array, 3, 9));
    EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  }
  EXPECT_EQ(D_GPA_COUNT(empty.get()), 0);
  EXPECT_EQ(a.items(), (Items{1, 2}));
  EXPECT_EQ(a->capacity, 2);  // a refused insertion does not grow
}

// ---- Removal ----------------------------------------------------------------

TEST(PtrAryRemove, AtIndexKeepsTheOrderAndReportsTheItem) {
  Array a(4, {1, 2, 3, 4, 5});
  D_WORD removed = 0;
  ASSERT_TRUE(DutPtrAryRemoveItemAtIndex(a.get(), 1, &removed));
  EXPECT_EQ(removed, 2);
  EXPECT_EQ(a.items(), (Items{1, 3, 4, 5}));
  ASSERT_TRUE(DutPtrAryRemoveItemAtIndex(a.get(), 3, &removed));
  EXPECT_EQ(removed, 5);
  ASSERT_TRUE(DutPtrAryRemoveItemAtIndex(a.get(), 0, nullptr));
  EXPECT_EQ(a.items(), (Items{3, 4}));
}

TEST(PtrAryRemove, AtIndexChecksEmptinessBeforeTheIndex) {
  Array a(2);
  for (D_INT4 index : {0, -1, 5}) {
    resetErr();
    EXPECT_FALSE(DutPtrAryRemoveItemAtIndex(a.get(), index, nullptr));
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL) << index;
  }
  ASSERT_TRUE(DutPtrAryAppend(a.get(), 8, nullptr));
  for (D_INT4 index : {-1, 1, 2}) {
    resetErr();
    D_WORD removed = 77;
    EXPECT_FALSE(DutPtrAryRemoveItemAtIndex(a.get(), index, &removed));
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << index;
    EXPECT_EQ(removed, 77);
  }
  EXPECT_EQ(a.items(), (Items{8}));
}

TEST(PtrAryRemove, ByItemTakesTheFirstOccurrenceAndOnEmptyIsTooSmall) {
  Array a(4, {1, 2, 3, 2});
  ASSERT_TRUE(DutPtrAryRemove(a.get(), 2));
  EXPECT_EQ(a.items(), (Items{1, 3, 2}));
  resetErr();
  EXPECT_FALSE(DutPtrAryRemove(a.get(), 4));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(a.items(), (Items{1, 3, 2}));

  Array empty(2);
  resetErr();
  EXPECT_FALSE(DutPtrAryRemove(empty.get(), 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL);  // not "doesn't exist"
}

TEST(PtrAryRemove, AllCountsEveryOccurrenceAndKeepsTheRest) {
  Array a(4, {5, 1, 5, 2, 5, 3});
  D_INT4 removed = -1;
  ASSERT_TRUE(DutPtrAryRemoveAll(a.get(), 5, &removed));
  EXPECT_EQ(removed, 3);
  EXPECT_EQ(a.items(), (Items{1, 2, 3}));

  Array same(2, {4, 4, 4});
  ASSERT_TRUE(DutPtrAryRemoveAll(same.get(), 4, &removed));
  EXPECT_EQ(removed, 3);
  EXPECT_EQ(D_GPA_COUNT(same.get()), 0);
}

TEST(PtrAryRemove, AllWithNothingToRemoveStoresZero) {
  Array a(4, {1, 2});
  D_INT4 removed = 99;
  resetErr();
  EXPECT_FALSE(DutPtrAryRemoveAll(a.get(), 3, &removed));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(removed, 0);
  EXPECT_EQ(a.items(), (Items{1, 2}));

  Array empty(1);
  removed = 99;
  resetErr();
  EXPECT_FALSE(DutPtrAryRemoveAll(empty.get(), 3, &removed));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(removed, 0);

  resetErr();
  EXPECT_FALSE(DutPtrAryRemoveAll(a.get(), 1, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(a.items(), (Items{1, 2}));
}

// ---- Lookup and replacement -------------------------------------------------

TEST(PtrAryLookup, ItemIndexFindsTheFirstOccurrenceOrLeavesCount) {
  Array a(4, {7, 8, 7});
  D_INT4 index = -5;
  ASSERT_TRUE(DutPtrAryGetItemIndex(a.get(), 7, &index));
  EXPECT_EQ(index, 0);
  ASSERT_TRUE(DutPtrAryGetItemIndex(a.get(), 8, &index));
  EXPECT_EQ(index, 1);
  resetErr();
  EXPECT_FALSE(DutPtrAryGetItemIndex(a.get(), 9, &index));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(index, 3);
  resetErr();
  EXPECT_FALSE(DutPtrAryGetItemIndex(a.get(), 7, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(PtrAryLookup, ItemExistsSetsMissingEvenWhenEmpty) {
  Array a(2);
  resetErr();
  EXPECT_FALSE(DutPtrAryItemExists(a.get(), 0));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  ASSERT_TRUE(DutPtrAryAppend(a.get(), 0, nullptr));  // 0 is an ordinary item
  EXPECT_TRUE(DutPtrAryItemExists(a.get(), 0));
}

TEST(PtrAryLookup, ItemAtIndexBounds) {
  Array a(2, {4, 5, 6});
  D_WORD item = 0;
  ASSERT_TRUE(DutPtrAryGetItemAtIndex(a.get(), 0, &item));
  EXPECT_EQ(item, 4);
  ASSERT_TRUE(DutPtrAryGetItemAtIndex(a.get(), 2, &item));
  EXPECT_EQ(item, 6);
  for (D_INT4 bad : {-1, 3, 4}) {  // 3 is inside the capacity (4), still invalid
    item = 99;
    resetErr();
    EXPECT_FALSE(DutPtrAryGetItemAtIndex(a.get(), bad, &item)) << bad;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << bad;
    EXPECT_EQ(item, 99);
  }
  resetErr();
  EXPECT_FALSE(DutPtrAryGetItemAtIndex(a.get(), 0, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(PtrAryLookup, ReplaceReturnsTheOldItem) {
  Array a(2, {4, 5});
  D_WORD old = 0;
  ASSERT_TRUE(DutPtrAryReplaceItemAtIndex(a.get(), 9, 1, &old));
  EXPECT_EQ(old, 5);
  ASSERT_TRUE(DutPtrAryReplaceItemAtIndex(a.get(), 8, 0, nullptr));
  EXPECT_EQ(a.items(), (Items{8, 9}));
  for (D_INT4 bad : {-1, 2}) {
    resetErr();
    EXPECT_FALSE(DutPtrAryReplaceItemAtIndex(a.get(), 1, bad, &old)) << bad;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << bad;
  }
  EXPECT_EQ(a.items(), (Items{8, 9}));
}

TEST(PtrAryErrors, SuccessKeepsThePreviousErrorNumber) {
  Array a(2);
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  ASSERT_TRUE(DutPtrAryAppend(a.get(), 1, nullptr));
  ASSERT_TRUE(DutPtrAryItemExists(a.get(), 1));
  ASSERT_TRUE(DutPtrAryRemove(a.get(), 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
}

}  // namespace
