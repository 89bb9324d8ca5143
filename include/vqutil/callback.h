/**
 * @defgroup callback Callbacks
 * Callback types, callback lists and callbacks.
 *
 * The library's one notification mechanism. A callback type names an event
 * kind by number (and optionally a name). Its callbacks live in callback
 * lists: one optional global list per type, and one object list per
 * (object, type), hung on the object through the lobe whose key is the
 * type's number. Calling a type for an object runs the global callbacks,
 * the object's, or both merged by priority, as the type's global flag says.
 *
 * Every callback function is called as func(object, data, arg). The first
 * field of every callback data record is reserved: just before each
 * callback runs, the machinery stores the callback being called there
 * (D_CB_DATA), so a callback can find itself and, from itself, its list,
 * owner and type, stop the call or destroy itself.
 *
 * Within a list, callbacks run in non-increasing priority order, equal
 * priorities in order of (re)insertion. A list may be changed from inside
 * its own callbacks: a callback created after the point a call has reached
 * is called by that call, one created before it is not; a destroyed
 * callback is never called again; every other callback is called once.
 * Destroying a list during a call defers the destruction to the end of the
 * outermost call, except for a global list, which then stays (and each
 * later call runs only its first callback).
 *
 * Ownership: the caller owns the types it creates (they are never freed),
 * the lists it creates (DutCbListDestroy) and the callbacks (DutCbDestroy,
 * or destroyed with their list).
 *
 * Errors: a null record, function or out pointer sets D_ERR_NULL_PTR (3);
 * a duplicate (func, arg) in a list D_ERR_ALREADY_EXISTS (6); a local flag
 * other than 0 or 1 D_ERR_VAL_INVALID (7); lookups that find nothing
 * D_ERR_DOESNT_EXIST (8); global callbacks on a "no_globals" type and
 * object lookups on a direct type D_ERR_TYPE_MISMATCH (15). A successful
 * DutCbListCbCreate leaves 8 set: do not read the number after success.
 *
 * Thread safety: the type table is guarded by the process-wide lock. Lists
 * and callbacks are not locked: the caller serialises each list.
 * Re-entrant use on one thread is fully supported.
 * @{
 */
/**
 * @file
 * @ingroup callback
 * @brief Callbacks (callback).
 */
#ifndef VQUTIL_CALLBACK_H
#define VQUTIL_CALLBACK_H

#include "error.h"
#include "lobe.h"
#include "ptrary.h"
#include "types.h"

struct D_CB;
struct D_CB_LIST;
struct D_CB_TYPE;

/** A callback function: the object the call is about, the caller's data
 * record (first field reserved, see D_CB_DATA) and the callback's own
 * argument. */
typedef void (*D_CB_FUNC)(void *object, void *data, D_WORD arg);

/** The reserved head of every callback data record. */
typedef struct D_CB_DATA {
  struct D_CB *cb; /**< the callback being called */
} D_CB_DATA;

/** @{ */
/** Global flags. */
#define D_CB_GLOBAL_ONLY 0
#define D_CB_NO_GLOBALS 1
#define D_CB_GLOBALS_OK 2
/** @} */
/** @{ */
/** Local flags. */
#define D_CB_LOCAL_INDIRECT 0
#define D_CB_LOCAL_DIRECT 1
/** @} */

/** @{ */
/** The library's own callback type numbers. */
#define D_CB_TYPE_TIME_CHANGE (-101)
#define D_CB_TYPE_OPTION_CHANGE (-102)
#define D_CB_TYPE_LEX_TOKEN (-104)
#define D_CB_TYPE_GRAPH_CHANGE (-105)
#define D_CB_TYPE_QUIT (-106)
#define D_CB_TYPE_PTR_ARY_CHANGE (-107)
#define D_CB_TYPE_RINGBUF_OVERWRITE (-108)
/** @} */

/** The debug flag (index into DutGetDebugFlags()) of this family. */
#define D_DEBUG_CB D_DEBUG_CALLBACK

/** A callback type: an event kind by number, its lists and its flags. */
typedef struct D_CB_TYPE {
  D_LOBE *lobe;                  /**< object -> its list of this type */
  struct D_CB_LIST *global_list; /**< or null */
  D_INT4 num;                    /**< unique type number */
  char *name;                    /**< owned copy, or null */
  D_INT4 glob_flag;              /**< D_CB_GLOBAL_ONLY, D_CB_NO_GLOBALS, D_CB_GLOBALS_OK */
  D_INT4 local_flag;             /**< D_CB_LOCAL_INDIRECT or D_CB_LOCAL_DIRECT */
} D_CB_TYPE;

