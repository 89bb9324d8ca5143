// Option variables: the process-wide option table, typed values with legal
// values, verify functions and change callbacks, and their text forms.
#include "vqutil/option.h"

#include <array>
#include <cctype>
#include <cmath>
#include <cstring>

#include "command/lex_internal.hpp"
#include "containers/real_format.hpp"
#include "frame/check.hpp"
#include "options/option_internal.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/safestr.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "option.c";
constexpr D_INT4 kTableSize = 32;
constexpr D_INT4 kLegalValueTableSize = 5;

// The option table and the change-callback type, made together on first
// use and never destroyed.
D_HASH_TABLE *utOptionTable = nullptr;
D_CB_TYPE *utOptionCbType = nullptr;
// Text of the last DutOptionValToStr; created on first use.
D_SAFE_STRING utOptionValStr = {nullptr, 0, 0};

constexpr std::array<const char *, 7> kTypeWords = {
    "boolean", "enumerated", "numeric", "string", "enumerated list", "numeric list", "string list"};

// Old option names that command files still use.
struct LegacyName {
  const char *old_name;
  const char *new_name;
};
constexpr LegacyName kLegacyNames[] = {
    {"application", "project"},
    {"datagroups", "subjects"},
    {"unique_datagroup", "unique_subject"},
};

bool nullArg(const void *p) {
  if (p != nullptr) return false;
  DutErrNumSet(D_ERR_NULL_PTR);
  return true;
}

D_HASH_TABLE *ensureTable() {
  DutProcessMutexLock();
  if (utOptionTable == nullptr) {
    // Whichever call comes first, the caller's error number is its own.
    D_ERR_SAVE saved;
    DutErrNumSave(&saved);
    utOptionTable = DutHashCreateStri(kTableSize);
    VQ_ASSERT(utOptionCbType == nullptr, "utOptionCbType == NULL", kFile);
    utOptionCbType = DutCbTypeCreate(D_CB_TYPE_OPTION_CHANGE, "option_change");
    VQ_ASSERT(utOptionCbType != nullptr, "utOptionCbType", kFile);
    DutCbTypeSetGlobFlag(utOptionCbType, D_CB_GLOBALS_OK);
    DutCbTypeSetLocalFlag(utOptionCbType, D_CB_LOCAL_INDIRECT);
    // The table is in place before the standard options are created, so
    // their creation does not come back here.
    vq::options::createStandardOptions();
    DutErrNumRestore(&saved);
  }
  D_HASH_TABLE *table = utOptionTable;
  DutProcessMutexUnlock();
  return table;
}

char *copyString(const char *text, const char *label) {
  std::size_t n = std::strlen(text) + 1;
  auto *copy = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), label, kFile, __LINE__));
  std::memcpy(copy, text, n);
  return copy;
}

char *copyLower(const char *text, const char *label) {
  char *copy = copyString(text, label);
  for (char *p = copy; *p != '\0'; ++p) *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
  return copy;
}

void freeList(D_OPTION_STR_NODE *node) {
  while (node != nullptr) {
    D_OPTION_STR_NODE *next = node->next;
    DutFreeCheck(const_cast<char *>(node->str), "node->str", kFile, __LINE__);
    DutFreeCheck(node, "node", kFile, __LINE__);
    node = next;
  }
}

D_OPTION_STR_NODE *newNode(const char *text) {
  auto *node = static_cast<D_OPTION_STR_NODE *>(DutCallocCheck(sizeof(D_OPTION_STR_NODE), "new_node", kFile, __LINE__));
  node->str = copyString(text, "(new_node->str)");
  return node;
}

D_OPTION_STR_NODE *copyList(const D_OPTION_STR_NODE *first) {
  D_OPTION_STR_NODE *head = nullptr;
  D_OPTION_STR_NODE **tail = &head;
  for (const D_OPTION_STR_NODE *node = first; node != nullptr; node = node->next) {
    *tail = newNode(node->str);
    tail = &(*tail)->next;
  }
  return head;
}

