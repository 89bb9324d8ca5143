// The type registry: the state before initialisation, numbering and both
// lookups with their range errors, the kept duplicate-name behaviour, the
// slots, traversal and sorting checked against a model built from the
// number lookups, and readers on several threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "frame/child.hpp"
#include "rwmutex/rw_support.hpp"
#include "support/output_capture.hpp"
#include "vqutil/memory.h"
#include "vqutil/type.h"

namespace {

// Types live as long as the process: each test's names carry the number of
// the run, so that repeated runs in one process do not meet old names.
int run = 0;

void EnsureRegistry() {
  ++run;
  if (DutTypeInitialize() == D_FALSE) {
    ASSERT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  }
}

std::string N(const std::string &stem) { return stem + "_" + std::to_string(run); }

// The number of types, found the way a caller would: the first number
// that is too large.
D_INT4 TypeCount() {
  D_INT4 n = 1;
  while (DutTypeLookupByNum(n) != nullptr) ++n;
  return n - 1;
}

// What sorting must give: for each name, the type it first registered, in
// number order. Built from the number array alone.
std::vector<D_TYPE *> ModelSorted() {
  std::vector<D_TYPE *> model;
  std::map<std::string, bool> seen;
  for (D_INT4 n = 1; n <= TypeCount(); ++n) {
    D_TYPE *type = DutTypeLookupByNum(n);
    std::string folded = type->name;
    for (char &c : folded) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (seen.emplace(folded, true).second) model.push_back(type);
  }
  return model;
}

std::vector<D_TYPE *> Sorted() {
  D_INT4 count = -1;
  D_TYPE **array = DutTypeSortByNum(&count);
  std::vector<D_TYPE *> sorted(array, array + count);
  if (array != nullptr) DutFreeCheck(array, "array", __FILE__, __LINE__);
  return sorted;
}

// Collects (name, type) pairs; stops with the type's number when it meets
// the name in `stop_at`.
struct Visit {
  std::map<std::string, D_TYPE *> seen;
  const char *stop_at = nullptr;
};

D_WORD Collect(D_WORD key, D_WORD value, void *arg) {
  auto *visit = static_cast<Visit *>(arg);
  auto *type = reinterpret_cast<D_TYPE *>(value);
  visit->seen[reinterpret_cast<const char *>(key)] = type;
  if (visit->stop_at != nullptr && std::string(visit->stop_at) == type->name) return type->num;
  return 0;
}

void Dummy() {}

TEST(RegistryType, FreshProcessRefusesAllUntilInitialisedOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that never saw the registry
  vqtest::RunInChild([] {
    D_INT4 count = 7;
    EXPECT_FAILS(DutTypeCreate("early"), nullptr, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeLookup("early"), nullptr, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeLookupByNum(1), nullptr, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeLookupByNum(0), nullptr, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeTraverse(Collect, nullptr), 0, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutTypeSortByNum(&count), nullptr, D_ERR_NULL_PTR);
    EXPECT_EQ(count, 0);

    EXPECT_EQ(DutTypeInitialize(), D_TRUE);
    D_TYPE *first = DutTypeCreate("first");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->num, 1);
    EXPECT_EQ(DutTypeCreate("second")->num, 2);
    EXPECT_FAILS(DutTypeInitialize(), D_FALSE, D_ERR_ALREADY_EXISTS);
    // The second initialisation left both tables alone.
    EXPECT_EQ(DutTypeLookup("FIRST"), first);
    EXPECT_EQ(DutTypeLookupByNum(1), first);
    EXPECT_EQ(DutTypeCreate("third")->num, 3);
  });
}

