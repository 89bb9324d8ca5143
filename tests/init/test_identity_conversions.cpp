// Process identity (DutInit, D_INIT, CPU time, user name) and the text
// conversions: type masks, booleans, identifiers, slot names and numbers
// (the lexer's number grammar, the whole text consumed, and the warnings).
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/init.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

TEST(InitProcess, TypeIsKeptByPointer) {
  setenv("VQDEBUGFILENAME", "stderr", 1);
  EXPECT_STREQ(DutGetProcessType(), "unknown");
  static const char kType[] = "test_monitor";
  EXPECT_EQ(DutInit(kType), 0);
  EXPECT_EQ(DutGetProcessType(), kType);
}

// Arms the default buffer in this frame, then jumps to it as a library
// error path would when no caller set a buffer of its own.
[[noreturn]] void InitThenJump() {
  setenv("VQDEBUGFILENAME", "stderr", 1);
  DutSetOutputFunc(vqtest::ToStderr);
  D_INIT("jumper");
  std::longjmp(*DutErrGetJumpBufferPtr(), 1);
}

TEST(InitProcessDeath, JumpToTheDefaultBufferExitsWithStatusTwo) {
  EXPECT_EXIT(InitThenJump(), ::testing::ExitedWithCode(2),
              "^Default error jump buffer has not been set\\.  Exiting\\.\n$");
}

TEST(InitProcessDeath, NullTextsAreAssertions) {
  D_UINT4 type = 0;
  D_BOOL flag = 0;
  VQTEST_EXPECT_ASSERTION(DutInit(nullptr), "process_type != NULL");
  VQTEST_EXPECT_ASSERTION(DutStringToType(&type, nullptr), "type_string");
  VQTEST_EXPECT_ASSERTION(DutStringToBool(&flag, nullptr), "type_string");
  VQTEST_EXPECT_ASSERTION(DutStringToId(nullptr), "input_str != NULL");
  VQTEST_EXPECT_ASSERTION(DutStringToInt(nullptr), "input_str != NULL");
  VQTEST_EXPECT_ASSERTION(DutStringToIntInvalid(nullptr), "input_str != D_NULL");
  VQTEST_EXPECT_ASSERTION(DutStringToSignedReal(nullptr), "input_str != NULL");
  VQTEST_EXPECT_ASSERTION(DutStringToUnsignedReal(nullptr), "input_str != NULL");
  VQTEST_EXPECT_ASSERTION(DutStringToRealInvalid(nullptr), "input_str != NULL");
}

TEST(InitProcess, CpuTimeGrowsWithWork) {
  const D_WORD start = DutGetCpuTime();
  EXPECT_GE(start, 0);
  volatile double sink = 0;
  D_WORD now = start;
  // Bounded, so that a clock that never moves fails instead of hanging.
  for (long round = 0; round < 200000 && now == start; ++round) {
    for (int i = 0; i < 10000; ++i) sink = sink + i * 0.5;
    now = DutGetCpuTime();
  }
  EXPECT_GT(now, start);
}

// The system's name when no override is set; a long override is cut, not
// overrun.
TEST(InitProcess, UserNameAndItsOverride) {
  char buffer[D_USER_NAME_SIZE];
  unsetenv("VQ_FORCE_USER_NAME");
  EXPECT_EQ(DutGetUserName(buffer), buffer);
  EXPECT_GT(std::strlen(buffer), 0u);
  setenv("VQ_FORCE_USER_NAME", "operator7", 1);
  EXPECT_STREQ(DutGetUserName(buffer), "operator7");
  setenv("VQ_FORCE_USER_NAME", std::string(400, 'u').c_str(), 1);
  EXPECT_EQ(std::strlen(DutGetUserName(buffer)), sizeof buffer - 1);
  unsetenv("VQ_FORCE_USER_NAME");
}

