// Pointer-array change callbacks: registration, the callback type and a
// callback that destroys itself. The record of every edit is checked by
// the vector model in ptrary_test.cpp.
#include <gtest/gtest.h>

#include "support/output_capture.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/ptrary.h"

namespace {

void count(void *, void *, D_WORD arg) { ++*reinterpret_cast<int *>(arg); }

TEST(PtrAryChange, RegistrationRulesAndTheCallbackType) {
  D_PTR_ARY *array = DutPtrAryCreate(2), *other = DutPtrAryCreate(1);
  int calls = 0;
  D_CB *cb = DutPtrAryChangeCbCreate(array, count, reinterpret_cast<D_WORD>(&calls));
  ASSERT_NE(cb, nullptr);
  EXPECT_EQ(DutPtrAryChangeCbLookup(array, count, reinterpret_cast<D_WORD>(&calls)), cb);
  EXPECT_FAILS(DutPtrAryChangeCbCreate(array, count, reinterpret_cast<D_WORD>(&calls)), nullptr,
               D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutPtrAryChangeCbLookup(other, count, 0), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutPtrAryChangeCbCreate(nullptr, count, 0), nullptr, D_ERR_NULL_PTR);
  D_CB_TYPE *type = DutCbTypeNumLookup(D_PTR_ARY_CHANGE_CB_TYPE);
  ASSERT_NE(type, nullptr);
  EXPECT_STREQ(D_GCT_NAME(type), "ptr_ary_change");
  EXPECT_EQ(D_GCT_LOCAL_FLAG(type), D_CB_LOCAL_DIRECT);
  EXPECT_EQ(DutPtrAryDestroy(other, nullptr, nullptr), D_TRUE);
  EXPECT_EQ(DutPtrAryDestroy(array, nullptr, nullptr), D_TRUE);
}

// The other callbacks of the same change still run.
TEST(PtrAryChange, ACallbackCanDestroyItselfDuringAChange) {
  auto once = [](void *, void *data, D_WORD arg) {
    ++*reinterpret_cast<int *>(arg);
    DutCbDestroy(static_cast<D_CB *>(static_cast<D_CB_DATA *>(data)->cb));
  };
  D_PTR_ARY *array = DutPtrAryCreate(2);
  int calls = 0, others = 0;
  ASSERT_NE(DutPtrAryChangeCbCreate(array, once, reinterpret_cast<D_WORD>(&calls)), nullptr);
  ASSERT_NE(DutPtrAryChangeCbCreate(array, count, reinterpret_cast<D_WORD>(&others)), nullptr);
  DutPtrAryAppend(array, 1, nullptr);
  DutPtrAryAppend(array, 2, nullptr);
  EXPECT_EQ(std::pair(calls, others), std::pair(1, 2));
  EXPECT_EQ(DutPtrAryDestroy(array, nullptr, nullptr), D_TRUE);
}

}  // namespace
