// Threads (identity, exit codes), thread-specific data and its destructors,
// the process-wide lock and the error record before and after
// initialisation, and the character format. Per-thread error numbers are
// the error tests' subject.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "thread_support.hpp"

using vqtest::LibThread;

namespace {

D_WORD returnArgument(D_WORD arg) { return arg; }

D_WORD exitEarly(D_WORD arg) {
  DutThreadExit(arg);
  // Not reached: the code would be overwritten if it were.
  return -1;
}

// Records destructor calls, in order, across threads.
std::mutex logMutex;
std::vector<std::string> destructorLog;

template <const char *Who>
void recordDestruction(void *value) {
  std::lock_guard<std::mutex> lock(logMutex);
  destructorLog.push_back(std::string(Who) + ":" + (value == nullptr ? "null" : static_cast<const char *>(value)));
}
constexpr char kFirst[] = "first", kSecond[] = "second", kThird[] = "third", kRemoved[] = "removed";

std::vector<std::string> takeLog() {
  std::lock_guard<std::mutex> lock(logMutex);
  std::vector<std::string> out;
  out.swap(destructorLog);
  return out;
}

// Runs body in a fresh copy of the program, where no earlier test has
// initialised the thread layer; body answers the child's exit code.
void inFreshProcess(int (*body)()) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(body()), testing::ExitedWithCode(0), "");
}

}  // namespace

TEST(ProcessLock, NoOpUntilThreadsAreInitialised) {
  inFreshProcess([] {
    // Before: nothing is held, so even an unbalanced unlock succeeds.
    if (DutProcessMutexUnlock() != D_TRUE || DutProcessMutexLock() != D_TRUE) return 1;
    if (DutProcessMutexUnlock() != D_TRUE) return 2;
    // The error record made before initialisation is not found afterwards.
    DutErrNumSet(D_ERR_VAL_INVALID);
    if (DutErrNumGet() != D_ERR_VAL_INVALID) return 3;
    if (DutInitThreads() != D_TRUE || DutErrNumGet() != 0 || DutInitThreads() != D_TRUE) return 4;
    // After: a real recursive lock; an unlock without a lock is refused.
    if (DutProcessMutexLock() != D_TRUE || DutProcessMutexLock() != D_TRUE) return 5;
    if (DutProcessMutexUnlock() != D_TRUE || DutProcessMutexUnlock() != D_TRUE) return 6;
    return DutProcessMutexUnlock() == D_FALSE && DutErrNumGet() == D_ERR_OS ? 0 : 7;
  });
}

TEST(ProcessLock, ThreadCreateInitialisesTheLayer) {
  inFreshProcess([] {
    D_THREAD t = DutThreadCreate(&returnArgument, 5);
    if (t == D_INVALID_THREAD || DutThreadWait(t, nullptr) != D_TRUE) return 1;
    DutErrNumSet(0);
    // The lock now exists: an unbalanced unlock is refused.
    if (DutProcessMutexUnlock() != D_FALSE || DutErrNumGet() != D_ERR_OS) return 2;
    // And the character format was set to the system default.
    return DutGetCharFormat() == DutGetCharFormatSystemDefault() ? 0 : 3;
  });
}

TEST(Thread, ExitCodesComeBackThroughWait) {
  for (D_WORD code : {D_WORD{0}, D_WORD{-7}, static_cast<D_WORD>(INTPTR_MAX)}) {
    D_THREAD t = DutThreadCreate(&returnArgument, code, 1, 2, 3);  // extra arguments ignored
    ASSERT_NE(t, D_INVALID_THREAD);
    D_WORD got = 0;
    EXPECT_EQ(DutThreadWait(t, &got), D_TRUE);
    EXPECT_EQ(got, code);
  }
  D_THREAD t = DutThreadCreate(&exitEarly, 77);
  ASSERT_NE(t, D_INVALID_THREAD);
  D_WORD got = 0;
  EXPECT_EQ(DutThreadWait(t, &got), D_TRUE);
  EXPECT_EQ(got, 77);
  // The exit code destination is optional.
  EXPECT_EQ(DutThreadWait(DutThreadCreate(&returnArgument, 3), nullptr), D_TRUE);
  VQTEST_EXPECT_FAILS(DutThreadCreate(nullptr, 0), D_ERR_NULL_PTR, 0);
}

