// Threads (identity, exit codes), thread-specific data and its destructors,
// per-thread error numbers, the process-wide lock before and after
// initialisation, and the portability services.
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

void record(const char *who, void *value) {
  std::lock_guard<std::mutex> lock(logMutex);
  destructorLog.push_back(std::string(who) + ":" + (value == nullptr ? "null" : static_cast<const char *>(value)));
}
void destroyFirst(void *value) { record("first", value); }
void destroySecond(void *value) { record("second", value); }
void destroyThird(void *value) { record("third", value); }
void destroyRemoved(void *value) { record("removed", value); }

std::vector<std::string> takeLog() {
  std::lock_guard<std::mutex> lock(logMutex);
  std::vector<std::string> out;
  out.swap(destructorLog);
  return out;
}

}  // namespace

TEST(ProcessLock, NoOpUntilThreadsAreInitialised) {
  // Runs in a fresh copy of the program so that no earlier test has
  // initialised the thread layer.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        // Before: nothing is held, so even an unbalanced unlock succeeds.
        if (DutProcessMutexUnlock() != D_TRUE) std::exit(1);
        if (DutProcessMutexLock() != D_TRUE) std::exit(2);
        if (DutProcessMutexUnlock() != D_TRUE) std::exit(3);
        if (DutInitThreads() != D_TRUE || DutInitThreads() != D_TRUE) std::exit(4);
        // After: a real recursive lock; an unlock without a lock is refused.
        if (DutProcessMutexLock() != D_TRUE || DutProcessMutexLock() != D_TRUE) std::exit(5);
        if (DutProcessMutexUnlock() != D_TRUE || DutProcessMutexUnlock() != D_TRUE) std::exit(6);
        DutErrNumSet(0);
        if (DutProcessMutexUnlock() != D_FALSE || DutErrNumGet() != D_ERR_OS) std::exit(7);
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(ProcessLock, ThreadCreateInitialisesTheLayer) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        D_THREAD t = DutThreadCreate(&returnArgument, 5);
        if (t == D_INVALID_THREAD || DutThreadWait(t, nullptr) != D_TRUE) std::exit(1);
        DutErrNumSet(0);
        // The lock now exists: an unbalanced unlock is refused.
        if (DutProcessMutexUnlock() != D_FALSE || DutErrNumGet() != D_ERR_OS) std::exit(2);
        // And the character format was set to the system default.
        if (DutGetCharFormat() != DutGetCharFormatSystemDefault()) std::exit(3);
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(Thread, ExitCodeComesBackThroughWait) {
  for (D_WORD code : {D_WORD{0}, D_WORD{42}, D_WORD{-7}, static_cast<D_WORD>(INTPTR_MAX)}) {
    D_THREAD t = DutThreadCreate(&returnArgument, code, 1, 2, 3);  // extra arguments ignored
    ASSERT_NE(t, D_INVALID_THREAD);
    D_WORD got = 0;
    EXPECT_EQ(DutThreadWait(t, &got), D_TRUE);
    EXPECT_EQ(got, code);
  }
}

TEST(Thread, ExitEndsTheThreadWithItsCode) {
  D_THREAD t = DutThreadCreate(&exitEarly, 77);
  ASSERT_NE(t, D_INVALID_THREAD);
  D_WORD got = 0;
  EXPECT_EQ(DutThreadWait(t, &got), D_TRUE);
  EXPECT_EQ(got, 77);
  // The exit code destination is optional.
  t = DutThreadCreate(&returnArgument, 3);
  EXPECT_EQ(DutThreadWait(t, nullptr), D_TRUE);
}

TEST(Thread, NullStartFunctionIsRefused) {
  DutErrNumSet(0);
  EXPECT_EQ(DutThreadCreate(nullptr, 0), D_INVALID_THREAD);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(Thread, WaitOnInvalidHandleIsAnOsError) {
  DutErrNumSet(0);
  EXPECT_EQ(DutThreadWait(D_INVALID_THREAD, nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
}

TEST(Thread, SelfIsTheHandleCreateReturned) {
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
}

TEST(Thread, ForeignThreadsShareIdentityZero) {
  DutInitThreads();
  D_THREAD foreign = 1;
  std::thread t([&] { foreign = DutThreadSelf(); });
  t.join();
  EXPECT_EQ(foreign, D_INVALID_THREAD);
  EXPECT_EQ(DutThreadEqual(foreign, DutThreadSelf()), D_TRUE);
}

TEST(Tsd, ArgumentsAreChecked) {
  DutErrNumSet(0);
  EXPECT_EQ(DutTsdKeyCreate(nullptr, nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutTsdKeyDestroy(D_INVALID_TSD_KEY), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  DutErrNumSet(0);
  EXPECT_EQ(DutTsdSetValue(D_INVALID_TSD_KEY, this), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  void *value = this;
  DutErrNumSet(0);
  EXPECT_EQ(DutTsdGetValue(D_INVALID_TSD_KEY, &value), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);

  D_TSD_KEY key = D_INVALID_TSD_KEY;
  ASSERT_EQ(DutTsdKeyCreate(&key, nullptr), D_TRUE);
  EXPECT_NE(key, D_INVALID_TSD_KEY);
  DutErrNumSet(0);
  EXPECT_EQ(DutTsdGetValue(key, nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutTsdKeyDestroy(key), D_TRUE);
}

TEST(Tsd, ValuesArePerThreadAndEmptyIsNotAnError) {
  D_TSD_KEY key = D_INVALID_TSD_KEY;
  ASSERT_EQ(DutTsdKeyCreate(&key, nullptr), D_TRUE);
  int mine = 1;
  int theirs = 2;

  DutErrNumSet(500);
  void *value = &theirs;
  EXPECT_EQ(DutTsdGetValue(key, &value), D_FALSE);
  EXPECT_EQ(value, nullptr);           // always written
  EXPECT_EQ(DutErrNumGet(), 500);      // and no error set

  EXPECT_NE(DutTsdSetValue(key, &mine), D_FALSE);
  EXPECT_EQ(DutTsdGetValue(key, &value), D_TRUE);
  EXPECT_EQ(value, &mine);

  LibThread t([&] {
    void *v = &mine;
    D_BOOL empty_result = DutTsdGetValue(key, &v);
    if (empty_result != D_FALSE || v != nullptr) return D_WORD{1};
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
  ASSERT_EQ(DutTsdKeyCreate(&first, &destroyFirst), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&plain, nullptr), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&second, &destroySecond), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&removed, &destroyRemoved), D_TRUE);
  ASSERT_EQ(DutTsdKeyCreate(&third, &destroyThird), D_TRUE);
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
        auto *k = reinterpret_cast<D_TSD_KEY *>(keys);
        DutTsdSetValue(k[1], c);
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

TEST(ErrorNumber, InitialisationStartsAFreshRecord) {
  // The record made before initialisation is not found afterwards.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        DutErrNumSet(D_ERR_VAL_INVALID);
        if (DutErrNumGet() != D_ERR_VAL_INVALID) std::exit(1);
        DutInitThreads();
        if (DutErrNumGet() != 0) std::exit(2);
        DutErrNumSet(D_ERR_EOF);
        std::exit(DutErrNumGet() == D_ERR_EOF ? 0 : 3);
      },
      testing::ExitedWithCode(0), "");
}

TEST(ErrorNumber, EachThreadHasItsOwn) {
  DutInitThreads();
  DutErrNumSet(D_ERR_VAL_INVALID);
  D_INT4 at_start = -1;
  D_INT4 after_set = -1;
  LibThread t([&] {
    at_start = DutErrNumGet();
    DutErrNumSet(D_ERR_TIMEOUT_REACHED);
    after_set = DutErrNumGet();
    return D_WORD{0};
  });
  t.join();
  std::thread foreign([&] {
    EXPECT_EQ(DutErrNumGet(), 0);
    DutErrNumSet(D_ERR_NULL_PTR);
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  });
  foreign.join();
  EXPECT_EQ(at_start, 0);
  EXPECT_EQ(after_set, D_ERR_TIMEOUT_REACHED);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
}

TEST(ErrorNumber, RecordIsStableWithinAThread) {
  D_TSD_RECORD *a = DutGetTsdValue();
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(DutGetTsdValue(), a);
  EXPECT_EQ(DutErrNumGetPtr(), &a->err_num);
  D_TSD_RECORD *other = nullptr;
  std::thread t([&] { other = DutGetTsdValue(); });
  t.join();
  EXPECT_NE(other, nullptr);
  EXPECT_NE(other, a);
}

TEST(Platform, CharacterFormat) {
  D_INT4 def = DutGetCharFormatSystemDefault();
  EXPECT_TRUE(def == D_CHAR_FORMAT_ASCII || def == D_CHAR_FORMAT_LATIN1 || def == D_CHAR_FORMAT_UTF8);
  D_INT4 before = DutGetCharFormat();
  for (D_INT4 bad : {0, 4, -1}) {
    DutErrNumSet(0);
    EXPECT_EQ(DutSetCharFormat(bad), D_FALSE);
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
    EXPECT_EQ(DutGetCharFormat(), before);
  }
  for (D_INT4 good : {D_CHAR_FORMAT_UTF8, D_CHAR_FORMAT_LATIN1, D_CHAR_FORMAT_ASCII}) {
    EXPECT_EQ(DutSetCharFormat(good), D_TRUE);
    EXPECT_EQ(DutGetCharFormat(), good);
  }
  DutSetCharFormat(before);
}

TEST(Platform, SystemDefaultFollowsTheLocaleSettings) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        setenv("LC_ALL", "de_DE.ISO-8859-1", 1);
        D_INT4 latin = DutGetCharFormatSystemDefault();
        setenv("LC_ALL", "en_US.UTF-8", 1);
        D_INT4 utf = DutGetCharFormatSystemDefault();
        setenv("LC_ALL", "C", 1);
        D_INT4 plain = DutGetCharFormatSystemDefault();
        std::exit(latin == D_CHAR_FORMAT_LATIN1 && utf == D_CHAR_FORMAT_UTF8 && plain == D_CHAR_FORMAT_ASCII ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

