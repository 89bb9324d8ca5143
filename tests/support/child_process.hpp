// Runs a test body in a child process, for tests that change process-wide
// state or must see the library as a new process has it.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace vqtest {

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
        std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
  GTEST_FLAG_SET(death_test_style, "fast");
}

}  // namespace vqtest
