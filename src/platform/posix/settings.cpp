// Start-up settings on POSIX: the settings file stands in for the registry,
// and there is neither a socket library to start nor an older family.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/os.hpp"

namespace vq::os {

namespace {

constexpr std::size_t kTextSize = 256;
constexpr const char *kDefaultSettingsFile = "/etc/vqsuite/environment";

// Fills each unset variable of `wanted` from the settings file.
void readSettings(const char *const *wanted, std::size_t count, StartupReport report) {
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
  char line[1024];
  while (std::fgets(line, sizeof line, f) != nullptr) {
    std::size_t n = std::strlen(line);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = '\0';
    if (line[0] == '#' || line[0] == '\0') continue;
    char *eq = std::strchr(line, '=');
    if (eq == nullptr) continue;
    *eq = '\0';
    for (std::size_t i = 0; i < count; ++i) {
      if (std::strcmp(line, wanted[i]) == 0 && std::getenv(wanted[i]) == nullptr) setEnv(wanted[i], eq + 1);
    }
  }
  if (std::ferror(f)) {
    char text[kTextSize];
    std::snprintf(text, sizeof text, "Couldn't access HKLM\\%s\\%s", path, wanted[0]);
    report(text, errno);
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
