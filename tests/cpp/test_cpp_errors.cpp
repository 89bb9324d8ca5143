// Error numbers as std::error_code: the category, its messages, and the
// throwing helpers that throw only when asked to.
#include <gtest/gtest.h>

#include <cstring>
#include <system_error>

#include "vqutil/vqutil.hpp"

namespace {

TEST(CppErrors, CategoryMessagesAreTheLibraryTexts) {
  const int numbers[] = {D_ERR_C, D_ERR_NULL_PTR, D_ERR_VAL_TOO_SMALL, D_ERR_DOESNT_EXIST, D_ERR_TIMEOUT_REACHED,
                         D_ERR_END_OF_TRAVERSAL, D_ERR_PROTOCOL_MISMATCH, 499, 123456};
  for (int n : numbers) {
    const std::error_code code = vqutil::make_error_code(n);
    EXPECT_STREQ(code.category().name(), "vqutil");
    EXPECT_EQ(code.message(), DutErrNumToStr(n)) << n;
    EXPECT_FALSE(code.message().empty()) << n;
  }
  // Distinct numbers read as distinct texts where the library knows them.
  EXPECT_NE(vqutil::make_error_code(D_ERR_NULL_PTR).message(), vqutil::make_error_code(D_ERR_EOF).message());
  EXPECT_NE(vqutil::make_error_code(123456).message().find("123456"), std::string::npos);
  EXPECT_EQ(&vqutil::make_error_code(3).category(), &vqutil::error_category());
  EXPECT_NE(vqutil::make_error_code(3), std::error_code(3, std::generic_category()));
}

TEST(CppErrors, LastErrorFollowsFailedCalls) {
  struct Case {
    const char *what;
    bool (*fail)();
    int expected;
  } cases[] = {
      {"array of size 0", [] { return !vqutil::PtrArray(0); }, D_ERR_VAL_TOO_SMALL},
      {"rw quota 0", [] { return !vqutil::RwMutex(0); }, D_ERR_VAL_INVALID},
      {"remove from empty array", [] { return !vqutil::PtrArray(4).remove(1); }, D_ERR_VAL_TOO_SMALL},
      {"missing item", [] {
         vqutil::PtrArray a(4);
         a.append(1);
         return !a.remove(2);
       }, D_ERR_DOESNT_EXIST},
  };
  for (const Case &c : cases) {
    DutErrNumSet(0);
    EXPECT_TRUE(c.fail()) << c.what;
    EXPECT_EQ(vqutil::last_error(), vqutil::make_error_code(c.expected)) << c.what;
    EXPECT_TRUE(static_cast<bool>(vqutil::last_error())) << c.what;
  }
  DutErrNumSet(0);
  EXPECT_FALSE(vqutil::last_error());
}

TEST(CppErrors, CheckThrowsOnlyOnFailure) {
  DutErrNumSet(0);
  vqutil::PtrArray good = vqutil::check(vqutil::PtrArray(4), "create");
  EXPECT_TRUE(good);
  EXPECT_EQ(vqutil::check(DutPtrAryAppend(good.get(), 7, nullptr)), D_TRUE);
  EXPECT_EQ(&vqutil::check(good), &good);
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
