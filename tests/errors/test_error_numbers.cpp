// The per-thread error number, the foreign values beside it, saving and
// restoring them, and the table of short texts.
#include <gtest/gtest.h>

#include <barrier>
#include <cerrno>
#include <climits>
#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/capture.hpp"
#include "vqutil/error.h"
#include "vqutil/thread.h"

namespace {

struct TextRow {
  D_INT4 macro;
  D_INT4 number;
  const char *text;
};

constexpr TextRow kTextTable[] = {
    {D_ERR_C, 1, "C"},
    {D_ERR_OS, 2, "OS"},
    {D_ERR_NULL_PTR, 3, "NULL pointer"},
    {D_ERR_VAL_TOO_SMALL, 4, "value too small"},
    {D_ERR_VAL_TOO_LARGE, 5, "value too large"},
    {D_ERR_ALREADY_EXISTS, 6, "already exists"},
    {D_ERR_VAL_INVALID, 7, "value invalid"},
    {D_ERR_DOESNT_EXIST, 8, "doesn't exist"},
    {D_ERR_TIMEOUT_REACHED, 9, "timeout reached"},
    {D_ERR_EOF, 10, "end of file"},
    {D_ERR_VAL_SAME, 11, "value is the same"},
    {D_ERR_VAL_UNKNOWN, 12, "value unknown"},
    {D_ERR_VAL_REQUIRED, 13, "value required"},
    {D_ERR_TYPE_INVALID, 14, "type invalid"},
    {D_ERR_TYPE_MISMATCH, 15, "type mismatch"},
    {D_ERR_INTERRUPTED, 16, "interrupted"},
    {D_ERR_VERIFY_FAILED, 17, "verify failed"},
    {D_ERR_END_OF_TRAVERSAL, 18, "end of traversal"},
    {D_ERR_EMPTY, 19, "empty"},
    {D_ERR_VAL_MISMATCH, 20, "value mismatch"},
    {D_ERR_TYPE_UNKNOWN, 21, "type unknown"},
    {D_ERR_FILE_CORRUPT, 24, "file corrupt"},
    {D_ERR_WOULD_BLOCK, 25, "would block"},
    {D_ERR_READ_ONLY, 28, "read only"},
    {D_ERR_SOCKET, 29, "socket"},
    {D_ERR_NO_MEMORY, 30, "no memory"},
    {D_ERR_CONN_INIT_FAILED, 500, "connection initialization failed"},
    {D_ERR_SERVER_NOT_CONNECTED, 502, "server not connected"},
    {D_ERR_SERVER_ALREADY_CONNECTED, 503, "server already connected"},
    {D_ERR_SERVER_DENIED_ACCESS, 504, "server denied access"},
    {D_ERR_MSG_CORRUPT, 505, "message corrupt"},
    {D_ERR_MSG_INVALID, 507, "message invalid"},
    {D_ERR_END_OF_MSG, 508, "end of message"},
    {D_ERR_FIELD_TYPE_INVALID, 509, "field type invalid"},
    {D_ERR_FIELD_TYPE_MISMATCH, 510, "field type mismatch"},
    {D_ERR_IN_PROGRESS, 512, "in progress"},
    {D_ERR_FAILURE_DETECTED, 514, "failure detected"},
    {D_ERR_IN_USE, 517, "in use"},
    {D_ERR_GMD_SENDER_TIMEOUT, 518, "GMD sender timeout"},
    {D_ERR_GMD_RECEIVER_TIMEOUT, 519, "GMD receiver timeout"},
    {D_ERR_GMD_RECEIVER_EXIT, 520, "GMD receiver exit"},
    {D_ERR_GMD_NO_RECEIVERS, 521, "GMD no receivers"},
    {D_ERR_PROTOCOL_MISMATCH, 522, "protocol mismatch"},
};

// Puts all four values of the calling thread into a known state.
void SetAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  D_ERR_SAVE save{number, c_err, os_err, socket_err};
  D_TSD_RECORD *tsd = DutGetTsdValue();
  ASSERT_NE(tsd, nullptr);
  ASSERT_TRUE(DutErrNumRestoreTsd(&save, tsd));
}

