// Sorting, clearing and destruction with their item functions, the fatal
// paths of the item-array accessor, and a randomised run of every edit
// against a std::vector model.
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

// Sizes from empty up, many equal keys, and full arrays (count ==
// capacity), where the item parked during the sort goes into the spare
// slot and nowhere beyond it (the sanitizer build checks the bound).
TEST(PtrArySort, RandomInputsMatchAReferenceSort) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 60; ++round) {
    const int n = round < 20 ? round : static_cast<int>(rng() % 300);
    Array a(round % 2 ? std::max(1, n) : 1 + static_cast<D_INT4>(rng() % 16));
    Items expected;
    for (int i = 0; i < n; ++i) {
      expected.push_back(static_cast<D_WORD>(rng() % 20));
      ASSERT_TRUE(DutPtrAryAppend(a.get(), expected.back(), nullptr));
    }
    const D_INT4 capacity = a->capacity;
    const bool down = round % 3 == 0;
    ASSERT_TRUE(DutPtrArySort(a.get(), down ? descending : ascending));
    std::sort(expected.begin(), expected.end(), [down](D_WORD x, D_WORD y) { return down ? x > y : x < y; });
    EXPECT_EQ(a.items(), expected) << "round " << round;
    EXPECT_EQ(a->capacity, capacity) << "round " << round;
  }
}

struct Visit {
  D_INT4 index;
  D_WORD item;
  bool operator==(const Visit &) const = default;
};
void record(D_INT4 index, D_WORD item, void *arg) { static_cast<std::vector<Visit> *>(arg)->push_back({index, item}); }
void freeItem(D_INT4 index, D_WORD item, void *arg) {
  record(index, 0, arg);
  std::free(reinterpret_cast<void *>(item));
}

TEST(PtrAryClear, VisitsInOrderZeroesTheSlotsAndKeepsCapacity) {
  Array a(2, {11, 22, 33});
  std::vector<Visit> visits;
  ASSERT_TRUE(DutPtrAryClear(a.get(), record, &visits));
  EXPECT_EQ(visits, (std::vector<Visit>{{0, 11}, {1, 22}, {2, 33}}));
  EXPECT_EQ(std::make_pair(D_GPA_COUNT(a.get()), a->capacity), std::make_pair(0, 4));
  EXPECT_EQ(Items(DutPtrAryGetArray(a.get()), DutPtrAryGetArray(a.get()) + 3), (Items{0, 0, 0}));

  // Destruction: the items are heap blocks, so the sanitizer build's leak
  // check sees any the item function is not given.
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(DutPtrAryAppend(a.get(), reinterpret_cast<D_WORD>(std::malloc(8)), nullptr));
  visits.clear();
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

// Every edit against a std::vector, with many duplicate items so that
// "first occurrence" matters. The capacity grows by the increment (3) and
// only when a full array takes one more item, whichever form adds it; a
// success leaves the error number alone.
TEST(PtrAryModel, RandomOperationsMatchAVector) {
  std::mt19937 rng(7);
  Array a(3);
  Items model;
  size_t most = 0;
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
    DutErrNumSet(D_ERR_TIMEOUT_REACHED);
    const unsigned op = rng() % 10;
    switch (op) {
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
    ASSERT_TRUE((op > 1 && op < 7 && !present) || DutErrNumGet() == D_ERR_TIMEOUT_REACHED) << "step " << step;
    most = std::max(most, model.size());
    ASSERT_EQ(a.items(), model) << "step " << step;
    ASSERT_EQ(a->capacity, static_cast<D_INT4>(3 * std::max<size_t>(1, (most + 2) / 3))) << "step " << step;
  }
}

}  // namespace
