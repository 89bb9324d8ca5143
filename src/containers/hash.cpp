// Chained hash tables of machine words. Chains are intrusive stacks of
// buckets (next first), selected by masking the hash value with size - 1.
//
// The four ready-made key kinds are recognised by the identity of their
// functions, so their searches run inlined instead of through two indirect
// calls per probe; tables with caller-supplied functions take the generic
// path, which calls those functions exactly as many times as documented.
#include "vqutil/hash.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "containers/hash_internal.hpp"
#include "frame/check.hpp"
#include "frame/hex.hpp"
#include "vqutil/error.h"
#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

#if defined(__GNUC__) || defined(__clang__)
#define VQ_PREFETCH(address) __builtin_prefetch(address)
#else
#define VQ_PREFETCH(address) ((void)(address))
#endif

namespace {

constexpr const char *kFile = "hash.c";

// ---- Debug flags ----------------------------------------------------------

// The flag array lives as long as the process; its address is fetched once.
std::atomic<unsigned char *> gDebugFlags{nullptr};

inline unsigned char *debugFlags() {
  unsigned char *flags = gDebugFlags.load(std::memory_order_relaxed);
  if (flags == nullptr) {
    flags = DutGetDebugFlags();
    gDebugFlags.store(flags, std::memory_order_relaxed);
  }
  return flags;
}

inline bool tracing() { return debugFlags()[D_DEBUG_HASH] != 0; }
inline bool memoryTracing() { return debugFlags()[D_DEBUG_MEMORY] != 0; }

using vq::hexOf;

// ---- Ready-made key kinds -------------------------------------------------

// Contribution of each byte to a string hash: the byte as a signed char
// widened to 32 bits, so bytes 0x80-0xFF subtract.
struct ByteTables {
  D_UINT4 exact[256];
  D_UINT4 folded[256];  // upper-case ASCII letters first raised by 32
  unsigned char fold[256];
};

constexpr ByteTables makeByteTables() {
  ByteTables t{};
  for (int b = 0; b < 256; ++b) {
    int as_signed = b < 128 ? b : b - 256;
    bool upper = b >= 'A' && b <= 'Z';
    t.exact[b] = static_cast<D_UINT4>(as_signed);
    t.folded[b] = static_cast<D_UINT4>(upper ? as_signed + 32 : as_signed);
    t.fold[b] = static_cast<unsigned char>(upper ? b + 32 : b);
  }
  return t;
}

constexpr ByteTables kBytes = makeByteTables();

// h = h x 27 + c over the bytes, four at a step: the four contributions do
// not depend on h, so each step waits on one multiply-add instead of four.
// No byte past the terminating NUL is read.
inline D_UINT4 stringHash(const char *s, const D_UINT4 *contribution) {
  auto at = [&s, contribution](int i) { return contribution[static_cast<unsigned char>(s[i])]; };
  for (D_UINT4 h = 0;; s += 4) {
    if (s[0] == '\0') return h;
    if (s[1] == '\0') return h * 27u + at(0);
    if (s[2] == '\0') return (h * 27u + at(0)) * 27u + at(1);
    if (s[3] == '\0') return ((h * 27u + at(0)) * 27u + at(1)) * 27u + at(2);
    h = h * 531441u + at(0) * 19683u + at(1) * 729u + at(2) * 27u + at(3);
  }
}

inline bool foldedEqual(const char *a, const char *b) {
  // Most searches spell the key as it was stored.
  if (std::strcmp(a, b) == 0) return true;
  for (;; ++a, ++b) {
    unsigned char ca = kBytes.fold[static_cast<unsigned char>(*a)];
    unsigned char cb = kBytes.fold[static_cast<unsigned char>(*b)];
    if (ca != cb) return false;
    if (ca == '\0') return true;
  }
}

inline const char *asString(D_WORD key) { return reinterpret_cast<const char *>(key); }

D_UINT4 hashInt(D_WORD key) { return static_cast<D_UINT4>(key); }
D_INT4 testInt(D_WORD key1, D_WORD key2) { return key1 == key2; }

D_UINT4 hashStr(D_WORD key) {
  VQ_ASSERT(key != 0, "key != NULL", kFile);
  return stringHash(asString(key), kBytes.exact);
}
D_INT4 testStr(D_WORD key1, D_WORD key2) {
  VQ_ASSERT(key1 != 0, "key1 != NULL", kFile);
  VQ_ASSERT(key2 != 0, "key2 != NULL", kFile);
  return std::strcmp(asString(key1), asString(key2)) == 0;
}

D_UINT4 hashStri(D_WORD key) {
  VQ_ASSERT(key != 0, "key != NULL", kFile);
  return stringHash(asString(key), kBytes.folded);
}
D_INT4 testStri(D_WORD key1, D_WORD key2) {
  // A null key equals nothing rather than crashing a caller's own search.
  if (key1 == 0 || key2 == 0) return 0;
  return foldedEqual(asString(key1), asString(key2));
}

// Allocations are at least 16-byte aligned: the low bits carry nothing.
D_UINT4 hashPtr(D_WORD key) { return static_cast<D_UINT4>(static_cast<D_UWORD>(key) >> 4); }
D_INT4 testPtr(D_WORD key1, D_WORD key2) { return key1 == key2; }

enum class Kind { Int, Str, Stri, Ptr, Custom };

inline Kind kindOf(const D_HASH_TABLE *t) {
  if (t->hash_func == hashInt && t->test_func == testInt) return Kind::Int;
  if (t->hash_func == hashStr && t->test_func == testStr) return Kind::Str;
  if (t->hash_func == hashStri && t->test_func == testStri) return Kind::Stri;
  if (t->hash_func == hashPtr && t->test_func == testPtr) return Kind::Ptr;
  return Kind::Custom;
}

// ---- Search ---------------------------------------------------------------

// Tables of the ready-made kinds keep three things a caller never sees:
//  - string buckets carry the key's hash after the three public fields, so
//    a chain walk compares words before it reads a string, and growth never
//    hashes a string again;
//  - one summary byte per chain, stored after the chain heads in the same
//    allocation: the OR of the bits of its entries' hashes (see
//    summaryBits). A key whose bits are not all set is absent, found
//    without reading the chain, so most misses cost one read of a small
//    array. The summary may only err towards "maybe": removals leave the
//    bits of other entries' keys until the chain empties, and a chain a
//    host pops by itself leaves it stale;
//  - one byte after the summaries saying whether recent lookups mostly
//    hit, which decides whether a lookup asks the summary (see trendOf).
// Tables with a caller's functions have none of these: every probe runs that
// caller's test function, exactly as documented.
struct HashedBucket {
  D_HASH_BUCKET bucket;
  D_UINT4 hash;
};

inline bool hashStored(Kind kind) { return kind == Kind::Str || kind == Kind::Stri; }
inline bool summarised(Kind kind) { return kind != Kind::Custom; }

inline D_UINT4 storedHash(const D_HASH_BUCKET *b) {
  return reinterpret_cast<const HashedBucket *>(b)->hash;
}

inline unsigned char *summaryOf(const D_HASH_TABLE *t) {
  return reinterpret_cast<unsigned char *>(t->buckets + t->size);
}

// After the summaries, one byte saying how the table's recent lookups went:
// a saturating count, up on a miss and down on a hit. Reading a summary
// byte costs a hit a third memory access besides the chain head and the
// bucket, which makes hits up to twice as slow, while reading the chain
// head costs a miss the access the summary exists to save. A table whose
// lookups mostly find their keys reads its chains straight away; one whose
// lookups mostly miss asks the summary first. The count is only written
// when it changes, so tables shared by reading threads do not trade the
// cache line once their pattern has settled.
constexpr unsigned char kTrendMax = 15;
constexpr unsigned char kTrendMissing = 8;  // from here on, the summary first

inline unsigned char *trendOf(const D_HASH_TABLE *t) { return summaryOf(t) + t->size; }

inline bool mostlyMissing(const D_HASH_TABLE *t) {
  return std::atomic_ref<unsigned char>(*trendOf(t)).load(std::memory_order_relaxed) >= kTrendMissing;
}

inline void noteLookup(const D_HASH_TABLE *t, bool hit) {
  std::atomic_ref<unsigned char> trend(*trendOf(t));
  const unsigned char now = trend.load(std::memory_order_relaxed);
  if (hit ? now > 0 : now < kTrendMax) {
    trend.store(static_cast<unsigned char>(hit ? now - 1 : now + 1), std::memory_order_relaxed);
  }
}

// The summary bits of a hash: two of the eight (one when they coincide),
// each picked by three bits from the top of a multiplicative mix, so they
// depend on the bits above the chain index as well as on those in it. Two
// bits per entry let a one- or two-entry chain turn away about twice as
// many absent keys as one bit would.
inline unsigned char summaryBits(D_UINT4 hash) {
  const D_UINT4 mixed = hash * 0x9E3779B1u;
  return static_cast<unsigned char>((1u << (mixed >> 29)) | (1u << ((mixed >> 26) & 7u)));
}

// The hash of a stored entry of a ready-made kind, without reading a string.
inline D_UINT4 bucketHash(Kind kind, const D_HASH_BUCKET *b) {
  if (hashStored(kind)) return storedHash(b);
  return kind == Kind::Ptr ? hashPtr(b->key) : static_cast<D_UINT4>(b->key);
}

// Where a search ended: the link that points at the hit (null when absent),
// the key's hash and the chain index it belongs to.
struct Place {
  D_HASH_BUCKET **link;
  D_UINT4 hash;
  D_UINT4 index;
};

inline bool sameWord(D_WORD a, D_WORD b) { return a == b; }

// What a search is for. A lookup may hit or miss (see trendOf). An
// insertion links the new bucket at its chain head whatever the search
// finds, so it fetches the head while the search goes on; so does a lookup
// that will read its chain. A removal almost always finds its key, so it
// walks the chain straight away.
enum class Purpose { Find, Insert, Remove };

// Each kind searches in a function of its own, so an integer search does
// not save and restore the registers a string search needs, and the
// purpose is fixed at compile time: a fifth fewer instructions per lookup.
template <Purpose P, bool kHashStored, class Equal>
inline Place walkBuiltin(D_HASH_TABLE *t, D_UINT4 hash, D_WORD key, Equal equal) {
  D_UINT4 index = hash & t->mask;
  const bool ask_summary = P == Purpose::Insert || (P == Purpose::Find && mostlyMissing(t));
  if constexpr (P == Purpose::Insert) VQ_PREFETCH(&t->buckets[index]);
  if constexpr (P == Purpose::Find) {
    // A lookup that will ask the summary fetches the count's line, already
    // cached, instead of a chain head it may never need.
    const void *ahead = ask_summary ? static_cast<const void *>(trendOf(t)) : &t->buckets[index];
    VQ_PREFETCH(ahead);
  }
  // An insertion asks the summary always: its key is usually new.
  if (ask_summary) {
    const unsigned char bits = summaryBits(hash);
    if ((summaryOf(t)[index] & bits) != bits) {
      if constexpr (P == Purpose::Find) noteLookup(t, false);
      return {nullptr, hash, index};
    }
  }
  D_HASH_BUCKET **link = &t->buckets[index];
  for (D_HASH_BUCKET *b; (b = *link) != nullptr; link = &b->next) {
    if (kHashStored && storedHash(b) != hash) continue;
    if (equal(key, b->key)) {
      if constexpr (P == Purpose::Find) noteLookup(t, true);
      return {link, hash, index};
    }
  }
  if constexpr (P == Purpose::Find) noteLookup(t, false);
  return {nullptr, hash, index};
}

template <Purpose P>
[[gnu::noinline]] Place searchInt(D_HASH_TABLE *t, D_WORD key) {
  return walkBuiltin<P, false>(t, static_cast<D_UINT4>(key), key, sameWord);
}

template <Purpose P>
[[gnu::noinline]] Place searchPtr(D_HASH_TABLE *t, D_WORD key) {
  return walkBuiltin<P, false>(t, hashPtr(key), key, sameWord);
}

template <Purpose P>
[[gnu::noinline]] Place searchStr(D_HASH_TABLE *t, D_WORD key) {
  VQ_ASSERT(key != 0, "key != NULL", kFile);
  // Stored keys passed the same check when they were inserted.
  return walkBuiltin<P, true>(t, stringHash(asString(key), kBytes.exact), key,
                              [](D_WORD a, D_WORD b) { return std::strcmp(asString(a), asString(b)) == 0; });
}

template <Purpose P>
[[gnu::noinline]] Place searchStri(D_HASH_TABLE *t, D_WORD key) {
  VQ_ASSERT(key != 0, "key != NULL", kFile);
  return walkBuiltin<P, true>(t, stringHash(asString(key), kBytes.folded), key,
                              [](D_WORD a, D_WORD b) { return b != 0 && foldedEqual(asString(a), asString(b)); });
}

[[gnu::noinline]] Place searchCustom(D_HASH_TABLE *t, D_WORD key) {
  D_HASH_TEST_FUNC test = t->test_func;
  D_UINT4 hash = t->hash_func(key);
  D_UINT4 index = hash & t->mask;
  D_HASH_BUCKET **link = &t->buckets[index];
  for (D_HASH_BUCKET *b; (b = *link) != nullptr; link = &b->next) {
    if (test(key, b->key) != 0) return {link, hash, index};
  }
  return {nullptr, hash, index};
}

template <Purpose P = Purpose::Find>
inline Place locate(D_HASH_TABLE *t, D_WORD key) {
  switch (kindOf(t)) {
    case Kind::Int:
      return searchInt<P>(t, key);
    case Kind::Ptr:
      return searchPtr<P>(t, key);
    case Kind::Str:
      return searchStr<P>(t, key);
    case Kind::Stri:
      return searchStri<P>(t, key);
    case Kind::Custom:
      break;
  }
  return searchCustom(t, key);
}

// After an entry left a chain: an emptied chain's summary is cleared; the
// bits of a chain that still holds entries stay, stale at worst, rather
// than walking the rest of it.
inline void forgetEntry(D_HASH_TABLE *t, Kind kind, D_UINT4 index) {
  if (summarised(kind) && t->buckets[index] == nullptr) summaryOf(t)[index] = 0;
}

// ---- Key printing ---------------------------------------------------------

// One shared text, replaced by every call; callers hold the process lock
// from the call until the message using it is written.
char *gPrintedKey = nullptr;

const char *printKey(const D_HASH_TABLE *t, D_WORD key) {
  if (t != nullptr && (t->hash_func == hashStr || t->hash_func == hashStri)) {
    DutStringCopy(&gPrintedKey, asString(key));
  } else {
    char text[32];
    std::snprintf(text, sizeof text, "%" PRIdPTR, key);
    DutStringCopy(&gPrintedKey, text);
  }
  return gPrintedKey;
}

// A debug line naming a table and a key: "...(%" PRIxPTR ", %s)\n".
void traceTableKey(const char *format, const D_HASH_TABLE *t, D_WORD key) {
  DutProcessMutexLock();
  DutDebug(format, hexOf(t), printKey(t, key));
  DutProcessMutexUnlock();
}

void traceKeyNotFound(const D_HASH_TABLE *t, D_WORD key) {
  DutProcessMutexLock();
  DutDebug("  key %s not found (returning NULL)\n", printKey(t, key));
  DutProcessMutexUnlock();
}

// ---- Buckets --------------------------------------------------------------

// A new bucket for a key whose hash (for the ready-made kinds) is known.
inline D_HASH_BUCKET *newBucket(Kind kind, D_UINT4 hash, D_WORD key, D_WORD value, int line) {
  const bool stored = hashStored(kind);
  const size_t bytes = stored ? sizeof(HashedBucket) : sizeof(D_HASH_BUCKET);
  auto *b = static_cast<D_HASH_BUCKET *>(
      DutMallocCheck(static_cast<D_INT4>(bytes), "new_bucket", kFile, line));
  b->key = key;
  b->value = value;
  if (stored) reinterpret_cast<HashedBucket *>(b)->hash = hash;
  return b;
}

inline void freeBucket(D_HASH_BUCKET *b, const char *label, int line) {
  b->key = 0;
  b->value = 0;
  DutFreeCheck(b, label, kFile, line);
}

inline D_HASH_BUCKET *popChain(D_HASH_BUCKET **head) {
  return static_cast<D_HASH_BUCKET *>(DutStackPop(reinterpret_cast<void **>(head)));
}

// Pushes an allocated bucket first in its chain and counts it.
inline void link(D_HASH_TABLE *t, D_HASH_BUCKET *b, D_UINT4 index) {
  b->next = t->buckets[index];
  t->buckets[index] = b;
  ++t->num_entries;
  if (b->next != nullptr) ++t->collisions;
}

// Moves every bucket of `from` into `to` in the order re-insertion would
// take: chains in index order, each popped from its head. Growth of a large
// table is bound by memory latency, so the buckets a few chains ahead are
// fetched early; each bucket holds its own hash (its key, or the stored
// string hash), so nothing else is read.
void moveAll(D_HASH_TABLE *from, D_HASH_TABLE *to, Kind kind) {
  constexpr D_INT4 kAhead = 8;
  const D_INT4 n = from->size;
  unsigned char *summary = summaryOf(to);
  for (D_INT4 i = 0; i < n; ++i) {
    if (i + kAhead < n) VQ_PREFETCH(from->buckets[i + kAhead]);
    D_HASH_BUCKET *b = from->buckets[i];
    from->buckets[i] = nullptr;
    while (b != nullptr) {
      D_HASH_BUCKET *next = b->next;
      D_UINT4 hash = bucketHash(kind, b);
      D_UINT4 index = hash & to->mask;
      link(to, b, index);
      summary[index] |= summaryBits(hash);
      b = next;
    }
  }
}

// ---- Reset and destroy ----------------------------------------------------

void emptyChains(D_HASH_TABLE *t, D_HASH_ENTRY_FUNC func, void *arg) {
  for (D_INT4 i = 0; i < t->size; ++i) {
    while (D_HASH_BUCKET *b = popChain(&t->buckets[i])) {
      if (func != nullptr) func(b->key, b->value, arg);
      freeBucket(b, "bucket", __LINE__);
    }
  }
  if (summarised(kindOf(t))) std::memset(summaryOf(t), 0, static_cast<size_t>(t->size));
}

void freeKey(D_WORD key, D_WORD, void *dummy) {
  VQ_ASSERT(key != 0, "key != NULL", kFile);
  VQ_ASSERT(dummy == nullptr, "dummy == NULL", kFile);
  DutFreeCheck(reinterpret_cast<void *>(key), "key", kFile, __LINE__);
}

void freeValue(D_WORD, D_WORD value, void *dummy) {
  VQ_ASSERT(value != 0, "value != NULL", kFile);
  VQ_ASSERT(dummy == nullptr, "dummy == NULL", kFile);
  DutFreeCheck(reinterpret_cast<void *>(value), "value", kFile, __LINE__);
}

void freeKeyValue(D_WORD key, D_WORD value, void *dummy) {
  VQ_ASSERT(key != 0, "key != NULL", kFile);
  VQ_ASSERT(value != 0, "value != NULL", kFile);
  VQ_ASSERT(dummy == nullptr, "dummy == NULL", kFile);
  DutFreeCheck(reinterpret_cast<void *>(key), "key", kFile, __LINE__);
  DutFreeCheck(reinterpret_cast<void *>(value), "value", kFile, __LINE__);
}

// ---- Sorting --------------------------------------------------------------

struct SortParm {
  D_WORD *key_array;
  D_WORD *value_array;
  D_INT4 count;
  D_HASH_FILTER_FUNC filter;
};

D_WORD collect(D_WORD key, D_WORD value, void *arg) {
  VQ_ASSERT(arg != nullptr, "arg != NULL", kFile);
  auto *parm = static_cast<SortParm *>(arg);
  if (parm->filter != nullptr && parm->filter(key, value) == 0) return 0;
  parm->key_array[parm->count] = key;
  parm->value_array[parm->count] = value;
  ++parm->count;
  return 0;
}

D_INT4 compareStrings(D_WORD key1, D_WORD key2) { return std::strcmp(asString(key1), asString(key2)); }

// Heap sort of keys[1..n] carrying values[1..n] along: a max-heap, so the
// result ascends.
void heapSort(D_WORD *keys, D_WORD *values, D_INT4 n, D_HASH_CMP_FUNC compare) {
  if (n < 2) return;
  D_INT4 l = n / 2 + 1;
  D_INT4 ir = n;
  for (;;) {
    D_WORD key;
    D_WORD value;
    if (l > 1) {
      --l;
      key = keys[l];
      value = values[l];
    } else {
      key = keys[ir];
      value = values[ir];
      keys[ir] = keys[1];
      values[ir] = values[1];
      if (--ir == 1) {
        keys[1] = key;
        values[1] = value;
        break;
      }
    }
    D_INT4 i = l;
    D_INT4 j = l + l;
    while (j <= ir) {
      if (j < ir && compare(keys[j], keys[j + 1]) < 0) ++j;
      if (compare(key, keys[j]) < 0) {
        keys[i] = keys[j];
        values[i] = values[j];
        i = j;
        j += j;
      } else {
        break;
      }
    }
    keys[i] = key;
    values[i] = value;
  }
}

// Collects and sorts the selected entries; returns the key array (keys
// true) or the value array and frees the other one.
D_WORD *sortEntries(D_HASH_TABLE *t, D_INT4 *count, D_HASH_CMP_FUNC compare,
                    D_HASH_FILTER_FUNC filter, bool keys) {
  VQ_ASSERT(t != nullptr, "table != NULL", kFile);
  VQ_ASSERT(count != nullptr, "array_size_return != NULL", kFile);
  if (compare == nullptr) compare = compareStrings;
  if (t->num_entries == 0) {
    *count = 0;
    return nullptr;
  }
  auto bytes = static_cast<D_INT4>((t->num_entries + 1) * sizeof(D_WORD));
  SortParm parm{};
  parm.key_array = static_cast<D_WORD *>(DutMallocCheck(bytes, "sort_parm.key_array", kFile, __LINE__));
  parm.value_array =
      static_cast<D_WORD *>(DutMallocCheck(bytes, "sort_parm.value_array", kFile, __LINE__));
  parm.filter = filter;
  DutHashTraverse(t, collect, &parm);

  D_INT4 n = parm.count;
  if (n == 0) {
    DutFreeCheck(parm.key_array, "sort_parm.key_array", kFile, __LINE__);
    DutFreeCheck(parm.value_array, "sort_parm.value_array", kFile, __LINE__);
    *count = 0;
    return nullptr;
  }
  // The sort works on positions 1..n: the first element moves to n + 1's
  // slot, and everything moves back down by one afterwards.
  parm.key_array[n] = parm.key_array[0];
  parm.value_array[n] = parm.value_array[0];
  heapSort(parm.key_array, parm.value_array, n, compare);
  for (D_INT4 i = 1; i <= n; ++i) {
    parm.key_array[i - 1] = parm.key_array[i];
    parm.value_array[i - 1] = parm.value_array[i];
  }
  auto exact = static_cast<D_INT4>(n * sizeof(D_WORD));
  parm.key_array = static_cast<D_WORD *>(
      DutReallocCheck(parm.key_array, exact, "sort_parm.key_array", kFile, __LINE__));
  parm.value_array = static_cast<D_WORD *>(
      DutReallocCheck(parm.value_array, exact, "sort_parm.value_array", kFile, __LINE__));
  *count = n;
  if (keys) {
    DutFreeCheck(parm.value_array, "sort_parm.value_array", kFile, __LINE__);
    return parm.key_array;
  }
  DutFreeCheck(parm.key_array, "sort_parm.key_array", kFile, __LINE__);
  return parm.value_array;
}

// DutHashDeleteBucket's work, shared with DutHashDelete without a second
// trip through the exported entry point.
D_HASH_BUCKET *removeEntry(D_HASH_TABLE *table, D_WORD key, bool trace) {
  if (trace) traceTableKey("entering DutHashDeleteBucket(%" PRIxPTR ", %s)\n", table, key);
  if (table == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  const Kind kind = kindOf(table);
  Place place = locate<Purpose::Remove>(table, key);
  if (place.link == nullptr) {
    if (trace) traceKeyNotFound(table, key);
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  D_HASH_BUCKET *bucket = *place.link;
  // Removing from behind a chain head takes back a counted collision;
  // removing a head does not, so the counter may stay above the number of
  // chained entries.
  if (place.link != &table->buckets[place.index]) --table->collisions;
  *place.link = bucket->next;
  bucket->next = nullptr;
  forgetEntry(table, kind, place.index);
  --table->num_entries;
  if (trace) {
    DutDebug("  hash table %" PRIxPTR " now has %ld entries\n", hexOf(table),
             static_cast<long>(table->num_entries));
  }
  VQ_ASSERT(table->num_entries >= 0, "table->num_entries >= 0", kFile);
  if (trace) {
    DutDebug("  returning bucket %" PRIxPTR "\n", hexOf(bucket));
    DutHashDump(table, DutDebug);
  }
  return bucket;
}

}  // namespace

D_HASH_BUCKET *vq::hash::find(D_HASH_TABLE *table, D_WORD key) {
  if (table == nullptr) return nullptr;
  Place place = locate(table, key);
  return place.link != nullptr ? *place.link : nullptr;
}

extern "C" {

// ---- Sizes and creation ---------------------------------------------------

D_EXPORT D_INT4 DutRoundUpToPowerOf2(D_INT4 value) {
  VQ_ASSERT(value >= 0, "value >= 0", kFile);
  if (value < 3) return 2;
  D_INT4 candidate = 2;
  while (candidate < value) {
    candidate = static_cast<D_INT4>(static_cast<D_UINT4>(candidate) * 2u);
    if (candidate < 0) {
      DutWarning("DutRoundUpToPowerOf2: overflow on %ld\n", static_cast<long>(value));
      return 2;
    }
  }
  return candidate;
}

D_EXPORT D_HASH_TABLE *DutHashCreate(D_INT4 size, D_HASH_FUNC hash_func, D_HASH_TEST_FUNC test_func) {
  VQ_ASSERT(hash_func != nullptr, "hash_func != NULL", kFile);
  VQ_ASSERT(test_func != nullptr, "test_func != NULL", kFile);
  const bool trace = tracing();
  if (trace) DutDebug("entering DutHashCreate(%ld)\n", static_cast<long>(size));
  DutSetInitialSbrk();
  auto *table = static_cast<D_HASH_TABLE *>(
      DutCallocCheck(static_cast<D_INT4>(sizeof(D_HASH_TABLE)), "table", kFile, __LINE__));

  // 4/3 of the request leaves room for a quarter more entries before the
  // first growth.
  double wanted = (size < 4 ? 4 : size) * 1.3333333333333333;
  if (wanted > 2147483647.0) wanted = 2147483647.0;
  table->size = DutRoundUpToPowerOf2(static_cast<D_INT4>(wanted));
  if (trace) {
    DutDebug("  using %ld as initial size of hash table %" PRIxPTR "\n", static_cast<long>(table->size),
             hexOf(table));
  }
  table->max_entries = static_cast<D_INT4>(table->size * 0.75);
  table->mask = static_cast<D_UINT4>(table->size) - 1u;
  table->hash_func = hash_func;
  table->test_func = test_func;
  // The chain summaries and the lookup trend follow the chain heads.
  const bool hidden = summarised(kindOf(table));
  const size_t bytes = static_cast<size_t>(table->size) * (sizeof(D_HASH_BUCKET *) + (hidden ? 1 : 0)) +
                       (hidden ? 1 : 0);
  table->buckets = static_cast<D_HASH_BUCKET **>(
      DutCallocCheck(static_cast<D_INT4>(bytes), "table->buckets", kFile, __LINE__));
  return table;
}

D_EXPORT D_HASH_TABLE *DutHashCreateInt(D_INT4 size) { return DutHashCreate(size, hashInt, testInt); }
D_EXPORT D_HASH_TABLE *DutHashCreateStr(D_INT4 size) { return DutHashCreate(size, hashStr, testStr); }
D_EXPORT D_HASH_TABLE *DutHashCreateStri(D_INT4 size) {
  return DutHashCreate(size, hashStri, testStri);
}
D_EXPORT D_HASH_TABLE *DutHashCreatePtr(D_INT4 size) { return DutHashCreate(size, hashPtr, testPtr); }

// ---- Accessors ------------------------------------------------------------

D_EXPORT D_INT4 DutHashGetSize(D_HASH_TABLE *table) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  VQ_ASSERT(D_GHT_NUM_ENTRIES(table) >= 0, "D_GHT_NUM_ENTRIES(table) >= 0", kFile);
  return table->num_entries;
}

D_EXPORT D_INT4 DutHashGetCollisions(D_HASH_TABLE *table) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  return table->collisions;
}

D_EXPORT D_HASH_FUNC DutHashGetHashFunc(D_HASH_TABLE *table) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  return table->hash_func;
}

