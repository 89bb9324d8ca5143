// Hash tables against a model: random insertions (duplicates among them),
// deletions, replacements, resets, explicit growth and chain heads popped
// by the host, for every key
// kind, with keys that crowd a few chains and strings whose hashes are
// equal. After every step each key of the universe must be found with its
// value, or be missing with error 8, and every bucket must sit in the chain
// its hash selects. A search that trusted a stale shortcut (a chain's
// summary, a stored hash) would lose keys here; runs of misses and of hits
// before each check send the lookups both ways a table may take them.
#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/output_capture.hpp"
#include "test_hash_support.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/list.h"
#include "vqutil/memory.h"

namespace {

using hashtest::SameWord;
using hashtest::Table;
using hashtest::Word;

D_UINT4 IdentityHash(D_WORD key) { return static_cast<D_UINT4>(key); }

D_HASH_TABLE *CreateCustom(D_INT4 size) { return DutHashCreate(size, IdentityHash, SameWord); }

// A key kind: how its table is made, how far its integer keys are shifted,
// whether its keys are texts and whether those are searched in the other
// case.
struct Kind {
  const char *name;
  D_HASH_TABLE *(*create)(D_INT4);
  int shift;
  bool text, fold;
};

const Kind kKinds[] = {{"Int", DutHashCreateInt, 0, false, false},
                       {"Ptr", DutHashCreatePtr, 4, false, false},
                       {"Str", DutHashCreateStr, 0, true, false},
                       {"Stri", DutHashCreateStri, 0, true, true},
                       {"Custom", CreateCustom, 0, false, false}};
void PrintTo(const Kind &kind, std::ostream *os) { *os << kind.name; }

// Each key of the universe has the word that is inserted and an equal key
// that is searched with: another copy of the string, or another spelling
// for the case-folding table.
struct Universe {
  std::vector<std::string> texts, others;  // reserved whole: the words point into them
  std::vector<D_WORD> words, equal;
  D_WORD missing = 5000;  // outside the universe of every kind
};

Universe MakeUniverse(const Kind &kind) {
  Universe u;
  u.texts.reserve(64);
  u.others.reserve(64);
  for (int i = 0; i < 64; ++i) {
    // Integers and pointers 4096 apart share a chain up to 4096 chains; a
    // few are negative.
    D_WORD word = static_cast<D_WORD>((i % 8) + 4096 * (i / 8) + 1) << kind.shift;
    if (i % 16 == 15) word = -word;
    D_WORD equal = word;
    if (kind.text) {
      // "Ab" and "BG" hash alike (65 x 27 + 98 = 66 x 27 + 71), and so do
      // their extensions by the same suffix.
      word = Word(u.texts.emplace_back(std::string(i % 2 == 0 ? "Ab" : "BG") + "key" + std::to_string(i / 2)).c_str());
      std::string &other = u.others.emplace_back(u.texts.back());
      for (char &c : other) {
        const bool upper = std::isupper(static_cast<unsigned char>(c));
        if (kind.fold) c = static_cast<char>(upper ? std::tolower(c) : std::toupper(c));
      }
      equal = Word(other.c_str());
      u.missing = Word("missing");
    }
    u.words.push_back(word);
    u.equal.push_back(equal);
  }
  return u;
}

class HashModel : public ::testing::TestWithParam<Kind> {
 protected:
  std::mt19937 rng{4242};
  Universe u = MakeUniverse(GetParam());
  Table table{GetParam().create(0)};
  std::map<std::size_t, D_WORD> model;  // key index -> value
  D_WORD next_value = 1;

  vqtest::OutputCapture capture;

  std::size_t AnyKey() { return rng() % u.words.size(); }
  std::string Printed(std::size_t i) { return GetParam().text ? u.others[i] : std::to_string(u.equal[i]); }

  std::size_t IndexOfStored(D_WORD stored) {
    D_HASH_TEST_FUNC same = DutHashGetTestFunc(table);
    for (std::size_t i = 0; i < u.words.size(); ++i) {
      if (same(u.words[i], stored) != 0) return i;
    }
    ADD_FAILURE() << "a stored key outside the universe";
    return 0;
  }

  void Step() {
    const std::size_t i = AnyKey();
    const bool present = model.count(i) != 0;
    D_WORD first_key;
    switch (rng() % 8) {
      case 0:
      case 1:
      case 2:
        // A duplicate keeps the first key, value and the error number, and
        // warns with the key it was given: texts as they are, words signed.
        DutErrNumSet(0);
        first_key = present ? DutHashLookupBucket(table, u.equal[i])->key : 0;
        DutHashInsert(table, present ? u.equal[i] : u.words[i], next_value);
        EXPECT_EQ(present ? DutHashLookupBucket(table, u.equal[i])->key : 0, first_key);
        if (!present) model[i] = next_value++;
        EXPECT_EQ(capture.Take(),
                  present ? "WARNING: DutHashInsert: key " + Printed(i) + " already exists in hash table.\n" : "");
        EXPECT_EQ(DutErrNumGet(), 0);
        break;
      case 3:
        DutErrNumSet(0);
        EXPECT_EQ(DutHashDelete(table, u.equal[i]), present ? model[i] : 0);
        EXPECT_EQ(DutErrNumGet(), present ? 0 : D_ERR_DOESNT_EXIST);
        model.erase(i);
        break;
      case 4:
        if (D_HASH_BUCKET *bucket = DutHashDeleteBucket(table, u.equal[i])) {
          EXPECT_TRUE(present);
          EXPECT_EQ(bucket->next, nullptr);
          DutFreeCheck(bucket, "bucket", __FILE__, __LINE__);
          model.erase(i);
        } else {
          EXPECT_EQ(std::pair(present, DutErrNumGet()), std::pair(false, D_ERR_DOESNT_EXIST));
        }
        break;
      case 5:
        // Replacing stores the caller's key in place of the first one.
        DutErrNumSet(0);
        EXPECT_EQ(DutHashReplace(table, u.equal[i], next_value), present ? model[i] : 0);
        EXPECT_EQ(DutErrNumGet(), present ? 0 : D_ERR_DOESNT_EXIST);
        ASSERT_NE(DutHashLookupBucket(table, u.words[i]), nullptr);
        EXPECT_EQ(DutHashLookupBucket(table, u.words[i])->key, u.equal[i]);
        model[i] = next_value++;
        break;
      case 6: {
        // The host pops a chain head itself, as the layout allows.
        const D_INT4 chain = static_cast<D_INT4>(rng() % static_cast<unsigned>(table->size));
        if (auto *bucket = static_cast<D_HASH_BUCKET *>(DutStackPop(&table->buckets[chain]))) {
          model.erase(IndexOfStored(bucket->key));
          --table->num_entries;
          DutFreeCheck(bucket, "bucket", __FILE__, __LINE__);
        }
        break;
      }
      default:
        if (rng() % 16 == 0) {
          DutHashReset(table, nullptr, nullptr);
          model.clear();
        } else if (rng() % 4 == 0 && table->size < 1024) {
          DutHashResize(table, table->size * 2);
        }
        break;
    }
  }

