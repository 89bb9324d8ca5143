// Calling callback lists: order, priorities, and every change a callback
// can make to the list it is being called from.
#include <gtest/gtest.h>

#include "cb_support.hpp"

namespace {

using cbtest::Action;
using cbtest::Data;
using cbtest::joined;
using cbtest::log;
using cbtest::run;
using cbtest::word;

class CallbackCalls : public ::testing::Test {
 protected:
  void SetUp() override {
    log().clear();
    static D_INT4 next_num = 5000;  // a fresh type per test, also in one process
    type_ = DutCbTypeCreate(++next_num, "calls");
    ASSERT_NE(type_, nullptr);
    list_ = DutCbListCreate(type_, &owner_);
    ASSERT_NE(list_, nullptr);
  }
  void TearDown() override {
    if (list_ != nullptr) DutCbListDestroy(list_);
  }
  D_CB *add(Action &a) { return DutCbListCbCreate(list_, run, word(a)); }
  void call() {
    Data data{nullptr, 0};
    ASSERT_EQ(DutCbListCall(list_, &owner_, &data), D_TRUE);
  }

  int owner_ = 0;
  D_CB_TYPE *type_ = nullptr;
  D_CB_LIST *list_ = nullptr;
};

TEST_F(CallbackCalls, CreationOrderAtEqualPriority) {
  Action a{"A", {}}, b{"B", {}}, c{"C", {}};
  add(a);
  add(b);
  add(c);
  call();
  EXPECT_EQ(joined(), "ABC");
}

TEST_F(CallbackCalls, PrioritiesGiveTheOrderACBD) {
  Action a{"A", {}}, b{"B", {}}, c{"C", {}}, d{"D", {}};
  D_CB *ca = add(a);
  D_CB *cb = add(b);
  D_CB *cc = add(c);
  D_CB *cd = add(d);
  EXPECT_EQ(DutCbSetPriority(ca, 5), D_TRUE);
  EXPECT_EQ(DutCbSetPriority(cb, 0), D_TRUE);
  EXPECT_EQ(DutCbSetPriority(cc, 5), D_TRUE);
  EXPECT_EQ(DutCbSetPriority(cd, static_cast<D_UINT2>(-1)), D_TRUE);
  D_INT2 p = 0;
  ASSERT_EQ(DutCbGetPriority(cd, &p), D_TRUE);
  EXPECT_EQ(p, -1) << "priorities are compared as signed";
  call();
  EXPECT_EQ(joined(), "ACBD");
}

TEST_F(CallbackCalls, SamePriorityDoesNotMoveOtherPriorityMovesBehindEquals) {
  Action a{"A", {}}, b{"B", {}}, c{"C", {}};
  D_CB *ca = add(a);
  add(b);
  add(c);
  EXPECT_EQ(DutCbSetPriority(ca, 0), D_TRUE);
  call();
  EXPECT_EQ(joined(), "ABC");
  log().clear();
  // Leaving and re-entering priority 0 puts A behind B and C.
  DutCbSetPriority(ca, 1);
  DutCbSetPriority(ca, 0);
  call();
  EXPECT_EQ(joined(), "BCA");
}

TEST_F(CallbackCalls, TheDataHeadHoldsTheCallbackBeingCalled) {
  std::vector<D_CB *> seen;
  Action a{"A", [&](D_CB *self, void *object) {
             seen.push_back(self);
             EXPECT_EQ(object, &owner_);
           }};
  Action b{"B", [&](D_CB *self, void *) { seen.push_back(self); }};
  D_CB *ca = add(a);
  D_CB *cb = add(b);
  call();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], ca);
  EXPECT_EQ(seen[1], cb);
}

TEST_F(CallbackCalls, DestroyingTheNextCallbackSkipsIt) {
  D_CB *victim = nullptr;
  Action a{"A", [&](D_CB *, void *) { DutCbDestroy(victim); }};
  Action b{"B", {}}, c{"C", {}};
  add(a);
  victim = add(b);
  add(c);
  call();
  EXPECT_EQ(joined(), "AC");
  EXPECT_EQ(D_GPA_COUNT(D_GCL_CURRLIST(list_)), 2);
}

