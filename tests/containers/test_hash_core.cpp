// Hash tables: sizing and growth with a caller's functions, error numbers,
// traversal and deletion with the collision counter, reset and destroy,
// fatal misuse, tables used from threads, the dump and its statistics,
// sorting with filters, and the debug trace.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/address_text.hpp"
#include "support/child_process.hpp"
#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "test_hash_support.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/memory.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

using hashtest::SameWord;
using hashtest::Table;
using hashtest::Word;
using Chains = std::vector<std::vector<D_WORD>>;

// Identity hashing through caller-supplied functions: the same chains as an
// integer table, but through the generic path, counting the calls.
int gCustomHashCalls = 0;
D_UINT4 CountingHash(D_WORD key) {
  ++gCustomHashCalls;
  return static_cast<D_UINT4>(key);
}

// The caller's test function records its calls as (searched, stored).
using Tests = std::vector<std::pair<D_WORD, D_WORD>>;
Tests gTests;
D_INT4 RecordingTest(D_WORD searched, D_WORD stored) {
  gTests.emplace_back(searched, stored);
  return searched == stored;
}

// ---- Sizes ------------------------------------------------------------------

TEST(HashSizing, RoundUpToPowerOf2) {
  const std::pair<D_INT4, D_INT4> cases[] = {{0, 2},   {1, 2},       {2, 2},       {3, 4},
                                             {5, 8},   {1000, 1024}, {1024, 1024}, {1 << 30, 1 << 30}};
  for (auto [value, rounded] : cases) EXPECT_EQ(DutRoundUpToPowerOf2(value), rounded) << value;
  vqtest::OutputCapture capture;
  EXPECT_FAILS(DutRoundUpToPowerOf2((1 << 30) + 1), 2, 0);
  EXPECT_EQ(capture.Take(), "WARNING: DutRoundUpToPowerOf2: overflow on 1073741825\n");
}

// An explicit resize below the current size does nothing; an equal one
// rebuilds at the next size up.
TEST(HashSizing, CreationAndResizeRoundFourThirdsOfTheRequest) {
  const std::pair<D_INT4, D_INT4> cases[] = {{-5, 8},  {0, 8},   {4, 8},   {6, 8},   {7, 16},
                                             {12, 16}, {13, 32}, {96, 128}, {97, 256}};
  for (auto [requested, chains] : cases) {
    Table t(DutHashCreateInt(requested));
    EXPECT_EQ(std::tuple(t->size, t->mask, t->max_entries, DutHashGetSize(t), DutHashGetCollisions(t)),
              std::tuple(chains, chains - 1u, chains * 3 / 4, 0, 0)) << requested;
    EXPECT_EQ(hashtest::Layout(t), Chains(static_cast<size_t>(chains)));
  }
  Table t(DutHashCreateInt(0));
  for (D_WORD k = 0; k < 5; ++k) DutHashInsert(t, k, k + 100);
  for (auto [requested, chains] : {std::pair{4, 8}, std::pair{8, 16}, std::pair{100, 256}}) {
    DutHashResize(t, requested);
    EXPECT_EQ(std::pair(t->size, t->max_entries), std::pair(chains, chains * 3 / 4)) << requested;
  }
  EXPECT_EQ(DutHashLookup(t, 4), 104);
}

// Growth rebuilds every chain; built-in and caller-supplied functions must
// give the same layout and collision count at every step. A caller's hash
// function is called once for the search and once for the chain; its test
// function is given the searched key first.
TEST(HashSizing, GrowthQuadruplesPastTheThresholdForBothPaths) {
  Table builtin(DutHashCreateInt(0));
  Table custom(DutHashCreate(0, CountingHash, RecordingTest));
  EXPECT_EQ(DutHashGetTestFunc(custom), &RecordingTest);
  auto key = [](D_WORD n) { return 1 + (n % 5) + 32 * (n / 5); };  // 32 apart: shared chains up to 32
  std::vector<std::pair<D_INT4, D_INT4>> seen;                     // (entries, chains) at each growth
  gCustomHashCalls = 0;
  for (D_WORD n = 0; n < 400; ++n) {
    const D_INT4 chains = builtin->size;
    DutHashInsert(builtin, key(n), key(n) * 10);
    DutHashInsert(custom, key(n), key(n) * 10);
    ASSERT_TRUE(n > 0 || gCustomHashCalls == 2) << gCustomHashCalls;
    if (builtin->size != chains) seen.emplace_back(builtin->num_entries, builtin->size);
    ASSERT_LE(builtin->num_entries, builtin->max_entries);
    ASSERT_EQ(builtin->collisions, custom->collisions) << n;
    ASSERT_EQ(hashtest::Layout(builtin), hashtest::Layout(custom)) << n;
  }
  EXPECT_EQ(seen, (std::vector<std::pair<D_INT4, D_INT4>>{{7, 32}, {25, 128}, {97, 512}, {385, 2048}}));
  D_INT4 chained = 0;
  for (const auto &chain : hashtest::Layout(builtin)) chained += chain.empty() ? 0 : chain.size() - 1;
  EXPECT_EQ(builtin->collisions, chained);
  for (D_WORD n = 0; n < 400; ++n) ASSERT_EQ(DutHashLookupInt(custom, key(n)), key(n) * 10);
  // A miss tests every key of its chain, head first; a hit stops there.
  gTests.clear();
  EXPECT_EQ(DutHashLookup(custom, 4097), 0);  // chain 1 of 2048: 1, then 2049
  EXPECT_EQ(gTests, (Tests{{4097, 1}, {4097, 2049}}));
  gTests.clear();
  EXPECT_EQ(DutHashLookup(custom, 1), 10);
  EXPECT_EQ(gTests, (Tests{{1, 1}}));
}