void destroyValue(D_OPTION *option, void *value) {
  if (value == nullptr) return;
  switch (option->type) {
    case D_OPT_TYPE_BOOLEAN:
    case D_OPT_TYPE_NUMERIC:
    case D_OPT_TYPE_ENUM:
    case D_OPT_TYPE_STRING:
      DutFreeCheck(value, "option->value", kFile, __LINE__);
      return;
    case D_OPT_TYPE_ENUM_LIST:
    case D_OPT_TYPE_STRING_LIST:
      freeList(static_cast<D_OPTION_STR_NODE *>(value));
      return;
    default:
      DutWarning("utOptionValueDestroy: bad type %d for option %s.\n", static_cast<int>(option->type), option->name);
      return;
  }
}

// A fresh copy of the caller's value in the stored form of the option's
// type; null for a type that cannot hold a value.
void *copyValue(D_OPTION *option, const void *value) {
  switch (option->type) {
    case D_OPT_TYPE_BOOLEAN: {
      auto *copy = static_cast<D_INT4 *>(DutMallocCheck(sizeof(D_INT4), "new_value", kFile, __LINE__));
      *copy = *static_cast<const D_INT4 *>(value);
      return copy;
    }
    case D_OPT_TYPE_NUMERIC: {
      auto *copy = static_cast<D_REAL8 *>(DutMallocCheck(sizeof(D_REAL8), "new_value", kFile, __LINE__));
      *copy = *static_cast<const D_REAL8 *>(value);
      return copy;
    }
    case D_OPT_TYPE_ENUM:
    case D_OPT_TYPE_STRING:
      return copyString(static_cast<const char *>(value), "new_value");
    case D_OPT_TYPE_ENUM_LIST:
    case D_OPT_TYPE_STRING_LIST:
      return copyList(static_cast<const D_OPTION_STR_NODE *>(value));
    default:
      DutWarning("utOptionSet: cannot set option <%s>.\n", option->name);
      DutWarning("utOptionSet: setting type %d not implemented.\n", static_cast<int>(option->type));
      DutErrNumSet(D_ERR_TYPE_INVALID);
      return nullptr;
  }
}

// Every change ends here with a value the option now owns (or null for
// unknown): read-only, verify, store, then the change callbacks.
bool commit(D_OPTION *option, void *new_value) {
  if (option->read_only) {
    destroyValue(option, new_value);
    DutErrNumSet(D_ERR_READ_ONLY);
    return false;
  }
  if (option->verify_func != nullptr) {
    DutErrNumSet(0);
    if (!option->verify_func(option, new_value, option->verify_arg)) {
      if (DutErrNumGet() == 0) DutErrNumSet(D_ERR_VERIFY_FAILED);
      destroyValue(option, new_value);
      return false;
    }
  }
  destroyValue(option, option->value);
  option->value = new_value;
  if (utOptionCbType != nullptr) {
    D_OPTION_CHANGE_DATA data = {nullptr, new_value};
    DutCbTypeCall(utOptionCbType, option, &data);
  }
  return true;
}

bool nameIs(const D_OPTION *option, const char *name) { return std::strcmp(option->name, name) == 0; }

// Null checks and the type check shared by the setters and getters.
bool usable(D_OPTION *option, const void *value, D_INT4 type, D_INT4 alt_type = -1, const char *alt_name = nullptr) {
  if (nullArg(option) || nullArg(value)) return false;
  if (option->type == type) return true;
  if (alt_name != nullptr && option->type == alt_type && nameIs(option, alt_name)) return true;
  DutErrNumSet(D_ERR_TYPE_INVALID);
  return false;
}

bool setFlag(D_OPTION *option, D_INT4 flag, D_INT4 *field) {
  if (nullArg(option)) return false;
  if (flag != 0 && flag != 1) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return false;
  }
  *field = flag;
  return true;
}

template <typename T>
bool getField(D_OPTION *option, T *out, T value) {
  if (nullArg(option) || nullArg(out)) return false;
  *out = value;
  return true;
}

// The stored value for a getter, or null with the error set.
const void *knownValue(D_OPTION *option, const void *out, D_INT4 type, D_INT4 alt_type = -1,
                       const char *alt_name = nullptr) {
  if (!usable(option, out, type, alt_type, alt_name)) return nullptr;
  if (option->value == nullptr) {
    DutErrNumSet(D_ERR_VAL_UNKNOWN);
    return nullptr;
  }
  return option->value;
}

D_WORD printLegalValue(D_WORD key, D_WORD, void *) {
  DutOut(" %s", reinterpret_cast<const char *>(key));
  return 0;
}

