// Helpers for tests that change process-wide state (the debug file, the
// fatal error file, the environment): each such test runs its body in a
// forked child inside a fresh temporary directory, so the state and the
// files die with the child and parallel tests never share a file name.
#pragma once

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "support/child_process.hpp"
#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"
#include "vqutil/thread.h"


// The statement, run in a child with fatal errors set to abort, dies with a
// report on standard error that matches the regular expression.
#define EXPECT_FATAL_ABORT(statement, regex)                                  \
  EXPECT_EXIT(                                                                \
      {                                                                       \
        vqtest::ClearFrameEnvironment();                                      \
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);                             \
        DutSetFatalErrorFile(stderr);                                         \
        statement;                                                            \
        vqtest::ExitChild(0);                                                 \
      },                                                                      \
      ::testing::KilledBySignal(SIGABRT), regex)

namespace vqtest {

inline std::filesystem::path MakeTempDir() {
  static std::atomic<int> counter{0};
  std::filesystem::path dir = std::filesystem::temp_directory_path() /
                              ("vqutil-frame-" + std::to_string(::getpid()) + "-" +
                               std::to_string(counter.fetch_add(1)));
  std::filesystem::create_directories(dir);
  return dir;
}

inline void ClearFrameEnvironment() {
  for (const char *name : {"VQTIMESTAMPOUTPUT", "VQDEBUGFILENAME", "VQ_WARNING_ABORT",
                           "VQ_EXPECT_ABORT", "VQ_FATAL_ERROR_CONTINUE", "VQ_FATAL_ERROR_ABORT",
                           "VQ_FATAL_ERROR_SLEEP"})
    ::unsetenv(name);
}

// Runs body in a child process whose working directory is a new temporary
// directory. Failed expectations inside the body are written to standard
// error, where the parent shows them, and make the child exit 1.
template <class Body>
void RunInChild(Body body) {
  const std::filesystem::path dir = MakeTempDir();
  EXPECT_EXIT(
      {
        ::testing::TestPartResultArray results;
        {
          ::testing::ScopedFakeTestPartResultReporter reporter(
              ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
          std::filesystem::current_path(dir);
          body();
        }
        std::fflush(nullptr);
        bool failed = false;
        for (int i = 0; i < results.size(); ++i) {
          const ::testing::TestPartResult &part = results.GetTestPartResult(i);
          if (!part.failed()) continue;
          failed = true;
          std::fprintf(stderr, "%s:%d: %s\n", part.file_name() ? part.file_name() : "?",
                       part.line_number(), part.message());
        }
        ExitChild(failed ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
  std::error_code ignored;
  std::filesystem::remove_all(dir, ignored);
}

// RunInChild with none of the frame's environment variables set.
template <class Body>
void RunClean(Body body) {
  RunInChild([&] {
    ClearFrameEnvironment();
    body();
  });
}

// In text mode: the library writes its files so, "\r\n" on Windows.
inline std::string ReadFile(const std::filesystem::path &path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::string ReadStream(FILE *file) {
  std::fflush(file);
  std::rewind(file);
  std::string text;
  int c;
  while ((c = std::fgetc(file)) != EOF) text.push_back(static_cast<char>(c));
  return text;
}

// Puts the calling thread's four error values into a known state.
inline void SetAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  D_ERR_SAVE save{number, c_err, os_err, socket_err};
  ASSERT_TRUE(DutErrNumRestoreTsd(&save, DutGetTsdValue()));
}

// ctime texts (with their newline) of every second from `from` to `to`.
inline std::set<std::string> CtimeTexts(std::time_t from, std::time_t to) {
  std::set<std::string> texts;
  for (std::time_t t = from; t <= to; ++t) {
    char buffer[64];
    texts.insert(ctime_r(&t, buffer));
  }
  return texts;
}


}  // namespace vqtest
