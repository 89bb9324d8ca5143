// Misuse of the read-write mutex is a fatal assertion with a fixed text.

#include <gtest/gtest.h>

#include <string>

#include "rw_support.hpp"
#include "support/output_capture.hpp"

namespace {

// The assertion's text as a regular expression.
std::string assertion(const std::string &text) {
  std::string out;
  for (char c : "Assertion <" + text + "> failed, file: utthread") {
    if (std::string("()[]{}.*+?^$|\\").find(c) != std::string::npos) out += '\\';
    out += c;
  }
  return out;
}

// Creates the lock, read-locks it when asked, and misuses it through `act`
// on this thread or another.
void misuse(D_INT4 locked, bool read_lock, bool on_other_thread, void (*act)(D_RW_MUTEX *)) {
  D_RW_MUTEX *rw = DutRwMutexCreate(locked, 4);
  if (read_lock) DutRwMutexReadLock(rw);
  if (!on_other_thread) return act(rw);
  rwtest::LibThread([&] { return act(rw), D_WORD{0}; }).join();
}

TEST(RwMutexDeathTest, MisuseIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char *not_held = "rw_mutex->write.lock_count != 0", *no_slot = "-1 != slot",
             *not_writer = "DutThreadEqual(self, rw_mutex->write.thread)";
  void (*unlock)(D_RW_MUTEX *) = [](D_RW_MUTEX *rw) { DutRwMutexUnlock(rw); };
  const struct {
    D_INT4 locked;
    bool read_lock, other_thread;
    void (*act)(D_RW_MUTEX *);
    const char *text;
  } cases[] = {
      // Unlock of a free lock, and one unlock too many after a read lock.
      {0, false, false, unlock, not_held},
      {0, true, false, [](D_RW_MUTEX *rw) { DutRwMutexUnlock(rw), DutRwMutexUnlock(rw); }, not_held},
      // Unlock by a thread that holds neither the write lock nor a slot.
      {1, false, true, unlock, not_writer},
      {0, true, true, unlock, no_slot},
      // Upgrade without holding: a free lock, another's read lock, another's
      // write lock.
      {0, false, false, [](D_RW_MUTEX *rw) { DutRwMutexUpgradeLock(rw, 0.0); }, not_held},
      {0, true, true, [](D_RW_MUTEX *rw) { DutRwMutexUpgradeLock(rw, -1.0); }, no_slot},
      {1, false, true, [](D_RW_MUTEX *rw) { DutRwMutexUpgradeLock(rw, 1.0); }, not_writer},
  };
  for (const auto &c : cases) {
    VQTEST_EXPECT_FATAL(misuse(c.locked, c.read_lock, c.other_thread, c.act), assertion(c.text));
  }
}

}  // namespace
