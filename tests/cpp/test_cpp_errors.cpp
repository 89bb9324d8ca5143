// Error numbers as std::error_code: check() passes a success through and
// throws last_error(), in the library's category, only on failure.
#include <gtest/gtest.h>

#include <functional>

#include "vqutil/vqutil.hpp"

namespace {

// A failed creation, a D_FALSE result or a null pointer throws the error
// number left by the call, with the caller's text and the library's words.
TEST(CppErrors, CheckThrowsTheLastErrorOnlyOnFailure) {
  vqutil::PtrArray good = vqutil::check(vqutil::PtrArray(4), "create");
  EXPECT_EQ(vqutil::check(DutPtrAryAppend(good.get(), 7, nullptr)), D_TRUE);
  EXPECT_EQ(vqutil::check(good.get()), good.get());
  // A failing call given the caller's text, and the error number it leaves.
  const std::pair<std::function<void(const char *)>, int> cases[] = {
      {[](const char *what) { vqutil::check(vqutil::PtrArray(0), what); }, D_ERR_VAL_TOO_SMALL},
      {[](const char *what) { vqutil::check(vqutil::RwMutex(0), what); }, D_ERR_VAL_INVALID},
      {[](const char *what) { vqutil::check(vqutil::Ring(77), what); }, D_ERR_TYPE_INVALID},
      {[&](const char *what) { vqutil::check(DutPtrAryRemove(good.get(), 99), what); }, D_ERR_DOESNT_EXIST},
      {[](const char *what) { vqutil::check(DutPtrAryCreate(0), what); }, D_ERR_VAL_TOO_SMALL},
      {[](const char *what) { vqutil::check(vqutil::FileLock::acquire(""), what); }, D_ERR_VAL_INVALID},
  };
  for (const auto &c : cases) {
    const std::string what = "case " + std::to_string(&c - cases);
    DutErrNumSet(0);
    try {
      c.first(what.c_str());
      ADD_FAILURE() << what << ": no exception";
    } catch (const std::system_error &e) {
      EXPECT_EQ(e.code().value(), c.second) << what;
      EXPECT_STREQ(e.code().category().name(), "vqutil");
      EXPECT_EQ(e.code().message(), DutErrNumToStr(c.second)) << what;
      EXPECT_NE(std::string(e.what()).find(what), std::string::npos) << e.what();
    }
  }
}

}  // namespace
