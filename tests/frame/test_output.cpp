// The output function, time stamps, warnings and internal validation.
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

namespace {

using vqtest::OutputCapture;
using vqtest::SetAllFour;

void ExpectAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  const int seen_errno = errno;
  EXPECT_EQ(seen_errno, c_err);
  EXPECT_EQ(DutErrNumGetOs(), os_err);
  EXPECT_EQ(DutErrNumGetSocket(), socket_err);
  EXPECT_EQ(DutErrNumGet(), number);
}

// An output function that wrecks every error value of its thread.
int ClobberingOutput(const char *format, va_list args) {
  DutErrNumSetOs(99);
  DutErrNumSetSocket(10099);
  DutErrNumSet(D_ERR_TYPE_UNKNOWN);
  errno = EDOM;
  return vqtest::CaptureOutput(format, args);
}

int StderrOutput(const char *format, va_list args) { return std::vfprintf(stderr, format, args); }

class Output : public ::testing::Test {
 protected:
  void TearDown() override { vqtest::ClearFrameEnvironment(); }
  OutputCapture capture_;
};

// ---- The output function ---------------------------------------------------

TEST_F(Output, DutOutFormatsThroughTheOutputFunction) {
  DutOut("a%dz %s|%5.2f\n", 5, "x", 2.5);
  EXPECT_EQ(capture_.Take(), "a5z x| 2.50\n");
  DutOut("%s", "");
  DutOut("no newline");
  EXPECT_EQ(capture_.Take(), "no newline");
}

TEST_F(Output, GetReturnsTheInstalledFunction) {
  EXPECT_EQ(DutGetOutputFunc(), &vqtest::CaptureOutput);
  DutSetOutputFunc(&ClobberingOutput);
  EXPECT_EQ(DutGetOutputFunc(), &ClobberingOutput);
  DutSetOutputFunc(&vqtest::CaptureOutput);
}

TEST(OutputDefault, DefaultOutputFunctionIsVprintf) {
  vqtest::RunInChild([] {
    D_OUTPUT_FUNC standard = &std::vprintf;
    EXPECT_EQ(DutGetOutputFunc(), standard);
  });
}

TEST(OutputDeath, NullOutputFunctionIsAnAssertion) {
  EXPECT_EXIT(
      {
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutSetOutputFunc(nullptr);
      },
      ::testing::KilledBySignal(SIGABRT),
      "Assertion <output_func != NULL> failed, file: util\\.c, line [0-9]+");
}

TEST_F(Output, DutOutAndWarningKeepAllFourErrorValues) {
  DutSetOutputFunc(&ClobberingOutput);
  SetAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
  DutOut("x%d\n", 1);
  ExpectAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);

  SetAllFour(D_ERR_VAL_INVALID, ENOENT, 4, 10060);
  DutWarning("y%d\n", 2);
  ExpectAllFour(D_ERR_VAL_INVALID, ENOENT, 4, 10060);
  EXPECT_EQ(capture_.Take(), "x1\nWARNING: y2\n");
  DutSetOutputFunc(&vqtest::CaptureOutput);
}

// Passes the arguments on as a va_list.
void CallVOut(const char *format, ...) {
  va_list args;
  va_start(args, format);
  DutVOut(format, args);
  va_end(args);
}

TEST_F(Output, DutVOutPrintsWithoutSavingTheErrorValues) {
  CallVOut("v%c%d\n", 'a', 3);
  EXPECT_EQ(capture_.Take(), "va3\n");
  DutSetOutputFunc(&ClobberingOutput);
  SetAllFour(D_ERR_DOESNT_EXIST, 0, 0, 0);
  CallVOut("z");
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_UNKNOWN);
  DutSetOutputFunc(&vqtest::CaptureOutput);
}

TEST_F(Output, OutDebugWithoutADebugFileReachesTheOutputOnce) {
  DutOutDebug("both %d\n", 7);
  EXPECT_EQ(capture_.Take(), "both 7\n");
}

TEST_F(Output, FlushStdoutAnswersLikeFflush) { EXPECT_EQ(DutFlushStdout(), 0); }

// ---- Time stamps -------------------------------------------------------------

// Splits text into "<stamp>: <rest>" and checks the stamp is a ctime text
// (without its newline) of a second in [from, to].
::testing::AssertionResult HasStamp(const std::string &text, std::time_t from, std::time_t to,
                                    std::string *rest) {
  for (const std::string &stamp : vqtest::CtimeTexts(from, to)) {
    const std::string head = stamp.substr(0, stamp.size() - 1) + ": ";
    if (text.compare(0, head.size(), head) == 0) {
      *rest = text.substr(head.size());
      return ::testing::AssertionSuccess();
    }
  }
  return ::testing::AssertionFailure() << "no time stamp at the head of <" << text << ">";
}

