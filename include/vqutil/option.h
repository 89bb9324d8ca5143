/**
 * @defgroup option Options
 * Option variables.
 *
 * Options are the library's named, typed, process-wide settings. Each has
 * a type (D_OPT_TYPE_...), a value that may be unknown, optional legal
 * values (enumerated options), a required flag (a required option cannot
 * be made unknown), a read-only flag (refuses every change), an optional
 * verify function and change callbacks that run after every successful
 * change. The command interpreter parses values with DutOptionParseValue;
 * library code reads them with the typed getters.
 *
 * The option table is created on first use (by DutOptionCreate,
 * DutOptionLookup, DutOptionSort, DutOptionTraverse, DutOptionDump,
 * DutOptionGetValue, DutOptionSet, DutOptionChangeCbCreate,
 * DutOptionChangeCbLookup or DutGetOptionTable), together with the
 * option-change callback type (-102, "option_change", globals ok, indirect)
 * and the library's standard options with their defaults.
 *
 * Names are lower-cased at creation and looked up ignoring case. Three old
 * names are still accepted by DutOptionLookup: "application" (now
 * "project"), "datagroups" ("subjects") and "unique_datagroup"
 * ("unique_subject").
 *
 * Changing a value: every setter copies the caller's value (the caller
 * keeps its own), then commits: a read-only option refuses (D_ERR_READ_ONLY
 * 28); the verify function, when set, is called with the error number
 * cleared to 0 and may refuse (its own error number stays, else
 * D_ERR_VERIFY_FAILED 17); the old value is freed, the new one stored, and
 * the change callbacks (the option's own and the global ones, merged by
 * priority) are called with a D_OPTION_CHANGE_DATA record. After a failed
 * change the old value stays and no callback runs.
 *
 * Stored values, reached with D_GOPT_VALUE or the getters: a D_INT4 (0 or
 * 1) for booleans, a D_REAL8 for numeric options, a NUL-terminated string
 * for enumerated and string options, the first D_OPTION_STR_NODE of a
 * chain for lists. The getters hand out the stored value itself, not a
 * copy: it stays the option's and is valid until the next change.
 *
 * Errors: D_ERR_NULL_PTR (3) for null arguments, D_ERR_VAL_TOO_SMALL (4)
 * from DutOptionVerifyNonNeg, D_ERR_ALREADY_EXISTS (6) for a duplicate
 * option or legal value, D_ERR_VAL_INVALID (7) for a bad value (a flag
 * other than 0/1, a type number out of range, an illegal enumerated value,
 * the library's verify functions), D_ERR_VAL_UNKNOWN (12) from the getters
 * of an unknown value, D_ERR_VAL_REQUIRED (13), D_ERR_TYPE_INVALID (14) for
 * the wrong option type, D_ERR_VERIFY_FAILED (17), D_ERR_READ_ONLY (28).
 *
 * Thread safety: the table (creation, destruction, lookup, sort, traverse,
 * dump order) and the shared text buffer of DutOptionValToStr are guarded
 * by the process-wide lock. Reading and changing the value of one option is
 * not locked: the caller serialises them.
 * @{
 */
/**
 * @file
 * @ingroup option
 * @brief Options (option).
 */
#ifndef VQUTIL_OPTION_H
#define VQUTIL_OPTION_H

#include "callback.h"
#include "hash.h"
#include "lex.h"
#include "types.h"

/** @{ */
/** Option types; the numbers are part of the interface. */
#define D_OPT_TYPE_BOOLEAN 0
#define D_OPT_TYPE_ENUM 1
#define D_OPT_TYPE_NUMERIC 2
#define D_OPT_TYPE_STRING 3
#define D_OPT_TYPE_ENUM_LIST 4
#define D_OPT_TYPE_NUMERIC_LIST 5 /**< can be created, never given a value */
#define D_OPT_TYPE_STRING_LIST 6
/** @} */

/** One item of a list value. Nodes handed to the setters stay the caller's;
 * the stored chain and its strings are the option's. */
typedef struct D_OPTION_STR_NODE {
  struct D_OPTION_STR_NODE *next; /**< next item, or null */
  const char *str;                /**< the item's text */
} D_OPTION_STR_NODE;

struct D_OPTION;

/** A verify function: called with the option, the new value in its stored
 * form (see above; null when the option is to become unknown) and the
 * argument given with it. Answers D_TRUE to accept. */
typedef D_BOOL (*D_OPTION_VERIFY_FUNC)(struct D_OPTION *option, void *new_value, void *arg);

