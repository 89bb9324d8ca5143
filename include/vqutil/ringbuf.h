/**
 * @defgroup ringbuf Ring buffers
 * Ring buffers of time-stamped values.
 *
 * A ring keeps the recent history of one monitored value at several time
 * resolutions at once. It owns an ordered list of buffers, smallest
 * increment first; each buffer is a circular array of entries with a fixed
 * time increment: increment 0.0 keeps every change, increment 1.0 at most
 * one value per second of data time, and so on. Values are written with
 * their data time; each buffer decides whether a value opens a new entry,
 * updates the newest one, is dropped as a repeat or ignored as a time
 * reversal. Buffers that are not fixed grow so that they cover at least
 * their minimum span of data time.
 *
 * Times are D_TIME_VALUE records (seconds, microseconds); a time handed in
 * must have its microseconds in 0..999999 (D_ERR_VAL_INVALID otherwise).
 * The increment grid of every buffer starts at the process-wide ring start
 * time (0.0 until DutRingSetStartTime sets one).
 *
 * Value types and what an entry holds (the value pointer handed to the
 * insertions points at the caller's value, except for type 0, where it is
 * the value):
 *   D_RING_TYPE_VOID (0)      a pointer, owned through the ring's free
 *                             function;
 *   D_RING_TYPE_INT (1),
 *   D_RING_TYPE_LONG (2)      a 32-bit integer;
 *   D_RING_TYPE_DOUBLE (4)    a double, kept in storage allocated beside the
 *                             entry array (the entry points at its slot);
 *   D_RING_TYPE_STRING (8)    a copy of the text in a buffer the entry owns;
 *   D_RING_TYPE_FLOAT (4096)  a 32-bit float;
 *   D_RING_TYPE_WORD (8192)   an unsigned 32-bit word.
 *
 * Sizes: a buffer's size is a 16-bit count. Requested sizes are held within
 * 2..65535; growth stops at 65535 entries, and a buffer of that size wraps
 * (gives up its oldest entry) like a fixed one from then on.
 *
 * Ownership: the caller owns the ring from DutRingCreate on. DutRingDestroy
 * frees the buffers, their values, the history buffer, the initial value and
 * the name, but the ring record, its buffer-list sentinel and its overwrite
 * callback list survive: the ring stays usable as an empty, unnamed ring. A
 * caller done with it for good releases those three itself:
 *   DutCbListDestroy(D_GRB_OVERWRITE_CB_LIST(ring)) when it is not null,
 *   DutDqClose(&D_GRB_BUFFERS(ring)) and DutFreeCheck(ring, ...).
 * Pointer values (type 0) are counted per ring: one pointer archived into
 * several buffers (or kept several times) reaches the free function exactly
 * once, when the ring lets go of its last copy (overwrite, clear, delete,
 * destroy). Without a free function the ring never frees a pointer.
 *
 * Errors (library error number; success does not clear it):
 *   D_ERR_NULL_PTR (3)         a null ring, buffer, entry, time, value or out
 *                              pointer;
 *   D_ERR_VAL_TOO_SMALL (4)    an increment below 0.0, a size smaller than
 *                              the buffer's, a value older than everything a
 *                              full buffer keeps, a bad change count;
 *   D_ERR_VAL_TOO_LARGE (5)    a full history buffer at the size limit, a
 *                              first change beyond the stored changes;
 *   D_ERR_VAL_INVALID (7)      microseconds out of range, a status of 0, a
 *                              flag other than D_TRUE or D_FALSE, an end
 *                              before a start, a time not historical;
 *   D_ERR_DOESNT_EXIST (8)     searches and look-ups that find nothing;
 *   D_ERR_TYPE_INVALID (14)    a value type outside the six;
 *   D_ERR_TYPE_MISMATCH (15)   a free function for a ring not of type 0,
 *                              maximum and minimum of a non-numeric ring, a
 *                              fixed buffer asked for as growable or the
 *                              other way round;
 *   D_ERR_END_OF_TRAVERSAL (18) a traversal step past the end;
 *   D_ERR_EMPTY (19)           no value where one is needed.
 *
 * Tracing: with debug flag 3 (D_DEBUG_RINGBUF) set, the insertions,
 * searches and resizes write their trace to the debug file, each message
 * preceded by "Wall time %s, data time: %s\n".
 *
 * Thread safety: none inside. Rings and buffers are not locked: the caller
 * serialises each ring. DutRingNextEntry and the two searches
 * (DutRingFindTime, DutRingFindTimeEntry) share one process-wide iteration
 * state, so one such iteration runs at a time in the whole process, also
 * across threads. The D_RING_ITER forms below and every reading-side
 * function (traversals, statistics, changes) keep no shared state.
 * @{
 */
