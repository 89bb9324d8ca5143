// Calling callback lists: destroying a list from its own call, and
// type-level merged calls. Order by priority and changes a callback makes
// to its list while it is called are the re-entry model's subject.
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

#include "cb_support.hpp"

namespace {

using namespace cbtest;
using Then = std::function<void(D_CB *, void *)>;

class CallbackCalls : public ::testing::Test {
 protected:
  void SetUp() override {
    type_ = freshType("calls");
    list_ = DutCbListCreate(type_, &owner_);
    ASSERT_NE(list_, nullptr);
  }
  void TearDown() override {
    // The object's own list is hung on owner_ as well.
    D_CB_LIST *object_list = nullptr;
    if (DutCbTypeGetCbList(type_, &owner_, &object_list) && object_list != list_) DutCbListDestroy(object_list);
    DutCbListDestroy(list_);
  }
  void restart() {
    TearDown();
    SetUp();
  }

  // Makes the callbacks of `layout` in order, then gives them the priorities
  // it names: "A" goes in the fixture's list, "oA" in the object's, "gA" in
  // the global one; "A:1:0" sets 1, then 0. `then` says what a callback does
  // when called. Answers the first one made.
  D_CB *make(const std::string &layout, std::map<std::string, Then> then = {}) {
    std::vector<std::pair<D_CB *, std::string>> made;
    std::istringstream words(layout);
    for (std::string word; words >> word;) {
      std::string name = word.substr(0, word.find(':'));
      D_WORD arg = cbtest::word(actions_.emplace_back(Action{name, then[name]}));
      made.emplace_back(name[0] == 'o'   ? DutCbTypeCbCreate(type_, &owner_, run, arg)
                        : name[0] == 'g' ? DutCbCreateGlobal(type_, run, arg)
                                         : DutCbListCbCreate(list_, run, arg),
                        word.substr(name.size()));
    }
    for (auto &[cb, priorities] : made) {
      std::istringstream values(priorities);
      for (D_INT2 priority, stored = 0; values.ignore(1) && values >> priority;) {
        EXPECT_TRUE(DutCbSetPriority(cb, static_cast<D_UINT2>(priority)) && DutCbGetPriority(cb, &stored));
        EXPECT_EQ(stored, priority);
      }
    }
    return made.empty() ? nullptr : made[0].first;
  }

  // The names called by one call of a list (the fixture's by default), or
  // of the type when by_type is set.
  std::string call(D_CB_LIST *list = nullptr, bool by_type = false) {
    calls().clear();
    D_CB_DATA data{nullptr};
    EXPECT_EQ(by_type ? DutCbTypeCall(type_, &owner_, &data) : DutCbListCall(list ? list : list_, &owner_, &data),
              D_TRUE);
    return calls();
  }
  std::string typeCall() { return call(nullptr, true); }
  bool objectListGone() {
    D_CB_LIST *found = nullptr;
    return DutCbTypeGetCbList(type_, &owner_, &found) == D_FALSE;
  }

