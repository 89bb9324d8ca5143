// Library load and unload: the start-up environment and the DutAtExit list.
#include "frame/lifecycle.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/init.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"

namespace {

constexpr std::size_t kErrorTextSize = 256;
constexpr const char *kLogIdent = "NXC.vqutil";

char utEnvErrorText[kErrorTextSize];
char utTcpErrorText[kErrorTextSize];
bool utEnvInitialised = false;
bool utWinsockStarted = false;

// DutAtExit functions, run last-registered first when the library goes.
D_AT_EXIT_FUNC *utAtExitFuncs = nullptr;
std::size_t utAtExitCount = 0;
std::size_t utAtExitCapacity = 0;

void reportEnvError(const char *text, int os_error) {
  std::snprintf(utEnvErrorText, sizeof utEnvErrorText, "%s", text);
  char system_text[kErrorTextSize] = {};
  char line[2 * kErrorTextSize + 16];
  if (os_error != 0 && vq::os::systemErrorText(os_error, system_text, sizeof system_text)) {
    std::snprintf(line, sizeof line, "%s error: %s", text, system_text);
  } else {
    std::snprintf(line, sizeof line, "%s", text);
  }
  vq::os::systemLog(kLogIdent, line);
}

}  // namespace

namespace vq::frame {

bool onLibraryLoad() noexcept {
  utEnvErrorText[0] = '\0';
  utTcpErrorText[0] = '\0';
  if (!utEnvInitialised) {
    if (!vq::os::loadStartupSettings(&reportEnvError)) return false;
    utEnvInitialised = true;
  }
  if (!utWinsockStarted) utWinsockStarted = DutWinStartWinsock() == D_TRUE;
  return utWinsockStarted;
}

void onLibraryUnload() noexcept {
  while (utAtExitCount > 0) {
    D_AT_EXIT_FUNC func = utAtExitFuncs[--utAtExitCount];
    func();
  }
  std::free(utAtExitFuncs);
  utAtExitFuncs = nullptr;
  utAtExitCapacity = 0;
  utWinsockStarted = false;
  utEnvInitialised = false;
}

}  // namespace vq::frame

extern "C" {

D_EXPORT const char *DutGetEnvErrorText(void) { return utEnvErrorText; }

D_EXPORT D_BOOL DutAtExit(D_AT_EXIT_FUNC func) {
  if (func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  if (utAtExitCount == utAtExitCapacity) {
    std::size_t capacity = utAtExitCapacity == 0 ? 8 : utAtExitCapacity * 2;
    void *grown = std::realloc(utAtExitFuncs, capacity * sizeof(D_AT_EXIT_FUNC));
    if (grown == nullptr) {
      errno = ENOMEM;
      DutErrNumSetC(0);
      return D_FALSE;
    }
    utAtExitFuncs = static_cast<D_AT_EXIT_FUNC *>(grown);
    utAtExitCapacity = capacity;
  }
  utAtExitFuncs[utAtExitCount++] = func;
  return D_TRUE;
}

}  // extern "C"
