// Time, process identity, system information, the environment, the event
// log, the platform family and the start-up settings in the registry.
#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <process.h>

#include "../os.hpp"

namespace vq::os {

namespace {

// 100 ns ticks from 1601-01-01 to 1970-01-01.
constexpr std::uint64_t kUnixEpochTicks = 116444736000000000ull;

constexpr const char *kMachineKey = "SOFTWARE\\Quandrel\\NXC";
constexpr const char *kUserKey = ".DEFAULT\\Environment";

std::atomic<bool> utSocketsStarted{false};

// One string value of an open key into a checked buffer; the error text
// (and the load's fate) are the caller's.
enum class Read { Ok, NoAccess, NoMemory };
Read readValue(HKEY key, const char *value, char **text) {
  DWORD type = 0;
  DWORD size = 0;
  LONG rc = ::RegQueryValueExA(key, value, nullptr, &type, nullptr, &size);
  if (rc != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) {
    ::SetLastError(rc != ERROR_SUCCESS ? static_cast<DWORD>(rc) : ERROR_INVALID_DATA);
    return Read::NoAccess;
  }
  char *buffer = static_cast<char *>(std::malloc(size + 1));
  if (buffer == nullptr) return Read::NoMemory;
  rc = ::RegQueryValueExA(key, value, nullptr, &type, reinterpret_cast<BYTE *>(buffer), &size);
  if (rc != ERROR_SUCCESS) {
    std::free(buffer);
    ::SetLastError(static_cast<DWORD>(rc));
    return Read::NoAccess;
  }
  buffer[size] = '\0';
  *text = buffer;
  return Read::Ok;
}

// VQHOME and VQARCH, each only when unset. Any failure fails the load.
bool machineSettings(StartupReport report) {
  static constexpr const char *kNames[] = {"VQHOME", "VQARCH"};
  static constexpr const char *kNoMemory[] = {"Couldn't malloc memory for pszVqHome",
                                              "Couldn't malloc memory for pszVqArch"};
  char text[512];
  for (int i = 0; i < 2; ++i) {
    if (std::getenv(kNames[i]) != nullptr) continue;
    HKEY key = nullptr;
    LONG rc = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kMachineKey, 0, KEY_QUERY_VALUE, &key);
    if (rc != ERROR_SUCCESS) {
      std::snprintf(text, sizeof text, "Couldn't open HKLM\\%s", kMachineKey);
      report(text, static_cast<int>(rc));
      return false;
    }
    char *value = nullptr;
    const Read r = readValue(key, kNames[i], &value);
    const int error = static_cast<int>(::GetLastError());
    ::RegCloseKey(key);
    if (r != Read::Ok) {
      if (r == Read::NoMemory) std::snprintf(text, sizeof text, "%s", kNoMemory[i]);
      else std::snprintf(text, sizeof text, "Couldn't access HKLM\\%s\\%s", kMachineKey, kNames[i]);
      report(text, r == Read::NoMemory ? 0 : error);
      return false;
    }
    setEnv(kNames[i], value);
    std::free(value);
  }
  return true;
}

// TEMP when unset, with environment references expanded; failures are
// reported and the load goes on.
void userTemp(StartupReport report) {
  if (std::getenv("TEMP") != nullptr) return;
  char text[512];
  HKEY key = nullptr;
  char *value = nullptr;
  LONG rc = ::RegOpenKeyExA(HKEY_USERS, kUserKey, 0, KEY_QUERY_VALUE, &key);
  Read r = Read::NoAccess;
  if (rc == ERROR_SUCCESS) {
    r = readValue(key, "TEMP", &value);
    rc = static_cast<LONG>(::GetLastError());
    ::RegCloseKey(key);
  }
  if (r != Read::Ok) {
    if (r == Read::NoMemory) std::snprintf(text, sizeof text, "Couldn't malloc memory for pszTemp");
    else std::snprintf(text, sizeof text, "Couldn't access HKU\\%s\\%s", kUserKey, "TEMP");
    report(text, r == Read::NoMemory ? 0 : static_cast<int>(rc));
    return;
  }
  char expanded[MAX_PATH * 4];
  const DWORD n = ::ExpandEnvironmentStringsA(value, expanded, sizeof expanded);
  setEnv("TEMP", n > 0 && n <= sizeof expanded ? expanded : value);
  std::free(value);
}

}  // namespace

void sleepSeconds(double seconds) noexcept {
  if (!(seconds > 0.0)) return;  // also NaN
  double ms = std::ceil(seconds * 1000.0);
  // Sleep's INFINITE is one more than the longest finite sleep.
  while (ms > 0.0) {
    const DWORD step = ms >= 4.0e9 ? 4000000000u : static_cast<DWORD>(ms);
    ::Sleep(step);
    ms -= step;
  }
}