/**
 * @file
 * @ingroup ringbuf
 * @brief Ring buffers (ringbuf).
 */
#ifndef VQUTIL_RINGBUF_H
#define VQUTIL_RINGBUF_H

#include "callback.h"
#include "list.h"
#include "time.h"
#include "types.h"

/** @{ */
/** Value types. */
#define D_RING_TYPE_VOID 0
#define D_RING_TYPE_INT 1
#define D_RING_TYPE_LONG 2
#define D_RING_TYPE_DOUBLE 4
#define D_RING_TYPE_STRING 8
#define D_RING_TYPE_FLOAT 4096
#define D_RING_TYPE_WORD 8192
/** @} */

/** @{ */
/** Buffer flags. */
#define D_RING_FIXED 0x1u        /**< never grows */
#define D_RING_TIME_REPEAT 0x2u  /**< several entries may share one time */
#define D_RING_VALUE_REPEAT 0x4u /**< a value equal to the newest is kept */
#define D_RING_INDIRECT 0x8u     /**< kept for the caller; the library does not read it */
/** @} */
/** @{ */
/** Set by the library: */
#define D_RING_HOLES 0x100u   /**< empty slots may lie between the oldest and newest entry */
#define D_RING_HISTORY 0x200u /**< the ring's history buffer */
/** @} */

/** The largest buffer size. */
#define D_RING_MAX_SIZE 65535

/** Entry status bit 1: the value is known at run time. A status of 0 marks
 * an empty slot; the other bits belong to the caller. */
#define D_RING_STATUS_KNOWN 0x2u

/** @{ */
/** Callback type of the overwrite callbacks. */
#define D_RING_OVERWRITE_CB_TYPE D_CB_TYPE_RINGBUF_OVERWRITE
#define D_RING_OVERWRITE_CB_TYPE_NAME "ring_overwrite"
/** @} */

/** The text of a string entry: size counts 32-byte units. */
typedef struct D_RING_STR {
  char *str;   /**< the text */
  D_INT4 size; /**< room for the text, in 32-byte units */
} D_RING_STR;

/** An entry's value; which member holds it follows the ring's type. */
typedef union D_RING_VALUE {
  void *ptr;       /**< type 0 */
  D_INT4 i;        /**< types 1 and 2 */
  D_REAL8 *dp;     /**< type 4: the entry's slot in the double storage */
  D_RING_STR *rs;  /**< type 8, or null before the first text */
  float f;         /**< type 4096 */
  D_UINT4 w;       /**< type 8192 */
} D_RING_VALUE;

/** One entry; entries are stored contiguously. (16 bytes where pointers are
 * 32 bits; 24 where they are 64.) */
typedef struct D_RING_ENTRY {
  D_INT4 sec;         /**< time stamp: seconds */
  D_INT4 usec;        /**< time stamp: microseconds */
  D_RING_VALUE value; /**< the value */
  D_UINT2 status; /**< 0: the slot is empty */
  D_UINT2 flag;   /**< the caller's extra word */
} D_RING_ENTRY;

struct D_RING_BUF;

/** A buffer of a ring. Its first two words link it into the ring's list.
 * Buffers come only from DutRingAddBuffer and DutRingAddFixedBuffer: the
 * library keeps state of its own behind each header it allocates, so a
 * header the host allocated must never be linked into a ring's list. */
typedef struct D_RING_HDR {
  D_DQ_NODE *prev;        /**< previous buffer of the ring */
  D_DQ_NODE *next;        /**< next buffer of the ring */
  D_TIME_VALUE min_span;  /**< data time a growable buffer must cover */
  D_TIME_VALUE incr;      /**< the increment: the buffer's key in its ring */
  D_TIME_VALUE next_incr; /**< the next increment boundary */
  D_RING_ENTRY *start;    /**< size entries */
  D_RING_ENTRY *current;  /**< the newest entry */
  struct D_RING_BUF *ring; /**< the ring holding the buffer */
  D_UINT2 size;            /**< number of entries */
  D_UINT4 flags;           /**< D_RING_FIXED ... D_RING_HISTORY */
} D_RING_HDR;

