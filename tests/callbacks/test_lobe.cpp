// Lobes: declaration, fixed-size and string values, clearing, traversal.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/lobe.h"

namespace {

// Keys well away from the callback types' numbers used elsewhere.
constexpr D_UINT4 kKeyBase = 70000;

TEST(Lobe, DeclareLookupAndNullLobe) {
  D_LOBE *a = DutLobeDeclare(kKeyBase + 1, 8);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(DutLobeDeclare(kKeyBase + 1, 16), a) << "declared twice: the same lobe";
  EXPECT_EQ(DutLobeGetSize(a), 8) << "the first size stays";
  EXPECT_TRUE(DutLobeLookup(kKeyBase + 1) == a && !DutLobeLookup(kKeyBase + 999) && DutLobeTable());
  // A null lobe yields nothing rather than failing.
  int object = 0;
  char buffer[8] = "x";
  EXPECT_FALSE(DutLobeGetSize(nullptr) || DutLobeFindValue(&object, nullptr) || DutLobeSet(&object, nullptr, "v") ||
               DutLobeCheckSet(&object, nullptr, "v") || DutLobeGet(&object, nullptr, buffer));
  EXPECT_STREQ(buffer, "x");
  EXPECT_FAILS(DutLobeSet(&object, a, nullptr) + DutLobeCheckSet(&object, a, nullptr), D_FALSE, D_ERR_NULL_PTR);
}

// Fixed-size values are copies, overwritten in place; a zero size stores
// nothing and reads no value, so a null one will do.
TEST(Lobe, FixedSizeValuesCheckSetAndDelete) {
  D_LOBE *lobe = DutLobeDeclare(kKeyBase + 2, sizeof(double)), *empty = DutLobeDeclare(kKeyBase + 3, 0);
  int object = 0;
  double v = 1.5, out = 0;
  ASSERT_EQ(DutLobeSet(&object, lobe, &v), D_TRUE);
  v = 2.5;
  void *stored = DutLobeFindValue(&object, lobe);
  EXPECT_TRUE(DutLobeGet(&object, lobe, &out) && out == 1.5);
  EXPECT_TRUE(DutLobeSet(&object, lobe, &v) && DutLobeFindValue(&object, lobe) == stored);
  EXPECT_TRUE(DutLobeGet(&object, lobe, &out) && out == 2.5);
  // CheckSet only sets an absent value; Delete answers 0 either way.
  EXPECT_EQ(DutLobeCheckSet(&object, lobe, &v), D_FALSE);
  EXPECT_EQ(DutLobeDelete(&object, lobe) + DutLobeDelete(&object, lobe), 0);
  EXPECT_EQ(DutLobeGet(&object, lobe, &out), D_FALSE);
  EXPECT_EQ(DutLobeCheckSet(&object, lobe, &v), D_TRUE);
  DutLobeDelete(&object, lobe);
  char buffer[4] = "abc";
  EXPECT_TRUE(DutLobeSet(&object, empty, "zzz") && DutLobeSet(&object, empty, nullptr));
  EXPECT_TRUE(DutLobeGet(&object, empty, buffer) && std::string(buffer) == "abc");
  DutLobeDelete(&object, empty);
}

// Visits every holder of a value; the early stop is the hash table's,
// which its own tests pin.
D_WORD visit(D_WORD object, D_WORD value, void *arg) {
  EXPECT_NE(value, 0);
  static_cast<std::set<D_WORD> *>(arg)->insert(object);
  return 0;
}

std::set<D_WORD> holders(D_LOBE *lobe) {
  std::set<D_WORD> seen;
  EXPECT_FAILS(DutLobeTraverse(lobe, visit, &seen), 0, D_ERR_END_OF_TRAVERSAL);
  return seen;
}

TEST(Lobe, StringValuesAreFreshCopiesAndClearTakesEveryLobe) {
  D_LOBE *lobe = DutLobeStringDeclare(kKeyBase + 4), *fixed = DutLobeDeclare(kKeyBase + 7, sizeof(int));
  EXPECT_EQ(DutLobeGetSize(lobe), D_LOBE_STRING_SIZE);
  int object = 0, other = 0, v = 3;
  char text[] = "short", buffer[64] = {};
  ASSERT_EQ(DutLobeSet(&object, lobe, text), D_TRUE);
  text[0] = 'X';
  EXPECT_TRUE(DutLobeGet(&object, lobe, buffer) && std::string(buffer) == "short");
  EXPECT_FAILS(DutLobeGet(&object, lobe, nullptr), D_FALSE, D_ERR_NULL_PTR);
  // A longer value, then one set from the stored block itself, which must
  // not be read after it is freed.
  ASSERT_EQ(DutLobeSet(&object, lobe, "a considerably longer value"), D_TRUE);
  ASSERT_EQ(DutLobeSet(&object, lobe, DutLobeFindValue(&object, lobe)), D_TRUE);
  EXPECT_TRUE(DutLobeGet(&object, lobe, buffer) && std::string(buffer) == "a considerably longer value");
  DutLobeSet(&object, fixed, &v);
  DutLobeSet(&other, fixed, &v);
  const D_WORD object_word = reinterpret_cast<D_WORD>(&object), other_word = reinterpret_cast<D_WORD>(&other);
  EXPECT_EQ(holders(fixed), (std::set<D_WORD>{object_word, other_word}));
  DutLobeClear(&object);
  DutLobeClear(nullptr);
  EXPECT_FALSE(DutLobeFindValue(&object, lobe) || DutLobeFindValue(&object, fixed));
  EXPECT_EQ(holders(fixed), std::set<D_WORD>{other_word}) << "other objects keep their values";
  DutLobeDelete(&other, fixed);
  EXPECT_TRUE(holders(lobe).empty() && holders(fixed).empty());
}

TEST(LobeDeathTest, TraverseOfANullLobeIsAnAssertion) {
  DutLobeDeclare(kKeyBase + 10, 4);  // death tests run first: make the table
  VQTEST_EXPECT_ASSERTION(DutLobeTraverse(nullptr, visit, nullptr), "lobe");
}

}  // namespace
