// Pointer arrays: creation, every refusal with its error number, its out
// value and the unchanged contents after it; sorting, clearing and
// destruction with their item functions, the fatal paths of the item-array
// accessor, and a randomised run of every edit and sort against a
// std::vector model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/ptrary.h"

namespace {

using Items = std::vector<D_WORD>;

struct Destroy {
  void operator()(D_PTR_ARY *array) const { DutPtrAryDestroy(array, nullptr, nullptr); }
};
using Array = std::unique_ptr<D_PTR_ARY, Destroy>;

Array filled(D_INT4 size, const Items &items) {
  Array array(DutPtrAryCreate(size));
  for (D_WORD item : items) DutPtrAryAppend(array.get(), item, nullptr);
  return array;
}

// The contents as a vector, so expectations compare whole arrays at once.
Items items(D_PTR_ARY *array) {
  const D_WORD *slots = DutPtrAryGetArray(array);
  return Items(slots, slots + D_GPA_COUNT(array));
}

D_INT4 ascending(D_WORD a, D_WORD b) { return a < b ? -1 : (a > b ? 1 : 0); }
D_INT4 descending(D_WORD a, D_WORD b) { return ascending(b, a); }

TEST(PtrAryCreate, SizeLimitsAndTheEmptyArray) {
  // No single block holds INT32_MAX items.
  const std::pair<D_INT4, D_INT4> refused[] = {
      {0, D_ERR_VAL_TOO_SMALL}, {INT32_MIN, D_ERR_VAL_TOO_SMALL}, {INT32_MAX, D_ERR_VAL_TOO_LARGE}};
  for (auto [size, err] : refused) EXPECT_FAILS(DutPtrAryCreate(size), nullptr, err);
  Array a(DutPtrAryCreate(7));
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

// The counting calls with their 32-bit out value, which starts at start,
// widened.
D_BOOL Widened(D_BOOL (*call)(D_PTR_ARY *, D_WORD, D_INT4 *), D_INT4 start, D_PTR_ARY *p, D_WORD item,
               D_WORD *out) {
  const D_BOOL ok = call(p, item, &start);
  *out = start;
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
      {"remove all absent", {1, 2}, CALL(Widened(DutPtrAryRemoveAll, 99, p, 3, out)), D_ERR_DOESNT_EXIST, 0},
      {"remove all from empty", {}, CALL(Widened(DutPtrAryRemoveAll, 99, p, 3, out)), D_ERR_DOESNT_EXIST, 0},
      {"remove all, null count", {1, 2}, CALL(DutPtrAryRemoveAll(p, 1, nullptr)), D_ERR_NULL_PTR},
      // The index is left at the count.
      {"index of absent", {7, 8, 7}, CALL(Widened(DutPtrAryGetItemIndex, -5, p, 9, out)), D_ERR_DOESNT_EXIST, 3},
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
    Array a = filled(capacity, r.start);
    D_WORD out = 77;
    // A value no operation sets: a stale number cannot pass for a new one.
    DutErrNumSet(-12345);
    EXPECT_FALSE(r.call(a.get(), &out)) << r.name;
    EXPECT_EQ(DutErrNumGet(), r.err) << r.name;
    EXPECT_EQ(out, r.out_after) << r.name;
    EXPECT_EQ(items(a.get()), r.start) << r.name;
    EXPECT_EQ(a->capacity, capacity) << r.name;  // a refused insertion does not grow
  }
}

TEST(PtrAryRefusals, NullArrayIsRefusedByEveryOperation) {
  // A header whose item array is missing is refused the same way.
  D_PTR_ARY hollow{nullptr, 4, 0, 4, nullptr};
  for (D_PTR_ARY *array : {static_cast<D_PTR_ARY *>(nullptr), &hollow}) {
    D_INT4 n;
    D_WORD w;
    vqtest::ExpectRefused(
        D_ERR_NULL_PTR,
        {AS_WORD(DutPtrAryClear(array, nullptr, nullptr)), AS_WORD(DutPtrAryAppend(array, 1, nullptr)),
         AS_WORD(DutPtrAryInsertItemAtIndex(array, 1, 0)), AS_WORD(DutPtrAryInsertBefore(array, 1, 2)),
         AS_WORD(DutPtrAryInsertAfter(array, 1, 2)), AS_WORD(DutPtrAryRemoveItemAtIndex(array, 0, nullptr)),
         AS_WORD(DutPtrAryRemove(array, 1)), AS_WORD(DutPtrAryItemExists(array, 1)),
         AS_WORD(DutPtrAryReplaceItemAtIndex(array, 1, 0, nullptr)), AS_WORD(DutPtrArySwapItems(array, 0, 0)),
         AS_WORD(DutPtrArySort(array, ascending)), AS_WORD(DutPtrAryRemoveAll(array, 1, &n)),
         AS_WORD(DutPtrAryGetItemIndex(array, 1, &n)), AS_WORD(DutPtrAryGetItemAtIndex(array, 0, &w))});
  }
  EXPECT_EQ(std::make_pair(hollow.count, hollow.capacity), std::make_pair(0, 4));
  EXPECT_FAILS(DutPtrAryDestroy(nullptr, nullptr, nullptr), D_FALSE, D_ERR_NULL_PTR);
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
  Array a = filled(2, {11, 22, 33});
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

TEST(PtrAryDeathTest, GetArrayAssertsOnANullArrayOrItemArray) {
  D_PTR_ARY hollow{nullptr, 1, 0, 1, nullptr};
  VQTEST_EXPECT_FATAL(DutPtrAryGetArray(nullptr), "Assertion <ptr_ary != NULL> failed, file: ptrary.c");
  VQTEST_EXPECT_FATAL(DutPtrAryGetArray(&hollow), "Assertion <ptr_ary->ptr_ary != NULL> failed, file: ptrary.c");
}

// Every edit and sorts against a std::vector, with many duplicate items so
// that "first occurrence" matters. The capacity grows by the increment (3) and
// only when a full array takes one more item, whichever form adds it; a
// success leaves the error number alone.
TEST(PtrAryModel, RandomOperationsMatchAVector) {
  std::mt19937 rng(7);
  Array a(DutPtrAryCreate(3));
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
    const unsigned op = rng() % 11;
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
      case 10:  // the item parked during a sort of a full array goes into the spare slot only
        ASSERT_TRUE(DutPtrArySort(a.get(), step % 2 ? descending : ascending));
        std::sort(model.begin(), model.end(), [&](D_WORD x, D_WORD y) { return step % 2 ? x > y : x < y; });
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
    ASSERT_EQ(items(a.get()), model) << "step " << step;
    ASSERT_EQ(a->capacity, static_cast<D_INT4>(3 * std::max<size_t>(1, (most + 2) / 3))) << "step " << step;
  }
}

}  // namespace