// ---- Error numbers ----------------------------------------------------------

TEST(HashErrors, NullTableMissingKeyAndInconsistentCount) {
  auto visit = [](D_WORD, D_WORD, void *) -> D_WORD { return 1; };
  vqtest::ExpectRefused(D_ERR_NULL_PTR,
                        {AS_WORD(DutHashLookup(nullptr, 1)), AS_WORD(DutHashLookupInt(nullptr, 1)),
                         AS_WORD(DutHashLookupBucket(nullptr, 1)), AS_WORD(DutHashGetFirstBucket(nullptr)),
                         AS_WORD(DutHashDeleteBucket(nullptr, 1)), AS_WORD(DutHashDelete(nullptr, 1)),
                         AS_WORD(DutHashTraverse(nullptr, visit, nullptr))});

  vqtest::OutputCapture capture;
  Table t(DutHashCreateInt(0));
  EXPECT_FAILS(DutHashGetFirstBucket(t), nullptr, D_ERR_DOESNT_EXIST);
  DutHashInsert(t, 1, 10);
  EXPECT_FAILS(DutHashTraverse(t, nullptr, nullptr), 0, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutHashLookupBucket(t, 2), nullptr, D_ERR_DOESNT_EXIST);
  for (D_WORD k : {3, 11}) DutHashInsert(t, k, k * 10);  // chain 3: 11, 3
  EXPECT_EQ(DutHashGetFirstBucket(t)->key, 1);
  DutHashDelete(t, 1);
  EXPECT_EQ(DutHashGetFirstBucket(t)->key, 11);
  EXPECT_EQ(DutHashBucketSetValue(DutHashGetFirstBucket(t), 3), 110);
  EXPECT_EQ(DutHashBucketGetValue(DutHashGetFirstBucket(t)), 3);
  EXPECT_EQ(capture.Take(), "");  // a consistent table: no validation warning
  // A count that disagrees with the chains is reported and still answered.
  for (D_WORD k : {3, 11}) DutHashDelete(t, k);
  t->num_entries = 2;
  EXPECT_EQ(DutHashGetFirstBucket(t), nullptr);
  EXPECT_NE(capture.Take().find("Internal validation <0 == D_GHT_NUM_ENTRIES(table)> failed"), std::string::npos);
  t->num_entries = 0;
}

// ---- Traversal, reset and destroy ---------------------------------------------

using Words = std::vector<D_WORD>;

// What a traversal has seen; it stops at stop_at (never at 0, which no test
// stores), returning a result made from the stop.
struct Trail {
  Words seen;
  D_WORD stop_at = 0;
};

D_WORD Follow(D_WORD value, void *arg) {
  auto *trail = static_cast<Trail *>(arg);
  trail->seen.push_back(value);
  return value == trail->stop_at ? value * 100 : 0;
}
D_WORD FollowKeys(D_WORD key, D_WORD value, void *arg) { return Follow(key, arg) != 0 ? value : 0; }