TEST(Thread, SelfIsTheHandleCreateReturnedAndZeroElsewhere) {
  DutInitThreads();
  EXPECT_EQ(DutThreadSelf(), D_INVALID_THREAD);  // the main thread
  std::atomic<D_THREAD> seen[2] = {D_INVALID_THREAD, D_INVALID_THREAD};
  LibThread a([&] {
    seen[0] = DutThreadSelf();
    return D_WORD{0};
  });
  LibThread b([&] {
    seen[1] = DutThreadSelf();
    return D_WORD{0};
  });
  D_THREAD ha = a.handle();
  D_THREAD hb = b.handle();
  a.join();
  b.join();
  EXPECT_NE(ha, D_INVALID_THREAD);
  EXPECT_EQ(seen[0].load(), ha);
  EXPECT_EQ(seen[1].load(), hb);
  EXPECT_EQ(DutThreadEqual(seen[0].load(), ha), D_TRUE);
  EXPECT_EQ(DutThreadEqual(ha, hb), D_FALSE);
  // Threads of other origins all share identity zero.
  D_THREAD foreign = 1;
  std::thread t([&] { foreign = DutThreadSelf(); });
  t.join();
  EXPECT_EQ(foreign, D_INVALID_THREAD);
  EXPECT_EQ(DutThreadEqual(foreign, DutThreadSelf()), D_TRUE);
}

TEST(Tsd, ArgumentsAndValuesPerThreadWhereEmptyIsNotAnError) {
  void *value = this;
  VQTEST_EXPECT_FAILS(DutTsdKeyCreate(nullptr, nullptr), D_ERR_NULL_PTR, 0);
  VQTEST_EXPECT_FAILS(DutTsdKeyDestroy(D_INVALID_TSD_KEY), D_ERR_VAL_INVALID, 0);
  VQTEST_EXPECT_FAILS(DutTsdSetValue(D_INVALID_TSD_KEY, this), D_ERR_VAL_INVALID, 0);
  VQTEST_EXPECT_FAILS(DutTsdGetValue(D_INVALID_TSD_KEY, &value), D_ERR_VAL_INVALID, 0);
  D_TSD_KEY key = D_INVALID_TSD_KEY;
  ASSERT_EQ(DutTsdKeyCreate(&key, nullptr), D_TRUE);
  EXPECT_NE(key, D_INVALID_TSD_KEY);
  VQTEST_EXPECT_FAILS(DutTsdGetValue(key, nullptr), D_ERR_NULL_PTR, 0);
  int mine = 1;
  int theirs = 2;

  DutErrNumSet(500);
  value = &theirs;
  EXPECT_EQ(DutTsdGetValue(key, &value), D_FALSE);
  EXPECT_EQ(value, nullptr);       // always written
  EXPECT_EQ(DutErrNumGet(), 500);  // and no error set

  EXPECT_NE(DutTsdSetValue(key, &mine), D_FALSE);
  EXPECT_EQ(DutTsdGetValue(key, &value), D_TRUE);
  EXPECT_EQ(value, &mine);

  LibThread t([&] {
    void *v = &mine;
    if (DutTsdGetValue(key, &v) != D_FALSE || v != nullptr) return D_WORD{1};
    DutTsdSetValue(key, &theirs);
    DutTsdGetValue(key, &v);
    return D_WORD{v == &theirs ? 0 : 2};
  });
  EXPECT_EQ(t.join(), 0);
  EXPECT_EQ(DutTsdGetValue(key, &value), D_TRUE);
  EXPECT_EQ(value, &mine);

  EXPECT_NE(DutTsdSetValue(key, nullptr), D_FALSE);
  EXPECT_EQ(DutTsdGetValue(key, &value), D_FALSE);
  EXPECT_EQ(DutTsdKeyDestroy(key), D_TRUE);
}

