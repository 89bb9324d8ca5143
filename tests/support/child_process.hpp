// Runs a test body in a child process, for tests that change process-wide
// state or must see the library as a new process has it.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

// Coverage runtimes write their counts from exit hooks, one per instrumented
// module, which _Exit skips. Their entry points are linked only into
// coverage builds, so these references are weak.
#if defined(__ELF__)
extern "C" {
void __gcov_init(void *) __attribute__((weak));
int __llvm_profile_write_file(void) __attribute__((weak));
}
#endif

namespace vqtest {

// Ends a child as _Exit does, except in coverage builds, where it exits
// normally so that what the child ran is measured.
[[noreturn]] inline void ExitChild(int code) {
#if defined(__ELF__)
  if (__gcov_init != nullptr || __llvm_profile_write_file != nullptr) std::exit(code);
#endif
  std::_Exit(code);
}

// Failed expectations of body make the child exit 1, their texts shown on
// its standard error. "fast" forks this process as it is (every change
// dies with the child); "threadsafe" starts the program anew, so the
// library's state at load is observable.
template <class Body>
void RunInChild(const char *style, Body body) {
  GTEST_FLAG_SET(death_test_style, style);
  EXPECT_EXIT(
      {
        body();
        const ::testing::TestResult *result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result->total_part_count(); ++i) {
          const ::testing::TestPartResult &part = result->GetTestPartResult(i);
          std::fprintf(stderr, "%s:%d: %s\n", part.file_name() ? part.file_name() : "", part.line_number(),
                       part.message());
        }
        std::fflush(nullptr);
        ExitChild(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
  GTEST_FLAG_SET(death_test_style, "fast");
}

}  // namespace vqtest
