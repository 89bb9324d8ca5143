// Swaps, sorting, clearing and destruction with their item functions, null
// arguments across the whole family, the fatal paths of the item-array
// accessor, and a randomised run against a std::vector model.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

#include "ptrary_support.hpp"
#include "vqutil/output.h"

namespace {

using ptrary_test::Array;
using ptrary_test::Items;

D_INT4 ascending(D_WORD a, D_WORD b) { return a < b ? -1 : (a > b ? 1 : 0); }
D_INT4 descending(D_WORD a, D_WORD b) { return ascending(b, a); }

TEST(PtrArySort, OrdersByTheCompareFunction) {
  Array empty(1), one(1, {5}), two(2, {2, 1}), a(3, {5, 3, 9, 1, 7, 3});
  EXPECT_TRUE(DutPtrArySort(empty.get(), ascending));
  EXPECT_EQ(D_GPA_COUNT(empty.get()), 0);
  EXPECT_TRUE(DutPtrArySort(one.get(), descending));
  EXPECT_EQ(one.items(), (Items{5}));
  ASSERT_TRUE(DutPtrArySort(two.get(), ascending));
  EXPECT_EQ(two.items(), (Items{1, 2}));
  ASSERT_TRUE(DutPtrArySort(a.get(), ascending));
  EXPECT_EQ(a.items(), (Items{1, 3, 3, 5, 7, 9}));
  ASSERT_TRUE(DutPtrArySort(a.get(), descending));
  EXPECT_EQ(a.items(), (Items{9, 7, 5, 3, 3, 1}));
}

TEST(PtrArySort, FullArrayUsesOnlyItsSpareSlot) {
  // count == capacity: the item parked during the sort goes into the spare
  // slot and nowhere beyond it (the sanitizer build checks the bound).
  for (D_INT4 n : {2, 3, 4, 5, 8, 16, 17}) {
    Array a(n);
    Items expected;
    for (D_INT4 i = 0; i < n; ++i) {
      ASSERT_TRUE(DutPtrAryAppend(a.get(), n - i, nullptr));
      expected.push_back(i + 1);
    }
    ASSERT_TRUE(DutPtrArySort(a.get(), ascending));
    EXPECT_EQ(a.items(), expected) << n;
    EXPECT_EQ(a->capacity, n);
  }
}

TEST(PtrArySort, RandomInputsMatchAReferenceSort) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 50; ++round) {
    const int n = 2 + static_cast<int>(rng() % 300);
    Array a(1 + static_cast<D_INT4>(rng() % 16));
    Items expected;
    // Few distinct values: many equal keys.
    for (int i = 0; i < n; ++i) {
      expected.push_back(static_cast<D_WORD>(rng() % 20));
      ASSERT_TRUE(DutPtrAryAppend(a.get(), expected.back(), nullptr));
    }
    ASSERT_TRUE(DutPtrArySort(a.get(), descending));
    std::sort(expected.begin(), expected.end(), [](D_WORD x, D_WORD y) { return x > y; });
    EXPECT_EQ(a.items(), expected) << "round " << round;
  }
}

struct Visit {
  D_INT4 index;
  D_WORD item;
  bool operator==(const Visit &) const = default;
};
void record(D_INT4 index, D_WORD item, void *arg) {
  static_cast<std::vector<Visit> *>(arg)->push_back(Visit{index, item});
}

TEST(PtrAryClear, VisitsInOrderZeroesTheSlotsAndKeepsCapacity) {
  Array a(2, {11, 22, 33});
  std::vector<Visit> visits;
  ASSERT_TRUE(DutPtrAryClear(a.get(), record, &visits));
  EXPECT_EQ(visits, (std::vector<Visit>{{0, 11}, {1, 22}, {2, 33}}));
  EXPECT_EQ(D_GPA_COUNT(a.get()), 0);
  EXPECT_EQ(a->capacity, 4);
  const D_WORD *slots = DutPtrAryGetArray(a.get());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(slots[i], 0) << i;
  ASSERT_TRUE(DutPtrAryAppend(a.get(), 44, nullptr));  // usable again
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
  EXPECT_EQ(visits, (std::vector<Visit>{{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}}));
}