/** Frees a pointer value of a type-0 ring. */
typedef void (*D_RING_FREE_FUNC)(void *value);

/** A ring. */
typedef struct D_RING_BUF {
  D_DQ_NODE *buffers;          /**< sentinel of the buffer list, smallest increment first */
  D_RING_HDR *hist_buff;       /**< the history buffer, or null */
  D_RING_ENTRY *initial_value; /**< a value archived before any buffer took it, or null */
  D_UINT4 type;               /**< the value type */
  D_RING_FREE_FUNC free_func; /**< type 0 only, or null */
  char *name;                 /**< owned copy, or null ("Unnamed") */
  D_CB_LIST *overwrite_cb_list; /**< overwrite callbacks, or null */
} D_RING_BUF;

/** The callback data of an overwrite: called with the ring as the object,
 * before the entry changes. */
typedef struct D_RING_OVERWRITE_CB_DATA {
  struct D_CB *cb; /**< the callback being called */
  D_RING_HDR *buffer;  /**< the buffer holding the entry */
  D_RING_ENTRY *entry; /**< still holding the value about to be replaced */
} D_RING_OVERWRITE_CB_DATA;

#define D_GRB_BUFFERS(rb) ((rb)->buffers) /**< `buffers` field */
#define D_GRB_HIST_BUFF(rb) ((rb)->hist_buff) /**< `hist_buff` field */
#define D_GRB_INITIAL_VALUE(rb) ((rb)->initial_value) /**< `initial_value` field */
#define D_GRB_TYPE(rb) ((rb)->type) /**< `type` field */
#define D_GRB_FREE_FUNC(rb) ((rb)->free_func) /**< `free_func` field */
#define D_GRB_NAME(rb) ((rb)->name) /**< `name` field */
#define D_GRB_OVERWRITE_CB_LIST(rb) ((rb)->overwrite_cb_list) /**< `overwrite_cb_list` field */
#define D_GRH_MIN_SPAN(hdr) ((hdr)->min_span) /**< `min_span` field */
#define D_GRH_INCR(hdr) ((hdr)->incr) /**< `incr` field */
#define D_GRH_NEXT_INCR(hdr) ((hdr)->next_incr) /**< `next_incr` field */
#define D_GRH_START(hdr) ((hdr)->start) /**< `start` field */
#define D_GRH_CURRENT(hdr) ((hdr)->current) /**< `current` field */
#define D_GRH_RING(hdr) ((hdr)->ring) /**< `ring` field */
#define D_GRH_SIZE(hdr) ((hdr)->size) /**< `size` field */
#define D_GRH_FLAGS(hdr) ((hdr)->flags) /**< `flags` field */
#define D_GRBE_SEC(rbe) ((rbe)->sec) /**< `sec` field */
#define D_GRBE_USEC(rbe) ((rbe)->usec) /**< `usec` field */
#define D_GRBE_VALUE(rbe) ((rbe)->value) /**< `value` field */
#define D_GRBE_STATUS(rbe) ((rbe)->status) /**< `status` field */
#define D_GRBE_FLAG(rbe) ((rbe)->flag) /**< `flag` field */

/** A per-caller iteration over one buffer (see DutRingIterFirst). */
typedef struct D_RING_ITER {
  D_RING_HDR *buffer; /**< null before the first call */
  D_INT4 index;       /**< slot of the entry last returned */
  D_INT4 done;        /**< the iteration has ended */
} D_RING_ITER;

/** @{ */
/** Traversal kinds. */
#define D_RING_TRAV_CHANGES 1 /**< DutRingZeroTravInit */
#define D_RING_TRAV_RING 2    /**< DutRingTravInit */
#define D_RING_TRAV_HISTORY 3 /**< DutRingHistTravInit */
/** @} */

/** A traversal context: filled by one of the three Init functions, held by
 * the caller (no allocation, nothing to destroy) and advanced by
 * DutRingTravNext. The fields are for printing; use the functions. */
