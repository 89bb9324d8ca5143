// The type registry: a fresh process from refusals before initialisation to
// the fields and the lookups' range errors; and readers on several threads
// checking numbering, the kept duplicate-name behaviour, traversal and
// sorting against the number array.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

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

D_WORD Count(D_WORD, D_WORD, void *visits) {
  ++*static_cast<size_t *>(visits);
  return 0;
}

void ReturnHere() {}
void AssignHere() {}

// A process that never saw the registry: every call is refused until it is
// initialised, once. Then its one type is number 1, each setter writes its
// own fields and the getters read them back, and the lookups refuse what
// is not there with their error numbers.
TEST(RegistryType, FreshProcessFromRefusalsToFields) {
  vqtest::RunInChild("threadsafe", [] {
    D_INT4 count = 7;
    vqtest::ExpectRefused(D_ERR_NULL_PTR,
                          {AS_WORD(DutTypeCreate("a")), AS_WORD(DutTypeLookup("a")), AS_WORD(DutTypeLookupByNum(0)),
                           AS_WORD(DutTypeTraverse(Count, nullptr)), AS_WORD(DutTypeSortByNum(&count))});
    EXPECT_EQ(count, 0);
    ASSERT_EQ(DutTypeInitialize(), D_TRUE);
    D_TYPE *first = DutTypeCreate("first");
    EXPECT_FAILS(DutTypeInitialize(), D_FALSE, D_ERR_ALREADY_EXISTS);
    EXPECT_EQ(std::tuple(DutTypeLookup("FIRST"), DutTypeLookupByNum(1)), std::tuple(first, first));  // both tables kept
    struct { const char *name = nullptr; D_INT4 num = 0; D_WORD user = 0, arg = 0; D_TYPE_FUNC func = nullptr; } got;
    ASSERT_TRUE(DutTypeSetReturnFunc(first, ReturnHere, 11) && DutTypeSetAssignFunc(first, AssignHere) &&
                DutTypeSetUserArg(first, 22) && DutTypeGetName(first, &got.name) && DutTypeGetNum(first, &got.num) &&
                DutTypeGetUserArg(first, &got.user) && DutTypeGetReturnFunc(first, &got.func, &got.arg));
    EXPECT_EQ(std::tuple(got.name, got.num, got.user, got.func, got.arg, first->assign_func),
              std::tuple(first->name, 1, D_WORD{22}, &ReturnHere, D_WORD{11}, &AssignHere));
    vqtest::ExpectRefused(D_ERR_DOESNT_EXIST, {AS_WORD(DutTypeLookup("second"))});
    vqtest::ExpectRefused(D_ERR_VAL_TOO_SMALL, {AS_WORD(DutTypeLookupByNum(0))});
    // Compared as unsigned: every negative number is too large.
    vqtest::ExpectRefused(D_ERR_VAL_TOO_LARGE, {AS_WORD(DutTypeLookupByNum(2)), AS_WORD(DutTypeLookupByNum(-1))});
    vqtest::ExpectRefused(
        D_ERR_NULL_PTR,
        {AS_WORD(DutTypeCreate(nullptr)), AS_WORD(DutTypeLookup(nullptr)), AS_WORD(DutTypeTraverse(nullptr, nullptr)),
         AS_WORD(DutTypeSortByNum(nullptr)), AS_WORD(DutTypeGetName(nullptr, &got.name)),
         AS_WORD(DutTypeGetNum(first, nullptr)), AS_WORD(DutTypeGetUserArg(first, nullptr)),
         AS_WORD(DutTypeGetReturnFunc(first, &got.func, nullptr)), AS_WORD(DutTypeSetUserArg(nullptr, 1)),
         AS_WORD(DutTypeSetReturnFunc(nullptr, ReturnHere, 0)), AS_WORD(DutTypeSetAssignFunc(nullptr, AssignHere))});
  });
}

// Registration, one name given twice, is over before the readers start.
// Each asks by name in its own spelling (the twice-given name finds its
// first type) and by number (types are numbered in order of creation),
// traverses and sorts, against the number array's model, on four threads
// at once.
TEST(RegistryTypeThreads, ReadersOnSeveralThreadsSeeOneRegistry) {
  ++run;
  EXPECT_TRUE(DutTypeInitialize() == D_TRUE || DutErrNumGet() == D_ERR_ALREADY_EXISTS);
  vqtest::OutputCapture capture;
  std::vector<D_TYPE *> mine;  // past the tables' first 32 entries; the last one is named thr0 again
  for (int i = 0; i <= 64; ++i) mine.push_back(DutTypeCreate(N(i < 64 ? "thr" + std::to_string(i) : "THR0").c_str()));
  EXPECT_NE(capture.Take().find("key " + N("THR0") + " already exists"), std::string::npos);
  // What sorting must give: each name's first type, in number order.
  std::vector<D_TYPE *> model;
  for (D_INT4 n = 1; D_TYPE *type = DutTypeLookupByNum(n); ++n)
    if (DutTypeLookup(type->name) == type) model.push_back(type);
  auto mismatches = [&](int t) -> D_WORD {
    D_WORD wrong = 0;
    for (int round = 0; round < 20; ++round) {
      for (size_t i = 0; i < mine.size(); ++i) {
        wrong += DutTypeLookup(N((t % 2 ? "THR" : "thr") + std::to_string(i % 64)).c_str()) != mine[i % 64];
        wrong += DutTypeLookupByNum(mine[0]->num + static_cast<D_INT4>(i)) != mine[i];
      }
      size_t visits = 0;
      wrong += DutTypeTraverse(Count, &visits) != 0 || DutErrNumGet() != D_ERR_END_OF_TRAVERSAL;
      D_INT4 count = 0;
      D_TYPE **array = DutTypeSortByNum(&count);
      wrong += visits != model.size() || std::vector<D_TYPE *>(array, array + count) != model;
      DutFreeCheck(array, "array", __FILE__, __LINE__);
    }
    return wrong;
  };
  EXPECT_EQ(rwtest::Threads(4, mismatches, true).join(), std::vector<D_WORD>(4, 0));
}

}  // namespace
