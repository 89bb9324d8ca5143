// Behaviours only the Windows build has: registry settings read at load,
// backslash file names that ignore case, ".dll" modules, kernel objects and
// their error codes, Winsock's socket modes, LockFileEx locks.
#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "support/env_var.hpp"
#include "support/output_capture.hpp"
#include "vqutil/util.h"

namespace {

std::string registryValue(const char *name) {
  char value[1024];
  DWORD size = sizeof value;
  if (RegGetValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quandrel\\NXC", name, RRF_RT_REG_SZ, nullptr, value, &size) !=
      ERROR_SUCCESS)
    return "<none>";
  return value;
}

// A second copy of the library runs its own start-up when loaded.
std::string copyOfLibrary() {
  char self[MAX_PATH];
  GetModuleFileNameA(GetModuleHandleA("vqutild.dll"), self, sizeof self);
  std::string copy = std::string(self) + ".copy.dll";
  CopyFileA(self, copy.c_str(), FALSE);
  return copy;
}

TEST(WindowsStartup, UnsetSettingsComeFromTheMachineKeyAndSetOnesStay) {
  EXPECT_EQ(std::getenv("VQHOME") ? std::getenv("VQHOME") : "<unset>", registryValue("VQHOME"));
  EXPECT_STREQ(DutGetEnvErrorText(), "");
  vqtest::EnvVar home("VQHOME", "from-the-environment");
  vqtest::EnvVar arch("VQARCH", nullptr);
  const std::string copy = copyOfLibrary();
  HMODULE second = LoadLibraryA(copy.c_str());
  ASSERT_NE(second, nullptr) << GetLastError();
  EXPECT_STREQ(std::getenv("VQHOME"), "from-the-environment");
  ASSERT_NE(std::getenv("VQARCH"), nullptr);
  EXPECT_EQ(std::string(std::getenv("VQARCH")), registryValue("VQARCH"));
  FreeLibrary(second);
  DeleteFileA(copy.c_str());
}

TEST(WindowsStartup, AMissingMachineKeyFailsTheLoad) {
  HKEY empty = nullptr;
  ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\vqutil-test-empty", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            &empty, nullptr),
            ERROR_SUCCESS);
  if (RegOverridePredefKey(HKEY_LOCAL_MACHINE, empty) != ERROR_SUCCESS) GTEST_SKIP() << "no key redirection here";
  vqtest::EnvVar home("VQHOME", nullptr);
  const std::string copy = copyOfLibrary();
  HMODULE second = LoadLibraryA(copy.c_str());
  const DWORD error = GetLastError();
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  RegCloseKey(empty);
  if (second != nullptr && registryValue("VQHOME") != "<none>") {
    FreeLibrary(second);
    GTEST_SKIP() << "key redirection not honoured by this system";
  }
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(error, static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
  DeleteFileA(copy.c_str());
}

TEST(WindowsFiles, NamesUseBackslashesAndIgnoreCase) {
  char built[MAX_PATH];
  EXPECT_STREQ(DutBuildFileName(built, "C:\\dir", "base", ".txt"), "C:\\dir\\base.txt");
  EXPECT_STREQ(DutBuildFileName(built, "C:\\dir\\", "base", nullptr), "C:\\dir\\base");
  char name[MAX_PATH];
  EXPECT_STREQ(DutGetFileName("D:\\a\\b.c", name), "b.c");
  EXPECT_STREQ(DutGetFileName("D:a/b.c", name), "D:a/b.c");  // only the backslash separates

  char dir[MAX_PATH];
  GetTempPathA(sizeof dir, dir);
  const std::string file = std::string(dir) + "vqutil-Case.TXT";
  FILE *first = DutOpenFile(file.c_str(), "w");
  ASSERT_NE(first, nullptr);
  std::string lower = file;
  for (char &c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  EXPECT_EQ(DutOpenFile(lower.c_str(), "w"), first);  // one registered stream
  D_PATH *path = DutPathCreate();
  DutPathAddDir(path, dir);
  char found[MAX_PATH];
  ASSERT_NE(DutPathFindFile(path, "VQUTIL-CASE.txt", found), nullptr);
  EXPECT_EQ(std::string(found), std::string(dir) + "vqutil-case.txt");  // the name is lower-cased
  EXPECT_TRUE(DutCloseFile(first));
  EXPECT_TRUE(DutCloseFile(first));
  DutPathDestroy(path);
  DeleteFileA(file.c_str());
  EXPECT_FALSE(DutFileExists(std::string(300, 'x').c_str()));  // beyond MAX_PATH
}

TEST(WindowsModules, ANameWithoutExtensionGetsDll) {
  // The test modules are built as ".so" for the shared module suite.
  ASSERT_TRUE(CopyFileA(VQ_WINDOWS_MODULE ".so", VQ_WINDOWS_MODULE ".dll", FALSE));
  D_MODULE *module = DptModuleCreate(VQ_WINDOWS_MODULE, 1);
  ASSERT_NE(module, nullptr) << DutErrNumGetOs();
  const char *file = nullptr;
  ASSERT_TRUE(DptModuleGetFileName(module, &file));
  EXPECT_STREQ(file, VQ_WINDOWS_MODULE);  // kept as given; only the load added ".dll"
  EXPECT_NE(DptModuleGetSymbol(module, "vqTestModuleInitCalls"), nullptr);
  DptModuleDestroy(module, 0);
  DeleteFileA(VQ_WINDOWS_MODULE ".dll");
}

TEST(WindowsSync, KernelObjectsReportTheSystemsCodes) {
  EXPECT_EQ(DutWinVersionInfo(), 2);
  const char *name = "vqutil-test-mutex";
  D_MUTEX named = DutMutexCreateNamedNp(name, 0);
  ASSERT_NE(named, D_INVALID_MUTEX);
  EXPECT_EQ(DutMutexCreateNamedNp(name, 0), D_INVALID_MUTEX);
  EXPECT_EQ(DutErrNumGetOs(), ERROR_ALREADY_EXISTS);
  D_EVENT event = DutEventCreateUnnamed(0);
  EXPECT_FAILS(DutMutexLock(event, 0.0), D_FALSE, D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(DutMutexUnlock(named));  // not the owner
  EXPECT_EQ(DutErrNumGetOs(), ERROR_NOT_OWNER);
  // An owner that ends holding it leaves it abandoned: the next lock succeeds.
  std::thread([&] {
    D_MUTEX mine = DutMutexAttachNamedNp(name);
    EXPECT_TRUE(DutMutexLock(mine, -1.0));
  }).join();
  EXPECT_TRUE(DutMutexLock(named, 0.0));
  EXPECT_TRUE(DutMutexUnlock(named));
  EXPECT_TRUE(DutMutexDestroy(named));
  EXPECT_TRUE(DutEventDestroy(event));
}

TEST(WindowsSockets, ModeIsUnreadableAndHandlesAreNotInherited) {
  D_INT4 server = DutSocketCreateServerTcp(0);
  ASSERT_GE(server, 0);
  DWORD flags = 0;
  ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(static_cast<SOCKET>(server)), &flags));
  EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
  D_INT4 blocking = 7;
  EXPECT_FAILS(DutSocketGetBlockMode(server, &blocking), D_FALSE, D_ERR_DOESNT_EXIST);
  EXPECT_EQ(blocking, 0);
  EXPECT_EQ(DutWinCloseSocket(server), 0);
  EXPECT_EQ(DutWinCloseSocket(server), -1);
  EXPECT_EQ(DutErrNumGetSocket(), WSAENOTSOCK);
}

TEST(WindowsFileLocks, AnExclusiveLockBlocksASecondHandleUntilUnlocked) {
  char dir[MAX_PATH];
  GetTempPathA(sizeof dir, dir);
  const std::string resource = std::string(dir) + "vqutil-lock";
  D_LOCK_HANDLE *held = nullptr;
  ASSERT_TRUE(DptLockFile(resource.c_str(), 0, D_LOCK_EXCLUSIVE, &held));
  EXPECT_EQ(DptLockFileOpenUnix(resource.c_str()), 0);  // not this platform's pair
  std::atomic<bool> granted{false};
  std::thread waiter([&] {
    D_LOCK_HANDLE *second = nullptr;
    EXPECT_TRUE(DptLockFile(resource.c_str(), 0, D_LOCK_SHARED, &second));
    granted = true;
    DptUnlockFile(&second);
  });
  Sleep(200);
  EXPECT_FALSE(granted.load());
  EXPECT_TRUE(DptUnlockFile(&held));
  waiter.join();
  EXPECT_TRUE(granted.load());
  EXPECT_FALSE(DutFileExists((resource + "-LOCKFILE-").c_str()));  // the last unlock removes it
}

// OS and socket codes both print the system's own text, without its line end.
TEST(WindowsErrors, PerrorPrintsTheSystemsTextOfBothKinds) {
  for (const DWORD code : {DWORD{ERROR_FILE_NOT_FOUND}, DWORD{WSAECONNREFUSED}}) {
    char text[512];
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, text,
                             sizeof text, nullptr);
    while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r' || text[n - 1] == ' ')) --n;
    ASSERT_GT(n, 0u) << code;
    vqtest::OutputCapture capture;
    if (code == WSAECONNREFUSED) DutErrNumSetSocket(static_cast<D_INT4>(code));
    else DutErrNumSetOs(static_cast<D_INT4>(code));
    DutPerror("op");
    EXPECT_EQ(capture.Take(), "op: " + std::string(text, n) + "\n");
    EXPECT_EQ(code == WSAECONNREFUSED ? DutErrNumGetSocket() : DutErrNumGetOs(), static_cast<D_INT4>(code));
  }
}

TEST(WindowsIdentity, UserNameIsTheSystems) {
  char expected[300];
  DWORD n = sizeof expected;
  ASSERT_TRUE(GetUserNameA(expected, &n));
  vqtest::EnvVar forced("VQ_FORCE_USER_NAME", nullptr);
  char name[300];
  EXPECT_STREQ(DutGetUserName(name), expected);
}

}  // namespace
