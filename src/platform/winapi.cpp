// The portability layer's exported services and the library's character
// format setting.
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/platform.h"

namespace {

// 0 until set: the system default then stands in.
D_INT4 utCharFormat = 0;

bool knownFormat(D_INT4 format) {
  return format == D_CHAR_FORMAT_ASCII || format == D_CHAR_FORMAT_LATIN1 || format == D_CHAR_FORMAT_UTF8;
}

bool containsNoCase(std::string_view text, std::string_view word) {
  if (word.size() > text.size()) return false;
  for (std::size_t i = 0; i + word.size() <= text.size(); ++i) {
    std::size_t k = 0;
    while (k < word.size()) {
      char a = text[i + k];
      if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
      if (a != word[k]) break;
      ++k;
    }
    if (k == word.size()) return true;
  }
  return false;
}

// The code set the host's locale settings name, read the way setlocale
// would: LC_ALL, then LC_CTYPE, then LANG.
D_INT4 formatFromLocale() {
  const char *locale = nullptr;
  for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char *v = std::getenv(name);
    if (v != nullptr && *v != '\0') {
      locale = v;
      break;
    }
  }
  if (locale == nullptr) return D_CHAR_FORMAT_ASCII;
  std::string_view l(locale);
  std::size_t dot = l.find('.');
  if (dot == std::string_view::npos) return D_CHAR_FORMAT_ASCII;
  std::string_view codeset = l.substr(dot + 1);
  codeset = codeset.substr(0, codeset.find('@'));
  if (containsNoCase(codeset, "utf-8") || containsNoCase(codeset, "utf8")) return D_CHAR_FORMAT_UTF8;
  if (containsNoCase(codeset, "8859-1") || containsNoCase(codeset, "88591") || containsNoCase(codeset, "latin1") ||
      containsNoCase(codeset, "1252")) {
    return D_CHAR_FORMAT_LATIN1;
  }
  return D_CHAR_FORMAT_ASCII;
}

}  // namespace

extern "C" {

D_EXPORT void DutWinSleep(D_REAL8 seconds) { vq::os::sleepSeconds(seconds); }

D_EXPORT D_BOOL DutWinStartWinsock(void) { return vq::os::socketsStart() ? D_TRUE : D_FALSE; }
D_EXPORT void DutWinEndWinsock(void) { vq::os::socketsEnd(); }

D_EXPORT D_INT4 DutWinVersionInfo(void) { return vq::os::systemFamily(); }

D_EXPORT D_BOOL DutGetSystemInfo(D_SYSTEM_INFO *info) {
  if (info == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  // Zeroed, so that a record sent on as it is carries no stale bytes.
  std::memset(info, 0, sizeof *info);
  if (vq::os::systemInfo(info->sysname, info->nodename, info->release, info->version, info->machine,
                         D_SYSTEM_INFO_TEXT_SIZE)) {
    return D_TRUE;
  }
  DutErrNumSetOs(vq::os::lastError());
  std::memset(info, 0, sizeof *info);
  return D_FALSE;
}

D_EXPORT D_INT4 DutGetCharFormatSystemDefault(void) { return formatFromLocale(); }

D_EXPORT D_INT4 DutGetCharFormat(void) {
  D_INT4 format;
  {
    vq::ProcessLock lock;
    format = utCharFormat;
  }
  return format != 0 ? format : DutGetCharFormatSystemDefault();
}

D_EXPORT D_BOOL DutSetCharFormat(D_INT4 format) {
  if (!knownFormat(format)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  utCharFormat = format;
  return D_TRUE;
}

}  // extern "C"