TEST_F(CallbackCalls, DestroyingAnAlreadyCalledCallbackSkipsAndRepeatsNothing) {
  D_CB *first = nullptr;
  Action a{"A", {}};
  Action b{"B", [&](D_CB *, void *) {
             if (first != nullptr) DutCbDestroy(first);
             first = nullptr;
           }};
  Action c{"C", {}}, d{"D", {}};
  first = add(a);
  add(b);
  add(c);
  add(d);
  call();
  EXPECT_EQ(joined(), "ABCD");
  log().clear();
  call();
  EXPECT_EQ(joined(), "BCD");
}

TEST_F(CallbackCalls, ACallbackThatDestroysItselfLetsTheRestRun) {
  Action a{"A", {}};
  Action b{"B", [](D_CB *self, void *) { DutCbDestroy(self); }};
  Action c{"C", {}};
  add(a);
  add(b);
  add(c);
  call();
  EXPECT_EQ(joined(), "ABC");
  log().clear();
  call();
  EXPECT_EQ(joined(), "AC");
}

TEST_F(CallbackCalls, CreatedAfterTheCurrentPointIsCalledBeforeIsNot) {
  Action late{"L", {}};
  Action early{"E", {}};
  Action a{"A", [&](D_CB *, void *) {
             // Priority 0 appends (after the current point): called now.
             add(late);
             // Priority 9 goes to the front (before it): not called now.
             D_CB *e = add(early);
             DutCbSetPriority(e, 9);
           }};
  Action b{"B", {}};
  add(a);
  add(b);
  call();
  EXPECT_EQ(joined(), "ABL");
  log().clear();
  a.then = nullptr;
  call();
  EXPECT_EQ(joined(), "EABL");
}

TEST_F(CallbackCalls, PriorityMovedPastTheCurrentPointRunsAgainInTheSameCall) {
  D_CB *cc = nullptr;
  Action a{"A", [&](D_CB *self, void *) {
             // Moving itself to the end must not make B or C run twice.
             DutCbSetPriority(self, static_cast<D_UINT2>(-5));
           }};
  Action b{"B", {}};
  Action c{"C", {}};
  add(a);
  add(b);
  cc = add(c);
  (void)cc;
  call();
  // A moved behind C, after the current point: it runs again in this call.
  EXPECT_EQ(joined(), "ABCA");
}

TEST_F(CallbackCalls, NestedCallsOfTheSameListEachSeeEveryCallback) {
  int depth_seen = 0;
  bool nested = false;
  Action a{"A", [&](D_CB *, void *) {
             if (nested) return;
             nested = true;
             depth_seen = DutCbListGetDepth(list_);
             Data inner{nullptr, 0};
             log().push_back("(");
             DutCbListCall(list_, &owner_, &inner);
             log().push_back(")");
           }};
  Action b{"B", {}};
  add(a);
  add(b);
  EXPECT_EQ(DutCbListGetDepth(list_), 0);
  call();
  EXPECT_EQ(depth_seen, 1);
  EXPECT_EQ(joined(), "A(AB)B");
  EXPECT_EQ(DutCbListGetDepth(list_), 0);
}

TEST_F(CallbackCalls, DestroyInsideANestedCallAdjustsTheOuterCall) {
  D_CB *cc = nullptr;
  bool nested = false;
  Action a{"A", [&](D_CB *, void *) {
             if (nested) return;
             nested = true;
             Data inner{nullptr, 0};
             DutCbListCall(list_, &owner_, &inner);
           }};
  Action b{"B", [&](D_CB *, void *) {
             if (cc != nullptr) {
               DutCbDestroy(cc);
               cc = nullptr;
             }
           }};
  Action c{"C", {}};
  add(a);
  add(b);
  cc = add(c);
  call();
  // Outer A; inner A, B (destroys C); the outer call resumes at B and
  // does not reach the destroyed C.
  EXPECT_EQ(joined(), "AABB");
}

TEST_F(CallbackCalls, StopEndsThePassAfterTheRunningCallback) {
  Action a{"A", {}};
  Action b{"B", [&](D_CB *, void *) { EXPECT_EQ(DutCbListStopCall(list_), D_TRUE); }};
  Action c{"C", {}};
  add(a);
  add(b);
  add(c);
  EXPECT_EQ(DutCbListStopCall(list_), D_FALSE) << "an idle list cannot be stopped";
  call();
  EXPECT_EQ(joined(), "AB");
  log().clear();
  b.then = nullptr;
  call();
  EXPECT_EQ(joined(), "ABC") << "the next call starts afresh";
}