// ---- Texts ----------------------------------------------------------------

TEST(ErrorText, EveryTableRowHasItsNumberAndText) {
  for (const TextRow &row : kTextTable) {
    SCOPED_TRACE(row.number);
    EXPECT_EQ(row.macro, row.number);
    EXPECT_STREQ(DutErrNumToStr(row.number), row.text);
  }
}

TEST(ErrorText, KnownTextsAreStableLibraryStrings) {
  const char *first = DutErrNumToStr(D_ERR_DOESNT_EXIST);
  DutErrNumToStr(4099);  // an unknown number in between must not touch it
  EXPECT_EQ(DutErrNumToStr(D_ERR_DOESNT_EXIST), first);
  EXPECT_STREQ(first, "doesn't exist");
}

TEST(ErrorText, NumbersOutsideTheTableAreUnknown) {
  const D_INT4 unknown[] = {0,   22,  23,  26,  27,  31,    499,     501,    506,
                            511, 513, 515, 516, 523, 10000, -1, INT32_MIN, INT32_MAX};
  for (D_INT4 number : unknown) {
    SCOPED_TRACE(number);
    EXPECT_EQ(std::string(DutErrNumToStr(number)), "unknown error " + std::to_string(number));
  }
}

TEST(ErrorText, UnknownTextIsFormattedIntoTheThreadRecord) {
  const char *text = DutErrNumToStr(23);
  D_TSD_RECORD *tsd = DutGetTsdValue();
  ASSERT_NE(tsd, nullptr);
  EXPECT_EQ(text, tsd->err_buf);
  EXPECT_STREQ(text, "unknown error 23");
  // The next unknown number of the same thread reuses the buffer.
  EXPECT_EQ(DutErrNumToStr(26), text);
  EXPECT_STREQ(text, "unknown error 26");
}

