// Error numbers as std::error_code: the category, last_error after failed
// calls, and check() that throws only on failure.
#include <gtest/gtest.h>

#include <functional>

#include "vqutil/vqutil.hpp"

namespace {

TEST(CppErrors, CategoryAndLastError) {
  for (int n : {D_ERR_NULL_PTR, D_ERR_TIMEOUT_REACHED, 123456}) {
    const std::error_code code = vqutil::make_error_code(n);
    EXPECT_STREQ(code.category().name(), "vqutil");
    EXPECT_EQ(code.message(), DutErrNumToStr(n)) << n;
  }
  EXPECT_NE(vqutil::make_error_code(3), std::error_code(3, std::generic_category()));
  DutErrNumSet(0);
  EXPECT_FALSE(vqutil::last_error());
}

// check() passes a success through; a failed creation, a D_FALSE result or
// a null pointer throws last_error() with the caller's text.
TEST(CppErrors, CheckThrowsTheLastErrorOnlyOnFailure) {
  vqutil::PtrArray good = vqutil::check(vqutil::PtrArray(4), "create");
  EXPECT_EQ(vqutil::check(DutPtrAryAppend(good.get(), 7, nullptr)), D_TRUE);
  EXPECT_EQ(vqutil::check(good.get()), good.get());
  struct Case {
    std::function<void(const char *)> fail;
    int expected;
  } cases[] = {
      {[](const char *what) { vqutil::check(vqutil::PtrArray(0), what); }, D_ERR_VAL_TOO_SMALL},
      {[](const char *what) { vqutil::check(vqutil::RwMutex(0), what); }, D_ERR_VAL_INVALID},
      {[](const char *what) { vqutil::check(vqutil::Ring(77), what); }, D_ERR_TYPE_INVALID},
      {[&](const char *what) { vqutil::check(DutPtrAryRemove(good.get(), 99), what); }, D_ERR_DOESNT_EXIST},
      {[](const char *what) { vqutil::check(DutPtrAryCreate(0), what); }, D_ERR_VAL_TOO_SMALL},
  };
  for (const Case &c : cases) {
    const std::string what = "case " + std::to_string(&c - cases);
    DutErrNumSet(0);
    try {
      c.fail(what.c_str());
      ADD_FAILURE() << what << ": no exception";
    } catch (const std::system_error &e) {
      EXPECT_EQ(e.code(), vqutil::make_error_code(c.expected)) << what;
      EXPECT_NE(std::string(e.what()).find(what), std::string::npos) << e.what();
    }
  }
}

}  // namespace