  int owner_ = 0;
  D_CB_TYPE *type_ = nullptr;
  D_CB_LIST *list_ = nullptr;
  std::deque<Action> actions_;
};

TEST_F(CallbackCalls, DestroyingAListDuringACall) {
  EXPECT_EQ(DutCbListStopCall(list_), D_FALSE) << "an idle list cannot be stopped";
  // An object's list is destroyed when the call ends, and unhooked; an
  // idle one at once, its callbacks uncalled.
  D_BOOL destroyed = D_TRUE;
  auto destroy = [&](D_CB *self, void *) { destroyed = DutCbListDestroy(listOf(self)); };
  D_CB_LIST *list = listOf(make("oA oB", {{"oA", destroy}}));
  EXPECT_EQ(call(list), "oA");
  EXPECT_TRUE(destroyed == D_FALSE && objectListGone());
  EXPECT_EQ(DutCbListDestroy(listOf(make("oZ"))), D_TRUE);
  EXPECT_TRUE(calls() == "oA" && objectListGone());

  // A global list's pending destruction is never carried out: each later
  // call runs only its first callback.
  bool once = true;
  make("gA gB", {{"gA", [&](D_CB *self, void *) {
                    if (std::exchange(once, false)) DutCbListDestroy(listOf(self));
                  }}});
  EXPECT_EQ(typeCall(), "gA");
  EXPECT_EQ(D_GCL_DESTROY_PENDING(D_GCT_GLOBAL_LIST(type_)), 1);
  EXPECT_EQ(typeCall(), "gA");
}

// ---- Type-level calls and merging -------------------------------------

// By priority, the object's first on a tie; the global flag picks the
// lists; stopping ends both lists, or the remaining globals; destroying the
// object's list skips its remaining callbacks.
TEST_F(CallbackCalls, MergeOrderFlagsStopsAndDestruction) {
  auto stop = [](D_CB *self, void *) { DutCbListStopCall(listOf(self)); };
  auto destroy = [](D_CB *self, void *) { EXPECT_EQ(DutCbListDestroy(listOf(self)), D_FALSE); };
  auto grow_and_stop = [&](D_CB *self, void *object) { make("o3"); stop(self, object); };
  const struct {
    const char *layout;
    D_INT4 flag;
    const char *acting;
    Then then;
    const char *expected;
  } cases[] = {
      {"o1:3 o2 g1:3 g2:1", D_CB_GLOBALS_OK, "", {}, "o1g1g2o2"},
      {"o1:3 o2 g1:3 g2:1", D_CB_GLOBAL_ONLY, "", {}, "g1g2"},
      {"o1:3 o2 g1:3 g2:1", D_CB_NO_GLOBALS, "", {}, "o1o2"},
      {"o1:5 g1:4 o2", D_CB_GLOBALS_OK, "o1", stop, "o1"},
      {"o1:9 g1:1 g2", D_CB_GLOBALS_OK, "g1", stop, "o1g1"},
      {"o1:9 g1:1", D_CB_GLOBALS_OK, "g1", grow_and_stop, "o1g1"},
      {"o1:5 o2:2 g1:3 g2:1", D_CB_GLOBALS_OK, "o1", destroy, "o1g1g2"},
  };
  for (const auto &c : cases) {
    restart();
    make(c.layout, {{c.acting, c.then}});
    DutCbTypeSetGlobFlag(type_, c.flag);
    EXPECT_EQ(typeCall(), c.expected) << c.layout << " " << c.flag;
  }
  EXPECT_TRUE(objectListGone());
  // Any other flag calls nothing; a global list that exists but is empty
  // leaves the object's called alone.
  restart();
  D_CB *g = make("gA oB");
  DutCbTypeSetGlobFlag(type_, 7);
  vqtest::OutputCapture capture;
  EXPECT_EQ(typeCall(), "");
  EXPECT_EQ(capture.Take(), "WARNING: Unexpected global flag (7) in DutCbTypeCall\n");
  DutCbTypeSetGlobFlag(type_, D_CB_GLOBALS_OK);
  DutCbDestroy(g);
  EXPECT_EQ(typeCall(), "oB");
}

TEST_F(CallbackCalls, NumberedCallsAndObjectClearing) {
  D_CB_DATA data{nullptr};
  EXPECT_EQ(DutCbTypeNumCbCall(987654, &owner_, nullptr), D_TRUE) << "an unknown type is success, whatever the data";
  make("oA");
  calls().clear();
  EXPECT_TRUE(DutCbTypeNumCbCall(D_GCT_NUM(type_), &owner_, &data) && calls() == "oA");
  EXPECT_FAILS(DutCbTypeNumCbCall(D_GCT_NUM(type_), &owner_, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_TRUE(DutCbObjClear(type_, &owner_) && !DutCbObjClear(type_, &owner_));
  EXPECT_EQ(typeCall(), "");
  make("oA");
  EXPECT_EQ(DutCbTypeNumObjClear(D_GCT_NUM(type_), &owner_), D_TRUE);
  EXPECT_EQ(typeCall(), "");
  EXPECT_FAILS(DutCbTypeNumObjClear(D_GCT_NUM(type_), nullptr), D_FALSE, D_ERR_NULL_PTR);
}

}  // namespace
