// The per-thread error number, the foreign values beside it, saving and
// restoring them, the table of short texts, and DutPerror: which numbers
// print, which system text each foreign kind takes, and that printing
// leaves all four values.
#include <cstdint>
#include <cstring>
#include <regex>

#include "errors.hpp"
#include "support/child_process.hpp"
#include "vqutil/thread.h"

namespace {

// Every named number with its short text.
const std::pair<D_INT4, const char *> kTexts[] = {
    {D_ERR_C, "C"}, {D_ERR_OS, "OS"}, {D_ERR_NULL_PTR, "NULL pointer"}, {D_ERR_VAL_TOO_SMALL, "value too small"},
    {D_ERR_VAL_TOO_LARGE, "value too large"}, {D_ERR_ALREADY_EXISTS, "already exists"},
    {D_ERR_VAL_INVALID, "value invalid"}, {D_ERR_DOESNT_EXIST, "doesn't exist"},
    {D_ERR_TIMEOUT_REACHED, "timeout reached"}, {D_ERR_EOF, "end of file"}, {D_ERR_VAL_SAME, "value is the same"},
    {D_ERR_VAL_UNKNOWN, "value unknown"}, {D_ERR_VAL_REQUIRED, "value required"},
    {D_ERR_TYPE_INVALID, "type invalid"}, {D_ERR_TYPE_MISMATCH, "type mismatch"}, {D_ERR_INTERRUPTED, "interrupted"},
    {D_ERR_VERIFY_FAILED, "verify failed"}, {D_ERR_END_OF_TRAVERSAL, "end of traversal"}, {D_ERR_EMPTY, "empty"},
    {D_ERR_VAL_MISMATCH, "value mismatch"}, {D_ERR_TYPE_UNKNOWN, "type unknown"}, {D_ERR_FILE_CORRUPT, "file corrupt"},
    {D_ERR_WOULD_BLOCK, "would block"}, {D_ERR_READ_ONLY, "read only"}, {D_ERR_SOCKET, "socket"},
    {D_ERR_NO_MEMORY, "no memory"}, {D_ERR_CONN_INIT_FAILED, "connection initialization failed"},
    {D_ERR_SERVER_NOT_CONNECTED, "server not connected"}, {D_ERR_SERVER_ALREADY_CONNECTED, "server already connected"},
    {D_ERR_SERVER_DENIED_ACCESS, "server denied access"}, {D_ERR_MSG_CORRUPT, "message corrupt"},
    {D_ERR_MSG_INVALID, "message invalid"}, {D_ERR_END_OF_MSG, "end of message"},
    {D_ERR_FIELD_TYPE_INVALID, "field type invalid"}, {D_ERR_FIELD_TYPE_MISMATCH, "field type mismatch"},
    {D_ERR_IN_PROGRESS, "in progress"}, {D_ERR_FAILURE_DETECTED, "failure detected"}, {D_ERR_IN_USE, "in use"},
    {D_ERR_GMD_SENDER_TIMEOUT, "GMD sender timeout"}, {D_ERR_GMD_RECEIVER_TIMEOUT, "GMD receiver timeout"},
    {D_ERR_GMD_RECEIVER_EXIT, "GMD receiver exit"}, {D_ERR_GMD_NO_RECEIVERS, "GMD no receivers"},
    {D_ERR_PROTOCOL_MISMATCH, "protocol mismatch"},
};

// The numbers themselves are the interface: ones the texts above leave out
// are unknown.
static_assert(D_ERR_C == 1 && D_ERR_NO_MEMORY == 30 && D_ERR_FILE_CORRUPT == 24 && D_ERR_READ_ONLY == 28);
static_assert(D_ERR_CONN_INIT_FAILED == 500 && D_ERR_MSG_INVALID == 507 && D_ERR_PROTOCOL_MISMATCH == 522);

// ---- Texts ----------------------------------------------------------------

// Unknown numbers are formatted into the thread's own buffer, which the
// next unknown number reuses; table texts stay where they are. A text
// added is kept by pointer, and never replaces one.
TEST(ErrorText, TableRowsUnknownNumbersAndAddedTexts) {
  for (auto [number, text] : kTexts) EXPECT_STREQ(DutErrNumToStr(number), text) << number;
  const char *table_text = DutErrNumToStr(D_ERR_DOESNT_EXIST);
  for (D_INT4 number : {0, 22, 23, 26, 27, 31, 499, 501, 506, 511, 513, 515, 516, 523, -1, INT32_MIN, INT32_MAX})
    EXPECT_EQ(std::string(DutErrNumToStr(number)), "unknown error " + std::to_string(number));
  const char *text = DutErrNumToStr(23);
  EXPECT_EQ(text, DutGetTsdValue()->err_buf);
  DutErrNumSet(27);
  EXPECT_EQ(DutErrStrGet(), text);
  EXPECT_STREQ(text, "unknown error 27");
  static const char kMine[] = "mine";
  ASSERT_TRUE(DutErrStrCreate(4242, kMine));
  EXPECT_EQ(DutErrNumToStr(4242), kMine);
  vqtest::OutputCapture capture;
  EXPECT_FAILS(DutErrStrCreate(4242, "second"), D_TRUE, 0);  // a duplicate only warns
  EXPECT_EQ(capture.Take(), "WARNING: DutHashInsert: key 4242 already exists in hash table.\n");
  EXPECT_EQ(DutErrNumToStr(4242), kMine);
  DutErrStrCreate(D_ERR_DOESNT_EXIST, "gone");
  EXPECT_EQ(DutErrNumToStr(D_ERR_DOESNT_EXIST), table_text);
  EXPECT_FAILS(DutErrStrCreate(4244, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_STREQ(DutErrNumToStr(4244), "unknown error 4244");
}

// ---- The number and the foreign values -------------------------------------

// The library number leaves the foreign values alone. Each foreign setter
// sets its kind; 0 keeps the value a failing call left, anything else
// replaces it; the other two foreign values stay. A VMS status is an OS
// error with errno set.
//
// Saving reads only. A restore lets the saved library number win over the
// kind the foreign setters leave, and writes back no saved zeros. (The
// record pair writing back zeros too is what every SetAllFour here does.)
TEST(ErrorNumber, ForeignSettersSaveAndRestore) {
  const struct { void (*set)(D_INT4); D_INT4 value; Four after; } steps[] = {
      {DutErrNumSet, D_ERR_VAL_INVALID, {D_ERR_VAL_INVALID, EIO, 3, 10054}},
      {DutErrNumSetC, EBADF, {D_ERR_C, EBADF, 3, 10054}}, {DutErrNumSetC, 0, {D_ERR_C, EBADF, 3, 10054}},
      {DutErrNumSetOs, 5, {D_ERR_OS, EBADF, 5, 10054}}, {DutErrNumSetOs, 0, {D_ERR_OS, EBADF, 5, 10054}},
      {DutErrNumSetSocket, 10061, {D_ERR_SOCKET, EBADF, 5, 10061}},
      {DutErrNumSetSocket, 0, {D_ERR_SOCKET, EBADF, 5, 10061}},
      {DutErrNumSetC, ENOENT, {D_ERR_C, ENOENT, 5, 10061}},
      {[](D_INT4 value) { DutErrNumSetVms(value, 0); }, EROFS, {D_ERR_OS, EROFS, 5, 10061}}};
  vqtest::OutputCapture capture;
  SetAllFour(0, EIO, 3, 10054);
  for (const auto &step : steps) {
    DutErrNumSet(0);  // the kind each step leaves is its own doing
    step.set(step.value);
    EXPECT_EQ(AllFour(), step.after) << "step " << &step - steps;
  }
  EXPECT_EQ(DutErrNumGetC(), EROFS);
  EXPECT_EQ(capture.Take(), "");
  DutErrNumSetVms(EROFS, 4);  // a second half is a broken expectation, not fatal
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  const std::string printed = capture.Take();
  EXPECT_TRUE(std::regex_search(
      printed, std::regex("WARNING: Internal validation <0 == os_err_num> failed, file: [^,]+, line [0-9]+\n")))
      << printed;

  SetAllFour(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060);
  D_ERR_SAVE save{-1, -1, -1, -1};
  ASSERT_TRUE(DutErrNumSave(&save));
  EXPECT_EQ(Four(save.err_num, save.c_err, save.os_err, save.socket_err), Four(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060));
  EXPECT_EQ(AllFour(), Four(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060));
  SetAllFour(0, 0, 0, 0);
  ASSERT_TRUE(DutErrNumRestore(&save));
  EXPECT_EQ(AllFour(), Four(D_ERR_TIMEOUT_REACHED, E2BIG, 5, 10060));
  SetAllFour(D_ERR_EOF, EIO, 5, 10054);
  const D_ERR_SAVE kept{D_ERR_NULL_PTR, 0, 0, 0};
  ASSERT_TRUE(DutErrNumRestore(&kept));
  EXPECT_EQ(AllFour(), Four(D_ERR_NULL_PTR, EIO, 5, 10054));

  D_TSD_RECORD *tsd = DutErrNumSaveTsd(&save);
  ASSERT_EQ(tsd, DutGetTsdValue());
  EXPECT_EQ(Four(save.err_num, save.c_err, save.os_err, save.socket_err), Four(D_ERR_NULL_PTR, EIO, 5, 10054));

  vqtest::ExpectRefused(D_ERR_NULL_PTR, {AS_WORD(DutErrNumSave(nullptr)), AS_WORD(DutErrNumRestore(nullptr)),
                                         AS_WORD(DutErrNumSaveTsd(nullptr)), AS_WORD(DutErrNumRestoreTsd(nullptr, tsd)),
                                         AS_WORD(DutErrNumRestoreTsd(&save, nullptr))});
}

// ---- Threads ---------------------------------------------------------------

D_WORD ReadNumberThenSet(D_WORD value) {
  const D_INT4 seen = DutErrNumGet();
  DutErrNumSet(static_cast<D_INT4>(value));
  return DutErrNumGet() == value ? seen : -1;
}

TEST_F(ErrorThreads, NewThreadsStartAtZeroAndDoNotLeak) {
  // Starting the thread layer makes a fresh error-record key: a number set
  // before the first library thread is no longer found afterwards. A new
  // process, so that the start is the first whatever ran before.
  vqtest::RunInChild("threadsafe", [] {
    DutErrNumSet(D_ERR_VERIFY_FAILED);
    ASSERT_EQ(DutInitThreads(), D_TRUE);
    EXPECT_EQ(DutErrNumGet(), 0);
  });
  ASSERT_EQ(DutInitThreads(), D_TRUE);
  DutErrNumSet(D_ERR_VERIFY_FAILED);
  D_THREAD thread = DutThreadCreate(&ReadNumberThenSet, D_ERR_VAL_UNKNOWN);
  ASSERT_NE(thread, D_INVALID_THREAD);
  D_WORD exit_code = -2;
  ASSERT_TRUE(DutThreadWait(thread, &exit_code));
  EXPECT_EQ(exit_code, 0);

  // A thread the library did not start, and whose first use creates its
  // record: errno and the OS value survive that creation. The process-wide
  // switches, flags and jump buffer are the same in every thread.
  DutErrFeedbackSet(3);
  DutErrSeveritySet(-2);
  DutSetCheckOnly(1);
  Four seen, after, switches;
  unsigned char *flags_seen = nullptr;
  jmp_buf *jump_seen = nullptr;
  std::thread([&] {
    errno = ENOTDIR;
    seen = AllFour();
    switches = {DutErrFeedbackGet(), DutErrSeverityGet(), DutGetCheckOnly(), 0};
    flags_seen = DutGetDebugFlags();
    jump_seen = DutErrGetJumpBufferPtr();
    std::thread([&] {
      errno = EISDIR;
      DutErrNumSet(D_ERR_IN_USE);
      after = AllFour();
    }).join();
  }).join();
  EXPECT_EQ(seen, Four(0, ENOTDIR, 0, 0));
  EXPECT_EQ(after, Four(D_ERR_IN_USE, EISDIR, 0, 0));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VERIFY_FAILED);
  DutErrNumSet(0);
  EXPECT_EQ(switches, Four(3, -2, 1, 0));
  DutSetCheckOnly(0);  // the fixture puts back the other two
  EXPECT_EQ(flags_seen, DutGetDebugFlags());
  // The whole array is addressable and starts cleared.
  EXPECT_EQ(std::vector<unsigned char>(flags_seen, flags_seen + D_DEBUG_FLAG_COUNT),
            std::vector<unsigned char>(D_DEBUG_FLAG_COUNT));
  ASSERT_NE(jump_seen, nullptr);
  EXPECT_EQ(jump_seen, DutErrGetJumpBufferPtr());
}

// ---- DutPerror ---------------------------------------------------------------

std::string Sys(int code) { return std::strerror(code); }

// Only 0 and 1 are accepted for the switch, on at load; a null prefix is
// refused.
TEST(Perror, SwitchNullPrefixAndTheTextOfEachForeignKindLeavingAllFourValues) {
  vqtest::OutputCapture capture;
  D_INT4 enabled = -1;
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  EXPECT_EQ(enabled, 1);  // on at load
  vqtest::ExpectRefused(D_ERR_VAL_INVALID, {AS_WORD(DutPerrorSetEnable(2)), AS_WORD(DutPerrorSetEnable(-1))});
  EXPECT_FAILS(DutPerrorGetEnable(nullptr), D_FALSE, D_ERR_NULL_PTR);
  ASSERT_TRUE(DutPerrorSetEnable(0));
  ASSERT_TRUE(DutPerrorGetEnable(&enabled));
  ASSERT_TRUE(DutPerrorSetEnable(1));
  EXPECT_EQ(enabled, 0);
  SetAllFour(D_ERR_C, ENOENT, 0, 0);
  EXPECT_FALSE(DutPerror(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(capture.Take(), "");
#ifdef _WIN32
  GTEST_SKIP() << "the system's texts are FormatMessage's there: tests/windows";
#endif
  const std::string unknown = "Unknown Windows error number ";
  const struct { D_INT4 number; int c_err; D_INT4 os_err, socket_err; const char *prefix; std::string expected; }
      cases[] = {
      // A prefix with conversions in it is data, not a format.
      {D_ERR_C, ENOENT, 0, 0, "100%s done %d", "100%s done %d: " + Sys(ENOENT) + "\n"},
      {D_ERR_C, EACCES, 2, 10061, "", ": " + Sys(EACCES) + "\n"},
      // Outside the runtime's table.
      {D_ERR_C, 50000, 0, 0, "r", "r: Error 50000\n"},
      // Within the runtime's range but a gap in its table (41 on Linux): its generic text.
      {D_ERR_C, 41, 0, 0, "r", "r: " + Sys(41) + "\n"},
      // The system text carries no line break of its own.
      {D_ERR_OS, EINVAL, 2, 10054, "open", "open: " + Sys(2) + "\n"},
      // Codes are taken as signed 16-bit numbers: 70000 - 65536 = 4464,
      // 65538 is code 2 again and 65536 is code 0 (0x18000 keeping 0x8000
      // is the output tests' case of a clobbering output function).
      {D_ERR_OS, 0, 70000, 0, "x", "x: " + unknown + "(4464)\n"}, {D_ERR_OS, 0, 65536, 0, "x", "x: Error 0\n"},
      {D_ERR_SOCKET, 0, 0, 70000, "x", "x: " + unknown + "(4464)\n"},
      {D_ERR_OS, 0, 65538, 0, "x", "x: " + Sys(2) + "\n"},
      // Winsock numbers are 10000 + the BSD number, not the host's errno.
      {D_ERR_SOCKET, EBADF, 3, 10061, "connect", "connect: " + Sys(ECONNREFUSED) + "\n"},
      {D_ERR_SOCKET, 0, 0, 0, "sock", "sock: Error 0\n"},
      // No host text: the socket table, up to 10094 and no further.
      {D_ERR_SOCKET, 0, 0, 10091, "up", "up: WSASYSNOTREADY - The network subsystem is unusable.\n"},
      {D_ERR_SOCKET, 0, 0, 10092, "up",
       "up: WSAVERNOTSUPPORTED - This Winsock DLL cannot support this application.\n"},
      {D_ERR_SOCKET, 0, 0, 10093, "up", "up: WSANOTINITIALIZED - WSAStartup has not been called.\n"},
      {D_ERR_SOCKET, 0, 0, 10094, "u", "u: 94: Unknown Error\n"},
      {D_ERR_SOCKET, 0, 0, 10095, "u", "u: " + unknown + "(10095)\n"},
      // Other numbers print nothing.
      {0, ENOENT, 2, 10061, "open", ""}, {D_ERR_NULL_PTR, ENOENT, 2, 10061, "open", ""}};
  // Switched off, every call prints nothing and still succeeds.
  for (D_INT4 enabled : {1, 0}) {
    ASSERT_TRUE(DutPerrorSetEnable(enabled));
    for (const auto &c : cases) {
      SCOPED_TRACE(std::to_string(&c - cases) + (enabled ? " on" : " off"));
      SetAllFour(c.number, c.c_err, c.os_err, c.socket_err);
      EXPECT_TRUE(DutPerror(c.prefix));
      EXPECT_EQ(AllFour(), Four(c.number, c.c_err, c.os_err, c.socket_err));
      EXPECT_EQ(capture.Take(), enabled ? c.expected : "");
    }
  }
  ASSERT_TRUE(DutPerrorSetEnable(1));
}

}  // namespace
