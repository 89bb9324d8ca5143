// The few POSIX calls the suites use for their own set-up, in the C
// runtime's terms; force-included into every C++ test of the Windows build.
#pragma once

#include <direct.h>
#include <gtest/gtest.h>
#include <io.h>
#include <process.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

inline int setenv(const char *name, const char *value, int overwrite) {
  if (!overwrite && std::getenv(name) != nullptr) return 0;
  return _putenv_s(name, value) == 0 ? 0 : -1;
}

inline int unsetenv(const char *name) { return _putenv_s(name, "") == 0 ? 0 : -1; }

inline int mkdir(const char *name, int) { return _mkdir(name); }

// The template's trailing "XXXXXX" made unique, then the directory made.
inline char *mkdtemp(char *name_template) {
  if (_mktemp_s(name_template, std::strlen(name_template) + 1) != 0) return nullptr;
  return _mkdir(name_template) == 0 ? name_template : nullptr;
}

namespace testing {
// abort() ends a Windows process with status 3; there are no signals.
inline ExitedWithCode KilledBySignal(int) { return ExitedWithCode(3); }
}  // namespace testing

#include <ctime>

// In two steps, as the library does: Wine's ctime_s is unreliable.
inline char *ctime_r(const std::time_t *t, char *buffer) {
  std::tm fields;
  return localtime_s(&fields, t) == 0 && asctime_s(buffer, 26, &fields) == 0 ? buffer : nullptr;
}

#include <fcntl.h>

inline int pipe(int fds[2]) { return _pipe(fds, 4096, _O_BINARY); }
