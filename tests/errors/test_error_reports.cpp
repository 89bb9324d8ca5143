// Error-message files and the reports built on them: what a file may hold
// and what makes it corrupt, which of two files wins, filling the places,
// the severity threshold and feedback levels, per-thread parameters, and
// the jumps.
#include <barrier>
#include <csetjmp>
#include <cstdio>
#include <sstream>
#include <tuple>

#include "errors.hpp"
#include "vqutil/thread.h"

namespace {

// What a file may hold: nothing of a corrupt file is kept, not even its
// good lines. The file opened last wins on a number both hold; closing it
// brings the other's text back, whichever order they close in.
TEST_F(Reports, FileFormatOpenCloseAndLaterFileWins) {
  // A file's text, and the tail of its warning (null: it loads).
  const std::pair<const char *, const char *> cases[] = {
      // Comments, blank lines, tabs, a carriage return, no line feed at the end.
      {"# c\n\n  \n101 2 disk %1 full\n\t102  1\tlow on %1 (%2%%)  \r\n-5 0 negative", nullptr},
      {"101 2 fine\nx 2 text\n", "line 2: no message number"},
      {"101x 2 text\n", "line 1: no message number"},
      {"2147483648 2 too big\n", "line 1: no message number"},
      {"101\n", "line 1: no severity"},
      {"101 -1 text\n", "line 1: no severity"},
      {"101 2   \n", "line 1: no text"},
      {"101 2 50% done\n", "line 1: '%' not followed by 1-9 or '%'"},
      {"101 2 ends in %\n", "line 1: '%' not followed by 1-9 or '%'"},
      {"101 2 %0\n", "line 1: '%' not followed by 1-9 or '%'"},
      {"# twice\n101 2 a\n101 3 b\n", "line 3: message number given twice"},
  };
  for (const auto &[text, warning] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Open("m.msg", text), warning == nullptr ? 0 : D_ERR_FILE_CORRUPT);
    EXPECT_EQ(out_.Take(),
              warning == nullptr ? "" : "WARNING: DutErrOpenFile: " + dir_.file("m.msg") + " " + warning + "\n");
    EXPECT_EQ(Texts({101, 102, -5}),
              warning == nullptr ? "disk %1 full\nWARNING: low on %1 (%2%)\nnegative\n"
                                 : "unknown message 101\nunknown message 102\nunknown message -5\n");
    EXPECT_EQ(Close("m.msg"), warning == nullptr ? D_TRUE : D_FALSE);
  }

