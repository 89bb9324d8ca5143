// Callback types, lookups, argument errors, thresholds, quit callbacks and
// the exact texts of the dumps.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "cb_support.hpp"

namespace {

using cbtest::Action;
using cbtest::dumpSink;
using cbtest::dumpText;
using cbtest::OutputCapture;
using cbtest::run;
using cbtest::word;

std::string hex(const void *p) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%lx", static_cast<unsigned long>(reinterpret_cast<D_UWORD>(p)));
  return buf;
}

std::string hex(D_CB_FUNC f) { return hex(reinterpret_cast<void *>(f)); }

void other(void *, void *, D_WORD) {}

TEST(CallbackTypes, CreateLookupFlagsAndTraverse) {
  auto count = [](D_WORD, D_WORD, void *arg) -> D_WORD {
    ++*static_cast<int *>(arg);
    return 0;
  };
  int before = 0;
  EXPECT_EQ(DutCbTypeTraverse(count, &before), 0);

  D_CB_TYPE *t = DutCbTypeCreate(7001, "Alarm");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(DutCbTypeCreate(7001, "again"), nullptr);
  EXPECT_EQ(DutCbTypeNumLookup(7001), t);
  EXPECT_EQ(DutCbTypeLookup("aLARM"), t);
  EXPECT_EQ(DutCbTypeLookup("nothing"), nullptr);
  ASSERT_NE(DutCbTypeCreate(7002, nullptr), nullptr);
  EXPECT_EQ(DutCbTypeLookup(""), nullptr) << "unnamed types never match";
  EXPECT_NE(DutLobeLookup(static_cast<D_UINT4>(7001)), nullptr) << "each type has its lobe";
  int after = 0;
  DutCbTypeTraverse(count, &after);
  EXPECT_EQ(after, before + 2);

  D_INT4 v = -1;
  const char *name = nullptr;
  EXPECT_TRUE(DutCbTypeGetNum(t, &v) && v == 7001);
  EXPECT_TRUE(DutCbTypeGetName(t, &name) && std::string(name) == "Alarm");
  EXPECT_TRUE(DutCbTypeGetGlobFlag(t, &v) && v == D_CB_GLOBALS_OK);
  EXPECT_TRUE(DutCbTypeGetLocalFlag(t, &v) && v == D_CB_LOCAL_INDIRECT);
  EXPECT_FAILS(DutCbTypeSetLocalFlag(t, 2), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_EQ(DutCbTypeSetGlobFlag(t, 99), D_TRUE) << "any global flag is stored";
  EXPECT_FAILS(DutCbTypeGetNum(nullptr, &v), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCbTypeGetName(t, nullptr), D_FALSE, D_ERR_NULL_PTR);
}

TEST(CallbackLists, DuplicatesLookupsAccessorsAndNullArguments) {
  D_CB_TYPE *t = DutCbTypeCreate(7201, nullptr);
  int owner = 0;
  D_CB_LIST *l = DutCbListCreate(t, &owner);
  Action a{"A", {}};
  D_CB *cb = DutCbListCbCreate(l, run, word(a));
  ASSERT_NE(cb, nullptr);
  EXPECT_FAILS(DutCbListCbCreate(l, run, word(a)), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutCbListCbLookup(l, run, word(a)), cb);
  EXPECT_FAILS(DutCbListCbLookup(l, run, 12345), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutCbListCbCreate(l, nullptr, 0), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCbListCreate(nullptr, &owner), nullptr, D_ERR_NULL_PTR);
  D_CB_DATA data{nullptr};
  EXPECT_FAILS(DutCbListCall(nullptr, &owner, &data), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListDestroy(nullptr), D_FALSE);

  // A callback reaches its list, owner and type.
  void *got_owner = nullptr;
  D_CB_TYPE *got_type = nullptr;
  D_CB_LIST *got_list = nullptr;
  EXPECT_TRUE(DutCbListGetOwner(l, &got_owner) && got_owner == &owner);
  EXPECT_TRUE(DutCbListGetType(l, &got_type) && got_type == t);
  EXPECT_TRUE(DutCbGetList(cb, &got_list) && got_list == l);
  got_owner = nullptr;
  got_type = nullptr;
  EXPECT_TRUE(DutCbGetOwner(cb, &got_owner) && got_owner == &owner);
  EXPECT_TRUE(DutCbGetCbType(cb, &got_type) && got_type == t);

  // Changing a callback's argument or function refuses duplicates, its
  // own current argument included.
  D_CB *two = DutCbListCbCreate(l, run, 2);
  ASSERT_NE(two, nullptr);
  EXPECT_EQ(DutCbSetArgument(cb, word(a)), D_FALSE);
  EXPECT_EQ(DutCbSetArgument(cb, 2), D_FALSE);
  EXPECT_EQ(DutCbSetArgument(cb, 3), D_TRUE);
  D_WORD arg = 0;
  EXPECT_TRUE(DutCbGetArgument(cb, &arg) && arg == 3);
  EXPECT_EQ(DutCbSetFunction(two, run), D_FALSE);
  EXPECT_EQ(DutCbSetFunction(two, other), D_TRUE);
  D_CB_FUNC f = nullptr;
  EXPECT_TRUE(DutCbGetFunction(two, &f) && f == &other);
  EXPECT_FAILS(DutCbSetFunction(two, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListDestroy(l), D_TRUE);
}

TEST(CallbackLists, ThresholdsAreStoredAndWarnAsNotImplemented) {
  D_CB_LIST *l = DutCbListCreate(DutCbTypeCreate(7401, nullptr), nullptr);
  D_UINT2 v = 0;
  OutputCapture c;
  EXPECT_EQ(DutCbListSetStartThresh(l, 11), D_FALSE);
  EXPECT_EQ(DutCbListSetCurrentThresh(l, 12), D_FALSE);
  EXPECT_EQ(DutCbListGetStartThresh(l, &v), D_FALSE);
  EXPECT_EQ(v, 11);
  EXPECT_EQ(DutCbListGetCurrentThresh(l, &v), D_FALSE);
  EXPECT_EQ(v, 12);
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
  D_CB_TYPE *t = DutCbTypeCreate(7501, nullptr);
  int owner = 0;
  ASSERT_EQ(DutCbTypeSetLocalFlag(t, D_CB_LOCAL_DIRECT), D_TRUE);
  OutputCapture c;
  D_CB_LIST *l = nullptr;
  EXPECT_EQ(DutCbTypeGetCbList(t, &owner, &l), D_FALSE);
  EXPECT_EQ(DutCbTypeCbListCreate(t, &owner), nullptr);
  EXPECT_EQ(DutCbTypeCbCreate(t, &owner, run, 0), nullptr);
  EXPECT_FAILS(DutCbTypeCbLookup(t, &owner, run, 0), nullptr, D_ERR_TYPE_MISMATCH);
  EXPECT_EQ(c.Take(),
            "WARNING: DutCbTypeGetCbList: Attempted to look up local cblist, type: 7501\n"
            "WARNING: Attempted to use DutCbTypeCbLookup for local cb list (type: 7501)!\n");

  DutCbTypeSetGlobFlag(t, D_CB_NO_GLOBALS);
  EXPECT_FAILS(DutCbCreateGlobal(t, run, 0), nullptr, D_ERR_TYPE_MISMATCH);
  EXPECT_EQ(DutCbTypeCbCreate(t, nullptr, run, 0), nullptr) << "a null object means the global list";
}

TEST(CallbackLists, TypeLevelLookupAndDestroyByNumber) {
  D_CB_TYPE *t = DutCbTypeCreate(7601, nullptr);
  int owner = 0, stranger = 0;
  D_CB *local = DutCbTypeCbCreate(t, &owner, run, 5);
  D_CB *global = DutCbTypeCbCreate(t, nullptr, run, 5);
  ASSERT_TRUE(local && global);
  EXPECT_NE(local, global);
  EXPECT_EQ(DutCbTypeCbLookup(t, &owner, run, 5), local);
  EXPECT_EQ(DutCbTypeCbLookup(t, nullptr, run, 5), global);
  EXPECT_EQ(DutCbTypeNumCbLookup(7601, &owner, run, 5), local);
  EXPECT_EQ(DutCbTypeNumCbLookup(999999, &owner, run, 5), nullptr);
  EXPECT_EQ(DutCbTypeNumCbDestroy(7601, &owner, run, 5), D_TRUE);
  EXPECT_EQ(DutCbTypeCbLookup(t, &owner, run, 5), nullptr);
  EXPECT_EQ(DutCbTypeNumCbDestroy(7601, &owner, run, 5), D_FALSE);
  EXPECT_FAILS(DutCbTypeNumCbLookup(7601, &owner, nullptr, 5), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutCbTypeCbLookup(t, &stranger, run, 5), nullptr, D_ERR_DOESNT_EXIST);
}

TEST(QuitCallbacks, LookupBeforeAnyIsMissingThenGlobalOnly) {
  EXPECT_FAILS(DutQuitCbLookup(run, 1), nullptr, D_ERR_DOESNT_EXIST);
  D_CB *q = DutQuitCbCreate(run, 1);
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(DutQuitCbLookup(run, 1), q);
  D_CB_TYPE *t = DutCbTypeNumLookup(D_CB_TYPE_QUIT);
  ASSERT_NE(t, nullptr);
  EXPECT_STREQ(D_GCT_NAME(t), "quit");
  EXPECT_EQ(D_GCT_GLOB_FLAG(t), D_CB_GLOBAL_ONLY);
  EXPECT_FAILS(DutQuitCbCreate(run, 1), nullptr, D_ERR_ALREADY_EXISTS);
}

TEST(CallbackDumps, ExactTexts) {
  D_CB_TYPE *t = DutCbTypeCreate(7701, "dumped");
  int owner = 0;
  D_CB *a = DutCbTypeCbCreate(t, &owner, run, 0x10);
  D_CB *b = DutCbTypeCbCreate(t, &owner, other, 0x20);
  DutCbSetPriority(b, 3);
  D_CB_LIST *l = nullptr;
  ASSERT_EQ(DutCbTypeGetCbList(t, &owner, &l), D_TRUE);
  auto cb_text = [&](D_CB *cb, D_CB_FUNC f, const char *arg, int pri) {
    return "Cb dump of " + hex(cb) + " Func: " + hex(f) + ", arg: " + arg + "\n\tList: " + hex(l) +
           ", pri: " + std::to_string(pri) + " Owner: " + hex(&owner) + ", Type Num: 7701\n";
  };

  dumpText().clear();
  DutCbPrint(a, dumpSink);
  EXPECT_EQ(dumpText(), cb_text(a, run, "10", 0));
  dumpText().clear();
  DutCbPrintList(l, dumpSink);
  EXPECT_EQ(dumpText(), "Cb List Dump of " + hex(l) + " Owner: " + hex(&owner) +
                            ", Type: 7701\nCurrent List has 2 entries:\n\t1 - " +
                            cb_text(b, other, "20", 3) + "\t2 - " + cb_text(a, run, "10", 0) +
                            "Start thresh 0, current thresh: 0 Active: NO\n");

  dumpText().clear();
  DutCbPrintType(t, dumpSink);
  EXPECT_EQ(dumpText(), "Callback Type Dump at " + hex(t) +
                            ", Type Number: 7701\nCallback type name: dumped\nGlobal flag: globals_ok indirect\n");
  D_CB_TYPE *u = DutCbTypeCreate(7702, nullptr);
  DutCbTypeSetGlobFlag(u, 9);
  DutCbTypeSetLocalFlag(u, D_CB_LOCAL_DIRECT);
  dumpText().clear();
  DutCbPrintType(u, dumpSink);
  EXPECT_EQ(dumpText(), "Callback Type Dump at " + hex(u) +
                            ", Type Number: 7702\nCallback type name: Unnamed\nGlobal flag: direct\n");

  // During a call the list reports itself active.
  D_CB_LIST *busy = DutCbListCreate(t, nullptr);
  Action dump{"dump", [&](D_CB *, void *) {
                dumpText().clear();
                DutCbPrintList(busy, dumpSink);
              }};
  DutCbListCbCreate(busy, run, word(dump));
  D_CB_DATA data{nullptr};
  DutCbListCall(busy, nullptr, &data);
  EXPECT_NE(dumpText().find("Active: YES\n"), std::string::npos);
  DutCbListDestroy(busy);
}

TEST(CallbackDebug, InsertAndRemoveAreTracedWithTheDebugFlag) {
  D_CB_LIST *l = DutCbListCreate(DutCbTypeCreate(7901, nullptr), nullptr);
  DutGetDebugFlags()[D_DEBUG_CALLBACK] = 1;
  OutputCapture c;
  DutCbDestroy(DutCbListCbCreate(l, run, 1));
  DutGetDebugFlags()[D_DEBUG_CALLBACK] = 0;
  const std::string text = c.Take();
  EXPECT_EQ(text.rfind("After insert:\nCb List Dump of ", 0), 0u) << text;
  EXPECT_NE(text.find("After remove:\nCb List Dump of "), std::string::npos) << text;
  DutCbListDestroy(l);
}

}  // namespace
