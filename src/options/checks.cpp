// Verify functions of the standard options that name things: classes and
// attributes, subject prefixes, monitoring scopes and unique subjects; and
// the default unique subject of a process.
#include "vqutil/stdopt.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "vqutil/error.h"
#include "vqutil/init.h"
#include "vqutil/net.h"
#include "vqutil/output.h"

namespace {

D_BOOL refuse(const char *format, const D_OPTION *option) {
  DutOut(format, option->name);
  DutErrNumSet(D_ERR_VAL_INVALID);
  return D_FALSE;
}

D_BOOL refuseWildcard(const D_OPTION *option, char wildcard) {
  DutOut("The option <%s> must not contain the wildcard '%c'.\n", option->name, wildcard);
  DutErrNumSet(D_ERR_VAL_INVALID);
  return D_FALSE;
}

// Blanks and control characters would split the name when it is written
// into a command line or a message header.
bool hasBlankOrControl(std::string_view text) {
  for (char c : text) {
    auto u = static_cast<unsigned char>(c);
    if (u <= ' ' || u == 0x7f) return true;
  }
  return false;
}

// A subject path: "/" then non-empty levels separated by "/". With
// allow_star the last level may be exactly "*".
D_BOOL checkSubjectPath(const D_OPTION *option, std::string_view text, bool allow_star) {
  if (text.empty() || text.front() != '/') return refuse("The option <%s> must start with '/'.\n", option);
  if (hasBlankOrControl(text))
    return refuse("The option <%s> must not contain blanks or control characters.\n", option);
  if (text.find('?') != std::string_view::npos) return refuseWildcard(option, '?');
  std::string_view rest = text.substr(1);
  for (;;) {
    std::size_t slash = rest.find('/');
    std::string_view level = rest.substr(0, slash);
    bool last = slash == std::string_view::npos;
    if (level.empty()) return refuse("The option <%s> must not contain an empty level.\n", option);
    if (level.find('*') != std::string_view::npos) {
      if (!allow_star) return refuseWildcard(option, '*');
      if (level != "*" || !last)
        return refuse("The option <%s> may use '*' only as its whole last level.\n", option);
    }
    if (last) return D_TRUE;
    rest = rest.substr(slash + 1);
  }
}

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutOptionNameCheck(D_OPTION *option, void *new_value, void *) {
  if (new_value == nullptr) return D_TRUE;
  const char *text = static_cast<const char *>(new_value);
  if (text[0] == '\0') return refuse("The option <%s> must not be empty.\n", option);
  if (DutIdIsValid(text)) return D_TRUE;
  DutOut("The option <%s> must be a name of letters, digits, '_' and '%%', not starting with a digit: <%s>.\n",
         option->name, text);
  DutErrNumSet(D_ERR_VAL_INVALID);
  return D_FALSE;
}

D_EXPORT D_BOOL DutOptionPrefixCheck(D_OPTION *option, void *new_value, void *) {
  if (new_value == nullptr) return D_TRUE;
  return checkSubjectPath(option, static_cast<const char *>(new_value), false);
}

D_EXPORT D_BOOL DutOptionScopeCheck(D_OPTION *option, void *new_value, void *) {
  if (new_value == nullptr) return D_TRUE;
  return checkSubjectPath(option, static_cast<const char *>(new_value), true);
}

D_EXPORT D_BOOL DutOptionUniqueCheck(D_OPTION *option, void *new_value, void *) {
  if (new_value == nullptr) return D_TRUE;
  std::string_view text = static_cast<const char *>(new_value);
  if (text.empty()) return refuse("The option <%s> must not be empty.\n", option);
  if (hasBlankOrControl(text))
    return refuse("The option <%s> must not contain blanks or control characters.\n", option);
  if (text.find('/') != std::string_view::npos)
    return refuse("The option <%s> must be a single level without '/'.\n", option);
  for (char wildcard : {'*', '?'}) {
    if (text.find(wildcard) != std::string_view::npos) return refuseWildcard(option, wildcard);
  }
  return D_TRUE;
}

D_EXPORT char *DutOptionGetUniqueSubjectDefault(char *buffer, D_WORD number) {
  if (buffer == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  char node[D_NODE_NAME_SIZE];
  DutGetNodeName(node);
  if (std::getenv("VQ_FORCE_SHORT_NODE_NAME") != nullptr) {
    char *dot = std::strchr(node, '.');
    if (dot != nullptr) *dot = '\0';
  }
  // Negative numbers print as hexadecimal: no "-" then ever enters the name.
  if (number >= 0)
    std::snprintf(buffer, D_UNIQUE_SUBJECT_SIZE, "_%s_%lld", node, static_cast<long long>(number));
  else
    std::snprintf(buffer, D_UNIQUE_SUBJECT_SIZE, "_%s_%llx", node,
                  static_cast<unsigned long long>(static_cast<std::uintptr_t>(number)));
  return buffer;
}

}  // extern "C"