D_EXPORT D_HASH_TEST_FUNC DutHashGetTestFunc(D_HASH_TABLE *table) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  return table->test_func;
}

// ---- Lookup ---------------------------------------------------------------

D_EXPORT D_WORD DutHashLookup(D_HASH_TABLE *table, D_WORD key) {
  if (table == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return 0;
  }
  if (tracing()) traceTableKey("Entering DutHashLookup(%" PRIxPTR ", %s)\n", table, key);
  Place place = locate(table, key);
  if (place.link == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return 0;
  }
  return (*place.link)->value;
}

D_EXPORT D_WORD DutHashLookupInt(D_HASH_TABLE *table, D_INT4 key) {
  return DutHashLookup(table, static_cast<D_WORD>(key));
}

D_EXPORT D_HASH_BUCKET *DutHashLookupBucket(D_HASH_TABLE *table, D_WORD key) {
  if (table == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  Place place = locate(table, key);
  if (place.link == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  return *place.link;
}

D_EXPORT D_HASH_BUCKET *DutHashGetFirstBucket(D_HASH_TABLE *table) {
  if (table == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  for (D_INT4 i = 0; i < table->size; ++i) {
    if (table->buckets[i] != nullptr) return table->buckets[i];
  }
  VQ_EXPECT(0 == D_GHT_NUM_ENTRIES(table), "0 == D_GHT_NUM_ENTRIES(table)", kFile);
  DutErrNumSet(D_ERR_DOESNT_EXIST);
  return nullptr;
}

D_EXPORT D_WORD DutHashBucketGetValue(D_HASH_BUCKET *bucket) {
  VQ_ASSERT(bucket != nullptr, "bucket != NULL", kFile);
  return bucket->value;
}

D_EXPORT D_WORD DutHashBucketSetValue(D_HASH_BUCKET *bucket, D_WORD new_value) {
  VQ_ASSERT(bucket != nullptr, "bucket != NULL", kFile);
  VQ_ASSERT(new_value != 0, "new_value != NULL", kFile);
  D_WORD old_value = bucket->value;
  VQ_ASSERT(old_value != 0, "old_value != NULL", kFile);
  bucket->value = new_value;
  return old_value;
}

// ---- Insertion and replacement --------------------------------------------

D_EXPORT void DutHashInsert(D_HASH_TABLE *table, D_WORD key, D_WORD value) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  VQ_ASSERT(value != 0, "value != NULL", kFile);
  const bool trace = tracing();
  if (trace) {
    DutProcessMutexLock();
    DutDebug("entering DutHashInsert(%" PRIxPTR ", %s, %" PRIxPTR ")\n", hexOf(table), printKey(table, key),
             hexOf(value));
    DutProcessMutexUnlock();
  }
  Place place = locate<Purpose::Insert>(table, key);
  if (place.link != nullptr) {
    DutProcessMutexLock();
    DutWarning("DutHashInsert: key %s already exists in hash table.\n", printKey(table, key));
    DutProcessMutexUnlock();
    return;
  }
  // A caller's hash function is asked again, as it always has been; the
  // ready-made ones are pure, so the index found by the search stands.
  const Kind kind = kindOf(table);
  D_HASH_BUCKET *bucket = newBucket(kind, place.hash, key, value, __LINE__);
  D_UINT4 index = place.index;
  if (kind == Kind::Custom) index = table->hash_func(key) & table->mask;
  VQ_ASSERT(D_IN_RANGE(static_cast<long long>(index), 0, table->size - 1),
            "D_IN_RANGE(hash_value, 0, table->size - 1)", kFile);
  link(table, bucket, index);
  if (summarised(kind)) summaryOf(table)[index] |= summaryBits(place.hash);
  if (trace) {
    DutDebug("  hash table now has %ld entries\n", static_cast<long>(table->num_entries));
  }
  if (table->num_entries > table->max_entries) DutHashResize(table, table->size * 2);
}

D_EXPORT D_WORD DutHashReplace(D_HASH_TABLE *table, D_WORD key, D_WORD new_value) {
  D_HASH_BUCKET *bucket = DutHashLookupBucket(table, key);
  if (bucket == nullptr) {
    DutHashInsert(table, key, new_value);
    return 0;
  }
  VQ_ASSERT(new_value != 0, "new_value != NULL", kFile);
  D_WORD old_value = bucket->value;
  VQ_ASSERT(old_value != 0, "old_value != NULL", kFile);
  bucket->key = key;
  bucket->value = new_value;
  return old_value;
}

// ---- Growth ---------------------------------------------------------------

D_EXPORT void DutHashResize(D_HASH_TABLE *table, D_INT4 size) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  const bool trace = tracing();
  if (trace) DutDebug("entering DutHashResize(%" PRIxPTR ")\n", hexOf(table));
  if (table->size > size) return;

  D_HASH_TABLE *bigger_table = DutHashCreate(size, table->hash_func, table->test_func);
  // Moving the buckets themselves gives the same chains, order and
  // collision count as inserting every entry afresh. Re-insertion proper is
  // kept where it can be seen: in the traces, and through a caller's own
  // functions.
  const Kind kind = kindOf(table);
  if (!trace && !memoryTracing() && kind != Kind::Custom) {
    moveAll(table, bigger_table, kind);
  } else {
    for (D_INT4 i = 0; i < table->size; ++i) {
      while (D_HASH_BUCKET *b = popChain(&table->buckets[i])) {
        DutHashInsert(bigger_table, b->key, b->value);
        freeBucket(b, "new", __LINE__);
      }
    }
  }
  VQ_EXPECT(D_GHT_NUM_ENTRIES(table) == bigger_table->num_entries,
            "D_GHT_NUM_ENTRIES(table) == bigger_table->num_entries", kFile);
  DutFreeCheck(table->buckets, "table->buckets", kFile, __LINE__);
  *table = *bigger_table;
  DutFreeCheck(bigger_table, "bigger_table", kFile, __LINE__);
  if (trace) {
    DutHashDump(table, DutDebug);
    DutDebug("end of DutHashResize\n");
  }
}

// ---- Deletion -------------------------------------------------------------

D_EXPORT D_HASH_BUCKET *DutHashDeleteBucket(D_HASH_TABLE *table, D_WORD key) {
  return removeEntry(table, key, tracing());
}

D_EXPORT D_WORD DutHashDelete(D_HASH_TABLE *table, D_WORD key) {
  const bool trace = tracing();
  if (trace) traceTableKey("entering DutHashDelete(%" PRIxPTR ", %s)\n", table, key);
  D_HASH_BUCKET *bucket = removeEntry(table, key, trace);
  if (bucket == nullptr) {
    if (trace) traceKeyNotFound(table, key);
    return 0;
  }
  D_WORD value = bucket->value;
  freeBucket(bucket, "bucket", __LINE__);
  return value;
}

// ---- Traversal ------------------------------------------------------------

// Owns nothing with a destructor: a visit function may long-jump out.
D_EXPORT D_WORD DutHashTraverse(D_HASH_TABLE *table, D_HASH_TRAV_FUNC func, void *arg) {
  const bool trace = tracing();
  if (trace) {
    DutDebug("entering DutHashTraverse(%" PRIxPTR ", %" PRIxPTR ", %" PRIxPTR ")\n", hexOf(table), hexOf(func),
             hexOf(arg));
  }
  if (table == nullptr || func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return 0;
  }
  if (table->size < 1) {
    DutErrNumSet(D_ERR_END_OF_TRAVERSAL);
    return 0;
  }
  for (D_INT4 i = 0; i < table->size; ++i) {
    D_HASH_BUCKET *b = table->buckets[i];
    while (b != nullptr) {
      if (trace) DutDebug("  calling func with \"%" PRIxPTR "\"\n", hexOf(b->key));
      D_WORD result = func(b->key, b->value, arg);
      if (result != 0) {
        if (trace) DutDebug("  returning value %" PRIxPTR "\n", hexOf(result));
        return result;
      }
      b = b->next;
    }
  }
  DutErrNumSet(D_ERR_END_OF_TRAVERSAL);
  return 0;
}

// ---- Reset and destroy ----------------------------------------------------

D_EXPORT void DutHashReset(D_HASH_TABLE *table, D_HASH_ENTRY_FUNC func, void *arg) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  emptyChains(table, func, arg);
  // The chain array stays: a table never shrinks.
  table->num_entries = 0;
  table->collisions = 0;
}