/** An option variable: name, type, value and the rules a change obeys. */
typedef struct D_OPTION {
  char *name;                       /**< owned, lower case */
  D_INT4 type;                      /**< D_OPT_TYPE_... */
  void *value;                      /**< owned stored value, or null: unknown */
  D_OPTION_VERIFY_FUNC verify_func; /**< or null */
  void *verify_arg;                 /**< given to verify_func */
  D_INT4 required;                  /**< 0 or 1 */
  D_HASH_TABLE *legvals;            /**< enumerated: legal values, or null */
  D_INT4 read_only;                 /**< 0 or 1 */
} D_OPTION;

#define D_GOPT_NAME(option) ((option)->name) /**< `name` field */
#define D_GOPT_TYPE(option) ((option)->type) /**< `type` field */
#define D_GOPT_VALUE(option) ((option)->value) /**< `value` field */
#define D_GOPT_KNOWN(option) ((option)->value != D_NULL) /**< true when the option has a value */
#define D_GOPT_VERIFY_FUNC(option) ((option)->verify_func) /**< `verify_func` field */
#define D_GOPT_VERIFY_ARG(option) ((option)->verify_arg) /**< `verify_arg` field */
#define D_GOPT_REQUIRED(option) ((option)->required) /**< `required` field */
#define D_GOPT_LEGVALS(option) ((option)->legvals) /**< `legvals` field */
#define D_GOPT_READ_ONLY(option) ((option)->read_only) /**< `read_only` field */

/** The data record of the option-change callbacks: the reserved head (the
 * callback being called), then the option's new stored value (null when
 * the option became unknown). The callback's object is the option. */
typedef struct D_OPTION_CHANGE_DATA {
  D_CB *cb;    /**< the callback being called */
  void *value; /**< the new stored value, or null */
} D_OPTION_CHANGE_DATA;

D_BEGIN_DECLS

/* ---- Creation and lookup ----------------------------------------------- */

/** A new option, unknown, neither required nor read-only; the name is
 * copied and lower-cased. Null name: D_ERR_NULL_PTR; type outside 0..6:
 * D_ERR_VAL_INVALID; an existing name: D_ERR_ALREADY_EXISTS; each null. */
D_EXPORT D_OPTION *DutOptionCreate(const char *name, D_INT4 type);
/** Removes the option from the table and frees it with its value, legal
 * values and change callbacks. Null: D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutOptionDestroy(D_OPTION *option);
/** The option of that name (ignoring case; old names mapped), or null
 * (D_ERR_DOESNT_EXIST; a null name D_ERR_NULL_PTR). */
D_EXPORT D_OPTION *DutOptionLookup(const char *name);
/** The table from lower-case name to option. Owned by the library. */
D_EXPORT D_HASH_TABLE *DutGetOptionTable(void);
/** A new array of every option sorted by name, and its count; the caller
 * frees the array (DutFreeCheck), not the options. Null when there are
 * none. A null count pointer is an assertion failure. */
D_EXPORT D_OPTION **DutOptionSort(D_INT4 *num_options_return);
/** func(name, option, arg) over the table under the process-wide lock; the
 * first non-zero result stops it (see DutHashTraverse). A null func is an
 * assertion failure. */
D_EXPORT D_WORD DutOptionTraverse(D_HASH_TRAV_FUNC func, void *arg);

/* ---- Flags, fields and legal values -------------------------------------- */

/** @{ */
/** Set the required / read-only flag; flag must be 0 or 1, else
 * D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutOptionSetRequired(D_OPTION *option, D_INT4 flag);
D_EXPORT D_BOOL DutOptionSetReadOnly(D_OPTION *option, D_INT4 flag);
/** @} */
/** @{ */
/** Store the required flag, the read-only flag or the type in the out
 * argument. */
D_EXPORT D_BOOL DutOptionGetRequired(D_OPTION *option, D_INT4 *flag);
D_EXPORT D_BOOL DutOptionGetReadOnly(D_OPTION *option, D_INT4 *flag);
D_EXPORT D_BOOL DutOptionGetType(D_OPTION *option, D_INT4 *type);
/** @} */
/** Stores in *known 1 when the option has a value, else 0. */
D_EXPORT D_BOOL DutOptionGetKnown(D_OPTION *option, D_INT4 *known);
/** Sets the verify function and its argument; a null function removes
 * verification. */