TEST_F(CallbackCalls, DestroyingTheListDuringACallIsDeferred) {
  D_CB_LIST *list = DutCbTypeCbListCreate(type_, &owner_);
  ASSERT_NE(list, nullptr);
  D_BOOL destroy_result = D_TRUE;
  Action a{"A", [&](D_CB *, void *) { destroy_result = DutCbListDestroy(list); }};
  Action b{"B", {}};
  DutCbListCbCreate(list, run, word(a));
  DutCbListCbCreate(list, run, word(b));
  Data data{nullptr, 0};
  ASSERT_EQ(DutCbListCall(list, &owner_, &data), D_TRUE);
  EXPECT_EQ(destroy_result, D_FALSE);
  EXPECT_EQ(joined(), "A");
  D_CB_LIST *found = nullptr;
  EXPECT_EQ(DutCbTypeGetCbList(type_, &owner_, &found), D_FALSE) << "the list is gone and unhooked";
}

TEST_F(CallbackCalls, APendingDestructionOfAGlobalListIsNeverCarriedOut) {
  Action a{"A", [&](D_CB *self, void *) {
             D_CB_LIST *l = nullptr;
             DutCbGetList(self, &l);
             DutCbListDestroy(l);
           }};
  Action b{"B", {}};
  ASSERT_NE(DutCbCreateGlobal(type_, run, word(a)), nullptr);
  ASSERT_NE(DutCbCreateGlobal(type_, run, word(b)), nullptr);
  Data data{nullptr, 0};
  DutCbTypeCall(type_, nullptr, &data);
  EXPECT_EQ(joined(), "A");
  ASSERT_NE(D_GCT_GLOBAL_LIST(type_), nullptr);
  EXPECT_EQ(D_GCL_DESTROY_PENDING(D_GCT_GLOBAL_LIST(type_)), 1);
  // Each later call runs only the first callback.
  log().clear();
  a.then = nullptr;
  DutCbTypeCall(type_, nullptr, &data);
  EXPECT_EQ(joined(), "A");
}

TEST_F(CallbackCalls, DestroyingAnIdleListFreesItsCallbacksUncalled) {
  Action a{"A", {}};
  D_CB_LIST *list = DutCbTypeCbListCreate(type_, &owner_);
  DutCbListCbCreate(list, run, word(a));
  EXPECT_EQ(DutCbListDestroy(list), D_TRUE);
  EXPECT_TRUE(log().empty());
  D_CB_LIST *found = nullptr;
  EXPECT_EQ(DutCbTypeGetCbList(type_, &owner_, &found), D_FALSE);
}

// ---- Type-level calls and merging -------------------------------------

class TypeCalls : public ::testing::Test {
 protected:
  void SetUp() override {
    log().clear();
    static D_INT4 next_num = 6000;
    type_ = DutCbTypeCreate(++next_num, "merged");
    ASSERT_NE(type_, nullptr);
  }
  D_CB *object(Action &a, D_INT2 priority = 0) {
    D_CB *cb = DutCbTypeCbCreate(type_, &owner_, run, word(a));
    if (priority != 0) DutCbSetPriority(cb, static_cast<D_UINT2>(priority));
    return cb;
  }
  D_CB *global(Action &a, D_INT2 priority = 0) {
    D_CB *cb = DutCbCreateGlobal(type_, run, word(a));
    if (priority != 0) DutCbSetPriority(cb, static_cast<D_UINT2>(priority));
    return cb;
  }
  void call() {
    Data data{nullptr, 0};
    ASSERT_EQ(DutCbTypeCall(type_, &owner_, &data), D_TRUE);
  }
  int owner_ = 0;
  D_CB_TYPE *type_ = nullptr;
};

TEST_F(TypeCalls, MergeOrdersByPriorityWithTheObjectFirstOnATie) {
  Action o1{"o1", {}}, o2{"o2", {}}, g1{"g1", {}}, g2{"g2", {}};
  object(o1, 3);
  object(o2, 0);
  global(g1, 3);
  global(g2, 1);
  call();
  EXPECT_EQ(joined(), "o1g1g2o2");
}

