// Naming the process, its CPU time and user name, and the conversions
// between text and type masks, booleans, identifiers and slot names.
#include <array>
#include <cctype>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/check.hpp"
#include "platform/process.hpp"
#include "vqutil/init.h"
#include "vqutil/lex.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "utinit.c";

const char *utProcessType = "unknown";
char utTypeStr[D_TYPE_TEXT_SIZE];
char utIdStr[D_TYPE_TEXT_SIZE];

constexpr std::array<const char *, 14> kTypeNames = {
    "boolean",      "enumerated",      "numeric",      "string",      "enumerated set",
    "numeric set",  "string set",      "enumerated list", "numeric list", "string list",
    "type of first argument", "slot", "float",        "integer"};

// Runs the lexer over text and copies the one identifier it must hold
// into word. The lexer's quiet error function jumps back here on any
// lexical error, after destroying the lexer: this frame owns nothing that
// needs unwinding.
bool readOneWord(const char *text, char *word, std::size_t size) {
  std::jmp_buf jump;
  D_LEX *volatile lexer = nullptr;
  if (setjmp(jump) == D_LEX_JUMP_VALUE) return false;
  lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, DutLexQuietLongjmpErrorFunc,
                       D_LEX_ATT_ERROR_ARG, static_cast<void *>(&jump), 0);
  if (lexer == nullptr) return false;
  if (!DutLexAcceptId(lexer)) return false;
  bool alone = DutLexGetToken(lexer) == D_TOK_EOF;
  if (alone) std::snprintf(word, size, "%s", DutLexGetText(lexer));
  DutLexDestroy(lexer);
  return alone;
}

bool isIdChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '%';
}

void copyCut(char *buffer, const char *text) { std::snprintf(buffer, D_USER_NAME_SIZE, "%s", text); }

}  // namespace

