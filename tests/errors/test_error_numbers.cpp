// The per-thread error number, the foreign values beside it, saving and
// restoring them, and the table of short texts.
#include <gtest/gtest.h>

#include <barrier>
#include <cerrno>
#include <climits>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/thread.h"

namespace {

struct TextRow {
  D_INT4 macro;
  D_INT4 number;
  const char *text;
};

constexpr TextRow kTextTable[] = {
    {D_ERR_C, 1, "C"}, {D_ERR_OS, 2, "OS"}, {D_ERR_NULL_PTR, 3, "NULL pointer"},
    {D_ERR_VAL_TOO_SMALL, 4, "value too small"}, {D_ERR_VAL_TOO_LARGE, 5, "value too large"},
    {D_ERR_ALREADY_EXISTS, 6, "already exists"}, {D_ERR_VAL_INVALID, 7, "value invalid"},
    {D_ERR_DOESNT_EXIST, 8, "doesn't exist"}, {D_ERR_TIMEOUT_REACHED, 9, "timeout reached"},
    {D_ERR_EOF, 10, "end of file"}, {D_ERR_VAL_SAME, 11, "value is the same"},
    {D_ERR_VAL_UNKNOWN, 12, "value unknown"}, {D_ERR_VAL_REQUIRED, 13, "value required"},
    {D_ERR_TYPE_INVALID, 14, "type invalid"}, {D_ERR_TYPE_MISMATCH, 15, "type mismatch"},
    {D_ERR_INTERRUPTED, 16, "interrupted"}, {D_ERR_VERIFY_FAILED, 17, "verify failed"},
    {D_ERR_END_OF_TRAVERSAL, 18, "end of traversal"}, {D_ERR_EMPTY, 19, "empty"},
    {D_ERR_VAL_MISMATCH, 20, "value mismatch"}, {D_ERR_TYPE_UNKNOWN, 21, "type unknown"},
    {D_ERR_FILE_CORRUPT, 24, "file corrupt"}, {D_ERR_WOULD_BLOCK, 25, "would block"},
    {D_ERR_READ_ONLY, 28, "read only"}, {D_ERR_SOCKET, 29, "socket"}, {D_ERR_NO_MEMORY, 30, "no memory"},
    {D_ERR_CONN_INIT_FAILED, 500, "connection initialization failed"},
    {D_ERR_SERVER_NOT_CONNECTED, 502, "server not connected"},
    {D_ERR_SERVER_ALREADY_CONNECTED, 503, "server already connected"},
    {D_ERR_SERVER_DENIED_ACCESS, 504, "server denied access"}, {D_ERR_MSG_CORRUPT, 505, "message corrupt"},
    {D_ERR_MSG_INVALID, 507, "message invalid"}, {D_ERR_END_OF_MSG, 508, "end of message"},
    {D_ERR_FIELD_TYPE_INVALID, 509, "field type invalid"},
    {D_ERR_FIELD_TYPE_MISMATCH, 510, "field type mismatch"}, {D_ERR_IN_PROGRESS, 512, "in progress"},
    {D_ERR_FAILURE_DETECTED, 514, "failure detected"}, {D_ERR_IN_USE, 517, "in use"},
    {D_ERR_GMD_SENDER_TIMEOUT, 518, "GMD sender timeout"},
    {D_ERR_GMD_RECEIVER_TIMEOUT, 519, "GMD receiver timeout"},
    {D_ERR_GMD_RECEIVER_EXIT, 520, "GMD receiver exit"}, {D_ERR_GMD_NO_RECEIVERS, 521, "GMD no receivers"},
    {D_ERR_PROTOCOL_MISMATCH, 522, "protocol mismatch"},
};

// Puts all four values of the calling thread into a known state.
void SetAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  D_ERR_SAVE save{number, c_err, os_err, socket_err};
  ASSERT_TRUE(DutErrNumRestoreTsd(&save, DutGetTsdValue()));
}

using Four = std::tuple<D_INT4, D_INT4, D_INT4, D_INT4>;

// The thread's library number, errno, OS and socket values; errno is read
// first so that no other getter can be what keeps it.
Four Current() {
  const D_INT4 c_err = errno;
  const D_INT4 os_err = DutErrNumGetOs(), socket_err = DutErrNumGetSocket();
  return {DutErrNumGet(), c_err, os_err, socket_err};
}

Four Fields(const D_ERR_SAVE &save) { return {save.err_num, save.c_err, save.os_err, save.socket_err}; }

// ---- Texts ----------------------------------------------------------------

