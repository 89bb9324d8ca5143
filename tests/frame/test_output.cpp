// The output function, time stamps, warnings, internal validation and the
// functions run at exit.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>

#include "support/output_capture.hpp"
#include "child.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

using vqtest::OutputCapture;
using vqtest::SetAllFour;

using Four = std::tuple<D_INT4, int, D_INT4, D_INT4>;

// errno first, so that no other getter can be what keeps it.
Four AllFour() {
  const int c_err = errno;
  return {DutErrNumGet(), c_err, DutErrNumGetOs(), DutErrNumGetSocket()};
}

// An output function that wrecks every error value of its thread.
int ClobberingOutput(const char *format, va_list args) {
  DutErrNumSetOs(99);
  DutErrNumSetSocket(10099);
  DutErrNumSet(D_ERR_TYPE_UNKNOWN);
  errno = EDOM;
  return vqtest::Capture(format, args);
}

int StderrOutput(const char *format, va_list args) { return std::vfprintf(stderr, format, args); }

void CallVOut(const char *format, ...) {
  va_list args;
  va_start(args, format);
  DutVOut(format, args);
  va_end(args);
}

class Output : public ::testing::Test {
 protected:
  void TearDown() override {
    vqtest::ClearFrameEnvironment();
    DutSetOutputFunc(&vqtest::Capture);
  }
  OutputCapture capture_;
};

// ---- The output function ---------------------------------------------------

// Without a debug file DutOutDebug reaches the output once.
TEST_F(Output, DutOutVOutAndOutDebugFormatThroughTheOutputFunction) {
  DutOut("a%dz %s|%5.2f\n", 5, "x", 2.5);
  DutOut("%s", "");
  CallVOut("v%c%d\n", 'a', 3);
  DutOutDebug("both %d", 7);
  EXPECT_EQ(capture_.Take(), "a5z x| 2.50\nva3\nboth 7");
  EXPECT_EQ(DutFlushStdout(), 0);
}

TEST(OutputDefault, DefaultIsVprintfAndNullIsAnAssertion) {
  vqtest::RunClean([] {
    D_OUTPUT_FUNC standard = &std::vprintf;
    EXPECT_EQ(DutGetOutputFunc(), standard);
  });
  EXPECT_FATAL_ABORT(DutSetOutputFunc(nullptr),
                     "Assertion <output_func != NULL> failed, file: util\\.c, line [0-9]+");
}

TEST_F(Output, OutAndWarningKeepAllFourErrorValuesButVOutDoesNot) {
  DutSetOutputFunc(&ClobberingOutput);
  SetAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
  DutOut("x%d\n", 1);
  EXPECT_EQ(AllFour(), Four(D_ERR_DOESNT_EXIST, EACCES, 5, 10054));
  SetAllFour(D_ERR_VAL_INVALID, ENOENT, 4, 10060);
  DutWarning("y%d\n", 2);
  EXPECT_EQ(AllFour(), Four(D_ERR_VAL_INVALID, ENOENT, 4, 10060));
  EXPECT_EQ(capture_.Take(), "x1\nWARNING: y2\n");
  CallVOut("z");
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_UNKNOWN);
}

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

TEST_F(Output, TimestampPrecedesEveryOutputCallAndTwiceInAWarning) {
  ::setenv("VQTIMESTAMPOUTPUT", "1", 1);
  std::time_t before = std::time(nullptr);
  DutOut("hello %d\n", 1);
  std::string rest;
  ASSERT_TRUE(HasStamp(capture_.Take(), before, std::time(nullptr), &rest));
  EXPECT_EQ(rest, "hello 1\n");

  // The variable is read afresh on every call.
  ::unsetenv("VQTIMESTAMPOUTPUT");
  DutOut("plain\n");
  EXPECT_EQ(capture_.Take(), "plain\n");
  ::setenv("VQTIMESTAMPOUTPUT", "", 1);  // set to anything, even empty
  before = std::time(nullptr);
  DutWarning("disk %d%% full\n", 90);
  const std::time_t after = std::time(nullptr);
  ASSERT_TRUE(HasStamp(capture_.Take(), before, after, &rest));
  ASSERT_EQ(rest.compare(0, 9, "WARNING: "), 0) << rest;
  std::string text;
  ASSERT_TRUE(HasStamp(rest.substr(9), before, after, &text));
  EXPECT_EQ(text, "disk 90% full\n");
}

// ---- Checks ------------------------------------------------------------------

TEST_F(Output, ExpectReportsTwoWarningsAndTheFourCodes) {
  EXPECT_EQ(DutAssert(7, "x", "x.c", 1), 7);
  EXPECT_EQ(DutExpect(-3, "x", "x.c", 1), -3);
  EXPECT_EQ(capture_.Take(), "");
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

TEST(OutputDeath, WarningAndExpectAbortOnlyWhenAsked) {
  EXPECT_EXIT(
      {
        ::setenv("VQ_WARNING_ABORT", "1", 1);
        DutSetOutputFunc(&StderrOutput);
        DutWarning("going %s\n", "down");
        std::_Exit(0);
      },
      ::testing::KilledBySignal(SIGABRT), "WARNING: going down\n");
  EXPECT_FATAL_ABORT(
      {
        ::setenv("VQ_EXPECT_ABORT", "1", 1);
        DutSetOutputFunc(&StderrOutput);
        DutExpect(0, "n > 0", "mine.c", 12);
      },
      "Internal validation <n > 0> failed, file: mine\\.c, line 12\n(.|\n)*"
      "Assertion <D_FALSE> failed, file: util\\.c, line 1102\n");
  vqtest::RunClean([] {
    ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);  // would kill the child if reached
    OutputCapture capture;
    DutExpect(0, "t", "t.c", 2);
    EXPECT_NE(capture.Take().find("Please report this"), std::string::npos);
  });
}

// ---- At exit -----------------------------------------------------------------

TEST(OutputAtExit, FunctionsRunAtProcessEndInReverseOrder) {
  EXPECT_FAILS(DutAtExit(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EXIT(
      {
        if (!DutAtExit([] { std::fputs("first registered\n", stderr); }) ||
            !DutAtExit([] { std::fputs("second registered\n", stderr); }))
          std::_Exit(3);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "^second registered\nfirst registered\n$");
}

}  // namespace