// While a list is being read, a lexical error may leave through a long
// jump; this error function frees the items read so far and hands over to
// the lexer's own error function, or to the global one (which a host may
// have made jump too).
struct ListGuard {
  D_LEX_ERROR_FUNC saved_func;
  void *saved_arg;
  D_OPTION_STR_NODE *head;
};

void listErrorFunc(D_LEX *lexer, const char *format, va_list args, void *arg) {
  auto *guard = static_cast<ListGuard *>(arg);
  freeList(guard->head);
  guard->head = nullptr;
  lexer->error_func = guard->saved_func;
  lexer->error_arg = guard->saved_arg;
  D_LEX_ERROR_FUNC func = guard->saved_func != nullptr ? guard->saved_func : vq::lex::globalErrorFunc();
  func(lexer, format, args, guard->saved_arg);
}

// Reads one list item; D_FALSE when the lexer reported an error.
bool acceptItem(D_LEX *lexer, D_INT4 type) {
  if (type == D_OPT_TYPE_ENUM_LIST) return DutLexAcceptId(lexer) != 0;
  if (DutLexGetToken(lexer) == D_TOK_STRING) return DutLexAccept(lexer, D_TOK_STRING) != 0;
  return DutLexAcceptFileName(lexer) != 0;
}

bool parseList(D_OPTION *option, D_LEX *lexer) {
  ListGuard guard = {lexer->error_func, lexer->error_arg, nullptr};
  lexer->error_func = listErrorFunc;
  lexer->error_arg = &guard;
  D_OPTION_STR_NODE **tail = &guard.head;
  bool more = true;
  while (more) {
    if (!acceptItem(lexer, option->type)) {
      freeList(guard.head);
      return false;
    }
    *tail = newNode(DutLexGetText(lexer));
    tail = &(*tail)->next;
    more = DutLexGetToken(lexer) == D_TOK_COMMA;
    if (more && !DutLexAccept(lexer, D_TOK_COMMA)) {
      freeList(guard.head);
      return false;
    }
  }
  lexer->error_func = guard.saved_func;
  lexer->error_arg = guard.saved_arg;
  return commit(option, guard.head);
}

D_BOOL parseEnum(D_OPTION *option, D_LEX *lexer) {
  if (!DutLexAcceptId(lexer)) return D_FALSE;
  const char *text = DutLexGetText(lexer);
  if (DutOptionSetEnum(option, text)) return D_TRUE;
  // A verify function may refuse with the same number on an option without
  // legal values; only a legal-value refusal lists them.
  if (DutErrNumGet() == D_ERR_VAL_INVALID && option->type == D_OPT_TYPE_ENUM && option->legvals != nullptr &&
      DutHashLookup(option->legvals, reinterpret_cast<D_WORD>(text)) == 0) {
    DutOut("<%s> is not a legal value for enumerated option %s.\n", text, option->name);
    DutOut("Legal values:");
    DutHashTraverse(option->legvals, printLegalValue, nullptr);
    DutOut("\n");
    DutErrNumSet(D_ERR_VAL_INVALID);
  }
  return D_FALSE;
}

void appendQuoted(D_SAFE_STRING *out, const char *text) {
  DutSafeStringAppendChar(out, '"');
  DutSafeStringAppend(out, text);
  DutSafeStringAppendChar(out, '"');
}

void appendList(D_SAFE_STRING *out, const D_OPTION_STR_NODE *node, bool quoted) {
  for (bool first = true; node != nullptr; node = node->next, first = false) {
    if (!first) DutSafeStringAppend(out, ", ");
    if (quoted)
      appendQuoted(out, node->str);
    else
      DutSafeStringAppend(out, node->str);
  }
}

D_OPTION *lookupNumeric(const char *name) {
  D_OPTION *option = DutOptionLookup(name);
  if (option == nullptr) {
    DutOut("DutOptionSetNumValue: Unknown option: %s\n", name);
    return nullptr;
  }
  if (option->type != D_OPT_TYPE_NUMERIC) {
    DutOut("DutOptionSetNumValue: option %s not numeric\n", name);
    return nullptr;
  }
  return option;
}