// Chains in index order, each newest first; an early stop returns the
// visit's result and sets nothing. Only a non-head deletion takes a
// collision back.
TEST(HashTraverse, ChainOrderEarlyStopAndDeletionCollisions) {
  Table t(DutHashCreateInt(0));
  Trail none, all, stop{{}, 1};
  EXPECT_FAILS(DutHashTraverse(t, FollowKeys, &none), 0, D_ERR_END_OF_TRAVERSAL);
  EXPECT_TRUE(none.seen.empty());
  for (D_WORD k : {2, 1, 9, 7, 17, 25}) DutHashInsert(t, k, k * 10);  // chain 1: 25, 17, 9, 1
  ASSERT_EQ(t->collisions, 3);
  EXPECT_FAILS(DutHashTraverse(t, FollowKeys, &all), 0, D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(all.seen, (Words{25, 17, 9, 1, 2, 7}));
  EXPECT_FAILS(DutHashTraverse(t, FollowKeys, &stop), 10, 0);
  EXPECT_EQ(stop.seen, (Words{25, 17, 9, 1}));
  const struct { D_WORD key; D_INT4 collisions; Words chain; } steps[] = {
               {25, 3, {17, 9, 1}},  // the head: the counter stays
               {9, 2, {17, 1}},      // the middle
               {1, 1, {17}},         // the tail
               {17, 1, {}}};         // the last one, a head again
  for (const auto &s : steps) {
    EXPECT_EQ(DutHashDelete(t, s.key), s.key * 10);
    EXPECT_EQ(std::pair(t->collisions, hashtest::ChainKeys(t, 1)), std::pair(s.collisions, s.chain)) << s.key;
  }
  EXPECT_EQ(t->num_entries, 2);
}

// A reset empties every chain and clears the counters but keeps the size.
// The sanitizer build's leak check is what fails the freeing forms if one
// frees the wrong thing; a double free fails them everywhere.
TEST(HashReset, ClearsCountersKeepsSizeAndFreeingForms) {
  D_HASH_TABLE *t = DutHashCreateStr(8);
  for (const char *k : {"k1", "kA", "kQ"}) DutHashInsert(t, Word(DutStrDup(k)), 1);  // one chain of 16
  ASSERT_GT(t->collisions, 0);
  DutHashResetFreeKey(t);
  EXPECT_EQ(std::tuple(t->num_entries, t->collisions, t->size), std::tuple(0, 0, 16));
  EXPECT_EQ(hashtest::Layout(t), Chains(16));
  DutHashInsert(t, Word("k2"), Word(DutStrDup("v2")));
  DutHashResetFreeValue(t);
  DutHashInsert(t, Word(DutStrDup("k3")), Word(DutStrDup("v3")));
  DutHashResetFreeKeyValue(t);
  DutHashInsert(t, Word(DutStrDup("k4")), Word(DutStrDup("v4")));
  DutHashDestroyFreeKeyValue(t);
  t = DutHashCreateStr(8);
  DutHashInsert(t, Word(DutStrDup("k5")), 5);
  DutHashDestroyFreeKey(t);
  t = DutHashCreateInt(8);
  DutHashInsert(t, 6, Word(DutStrDup("v6")));
  DutHashDestroyFreeValue(t);
}

// ---- Fatal misuse and threads -----------------------------------------------------

TEST(HashDeathTest, AssertionsAbort) {
  D_HASH_TABLE *t = DutHashCreateStr(8);
  VQTEST_EXPECT_ASSERTION(DutHashInsert(nullptr, 1, 1), "table != NULL");
  VQTEST_EXPECT_ASSERTION(DutHashInsert(t, Word("k"), 0), "value != NULL");
  VQTEST_EXPECT_ASSERTION(DutHashLookup(t, 0), "key != NULL");
  VQTEST_EXPECT_ASSERTION(DutHashCreate(8, nullptr, SameWord), "hash_func != NULL");
  VQTEST_EXPECT_ASSERTION(DutRoundUpToPowerOf2(-1), "value >= 0");
  VQTEST_EXPECT_ASSERTION(DutHashSort(t, nullptr, nullptr, nullptr), "array_size_return != NULL");
  // Integer key 0 is legal, but not freeable.
  VQTEST_EXPECT_ASSERTION(
      {
        D_HASH_TABLE *ints = DutHashCreateInt(8);
        DutHashInsert(ints, 0, 1);
        DutHashDestroyFreeKey(ints);
      },
      "key != NULL");
  DutHashDestroy(t, nullptr, nullptr);
}

// Each thread owns its table; the printed-key text of the warnings is
// shared, so concurrent duplicate warnings must each name their own key.
TEST(HashThreads, ConcurrentDuplicateWarningsNameTheirKeys) {
  ASSERT_EQ(DutInitThreads(), D_TRUE);
  vqtest::OutputCapture capture;
  constexpr int kThreads = 4, kKeys = 200;
  std::vector<std::thread> threads;
  for (int n = 0; n < kThreads; ++n) {
    threads.emplace_back([n] {
      std::vector<std::string> keys;
      for (int i = 0; i < kKeys; ++i) keys.push_back("t" + std::to_string(n) + "-" + std::to_string(i));
      Table t(DutHashCreateStr(0));
      for (const std::string &k : keys) DutHashInsert(t, Word(k.c_str()), 1);
      for (const std::string &k : keys) DutHashInsert(t, Word(k.c_str()), 2);
      for (const std::string &k : keys) EXPECT_EQ(DutHashLookup(t, Word(k.c_str())), 1);
    });
  }
  for (std::thread &th : threads) th.join();
  std::vector<std::string> lines = vqtest::Lines(capture.Take());
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kKeys));
  std::vector<int> per_thread(kThreads, 0);
  for (const std::string &line : lines) {
    ASSERT_EQ(line.rfind("WARNING: DutHashInsert: key t", 0), 0u) << line;
    ASSERT_NE(line.find(" already exists in hash table."), std::string::npos) << line;
    ++per_thread[line[29] - '0'];
  }
  for (int count : per_thread) EXPECT_EQ(count, kKeys);
}

