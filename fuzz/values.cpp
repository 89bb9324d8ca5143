// Arbitrary bytes through the text-to-number parsers and through
// DutOptionParseValue on options of every type. Any input must end in a
// value, a clean refusal or a lexer error: never a crash, a hang, a leak or
// an out-of-bounds access.
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "quiet.hpp"
#include "vqutil/lex.h"
#include "vqutil/option.h"
#include "vqutil/strutil.h"

namespace {

constexpr D_INT4 kTypes[] = {D_OPT_TYPE_BOOLEAN, D_OPT_TYPE_ENUM, D_OPT_TYPE_NUMERIC, D_OPT_TYPE_STRING,
                             D_OPT_TYPE_ENUM_LIST, D_OPT_TYPE_NUMERIC_LIST, D_OPT_TYPE_STRING_LIST};
constexpr int kNumTypes = sizeof kTypes / sizeof kTypes[0];
D_OPTION *g_options[kNumTypes + 1];

void parseInto(D_OPTION *option, const char *text) {
  jmp_buf jb;
  if (setjmp(jb) != 0) return;  // the lexer is gone
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, DutLexQuietLongjmpErrorFunc,
                              D_LEX_ATT_ERROR_ARG, &jb, 0);
  DutOptionParseValue(option, lexer);
  DutLexDestroy(lexer);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  fuzz::quietLibrary();
  const char *names[] = {"fz_bool", "fz_enum", "fz_num", "fz_str", "fz_enum_list", "fz_num_list", "fz_str_list"};
  for (int i = 0; i < kNumTypes; ++i) g_options[i] = DutOptionCreate(names[i], kTypes[i]);
  // An enumerated option with legal values exercises the refusal path.
  g_options[kNumTypes] = DutOptionCreate("fz_enum_legal", D_OPT_TYPE_ENUM);
  DutOptionLegValAdd(g_options[kNumTypes], "red");
  DutOptionLegValAdd(g_options[kNumTypes], "Green");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  char *text = static_cast<char *>(std::malloc(size));
  std::memcpy(text, data + 1, size - 1);
  text[size - 1] = '\0';
  switch (data[0] % 4) {
    case 0:
      DutStringToIntInvalid(text);
      DutStringToRealInvalid(text);
      break;
    case 1:
      DutStringToInt(text);
      DutStringToSignedReal(text);
      DutStringToUnsignedReal(text);
      break;
    default: {
      D_OPTION *option = g_options[(data[0] >> 2) % (kNumTypes + 1)];
      parseInto(option, text);
      DutOptionValToStr(option);
      break;
    }
  }
  std::free(text);
  return 0;
}
