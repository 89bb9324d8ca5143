/**
 * @defgroup type Type registry
 * The type registry, named application data types.
 *
 * Each registered type has a name, a number (1 for the first type, then 2,
 * 3 ... in order of registration) and a few slots that other code attaches
 * to it: a return function with its argument, an assign function and a
 * user argument. The library stores the functions and never calls them;
 * callers cast them to their real type.
 *
 * Types are found by name (ignoring case) or by number and listed in
 * number order. The registry, once created by DutTypeInitialize, lives as
 * long as the process; types are never destroyed.
 *
 * Duplicate names: DutTypeCreate does not check for an existing name. A
 * second type of the same name still gets the next number and is found by
 * that number, but its name keeps finding the first type (the name table
 * keeps its first entry and warns "DutHashInsert: key %s already exists in
 * hash table."), and it is left out of DutTypeTraverse and DutTypeSortByNum.
 *
 * Errors: D_ERR_NULL_PTR (3) for null arguments and for any use before
 * DutTypeInitialize, D_ERR_VAL_TOO_SMALL (4) and D_ERR_VAL_TOO_LARGE (5)
 * for numbers out of range, D_ERR_ALREADY_EXISTS (6) for a second
 * initialisation, D_ERR_DOESNT_EXIST (8) for an unknown name.
 *
 * Thread safety: no lock is taken. Types are registered by one thread at
 * start-up; afterwards any number of threads may look them up, traverse and
 * sort them, as long as nobody registers or sets anything meanwhile.
 * @{
 */
/**
 * @file
 * @ingroup type
 * @brief Type registry (type).
 */
#ifndef VQUTIL_TYPE_H
#define VQUTIL_TYPE_H

#include "types.h"
#include "hash.h"

/** The functions a type carries: stored and handed back, never called. */
typedef void (*D_TYPE_FUNC)(void);

/** A registered type: its name, number and the functions it carries. */
typedef struct D_TYPE {
  char *name;              /**< own copy of the name */
  D_INT4 num;              /**< 1, 2, 3 ... in order of creation */
  D_TYPE_FUNC return_func; /**< null at creation */
  D_WORD return_arg;       /**< 0 at creation; stored with return_func */
  D_TYPE_FUNC assign_func; /**< null at creation */
  D_WORD user_arg;         /**< 0 at creation */
} D_TYPE;

#define D_GTYPE_NAME(type) ((type)->name) /**< `name` field */
#define D_GTYPE_NUM(type) ((type)->num) /**< `num` field */

D_BEGIN_DECLS

/** Creates the registry: a case-insensitive name table and a number array,
 * both of initial size 32. D_TRUE; a registry that already exists:
 * D_ERR_ALREADY_EXISTS, D_FALSE, and it stays as it was. */
D_EXPORT D_BOOL DutTypeInitialize(void);

/** Registers a type under a copy of name with the next number and empty
 * slots, and returns it (owned by the registry). A null name or no
 * registry: D_ERR_NULL_PTR, NULL. */
D_EXPORT D_TYPE *DutTypeCreate(const char *name);

/** The type registered under name, ignoring case (the first one of a
 * duplicated name). Null name or no registry: D_ERR_NULL_PTR; unknown
 * name: D_ERR_DOESNT_EXIST; NULL in both cases. */
D_EXPORT D_TYPE *DutTypeLookup(const char *name);

/** The type with number num. No registry: D_ERR_NULL_PTR; 0:
 * D_ERR_VAL_TOO_SMALL; above the number of types, which includes every
 * negative number: D_ERR_VAL_TOO_LARGE; NULL in each case. */
D_EXPORT D_TYPE *DutTypeLookupByNum(D_INT4 num);

/** @{ */
/** Getters: store the field and answer D_TRUE; a null type or out pointer:
 * D_ERR_NULL_PTR, D_FALSE. The name stays the registry's. There is no
 * getter for the assign function. */
D_EXPORT D_BOOL DutTypeGetName(D_TYPE *type, const char **name);
D_EXPORT D_BOOL DutTypeGetNum(D_TYPE *type, D_INT4 *num);
D_EXPORT D_BOOL DutTypeGetUserArg(D_TYPE *type, D_WORD *user_arg);
D_EXPORT D_BOOL DutTypeGetReturnFunc(D_TYPE *type, D_TYPE_FUNC *func, D_WORD *arg);
/** @} */

/** @{ */
/** Setters: D_TRUE; a null type: D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutTypeSetReturnFunc(D_TYPE *type, D_TYPE_FUNC func, D_WORD arg);
D_EXPORT D_BOOL DutTypeSetAssignFunc(D_TYPE *type, D_TYPE_FUNC func);
D_EXPORT D_BOOL DutTypeSetUserArg(D_TYPE *type, D_WORD user_arg);
/** @} */

/** Calls func(name, type, arg) on every entry of the name table, as
 * DutHashTraverse does: the first non-zero result ends the traversal and
 * is returned; after the last entry 0 with D_ERR_END_OF_TRAVERSAL. A null
 * func or no registry: D_ERR_NULL_PTR, 0. */
D_EXPORT D_WORD DutTypeTraverse(D_HASH_TRAV_FUNC func, void *arg);

/** A new array of the types of the name table in increasing number order,
 * its length in *count; the caller frees it with DutFreeCheck. No types:
 * NULL and a count of 0. A null count or no registry: D_ERR_NULL_PTR,
 * NULL (and a count of 0 when count is not null). */
D_EXPORT D_TYPE **DutTypeSortByNum(D_INT4 *count);

D_END_DECLS

/** @} */
#endif /* VQUTIL_TYPE_H */
