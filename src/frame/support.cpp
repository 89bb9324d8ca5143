// The support notice: the text of $VQHOME/standard/support.txt.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/output.h"
#include "vqutil/safestr.h"

extern "C" {

D_EXPORT D_BOOL DutGetSupportNotice(D_SAFE_STRING *notice) {
  if (notice == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  const char *home = std::getenv("VQHOME");
  if (home == nullptr) home = "";
  // Sized by the variable, which may be longer than any fixed buffer.
  std::string dir(std::strlen(home) + sizeof "/standard", '\0');
  std::string path(dir.size() + sizeof "/support.txt", '\0');
  DutBuildDirName(dir.data(), home, "standard");
  DutBuildFileName(path.data(), dir.c_str(), "support", ".txt");
  FILE *f = DutOpenFile(path.c_str(), "r");
  if (f == nullptr) {
    DutWarning("DutGetSupportNotice: could not open <%s>\n", path.c_str());
    return D_FALSE;
  }
  // Pieces of at most 255 characters: a long line arrives in several.
  char line[256];
  while (std::fgets(line, sizeof line, f) != nullptr) DutSafeStringAppend(notice, line);
  DutCloseFile(f);
  return D_TRUE;
}

}  // extern "C"
