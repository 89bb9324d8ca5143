/**
 * @defgroup ptrary Pointer arrays
 * Pointer arrays.
 *
 * A pointer array is an ordered, growable array of machine words (usually
 * pointers). Positions run from 0 to count - 1; removal keeps the order of
 * the remaining items. The array grows linearly: whenever an item must be
 * added to a full array, the capacity grows by the increment (the capacity
 * given at creation), so an array created with 10 holds 10, 20, 30, ...
 * It never shrinks; clearing keeps the capacity.
 *
 * Ownership: the header and the item array belong to the library and are
 * freed by DutPtrAryDestroy. The items belong to the caller: the array never
 * frees them, except through the item function that clear and destroy
 * accept. Items are compared by value (identity for pointers).
 *
 * Change records: every mutation reports one change record (below) to the
 * array's change callbacks after the change is complete. Change callbacks
 * are registered through the callback family; an array that has none pays
 * nothing for the reporting.
 *
 * Errors (library error number, see error.h; success does not clear it):
 *   D_ERR_NULL_PTR (3)       null array, null item array, a required null
 *                            out pointer or a required null function;
 *   D_ERR_VAL_TOO_SMALL (4)  creation size below 1, or removal from an
 *                            empty array;
 *   D_ERR_VAL_TOO_LARGE (5)  creation size beyond what one block holds;
 *   D_ERR_VAL_INVALID (7)    index out of range;
 *   D_ERR_DOESNT_EXIST (8)   item not found.
 * A failed insertion or removal leaves the array unchanged.
 *
 * Thread safety: none. Callers that share an array lock around it.
 * @{
 */
/**
 * @file
 * @ingroup ptrary
 * @brief Pointer arrays (ptrary).
 */
#ifndef VQUTIL_PTRARY_H
#define VQUTIL_PTRARY_H

#include "types.h"

/** @{ */
/** The callback list of the callback family; declared there. */
struct D_CB_LIST;
struct D_CB;
/** @} */

/** A pointer array: items in order, grown by a fixed increment. */
typedef struct D_PTR_ARY {
  D_WORD *ptr_ary;                  /**< the items; capacity + 1 slots (one spare) */
  D_INT4 capacity;                  /**< slots available for items */
  D_INT4 count;                     /**< items stored */
  D_INT4 increment;                 /**< growth step: the initial capacity */
  struct D_CB_LIST *change_cb_list; /**< change callbacks, or null */
} D_PTR_ARY;

/** Number of items; callers index DutPtrAryGetArray() from 0 to this - 1. */
#define D_GPA_COUNT(ptr_ary) ((ptr_ary)->count)

/** @{ */
/** Change events, in the change record's event field. */
#define D_PTR_ARY_ITEM_ADDED 0
#define D_PTR_ARY_ITEM_REMOVED 1
#define D_PTR_ARY_ITEM_REPLACED 2
#define D_PTR_ARY_ALL_REMOVED 3
#define D_PTR_ARY_ITEMS_SWAPPED 4
#define D_PTR_ARY_CLEARED 5
#define D_PTR_ARY_SORTED 6
/** @} */

/** The callback type number of pointer-array change callbacks. */
#define D_PTR_ARY_CHANGE_CB_TYPE (-107)

/**
 * The callback data of a change callback. The first field is reserved for
 * the callback machinery, which stores the callback being called there just
 * before calling it. Unused item fields are 0, unused index fields -1.
 *
 *   event   item, index                  other_item, other_index
 *   0       new item, its position (*)   0, -1
 *   1       removed item, old position   0, -1
 *   2       new item, its position       0, -1
 *   3       the item, -1                 0, -1
 *   4       item now at index 1, index 1 item now at index 2, index 2
 *   5, 6    0, -1                        0, -1
 *
 * (*) except DutPtrAryInsertBefore with the last item as the existing one:
 * see there.
 */
typedef struct D_PTR_ARY_CHANGE {
  void *cb;           /**< reserved: the callback being called */
  D_WORD event;       /**< D_PTR_ARY_ITEM_ADDED ... D_PTR_ARY_SORTED */
  D_WORD item;        /**< the item concerned, or 0 */
  D_WORD index;       /**< its position, or -1 */
  D_WORD other_item;  /**< second item (swap only), else 0 */
  D_WORD other_index; /**< its position (swap only), else -1 */
} D_PTR_ARY_CHANGE;

/** Called by clear and destroy on each item, in order from position 0. */
typedef void (*D_PTR_ARY_ITEM_FUNC)(D_INT4 index, D_WORD item, void *arg);
/** Sort order: negative when a comes before b, 0 when equal, else positive. */
typedef D_INT4 (*D_PTR_ARY_CMP_FUNC)(D_WORD a, D_WORD b);

D_BEGIN_DECLS

/** New empty array with capacity and increment size. size < 1:
 * D_ERR_VAL_TOO_SMALL, NULL; a size whose item array the allocator cannot
 * address in one block (capacity + 1 words above 2^31 - 1 bytes):
 * D_ERR_VAL_TOO_LARGE, NULL. Growing past that size later is fatal, like
 * running out of heap. The caller owns the array and destroys it with
 * DutPtrAryDestroy. */
D_EXPORT D_PTR_ARY *DutPtrAryCreate(D_INT4 size);

/** Calls func(index, item, arg) for each item in order (func may be null),
 * destroys the change callback list, frees the item array and the header.
 * Raises no change event. D_FALSE if destroying the callback list failed
 * (everything is freed all the same). Null array: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutPtrAryDestroy(D_PTR_ARY *ptr_ary, D_PTR_ARY_ITEM_FUNC func, void *arg);

/** Calls func(index, item, arg) for each item from position 0 (func may be
 * null), zeroes every slot and sets the count to 0; the capacity stays.
 * Raises event 5. Null array: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutPtrAryClear(D_PTR_ARY *ptr_ary, D_PTR_ARY_ITEM_FUNC func, void *arg);

/** Stores item at position count (growing first when full) and, when index
 * is not null, its position into *index. Raises event 0. */