TEST(RegistryType, NumbersFollowCreationAndBothLookupsCheckRange) {
  EnsureRegistry();
  const D_INT4 base = TypeCount();
  const std::vector<std::string> names = {N("range_alpha"), N("Range_Beta"), N("RANGE_GAMMA")};
  std::vector<D_TYPE *> created;
  for (const std::string &name : names) created.push_back(DutTypeCreate(name.c_str()));
  for (size_t i = 0; i < created.size(); ++i) {
    ASSERT_NE(created[i], nullptr);
    EXPECT_EQ(created[i]->num, base + 1 + static_cast<D_INT4>(i));
    EXPECT_STREQ(created[i]->name, names[i].c_str());
    EXPECT_NE(created[i]->name, names[i].c_str());  // a copy
  }
  const D_INT4 count = base + 3;
  struct ByName {
    std::string query;
    D_TYPE *expected;
    D_INT4 error;
  };
  const ByName by_name[] = {
      {N("range_alpha"), created[0], 0}, {N("RANGE_ALPHA"), created[0], 0}, {N("range_beta"), created[1], 0},
      {N("rAnGe_GaMmA"), created[2], 0}, {N("range_delta"), nullptr, D_ERR_DOESNT_EXIST},
      {N("range_alpha") + "x", nullptr, D_ERR_DOESNT_EXIST}, {"", nullptr, D_ERR_DOESNT_EXIST},
  };
  for (const ByName &row : by_name) {
    SCOPED_TRACE(row.query);
    EXPECT_FAILS(DutTypeLookup(row.query.c_str()), row.expected, row.error);
  }
  EXPECT_FAILS(DutTypeLookup(nullptr), nullptr, D_ERR_NULL_PTR);
  struct ByNum {
    D_INT4 num;
    D_TYPE *expected;
    D_INT4 error;
  };
  const ByNum by_num[] = {
      {0, nullptr, D_ERR_VAL_TOO_SMALL},   {count + 1, nullptr, D_ERR_VAL_TOO_LARGE},
      {-1, nullptr, D_ERR_VAL_TOO_LARGE},  {INT_MIN, nullptr, D_ERR_VAL_TOO_LARGE},
      {INT_MAX, nullptr, D_ERR_VAL_TOO_LARGE}, {base + 1, created[0], 0},
      {count, created[2], 0},
  };
  for (const ByNum &row : by_num) {
    SCOPED_TRACE(row.num);
    EXPECT_FAILS(DutTypeLookupByNum(row.num), row.expected, row.error);
  }
  for (D_INT4 n = 1; n <= count; ++n) EXPECT_EQ(DutTypeLookupByNum(n)->num, n);
}

TEST(RegistryType, DuplicateNameGetsNextNumberWhileNameFindsFirst) {
  EnsureRegistry();
  const std::string lower = N("dup_name");
  const std::string upper = N("DUP_NAME");
  D_TYPE *first = DutTypeCreate(lower.c_str());
  vqtest::OutputCapture capture;
  D_TYPE *second = DutTypeCreate(upper.c_str());
  std::string warning = capture.Take();
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_EQ(second->num, first->num + 1);
  EXPECT_STREQ(second->name, upper.c_str());
  EXPECT_NE(warning.find("DutHashInsert: key " + upper + " already exists in hash table."), std::string::npos)
      << warning;
  EXPECT_EQ(DutTypeLookup(upper.c_str()), first);
  EXPECT_EQ(DutTypeLookup(lower.c_str()), first);
  EXPECT_EQ(DutTypeLookupByNum(second->num), second);
  // Listing goes through the name table, so only the first is listed.
  std::vector<D_TYPE *> sorted = Sorted();
  EXPECT_EQ(std::count(sorted.begin(), sorted.end(), first), 1);
  EXPECT_EQ(std::count(sorted.begin(), sorted.end(), second), 0);
  EXPECT_EQ(DutTypeCreate(N("dup_after").c_str())->num, second->num + 1);
}

TEST(RegistryType, SlotsStartEmptyAndKeepWhatIsSet) {
  EnsureRegistry();
  D_TYPE *type = DutTypeCreate(N("slots").c_str());
  D_TYPE_FUNC func = Dummy;
  D_WORD arg = 99;
  D_WORD user = 99;
  EXPECT_EQ(DutTypeGetReturnFunc(type, &func, &arg), D_TRUE);
  EXPECT_EQ(func, nullptr);
  EXPECT_EQ(arg, 0);
  EXPECT_EQ(DutTypeGetUserArg(type, &user), D_TRUE);
  EXPECT_EQ(user, 0);
  EXPECT_EQ(type->assign_func, nullptr);

  EXPECT_EQ(DutTypeSetReturnFunc(type, Dummy, -5), D_TRUE);
  EXPECT_EQ(DutTypeSetUserArg(type, reinterpret_cast<D_WORD>(&user)), D_TRUE);
  EXPECT_EQ(DutTypeSetAssignFunc(type, Dummy), D_TRUE);
  EXPECT_EQ(DutTypeGetReturnFunc(type, &func, &arg), D_TRUE);
  EXPECT_EQ(func, &Dummy);
  EXPECT_EQ(arg, -5);
  EXPECT_EQ(DutTypeGetUserArg(type, &user), D_TRUE);
  EXPECT_EQ(user, reinterpret_cast<D_WORD>(&user));
  EXPECT_EQ(type->assign_func, &Dummy);
  const char *name = nullptr;
  D_INT4 num = 0;
  EXPECT_EQ(DutTypeGetName(type, &name), D_TRUE);
  EXPECT_EQ(name, type->name);
  EXPECT_EQ(DutTypeGetNum(type, &num), D_TRUE);
  EXPECT_EQ(num, type->num);

  // Every null the accessors can meet; nothing is written on refusal.
  const std::vector<std::pair<const char *, std::function<D_BOOL()>>> refusals = {
      {"get name, null type", [&] { return DutTypeGetName(nullptr, &name); }},
      {"get name, null out", [&] { return DutTypeGetName(type, nullptr); }},
      {"get num, null type", [&] { return DutTypeGetNum(nullptr, &num); }},
      {"get num, null out", [&] { return DutTypeGetNum(type, nullptr); }},
      {"get user, null type", [&] { return DutTypeGetUserArg(nullptr, &user); }},
      {"get user, null out", [&] { return DutTypeGetUserArg(type, nullptr); }},
      {"get return, null type", [&] { return DutTypeGetReturnFunc(nullptr, &func, &arg); }},
      {"get return, null func", [&] { return DutTypeGetReturnFunc(type, nullptr, &arg); }},
      {"get return, null arg", [&] { return DutTypeGetReturnFunc(type, &func, nullptr); }},
      {"set return", [] { return DutTypeSetReturnFunc(nullptr, Dummy, 1); }},
      {"set assign", [] { return DutTypeSetAssignFunc(nullptr, Dummy); }},
      {"set user", [] { return DutTypeSetUserArg(nullptr, 1); }},
  };
  name = nullptr;
  num = 0;
  for (const auto &[what, call] : refusals) {
    SCOPED_TRACE(what);
    EXPECT_FAILS(call(), D_FALSE, D_ERR_NULL_PTR);
  }
  EXPECT_EQ(name, nullptr);
  EXPECT_EQ(num, 0);
}

