// String utilities on plain NUL-terminated strings: tests, case, search and
// replace, the quoted form, tokens, identifier names, string lists and the
// wall-clock text. Character classes are the runtime's for the current
// locale, always fed unsigned characters.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "frame/check.hpp"
#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/safestr.h"
#include "vqutil/strutil.h"

namespace {

constexpr const char *kFile = "strutil.c";

// The replace functions work in fixed areas of this size; results must
// leave room for the NUL.
constexpr std::size_t kReplaceBufSize = 256;

inline bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
inline bool isUpper(char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; }
inline bool isLower(char c) { return std::islower(static_cast<unsigned char>(c)) != 0; }
inline bool isAlnum(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

// The same folding as DutStrCmpi: upper-case letters moved down by 32.
inline char fold(char c) { return isUpper(c) ? static_cast<char>(c + 32) : c; }

bool equalFolded(const char *a, const char *b, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (fold(a[i]) != fold(b[i])) {
      return false;
    }
  }
  return true;
}

// Shared by the four prefix / suffix tests: `at_end` compares the tail.
D_BOOL affixTest(const char *str, const char *affix, bool at_end, bool ignore_case) {
  if (str == nullptr || affix == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  const std::size_t len = std::strlen(str);
  const std::size_t affix_len = std::strlen(affix);
  if (affix_len > len) {
    return D_FALSE;
  }
  const char *start = at_end ? str + (len - affix_len) : str;
  const bool same = ignore_case ? equalFolded(start, affix, affix_len)
                                : std::memcmp(start, affix, affix_len) == 0;
  return same ? D_TRUE : D_FALSE;
}

char *newCopy(const char *str, std::size_t len, const char *label) {
  auto *copy =
      static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(len + 1), label, kFile, __LINE__));
  std::memcpy(copy, str, len);
  copy[len] = '\0';
  return copy;
}

enum class ReplaceResult { NotFound, Replaced, TooLong };

// One replacement of the first occurrence of old_str, built into out
// (kReplaceBufSize bytes) only when the whole result fits.
ReplaceResult replaceFirst(const char *str, const char *old_str, const char *new_str, char *out) {
  const D_INT4 pos = DutFindSubString(old_str, str);
  if (pos < 0) {
    return ReplaceResult::NotFound;
  }
  const std::size_t len = std::strlen(str);
  const std::size_t old_len = std::strlen(old_str);
  const std::size_t new_len = std::strlen(new_str);
  if (len - old_len + new_len >= kReplaceBufSize) {
    return ReplaceResult::TooLong;
  }
  const auto at = static_cast<std::size_t>(pos);
  std::memcpy(out, str, at);
  std::memcpy(out + at, new_str, new_len);
  std::memcpy(out + at + new_len, str + at + old_len, len - at - old_len + 1);
  return ReplaceResult::Replaced;
}

// Writes one character of the quoted form; false when the stream fails.
bool putQuoted(FILE *file, char c) {
  switch (c) {
    case '\n':
      return std::fputs("\\n", file) != EOF;
    case '"':
      return std::fputs("\\\"", file) != EOF;
    case '\\':
      return std::fputs("\\\\", file) != EOF;
    default:
      return std::putc(c, file) != EOF;
  }
}

// Reads one quoted string from file, handing each character to sink.
// False when the file ends inside the string.
template <typename Sink>
bool readQuoted(FILE *file, Sink &&sink) {
  int input_char = std::getc(file);
  while (input_char == ' ' || input_char == '\n' || input_char == '\t') {
    input_char = std::getc(file);
  }
  VQ_ASSERT(input_char == '"', "input_char == '\\\"'", kFile);
  for (;;) {
    input_char = std::getc(file);
    if (input_char == EOF) {
      return false;
    }
    if (input_char == '"') {
      return true;
    }
    if (input_char == '\\') {
      input_char = std::getc(file);
      if (input_char == EOF) {
        return false;
      }
      if (input_char == 'n') {
        input_char = '\n';
      } else if (input_char == 't') {
        input_char = '\t';
      }
    }
    sink(static_cast<char>(input_char));
  }
}

// Scratch text of DutReadStringPtr, created on first use and kept.
D_SAFE_STRING *utReadStringPtrBuf = nullptr;

}  // namespace