TEST(ErrorText, EveryTableRowHasItsNumberAndAStableText) {
  for (const TextRow &row : kTextTable) {
    EXPECT_EQ(row.macro, row.number);
    EXPECT_STREQ(DutErrNumToStr(row.number), row.text) << row.number;
  }
  const char *first = DutErrNumToStr(D_ERR_DOESNT_EXIST);
  DutErrNumToStr(4099);  // an unknown number in between must not touch it
  EXPECT_EQ(DutErrNumToStr(D_ERR_DOESNT_EXIST), first);
}

TEST(ErrorText, UnknownNumbersAreFormattedIntoTheThreadRecord) {
  for (D_INT4 number : {0, 22, 23, 26, 27, 31, 499, 501, 506, 511, 513, 515, 516, 523, 10000, -1,
                        INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(std::string(DutErrNumToStr(number)), "unknown error " + std::to_string(number));
  }
  const char *text = DutErrNumToStr(23);
  EXPECT_EQ(text, DutGetTsdValue()->err_buf);
  EXPECT_EQ(DutErrNumToStr(26), text);  // the same thread reuses its buffer
  EXPECT_STREQ(text, "unknown error 26");

  DutErrNumSet(D_ERR_VAL_TOO_LARGE);
  EXPECT_STREQ(DutErrStrGet(), "value too large");
  DutErrNumSet(27);
  EXPECT_STREQ(DutErrStrGet(), "unknown error 27");
  DutErrNumSet(0);
}

TEST(ErrorStrCreate, AddsATextKeptByPointerAndNeverReplaces) {
  static const char kMine[] = "mine";
  EXPECT_EQ(std::string(DutErrNumToStr(4242)), "unknown error 4242");
  ASSERT_TRUE(DutErrStrCreate(4242, kMine));
  EXPECT_EQ(DutErrNumToStr(4242), kMine);

  vqtest::OutputCapture capture;
  DutErrNumSet(0);
  EXPECT_TRUE(DutErrStrCreate(4242, "second"));
  EXPECT_EQ(capture.Take(), "WARNING: DutHashInsert: key 4242 already exists in hash table.\n");
  EXPECT_EQ(DutErrNumGet(), 0);  // a duplicate only warns
  EXPECT_EQ(DutErrNumToStr(4242), kMine);
  DutErrStrCreate(D_ERR_DOESNT_EXIST, "gone");
  EXPECT_STREQ(DutErrNumToStr(D_ERR_DOESNT_EXIST), "doesn't exist");
  EXPECT_NE(capture.Take().find("already exists in hash table."), std::string::npos);

  EXPECT_FALSE(DutErrStrCreate(4244, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_STREQ(DutErrNumToStr(4244), "unknown error 4244");
}

// ---- The number and the foreign values -------------------------------------

TEST(ErrorNumber, SetAndGetLeaveTheForeignValuesAlone) {
  SetAllFour(0, 0, 5, 10054);
  errno = EACCES;
  DutErrNumSet(D_ERR_VAL_INVALID);
  EXPECT_EQ(Current(), Four(D_ERR_VAL_INVALID, EACCES, 5, 10054));
  EXPECT_EQ(errno, EACCES);  // after the get as well
}

TEST(ErrorNumber, PointerAddressesTheThreadNumber) {
  DutErrNumSet(D_ERR_EMPTY);
  D_INT4 *number = DutErrNumGetPtr();
  ASSERT_EQ(number, &DutGetTsdValue()->err_num);
  EXPECT_EQ(*number, D_ERR_EMPTY);
  *number = D_ERR_EOF;
  EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
  D_INT4 *other = nullptr;
  std::thread([&] { other = DutErrNumGetPtr(); }).join();
  EXPECT_NE(other, number);
  DutErrNumSet(0);
}

// Each foreign setter sets its kind; 0 keeps the value a failing call left,
// anything else replaces it; the other two foreign values stay.
TEST(ErrorNumber, ForeignSettersKeepZeroAndReplaceOthers) {
  struct Step {
    const char *name;
    void (*set)(D_INT4);
    D_INT4 value;
    Four after;
  };
  const Step steps[] = {
      {"C", DutErrNumSetC, EBADF, {D_ERR_C, EBADF, 3, 10054}},
      {"C", DutErrNumSetC, 0, {D_ERR_C, EBADF, 3, 10054}},
      {"OS", DutErrNumSetOs, 5, {D_ERR_OS, EBADF, 5, 10054}},
      {"OS", DutErrNumSetOs, 0, {D_ERR_OS, EBADF, 5, 10054}},
      {"OS", DutErrNumSetOs, 6, {D_ERR_OS, EBADF, 6, 10054}},
      {"socket", DutErrNumSetSocket, 10061, {D_ERR_SOCKET, EBADF, 6, 10061}},
      {"socket", DutErrNumSetSocket, 0, {D_ERR_SOCKET, EBADF, 6, 10061}},
      {"socket", DutErrNumSetSocket, 10035, {D_ERR_SOCKET, EBADF, 6, 10035}},
      {"C", DutErrNumSetC, ENOENT, {D_ERR_C, ENOENT, 6, 10035}},
  };
  SetAllFour(0, EIO, 3, 10054);
  for (const Step &step : steps) {
    DutErrNumSet(0);  // the kind each step leaves is its own doing
    step.set(step.value);
    EXPECT_EQ(Current(), step.after) << step.name << "(" << step.value << ")";
  }
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
}

TEST(ErrorNumber, VmsStatusSetsOsNumberAndErrno) {
  vqtest::OutputCapture capture;
  errno = 0;
  DutErrNumSetVms(EROFS, 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(capture.Take(), "");
  DutErrNumSetVms(EROFS, 4);  // a second half is a broken expectation, not fatal
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  const std::string printed = capture.Take();
  const std::regex warning(
      "WARNING: Internal validation <0 == os_err_num> failed, file: [^,]+, line [0-9]+\n");
  EXPECT_TRUE(std::regex_search(printed, warning)) << printed;
}

// ---- Save and restore ------------------------------------------------------

TEST(ErrorSave, SaveReadsAllFourAndRestoreLetsTheLibraryNumberWin) {
  SetAllFour(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060);
  D_ERR_SAVE save{-1, -1, -1, -1};
  ASSERT_TRUE(DutErrNumSave(&save));
  EXPECT_EQ(Fields(save), Four(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060));
  EXPECT_EQ(Current(), Four(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060));  // saving reads only

  SetAllFour(0, 0, 0, 0);
  const D_ERR_SAVE all{D_ERR_DOESNT_EXIST, 33, 44, 10055};
  ASSERT_TRUE(DutErrNumRestore(&all));
  EXPECT_EQ(Current(), Four(D_ERR_DOESNT_EXIST, 33, 44, 10055));  // not the last setter's D_ERR_SOCKET

  SetAllFour(D_ERR_EOF, EIO, 5, 10054);
  const D_ERR_SAVE zeros{D_ERR_NULL_PTR, 0, 0, 0};
  ASSERT_TRUE(DutErrNumRestore(&zeros));
  EXPECT_EQ(Current(), Four(D_ERR_NULL_PTR, EIO, 5, 10054));  // saved zeros are not written back
}

TEST(ErrorSave, TsdPairCapturesAndWritesBackZerosToo) {
  SetAllFour(D_ERR_VAL_TOO_SMALL, EIO, 5, 10054);
  D_ERR_SAVE save{-1, -1, -1, -1};
  D_TSD_RECORD *tsd = DutErrNumSaveTsd(&save);
  ASSERT_EQ(tsd, DutGetTsdValue());
  EXPECT_EQ(Fields(save), Four(D_ERR_VAL_TOO_SMALL, EIO, 5, 10054));
  const D_ERR_SAVE zeros{0, 0, 0, 0};
  ASSERT_TRUE(DutErrNumRestoreTsd(&zeros, tsd));
  EXPECT_EQ(Current(), Four(0, 0, 0, 0));
}

TEST(ErrorSave, NullRecordsAreRefusedWithError3) {
  static D_ERR_SAVE save{};
  const std::pair<const char *, bool (*)()> calls[] = {
      {"Save", [] { return !DutErrNumSave(nullptr); }},
      {"Restore", [] { return !DutErrNumRestore(nullptr); }},
      {"SaveTsd", [] { return DutErrNumSaveTsd(nullptr) == nullptr; }},
      {"RestoreTsd(null, tsd)", [] { return !DutErrNumRestoreTsd(nullptr, DutGetTsdValue()); }},
      {"RestoreTsd(save, null)", [] { return !DutErrNumRestoreTsd(&save, nullptr); }},
  };
  for (const auto &[name, call] : calls) {
    DutErrNumSet(0);
    EXPECT_TRUE(call()) << name;
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR) << name;
  }
}

// ---- Threads ---------------------------------------------------------------

D_WORD ReadNumberThenSet(D_WORD value) {
  const D_INT4 seen = DutErrNumGet();
  DutErrNumSet(static_cast<D_INT4>(value));
  return DutErrNumGet() == value ? seen : -1;
}

TEST(ErrorThreads, NewThreadsStartAtZeroAndDoNotLeak) {
  // Starting the thread layer makes a fresh error-record key: a number set
  // before the first library thread is no longer found afterwards.
  DutErrNumSet(D_ERR_VERIFY_FAILED);
  ASSERT_EQ(DutInitThreads(), D_TRUE);
  EXPECT_EQ(DutErrNumGet(), 0);
  DutErrNumSet(D_ERR_VERIFY_FAILED);
  D_THREAD thread = DutThreadCreate(&ReadNumberThenSet, D_ERR_VAL_UNKNOWN);
  ASSERT_NE(thread, D_INVALID_THREAD);
  D_WORD exit_code = -2;
  ASSERT_TRUE(DutThreadWait(thread, &exit_code));
  EXPECT_EQ(exit_code, 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VERIFY_FAILED);

  // A thread the library did not start, and whose first use creates its
  // record: errno and the OS value survive that creation.
  D_INT4 seen = -1, after = -1, os_after = -1;
  int errno_after_get = -1, errno_after_set = -1;
  std::thread([&] {
    errno = ENOTDIR;
    seen = DutErrNumGet();
    errno_after_get = errno;
    std::thread([&] {
      errno = EISDIR;
      DutErrNumSet(D_ERR_IN_USE);
      errno_after_set = errno;
      after = DutErrNumGet();
      os_after = DutErrNumGetOs();
    }).join();
  }).join();
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(after, D_ERR_IN_USE);
  EXPECT_EQ(errno_after_get, ENOTDIR);
  EXPECT_EQ(errno_after_set, EISDIR);
  EXPECT_EQ(os_after, 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VERIFY_FAILED);
  DutErrNumSet(0);
}

TEST(ErrorThreads, ConcurrentThreadsKeepTheirOwnValuesAndTexts) {
  constexpr int kThreads = 8;
  std::barrier sync(kThreads);
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 200; ++round) {
        const D_INT4 unknown = 100000 + t * 1000 + round;
        DutErrNumSetOs(7000 + t);
        DutErrNumSetSocket(10000 + t);
        DutErrNumSet(600 + t);
        const char *text = DutErrNumToStr(unknown);
        sync.arrive_and_wait();  // every thread has set and formatted its own
        if (DutErrNumGet() != 600 + t || DutErrNumGetOs() != 7000 + t || DutErrNumGetSocket() != 10000 + t ||
            std::string(text) != "unknown error " + std::to_string(unknown))
          ++failures[t];
        sync.arrive_and_wait();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

// ---- Process-wide switches -------------------------------------------------

TEST(ErrorSwitches, ProcessWideValuesAreSharedByThreads) {
  const Four saved{DutErrFeedbackGet(), DutErrSeverityGet(), DutGetCheckOnly(), 0};
  DutErrFeedbackSet(3);
  DutErrSeveritySet(-2);
  DutSetCheckOnly(1);
  Four seen;
  unsigned char *flags_seen = nullptr;
  jmp_buf *jump_seen = nullptr;
  std::thread([&] {
    seen = {DutErrFeedbackGet(), DutErrSeverityGet(), DutGetCheckOnly(), 0};
    flags_seen = DutGetDebugFlags();
    jump_seen = DutErrGetJumpBufferPtr();
  }).join();
  EXPECT_EQ(seen, Four(3, -2, 1, 0));
  DutErrFeedbackSet(std::get<0>(saved));
  DutErrSeveritySet(std::get<1>(saved));
  DutSetCheckOnly(std::get<2>(saved));

  unsigned char *flags = DutGetDebugFlags();
  ASSERT_NE(flags, nullptr);
  EXPECT_EQ(flags_seen, flags);
  // The whole array is addressable and starts cleared.
  for (int i = 0; i < D_DEBUG_FLAG_COUNT; ++i) EXPECT_EQ(flags[i], 0) << "flag " << i;
  ASSERT_NE(jump_seen, nullptr);
  EXPECT_EQ(jump_seen, DutErrGetJumpBufferPtr());
}

TEST(ErrorSwitches, PerrorSwitchAcceptsOnlyZeroAndOne) {
  D_INT4 enabled = -1;
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  EXPECT_EQ(enabled, 1);  // on at load
  for (D_INT4 bad : {2, -1}) {
    DutErrNumSet(0);
    EXPECT_FALSE(DutPerrorSetEnable(bad));
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << bad;
  }
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  EXPECT_EQ(enabled, 1);  // the refusals changed nothing
  for (D_INT4 value : {0, 1}) {
    ASSERT_TRUE(DutPerrorSetEnable(value));
    ASSERT_TRUE(DutPerrorGetEnable(&enabled));
    EXPECT_EQ(enabled, value);
  }
  DutErrNumSet(0);
  EXPECT_FALSE(DutPerrorGetEnable(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

}  // namespace
