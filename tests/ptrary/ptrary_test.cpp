// Pointer arrays: creation, the null refusals, clearing and destruction
// with their item functions, the fatal paths of the item-array accessor,
// and a randomised run of every edit, sort and clear against a std::vector
// model: contents, capacity, error numbers, out values and change records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/callback.h"
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

TEST(PtrAryRefusals, NullArrayOutValueAndCompareAreRefused) {
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
  // A missing out value or compare function on a good array.
  Array a = filled(2, {7, 4});
  vqtest::ExpectRefused(D_ERR_NULL_PTR, {AS_WORD(DutPtrAryRemoveAll(a.get(), 7, nullptr)),
                                         AS_WORD(DutPtrAryGetItemIndex(a.get(), 7, nullptr)),
                                         AS_WORD(DutPtrAryGetItemAtIndex(a.get(), 0, nullptr)),
                                         AS_WORD(DutPtrArySort(a.get(), nullptr))});
  EXPECT_EQ(items(a.get()), (Items{7, 4}));
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

// event, item, index, other item, other index, count seen by the callback
using Change = std::tuple<D_WORD, D_WORD, D_WORD, D_WORD, D_WORD, D_INT4>;

void recordChange(void *object, void *data, D_WORD arg) {
  auto *change = static_cast<D_PTR_ARY_CHANGE *>(data);
  EXPECT_NE(change->cb, nullptr);  // the machinery fills the reserved field
  reinterpret_cast<std::vector<Change> *>(arg)->emplace_back(change->event, change->item, change->index,
                                                             change->other_item, change->other_index,
                                                             D_GPA_COUNT(static_cast<D_PTR_ARY *>(object)));
}

// Every edit, sorts and clears against a std::vector, with many duplicate items so
// that "first occurrence" matters, and indexes one past either end. A
// refusal sets its error number and leaves the array and the out value
// alone and raises no change; a success leaves the error number alone and
// raises one change record, seen after the change. Emptiness is checked
// before an index or an item. The capacity grows by the increment (3) and
// only when a full array takes one more item, whichever form adds it.
TEST(PtrAryModel, RandomOperationsMatchAVector) {
  std::mt19937 rng(7);
  Array a(DutPtrAryCreate(3));
  Items model;
  size_t most = 0;
  std::vector<Change> seen;
  ASSERT_NE(DutPtrAryChangeCbCreate(a.get(), recordChange, reinterpret_cast<D_WORD>(&seen)), nullptr);
  for (int step = 0; step < 8000; ++step) {
    const D_WORD item = static_cast<D_WORD>(rng() % 12);
    const D_WORD added = 100 + step;
    const auto size = static_cast<D_INT4>(model.size());
    const auto found = std::find(model.begin(), model.end(), item);
    const bool present = found != model.end();
    const D_INT4 first = static_cast<D_INT4>(found - model.begin());  // the count when absent
    auto index = [&](D_INT4 last) { return static_cast<D_INT4>(rng() % static_cast<unsigned>(last + 2)) - 1; };
    const D_INT4 at = index(size), other = index(size);  // from -1 to the count
    const bool valid = at >= 0 && at < size;
    const D_INT4 missing = present ? 0 : D_ERR_DOESNT_EXIST;
    D_WORD word = -1;
    D_INT4 number = -1, err = 0;
    D_BOOL ok = D_FALSE;
    std::vector<Change> want;
    auto addition = [&](D_WORD what, D_WORD slot) { return Change{D_PTR_ARY_ITEM_ADDED, what, slot, 0, -1, size + 1}; };
    DutErrNumSet(D_ERR_TIMEOUT_REACHED);
    switch (rng() % 13) {
      case 0:
        ok = DutPtrAryAppend(a.get(), item, &number);
        EXPECT_EQ(number, size);
        model.push_back(item);
        want = {addition(item, size)};
        break;
      case 1:
        number = index(size + 1);
        ok = DutPtrAryInsertItemAtIndex(a.get(), item, number);
        err = number < 0 || number > size ? D_ERR_VAL_INVALID : 0;
        want = {addition(item, number)};
        if (err == 0) model.insert(model.begin() + number, item);
        break;
      case 2:
      case 3: {  // before the last item the record names the appended slot, not where the item sits
        const bool after = step % 2 != 0;
        ok = (after ? DutPtrAryInsertAfter : DutPtrAryInsertBefore)(a.get(), item, added);
        err = missing;
        want = {addition(added, after ? first + 1 : first == size - 1 ? size : first)};
        if (present) model.insert(found + after, added);
        break;
      }
      case 4:
        ok = DutPtrAryRemove(a.get(), item);
        err = size == 0 ? D_ERR_VAL_TOO_SMALL : missing;
        want = {{D_PTR_ARY_ITEM_REMOVED, item, first, 0, -1, size - 1}};
        if (present) model.erase(found);
        break;
      case 5:  // one record for all of them
        ok = DutPtrAryRemoveAll(a.get(), item, &number);
        err = missing;
        EXPECT_EQ(number, static_cast<D_INT4>(std::erase(model, item)));
        want = {{D_PTR_ARY_ALL_REMOVED, item, -1, 0, -1, size - number}};
        break;
      case 6:  // the index of an absent item is left at the count
        EXPECT_EQ(DutPtrAryItemExists(a.get(), item), present);
        ok = DutPtrAryGetItemIndex(a.get(), item, &number);
        err = missing;
        EXPECT_EQ(number, first);
        break;
      case 7:
        if (step % 25 == 0) {  // rarely, or the array would stay short
          ok = DutPtrAryClear(a.get(), nullptr, nullptr);
          model.clear();
          want = {{D_PTR_ARY_CLEARED, 0, -1, 0, -1, 0}};
          break;
        }
        // The item parked during a sort of a full array goes into the spare slot only.
        ok = DutPtrArySort(a.get(), step % 2 ? descending : ascending);
        std::sort(model.begin(), model.end(), [&](D_WORD x, D_WORD y) { return step % 2 ? x > y : x < y; });
        want = {{D_PTR_ARY_SORTED, 0, -1, 0, -1, size}};
        break;
      case 8:
        ok = DutPtrAryGetItemAtIndex(a.get(), at, &word);
        err = valid ? 0 : D_ERR_VAL_INVALID;
        EXPECT_EQ(word, valid ? model[static_cast<size_t>(at)] : -1);
        break;
      case 9:
      case 10:
        ok = DutPtrAryRemoveItemAtIndex(a.get(), at, &word);
        err = size == 0 ? D_ERR_VAL_TOO_SMALL : valid ? 0 : D_ERR_VAL_INVALID;
        EXPECT_EQ(word, valid ? model[static_cast<size_t>(at)] : -1);
        want = {{D_PTR_ARY_ITEM_REMOVED, word, at, 0, -1, size - 1}};
        if (valid) model.erase(model.begin() + at);
        break;
      case 11:
        ok = DutPtrAryReplaceItemAtIndex(a.get(), added, at, &word);
        err = valid ? 0 : D_ERR_VAL_INVALID;
        EXPECT_EQ(word, valid ? std::exchange(model[static_cast<size_t>(at)], added) : -1);
        want = {{D_PTR_ARY_ITEM_REPLACED, added, at, 0, -1, size}};
        break;
      default:  // the record names both items where they now sit
        ok = DutPtrArySwapItems(a.get(), at, other);
        err = valid && other >= 0 && other < size ? 0 : D_ERR_VAL_INVALID;
        if (err != 0) break;
        std::swap(model[static_cast<size_t>(at)], model[static_cast<size_t>(other)]);
        want = {{D_PTR_ARY_ITEMS_SWAPPED, model[static_cast<size_t>(at)], at, model[static_cast<size_t>(other)], other,
                 size}};
    }
    if (err != 0) want.clear();
    ASSERT_EQ(ok, err == 0) << "step " << step;
    ASSERT_EQ(DutErrNumGet(), err ? err : D_ERR_TIMEOUT_REACHED) << "step " << step;
    ASSERT_EQ(std::exchange(seen, {}), want) << "step " << step;
    most = std::max(most, model.size());
    ASSERT_EQ(items(a.get()), model) << "step " << step;
    ASSERT_EQ(a->capacity, static_cast<D_INT4>(3 * std::max<size_t>(1, (most + 2) / 3))) << "step " << step;
  }
}

}  // namespace