typedef struct D_RING_CONTEXT {
  D_INT4 kind;            /**< D_RING_TRAV_..., 0 before an Init */
  D_RING_BUF *ring;       /**< the ring traversed */
  D_RING_HDR *buffer;     /**< the buffer walked entry by entry, or null */
  D_TIME_VALUE start;     /**< the first time visited */
  D_TIME_VALUE incr;      /**< 0.0: every change; above: samples */
  D_TIME_VALUE end;       /**< the last time visited */
  D_TIME_VALUE next_time; /**< the next sample time */
  D_INT4 position;        /**< entry by entry: index from the oldest entry */
  D_INT4 remaining;       /**< changes still to visit; -1: the samples are over */
  D_INT4 lead;            /**< every change: the value in force at start is still to come */
  D_INT4 done;            /**< the traversal has ended */
} D_RING_CONTEXT;

/** A traversal's visit function: the context, the step's entry (null where no
 * value is known at a sample time), the step's time and the caller's
 * argument. A non-zero result stops DutRingTraverse and is returned. */
typedef D_WORD (*D_RING_TRAV_FUNC)(D_RING_CONTEXT *context, D_RING_ENTRY *entry,
                                   const D_TIME_VALUE *time, void *arg);

D_BEGIN_DECLS

/* ---- Rings and buffers ------------------------------------------------- */

/** Sets the process-wide origin of every increment grid. Negative parts fail
 * the expectations "start->sec >= 0" / "start->usec >= 0" and are refused
 * (D_ERR_VAL_TOO_SMALL). Null: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutRingSetStartTime(const D_TIME_VALUE *start);
/** The ring start time; D_FALSE while it was never set. Null: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutRingGetStartTime(D_TIME_VALUE *start_return);

/** A new ring of the type (one of the six) with no buffers and a copy of the
 * name (may be null). Any other type warns "DutRingCreate: invalid type <%ld>
 * requested (using double)\n" and answers null (D_ERR_TYPE_INVALID): the
 * text is kept as it always was, but no ring is made. */
D_EXPORT D_RING_BUF *DutRingCreate(D_UINT4 type, const char *name);

/** Adds a growable buffer, or updates the one with this increment.
 * The increment must be 0.0 or more (else null, D_ERR_VAL_TOO_SMALL, and
 * with flag 3 the warnings "Smallest increment allowed is 0.000001\n",
 * "Requested Increment (%ld.%06ld) too small for buffer %s\n" and "Ring
 * buffer not added for buffer %s\n"). The size is held within 2..65535.
 *   - An existing fixed buffer of that increment: the warning "Fixed size
 *     mismatch for buffer %s, incr %ld.%06ld\n" and null.
 *   - An existing growable one takes a larger minimum span (and the coarser
 *     buffers that then cover less than it are destroyed, up to the first
 *     that does not) and grows to a larger size; it is returned.
 *   - A new buffer whose minimum span is below that of the next finer
 *     buffer takes that span plus its own increment, so coarser buffers
 *     always cover more time. When the ring already holds a value (the
 *     first buffer's newest entry, or the initial value with status bit 1),
 *     that value is archived again so that the new buffer starts with it. */
D_EXPORT D_RING_HDR *DutRingAddBuffer(D_RING_BUF *ring, const D_TIME_VALUE *min_span,
                                      const D_TIME_VALUE *incr, D_INT4 size);
/** Adds a fixed buffer (held within 2..65535 entries) or grows the fixed one
 * with this increment; a growable one of that increment gives the "Fixed
 * size mismatch" warning and null. A new fixed buffer is made as a new
 * growable one but starts empty: the ring's value reaches it with the next
 * archive. */
D_EXPORT D_RING_HDR *DutRingAddFixedBuffer(D_RING_BUF *ring, D_INT4 size, const D_TIME_VALUE *incr);
/** The buffer whose increment equals incr exactly; null with
 * D_ERR_DOESNT_EXIST when there is none. */
D_EXPORT D_RING_HDR *DutRingGetIncrement(D_RING_BUF *ring, const D_TIME_VALUE *incr);

