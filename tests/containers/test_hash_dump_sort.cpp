// Hash tables: the dump and its statistics, sorting of values and keys with
// filters, sorted traversal, and the debug trace of the operations.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "test_hash_support.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/memory.h"
#include "vqutil/strutil.h"

namespace {

using hashtest::Table;
using hashtest::Word;
using Words = std::vector<D_WORD>;

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
  EXPECT_EQ(DumpLines(t), expected);

  Table str(DutHashCreateStr(0));  // string keys print as text
  DutHashInsert(str, Word("b"), 0xbeef);  // "b" hashes to 98: chain 2
  EXPECT_EQ(DumpLines(str)[7], "    b\tbeef");

  // An empty table divides by zero for the non-empty chains.
  Table empty(DutHashCreateInt(0));
  std::vector<std::string> lines = DumpLines(empty);
  ASSERT_EQ(lines.size(), 12u);
  EXPECT_EQ(lines[2], "  All Buckets: Avg Size = " + Real(0.0) + ", Std Dev = " + Real(0.0));
  std::string rest = lines[3];
  std::transform(rest.begin(), rest.end(), rest.begin(), [](unsigned char c) { return std::tolower(c); });
  EXPECT_EQ(rest.rfind("  non-empty buckets (0): avg size = ", 0), 0u) << lines[3];
  EXPECT_NE(rest.find("nan"), std::string::npos) << lines[3];
}

TEST(HashDump, CollisionsAfterGrowthAreRecounted) {
  Table t(DutHashCreateInt(0));
  for (D_WORD k = 0; k < 6; ++k) DutHashInsert(t, k * 8, 1);  // one chain of 6
  DutHashDelete(t, 40);  // the head: the counter stays
  EXPECT_EQ(t->collisions, 5);
  for (D_WORD k = 1; k <= 3; ++k) DutHashInsert(t, k, 1);  // 8 entries: grows to 32
  // 0, 8, 16, 24 land in their own chains; 32 joins 0's chain.
  EXPECT_EQ(DumpLines(t)[1], "  Size = 32, Num Entries = 8, Max Entries = 24, Collisions = 1");
}

// ---- Sorting ----------------------------------------------------------------

// The sorted values (or keys) as a vector; the array goes back to the heap.
// Nothing selected gives no array and a count of 0.
Words Sorted(D_HASH_TABLE *t, D_HASH_CMP_FUNC compare, D_HASH_FILTER_FUNC filter, bool keys = false) {
  D_INT4 count = -1;
  D_WORD *array = keys ? DutHashSortKeys(t, &count, compare, filter) : DutHashSort(t, &count, compare, filter);
  if (array == nullptr) {
    EXPECT_EQ(count, 0);
    return {};
  }
  Words out(array, array + count);
  DutFreeCheck(array, "array", __FILE__, __LINE__);
  return out;
}

std::string Names(const Words &keys) {
  std::string names;
  for (D_WORD k : keys) names += std::string(reinterpret_cast<const char *>(k)) + " ";
  return names;
}

D_INT4 OddValues(D_WORD, D_WORD value) { return value % 2; }
D_INT4 Nothing(D_WORD, D_WORD) { return 0; }
D_INT4 Descending(D_WORD a, D_WORD b) { return a < b ? 1 : (a > b ? -1 : 0); }

struct Trail {
  Words values;
  D_WORD stop_at = 0;
};

D_WORD Follow(D_WORD value, void *arg) {
  auto *trail = static_cast<Trail *>(arg);
  trail->values.push_back(value);
  return value == trail->stop_at ? value * 100 : 0;
}

