// The per-thread library error number, the foreign error values kept beside
// it, the short texts of the numbers and DutPerror.
//
// Every access to the per-thread record goes through a save/restore pair:
// fetching thread-specific data (and creating the record on first use) may
// itself change errno and the OS last error, which the caller still wants
// to read after a failure.
#include "vqutil/error.h"

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "errors/debug_flags.hpp"
#include "errors/restore.hpp"
#include "frame/check.hpp"
#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "threads/tsd_record.hpp"
#include "vqutil/hash.h"
#include "vqutil/output.h"
#include "vqutil/thread.h"

namespace vq {
unsigned char utDebugFlags[D_DEBUG_FLAG_COUNT] = {};
}  // namespace vq

namespace {

constexpr const char *kFile = "error.c";

struct ErrorText {
  D_INT4 number;
  const char *text;
};

// In the order the table is filled.
constexpr ErrorText kErrorTexts[] = {
    {D_ERR_C, "C"},
    {D_ERR_OS, "OS"},
    {D_ERR_NULL_PTR, "NULL pointer"},
    {D_ERR_VAL_TOO_SMALL, "value too small"},
    {D_ERR_VAL_TOO_LARGE, "value too large"},
    {D_ERR_ALREADY_EXISTS, "already exists"},
    {D_ERR_VAL_INVALID, "value invalid"},
    {D_ERR_DOESNT_EXIST, "doesn't exist"},
    {D_ERR_TIMEOUT_REACHED, "timeout reached"},
    {D_ERR_EOF, "end of file"},
    {D_ERR_VAL_SAME, "value is the same"},
    {D_ERR_VAL_UNKNOWN, "value unknown"},
    {D_ERR_VAL_REQUIRED, "value required"},
    {D_ERR_TYPE_INVALID, "type invalid"},
    {D_ERR_TYPE_MISMATCH, "type mismatch"},
    {D_ERR_INTERRUPTED, "interrupted"},
    {D_ERR_VERIFY_FAILED, "verify failed"},
    {D_ERR_END_OF_TRAVERSAL, "end of traversal"},
    {D_ERR_EMPTY, "empty"},
    {D_ERR_VAL_MISMATCH, "value mismatch"},
    {D_ERR_TYPE_UNKNOWN, "type unknown"},
    {D_ERR_FILE_CORRUPT, "file corrupt"},
    {D_ERR_WOULD_BLOCK, "would block"},
    {D_ERR_READ_ONLY, "read only"},
    {D_ERR_SOCKET, "socket"},
    {D_ERR_NO_MEMORY, "no memory"},
    {D_ERR_CONN_INIT_FAILED, "connection initialization failed"},
    {D_ERR_SERVER_NOT_CONNECTED, "server not connected"},
    {D_ERR_SERVER_ALREADY_CONNECTED, "server already connected"},
    {D_ERR_SERVER_DENIED_ACCESS, "server denied access"},
    {D_ERR_MSG_CORRUPT, "message corrupt"},
    {D_ERR_MSG_INVALID, "message invalid"},
    {D_ERR_END_OF_MSG, "end of message"},
    {D_ERR_FIELD_TYPE_INVALID, "field type invalid"},
    {D_ERR_FIELD_TYPE_MISMATCH, "field type mismatch"},
    {D_ERR_IN_PROGRESS, "in progress"},
    {D_ERR_FAILURE_DETECTED, "failure detected"},
    {D_ERR_IN_USE, "in use"},
    {D_ERR_GMD_SENDER_TIMEOUT, "GMD sender timeout"},
    {D_ERR_GMD_RECEIVER_TIMEOUT, "GMD receiver timeout"},
    {D_ERR_GMD_RECEIVER_EXIT, "GMD receiver exit"},
    {D_ERR_GMD_NO_RECEIVERS, "GMD no receivers"},
    {D_ERR_PROTOCOL_MISMATCH, "protocol mismatch"},
};

// Socket error rows with a text of their own, by number - 10000; the rest
// of 0..94 read "<n>: Unknown Error" ("0: No error" for row 0).
constexpr int kSocketRows = 95;
constexpr ErrorText kSocketTexts[] = {
    {4, "Interrupted system call"},
    {9, "Bad file number"},
    {13, "Permission denied"},
    {14, "Bad address"},
    {22, "Invalid argument"},
    {24, "Too many open files"},
    {35, "Operation would block"},
    {36, "Operation now in progress"},
    {37, "Operation already in progress"},
    {38, "Socket operation on non-socket"},
    {39, "Destination address required"},
    {40, "Message too long"},
    {41, "Protocol wrong type for socket"},
    {42, "Protocol not available"},
    {43, "Protocol not supported"},
    {44, "Socket type not supported"},
    {45, "Operation not supported on socket"},
    {46, "Protocol family not supported"},
    {47, "Address family not supported by protocol family"},
    {48, "Address already in use"},
    {49, "Can't assign requested address"},
    {50, "Network is down"},
    {51, "Network is unreachable"},
    {52, "Network dropped connection on reset"},
    {53, "Software caused connection abort"},
    {54, "Connection reset by peer"},
    {55, "No buffer space available"},
    {56, "Socket is already connected"},
    {57, "Socket is not connected"},
    {58, "Can't send after socket shutdown"},
    {59, "Too many references: can't splice"},
    {60, "Connection timed out"},
    {61, "Connection refused"},
    {62, "Too many levels of symbolic links"},
    {63, "File name too long"},
    {64, "Host is down"},
    {65, "No route to host"},
    {91, "WSASYSNOTREADY - The network subsystem is unusable."},
    {92, "WSAVERNOTSUPPORTED - This Winsock DLL cannot support this application."},
    {93, "WSANOTINITIALIZED - WSAStartup has not been called."},
};

void socketTableText(int row, char *buffer, std::size_t size) {
  for (const ErrorText &t : kSocketTexts) {
    if (t.number == row) {
      std::snprintf(buffer, size, "%s", t.text);
      return;
    }
  }
  if (row == 0)
    std::snprintf(buffer, size, "0: No error");
  else
    std::snprintf(buffer, size, "%d: Unknown Error", row);
}

D_INT4 utPerrorEnable = 1;
D_INT4 utErrFeedback = 0;
D_INT4 utErrSeverity = 0;
D_INT4 utCheckOnly = 0;
jmp_buf utDefaultErrorJumpBuffer;

// Builds the table of texts on first use; the caller holds the lock.
// Built once even when threads the library did not start (so with the
// process-wide lock still a no-op) ask for a text at the same time.
D_HASH_TABLE *errorTable() {
  static D_HASH_TABLE *const table = [] {
    D_HASH_TABLE *t = DutHashCreateInt(50);
    for (const ErrorText &row : kErrorTexts) DutHashInsert(t, row.number, reinterpret_cast<D_WORD>(row.text));
    return t;
  }();
  return table;
}

// Puts back errno, the OS value and the socket value at the end of a scope:
// making a record, the lock and the table a lookup goes through may change
// them (on Windows a thread's first use of the lock does), and the caller
// reads them afterwards.
class ForeignValuesKept {
 public:
  ForeignValuesKept() noexcept
      : errno_(errno), os_(vq::os::lastError()), socket_(vq::os::socketError()) {}
  ~ForeignValuesKept() {
    errno = errno_;
    if (vq::os::lastError() != os_) vq::os::setLastError(os_);
    if (vq::os::socketError() != socket_) vq::os::setSocketError(socket_);
  }
  ForeignValuesKept(const ForeignValuesKept &) = delete;
  ForeignValuesKept &operator=(const ForeignValuesKept &) = delete;