D_EXPORT void DutHashResetFreeKey(D_HASH_TABLE *table) { DutHashReset(table, freeKey, nullptr); }
D_EXPORT void DutHashResetFreeValue(D_HASH_TABLE *table) { DutHashReset(table, freeValue, nullptr); }
D_EXPORT void DutHashResetFreeKeyValue(D_HASH_TABLE *table) {
  DutHashReset(table, freeKeyValue, nullptr);
}

D_EXPORT void DutHashDestroy(D_HASH_TABLE *table, D_HASH_ENTRY_FUNC func, void *arg) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  emptyChains(table, func, arg);
  DutFreeCheck(table->buckets, "table->buckets", kFile, __LINE__);
  DutFreeCheck(table, "table", kFile, __LINE__);
}

D_EXPORT void DutHashDestroyFreeKey(D_HASH_TABLE *table) { DutHashDestroy(table, freeKey, nullptr); }
D_EXPORT void DutHashDestroyFreeValue(D_HASH_TABLE *table) {
  DutHashDestroy(table, freeValue, nullptr);
}
D_EXPORT void DutHashDestroyFreeKeyValue(D_HASH_TABLE *table) {
  DutHashDestroy(table, freeKeyValue, nullptr);
}

// ---- Dump -----------------------------------------------------------------

