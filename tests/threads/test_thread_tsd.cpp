// Threads (identity, exit codes), thread-specific data and its destructors,
// the process-wide lock and the error record before and after
// initialisation, and the character format. Per-thread error numbers are
// the error tests' subject.
#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "thread_support.hpp"

using vqtest::LibThread;

namespace {

D_WORD returnArgument(D_WORD arg) { return arg; }

// Records destructor calls, in order, across threads.
std::mutex logMutex;
std::string destructorLog;

template <char Who>
void recordDestruction(void *value) {
  std::lock_guard<std::mutex> lock(logMutex);
  destructorLog += std::string(1, Who) + (value == nullptr ? "-" : static_cast<const char *>(value));
}

std::string takeLog() {
  std::lock_guard<std::mutex> lock(logMutex);
  return std::exchange(destructorLog, "");
}

// Runs body in a fresh copy of the program, where no earlier test has
// initialised the thread layer; body answers the child's exit code.
void inFreshProcess(int (*body)()) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(body()), testing::ExitedWithCode(0), "");
}

}  // namespace

// Before the thread layer starts nothing is held, so even an unbalanced
// unlock succeeds, and the error record made then is not found afterwards.
// After it, the lock is a real recursive one and an unlock without a lock
// is refused. Creating a thread starts the layer, and sets the character
// format to the system default, which follows the locale settings.
TEST(ProcessLock, NoOpUntilThreadsAreInitialised) {
  inFreshProcess([] {
    if (!DutProcessMutexUnlock() || !DutProcessMutexLock() || !DutProcessMutexUnlock()) return 1;
    DutErrNumSet(D_ERR_VAL_INVALID);
    if (DutErrNumGet() != D_ERR_VAL_INVALID) return 3;
    if (!DutInitThreads() || DutErrNumGet() != 0 || !DutInitThreads()) return 4;
    if (!DutProcessMutexLock() || !DutProcessMutexLock()) return 5;
    if (!DutProcessMutexUnlock() || !DutProcessMutexUnlock()) return 6;
    return DutProcessMutexUnlock() == D_FALSE && DutErrNumGet() == D_ERR_OS ? 0 : 7;
  });
  inFreshProcess([] {
    if (!DutThreadWait(DutThreadCreate(&returnArgument, 5), nullptr)) return 1;
    DutErrNumSet(0);
    if (DutProcessMutexUnlock() != D_FALSE || DutErrNumGet() != D_ERR_OS) return 2;
    if (DutGetCharFormat() != DutGetCharFormatSystemDefault()) return 3;
    // The system default follows the locale settings.
    const std::pair<const char *, D_INT4> cases[] = {
        {"de_DE.ISO-8859-1", D_CHAR_FORMAT_LATIN1}, {"en_US.UTF-8", D_CHAR_FORMAT_UTF8}, {"C", D_CHAR_FORMAT_ASCII}};
    for (const auto &[locale, format] : cases) {
      if (setenv("LC_ALL", locale, 1) != 0 || DutGetCharFormatSystemDefault() != format) return 4;
    }
    return 0;
  });
}

TEST(Thread, ExitCodesAndIdentities) {
  // Extra arguments are ignored; the exit code destination is optional.
  // (Exit codes through DutThreadExit: the Tsd and MutexAbandoned tests.)
  for (D_WORD code : {D_WORD{0}, D_WORD{-7}, static_cast<D_WORD>(INTPTR_MAX)}) {
    D_WORD got = 0;
    EXPECT_TRUE(DutThreadWait(DutThreadCreate(&returnArgument, code, 1, 2, 3), &got) && got == code) << code;
  }
  EXPECT_EQ(DutThreadWait(DutThreadCreate(&returnArgument, 3), nullptr), D_TRUE);
  VQTEST_EXPECT_FAILS(DutThreadCreate(nullptr, 0), D_ERR_NULL_PTR, 0);

  // Self is the handle create returned; the main thread and threads of
  // other origins all share identity zero.
  std::atomic<D_THREAD> seen[2] = {D_INVALID_THREAD, D_INVALID_THREAD};
  LibThread a([&] { return D_WORD{seen[0] = DutThreadSelf()}; }), b([&] { return D_WORD{seen[1] = DutThreadSelf()}; });
  D_THREAD ha = a.handle(), hb = b.handle();
  a.join();
  b.join();
  EXPECT_TRUE(ha != D_INVALID_THREAD && seen[0].load() == ha && seen[1].load() == hb);
  EXPECT_TRUE(DutThreadEqual(seen[0].load(), ha) && !DutThreadEqual(ha, hb));
  D_THREAD foreign = 1;
  std::thread([&] { foreign = DutThreadSelf(); }).join();
  EXPECT_TRUE(foreign == D_INVALID_THREAD && DutThreadEqual(foreign, DutThreadSelf()));
}

