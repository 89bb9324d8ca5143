// The output function, time stamps, warnings, internal validation, the
// functions run at exit, the start-up settings, and the fatal-error report:
// where it goes and how the process ends.

#include <cerrno>
#include <csignal>
#include <regex>
#include <utility>

#include "support/env_var.hpp"
#include "child.hpp"
#include "vqutil/util.h"

namespace {

// An output function that wrecks every error value of its thread.
int ClobberingOutput(const char *format, va_list args) {
  SetAllFour(D_ERR_TYPE_UNKNOWN, EDOM, 99, 10099);
  return vqtest::Capture(format, args);
}

void CallVOut(const char *format, ...) {
  va_list args;
  va_start(args, format);
  DutVOut(format, args);
  va_end(args);
}

// ---- The output function ---------------------------------------------------

// Without a debug file DutOutDebug reaches the output once. DutOut and
// DutWarning keep all four error values an output function may change;
// DutVOut does not. A broken expectation reports two warnings and the four
// codes. The time-stamp variable is read afresh on every call, and may be
// set to anything, even empty; a warning is stamped before and after its
// prefix.
TEST(Output, FormatsKeepingTheErrorValuesExpectReportsAndTimeStamps) {
  OutputCapture capture;
  DutOut("a%dz %s|%5.2f\n", 5, "x", 2.5);
  DutOut("%s", "");
  CallVOut("v%c%d\n", 'a', 3);
  DutOutDebug("both %d", 7);
  EXPECT_EQ(capture.Take(), "a5z x| 2.50\nva3\nboth 7");
  EXPECT_EQ(DutFlushStdout(), 0);
  DutSetOutputFunc(&ClobberingOutput);
  SetAllFour(D_ERR_OS, 0, 0x18000, 0);  // zeros are put back too
  DutOut("x%d\n", 1);
  DutWarning("y%d\n", 2);
  EXPECT_TRUE(DutPerror("p"));
  EXPECT_EQ(AllFour(), Four(D_ERR_OS, 0, 0x18000, 0));
  EXPECT_EQ(capture.Take(), "x1\nWARNING: y2\np: Unknown Windows error number (-32768)\n");
  CallVOut("z");
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_UNKNOWN);
  DutSetOutputFunc(&vqtest::Capture);
  EXPECT_EQ(std::pair(DutAssert(7, "x", "x.c", 1), DutExpect(-3, "x", "x.c", 1)), std::pair(7, -3));
  EXPECT_EQ(capture.Take(), "z");
  SetAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
  EXPECT_EQ(DutExpect(0, "D_NULL != cbl", "callback.c", 42), 0);
  EXPECT_EQ(capture.Take(),
            "WARNING: Internal validation <D_NULL != cbl> failed, file: callback.c, line 42\n"
            "WARNING: Please report this to Quandrel Technical Support.\n"
            "Last VQsuite Error Code: 8\n"
            "Last C Error Code: 13\n"
            "Last OS Error Code: 5\n"
            "Last Socket Error Code: 10054\n");
  const std::time_t before = std::time(nullptr);
  ::setenv("VQTIMESTAMPOUTPUT", "1", 1);
  DutOut("hello %d\n", 1);
  ::unsetenv("VQTIMESTAMPOUTPUT");
  DutOut("plain\n");
#ifdef _WIN32
  ::setenv("VQTIMESTAMPOUTPUT", "0", 1);  // Windows holds no empty variable; any value stamps
#else
  ::setenv("VQTIMESTAMPOUTPUT", "", 1);
#endif
  DutWarning("disk %d%% full\n", 90);
  EXPECT_EQ(vqtest::Unstamped(capture.Take(), before, std::time(nullptr) + 1),
            "T: hello 1\nplain\nT: WARNING: T: disk 90% full\n");
  ::unsetenv("VQTIMESTAMPOUTPUT");
}

