// Calling callback lists: order, priorities, every change a callback can
// make to the list it is being called from, and type-level merged calls.
#include <gtest/gtest.h>

#include <deque>
#include <utility>
#include <vector>

#include "cb_support.hpp"

namespace {

using cbtest::Action;
using cbtest::calls;
using cbtest::listOf;
using cbtest::run;
using cbtest::word;
using Then = std::function<void(D_CB *, void *)>;

class CallbackCalls : public ::testing::Test {
 protected:
  void SetUp() override {
    static D_INT4 next_num = 5000;  // a fresh type per test
    type_ = DutCbTypeCreate(++next_num, "calls");
    ASSERT_NE(type_, nullptr);
    list_ = DutCbListCreate(type_, &owner_);
    ASSERT_NE(list_, nullptr);
  }
  void TearDown() override {
    // The object's own list (made by object()) is hung on owner_ as well.
    D_CB_LIST *object_list = nullptr;
    if (DutCbTypeGetCbList(type_, &owner_, &object_list) && object_list != list_) DutCbListDestroy(object_list);
    DutCbListDestroy(list_);
  }

  Action &act(const char *name, Then then) {
    actions_.push_back({name, std::move(then)});
    return actions_.back();
  }
  // A callback in the fixture's list, in the object's list, or global.
  D_CB *add(const char *name, Then then = {}) {
    return DutCbListCbCreate(list_, run, word(act(name, std::move(then))));
  }
  D_CB *object(const char *name, D_INT2 priority, Then then = {}) {
    return prioritised(DutCbTypeCbCreate(type_, &owner_, run, word(act(name, std::move(then)))),
                       priority);
  }
  D_CB *global(const char *name, D_INT2 priority, Then then = {}) {
    return prioritised(DutCbCreateGlobal(type_, run, word(act(name, std::move(then)))), priority);
  }
  // A callback body that destroys *target once, then forgets it.
  static Then destroyOnce(D_CB **target) {
    return [target](D_CB *, void *) {
      if (*target != nullptr) DutCbDestroy(*target);
      *target = nullptr;
    };
  }
  static D_CB *prioritised(D_CB *cb, D_INT2 priority) {
    if (priority != 0) {
      EXPECT_EQ(DutCbSetPriority(cb, static_cast<D_UINT2>(priority)), D_TRUE);
    }
    return cb;
  }

  // The names called by one call of the fixture's list or of the type.
  std::string call() {
    calls().clear();
    D_CB_DATA data{nullptr};
    EXPECT_EQ(DutCbListCall(list_, &owner_, &data), D_TRUE);
    return calls();
  }
  std::string typeCall() {
    calls().clear();
    D_CB_DATA data{nullptr};
    EXPECT_EQ(DutCbTypeCall(type_, &owner_, &data), D_TRUE);
    return calls();
  }