  int errnoValue() const noexcept { return errno_; }
  int osValue() const noexcept { return os_; }
  int socketValue() const noexcept { return socket_; }

 private:
  const int errno_, os_, socket_;
};

// The three-step access to the record: capture the foreign values, touch
// the record, put back whatever fetching (or creating) the record changed.
template <typename Fn>
void withRecord(Fn &&fn) {
  // Fast path: an existing record is reached without touching anything.
  if (D_TSD_RECORD *existing = vq::threads::existingTsdRecord(); existing != nullptr) {
    D_ERR_SAVE save{existing->err_num, 0, 0, 0};
    fn(existing, save);
    existing->err_num = save.err_num;
    return;
  }
  const ForeignValuesKept kept;
  D_TSD_RECORD *tsd = DutGetTsdValue();
  VQ_EXPECT(tsd != nullptr, "D_NULL != tsd", kFile);
  if (tsd == nullptr) return;
  D_ERR_SAVE save{tsd->err_num, kept.errnoValue(), kept.osValue(), kept.socketValue()};
  fn(tsd, save);
  tsd->err_num = save.err_num;
}

}  // namespace

namespace vq::errors {

D_BOOL restoreExactly(const D_ERR_SAVE &save) noexcept {
  D_BOOL status = DutErrNumRestore(&save);
  if (save.c_err == 0) errno = 0;
  if (save.os_err == 0) vq::os::setLastError(0);
  if (save.socket_err == 0) vq::os::setSocketError(0);
  return status;
}

const char *tableText(D_INT4 err_num) noexcept {
  D_WORD found = 0;
  // A miss must not leave "doesn't exist" in the caller's error number.
  D_INT4 before = DutErrNumGet();
  vq::ProcessLock lock;
  found = DutHashLookup(errorTable(), err_num);
  if (found == 0) DutErrNumSet(before);
  return reinterpret_cast<const char *>(found);
}

}  // namespace vq::errors