std::string Real(double value) { return DutRealToStr(value); }

using vqtest::Hex;

// ---- Dump -------------------------------------------------------------------

TEST(HashDump, StatisticsAndChains) {
  Table t(DutHashCreateInt(0));
  DutHashInsert(t, 1, 0x10);
  DutHashInsert(t, 9, 0x20);
  DutHashInsert(t, -5, 0x3a);
  // Chains 1 and 3 hold 2 and 1 entries. Over all 8 chains the mean is
  // 0.375 and the squares sum to 3.875; over the two non-empty ones the mean
  // is 1.5, whose squares (0.5) add to the same sum.
  std::vector<std::string> expected{
      "*** Dumping Hash Table ***",
      "  Size = 8, Num Entries = 3, Max Entries = 6, Collisions = 1",
      "  All Buckets: Avg Size = " + Real(0.375) + ", Std Dev = " + Real(std::sqrt(3.875)),
      "  Non-Empty Buckets (2): Avg Size = " + Real(1.5) + ", Std Dev = " + Real(std::sqrt(4.375)),
      "  Bucket 0 has 0 entries", "  Bucket 1 has 2 entries", "    9\t20", "    1\t10",
      "  Bucket 2 has 0 entries", "  Bucket 3 has 1 entries", "    -5\t3a"};  // keys print signed
  for (int chain = 4; chain < 8; ++chain) expected.push_back("  Bucket " + std::to_string(chain) + " has 0 entries");
  vqtest::Captured().clear();
  DutHashDump(t, vqtest::CapturePrint);
  EXPECT_EQ(vqtest::Lines(vqtest::Captured()), expected);
}

// ---- Sorting ----------------------------------------------------------------

// The sorted values (or keys) as a vector; the array goes back to the heap.
// Nothing selected gives no array and a count of 0.
Words Sorted(D_HASH_TABLE *t, D_HASH_FILTER_FUNC filter, bool keys = false) {
  D_INT4 count = -1;
  D_WORD *array = keys ? DutHashSortKeys(t, &count, nullptr, filter) : DutHashSort(t, &count, nullptr, filter);
  EXPECT_EQ(array == nullptr, count == 0);
  Words out(array, array + std::max(count, 0));
  if (array != nullptr) DutFreeCheck(array, "array", __FILE__, __LINE__);
  return out;
}

D_INT4 OddValues(D_WORD, D_WORD value) { return value % 2; }