/** @{ */
/** Set flag bit 1, 2 or 3 of the buffer to flag (D_TRUE or D_FALSE) and
 * return the previous setting. A null buffer (D_ERR_NULL_PTR) or another
 * flag value (D_ERR_VAL_INVALID) changes nothing and answers D_FALSE. */
D_EXPORT D_BOOL DutRingSetTimeRepeat(D_RING_HDR *buffer, D_BOOL flag);
D_EXPORT D_BOOL DutRingSetValueRepeat(D_RING_HDR *buffer, D_BOOL flag);
D_EXPORT D_BOOL DutRingSetIndirect(D_RING_HDR *buffer, D_BOOL flag);
/** @} */

/** Grows the entry array to new_size (held at 65535), the entries from the
 * oldest to the newest moved to slots 0 onward. A size below the current
 * one: D_ERR_VAL_TOO_SMALL, D_FALSE; the same size changes nothing. */
D_EXPORT D_BOOL DutRingReallocArray(D_RING_HDR *buffer, D_INT4 new_size);
/** The first allocation of a buffer's entry array (size held within
 * 2..65535); the last slot becomes current. A buffer that has its array
 * already is a fatal assertion ("hdr->start == NULL"). */
D_EXPORT D_BOOL DutRingAllocateArray(D_RING_HDR *buffer, D_INT4 size);

/* ---- Values ---------------------------------------------------------------- */

/** Stores a value into one buffer; returns the entry written, or null.
 *   - Empty buffer: the value goes into the current slot and slot 0 becomes
 *     current, whatever slot was current. A new or cleared buffer's current
 *     slot is its last, so its first value lands there, slot 0 stays empty,
 *     and the next insertion takes this path again (deliberate). The
 *     increment grid is left as it was.
 *   - A time after the newest entry's: as DutRingArchiveValue for one
 *     buffer.
 *   - A time at or before the newest: with time repeat off, an entry with
 *     exactly that time is overwritten (the last of several); otherwise the
 *     value is put in time order after the entries of equal time, the newer
 *     entries moving one slot up. A full buffer (that does not grow) gives
 *     up its oldest entry and the entries before the insertion point move
 *     one slot down; a value older than every entry of a full buffer is
 *     refused (D_ERR_VAL_TOO_SMALL, null). Double entries (type 4) cannot
 *     move: each move warns "Error in utRingCopyEntry: type numeric not
 *     implemented\n" and empties the entry it should have moved.
 * A status of 0 (an empty slot) is refused: D_ERR_VAL_INVALID. A null
 * buffer or value is a fatal assertion ("hdr", "value"). */
D_EXPORT D_RING_ENTRY *DutRingInsertValue(D_RING_HDR *buffer, const D_TIME_VALUE *time, const void *value,
                                          D_UINT2 status, D_UINT2 flag);
/** Stores a value into every buffer of the ring. With status bit 1 set,
 * buffers present and the current time known, each buffer takes it as a
 * value at or after its newest: an empty buffer starts in slot 0; a value
 * equal to the newest is dropped unless the buffer keeps value repeats; an
 * earlier time is ignored (with flag 3, the warning "Time reversal ...");
 * an equal time overwrites the newest unless the buffer keeps time repeats;
 * otherwise, within one increment of data time only the latest value is
 * kept and a new entry opens when the data time reaches the next increment
 * boundary. The first buffer's result is returned. Otherwise the value is
 * kept as the ring's initial value (that entry is returned). A status of 0
 * is refused (D_ERR_VAL_INVALID, null). */
D_EXPORT D_RING_ENTRY *DutRingArchiveValue(D_RING_BUF *ring, const D_TIME_VALUE *time, const void *value,
                                           D_UINT2 status, D_UINT2 flag);
/** Where the entry's value is: the pointer itself (type 0), the double's
 * slot (4), the word (1, 2, 4096, 8192), the text (8; null while the entry
 * never held one, D_ERR_EMPTY). Another type: D_ERR_TYPE_INVALID, null. */
D_EXPORT void *DutRingValuePtr(D_RING_ENTRY *entry, D_UINT4 type);
/** D_TRUE when both entries lie in the buffer's array and are the same entry
 * or hold equal values; D_FALSE otherwise (D_ERR_NULL_PTR for a null
 * buffer). A null entry is a fatal assertion ("rbe1", "rbe2"). */
