// Callback types, lookups, argument errors, thresholds, quit callbacks and
// the exact texts of the dumps.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "cb_support.hpp"

namespace {

using cbtest::Action;
using cbtest::Capture;
using cbtest::Data;
using cbtest::dumpSink;
using cbtest::dumpText;
using cbtest::run;
using cbtest::word;

std::string hex(const void *p) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%lx", static_cast<unsigned long>(reinterpret_cast<D_UWORD>(p)));
  return buf;
}

void other(void *, void *, D_WORD) {}

TEST(CallbackTypes, CreateLookupAndFlags) {
  D_CB_TYPE *t = DutCbTypeCreate(7001, "Alarm");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(DutCbTypeCreate(7001, "again"), nullptr);
  EXPECT_EQ(DutCbTypeNumLookup(7001), t);
  EXPECT_EQ(DutCbTypeLookup("aLARM"), t);
  EXPECT_EQ(DutCbTypeLookup("nothing"), nullptr);
  D_CB_TYPE *unnamed = DutCbTypeCreate(7002, nullptr);
  ASSERT_NE(unnamed, nullptr);
  EXPECT_EQ(DutCbTypeLookup(""), nullptr) << "unnamed types never match";

  D_INT4 v = -1;
  const char *name = nullptr;
  EXPECT_EQ(DutCbTypeGetNum(t, &v), D_TRUE);
  EXPECT_EQ(v, 7001);
  EXPECT_EQ(DutCbTypeGetName(t, &name), D_TRUE);
  EXPECT_STREQ(name, "Alarm");
  EXPECT_EQ(DutCbTypeGetGlobFlag(t, &v), D_TRUE);
  EXPECT_EQ(v, D_CB_GLOBALS_OK);
  EXPECT_EQ(DutCbTypeGetLocalFlag(t, &v), D_TRUE);
  EXPECT_EQ(v, D_CB_LOCAL_INDIRECT);
  EXPECT_EQ(DutCbTypeSetLocalFlag(t, 2), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(DutCbTypeSetGlobFlag(t, 99), D_TRUE) << "any global flag is stored";
  EXPECT_EQ(DutCbTypeGetNum(nullptr, &v), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbTypeGetName(t, nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_NE(DutLobeLookup(static_cast<D_UINT4>(7001)), nullptr) << "each type has its lobe";
}

D_WORD countTypes(D_WORD, D_WORD, void *arg) {
  ++*static_cast<int *>(arg);
  return 0;
}

TEST(CallbackTypes, TraverseVisitsEveryType) {
  int before = 0;
  EXPECT_EQ(DutCbTypeTraverse(countTypes, &before), 0);
  DutCbTypeCreate(7101, "a");
  DutCbTypeCreate(7102, "b");
  int after = 0;
  EXPECT_EQ(DutCbTypeTraverse(countTypes, &after), 0);
  EXPECT_EQ(after, before + 2);
}

TEST(CallbackLists, DuplicatesLookupsAndNullArguments) {
  D_CB_TYPE *t = DutCbTypeCreate(7201, nullptr);
  int owner = 0;
  D_CB_LIST *l = DutCbListCreate(t, &owner);
  Action a{"A", {}};
  D_CB *cb = DutCbListCbCreate(l, run, word(a));
  ASSERT_NE(cb, nullptr);
  EXPECT_EQ(DutCbListCbCreate(l, run, word(a)), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutCbListCbLookup(l, run, word(a)), cb);
  EXPECT_EQ(DutCbListCbLookup(l, run, 12345), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(DutCbListCbCreate(l, nullptr, 0), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListCreate(nullptr, &owner), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  Data data{nullptr, 0};
  EXPECT_EQ(DutCbListCall(nullptr, &owner, &data), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListDestroy(nullptr), D_FALSE);

  void *got_owner = nullptr;
  D_CB_TYPE *got_type = nullptr;
  D_CB_LIST *got_list = nullptr;
  EXPECT_EQ(DutCbListGetOwner(l, &got_owner), D_TRUE);
  EXPECT_EQ(got_owner, &owner);
  EXPECT_EQ(DutCbListGetType(l, &got_type), D_TRUE);
  EXPECT_EQ(got_type, t);
  EXPECT_EQ(DutCbGetList(cb, &got_list), D_TRUE);
  EXPECT_EQ(got_list, l);
  EXPECT_EQ(DutCbGetOwner(cb, &got_owner), D_TRUE);
  EXPECT_EQ(got_owner, &owner);
  EXPECT_EQ(DutCbGetCbType(cb, &got_type), D_TRUE);
  EXPECT_EQ(got_type, t);
  EXPECT_EQ(DutCbListDestroy(l), D_TRUE);
}

TEST(CallbackLists, ArgumentAndFunctionChangesRefuseDuplicates) {
  D_CB_TYPE *t = DutCbTypeCreate(7301, nullptr);
  int owner = 0;
  D_CB_LIST *l = DutCbListCreate(t, &owner);
  D_CB *one = DutCbListCbCreate(l, run, 1);
  D_CB *two = DutCbListCbCreate(l, run, 2);
  ASSERT_NE(one, nullptr);
  ASSERT_NE(two, nullptr);
  EXPECT_EQ(DutCbSetArgument(one, 1), D_FALSE) << "its own current argument counts as a duplicate";
  EXPECT_EQ(DutCbSetArgument(one, 2), D_FALSE);
  EXPECT_EQ(DutCbSetArgument(one, 3), D_TRUE);
  D_WORD arg = 0;
  EXPECT_EQ(DutCbGetArgument(one, &arg), D_TRUE);
  EXPECT_EQ(arg, 3);
  EXPECT_EQ(DutCbSetFunction(two, run), D_FALSE);
  EXPECT_EQ(DutCbSetFunction(two, other), D_TRUE);
  D_CB_FUNC f = nullptr;
  EXPECT_EQ(DutCbGetFunction(two, &f), D_TRUE);
  EXPECT_EQ(f, &other);
  EXPECT_EQ(DutCbSetFunction(two, nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutCbListDestroy(l);
}

TEST(CallbackLists, ThresholdsAreStoredAndWarnAsNotImplemented) {
  D_CB_TYPE *t = DutCbTypeCreate(7401, nullptr);
  D_CB_LIST *l = DutCbListCreate(t, nullptr);
  D_UINT2 v = 0;
  {
    Capture c;
    EXPECT_EQ(DutCbListSetStartThresh(l, 11), D_FALSE);
    EXPECT_EQ(DutCbListSetCurrentThresh(l, 12), D_FALSE);
    EXPECT_EQ(DutCbListGetStartThresh(l, &v), D_FALSE);
    EXPECT_EQ(v, 11);
    EXPECT_EQ(DutCbListGetCurrentThresh(l, &v), D_FALSE);
    EXPECT_EQ(v, 12);
    EXPECT_EQ(c.text(),
              "WARNING: DutCbListSetStartThresh not yet implemented\n"
              "WARNING: DutListSetCurrentThresh not yet implemented\n"
              "WARNING: DutCbListGetStartThresh not yet implemented\n"
              "WARNING: DutCbListGetCurrentThresh not yet implemented\n");
  }
  Capture c;
  EXPECT_EQ(DutCbListGetStartThresh(l, nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutCbListSetStartThresh(nullptr, 1), D_FALSE);
  EXPECT_EQ(c.text(), "") << "argument errors print nothing";
  DutCbListDestroy(l);
}

TEST(CallbackLists, DirectAndNoGlobalsTypesRefuseWhatTheyCannotDo) {
  D_CB_TYPE *t = DutCbTypeCreate(7501, nullptr);
  int owner = 0;
  ASSERT_EQ(DutCbTypeSetLocalFlag(t, D_CB_LOCAL_DIRECT), D_TRUE);
  Capture c;
  D_CB_LIST *l = nullptr;
  EXPECT_EQ(DutCbTypeGetCbList(t, &owner, &l), D_FALSE);
  EXPECT_EQ(DutCbTypeCbListCreate(t, &owner), nullptr);
  EXPECT_EQ(DutCbTypeCbCreate(t, &owner, run, 0), nullptr);
  EXPECT_EQ(DutCbTypeCbLookup(t, &owner, run, 0), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_MISMATCH);
  EXPECT_EQ(c.text(),
            "WARNING: DutCbTypeGetCbList: Attempted to look up local cblist, type: 7501\n"
            "WARNING: Attempted to use DutCbTypeCbLookup for local cb list (type: 7501)!\n");

  DutCbTypeSetGlobFlag(t, D_CB_NO_GLOBALS);
  EXPECT_EQ(DutCbCreateGlobal(t, run, 0), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_MISMATCH);
  EXPECT_EQ(DutCbTypeCbCreate(t, nullptr, run, 0), nullptr) << "a null object means the global list";
}

TEST(CallbackLists, TypeLevelLookupAndDestroyByNumber) {
  D_CB_TYPE *t = DutCbTypeCreate(7601, nullptr);
  int owner = 0;
  D_CB *local = DutCbTypeCbCreate(t, &owner, run, 5);
  D_CB *global = DutCbTypeCbCreate(t, nullptr, run, 5);
  ASSERT_NE(local, nullptr);
  ASSERT_NE(global, nullptr);
  EXPECT_NE(local, global);
  EXPECT_EQ(DutCbTypeCbLookup(t, &owner, run, 5), local);
  EXPECT_EQ(DutCbTypeCbLookup(t, nullptr, run, 5), global);
  EXPECT_EQ(DutCbTypeNumCbLookup(7601, &owner, run, 5), local);
  EXPECT_EQ(DutCbTypeNumCbLookup(999999, &owner, run, 5), nullptr);
  EXPECT_EQ(DutCbTypeNumCbDestroy(7601, &owner, run, 5), D_TRUE);
  EXPECT_EQ(DutCbTypeCbLookup(t, &owner, run, 5), nullptr);
  EXPECT_EQ(DutCbTypeNumCbDestroy(7601, &owner, run, 5), D_FALSE);
  EXPECT_EQ(DutCbTypeNumCbLookup(7601, &owner, nullptr, 5), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  int stranger = 0;
  EXPECT_EQ(DutCbTypeCbLookup(t, &stranger, run, 5), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
}

TEST(QuitCallbacks, LookupBeforeAnyIsMissingThenGlobalOnly) {
  EXPECT_EQ(DutQuitCbLookup(run, 1), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  D_CB *q = DutQuitCbCreate(run, 1);
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(DutQuitCbLookup(run, 1), q);
  D_CB_TYPE *t = DutCbTypeNumLookup(D_CB_TYPE_QUIT);
  ASSERT_NE(t, nullptr);
  EXPECT_STREQ(D_GCT_NAME(t), "quit");
  EXPECT_EQ(D_GCT_GLOB_FLAG(t), D_CB_GLOBAL_ONLY);
  EXPECT_EQ(DutQuitCbCreate(run, 1), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
}

TEST(CallbackDumps, ExactTexts) {
  D_CB_TYPE *t = DutCbTypeCreate(7701, "dumped");
  int owner = 0;
  D_CB *a = DutCbTypeCbCreate(t, &owner, run, 0x10);
  D_CB *b = DutCbTypeCbCreate(t, &owner, other, 0x20);
  DutCbSetPriority(b, 3);
  D_CB_LIST *l = nullptr;
  ASSERT_EQ(DutCbTypeGetCbList(t, &owner, &l), D_TRUE);

  dumpText().clear();
  DutCbPrint(a, dumpSink);
  EXPECT_EQ(dumpText(), "Cb dump of " + hex(a) + " Func: " + hex(reinterpret_cast<void *>(&run)) +
                            ", arg: 10\n\tList: " + hex(l) + ", pri: 0 Owner: " + hex(&owner) + ", Type Num: 7701\n");

  dumpText().clear();
  DutCbPrintList(l, dumpSink);
  std::string expected = "Cb List Dump of " + hex(l) + " Owner: " + hex(&owner) +
                         ", Type: 7701\nCurrent List has 2 entries:\n\t1 - Cb dump of " + hex(b) +
                         " Func: " + hex(reinterpret_cast<void *>(&other)) + ", arg: 20\n\tList: " + hex(l) +
                         ", pri: 3 Owner: " + hex(&owner) + ", Type Num: 7701\n\t2 - Cb dump of " + hex(a) +
                         " Func: " + hex(reinterpret_cast<void *>(&run)) + ", arg: 10\n\tList: " + hex(l) +
                         ", pri: 0 Owner: " + hex(&owner) +
                         ", Type Num: 7701\nStart thresh 0, current thresh: 0 Active: NO\n";
  EXPECT_EQ(dumpText(), expected);

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
}

TEST(CallbackDumps, ListReportsActiveDuringACall) {
  D_CB_TYPE *t = DutCbTypeCreate(7801, nullptr);
  D_CB_LIST *l = DutCbListCreate(t, nullptr);
  Action a{"A", [&](D_CB *, void *) {
             dumpText().clear();
             DutCbPrintList(l, dumpSink);
           }};
  DutCbListCbCreate(l, run, word(a));
  Data data{nullptr, 0};
  DutCbListCall(l, nullptr, &data);
  EXPECT_NE(dumpText().find("Active: YES\n"), std::string::npos);
  DutCbListDestroy(l);
}

TEST(CallbackDebug, InsertAndRemoveAreTracedWithTheDebugFlag) {
  D_CB_TYPE *t = DutCbTypeCreate(7901, nullptr);
  D_CB_LIST *l = DutCbListCreate(t, nullptr);
  DutGetDebugFlags()[D_DEBUG_CALLBACK] = 1;
  Capture c;
  D_CB *cb = DutCbListCbCreate(l, run, 1);
  DutCbDestroy(cb);
  DutGetDebugFlags()[D_DEBUG_CALLBACK] = 0;
  EXPECT_EQ(c.text().rfind("After insert:\nCb List Dump of ", 0), 0u);
  EXPECT_NE(c.text().find("After remove:\nCb List Dump of "), std::string::npos);
  DutCbListDestroy(l);
}

}  // namespace
