// Reads the string options of the file family without disturbing the
// caller's error number (an unknown value is an ordinary state here).
#include "files/file_options.hpp"

#include "vqutil/error.h"

#if __has_include("vqutil/option.h")
#include "vqutil/option.h"
#define VQ_FILES_HAVE_OPTIONS 1
#endif

namespace vq::files {

#ifdef VQ_FILES_HAVE_OPTIONS
namespace {

// The getter's out type is deduced so that either constness of the stored
// string pointer fits.
template <typename R, typename Opt, typename S>
const char *stringValue(R (*get)(Opt, S **), Opt option) {
  S *value = nullptr;
  if (!get(option, &value)) return nullptr;
  return value;
}

// false when the option does not exist.
bool readString(const char *name, const char **value) {
  D_INT4 saved = DutErrNumGet();
  auto option = DutOptionLookup(name);
  if (option == nullptr) {
    DutErrNumSet(saved);
    return false;
  }
  *value = stringValue(&DutOptionGetStr, option);
  DutErrNumSet(saved);
  return true;
}

}  // namespace

bool backupSuffix(const char **suffix) { return readString("backup_name", suffix); }

const char *editorOption() {
  const char *value = nullptr;
  return readString("editor", &value) ? value : nullptr;
}
#else
// Built without the option family: no backups, the editor from EDITOR.
bool backupSuffix(const char **suffix) {
  *suffix = nullptr;
  return true;
}

const char *editorOption() { return nullptr; }
#endif

}  // namespace vq::files