// String keys sort by their text unless a compare is given; the values
// travel with their keys.
TEST(HashSort, ValuesKeysAndSortedTraversalWithFilters) {
  Table t(DutHashCreateStr(0));
  for (const char *name : {"delta", "alpha", "echo", "charlie", "bravo", "foxtrot", "golf"})
    DutHashInsert(t, Word(name), name[0] - 'a' + 1);
  DutErrNumSet(0);
  EXPECT_EQ(Sorted(t, nullptr, nullptr), (Words{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(DutErrNumGet(), D_ERR_END_OF_TRAVERSAL);  // left by the collecting traversal
  EXPECT_EQ(Names(Sorted(t, nullptr, nullptr, true)), "alpha bravo charlie delta echo foxtrot golf ");
  EXPECT_EQ(Names(Sorted(t, nullptr, OddValues, true)), "alpha charlie echo golf ");
  EXPECT_TRUE(Sorted(t, nullptr, Nothing).empty());
  EXPECT_TRUE(Sorted(t, nullptr, Nothing, true).empty());
  const struct { D_WORD stop_at; D_HASH_FILTER_FUNC select; D_WORD result; Words visited; } cases[] = {
      {0, nullptr, 0, {1, 2, 3, 4, 5, 6, 7}}, {3, nullptr, 300, {1, 2, 3}}, {0, OddValues, 0, {1, 3, 5, 7}},
      {0, Nothing, 0, {}}};
  for (const auto &c : cases) {
    Trail trail{{}, c.stop_at};
    EXPECT_EQ(DutHashSortTraverse(t, Follow, &trail, nullptr, c.select), c.result);
    EXPECT_EQ(trail.values, c.visited) << c.stop_at;
  }

  Table single(DutHashCreateStr(0));
  DutErrNumSet(0);
  EXPECT_TRUE(Sorted(single, nullptr, nullptr).empty());
  EXPECT_EQ(DutErrNumGet(), 0);  // nothing to traverse
  DutHashInsert(single, Word("only"), 42);
  EXPECT_EQ(Sorted(single, nullptr, nullptr), (Words{42}));
}

// Values travel with their keys through the heap sort.
TEST(HashSort, CustomCompareOverManyKeys) {
  Table t(DutHashCreateInt(0));
  std::mt19937 rng(7);
  Words values;
  for (int i = 0; i < 1000; ++i) {
    const D_WORD k = static_cast<D_WORD>(rng() % 100000);
    if (DutHashLookupBucket(t, k) != nullptr) continue;
    DutHashInsert(t, k, k + 1);
    values.push_back(k + 1);
  }
  std::sort(values.begin(), values.end(), [](D_WORD a, D_WORD b) { return a > b; });
  EXPECT_EQ(Sorted(t, Descending, nullptr), values);
}

// ---- Debug trace ------------------------------------------------------------

D_WORD StopAtOnce(D_WORD, D_WORD value, void *) { return value; }

// Runs in a child process so that the debug file it opens is its own; the
// child exits 0 when the trace is right.
void TraceAndCompare(const std::string &path) {
  // Printing a real reads the real-number option: make its table before
  // tracing starts, so that only the operations themselves are traced.
  DutRealToStr(0.0);
  unsetenv("VQDEBUGFILENAME");
  DutDebugOpen(path.c_str());
  hashtest::DebugFlagGuard flag(D_DEBUG_HASH);
  D_HASH_TABLE *t = DutHashCreateStr(0);
  DutHashInsert(t, Word("a"), 0x1f);
  DutHashLookup(t, Word("a"));
  DutHashDelete(t, Word("zz"));
  DutHashTraverse(t, StopAtOnce, nullptr);
  D_HASH_BUCKET *bucket = t->buckets[1];  // "a" is 97: chain 1
  const std::string key = Hex(bucket->key);
  DutHashDelete(t, Word("a"));  // frees the bucket: only its address is used below
  const std::string h = Hex(t);
  const std::vector<std::string> expected{
      "entering DutHashCreate(0)", "  using 8 as initial size of hash table " + h,
      "entering DutHashInsert(" + h + ", a, 1f)", "  hash table now has 1 entries",
      "Entering DutHashLookup(" + h + ", a)", "entering DutHashDelete(" + h + ", zz)",
      "entering DutHashDeleteBucket(" + h + ", zz)", "  key zz not found (returning NULL)",
      "  key zz not found (returning NULL)",
      "entering DutHashTraverse(" + h + ", " + Hex(reinterpret_cast<void *>(StopAtOnce)) + ", 0)",
      "  calling func with \"" + key + "\"", "  returning value 1f", "entering DutHashDelete(" + h + ", a)",
      "entering DutHashDeleteBucket(" + h + ", a)", "  hash table " + h + " now has 0 entries",
      "  returning bucket " + Hex(bucket), "*** Dumping Hash Table ***"};
  // Growth under the trace: the seventh insertion grows the table, which
  // inserts all seven entries again.
  D_HASH_TABLE *grown = DutHashCreateInt(0);
  for (D_WORD k = 1; k <= 7; ++k) DutHashInsert(grown, k, k);

  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  bool same = lines.size() > expected.size() + 11;
  for (size_t i = 0; i < std::min(lines.size(), expected.size()); ++i) {
    if (lines[i] != expected[i]) {
      std::fprintf(stderr, "line %zu: got <%s> expected <%s>\n", i, lines[i].c_str(), expected[i].c_str());
      same = false;
    }
  }
  // The dump after the deletion is checked by its first line only.
  int inserts = 0, resizes = 0, ends = 0;
  for (size_t i = expected.size() + 11; i < lines.size(); ++i) {
    inserts += lines[i].rfind("entering DutHashInsert(", 0) == 0;
    resizes += lines[i] == "entering DutHashResize(" + Hex(grown) + ")";
    ends += lines[i] == "end of DutHashResize";
  }
  std::exit(same && inserts == 14 && resizes == 1 && ends == 1 && grown->size == 32 ? 0 : 1);
}

TEST(HashTraceDeathTest, DebugFlagTwoTracesOperationsAndGrowth) {
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("vqutil-hash-trace-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  EXPECT_EXIT(TraceAndCompare((dir / "trace.dbg").string()), testing::ExitedWithCode(0), "");
  std::filesystem::remove_all(dir);
}

}  // namespace