TEST(RegistryType, TraverseAndSortAgreeWithTheNumberArray) {
  EnsureRegistry();
  // Enough types to grow both tables past their initial 32.
  for (int i = 0; i < 40; ++i) DutTypeCreate(N("sort" + std::to_string(39 - i)).c_str());
  {
    vqtest::OutputCapture quiet;
    DutTypeCreate(N("SORT7").c_str());  // a duplicate: listed once, under its first type
  }
  const std::vector<D_TYPE *> model = ModelSorted();

  DutErrNumSet(0);
  EXPECT_EQ(Sorted(), model);
  Visit visit;
  EXPECT_FAILS(DutTypeTraverse(Collect, &visit), 0, D_ERR_END_OF_TRAVERSAL);
  ASSERT_EQ(visit.seen.size(), model.size());
  for (D_TYPE *type : model) EXPECT_EQ(visit.seen[type->name], type) << type->name;

  // A visit's non-zero answer ends the walk at once, without the end error.
  Visit stopping;
  const std::string stop = N("sort20");
  stopping.stop_at = stop.c_str();
  EXPECT_FAILS(DutTypeTraverse(Collect, &stopping), DutTypeLookup(stop.c_str())->num, 0);
  EXPECT_EQ(stopping.seen.count(stop), 1u);

  EXPECT_FAILS(DutTypeTraverse(nullptr, nullptr), 0, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutTypeSortByNum(nullptr), nullptr, D_ERR_NULL_PTR);
}

// Registration is over before the readers start; every reader then asks by
// name in its own spelling, by number, traverses and sorts, and must see
// exactly what the main thread registered.
TEST(RegistryTypeThreads, ReadersOnSeveralThreadsSeeOneRegistry) {
  EnsureRegistry();
  constexpr int kTypes = 64;
  constexpr int kThreads = 4;
  std::vector<D_TYPE *> mine;
  for (int i = 0; i < kTypes; ++i) mine.push_back(DutTypeCreate(N("thr" + std::to_string(i)).c_str()));
  const std::vector<D_TYPE *> model = ModelSorted();
  const D_INT4 count = TypeCount();

  std::atomic<bool> go{false};
  std::vector<std::unique_ptr<rwtest::LibThread>> readers;
  for (int t = 0; t < kThreads; ++t) {
    readers.push_back(std::make_unique<rwtest::LibThread>([&, t]() -> D_WORD {
      while (!go.load()) DutWinSleep(0.0);
      D_WORD mismatches = 0;
      for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < kTypes; ++i) {
          std::string name = N((t % 2 == 0 ? "THR" : "thr") + std::to_string(i));
          if (DutTypeLookup(name.c_str()) != mine[i]) ++mismatches;
          if (DutTypeLookupByNum(mine[i]->num) != mine[i]) ++mismatches;
        }
        if (DutTypeLookupByNum(count + 1) != nullptr || DutErrNumGet() != D_ERR_VAL_TOO_LARGE) ++mismatches;
        Visit visit;
        DutTypeTraverse(Collect, &visit);
        if (visit.seen.size() != model.size()) ++mismatches;
        if (Sorted() != model) ++mismatches;
      }
      return mismatches;
    }));
  }
  go = true;
  for (auto &reader : readers) EXPECT_EQ(reader->join(), 0);
}

}  // namespace