D_EXPORT D_BOOL DutOptionSetVerifyFunc(D_OPTION *option, D_OPTION_VERIFY_FUNC func, void *arg);
/** Stores the verify function (or null) in *func. */
D_EXPORT D_BOOL DutOptionGetVerifyFunc(D_OPTION *option, D_OPTION_VERIFY_FUNC *func);
/** Adds a lower-cased copy of value to the legal values of an enumerated
 * option. Not enumerated: D_ERR_TYPE_INVALID; already legal (ignoring
 * case): D_ERR_ALREADY_EXISTS; "unknown" in any case: D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutOptionLegValAdd(D_OPTION *option, const char *value);
/** func(value, value, arg) over the legal values (table order); 0 when
 * there are none. Null option or func, or an option that is not
 * enumerated, is an assertion failure. */
D_EXPORT D_WORD DutOptionLegValTraverse(D_OPTION *option, D_HASH_TRAV_FUNC func, void *arg);

/* ---- Typed setters: D_TRUE, or D_FALSE with the value unchanged --------- */

/** Sets a boolean option: flag 0 or 1, else D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutOptionSetBool(D_OPTION *option, D_INT4 flag);
/** Sets an enumerated option to a copy of value. With legal values, value
 * must be one of them (ignoring case), else
 * D_ERR_VAL_INVALID; it is stored in the case given. Also sets the string
 * option "unique_subject". */
D_EXPORT D_BOOL DutOptionSetEnum(D_OPTION *option, const char *value);
/** Stores a copy of the chain; no legal-value check for the items. Also
 * sets the string list "subjects". */
D_EXPORT D_BOOL DutOptionSetEnumList(D_OPTION *option, const D_OPTION_STR_NODE *first);
/** Sets a numeric option. */
D_EXPORT D_BOOL DutOptionSetNum(D_OPTION *option, D_REAL8 value);
/** Sets a string option to a copy of value. */
D_EXPORT D_BOOL DutOptionSetStr(D_OPTION *option, const char *value);
/** Sets a string list option to a copy of the chain. */
D_EXPORT D_BOOL DutOptionSetStrList(D_OPTION *option, const D_OPTION_STR_NODE *first);
/** Makes the value unknown; a required option refuses with
 * D_ERR_VAL_REQUIRED. Read-only and verify rules apply. */
D_EXPORT D_BOOL DutOptionSetUnknown(D_OPTION *option);

/* ---- Typed getters: the stored value itself, not a copy ----------------- */
/** @{ */
/** Null option or out pointer: D_ERR_NULL_PTR; wrong type:
 * D_ERR_TYPE_INVALID; unknown value: D_ERR_VAL_UNKNOWN. DutOptionGetEnum
 * also reads "unique_subject", DutOptionGetEnumList "subjects". */
D_EXPORT D_BOOL DutOptionGetBool(D_OPTION *option, D_INT4 *value);
D_EXPORT D_BOOL DutOptionGetEnum(D_OPTION *option, const char **value);
D_EXPORT D_BOOL DutOptionGetNum(D_OPTION *option, D_REAL8 *value);
D_EXPORT D_BOOL DutOptionGetStr(D_OPTION *option, const char **value);
D_EXPORT D_BOOL DutOptionGetEnumList(D_OPTION *option, const D_OPTION_STR_NODE **first);
D_EXPORT D_BOOL DutOptionGetStrList(D_OPTION *option, const D_OPTION_STR_NODE **first);
/** @} */

/* ---- By name ------------------------------------------------------------- */

/** Sets the option from option_value: a pointer to the D_INT4 (boolean) or
 * D_REAL8 (numeric), the string itself (enumerated, string) or the first
 * node (lists). No legal-value and no 0/1 check. Returns the new stored
 * value, or null: an unknown name prints "DutOptionSet: unknown option
 * <%s>\n"; a numeric-list option warns and sets D_ERR_TYPE_INVALID. Null
 * arguments are assertion failures. */
D_EXPORT void *DutOptionSet(const char *name, const void *option_value);
/** DutOptionSetUnknown by name; an unknown name prints "Cannot unset <%s>:
 * no such option.\n" and answers D_FALSE. */
D_EXPORT D_BOOL DutOptionUnset(const char *name);
/** The stored value (null when unknown); an unknown name warns and answers
 * null. */
D_EXPORT void *DutOptionGetValue(const char *name);
/** The value of a numeric option, 0.0 when unknown or not numeric (with a
 * message for an unknown name or a non-numeric option). */
D_EXPORT D_REAL8 DutOptionGetNumValue(const char *name);
/** DutOptionSet of a numeric option; null, with the messages of
 * DutOptionGetNumValue, for an unknown name or a non-numeric option. */
D_EXPORT void *DutOptionSetNumValue(const char *name, D_REAL8 value);

/* ---- Parsing and printing --------------------------------------------------- */

