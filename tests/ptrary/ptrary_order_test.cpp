// Swaps, sorting, clearing and destruction with their item functions, null
// arguments across the whole family, the fatal paths of the item-array
// accessor, and a randomised run against a std::vector model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

#include "ptrary_support.hpp"
#include "vqutil/output.h"

namespace {

using ptrary_test::Array;
using ptrary_test::Items;
using ptrary_test::resetErr;

D_INT4 ascending(D_WORD a, D_WORD b) { return a < b ? -1 : (a > b ? 1 : 0); }
D_INT4 descending(D_WORD a, D_WORD b) { return ascending(b, a); }

// Records sorted by key only, so equal keys stay distinguishable.
struct Keyed {
  int key;
  int tag;
};
D_INT4 byKey(D_WORD a, D_WORD b) {
  return ascending(reinterpret_cast<const Keyed *>(a)->key, reinterpret_cast<const Keyed *>(b)->key);
}

// ---- Swap -------------------------------------------------------------------

TEST(PtrArySwap, SwapsAndRefusesEitherBadIndex) {
  Array a(4, {1, 2, 3});
  ASSERT_TRUE(DutPtrArySwapItems(a.get(), 0, 2));
  EXPECT_EQ(a.items(), (Items{3, 2, 1}));
  ASSERT_TRUE(DutPtrArySwapItems(a.get(), 1, 1));
  EXPECT_EQ(a.items(), (Items{3, 2, 1}));

  const std::pair<D_INT4, D_INT4> bad[] = {{-1, 0}, {0, -1}, {3, 0}, {0, 3}, {3, 3}};
  for (auto [i, j] : bad) {
    resetErr();
    EXPECT_FALSE(DutPtrArySwapItems(a.get(), i, j)) << i << "," << j;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << i << "," << j;
  }
  EXPECT_EQ(a.items(), (Items{3, 2, 1}));

  Array empty(1);
  resetErr();
  EXPECT_FALSE(DutPtrArySwapItems(empty.get(), 0, 0));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
}

// ---- Sort -------------------------------------------------------------------

TEST(PtrArySort, FewerThanTwoItemsAreLeftAlone) {
  Array empty(1);
  EXPECT_TRUE(DutPtrArySort(empty.get(), ascending));
  EXPECT_EQ(D_GPA_COUNT(empty.get()), 0);
  Array one(1, {5});
  EXPECT_TRUE(DutPtrArySort(one.get(), descending));
  EXPECT_EQ(one.items(), (Items{5}));
}

TEST(PtrArySort, OrdersByTheCompareFunction) {
  Array a(3, {5, 3, 9, 1, 7, 3});
  ASSERT_TRUE(DutPtrArySort(a.get(), ascending));
  EXPECT_EQ(a.items(), (Items{1, 3, 3, 5, 7, 9}));
  ASSERT_TRUE(DutPtrArySort(a.get(), descending));
  EXPECT_EQ(a.items(), (Items{9, 7, 5, 3, 3, 1}));

  Array two(2, {2, 1});
  ASSERT_TRUE(DutPtrArySort(two.get(), ascending));
  EXPECT_EQ(two.items(), (Items{1, 2}));
}

TEST(PtrArySort, FullArrayUsesOnlyItsSpareSlot) {
  // count == capacity: the item parked during the sort goes into the spare
  // slot and nowhere beyond it (the sanitizer build checks the bound).
  for (D_INT4 n : {2, 3, 4, 5, 8, 16, 17}) {
    Array a(n);
    for (D_INT4 i = 0; i < n; ++i) ASSERT_TRUE(DutPtrAryAppend(a.get(), n - i, nullptr));
    ASSERT_EQ(a->capacity, n);
    ASSERT_TRUE(DutPtrArySort(a.get(), ascending));
    Items expected;
    for (D_INT4 i = 1; i <= n; ++i) expected.push_back(i);
    EXPECT_EQ(a.items(), expected) << n;
    EXPECT_EQ(a->capacity, n);
  }
}

TEST(PtrArySort, RandomInputsMatchAReferenceSortByKey) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 50; ++round) {
    const int n = 2 + static_cast<int>(rng() % 300);
    std::vector<Keyed> records(static_cast<size_t>(n));
    Array a(1 + static_cast<D_INT4>(rng() % 16));
    for (int i = 0; i < n; ++i) {
      records[static_cast<size_t>(i)] = Keyed{static_cast<int>(rng() % 20), i};
      ASSERT_TRUE(DutPtrAryAppend(a.get(), reinterpret_cast<D_WORD>(&records[static_cast<size_t>(i)]),
                                  nullptr));
    }
    ASSERT_TRUE(DutPtrArySort(a.get(), byKey));
    Items sorted = a.items();
    ASSERT_EQ(sorted.size(), records.size());
    EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(),
                               [](D_WORD x, D_WORD y) { return byKey(x, y) < 0; }));
    // Still every record exactly once.
    Items expected;
    for (auto &record : records) expected.push_back(reinterpret_cast<D_WORD>(&record));
    std::sort(expected.begin(), expected.end());
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, expected) << "round " << round;
  }
}

