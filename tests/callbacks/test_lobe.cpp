// Lobes: declaration, fixed-size and string values, clearing, traversal.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/lobe.h"
#include "vqutil/output.h"

namespace {

// Keys well away from the callback types' numbers used elsewhere.
constexpr D_UINT4 kKeyBase = 70000;

TEST(Lobe, DeclareTwiceReturnsTheSameLobeAndKeepsTheFirstSize) {
  D_LOBE *a = DutLobeDeclare(kKeyBase + 1, 8);
  ASSERT_NE(a, nullptr);
  D_LOBE *b = DutLobeDeclare(kKeyBase + 1, 16);
  EXPECT_EQ(a, b);
  EXPECT_EQ(DutLobeGetSize(b), 8);
  EXPECT_EQ(DutLobeLookup(kKeyBase + 1), a);
  EXPECT_EQ(DutLobeLookup(kKeyBase + 999), nullptr);
  EXPECT_NE(DutLobeTable(), nullptr);
  EXPECT_EQ(D_GLOBE_KEY(a), kKeyBase + 1);
}

TEST(Lobe, NullLobeYieldsNothingRatherThanFailing) {
  int object = 0;
  char buffer[8] = "x";
  EXPECT_EQ(DutLobeGetSize(nullptr), 0);
  EXPECT_EQ(DutLobeFindValue(&object, nullptr), nullptr);
  EXPECT_EQ(DutLobeSet(&object, nullptr, "v"), D_FALSE);
  EXPECT_EQ(DutLobeGet(&object, nullptr, buffer), D_FALSE);
  EXPECT_STREQ(buffer, "x");
}

TEST(Lobe, FixedSizeValueIsCopiedAndOverwrittenInPlace) {
  D_LOBE *lobe = DutLobeDeclare(kKeyBase + 2, sizeof(double));
  int object = 0;
  double v = 1.5;
  ASSERT_EQ(DutLobeSet(&object, lobe, &v), D_TRUE);
  v = 99.0;  // the lobe holds a copy
  void *stored = DutLobeFindValue(&object, lobe);
  ASSERT_NE(stored, nullptr);
  double out = 0;
  ASSERT_EQ(DutLobeGet(&object, lobe, &out), D_TRUE);
  EXPECT_EQ(out, 1.5);
  double w = 2.5;
  ASSERT_EQ(DutLobeSet(&object, lobe, &w), D_TRUE);
  EXPECT_EQ(DutLobeFindValue(&object, lobe), stored) << "fixed-size values are overwritten in place";
  ASSERT_EQ(DutLobeGet(&object, lobe, &out), D_TRUE);
  EXPECT_EQ(out, 2.5);
  DutLobeDelete(&object, lobe);

  // A zero-size lobe stores and copies nothing.
  lobe = DutLobeDeclare(kKeyBase + 3, 0);
  char buffer[4] = "abc";
  ASSERT_EQ(DutLobeSet(&object, lobe, "zzz"), D_TRUE);
  ASSERT_EQ(DutLobeGet(&object, lobe, buffer), D_TRUE);
  EXPECT_STREQ(buffer, "abc");
  DutLobeDelete(&object, lobe);
}

TEST(Lobe, StringValueIsReplacedByAFreshCopy) {
  D_LOBE *lobe = DutLobeStringDeclare(kKeyBase + 4);
  EXPECT_EQ(DutLobeGetSize(lobe), D_LOBE_STRING_SIZE);
  int object = 0;
  char text[] = "short";
  ASSERT_EQ(DutLobeSet(&object, lobe, text), D_TRUE);
  text[0] = 'X';
  char buffer[64] = {};
  ASSERT_EQ(DutLobeGet(&object, lobe, buffer), D_TRUE);
  EXPECT_STREQ(buffer, "short");
  ASSERT_EQ(DutLobeSet(&object, lobe, "a considerably longer value"), D_TRUE);
  ASSERT_EQ(DutLobeGet(&object, lobe, buffer), D_TRUE);
  EXPECT_STREQ(buffer, "a considerably longer value");
  // Setting a value from the stored block itself must not read freed memory.
  ASSERT_EQ(DutLobeSet(&object, lobe, DutLobeFindValue(&object, lobe)), D_TRUE);
  ASSERT_EQ(DutLobeGet(&object, lobe, buffer), D_TRUE);
  EXPECT_STREQ(buffer, "a considerably longer value");
  DutLobeDelete(&object, lobe);
}

TEST(Lobe, CheckSetOnlySetsAnAbsentValueAndDeleteAnswersZero) {
  D_LOBE *lobe = DutLobeDeclare(kKeyBase + 5, sizeof(int));
  int object = 0, first = 1, second = 2, out = 0;
  EXPECT_EQ(DutLobeDelete(&object, lobe), 0);
  EXPECT_EQ(DutLobeCheckSet(&object, lobe, &first), D_TRUE);
  EXPECT_EQ(DutLobeCheckSet(&object, lobe, &second), D_FALSE);
  ASSERT_EQ(DutLobeGet(&object, lobe, &out), D_TRUE);
  EXPECT_EQ(out, 1);
  EXPECT_EQ(DutLobeDelete(&object, lobe), 0);
  out = -1;
  EXPECT_EQ(DutLobeGet(&object, lobe, &out), D_FALSE);
  EXPECT_EQ(out, -1);
}

TEST(Lobe, ClearRemovesTheObjectFromEveryLobeAndLeavesOthers) {
  D_LOBE *a = DutLobeDeclare(kKeyBase + 7, sizeof(int));
  D_LOBE *b = DutLobeStringDeclare(kKeyBase + 8);
  int object = 0, other = 0, v = 3;
  DutLobeSet(&object, a, &v);
  DutLobeSet(&object, b, "text");
  DutLobeSet(&other, a, &v);
  DutLobeClear(&object);
  EXPECT_EQ(DutLobeFindValue(&object, a), nullptr);
  EXPECT_EQ(DutLobeFindValue(&object, b), nullptr);
  EXPECT_NE(DutLobeFindValue(&other, a), nullptr);
  DutLobeClear(nullptr);  // nothing happens
  DutLobeDelete(&other, a);
}

D_WORD collect(D_WORD object, D_WORD value, void *arg) {
  auto *seen = static_cast<std::set<D_WORD> *>(arg);
  seen->insert(object);
  EXPECT_NE(value, 0);
  return 0;
}

D_WORD stopAtSecond(D_WORD, D_WORD, void *arg) {
  int *n = static_cast<int *>(arg);
  return ++*n == 2 ? 42 : 0;
}

TEST(Lobe, TraverseVisitsEveryObjectAndStopsOnNonZero) {
  D_LOBE *lobe = DutLobeDeclare(kKeyBase + 9, sizeof(int));
  int objects[3] = {};
  for (int i = 0; i < 3; ++i) DutLobeSet(&objects[i], lobe, &i);
  std::set<D_WORD> seen;
  EXPECT_EQ(DutLobeTraverse(lobe, collect, &seen), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(seen.size(), 3u);
  for (int &o : objects) EXPECT_TRUE(seen.count(reinterpret_cast<D_WORD>(&o)));
  int visits = 0;
  EXPECT_EQ(DutLobeTraverse(lobe, stopAtSecond, &visits), 42);
  EXPECT_EQ(visits, 2);
  for (int &o : objects) DutLobeDelete(&o, lobe);
}

TEST(LobeDeathTest, TraverseOfANullLobeIsAnAssertion) {
  DutLobeDeclare(kKeyBase + 10, 4);  // death tests run first: make the table
  VQTEST_EXPECT_ASSERTION(DutLobeTraverse(nullptr, stopAtSecond, nullptr), "lobe");
}

}  // namespace