D_EXPORT D_BOOL DutRingEntriesEqual(D_RING_HDR *buffer, D_RING_ENTRY *entry1, D_RING_ENTRY *entry2);

/* ---- Iteration and searches ------------------------------------------------ */

/** With a buffer: its oldest entry (null when empty), and the buffer is
 * remembered process-wide; with null: the next entry, wrapping from the
 * last slot to slot 0, until the newest has been returned, then null. Null
 * before any start: null (with flag 3, "DutRingNextEntry has NULL argument
 * before initialized\n"). One iteration at a time in the whole process. */
D_EXPORT D_RING_ENTRY *DutRingNextEntry(D_RING_HDR *buffer);
/** @{ */
/** The same iteration in the caller's own record: DutRingIterFirst starts it
 * (null iter: D_ERR_NULL_PTR), DutRingIterNext continues. Any number may run
 * at once, on any threads, as long as the buffers are not changed. */
D_EXPORT D_RING_ENTRY *DutRingIterFirst(D_RING_ITER *iter, D_RING_HDR *buffer);
D_EXPORT D_RING_ENTRY *DutRingIterNext(D_RING_ITER *iter);
/** @} */

/** The entry in force at the time: the latest entry whose time is not after
 * it (of several with that time, the last). An empty buffer gives the
 * ring's initial value; a time before the oldest entry gives the initial
 * value or null; a time after the newest gives the newest. Entries are kept
 * in time order, so the answer takes logarithmic time. The answer, and the
 * process-wide iteration state left for DutRingNextEntry(NULL), are those of
 * the walk from the oldest entry with DutRingNextEntry that stops at the
 * first entry that is the newest, or whose successor is empty, or whose
 * successor is after the time: a following DutRingNextEntry(NULL) returns
 * the entry after that successor (null once the newest was the answer or
 * the successor). The three early answers leave the state alone. */
D_EXPORT D_RING_ENTRY *DutRingFindTime(D_RING_HDR *buffer, const D_TIME_VALUE *time);
/** DutRingFindTime with the walk's state left in the caller's iter (may be
 * null: no state kept) instead of the process-wide one. */
D_EXPORT D_RING_ENTRY *DutRingIterFindTime(D_RING_ITER *iter, D_RING_HDR *buffer, const D_TIME_VALUE *time);
/** For a whole ring: its initial value when it has no buffers, else
 * DutRingFindTime in DutRingFindBuffer's buffer (null when none). */
D_EXPORT D_RING_ENTRY *DutRingFindTimeEntry(D_RING_BUF *ring, const D_TIME_VALUE *time);
/** The finest buffer whose oldest entry is at or before the time; null when
 * the ring has no buffers, its first buffer is empty or none reaches back. */
D_EXPORT D_RING_HDR *DutRingFindBuffer(D_RING_BUF *ring, const D_TIME_VALUE *time);
/** D_TRUE when the first buffer's newest entry holds a value. */
D_EXPORT D_BOOL DutRingBuffHasData(D_RING_BUF *ring);
/** The first buffer's newest entry, or the initial value when there are no
 * buffers or the first is empty. */
D_EXPORT D_RING_ENTRY *DutRingCurrentEntry(D_RING_BUF *ring);

/** The data time the buffer covers into *span; an empty buffer gives 0.0 and
 * D_FALSE. History buffer: newest minus slot 0. Value repeat off: the later
 * of the current time (when known) and the newest entry, minus the oldest
 * entry, each part at least 0. Value repeat on: the number of entries as
 * seconds (such buffers are measured in entries). */
D_EXPORT D_BOOL DutRingBufferSpan(D_RING_HDR *buffer, D_TIME_VALUE *span);
/** The span of the last (coarsest) buffer; D_FALSE when it is empty or the
 * ring has none. */
D_EXPORT D_BOOL DutRingMaxSpan(D_RING_BUF *ring, D_TIME_VALUE *span);
/** The number of entries of the increment-0.0 buffer (its size once
 * wrapped); 0 when there is none. */
D_EXPORT D_INT4 DutRingZeroSpan(D_RING_BUF *ring);

/* ---- Clearing and destruction ---------------------------------------------- */

/** Clears every buffer of the ring and its history buffer; the initial value
 * stays. */
