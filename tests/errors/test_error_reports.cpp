// Error-message files and the reports built on them: what a file may hold
// and what makes it corrupt, which of two files wins, filling the places,
// the severity threshold and feedback levels, per-thread parameters, and
// the jumps.
#include <gtest/gtest.h>

#include <cerrno>
#include <csetjmp>
#include <string>
#include <thread>
#include <vector>

#include "support/error_values.hpp"
#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/error.h"

namespace {

using vqtest::AllFour;
using vqtest::SetAllFour;

// A temporary folder for message files, captured output, and the report
// settings put back at the end.
class Reports : public ::testing::Test {
 protected:
  ~Reports() override {
    for (const std::string &name : opened_) DutErrCloseFile(name.c_str());
    DutErrSeveritySet(0);
    DutErrFeedbackSet(0);
  }
  // Writes and opens a message file; its result and the number it left.
  std::pair<D_BOOL, D_INT4> Open(const std::string &base, const std::string &text) {
    std::string name = dir_.file(base);
    vqtest::WriteFile(name, text);
    DutErrNumSet(0);
    D_BOOL ok = DutErrOpenFile(name.c_str());
    if (ok == D_TRUE) opened_.push_back(name);
    return {ok, DutErrNumGet()};
  }
  bool Close(const std::string &base) { return DutErrCloseFile(dir_.file(base).c_str()) == D_TRUE; }

