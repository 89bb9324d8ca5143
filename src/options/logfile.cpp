// The log-file verify function: an option naming a file that messages of
// one kind are written to. The file registry keeps the stream; the option
// only holds its name.
#include "frame/check.hpp"
#include "vqutil/file.h"
#include "vqutil/option.h"
#include "vqutil/output.h"

namespace {

constexpr const char *kFile = "option.c";

// A leading "@" asks for appending and is not part of the file name.
const char *fileNameOf(const char *value) { return value[0] == '@' ? value + 1 : value; }

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutOptionVerifyLogFile(D_OPTION *option, void *new_value, void *arg) {
  VQ_ASSERT(arg != nullptr, "D_NULL != arg", kFile);
  if (new_value != nullptr) {
    const char *value = static_cast<const char *>(new_value);
    const char *mode = "w";
    if (value[0] == '@') {
      DutOut("Opening the file for appending.\n");
      mode = "a";
    }
    const char *name = fileNameOf(value);
    if (DutOpenFile(name, mode) == nullptr) {
      DutOut("Could not open file <%s>.\n", name);
      return D_FALSE;
    }
    DutOut("Now logging %s messages to <%s>.\n", static_cast<const char *>(arg), name);
  }
  if (option->value != nullptr) {
    FILE *cur_file = DutLookupFile(fileNameOf(static_cast<const char *>(option->value)));
    VQ_ASSERT(cur_file != nullptr, "D_NULL != cur_file", kFile);
    DutCloseFile(cur_file);
  }
  return D_TRUE;
}

}  // extern "C"