TEST(InitTypeText, ShortcutsJoinedNamesAndTheIllegalMask) {
  const std::pair<D_UINT4, const char *> cases[] = {
      {0, "void"}, {D_TYPE_ANY_VALUE, "any value"}, {D_TYPE_ANY_VALUE | D_TYPE_SLOT, "any slot"},
      {D_TYPE_ANY_VALUE | D_TYPE_INTEGER, "any value"}, {16383, "any slot"}, {9, "boolean or string"},
      {D_TYPE_FIRST_ARG | D_TYPE_SLOT | D_TYPE_FLOAT | D_TYPE_INTEGER,
       "type of first argument or slot or float or integer"},
      // One value bit short of the shortcut: every other name, none cut off.
      {16383 & ~D_TYPE_STRING,
       "boolean or enumerated or numeric or enumerated set or numeric set or string set or "
       "enumerated list or numeric list or string list or type of first argument or slot or "
       "float or integer"},
      {D_TYPE_ILLEGAL, "<BAD TYPE 16384>"}};
  vqtest::OutputCapture capture;
  char buffer[D_TYPE_TEXT_SIZE];
  for (const auto &[mask, text] : cases) EXPECT_STREQ(DutTypeToString(mask, buffer), text) << mask;
  EXPECT_EQ(capture.Take(), "WARNING: DutTypeToString:illegal value: 16384.\n");
  // Without a buffer the text goes into one static buffer.
  char *first = DutTypeToString(D_TYPE_NUMERIC, nullptr);
  EXPECT_STREQ(first, "numeric");
  EXPECT_EQ(DutTypeToString(D_TYPE_STRING, nullptr), first);
  EXPECT_STREQ(first, "string");
}

TEST(InitTypeText, StringToTypeAndBool) {
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  const std::pair<const char *, D_UINT4> types[] = {
      {"Numeric", D_TYPE_NUMERIC}, {"  BOOLEAN  ", D_TYPE_BOOLEAN}, {"enumerated", D_TYPE_ENUM},
      {"sTrInG", D_TYPE_STRING}};
  for (const auto &[text, mask] : types) {
    D_UINT4 type = 999;
    EXPECT_TRUE(DutStringToType(&type, text)) << text;
    EXPECT_EQ(type, mask) << text;
  }
  for (const auto &[text, value] : {std::pair{"TRUE", 1}, std::pair{"False", 0}}) {
    D_BOOL flag = 7;
    EXPECT_TRUE(DutStringToBool(&flag, text)) << text;
    EXPECT_EQ(flag, value) << text;
  }
  // Both take exactly one word: neither accepts a second token, a quoted
  // text, a number or a lexical error.
  for (const char *bad :
       {"numeric list", "true false", "yes", "slot", "truex", "", "\"true\"", "numeric,", "1", "\"open"}) {
    D_UINT4 type = 999;
    D_BOOL flag = 7;
    EXPECT_FALSE(DutStringToType(&type, bad)) << bad;
    EXPECT_FALSE(DutStringToBool(&flag, bad)) << bad;
    EXPECT_EQ(std::make_pair(type, flag), std::make_pair(999u, 7)) << bad;
  }
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);  // failures set no number
}

TEST(InitIdentifiers, StaticIdAndValidity) {
  const char *id = DutStringToId("  abc_1 ");
  ASSERT_NE(id, nullptr);
  EXPECT_STREQ(id, "abc_1");
  EXPECT_EQ(DutStringToId("other"), id);
  EXPECT_STREQ(id, "other");
  for (const char *bad : {"1abc", "a b", "", "a.b", "\"quoted\""}) EXPECT_EQ(DutStringToId(bad), nullptr) << bad;
  const std::pair<const char *, D_INT4> ids[] = {{"", 1},  {"9lives", 0}, {"a%_b9", 1}, {"_x", 1},    {"%", 1},
                                                 {"a-b", 0}, {"a b", 0},  {"a.b", 0},   {nullptr, 0}};
  for (const auto &[text, valid] : ids) EXPECT_EQ(DutIdIsValid(text), valid) << (text ? text : "(null)");
  // The splitting skips empty pieces at either end, as the runtime's
  // tokeniser does, but ".." inside is refused.
  const std::pair<const char *, D_INT4> slots[] = {
      {"a.b.c", 1}, {"plant.unit_7.temp%", 1}, {"a.b.c.d", 1}, {"a.b", 0}, {"a..b.c", 0}, {"a.1b.c", 0},
      {"a.b-x.c", 0}, {"abc", 0}, {"", 0}, {nullptr, 0}, {".a.b.c", 1}, {"a.b.", 0}};
  for (const auto &[text, valid] : slots) EXPECT_EQ(DutSlotIsValid(text), valid) << (text ? text : "(null)");
}

