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
constexpr const char *kDefaultSettingsFile = "/etc/vqsuite/environment";
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

// Fills each unset variable of `wanted` from the settings file.
void readSettings(const char *const *wanted, std::size_t count) {
  const char *path = std::getenv("VQ_SETTINGS_FILE");
  if (path == nullptr || *path == '\0') path = kDefaultSettingsFile;
  FILE *f = std::fopen(path, "r");
  if (f == nullptr) {
    int err = errno;
    if (err == ENOENT) return;  // no settings file: nothing to fill
    char text[kErrorTextSize];
    std::snprintf(text, sizeof text, "Couldn't open HKLM\\%s", path);
    reportEnvError(text, err);
    return;
  }
  char line[1024];
  while (std::fgets(line, sizeof line, f) != nullptr) {
    std::size_t n = std::strlen(line);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = '\0';
    if (line[0] == '#' || line[0] == '\0') continue;
    char *eq = std::strchr(line, '=');
    if (eq == nullptr) continue;
    *eq = '\0';
    for (std::size_t i = 0; i < count; ++i) {
      if (std::strcmp(line, wanted[i]) == 0 && std::getenv(wanted[i]) == nullptr) {
        vq::os::setEnv(wanted[i], eq + 1);
      }
    }
  }
  if (std::ferror(f)) {
    char text[kErrorTextSize];
    std::snprintf(text, sizeof text, "Couldn't access HKLM\\%s\\%s", path, wanted[0]);
    reportEnvError(text, errno);
  }
  std::fclose(f);
}

}  // namespace

namespace vq::frame {

void onLibraryLoad() noexcept {
  utEnvErrorText[0] = '\0';
  utTcpErrorText[0] = '\0';
  if (!utEnvInitialised) {
    static constexpr const char *kWanted[] = {"VQHOME", "VQARCH"};
    readSettings(kWanted, 2);
    if (std::getenv("TEMP") == nullptr) {
      const char *tmpdir = std::getenv("TMPDIR");
      vq::os::setEnv("TEMP", (tmpdir != nullptr && *tmpdir != '\0') ? tmpdir : "/tmp");
    }
    utEnvInitialised = true;
  }
  if (!utWinsockStarted) utWinsockStarted = DutWinStartWinsock() == D_TRUE;
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