D_EXPORT D_BOOL DutRingClear(D_RING_BUF *ring);
/** Clears every entry (values released by type; time, status and flag 0) and
 * makes the last slot current. */
D_EXPORT D_BOOL DutRingClearBuffer(D_RING_HDR *buffer);
/** Sets the free function of a type-0 ring. Another type only warns "Cannot
 * set free function for non-void ring buffer\n" (D_ERR_TYPE_MISMATCH,
 * D_FALSE). */
D_EXPORT D_BOOL DutRingSetFreeFunc(D_RING_BUF *ring, D_RING_FREE_FUNC func);
/** Frees the buffers, the history buffer, the initial value and the name;
 * the record, its sentinel and its callback list survive (see above). */
D_EXPORT D_BOOL DutRingDestroy(D_RING_BUF *ring);

/** Registers func(ring, D_RING_OVERWRITE_CB_DATA *, arg), called before any
 * entry that holds a value is overwritten (the first registration makes the
 * type -108 "ring_overwrite"). A duplicate: D_ERR_ALREADY_EXISTS, null. */
D_EXPORT D_CB *DutRingOverwriteCbCreate(D_RING_BUF *ring, D_CB_FUNC func, D_WORD arg);
/** The registered callback, or null with D_ERR_DOESNT_EXIST. */
D_EXPORT D_CB *DutRingOverwriteCbLookup(D_RING_BUF *ring, D_CB_FUNC func, D_WORD arg);

/* ---- Reading: traversals ---------------------------------------------------- */

/** @} */
/** @addtogroup ringbuf
 *
 * @par Reading
 * The rules of the reading side (see also docs/ringbuf.md):
 *   - The change buffer of a ring is its increment-0.0 buffer, or its first
 *     buffer when it has none. Changes are counted back from the newest: 0
 *     is the newest change.
 *   - The span buffer for a start time is the finest buffer whose oldest
 *     entry is at or before it, or, when none reaches back that far, the
 *     buffer that reaches back furthest (the finer of equals).
 *   - The value in force at a time is what DutRingFindTimeEntry answers
 *     (the history buffer: the latest history entry not after it).
 *   - Traversals and statistics see a buffer as it is at each step and
 *     never touch the process-wide iteration state.
 * @{
 */

/** Changes first_change .. first_change + nchanges - 1 of the change buffer,
 * visited oldest first. nchanges must be above 0 and first_change at least
 * 0 (the expectations "nchanges > 0" / "first_change >= 0",
 * D_ERR_VAL_TOO_SMALL); a first change beyond the stored ones warns "First
 * change (%ld) too big: buffer only has %ld changes\n" (D_ERR_VAL_TOO_LARGE);
 * more changes than stored warns "Too many changes requested: %ld, only have
 * %ld\n" and visits those there are. A ring without buffers:
 * D_ERR_DOESNT_EXIST. Each step's time is the entry's. */
D_EXPORT D_BOOL DutRingZeroTravInit(D_RING_CONTEXT *context, D_RING_BUF *ring, D_INT4 first_change,
                                    D_INT4 nchanges);
/** The ring from start over span (at least 0.0). An increment above 0.0
 * samples the ring at start, start + incr, ... up to start + span: each
 * step's entry is the value in force at the sample time (null when none is
 * known) and its time the sample time. An increment of 0.0 visits, in the
 * span buffer for start, the value in force at start when it began before
 * start, then every entry from start to start + span, each step at its
 * entry's time. A negative increment or span: D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutRingTravInit(D_RING_CONTEXT *context, D_RING_BUF *ring, const D_TIME_VALUE *start,
                                const D_TIME_VALUE *incr, const D_TIME_VALUE *span);
/** The same over the ring's history buffer from start to end (not before
 * start). A ring without history: D_ERR_EMPTY. */
D_EXPORT D_BOOL DutRingHistTravInit(D_RING_CONTEXT *context, D_RING_BUF *ring, const D_TIME_VALUE *start,
                                    const D_TIME_VALUE *incr, const D_TIME_VALUE *end);
/** One step: the entry into *entry_return (null at a sample time with no
 * value) and the step's time into *time_return (may be null). Past the end:
 * the context is done, D_ERR_END_OF_TRAVERSAL, D_FALSE. */