TEST_F(Output, TimestampPrecedesEveryOutputCall) {
  ::setenv("VQTIMESTAMPOUTPUT", "1", 1);
  const std::time_t before = std::time(nullptr);
  DutOut("hello %d\n", 1);
  const std::time_t after = std::time(nullptr);
  std::string rest;
  ASSERT_TRUE(HasStamp(capture_.Take(), before, after, &rest));
  EXPECT_EQ(rest, "hello 1\n");

  // The variable is read afresh on every call.
  ::unsetenv("VQTIMESTAMPOUTPUT");
  DutOut("plain\n");
  EXPECT_EQ(capture_.Take(), "plain\n");
  ::setenv("VQTIMESTAMPOUTPUT", "", 1);  // set to anything, even empty
  const std::time_t again = std::time(nullptr);
  DutOut("again");
  ASSERT_TRUE(HasStamp(capture_.Take(), again, std::time(nullptr), &rest));
  EXPECT_EQ(rest, "again");
}

TEST_F(Output, TimestampAppearsTwiceInAWarning) {
  ::setenv("VQTIMESTAMPOUTPUT", "yes", 1);
  const std::time_t before = std::time(nullptr);
  DutWarning("disk %d%% full\n", 90);
  const std::time_t after = std::time(nullptr);
  std::string rest;
  ASSERT_TRUE(HasStamp(capture_.Take(), before, after, &rest));
  ASSERT_EQ(rest.compare(0, 9, "WARNING: "), 0) << rest;
  std::string text;
  ASSERT_TRUE(HasStamp(rest.substr(9), before, after, &text));
  EXPECT_EQ(text, "disk 90% full\n");
}

// ---- Warnings and checks ---------------------------------------------------

TEST_F(Output, WarningPrefixesItsText) {
  DutWarning("level %s at %d\n", "low", 3);
  EXPECT_EQ(capture_.Take(), "WARNING: level low at 3\n");
}

TEST_F(Output, AssertAndExpectReturnATrueCondition) {
  EXPECT_EQ(DutAssert(7, "x", "x.c", 1), 7);
  EXPECT_EQ(DutExpect(-3, "x", "x.c", 1), -3);
  EXPECT_EQ(capture_.Take(), "");
}

TEST_F(Output, ExpectReportsTwoWarningsAndTheFourCodes) {
  SetAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
  EXPECT_EQ(DutExpect(0, "D_NULL != cbl", "callback.c", 42), 0);
  EXPECT_EQ(capture_.Take(),
            "WARNING: Internal validation <D_NULL != cbl> failed, file: callback.c, line 42\n"
            "WARNING: Please report this to Quandrel Technical Support.\n"
            "Last VQsuite Error Code: 8\n"
            "Last C Error Code: 13\n"
            "Last OS Error Code: 5\n"
            "Last Socket Error Code: 10054\n");
}

TEST(OutputDeath, WarningAbortsWhenAsked) {
  EXPECT_EXIT(
      {
        ::setenv("VQ_WARNING_ABORT", "1", 1);
        DutSetOutputFunc(&StderrOutput);
        DutWarning("going %s\n", "down");
        std::fputs("returned from the warning\n", stderr);
        std::_Exit(0);
      },
      ::testing::KilledBySignal(SIGABRT), "WARNING: going down\n");
}

TEST(OutputDeath, ExpectAbortTurnsAFailedExpectationFatal) {
  EXPECT_EXIT(
      {
        ::setenv("VQ_EXPECT_ABORT", "1", 1);
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutSetOutputFunc(&StderrOutput);
        DutExpect(0, "n > 0", "mine.c", 12);
        std::_Exit(0);
      },
      ::testing::KilledBySignal(SIGABRT),
      "Internal validation <n > 0> failed, file: mine\\.c, line 12\n(.|\n)*"
      "Assertion <D_FALSE> failed, file: util\\.c, line 1102\n");
}

TEST(OutputDeath, ExpectWithoutAbortGoesOn) {
  vqtest::RunInChild([] {
    vqtest::ClearFrameEnvironment();
    ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);  // would kill the child if reached
    OutputCapture capture;
    DutExpect(0, "t", "t.c", 2);
    EXPECT_NE(capture.Take().find("Please report this"), std::string::npos);
  });
}

// ---- At exit -----------------------------------------------------------------

void FirstAtExit() { std::fputs("first registered\n", stderr); }
void SecondAtExit() { std::fputs("second registered\n", stderr); }

TEST(OutputAtExit, NullFunctionIsRefused) {
  DutErrNumSet(0);
  EXPECT_FALSE(DutAtExit(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(OutputAtExit, FunctionsRunAtProcessEndInReverseOrder) {
  EXPECT_EXIT(
      {
        if (!DutAtExit(&FirstAtExit) || !DutAtExit(&SecondAtExit)) std::_Exit(3);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "^second registered\nfirst registered\n$");
}

}  // namespace