void copyInt(void *option, void *data, D_WORD arg) {
  VQ_ASSERT(option != nullptr, "option != NULL", kFile);
  VQ_ASSERT(data != nullptr, "data != NULL", kFile);
  auto *change = static_cast<D_OPTION_CHANGE_DATA *>(data);
  VQ_ASSERT(change->value != nullptr, "data->value != NULL", kFile);
  VQ_ASSERT(arg != 0, "arg != 0", kFile);
  D_REAL8 v = *static_cast<const D_REAL8 *>(change->value);
  D_INT4 result = 0;
  // Saturate: converting an out-of-range real is undefined.
  if (std::isnan(v))
    result = 0;
  else if (v >= 2147483647.0)
    result = 2147483647;
  else if (v <= -2147483648.0)
    result = -2147483647 - 1;
  else
    result = static_cast<D_INT4>(v);
  *reinterpret_cast<D_INT4 *>(arg) = result;
}

}  // namespace

extern "C" {

// ---- Creation and lookup ----------------------------------------------------

D_EXPORT D_OPTION *DutOptionCreate(const char *name, D_INT4 type) {
  if (nullArg(name)) return nullptr;
  if (type < D_OPT_TYPE_BOOLEAN || type > D_OPT_TYPE_STRING_LIST) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return nullptr;
  }
  D_HASH_TABLE *table = ensureTable();
  DutProcessMutexLock();
  if (DutHashLookup(table, reinterpret_cast<D_WORD>(name)) != 0) {
    DutProcessMutexUnlock();
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return nullptr;
  }
  auto *option = static_cast<D_OPTION *>(DutCallocCheck(sizeof(D_OPTION), "new_option", kFile, __LINE__));
  option->name = copyLower(name, "(new_option->name)");
  option->type = type;
  DutHashInsert(table, reinterpret_cast<D_WORD>(option->name), reinterpret_cast<D_WORD>(option));
  DutProcessMutexUnlock();
  return option;
}

D_EXPORT D_BOOL DutOptionDestroy(D_OPTION *option) {
  if (nullArg(option)) return D_FALSE;
  D_HASH_TABLE *table = ensureTable();
  DutProcessMutexLock();
  auto *del_option = reinterpret_cast<D_OPTION *>(DutHashDelete(table, reinterpret_cast<D_WORD>(option->name)));
  VQ_ASSERT(del_option == option, "del_option == option", kFile);
  DutProcessMutexUnlock();
  vq::strings::forgetRealNumberFormatOption(option);
  destroyValue(option, option->value);
  option->value = nullptr;
  if (option->legvals != nullptr) DutHashDestroyFreeKey(option->legvals);
  DutCbObjClear(utOptionCbType, option);
  DutFreeCheck(option->name, "option->name", kFile, __LINE__);
  DutFreeCheck(option, "option", kFile, __LINE__);
  return D_TRUE;
}

D_EXPORT D_OPTION *DutOptionLookup(const char *name) {
  if (nullArg(name)) return nullptr;
  for (const LegacyName &legacy : kLegacyNames) {
    if (DutStrCmpi(name, legacy.old_name) == 0) {
      name = legacy.new_name;
      break;
    }
  }
  D_HASH_TABLE *table = ensureTable();
  vq::ProcessLock lock;
  return reinterpret_cast<D_OPTION *>(DutHashLookup(table, reinterpret_cast<D_WORD>(name)));
}

D_EXPORT D_HASH_TABLE *DutGetOptionTable(void) { return ensureTable(); }

D_EXPORT D_OPTION **DutOptionSort(D_INT4 *num_options_return) {
  VQ_ASSERT(num_options_return != nullptr, "num_options_return != NULL", kFile);
  D_HASH_TABLE *table = ensureTable();
  vq::ProcessLock lock;
  return reinterpret_cast<D_OPTION **>(DutHashSort(table, num_options_return, nullptr, nullptr));
}

D_EXPORT D_WORD DutOptionTraverse(D_HASH_TRAV_FUNC func, void *arg) {
  VQ_ASSERT(func != nullptr, "func != NULL", kFile);
  D_HASH_TABLE *table = ensureTable();
  vq::ProcessLock lock;
  return DutHashTraverse(table, func, arg);
}

// ---- Flags, fields and legal values -------------------------------------------