TEST_F(TypeCalls, StopDuringAMergeEndsBothLists) {
  Action o1{"o1", [](D_CB *self, void *) {
              D_CB_LIST *l = nullptr;
              DutCbGetList(self, &l);
              DutCbListStopCall(l);
            }};
  Action g1{"g1", {}}, o2{"o2", {}};
  object(o1, 5);
  global(g1, 4);
  object(o2, 0);
  call();
  EXPECT_EQ(joined(), "o1");
}

TEST_F(TypeCalls, StopOfTheGlobalListEndsTheRemainingGlobals) {
  Action g1{"g1", [](D_CB *self, void *) {
              D_CB_LIST *l = nullptr;
              DutCbGetList(self, &l);
              DutCbListStopCall(l);
            }};
  Action o1{"o1", {}}, g2{"g2", {}};
  object(o1, 9);
  global(g1, 1);
  global(g2, 0);
  call();
  EXPECT_EQ(joined(), "o1g1");
}

TEST_F(TypeCalls, GlobalFlagSelectsTheLists) {
  Action o{"o", {}}, g{"g", {}};
  object(o);
  global(g);
  DutCbTypeSetGlobFlag(type_, D_CB_GLOBAL_ONLY);
  call();
  EXPECT_EQ(joined(), "g");
  log().clear();
  DutCbTypeSetGlobFlag(type_, D_CB_NO_GLOBALS);
  call();
  EXPECT_EQ(joined(), "o");
  log().clear();
  DutCbTypeSetGlobFlag(type_, 7);
  cbtest::Capture capture;
  call();
  EXPECT_TRUE(log().empty());
  EXPECT_EQ(capture.text(), "WARNING: Unexpected global flag (7) in DutCbTypeCall\n");
}

TEST_F(TypeCalls, OnlyOneNonEmptyListIsCalledAlone) {
  Action o{"o", {}}, g{"g", {}};
  D_CB *cg = global(g);
  object(o);
  DutCbDestroy(cg);  // global list exists but is empty
  call();
  EXPECT_EQ(joined(), "o");
}

TEST_F(TypeCalls, DestroyingTheObjectListDuringAMergeSkipsItsCallbacks) {
  Action o1{"o1", [&](D_CB *self, void *) {
              D_CB_LIST *l = nullptr;
              DutCbGetList(self, &l);
              EXPECT_EQ(DutCbListDestroy(l), D_FALSE);
            }};
  Action o2{"o2", {}}, g1{"g1", {}}, g2{"g2", {}};
  object(o1, 5);
  object(o2, 2);
  global(g1, 3);
  global(g2, 1);
  call();
  EXPECT_EQ(joined(), "o1g1g2");
  D_CB_LIST *found = nullptr;
  EXPECT_EQ(DutCbTypeGetCbList(type_, &owner_, &found), D_FALSE);
}

TEST_F(TypeCalls, NumberedCallOfAnUnknownTypeIsSuccess) {
  Data data{nullptr, 0};
  EXPECT_EQ(DutCbTypeNumCbCall(987654, &owner_, &data), D_TRUE);
  Action o{"o", {}};
  object(o);
  EXPECT_EQ(DutCbTypeNumCbCall(D_GCT_NUM(type_), &owner_, &data), D_TRUE);
  EXPECT_EQ(joined(), "o");
  EXPECT_EQ(DutCbTypeNumCbCall(D_GCT_NUM(type_), &owner_, nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST_F(TypeCalls, ObjClearDestroysTheObjectList) {
  Action o{"o", {}};
  object(o);
  EXPECT_EQ(DutCbObjClear(type_, &owner_), D_TRUE);
  EXPECT_EQ(DutCbObjClear(type_, &owner_), D_FALSE);
  call();
  EXPECT_TRUE(log().empty());
  object(o);
  EXPECT_EQ(DutCbTypeNumObjClear(D_GCT_NUM(type_), &owner_), D_TRUE);
  EXPECT_EQ(DutCbTypeNumObjClear(D_GCT_NUM(type_), nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

}  // namespace