/** One call in progress on a list: the index of the next callback. */
typedef struct D_CB_CALL_POS {
  struct D_CB_CALL_POS *next; /**< the enclosing call, or null */
  D_INT4 index;               /**< index of the next callback to run */
} D_CB_CALL_POS;

/** A callback list: the callbacks of one type for one owner. */
typedef struct D_CB_LIST {
  void *owner;                  /**< null for a type's global list */
  D_CB_TYPE *type;              /**< the list's callback type */
  D_PTR_ARY *callbacks;         /**< the callbacks in calling order */
  D_CB_CALL_POS *current_index; /**< stack: one node per call in progress */
  D_UINT2 start_thresh;         /**< stored and reported only */
  D_UINT2 current_thresh;       /**< stored and reported only */
  D_INT4 destroy_pending;       /**< destroyed during a call: freed when it ends */
  D_INT4 stop;                  /**< ends the current pass */
} D_CB_LIST;

/** A callback: func(object, data, arg) in a list, with a priority. */
typedef struct D_CB {
  D_CB_FUNC func;  /**< the function called */
  D_WORD arg;      /**< its last argument */
  D_CB_LIST *list; /**< the list holding it */
  D_INT2 priority; /**< higher runs earlier */
} D_CB;

#define D_GCT_LOBE(type) ((type)->lobe) /**< `lobe` field */
#define D_GCT_GLOBAL_LIST(type) ((type)->global_list) /**< `global_list` field */
#define D_GCT_NUM(type) ((type)->num) /**< `num` field */
#define D_GCT_NAME(type) ((type)->name) /**< `name` field */
#define D_GCT_GLOB_FLAG(type) ((type)->glob_flag) /**< `glob_flag` field */
#define D_GCT_LOCAL_FLAG(type) ((type)->local_flag) /**< `local_flag` field */
#define D_GCL_OWNER(cbl) ((cbl)->owner) /**< `owner` field */
#define D_GCL_TYPE(cbl) ((cbl)->type) /**< `type` field */
#define D_GCL_CURRLIST(cbl) ((cbl)->callbacks) /**< `callbacks` field */
#define D_GCL_CURRENT_INDEX(cbl) ((cbl)->current_index) /**< `current_index` field */
#define D_GCL_DESTROY_PENDING(cbl) ((cbl)->destroy_pending) /**< `destroy_pending` field */
#define D_GCL_STOP(cbl) ((cbl)->stop) /**< `stop` field */
#define D_GCB_FUNC(cb) ((cb)->func) /**< `func` field */
#define D_GCB_ARG(cb) ((cb)->arg) /**< `arg` field */
#define D_GCB_LIST(cb) ((cb)->list) /**< `list` field */
#define D_GCB_PRIORITY(cb) ((cb)->priority) /**< `priority` field */

/** Visit functions: a non-zero result stops the walk and is returned. */
typedef D_WORD (*D_CB_LIST_TRAV_FUNC)(D_CB_LIST *list, D_CB *cb, void *arg);

D_BEGIN_DECLS

/* ---- Types ---------------------------------------------------------- */

/** A new type (global flag D_CB_GLOBALS_OK, local flag indirect) with a copy
 * of name (may be null); null, without an error number, if num is taken. */
D_EXPORT D_CB_TYPE *DutCbTypeCreate(D_INT4 num, const char *name);
/** The first type whose name equals name ignoring case, or null. */
D_EXPORT D_CB_TYPE *DutCbTypeLookup(const char *name);
/** The type with this number, or null. */
D_EXPORT D_CB_TYPE *DutCbTypeNumLookup(D_INT4 num);
/** func(number, type, arg) over every type under the process-wide lock;
 * 0 when no type exists. */
D_EXPORT D_WORD DutCbTypeTraverse(D_HASH_TRAV_FUNC func, void *arg);
/** @{ */
/** Store the type's number, name, global flag or local flag in the out
 * argument; the name stays owned by the type. */