// The default is vprintf, and setting none is an assertion. Warnings and
// broken expectations abort only when asked.
TEST(OutputDeath, DefaultAndNullOutputAndWarningAndExpectAbortOnlyWhenAsked) {
#ifndef _WIN32  // MinGW's vprintf is an inline of its header: each module has its own copy
  EXPECT_EQ(DutGetOutputFunc(), D_OUTPUT_FUNC{&std::vprintf});
#else
  EXPECT_NE(DutGetOutputFunc(), nullptr);
#endif
  EXPECT_FATAL_ABORT(DutSetOutputFunc(nullptr),
                     "Assertion <output_func != NULL> failed, file: util\\.c, line \\w+");
  EXPECT_EXIT(
      {
        ::setenv("VQ_WARNING_ABORT", "1", 1);
        DutSetOutputFunc(&vqtest::ToStderr);
        DutWarning("going %s\n", "down");
      },
      ::testing::KilledBySignal(SIGABRT), "WARNING: going down\n");
  EXPECT_FATAL_ABORT(
      {
        ::setenv("VQ_EXPECT_ABORT", "1", 1);
        DutSetOutputFunc(&vqtest::ToStderr);
        DutExpect(0, "n > 0", "mine.c", 12);
      },
      // The warning, then the report: one expression that GoogleTest's
      // simple regular expressions on Windows read as well.
      "Internal validation <n > 0> failed, file: mine\\.c, line 12\nWARNING: Please report this to Quandrel "
      "Technical Support\\.\n\n\\*\\*\\* FATAL ERROR \\*\\*\\*\nAssertion <D_FALSE> failed, file: util\\.c, "
      "line 1102\n");
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

// A fresh process reads the settings file only for variables still unset,
// and a failure names the one it was reading for. (Windows reads the
// registry instead.)
#ifndef _WIN32
TEST(OutputStartup, SettingsFileIsReadOnlyForUnsetVariables) {
  for (const char *want : {"Couldn't access HKLM\\/\\VQARCH", ""}) {
    vqtest::EnvVar home("VQHOME", "h"), arch("VQARCH", *want ? nullptr : "a"), file("VQ_SETTINGS_FILE", "/");
    vqtest::RunInChild("threadsafe", [&] { EXPECT_STREQ(DutGetEnvErrorText(), want); });
  }
}
#endif

// ---- Fatal errors ------------------------------------------------------------

// Wall-clock seconds and library times before and after fatal errors.
struct Window {
  std::time_t from, to;
  double time_from, time_to;
};

// Reports with their clocks checked against the window and replaced: the
// wall clock (the ctime text of a second in it) by "T", the library time
// by "L".
std::string Normalized(std::string text, const Window &w) {
  text = vqtest::Unstamped(std::move(text), w.from, w.to);
  const std::regex time("VQsuite Time: (-?[0-9]+\\.[0-9]{6})\n");
  std::string out;
  for (std::smatch m; std::regex_search(text, m, time); text = m.suffix().str()) {
    const double shown = std::stod(m[1].str());
    EXPECT_TRUE(shown >= w.time_from - 1e-6 && shown <= w.time_to + 1e-6) << shown;
    out += m.prefix().str() + "VQsuite Time: L\n";
  }
  return out + text;
}

std::string Report(const std::string &message, long number, long c_err, long os_err, long socket_err) {
  return "\n*** FATAL ERROR ***\n" + message + "\nWall Clock Time: T\nVQsuite Time: L\nLast VQsuite Error Code: " +
         std::to_string(number) + "\nLast C Error Code: " + std::to_string(c_err) + "\nLast OS Error Code: " +
         std::to_string(os_err) + "\nLast Socket Error Code: " + std::to_string(socket_err) + "\n";
}

// The fatal error file is null until set, and standard output after the
// first fatal error without one. Continuing (the variable set to anything,
// even empty) is checked before aborting. Each report goes to the fatal
// error file, naming the open debug file, and to the debug file itself,
// never through the output function; the guard is cleared after each, so a
// second fatal error reports again.
TEST(FatalReport, ContinuePathReportsToBothFilesAndReturns) {
  RunClean([] {
#ifdef _WIN32
    ::setenv("VQ_FATAL_ERROR_CONTINUE", "0", 1);  // Windows holds no empty variable; any value continues
#else
    ::setenv("VQ_FATAL_ERROR_CONTINUE", "", 1);
#endif
    ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
    EXPECT_FAILS(DutGetFatalErrorFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutSetFatalErrorFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
    std::FILE *file = reinterpret_cast<std::FILE *>(1);
    ASSERT_TRUE(DutGetFatalErrorFile(&file));
    EXPECT_EQ(file, nullptr);
    ASSERT_NE(std::freopen("stdout.txt", "w", stdout), nullptr);  // keeps the report out of the test log
    DutFatalError("to stdout");
    ASSERT_TRUE(DutGetFatalErrorFile(&file));
    EXPECT_EQ(file, stdout);
    std::fflush(stdout);
    EXPECT_EQ(ReadFile("stdout.txt").find("\n*** FATAL ERROR ***\nto stdout\n"), 0u);
    std::FILE *report = std::fopen("fatal.txt", "w");
    ASSERT_TRUE(report != nullptr && DutSetFatalErrorFile(report));
    DutDebugOpen("crash");
    DutDebug("earlier\n");
    vqtest::OutputCapture capture;
    SetAllFour(D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
    Window w{std::time(nullptr), 0, DutGetCurrentTime(), 0};
    DutFatalError("broken %s %d", "thing", 3);
    SetAllFour(D_ERR_VAL_INVALID, 0, 0, 0);
    EXPECT_EQ(DutAssert(0, "p != NULL", "list.c", 77), 0);
    w.time_to = DutGetCurrentTime();
    w.to = std::time(nullptr) + 1;  // the precise clock may be a second ahead of time()
    EXPECT_EQ(capture.Take(), "");
    const std::string first = Report("broken thing 3", D_ERR_DOESNT_EXIST, EACCES, 5, 10054);
    const std::string second =
        Report("Assertion <p != NULL> failed, file: list.c, line 77", D_ERR_VAL_INVALID, 0, 0, 0);
    const std::string tail = "See debug file: crash.dbg\nContinuing execution.\n";
    EXPECT_EQ(Normalized(ReadFile("fatal.txt"), w), first + tail + second + tail);
    EXPECT_EQ(Normalized(ReadFile("crash.dbg"), w), "earlier\n" + first + second);
  });
}

TEST(FatalDeath, AbortSettingAbortsAfterTheReportAndTheDefaultExitsWithStatusTwo) {
  EXPECT_FATAL_ABORT(DutAssert(0, "D_NULL != table", "hash.c", 310),
                     "\\*\\*\\* FATAL ERROR \\*\\*\\*\nAssertion <D_NULL != table> failed, file: "
                     "hash\\.c, line 310\nWall Clock Time: ");
  // Sleeps five seconds before exiting: the one slow case.
  EXPECT_EXIT(
      {
        vqtest::ClearFrameEnvironment();
        DutSetFatalErrorFile(stderr);
        DutFatalError("bye %d", 1);
      },
      ::testing::ExitedWithCode(2), "\\*\\*\\* FATAL ERROR \\*\\*\\*\nbye 1\n");
}

}  // namespace
