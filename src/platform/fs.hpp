// File-system calls of the operating-system interface.
//
// Functions answer 0 or the system's errno value (never touching errno),
// so that callers can record it as a runtime error. Read and write retry
// when a signal interrupts them before any byte moved.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vq::os {

// File-name rules: the separator names are built and split with, the
// temporary directory under the root, and whether names are told apart by
// case (not on Windows, whose file names ignore it).
#if defined(_WIN32)
inline constexpr char kPathSeparator = '\\';
inline constexpr const char *kRootTmpDir = "\\tmp\\";
inline constexpr bool kFileNamesIgnoreCase = true;
#else
inline constexpr char kPathSeparator = '/';
inline constexpr const char *kRootTmpDir = "/tmp/";
inline constexpr bool kFileNamesIgnoreCase = false;
#endif

// Whether two names denote the same file by the rule above.
inline bool sameFileName(const char *a, const char *b) noexcept {
  if constexpr (!kFileNamesIgnoreCase) {
    while (*a != '\0' && *a == *b) ++a, ++b;
    return *a == *b;
  } else {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    while (*a != '\0' && lower(*a) == lower(*b)) ++a, ++b;
    return lower(*a) == lower(*b);
  }
}

// The name as lookups use it: lower-cased where case does not count.
inline std::string foldFileName(const char *name) {
  std::string folded(name);
  if constexpr (kFileNamesIgnoreCase) {
    for (char &c : folded) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return folded;
}

// Access modes as the runtime numbers them: 0 exists, 2 write, 4 read,
// 6 read and write; other bits are ignored.
int fileAccess(const char *name, int mode) noexcept;
int fileSize(const char *name, std::int64_t *size) noexcept;
int fileUnlink(const char *name) noexcept;
int fileRename(const char *from, const char *to) noexcept;
int makeDir(const char *name) noexcept;
int changeDir(const char *name) noexcept;
// The entries of a directory other than "." and "..", in the system's order.
int listDir(const char *name, std::vector<std::string> *entries);

// -1 with *error set on failure, else the byte count.
long readRetry(int fd, void *buffer, std::size_t count, int *error) noexcept;
long writeRetry(int fd, const void *buffer, std::size_t count, int *error) noexcept;

// The descriptor behind a stream, -1 when it has none.
int streamDescriptor(std::FILE *stream) noexcept;

// Runs a command line through the shell and waits. The exit status of the
// command (or 128 + signal when it died by one); -1 with *error when the
// shell could not be run.
int runShell(const char *command, int *error) noexcept;

// Ignores the console interrupt; 0 or the errno value.
int ignoreInterrupt() noexcept;

}  // namespace vq::os
