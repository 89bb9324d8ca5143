// Lookups read a chain straight away while a table's lookups mostly hit,
// and ask the chain summaries first while they mostly miss. Whichever way
// a lookup goes it must give the same answers: here through long runs of
// misses and of hits, on the last chain (whose summary sits next to the
// table's hidden lookup count), after removals that leave a summary's bits
// behind and after a chain head popped by the host.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_hash_support.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/list.h"
#include "vqutil/memory.h"

namespace {

struct KindCase {
  const char *name;
  D_HASH_TABLE *(*create)(D_INT4);
  bool strings;
};

// Distinct keys of the kind; strings live in texts.
std::vector<D_WORD> Candidates(const KindCase &kind, std::vector<std::string> &texts) {
  std::vector<D_WORD> keys;
  texts.clear();
  texts.reserve(400);
  for (D_WORD i = 1; i <= 400; ++i) {
    if (kind.strings) {
      texts.push_back("key" + std::to_string(i));
      keys.push_back(hashtest::Word(texts.back().c_str()));
    } else {
      keys.push_back(kind.create == DutHashCreatePtr ? i << 4 : i);
    }
  }
  return keys;
}

TEST(HashLookupTrend, RunsOfMissesAndHitsGiveTheSameAnswers) {
  const KindCase kinds[] = {{"int", DutHashCreateInt, false},
                            {"ptr", DutHashCreatePtr, false},
                            {"str", DutHashCreateStr, true},
                            {"stri", DutHashCreateStri, true}};
  for (const KindCase &kind : kinds) {
    SCOPED_TRACE(kind.name);
    std::vector<std::string> texts;
    hashtest::Table table{kind.create(0)};
    ASSERT_EQ(table->size, 8);
    // Four stored keys and one absent key in the last chain; absent keys
    // elsewhere to miss with.
    std::vector<D_WORD> last, elsewhere;
    for (D_WORD key : Candidates(kind, texts)) {
      const bool in_last = (DutHashGetHashFunc(table)(key) & table->mask) == table->mask;
      (in_last ? last : elsewhere).push_back(key);
    }
    ASSERT_GE(last.size(), 5u);
    last.resize(5);
    for (int i = 0; i < 4; ++i) DutHashInsert(table, last[i], i + 1);
    bool stored[5] = {true, true, true, true, false};

    auto expect_all = [&](const char *when) {
      for (int i = 0; i < 5; ++i) {
        DutErrNumSet(0);
        EXPECT_EQ(DutHashLookup(table, last[i]), stored[i] ? i + 1 : 0) << when << ", key " << i;
        if (!stored[i]) {
          EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST) << when << ", key " << i;
        }
      }
    };
    for (int round = 0; round < 3; ++round) {
      for (int n = 0; n < 40; ++n) EXPECT_EQ(DutHashLookup(table, elsewhere[n % elsewhere.size()]), 0);
      expect_all("after misses");
      for (int n = 0; n < 40; ++n) EXPECT_EQ(DutHashLookup(table, last[n % 4]), n % 4 + 1);
      expect_all("after hits");
      // The removed key's summary bits stay behind; a miss run follows.
      EXPECT_EQ(DutHashDelete(table, last[round]), round + 1);
      stored[round] = false;
      for (int n = 0; n < 40; ++n) EXPECT_EQ(DutHashLookup(table, last[round]), 0);
      expect_all("after a removal and a run of misses");
      stored[round] = true;
      DutHashInsert(table, last[round], round + 1);
      expect_all("after the key came back");
    }
    // The host pops the last chain's head (the newest entry) by itself.
    auto *popped = static_cast<D_HASH_BUCKET *>(DutStackPop(reinterpret_cast<void **>(&table->buckets[7])));
    ASSERT_NE(popped, nullptr);
    --table->num_entries;
    for (int n = 0; n < 40; ++n) EXPECT_EQ(DutHashLookup(table, popped->key), 0);
    EXPECT_EQ(DutListLength(table->buckets[7]), 3);
    for (const D_HASH_BUCKET *b = table->buckets[7]; b != nullptr; b = b->next) {
      EXPECT_EQ(DutHashLookup(table, b->key), b->value);
    }
    DutFreeCheck(popped, "bucket", __FILE__, __LINE__);
  }
}

}  // namespace