D_EXPORT D_BOOL DutOptionSetRequired(D_OPTION *option, D_INT4 flag) {
  return setFlag(option, flag, option != nullptr ? &option->required : nullptr) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetReadOnly(D_OPTION *option, D_INT4 flag) {
  return setFlag(option, flag, option != nullptr ? &option->read_only : nullptr) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionGetRequired(D_OPTION *option, D_INT4 *flag) {
  return getField(option, flag, option != nullptr ? option->required : 0) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionGetReadOnly(D_OPTION *option, D_INT4 *flag) {
  return getField(option, flag, option != nullptr ? option->read_only : 0) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionGetType(D_OPTION *option, D_INT4 *type) {
  return getField(option, type, option != nullptr ? option->type : 0) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionGetKnown(D_OPTION *option, D_INT4 *known) {
  return getField(option, known, static_cast<D_INT4>(option != nullptr && option->value != nullptr)) ? D_TRUE
                                                                                                   : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetVerifyFunc(D_OPTION *option, D_OPTION_VERIFY_FUNC func, void *arg) {
  if (nullArg(option)) return D_FALSE;
  option->verify_func = func;
  option->verify_arg = arg;
  return D_TRUE;
}

D_EXPORT D_BOOL DutOptionGetVerifyFunc(D_OPTION *option, D_OPTION_VERIFY_FUNC *func) {
  return getField(option, func, option != nullptr ? option->verify_func : nullptr) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionLegValAdd(D_OPTION *option, const char *value) {
  if (!usable(option, value, D_OPT_TYPE_ENUM)) return D_FALSE;
  if (DutStrCmpi(value, "unknown") == 0) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  if (option->legvals == nullptr) {
    option->legvals = DutHashCreateStri(kLegalValueTableSize);
  } else if (DutHashLookup(option->legvals, reinterpret_cast<D_WORD>(value)) != 0) {
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return D_FALSE;
  }
  char *copy = copyLower(value, "(new_legval)");
  DutHashInsert(option->legvals, reinterpret_cast<D_WORD>(copy), reinterpret_cast<D_WORD>(copy));
  return D_TRUE;
}

D_EXPORT D_WORD DutOptionLegValTraverse(D_OPTION *option, D_HASH_TRAV_FUNC func, void *arg) {
  VQ_ASSERT(option != nullptr, "option", kFile);
  VQ_ASSERT(func != nullptr, "func", kFile);
  VQ_ASSERT(option->type == D_OPT_TYPE_ENUM, "D_GOPT_TYPE(option) == D_OPT_TYPE_ENUM", kFile);
  if (option->legvals == nullptr) return 0;
  return DutHashTraverse(option->legvals, func, arg);
}

// ---- Typed setters ---------------------------------------------------------------

D_EXPORT D_BOOL DutOptionSetBool(D_OPTION *option, D_INT4 flag) {
  if (!usable(option, &flag, D_OPT_TYPE_BOOLEAN)) return D_FALSE;
  if (flag != 0 && flag != 1) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  return commit(option, copyValue(option, &flag)) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetEnum(D_OPTION *option, const char *value) {
  if (!usable(option, value, D_OPT_TYPE_ENUM, D_OPT_TYPE_STRING, "unique_subject")) return D_FALSE;
  if (option->type == D_OPT_TYPE_ENUM && option->legvals != nullptr &&
      DutHashLookup(option->legvals, reinterpret_cast<D_WORD>(value)) == 0) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  return commit(option, copyValue(option, value)) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetEnumList(D_OPTION *option, const D_OPTION_STR_NODE *first) {
  if (!usable(option, first, D_OPT_TYPE_ENUM_LIST, D_OPT_TYPE_STRING_LIST, "subjects")) return D_FALSE;
  return commit(option, copyValue(option, first)) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetNum(D_OPTION *option, D_REAL8 value) {
  if (!usable(option, &value, D_OPT_TYPE_NUMERIC)) return D_FALSE;
  return commit(option, copyValue(option, &value)) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetStr(D_OPTION *option, const char *value) {
  if (!usable(option, value, D_OPT_TYPE_STRING)) return D_FALSE;
  return commit(option, copyValue(option, value)) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetStrList(D_OPTION *option, const D_OPTION_STR_NODE *first) {
  if (!usable(option, first, D_OPT_TYPE_STRING_LIST)) return D_FALSE;
  return commit(option, copyValue(option, first)) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutOptionSetUnknown(D_OPTION *option) {
  if (nullArg(option)) return D_FALSE;
  if (option->required) {
    DutErrNumSet(D_ERR_VAL_REQUIRED);
    return D_FALSE;
  }
  return commit(option, nullptr) ? D_TRUE : D_FALSE;
}

// ---- Typed getters ------------------------------------------------------------------

D_EXPORT D_BOOL DutOptionGetBool(D_OPTION *option, D_INT4 *value) {
  const void *stored = knownValue(option, value, D_OPT_TYPE_BOOLEAN);
  if (stored == nullptr) return D_FALSE;
  *value = *static_cast<const D_INT4 *>(stored);
  return D_TRUE;
}

D_EXPORT D_BOOL DutOptionGetEnum(D_OPTION *option, const char **value) {
  const void *stored = knownValue(option, value, D_OPT_TYPE_ENUM, D_OPT_TYPE_STRING, "unique_subject");
  if (stored == nullptr) return D_FALSE;
  *value = static_cast<const char *>(stored);
  return D_TRUE;
}

D_EXPORT D_BOOL DutOptionGetNum(D_OPTION *option, D_REAL8 *value) {
  const void *stored = knownValue(option, value, D_OPT_TYPE_NUMERIC);
  if (stored == nullptr) return D_FALSE;
  *value = *static_cast<const D_REAL8 *>(stored);
  return D_TRUE;
}

D_EXPORT D_BOOL DutOptionGetStr(D_OPTION *option, const char **value) {
  const void *stored = knownValue(option, value, D_OPT_TYPE_STRING);
  if (stored == nullptr) return D_FALSE;
  *value = static_cast<const char *>(stored);
  return D_TRUE;
}

D_EXPORT D_BOOL DutOptionGetEnumList(D_OPTION *option, const D_OPTION_STR_NODE **first) {
  const void *stored = knownValue(option, first, D_OPT_TYPE_ENUM_LIST, D_OPT_TYPE_STRING_LIST, "subjects");
  if (stored == nullptr) return D_FALSE;
  *first = static_cast<const D_OPTION_STR_NODE *>(stored);
  return D_TRUE;
}

D_EXPORT D_BOOL DutOptionGetStrList(D_OPTION *option, const D_OPTION_STR_NODE **first) {
  const void *stored = knownValue(option, first, D_OPT_TYPE_STRING_LIST);
  if (stored == nullptr) return D_FALSE;
  *first = static_cast<const D_OPTION_STR_NODE *>(stored);
  return D_TRUE;
}

// ---- By name --------------------------------------------------------------------------

D_EXPORT void *DutOptionSet(const char *name, const void *option_value) {
  VQ_ASSERT(name != nullptr, "name != NULL", kFile);
  VQ_ASSERT(option_value != nullptr, "option_value != NULL", kFile);
  D_OPTION *option = DutOptionLookup(name);
  if (option == nullptr) {
    DutOut("DutOptionSet: unknown option <%s>\n", name);
    return nullptr;
  }
  void *copy = copyValue(option, option_value);
  if (copy == nullptr) return nullptr;
  return commit(option, copy) ? option->value : nullptr;
}

D_EXPORT D_BOOL DutOptionUnset(const char *name) {
  D_OPTION *option = DutOptionLookup(name);
  if (option == nullptr) {
    DutOut("Cannot unset <%s>: no such option.\n", name != nullptr ? name : "(null)");
    return D_FALSE;
  }
  return DutOptionSetUnknown(option);
}

D_EXPORT void *DutOptionGetValue(const char *name) {
  D_OPTION *option = DutOptionLookup(name);
  if (option == nullptr) {
    DutWarning("DutOptionGetValue: unknown option <%s>.\n", name != nullptr ? name : "(null)");
    return nullptr;
  }
  return option->value;
}

D_EXPORT D_REAL8 DutOptionGetNumValue(const char *name) {
  D_OPTION *option = lookupNumeric(name);
  if (option == nullptr || option->value == nullptr) return 0.0;
  return *static_cast<const D_REAL8 *>(option->value);
}

D_EXPORT void *DutOptionSetNumValue(const char *name, D_REAL8 value) {
  if (lookupNumeric(name) == nullptr) return nullptr;
  return DutOptionSet(name, &value);
}

// ---- Parsing and printing -------------------------------------------------------------

D_EXPORT D_BOOL DutOptionParseValue(D_OPTION *option, D_LEX *lexer) {
  VQ_ASSERT(option != nullptr, "option != NULL", kFile);
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (DutLexGetToken(lexer) >= D_TOK_IDENTIFIER && DutStrCmpi(DutLexGetTokenText(lexer), "unknown") == 0) {
    if (!DutLexAcceptId(lexer)) return D_FALSE;
    return DutOptionSetUnknown(option);
  }
  switch (option->type) {
    case D_OPT_TYPE_BOOLEAN: {
      if (!DutLexAcceptId(lexer)) return D_FALSE;
      const char *text = DutLexGetText(lexer);
      if (std::strcmp(text, "true") == 0) return DutOptionSetBool(option, 1);
      if (std::strcmp(text, "false") == 0) return DutOptionSetBool(option, 0);
      DutWarning("Bad boolean value <%s> for option <%s>.\n", text, option->name);
      return D_FALSE;
    }
    case D_OPT_TYPE_ENUM:
      return parseEnum(option, lexer);
    case D_OPT_TYPE_NUMERIC: {
      D_REAL8 value = 0.0;
      if (!vq::lex::acceptSignedReal(lexer, &value)) return D_FALSE;
      return DutOptionSetNum(option, value);
    }
    case D_OPT_TYPE_STRING: {
      bool ok = DutLexGetToken(lexer) == D_TOK_STRING ? DutLexAccept(lexer, D_TOK_STRING) != 0
                                                      : DutLexAcceptFileName(lexer) != 0;
      if (!ok) return D_FALSE;
      return DutOptionSetStr(option, DutLexGetText(lexer));
    }
    case D_OPT_TYPE_ENUM_LIST:
    case D_OPT_TYPE_STRING_LIST:
      return parseList(option, lexer) ? D_TRUE : D_FALSE;
    default:
      DutWarning("DutOptionParseValue: bad type %d for option %s.\n", static_cast<int>(option->type), option->name);
      return D_FALSE;
  }
}

D_EXPORT const char *DutOptionValToStr(D_OPTION *option) {
  if (nullArg(option)) return nullptr;
  vq::ProcessLock lock;
  if (D_SAFE_STRING_STR(utOptionValStr) == nullptr) utOptionValStr = DutSafeStringCreate();
  D_SAFE_STRING *out = &utOptionValStr;
  DutSafeStringClear(out);
  const void *value = option->value;
  if (value == nullptr) {
    DutSafeStringAppend(out, "UNKNOWN");
    return D_SAFE_STRING_STR(*out);
  }
  switch (option->type) {
    case D_OPT_TYPE_BOOLEAN:
      DutSafeStringAppend(out, *static_cast<const D_INT4 *>(value) ? "TRUE" : "FALSE");
      break;
    case D_OPT_TYPE_ENUM:
      DutSafeStringAppend(out, static_cast<const char *>(value));
      break;
    case D_OPT_TYPE_NUMERIC:
      DutSafeStringAppend(out, DutRealToStr(*static_cast<const D_REAL8 *>(value)));
      break;
    case D_OPT_TYPE_STRING:
      appendQuoted(out, static_cast<const char *>(value));
      break;
    case D_OPT_TYPE_ENUM_LIST:
      appendList(out, static_cast<const D_OPTION_STR_NODE *>(value), false);
      break;
    case D_OPT_TYPE_STRING_LIST:
      appendList(out, static_cast<const D_OPTION_STR_NODE *>(value), true);
      break;
    default:
      DutWarning("DutOptionValToStr: bad type %d for option %s.\n", static_cast<int>(option->type), option->name);
      break;
  }
  return D_SAFE_STRING_STR(*out);
}

D_EXPORT D_BOOL DutOptionDump(const char *name, D_PRINT_FUNC output) {
  VQ_ASSERT(output != nullptr, "output_func", kFile);
  if (name != nullptr) {
    D_OPTION *option = DutOptionLookup(name);
    if (option == nullptr) {
      output("No option named <%s>\n", name);
      return D_FALSE;
    }
    output("%s ", option->name);
    output("%s\n", DutOptionValToStr(option));
    return D_TRUE;
  }
  D_INT4 count = 0;
  D_OPTION **sorted = DutOptionSort(&count);
  for (D_INT4 i = 0; i < count; ++i) {
    if (sorted[i]->name[0] == '_') continue;
    output("%s ", sorted[i]->name);
    output("%s\n", DutOptionValToStr(sorted[i]));
  }
  if (sorted != nullptr) DutFreeCheck(sorted, "options", kFile, __LINE__);
  return D_TRUE;
}

D_EXPORT const char *DutOptionTypeToStr(D_INT4 type) {
  if (type < 0 || type >= static_cast<D_INT4>(kTypeWords.size())) {
    DutWarning("DutOptionTypeToStr: bad option type %d.\n", static_cast<int>(type));
    return "bad type";
  }
  return kTypeWords[static_cast<std::size_t>(type)];
}

// ---- Change callbacks -------------------------------------------------------------------

D_EXPORT D_CB *DutOptionChangeCbCreate(D_OPTION *option, D_CB_FUNC func, D_WORD arg) {
  ensureTable();
  if (nullArg(reinterpret_cast<const void *>(func))) return nullptr;
  return DutCbTypeCbCreate(utOptionCbType, option, func, arg);
}

D_EXPORT D_CB *DutOptionChangeCbLookup(D_OPTION *option, D_CB_FUNC func, D_WORD arg) {
  ensureTable();
  if (nullArg(reinterpret_cast<const void *>(func))) return nullptr;
  return DutCbTypeCbLookup(utOptionCbType, option, func, arg);
}

D_EXPORT void DutCbOptionCopyBool(void *option, void *data, D_WORD arg) {
  VQ_ASSERT(option != nullptr, "option != NULL", kFile);
  VQ_ASSERT(data != nullptr, "data != NULL", kFile);
  auto *change = static_cast<D_OPTION_CHANGE_DATA *>(data);
  VQ_ASSERT(change->value != nullptr, "data->value != NULL", kFile);
  VQ_ASSERT(arg != 0, "arg != 0", kFile);
  *reinterpret_cast<D_INT4 *>(arg) = *static_cast<const D_INT4 *>(change->value);
}

D_EXPORT void DutCbOptionCopyInt(void *option, void *data, D_WORD arg) { copyInt(option, data, arg); }

D_EXPORT void DutCbOptionCopyInt4(void *option, void *data, D_WORD arg) { copyInt(option, data, arg); }

// ---- Verify functions -------------------------------------------------------------------

D_EXPORT D_BOOL DutOptionVerifyNonNeg(D_OPTION *option, void *new_value, void *) {
  if (new_value == nullptr) return D_TRUE;
  if (*static_cast<const D_REAL8 *>(new_value) >= 0.0) return D_TRUE;
  DutOut("The option <%s> must be nonnegative.\n", option->name);
  DutErrNumSet(D_ERR_VAL_TOO_SMALL);
  return D_FALSE;
}

D_EXPORT D_BOOL DutOptionVerifyInt2(D_OPTION *option, void *new_value, void *) {
  if (new_value == nullptr) return D_TRUE;
  D_REAL8 v = *static_cast<const D_REAL8 *>(new_value);
  if (v >= -32768.0 && v <= 32767.0 && static_cast<D_REAL8>(static_cast<D_INT2>(v)) == v) return D_TRUE;
  DutOut("The option <%s> must be a valid two-byte integer.\n", option->name);
  DutErrNumSet(D_ERR_VAL_INVALID);
  return D_FALSE;
}

D_EXPORT D_BOOL DutOptionRealNumberFormatVf(D_OPTION *option, void *new_value, void *dummy) {
  VQ_ASSERT(dummy == nullptr, "dummy == NULL", kFile);
  if (new_value == nullptr) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  const char *text = static_cast<const char *>(new_value);
  constexpr const char kOverride[] = "OVERRIDE:";
  constexpr D_INT4 kOverrideLength = sizeof kOverride - 1;
  if (DutStrNCmpi(text, kOverride, kOverrideLength) == 0) {
    DutOut("Accepting override value for %s of <%s>\n", option->name, text + kOverrideLength);
    return D_TRUE;
  }
  if (text[0] != '%') {
    DutOut("The option <%s> must start with '%%'.\n", option->name);
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  const char *p = text + 1;
  while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr) ++p;
  while (std::isdigit(static_cast<unsigned char>(*p))) ++p;
  if (*p == '.') ++p;
  while (std::isdigit(static_cast<unsigned char>(*p))) ++p;
  if (*p == 'l') ++p;
  if (*p == '\0' || std::strchr("efgEG", *p) == nullptr) {
    DutOut("Illegal character '%c' in option <%s>.\n", *p, option->name);
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  ++p;
  if (*p != '\0') {
    DutOut("Bad character '%c' in option <%s> after end of valid format.\n", *p, option->name);
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  return D_TRUE;
}

}  // extern "C"