D_EXPORT D_BOOL DutPtrAryAppend(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 *index);

/** Inserts item at index, 0 to count inclusive (count appends), moving the
 * items at and after index up by one. Other index: D_ERR_VAL_INVALID.
 * Raises event 0. */
D_EXPORT D_BOOL DutPtrAryInsertItemAtIndex(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 index);

/** Places new_item just before the first occurrence of item. Absent (also in
 * an empty array): D_ERR_DOESNT_EXIST. Raises event 0 with the new item's
 * position, except when item was the last one: then new_item is written
 * over its slot and item is appended again after it, and the event reports
 * the appended slot (count - 1) although new_item sits at count - 2. */
D_EXPORT D_BOOL DutPtrAryInsertBefore(D_PTR_ARY *ptr_ary, D_WORD item, D_WORD new_item);

/** Places new_item just after the first occurrence of item. Absent:
 * D_ERR_DOESNT_EXIST. Raises event 0 with the new item's position. */
D_EXPORT D_BOOL DutPtrAryInsertAfter(D_PTR_ARY *ptr_ary, D_WORD item, D_WORD new_item);

/** Removes the item at index, moving later items down, and stores it into
 * *item when item is not null. Empty array: D_ERR_VAL_TOO_SMALL; index
 * outside 0 to count - 1: D_ERR_VAL_INVALID. Raises event 1. */
D_EXPORT D_BOOL DutPtrAryRemoveItemAtIndex(D_PTR_ARY *ptr_ary, D_INT4 index, D_WORD *item);

/** Removes the first occurrence of item. Empty array: D_ERR_VAL_TOO_SMALL;
 * absent: D_ERR_DOESNT_EXIST. Raises event 1. */
D_EXPORT D_BOOL DutPtrAryRemove(D_PTR_ARY *ptr_ary, D_WORD item);

/** Removes every occurrence of item, keeping the order of the others, and
 * stores the number removed into *num_removed (0 is stored first). None
 * removed: D_ERR_DOESNT_EXIST, D_FALSE. Raises event 3 once, however many
 * were removed. Null num_removed: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutPtrAryRemoveAll(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 *num_removed);

/** Stores the position of the first occurrence of item into *index. Absent:
 * D_ERR_DOESNT_EXIST and *index holds count. Null index: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutPtrAryGetItemIndex(D_PTR_ARY *ptr_ary, D_WORD item, D_INT4 *index);

/** D_TRUE when item is in the array; otherwise D_FALSE with
 * D_ERR_DOESNT_EXIST (also for an empty array). */
D_EXPORT D_BOOL DutPtrAryItemExists(D_PTR_ARY *ptr_ary, D_WORD item);

/** Stores the item at index into *item. Index outside 0 to count - 1:
 * D_ERR_VAL_INVALID. Null item: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutPtrAryGetItemAtIndex(D_PTR_ARY *ptr_ary, D_INT4 index, D_WORD *item);

/** Puts new_item at index and stores the item it replaces into *old_item
 * when old_item is not null. Index outside 0 to count - 1:
 * D_ERR_VAL_INVALID. Raises event 2. */
D_EXPORT D_BOOL DutPtrAryReplaceItemAtIndex(D_PTR_ARY *ptr_ary, D_WORD new_item, D_INT4 index,
                                            D_WORD *old_item);

/** Swaps the items at index1 and index2 (equal indexes are allowed). Either
 * outside 0 to count - 1: D_ERR_VAL_INVALID. Raises event 4. */
D_EXPORT D_BOOL DutPtrArySwapItems(D_PTR_ARY *ptr_ary, D_INT4 index1, D_INT4 index2);

/** Sorts the items in place into ascending order of compare, a heap sort:
 * not stable (equal items may change their relative order). Fewer than two
 * items: nothing moves. Null compare: D_ERR_NULL_PTR. Raises event 6 in
 * every successful case. */
D_EXPORT D_BOOL DutPtrArySort(D_PTR_ARY *ptr_ary, D_PTR_ARY_CMP_FUNC compare);

/** The item array itself, owned by the array and valid until the next
 * insertion (which may move it) or the array's destruction; index it from 0
 * to D_GPA_COUNT(ptr_ary) - 1. A null array or item array is an assertion
 * failure (fatal). */
D_EXPORT D_WORD *DutPtrAryGetArray(D_PTR_ARY *ptr_ary);

/** Change callbacks: func(array, D_PTR_ARY_CHANGE *, arg) runs after every
 * change of the array (callback type -107 "ptr_ary_change"). A duplicate
 * (func, arg) gives D_ERR_ALREADY_EXISTS; null array or func
 * D_ERR_NULL_PTR. The list is destroyed with the array. */
D_EXPORT struct D_CB *DutPtrAryChangeCbCreate(D_PTR_ARY *ptr_ary, void (*func)(void *object, void *data, D_WORD arg),
                                              D_WORD arg);
/** The matching callback, or null with D_ERR_DOESNT_EXIST when the array has
 * no change callbacks. */
D_EXPORT struct D_CB *DutPtrAryChangeCbLookup(D_PTR_ARY *ptr_ary, void (*func)(void *object, void *data, D_WORD arg),
                                              D_WORD arg);

D_END_DECLS

/** @} */
#endif /* VQUTIL_PTRARY_H */
