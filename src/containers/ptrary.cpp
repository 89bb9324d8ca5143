// Pointer arrays: ordered, linearly growing arrays of machine words that
// report every mutation as a change record. The item array always has one
// slot more than the capacity; the heap sort uses it to run on positions
// 1 to count.
#include "vqutil/ptrary.h"

#include "vqutil/callback.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "ptrary.c";

// Byte sizes go through the allocator as signed 32-bit values, so the
// item array (capacity + 1 words) must stay below that.
constexpr std::int64_t kMaxCapacity =
    static_cast<std::int64_t>(INT32_MAX) / static_cast<std::int64_t>(sizeof(D_WORD)) - 1;

constexpr D_INT4 itemBytes(std::int64_t capacity) {
  return static_cast<D_INT4>((capacity + 1) * static_cast<std::int64_t>(sizeof(D_WORD)));
}

// Every operation starts here: a null array or a missing item array is
// error 3.
bool usable(const D_PTR_ARY *array) {
  if (array == nullptr || array->ptr_ary == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return false;
  }
  return true;
}

bool validIndex(const D_PTR_ARY *array, D_INT4 index) { return index >= 0 && index < array->count; }

// Position of the first occurrence of item, or count when it is absent.
D_INT4 findFirst(const D_PTR_ARY *array, D_WORD item) {
  const D_WORD *begin = array->ptr_ary;
  const D_WORD *end = begin + array->count;
  return static_cast<D_INT4>(std::find(begin, end, item) - begin);
}

// Linear growth by the increment, never doubling: callers size arrays for
// their expected load and the increment is their chosen step. The label
// names what is being filled, as in the allocation trace.
void growIfFull(D_PTR_ARY *array, const char *label, D_INT4 line) {
  if (array->count < array->capacity) return;
  const std::int64_t capacity =
      static_cast<std::int64_t>(array->capacity) + static_cast<std::int64_t>(array->increment);
  VQ_ASSERT(capacity <= kMaxCapacity, "(ptr_ary)->capacity <= D_PTR_ARY_MAX_CAPACITY", kFile);
  array->ptr_ary =
      static_cast<D_WORD *>(DutReallocCheck(array->ptr_ary, itemBytes(capacity), label, kFile, line));
  // Fresh slots, the spare one included, start out zero as after creation.
  std::fill(array->ptr_ary + array->capacity + 1, array->ptr_ary + capacity + 1, D_WORD{0});
  array->capacity = static_cast<D_INT4>(capacity);
}

D_PTR_ARY_CHANGE makeChange(D_INT4 event, D_WORD item = 0, D_INT4 index = -1, D_WORD other_item = 0,
                            D_INT4 other_index = -1) {
  return D_PTR_ARY_CHANGE{nullptr, event, item, index, other_item, other_index};
}

// Every change is reported after it is complete, so a callback sees the new
// contents. A failing callback call is reported but does not undo the change.
D_CB_TYPE *utPtrAryChangeCbType = nullptr;

void raiseChange(D_PTR_ARY *array, const D_PTR_ARY_CHANGE &record) {
  if (array->change_cb_list == nullptr) return;
  D_PTR_ARY_CHANGE data = record;
  D_BOOL cb_call_status = DutCbListCall(array->change_cb_list, array, &data);
  VQ_EXPECT(cb_call_status == D_TRUE, "cb_call_status", kFile);
}

D_BOOL destroyChangeCbList(D_PTR_ARY *array) {
  if (array->change_cb_list == nullptr) return D_TRUE;
  D_BOOL status = DutCbListDestroy(array->change_cb_list);
  array->change_cb_list = nullptr;
  return status;
}

void callOnEach(const D_PTR_ARY *array, D_PTR_ARY_ITEM_FUNC func, void *arg) {
  if (func == nullptr) return;
  for (D_INT4 i = 0; i < array->count; ++i) func(i, array->ptr_ary[i], arg);
}