extern "C" {

D_EXPORT void DutErrNumSet(D_INT4 err_num) {
  withRecord([err_num](D_TSD_RECORD *, D_ERR_SAVE &save) { save.err_num = err_num; });
}

D_EXPORT D_INT4 DutErrNumGet(void) {
  D_INT4 result = 0;
  withRecord([&result](D_TSD_RECORD *, D_ERR_SAVE &save) { result = save.err_num; });
  return result;
}

D_EXPORT D_INT4 *DutErrNumGetPtr(void) {
  D_INT4 *result = nullptr;
  withRecord([&result](D_TSD_RECORD *tsd, D_ERR_SAVE &) { result = &tsd->err_num; });
  return result;
}

D_EXPORT void DutErrNumSetC(D_INT4 c_err) {
  DutErrNumSet(D_ERR_C);
  if (c_err != 0) errno = c_err;
}

D_EXPORT D_INT4 DutErrNumGetC(void) { return errno; }

D_EXPORT void DutErrNumSetOs(D_INT4 os_err) {
  DutErrNumSet(D_ERR_OS);
  if (os_err != 0) vq::os::setLastError(os_err);
}

D_EXPORT D_INT4 DutErrNumGetOs(void) { return vq::os::lastError(); }

D_EXPORT void DutErrNumSetSocket(D_INT4 socket_err) {
  DutErrNumSet(D_ERR_SOCKET);
  if (socket_err != 0) vq::os::setSocketError(socket_err);
}

D_EXPORT D_INT4 DutErrNumGetSocket(void) { return vq::os::socketError(); }

D_EXPORT void DutErrNumSetVms(D_INT4 sys_err, D_INT4 os_err) {
  DutErrNumSet(D_ERR_OS);
  errno = sys_err;
  VQ_EXPECT(os_err == 0, "0 == os_err_num", kFile);
}

D_EXPORT D_BOOL DutErrNumSave(D_ERR_SAVE *save) {
  if (save == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  save->c_err = errno;
  save->os_err = vq::os::lastError();
  save->socket_err = vq::os::socketError();
  // Last: reading the library number may disturb the other three.
  save->err_num = DutErrNumGet();
  return D_TRUE;
}

D_EXPORT D_BOOL DutErrNumRestore(const D_ERR_SAVE *save) {
  if (save == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  DutErrNumSetC(save->c_err);
  DutErrNumSetOs(save->os_err);
  DutErrNumSetSocket(save->socket_err);
  DutErrNumSet(save->err_num);
  return D_TRUE;
}

D_EXPORT D_TSD_RECORD *DutErrNumSaveTsd(D_ERR_SAVE *save) {
  if (save == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  save->c_err = errno;
  save->os_err = vq::os::lastError();
  save->socket_err = vq::os::socketError();
  D_TSD_RECORD *tsd = DutGetTsdValue();
  VQ_EXPECT(tsd != nullptr, "D_NULL != tsd", kFile);
  save->err_num = tsd != nullptr ? tsd->err_num : 0;
  return tsd;
}

D_EXPORT D_BOOL DutErrNumRestoreTsd(const D_ERR_SAVE *save, D_TSD_RECORD *tsd) {
  if (save == nullptr || tsd == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  errno = save->c_err;
  vq::os::setLastError(save->os_err);
  vq::os::setSocketError(save->socket_err);
  tsd->err_num = save->err_num;
  return D_TRUE;
}

D_EXPORT const char *DutErrNumToStr(D_INT4 err_num) {
  const ForeignValuesKept kept;
  if (const char *found = vq::errors::tableText(err_num); found != nullptr) return found;
  const char *result = nullptr;
  withRecord([&](D_TSD_RECORD *tsd, D_ERR_SAVE &) {
    std::snprintf(tsd->err_buf, sizeof tsd->err_buf, "unknown error %ld", static_cast<long>(err_num));
    result = tsd->err_buf;
  });
  return result != nullptr ? result : "unknown error";
}

D_EXPORT const char *DutErrStrGet(void) { return DutErrNumToStr(DutErrNumGet()); }

D_EXPORT D_BOOL DutErrStrCreate(D_INT4 err_num, const char *text) {
  if (text == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  DutHashInsert(errorTable(), err_num, reinterpret_cast<D_WORD>(text));
  return D_TRUE;
}

D_EXPORT D_BOOL DutPerror(const char *prefix) {
  if (prefix == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  D_ERR_SAVE save;
  DutErrNumSave(&save);
  D_INT4 enabled = 1;
  DutPerrorGetEnable(&enabled);
  if (enabled == 0) {
    vq::errors::restoreExactly(save);
    return D_TRUE;
  }

  char text[256] = {};
  bool print = true;
  switch (save.err_num) {
    case D_ERR_C:
      if (save.c_err >= 1 && save.c_err < vq::os::runtimeErrorCount()) {
        bool have = vq::os::runtimeErrorText(save.c_err, text, sizeof text);
        VQ_ASSERT(have, "error_msg != NULL", kFile);
      } else {
        std::snprintf(text, sizeof text, "Error %ld", static_cast<long>(save.c_err));
      }
      break;
    case D_ERR_OS:
    case D_ERR_SOCKET: {
      // Only the low half of the code is significant, as a signed number.
      D_INT4 raw = save.err_num == D_ERR_OS ? save.os_err : save.socket_err;
      int code = static_cast<D_INT2>(static_cast<D_UINT2>(static_cast<D_UINT4>(raw) & 0xFFFFu));
      if (code == 0) {
        std::snprintf(text, sizeof text, "Error 0");
        break;
      }
      // A socket code carries the system's text of the condition behind it.
      int system_code = code;
      if (save.err_num == D_ERR_SOCKET) system_code = vq::os::errnoFromSocketError(code);
      bool have = system_code != 0 && vq::os::systemErrorText(system_code, text, sizeof text);
      if (have) {
        std::size_t n = std::strlen(text);
        while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r')) text[--n] = '\0';
      } else if (code >= D_SOCKET_ERR_BASE && code < D_SOCKET_ERR_BASE + kSocketRows) {
        socketTableText(code - D_SOCKET_ERR_BASE, text, sizeof text);
      } else {
        std::snprintf(text, sizeof text, "Unknown Windows error number (%d)", code);
      }
      break;
    }
    default:
      print = false;
      break;
  }
  if (print) DutOutDebug("%s: %s\n", prefix, text);
  vq::errors::restoreExactly(save);
  return D_TRUE;
}

D_EXPORT D_BOOL DutPerrorSetEnable(D_INT4 enable) {
  if (enable != 0 && enable != 1) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  utPerrorEnable = enable;
  return D_TRUE;
}

D_EXPORT D_BOOL DutPerrorGetEnable(D_INT4 *enable) {
  if (enable == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  *enable = utPerrorEnable;
  return D_TRUE;
}

D_EXPORT void DutErrFeedbackSet(D_INT4 level) { utErrFeedback = level; }
D_EXPORT D_INT4 DutErrFeedbackGet(void) { return utErrFeedback; }
D_EXPORT void DutErrSeveritySet(D_INT4 severity) { utErrSeverity = severity; }
D_EXPORT D_INT4 DutErrSeverityGet(void) { return utErrSeverity; }
D_EXPORT jmp_buf *DutErrGetJumpBufferPtr(void) { return &utDefaultErrorJumpBuffer; }
D_EXPORT unsigned char *DutGetDebugFlags(void) { return vq::utDebugFlags; }
D_EXPORT void DutSetCheckOnly(D_INT4 check_only) { utCheckOnly = check_only; }
D_EXPORT D_INT4 DutGetCheckOnly(void) { return utCheckOnly; }

}  // extern "C"