  int owner_ = 0;
  D_CB_TYPE *type_ = nullptr;
  D_CB_LIST *list_ = nullptr;
  std::deque<Action> actions_;
};

TEST_F(CallbackCalls, OrderFollowsPriorityThenInsertion) {
  // Priority changes applied in turn to callbacks A B C D, and the order.
  const struct {
    std::vector<std::pair<int, D_INT2>> changes;
    const char *expected;
  } cases[] = {
      {{}, "ABCD"},
      {{{0, 5}, {1, 0}, {2, 5}, {3, -1}}, "ACBD"},  // compared as signed
      {{{0, 0}}, "ABCD"},                           // the same priority does not move
      {{{0, 1}, {0, 0}}, "BCDA"},                   // re-entering goes behind equals
  };
  for (const auto &c : cases) {
    DutCbListDestroy(list_);
    list_ = DutCbListCreate(type_, &owner_);
    D_CB *cbs[] = {add("A"), add("B"), add("C"), add("D")};
    for (auto [index, priority] : c.changes) {
      EXPECT_EQ(DutCbSetPriority(cbs[index], static_cast<D_UINT2>(priority)), D_TRUE);
      D_INT2 stored = 0;
      ASSERT_EQ(DutCbGetPriority(cbs[index], &stored), D_TRUE);
      EXPECT_EQ(stored, priority);
    }
    EXPECT_EQ(call(), c.expected);
  }
}

TEST_F(CallbackCalls, TheDataHeadHoldsTheCallbackBeingCalled) {
  std::vector<D_CB *> seen;
  D_CB *a = add("A", [&](D_CB *self, void *object) {
    seen.push_back(self);
    EXPECT_EQ(object, &owner_);
  });
  D_CB *b = add("B", [&](D_CB *self, void *) { seen.push_back(self); });
  call();
  EXPECT_EQ(seen, (std::vector<D_CB *>{a, b}));
}

TEST_F(CallbackCalls, DestroyingOthersOrItselfDuringTheCall) {
  D_CB *victim = nullptr;
  add("A", destroyOnce(&victim));
  victim = add("B");
  add("C");
  EXPECT_EQ(call(), "AC");  // the next callback is skipped
  EXPECT_EQ(D_GPA_COUNT(D_GCL_CURRLIST(list_)), 2);

  // An already called one: nothing is skipped or repeated.
  D_CB *first = DutCbListCbLookup(list_, run, word(actions_[0]));
  add("D", destroyOnce(&first));
  add("E");
  EXPECT_EQ(call(), "ACDE");
  EXPECT_EQ(call(), "CDE");

  add("F", [](D_CB *self, void *) { DutCbDestroy(self); });
  add("G");
  EXPECT_EQ(call(), "CDEFG");
  EXPECT_EQ(call(), "CDEG");
}

TEST_F(CallbackCalls, CreatedAfterTheCurrentPointIsCalledBeforeIsNot) {
  bool armed = true;
  add("A", [&](D_CB *, void *) {
    if (!armed) return;
    armed = false;
    add("L");                // priority 0 appends, after the current point
    prioritised(add("E"), 9);  // priority 9 goes to the front, before it
  });
  add("B");
  EXPECT_EQ(call(), "ABL");
  EXPECT_EQ(call(), "EABL");
}

TEST_F(CallbackCalls, PriorityMovedPastTheCurrentPointRunsAgainInTheSameCall) {
  add("A", [](D_CB *self, void *) { DutCbSetPriority(self, static_cast<D_UINT2>(-5)); });
  add("B");
  add("C");
  // A moved behind C, after the current point; B and C are not repeated.
  EXPECT_EQ(call(), "ABCA");
}

TEST_F(CallbackCalls, NestedCallsOfTheSameList) {
  int depth_seen = 0;
  bool nested = false;
  D_CB *victim = nullptr;
  add("A", [&](D_CB *, void *) {
    if (nested) return;
    nested = true;
    depth_seen = DutCbListGetDepth(list_);
    D_CB_DATA inner{nullptr};
    calls() += "(";
    DutCbListCall(list_, &owner_, &inner);
    calls() += ")";
  });
  add("B", destroyOnce(&victim));
  EXPECT_EQ(DutCbListGetDepth(list_), 0);
  EXPECT_EQ(call(), "A(AB)B");
  EXPECT_EQ(depth_seen, 1);
  EXPECT_EQ(DutCbListGetDepth(list_), 0);

  // Inner B destroys C; the outer call resumes at B and does not reach C.
  nested = false;
  victim = add("C");
  EXPECT_EQ(call(), "A(AB)B");
}

TEST_F(CallbackCalls, StopEndsThePassAfterTheRunningCallback) {
  bool stop = true;
  add("A");
  add("B", [&](D_CB *, void *) {
    if (stop) {
      EXPECT_EQ(DutCbListStopCall(list_), D_TRUE);
    }
  });
  add("C");
  EXPECT_EQ(DutCbListStopCall(list_), D_FALSE) << "an idle list cannot be stopped";
  EXPECT_EQ(call(), "AB");
  stop = false;
  EXPECT_EQ(call(), "ABC") << "the next call starts afresh";
}

TEST_F(CallbackCalls, DestroyingAnObjectListIsDeferredDuringACall) {
  D_CB_LIST *list = DutCbTypeCbListCreate(type_, &owner_);
  ASSERT_NE(list, nullptr);
  D_BOOL destroyed = D_TRUE;
  DutCbListCbCreate(list, run, word(act("A", [&](D_CB *, void *) {
                      destroyed = DutCbListDestroy(list);
                    })));
  DutCbListCbCreate(list, run, word(act("B", {})));
  calls().clear();
  D_CB_DATA data{nullptr};
  ASSERT_EQ(DutCbListCall(list, &owner_, &data), D_TRUE);
  EXPECT_EQ(destroyed, D_FALSE);
  EXPECT_EQ(calls(), "A");
  D_CB_LIST *found = nullptr;
  EXPECT_EQ(DutCbTypeGetCbList(type_, &owner_, &found), D_FALSE) << "gone and unhooked";

  // An idle list goes at once, its callbacks uncalled.
  list = DutCbTypeCbListCreate(type_, &owner_);
  DutCbListCbCreate(list, run, word(act("Z", {})));
  EXPECT_EQ(DutCbListDestroy(list), D_TRUE);
  EXPECT_EQ(calls(), "A");
  EXPECT_EQ(DutCbTypeGetCbList(type_, &owner_, &found), D_FALSE);
}

TEST_F(CallbackCalls, APendingDestructionOfAGlobalListIsNeverCarriedOut) {
  bool destroy = true;
  global("A", 0, [&](D_CB *self, void *) {
    if (destroy) DutCbListDestroy(listOf(self));
  });
  global("B", 0);
  EXPECT_EQ(typeCall(), "A");
  ASSERT_NE(D_GCT_GLOBAL_LIST(type_), nullptr);
  EXPECT_EQ(D_GCL_DESTROY_PENDING(D_GCT_GLOBAL_LIST(type_)), 1);
  destroy = false;
  EXPECT_EQ(typeCall(), "A") << "each later call runs only the first callback";
}

// ---- Type-level calls and merging -------------------------------------

TEST_F(CallbackCalls, MergeOrdersByPriorityWithTheObjectFirstOnATie) {
  object("o1", 3);
  object("o2", 0);
  global("g1", 3);
  global("g2", 1);
  EXPECT_EQ(typeCall(), "o1g1g2o2");
}

TEST_F(CallbackCalls, StopDuringAMergeEndsBothListsOrTheRemainingGlobals) {
  auto stop = [](D_CB *self, void *) { DutCbListStopCall(listOf(self)); };
  object("o1", 5, stop);
  global("g1", 4);
  object("o2", 0);
  EXPECT_EQ(typeCall(), "o1");

  TearDown();
  SetUp();
  object("o1", 9);
  global("g1", 1, stop);
  global("g2", 0);
  EXPECT_EQ(typeCall(), "o1g1");
}

TEST_F(CallbackCalls, GlobalFlagSelectsTheLists) {
  object("o", 0);
  D_CB *g = global("g", 0);
  DutCbTypeSetGlobFlag(type_, D_CB_GLOBAL_ONLY);
  EXPECT_EQ(typeCall(), "g");
  DutCbTypeSetGlobFlag(type_, D_CB_NO_GLOBALS);
  EXPECT_EQ(typeCall(), "o");
  DutCbTypeSetGlobFlag(type_, 7);
  {
    cbtest::OutputCapture capture;
    EXPECT_EQ(typeCall(), "");
    EXPECT_EQ(capture.Take(), "WARNING: Unexpected global flag (7) in DutCbTypeCall\n");
  }
  // A global list that exists but is empty leaves the object's called alone.
  DutCbTypeSetGlobFlag(type_, D_CB_GLOBALS_OK);
  DutCbDestroy(g);
  EXPECT_EQ(typeCall(), "o");
}

TEST_F(CallbackCalls, DestroyingTheObjectListDuringAMergeSkipsItsCallbacks) {
  object("o1", 5, [](D_CB *self, void *) { EXPECT_EQ(DutCbListDestroy(listOf(self)), D_FALSE); });
  object("o2", 2);
  global("g1", 3);
  global("g2", 1);
  EXPECT_EQ(typeCall(), "o1g1g2");
  D_CB_LIST *found = nullptr;
  EXPECT_EQ(DutCbTypeGetCbList(type_, &owner_, &found), D_FALSE);
}

TEST_F(CallbackCalls, NumberedCallsAndObjectClearing) {
  D_CB_DATA data{nullptr};
  EXPECT_EQ(DutCbTypeNumCbCall(987654, &owner_, &data), D_TRUE) << "an unknown type is success";
  object("o", 0);
  calls().clear();
  EXPECT_EQ(DutCbTypeNumCbCall(D_GCT_NUM(type_), &owner_, &data), D_TRUE);
  EXPECT_EQ(calls(), "o");
  EXPECT_FAILS(DutCbTypeNumCbCall(D_GCT_NUM(type_), &owner_, nullptr), D_FALSE, D_ERR_NULL_PTR);

  EXPECT_EQ(DutCbObjClear(type_, &owner_), D_TRUE);
  EXPECT_EQ(DutCbObjClear(type_, &owner_), D_FALSE);
  EXPECT_EQ(typeCall(), "");
  object("o", 0);
  EXPECT_EQ(DutCbTypeNumObjClear(D_GCT_NUM(type_), &owner_), D_TRUE);
  EXPECT_EQ(typeCall(), "");
  EXPECT_FAILS(DutCbTypeNumObjClear(D_GCT_NUM(type_), nullptr), D_FALSE, D_ERR_NULL_PTR);
}

}  // namespace