// Appends without raising: insert-before at the last item reports its own
// event.
D_INT4 appendItem(D_PTR_ARY *array, D_WORD item) {
  growIfFull(array, "(dest)->ptr_ary", __LINE__);
  array->ptr_ary[array->count] = item;
  return array->count++;
}

// Opens a hole at index (0 <= index < count) and fills it.
void insertAt(D_PTR_ARY *array, D_WORD item, D_INT4 index) {
  growIfFull(array, "(ptr_ary)->ptr_ary", __LINE__);
  D_WORD *slots = array->ptr_ary;
  std::memmove(slots + index + 1, slots + index,
               static_cast<std::size_t>(array->count - index) * sizeof(D_WORD));
  slots[index] = item;
  ++array->count;
}

// Closes the gap at index; removing the last item only shortens the array.
D_WORD removeAt(D_PTR_ARY *array, D_INT4 index) {
  D_WORD *slots = array->ptr_ary;
  const D_WORD removed = slots[index];
  std::memmove(slots + index, slots + index + 1,
               static_cast<std::size_t>(array->count - index - 1) * sizeof(D_WORD));
  --array->count;
  return removed;
}

// Max-heap sift on a 1-based heap held in heap[1..size].
void siftDown(D_WORD *heap, std::int64_t root, std::int64_t size, D_PTR_ARY_CMP_FUNC compare) {
  const D_WORD item = heap[root];
  while (2 * root <= size) {
    std::int64_t child = 2 * root;
    if (child < size && compare(heap[child], heap[child + 1]) < 0) ++child;
    if (compare(item, heap[child]) >= 0) break;
    heap[root] = heap[child];
    root = child;
  }
  heap[root] = item;
}

// Heap sort on positions 1 to count: position 0 is parked in the spare
// slot at count, and everything moves down by one at the end. Not stable.
void heapSort(D_PTR_ARY *array, D_PTR_ARY_CMP_FUNC compare) {
  D_WORD *heap = array->ptr_ary;
  const std::int64_t n = array->count;
  heap[n] = heap[0];
  for (std::int64_t i = n / 2; i >= 1; --i) siftDown(heap, i, n, compare);
  for (std::int64_t last = n; last > 1; --last) {
    std::swap(heap[1], heap[last]);
    siftDown(heap, 1, last - 1, compare);
  }
  std::memmove(heap, heap + 1, static_cast<std::size_t>(n) * sizeof(D_WORD));
}

}  // namespace

extern "C" {

D_EXPORT D_PTR_ARY *DutPtrAryCreate(D_INT4 size) {
  if (size < 1) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return nullptr;
  }
  if (size > kMaxCapacity) {
    DutErrNumSet(D_ERR_VAL_TOO_LARGE);
    return nullptr;
  }
  auto *array = static_cast<D_PTR_ARY *>(DutMallocCheck(sizeof(D_PTR_ARY), "ptr_ary", kFile, __LINE__));
  array->ptr_ary =
      static_cast<D_WORD *>(DutCallocCheck(itemBytes(size), "ptr_ary->ptr_ary", kFile, __LINE__));
  array->capacity = size;
  array->count = 0;
  array->increment = size;
  array->change_cb_list = nullptr;
  return array;
}

