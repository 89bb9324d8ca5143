// File-name helpers.
#include <cstring>

#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/strutil.h"

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

}  // extern "C"