extern "C" {

// ---- Tests and case -----------------------------------------------------

D_EXPORT D_BOOL DutIsWhiteEmptyOrNullStr(const char *str) {
  if (str == nullptr) {
    return D_TRUE;
  }
  for (; *str != '\0'; ++str) {
    if (!isSpace(*str)) {
      return D_FALSE;
    }
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutStrStartsWith(const char *str, const char *prefix) {
  return affixTest(str, prefix, false, false);
}

D_EXPORT D_BOOL DutStriStartsWith(const char *str, const char *prefix) {
  return affixTest(str, prefix, false, true);
}

D_EXPORT D_BOOL DutStrEndsWith(const char *str, const char *suffix) {
  return affixTest(str, suffix, true, false);
}

D_EXPORT D_BOOL DutStriEndsWith(const char *str, const char *suffix) {
  return affixTest(str, suffix, true, true);
}

D_EXPORT char *DutStrLwr(char *dest, const char *src) {
  VQ_ASSERT(src != nullptr, "src", kFile);
  VQ_ASSERT(dest != nullptr, "dest", kFile);
  char *out = dest;
  for (; *src != '\0'; ++src, ++out) {
    *out = isUpper(*src) ? static_cast<char>(*src + 32) : *src;
  }
  *out = '\0';
  return dest;
}

D_EXPORT char *DutStrUpr(char *dest, const char *src) {
  VQ_ASSERT(src != nullptr, "src", kFile);
  VQ_ASSERT(dest != nullptr, "dest", kFile);
  char *out = dest;
  for (; *src != '\0'; ++src, ++out) {
    *out = isLower(*src) ? static_cast<char>(*src - 32) : *src;
  }
  *out = '\0';
  return dest;
}

// ---- New strings ----------------------------------------------------------

D_EXPORT char *DutStrDup(const char *str) {
  VQ_ASSERT(str != nullptr, "str != NULL", kFile);
  return newCopy(str, std::strlen(str), "(newstr)");
}

D_EXPORT char *DutStrStripChar(const char *str, char c) {
  if (str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  const std::size_t len = std::strlen(str);
  auto *newstr = static_cast<char *>(
      DutMallocCheck(static_cast<D_INT4>(len + 1), "(newstr)", kFile, __LINE__));
  char *out = newstr;
  for (; *str != '\0'; ++str) {
    if (*str != c) {
      *out++ = *str;
    }
  }
  *out = '\0';
  return newstr;
}

// ---- Search, extraction and replacement ---------------------------------

D_EXPORT D_INT4 DutFindSubString(const char *text, const char *str) {
  if (text == nullptr || str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return -1;
  }
  const auto text_len = static_cast<std::ptrdiff_t>(std::strlen(text));
  const auto str_len = static_cast<std::ptrdiff_t>(std::strlen(str));
  const std::ptrdiff_t last = str_len - text_len;
  // The first character is compared even for the empty text, whose NUL then
  // meets the string's NUL at index str_len: that is where it is found.
  for (std::ptrdiff_t i = 0; i <= last; ++i) {
    if (text[0] == str[i] && std::memcmp(text, str + i, static_cast<std::size_t>(text_len)) == 0) {
      return static_cast<D_INT4>(i);
    }
  }
  return -1;
}

D_EXPORT D_BOOL DutGetSubStr(const char *str, char *substr, D_INT4 start, D_INT4 count) {
  VQ_ASSERT(str != nullptr, "str != NULL", kFile);
  VQ_ASSERT(substr != nullptr, "substr != NULL", kFile);
  const auto len = static_cast<D_INT4>(std::strlen(str));
  if (start < 1 || start > len || count < 1) {
    substr[0] = '\0';
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  const D_INT4 available = len - (start - 1);
  const D_INT4 copied = count < available ? count : available;
  std::memcpy(substr, str + (start - 1), static_cast<std::size_t>(copied));
  substr[copied] = '\0';
  if (copied != count) {
    DutErrNumSet(D_ERR_VAL_TOO_LARGE);
    return D_FALSE;
  }
  return D_TRUE;
}

D_EXPORT const char *DutStrReplaceOne(const char *str, const char *old_str, const char *new_str,
                                      D_BOOL *replaced) {
  static char result_buf[kReplaceBufSize];
  if (str == nullptr || old_str == nullptr || new_str == nullptr || replaced == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  char work[kReplaceBufSize];
  switch (replaceFirst(str, old_str, new_str, work)) {
    case ReplaceResult::NotFound:
      *replaced = D_FALSE;
      return str;
    case ReplaceResult::TooLong:
      DutWarning(
          "DutStrReplaceOne: replacing <%s> by <%s> would exceed %d characters; "
          "string left unchanged\n",
          old_str, new_str, static_cast<int>(kReplaceBufSize - 1));
      DutErrNumSet(D_ERR_VAL_TOO_LARGE);
      *replaced = D_FALSE;
      return str;
    case ReplaceResult::Replaced:
      break;
  }
  vq::ProcessLock lock;
  std::memcpy(result_buf, work, std::strlen(work) + 1);
  *replaced = D_TRUE;
  return result_buf;
}

D_EXPORT const char *DutStrReplaceAll(const char *str, const char *old_str, const char *new_str) {
  static char result_buf[kReplaceBufSize];
  if (str == nullptr || old_str == nullptr || new_str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  const std::size_t len = std::strlen(str);
  if (len >= kReplaceBufSize) {
    DutWarning("DutStrReplaceAll: string of %d characters exceeds %d; string left unchanged\n",
               static_cast<int>(len), static_cast<int>(kReplaceBufSize - 1));
    DutErrNumSet(D_ERR_VAL_TOO_LARGE);
    return str;
  }
  // Two local areas swap roles each round, so that a refusal leaves both the
  // caller's string and the static result exactly as they were.
  char areas[2][kReplaceBufSize];
  int current = 0;
  std::memcpy(areas[current], str, len + 1);
  for (;;) {
    const ReplaceResult round = replaceFirst(areas[current], old_str, new_str, areas[1 - current]);
    if (round == ReplaceResult::NotFound) {
      break;
    }
    if (round == ReplaceResult::TooLong) {
      DutWarning(
          "DutStrReplaceAll: replacing <%s> by <%s> would exceed %d characters; "
          "string left unchanged\n",
          old_str, new_str, static_cast<int>(kReplaceBufSize - 1));
      DutErrNumSet(D_ERR_VAL_TOO_LARGE);
      return str;
    }
    // Replacing a text by itself never ends and never grows: refuse it.
    if (std::strcmp(old_str, new_str) == 0) {
      DutWarning("DutStrReplaceAll: replacing <%s> by itself never ends; string left unchanged\n",
                 old_str);
      DutErrNumSet(D_ERR_VAL_INVALID);
      return str;
    }
    current = 1 - current;
  }
  vq::ProcessLock lock;
  std::memcpy(result_buf, areas[current], std::strlen(areas[current]) + 1);
  return result_buf;
}

// ---- Quoted form ---------------------------------------------------------------

D_EXPORT D_BOOL DutDumpString(FILE *file, const char *str) {
  VQ_ASSERT(file != nullptr, "file", kFile);
  VQ_ASSERT(str != nullptr, "str", kFile);
  bool ok = std::putc('"', file) != EOF;
  for (; ok && *str != '\0'; ++str) {
    ok = putQuoted(file, *str);
  }
  ok = ok && std::putc('"', file) != EOF;
  if (!ok) {
    DutErrNumSetC(errno);
    return D_FALSE;
  }
  return D_TRUE;
}

D_EXPORT char *DutDumpStringToString(char *dest_str_return, const char *str) {
  VQ_ASSERT(dest_str_return != nullptr, "dest_str_return", kFile);
  VQ_ASSERT(str != nullptr, "str", kFile);
  char *out = dest_str_return;
  *out++ = '"';
  for (; *str != '\0'; ++str) {
    switch (*str) {
      case '\n':
        *out++ = '\\';
        *out++ = 'n';
        break;
      case '"':
      case '\\':
        *out++ = '\\';
        *out++ = *str;
        break;
      default:
        *out++ = *str;
        break;
    }
  }
  *out++ = '"';
  *out = '\0';
  return dest_str_return;
}

D_EXPORT char *DutReadString(FILE *file, char *str) {
  VQ_ASSERT(file != nullptr && str != nullptr, "file && str", kFile);
  char *out = str;
  const bool complete = readQuoted(file, [&out](char c) { *out++ = c; });
  *out = '\0';
  if (!complete) {
    DutErrNumSet(D_ERR_EOF);
    return nullptr;
  }
  return str;
}

D_EXPORT char *DutReadStringPtr(FILE *file) {
  VQ_ASSERT(file != nullptr, "file", kFile);
  DutProcessMutexLock();
  if (utReadStringPtrBuf == nullptr) {
    utReadStringPtrBuf = static_cast<D_SAFE_STRING *>(DutMallocCheck(
        static_cast<D_INT4>(sizeof(D_SAFE_STRING)), "utReadStringPtrBuf", kFile, __LINE__));
    VQ_ASSERT(utReadStringPtrBuf != nullptr, "utReadStringPtrBuf != NULL", kFile);
    *utReadStringPtrBuf = DutSafeStringCreate();
  }
  // A NUL byte cannot be part of the text; it is dropped.
  const bool complete = readQuoted(file, [](char c) {
    if (c != '\0') {
      DutSafeStringAppendChar(utReadStringPtrBuf, c);
    }
  });
  char *return_str = nullptr;
  if (complete) {
    return_str = newCopy(utReadStringPtrBuf->str,
                         static_cast<std::size_t>(utReadStringPtrBuf->length), "(return_str)");
    VQ_ASSERT(return_str != nullptr, "return_str", kFile);
  }
  DutSafeStringClear(utReadStringPtrBuf);
  DutProcessMutexUnlock();
  if (!complete) {
    DutErrNumSet(D_ERR_EOF);
  }
  return return_str;
}

// ---- Tokens, names and lists -------------------------------------------------

D_EXPORT char *DutStrTok(char *str, char **rest) {
  if (rest == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  *rest = nullptr;
  if (str == nullptr) {
    return nullptr;
  }
  while (isSpace(*str)) {
    ++str;
  }
  if (*str == '\0') {
    return nullptr;
  }
  char *end = str;
  while (*end != '\0' && !isSpace(*end)) {
    ++end;
  }
  if (*end != '\0') {
    *end = '\0';
    *rest = end + 1;
  }
  return str;
}

D_EXPORT D_BOOL DutStrToIdFileName(char *str) {
  if (str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  for (std::size_t i = std::strlen(str); i-- > 0;) {
    if (!isAlnum(str[i])) {
      str[i] = '_';
    }
  }
  return D_TRUE;
}

D_EXPORT char **DutStrListDup(D_STR_LIST str_list, D_INT4 count) {
  if (str_list == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  if (count < 0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return nullptr;
  }
  auto **new_str_list = static_cast<char **>(
      DutMallocCheck(static_cast<D_INT4>(static_cast<std::size_t>(count) * sizeof(char *)),
                     "new_str_list", kFile, __LINE__));
  for (D_INT4 counter = 0; counter < count; ++counter) {
    const char *item = str_list[counter];
    new_str_list[counter] =
        item == nullptr ? nullptr : newCopy(item, std::strlen(item), "(new_str_list[counter])");
  }
  return new_str_list;
}

D_EXPORT D_BOOL DutStrListEquali(D_STR_LIST str_list1, D_INT4 num_str_list1, D_STR_LIST str_list2,
                                 D_INT4 num_str_list2) {
  const bool ok1 = VQ_EXPECT(str_list1 != nullptr, "D_NULL != str_list1", kFile) != 0;
  const bool ok2 = VQ_EXPECT(num_str_list1 >= 0, "0 <= num_str_list1", kFile) != 0;
  const bool ok3 = VQ_EXPECT(str_list2 != nullptr, "D_NULL != str_list2", kFile) != 0;
  const bool ok4 = VQ_EXPECT(num_str_list2 >= 0, "0 <= num_str_list2", kFile) != 0;
  if (!ok1 || !ok3) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (!ok2 || !ok4) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  if (num_str_list1 != num_str_list2) {
    return D_FALSE;
  }
  for (D_INT4 i = 0; i < num_str_list1; ++i) {
    const char *a = str_list1[i];
    const char *b = str_list2[i];
    if (a == nullptr || b == nullptr) {
      if (a != b) {
        return D_FALSE;
      }
      continue;
    }
    if (DutStrCmpi(a, b) != 0) {
      return D_FALSE;
    }
  }
  return D_TRUE;
}

// ---- Wall-clock text ----------------------------------------------------------

D_EXPORT const char *DutGetWallTimeStr(void) {
  static char time_buf[64];
  const std::time_t now = std::time(nullptr);
  vq::ProcessLock lock;
  vq::os::ctimeText(now, time_buf, sizeof time_buf);
  const std::size_t len = std::strlen(time_buf);
  if (len > 0 && time_buf[len - 1] == '\n') {
    time_buf[len - 1] = '\0';
  }
  return time_buf;
}

}  // extern "C"
