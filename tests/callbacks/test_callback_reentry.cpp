// Re-entrant list calls against a model of the calling rules: callbacks
// that call their own list again, create, destroy and re-prioritise
// callbacks and stop the call, in random scripts. The model keeps one call
// position per call in progress and adjusts them all on every insertion and
// removal; the library must call the same callbacks, at the same depths,
// in the same order. With memory tracing on, every call position is an
// allocation of its own, and the debug file shows each one.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

enum Act { kNothing, kRecurse, kDestroy, kCreate, kPriority, kStop, kActs };

struct Step {
  Act act;
  int target;    // callback id for destroy and priority
  D_INT2 value;  // the new priority
};

struct Script {
  std::vector<Step> steps;
  std::size_t taken = 0;
  int next_id = 0;
  std::string log;  // "id@depth " per callback called

  // Logs the callback called and answers what it does.
  Step take(int id, std::size_t depth) {
    log += std::to_string(id) + "@" + std::to_string(depth) + " ";
    return taken < steps.size() ? steps[taken++] : Step{kNothing, 0, 0};
  }
};

constexpr std::size_t kMaxDepth = 4;

// ---- The model's run ----------------------------------------------------------

// The calling rules on plain vectors.
struct Model {
  std::vector<std::pair<int, D_INT2>> cbs;  // id, priority, in calling order
  std::vector<int> next;                    // the next index of each call in progress, innermost last
  bool stop = false;

  auto find(int id) {
    return std::find_if(cbs.begin(), cbs.end(), [id](const auto &cb) { return cb.first == id; });
  }
  // After every callback of at least its priority.
  void insert(int id, D_INT2 p) {
    const auto at = std::find_if(cbs.begin(), cbs.end(), [p](const auto &cb) { return cb.second < p; });
    for (int &n : next) n += at - cbs.begin() < n;
    cbs.insert(at, {id, p});
  }
  void remove(int id) {
    const auto at = find(id);
    for (int &n : next) n -= at - cbs.begin() < n;
    cbs.erase(at);
  }

  void call(Script &s) {
    const std::size_t depth = next.size();
    next.push_back(0);
    stop = false;
    while (!stop && next[depth] < static_cast<int>(cbs.size())) {
      act(s, cbs[static_cast<std::size_t>(next[depth]++)].first);
    }
    next.pop_back();
  }
  void act(Script &s, int id) {
    const Step step = s.take(id, next.size());
    const bool known = find(step.target) != cbs.end();
    if (step.act == kRecurse && next.size() < kMaxDepth) call(s);
    if (step.act == kDestroy && known) remove(step.target);
    if (step.act == kCreate) insert(s.next_id++, 0);
    if (step.act == kPriority && known && find(step.target)->second != step.value) {
      remove(step.target);
      insert(step.target, step.value);
    }
    if (step.act == kStop) stop = true;
  }
};

// ---- The library's run --------------------------------------------------------

struct Run {
  D_CB_LIST *list;
  Script script;
  std::map<int, D_CB *> cbs;
};

Run *gRun = nullptr;

void libraryAct(void *, void *data, D_WORD arg) {
  Run &r = *gRun;
  const int id = static_cast<int>(arg);
  EXPECT_EQ(static_cast<D_CB_DATA *>(data)->cb, r.cbs.at(id));
  const std::size_t depth = static_cast<std::size_t>(DutCbListGetDepth(r.list));
  const Step step = r.script.take(id, depth);
  const auto target = r.cbs.find(step.target);
  const bool known = target != r.cbs.end();
  if (step.act == kRecurse && depth < kMaxDepth) DutCbListCall(r.list, nullptr, data);
  if (step.act == kDestroy && known) {
    EXPECT_EQ(DutCbDestroy(target->second), D_TRUE);
    r.cbs.erase(target);
  }
  if (step.act == kCreate) {
    const int created = r.script.next_id++;
    r.cbs[created] = DutCbListCbCreate(r.list, libraryAct, created);
  }
  if (step.act == kPriority && known) {
    EXPECT_EQ(DutCbSetPriority(target->second, static_cast<D_UINT2>(step.value)), D_TRUE);
  }
  if (step.act == kStop) {
    EXPECT_EQ(DutCbListStopCall(r.list), D_TRUE);
  }
}

