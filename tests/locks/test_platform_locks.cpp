// The lock layer below the API, where "abandoned" is still told apart from
// an ordinary acquisition (the API folds both into success): who gets an
// abandoned mutex and how often, for both kinds of mutex and however the
// owner's thread ends; waiters asleep when the owner ends; time-outs of
// the lock word. The backend's symbols are hidden inside the library, so
// its sources are compiled in here.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "../../src/platform/posix/errors.cpp"
#include "../../src/platform/posix/futex.cpp"
#include "../../src/platform/posix/sync.cpp"
#include "../../src/platform/posix/thread.cpp"
#include "../../src/platform/thread_lock.cpp"
#include "threads/thread_support.hpp"

namespace os = vq::os;
using os::WaitResult;

namespace {

os::Handle *makeMutex(const vqtest::MutexKind &kind) {
  return kind.named ? os::mutexCreateNamed(vqtest::uniqueName("lock").c_str(), false) : os::mutexCreate(false);
}

// How the owner's thread ends while it holds the mutex `depth` times.
struct Ending {
  const char *name;
  int depth;
  void (*end)();  // called last on the thread; may not return
};
constexpr Ending kEndings[] = {
    {"returns", 1, [] {}},
    {"returns at depth 3", 3, [] {}},
    {"pthread_exit", 2, [] { pthread_exit(nullptr); }},
};

// Takes m `depth` times on a plain pthread, then ends that thread as the
// ending says: pthread_exit must not unwind through the standard library's
// thread frames.
void endHolding(os::Handle *m, const Ending &ending) {
  std::function<void()> body = [&] {
    for (int i = 0; i < ending.depth; ++i) EXPECT_EQ(os::mutexLock(m, 0), WaitResult::Signalled);
    ending.end();
  };
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(
                   &thread, nullptr,
                   [](void *arg) -> void * {
                     (*static_cast<std::function<void()> *>(arg))();
                     return nullptr;
                   },
                   &body));
  pthread_join(thread, nullptr);
}

// What another thread gets from one try, releasing it again at once.
WaitResult tryElsewhere(os::Handle *m) {
  WaitResult r = WaitResult::Failed;
  std::thread([&] {
    r = os::mutexLock(m, 0);
    if (r != WaitResult::Timeout) os::mutexUnlock(m);
  }).join();
  return r;
}

}  // namespace

TEST(PlatformMutexAbandoned, NextLockerAloneSeesItAndOwnsItAtDepthOne) {
  for (const vqtest::MutexKind &kind : vqtest::kMutexKinds) {
    for (const Ending &ending : kEndings) {
      SCOPED_TRACE(std::string(kind.name) + ", owner " + ending.name);
      os::Handle *m = makeMutex(kind);
      ASSERT_NE(m, nullptr);
      endHolding(m, ending);
      EXPECT_EQ(os::mutexLock(m, 0), WaitResult::Abandoned);
      // Ours now, and at depth one whatever the dead owner's depth was.
      EXPECT_EQ(tryElsewhere(m), WaitResult::Timeout);
      EXPECT_EQ(os::mutexLock(m, 0), WaitResult::Signalled);
      EXPECT_TRUE(os::mutexUnlock(m));
      EXPECT_TRUE(os::mutexUnlock(m));
      os::setLastError(0);
      EXPECT_FALSE(os::mutexUnlock(m));
      EXPECT_EQ(os::lastError(), EPERM);
      // Reported once: later lockers see an ordinary mutex.
      EXPECT_EQ(tryElsewhere(m), WaitResult::Signalled);
      EXPECT_EQ(os::mutexLock(m, 0), WaitResult::Signalled);
      EXPECT_TRUE(os::mutexUnlock(m));
      EXPECT_TRUE(os::closeHandle(m));
    }
  }
}

TEST(PlatformMutexAbandoned, OnlyTheMutexesStillHeldAreGivenUp) {
  os::Handle *held = os::mutexCreate(false);
  os::Handle *released = os::mutexCreate(false);
  os::Handle *recursive = os::mutexCreate(false);
  std::thread([&] {
    os::mutexLock(held, 0);
    os::mutexLock(released, 0);
    os::mutexUnlock(released);
    os::mutexLock(recursive, 0);
    os::mutexLock(recursive, 0);
    os::mutexUnlock(recursive);  // still held once
  }).join();
  EXPECT_EQ(os::mutexLock(held, 0), WaitResult::Abandoned);
  EXPECT_EQ(os::mutexLock(released, 0), WaitResult::Signalled);
  EXPECT_EQ(os::mutexLock(recursive, 0), WaitResult::Abandoned);
  for (os::Handle *m : {held, released, recursive}) {
    EXPECT_TRUE(os::mutexUnlock(m));
    EXPECT_TRUE(os::closeHandle(m));
  }
}