// Runs inside the death-test child: abort at once instead of the fatal
// pause, with the report on stderr where the death test reads it.
void getArrayFatally(D_PTR_ARY *array) {
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
  DutPtrAryGetArray(array);
}

TEST(PtrAryDeathTest, GetArrayAssertsOnANullArrayOrItemArray) {
  D_PTR_ARY hollow{nullptr, 1, 0, 1, nullptr};
  EXPECT_EXIT(getArrayFatally(nullptr), ::testing::KilledBySignal(SIGABRT),
              "Assertion <ptr_ary != NULL> failed, file: ptrary.c");
  EXPECT_EXIT(getArrayFatally(&hollow), ::testing::KilledBySignal(SIGABRT),
              "Assertion <ptr_ary->ptr_ary != NULL> failed, file: ptrary.c");
}

// Every operation against a std::vector, with many duplicate items so that
// "first occurrence" matters.
TEST(PtrAryModel, RandomOperationsMatchAVector) {
  std::mt19937 rng(7);
  Array a(3);
  Items model;
  auto pick = [&](size_t bound) { return bound == 0 ? 0 : static_cast<D_INT4>(rng() % bound); };
  for (int step = 0; step < 6000; ++step) {
    const D_WORD item = static_cast<D_WORD>(rng() % 12);
    const D_WORD added = 100 + step;
    const auto size = model.size();
    const auto found = std::find(model.begin(), model.end(), item);
    const D_BOOL present = found != model.end();
    const D_INT4 at = pick(size), other = pick(size);  // valid indexes unless empty
    D_WORD word = -1;
    D_INT4 number = -1;
    switch (rng() % 10) {
      case 0:
        ASSERT_TRUE(DutPtrAryAppend(a.get(), item, &number));
        EXPECT_EQ(number, static_cast<D_INT4>(size));
        model.push_back(item);
        break;
      case 1:
        number = pick(size + 1);
        ASSERT_TRUE(DutPtrAryInsertItemAtIndex(a.get(), item, number));
        model.insert(model.begin() + number, item);
        break;
      case 2:
        EXPECT_EQ(DutPtrAryInsertAfter(a.get(), item, added), present);
        if (present) model.insert(found + 1, added);
        break;
      case 3:
        EXPECT_EQ(DutPtrAryInsertBefore(a.get(), item, added), present);
        if (present) model.insert(found, added);
        break;
      case 4:
        EXPECT_EQ(DutPtrAryRemove(a.get(), item), present);
        if (present) model.erase(found);
        break;
      case 5:
        EXPECT_EQ(DutPtrAryRemoveAll(a.get(), item, &number), present);
        EXPECT_EQ(number, static_cast<D_INT4>(std::erase(model, item)));
        break;
      case 6:
        EXPECT_EQ(DutPtrAryGetItemIndex(a.get(), item, &number), present);
        EXPECT_EQ(number, found - model.begin());
        EXPECT_EQ(DutPtrAryItemExists(a.get(), item), present);
        break;
      default:  // the index operations
        if (size == 0) break;
        ASSERT_TRUE(DutPtrAryGetItemAtIndex(a.get(), at, &word));
        EXPECT_EQ(word, model[static_cast<size_t>(at)]);
        if (step % 3 == 0) {
          ASSERT_TRUE(DutPtrAryRemoveItemAtIndex(a.get(), at, &word));
          EXPECT_EQ(word, model[static_cast<size_t>(at)]);
          model.erase(model.begin() + at);
        } else if (step % 3 == 1) {
          ASSERT_TRUE(DutPtrAryReplaceItemAtIndex(a.get(), added, at, &word));
          EXPECT_EQ(word, std::exchange(model[static_cast<size_t>(at)], added));
        } else {
          ASSERT_TRUE(DutPtrArySwapItems(a.get(), at, other));
          std::swap(model[static_cast<size_t>(at)], model[static_cast<size_t>(other)]);
        }
    }
    ASSERT_EQ(a.items(), model) << "step " << step;
    ASSERT_EQ(a->capacity % 3, 0);  // linear growth by the increment
  }
}

}  // namespace
