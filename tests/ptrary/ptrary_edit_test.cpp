// Creation, linear growth and insertion forms of pointer arrays, and every
// refusal with its error number, its out value and the unchanged contents
// after it.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

#include "ptrary_support.hpp"

namespace {

using ptrary_test::Array;
using ptrary_test::Items;
using ptrary_test::resetErr;

D_INT4 ascending(D_WORD a, D_WORD b) { return a < b ? -1 : (a > b ? 1 : 0); }

TEST(PtrAryCreate, SizeLimitsAndTheEmptyArray) {
  const std::pair<D_INT4, D_INT4> refused[] = {
      {0, D_ERR_VAL_TOO_SMALL}, {-1, D_ERR_VAL_TOO_SMALL}, {INT32_MIN, D_ERR_VAL_TOO_SMALL},
      {INT32_MAX, D_ERR_VAL_TOO_LARGE}};  // no single block holds it
  for (auto [size, err] : refused) {
    resetErr();
    EXPECT_EQ(DutPtrAryCreate(size), nullptr) << size;
    EXPECT_EQ(DutErrNumGet(), err) << size;
  }
  Array a(7);
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(D_GPA_COUNT(a.get()), 0);
  EXPECT_EQ(a->capacity, 7);
  EXPECT_EQ(a->increment, 7);
  EXPECT_EQ(a->change_cb_list, nullptr);
}

TEST(PtrAryGrowth, AppendGrowsByTheInitialCapacityNotByDoubling) {
  Array a(10);
  for (D_WORD i = 0; i < 41; ++i) {
    D_INT4 index = -1;
    ASSERT_TRUE(DutPtrAryAppend(a.get(), i * 3, &index));
    EXPECT_EQ(index, i);
    // Full at 10, 20, 30, 40 items: the next append adds one increment.
    EXPECT_EQ(a->capacity, 10 * (i / 10 + 1)) << "after item " << i;
  }
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
  // Before the last item, the new item is written over the last slot and
  // the old item appended again behind it.
  const Case cases[] = {
      {"at index 0", [](D_PTR_ARY *p) { return DutPtrAryInsertItemAtIndex(p, 9, 0); }, {9, 1, 2}},
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

// Each call is made on a full array holding start; out starts at 77.
struct Refusal {
  const char *name;
  Items start;
  D_BOOL (*call)(D_PTR_ARY *p, D_WORD *out);
  D_INT4 err;
  D_WORD out_after = 77;
};
#define CALL(expr) [](D_PTR_ARY *p, [[maybe_unused]] D_WORD *out) -> D_BOOL { return expr; }

// The counting calls with their 32-bit out values widened.
D_BOOL RemoveAllOut(D_PTR_ARY *p, D_WORD item, D_WORD *out) {
  D_INT4 n = 99;
  const D_BOOL ok = DutPtrAryRemoveAll(p, item, &n);
  *out = n;
  return ok;
}
D_BOOL IndexOut(D_PTR_ARY *p, D_WORD item, D_WORD *out) {
  D_INT4 index = -5;
  const D_BOOL ok = DutPtrAryGetItemIndex(p, item, &index);
  *out = index;
  return ok;
}

TEST(PtrAryRefusals, ErrorNumberOutValueAndUnchangedArray) {
  const Refusal refusals[] = {
      {"insert at -1", {10, 20}, CALL(DutPtrAryInsertItemAtIndex(p, 9, -1)), D_ERR_VAL_INVALID},
      {"insert at count + 1", {10, 20}, CALL(DutPtrAryInsertItemAtIndex(p, 9, 3)), D_ERR_VAL_INVALID},
      {"insert at INT32_MAX", {10, 20}, CALL(DutPtrAryInsertItemAtIndex(p, 9, INT32_MAX)), D_ERR_VAL_INVALID},
      {"insert before absent", {1, 2}, CALL(DutPtrAryInsertBefore(p, 3, 9)), D_ERR_DOESNT_EXIST},
      {"insert before in empty", {}, CALL(DutPtrAryInsertBefore(p, 3, 9)), D_ERR_DOESNT_EXIST},
      {"insert after absent", {1, 2}, CALL(DutPtrAryInsertAfter(p, 3, 9)), D_ERR_DOESNT_EXIST},
      {"insert after in empty", {}, CALL(DutPtrAryInsertAfter(p, 3, 9)), D_ERR_DOESNT_EXIST},
      // Emptiness is checked before the index.
      {"remove at 0 of empty", {}, CALL(DutPtrAryRemoveItemAtIndex(p, 0, out)), D_ERR_VAL_TOO_SMALL},
      {"remove at 5 of empty", {}, CALL(DutPtrAryRemoveItemAtIndex(p, 5, out)), D_ERR_VAL_TOO_SMALL},
      {"remove at -1", {8}, CALL(DutPtrAryRemoveItemAtIndex(p, -1, out)), D_ERR_VAL_INVALID},
      {"remove at count", {8}, CALL(DutPtrAryRemoveItemAtIndex(p, 1, out)), D_ERR_VAL_INVALID},
      {"remove absent", {1, 3, 2}, CALL(DutPtrAryRemove(p, 4)), D_ERR_DOESNT_EXIST},
      {"remove from empty", {}, CALL(DutPtrAryRemove(p, 1)), D_ERR_VAL_TOO_SMALL},  // not "doesn't exist"
      {"remove all absent", {1, 2}, CALL(RemoveAllOut(p, 3, out)), D_ERR_DOESNT_EXIST, 0},
      {"remove all from empty", {}, CALL(RemoveAllOut(p, 3, out)), D_ERR_DOESNT_EXIST, 0},
      {"remove all, null count", {1, 2}, CALL(DutPtrAryRemoveAll(p, 1, nullptr)), D_ERR_NULL_PTR},
      {"index of absent", {7, 8, 7}, CALL(IndexOut(p, 9, out)), D_ERR_DOESNT_EXIST, 3},  // left at the count
      {"index, null out", {7}, CALL(DutPtrAryGetItemIndex(p, 7, nullptr)), D_ERR_NULL_PTR},
      {"exists in empty", {}, CALL(DutPtrAryItemExists(p, 0)), D_ERR_DOESNT_EXIST},
      {"item at -1", {4, 5, 6}, CALL(DutPtrAryGetItemAtIndex(p, -1, out)), D_ERR_VAL_INVALID},
      {"item at count", {4, 5, 6}, CALL(DutPtrAryGetItemAtIndex(p, 3, out)), D_ERR_VAL_INVALID},
      {"item at, null out", {4}, CALL(DutPtrAryGetItemAtIndex(p, 0, nullptr)), D_ERR_NULL_PTR},
      {"replace at -1", {4, 5}, CALL(DutPtrAryReplaceItemAtIndex(p, 1, -1, out)), D_ERR_VAL_INVALID},
      {"replace at count", {4, 5}, CALL(DutPtrAryReplaceItemAtIndex(p, 1, 2, out)), D_ERR_VAL_INVALID},
      {"swap -1, 0", {1, 2, 3}, CALL(DutPtrArySwapItems(p, -1, 0)), D_ERR_VAL_INVALID},
      {"swap 0, -1", {1, 2, 3}, CALL(DutPtrArySwapItems(p, 0, -1)), D_ERR_VAL_INVALID},
      {"swap count, 0", {1, 2, 3}, CALL(DutPtrArySwapItems(p, 3, 0)), D_ERR_VAL_INVALID},
      {"swap 0, count", {1, 2, 3}, CALL(DutPtrArySwapItems(p, 0, 3)), D_ERR_VAL_INVALID},
      {"swap in empty", {}, CALL(DutPtrArySwapItems(p, 0, 0)), D_ERR_VAL_INVALID},
      {"sort, null compare", {2, 1}, CALL(DutPtrArySort(p, nullptr)), D_ERR_NULL_PTR},
  };
  for (const Refusal &r : refusals) {
    const D_INT4 capacity = std::max<D_INT4>(1, static_cast<D_INT4>(r.start.size()));
    Array a(capacity, r.start);
    D_WORD out = 77;
    resetErr();
    EXPECT_FALSE(r.call(a.get(), &out)) << r.name;
    EXPECT_EQ(DutErrNumGet(), r.err) << r.name;
    EXPECT_EQ(out, r.out_after) << r.name;
    EXPECT_EQ(a.items(), r.start) << r.name;
    EXPECT_EQ(a->capacity, capacity) << r.name;  // a refused insertion does not grow
  }
}

TEST(PtrAryRefusals, NullArrayIsRefusedByEveryOperation) {
  // A header whose item array is missing is refused the same way.
  D_PTR_ARY hollow{nullptr, 4, 0, 4, nullptr};
  for (D_PTR_ARY *array : {static_cast<D_PTR_ARY *>(nullptr), &hollow}) {
    const std::pair<const char *, D_BOOL (*)(D_PTR_ARY *)> calls[] = {
        {"Clear", [](D_PTR_ARY *p) { return DutPtrAryClear(p, nullptr, nullptr); }},
        {"Append", [](D_PTR_ARY *p) { return DutPtrAryAppend(p, 1, nullptr); }},
        {"InsertItemAtIndex", [](D_PTR_ARY *p) { return DutPtrAryInsertItemAtIndex(p, 1, 0); }},
        {"InsertBefore", [](D_PTR_ARY *p) { return DutPtrAryInsertBefore(p, 1, 2); }},
        {"InsertAfter", [](D_PTR_ARY *p) { return DutPtrAryInsertAfter(p, 1, 2); }},
        {"RemoveItemAtIndex", [](D_PTR_ARY *p) { return DutPtrAryRemoveItemAtIndex(p, 0, nullptr); }},
        {"Remove", [](D_PTR_ARY *p) { return DutPtrAryRemove(p, 1); }},
        {"ItemExists", [](D_PTR_ARY *p) { return DutPtrAryItemExists(p, 1); }},
        {"ReplaceItemAtIndex", [](D_PTR_ARY *p) { return DutPtrAryReplaceItemAtIndex(p, 1, 0, nullptr); }},
        {"SwapItems", [](D_PTR_ARY *p) { return DutPtrArySwapItems(p, 0, 0); }},
        {"Sort", [](D_PTR_ARY *p) { return DutPtrArySort(p, ascending); }},
        {"RemoveAll", [](D_PTR_ARY *p) { D_INT4 n; return DutPtrAryRemoveAll(p, 1, &n); }},
        {"GetItemIndex", [](D_PTR_ARY *p) { D_INT4 n; return DutPtrAryGetItemIndex(p, 1, &n); }},
        {"GetItemAtIndex", [](D_PTR_ARY *p) { D_WORD w; return DutPtrAryGetItemAtIndex(p, 0, &w); }},
    };
    for (const auto &[name, call] : calls) {
      resetErr();
      EXPECT_FALSE(call(array)) << name;
      EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR) << name;
    }
  }
  EXPECT_EQ(hollow.count, 0);
  EXPECT_EQ(hollow.capacity, 4);
  resetErr();
  EXPECT_FALSE(DutPtrAryDestroy(nullptr, nullptr, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(PtrAryRefusals, SuccessKeepsThePreviousErrorNumber) {
  Array a(2);
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  ASSERT_TRUE(DutPtrAryAppend(a.get(), 1, nullptr));
  ASSERT_TRUE(DutPtrAryItemExists(a.get(), 1));
  ASSERT_TRUE(DutPtrAryRemove(a.get(), 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
}

}  // namespace
