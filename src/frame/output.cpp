// Output through the replaceable output function, the debug file,
// warnings, internal checks and the fatal-error path.
//
// All of it is process-wide state under the process-wide lock, which is
// recursive: DutOutDebug and DutWarning hold it while DutVOut and DutVDebug
// take it again. Printing never disturbs the caller's error values.
#include "vqutil/output.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "errors/restore.hpp"
#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"
#include "vqutil/platform.h"
#include "vqutil/strutil.h"
#include "vqutil/time.h"

namespace {

constexpr const char *kFile = "util.c";
constexpr std::size_t kDebugNameSize = 256;

D_OUTPUT_FUNC utOutputFunc = nullptr;
FILE *utDebugFilePtr = nullptr;
char *utDebugFileName = nullptr;
FILE *utFatalErrorFile = nullptr;
volatile int utFatalErrorGuard = 0;

// The kept name is plain heap memory, not a checked allocation: a traced
// allocation writes to the debug file, which may be what is being opened.
void keepName(const char *name) {
  std::free(utDebugFileName);
  utDebugFileName = nullptr;
  if (name == nullptr) return;
  std::size_t n = std::strlen(name) + 1;
  utDebugFileName = static_cast<char *>(std::malloc(n));
  if (utDebugFileName == nullptr) {
    DutFatalError("D_MALLOC <%s>: %ld bytes: out of heap: file %s, line %ld", "utDebugFileName",
                  static_cast<long>(n), kFile, static_cast<long>(__LINE__));
    return;
  }
  std::memcpy(utDebugFileName, name, n);
}

D_OUTPUT_FUNC outputFunc() {
  if (utOutputFunc == nullptr) utOutputFunc = std::vprintf;
  return utOutputFunc;
}

D_PRINTF_FORMAT(2, 3) void callOutput(D_OUTPUT_FUNC func, const char *format, ...) {
  va_list args;
  va_start(args, format);
  func(format, args);
  va_end(args);
}

bool separateDebugFile() { return utDebugFilePtr != nullptr && utDebugFilePtr != stderr; }

void timestampStep() {
  if (std::getenv("VQTIMESTAMPOUTPUT") == nullptr) return;
  std::int64_t seconds = 0;
  std::int32_t micros = 0;
  vq::os::wallClock(&seconds, &micros);
  char text[64] = {};
  vq::os::ctimeText(static_cast<std::time_t>(seconds), text, sizeof text);
  std::size_t n = std::strlen(text);
  if (n > 0) text[n - 1] = '\0';  // ctime's newline
  vq::ProcessLock lock;
  callOutput(outputFunc(), "%s: ", text);
}

void writeReport(FILE *f, std::time_t now, const char *format, va_list args) {
  char wall[64] = {};
  vq::os::ctimeText(now, wall, sizeof wall);
  std::fprintf(f, "\n*** FATAL ERROR ***\n");
  std::vfprintf(f, format, args);
  std::fprintf(f, "\n");
  std::fprintf(f, "Wall Clock Time: %s", wall);
  std::fprintf(f, "VQsuite Time: %f\n", DutGetCurrentTime());
  std::fprintf(f, "Last VQsuite Error Code: %ld\n", static_cast<long>(DutErrNumGet()));
  std::fprintf(f, "Last C Error Code: %ld\n", static_cast<long>(DutErrNumGetC()));
  std::fprintf(f, "Last OS Error Code: %ld\n", static_cast<long>(DutErrNumGetOs()));
  std::fprintf(f, "Last Socket Error Code: %ld\n", static_cast<long>(DutErrNumGetSocket()));
}

// The text through the output function, and once more into a debug file
// on disk (never twice on standard error).
void outAndDebug(const char *format, va_list args) {
  vq::ProcessLock lock;
  va_list copy;
  va_copy(copy, args);
  DutVOut(format, args);
  if (separateDebugFile()) DutVDebug(format, copy);
  va_end(copy);
}

}  // namespace