  void Verify(int step) {
    const D_WORD probe = step % 2 == 0 || model.empty() ? u.missing : u.equal[model.begin()->first];
    for (int n = 0; n < 20; ++n) DutHashLookup(table, probe);
    ASSERT_EQ(table->num_entries, static_cast<D_INT4>(model.size())) << "step " << step;
    D_INT4 counted = 0;
    D_HASH_FUNC hash = DutHashGetHashFunc(table);
    for (D_INT4 chain = 0; chain < table->size; ++chain) {
      for (const D_HASH_BUCKET *b = table->buckets[chain]; b != nullptr; b = b->next, ++counted) {
        ASSERT_EQ(static_cast<D_INT4>(hash(b->key) & table->mask), chain) << "step " << step;
      }
    }
    ASSERT_EQ(counted, table->num_entries) << "step " << step;
    for (std::size_t i = 0; i < u.words.size(); ++i) {
      auto found = model.find(i);
      DutErrNumSet(0);
      const D_WORD value = DutHashLookup(table, u.equal[i]);
      const bool hit = found != model.end();
      ASSERT_EQ(std::pair(value, DutErrNumGet()), std::pair(hit ? found->second : 0, hit ? 0 : D_ERR_DOESNT_EXIST))
          << "key " << i << ", step " << step;
    }
  }
};

TEST_P(HashModel, RandomOperationsKeepEveryKeyFindable) {
  for (int step = 0; step < 3000; ++step) {
    Step();
    ASSERT_NO_FATAL_FAILURE(Verify(step));
  }
}

INSTANTIATE_TEST_SUITE_P(EveryKind, HashModel, ::testing::ValuesIn(kKinds),
                         [](const auto &info) { return std::string(info.param.name); });

// The string hashes against their definition, h = h x 27 + c with c the
// byte as a signed value (folded first for the case-folding table), on
// random strings of every length up to 40, high bytes included; the
// integer and pointer hashes, and what folds.
TEST(HashKeyKinds, HashesFollowTheDefinitionsAndOnlyLettersFold) {
  Table str(DutHashCreateStr(8)), stri(DutHashCreateStri(8));
  Table num(DutHashCreateInt(8)), ptr(DutHashCreatePtr(8));
  EXPECT_EQ(DutHashGetHashFunc(num)(-1), 0xFFFFFFFFu);
  EXPECT_EQ(DutHashGetHashFunc(ptr)(0x123F), 0x123u);
  DutHashInsert(str, Word("Key"), 7);
  EXPECT_FAILS(DutHashLookup(str, Word("KEY")), 0, D_ERR_DOESNT_EXIST);  // found by content and case
  D_HASH_TEST_FUNC eq = DutHashGetTestFunc(stri);
  EXPECT_NE(eq(Word("abC"), Word("ABc")), 0);
  const std::pair<const char *, const char *> differ[] = {
      {"key", "keys"}, {"keys", "key"},  // must end together
      {"[", "{"},      {"@", "`"},       // neighbours of the letters do not fold
      {"\xc0", "\xe0"}};
  for (auto [a, b] : differ) EXPECT_EQ(eq(Word(a), Word(b)), 0) << a << " / " << b;
  EXPECT_EQ(eq(0, Word("")), 0);
  D_HASH_FUNC exact = DutHashGetHashFunc(str);
  D_HASH_FUNC folded = DutHashGetHashFunc(stri);
  std::mt19937 rng(77);
  for (int round = 0; round < 2000; ++round) {
    std::string text(rng() % 41, ' ');
    for (char &c : text) c = static_cast<char>(1 + rng() % 255);
    D_UINT4 want_exact = 0;
    D_UINT4 want_folded = 0;
    for (char c : text) {
      const auto value = static_cast<D_UINT4>(static_cast<signed char>(c));
      want_exact = want_exact * 27u + value;
      want_folded = want_folded * 27u + (c >= 'A' && c <= 'Z' ? value + 32u : value);
    }
    const auto key = reinterpret_cast<D_WORD>(text.c_str());
    ASSERT_EQ(exact(key), want_exact) << "length " << text.size();
    ASSERT_EQ(folded(key), want_folded) << "length " << text.size();
  }
}

}  // namespace