TEST(ErrorText, UnknownTextBuffersAreIndependentPerThread) {
  constexpr int kThreads = 6;
  constexpr int kRounds = 200;
  std::barrier sync(kThreads);
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        const D_INT4 number = 100000 + t * 1000 + round;
        const char *text = DutErrNumToStr(number);
        sync.arrive_and_wait();  // every thread has formatted its own number
        if (std::string(text) != "unknown error " + std::to_string(number)) ++failures[t];
        sync.arrive_and_wait();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

TEST(ErrorText, StrGetFollowsTheThreadNumber) {
  DutErrNumSet(D_ERR_VAL_TOO_LARGE);
  EXPECT_STREQ(DutErrStrGet(), "value too large");
  DutErrNumSet(27);
  EXPECT_STREQ(DutErrStrGet(), "unknown error 27");
  DutErrNumSet(0);
}

// ---- Adding texts ------------------------------------------------------------

TEST(ErrorStrCreate, AddsATextKeptByPointer) {
  static const char kMine[] = "mine";
  EXPECT_EQ(std::string(DutErrNumToStr(4242)), "unknown error 4242");
  ASSERT_TRUE(DutErrStrCreate(4242, kMine));
  EXPECT_EQ(DutErrNumToStr(4242), kMine);
}

TEST(ErrorStrCreate, DuplicateKeepsTheFirstTextAndWarns) {
  static const char kFirst[] = "first";
  static const char kSecond[] = "second";
  ASSERT_TRUE(DutErrStrCreate(4243, kFirst));
  {
    vqtest::OutputCapture capture;
    DutErrNumSet(0);
    EXPECT_TRUE(DutErrStrCreate(4243, kSecond));
    EXPECT_EQ(capture.Take(), "WARNING: DutHashInsert: key 4243 already exists in hash table.\n");
    EXPECT_EQ(DutErrNumGet(), 0);  // a duplicate only warns
  }
  EXPECT_STREQ(DutErrNumToStr(4243), "first");
}

TEST(ErrorStrCreate, CannotReplaceABuiltInText) {
  static const char kOther[] = "gone";
  vqtest::OutputCapture capture;
  DutErrStrCreate(D_ERR_DOESNT_EXIST, kOther);
  EXPECT_STREQ(DutErrNumToStr(D_ERR_DOESNT_EXIST), "doesn't exist");
  EXPECT_NE(capture.Take().find("already exists in hash table."), std::string::npos);
}

TEST(ErrorStrCreate, NullTextIsRefused) {
  DutErrNumSet(0);
  EXPECT_FALSE(DutErrStrCreate(4244, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_STREQ(DutErrNumToStr(4244), "unknown error 4244");
}

// ---- The number and the foreign values -------------------------------------

TEST(ErrorNumber, SetAndGetLeaveTheForeignValuesAlone) {
  SetAllFour(0, 0, 5, 10054);
  errno = EACCES;
  DutErrNumSet(D_ERR_VAL_INVALID);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(DutErrNumGetC(), EACCES);
  EXPECT_EQ(DutErrNumGetOs(), 5);
  EXPECT_EQ(DutErrNumGetSocket(), 10054);
}

TEST(ErrorNumber, PointerAddressesTheThreadNumber) {
  DutErrNumSet(D_ERR_EMPTY);
  D_INT4 *number = DutErrNumGetPtr();
  ASSERT_NE(number, nullptr);
  EXPECT_EQ(*number, D_ERR_EMPTY);
  EXPECT_EQ(DutErrNumGetPtr(), number);
  *number = D_ERR_EOF;
  EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
  DutErrNumSet(D_ERR_VAL_SAME);
  EXPECT_EQ(*number, D_ERR_VAL_SAME);
  EXPECT_EQ(number, &DutGetTsdValue()->err_num);

  D_INT4 *other = nullptr;
  std::thread([&] { other = DutErrNumGetPtr(); }).join();
  EXPECT_NE(other, number);
  DutErrNumSet(0);
}

TEST(ErrorNumber, SetCKeepsErrnoForZeroAndStoresOtherValues) {
  errno = ENOENT;
  DutErrNumSetC(0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(errno, ENOENT);
  DutErrNumSetC(EBADF);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(DutErrNumGetC(), EBADF);
}

TEST(ErrorNumber, SetOsKeepsTheOsValueForZeroAndReplacesIt) {
  SetAllFour(0, EIO, 0, 0);
  DutErrNumSetOs(5);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), 5);
  DutErrNumSet(0);
  DutErrNumSetOs(0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), 5);
  DutErrNumSetOs(6);
  EXPECT_EQ(DutErrNumGetOs(), 6);
  EXPECT_EQ(errno, EIO);  // the OS value is not errno
}

TEST(ErrorNumber, SetSocketKeepsTheSocketValueForZeroAndReplacesIt) {
  SetAllFour(0, 0, 3, 0);
  DutErrNumSetSocket(10061);
  EXPECT_EQ(DutErrNumGet(), D_ERR_SOCKET);
  EXPECT_EQ(DutErrNumGetSocket(), 10061);
  DutErrNumSetSocket(0);
  EXPECT_EQ(DutErrNumGetSocket(), 10061);
  DutErrNumSetSocket(10035);
  EXPECT_EQ(DutErrNumGetSocket(), 10035);
  EXPECT_EQ(DutErrNumGetOs(), 3);  // the socket value is its own place
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
  EXPECT_TRUE(std::regex_search(
      printed, std::regex("WARNING: Internal validation <0 == os_err_num> failed, file: [^,]+, "
                          "line [0-9]+\n")))
      << printed;
}

// ---- Save and restore ------------------------------------------------------

TEST(ErrorSave, SaveFillsTheRecordInFieldOrder) {
  SetAllFour(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060);
  D_ERR_SAVE save{-1, -1, -1, -1};
  ASSERT_TRUE(DutErrNumSave(&save));
  EXPECT_EQ(save.err_num, D_ERR_TIMEOUT_REACHED);
  EXPECT_EQ(save.c_err, E2BIG);
  EXPECT_EQ(save.os_err, 5);
  EXPECT_EQ(save.socket_err, 10060);
  // Saving reads only.
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
  EXPECT_EQ(errno, E2BIG);
}

TEST(ErrorSave, RestorePutsAllBackAndTheLibraryNumberWins) {
  SetAllFour(0, 0, 0, 0);
  const D_ERR_SAVE save{D_ERR_DOESNT_EXIST, 33, 44, 10055};
  ASSERT_TRUE(DutErrNumRestore(&save));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);  // not D_ERR_SOCKET of the last setter
  EXPECT_EQ(errno, 33);
  EXPECT_EQ(DutErrNumGetOs(), 44);
  EXPECT_EQ(DutErrNumGetSocket(), 10055);
}

