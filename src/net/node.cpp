// The host's node name and the directory where local processes meet.
#include "vqutil/net.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/fs.hpp"
#include "platform/net.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"

namespace {

constexpr const char *kFile = "utsocket.c";

// Computed on first request and kept for the life of the process.
char *utSocketDir = nullptr;

void copyBounded(char *buffer, const char *text) {
  std::size_t n = std::strlen(text);
  if (n > D_NODE_NAME_SIZE - 1) n = D_NODE_NAME_SIZE - 1;
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
}

// Creates one directory; an existing one (or one we may not create, which
// usually means it exists under another owner) is fine. Reports any other
// failure and answers false.
bool makeDirectory(const char *name) {
  int error = vq::os::makeDir(name);
  if (error == 0 || error == EEXIST || error == EACCES) return true;
  DutErrNumSetC(error);
  DutPerror("mkdir");
  DutWarning("DutGetSocketDir: Cannot create directory %s\n", name);
  return false;
}

}  // namespace

extern "C" {

D_EXPORT char *DutGetNodeName(char *buffer) {
  if (buffer == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  DutWinStartWinsock();
  char host[D_NODE_NAME_SIZE];
  if (vq::os::hostName(host, sizeof host) != 0 || host[0] == '\0') std::strcpy(host, "UNKNOWN");
  copyBounded(buffer, host);
  // Lets several test processes on one machine pose as different hosts.
  const char *forced = std::getenv("VQ_FORCE_NODE_NAME");
  if (forced != nullptr) copyBounded(buffer, forced);
  return buffer;
}

D_EXPORT const char *DutGetSocketDir(void) {
  vq::ProcessLock lock;
  if (utSocketDir != nullptr) return utSocketDir;
  const char *temp = std::getenv("TEMP");
  if (temp == nullptr) temp = "/tmp";
  std::size_t size = std::strlen(temp) + sizeof "/vqsuite";
  utSocketDir = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(size), "utSocketDir", kFile, __LINE__));
  std::snprintf(utSocketDir, size, "%s/vqsuite", temp);
  if (makeDirectory(temp)) makeDirectory(utSocketDir);
  return utSocketDir;
}

}  // extern "C"
