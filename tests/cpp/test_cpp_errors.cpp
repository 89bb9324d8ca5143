// Error numbers as std::error_code: the category, last_error after failed
// calls, and check() that throws only on failure.
#include <gtest/gtest.h>

#include <cstring>
#include <system_error>

#include "vqutil/vqutil.hpp"

namespace {

TEST(CppErrors, CategoryAndLastError) {
  for (int n : {D_ERR_NULL_PTR, D_ERR_TIMEOUT_REACHED, 123456}) {
    const std::error_code code = vqutil::make_error_code(n);
    EXPECT_STREQ(code.category().name(), "vqutil");
    EXPECT_EQ(code.message(), DutErrNumToStr(n)) << n;
  }
  EXPECT_NE(vqutil::make_error_code(3), std::error_code(3, std::generic_category()));

  struct Case {
    const char *what;
    bool (*fail)();
    int expected;
  } cases[] = {
      {"array of size 0", [] { return !vqutil::PtrArray(0); }, D_ERR_VAL_TOO_SMALL},
      {"rw quota 0", [] { return !vqutil::RwMutex(0); }, D_ERR_VAL_INVALID},
      {"ring of unknown type", [] { return !vqutil::Ring(77); }, D_ERR_TYPE_INVALID},
  };
  for (const Case &c : cases) {
    DutErrNumSet(0);
    EXPECT_TRUE(c.fail()) << c.what;
    EXPECT_EQ(vqutil::last_error(), vqutil::make_error_code(c.expected)) << c.what;
  }
  DutErrNumSet(0);
  EXPECT_FALSE(vqutil::last_error());
}

TEST(CppErrors, CheckThrowsOnlyOnFailure) {
  vqutil::PtrArray good = vqutil::check(vqutil::PtrArray(4), "create");
  EXPECT_EQ(vqutil::check(DutPtrAryAppend(good.get(), 7, nullptr)), D_TRUE);
  EXPECT_EQ(vqutil::check(good.get()), good.get());
  try {
    vqutil::check(vqutil::PtrArray(0), "create");
    ADD_FAILURE() << "no exception";
  } catch (const std::system_error &e) {
    EXPECT_EQ(e.code(), vqutil::make_error_code(D_ERR_VAL_TOO_SMALL));
    EXPECT_NE(std::strstr(e.what(), "create"), nullptr);
  }
  EXPECT_THROW(vqutil::check(DutPtrAryRemove(good.get(), 99)), std::system_error);
  EXPECT_THROW(vqutil::check(static_cast<D_HASH_TABLE *>(nullptr)), std::system_error);
}

}  // namespace
