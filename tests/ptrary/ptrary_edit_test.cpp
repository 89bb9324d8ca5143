// Creation of pointer arrays and every refusal with its error number, its
// out value and the unchanged contents after it.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "ptrary_support.hpp"
#include "support/output_capture.hpp"

namespace {

using ptrary_test::Array;
using ptrary_test::Items;
using ptrary_test::resetErr;

TEST(PtrAryCreate, SizeLimitsAndTheEmptyArray) {
  // No single block holds INT32_MAX items.
  const std::pair<D_INT4, D_INT4> refused[] = {
      {0, D_ERR_VAL_TOO_SMALL}, {INT32_MIN, D_ERR_VAL_TOO_SMALL}, {INT32_MAX, D_ERR_VAL_TOO_LARGE}};
  for (auto [size, err] : refused) EXPECT_FAILS(DutPtrAryCreate(size), nullptr, err);
  Array a(7);
  ASSERT_NE(a.get(), nullptr);
  EXPECT_EQ(std::make_pair(D_GPA_COUNT(a.get()), a->capacity), std::make_pair(0, 7));
  EXPECT_EQ(a->increment, 7);
  EXPECT_EQ(a->change_cb_list, nullptr);
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
      {"insert before absent", {1, 2}, CALL(DutPtrAryInsertBefore(p, 3, 9)), D_ERR_DOESNT_EXIST},
      {"insert after in empty", {}, CALL(DutPtrAryInsertAfter(p, 3, 9)), D_ERR_DOESNT_EXIST},
      // Emptiness is checked before the index.
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
  auto ascending = [](D_WORD a, D_WORD b) -> D_INT4 { return a < b ? -1 : (a > b ? 1 : 0); };
  for (D_PTR_ARY *array : {static_cast<D_PTR_ARY *>(nullptr), &hollow}) {
    D_INT4 n;
    D_WORD w;
    EXPECT_FAILS(DutPtrAryClear(array, nullptr, nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryAppend(array, 1, nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryInsertItemAtIndex(array, 1, 0), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryInsertBefore(array, 1, 2), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryInsertAfter(array, 1, 2), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryRemoveItemAtIndex(array, 0, nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryRemove(array, 1), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryItemExists(array, 1), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryReplaceItemAtIndex(array, 1, 0, nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrArySwapItems(array, 0, 0), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrArySort(array, ascending), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryRemoveAll(array, 1, &n), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryGetItemIndex(array, 1, &n), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutPtrAryGetItemAtIndex(array, 0, &w), D_FALSE, D_ERR_NULL_PTR);
  }
  EXPECT_EQ(std::make_pair(hollow.count, hollow.capacity), std::make_pair(0, 4));
  EXPECT_FAILS(DutPtrAryDestroy(nullptr, nullptr, nullptr), D_FALSE, D_ERR_NULL_PTR);
}

}  // namespace
