// The support notice: the text of $VQHOME/standard/support.txt.
#include <cstdio>
#include <cstdlib>

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
  char dir[4096];
  char path[4200];
  DutBuildDirName(dir, home != nullptr ? home : "", "standard");
  DutBuildFileName(path, dir, "support", ".txt");
  FILE *f = DutOpenFile(path, "r");
  if (f == nullptr) {
    DutWarning("DutGetSupportNotice: could not open <%s>\n", path);
    return D_FALSE;
  }
  // Pieces of at most 255 characters: a long line arrives in several.
  char line[256];
  while (std::fgets(line, sizeof line, f) != nullptr) DutSafeStringAppend(notice, line);
  DutCloseFile(f);
  return D_TRUE;
}

}  // extern "C"