void wallClock(std::int64_t *seconds, std::int32_t *microseconds) noexcept {
  FILETIME ft;
  ::GetSystemTimePreciseAsFileTime(&ft);
  const std::uint64_t ticks =
      ((static_cast<std::uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime) - kUnixEpochTicks;
  if (seconds != nullptr) *seconds = static_cast<std::int64_t>(ticks / 10000000u);
  if (microseconds != nullptr) *microseconds = static_cast<std::int32_t>(ticks % 10000000u / 10u);
}

void ctimeText(std::time_t t, char *buffer, std::size_t size) noexcept {
  if (buffer == nullptr || size == 0) return;
  char text[64];
  // ctime_s in two steps: Wine's ctime_s crashes on a time its localtime
  // refuses, instead of failing.
  std::tm fields;
  if (localtime_s(&fields, &t) != 0 || asctime_s(text, sizeof text, &fields) != 0) text[0] = '\0';
  std::size_t n = std::strlen(text);
  if (n >= size) n = size - 1;
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
}

bool localCalendar(std::time_t t, std::tm *fields) noexcept {
  return fields != nullptr && localtime_s(fields, &t) == 0;
}

int processId() noexcept { return ::_getpid(); }

bool setEnv(const char *name, const char *value) noexcept {
  if (name == nullptr || value == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  // _putenv treats an empty value as removal; the system keeps it.
  const int saved = errno;
  const bool ok = ::_putenv_s(name, value) == 0 && (*value != '\0' || ::SetEnvironmentVariableA(name, value) != 0);
  errno = saved;
  if (!ok && ::GetLastError() == 0) ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return ok;
}

void systemLog(const char *ident, const char *text) noexcept {
  if (text == nullptr || systemFamily() != 2) return;
  const DWORD saved = ::GetLastError();
  if (HANDLE source = ::RegisterEventSourceA(nullptr, ident)) {
    const char *strings[] = {text};
    ::ReportEventA(source, EVENTLOG_ERROR_TYPE, 0, 0, nullptr, 1, 0, strings, nullptr);
    ::DeregisterEventSource(source);
  }
  ::SetLastError(saved);
}

namespace {

// GetVersionExA: deprecated, but the family comes from it. A program
// without a compatibility manifest sees 6.2 from Windows 8.1 on.
bool readVersion(OSVERSIONINFOA *info) {
  std::memset(info, 0, sizeof *info);
  info->dwOSVersionInfoSize = sizeof *info;
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
  return ::GetVersionExA(info) != 0;
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
}

// The names PROCESSOR_ARCHITECTURE holds.
const char *architectureName(WORD architecture) {
  switch (architecture) {
    case PROCESSOR_ARCHITECTURE_AMD64:
      return "AMD64";
    case PROCESSOR_ARCHITECTURE_INTEL:
      return "x86";
    case PROCESSOR_ARCHITECTURE_ARM64:
      return "ARM64";
    case PROCESSOR_ARCHITECTURE_ARM:
      return "ARM";
    case PROCESSOR_ARCHITECTURE_IA64:
      return "IA64";
    default:
      return "unknown";
  }
}

}  // namespace

bool systemInfo(char *sysname, char *nodename, char *release, char *version, char *machine,
                std::size_t size) noexcept {
  OSVERSIONINFOA v;
  char name[256];
  DWORD length = sizeof name;
  // The DNS host name, which gethostname gives too, rather than the
  // upper-case NetBIOS name.
  if (!readVersion(&v) || !::GetComputerNameExA(ComputerNameDnsHostname, name, &length)) return false;
  SYSTEM_INFO si;
  ::GetNativeSystemInfo(&si);  // the machine's, also for a 32-bit process
  std::snprintf(sysname, size, "%s",
                v.dwPlatformId == VER_PLATFORM_WIN32_NT        ? "Windows NT"
                : v.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS ? "Windows"
                                                               : "Win32s");
  std::snprintf(nodename, size, "%s", name);
  std::snprintf(release, size, "%lu.%lu", v.dwMajorVersion, v.dwMinorVersion);
  // The older family keeps major and minor in the build number's high word.
  std::snprintf(version, size, "%lu%s%s", v.dwBuildNumber & 0xFFFFu, v.szCSDVersion[0] ? " " : "", v.szCSDVersion);
  std::snprintf(machine, size, "%s", architectureName(si.wProcessorArchitecture));
  return true;
}

int systemFamily() noexcept {
  static const int family = [] {
    OSVERSIONINFOA info;
    // Failing, the process takes itself to run on the older family.
    if (!readVersion(&info)) return 1;
    switch (info.dwPlatformId) {
      case VER_PLATFORM_WIN32_NT:
        return 2;
      case VER_PLATFORM_WIN32_WINDOWS:
        return 1;
      default:
        return 0;
    }
  }();
  return family;
}

bool socketsStart() noexcept {
  if (utSocketsStarted.load(std::memory_order_acquire)) return true;
  WSADATA data;
  if (::WSAStartup(MAKEWORD(1, 1), &data) != 0) return false;
  // Two threads may both have started it; each start is matched at the end.
  if (utSocketsStarted.exchange(true, std::memory_order_acq_rel)) ::WSACleanup();
  return true;
}

void socketsEnd() noexcept {
  if (utSocketsStarted.exchange(false, std::memory_order_acq_rel)) ::WSACleanup();
}

bool loadStartupSettings(StartupReport report) noexcept {
  if (!machineSettings(report)) return false;
  userTemp(report);
  return true;
}

}  // namespace vq::os
