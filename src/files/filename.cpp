// File names, file tests, the temporary directory and directory listings.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "files/files_internal.hpp"
#include "platform/fs.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"
#include "vqutil/strutil.h"

namespace {

constexpr char kSeparator = vq::os::kPathSeparator;

// Shared answer of DutGetFileName with a null buffer.
char utFileNameBuffer[vq::files::kNameBufferSize];

bool endsWithSeparator(const char *text) {
  std::size_t n = std::strlen(text);
  return n > 0 && text[n - 1] == kSeparator;
}

// Copies text into a new checked allocation.
char *newCopy(std::string_view text, const char *label) {
  char *copy = static_cast<char *>(
      DutMallocCheck(static_cast<D_INT4>(text.size() + 1), label, __FILE__, __LINE__));
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

}  // namespace

namespace vq::files {

bool recordAccess(const char *name, int mode) {
  int error = vq::os::fileAccess(name, mode);
  if (error != 0) {
    DutErrNumSetC(error);
    return false;
  }
  return true;
}

}  // namespace vq::files

extern "C" {

D_EXPORT D_BOOL DutHasExtension(const char *name, const char *extension) {
  if (name == nullptr || extension == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  std::size_t n = std::strlen(name);
  std::size_t e = std::strlen(extension);
  if (n < e) return D_FALSE;
  return DutStrCmpi(name + (n - e), extension) == 0 ? D_TRUE : D_FALSE;
}

D_EXPORT char *DutBuildFileName(char *destination, const char *directory, const char *base,
                                const char *extension) {
  if (destination == nullptr || base == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  // Built aside first so that destination may alias one of the parts.
  std::string name;
  if (directory != nullptr) {
    name = directory;
    if (!endsWithSeparator(directory)) name += kSeparator;
  }
  name += base;
  if (extension != nullptr) name += extension;
  std::memcpy(destination, name.c_str(), name.size() + 1);
  return destination;
}

D_EXPORT char *DutBuildDirName(char *destination, const char *base_directory,
                               const char *sub_directory) {
  if (destination == nullptr || base_directory == nullptr || sub_directory == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  std::string name = base_directory;
  if (!endsWithSeparator(base_directory)) name += kSeparator;
  name += sub_directory;
  std::memcpy(destination, name.c_str(), name.size() + 1);
  return destination;
}

D_EXPORT char *DutGetFileName(const char *path, char *buffer) {
  if (path == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  const char *slash = std::strrchr(path, kSeparator);
  const char *file = slash == nullptr ? path : slash + 1;
  if (buffer != nullptr) {
    std::memmove(buffer, file, std::strlen(file) + 1);
    return buffer;
  }
  vq::ProcessLock lock;
  std::size_t n = std::min(std::strlen(file), sizeof utFileNameBuffer - 1);
  std::memcpy(utFileNameBuffer, file, n);
  utFileNameBuffer[n] = '\0';
  return utFileNameBuffer;
}

D_EXPORT D_BOOL DutFileExplodeName(const char *path, char **dir_ptr, char **base_ptr,
                                   char **ext_ptr) {
  if (path == nullptr || dir_ptr == nullptr || base_ptr == nullptr || ext_ptr == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  std::string_view whole(path);
  std::size_t slash = whole.rfind(kSeparator);
  std::string_view dir;
  std::string_view file = whole;
  if (slash != std::string_view::npos) {
    dir = slash == 0 ? whole.substr(0, 1) : whole.substr(0, slash);
    file = whole.substr(slash + 1);
  }
  std::size_t dot = file.rfind('.');
  // A leading dot names a hidden file rather than starting an extension.
  if (dot == 0) dot = std::string_view::npos;
  std::string_view base = file.substr(0, dot);
  std::string_view ext = dot == std::string_view::npos ? std::string_view() : file.substr(dot);
  *dir_ptr = newCopy(dir, "*dir_ptr");
  *base_ptr = newCopy(base, "*base_ptr");
  *ext_ptr = newCopy(ext, "*ext_ptr");
  return D_TRUE;
}

D_EXPORT D_BOOL DutFileExists(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  return vq::files::recordAccess(name, 0) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutFileWritable(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  return vq::files::recordAccess(name, 2) ? D_TRUE : D_FALSE;
}

D_EXPORT int DutMvsAccess(const char *name, int mode) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return -1;
  }
  return vq::files::recordAccess(name, mode) ? 0 : -1;
}

D_EXPORT int DutDeleteFile(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return -1;
  }
  int error = vq::os::fileUnlink(name);
  if (error != 0) {
    DutErrNumSetC(error);
    return -1;
  }
  return 0;
}

D_EXPORT D_BOOL DutFileGetSize(const char *name, D_INT4 *size) {
  if (name == nullptr || size == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  std::int64_t bytes = 0;
  int error = vq::os::fileSize(name, &bytes);
  if (error != 0) {
    DutErrNumSetC(error);
    return D_FALSE;
  }
  if (bytes > std::numeric_limits<D_INT4>::max()) {
    DutErrNumSet(D_ERR_VAL_TOO_LARGE);
    return D_FALSE;
  }
  *size = static_cast<D_INT4>(bytes);
  return D_TRUE;
}

D_EXPORT D_BOOL DutGetTmpFilePath(char *destination) {
  if (destination == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (vq::files::recordAccess(".", 2)) {
    std::strcpy(destination, "./");
    return D_TRUE;
  }
  const char *home = std::getenv("HOME");
  if (home == nullptr) home = std::getenv("TEMP");
  if (home != nullptr) {
    std::string dir = std::string(home) + kSeparator;
    if (vq::files::recordAccess(dir.c_str(), 2)) {
      std::memcpy(destination, dir.c_str(), dir.size() + 1);
      return D_TRUE;
    }
  }
  std::strcpy(destination, vq::os::kRootTmpDir);
  return vq::files::recordAccess(destination, 2) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutDirGetFileNames(const char *directory, char ***names, D_INT4 *count) {
  if (directory == nullptr || names == nullptr || count == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  std::vector<std::string> entries;
  int error = vq::os::listDir(directory, &entries);
  if (error != 0) {
    DutErrNumSetC(error);
    return D_FALSE;
  }
  std::sort(entries.begin(), entries.end());
  *count = static_cast<D_INT4>(entries.size());
  *names = nullptr;
  if (entries.empty()) return D_TRUE;
  char **array = nullptr;
  D_MALLOC(array, entries.size() * sizeof(char *));
  for (std::size_t i = 0; i < entries.size(); ++i) array[i] = newCopy(entries[i], "(*names)[i]");
  *names = array;
  return D_TRUE;
}

}  // extern "C"