// String keys sort by their text; the values travel with their keys. Random
// tables against an ordered map, with and without a filter, and sorted
// traversals that stop at a random value or run to the end. The collecting
// traversal leaves its end as the error number, unless it had nothing to
// traverse.
TEST(HashSort, ValuesKeysAndSortedTraversalMatchAnOrderedMap) {
  std::mt19937 rng(99);
  std::vector<std::string> names;
  for (int i = 0; i < 40; ++i) {
    names.push_back(std::string(1, static_cast<char>('a' + rng() % 6)) + std::to_string(rng() % 50));
  }
  for (int round = 0; round < 300; ++round) {
    Table t(DutHashCreateStr(0));
    std::map<std::string, D_WORD> model;
    for (unsigned n = rng() % 24; n-- > 0;) {
      const std::string &name = names[rng() % names.size()];
      if (model.emplace(name, 1 + rng() % 9).second) DutHashInsert(t, Word(name.c_str()), model[name]);
    }
    const D_HASH_FILTER_FUNC filter = round % 2 ? OddValues : nullptr;
    std::string keys;
    Words values;
    for (const auto &[name, value] : model) {
      if (filter == nullptr || value % 2) keys += name + " ", values.push_back(value);
    }
    DutErrNumSet(0);
    ASSERT_EQ(Sorted(t, filter), values) << "round " << round;
    EXPECT_EQ(DutErrNumGet(), model.empty() ? 0 : D_ERR_END_OF_TRAVERSAL) << "round " << round;
    std::string names;
    for (D_WORD k : Sorted(t, filter, true)) names += std::string(reinterpret_cast<const char *>(k)) + " ";
    ASSERT_EQ(names, keys) << "round " << round;
    Trail trail{{}, values.empty() || rng() % 4 == 0 ? 0 : values[rng() % values.size()]};
    const auto stop = std::find(values.begin(), values.end(), trail.stop_at);
    EXPECT_EQ(DutHashSortTraverse(t, Follow, &trail, nullptr, filter), trail.stop_at * 100) << "round " << round;
    EXPECT_EQ(trail.seen, Words(values.begin(), stop == values.end() ? stop : stop + 1)) << "round " << round;
  }
}

// ---- Debug trace ------------------------------------------------------------

D_WORD StopAtOnce(D_WORD, D_WORD value, void *) { return value; }

// In a child process, so that the debug file it opens is its own.
TEST(HashTraceDeathTest, DebugFlagTwoTracesOperationsAndGrowth) {
  vqtest::RunInChild("fast", [] {
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("vqutil-hash-trace-" + std::to_string(getpid()) + ".dbg")).string();
    // Printing a real reads the real-number option: make its table before
    // tracing starts, so that only the operations themselves are traced.
    DutRealToStr(0.0);
    unsetenv("VQDEBUGFILENAME");
    DutDebugOpen(path.c_str());
    DutGetDebugFlags()[D_DEBUG_HASH] = 1;
    D_HASH_TABLE *t = DutHashCreateStr(0);
    // A value wider than 32 bits, where words have more: it must come out whole.
    const D_WORD value = vqtest::WideWord();
    DutHashInsert(t, Word("a"), value);
    DutHashLookup(t, Word("a"));
    DutHashDelete(t, Word("zz"));
    DutHashTraverse(t, StopAtOnce, nullptr);
    D_HASH_BUCKET *bucket = t->buckets[1];  // "a" is 97: chain 1
    const std::string key = Hex(bucket->key);
    DutHashDelete(t, Word("a"));  // frees the bucket: only its address is used below
    const std::string h = Hex(t);
    const std::vector<std::string> expected{
        "entering DutHashCreate(0)", "  using 8 as initial size of hash table " + h,
        "entering DutHashInsert(" + h + ", a, " + Hex(value) + ")", "  hash table now has 1 entries",
        "Entering DutHashLookup(" + h + ", a)", "entering DutHashDelete(" + h + ", zz)",
        "entering DutHashDeleteBucket(" + h + ", zz)", "  key zz not found (returning NULL)",
        "  key zz not found (returning NULL)",
        "entering DutHashTraverse(" + h + ", " + Hex(StopAtOnce) + ", 0)",
        "  calling func with \"" + key + "\"", "  returning value " + Hex(value),
        "entering DutHashDelete(" + h + ", a)",
        "entering DutHashDeleteBucket(" + h + ", a)", "  hash table " + h + " now has 0 entries",
        "  returning bucket " + Hex(bucket), "*** Dumping Hash Table ***"};
    // Growth under the trace: the seventh insertion grows the table, which
    // inserts all seven entries again.
    D_HASH_TABLE *grown = DutHashCreateInt(0);
    for (D_WORD k = 1; k <= 7; ++k) DutHashInsert(grown, k, k);

    DutDebugClose();  // an open file cannot be removed on Windows
    const std::vector<std::string> lines = vqtest::Lines(vqtest::ReadFile(path));
    std::filesystem::remove(path);
    auto count = [&](const std::string &start) {
      return std::ranges::count_if(lines, [&](const std::string &line) { return line.starts_with(start); });
    };
    // The dump after the deletion is checked by its first line only.
    EXPECT_EQ(std::vector(lines.begin(), lines.begin() + std::min(lines.size(), expected.size())), expected);
    EXPECT_EQ(count("entering DutHashInsert("), 15);
    EXPECT_EQ(std::ranges::count(lines, "entering DutHashResize(" + Hex(grown) + ")"), 1);
    EXPECT_EQ(std::ranges::count(lines, "end of DutHashResize"), 1);
    EXPECT_EQ(grown->size, 32);
  });
}

}  // namespace
