// Process identity (DutInit, D_INIT, CPU time, user name) and the text
// conversions of type masks, booleans, identifiers and slot names.
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstring>
#include <string>

#include "init_support.hpp"
#include "vqutil/error.h"
#include "vqutil/init.h"

using inittest::OutputCapture;

namespace {

// ---- Process type and the default jump buffer ---------------------------------

TEST(InitProcess, TypeIsKeptByPointer) {
  setenv("VQDEBUGFILENAME", "stderr", 1);
  EXPECT_STREQ(DutGetProcessType(), "unknown");
  static const char kType[] = "test_monitor";
  EXPECT_EQ(DutInit(kType), 0);
  EXPECT_EQ(DutGetProcessType(), kType);
}

TEST(InitProcessDeath, NullTypeIsAnAssertion) {
  INIT_EXPECT_ASSERTION(DutInit(nullptr), "process_type != NULL");
}

int ToStderr(const char *format, va_list args) { return std::vfprintf(stderr, format, args); }

// Arms the default buffer in this frame, then jumps to it as a library
// error path would when no caller set a buffer of its own.
[[noreturn]] void InitThenJump() {
  setenv("VQDEBUGFILENAME", "stderr", 1);
  DutSetOutputFunc(ToStderr);
  D_INIT("jumper");
  std::longjmp(*DutErrGetJumpBufferPtr(), 1);
}

TEST(InitProcessDeath, JumpToTheDefaultBufferExitsWithStatusTwo) {
  EXPECT_EXIT(InitThenJump(), ::testing::ExitedWithCode(2),
              "^Default error jump buffer has not been set\\.  Exiting\\.\n$");
}

TEST(InitProcess, CpuTimeGrowsWithWork) {
  D_WORD start = DutGetCpuTime();
  EXPECT_GE(start, 0);
  volatile double sink = 0;
  D_WORD now = start;
  // Work until the clock moves; bounded so that a broken clock fails.
  for (long round = 0; round < 200000 && now == start; ++round) {
    for (int i = 0; i < 10000; ++i) sink = sink + i * 0.5;
    now = DutGetCpuTime();
  }
  EXPECT_GT(now, start);
}

TEST(InitProcess, UserNameAndItsOverride) {
  char buffer[D_USER_NAME_SIZE];
  unsetenv("VQ_FORCE_USER_NAME");
  std::memset(buffer, 'z', sizeof buffer);
  EXPECT_EQ(DutGetUserName(buffer), buffer);
  EXPECT_GT(std::strlen(buffer), 0u);
  EXPECT_LT(std::strlen(buffer), sizeof buffer);

  setenv("VQ_FORCE_USER_NAME", "operator7", 1);
  EXPECT_STREQ(DutGetUserName(buffer), "operator7");
  std::string longer(400, 'u');
  setenv("VQ_FORCE_USER_NAME", longer.c_str(), 1);
  DutGetUserName(buffer);
  EXPECT_EQ(std::strlen(buffer), sizeof buffer - 1);
  unsetenv("VQ_FORCE_USER_NAME");
}

// ---- Type masks ------------------------------------------------------------------------

TEST(InitTypeText, ShortcutsAndJoinedNames) {
  char buffer[D_TYPE_TEXT_SIZE];
  EXPECT_STREQ(DutTypeToString(0, buffer), "void");
  EXPECT_STREQ(DutTypeToString(D_TYPE_ANY_VALUE, buffer), "any value");
  EXPECT_STREQ(DutTypeToString(D_TYPE_ANY_VALUE | D_TYPE_SLOT, buffer), "any slot");
  EXPECT_STREQ(DutTypeToString(D_TYPE_ANY_VALUE | D_TYPE_INTEGER, buffer), "any value");
  EXPECT_STREQ(DutTypeToString(16383, buffer), "any slot");
  EXPECT_STREQ(DutTypeToString(3, buffer), "boolean or enumerated");
  EXPECT_STREQ(DutTypeToString(9, buffer), "boolean or string");
  EXPECT_STREQ(DutTypeToString(D_TYPE_FIRST_ARG | D_TYPE_SLOT | D_TYPE_FLOAT | D_TYPE_INTEGER, buffer),
               "type of first argument or slot or float or integer");
  // One value bit short of the shortcut: every other name, none cut off.
  std::string longest = DutTypeToString(16383 & ~D_TYPE_STRING, buffer);
  EXPECT_EQ(longest.rfind("boolean or enumerated or numeric or enumerated set", 0), 0u);
  EXPECT_EQ(longest.substr(longest.size() - 11), " or integer");
  size_t joins = 0;
  for (size_t at = longest.find(" or "); at != std::string::npos; at = longest.find(" or ", at + 1)) ++joins;
  EXPECT_EQ(joins, 12u);
}

TEST(InitTypeText, IllegalMaskAndStaticBuffer) {
  OutputCapture capture;
  char buffer[D_TYPE_TEXT_SIZE];
  EXPECT_STREQ(DutTypeToString(D_TYPE_ILLEGAL, buffer), "<BAD TYPE 16384>");
  EXPECT_EQ(capture.Take(), "WARNING: DutTypeToString:illegal value: 16384.\n");
  DutTypeToString(D_TYPE_ILLEGAL - 1, buffer);
  EXPECT_EQ(capture.Take(), "");

  char *first = DutTypeToString(D_TYPE_NUMERIC, nullptr);
  EXPECT_STREQ(first, "numeric");
  char *second = DutTypeToString(D_TYPE_STRING, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "string");
}

TEST(InitTypeText, StringToTypeAndBool) {
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  D_UINT4 type = 999;
  EXPECT_TRUE(DutStringToType(&type, "Numeric"));
  EXPECT_EQ(type, static_cast<D_UINT4>(D_TYPE_NUMERIC));
  EXPECT_TRUE(DutStringToType(&type, "  BOOLEAN  "));
  EXPECT_EQ(type, static_cast<D_UINT4>(D_TYPE_BOOLEAN));
  EXPECT_TRUE(DutStringToType(&type, "enumerated"));
  EXPECT_EQ(type, static_cast<D_UINT4>(D_TYPE_ENUM));
  EXPECT_TRUE(DutStringToType(&type, "sTrInG"));
  EXPECT_EQ(type, static_cast<D_UINT4>(D_TYPE_STRING));
  type = 999;
  for (const char *bad : {"numeric list", "list", "", "\"string\"", "numeric,", "slot", "5", "\"open"}) {
    EXPECT_FALSE(DutStringToType(&type, bad)) << bad;
    EXPECT_EQ(type, 999u) << bad;
  }

  D_BOOL flag = 7;
  EXPECT_TRUE(DutStringToBool(&flag, "TRUE"));
  EXPECT_EQ(flag, 1);
  EXPECT_TRUE(DutStringToBool(&flag, "False"));
  EXPECT_EQ(flag, 0);
  flag = 7;
  for (const char *bad : {"yes", "true false", "1", "", "truex"}) {
    EXPECT_FALSE(DutStringToBool(&flag, bad)) << bad;
    EXPECT_EQ(flag, 7) << bad;
  }
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
}

TEST(InitTypeTextDeath, NullTextsAreAssertions) {
  D_UINT4 type = 0;
  D_BOOL flag = 0;
  INIT_EXPECT_ASSERTION(DutStringToType(&type, nullptr), "type_string");
  INIT_EXPECT_ASSERTION(DutStringToBool(&flag, nullptr), "type_string");
  INIT_EXPECT_ASSERTION(DutStringToId(nullptr), "input_str != NULL");
}

// ---- Identifiers and slots ---------------------------------------------------------------

TEST(InitIdentifiers, StringToIdUsesOneStaticBuffer) {
  const char *id = DutStringToId("  abc_1 ");
  ASSERT_NE(id, nullptr);
  EXPECT_STREQ(id, "abc_1");
  const char *again = DutStringToId("other");
  EXPECT_EQ(again, id);
  EXPECT_STREQ(id, "other");
  for (const char *bad : {"1abc", "a b", "", "a.b", "\"quoted\""}) EXPECT_EQ(DutStringToId(bad), nullptr) << bad;
}

TEST(InitIdentifiers, IdIsValid) {
  EXPECT_EQ(DutIdIsValid(""), 1);
  EXPECT_EQ(DutIdIsValid("9lives"), 0);
  EXPECT_EQ(DutIdIsValid("a%_b9"), 1);
  EXPECT_EQ(DutIdIsValid("_x"), 1);
  EXPECT_EQ(DutIdIsValid("%"), 1);
  EXPECT_EQ(DutIdIsValid("a-b"), 0);
  EXPECT_EQ(DutIdIsValid("a b"), 0);
  EXPECT_EQ(DutIdIsValid("a.b"), 0);
  EXPECT_EQ(DutIdIsValid(nullptr), 0);
}

TEST(InitIdentifiers, SlotIsValid) {
  EXPECT_EQ(DutSlotIsValid("a.b.c"), 1);
  EXPECT_EQ(DutSlotIsValid("plant.unit_7.temp%"), 1);
  EXPECT_EQ(DutSlotIsValid("a.b.c.d"), 1);
  EXPECT_EQ(DutSlotIsValid("a.b"), 0);
  EXPECT_EQ(DutSlotIsValid("a..b.c"), 0);
  EXPECT_EQ(DutSlotIsValid("a.1b.c"), 0);
  EXPECT_EQ(DutSlotIsValid("a.b-x.c"), 0);
  EXPECT_EQ(DutSlotIsValid("abc"), 0);
  EXPECT_EQ(DutSlotIsValid(""), 0);
  EXPECT_EQ(DutSlotIsValid(nullptr), 0);
  // The splitting skips empty pieces at either end, as the runtime's
  // tokeniser does.
  EXPECT_EQ(DutSlotIsValid(".a.b.c"), 1);
  EXPECT_EQ(DutSlotIsValid("a.b."), 0);
}

}  // namespace
