/**
 * @defgroup module Dynamic modules
 * Dynamic modules (shared libraries loaded by name).
 *
 * A module is loaded once and kept in a table by name with a reference
 * count. A name without a '.' gets the platform's extension (".so" on
 * POSIX, ".dll" on Windows) for loading; the table keeps the name as given,
 * so a module created by a bare name is not found again by that name and
 * is loaded a second time (kept deliberately); the table keeps the first
 * record and warns "DutHashInsert: key %s already exists in hash table.\n"
 * about the second.
 *
 * Entry points a module may export (C linkage):
 *   int DptModuleInit(D_WORD arg);        non-zero: the module accepts
 *   D_WORD DptModuleCleanUp(D_WORD arg);  returned by DptModuleDestroy
 *   D_MODULE_INFO ModuleInfo;             id, name, version, type
 *
 * A module that cannot be loaded still gets a record (with no handle), so
 * callers can ask for its name; its symbols are all null.
 *
 * Errors: null arguments D_ERR_NULL_PTR (3). Thread safety: the module
 * table is guarded by the process-wide lock; one record is used by one
 * thread at a time.
 * @{
 */
/**
 * @file
 * @ingroup module
 * @brief Dynamic modules (module).
 */
#ifndef VQUTIL_MODULE_H
#define VQUTIL_MODULE_H

#include "types.h"

/** What a module may export as ModuleInfo. */
typedef struct D_MODULE_INFO {
  D_WORD id;      /**< the module's identifier */
  D_WORD name;    /**< its name */
  D_WORD version; /**< its version */
  D_WORD type;    /**< its type */
} D_MODULE_INFO;

/** A loaded (or unloadable) module in the table, by name. */
typedef struct D_MODULE {
  char *name;         /**< own copy of the name given to DptModuleCreate */
  void *handle;       /**< the platform's library handle, null when loading failed */
  D_INT4 ref_count;   /**< starts at 1 */
} D_MODULE;

/** The shape of DptModuleInit: non-zero accepts the load. */
typedef int (*D_MODULE_INIT_FUNC)(D_WORD arg);
/** The shape of DptModuleCleanUp: its result is DptModuleDestroy's. */
typedef D_WORD (*D_MODULE_CLEAN_UP_FUNC)(D_WORD arg);

D_BEGIN_DECLS

/** Loads (or finds, counting one more reference) the module; its
 * DptModuleInit, when exported, is called with arg and may refuse (null is
 * returned, the library unloaded). */
D_EXPORT D_MODULE *DptModuleCreate(const char *name, D_WORD arg);
/** The module in the table under name as given, or null. */
D_EXPORT D_MODULE *DptModuleLookup(const char *name);
/** Drops one reference; the last one calls DptModuleCleanUp (when exported)
 * with arg, unloads the library, removes the record from the table and
 * frees it. Returns 1, or the clean-up function's result. */
D_EXPORT D_WORD DptModuleDestroy(D_MODULE *module, D_WORD arg);
/** The address of the exported symbol, or null (always null for a module
 * that could not be loaded). */
D_EXPORT void *DptModuleGetSymbol(D_MODULE *module, const char *symbol);
/** The name as given at creation (owned by the record). */
D_EXPORT D_BOOL DptModuleGetFileName(D_MODULE *module, const char **name);
/** @{ */
/** The words of the module's ModuleInfo; D_FALSE (no error number) when it
 * exports none. */
D_EXPORT D_BOOL DptModuleGetId(D_MODULE *module, D_WORD *id);
D_EXPORT D_BOOL DptModuleGetName(D_MODULE *module, D_WORD *name);
D_EXPORT D_BOOL DptModuleGetVersion(D_MODULE *module, D_WORD *version);
D_EXPORT D_BOOL DptModuleGetType(D_MODULE *module, D_WORD *type);
/** @} */

D_END_DECLS

/** @} */
#endif /* VQUTIL_MODULE_H */