D_EXPORT D_BOOL DutCbTypeGetNum(D_CB_TYPE *type, D_INT4 *num);
D_EXPORT D_BOOL DutCbTypeGetName(D_CB_TYPE *type, const char **name);
D_EXPORT D_BOOL DutCbTypeGetGlobFlag(D_CB_TYPE *type, D_INT4 *flag);
D_EXPORT D_BOOL DutCbTypeGetLocalFlag(D_CB_TYPE *type, D_INT4 *flag);
/** @} */
/** Sets the type's global flag; any value is stored, and the call treats
 * unknown values with a warning. */
D_EXPORT D_BOOL DutCbTypeSetGlobFlag(D_CB_TYPE *type, D_INT4 flag);
/** Sets the type's local flag: 0 or 1, else D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutCbTypeSetLocalFlag(D_CB_TYPE *type, D_INT4 flag);

/* ---- Lists ---------------------------------------------------------- */

/** A new empty list; not attached to the owner (see DutCbTypeCbListCreate). */
D_EXPORT D_CB_LIST *DutCbListCreate(D_CB_TYPE *type, void *owner);
/** D_TRUE when destroyed (with all its callbacks, uncalled); D_FALSE when
 * a call is in progress: the destruction then waits for the outermost
 * call to end (never for a global list). */
D_EXPORT D_BOOL DutCbListDestroy(D_CB_LIST *list);
/** Calls the list's callbacks in order for object. data must point to a
 * record whose first field is a D_CB pointer. */
D_EXPORT D_BOOL DutCbListCall(D_CB_LIST *list, void *object, void *data);
/** Ends the current pass after the running callback: D_TRUE if a call was
 * in progress, D_FALSE if the list is idle. */
D_EXPORT D_BOOL DutCbListStopCall(D_CB_LIST *list);
/** func(list, cb, arg) over the callbacks in calling order; the first
 * non-zero result stops the walk and is returned, else 0. */
D_EXPORT D_WORD DutCbListTraverse(D_CB_LIST *list, D_CB_LIST_TRAV_FUNC func, void *arg);
/** The number of calls in progress on the list. */
D_EXPORT D_INT4 DutCbListGetDepth(D_CB_LIST *list);
/** @{ */
/** Store the list's owner (null for a global list) or type in the out
 * argument. */
D_EXPORT D_BOOL DutCbListGetOwner(D_CB_LIST *list, void **owner);
D_EXPORT D_BOOL DutCbListGetType(D_CB_LIST *list, D_CB_TYPE **type);
/** @} */
/** A new callback (priority 0); a duplicate (func, arg) gives
 * D_ERR_ALREADY_EXISTS and null. */
D_EXPORT D_CB *DutCbListCbCreate(D_CB_LIST *list, D_CB_FUNC func, D_WORD arg);
/** The callback (func, arg) of the list; D_ERR_DOESNT_EXIST, null when
 * absent. */
D_EXPORT D_CB *DutCbListCbLookup(D_CB_LIST *list, D_CB_FUNC func, D_WORD arg);
/** @{ */
/** Thresholds are stored and reported only; each of the four prints a
 * "not yet implemented" warning and answers D_FALSE. */
D_EXPORT D_BOOL DutCbListSetStartThresh(D_CB_LIST *list, D_UINT2 value);
D_EXPORT D_BOOL DutCbListSetCurrentThresh(D_CB_LIST *list, D_UINT2 value);
D_EXPORT D_BOOL DutCbListGetStartThresh(D_CB_LIST *list, D_UINT2 *value);
D_EXPORT D_BOOL DutCbListGetCurrentThresh(D_CB_LIST *list, D_UINT2 *value);
/** @} */

/* ---- Callbacks -------------------------------------------------------- */

/** Sets the priority and moves the callback behind the callbacks that
 * already have it (compared as signed); the same priority leaves it where
 * it is. */
D_EXPORT D_BOOL DutCbSetPriority(D_CB *cb, D_UINT2 priority);
/** Stores the callback's priority in *priority. */
D_EXPORT D_BOOL DutCbGetPriority(D_CB *cb, D_INT2 *priority);
/** @{ */
/** Replace the callback's argument or function; D_FALSE, unchanged, when
 * the list already holds the resulting (func, arg), the callback itself
 * included. */
D_EXPORT D_BOOL DutCbSetArgument(D_CB *cb, D_WORD arg);
D_EXPORT D_BOOL DutCbSetFunction(D_CB *cb, D_CB_FUNC func);
/** @} */
/** @{ */
/** Store the callback's function, argument, list, list owner or type in
 * the out argument. */