// One random script, run by the model and by the library: the same
// callbacks at the same depths, and the same list afterwards.
void compareOne(std::mt19937 &rng, D_CB_TYPE *type, int round) {
  const int initial = 1 + static_cast<int>(rng() % 6);
  auto priority = [&] { return static_cast<D_INT2>(static_cast<int>(rng() % 5) - 2); };
  Script script;
  script.next_id = initial;
  for (int i = 0; i < 40; ++i) {
    const auto act = static_cast<Act>(rng() % kActs);
    script.steps.push_back({act, static_cast<int>(rng() % static_cast<unsigned>(initial + 4)), priority()});
  }
  Model model;
  Script modelled = script;
  Run run{DutCbListCreate(type, nullptr), script, {}};
  for (int i = 0; i < initial; ++i) {
    const D_INT2 p = priority();
    model.insert(i, p);
    run.cbs[i] = DutCbListCbCreate(run.list, libraryAct, i);
    DutCbSetPriority(run.cbs[i], static_cast<D_UINT2>(p));
  }
  gRun = &run;
  // Several top-level calls: each starts afresh, stopped or not.
  for (int call = 0; call < 3; ++call) {
    model.call(modelled);
    D_CB_DATA data{nullptr};
    EXPECT_EQ(DutCbListCall(run.list, nullptr, &data), D_TRUE);
    ASSERT_EQ(run.script.log, modelled.log) << "round " << round << ", top-level call " << call;
    ASSERT_EQ(DutCbListGetDepth(run.list), 0);
  }
  std::vector<std::pair<int, D_INT2>> after;
  DutCbListTraverse(
      run.list,
      [](D_CB_LIST *, D_CB *cb, void *out) -> D_WORD {
        static_cast<decltype(after) *>(out)->emplace_back(static_cast<int>(D_GCB_ARG(cb)), D_GCB_PRIORITY(cb));
        return 0;
      },
      &after);
  EXPECT_EQ(after, model.cbs) << "round " << round;
  gRun = nullptr;
  EXPECT_EQ(DutCbListDestroy(run.list), D_TRUE);
}

D_CB_TYPE *reentryType() {
  static D_CB_TYPE *type = DutCbTypeCreate(93001, "reentry");
  return type;
}

TEST(CallbackReentry, RandomScriptsFollowTheModel) {
  std::mt19937 rng(515);
  for (int round = 0; round < 1500; ++round) ASSERT_NO_FATAL_FAILURE(compareOne(rng, reentryType(), round));
}

// With memory tracing on, every call position is an allocation of its own,
// the outermost one included, and the debug lines show each.
D_CB_LIST *gNested = nullptr;

TEST(CallbackReentry, WithMemoryTracingEveryPositionIsTraced) {
  DutDebugClose();
  DutDebugOpen("stderr");
  unsigned char &tracing = DutGetDebugFlags()[D_DEBUG_MEMORY];
  gNested = DutCbListCreate(reentryType(), nullptr);
  DutCbListCbCreate(
      gNested,
      [](void *, void *data, D_WORD) {
        if (DutCbListGetDepth(gNested) == 1) DutCbListCall(gNested, nullptr, data);
      },
      0);
  tracing = 1;
  ::testing::internal::CaptureStderr();
  D_CB_DATA data{nullptr};
  DutCbListCall(gNested, nullptr, &data);
  tracing = 0;
  std::istringstream traced(::testing::internal::GetCapturedStderr());
  DutCbListDestroy(gNested);
  int allocated = 0, freed = 0;
  for (std::string line; std::getline(traced, line);) {
    allocated += line.rfind("D_MALLOC: node ", 0) == 0;
    freed += line.rfind("D_FREE: node ", 0) == 0;
  }
  EXPECT_EQ(allocated, 2);
  EXPECT_EQ(freed, 2);
}

}  // namespace