D_EXPORT D_BOOL DutRingTravNext(D_RING_CONTEXT *context, D_RING_ENTRY **entry_return,
                                D_TIME_VALUE *time_return);
/** func over every remaining step; a non-zero result stops and is returned;
 * 0 at the end. Null context or func: D_ERR_NULL_PTR, 0. */
D_EXPORT D_WORD DutRingTraverse(D_RING_CONTEXT *context, D_RING_TRAV_FUNC func, void *arg);
/** D_TRUE and whether the traversal has gone past its end. */
D_EXPORT D_BOOL DutRingContextGetDone(D_RING_CONTEXT *context, D_INT4 *done_return);

/* ---- Reading: statistics, changes, deletion, history ------------------------- */

/** The largest and smallest value in force from start to end (not before
 * start): the value in force at start and every entry of the span buffer up
 * to end, as doubles. Types 0 and 8: D_ERR_TYPE_MISMATCH; nothing known in
 * the span: D_ERR_EMPTY; each D_FALSE. */
D_EXPORT D_BOOL DutRingGetMaxMin(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                 D_REAL8 *max_return, D_REAL8 *min_return);
/** The same over the history buffer. */
D_EXPORT D_BOOL DutRingGetHistMaxMin(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                     D_REAL8 *max_return, D_REAL8 *min_return);
/** The number of entries of the change buffer whose time lies from start to
 * end (a null bound is open). No buffers: 0. */
D_EXPORT D_BOOL DutRingNumChanges(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                  D_INT4 *count_return);
/** Those entries, oldest first: at most max_entries into entries; *count_return
 * gets how many there are in all (which may exceed max_entries). */
D_EXPORT D_BOOL DutRingGetChanges(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                  D_RING_ENTRY **entries, D_INT4 max_entries, D_INT4 *count_return);
/** Removes an entry: its value is released (no overwrite callback), the
 * newer entries move one slot down and the buffer no longer counts as
 * wrapped. Removing the only entry leaves the buffer cleared. An entry
 * outside the array: D_ERR_VAL_INVALID; an empty one: D_ERR_EMPTY. */
D_EXPORT D_BOOL DutRingDeleteEntry(D_RING_HDR *buffer, D_RING_ENTRY *entry);
/** Stores a value of the past into the ring's history buffer, made on first
 * use with the size of the option "default_history_buffer_size" (held
 * within 2..65535). History entries are kept in time order whatever order
 * they arrive in (after entries of equal time); a full history grows by
 * half, and at 65535 entries refuses more (D_ERR_VAL_TOO_LARGE). A time
 * after the ring's present (the current time when known, else the ring's
 * newest value) is not historical: "Error in DutRingArchiveHistoryData: time
 * not historical\n" with flag 3, D_ERR_VAL_INVALID, null. */
D_EXPORT D_RING_ENTRY *DutRingArchiveHistoryData(D_RING_BUF *ring, const D_TIME_VALUE *time,
                                                 const void *value, D_UINT2 status, D_UINT2 flag);

/* ---- Dumps (through a printf-like function; null means DutOut) ------------ */

/** "Buffer dump: Name: %s Min span: %ld.%06ld, Incr: %ld.%06ld, size: %ld\n",
 * then every entry from the oldest to the newest, each as "  [slot] " and
 * DutRingPrintRbe. */
D_EXPORT D_BOOL DutRingDumpBuffer(D_RING_HDR *buffer, D_PRINT_FUNC out);
/** One entry of the ring as "Time: %ld.%06ld Status: %u Flag: %u Value: %s\n"
 * (type 0 as hexadecimal, reals as the real-number format prints them,
 * texts quoted, an empty slot as "<empty>"). */
D_EXPORT D_BOOL DutRingPrintRbe(D_RING_BUF *ring, D_RING_ENTRY *entry, D_PRINT_FUNC out);
/** The context's description, then its remaining steps, each as "  at
 * %ld.%06ld: " and the entry (or "no value\n"); the context itself does not
 * advance. */
D_EXPORT D_BOOL DutRingPrintTraversal(D_RING_CONTEXT *context, D_PRINT_FUNC out);

D_END_DECLS

/** @} */
#endif /* VQUTIL_RINGBUF_H */
