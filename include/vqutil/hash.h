/**
 * @defgroup hash Hash tables
 * Chained hash tables keyed and valued by machine words.
 *
 * Every registry of the library is one of these tables. The table never
 * copies a key or a value: it stores the caller's words (integers or
 * pointers) and compares keys through the test function chosen at creation.
 * Four key kinds come ready-made (integer, string, case-insensitive string,
 * pointer); DutHashCreate builds any other kind from a hash and a test
 * function.
 *
 * Values: a value is never null; null is the "not found" answer of lookups.
 *
 * Sizes: the number of chains is a power of two, and a hash value selects
 * its chain with a mask. A table grows, never shrinks: when an insertion
 * takes the entry count above max_entries (three quarters of the chains) the
 * chain count is quadrupled (8, 32, 128, 512 ...).
 *
 * Ownership: the caller owns the table from its creation until
 * DutHashDestroy, and owns every key and value, except that the FreeKey /
 * FreeValue / FreeKeyValue forms of reset and destroy free them with
 * DutFreeCheck. Each entry is a bucket allocated by the table; buckets
 * returned by a lookup stay the table's, a bucket returned by
 * DutHashDeleteBucket becomes the caller's (free it with DutFreeCheck).
 *
 * Errors: lookup, bucket lookup, first bucket, delete, delete bucket and
 * traverse set D_ERR_NULL_PTR for a null table (and traverse for a null
 * visit function) and D_ERR_DOESNT_EXIST for a missing key; a complete
 * traversal ends with D_ERR_END_OF_TRAVERSAL. Other null arguments that an
 * operation needs are assertion failures (fatal). A duplicate insertion
 * keeps the first value, prints a warning and sets no error number.
 *
 * Tracing: with DutGetDebugFlags()[D_DEBUG_HASH] set, the operations write
 * their steps to the debug file.
 *
 * Thread safety: none. A table has no lock; callers that share a table lock
 * around it.
 * @{
 */
/**
 * @file
 * @ingroup hash
 * @brief Hash tables (hash).
 */
#ifndef VQUTIL_HASH_H
#define VQUTIL_HASH_H

#include "types.h"

/** Key to hash value. */
typedef D_UINT4 (*D_HASH_FUNC)(D_WORD key);
/** Non-zero when the two keys are equal. Called as (searched, stored). */
typedef D_INT4 (*D_HASH_TEST_FUNC)(D_WORD key1, D_WORD key2);
/** Traversal visit: the first non-zero result stops the traversal. */
typedef D_WORD (*D_HASH_TRAV_FUNC)(D_WORD key, D_WORD value, void *arg);
/** Called on each entry by reset and destroy before its bucket is freed. */
typedef void (*D_HASH_ENTRY_FUNC)(D_WORD key, D_WORD value, void *arg);
/** Sort order of two keys: negative, zero or positive. */
typedef D_INT4 (*D_HASH_CMP_FUNC)(D_WORD key1, D_WORD key2);
/** Sort selection: 0 leaves the entry out. */
typedef D_INT4 (*D_HASH_FILTER_FUNC)(D_WORD key, D_WORD value);
/** Sorted traversal visit over values: non-zero stops. */
typedef D_WORD (*D_HASH_VALUE_FUNC)(D_WORD value, void *arg);

/** One entry. `next` comes first so that a chain is also an intrusive stack
 * and list (DutStackPop, DutListLength). */
typedef struct D_HASH_BUCKET {
  struct D_HASH_BUCKET *next; /**< next bucket of the chain, or null */
  D_WORD key; /**< the entry's key */
  D_WORD value; /**< never null */
} D_HASH_BUCKET;

/** A hash table: chains of buckets indexed by the key's hash. */
typedef struct D_HASH_TABLE {
  D_INT4 size;        /**< number of chains, a power of two */
  D_INT4 num_entries; /**< entries stored, never negative */
  D_INT4 max_entries; /**< growth threshold: truncate(size * 0.75) */
  D_UINT4 mask;       /**< size - 1 */
  D_INT4 collisions;  /**< insertions into occupied chains minus removals
                         from behind a chain head; may stay above the true
                         number of chained entries */
  D_HASH_BUCKET **buckets; /**< size chain heads */
  D_HASH_FUNC hash_func;       /**< hashes a key */
  D_HASH_TEST_FUNC test_func;  /**< compares two keys */
} D_HASH_TABLE;

