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
  DutLobeClear(&object);
  DutLobeClear(nullptr);
  EXPECT_FALSE(DutLobeFindValue(&object, lobe) || DutLobeFindValue(&object, fixed));
  EXPECT_NE(DutLobeFindValue(&other, fixed), nullptr) << "other objects keep their values";
  DutLobeDelete(&other, fixed);
}

struct Visits {
  std::set<D_WORD> seen;
  std::size_t stop_after;
};

D_WORD visit(D_WORD object, D_WORD value, void *arg) {
  auto *v = static_cast<Visits *>(arg);
  EXPECT_NE(value, 0);
  v->seen.insert(object);
  return v->seen.size() == v->stop_after ? 42 : 0;
}

TEST(Lobe, TraverseVisitsEveryObjectAndStopsOnNonZero) {
  D_LOBE *lobe = DutLobeDeclare(kKeyBase + 9, sizeof(int));
  int objects[3] = {};
  std::set<D_WORD> all;
  for (int i = 0; i < 3; ++i) DutLobeSet(&objects[i], lobe, &i), all.insert(reinterpret_cast<D_WORD>(&objects[i]));
  Visits every{{}, 0}, two{{}, 2};
  EXPECT_EQ(DutLobeTraverse(lobe, visit, &every), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(every.seen, all);
  EXPECT_EQ(DutLobeTraverse(lobe, visit, &two), 42);
  EXPECT_EQ(two.seen.size(), 2u);
  for (int &o : objects) DutLobeDelete(&o, lobe);
}

TEST(LobeDeathTest, TraverseOfANullLobeIsAnAssertion) {
  DutLobeDeclare(kKeyBase + 10, 4);  // death tests run first: make the table
  VQTEST_EXPECT_ASSERTION(DutLobeTraverse(nullptr, visit, nullptr), "lobe");
}

}  // namespace
