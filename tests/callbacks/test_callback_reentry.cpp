// Re-entrant list calls against a model of the calling rules: callbacks
// that call their own list again, create, destroy and re-prioritise
// callbacks and stop the call, in random scripts. The model keeps one call
// position per call in progress and adjusts them all on every insertion and
// removal; the library must call the same callbacks, at the same depths,
// in the same order. With memory tracing on, every call position is an
// allocation of its own, and the debug file shows each one.
#include <gtest/gtest.h>

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

// The calling rules on plain vectors.
class Model {
 public:
  std::vector<std::pair<int, D_INT2>> cbs;  // id, priority, in calling order
  std::vector<int *> positions;             // innermost last
  bool stop = false;

  int indexOf(int id) const {
    for (std::size_t i = 0; i < cbs.size(); ++i) {
      if (cbs[i].first == id) return static_cast<int>(i);
    }
    return -1;
  }

  void insert(int id, D_INT2 p) {
    int at = static_cast<int>(cbs.size());
    while (at > 0 && cbs[static_cast<std::size_t>(at - 1)].second < p) --at;
    cbs.insert(cbs.begin() + at, {id, p});
    for (int *next : positions) {
      if (at + 1 <= *next) ++*next;
    }
  }

  void remove(int id) {
    const int at = indexOf(id);
    cbs.erase(cbs.begin() + at);
    for (int *next : positions) {
      if (at < *next && *next >= 1) --*next;
    }
  }

  void setPriority(int id, D_INT2 p) {
    if (cbs[static_cast<std::size_t>(indexOf(id))].second == p) return;
    remove(id);
    insert(id, p);
  }
};

struct Script {
  std::vector<Step> steps;
  std::size_t taken = 0;
  int next_id = 0;
  std::string log;  // "id@depth " per callback called

  Step take() { return taken < steps.size() ? steps[taken++] : Step{kNothing, 0, 0}; }
};

constexpr int kMaxDepth = 4;

// ---- The model's run ----------------------------------------------------------

void modelCall(Model &m, Script &s);

void modelAct(Model &m, Script &s, int id) {
  s.log += std::to_string(id) + "@" + std::to_string(m.positions.size()) + " ";
  const Step step = s.take();
  switch (step.act) {
    case kRecurse:
      if (m.positions.size() < kMaxDepth) modelCall(m, s);
      break;
    case kDestroy:
      if (m.indexOf(step.target) >= 0) m.remove(step.target);
      break;
    case kCreate:
      m.insert(s.next_id++, 0);
      break;
    case kPriority:
      if (m.indexOf(step.target) >= 0) m.setPriority(step.target, step.value);
      break;
    case kStop:
      m.stop = true;
      break;
    default:
      break;
  }
}

void modelCall(Model &m, Script &s) {
  int next = 0;
  m.positions.push_back(&next);
  m.stop = false;
  while (next < static_cast<int>(m.cbs.size())) {
    const int id = m.cbs[static_cast<std::size_t>(next)].first;
    ++next;
    modelAct(m, s, id);
    if (m.stop) break;
  }
  m.positions.pop_back();
}

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
  r.script.log += std::to_string(id) + "@" + std::to_string(DutCbListGetDepth(r.list)) + " ";
  const Step step = r.script.take();
  auto target = r.cbs.find(step.target);
  switch (step.act) {
    case kRecurse:
      if (DutCbListGetDepth(r.list) < kMaxDepth) DutCbListCall(r.list, nullptr, data);
      break;
    case kDestroy:
      if (target != r.cbs.end()) {
        EXPECT_EQ(DutCbDestroy(target->second), D_TRUE);
        r.cbs.erase(target);
      }
      break;
    case kCreate: {
      const int created = r.script.next_id++;
      r.cbs[created] = DutCbListCbCreate(r.list, libraryAct, created);
      break;
    }
    case kPriority:
      if (target != r.cbs.end()) {
        EXPECT_EQ(DutCbSetPriority(target->second, static_cast<D_UINT2>(step.value)), D_TRUE);
      }
      break;
    case kStop:
      EXPECT_EQ(DutCbListStopCall(r.list), D_TRUE);
      break;
    default:
      break;
  }
}

// One random script, run by the model and by the library: the same
// callbacks at the same depths, and the same list afterwards.
void compareOne(std::mt19937 &rng, D_CB_TYPE *type, int round) {
  const int initial = 1 + static_cast<int>(rng() % 6);
  Script script;
  script.next_id = initial;
  for (int i = 0; i < 40; ++i) {
    const auto act = static_cast<Act>(rng() % kActs);
    script.steps.push_back({act, static_cast<int>(rng() % static_cast<unsigned>(initial + 4)),
                            static_cast<D_INT2>(static_cast<int>(rng() % 5) - 2)});
  }
  std::vector<D_INT2> priorities;
  for (int i = 0; i < initial; ++i) priorities.push_back(static_cast<D_INT2>(static_cast<int>(rng() % 5) - 2));

  Model model;
  Script modelled = script;
  for (int i = 0; i < initial; ++i) model.insert(i, priorities[static_cast<std::size_t>(i)]);
  Run run{DutCbListCreate(type, nullptr), script, {}};
  for (int i = 0; i < initial; ++i) {
    run.cbs[i] = DutCbListCbCreate(run.list, libraryAct, i);
    DutCbSetPriority(run.cbs[i], static_cast<D_UINT2>(priorities[static_cast<std::size_t>(i)]));
  }
  gRun = &run;
  // Several top-level calls: each starts afresh, stopped or not.
  for (int call = 0; call < 3; ++call) {
    modelCall(model, modelled);
    D_CB_DATA data{nullptr};
    EXPECT_EQ(DutCbListCall(run.list, nullptr, &data), D_TRUE);
    ASSERT_EQ(run.script.log, modelled.log) << "round " << round << ", top-level call " << call;
    ASSERT_EQ(DutCbListGetDepth(run.list), 0);
  }
  std::vector<std::pair<int, D_INT2>> after;
  DutCbListTraverse(
      run.list,
      [](D_CB_LIST *, D_CB *cb, void *out) -> D_WORD {
        D_WORD id = 0;
        D_INT2 p = 0;
        DutCbGetArgument(cb, &id);
        DutCbGetPriority(cb, &p);
        static_cast<std::vector<std::pair<int, D_INT2>> *>(out)->emplace_back(static_cast<int>(id), p);
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
  tracing = 1;
  ::testing::internal::CaptureStderr();
  gNested = DutCbListCreate(reentryType(), nullptr);
  DutCbListCbCreate(
      gNested,
      [](void *, void *data, D_WORD) {
        if (DutCbListGetDepth(gNested) == 1) DutCbListCall(gNested, nullptr, data);
      },
      0);
  const std::string made = ::testing::internal::GetCapturedStderr();
  ::testing::internal::CaptureStderr();
  D_CB_DATA data{nullptr};
  DutCbListCall(gNested, nullptr, &data);
  tracing = 0;
  std::istringstream traced(::testing::internal::GetCapturedStderr());
  DutCbListDestroy(gNested);
  EXPECT_NE(made.find("D_CALLOC: "), std::string::npos) << made;
  int allocated = 0, freed = 0;
  for (std::string line; std::getline(traced, line);) {
    allocated += line.rfind("D_MALLOC: node ", 0) == 0;
    freed += line.rfind("D_FREE: node ", 0) == 0;
  }
  EXPECT_EQ(allocated, 2);
  EXPECT_EQ(freed, 2);
}

}  // namespace