// Values are per thread, and an empty value is written as null without an
// error.
TEST(Tsd, ArgumentsAndValuesPerThreadWhereEmptyIsNotAnError) {
  void *value = this;
  int mine = 1, theirs = 2;
  D_TSD_KEY key = D_INVALID_TSD_KEY;
  ASSERT_TRUE(DutTsdKeyCreate(&key, nullptr) && key != D_INVALID_TSD_KEY);
  vqtest::ExpectRefused(D_ERR_NULL_PTR,
                        {AS_WORD(DutTsdKeyCreate(nullptr, nullptr)), AS_WORD(DutTsdGetValue(key, nullptr))});
  vqtest::ExpectRefused(D_ERR_VAL_INVALID,
                        {AS_WORD(DutTsdKeyDestroy(D_INVALID_TSD_KEY)), AS_WORD(DutTsdSetValue(D_INVALID_TSD_KEY, this)),
                         AS_WORD(DutTsdGetValue(D_INVALID_TSD_KEY, &value))});
  DutErrNumSet(500);
  EXPECT_TRUE(!DutTsdGetValue(key, &value) && value == nullptr && DutErrNumGet() == 500);
  EXPECT_TRUE(DutTsdSetValue(key, &mine));
  LibThread t([&] {
    void *v = &mine;
    bool empty = !DutTsdGetValue(key, &v) && v == nullptr;
    return D_WORD{empty && DutTsdSetValue(key, &theirs) && DutTsdGetValue(key, &v) && v == &theirs};
  });
  EXPECT_EQ(t.join(), 1);
  EXPECT_TRUE(DutTsdGetValue(key, &value) && value == &mine);
  EXPECT_TRUE(DutTsdSetValue(key, nullptr) && !DutTsdGetValue(key, &value) && DutTsdKeyDestroy(key));
}

// Destructors run in key creation order, nulls included, through a return
// or an explicit exit, and for library threads only.
TEST(Tsd, DestructorsRunInKeyCreationOrderWithNullsIncluded) {
  // Keys 1, a plain one, 2, a removed one and 3.
  D_TSD_KEY keys[5];
  const D_TSD_DESTRUCTOR destructors[] = {&recordDestruction<'1'>, nullptr, &recordDestruction<'2'>,
                                          &recordDestruction<'x'>, &recordDestruction<'3'>};
  DutGetDebugFlags()[D_DEBUG_MEMORY] = 1;  // each record is traced under its label
  testing::internal::CaptureStderr();
  for (int k = 0; k < 5; ++k) ASSERT_EQ(DutTsdKeyCreate(&keys[k], destructors[k]), D_TRUE);
  DutGetDebugFlags()[D_DEBUG_MEMORY] = 0;
  EXPECT_NE(testing::internal::GetCapturedStderr().find("D_CALLOC: data_pair ("), std::string::npos);
  ASSERT_EQ(DutTsdKeyDestroy(keys[3]), D_TRUE);
  takeLog();
  static char a[] = "a", c[] = "c";
  // Set out of order; 2 is never set.
  LibThread([&] {
    return D_WORD{DutTsdSetValue(keys[4], c) && DutTsdSetValue(keys[1], a) && DutTsdSetValue(keys[0], a)};
  }).join();
  EXPECT_EQ(takeLog(), "1a2-3c");
  D_WORD code = 0;
  auto exit_early = [](D_WORD k) -> D_WORD {
    DutTsdSetValue(reinterpret_cast<D_TSD_KEY *>(k)[2], c);
    DutThreadExit(9);
  };
  EXPECT_TRUE(DutThreadWait(DutThreadCreate(exit_early, reinterpret_cast<D_WORD>(keys)), &code) && code == 9);
  EXPECT_EQ(takeLog(), "1-2c3-");
  std::thread([&] { DutTsdSetValue(keys[0], a); }).join();
  EXPECT_EQ(takeLog(), "");
  for (int k : {0, 1, 2, 4}) EXPECT_EQ(DutTsdKeyDestroy(keys[k]), D_TRUE);
}

// Only the three formats are taken. (The system default: ProcessLock.)
TEST(Platform, CharacterFormat) {
  D_INT4 before = DutGetCharFormat();
  vqtest::ExpectRefused(D_ERR_VAL_INVALID, {AS_WORD(DutSetCharFormat(0)), AS_WORD(DutSetCharFormat(4))});
  EXPECT_EQ(DutGetCharFormat(), before);
  for (D_INT4 good : {D_CHAR_FORMAT_UTF8, D_CHAR_FORMAT_LATIN1, D_CHAR_FORMAT_ASCII}) {
    EXPECT_TRUE(DutSetCharFormat(good) && DutGetCharFormat() == good);
  }
  DutSetCharFormat(before);
}
