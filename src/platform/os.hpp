// The operating-system interface of vqutil.
//
// This header is the only door to the operating system: every other folder
// of src/ calls these functions and the C/C++ standard library, nothing
// else. A backend per platform implements it (posix/ now, win32/ later).
//
// Error values: every function that fails stores the platform's error code
// in the calling thread's OS last error (lastError()), the analogue of
// Windows' GetLastError, and leaves errno alone where it can. Socket errors
// use the Winsock numbering (10000 + BSD number) on every platform.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace vq::os {

// ---- Per-thread error values ----------------------------------------------

// The OS last error of the calling thread (GetLastError / SetLastError).
int lastError() noexcept;
void setLastError(int code) noexcept;
// The socket last error of the calling thread, Winsock numbering.
int socketError() noexcept;
void setSocketError(int code) noexcept;
// Maps an errno value onto the Winsock numbering (EINTR -> 10004, ...);
// values with no socket meaning map to 10000 + the errno value.
int socketErrorFromErrno(int errno_value) noexcept;
// The errno value behind a Winsock-numbered code, or 0 when there is none.
int errnoFromSocketError(int socket_code) noexcept;

// The system's text for an OS error code (strerror_r on POSIX). Returns
// false, with an empty buffer, when the system has no text of its own.
bool systemErrorText(int code, char *buffer, std::size_t size) noexcept;
// The runtime's text for an errno value (_sys_errlist) and the runtime's
// error count (sys_nerr): texts exist for 1 .. runtimeErrorCount() - 1.
int runtimeErrorCount() noexcept;
bool runtimeErrorText(int errno_value, char *buffer, std::size_t size) noexcept;

// ---- Synchronisation objects ----------------------------------------------

// Every mutex and event handle starts with its kind, so that a single close
// operation serves all of them (CloseHandle) and a handle of the wrong kind
// is refused. Unnamed objects live in this process only (thread_lock.hpp);
// named ones live in shared memory. The kinds start at an unlikely value,
// so that a stray word is seldom taken for a handle.
enum class HandleKind : std::uint32_t { ThreadMutex = 0x564d5431, SharedMutex, ThreadEvent, SharedEvent };
struct Handle {
  const HandleKind kind;
};

enum class WaitResult { Signalled, Abandoned, Timeout, Failed };

// Time-outs are milliseconds; kInfinite waits for ever.
inline constexpr std::uint32_t kInfinite = 0xFFFFFFFFu;

// A recursive mutex, owned by the caller when `owned`. An unnamed one is a
// ThreadMutex (thread_lock.hpp). A named mutex lives in the system
// namespace ("/vq.mutex.NAME"), survives the death of its owner process and
// is created exclusively: an existing name fails with the platform's
// "already exists" code.
Handle *mutexCreate(bool owned) noexcept;
Handle *mutexCreateNamed(const char *name, bool owned) noexcept;
Handle *mutexAttach(const char *name) noexcept;
// Abandoned: the previous owner died holding it; the caller now owns it.
WaitResult mutexLock(Handle *mutex, std::uint32_t timeout_ms) noexcept;
bool mutexUnlock(Handle *mutex) noexcept;

// A manual-reset event. A named event ("/vq.event.NAME") is opened when it
// exists unless `exclusive`, in which case an existing name fails.
Handle *eventCreate(bool initial_state) noexcept;
Handle *eventCreateNamed(const char *name, bool initial_state, bool exclusive) noexcept;
Handle *eventAttach(const char *name) noexcept;
bool eventSet(Handle *event) noexcept;
bool eventReset(Handle *event) noexcept;
WaitResult eventWait(Handle *event, std::uint32_t timeout_ms) noexcept;

// Closes any handle above; the last handle of a named object removes it.
bool closeHandle(Handle *handle) noexcept;

// ---- Threads ----------------------------------------------------------------

struct Thread;
using ThreadEntry = void (*)(void *arg);

// Allocates a thread record that identifies the thread before it runs.
Thread *threadNew() noexcept;
// Starts entry(arg) on a new thread; false (record still owned by the
// caller) when the thread cannot be created.
bool threadStart(Thread *thread, ThreadEntry entry, void *arg) noexcept;
// Ends the calling thread with the exit code. Not noexcept: on POSIX the
// thread ends by a forced unwind, which must not meet a noexcept frame.
[[noreturn]] void threadExit(std::intptr_t exit_code);
// Waits for the thread without limit and reads its exit code.
bool threadJoin(Thread *thread, std::intptr_t *exit_code) noexcept;
// Releases a record (after a join, or one that never started).
void threadFree(Thread *thread) noexcept;

// ---- Thread-local storage -------------------------------------------------

inline constexpr std::uint32_t kInvalidTlsKey = 0xFFFFFFFFu;
// A new slot, or kInvalidTlsKey. `at_thread_end`, when given, is called by
// the system with the slot's non-null value when any thread ends.
std::uint32_t tlsAlloc(void (*at_thread_end)(void *) = nullptr) noexcept;
bool tlsFree(std::uint32_t key) noexcept;
// Neither disturbs errno nor the OS last error.
void *tlsGet(std::uint32_t key) noexcept;
bool tlsSet(std::uint32_t key, void *value) noexcept;

// ---- Time and process -------------------------------------------------------

// Sleeps; resumes after a signal for the time that remains.
void sleepSeconds(double seconds) noexcept;
// Wall clock with microsecond resolution.
void wallClock(std::int64_t *seconds, std::int32_t *microseconds) noexcept;
// ctime() text of t (26 bytes, ending in a newline) in the caller's buffer.
void ctimeText(std::time_t t, char *buffer, std::size_t size) noexcept;
// The local calendar fields of t in the caller's record (the thread-safe
// localtime); false when t cannot be represented.
bool localCalendar(std::time_t t, std::tm *fields) noexcept;
int processId() noexcept;
// The system's name, the node name, the release, the version and the
// machine, as uname gives them, each into a buffer of `size` bytes,
// NUL-terminated and cut to it. False, with the OS last error set, when the
// system cannot tell; the buffers then hold what was filled so far.
bool systemInfo(char *sysname, char *nodename, char *release, char *version, char *machine,
                std::size_t size) noexcept;

// ---- Environment and logs -----------------------------------------------

// Sets an environment variable (putenv semantics; copies the value).
bool setEnv(const char *name, const char *value) noexcept;
// Reports an error to the system log under the ident.
void systemLog(const char *ident, const char *text) noexcept;

// ---- Start-up ---------------------------------------------------------------

// The platform family: 1 the older Windows family, 2 the NT family (which
// every POSIX system reports), 0 any other.
int systemFamily() noexcept;
// Starts the socket library once per process / ends it (no-ops on POSIX).
bool socketsStart() noexcept;
void socketsEnd() noexcept;
// Fills VQHOME and VQARCH, when unset, from the machine's settings (the
// registry on Windows, the settings file on POSIX) and TEMP from the
// user's. Each failure is handed to report with its text and the OS error
// behind it (0: none). False when the load must fail.
using StartupReport = void (*)(const char *text, int os_error);
bool loadStartupSettings(StartupReport report) noexcept;

}  // namespace vq::os
