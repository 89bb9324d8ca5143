// Callback types, lookups, argument errors, thresholds, quit callbacks and
// the exact texts of the dumps.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "cb_support.hpp"
#include "support/address_text.hpp"

namespace {

using namespace cbtest;
using vqtest::Captured;
using vqtest::OutputCapture;

using vqtest::Hex;

void other(void *, void *, D_WORD) {}

TEST(CallbackTypes, CreateLookupFlagsAndTraverse) {
  auto count = [](D_WORD, D_WORD, void *arg) -> D_WORD { return ++*static_cast<int *>(arg), 0; };
  int before = 0, after = 0;
  EXPECT_EQ(DutCbTypeTraverse(count, &before), 0);
  static int round = 0;  // each repeat names its own type
  const std::string alarm = "Alarm" + std::to_string(++round), other_case = "aLARM" + alarm.substr(5);
  D_CB_TYPE *t = freshType(alarm.c_str());
  const D_INT4 n = D_GCT_NUM(t);
  EXPECT_EQ(DutCbTypeCreate(n, "again"), nullptr);
  EXPECT_TRUE(DutCbTypeNumLookup(n) == t && DutCbTypeLookup(other_case.c_str()) == t && !DutCbTypeLookup("nothing"));
  ASSERT_NE(freshType(), nullptr);
  EXPECT_EQ(DutCbTypeLookup(""), nullptr) << "unnamed types never match";
  EXPECT_NE(DutLobeLookup(static_cast<D_UINT4>(n)), nullptr) << "each type has its lobe";
  DutCbTypeTraverse(count, &after);
  EXPECT_EQ(after, before + 2);

  D_INT4 num = -1, glob = -1, local = -1;
  const char *name = nullptr;
  ASSERT_TRUE(DutCbTypeGetNum(t, &num) && DutCbTypeGetName(t, &name) && DutCbTypeGetGlobFlag(t, &glob) &&
              DutCbTypeGetLocalFlag(t, &local));
  EXPECT_TRUE(num == n && name == alarm && glob == D_CB_GLOBALS_OK && local == D_CB_LOCAL_INDIRECT);
  EXPECT_FAILS(DutCbTypeSetLocalFlag(t, 2), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_EQ(DutCbTypeSetGlobFlag(t, 99), D_TRUE) << "any global flag is stored";
  EXPECT_FAILS(DutCbTypeGetNum(nullptr, &num), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCbTypeGetName(t, nullptr), D_FALSE, D_ERR_NULL_PTR);
}

TEST(CallbackLists, DuplicatesLookupsAccessorsAndNullArguments) {
  D_CB_TYPE *t = freshType();
  int owner = 0;
  D_CB_LIST *l = DutCbListCreate(t, &owner);
  D_CB *cb = DutCbListCbCreate(l, run, 1);
  EXPECT_FAILS(DutCbListCbCreate(l, run, 1), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutCbListCbLookup(l, run, 1), cb);
  EXPECT_FAILS(DutCbListCbLookup(l, run, 12345), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutCbListCbCreate(l, nullptr, 0), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCbListCreate(nullptr, &owner), nullptr, D_ERR_NULL_PTR);
  D_CB_DATA data{nullptr};
  EXPECT_FAILS(DutCbListCall(nullptr, &owner, &data), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListDestroy(nullptr), D_FALSE);

  // A callback reaches its list, owner and type.
  void *got_owner = nullptr, *cb_owner = nullptr;
  D_CB_TYPE *got_type = nullptr, *cb_type = nullptr;
  D_CB_LIST *got_list = nullptr;
  EXPECT_TRUE(DutCbListGetOwner(l, &got_owner) && DutCbListGetType(l, &got_type) && DutCbGetList(cb, &got_list) &&
              DutCbGetOwner(cb, &cb_owner) && DutCbGetCbType(cb, &cb_type));
  EXPECT_TRUE(got_owner == &owner && cb_owner == &owner && got_type == t && cb_type == t && got_list == l);

  // Changing a callback's argument or function refuses duplicates, its
  // own current argument included.
  D_CB *two = DutCbListCbCreate(l, run, 2);
  EXPECT_TRUE(!DutCbSetArgument(cb, 1) && !DutCbSetArgument(cb, 2) && DutCbSetArgument(cb, 3));
  EXPECT_TRUE(!DutCbSetFunction(two, run) && DutCbSetFunction(two, other));
  D_WORD arg = 0;
  D_CB_FUNC f = nullptr;
  EXPECT_TRUE(DutCbGetArgument(cb, &arg) && arg == 3 && DutCbGetFunction(two, &f) && f == &other);
  EXPECT_FAILS(DutCbSetFunction(two, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListDestroy(l), D_TRUE);
}

TEST(CallbackLists, ThresholdsAreStoredAndWarnAsNotImplemented) {
  D_CB_LIST *l = DutCbListCreate(freshType(), nullptr);
  D_UINT2 start = 0, current = 0;
  OutputCapture c;
  EXPECT_FALSE(DutCbListSetStartThresh(l, 11) || DutCbListSetCurrentThresh(l, 12) ||
               DutCbListGetStartThresh(l, &start) || DutCbListGetCurrentThresh(l, &current));
  EXPECT_TRUE(start == 11 && current == 12);
  EXPECT_EQ(c.Take(),
            "WARNING: DutCbListSetStartThresh not yet implemented\n"
            "WARNING: DutListSetCurrentThresh not yet implemented\n"
            "WARNING: DutCbListGetStartThresh not yet implemented\n"
            "WARNING: DutCbListGetCurrentThresh not yet implemented\n");
  EXPECT_FAILS(DutCbListGetStartThresh(l, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListSetStartThresh(nullptr, 1), D_FALSE);
  EXPECT_EQ(c.Take(), "") << "argument errors print nothing";
  DutCbListDestroy(l);
}

TEST(CallbackLists, DirectAndNoGlobalsTypesRefuseWhatTheyCannotDo) {
  D_CB_TYPE *t = freshType();
  const std::string n = std::to_string(D_GCT_NUM(t));
  int owner = 0;
  ASSERT_EQ(DutCbTypeSetLocalFlag(t, D_CB_LOCAL_DIRECT), D_TRUE);
  OutputCapture c;
  D_CB_LIST *l = nullptr;
  EXPECT_FALSE(DutCbTypeGetCbList(t, &owner, &l) || DutCbTypeCbListCreate(t, &owner) ||
               DutCbTypeCbCreate(t, &owner, run, 0));
  EXPECT_FAILS(DutCbTypeCbLookup(t, &owner, run, 0), nullptr, D_ERR_TYPE_MISMATCH);
  EXPECT_EQ(c.Take(),
            "WARNING: DutCbTypeGetCbList: Attempted to look up local cblist, type: " + n +
                "\nWARNING: Attempted to use DutCbTypeCbLookup for local cb list (type: " + n + ")!\n");
  DutCbTypeSetGlobFlag(t, D_CB_NO_GLOBALS);
  EXPECT_FAILS(DutCbCreateGlobal(t, run, 0), nullptr, D_ERR_TYPE_MISMATCH);
  EXPECT_EQ(DutCbTypeCbCreate(t, nullptr, run, 0), nullptr) << "a null object means the global list";
}

TEST(CallbackLists, TypeLevelLookupAndDestroyByNumber) {
  D_CB_TYPE *t = freshType();
  const D_INT4 n = D_GCT_NUM(t);
  int owner = 0, stranger = 0;
  D_CB *local = DutCbTypeCbCreate(t, &owner, run, 5), *global = DutCbTypeCbCreate(t, nullptr, run, 5);
  ASSERT_TRUE(local && global && local != global);
  EXPECT_TRUE(DutCbTypeCbLookup(t, &owner, run, 5) == local && DutCbTypeCbLookup(t, nullptr, run, 5) == global);
  EXPECT_TRUE(DutCbTypeNumCbLookup(n, &owner, run, 5) == local && !DutCbTypeNumCbLookup(999999, &owner, run, 5));
  EXPECT_EQ(DutCbTypeNumCbDestroy(n, &owner, run, 5), D_TRUE);
  EXPECT_EQ(DutCbTypeCbLookup(t, &owner, run, 5), nullptr);
  EXPECT_EQ(DutCbTypeNumCbDestroy(n, &owner, run, 5), D_FALSE);
  EXPECT_FAILS(DutCbTypeNumCbLookup(n, &owner, nullptr, 5), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCbTypeNumCbLookup(99999, &owner, 0, 5) || DutCbTypeNumObjClear(99999, 0), 0, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutCbTypeCbLookup(t, &stranger, run, 5), nullptr, D_ERR_DOESNT_EXIST);
}

TEST(QuitCallbacks, LookupBeforeAnyIsMissingThenGlobalOnly) {
  EXPECT_FAILS(DutQuitCbLookup(run, 1), nullptr, D_ERR_DOESNT_EXIST);
  D_CB *q = DutQuitCbCreate(run, 1);
  EXPECT_TRUE(q != nullptr && DutQuitCbLookup(run, 1) == q);
  D_CB_TYPE *t = DutCbTypeNumLookup(D_CB_TYPE_QUIT);
  ASSERT_NE(t, nullptr);
  EXPECT_STREQ(D_GCT_NAME(t), "quit");
  EXPECT_EQ(D_GCT_GLOB_FLAG(t), D_CB_GLOBAL_ONLY);
  EXPECT_FAILS(DutQuitCbCreate(run, 1), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutCbDestroy(q), D_TRUE);
}

// The dumps' texts; during a call the list reports itself active, and the
// debug flag traces inserts and removals.
TEST(CallbackDumps, ExactTexts) {
  D_CB_TYPE *t = freshType("dumped"), *u = freshType();
  const std::string n = std::to_string(D_GCT_NUM(t));
  int owner = 0;
  // b's argument is wider than 32 bits where words have more: it must come out whole.
  const D_WORD wide = vqtest::WideWord();
  D_CB *a = DutCbTypeCbCreate(t, &owner, run, 0x10), *b = DutCbTypeCbCreate(t, &owner, other, wide);
  DutCbSetPriority(b, 3);
  D_CB_LIST *l = nullptr;
  ASSERT_EQ(DutCbTypeGetCbList(t, &owner, &l), D_TRUE);
  auto cb_text = [&](D_CB *cb, D_CB_FUNC f, const std::string &arg, int pri) {
    return "Cb dump of " + Hex(cb) + " Func: " + Hex(f) + ", arg: " + arg + "\n\tList: " + Hex(l) +
           ", pri: " + std::to_string(pri) + " Owner: " + Hex(&owner) + ", Type Num: " + n + "\n";
  };
  auto dump = [](auto print, auto *what) {
    Captured().clear();
    print(what, vqtest::CapturePrint);
    return Captured();
  };
  EXPECT_EQ(dump(DutCbPrint, a), cb_text(a, run, "10", 0));
  EXPECT_EQ(dump(DutCbPrintList, l), "Cb List Dump of " + Hex(l) + " Owner: " + Hex(&owner) +
                                         ", Type: " + n + "\nCurrent List has 2 entries:\n\t1 - " +
                                         cb_text(b, other, Hex(wide), 3) + "\t2 - " + cb_text(a, run, "10", 0) +
                                         "Start thresh 0, current thresh: 0 Active: NO\n");
  EXPECT_EQ(dump(DutCbPrintType, t), "Callback Type Dump at " + Hex(t) + ", Type Number: " + n +
                                         "\nCallback type name: dumped\nGlobal flag: globals_ok indirect\n");
  DutCbTypeSetGlobFlag(u, 9);
  DutCbTypeSetLocalFlag(u, D_CB_LOCAL_DIRECT);
  EXPECT_EQ(dump(DutCbPrintType, u), "Callback Type Dump at " + Hex(u) + ", Type Number: " +
                                         std::to_string(D_GCT_NUM(u)) +
                                         "\nCallback type name: Unnamed\nGlobal flag: direct\n");

  D_CB_LIST *busy = DutCbListCreate(t, nullptr);
  // Its dump goes among the traced ones, which are made while it is idle.
  Action active{"dump", [&](D_CB *, void *) { DutCbPrintList(busy, vqtest::CapturePrint); }};
  DutGetDebugFlags()[D_DEBUG_CALLBACK] = 1;
  OutputCapture c;
  D_CB *traced = DutCbListCbCreate(busy, run, word(active));
  D_CB_DATA data{nullptr};
  DutCbListCall(busy, nullptr, &data);
  DutCbDestroy(traced);
  DutGetDebugFlags()[D_DEBUG_CALLBACK] = 0;
  const std::string text = c.Take();
  EXPECT_EQ(text.rfind("After insert:\nCb List Dump of ", 0), 0u) << text;
  EXPECT_NE(text.find("Active: YES\n"), std::string::npos) << text;
  EXPECT_NE(text.find("After remove:\nCb List Dump of "), std::string::npos) << text;
  DutCbListDestroy(busy);
}

}  // namespace
