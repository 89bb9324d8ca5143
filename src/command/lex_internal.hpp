// Internal forms of the typed accepts: true with the value, false once the
// error function has run (the lexer is then gone).
#pragma once

#include "vqutil/lex.h"

namespace vq::lex {

bool acceptSignedReal(D_LEX *lexer, D_REAL8 *value);
bool acceptSignedInt(D_LEX *lexer, D_INT4 *value);
// The error function of lexers that have none of their own.
D_LEX_ERROR_FUNC globalErrorFunc();

}  // namespace vq::lex
