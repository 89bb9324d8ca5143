// The type registry: life before initialisation, numbering, both lookups
// with their range errors, the kept duplicate-name behaviour, traversal and
// sorting against the number array, and readers on several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "rwmutex/rw_support.hpp"
#include "support/child_process.hpp"
#include "support/output_capture.hpp"
#include "vqutil/memory.h"
#include "vqutil/type.h"

namespace {

// Types outlive a test: names carry the run, so repeated runs in one
// process do not meet their own names.
int run = 0;
std::string N(const std::string &stem) { return stem + "_" + std::to_string(run); }

void Start() {
  ++run;
  EXPECT_TRUE(DutTypeInitialize() == D_TRUE || DutErrNumGet() == D_ERR_ALREADY_EXISTS);
}

// What sorting must give: each name's first type, in number order.
std::vector<D_TYPE *> Model() {
  std::vector<D_TYPE *> model;
  for (D_INT4 n = 1; D_TYPE *type = DutTypeLookupByNum(n); ++n)
    if (DutTypeLookup(type->name) == type) model.push_back(type);
  return model;
}

std::vector<D_TYPE *> Sorted() {
  D_INT4 count = 0;
  D_TYPE **array = DutTypeSortByNum(&count);
  std::vector<D_TYPE *> sorted(array, array + count);
  DutFreeCheck(array, "array", __FILE__, __LINE__);
  return sorted;
}

D_WORD Count(D_WORD, D_WORD, void *visits) {
  ++*static_cast<size_t *>(visits);
  return 0;
}

TEST(RegistryType, FreshProcessRefusesAllUntilInitialisedOnce) {
  vqtest::RunInChild("threadsafe", [] {  // a process that never saw the registry
    D_INT4 count = 7;
    EXPECT_FAILS(DutTypeCreate("a"), nullptr, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeLookup("a"), nullptr, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeLookupByNum(0), nullptr, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeTraverse(Count, &count), 0, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeSortByNum(&count), nullptr, D_ERR_NULL_PTR);
    EXPECT_EQ(count, 0);
    ASSERT_EQ(DutTypeInitialize(), D_TRUE);
    D_TYPE *first = DutTypeCreate("first");
    EXPECT_EQ(first->num, 1);
    EXPECT_FAILS(DutTypeInitialize(), D_FALSE, D_ERR_ALREADY_EXISTS);
    EXPECT_EQ(DutTypeLookup("FIRST"), first);  // both tables kept
    EXPECT_EQ(DutTypeCreate("second")->num, 2);
  });
}

TEST(RegistryType, LookupsByNameAndNumberWithTheKeptDuplicate) {
  Start();
  D_TYPE *alpha = DutTypeCreate(N("alpha").c_str());
  D_TYPE *beta = DutTypeCreate(N("Beta").c_str());
  vqtest::OutputCapture capture;
  D_TYPE *again = DutTypeCreate(N("ALPHA").c_str());  // the next number, but the name finds alpha
  EXPECT_NE(capture.Take().find("key " + N("ALPHA") + " already exists"), std::string::npos);
  EXPECT_EQ(beta->num, alpha->num + 1);
  EXPECT_EQ(again->num, beta->num + 1);
  const D_INT4 last = again->num;
  struct Row {
    std::string name;  // empty: by number
    D_INT4 num;
    D_TYPE *expected;
    D_INT4 error;
  };
  for (const Row &row : {Row{N("alpha"), 0, alpha, 0}, Row{N("BETA"), 0, beta, 0}, Row{N("ALPHA"), 0, alpha, 0},
                         Row{N("gamma"), 0, nullptr, D_ERR_DOESNT_EXIST}, Row{"", 0, nullptr, D_ERR_VAL_TOO_SMALL},
                         Row{"", last, again, 0}, Row{"", last + 1, nullptr, D_ERR_VAL_TOO_LARGE},
                         Row{"", -1, nullptr, D_ERR_VAL_TOO_LARGE}, Row{"", INT_MIN, nullptr, D_ERR_VAL_TOO_LARGE}}) {
    SCOPED_TRACE(row.name + " " + std::to_string(row.num));
    EXPECT_FAILS(row.name.empty() ? DutTypeLookupByNum(row.num) : DutTypeLookup(row.name.c_str()), row.expected,
                 row.error);
  }
  EXPECT_FAILS(DutTypeLookup(nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutTypeTraverse(nullptr, nullptr), 0, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutTypeSortByNum(nullptr), nullptr, D_ERR_NULL_PTR);
}

void ReturnHere() {}
void AssignHere() {}

// Each setter writes its own fields and the getters read them back; a null
// type or result pointer is refused with the null-pointer error.
TEST(RegistryType, GettersAndSettersKeepTheirOwnFields) {
  Start();
  D_TYPE *t = DutTypeCreate(N("fields").c_str());
  ASSERT_TRUE(DutTypeSetReturnFunc(t, ReturnHere, 11) && DutTypeSetAssignFunc(t, AssignHere) &&
              DutTypeSetUserArg(t, 22));
  const char *name = nullptr;
  D_INT4 num = 0;
  D_WORD user = 0, arg = 0;
  D_TYPE_FUNC func = nullptr;
  ASSERT_TRUE(DutTypeGetName(t, &name) && DutTypeGetNum(t, &num) && DutTypeGetUserArg(t, &user) &&
              DutTypeGetReturnFunc(t, &func, &arg));
  EXPECT_EQ(std::tuple(name, num, user, func, arg, t->assign_func),
            std::tuple(t->name, t->num, D_WORD{22}, &ReturnHere, D_WORD{11}, &AssignHere));
  const std::function<D_BOOL()> refusals[] = {
      [&] { return DutTypeGetName(nullptr, &name); }, [&] { return DutTypeGetNum(t, nullptr); },
      [&] { return DutTypeGetUserArg(t, nullptr); }, [&] { return DutTypeGetReturnFunc(t, &func, nullptr); },
      [] { return DutTypeSetReturnFunc(nullptr, ReturnHere, 0); },
      [] { return DutTypeSetAssignFunc(nullptr, AssignHere); }, [] { return DutTypeSetUserArg(nullptr, 1); }};
  for (const auto &refused : refusals) EXPECT_FAILS(refused(), D_FALSE, D_ERR_NULL_PTR);
}

// Registration is over before the readers start; each then asks by name in
// its own spelling, by number, traverses and sorts, against the number
// array's model.
TEST(RegistryTypeThreads, ReadersOnSeveralThreadsSeeOneRegistry) {
  Start();
  std::vector<D_TYPE *> mine;  // past the tables' first 32 entries
  for (int i = 0; i < 64; ++i) mine.push_back(DutTypeCreate(N("thr" + std::to_string(i)).c_str()));
  const std::vector<D_TYPE *> model = Model();
  size_t visits = 0;
  EXPECT_FAILS(DutTypeTraverse(Count, &visits), 0, D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(visits, model.size());
  EXPECT_EQ(Sorted(), model);
  std::atomic<bool> go{false};
  std::vector<std::unique_ptr<rwtest::LibThread>> readers;
  for (int t = 0; t < 4; ++t) {
    readers.push_back(std::make_unique<rwtest::LibThread>([&, t]() -> D_WORD {
      while (!go.load()) DutWinSleep(0.0);
      D_WORD wrong = 0;
      for (int round = 0; round < 20; ++round) {
        for (size_t i = 0; i < mine.size(); ++i) {
          wrong += DutTypeLookup(N((t % 2 ? "THR" : "thr") + std::to_string(i)).c_str()) != mine[i];
          wrong += DutTypeLookupByNum(mine[i]->num) != mine[i];
        }
        size_t visits = 0;
        DutTypeTraverse(Count, &visits);
        wrong += visits != model.size() || Sorted() != model;
      }
      return wrong;
    }));
  }
  go = true;
  for (auto &reader : readers) EXPECT_EQ(reader->join(), 0);
}

}  // namespace
