// The per-process dump file: diagnostic listings written with printf-style
// calls into "dump<pid>.dmp" in the temporary directory.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "files/files_internal.hpp"
#include "frame/check.hpp"
#include "platform/fs.hpp"
#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"

namespace {

// Both guarded by the process-wide lock. The name outlives closes so that
// view and remove still find the file.
char *utDumpFname = nullptr;
FILE *utDumpFile = nullptr;

FILE *dumpOpen(const char *mode, bool truncate) {
  vq::ProcessLock lock;
  if (utDumpFile != nullptr) {
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return nullptr;
  }
  bool new_name = utDumpFname == nullptr;
  if (new_name) {
    char dir[vq::files::kNameBufferSize];
    if (!DutGetTmpFilePath(dir)) {
      DutErrNumSet(D_ERR_DOESNT_EXIST);
      return nullptr;
    }
    std::string name = std::string(dir) + "dump" +
                       std::to_string(static_cast<long>(vq::os::processId())) + ".dmp";
    utDumpFname = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(name.size() + 1),
                                                     "(utDumpFname)", __FILE__, __LINE__));
    std::strcpy(utDumpFname, name.c_str());
  }
  if (truncate) {
    D_INT4 saved = DutErrNumGet();
    if (vq::os::fileUnlink(utDumpFname) != 0) DutErrNumSet(saved);
  }
  utDumpFile = DutOpenFile(utDumpFname, mode);
  if (utDumpFile == nullptr && new_name) {
    DutFreeCheck(utDumpFname, "(utDumpFname)", __FILE__, __LINE__);
    utDumpFname = nullptr;
  }
  return utDumpFile;
}

}  // namespace

extern "C" {

D_EXPORT FILE *DutDumpOpen(void) { return dumpOpen("w", true); }

D_EXPORT FILE *DutDumpOpenAppend(void) { return dumpOpen("a", false); }

D_EXPORT void DutDumpOutVa(const char *format, va_list args) {
  VQ_ASSERT(format != nullptr, "format_str != NULL", vq::files::kFileLabel);
  if (format == nullptr) return;
  vq::ProcessLock lock;
  if (utDumpFile == nullptr) DutDumpOpen();
  if (utDumpFile == nullptr) {
    DutWarning("DutDumpOutVa: dump file is not open.\n");
    DutVOut(format, args);
    return;
  }
  std::vfprintf(utDumpFile, format, args);
}

D_EXPORT void DutDumpOut(const char *format, ...) {
  va_list args;
  va_start(args, format);
  DutDumpOutVa(format, args);
  va_end(args);
}

D_EXPORT D_BOOL DutDumpClose(void) {
  vq::ProcessLock lock;
  if (utDumpFile == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  DutCloseFile(utDumpFile);
  utDumpFile = nullptr;
  return D_TRUE;
}

D_EXPORT D_BOOL DutDumpView(void) {
  vq::ProcessLock lock;
  if (utDumpFname == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  if (utDumpFile != nullptr && !DutDumpClose()) DutWarning("DutDumpView: DutDumpClose failed.\n");
  return DutEditFile(utDumpFname, 1);
}

D_EXPORT D_BOOL DutDumpRemove(void) {
  vq::ProcessLock lock;
  if (utDumpFname == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  if (utDumpFile != nullptr) {
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return D_FALSE;
  }
  int error = vq::os::fileUnlink(utDumpFname);
  if (error != 0) {
    DutErrNumSetC(error);
    return D_FALSE;
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutDumpGetName(char *destination) {
  if (destination == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  if (utDumpFname == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  std::strcpy(destination, utDumpFname);
  return D_TRUE;
}

}  // extern "C"
