/**
 * @defgroup lobe Lobes
 * Lobes, attributes attached to any object.
 *
 * A lobe is declared once under an unsigned integer key; afterwards every
 * object (any non-null pointer) can carry one value of that lobe. Values
 * are copied into storage the lobe owns: `size` bytes for a fixed-size
 * lobe, or a NUL-terminated string of any length for a string lobe (size
 * -1). Lobe records live for the life of the process.
 *
 * Thread safety: declaration, DutLobeLookup and DutLobeClear take the
 * process-wide lock, so lobes may be declared from any thread. The value
 * operations take no lock: callers serialise access to one object's values.
 * @{
 */
/**
 * @file
 * @ingroup lobe
 * @brief Lobes (lobe).
 */
#ifndef VQUTIL_LOBE_H
#define VQUTIL_LOBE_H

#include "hash.h"
#include "types.h"

/** Size of a string lobe. */
#define D_LOBE_STRING_SIZE (-1)

/** A lobe: one attribute, holding a value per object. */
typedef struct D_LOBE {
  D_UINT4 key;          /**< the key the lobe is declared under */
  D_HASH_TABLE *values; /**< object pointer -> pointer to its stored value */
  D_INT4 size;          /**< bytes per value, or -1 for a string lobe */
} D_LOBE;

#define D_GLOBE_KEY(lobe) ((lobe)->key) /**< `key` field */
#define D_GLOBE_SIZE(lobe) ((lobe)->size) /**< `size` field */
#define D_GLOBE_VALUES(lobe) ((lobe)->values) /**< `values` field */

D_BEGIN_DECLS

/** The lobe under key, created with size when none exists (an existing lobe
 * is returned unchanged, whatever its size). */
D_EXPORT D_LOBE *DutLobeDeclare(D_UINT4 key, D_INT4 size);
/** DutLobeDeclare(key, -1). */
D_EXPORT D_LOBE *DutLobeStringDeclare(D_UINT4 key);
/** The lobe under key, or null (also before the first declaration). */
D_EXPORT D_LOBE *DutLobeLookup(D_UINT4 key);
/** The table of all lobes (integer keys), or null before the first
 * declaration. Owned by the library. */
D_EXPORT D_HASH_TABLE *DutLobeTable(void);
/** The lobe's size; 0 for a null lobe. */
D_EXPORT D_INT4 DutLobeGetSize(D_LOBE *lobe);

/** The object's stored value (owned by the lobe, valid until the value is
 * deleted, cleared or, for a string lobe, replaced), or null. */
D_EXPORT void *DutLobeFindValue(void *object, D_LOBE *lobe);
/** Copies the value in: size bytes, or the string with its terminator. A
 * fixed-size value already there is overwritten in place; a string is
 * replaced by a fresh copy. D_FALSE for a null lobe; D_FALSE and
 * D_ERR_NULL_PTR for a null value (unless the size is 0). */
D_EXPORT D_BOOL DutLobeSet(void *object, D_LOBE *lobe, const void *value);
/** DutLobeSet only when the object has no value yet: D_TRUE if it set,
 * D_FALSE (value unchanged) if one was there; a null value as DutLobeSet. */
D_EXPORT D_BOOL DutLobeCheckSet(void *object, D_LOBE *lobe, const void *value);
/** Copies the value out into buffer: D_TRUE, or D_FALSE (buffer untouched)
 * when the object has none. For a string lobe the caller's buffer must
 * hold the whole string: no length is passed. A null buffer (unless the
 * size is 0): D_FALSE and D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutLobeGet(void *object, D_LOBE *lobe, void *buffer);
/** Frees the object's value and removes its entry. Always returns 0,
 * whether or not a value existed: do not test the result. */
D_EXPORT D_INT4 DutLobeDelete(void *object, D_LOBE *lobe);
/** Removes and frees the object's value in every lobe. Null: nothing. */
D_EXPORT void DutLobeClear(void *object);
/** Calls func(object, value pointer, arg) for each value of the lobe (hash
 * traversal: a non-zero result stops the walk and is returned; the end of
 * the walk leaves D_ERR_END_OF_TRAVERSAL). 0 when no lobe was ever
 * declared. A null lobe is an assertion failure. */
D_EXPORT D_WORD DutLobeTraverse(D_LOBE *lobe, D_HASH_TRAV_FUNC func, void *arg);

D_END_DECLS

/** @} */
#endif /* VQUTIL_LOBE_H */
