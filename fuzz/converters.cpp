// Arbitrary text through the three time converters' readers ("full",
// "hms", "numeric") and back through their writers. Any input must end in
// a time or a clean refusal.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "quiet.hpp"
#include "vqutil/time.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  fuzz::quietLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  static const char *const names[] = {"full", "hms", "numeric"};
  D_TIME_CVT *converter = DutTimeCvtLookup(names[data[0] % 3]);
  if (converter == nullptr) std::abort();
  char *text = static_cast<char *>(std::malloc(size));
  std::memcpy(text, data + 1, size - 1);
  text[size - 1] = '\0';
  D_REAL8 time = 0;
  if (DutTimeCvtStrToNum(converter, text, &time)) {
    const char *back = nullptr;
    DutTimeCvtNumToStr(converter, time, &back);
  }
  std::free(text);
  return 0;
}
