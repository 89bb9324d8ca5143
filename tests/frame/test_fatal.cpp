// The fatal-error report, where it goes, and how the process ends.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "support/output_capture.hpp"
#include "child.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"
#include "vqutil/time.h"

namespace {

using vqtest::ReadFile;
using vqtest::ReadStream;
using vqtest::RunClean;
using vqtest::SetAllFour;

// Wall-clock seconds and library times before and after a fatal error.
struct Window {
  std::time_t from, to;
  double time_from, time_to;
};

template <class Body>
Window Around(Body body) {
  Window w{std::time(nullptr), 0, DutGetCurrentTime(), 0};
  body();
  w.time_to = DutGetCurrentTime();
  w.to = std::time(nullptr);
  return w;
}

// Asks fatal errors to return (the variable may be set to anything, even
// empty), and sends their reports to a new file.
std::FILE *ContinueIntoFile() {
  ::setenv("VQ_FATAL_ERROR_CONTINUE", "", 1);
  std::FILE *report = std::tmpfile();
  EXPECT_TRUE(report != nullptr && DutSetFatalErrorFile(report));
  return report;
}

std::string Codes(long number, long c_err, long os_err, long socket_err) {
  return "Last VQsuite Error Code: " + std::to_string(number) + "\nLast C Error Code: " +
         std::to_string(c_err) + "\nLast OS Error Code: " + std::to_string(os_err) +
         "\nLast Socket Error Code: " + std::to_string(socket_err) + "\n";
}

// Checks one report at the head of text and returns what follows it: the
// wall clock is the ctime text of a second in the window and the library
// time lies within it.
::testing::AssertionResult MatchReport(const std::string &text, const std::string &message,
                                       const Window &w, const std::string &codes,
                                       std::string *rest) {
  const std::string head = "\n*** FATAL ERROR ***\n" + message + "\nWall Clock Time: ";
  if (text.compare(0, head.size(), head) != 0)
    return ::testing::AssertionFailure() << "report head differs: <" << text << ">";
  const std::string tail = text.substr(head.size());
  std::smatch m;
  if (!std::regex_search(tail, m, std::regex("^([^\n]*\n)VQsuite Time: (-?[0-9]+\\.[0-9]{6})\n")))
    return ::testing::AssertionFailure() << "clock lines: <" << tail << ">";
  if (vqtest::CtimeTexts(w.from, w.to).count(m[1].str()) == 0)
    return ::testing::AssertionFailure() << "wall clock outside the window: " << m[1].str();
  const double shown = std::strtod(m[2].str().c_str(), nullptr);
  if (shown < w.time_from - 0.000001 || shown > w.time_to + 0.000001)
    return ::testing::AssertionFailure()
           << "library time " << shown << " outside " << w.time_from << ".." << w.time_to;
  const std::string after = tail.substr(m[0].length());
  if (after.compare(0, codes.size(), codes) != 0)
    return ::testing::AssertionFailure() << "error codes: <" << after << ">";
  *rest = after.substr(codes.size());
  return ::testing::AssertionSuccess();
}

// Continuing is checked before aborting. Each report goes to the fatal
// error file, naming the open debug file, and to the debug file itself,
// never through the output function; the guard is cleared after each, so
// a second fatal error reports again.
TEST(FatalReport, ContinuePathReportsToBothFilesAndReturns) {
  RunClean([] {
    std::FILE *report = ContinueIntoFile();
    ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
    DutDebugOpen("crash");
    DutDebug("earlier\n");
    vqtest::OutputCapture capture;
    const std::string assertion = "Assertion <p != NULL> failed, file: list.c, line 77";
    const std::string codes[] = {Codes(D_ERR_DOESNT_EXIST, EACCES, 5, 10054), Codes(D_ERR_VAL_INVALID, 0, 0, 0)};
    SetAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
    const Window w = Around([] {
      DutFatalError("broken %s %d", "thing", 3);
      SetAllFour(D_ERR_VAL_INVALID, 0, 0, 0);
      EXPECT_EQ(DutAssert(0, "p != NULL", "list.c", 77), 0);
    });
    EXPECT_EQ(capture.Take(), "");
    std::string reported = ReadStream(report), logged = ReadFile("crash.dbg");
    ASSERT_EQ(logged.compare(0, 8, "earlier\n"), 0) << logged;
    logged.erase(0, 8);
    for (int i = 0; i < 2; ++i) {
      const std::string message = i == 0 ? "broken thing 3" : assertion;
      ASSERT_TRUE(MatchReport(reported, message, w, codes[i], &reported));
      const std::string tail = "See debug file: crash.dbg\nContinuing execution.\n";
      ASSERT_EQ(reported.compare(0, tail.size(), tail), 0) << reported;
      reported.erase(0, tail.size());
      ASSERT_TRUE(MatchReport(logged, message, w, codes[i], &logged));
    }
    EXPECT_EQ(reported + logged, "");
  });
}

TEST(FatalFile, NullUntilSetAndStandardOutputAfterTheFirstFatalError) {
  RunClean([] {
    EXPECT_FAILS(DutGetFatalErrorFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutSetFatalErrorFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
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
  EXPECT_FATAL_ABORT(DutAssert(0, "D_NULL != table", "hash.c", 310),
                     "\\*\\*\\* FATAL ERROR \\*\\*\\*\nAssertion <D_NULL != table> failed, file: "
                     "hash\\.c, line 310\nWall Clock Time: ");
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