/** Reads a value of the option's type from the lexer and commits it: the
 * word "unknown" (any case) makes it unknown; booleans are the words true
 * or false (exactly); enumerated values and enumerated-list items are
 * identifiers; numbers signed reals; strings and string-list items quoted
 * strings or file names; list items are separated by commas. D_TRUE when a
 * value was read and committed. A lexical error goes through the lexer's
 * error function, which destroys the lexer (see lex.h). */
D_EXPORT D_BOOL DutOptionParseValue(D_OPTION *option, D_LEX *lexer);
/** The value as text in one shared buffer, valid until the next call:
 * "UNKNOWN", "TRUE"/"FALSE", the enumerated text, the number as
 * DutRealToStr prints it, a string between double quotes, list items
 * joined by ", " (string items quoted). Null option: D_ERR_NULL_PTR, null. */
D_EXPORT const char *DutOptionValToStr(D_OPTION *option);
/** Writes "name value\n" through output for the named option, or for every
 * option in name order except those whose name starts with "_" when name
 * is null. An unknown name writes "No option named <%s>\n" and answers
 * D_FALSE. A null output is an assertion failure. */
D_EXPORT D_BOOL DutOptionDump(const char *name, D_PRINT_FUNC output);
/** The word of an option type ("boolean", "enumerated", ...); "bad type"
 * with a warning for any other number. */
D_EXPORT const char *DutOptionTypeToStr(D_INT4 type);

/* ---- Change callbacks ----------------------------------------------------- */

/** @{ */
/** Create or look up a change callback func(option, D_OPTION_CHANGE_DATA *,
 * arg) for the option, or for every option when option is null. Null func:
 * D_ERR_NULL_PTR, null. Duplicates: see DutCbTypeCbCreate. */
D_EXPORT D_CB *DutOptionChangeCbCreate(D_OPTION *option, D_CB_FUNC func, D_WORD arg);
D_EXPORT D_CB *DutOptionChangeCbLookup(D_OPTION *option, D_CB_FUNC func, D_WORD arg);
/** @} */

/** @{ */
/** Ready-made change callbacks mirroring an option into the variable whose
 * address is the callback argument: the boolean into a D_INT4, the real
 * truncated toward zero into a D_INT4 (saturated at the D_INT4 limits; NaN
 * gives 0). Both assert a non-null option, data and new value: the option
 * must not become unknown while they are attached. DutCbOptionCopyInt4 is
 * the same function under its older name. */
D_EXPORT void DutCbOptionCopyBool(void *option, void *data, D_WORD arg);
D_EXPORT void DutCbOptionCopyInt(void *option, void *data, D_WORD arg);
D_EXPORT void DutCbOptionCopyInt4(void *option, void *data, D_WORD arg);
/** @} */

/* ---- The library's verify functions ------------------------------------------ */
/** @} */
/** @addtogroup option
 *
 * @par The library's verify functions
 * A null new value (the option becoming unknown) is accepted by the
 * numeric checks; the required flag guards options that need a value.
 * @{
 */

/** Numeric: 0 or more, else "The option <%s> must be nonnegative.\n" and
 * D_ERR_VAL_TOO_SMALL. */
D_EXPORT D_BOOL DutOptionVerifyNonNeg(D_OPTION *option, void *new_value, void *arg);
/** Numeric: a whole number in the signed 16-bit range, else "The option
 * <%s> must be a valid two-byte integer.\n" and D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutOptionVerifyInt2(D_OPTION *option, void *new_value, void *arg);
/** String: a single printf conversion for a real: "%", flags "-+ #0",
 * width, "." precision, an optional "l", then one of "efgEG" and nothing
 * after; a value starting with "OVERRIDE:" (any case) is accepted
 * unchecked with a message. Refusals print why and set D_ERR_VAL_INVALID.
 * arg must be null (assertion). A null new value is refused. */
D_EXPORT D_BOOL DutOptionRealNumberFormatVf(D_OPTION *option, void *new_value, void *arg);
/** String naming a log file; arg is the kind of messages logged there (a
 * string, required: assertion). A new name is opened through DutOpenFile,
 * for appending when it starts with "@" (dropped from the name, with the
 * message "Opening the file for appending.\n"), else for writing; a failed
 * open prints "Could not open file <%s>.\n" and refuses, a good one prints
 * "Now logging %s messages to <%s>.\n". Then the option's previous file, if
 * any, is closed (DutCloseFile). A null new value only closes the previous
 * file. */
D_EXPORT D_BOOL DutOptionVerifyLogFile(D_OPTION *option, void *new_value, void *arg);

D_END_DECLS

/** @} */
#endif /* VQUTIL_OPTION_H */