/** The entry count of a table. */
#define D_GHT_NUM_ENTRIES(table) ((table)->num_entries)

D_BEGIN_DECLS

/** The smallest power of two >= value, never below 2 (0, 1, 2 give 2). On
 * signed 32-bit overflow (value above 2^30) warns
 * "DutRoundUpToPowerOf2: overflow on %ld" and returns 2. A negative value
 * is an assertion failure. */
D_EXPORT D_INT4 DutRoundUpToPowerOf2(D_INT4 value);

/** A new, empty table owned by the caller (free it with DutHashDestroy).
 * The chain count is the power of two at or above 4/3 of the requested
 * size, the request counting as at least 4: 0-4 give 8 chains, 12 gives 16,
 * 13 gives 32. Null functions are assertion failures. */
D_EXPORT D_HASH_TABLE *DutHashCreate(D_INT4 size, D_HASH_FUNC hash_func, D_HASH_TEST_FUNC test_func);
/** Integer keys: the key is its own hash; equal words are equal keys. */
D_EXPORT D_HASH_TABLE *DutHashCreateInt(D_INT4 size);
/** NUL-terminated string keys compared byte by byte. */
D_EXPORT D_HASH_TABLE *DutHashCreateStr(D_INT4 size);
/** String keys compared ignoring the case of ASCII letters. */
D_EXPORT D_HASH_TABLE *DutHashCreateStri(D_INT4 size);
/** Pointer keys compared by identity. */
D_EXPORT D_HASH_TABLE *DutHashCreatePtr(D_INT4 size);

/** The number of entries (not of chains). Null table: assertion failure. */
D_EXPORT D_INT4 DutHashGetSize(D_HASH_TABLE *table);
/** The collision counter (see D_HASH_TABLE). Null table: assertion. */
D_EXPORT D_INT4 DutHashGetCollisions(D_HASH_TABLE *table);
/** @{ */
/** The functions the table was created with. Null table: assertion. */
D_EXPORT D_HASH_FUNC DutHashGetHashFunc(D_HASH_TABLE *table);
D_EXPORT D_HASH_TEST_FUNC DutHashGetTestFunc(D_HASH_TABLE *table);
/** @} */

/** The value stored under key, or null: D_ERR_NULL_PTR for a null table,
 * D_ERR_DOESNT_EXIST for a missing key. */
D_EXPORT D_WORD DutHashLookup(D_HASH_TABLE *table, D_WORD key);
/** DutHashLookup with an integer key. */
D_EXPORT D_WORD DutHashLookupInt(D_HASH_TABLE *table, D_INT4 key);
/** The bucket holding key (still owned by the table, valid until the entry
 * is deleted or the table grows), or null with the errors of lookup. */
D_EXPORT D_HASH_BUCKET *DutHashLookupBucket(D_HASH_TABLE *table, D_WORD key);
/** The head bucket of the lowest-numbered non-empty chain; null with
 * D_ERR_DOESNT_EXIST when the table is empty, D_ERR_NULL_PTR when null. */
D_EXPORT D_HASH_BUCKET *DutHashGetFirstBucket(D_HASH_TABLE *table);
/** A bucket's value. Null bucket: assertion failure. */
D_EXPORT D_WORD DutHashBucketGetValue(D_HASH_BUCKET *bucket);
/** Stores new_value in the bucket and returns the old value. A null bucket
 * or a null new value is an assertion failure. */
D_EXPORT D_WORD DutHashBucketSetValue(D_HASH_BUCKET *bucket, D_WORD new_value);

/** Adds the entry, first in its chain; may grow the table (which moves
 * every entry into new buckets). An existing key keeps its value: the
 * warning "DutHashInsert: key %s already exists in hash table." is printed,
 * the new value is neither stored nor freed, no error number is set. A null
 * table or value is an assertion failure. */
D_EXPORT void DutHashInsert(D_HASH_TABLE *table, D_WORD key, D_WORD value);
/** For an absent key: DutHashInsert and null (D_ERR_DOESNT_EXIST is left
 * set by the search). For a present key: stores the caller's key and
 * new_value in the existing bucket and returns the old value (the old key
 * and value go back to the caller). A null new value is an assertion
 * failure. */
D_EXPORT D_WORD DutHashReplace(D_HASH_TABLE *table, D_WORD key, D_WORD new_value);
/** Unlinks the entry and returns its bucket, which the caller then owns
 * (free it with DutFreeCheck); null with D_ERR_DOESNT_EXIST or
 * D_ERR_NULL_PTR. */