TEST(PlatformMutexAbandoned, SleepingWaiterIsWokenWhenTheOwnerEnds) {
  for (const vqtest::MutexKind &kind : vqtest::kMutexKinds) {
    for (std::uint32_t timeout : {os::kInfinite, 20000u}) {
      SCOPED_TRACE(std::string(kind.name) + ", time-out " + std::to_string(timeout));
      os::Handle *m = makeMutex(kind);
      std::atomic<bool> end_owner{false};
      std::atomic<bool> owner_in{false};
      std::thread owner([&] {
        os::mutexLock(m, 0);
        owner_in = true;
        while (!end_owner) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      });
      while (!owner_in) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      WaitResult got = WaitResult::Failed;
      std::atomic<bool> returned{false};
      std::thread waiter([&] {
        got = os::mutexLock(m, timeout);
        returned = true;
        if (got != WaitResult::Timeout) os::mutexUnlock(m);
      });
      // Long enough for the waiter to be asleep in the system.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      EXPECT_FALSE(returned.load());
      end_owner = true;
      owner.join();
      waiter.join();
      EXPECT_EQ(got, WaitResult::Abandoned);
      EXPECT_TRUE(os::closeHandle(m));
    }
  }
}

// A TSD destructor that takes a mutex after the lock layer's own
// thread-end hook has run: the thread ends holding it all the same, and it
// is given up in a later round of destructors. The destructor asks for a
// second round and locks only then, so that the hook has surely run before
// whatever the order of the keys.
TEST(PlatformMutexAbandoned, LockTakenByALaterDestructorIsGivenUpToo) {
  static os::Handle *late = nullptr;
  static pthread_key_t key;
  static int rounds = 0;
  late = os::mutexCreate(false);
  os::Handle *early = os::mutexCreate(false);
  ASSERT_EQ(0, pthread_key_create(&key, [](void *) {
              if (++rounds == 1) {
                pthread_setspecific(key, &key);
              } else {
                os::mutexLock(late, 0);
              }
            }));
  std::thread([&] {
    os::mutexLock(early, 0);
    pthread_setspecific(key, &key);
  }).join();
  EXPECT_EQ(rounds, 2);
  EXPECT_EQ(os::mutexLock(early, 0), WaitResult::Abandoned);
  EXPECT_EQ(os::mutexLock(late, 0), WaitResult::Abandoned);
  for (os::Handle *m : {early, late}) {
    EXPECT_TRUE(os::mutexUnlock(m));
    EXPECT_TRUE(os::closeHandle(m));
  }
  pthread_key_delete(key);
}

TEST(PlatformMutex, CloseReleasesTheCallersHoldsAndRefusesAnotherHolder) {
  os::Handle *mine = os::mutexCreate(true);
  EXPECT_EQ(os::mutexLock(mine, 0), WaitResult::Signalled);  // depth 2
  EXPECT_TRUE(os::closeHandle(mine));

  os::Handle *theirs = os::mutexCreate(false);
  std::atomic<bool> in{false};
  std::atomic<bool> leave{false};
  std::thread holder([&] {
    os::mutexLock(theirs, 0);
    in = true;
    while (!leave) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    os::mutexUnlock(theirs);
  });
  while (!in) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  os::setLastError(0);
  EXPECT_FALSE(os::closeHandle(theirs));
  EXPECT_EQ(os::lastError(), EBUSY);
  leave = true;
  holder.join();
  EXPECT_TRUE(os::closeHandle(theirs));
}

TEST(PlatformLockWord, TimedLockWaitsItsTimeOnTheMonotonicClockThenFails) {
  os::LockWord word;
  ASSERT_TRUE(word.lock(0));
  for (std::uint32_t timeout_ms : {0u, 1u, 30u}) {
    bool got = true;
    std::uint64_t waited_ns = 0;
    std::thread([&] {
      const std::uint64_t start = os::monotonicNs();
      got = word.lock(timeout_ms);
      waited_ns = os::monotonicNs() - start;
    }).join();
    EXPECT_FALSE(got) << timeout_ms;
    EXPECT_GE(waited_ns, std::uint64_t{timeout_ms} * 1000000u) << timeout_ms;
  }
  // Released within the time-out: the waiter gets it.
  bool got = false;
  std::thread waiter([&] {
    got = word.lock(20000);
    if (got) word.unlock();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  word.unlock();
  waiter.join();
  EXPECT_TRUE(got);
  EXPECT_TRUE(word.lock(0));
  word.unlock();
}