// The whole text must be one number: anything else warns once and gives 0.
// The unsigned real refuses any sign, quietly, with -1.
TEST(StringToNumber, IntegersAndReals) {
  vqtest::OutputCapture capture;
  const std::pair<const char *, D_INT4> ints[] = {
      {"42", 42}, {"-17", -17}, {"+5", 5}, {"  7  ", 7}, {"12.0", 12}, {"1e3", 1000}, {"-0", 0},
      {"2147483647", 2147483647}, {"-2147483648", -2147483647 - 1}};
  for (const auto &[text, value] : ints) {
    EXPECT_EQ(DutStringToInt(text), value) << text;
    EXPECT_FALSE(DutStringToIntInvalid(text)) << text;
  }
  const std::pair<const char *, D_REAL8> reals[] = {{"-2.5", -2.5}, {".5", 0.5}, {"1.", 1.0}, {"+1e3", 1000.0}};
  for (const auto &[text, value] : reals) {
    EXPECT_EQ(DutStringToSignedReal(text), value) << text;
    EXPECT_FALSE(DutStringToRealInvalid(text)) << text;
  }
  EXPECT_EQ(capture.Take(), "");
  for (const char *bad : {"12x", "12.5", "", "abc", "2147483648", "-2147483649", "1 2", "- -1", "\"3\""}) {
    EXPECT_EQ(DutStringToInt(bad), 0) << bad;
    EXPECT_EQ(capture.Take(), "WARNING: DutStringToInt: Unexpected invalid integer detected") << bad;
    EXPECT_TRUE(DutStringToIntInvalid(bad)) << bad;
  }
  for (const char *bad : {"abc", "1.5 2", "", "1.5;", "--1"}) {
    EXPECT_EQ(DutStringToSignedReal(bad), 0.0) << bad;
    EXPECT_EQ(capture.Take(), "WARNING: DutStringToSignedReal: Unexpected invalid real number detected") << bad;
    EXPECT_TRUE(DutStringToRealInvalid(bad)) << bad;
  }
  const std::pair<const char *, D_REAL8> unsigned_cases[] = {
      {"2.5", 2.5}, {"0", 0.0}, {"-1", -1.0}, {"+1", -1.0}, {"x", -1.0}, {"3 4", -1.0}};
  for (const auto &[text, value] : unsigned_cases) EXPECT_EQ(DutStringToUnsignedReal(text), value) << text;
  EXPECT_EQ(capture.Take(), "");  // the validity checks and the unsigned form are quiet
}

// Each call has its own lexer and jump target: threads do not interfere,
// including on the error path.
TEST(StringToNumberThreads, ParallelParsing) {
  ASSERT_TRUE(DutInitThreads());
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 300; ++i) {
        std::string text = std::to_string(t * 1000 + i);
        EXPECT_EQ(DutStringToInt(text.c_str()), t * 1000 + i);
        EXPECT_TRUE(DutStringToIntInvalid((text + ".5").c_str()));
        EXPECT_EQ(DutStringToUnsignedReal(("-" + text).c_str()), -1.0);
      }
    });
  }
  for (auto &th : threads) th.join();
}

}  // namespace
