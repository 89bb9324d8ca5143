// Start-up settings on POSIX: the settings file stands in for the registry,
// and there is neither a socket library to start nor an older family.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <stdio.h>  // getline

#include "platform/os.hpp"

namespace vq::os {

namespace {

constexpr std::size_t kTextSize = 256;
constexpr const char *kDefaultSettingsFile = "/etc/vqsuite/environment";

// Fills each unset variable of `wanted` from the settings file. As with the
// registry, nothing is read (nor reported) when every variable is set.
void readSettings(const char *const *wanted, std::size_t count, StartupReport report) {
  const char *first_unset = nullptr;
  for (std::size_t i = 0; i < count && first_unset == nullptr; ++i)
    if (std::getenv(wanted[i]) == nullptr) first_unset = wanted[i];
  if (first_unset == nullptr) return;
  const char *path = std::getenv("VQ_SETTINGS_FILE");
  if (path == nullptr || *path == '\0') path = kDefaultSettingsFile;
  FILE *f = std::fopen(path, "r");
  if (f == nullptr) {
    int err = errno;
    if (err == ENOENT) return;  // no settings file: nothing to fill
    char text[kTextSize];
    std::snprintf(text, sizeof text, "Couldn't open HKLM\\%s", path);
    report(text, err);
    return;
  }
  // Whole lines of any length: a cut one would read its tail as a setting.
  char *line = nullptr;
  std::size_t capacity = 0;
  ssize_t length;
  while ((length = ::getline(&line, &capacity, f)) >= 0) {
    std::size_t n = static_cast<std::size_t>(length);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = '\0';
    if (line[0] == '#' || line[0] == '\0') continue;
    char *eq = std::strchr(line, '=');
    if (eq == nullptr) continue;
    *eq = '\0';
    for (std::size_t i = 0; i < count; ++i) {
      if (std::strcmp(line, wanted[i]) == 0 && std::getenv(wanted[i]) == nullptr) setEnv(wanted[i], eq + 1);
    }
  }
  int err = errno;
  std::free(line);
  if (std::ferror(f)) {
    char text[kTextSize];
    std::snprintf(text, sizeof text, "Couldn't access HKLM\\%s\\%s", path, first_unset);
    report(text, err);
  }
  std::fclose(f);
}

}  // namespace

int systemFamily() noexcept { return 2; }

bool socketsStart() noexcept { return true; }
void socketsEnd() noexcept {}

// A constructor cannot fail a load: failures are reported and loading goes on.
bool loadStartupSettings(StartupReport report) noexcept {
  static constexpr const char *kWanted[] = {"VQHOME", "VQARCH"};
  readSettings(kWanted, 2, report);
  if (std::getenv("TEMP") == nullptr) {
    const char *tmpdir = std::getenv("TMPDIR");
    setEnv("TEMP", (tmpdir != nullptr && *tmpdir != '\0') ? tmpdir : "/tmp");
  }
  return true;
}

}  // namespace vq::os