  vqtest::TempDir dir_{"vqerrfile"};
  vqtest::OutputCapture out_;
  std::vector<std::string> opened_;
};

TEST_F(Reports, FileFormat) {
  struct Case {
    const char *text;
    D_INT4 err;           // 0: the file loads
    const char *warning;  // the warning's tail for a corrupt file
  };
  const Case cases[] = {
      {"# messages\n\n   \n10 2 disk %1 full\n\t11  1\tlow on %1 (%2%%)  \r\n-5 0 negative\n", 0, nullptr},
      {"10 2 no line feed at the end", 0, nullptr},
      {"10 2 fine\nx 2 text\n", D_ERR_FILE_CORRUPT, "line 2: no message number\n"},
      {"10\n", D_ERR_FILE_CORRUPT, "line 1: no severity\n"},
      {"10x 2 text\n", D_ERR_FILE_CORRUPT, "line 1: no message number\n"},
      {"2147483648 2 too big\n", D_ERR_FILE_CORRUPT, "line 1: no message number\n"},
      {"10 -1 text\n", D_ERR_FILE_CORRUPT, "line 1: no severity\n"},
      {"10 2x text\n", D_ERR_FILE_CORRUPT, "line 1: no severity\n"},
      {"10 2   \n", D_ERR_FILE_CORRUPT, "line 1: no text\n"},
      {"10 2 50% done\n", D_ERR_FILE_CORRUPT, "line 1: '%' not followed by 1-9 or '%'\n"},
      {"10 2 ends in %\n", D_ERR_FILE_CORRUPT, "line 1: '%' not followed by 1-9 or '%'\n"},
      {"10 2 %0 is no place\n", D_ERR_FILE_CORRUPT, "line 1: '%' not followed by 1-9 or '%'\n"},
      {"# twice\n10 2 a\n10 3 b\n", D_ERR_FILE_CORRUPT, "line 3: message number given twice\n"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    out_.Take();
    auto [ok, err] = Open("m.msg", c.text);
    EXPECT_EQ(ok, c.err == 0 ? D_TRUE : D_FALSE);
    EXPECT_EQ(err, c.err);
    if (c.warning != nullptr) {
      EXPECT_EQ(out_.Take(), "WARNING: DutErrOpenFile: " + dir_.file("m.msg") + " " + c.warning);
      // Nothing of a corrupt file is kept, not even its good lines.
      EXPECT_EQ(DutErrReportParams(10, nullptr), D_FALSE);
      out_.Take();
      EXPECT_EQ(DutErrCloseFile(dir_.file("m.msg").c_str()), D_FALSE);
      continue;
    }
    EXPECT_EQ(out_.Take(), "");
    EXPECT_TRUE(Close("m.msg"));
    opened_.clear();
  }

  auto [ok, err] = Open("m.msg", cases[0].text);
  ASSERT_EQ(ok, D_TRUE);
  EXPECT_EQ(DutErrReportParams(11, "disk", "93", nullptr), D_TRUE);
  EXPECT_EQ(DutErrReportParams(-5, nullptr), D_TRUE);
  EXPECT_EQ(out_.Take(), "WARNING: low on disk (93%)\nnegative\n");
}

TEST_F(Reports, OpenAndCloseErrors) {
  EXPECT_FAILS(DutErrOpenFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutErrCloseFile(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutErrOpenFile(dir_.file("absent.msg").c_str()), D_FALSE, D_ERR_C);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FAILS(DutErrCloseFile(dir_.file("absent.msg").c_str()), D_FALSE, D_ERR_DOESNT_EXIST);
  ASSERT_EQ(Open("a.msg", "1 2 a\n").first, D_TRUE);
  EXPECT_EQ(Open("a.msg", "1 2 a\n"), std::make_pair(D_FALSE, D_ERR_ALREADY_EXISTS));
  EXPECT_TRUE(Close("a.msg"));
  EXPECT_FAILS(DutErrCloseFile(dir_.file("a.msg").c_str()), D_FALSE, D_ERR_DOESNT_EXIST);
}

// The file opened last wins on a number both hold; closing it brings the
// other's text back, whichever order they close in.
TEST_F(Reports, LaterFileWins) {
  ASSERT_EQ(Open("old.msg", "101 2 old one\n102 2 old two\n").first, D_TRUE);
  ASSERT_EQ(Open("new.msg", "102 2 new two\n103 2 new three\n").first, D_TRUE);
  auto texts = [] {
    for (D_INT4 n : {101, 102, 103}) DutErrReportParams(n, nullptr);
  };
  texts();
  EXPECT_EQ(out_.Take(), "old one\nnew two\nnew three\n");
  EXPECT_TRUE(Close("new.msg"));
  texts();
  EXPECT_EQ(out_.Take(), "old one\nold two\nunknown message 103\n");
  ASSERT_EQ(Open("new.msg", "102 2 new two\n").first, D_TRUE);
  EXPECT_TRUE(Close("old.msg"));
  texts();
  EXPECT_EQ(out_.Take(), "unknown message 101\nnew two\nunknown message 103\n");
}

TEST_F(Reports, FillsPlaces) {
  ASSERT_EQ(Open("p.msg",
                 "1 2 %1 and %2\n2 2 100%% of %1%%\n3 2 %3 before %1, %2 never\n4 2 %9%1\n"
                 "5 2 %10\n")
                .first,
            D_TRUE);
  struct Case {
    D_INT4 number;
    std::vector<const char *> set;  // DutErrParamSet 1, 2, ... (null: not set)
    std::vector<const char *> args;
    const char *expected;
  };
  const Case cases[] = {
      {1, {}, {"a", "b"}, "a and b"},
      {1, {}, {"a"}, "a and %2"},
      {1, {}, {}, "%1 and %2"},
      {1, {"x", "y"}, {"a"}, "a and y"},
      {1, {nullptr, "y"}, {}, "%1 and y"},
      {2, {}, {"disk"}, "100% of disk%"},
      {3, {}, {"1", "", "3"}, "3 before 1,  never"},
      {4, {"s1", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "s9"}, {}, "s9s1"},
      {4, {}, {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"}, "91"},
      {5, {}, {"one"}, "one0"},
      // A parameter holding a place is not filled again.
      {1, {}, {"%2", "b"}, "%2 and b"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.expected);
    for (std::size_t i = 0; i < c.set.size(); ++i) ASSERT_EQ(DutErrParamSet(static_cast<D_INT4>(i + 1), c.set[i]), D_TRUE);
    std::vector<const char *> a = c.args;
    a.resize(10, nullptr);
    EXPECT_EQ(DutErrReportParams(c.number, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], nullptr),
              D_TRUE);
    EXPECT_EQ(out_.Take(), std::string(c.expected) + "\n");
  }
  // Parameters last for one report only, whatever its outcome.
  ASSERT_EQ(DutErrParamSet(1, "once"), D_TRUE);
  DutErrSeveritySet(9);
  DutErrReportParams(1, nullptr);
  DutErrSeveritySet(0);
  DutErrReportParams(1, nullptr);
  EXPECT_EQ(out_.Take(), "%1 and %2\n");
  // A null text takes a parameter back.
  ASSERT_EQ(DutErrParamSet(2, "two"), D_TRUE);
  ASSERT_EQ(DutErrParamSet(2, nullptr), D_TRUE);
  DutErrReportParams(1, nullptr);
  EXPECT_EQ(out_.Take(), "%1 and %2\n");

  EXPECT_FAILS(DutErrParamSet(0, "x"), D_FALSE, D_ERR_VAL_TOO_SMALL);
  EXPECT_FAILS(DutErrParamSet(-1, nullptr), D_FALSE, D_ERR_VAL_TOO_SMALL);
  EXPECT_FAILS(DutErrParamSet(D_ERR_PARAM_COUNT + 1, "x"), D_FALSE, D_ERR_VAL_TOO_LARGE);
  EXPECT_FAILS(DutErrParamSet(D_ERR_PARAM_COUNT, "x"), D_TRUE, 0);
  DutErrReportParams(1, nullptr);  // clears it again
  out_.Take();
}

TEST_F(Reports, SeverityAndFeedback) {
  ASSERT_EQ(Open("s.msg", "1 0 note %1\n2 1 careful %1\n3 2 broken %1\n7 12 own level %1\n").first, D_TRUE);
  struct Case {
    D_INT4 number, threshold, level;
    const char *expected;  // empty: filtered out
  };
  const Case cases[] = {
      {1, 0, 0, "note x\n"},
      {1, 1, 0, ""},
      {2, 1, 0, "WARNING: careful x\n"},
      {2, 2, 0, ""},
      {3, 2, 0, "broken x\n"},
      {3, 3, 0, ""},
      {7, 12, 0, "own level x\n"},
      {7, 13, 0, ""},
      {3, -4, -1, "broken x\n"},
      {3, 0, 1, "3: broken x\n"},
      {2, 0, 1, "WARNING: 2: careful x\n"},
      {3, 0, 2, "3 (severity 2): broken x\n"},
      {1, 0, 7, "1 (severity 0): note x\n"},
      // Unknown numbers count as errors.
      {4711, 2, 0, "unknown message 4711 [x]\n"},
      {4711, 3, 0, ""},
      {4711, 0, 2, "4711 (severity 2): unknown message 4711 [x]\n"},
      {D_ERR_EMPTY, 0, 1, "19: empty [x]\n"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.expected);
    DutErrSeveritySet(c.threshold);
    DutErrFeedbackSet(c.level);
    EXPECT_EQ(DutErrReportParams(c.number, "x", nullptr), c.number < 10 ? D_TRUE : D_FALSE);
    EXPECT_EQ(out_.Take(), c.expected);
  }
}

// A report sits in failure paths: the reason the caller is about to read
// must survive it, printed or not, known or not.
TEST_F(Reports, KeepsErrorValues) {
  ASSERT_EQ(Open("k.msg", "1 2 %1\n2 1 %1\n").first, D_TRUE);
  for (D_INT4 number : {1, 2, 4711}) {
    for (D_INT4 threshold : {0, 9}) {
      for (D_INT4 err : {0, D_ERR_EOF}) {
        DutErrSeveritySet(threshold);
        SetAllFour(err, err == 0 ? 0 : EACCES, err == 0 ? 0 : 7, err == 0 ? 0 : 10054);
        DutErrParamSet(1, "p");
        const auto before = AllFour();
        DutErrReportParams(number, "x", nullptr);
        EXPECT_EQ(AllFour(), before) << number << " " << threshold;
      }
    }
  }
  SetAllFour(0, 0, 0, 0);
}

// Two threads fill the same message at once; each sees only its own
// parameters, set both ways.
thread_local std::vector<std::string> tlsLines;
int CollectToThread(const char *format, va_list args) {
  char line[128];
  int n = std::vsnprintf(line, sizeof line, format, args);
  tlsLines.emplace_back(line);
  return n;
}

TEST(ErrorThreads, ParametersArePerThread) {
  vqtest::TempDir dir("vqerrthreads");
  const std::string name = dir.file("t.msg");
  vqtest::WriteFile(name, "1 2 %1/%2\n");
  ASSERT_EQ(DutErrOpenFile(name.c_str()), D_TRUE);
  D_OUTPUT_FUNC previous = DutGetOutputFunc();
  DutSetOutputFunc(&CollectToThread);
  constexpr int kRounds = 300;
  std::vector<std::string> seen[2];
  auto body = [&](int t) {
    const std::string mine = "t" + std::to_string(t);
    for (int i = 0; i < kRounds; ++i) {
      DutErrParamSet(2, (mine + "-" + std::to_string(i)).c_str());
      DutErrReportParams(1, mine.c_str(), nullptr);
    }
    seen[t] = tlsLines;
  };
  std::thread a(body, 0), b(body, 1);
  a.join();
  b.join();
  DutSetOutputFunc(previous);
  EXPECT_EQ(DutErrCloseFile(name.c_str()), D_TRUE);
  for (int t = 0; t < 2; ++t) {
    ASSERT_EQ(seen[t].size(), static_cast<std::size_t>(kRounds));
    for (int i = 0; i < kRounds; ++i) {
      std::string want = "t" + std::to_string(t);
      EXPECT_EQ(seen[t][i], want + "/" + want + "-" + std::to_string(i) + "\n");
    }
  }
}

// setjmp's result read in a switch, as the language allows; the frames in
// between own nothing.
int JumpResult(jmp_buf *own, D_INT4 number) {
  jmp_buf *armed = own != nullptr ? own : DutErrGetJumpBufferPtr();
  switch (setjmp(*armed)) {
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
  ASSERT_EQ(Open("j.msg", "5 2 jumped %1%2\n0 2 zero %1\n").first, D_TRUE);
  jmp_buf own;
  struct Case {
    jmp_buf *buffer;
    D_INT4 number;
    int value;
    const char *expected;
  };
  const Case cases[] = {
      {&own, 5, 5, "jumped j-set\njumped %1%2\n"},
      {nullptr, 5, 5, "jumped j-set\njumped %1%2\n"},
      {&own, 0, 1, "zero j\nzero %1\n"},
      {nullptr, 0, 1, "zero j\nzero %1\n"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.number);
    SetAllFour(D_ERR_EOF, 0, 0, 0);
    DutErrParamSet(2, "-set");
    EXPECT_EQ(JumpResult(c.buffer, c.number), c.value);
    EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
    // The jump cleared the parameters like any report.
    DutErrReportParams(c.number, nullptr);
    EXPECT_EQ(out_.Take(), c.expected);
  }
  SetAllFour(0, 0, 0, 0);
}

}  // namespace
