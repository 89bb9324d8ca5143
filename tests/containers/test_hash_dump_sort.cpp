// Hash tables: the dump and its statistics, sorting of values and keys with
// filters, sorted traversal, and the debug trace of the operations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include "test_hash_support.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/memory.h"
#include "vqutil/strutil.h"

namespace {

using hashtest::Word;

std::string Real(double value) { return DutRealToStr(value); }

std::string Hex(D_WORD w) {
  char text[32];
  std::snprintf(text, sizeof text, "%lx", static_cast<unsigned long>(w));
  return text;
}
std::string Hex(const void *p) { return Hex(reinterpret_cast<D_WORD>(p)); }

std::vector<std::string> DumpLines(D_HASH_TABLE *t) {
  hashtest::Dumped().clear();
  DutHashDump(t, hashtest::DumpSink);
  return hashtest::Lines(hashtest::Dumped());
}

// ---- Dump -------------------------------------------------------------------

TEST(HashDump, StatisticsAndChains) {
  D_HASH_TABLE *t = DutHashCreateInt(0);
  DutHashInsert(t, 1, 0x10);
  DutHashInsert(t, 9, 0x20);
  DutHashInsert(t, 3, 0x3a);
  // Chains 1 and 3 hold 2 and 1 entries. Over all 8 chains the mean is
  // 0.375 and the squares sum to 3.875; over the two non-empty ones the mean
  // is 1.5, whose squares (0.5) add to the same sum.
  std::vector<std::string> expected{
      "*** Dumping Hash Table ***",
      "  Size = 8, Num Entries = 3, Max Entries = 6, Collisions = 1",
      "  All Buckets: Avg Size = " + Real(0.375) + ", Std Dev = " + Real(std::sqrt(3.875)),
      "  Non-Empty Buckets (2): Avg Size = " + Real(1.5) + ", Std Dev = " + Real(std::sqrt(4.375)),
      "  Bucket 0 has 0 entries",
      "  Bucket 1 has 2 entries",
      "    9\t20",
      "    1\t10",
      "  Bucket 2 has 0 entries",
      "  Bucket 3 has 1 entries",
      "    3\t3a",
      "  Bucket 4 has 0 entries",
      "  Bucket 5 has 0 entries",
      "  Bucket 6 has 0 entries",
      "  Bucket 7 has 0 entries",
  };
  EXPECT_EQ(DumpLines(t), expected);
  DutHashDestroy(t, nullptr, nullptr);
}

TEST(HashDump, KeysPrintedByKind) {
  D_HASH_TABLE *str = DutHashCreateStr(0);
  DutHashInsert(str, Word("b"), 0xbeef);  // "b" hashes to 98: chain 2
  std::vector<std::string> lines = DumpLines(str);
  ASSERT_EQ(lines.size(), 4u + 8u + 1u);
  EXPECT_EQ(lines[6], "  Bucket 2 has 1 entries");
  EXPECT_EQ(lines[7], "    b\tbeef");
  DutHashDestroy(str, nullptr, nullptr);

  D_HASH_TABLE *num = DutHashCreateInt(0);
  DutHashInsert(num, -1, 1);  // chain 7
  lines = DumpLines(num);
  ASSERT_EQ(lines.size(), 13u);
  EXPECT_EQ(lines[11], "  Bucket 7 has 1 entries");
  EXPECT_EQ(lines[12], "    -1\t1");
  DutHashDestroy(num, nullptr, nullptr);
}

TEST(HashDump, EmptyTableDividesByZero) {
  D_HASH_TABLE *t = DutHashCreateInt(0);
  std::vector<std::string> lines = DumpLines(t);
  ASSERT_EQ(lines.size(), 12u);
  EXPECT_EQ(lines[1], "  Size = 8, Num Entries = 0, Max Entries = 6, Collisions = 0");
  EXPECT_EQ(lines[2], "  All Buckets: Avg Size = " + Real(0.0) + ", Std Dev = " + Real(0.0));
  const std::string prefix = "  Non-Empty Buckets (0): Avg Size = ";
  ASSERT_EQ(lines[3].rfind(prefix, 0), 0u);
  std::string rest = lines[3].substr(prefix.size());
  std::transform(rest.begin(), rest.end(), rest.begin(), [](unsigned char c) { return std::tolower(c); });
  EXPECT_NE(rest.find("nan"), std::string::npos) << lines[3];
  DutHashDestroy(t, nullptr, nullptr);
}

TEST(HashDump, CollisionsAfterGrowthAreRecounted) {
  D_HASH_TABLE *t = DutHashCreateInt(0);
  for (D_WORD k = 0; k < 6; ++k) DutHashInsert(t, k * 8, 1);  // one chain of 6
  ASSERT_EQ(t->collisions, 5);
  DutHashDelete(t, 40);  // the head: the counter stays
  EXPECT_EQ(t->collisions, 5);
  for (D_WORD k = 1; k <= 3; ++k) DutHashInsert(t, k, 1);  // 8 entries: grows to 32
  ASSERT_EQ(t->size, 32);
  // 0, 8, 16, 24 land in their own chains; 32 joins 0's chain.
  EXPECT_EQ(t->collisions, 1);
  EXPECT_EQ(DumpLines(t)[1], "  Size = 32, Num Entries = 8, Max Entries = 24, Collisions = 1");
  DutHashDestroy(t, nullptr, nullptr);
}

// ---- Sorting ----------------------------------------------------------------

struct Entry {
  const char *key;
  D_WORD value;
};

D_HASH_TABLE *Alphabet() {
  D_HASH_TABLE *t = DutHashCreateStr(0);
  for (Entry e : {Entry{"delta", 4}, Entry{"alpha", 1}, Entry{"echo", 5}, Entry{"charlie", 3},
                  Entry{"bravo", 2}, Entry{"foxtrot", 6}, Entry{"golf", 7}}) {
    DutHashInsert(t, Word(e.key), e.value);
  }
  return t;
}

std::vector<D_WORD> Take(D_WORD *array, D_INT4 count) {
  std::vector<D_WORD> out(array, array + count);
  DutFreeCheck(array, "array", __FILE__, __LINE__);
  return out;
}

D_INT4 OddValues(D_WORD, D_WORD value) { return value % 2; }
D_INT4 Nothing(D_WORD, D_WORD) { return 0; }

TEST(HashSort, ValuesInKeyOrderByDefault) {
  D_HASH_TABLE *t = Alphabet();
  D_INT4 count = -1;
  DutErrNumSet(0);
  D_WORD *values = DutHashSort(t, &count, nullptr, nullptr);
  ASSERT_NE(values, nullptr);
  ASSERT_EQ(count, 7);
  EXPECT_EQ(Take(values, count), (std::vector<D_WORD>{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(DutErrNumGet(), D_ERR_END_OF_TRAVERSAL);  // left by the collecting traversal

  D_WORD *keys = DutHashSortKeys(t, &count, nullptr, nullptr);
  ASSERT_EQ(count, 7);
  std::vector<std::string> names;
  for (D_WORD k : Take(keys, count)) names.emplace_back(reinterpret_cast<const char *>(k));
  EXPECT_EQ(names, (std::vector<std::string>{"alpha", "bravo", "charlie", "delta", "echo",
                                              "foxtrot", "golf"}));
  DutHashDestroy(t, nullptr, nullptr);
}

TEST(HashSort, FilterSelects) {
  D_HASH_TABLE *t = Alphabet();
  D_INT4 count = -1;
  D_WORD *values = DutHashSort(t, &count, nullptr, OddValues);
  ASSERT_EQ(count, 4);
  EXPECT_EQ(Take(values, count), (std::vector<D_WORD>{1, 3, 5, 7}));

  D_WORD *keys = DutHashSortKeys(t, &count, nullptr, OddValues);
  ASSERT_EQ(count, 4);
  EXPECT_STREQ(reinterpret_cast<const char *>(keys[0]), "alpha");
  EXPECT_STREQ(reinterpret_cast<const char *>(keys[3]), "golf");
  DutFreeCheck(keys, "keys", __FILE__, __LINE__);

  count = 99;
  EXPECT_EQ(DutHashSort(t, &count, nullptr, Nothing), nullptr);
  EXPECT_EQ(count, 0);
  count = 99;
  EXPECT_EQ(DutHashSortKeys(t, &count, nullptr, Nothing), nullptr);
  EXPECT_EQ(count, 0);
  DutHashDestroy(t, nullptr, nullptr);
}

TEST(HashSort, EmptyTable) {
  D_HASH_TABLE *t = DutHashCreateStr(0);
  D_INT4 count = 99;
  DutErrNumSet(0);
  EXPECT_EQ(DutHashSort(t, &count, nullptr, nullptr), nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(DutErrNumGet(), 0);  // nothing to traverse
  DutHashInsert(t, Word("only"), 42);
  EXPECT_EQ(Take(DutHashSort(t, &count, nullptr, nullptr), 1), (std::vector<D_WORD>{42}));
  EXPECT_EQ(count, 1);
  DutHashDestroy(t, nullptr, nullptr);
}

D_INT4 Descending(D_WORD a, D_WORD b) { return a < b ? 1 : (a > b ? -1 : 0); }
D_INT4 ByTens(D_WORD a, D_WORD b) { return static_cast<D_INT4>(a / 10 - b / 10); }

TEST(HashSort, CustomCompareOverManyKeys) {
  D_HASH_TABLE *t = DutHashCreateInt(0);
  std::mt19937 rng(7);
  std::vector<D_WORD> keys;
  for (int i = 0; i < 1000; ++i) {
    D_WORD k = static_cast<D_WORD>(rng() % 100000);
    if (DutHashLookupBucket(t, k) != nullptr) continue;
    DutHashInsert(t, k, k + 1);
    keys.push_back(k);
  }
  D_INT4 count = 0;
  D_WORD *sorted = DutHashSort(t, &count, Descending, nullptr);
  ASSERT_EQ(count, static_cast<D_INT4>(keys.size()));
  std::sort(keys.begin(), keys.end(), [](D_WORD a, D_WORD b) { return a > b; });
  for (size_t i = 0; i < keys.size(); ++i) ASSERT_EQ(sorted[i], keys[i] + 1) << i;
  DutFreeCheck(sorted, "sorted", __FILE__, __LINE__);
  DutHashDestroy(t, nullptr, nullptr);
}

TEST(HashSort, EqualKeysStayTogetherWithTheirValues) {
  D_HASH_TABLE *t = DutHashCreateInt(0);
  for (D_WORD k = 0; k < 100; ++k) DutHashInsert(t, (k * 37) % 100, ((k * 37) % 100) + 1000);
  D_INT4 count = 0;
  std::vector<D_WORD> keys = Take(DutHashSortKeys(t, &count, ByTens, nullptr), 100);
  std::vector<D_WORD> values = Take(DutHashSort(t, &count, ByTens, nullptr), 100);
  for (size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(values[i], keys[i] + 1000);  // pairs move together
    if (i > 0) {
      EXPECT_LE(keys[i - 1] / 10, keys[i] / 10);
    }
  }
  std::sort(keys.begin(), keys.end());
  for (D_WORD k = 0; k < 100; ++k) EXPECT_EQ(keys[static_cast<size_t>(k)], k);
  DutHashDestroy(t, nullptr, nullptr);
}

struct Trail {
  std::vector<D_WORD> values;
  D_WORD stop_at = 0;
};

D_WORD Follow(D_WORD value, void *arg) {
  auto *trail = static_cast<Trail *>(arg);
  trail->values.push_back(value);
  return value == trail->stop_at ? value * 100 : 0;
}

TEST(HashSort, SortedTraversal) {
  D_HASH_TABLE *t = Alphabet();
  Trail all;
  EXPECT_EQ(DutHashSortTraverse(t, Follow, &all, nullptr, nullptr), 0);
  EXPECT_EQ(all.values, (std::vector<D_WORD>{1, 2, 3, 4, 5, 6, 7}));

  Trail stop;
  stop.stop_at = 3;
  EXPECT_EQ(DutHashSortTraverse(t, Follow, &stop, nullptr, nullptr), 300);
  EXPECT_EQ(stop.values, (std::vector<D_WORD>{1, 2, 3}));

  Trail odd;
  EXPECT_EQ(DutHashSortTraverse(t, Follow, &odd, nullptr, OddValues), 0);
  EXPECT_EQ(odd.values, (std::vector<D_WORD>{1, 3, 5, 7}));

  Trail none;
  EXPECT_EQ(DutHashSortTraverse(t, Follow, &none, nullptr, Nothing), 0);
  EXPECT_TRUE(none.values.empty());
  DutHashDestroy(t, nullptr, nullptr);
}

// ---- Debug trace ------------------------------------------------------------

D_WORD StopAtOnce(D_WORD, D_WORD value, void *) { return value; }

// Runs in a child process so that the debug file it opens is its own; the
// child compares the trace and exits 0 when it matches.
void TraceAndCompare(const std::string &path) {
  // Printing a real reads the real-number option: make its table before
  // tracing starts, so that only this test's own operations are traced.
  DutRealToStr(0.0);
  unsetenv("VQDEBUGFILENAME");
  DutDebugOpen(path.c_str());
  hashtest::DebugFlagGuard flag(D_DEBUG_HASH);
  std::vector<std::string> expected;

  D_HASH_TABLE *t = DutHashCreateStr(0);
  expected.push_back("entering DutHashCreate(0)");
  expected.push_back("  using 8 as initial size of hash table " + Hex(t));

  DutHashInsert(t, Word("a"), 0x1f);
  expected.push_back("entering DutHashInsert(" + Hex(t) + ", a, 1f)");
  expected.push_back("  hash table now has 1 entries");

  DutHashLookup(t, Word("a"));
  expected.push_back("Entering DutHashLookup(" + Hex(t) + ", a)");

  DutHashDelete(t, Word("zz"));
  expected.push_back("entering DutHashDelete(" + Hex(t) + ", zz)");
  expected.push_back("entering DutHashDeleteBucket(" + Hex(t) + ", zz)");
  expected.push_back("  key zz not found (returning NULL)");
  expected.push_back("  key zz not found (returning NULL)");

  DutHashTraverse(t, StopAtOnce, nullptr);
  D_HASH_BUCKET *bucket = t->buckets[1];  // "a" is 97: chain 1
  expected.push_back("entering DutHashTraverse(" + Hex(t) + ", " + Hex(reinterpret_cast<void *>(StopAtOnce)) +
                     ", 0)");
  expected.push_back("  calling func with \"" + Hex(bucket->key) + "\"");
  expected.push_back("  returning value 1f");

  DutHashDelete(t, Word("a"));
  expected.push_back("entering DutHashDelete(" + Hex(t) + ", a)");
  expected.push_back("entering DutHashDeleteBucket(" + Hex(t) + ", a)");
  expected.push_back("  hash table " + Hex(t) + " now has 0 entries");
  expected.push_back("  returning bucket " + Hex(bucket));
  expected.push_back("*** Dumping Hash Table ***");

  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  // The dump after the deletion is checked by its first line only.
  size_t compared = std::min(lines.size(), expected.size());
  bool same = lines.size() == expected.size() + 3 + 8;
  for (size_t i = 0; i < compared; ++i) {
    if (lines[i] != expected[i]) {
      std::fprintf(stderr, "line %zu: got <%s> expected <%s>\n", i, lines[i].c_str(), expected[i].c_str());
      same = false;
    }
  }
  if (lines.size() != expected.size() + 11) std::fprintf(stderr, "%zu lines\n", lines.size());
  std::exit(same ? 0 : 1);
}

TEST(HashTraceDeathTest, DebugFlagTwoTracesOperations) {
  std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("vqutil-hash-trace-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::string path = (dir / "trace.dbg").string();
  EXPECT_EXIT(TraceAndCompare(path), testing::ExitedWithCode(0), "");
  std::filesystem::remove_all(dir);
}

void TraceGrowth(const std::string &path) {
  // Printing a real reads the real-number option: make its table before
  // tracing starts, so that only this test's own operations are traced.
  DutRealToStr(0.0);
  unsetenv("VQDEBUGFILENAME");
  DutDebugOpen(path.c_str());
  hashtest::DebugFlagGuard flag(D_DEBUG_HASH);
  D_HASH_TABLE *t = DutHashCreateInt(0);
  for (D_WORD k = 1; k <= 7; ++k) DutHashInsert(t, k, k);
  std::ifstream in(path);
  int inserts = 0, resizes = 0, ends = 0;
  for (std::string line; std::getline(in, line);) {
    inserts += line.rfind("entering DutHashInsert(", 0) == 0;
    resizes += line == "entering DutHashResize(" + Hex(t) + ")";
    ends += line == "end of DutHashResize";
  }
  // Seven insertions, then the seven entries inserted again into the bigger table.
  std::exit(inserts == 14 && resizes == 1 && ends == 1 && t->size == 32 ? 0 : 1);
}

TEST(HashTraceDeathTest, GrowthReinsertsUnderTrace) {
  std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("vqutil-hash-growth-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::string path = (dir / "growth.dbg").string();
  EXPECT_EXIT(TraceGrowth(path), testing::ExitedWithCode(0), "");
  std::filesystem::remove_all(dir);
}

}  // namespace
