// Base names for files whose names the file system may not take as they
// are: long or unusual names are stored under 8 hexadecimal digits, and a
// map file beside them remembers which name the digits stand for.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "files/files_internal.hpp"
#include "frame/check.hpp"
#include "platform/fs.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"

namespace {

// The base buffer always has room for the 8 digits and their end.
constexpr std::size_t kMinBaseSize = 9;
// Longest first line read from a map file.
constexpr int kMapLineSize = 1024;

std::size_t maxBaseName() {
  const char *text = std::getenv("VQ_MAX_BASE_NAME");
  if (text == nullptr) return D_MAX_BASE_NAME_DEFAULT;
  long value = std::strtol(text, nullptr, 10);
  return value < 0 ? 0 : static_cast<std::size_t>(value);
}

bool isPlainName(const char *name) {
  for (const char *p = name; *p != '\0'; ++p) {
    char c = *p;
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '_';
    if (!ok) return false;
  }
  return true;
}

char *newBase(const char *text) {
  std::size_t size = std::strlen(text) + 1;
  if (size < kMinBaseSize) size = kMinBaseSize;
  char *base = nullptr;
  D_CALLOC(base, size);
  std::strcpy(base, text);
  return base;
}

void clearBase(char **base) {
  D_FREE(*base);
  *base = nullptr;
}

enum class MapState { Missing, Same, Other, Corrupt };

// Compares the first line of an existing map file with name.
MapState readMap(const std::string &map_name, const char *name) {
  if (!DutFileExists(map_name.c_str())) return MapState::Missing;
  FILE *map = DutFOpen(map_name.c_str(), "r");
  if (map == nullptr) return MapState::Corrupt;
  char line[kMapLineSize];
  char *got = std::fgets(line, sizeof line, map);
  std::fclose(map);
  if (got == nullptr) {
    DutErrNumSet(D_ERR_FILE_CORRUPT);
    return MapState::Corrupt;
  }
  std::size_t n = std::strlen(line);
  if (n > 0) line[n - 1] = '\0';  // the newline
  return std::strcmp(line, name) == 0 ? MapState::Same : MapState::Other;
}

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutBuildBaseName(const char *directory, const char *name, char **base,
                                 D_INT4 create) {
  if (base != nullptr) *base = nullptr;  // what every failure leaves
  if (directory == nullptr || name == nullptr || base == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (create != 0 && create != 1) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  if (name[0] == '\0' || (std::strlen(name) <= maxBaseName() && isPlainName(name))) {
    *base = newBase(name);
    return D_TRUE;
  }

  // Names are hashed as the file system tells them apart.
  const std::string folded = vq::os::foldFileName(name);
  name = folded.c_str();
  *base = newBase("");
  D_UINT4 h = 0;
  std::string map_name;
  for (;;) {
    for (const char *p = name; *p != '\0'; ++p) {
      h = h * 27u + static_cast<D_UINT4>(static_cast<D_INT4>(static_cast<signed char>(*p)));
    }
    int n = std::snprintf(*base, kMinBaseSize, "%08lx", static_cast<unsigned long>(h));
    VQ_ASSERT(n == 8, "strlen(*base) == 8", vq::files::kFileLabel);
    map_name = std::string(directory) + vq::os::kPathSeparator + *base + ".nam";
    MapState state = readMap(map_name, name);
    if (state == MapState::Same) return D_TRUE;
    if (state == MapState::Corrupt) {
      clearBase(base);
      return D_FALSE;
    }
    if (state == MapState::Missing) {
      if (DutGetCheckOnly()) {
        clearBase(base);
        DutErrNumSet(D_ERR_DOESNT_EXIST);
        return D_FALSE;
      }
      break;
    }
    // Another name holds these digits: the hash goes on from where it is.
  }
  if (create == 0) return D_TRUE;
  FILE *map = DutFOpen(map_name.c_str(), "w");
  if (map == nullptr) {
    clearBase(base);
    return D_FALSE;
  }
  errno = 0;
  bool written = std::fprintf(map, "%s\n", name) >= 0;
  if (std::fclose(map) != 0) written = false;
  if (!written) {
    DutErrNumSetC(errno != 0 ? errno : EIO);
    clearBase(base);
    return D_FALSE;
  }
  return D_TRUE;
}

}  // extern "C"