TEST(Tsd, DestructorsRunInKeyCreationOrderWithNullsIncluded) {
  D_TSD_KEY first, plain, second, removed, third;
  ASSERT_EQ(DutTsdKeyCreate(&first, &recordDestruction<kFirst>), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&plain, nullptr), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&second, &recordDestruction<kSecond>), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&removed, &recordDestruction<kRemoved>), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&third, &recordDestruction<kThird>), D_TRUE);
  ASSERT_EQ(DutTsdKeyDestroy(removed), D_TRUE);
  takeLog();

  static char a[] = "a";
  static char c[] = "c";
  LibThread t([&] {
    // Set out of order; "second" is never set.
    DutTsdSetValue(third, c);
    DutTsdSetValue(plain, a);
    DutTsdSetValue(first, a);
    return D_WORD{0};
  });
  t.join();
  EXPECT_EQ(takeLog(), (std::vector<std::string>{"first:a", "second:null", "third:c"}));

  // The same through an explicit exit in the middle of the start function.
  D_TSD_KEY early_keys[2] = {first, second};
  D_THREAD early = DutThreadCreate(
      [](D_WORD keys) -> D_WORD {
        DutTsdSetValue(reinterpret_cast<D_TSD_KEY *>(keys)[1], c);
        DutThreadExit(9);
      },
      reinterpret_cast<D_WORD>(early_keys));
  ASSERT_NE(early, D_INVALID_THREAD);
  D_WORD code = 0;
  EXPECT_EQ(DutThreadWait(early, &code), D_TRUE);
  EXPECT_EQ(code, 9);
  EXPECT_EQ(takeLog(), (std::vector<std::string>{"first:null", "second:c", "third:null"}));

  // Destructors belong to library threads only.
  std::thread foreign([&] { DutTsdSetValue(first, a); });
  foreign.join();
  EXPECT_TRUE(takeLog().empty());

  for (D_TSD_KEY k : {first, plain, second, third}) EXPECT_EQ(DutTsdKeyDestroy(k), D_TRUE);
}

TEST(Platform, CharacterFormat) {
  D_INT4 def = DutGetCharFormatSystemDefault();
  EXPECT_TRUE(def == D_CHAR_FORMAT_ASCII || def == D_CHAR_FORMAT_LATIN1 || def == D_CHAR_FORMAT_UTF8);
  D_INT4 before = DutGetCharFormat();
  for (D_INT4 bad : {0, 4}) {
    VQTEST_EXPECT_FAILS(DutSetCharFormat(bad), D_ERR_VAL_INVALID, 0);
    EXPECT_EQ(DutGetCharFormat(), before);
  }
  for (D_INT4 good : {D_CHAR_FORMAT_UTF8, D_CHAR_FORMAT_LATIN1, D_CHAR_FORMAT_ASCII}) {
    EXPECT_EQ(DutSetCharFormat(good), D_TRUE);
    EXPECT_EQ(DutGetCharFormat(), good);
  }
  DutSetCharFormat(before);
  // The system default follows the locale settings.
  inFreshProcess([] {
    setenv("LC_ALL", "de_DE.ISO-8859-1", 1);
    D_INT4 latin = DutGetCharFormatSystemDefault();
    setenv("LC_ALL", "en_US.UTF-8", 1);
    D_INT4 utf = DutGetCharFormatSystemDefault();
    setenv("LC_ALL", "C", 1);
    D_INT4 plain = DutGetCharFormatSystemDefault();
    return latin == D_CHAR_FORMAT_LATIN1 && utf == D_CHAR_FORMAT_UTF8 && plain == D_CHAR_FORMAT_ASCII ? 0 : 1;
  });
}
