// Text to number through the lexer, so that numbers in strings follow the
// same grammar as numbers in command lines.
#include <csetjmp>

#include "command/lex_internal.hpp"
#include "frame/check.hpp"
#include "vqutil/lex.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"

namespace {

constexpr const char *kFile = "strutil.c";

enum class Number { SignedInt, SignedReal, UnsignedReal };

// Reads the whole text as one number of the kind. The quiet long-jump
// error function destroys the lexer and comes back to the setjmp on any
// lexical error, so this frame owns nothing that needs unwinding.
bool parseNumber(const char *text, Number kind, D_REAL8 *value) {
  std::jmp_buf jump;
  D_LEX *volatile lexer = nullptr;
  if (setjmp(jump) == D_LEX_JUMP_VALUE) return false;
  lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, DutLexQuietLongjmpErrorFunc,
                       D_LEX_ATT_ERROR_ARG, static_cast<void *>(&jump), 0);
  if (lexer == nullptr) return false;
  D_REAL8 number = 0.0;
  switch (kind) {
    case Number::SignedInt: {
      D_INT4 whole = 0;
      if (!vq::lex::acceptSignedInt(lexer, &whole)) return false;
      number = whole;
      break;
    }
    case Number::SignedReal:
      if (!vq::lex::acceptSignedReal(lexer, &number)) return false;
      break;
    case Number::UnsignedReal:
      if (!DutLexAccept(lexer, D_TOK_UNSIGNED_NUMBER)) return false;
      number = DutLexGetValue(lexer);
      break;
  }
  bool alone = DutLexGetToken(lexer) == D_TOK_EOF;
  DutLexDestroy(lexer);
  if (alone) *value = number;
  return alone;
}

}  // namespace

extern "C" {

D_EXPORT D_INT4 DutStringToInt(const char *input_str) {
  VQ_ASSERT(input_str != nullptr, "input_str != NULL", kFile);
  D_REAL8 value = 0.0;
  if (!parseNumber(input_str, Number::SignedInt, &value)) {
    DutWarning("DutStringToInt: Unexpected invalid integer detected");
    return 0;
  }
  return static_cast<D_INT4>(value);
}

D_EXPORT D_REAL8 DutStringToSignedReal(const char *input_str) {
  VQ_ASSERT(input_str != nullptr, "input_str != NULL", kFile);
  D_REAL8 value = 0.0;
  if (!parseNumber(input_str, Number::SignedReal, &value)) {
    DutWarning("DutStringToSignedReal: Unexpected invalid real number detected");
    return 0.0;
  }
  return value;
}

D_EXPORT D_REAL8 DutStringToUnsignedReal(const char *input_str) {
  VQ_ASSERT(input_str != nullptr, "input_str != NULL", kFile);
  D_REAL8 value = 0.0;
  if (!parseNumber(input_str, Number::UnsignedReal, &value)) return -1.0;
  return value;
}

D_EXPORT D_BOOL DutStringToIntInvalid(const char *input_str) {
  VQ_ASSERT(input_str != nullptr, "input_str != D_NULL", kFile);
  D_REAL8 value = 0.0;
  return parseNumber(input_str, Number::SignedInt, &value) ? D_FALSE : D_TRUE;
}

D_EXPORT D_BOOL DutStringToRealInvalid(const char *input_str) {
  VQ_ASSERT(input_str != nullptr, "input_str != NULL", kFile);
  D_REAL8 value = 0.0;
  return parseNumber(input_str, Number::SignedReal, &value) ? D_FALSE : D_TRUE;
}

}  // extern "C"