D_EXPORT D_BOOL DutCbGetFunction(D_CB *cb, D_CB_FUNC *func);
D_EXPORT D_BOOL DutCbGetArgument(D_CB *cb, D_WORD *arg);
D_EXPORT D_BOOL DutCbGetList(D_CB *cb, D_CB_LIST **list);
D_EXPORT D_BOOL DutCbGetOwner(D_CB *cb, void **owner);
D_EXPORT D_BOOL DutCbGetCbType(D_CB *cb, D_CB_TYPE **type);
/** @} */
/** Removes the callback from its list (also during a call) and frees it. */
D_EXPORT D_BOOL DutCbDestroy(D_CB *cb);

/* ---- By type and object (null object: the global list) ----------------- */

/** Stores the object's list of the type (the global list for a null
 * object) in *list; D_FALSE when there is none, or with a warning for an
 * object of a direct type. */
D_EXPORT D_BOOL DutCbTypeGetCbList(D_CB_TYPE *type, void *object, D_CB_LIST **list);
/** A new list of the type hung on the object; null for a direct type. */
D_EXPORT D_CB_LIST *DutCbTypeCbListCreate(D_CB_TYPE *type, void *object);
/** A callback in the object's list of the type, creating the list when
 * needed; a null object makes a global callback. Null for a direct type. */
D_EXPORT D_CB *DutCbTypeCbCreate(D_CB_TYPE *type, void *object, D_CB_FUNC func, D_WORD arg);
/** A callback in the type's global list, creating the list when needed; a
 * "no_globals" type: D_ERR_TYPE_MISMATCH, null. */
D_EXPORT D_CB *DutCbCreateGlobal(D_CB_TYPE *type, D_CB_FUNC func, D_WORD arg);
/** The callback (func, arg) in the object's (or the global) list of the
 * type; no list: D_ERR_DOESNT_EXIST; an object of a direct type:
 * D_ERR_TYPE_MISMATCH; each null. */
D_EXPORT D_CB *DutCbTypeCbLookup(D_CB_TYPE *type, void *object, D_CB_FUNC func, D_WORD arg);
/** Runs the callbacks of the type for object as its global flag says. */
D_EXPORT D_BOOL DutCbTypeCall(D_CB_TYPE *type, void *object, void *data);
/** Both lists merged by priority; on a tie the object's callback first. */
D_EXPORT void DutCbMergeCall(D_CB_LIST *objlist, D_CB_LIST *globlist, void *object, void *data);
/** Destroys the object's list of the type; D_FALSE if it has none. */
D_EXPORT D_BOOL DutCbObjClear(D_CB_TYPE *type, void *object);

/** DutCbTypeCbLookup by type number; null for an unknown number (looked
 * up first: the other arguments are then not checked). */
D_EXPORT D_CB *DutCbTypeNumCbLookup(D_INT4 num, void *object, D_CB_FUNC func, D_WORD arg);
/** Looks the callback up by type number and destroys it; D_FALSE when it
 * is not found. */
D_EXPORT D_BOOL DutCbTypeNumCbDestroy(D_INT4 num, void *object, D_CB_FUNC func, D_WORD arg);
/** DutCbTypeCall by type number; an unknown type number is success:
 * nothing to call, whatever object and data are. */
D_EXPORT D_BOOL DutCbTypeNumCbCall(D_INT4 num, void *object, void *data);
/** DutCbObjClear by type number; D_FALSE for an unknown number. */
D_EXPORT D_BOOL DutCbTypeNumObjClear(D_INT4 num, void *object);

/** @{ */
/** Quit callbacks: global callbacks of the type -106 "quit". */
D_EXPORT D_CB *DutQuitCbCreate(D_CB_FUNC func, D_WORD arg);
D_EXPORT D_CB *DutQuitCbLookup(D_CB_FUNC func, D_WORD arg);
/** @} */

/* ---- Dumps (through a printf-like function such as DutOut) ------------ */

/** Prints a callback: function, argument, list, priority, owner, type. */
D_EXPORT void DutCbPrint(D_CB *cb, D_PRINT_FUNC out);
/** Prints a list, each of its callbacks, its thresholds and whether a call
 * is in progress. */
D_EXPORT void DutCbPrintList(D_CB_LIST *list, D_PRINT_FUNC out);
/** Prints a type: number, name, global flag and local flag. */
D_EXPORT void DutCbPrintType(D_CB_TYPE *type, D_PRINT_FUNC out);

D_END_DECLS

/** @} */
#endif /* VQUTIL_CALLBACK_H */