extern "C" {

// ---- Output -----------------------------------------------------------------

D_EXPORT void DutOut(const char *format, ...) {
  D_ERR_SAVE save;
  DutErrNumSave(&save);
  va_list args;
  va_start(args, format);
  DutVOut(format, args);
  va_end(args);
  vq::errors::restoreExactly(save);
}

D_EXPORT void DutVOut(const char *format, va_list args) {
  timestampStep();
  vq::ProcessLock lock;
  outputFunc()(format, args);
}

D_EXPORT void DutOutDebug(const char *format, ...) {
  va_list args;
  va_start(args, format);
  outAndDebug(format, args);
  va_end(args);
}

D_EXPORT void DutSetOutputFunc(D_OUTPUT_FUNC output_func) {
  DutAssert(output_func != nullptr, "output_func != NULL", kFile, __LINE__);
  vq::ProcessLock lock;
  utOutputFunc = output_func;
}

D_EXPORT D_OUTPUT_FUNC DutGetOutputFunc(void) {
  vq::ProcessLock lock;
  return outputFunc();
}

D_EXPORT int DutFlushStdout(void) { return std::fflush(stdout); }

// ---- Debug file ---------------------------------------------------------------

D_EXPORT void DutDebugOpen(const char *file_name) {
  DutAssert(file_name != nullptr, "file_name != NULL", kFile, __LINE__);
  DutSetInitialSbrk();
  vq::ProcessLock lock;
  if (utDebugFilePtr != nullptr) return;

  // Copy the candidate first: the argument may be the kept name itself.
  const char *from_env = std::getenv("VQDEBUGFILENAME");
  const char *chosen = from_env != nullptr ? from_env : file_name;
  char name[kDebugNameSize];
  std::snprintf(name, sizeof name, "%s", chosen);
  keepName(nullptr);

  if (DutStrCmpi(name, "stderr") == 0) {
    keepName(name);
    utDebugFilePtr = stderr;
    return;
  }
  // Only a name from the argument gets the extension; one from the
  // environment is used exactly as written.
  if (from_env == nullptr && !DutHasExtension(name, ".dbg")) {
    std::size_t n = std::strlen(name);
    if (n + 4 >= sizeof name) n = sizeof name - 5;
    std::memcpy(name + n, ".dbg", 5);
  }
  keepName(name);
  utDebugFilePtr = std::fopen(name, "w");
  if (utDebugFilePtr == nullptr) {
    DutOut("Cannot open debug file <%s>, using stderr instead.\n", name);
    utDebugFilePtr = stderr;
    keepName("stderr");
  }
}

D_EXPORT void DutDebugClose(void) {
  vq::ProcessLock lock;
  if (separateDebugFile()) {
    std::fclose(utDebugFilePtr);
    utDebugFilePtr = nullptr;
  }
}

D_EXPORT FILE *DutDebugReopen(void) {
  vq::ProcessLock lock;
  DutAssert(utDebugFileName != nullptr, "utDebugFileName != NULL", kFile, __LINE__);
  if (utDebugFilePtr == stderr) return utDebugFilePtr;
  if (utDebugFilePtr != nullptr) {
    DutWarning("DutDebugReopen: debug file already open!!\n");
    std::fclose(utDebugFilePtr);
    utDebugFilePtr = nullptr;
  }
  utDebugFilePtr = std::fopen(utDebugFileName, "a");
  if (utDebugFilePtr == nullptr) {
    DutOut("Can't reopen debug file %s, using stderr\n", utDebugFileName);
    utDebugFilePtr = stderr;
    keepName("stderr");
  }
  return utDebugFilePtr;
}

D_EXPORT D_BOOL DutDebugRename(const char *new_name) {
  if (new_name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  if (utDebugFilePtr == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  DutAssert(utDebugFileName != nullptr, "D_NULL != utDebugFileName", kFile, __LINE__);
  if (std::strcmp(new_name, utDebugFileName) == 0) {
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return D_FALSE;
  }
  // Case-sensitive on purpose: a file opened as "STDERR" takes the rename
  // branch and fails there.
  if (std::strcmp(utDebugFileName, "stderr") != 0) {
    if (std::strcmp(new_name, "stderr") == 0) {
      if (utDebugFilePtr != stderr) std::fclose(utDebugFilePtr);
      utDebugFilePtr = stderr;
    } else if (std::rename(utDebugFileName, new_name) != 0) {
      DutErrNumSetC(0);
      return D_FALSE;
    }
  } else {
    FILE *f = std::fopen(new_name, "w");
    if (f == nullptr) {
      DutErrNumSetC(0);
      return D_FALSE;
    }
    utDebugFilePtr = f;
  }
  keepName(new_name);
  return D_TRUE;
}

D_EXPORT const char *DutDebugFileName(void) {
  vq::ProcessLock lock;
  return utDebugFileName;
}

D_EXPORT FILE *DutDebugFilePtr(void) {
  vq::ProcessLock lock;
  return utDebugFilePtr;
}

D_EXPORT void DutDebug(const char *format, ...) {
  DutAssert(format != nullptr, "format_str", kFile, __LINE__);
  va_list args;
  va_start(args, format);
  DutVDebug(format, args);
  va_end(args);
}

D_EXPORT void DutVDebug(const char *format, va_list args) {
  DutAssert(format != nullptr, "format_str", kFile, __LINE__);
  vq::ProcessLock lock;
  if (utDebugFilePtr == nullptr) DutDebugOpen("stderr");
  std::vfprintf(utDebugFilePtr, format, args);
  std::fflush(utDebugFilePtr);
}

// ---- Warnings, checks, fatal errors -------------------------------------

D_EXPORT void DutWarning(const char *format, ...) {
  D_ERR_SAVE save;
  D_BOOL status = DutErrNumSave(&save);
  DutExpect(status == D_TRUE, "D_TRUE == status", kFile, __LINE__);
  std::fflush(stdout);
  {
    // One hold for prefix and text, so that warnings of two threads never
    // interleave.
    vq::ProcessLock lock;
    DutOutDebug("WARNING: ");
    va_list args;
    va_start(args, format);
    outAndDebug(format, args);
    va_end(args);
  }
  if (std::getenv("VQ_WARNING_ABORT") != nullptr) std::abort();
  status = vq::errors::restoreExactly(save);
  DutExpect(status == D_TRUE, "D_TRUE == status", kFile, __LINE__);
}

D_EXPORT D_INT4 DutAssert(D_INT4 condition, const char *text, const char *file, D_INT4 line) {
  if (condition != 0) return condition;
  DutFatalError("Assertion <%s> failed, file: %s, line %ld", text, file, static_cast<long>(line));
  return condition;
}

D_EXPORT D_INT4 DutExpect(D_INT4 condition, const char *text, const char *file, D_INT4 line) {
  if (condition != 0) return condition;
  DutWarning("Internal validation <%s> failed, file: %s, line %ld\n", text, file, static_cast<long>(line));
  DutWarning("Please report this to Quandrel Technical Support.\n");
  if (std::getenv("VQ_EXPECT_ABORT") != nullptr) DutAssert(0, "D_FALSE", kFile, 1102);
  DutOutDebug("Last VQsuite Error Code: %ld\n", static_cast<long>(DutErrNumGet()));
  DutOutDebug("Last C Error Code: %ld\n", static_cast<long>(DutErrNumGetC()));
  DutOutDebug("Last OS Error Code: %ld\n", static_cast<long>(DutErrNumGetOs()));
  DutOutDebug("Last Socket Error Code: %ld\n", static_cast<long>(DutErrNumGetSocket()));
  return condition;
}

// The fatal path writes with fprintf and never through the output function,
// so it works when the output function is broken. It takes no lock: it may
// run while another thread holds the process-wide lock.
D_EXPORT void DutFatalError(const char *format, ...) {
  std::time_t now = std::time(nullptr);
  if (utFatalErrorGuard != 0) {
    DutWinEndWinsock();
    std::abort();
  }
  utFatalErrorGuard = 1;
  if (utFatalErrorFile == nullptr) utFatalErrorFile = stdout;
  FILE *fatal = utFatalErrorFile;
  std::fflush(fatal);
  std::fflush(stderr);

  va_list args;
  va_start(args, format);
  if (separateDebugFile()) {
    va_list copy;
    va_copy(copy, args);
    writeReport(utDebugFilePtr, now, format, copy);
    std::fflush(utDebugFilePtr);
    va_end(copy);
  }
  writeReport(fatal, now, format, args);
  va_end(args);
  if (utDebugFilePtr != nullptr && utDebugFilePtr != fatal) {
    std::fprintf(fatal, "See debug file: %s\n", utDebugFileName != nullptr ? utDebugFileName : "");
  }

  if (std::getenv("VQ_FATAL_ERROR_CONTINUE") != nullptr) {
    utFatalErrorGuard = 0;
    std::fprintf(fatal, "Continuing execution.\n");
    std::fflush(fatal);
    std::fflush(stderr);
    return;
  }
  std::fflush(fatal);
  std::fflush(stderr);
  if (std::getenv("VQ_FATAL_ERROR_ABORT") != nullptr) {
    DutWinEndWinsock();
    std::abort();
  }
  if (std::getenv("VQ_FATAL_ERROR_SLEEP") != nullptr) {
    // The guard stays set: a later fatal error aborts at once.
    DutWinSleep(3600.0);
    return;
  }
  // The pause leaves the report on a console long enough to be read.
  DutWinSleep(5.0);
  std::exit(2);
}

D_EXPORT D_BOOL DutGetFatalErrorFile(FILE **file) {
  if (file == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  *file = utFatalErrorFile;
  return D_TRUE;
}

D_EXPORT D_BOOL DutSetFatalErrorFile(FILE *file) {
  if (file == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  utFatalErrorFile = file;
  return D_TRUE;
}

}  // extern "C"