TEST(PtrArySort, NullCompareIsRefused) {
  Array a(2, {2, 1});
  resetErr();
  EXPECT_FALSE(DutPtrArySort(a.get(), nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(a.items(), (Items{2, 1}));
}

// ---- Clear and destroy ------------------------------------------------------

struct Visit {
  D_INT4 index;
  D_WORD item;
};
void record(D_INT4 index, D_WORD item, void *arg) {
  static_cast<std::vector<Visit> *>(arg)->push_back(Visit{index, item});
}

TEST(PtrAryClear, VisitsInOrderZeroesTheSlotsAndKeepsCapacity) {
  Array a(2, {11, 22, 33});
  std::vector<Visit> visits;
  ASSERT_TRUE(DutPtrAryClear(a.get(), record, &visits));
  ASSERT_EQ(visits.size(), 3u);
  for (D_INT4 i = 0; i < 3; ++i) {
    EXPECT_EQ(visits[static_cast<size_t>(i)].index, i);
    EXPECT_EQ(visits[static_cast<size_t>(i)].item, (i + 1) * 11);
  }
  EXPECT_EQ(D_GPA_COUNT(a.get()), 0);
  EXPECT_EQ(a->capacity, 4);
  const D_WORD *slots = DutPtrAryGetArray(a.get());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(slots[i], 0) << i;

  // Usable again, and a clear without an item function.
  ASSERT_TRUE(DutPtrAryAppend(a.get(), 44, nullptr));
  EXPECT_EQ(a.items(), (Items{44}));
  ASSERT_TRUE(DutPtrAryClear(a.get(), nullptr, nullptr));
  EXPECT_EQ(D_GPA_COUNT(a.get()), 0);
}

void freeItem(D_INT4 index, D_WORD item, void *arg) {
  record(index, 0, arg);
  std::free(reinterpret_cast<void *>(item));
}

TEST(PtrAryDestroy, ItemFunctionSeesEveryItemInOrder) {
  // The items are heap blocks: the sanitizer build's leak check sees any
  // the destruction misses.
  Array a(1);
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(DutPtrAryAppend(a.get(), reinterpret_cast<D_WORD>(std::malloc(8)), nullptr));
  }
  std::vector<Visit> visits;
  EXPECT_TRUE(DutPtrAryDestroy(a.release(), freeItem, &visits));
  ASSERT_EQ(visits.size(), 5u);
  for (D_INT4 i = 0; i < 5; ++i) EXPECT_EQ(visits[static_cast<size_t>(i)].index, i);
}

// ---- Null arguments ---------------------------------------------------------

TEST(PtrAryErrors, NullArrayIsRefusedByEveryOperation) {
  D_INT4 n = 0;
  D_WORD w = 0;
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
        {"ReplaceItemAtIndex",
         [](D_PTR_ARY *p) { return DutPtrAryReplaceItemAtIndex(p, 1, 0, nullptr); }},
        {"SwapItems", [](D_PTR_ARY *p) { return DutPtrArySwapItems(p, 0, 0); }},
        {"Sort", [](D_PTR_ARY *p) { return DutPtrArySort(p, ascending); }},
    };
    for (const auto &[name, call] : calls) {
      resetErr();
      EXPECT_FALSE(call(array)) << name;
      EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR) << name;
    }
    resetErr();
    EXPECT_FALSE(DutPtrAryRemoveAll(array, 1, &n));
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
    resetErr();
    EXPECT_FALSE(DutPtrAryGetItemIndex(array, 1, &n));
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
    resetErr();
    EXPECT_FALSE(DutPtrAryGetItemAtIndex(array, 0, &w));
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  }
  EXPECT_EQ(hollow.count, 0);
  EXPECT_EQ(hollow.capacity, 4);
  resetErr();
  EXPECT_FALSE(DutPtrAryDestroy(nullptr, nullptr, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

// Runs inside the death-test child: abort at once instead of the fatal
// pause, with the report on stderr where the death test reads it.
void getArrayFatally(D_PTR_ARY *array) {
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
  DutPtrAryGetArray(array);
}

TEST(PtrAryDeathTest, GetArrayAssertsOnANullArray) {
  EXPECT_DEATH(getArrayFatally(nullptr), "Assertion <ptr_ary != NULL> failed, file: ptrary.c");
}

TEST(PtrAryDeathTest, GetArrayAssertsOnAMissingItemArray) {
  D_PTR_ARY hollow{nullptr, 1, 0, 1, nullptr};
  EXPECT_DEATH(getArrayFatally(&hollow),
               "Assertion <ptr_ary->ptr_ary != NULL> failed, file: ptrary.c");
}

// ---- Randomised run against a model -------------------------------------------

TEST(PtrAryModel, RandomOperationsMatchAVector) {
  std::mt19937 rng(7);
  Array a(3);
  Items model;
  auto pick = [&](size_t bound) { return bound == 0 ? 0 : static_cast<D_INT4>(rng() % bound); };
  for (int step = 0; step < 5000; ++step) {
    const D_WORD item = static_cast<D_WORD>(rng() % 12);  // small range: many duplicates
    const auto size = model.size();
    switch (rng() % 8) {
      case 0: {
        D_INT4 index = -1;
        ASSERT_TRUE(DutPtrAryAppend(a.get(), item, &index));
        EXPECT_EQ(index, static_cast<D_INT4>(size));
        model.push_back(item);
        break;
      }
      case 1: {
        const D_INT4 at = pick(size + 1);
        ASSERT_TRUE(DutPtrAryInsertItemAtIndex(a.get(), item, at));
        model.insert(model.begin() + at, item);
        break;
      }
      case 2: {
        auto it = std::find(model.begin(), model.end(), item);
        EXPECT_EQ(DutPtrAryInsertAfter(a.get(), item, 100 + step), it != model.end() ? 1 : 0);
        if (it != model.end()) model.insert(it + 1, 100 + step);
        break;
      }
      case 3: {
        auto it = std::find(model.begin(), model.end(), item);
        EXPECT_EQ(DutPtrAryInsertBefore(a.get(), item, 100 + step), it != model.end() ? 1 : 0);
        if (it != model.end()) model.insert(it, 100 + step);
        break;
      }
      case 4: {
        if (size == 0) break;
        const D_INT4 at = pick(size);
        D_WORD removed = 0;
        ASSERT_TRUE(DutPtrAryRemoveItemAtIndex(a.get(), at, &removed));
        EXPECT_EQ(removed, model[static_cast<size_t>(at)]);
        model.erase(model.begin() + at);
        break;
      }
      case 5: {
        auto it = std::find(model.begin(), model.end(), item);
        EXPECT_EQ(DutPtrAryRemove(a.get(), item), it != model.end() ? 1 : 0);
        if (it != model.end()) model.erase(it);
        break;
      }
      case 6: {
        D_INT4 removed = -1;
        const auto expected = std::count(model.begin(), model.end(), item);
        EXPECT_EQ(DutPtrAryRemoveAll(a.get(), item, &removed), expected > 0 ? 1 : 0);
        EXPECT_EQ(removed, expected);
        std::erase(model, item);
        break;
      }
      default: {
        if (size == 0) break;
        const D_INT4 i = pick(size), j = pick(size);
        ASSERT_TRUE(DutPtrArySwapItems(a.get(), i, j));
        std::swap(model[static_cast<size_t>(i)], model[static_cast<size_t>(j)]);
        break;
      }
    }
    ASSERT_EQ(a.items(), model) << "step " << step;
    // Linear growth: the capacity is always a multiple of the increment and
    // less than one increment above what was ever needed.
    ASSERT_EQ(a->capacity % 3, 0);
  }
}

}  // namespace