TEST(ErrorSave, RestoreDoesNotWriteBackZeroForeignValues) {
  SetAllFour(D_ERR_EOF, EIO, 5, 10054);
  const D_ERR_SAVE save{D_ERR_NULL_PTR, 0, 0, 0};
  ASSERT_TRUE(DutErrNumRestore(&save));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(DutErrNumGetOs(), 5);
  EXPECT_EQ(DutErrNumGetSocket(), 10054);
}

TEST(ErrorSave, NullRecordsAreRefusedWithError3) {
  DutErrNumSet(0);
  EXPECT_FALSE(DutErrNumSave(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutErrNumRestore(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);

  DutErrNumSet(0);
  EXPECT_EQ(DutErrNumSaveTsd(nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);

  D_ERR_SAVE save{};
  D_TSD_RECORD *tsd = DutGetTsdValue();
  DutErrNumSet(0);
  EXPECT_FALSE(DutErrNumRestoreTsd(nullptr, tsd));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutErrNumRestoreTsd(&save, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(ErrorSave, TsdPairCapturesAndWritesBackZerosToo) {
  SetAllFour(D_ERR_VAL_TOO_SMALL, EIO, 5, 10054);
  D_ERR_SAVE save{-1, -1, -1, -1};
  D_TSD_RECORD *tsd = DutErrNumSaveTsd(&save);
  ASSERT_NE(tsd, nullptr);
  EXPECT_EQ(tsd, DutGetTsdValue());
  EXPECT_EQ(save.err_num, D_ERR_VAL_TOO_SMALL);
  EXPECT_EQ(save.c_err, EIO);
  EXPECT_EQ(save.os_err, 5);
  EXPECT_EQ(save.socket_err, 10054);
  EXPECT_EQ(tsd->err_num, D_ERR_VAL_TOO_SMALL);

  const D_ERR_SAVE zeros{0, 0, 0, 0};
  ASSERT_TRUE(DutErrNumRestoreTsd(&zeros, tsd));
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(DutErrNumGetOs(), 0);
  EXPECT_EQ(DutErrNumGetSocket(), 0);
  EXPECT_EQ(DutErrNumGet(), 0);
}

// ---- Threads ---------------------------------------------------------------

D_WORD ReadNumberThenSet(D_WORD value) {
  const D_INT4 seen = DutErrNumGet();
  DutErrNumSet(static_cast<D_INT4>(value));
  return DutErrNumGet() == value ? seen : -1;
}

TEST(ErrorThreads, LibraryThreadStartsAtZeroAndDoesNotLeak) {
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
  DutErrNumSet(0);
}

TEST(ErrorThreads, ForeignThreadStartsAtZeroAndDoesNotLeak) {
  DutErrNumSet(D_ERR_READ_ONLY);
  D_INT4 seen = -1;
  D_INT4 after = -1;
  std::thread([&] {
    seen = DutErrNumGet();
    DutErrNumSet(D_ERR_IN_USE);
    after = DutErrNumGet();
  }).join();
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(after, D_ERR_IN_USE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  DutErrNumSet(0);
}

TEST(ErrorThreads, FirstUseInAThreadKeepsItsForeignValues) {
  // Creating the thread's record must not disturb errno or the OS value.
  int errno_after_get = -1;
  int errno_after_set = -1;
  D_INT4 os_after = -1;
  std::thread([&] {
    errno = ENOTDIR;
    (void)DutErrNumGet();
    errno_after_get = errno;
    std::thread([&] {
      errno = EISDIR;
      DutErrNumSet(D_ERR_EMPTY);
      errno_after_set = errno;
      os_after = DutErrNumGetOs();
    }).join();
  }).join();
  EXPECT_EQ(errno_after_get, ENOTDIR);
  EXPECT_EQ(errno_after_set, EISDIR);
  EXPECT_EQ(os_after, 0);
}

TEST(ErrorThreads, ConcurrentThreadsKeepTheirOwnValues) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 300;
  std::barrier sync(kThreads);
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        const D_INT4 number = 600 + t;
        DutErrNumSetOs(7000 + t);
        DutErrNumSetSocket(10000 + t);
        DutErrNumSet(number);
        sync.arrive_and_wait();
        if (DutErrNumGet() != number || DutErrNumGetOs() != 7000 + t ||
            DutErrNumGetSocket() != 10000 + t)
          ++failures[t];
        sync.arrive_and_wait();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

// ---- Process-wide switches -------------------------------------------------

TEST(ErrorSwitches, FeedbackSeverityAndCheckOnlyRoundTrip) {
  const D_INT4 feedback = DutErrFeedbackGet();
  const D_INT4 severity = DutErrSeverityGet();
  const D_INT4 check_only = DutGetCheckOnly();
  DutErrFeedbackSet(3);
  DutErrSeveritySet(-2);
  DutSetCheckOnly(1);
  EXPECT_EQ(DutErrFeedbackGet(), 3);
  EXPECT_EQ(DutErrSeverityGet(), -2);
  EXPECT_EQ(DutGetCheckOnly(), 1);
  // Process-wide, not per thread.
  D_INT4 seen_feedback = 0;
  D_INT4 seen_severity = 0;
  std::thread([&] {
    seen_feedback = DutErrFeedbackGet();
    seen_severity = DutErrSeverityGet();
  }).join();
  EXPECT_EQ(seen_feedback, 3);
  EXPECT_EQ(seen_severity, -2);
  DutErrFeedbackSet(feedback);
  DutErrSeveritySet(severity);
  DutSetCheckOnly(check_only);
}

TEST(ErrorSwitches, PerrorSwitchAcceptsOnlyZeroAndOne) {
  D_INT4 enabled = -1;
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  EXPECT_EQ(enabled, 1);  // on at load

  DutErrNumSet(0);
  EXPECT_FALSE(DutPerrorSetEnable(2));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  DutErrNumSet(0);
  EXPECT_FALSE(DutPerrorSetEnable(-1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  EXPECT_EQ(enabled, 1);

  ASSERT_TRUE(DutPerrorSetEnable(0));
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  EXPECT_EQ(enabled, 0);
  ASSERT_TRUE(DutPerrorSetEnable(1));
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  EXPECT_EQ(enabled, 1);

  DutErrNumSet(0);
  EXPECT_FALSE(DutPerrorGetEnable(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(ErrorSwitches, DebugFlagsAreOneStableProcessWideArray) {
  unsigned char *flags = DutGetDebugFlags();
  ASSERT_NE(flags, nullptr);
  EXPECT_EQ(DutGetDebugFlags(), flags);
  unsigned char *seen = nullptr;
  std::thread([&] { seen = DutGetDebugFlags(); }).join();
  EXPECT_EQ(seen, flags);
  // The whole array is addressable and starts cleared.
  for (int i = 0; i < D_DEBUG_FLAG_COUNT; ++i) EXPECT_EQ(flags[i], 0) << "flag " << i;
  flags[D_DEBUG_FLAG_COUNT - 1] = 1;
  EXPECT_EQ(DutGetDebugFlags()[D_DEBUG_FLAG_COUNT - 1], 1);
  flags[D_DEBUG_FLAG_COUNT - 1] = 0;
}

TEST(ErrorSwitches, JumpBufferIsOneStableAddress) {
  jmp_buf *buffer = DutErrGetJumpBufferPtr();
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(DutErrGetJumpBufferPtr(), buffer);
  jmp_buf *seen = nullptr;
  std::thread([&] { seen = DutErrGetJumpBufferPtr(); }).join();
  EXPECT_EQ(seen, buffer);
}

}  // namespace
