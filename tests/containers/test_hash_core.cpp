// Hash tables: sizing and growth, the ready-made key kinds, insertion,
// replacement, deletion with the collision counter, error numbers,
// traversal, reset and destroy, fatal misuse, and tables used from threads.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "test_hash_support.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/memory.h"
#include "vqutil/thread.h"

namespace {

using hashtest::Word;

// Owns a table for the length of a test.
struct Table {
  explicit Table(D_HASH_TABLE *t) : table(t) {}
  ~Table() {
    if (table != nullptr) DutHashDestroy(table, nullptr, nullptr);
  }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;
  D_HASH_TABLE *operator->() const { return table; }
  operator D_HASH_TABLE *() const { return table; }
  D_HASH_TABLE *table;
};

// Identity hashing through caller-supplied functions: the same chains as an
// integer table, but through the generic path, counting the calls.
int gCustomHashCalls = 0;
D_UINT4 CountingHash(D_WORD key) {
  ++gCustomHashCalls;
  return static_cast<D_UINT4>(key);
}
D_INT4 SameWord(D_WORD a, D_WORD b) { return a == b; }

// ---- Sizes ------------------------------------------------------------------

TEST(HashSizing, RoundUpToPowerOf2) {
  EXPECT_EQ(DutRoundUpToPowerOf2(0), 2);
  EXPECT_EQ(DutRoundUpToPowerOf2(1), 2);
  EXPECT_EQ(DutRoundUpToPowerOf2(2), 2);
  EXPECT_EQ(DutRoundUpToPowerOf2(3), 4);
  EXPECT_EQ(DutRoundUpToPowerOf2(4), 4);
  EXPECT_EQ(DutRoundUpToPowerOf2(5), 8);
  EXPECT_EQ(DutRoundUpToPowerOf2(1000), 1024);
  EXPECT_EQ(DutRoundUpToPowerOf2(1024), 1024);
  EXPECT_EQ(DutRoundUpToPowerOf2(1 << 30), 1 << 30);
  hashtest::OutputCapture capture;
  DutErrNumSet(0);
  EXPECT_EQ(DutRoundUpToPowerOf2((1 << 30) + 1), 2);
  EXPECT_EQ(capture.Take(), "WARNING: DutRoundUpToPowerOf2: overflow on 1073741825\n");
  EXPECT_EQ(DutErrNumGet(), 0);
}

TEST(HashSizing, CreationRoundsFourThirdsOfTheRequest) {
  struct Case {
    D_INT4 requested;
    D_INT4 chains;
  };
  for (Case c : {Case{-5, 8}, Case{0, 8}, Case{1, 8}, Case{3, 8}, Case{4, 8}, Case{6, 8},
                 Case{7, 16}, Case{12, 16}, Case{13, 32}, Case{50, 128}, Case{96, 128},
                 Case{97, 256}}) {
    Table t(DutHashCreateInt(c.requested));
    EXPECT_EQ(t->size, c.chains) << "requested " << c.requested;
    EXPECT_EQ(t->mask, static_cast<D_UINT4>(c.chains - 1));
    EXPECT_EQ(t->max_entries, c.chains * 3 / 4);
    EXPECT_EQ(t->num_entries, 0);
    EXPECT_EQ(t->collisions, 0);
    for (D_INT4 i = 0; i < t->size; ++i) EXPECT_EQ(t->buckets[i], nullptr);
  }
}

TEST(HashSizing, GrowthQuadruplesPastTheThreshold) {
  Table t(DutHashCreateInt(0));
  std::vector<std::pair<D_INT4, D_INT4>> seen;  // (entries, chains) at each growth
  D_INT4 chains = t->size;
  for (D_WORD k = 1; k <= 400; ++k) {
    DutHashInsert(t, k, k * 10);
    ASSERT_EQ(t->num_entries, k);
    if (t->size != chains) {
      seen.emplace_back(t->num_entries, t->size);
      chains = t->size;
    }
    ASSERT_LE(t->num_entries, t->max_entries);
  }
  std::vector<std::pair<D_INT4, D_INT4>> expected{{7, 32}, {25, 128}, {97, 512}, {385, 2048}};
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(t->max_entries, 1536);
  for (D_WORD k = 1; k <= 400; ++k) ASSERT_EQ(DutHashLookup(t, k), k * 10);
}

TEST(HashSizing, ExplicitResize) {
  Table t(DutHashCreateInt(0));
  for (D_WORD k = 0; k < 5; ++k) DutHashInsert(t, k, k + 100);
  DutHashResize(t, 4);  // smaller than 8 chains: nothing happens
  EXPECT_EQ(t->size, 8);
  DutHashResize(t, 8);  // equal still rebuilds
  EXPECT_EQ(t->size, 16);
  EXPECT_EQ(t->max_entries, 12);
  DutHashResize(t, 100);
  EXPECT_EQ(t->size, 256);
  EXPECT_EQ(t->num_entries, 5);
  for (D_WORD k = 0; k < 5; ++k) EXPECT_EQ(DutHashLookup(t, k), k + 100);
}

// Growth rebuilds every chain; built-in and caller-supplied functions must
// give the same layout and collision count.
TEST(HashSizing, GrowthLayoutMatchesReinsertion) {
  Table builtin(DutHashCreateInt(0));
  Table custom(DutHashCreate(0, CountingHash, SameWord));
  // Keys 32 apart share chains at 8 and at 32 chains, and split at 128.
  std::vector<D_WORD> keys;
  for (D_WORD k = 0; k < 30; ++k) keys.push_back((k % 5) + 32 * (k / 5));
  for (D_WORD k : keys) {
    DutHashInsert(builtin, k, k + 1);
    DutHashInsert(custom, k, k + 1);
    ASSERT_EQ(builtin->size, custom->size);
    ASSERT_EQ(builtin->collisions, custom->collisions);
    ASSERT_EQ(hashtest::Layout(builtin), hashtest::Layout(custom));
  }
  EXPECT_EQ(builtin->size, 128);
  // At 128 chains key k and k + 128 collide only: recount from the chains.
  D_INT4 chained = 0;
  for (D_INT4 i = 0; i < builtin->size; ++i) {
    auto n = static_cast<D_INT4>(hashtest::ChainKeys(builtin, i).size());
    if (n > 1) chained += n - 1;
  }
  EXPECT_EQ(builtin->collisions, chained);
}

// ---- Key kinds --------------------------------------------------------------

TEST(HashKeyKinds, StringHashValues) {
  Table str(DutHashCreateStr(8));
  Table stri(DutHashCreateStri(8));
  D_HASH_FUNC h = DutHashGetHashFunc(str);
  D_HASH_FUNC hi = DutHashGetHashFunc(stri);
  EXPECT_EQ(h(Word("")), 0u);
  EXPECT_EQ(h(Word("a")), 97u);
  EXPECT_EQ(h(Word("ab")), 97u * 27u + 98u);
  EXPECT_EQ(h(Word("abc")), (97u * 27u + 98u) * 27u + 99u);
  // High bytes count as negative values.
  EXPECT_EQ(h(Word("\xff")), 0xFFFFFFFFu);
  EXPECT_EQ(h(Word("a\x80")), 97u * 27u - 128u);
  EXPECT_EQ(hi(Word("ABC")), h(Word("abc")));
  EXPECT_EQ(hi(Word("MiXeD_9")), h(Word("mixed_9")));
  EXPECT_EQ(hi(Word("\xc0")), h(Word("\xc0")));  // only ASCII letters fold
  EXPECT_EQ(hi(Word("@[")), h(Word("@[")));      // neighbours of A and Z stay
}

TEST(HashKeyKinds, IntegerAndPointerHashes) {
  Table i(DutHashCreateInt(8));
  Table p(DutHashCreatePtr(8));
  EXPECT_EQ(DutHashGetHashFunc(i)(12345), 12345u);
  EXPECT_EQ(DutHashGetHashFunc(i)(-1), 0xFFFFFFFFu);
  EXPECT_EQ(DutHashGetHashFunc(p)(0x1230), 0x123u);
  EXPECT_EQ(DutHashGetHashFunc(p)(0x123F), 0x123u);
}

TEST(HashKeyKinds, CaseFoldingTableFindsAnySpelling) {
  Table stri(DutHashCreateStri(8));
  Table str(DutHashCreateStr(8));
  DutHashInsert(stri, Word("Key"), 7);
  DutHashInsert(str, Word("Key"), 7);
  std::string upper = "KEY", lower = "key", same = "Key";
  EXPECT_EQ(DutHashLookup(stri, Word(upper.c_str())), 7);
  EXPECT_EQ(DutHashLookup(stri, Word(lower.c_str())), 7);
  EXPECT_EQ(DutHashLookup(str, Word(same.c_str())), 7);  // by content, not pointer
  DutErrNumSet(0);
  EXPECT_EQ(DutHashLookup(str, Word(upper.c_str())), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(DutHashLookup(str, Word(lower.c_str())), 0);
  EXPECT_EQ(DutHashLookup(stri, Word("Keys")), 0);

  D_HASH_TEST_FUNC eq = DutHashGetTestFunc(stri);
  EXPECT_NE(eq(Word(""), Word("")), 0);
  EXPECT_EQ(eq(Word("key"), Word("keys")), 0);  // must end together
  EXPECT_EQ(eq(Word("keys"), Word("key")), 0);
  EXPECT_EQ(eq(Word("["), Word("{")), 0);  // neighbours of the letters do not fold
  EXPECT_EQ(eq(Word("@"), Word("`")), 0);
  EXPECT_EQ(eq(Word("\xc0"), Word("\xe0")), 0);
}

TEST(HashKeyKinds, CustomFunctionsAreCalledAsDocumented) {
  Table t(DutHashCreate(8, CountingHash, SameWord));
  gCustomHashCalls = 0;
  DutHashInsert(t, 3, 30);  // one hash for the search, one for the chain
  EXPECT_EQ(gCustomHashCalls, 2);
  gCustomHashCalls = 0;
  EXPECT_EQ(DutHashLookup(t, 3), 30);
  EXPECT_EQ(gCustomHashCalls, 1);
  EXPECT_EQ(DutHashGetHashFunc(t), &CountingHash);
  EXPECT_EQ(DutHashGetTestFunc(t), &SameWord);
}

// ---- Insertion and replacement --------------------------------------------

TEST(HashInsert, DuplicateKeepsFirstValueAndWarns) {
  hashtest::OutputCapture capture;
  Table str(DutHashCreateStr(8));
  std::string first = "alpha", second = "alpha";
  DutHashInsert(str, Word(first.c_str()), 1);
  DutErrNumSet(0);
  DutHashInsert(str, Word(second.c_str()), 2);
  EXPECT_EQ(capture.Take(), "WARNING: DutHashInsert: key alpha already exists in hash table.\n");
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_EQ(DutHashLookup(str, Word("alpha")), 1);
  EXPECT_EQ(DutHashLookupBucket(str, Word("alpha"))->key, Word(first.c_str()));
  EXPECT_EQ(str->num_entries, 1);

  Table num(DutHashCreateInt(8));
  DutHashInsert(num, -5, 1);
  DutHashInsert(num, -5, 2);
  EXPECT_EQ(capture.Take(), "WARNING: DutHashInsert: key -5 already exists in hash table.\n");
  EXPECT_EQ(DutHashLookup(num, -5), 1);

  Table ptr(DutHashCreatePtr(8));
  DutHashInsert(ptr, 4096, 1);
  DutHashInsert(ptr, 4096, 2);
  EXPECT_EQ(capture.Take(), "WARNING: DutHashInsert: key 4096 already exists in hash table.\n");
}

TEST(HashInsert, ReplaceStoresCallersKeyAndReturnsOldValue) {
  Table t(DutHashCreateStr(8));
  std::string first = "name", second = "name";
  EXPECT_EQ(DutHashReplace(t, Word(first.c_str()), 1), 0);  // absent: inserted
  EXPECT_EQ(DutHashLookup(t, Word("name")), 1);
  EXPECT_EQ(DutHashReplace(t, Word(second.c_str()), 2), 1);
  D_HASH_BUCKET *b = DutHashLookupBucket(t, Word("name"));
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->key, Word(second.c_str()));
  EXPECT_EQ(b->value, 2);
  EXPECT_EQ(t->num_entries, 1);
  EXPECT_EQ(DutHashBucketGetValue(b), 2);
  EXPECT_EQ(DutHashBucketSetValue(b, 3), 2);
  EXPECT_EQ(DutHashLookup(t, Word("name")), 3);
}

// ---- Deletion and the collision counter -------------------------------------

TEST(HashDelete, HeadDeletionKeepsTheCollision) {
  Table t(DutHashCreateInt(0));
  DutHashInsert(t, 1, 10);
  DutHashInsert(t, 9, 90);  // chain 1: 9, 1
  ASSERT_EQ(t->collisions, 1);
  EXPECT_EQ(DutHashDelete(t, 9), 90);  // the head
  EXPECT_EQ(t->collisions, 1);
  EXPECT_EQ(DutHashDelete(t, 1), 10);  // now the head as well
  EXPECT_EQ(t->collisions, 1);
  EXPECT_EQ(t->num_entries, 0);
  EXPECT_EQ(t->buckets[1], nullptr);
}

TEST(HashDelete, NonHeadDeletionTakesTheCollisionBack) {
  Table t(DutHashCreateInt(0));
  DutHashInsert(t, 1, 10);
  DutHashInsert(t, 9, 90);
  DutHashInsert(t, 17, 170);  // chain 1: 17, 9, 1
  ASSERT_EQ(t->collisions, 2);
  EXPECT_EQ(DutHashDelete(t, 9), 90);  // the middle
  EXPECT_EQ(t->collisions, 1);
  EXPECT_EQ(hashtest::ChainKeys(t, 1), (std::vector<D_WORD>{17, 1}));
  EXPECT_EQ(DutHashDelete(t, 1), 10);  // the tail
  EXPECT_EQ(t->collisions, 0);
  EXPECT_EQ(hashtest::ChainKeys(t, 1), (std::vector<D_WORD>{17}));
}

TEST(HashDelete, DeleteBucketHandsTheBucketOver) {
  Table t(DutHashCreateStr(8));
  DutHashInsert(t, Word("a"), 1);
  DutHashInsert(t, Word("b"), 2);
  D_HASH_BUCKET *b = DutHashDeleteBucket(t, Word("a"));
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->next, nullptr);
  EXPECT_STREQ(reinterpret_cast<const char *>(b->key), "a");
  EXPECT_EQ(b->value, 1);
  EXPECT_EQ(t->num_entries, 1);
  DutErrNumSet(0);
  EXPECT_EQ(DutHashLookup(t, Word("a")), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  DutFreeCheck(b, "b", __FILE__, __LINE__);
  EXPECT_EQ(DutHashLookup(t, Word("b")), 2);
}

TEST(HashDelete, ReinsertAfterDeleteAndStress) {
  Table t(DutHashCreateInt(0));
  for (D_WORD k = 0; k < 2000; ++k) DutHashInsert(t, k * 7, k + 1);
  for (D_WORD k = 0; k < 2000; k += 2) ASSERT_EQ(DutHashDelete(t, k * 7), k + 1);
  EXPECT_EQ(t->num_entries, 1000);
  for (D_WORD k = 0; k < 2000; ++k) {
    ASSERT_EQ(DutHashLookup(t, k * 7), (k % 2) ? k + 1 : 0) << k;
  }
  for (D_WORD k = 0; k < 2000; k += 2) DutHashInsert(t, k * 7, k + 5);
  EXPECT_EQ(t->num_entries, 2000);
  EXPECT_EQ(DutHashLookup(t, 0), 5);
}

// ---- Error numbers ----------------------------------------------------------

// The error number a call leaves, starting from none.
template <class Call>
D_INT4 ErrorAfter(Call call) {
  DutErrNumSet(0);
  call();
  return DutErrNumGet();
}

TEST(HashErrors, NullTableAndMissingKey) {
  auto visit = [](D_WORD, D_WORD, void *) -> D_WORD { return 1; };
  EXPECT_EQ(ErrorAfter([] { EXPECT_EQ(DutHashLookup(nullptr, 1), 0); }), D_ERR_NULL_PTR);
  EXPECT_EQ(ErrorAfter([] { EXPECT_EQ(DutHashLookupInt(nullptr, 1), 0); }), D_ERR_NULL_PTR);
  EXPECT_EQ(ErrorAfter([] { EXPECT_EQ(DutHashLookupBucket(nullptr, 1), nullptr); }), D_ERR_NULL_PTR);
  EXPECT_EQ(ErrorAfter([] { EXPECT_EQ(DutHashGetFirstBucket(nullptr), nullptr); }), D_ERR_NULL_PTR);
  EXPECT_EQ(ErrorAfter([] { EXPECT_EQ(DutHashDeleteBucket(nullptr, 1), nullptr); }), D_ERR_NULL_PTR);
  EXPECT_EQ(ErrorAfter([] { EXPECT_EQ(DutHashDelete(nullptr, 1), 0); }), D_ERR_NULL_PTR);
  EXPECT_EQ(ErrorAfter([&] { EXPECT_EQ(DutHashTraverse(nullptr, visit, nullptr), 0); }), D_ERR_NULL_PTR);

  Table t(DutHashCreateInt(8));
  DutHashInsert(t, 1, 10);
  EXPECT_EQ(ErrorAfter([&] { EXPECT_EQ(DutHashLookup(t, 2), 0); }), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(ErrorAfter([&] { EXPECT_EQ(DutHashLookupBucket(t, 2), nullptr); }), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(ErrorAfter([&] { EXPECT_EQ(DutHashDeleteBucket(t, 2), nullptr); }), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(ErrorAfter([&] { EXPECT_EQ(DutHashDelete(t, 2), 0); }), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(t->num_entries, 1);
  // Success and insertion leave the error number alone.
  EXPECT_EQ(ErrorAfter([&] {
              DutHashInsert(t, 3, 30);
              EXPECT_EQ(DutHashLookup(t, 1), 10);
            }),
            0);
}

TEST(HashErrors, FirstBucket) {
  hashtest::OutputCapture capture;
  Table t(DutHashCreateInt(0));
  DutErrNumSet(0);
  EXPECT_EQ(DutHashGetFirstBucket(t), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(capture.Take(), "");  // an empty table is consistent: no validation warning
  DutHashInsert(t, 6, 60);
  DutHashInsert(t, 3, 30);
  DutHashInsert(t, 11, 110);  // chain 3: 11, 3
  D_HASH_BUCKET *first = DutHashGetFirstBucket(t);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->key, 11);
  // A count that disagrees with the chains is reported and still answered.
  DutHashDelete(t, 6);
  DutHashDelete(t, 3);
  DutHashDelete(t, 11);
  t->num_entries = 2;
  EXPECT_EQ(DutHashGetFirstBucket(t), nullptr);
  EXPECT_NE(capture.Take().find("Internal validation <0 == D_GHT_NUM_ENTRIES(table)> failed"),
            std::string::npos);
  t->num_entries = 0;
}

// ---- Traversal ----------------------------------------------------------------

struct Visit {
  std::vector<D_WORD> keys;
  D_WORD stop_at = -1;
};

D_WORD Record(D_WORD key, D_WORD value, void *arg) {
  auto *v = static_cast<Visit *>(arg);
  v->keys.push_back(key);
  return key == v->stop_at ? value : 0;
}

TEST(HashTraverse, ChainOrderNewestFirstAndEarlyStop) {
  Table t(DutHashCreateInt(0));
  for (D_WORD k : {2, 1, 9, 7, 17}) DutHashInsert(t, k, k * 100);
  Visit all;
  EXPECT_EQ(ErrorAfter([&] { EXPECT_EQ(DutHashTraverse(t, Record, &all), 0); }), D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(all.keys, (std::vector<D_WORD>{17, 9, 1, 2, 7}));

  Visit stop;
  stop.stop_at = 1;
  // An early stop returns the visit's result and sets nothing.
  EXPECT_EQ(ErrorAfter([&] { EXPECT_EQ(DutHashTraverse(t, Record, &stop), 100); }), 0);
  EXPECT_EQ(stop.keys, (std::vector<D_WORD>{17, 9, 1}));
}

TEST(HashTraverse, EmptyTableEndsWithEndOfTraversal) {
  Table t(DutHashCreateStr(0));
  Visit v;
  DutErrNumSet(0);
  EXPECT_EQ(DutHashTraverse(t, Record, &v), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_END_OF_TRAVERSAL);
  EXPECT_TRUE(v.keys.empty());
  DutErrNumSet(0);
  EXPECT_EQ(DutHashTraverse(t, nullptr, &v), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

// ---- Reset and destroy ------------------------------------------------------

struct Seen {
  std::vector<std::pair<D_WORD, D_WORD>> entries;
};

void Collect(D_WORD key, D_WORD value, void *arg) {
  static_cast<Seen *>(arg)->entries.emplace_back(key, value);
}

TEST(HashReset, KeepsChainsAndClearsCounters) {
  Table t(DutHashCreateInt(0));
  for (D_WORD k = 1; k <= 10; ++k) DutHashInsert(t, k * 32, k);  // all in chain 0 of 32
  ASSERT_EQ(t->size, 32);
  ASSERT_GT(t->collisions, 0);
  Seen seen;
  DutHashReset(t, Collect, &seen);
  EXPECT_EQ(seen.entries.size(), 10u);
  EXPECT_EQ(seen.entries.front(), (std::pair<D_WORD, D_WORD>{320, 10}));  // chain head first
  EXPECT_EQ(t->num_entries, 0);
  EXPECT_EQ(t->collisions, 0);
  EXPECT_EQ(t->size, 32);  // never shrinks
  EXPECT_EQ(t->max_entries, 24);
  for (D_INT4 i = 0; i < t->size; ++i) EXPECT_EQ(t->buckets[i], nullptr);
  DutHashInsert(t, 5, 50);
  EXPECT_EQ(DutHashLookup(t, 5), 50);
  DutHashReset(t, nullptr, nullptr);
  EXPECT_EQ(t->num_entries, 0);

  D_HASH_TABLE *doomed = DutHashCreateInt(0);
  for (D_WORD k = 1; k <= 100; ++k) DutHashInsert(doomed, k, -k);
  Seen last;
  DutHashDestroy(doomed, Collect, &last);
  ASSERT_EQ(last.entries.size(), 100u);
  for (auto [k, v] : last.entries) EXPECT_EQ(v, -k);
}

char *CopyText(const char *text) {
  auto *copy = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(std::strlen(text) + 1),
                                                  "copy", __FILE__, __LINE__));
  std::strcpy(copy, text);
  return copy;
}

// The sanitizer build's leak check is what fails these if a form frees the
// wrong thing; a double free fails them everywhere.
TEST(HashReset, FreeingForms) {
  D_HASH_TABLE *t = DutHashCreateStr(8);
  DutHashInsert(t, Word(CopyText("k1")), 1);
  DutHashResetFreeKey(t);
  EXPECT_EQ(t->num_entries, 0);
  DutHashInsert(t, Word("k2"), Word(CopyText("v2")));
  DutHashResetFreeValue(t);
  DutHashInsert(t, Word(CopyText("k3")), Word(CopyText("v3")));
  DutHashResetFreeKeyValue(t);
  DutHashInsert(t, Word(CopyText("k4")), Word(CopyText("v4")));
  DutHashDestroyFreeKeyValue(t);

  t = DutHashCreateStr(8);
  DutHashInsert(t, Word(CopyText("k5")), 5);
  DutHashDestroyFreeKey(t);
  t = DutHashCreateInt(8);
  DutHashInsert(t, 6, Word(CopyText("v6")));
  DutHashDestroyFreeValue(t);
}

// ---- Fatal misuse -------------------------------------------------------------

TEST(HashDeathTest, AssertionsAbort) {
  D_HASH_TABLE *t = DutHashCreateStr(8);
  EXPECT_EXIT(
      {
        hashtest::PrepareToDie();
        DutHashInsert(nullptr, 1, 1);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <table != NULL> failed");
  EXPECT_EXIT(
      {
        hashtest::PrepareToDie();
        DutHashInsert(t, Word("k"), 0);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <value != NULL> failed");
  EXPECT_EXIT(
      {
        hashtest::PrepareToDie();
        DutHashLookup(t, 0);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <key != NULL> failed");
  EXPECT_EXIT(
      {
        hashtest::PrepareToDie();
        DutHashCreate(8, nullptr, [](D_WORD, D_WORD) -> D_INT4 { return 0; });
      },
      testing::KilledBySignal(SIGABRT), "Assertion <hash_func != NULL> failed");
  EXPECT_EXIT(
      {
        hashtest::PrepareToDie();
        DutRoundUpToPowerOf2(-1);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <value >= 0> failed");
  EXPECT_EXIT(
      {
        hashtest::PrepareToDie();
        DutHashSort(t, nullptr, nullptr, nullptr);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <array_size_return != NULL> failed");
  EXPECT_EXIT(
      {
        hashtest::PrepareToDie();
        D_HASH_TABLE *ints = DutHashCreateInt(8);
        DutHashInsert(ints, 0, 1);  // integer key 0 is legal, but not freeable
        DutHashDestroyFreeKey(ints);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <key != NULL> failed");
  DutHashDestroy(t, nullptr, nullptr);
}

// ---- Threads --------------------------------------------------------------------

// Each thread owns its table; the printed-key text of the warnings is
// shared, so concurrent duplicate warnings must each name their own key.
TEST(HashThreads, ConcurrentDuplicateWarningsNameTheirKeys) {
  ASSERT_EQ(DutInitThreads(), D_TRUE);
  hashtest::OutputCapture capture;
  constexpr int kThreads = 4;
  constexpr int kKeys = 200;
  std::vector<std::thread> threads;
  for (int n = 0; n < kThreads; ++n) {
    threads.emplace_back([n] {
      std::vector<std::string> keys;
      for (int i = 0; i < kKeys; ++i) keys.push_back("t" + std::to_string(n) + "-" + std::to_string(i));
      D_HASH_TABLE *t = DutHashCreateStr(0);
      for (const std::string &k : keys) DutHashInsert(t, Word(k.c_str()), 1);
      for (const std::string &k : keys) DutHashInsert(t, Word(k.c_str()), 2);
      for (const std::string &k : keys) EXPECT_EQ(DutHashLookup(t, Word(k.c_str())), 1);
      DutHashDestroy(t, nullptr, nullptr);
    });
  }
  for (std::thread &th : threads) th.join();
  std::vector<std::string> lines = hashtest::Lines(capture.Take());
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kKeys));
  std::vector<int> per_thread(kThreads, 0);
  for (const std::string &line : lines) {
    ASSERT_EQ(line.rfind("WARNING: DutHashInsert: key t", 0), 0u) << line;
    ASSERT_NE(line.find(" already exists in hash table."), std::string::npos) << line;
    ++per_thread[line[29] - '0'];
  }
  for (int count : per_thread) EXPECT_EQ(count, kKeys);
}

}  // namespace
