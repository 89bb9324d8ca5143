/*
 * vqutil: chained hash tables keyed and valued by machine words.
 *
 * The table never copies a key or a value: it stores the caller's words
 * (integers or pointers) and compares keys through the test function chosen
 * at creation. A value is never null (null is the "not found" answer).
 * Sizes are powers of two; automatic growth quadruples the chain count.
 *
 * Errors: lookup, bucket lookup, first bucket, delete, delete bucket and
 * traverse set D_ERR_NULL_PTR for a null table and D_ERR_DOESNT_EXIST for a
 * missing key; a complete traversal ends with D_ERR_END_OF_TRAVERSAL. Other
 * null arguments are assertion failures. A duplicate insertion keeps the
 * first value and prints a warning.
 *
 * Thread safety: none. Callers that share a table lock around it.
 */
#ifndef VQUTIL_HASH_H
#define VQUTIL_HASH_H

#include "types.h"

typedef D_UINT4 (*D_HASH_FUNC)(D_WORD key);
/* Non-zero when the two keys are equal. */
typedef D_INT4 (*D_HASH_TEST_FUNC)(D_WORD key1, D_WORD key2);
/* Traversal visit: the first non-zero result stops the traversal. */
typedef D_WORD (*D_HASH_TRAV_FUNC)(D_WORD key, D_WORD value, void *arg);
/* Called on each entry by reset and destroy before the bucket is freed. */
typedef void (*D_HASH_ENTRY_FUNC)(D_WORD key, D_WORD value, void *arg);
/* Sort order of two keys: negative, zero or positive. */
typedef D_INT4 (*D_HASH_CMP_FUNC)(D_WORD key1, D_WORD key2);
/* Sort selection: 0 leaves the entry out. */
typedef D_INT4 (*D_HASH_FILTER_FUNC)(D_WORD key, D_WORD value);
/* Sorted traversal visit over values. */
typedef D_WORD (*D_HASH_VALUE_FUNC)(D_WORD value, void *arg);

typedef struct D_HASH_BUCKET {
  struct D_HASH_BUCKET *next;
  D_WORD key;
  D_WORD value;
} D_HASH_BUCKET;

typedef struct D_HASH_TABLE {
  D_INT4 size;        /* number of chains, a power of two */
  D_INT4 num_entries; /* entries stored */
  D_INT4 max_entries; /* growth threshold: size * 0.75 */
  D_UINT4 mask;       /* size - 1 */
  D_INT4 collisions;  /* insertions into occupied chains minus removals
                         from behind a chain head */
  D_HASH_BUCKET **buckets;
  D_HASH_FUNC hash_func;
  D_HASH_TEST_FUNC test_func;
} D_HASH_TABLE;

#define D_GHT_NUM_ENTRIES(table) ((table)->num_entries)

D_BEGIN_DECLS

D_EXPORT D_INT4 DutRoundUpToPowerOf2(D_INT4 value);

D_EXPORT D_HASH_TABLE *DutHashCreate(D_INT4 size, D_HASH_FUNC hash_func, D_HASH_TEST_FUNC test_func);
D_EXPORT D_HASH_TABLE *DutHashCreateInt(D_INT4 size);
D_EXPORT D_HASH_TABLE *DutHashCreateStr(D_INT4 size);
D_EXPORT D_HASH_TABLE *DutHashCreateStri(D_INT4 size);
D_EXPORT D_HASH_TABLE *DutHashCreatePtr(D_INT4 size);

D_EXPORT D_INT4 DutHashGetSize(D_HASH_TABLE *table);
D_EXPORT D_INT4 DutHashGetCollisions(D_HASH_TABLE *table);
D_EXPORT D_HASH_FUNC DutHashGetHashFunc(D_HASH_TABLE *table);
D_EXPORT D_HASH_TEST_FUNC DutHashGetTestFunc(D_HASH_TABLE *table);

D_EXPORT D_WORD DutHashLookup(D_HASH_TABLE *table, D_WORD key);
D_EXPORT D_WORD DutHashLookupInt(D_HASH_TABLE *table, D_INT4 key);
D_EXPORT D_HASH_BUCKET *DutHashLookupBucket(D_HASH_TABLE *table, D_WORD key);
D_EXPORT D_HASH_BUCKET *DutHashGetFirstBucket(D_HASH_TABLE *table);
D_EXPORT D_WORD DutHashBucketGetValue(D_HASH_BUCKET *bucket);
D_EXPORT D_WORD DutHashBucketSetValue(D_HASH_BUCKET *bucket, D_WORD new_value);

D_EXPORT void DutHashInsert(D_HASH_TABLE *table, D_WORD key, D_WORD value);
D_EXPORT D_WORD DutHashReplace(D_HASH_TABLE *table, D_WORD key, D_WORD new_value);
D_EXPORT D_HASH_BUCKET *DutHashDeleteBucket(D_HASH_TABLE *table, D_WORD key);
D_EXPORT D_WORD DutHashDelete(D_HASH_TABLE *table, D_WORD key);

D_EXPORT D_WORD DutHashTraverse(D_HASH_TABLE *table, D_HASH_TRAV_FUNC func, void *arg);
D_EXPORT void DutHashResize(D_HASH_TABLE *table, D_INT4 size);
D_EXPORT void DutHashReset(D_HASH_TABLE *table, D_HASH_ENTRY_FUNC func, void *arg);
D_EXPORT void DutHashResetFreeKey(D_HASH_TABLE *table);
D_EXPORT void DutHashResetFreeValue(D_HASH_TABLE *table);
D_EXPORT void DutHashResetFreeKeyValue(D_HASH_TABLE *table);
D_EXPORT void DutHashDestroy(D_HASH_TABLE *table, D_HASH_ENTRY_FUNC func, void *arg);
D_EXPORT void DutHashDestroyFreeKey(D_HASH_TABLE *table);
D_EXPORT void DutHashDestroyFreeValue(D_HASH_TABLE *table);
D_EXPORT void DutHashDestroyFreeKeyValue(D_HASH_TABLE *table);

/* Null output means DutDebug. */
D_EXPORT void DutHashDump(D_HASH_TABLE *table, D_PRINT_FUNC output);

/* Arrays of the selected values / keys in key order; the caller frees the
 * array (DutFreeCheck). Null compare means strcmp of the keys. */
D_EXPORT D_WORD *DutHashSort(D_HASH_TABLE *table, D_INT4 *count, D_HASH_CMP_FUNC compare,
                             D_HASH_FILTER_FUNC filter);
D_EXPORT D_WORD *DutHashSortKeys(D_HASH_TABLE *table, D_INT4 *count, D_HASH_CMP_FUNC compare,
                                 D_HASH_FILTER_FUNC filter);
D_EXPORT D_WORD DutHashSortTraverse(D_HASH_TABLE *table, D_HASH_VALUE_FUNC func, void *arg,
                                    D_HASH_CMP_FUNC compare, D_HASH_FILTER_FUNC filter);

D_END_DECLS

#endif /* VQUTIL_HASH_H */