D_EXPORT void DutHashDump(D_HASH_TABLE *table, D_PRINT_FUNC output) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  if (output == nullptr) output = DutDebug;
  // The printed key and the real-number text are shared buffers.
  DutProcessMutexLock();
  output("*** Dumping Hash Table ***\n");
  output("  Size = %ld, Num Entries = %ld, Max Entries = %ld, Collisions = %ld\n",
         static_cast<long>(table->size), static_cast<long>(table->num_entries),
         static_cast<long>(table->max_entries), static_cast<long>(table->collisions));

  double average = static_cast<double>(table->num_entries) / table->size;
  double squares = 0.0;
  D_INT4 non_empty = 0;
  for (D_INT4 i = 0; i < table->size; ++i) {
    D_INT4 length = DutListLength(table->buckets[i]);
    if (length > 0) ++non_empty;
    squares += (length - average) * (length - average);
  }
  output("  All Buckets: Avg Size = %s", DutRealToStr(average));
  output(", Std Dev = %s\n", DutRealToStr(std::sqrt(squares)));

  // The sum keeps the all-chains part: the second deviation adds to it.
  average = static_cast<double>(table->num_entries) / static_cast<double>(non_empty);
  for (D_INT4 i = 0; i < table->size; ++i) {
    D_INT4 length = DutListLength(table->buckets[i]);
    if (length > 0) squares += (length - average) * (length - average);
  }
  output("  Non-Empty Buckets (%ld): Avg Size = %s", static_cast<long>(non_empty),
         DutRealToStr(average));
  output(", Std Dev = %s\n", DutRealToStr(std::sqrt(squares)));

  for (D_INT4 i = 0; i < table->size; ++i) {
    output("  Bucket %ld has %ld entries\n", static_cast<long>(i),
           static_cast<long>(DutListLength(table->buckets[i])));
    for (D_HASH_BUCKET *b = table->buckets[i]; b != nullptr; b = b->next) {
      VQ_ASSERT(output != nullptr, "output_func != NULL", kFile);
      output("    %s\t%" PRIxPTR "\n", printKey(table, b->key), hexOf(b->value));
    }
  }
  DutProcessMutexUnlock();
}