extern "C" {

// ---- Process identity ------------------------------------------------------------

D_EXPORT D_INT4 DutInit(const char *process_type) {
  VQ_ASSERT(process_type != nullptr, "process_type != NULL", kFile);
  DutProcessMutexLock();
  utProcessType = process_type;
  DutProcessMutexUnlock();
  DutDebugOpen(process_type);
  return 0;
}

D_EXPORT void DutDefaultJumpLanded(void) {
  DutOut("Default error jump buffer has not been set.  Exiting.\n");
  std::exit(2);
}

D_EXPORT const char *DutGetProcessType(void) {
  DutProcessMutexLock();
  const char *type = utProcessType;
  DutProcessMutexUnlock();
  return type;
}

D_EXPORT D_WORD DutGetCpuTime(void) {
  std::int64_t ms = 0;
  if (!vq::os::processCpuTimeMs(&ms)) return 0;
  return static_cast<D_WORD>(ms);
}

D_EXPORT char *DutGetUserName(char *buffer) {
  VQ_ASSERT(buffer != nullptr, "buffer != NULL", kFile);
  if (!vq::os::systemUserName(buffer, D_USER_NAME_SIZE)) {
    DutWarning("DutGetUserName: GetUserName(system.ini) failed.\n");
    const char *from_env = std::getenv("USER");
    if (from_env == nullptr) from_env = std::getenv("USERNAME");
    if (from_env != nullptr) {
      copyCut(buffer, from_env);
    } else {
      DutWarning("DutGetUserName: getenv(\"USERNAME\") failed.\n");
      copyCut(buffer, "unknown");
    }
  }
  const char *forced = std::getenv("VQ_FORCE_USER_NAME");
  if (forced != nullptr) copyCut(buffer, forced);
  return buffer;
}

// ---- Text conversions -----------------------------------------------------------------

D_EXPORT char *DutTypeToString(D_UINT4 type_mask, char *buffer) {
  char *out = buffer != nullptr ? buffer : utTypeStr;
  if (type_mask >= D_TYPE_ILLEGAL) {
    DutWarning("DutTypeToString:illegal value: %ld.\n", static_cast<long>(type_mask));
    std::snprintf(out, D_TYPE_TEXT_SIZE, "<BAD TYPE %ld>", static_cast<long>(type_mask));
    return out;
  }
  if (type_mask == 0) {
    std::snprintf(out, D_TYPE_TEXT_SIZE, "void");
    return out;
  }
  // All value bits read as one phrase; the other bits are then not named.
  if ((type_mask & D_TYPE_ANY_VALUE) == D_TYPE_ANY_VALUE) {
    std::snprintf(out, D_TYPE_TEXT_SIZE, "%s", (type_mask & D_TYPE_SLOT) != 0 ? "any slot" : "any value");
    return out;
  }
  out[0] = '\0';
  std::size_t used = 0;
  for (std::size_t bit = 0; bit < kTypeNames.size(); ++bit) {
    if ((type_mask & (1u << bit)) == 0) continue;
    int n = std::snprintf(out + used, D_TYPE_TEXT_SIZE - used, "%s%s", used == 0 ? "" : " or ", kTypeNames[bit]);
    if (n > 0) used += static_cast<std::size_t>(n);
  }
  return out;
}

D_EXPORT D_BOOL DutStringToType(D_UINT4 *type, const char *type_string) {
  VQ_ASSERT(type_string != nullptr, "type_string", kFile);
  char word[D_TYPE_TEXT_SIZE];
  if (!readOneWord(type_string, word, sizeof word)) return D_FALSE;
  for (std::size_t bit = 0; bit < 4; ++bit) {
    if (DutStrCmpi(word, kTypeNames[bit]) == 0) {
      if (type != nullptr) *type = 1u << bit;
      return D_TRUE;
    }
  }
  return D_FALSE;
}

D_EXPORT D_BOOL DutStringToBool(D_BOOL *value, const char *type_string) {
  VQ_ASSERT(type_string != nullptr, "type_string", kFile);
  char word[D_TYPE_TEXT_SIZE];
  if (!readOneWord(type_string, word, sizeof word)) return D_FALSE;
  int result = -1;
  if (DutStrCmpi(word, "true") == 0) result = 1;
  if (DutStrCmpi(word, "false") == 0) result = 0;
  if (result < 0) return D_FALSE;
  if (value != nullptr) *value = result;
  return D_TRUE;
}

D_EXPORT const char *DutStringToId(const char *input_str) {
  VQ_ASSERT(input_str != nullptr, "input_str != NULL", kFile);
  if (!readOneWord(input_str, utIdStr, sizeof utIdStr)) return nullptr;
  return utIdStr;
}

D_EXPORT D_INT4 DutIdIsValid(const char *text) {
  if (text == nullptr) return 0;
  if (std::isdigit(static_cast<unsigned char>(text[0])) != 0) return 0;
  for (const char *p = text; *p != '\0'; ++p)
    if (!isIdChar(*p)) return 0;
  return 1;
}

D_EXPORT D_INT4 DutSlotIsValid(const char *text) {
  if (text == nullptr) return 0;
  std::size_t n = std::strlen(text) + 1;
  auto *copy = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), "(copy)", kFile, __LINE__));
  std::memcpy(copy, text, n);
  // Split at dots, skipping empty pieces as strtok would.
  int pieces = 0;
  bool valid = true;
  for (char *piece = copy; valid && *piece != '\0';) {
    char *dot = std::strchr(piece, '.');
    if (dot != nullptr) *dot = '\0';
    if (*piece != '\0') {
      ++pieces;
      valid = DutIdIsValid(piece) != 0;
    }
    if (dot == nullptr) break;
    piece = dot + 1;
  }
  DutFreeCheck(copy, "copy", kFile, __LINE__);
  if (!valid || pieces < 3) return 0;
  // Splitting hid empty pieces; two dots in a row are still wrong.
  if (std::strstr(text, "..") != nullptr) return 0;
  return 1;
}

}  // extern "C"