D_EXPORT D_HASH_BUCKET *DutHashDeleteBucket(D_HASH_TABLE *table, D_WORD key);
/** Removes the entry, frees its bucket and returns the value it held; null
 * with D_ERR_DOESNT_EXIST or D_ERR_NULL_PTR. The key and value stay the
 * caller's. */
D_EXPORT D_WORD DutHashDelete(D_HASH_TABLE *table, D_WORD key);

/** Calls func(key, value, arg) on every entry, chain by chain, most recent
 * first within a chain. Returns the first non-zero result at once (no error
 * set); after the last entry returns 0 with D_ERR_END_OF_TRAVERSAL, so an
 * empty table also ends with that error. Null table or func:
 * D_ERR_NULL_PTR, 0. func must not delete or free the entry it visits, nor
 * insert. */
D_EXPORT D_WORD DutHashTraverse(D_HASH_TABLE *table, D_HASH_TRAV_FUNC func, void *arg);
/** Rebuilds the table in place with the chain count DutHashCreate would
 * give for size; does nothing when the table already has more chains than
 * size. The table handle stays valid; buckets are reallocated. */
D_EXPORT void DutHashResize(D_HASH_TABLE *table, D_INT4 size);
/** Empties the table, calling func(key, value, arg) (when func is not null)
 * on each entry before freeing its bucket. The chain array is kept. */
D_EXPORT void DutHashReset(D_HASH_TABLE *table, D_HASH_ENTRY_FUNC func, void *arg);
/** @{ */
/** DutHashReset freeing each key, each value, or both with DutFreeCheck;
 * a null key or value is an assertion failure. */
D_EXPORT void DutHashResetFreeKey(D_HASH_TABLE *table);
D_EXPORT void DutHashResetFreeValue(D_HASH_TABLE *table);
D_EXPORT void DutHashResetFreeKeyValue(D_HASH_TABLE *table);
/** @} */
/** @{ */
/** As DutHashReset, then frees the chain array and the table itself. */
D_EXPORT void DutHashDestroy(D_HASH_TABLE *table, D_HASH_ENTRY_FUNC func, void *arg);
D_EXPORT void DutHashDestroyFreeKey(D_HASH_TABLE *table);
D_EXPORT void DutHashDestroyFreeValue(D_HASH_TABLE *table);
D_EXPORT void DutHashDestroyFreeKeyValue(D_HASH_TABLE *table);
/** @} */

/** Writes the table's statistics (size, entries, threshold, collisions, the
 * average chain length and its deviation over all and over non-empty
 * chains) and every chain with its keys and values through output; a null
 * output writes to the debug file (DutDebug). output runs with the
 * process-wide lock held (the key and number texts are shared buffers), so
 * it must not wait for another thread that prints. */
D_EXPORT void DutHashDump(D_HASH_TABLE *table, D_PRINT_FUNC output);

/** @{ */
/** A new array of the values (DutHashSort) or keys (DutHashSortKeys) of
 * the entries that filter accepts (null filter: all), in ascending key
 * order by compare (null compare: strcmp of the keys as strings); the
 * count goes to *count. The caller frees the array with DutFreeCheck.
 * Nothing selected: null and a count of 0. Equal keys come in no
 * particular order. A null table or count is an assertion failure. The
 * collecting traversal leaves D_ERR_END_OF_TRAVERSAL set. */
D_EXPORT D_WORD *DutHashSort(D_HASH_TABLE *table, D_INT4 *count, D_HASH_CMP_FUNC compare,
                             D_HASH_FILTER_FUNC filter);
D_EXPORT D_WORD *DutHashSortKeys(D_HASH_TABLE *table, D_INT4 *count, D_HASH_CMP_FUNC compare,
                                 D_HASH_FILTER_FUNC filter);
/** @} */
/** Calls func(value, arg) on the selected values in key order, as
 * DutHashSort orders them; returns the first non-zero result, or 0. A null
 * table or func is an assertion failure. */
D_EXPORT D_WORD DutHashSortTraverse(D_HASH_TABLE *table, D_HASH_VALUE_FUNC func, void *arg,
                                    D_HASH_CMP_FUNC compare, D_HASH_FILTER_FUNC filter);

D_END_DECLS

/** @} */
#endif /* VQUTIL_HASH_H */