// ---- Sorting --------------------------------------------------------------

D_EXPORT D_WORD *DutHashSort(D_HASH_TABLE *table, D_INT4 *count, D_HASH_CMP_FUNC compare,
                             D_HASH_FILTER_FUNC filter) {
  return sortEntries(table, count, compare, filter, false);
}

D_EXPORT D_WORD *DutHashSortKeys(D_HASH_TABLE *table, D_INT4 *count, D_HASH_CMP_FUNC compare,
                                 D_HASH_FILTER_FUNC filter) {
  return sortEntries(table, count, compare, filter, true);
}

// Owns nothing with a destructor: a visit function may long-jump out.
D_EXPORT D_WORD DutHashSortTraverse(D_HASH_TABLE *table, D_HASH_VALUE_FUNC func, void *arg,
                                    D_HASH_CMP_FUNC compare, D_HASH_FILTER_FUNC filter) {
  VQ_ASSERT(table != nullptr, "table != NULL", kFile);
  VQ_ASSERT(func != nullptr, "func != NULL", kFile);
  D_INT4 count = 0;
  D_WORD *sorted_elements = DutHashSort(table, &count, compare, filter);
  D_WORD result = 0;
  for (D_INT4 i = 0; i < count; ++i) {
    result = func(sorted_elements[i], arg);
    if (result != 0) break;
  }
  if (count > 0) DutFreeCheck(sorted_elements, "sorted_elements", kFile, __LINE__);
  return result;
}

}  // extern "C"
