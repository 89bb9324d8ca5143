/**
 * @defgroup list Linked lists
 * Linked stacks, lists, queues and deques.
 *
 * Intrusive containers (stack, list, queue, deque) link the caller's own
 * records: a node's first word (or first two words for the deque) are its
 * links, and the container never allocates for an item. The caller owns the
 * nodes, except that the Close operations free every node with the checked
 * free.
 *
 * Pointer containers (pointer stack, queue and deque) allocate a small node
 * of their own for each item pointer and free it when the item leaves.
 *
 * Items are compared by identity. Null holders and null nodes are assertion
 * failures; absent items give null, 0 or -1 as documented; nothing here
 * sets an error number. No locking: callers serialise.
 * @{
 */
/**
 * @file
 * @ingroup list
 * @brief Linked lists (list).
 */
#ifndef VQUTIL_LIST_H
#define VQUTIL_LIST_H

#include "types.h"

/** The link word an intrusive stack, list or queue node starts with. */
typedef struct D_SLIST_NODE {
  struct D_SLIST_NODE *next; /**< next node, or null */
} D_SLIST_NODE;

/** The links a deque node starts with; also the deque's sentinel header. */
typedef struct D_DQ_NODE {
  struct D_DQ_NODE *prev; /**< left neighbour */
  struct D_DQ_NODE *next; /**< right neighbour */
} D_DQ_NODE;

/** A pointer stack node, allocated by the stack. */
typedef struct D_PST_NODE {
  struct D_PST_NODE *next; /**< the node below, or null */
  void *ptr;               /**< the item */
} D_PST_NODE;

/** A pointer queue node, allocated by the queue. */
typedef struct D_PQ_NODE {
  struct D_PQ_NODE *next; /**< the node behind, or null */
  void *ptr;              /**< the item */
} D_PQ_NODE;

/** Pointer queue header, held by the caller; both null when empty. */
typedef struct D_PQ_HDR {
  D_PQ_NODE *front; /**< first node, or null */
  D_PQ_NODE *rear;  /**< last node, or null */
} D_PQ_HDR;
#define D_PQ_FRONT(hdr) ((hdr)->front) /**< `front` field */
#define D_PQ_REAR(hdr) ((hdr)->rear) /**< `rear` field */

/** A pointer deque node, allocated by the deque and linked into a deque
 * opened with DutDqOpen. */
typedef struct D_PDQ_NODE {
  struct D_PDQ_NODE *prev; /**< left neighbour */
  struct D_PDQ_NODE *next; /**< right neighbour */
  void *ptr;               /**< the item */
} D_PDQ_NODE;

/** Called on each node by DutListTravDel; non-null removes the node. */
typedef void *(*D_LIST_TRAV_FUNC)(void *node, void *arg);
/** Queue predicates: non-zero means "matches" / "comes before". */
typedef int (*D_QUEUE_CMP_FUNC)(void *a, void *b);

D_BEGIN_DECLS

/* ---- Intrusive stack and list: head is the address of the caller's head
 * pointer, whatever its node type (a hash chain head, &table->buckets[i],
 * is one), so it is passed untyped -------------------------------------- */

/** Pushes node on the stack. */
D_EXPORT void DutStackPush(void *head, void *node);
/** Unlinks and returns the top node; null when the stack is empty. */
D_EXPORT void *DutStackPop(void *head);
/** Frees every node with the checked free and empties the stack. */
D_EXPORT void DutStackClose(void *head);
/** The number of nodes from list on. */
D_EXPORT D_INT4 DutListLength(void *list);
/** Unlinks node and returns it; null when it is not in the list. */
D_EXPORT void *DutListDelete(void *head, void *node);
/** Calls func(node, arg) on each node in order; a non-null result unlinks
 * the node (func may free it). Returns the last result. */
D_EXPORT void *DutListTravDel(void *head, D_LIST_TRAV_FUNC func, void *arg);
/** The last node of the list; null for an empty list. */
D_EXPORT void *DutListEnd(void *list);
/** 0-based position; -1 with a warning when the node is not in the list. */
D_EXPORT D_INT4 DutListPos(void *front, void *node);

/* ---- Intrusive queue: front and rear are the addresses of the caller's
 * two pointers, untyped as the stack's head --------------------------------- */

/** Links node at the rear. */
D_EXPORT void DutQueueAppend(void *front, void *rear, void *node);
/** Links node at the front. */
D_EXPORT void DutQueuePush(void *front, void *rear, void *node);
/** Unlinks and returns the front node; null when the queue is empty. */
D_EXPORT void *DutQueuePop(void *front, void *rear);
/** Links node right after the node `after`. */
D_EXPORT void DutQueueRightInsert(void *front, void *rear, void *node, void *after);
/** Unlinks the node after `after`. Detaching the last node leaves *rear
 * pointing at it (callers that detach the rear repair it). */