D_EXPORT D_BOOL DutPtrAryDestroy(D_PTR_ARY *ptr_ary, D_PTR_ARY_ITEM_FUNC func, void *arg) {
  if (ptr_ary == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (ptr_ary->ptr_ary != nullptr) callOnEach(ptr_ary, func, arg);
  // A list that fails to go away must not keep the array alive.
  const D_BOOL status = destroyChangeCbList(ptr_ary);
  if (ptr_ary->ptr_ary != nullptr) DutFreeCheck(ptr_ary->ptr_ary, "ptr_ary->ptr_ary", kFile, __LINE__);
  DutFreeCheck(ptr_ary, "ptr_ary", kFile, __LINE__);
  return status;
}

D_EXPORT D_BOOL DutPtrAryClear(D_PTR_ARY *ptr_ary, D_PTR_ARY_ITEM_FUNC func, void *arg) {
  if (!usable(ptr_ary)) return D_FALSE;
  callOnEach(ptr_ary, func, arg);
  std::fill(ptr_ary->ptr_ary, ptr_ary->ptr_ary + ptr_ary->count, D_WORD{0});
  ptr_ary->count = 0;
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_CLEARED));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryAppend(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 *index) {
  if (!usable(ptr_ary)) return D_FALSE;
  const D_INT4 at = appendItem(ptr_ary, item);
  if (index != nullptr) *index = at;
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_ADDED, item, at));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryInsertItemAtIndex(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 index) {
  if (!usable(ptr_ary)) return D_FALSE;
  if (index < 0 || index > ptr_ary->count) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  if (index == ptr_ary->count) {
    appendItem(ptr_ary, item);
  } else {
    insertAt(ptr_ary, item, index);
  }
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_ADDED, item, index));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryInsertBefore(D_PTR_ARY *ptr_ary, D_WORD item, D_WORD new_item) {
  if (!usable(ptr_ary)) return D_FALSE;
  const D_INT4 pos = findFirst(ptr_ary, item);
  if (pos == ptr_ary->count) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  if (pos == ptr_ary->count - 1) {
    // Overwrite the last slot and append the existing item again; the event
    // deliberately reports the appended slot.
    ptr_ary->ptr_ary[pos] = new_item;
    const D_INT4 appended = appendItem(ptr_ary, item);
    raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_ADDED, new_item, appended));
    return D_TRUE;
  }
  insertAt(ptr_ary, new_item, pos);
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_ADDED, new_item, pos));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryInsertAfter(D_PTR_ARY *ptr_ary, D_WORD item, D_WORD new_item) {
  if (!usable(ptr_ary)) return D_FALSE;
  const D_INT4 pos = findFirst(ptr_ary, item);
  if (pos == ptr_ary->count) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  D_INT4 at = pos + 1;
  if (at == ptr_ary->count) {
    at = appendItem(ptr_ary, new_item);
  } else {
    insertAt(ptr_ary, new_item, at);
  }
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_ADDED, new_item, at));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryRemoveItemAtIndex(D_PTR_ARY *ptr_ary, D_INT4 index, D_WORD *item) {
  if (!usable(ptr_ary)) return D_FALSE;
  if (ptr_ary->count == 0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  if (!validIndex(ptr_ary, index)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  const D_WORD removed = removeAt(ptr_ary, index);
  if (item != nullptr) *item = removed;
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_REMOVED, removed, index));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryRemove(D_PTR_ARY *ptr_ary, D_WORD item) {
  if (!usable(ptr_ary)) return D_FALSE;
  if (ptr_ary->count == 0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  const D_INT4 pos = findFirst(ptr_ary, item);
  if (!validIndex(ptr_ary, pos)) {
    VQ_ASSERT(pos == ptr_ary->count, "item_pos == D_GPA_COUNT(ptr_ary)", kFile);
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  removeAt(ptr_ary, pos);
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_REMOVED, item, pos));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryRemoveAll(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 *num_removed) {
  if (!usable(ptr_ary)) return D_FALSE;
  if (num_removed == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  *num_removed = 0;
  // One compacting pass leaves the same order as removing the first
  // occurrence again and again, without the quadratic moves.
  D_WORD *begin = ptr_ary->ptr_ary;
  D_WORD *end = begin + ptr_ary->count;
  const auto removed = static_cast<D_INT4>(end - std::remove(begin, end, item));
  if (removed == 0) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  ptr_ary->count -= removed;
  *num_removed = removed;
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ALL_REMOVED, item));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryGetItemIndex(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 *index) {
  if (!usable(ptr_ary) || index == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  *index = findFirst(ptr_ary, item);
  if (*index == ptr_ary->count) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryItemExists(D_PTR_ARY *ptr_ary, D_WORD item) {
  if (!usable(ptr_ary)) return D_FALSE;
  if (findFirst(ptr_ary, item) == ptr_ary->count) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryGetItemAtIndex(D_PTR_ARY *ptr_ary, D_INT4 index, D_WORD *item) {
  if (!usable(ptr_ary) || item == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (!validIndex(ptr_ary, index)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  *item = ptr_ary->ptr_ary[index];
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrAryReplaceItemAtIndex(D_PTR_ARY *ptr_ary, D_WORD new_item, D_INT4 index,
                                            D_WORD *old_item) {
  if (!usable(ptr_ary)) return D_FALSE;
  if (!validIndex(ptr_ary, index)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  if (old_item != nullptr) *old_item = ptr_ary->ptr_ary[index];
  ptr_ary->ptr_ary[index] = new_item;
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_ITEM_REPLACED, new_item, index));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrArySwapItems(D_PTR_ARY *ptr_ary, D_INT4 index1, D_INT4 index2) {
  if (!usable(ptr_ary)) return D_FALSE;
  if (!validIndex(ptr_ary, index1) || !validIndex(ptr_ary, index2)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  D_WORD *slots = ptr_ary->ptr_ary;
  std::swap(slots[index1], slots[index2]);
  raiseChange(ptr_ary,
              makeChange(D_PTR_ARY_ITEMS_SWAPPED, slots[index1], index1, slots[index2], index2));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPtrArySort(D_PTR_ARY *ptr_ary, D_PTR_ARY_CMP_FUNC compare) {
  if (!usable(ptr_ary) || compare == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (ptr_ary->count >= 2) heapSort(ptr_ary, compare);
  raiseChange(ptr_ary, makeChange(D_PTR_ARY_SORTED));
  return D_TRUE;
}

D_EXPORT D_WORD *DutPtrAryGetArray(D_PTR_ARY *ptr_ary) {
  if (!VQ_ASSERT(ptr_ary != nullptr, "ptr_ary != NULL", kFile)) return nullptr;
  if (!VQ_ASSERT(ptr_ary->ptr_ary != nullptr, "ptr_ary->ptr_ary != NULL", kFile)) return nullptr;
  return ptr_ary->ptr_ary;
}

D_EXPORT D_CB *DutPtrAryChangeCbCreate(D_PTR_ARY *ptr_ary, D_CB_FUNC func, D_WORD arg) {
  if (ptr_ary == nullptr || func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  DutProcessMutexLock();
  if (utPtrAryChangeCbType == nullptr) {
    utPtrAryChangeCbType = DutCbTypeNumLookup(D_PTR_ARY_CHANGE_CB_TYPE);
    if (utPtrAryChangeCbType == nullptr) {
      utPtrAryChangeCbType = DutCbTypeCreate(D_PTR_ARY_CHANGE_CB_TYPE, "ptr_ary_change");
      VQ_EXPECT(utPtrAryChangeCbType != nullptr, "utPtrAryChangeCbType", kFile);
      if (utPtrAryChangeCbType != nullptr) {
        DutCbTypeSetGlobFlag(utPtrAryChangeCbType, D_TRUE);
        DutCbTypeSetLocalFlag(utPtrAryChangeCbType, D_TRUE);
      }
    }
  }
  D_CB_TYPE *type = utPtrAryChangeCbType;
  DutProcessMutexUnlock();
  if (type == nullptr) return nullptr;
  if (ptr_ary->change_cb_list == nullptr) ptr_ary->change_cb_list = DutCbListCreate(type, ptr_ary);
  return DutCbListCbCreate(ptr_ary->change_cb_list, func, arg);
}

D_EXPORT D_CB *DutPtrAryChangeCbLookup(D_PTR_ARY *ptr_ary, D_CB_FUNC func, D_WORD arg) {
  if (ptr_ary == nullptr || func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  if (utPtrAryChangeCbType == nullptr || ptr_ary->change_cb_list == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  return DutCbListCbLookup(ptr_ary->change_cb_list, func, arg);
}

}  // extern "C"