  vqtest::ExpectRefused(D_ERR_NULL_PTR, {AS_WORD(DutErrOpenFile(nullptr)), AS_WORD(DutErrCloseFile(nullptr))});
  EXPECT_FAILS(DutErrOpenFile(dir_.file("absent.msg").c_str()), D_FALSE, D_ERR_C);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FAILS(Close("absent.msg"), D_FALSE, D_ERR_DOESNT_EXIST);
  ASSERT_EQ(Open("old.msg", "101 2 old one\n102 2 old two\n"), 0);
  ASSERT_EQ(Open("new.msg", "102 2 new two\n103 2 new three\n"), 0);
  EXPECT_EQ(Open("new.msg", "1 2 a\n"), D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(Texts({101, 102, 103}), "old one\nnew two\nnew three\n");
  EXPECT_EQ(Close("new.msg"), D_TRUE);
  EXPECT_EQ(Texts({101, 102, 103}), "old one\nold two\nunknown message 103\n");
  ASSERT_EQ(Open("new.msg", "102 2 new two\n"), 0);
  EXPECT_EQ(Close("old.msg"), D_TRUE);
  EXPECT_EQ(Texts({101, 102}), "unknown message 101\nnew two\n");
  EXPECT_FAILS(Close("old.msg"), D_FALSE, D_ERR_DOESNT_EXIST);
}

TEST_F(Reports, FillsPlacesBySeverityAndFeedbackKeepingTheErrorValues) {
  ASSERT_EQ(Open("p.msg", "1 2 %1 and %2\n2 2 100%% of %1%%\n3 2 %3 before %1\n4 2 %9%10\n"
                          "5 0 note %1\n6 1 careful %1\n8 2 broken %1\n7 12 own level %1\n"),
            0);
  using Params = std::vector<const char *>;
  // Number, DutErrParamSet 1, 2, ... (null clears), up to three arguments,
  // severity threshold, feedback level, what is printed.
  const std::tuple<D_INT4, Params, Params, D_INT4, D_INT4, const char *> cases[] = {
      {1, {}, {"a", "b"}, 0, 0, "a and b\n"}, {1, {}, {"a"}, 0, 0, "a and %2\n"},
      {1, {"x", "y"}, {"a"}, 0, 0, "a and y\n"}, {1, {nullptr, "y"}, {}, 0, 0, "%1 and y\n"},
      {1, {"x", "y"}, {"%2", ""}, 0, 0, "%2 and \n"},  // a parameter is not filled again
      {2, {}, {"disk"}, 0, 0, "100% of disk%\n"}, {3, {}, {"1", "2", "3"}, 0, 0, "3 before 1\n"},
      {4, {"s1", "", "", "", "", "", "", "", "s9"}, {}, 0, 0, "s9s10\n"},
      {5, {}, {"x"}, 0, 0, "note x\n"}, {5, {}, {"x"}, 1, 0, ""}, {6, {}, {"x"}, 1, 0, "WARNING: careful x\n"},
      {6, {}, {"x"}, 2, 0, ""}, {8, {}, {"x"}, 2, 0, "broken x\n"}, {8, {}, {"x"}, 3, 0, ""},
      {7, {}, {"x"}, 12, 0, "own level x\n"}, {7, {}, {"x"}, 13, 0, ""}, {8, {}, {"x"}, -4, -1, "broken x\n"},
      {6, {}, {"x"}, 0, 1, "WARNING: 6: careful x\n"}, {5, {}, {"x"}, 0, 7, "5 (severity 0): note x\n"},
      // Unknown numbers count as errors.
      {4711, {}, {"x"}, 2, 0, "unknown message 4711 [x]\n"}, {4711, {}, {"x"}, 3, 0, ""},
      {D_ERR_EMPTY, {}, {"x"}, 0, 2, "19 (severity 2): empty [x]\n"},
  };
  for (auto [number, set, args, threshold, level, expected] : cases) {
    SCOPED_TRACE(expected);
    DutErrSeveritySet(threshold);
    DutErrFeedbackSet(level);
    for (std::size_t i = 0; i < set.size(); ++i) ASSERT_EQ(DutErrParamSet(D_INT4(i + 1), set[i]), D_TRUE);
    args.resize(3, nullptr);
    SetAllFour(D_ERR_EOF, EACCES, 7, 10054);
    EXPECT_EQ(DutErrReportParams(number, args[0], args[1], args[2], nullptr), number < 10 ? D_TRUE : D_FALSE);
    EXPECT_EQ(AllFour(), Four(D_ERR_EOF, EACCES, 7, 10054));
    EXPECT_EQ(out_.Take(), expected);
  }
  SetAllFour(0, 0, 0, 0);
  EXPECT_FAILS(DutErrParamSet(0, "x"), D_FALSE, D_ERR_VAL_TOO_SMALL);
  EXPECT_FAILS(DutErrParamSet(D_ERR_PARAM_COUNT + 1, nullptr), D_FALSE, D_ERR_VAL_TOO_LARGE);
}

// Two threads fill the same message at once; each sees only its own
// parameters, set both ways. Both set their value before either reports,
// so a value kept for the process instead of the thread shows in every
// round. Once the thread layer is started the output function runs under
// the process-wide lock, so one capture takes the lines of both.
TEST_F(ErrorThreads, ParametersArePerThread) {
  ASSERT_EQ(DutInitThreads(), D_TRUE);
  ASSERT_EQ(Open("t.msg", "1 2 %1/%2\n"), 0);
  std::barrier both_set(2);
  auto body = [&both_set](int t) {
    for (int i = 0; i < 300; ++i) {
      DutErrParamSet(2, std::to_string(t * 1000 + i).c_str());
      both_set.arrive_and_wait();
      DutErrReportParams(1, std::to_string(t).c_str(), nullptr);
    }
  };
  std::thread a(body, 0), b(body, 1);
  a.join();
  b.join();
  // Each thread's lines whole, its own, and in its order.
  std::istringstream lines(out_.Take());
  int next[2] = {0, 0};
  for (std::string line; std::getline(lines, line);) {
    int t = -1, i = -1;
    ASSERT_TRUE(std::sscanf(line.c_str(), "%d/%d", &t, &i) == 2 && (t == 0 || t == 1)) << line;
    EXPECT_EQ(i, t * 1000 + next[t]++) << line;
  }
  EXPECT_EQ(std::pair(next[0], next[1]), std::pair(300, 300));
}

// setjmp's result read in a switch, as the language allows; the frames in
// between own nothing.
int JumpResult(jmp_buf *own, D_INT4 number) {
  switch (setjmp(*(own != nullptr ? own : DutErrGetJumpBufferPtr()))) {
    case 0:
      DutErrReportParamsJmp(own, number, "j", nullptr);
    case 1:
      return 1;
    case 5:
      return 5;
    default:
      return -1;
  }
}

TEST_F(Reports, JumpsToOwnOrDefaultBuffer) {
  ASSERT_EQ(Open("j.msg", "5 2 jumped %1%2\n0 2 zero %1%2\n"), 0);
  jmp_buf own;
  for (jmp_buf *buffer : {&own, static_cast<jmp_buf *>(nullptr)}) {
    for (auto [number, value, text] : {std::tuple{5, 5, "jumped"}, std::tuple{0, 1, "zero"}}) {
      SetAllFour(D_ERR_EOF, 0, 0, 0);
      DutErrParamSet(2, "-set");
      EXPECT_EQ(JumpResult(buffer, number), value);
      EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
      // The jump cleared the parameters, as every report does.
      EXPECT_EQ(out_.Take() + Texts({number}), std::string(text) + " j-set\n" + text + " %1%2\n");
    }
  }
  SetAllFour(0, 0, 0, 0);
}

// A process that never armed the default buffer ends as an unarmed landing
// does, instead of jumping nowhere.
TEST(ReportsDeath, JumpToTheUnarmedDefaultBufferExitsWithStatusTwo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process: nothing armed
  EXPECT_EXIT((DutSetOutputFunc(vqtest::ToStderr), DutErrReportParamsJmp(nullptr, 9, nullptr)),
              ::testing::ExitedWithCode(2), "Default error jump buffer has not been set\\.  Exiting\\.\n$");
}

}  // namespace