D_EXPORT void *DutQueueRightDetach(void *front, void *rear, void *after);
/** The front node if compare(front, key); otherwise the left neighbour of
 * the first match; null when none matches. */
D_EXPORT void *DutQueueLeftFind(void *front, void *rear, void *key, D_QUEUE_CMP_FUNC compare);
/** Stable ordered insertion before the first n with compare(node, n). */
D_EXPORT void DutQueueInsert(void *front, void *rear, void *node, D_QUEUE_CMP_FUNC compare);
/** Unlinks node and returns it; null when it is not in the queue. */
D_EXPORT void *DutQueueDelete(void *front, void *rear, void *node);
/** Frees every node with the checked free and empties the queue. */
D_EXPORT void DutQueueClose(void *front, void *rear);

/* ---- Circular deque with a sentinel header allocated by DutDqOpen ------- */

/** Allocates an empty deque's sentinel into *pdq. */
D_EXPORT void DutDqOpen(D_DQ_NODE **pdq);
/** Frees every node and the sentinel with the checked free; *pdq becomes
 * null (nothing is done when it already is). */
D_EXPORT void DutDqClose(D_DQ_NODE **pdq);
/** Links node right of `at` (the sentinel itself puts it first). */
D_EXPORT void DutDqRightInsert(void *node, void *at);
/** Unlinks node and returns it; null (and nothing done) for the sentinel
 * itself. */
D_EXPORT void *DutDqDetach(D_DQ_NODE *dq, void *node);
/** Unlinks and returns the first node; null when the deque is empty. */
D_EXPORT void *DutDqPop(D_DQ_NODE *dq);
/** The first node; null when the deque is empty. */
D_EXPORT void *DutDqFirst(D_DQ_NODE *dq);
/** The last node; null when the deque is empty. */
D_EXPORT void *DutDqLast(D_DQ_NODE *dq);

/* ---- Pointer stack ------------------------------------------------------ */

/** Pushes ptr in a new node and returns the node. */
D_EXPORT D_PST_NODE *DutPushPstNode(D_PST_NODE **head, void *ptr);
/** Frees the top node and returns its item; null when empty. */
D_EXPORT void *DutPopPstNode(D_PST_NODE **head);
/** The first node holding ptr, or null. */
D_EXPORT D_PST_NODE *DutFindPstNode(D_PST_NODE *head, void *ptr);

/* ---- Pointer queue ------------------------------------------------------ */

/** Puts ptr in a new node at the front and returns the node. A null ptr is
 * an assertion failure (so is an ordered insertion that pushes one). */
D_EXPORT D_PQ_NODE *DutPqPush(D_PQ_HDR *hdr, void *ptr);
/** Puts ptr in a new node at the rear and returns the node. */
D_EXPORT D_PQ_NODE *DutPqAdd(D_PQ_HDR *hdr, void *ptr);
/** Puts ptr in a new node right after the node `after`; returns the node.
 * An empty queue, a null ptr or a null after is an assertion failure. */
D_EXPORT D_PQ_NODE *DutPqRInsert(D_PQ_HDR *hdr, void *ptr, D_PQ_NODE *after);
/** Stable ordered insertion before the first item n with compare(ptr, n);
 * returns the 1-based position taken. */
D_EXPORT D_INT4 DutPqInsert(D_PQ_HDR *hdr, void *ptr, D_QUEUE_CMP_FUNC compare);
/** Frees the front node and returns its item; null when empty. */
D_EXPORT void *DutPqPop(D_PQ_HDR *hdr);
/** Frees the first node holding ptr and returns ptr; null when absent.
 * Deleting from an empty queue is an assertion failure. */
D_EXPORT void *DutPqDelete(D_PQ_HDR *hdr, void *ptr);
/** ptr when the queue holds it, else null. */
D_EXPORT void *DutPqFind(D_PQ_HDR *hdr, void *ptr);
/** The number of items. */
D_EXPORT D_INT4 DutPqCount(D_PQ_HDR *hdr);
/** Frees every node (not the items) and empties the queue. */
D_EXPORT void DutPqClose(D_PQ_HDR *hdr);

/* ---- Pointer deque, linked into a deque opened with DutDqOpen ----------- */

/** Puts ptr in a new node at the front of the deque; returns the node. */
D_EXPORT D_PDQ_NODE *DutAddPdqNode(D_DQ_NODE *dq, void *ptr);
/** The first node holding ptr, or null. */
D_EXPORT D_PDQ_NODE *DutFindPdqNode(D_DQ_NODE *dq, void *ptr);
/** Frees the first node holding ptr: 0 on success, -1 when absent. */
D_EXPORT D_INT4 DutDeletePdqNode(D_DQ_NODE *dq, void *ptr);

D_END_DECLS

/** @} */
#endif /* VQUTIL_LIST_H */
