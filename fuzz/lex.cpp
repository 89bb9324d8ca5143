// Arbitrary bytes through the lexer and its accept functions. Any input
// must end in tokens or a clean lexer error: never a crash, a hang, a leak
// or an out-of-bounds access.
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "quiet.hpp"
#include "vqutil/error.h"
#include "vqutil/lex.h"

namespace {

// Drives the lexer over text, choosing accept functions from the bytes of
// selector. Returns when the input ends or a lexer error jumps out.
void drive(const char *text, const uint8_t *selector, size_t selector_size, int white_space) {
  jmp_buf jb;
  if (setjmp(jb) != 0) return;  // the error function destroyed the lexer
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, DutLexQuietLongjmpErrorFunc,
                              D_LEX_ATT_ERROR_ARG, &jb, D_LEX_ATT_WHITE_SPACE, white_space, 0);
  for (size_t step = 0; DutLexGetToken(lexer) != D_TOK_EOF; ++step) {
    uint8_t choice = selector_size > 0 ? selector[step % selector_size] : 0;
    switch (choice % 12) {
      case 0: DutLexAcceptId(lexer); break;
      case 1: DutLexAcceptPattern(lexer); break;
      case 2: DutLexAcceptSignedReal(lexer); break;
      case 3: DutLexAcceptSignedInt(lexer); break;
      case 4: DutLexAcceptUnsignedInt(lexer); break;
      case 5: DutLexAcceptBool(lexer); break;
      case 6: DutLexAcceptFileName(lexer); break;
      case 7: DutLexAcceptSlot(lexer); break;
      case 8: DutLexAcceptSlotOrAlias(lexer); break;
      case 9:
        DutLexSkipToEoln(lexer);
        if (DutLexGetToken(lexer) != D_TOK_EOF) DutLexAccept(lexer, DutLexGetToken(lexer));
        break;
      default: DutLexAccept(lexer, DutLexGetToken(lexer)); break;
    }
  }
  DutLexDestroy(lexer);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  fuzz::quietLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  // The first byte picks the mode and how many of the following bytes
  // steer the accept functions; the rest is the text.
  int white_space = data[0] & 1;
  size_t selector_size = static_cast<size_t>((data[0] >> 1) % 8);
  if (selector_size > size - 1) selector_size = size - 1;
  const uint8_t *selector = data + 1;
  const uint8_t *body = data + 1 + selector_size;
  size_t body_size = size - 1 - selector_size;
  char *text = static_cast<char *>(std::malloc(body_size + 1));
  std::memcpy(text, body, body_size);
  text[body_size] = '\0';
  drive(text, selector, selector_size, white_space);
  std::free(text);
  return 0;
}
