// The fatal-error report, where it goes, and how the process ends.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "support/capture.hpp"
#include "child.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"
#include "vqutil/time.h"

namespace {

using vqtest::ReadFile;
using vqtest::ReadStream;
using vqtest::RunInChild;
using vqtest::SetAllFour;

// Checks one report at the head of `text` and returns what follows it.
// The wall clock line must be the ctime text of a second in [from, to] and
// the library time lie within [time_from, time_to].
::testing::AssertionResult MatchReport(const std::string &text, const std::string &message,
                                       std::time_t from, std::time_t to, double time_from,
                                       double time_to, const std::string &codes,
                                       std::string *rest) {
  std::string head = "\n*** FATAL ERROR ***\n" + message + "\n";
  if (text.compare(0, head.size(), head) != 0)
    return ::testing::AssertionFailure() << "report head differs: <" << text << ">";
  std::string remaining = text.substr(head.size());
  bool clock_found = false;
  for (const std::string &stamp : vqtest::CtimeTexts(from, to)) {
    const std::string line = "Wall Clock Time: " + stamp;
    if (remaining.compare(0, line.size(), line) == 0) {
      remaining = remaining.substr(line.size());
      clock_found = true;
      break;
    }
  }
  if (!clock_found) return ::testing::AssertionFailure() << "wall clock line: <" << remaining << ">";
  std::smatch match;
  const std::regex time_line("^VQsuite Time: (-?[0-9]+\\.[0-9]{6})\n");
  if (!std::regex_search(remaining, match, time_line))
    return ::testing::AssertionFailure() << "library time line: <" << remaining << ">";
  const double shown = std::strtod(match[1].str().c_str(), nullptr);
  if (shown < time_from - 0.000001 || shown > time_to + 0.000001)
    return ::testing::AssertionFailure()
           << "library time " << shown << " outside " << time_from << ".." << time_to;
  remaining = remaining.substr(match[0].length());
  if (remaining.compare(0, codes.size(), codes) != 0)
    return ::testing::AssertionFailure() << "error codes: <" << remaining << ">";
  *rest = remaining.substr(codes.size());
  return ::testing::AssertionSuccess();
}

std::string Codes(long number, long c_err, long os_err, long socket_err) {
  return "Last VQsuite Error Code: " + std::to_string(number) + "\n" +
         "Last C Error Code: " + std::to_string(c_err) + "\n" +
         "Last OS Error Code: " + std::to_string(os_err) + "\n" +
         "Last Socket Error Code: " + std::to_string(socket_err) + "\n";
}

TEST(FatalReport, ContinuePathWritesTheWholeReportAndReturns) {
  RunInChild([] {
    vqtest::ClearFrameEnvironment();
    ::setenv("VQ_FATAL_ERROR_CONTINUE", "1", 1);
    std::FILE *report = std::tmpfile();
    ASSERT_NE(report, nullptr);
    ASSERT_TRUE(DutSetFatalErrorFile(report));
    vqtest::OutputCapture capture;

    SetAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
    const std::time_t from = std::time(nullptr);
    const double time_from = DutGetCurrentTime();
    DutFatalError("broken %s %d", "thing", 3);
    const double time_to = DutGetCurrentTime();
    const std::time_t to = std::time(nullptr);

    std::string rest;
    EXPECT_TRUE(MatchReport(ReadStream(report), "broken thing 3", from, to, time_from, time_to,
                            Codes(D_ERR_DOESNT_EXIST, EACCES, 5, 10054), &rest));
    EXPECT_EQ(rest, "Continuing execution.\n");
    EXPECT_EQ(capture.Take(), "");  // never through the output function
  });
}

TEST(FatalReport, AssertionTextAndASecondReportAfterContinuing) {
  RunInChild([] {
    vqtest::ClearFrameEnvironment();
    ::setenv("VQ_FATAL_ERROR_CONTINUE", "", 1);
    std::FILE *report = std::tmpfile();
    ASSERT_NE(report, nullptr);
    ASSERT_TRUE(DutSetFatalErrorFile(report));

    SetAllFour(0, 0, 0, 0);
    const std::time_t from = std::time(nullptr);
    const double time_from = DutGetCurrentTime();
    EXPECT_EQ(DutAssert(0, "p != NULL", "list.c", 77), 0);
    // The guard was cleared, so a second fatal error reports again.
    DutErrNumSet(D_ERR_VAL_INVALID);
    DutFatalError("second");
    const double time_to = DutGetCurrentTime();
    const std::time_t to = std::time(nullptr);

    std::string rest;
    ASSERT_TRUE(MatchReport(ReadStream(report), "Assertion <p != NULL> failed, file: list.c, line 77",
                            from, to, time_from, time_to, Codes(0, 0, 0, 0), &rest));
    const std::string continuing = "Continuing execution.\n";
    ASSERT_EQ(rest.compare(0, continuing.size(), continuing), 0) << rest;
    std::string tail;
    ASSERT_TRUE(MatchReport(rest.substr(continuing.size()), "second", from, to, time_from, time_to,
                            Codes(D_ERR_VAL_INVALID, 0, 0, 0), &tail));
    EXPECT_EQ(tail, continuing);
  });
}

TEST(FatalReport, OpenDebugFileGetsTheReportAndIsNamed) {
  RunInChild([] {
    vqtest::ClearFrameEnvironment();
    ::setenv("VQ_FATAL_ERROR_CONTINUE", "1", 1);
    std::FILE *report = std::tmpfile();
    ASSERT_NE(report, nullptr);
    ASSERT_TRUE(DutSetFatalErrorFile(report));
    DutDebugOpen("crash");
    DutDebug("earlier\n");

    SetAllFour(D_ERR_EOF, 0, 0, 0);
    const std::time_t from = std::time(nullptr);
    const double time_from = DutGetCurrentTime();
    DutFatalError("out of %s", "luck");
    const double time_to = DutGetCurrentTime();
    const std::time_t to = std::time(nullptr);
    const std::string codes = Codes(D_ERR_EOF, 0, 0, 0);

    std::string rest;
    ASSERT_TRUE(MatchReport(ReadStream(report), "out of luck", from, to, time_from, time_to,
                            codes, &rest));
    EXPECT_EQ(rest, "See debug file: crash.dbg\nContinuing execution.\n");

    const std::string logged = ReadFile("crash.dbg");
    const std::string earlier = "earlier\n";
    ASSERT_EQ(logged.compare(0, earlier.size(), earlier), 0) << logged;
    std::string log_rest;
    ASSERT_TRUE(MatchReport(logged.substr(earlier.size()), "out of luck", from, to, time_from,
                            time_to, codes, &log_rest));
    EXPECT_EQ(log_rest, "");
  });
}

TEST(FatalFile, GetAndSetRefuseNull) {
  RunInChild([] {
    vqtest::ClearFrameEnvironment();
    DutErrNumSet(0);
    EXPECT_FALSE(DutGetFatalErrorFile(nullptr));
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
    DutErrNumSet(0);
    EXPECT_FALSE(DutSetFatalErrorFile(nullptr));
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  });
}

TEST(FatalFile, NullUntilSetAndStandardOutputAfterTheFirstFatalError) {
  RunInChild([] {
    vqtest::ClearFrameEnvironment();
    std::FILE *file = reinterpret_cast<std::FILE *>(1);
    ASSERT_TRUE(DutGetFatalErrorFile(&file));
    EXPECT_EQ(file, nullptr);

    ::setenv("VQ_FATAL_ERROR_CONTINUE", "1", 1);
    // The report goes to standard output; keep it out of the test log.
    ASSERT_NE(std::freopen("stdout.txt", "w", stdout), nullptr);
    DutFatalError("to stdout");
    ASSERT_TRUE(DutGetFatalErrorFile(&file));
    EXPECT_EQ(file, stdout);
    std::fflush(stdout);
    const std::string text = ReadFile("stdout.txt");
    EXPECT_EQ(text.find("\n*** FATAL ERROR ***\nto stdout\n"), 0u) << text;

    std::FILE *other = std::tmpfile();
    ASSERT_TRUE(DutSetFatalErrorFile(other));
    ASSERT_TRUE(DutGetFatalErrorFile(&file));
    EXPECT_EQ(file, other);
  });
}

TEST(FatalDeath, AbortSettingAbortsAfterTheReport) {
  EXPECT_EXIT(
      {
        vqtest::ClearFrameEnvironment();
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutAssert(0, "D_NULL != table", "hash.c", 310);
        std::_Exit(0);
      },
      ::testing::KilledBySignal(SIGABRT),
      "\\*\\*\\* FATAL ERROR \\*\\*\\*\nAssertion <D_NULL != table> failed, file: hash\\.c, "
      "line 310\nWall Clock Time: ");
}

TEST(FatalDeath, AbortWinsOverNothingButContinue) {
  // Continue is checked before abort: with both set the call returns.
  RunInChild([] {
    vqtest::ClearFrameEnvironment();
    ::setenv("VQ_FATAL_ERROR_CONTINUE", "1", 1);
    ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
    std::FILE *report = std::tmpfile();
    ASSERT_TRUE(DutSetFatalErrorFile(report));
    DutFatalError("survived");
    EXPECT_NE(ReadStream(report).find("Continuing execution.\n"), std::string::npos);
  });
}

TEST(FatalDeath, DefaultPathExitsWithStatusTwo) {
  // Sleeps five seconds before exiting: the one slow case.
  EXPECT_EXIT(
      {
        vqtest::ClearFrameEnvironment();
        DutSetFatalErrorFile(stderr);
        DutFatalError("bye %d", 1);
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(2), "\\*\\*\\* FATAL ERROR \\*\\*\\*\nbye 1\n");
}

}  // namespace
