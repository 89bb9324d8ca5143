// Intrusive stacks, lists, queues and deques, and the pointer containers
// built on them. Intrusive nodes are the caller's records whose first word
// (or first two words for a deque) are the links; the pointer containers
// allocate one small node per item.
#include "vqutil/list.h"

#include "frame/check.hpp"
#include "frame/hex.hpp"
#include "vqutil/memory.h"
#include "vqutil/output.h"

namespace {

constexpr const char *kListFile = "list.c";
constexpr const char *kQueueFile = "queue.c";
constexpr const char *kDequeFile = "deque.c";
constexpr const char *kPtrQueueFile = "ptrqueue.c";

inline D_SLIST_NODE *asLink(void *node) { return static_cast<D_SLIST_NODE *>(node); }
inline D_DQ_NODE *asDq(void *node) { return static_cast<D_DQ_NODE *>(node); }
// The address of a caller's head, front or rear pointer, of any node type.
inline void **holder(void *address) { return static_cast<void **>(address); }

}  // namespace

extern "C" {

// ---- Intrusive stack and list -------------------------------------------

D_EXPORT void DutStackPush(void *headp, void *node) {
  void **head = holder(headp);
  VQ_ASSERT(head != nullptr, "headp != NULL", "stack.c");
  VQ_ASSERT(node != nullptr, "p != NULL", "stack.c");
  asLink(node)->next = asLink(*head);
  *head = node;
}

D_EXPORT void *DutStackPop(void *headp) {
  void **head = holder(headp);
  VQ_ASSERT(head != nullptr, "headp != NULL", "stack.c");
  D_SLIST_NODE *top = asLink(*head);
  if (top == nullptr) return nullptr;
  *head = top->next;
  top->next = nullptr;
  return top;
}

D_EXPORT void DutStackClose(void *headp) {
  void **head = holder(headp);
  VQ_ASSERT(head != nullptr, "headp != NULL", "stack.c");
  D_SLIST_NODE *p = asLink(*head);
  while (p != nullptr) {
    D_SLIST_NODE *next = p->next;
    DutFreeCheck(p, "p", "stack.c", __LINE__);
    p = next;
  }
  *head = nullptr;
}

D_EXPORT D_INT4 DutListLength(void *list) {
  D_INT4 n = 0;
  for (D_SLIST_NODE *p = asLink(list); p != nullptr; p = p->next) ++n;
  return n;
}

D_EXPORT void *DutListDelete(void *headp, void *node) {
  void **head = holder(headp);
  VQ_ASSERT(head != nullptr, "headp", kListFile);
  VQ_ASSERT(node != nullptr, "element", kListFile);
  D_SLIST_NODE **link = reinterpret_cast<D_SLIST_NODE **>(head);
  while (*link != nullptr) {
    if (*link == node) {
      *link = asLink(node)->next;
      asLink(node)->next = nullptr;
      return node;
    }
    link = &(*link)->next;
  }
  return nullptr;
}

D_EXPORT void *DutListTravDel(void *headp, D_LIST_TRAV_FUNC func, void *arg) {
  void **head = holder(headp);
  VQ_ASSERT(head != nullptr, "headp != NULL", kListFile);
  VQ_ASSERT(func != nullptr, "del_func != NULL", kListFile);
  void *result = nullptr;
  D_SLIST_NODE *prev = nullptr;
  D_SLIST_NODE *p = asLink(*head);
  while (p != nullptr) {
    // Read the successor first: func may free the node it removes.
    D_SLIST_NODE *next = p->next;
    result = func(p, arg);
    if (result != nullptr) {
      if (prev == nullptr)
        *head = next;
      else
        prev->next = next;
    } else {
      prev = p;
    }
    p = next;
  }
  return result;
}

D_EXPORT void *DutListEnd(void *list) {
  D_SLIST_NODE *p = asLink(list);
  if (p == nullptr) return nullptr;
  while (p->next != nullptr) p = p->next;
  return p;
}

D_EXPORT D_INT4 DutListPos(void *front, void *node) {
  VQ_ASSERT(front != nullptr, "front", kListFile);
  VQ_ASSERT(node != nullptr, "element", kListFile);
  D_INT4 pos = 0;
  D_SLIST_NODE *p = asLink(front);
  for (; p != nullptr; p = p->next, ++pos) {
    if (p == node) return pos;
  }
  // The second value is where the walk ended (always 0), not the head.
  DutWarning("DutListPos: element %" PRIxPTR " is not part of list %" PRIxPTR "\n", vq::hexOf(node), vq::hexOf(p));
  return -1;
}

// ---- Intrusive queue ----------------------------------------------------

#define VQ_QUEUE_ARGS()                                        \
  void **front = holder(frontp);                              \
  void **rear = holder(rearp);                                \
  VQ_ASSERT(front != nullptr, "frontp != NULL", kQueueFile); \
  VQ_ASSERT(rear != nullptr, "rearp != NULL", kQueueFile)

D_EXPORT void DutQueueAppend(void *frontp, void *rearp, void *node) {
  VQ_QUEUE_ARGS();
  VQ_ASSERT(node != nullptr, "p != NULL", kQueueFile);
  asLink(node)->next = nullptr;
  if (*rear == nullptr) {
    *front = node;
  } else {
    asLink(*rear)->next = asLink(node);
  }
  *rear = node;
}

D_EXPORT void DutQueuePush(void *frontp, void *rearp, void *node) {
  VQ_QUEUE_ARGS();
  VQ_ASSERT(node != nullptr, "p != NULL", kQueueFile);
  asLink(node)->next = asLink(*front);
  *front = node;
  if (*rear == nullptr) *rear = node;
}

D_EXPORT void *DutQueuePop(void *frontp, void *rearp) {
  VQ_QUEUE_ARGS();
  D_SLIST_NODE *p = asLink(*front);
  if (p == nullptr) return nullptr;
  *front = p->next;
  p->next = nullptr;
  if (*front == nullptr) *rear = nullptr;
  return p;
}

D_EXPORT void DutQueueRightInsert(void *frontp, void *rearp, void *node, void *after) {
  VQ_QUEUE_ARGS();
  VQ_ASSERT(node != nullptr, "p != NULL", kQueueFile);
  VQ_ASSERT(after != nullptr, "pp != NULL", kQueueFile);
  asLink(node)->next = asLink(after)->next;
  asLink(after)->next = asLink(node);
  if (*rear == nullptr) *rear = node;
}

D_EXPORT void *DutQueueRightDetach(void *frontp, void *rearp, void *after) {
  VQ_QUEUE_ARGS();
  VQ_ASSERT(after != nullptr, "pp != NULL", kQueueFile);
  D_SLIST_NODE *p = asLink(after)->next;
  if (p == nullptr) return nullptr;
  asLink(after)->next = p->next;
  p->next = nullptr;
  // Callers that detach the rear repair it themselves.
  if (*front == nullptr) *rear = nullptr;
  return p;
}

D_EXPORT void *DutQueueLeftFind(void *frontp, void *rearp, void *key, D_QUEUE_CMP_FUNC compare) {
  VQ_QUEUE_ARGS();
  VQ_ASSERT(compare != nullptr, "cmp_func != NULL", kQueueFile);
  D_SLIST_NODE *p = asLink(*front);
  if (p == nullptr) return nullptr;
  if (compare(p, key)) return p;
  for (; p->next != nullptr; p = p->next) {
    if (compare(p->next, key)) return p;
  }
  return nullptr;
}

D_EXPORT void DutQueueInsert(void *frontp, void *rearp, void *node, D_QUEUE_CMP_FUNC compare) {
  VQ_QUEUE_ARGS();
  VQ_ASSERT(node != nullptr, "p != NULL", kQueueFile);
  VQ_ASSERT(compare != nullptr, "cmp_func != NULL", kQueueFile);
  if (*front == nullptr || compare(node, *front)) {
    DutQueuePush(front, rear, node);
    return;
  }
  for (D_SLIST_NODE *p = asLink(*front); p->next != nullptr; p = p->next) {
    if (compare(node, p->next)) {
      asLink(node)->next = p->next;
      p->next = asLink(node);
      return;
    }
  }
  DutQueueAppend(front, rear, node);
}

D_EXPORT void *DutQueueDelete(void *frontp, void *rearp, void *node) {
  void **front = holder(frontp);
  void **rear = holder(rearp);
  VQ_ASSERT(front != nullptr, "frontp", kQueueFile);
  VQ_ASSERT(rear != nullptr, "rearp", kQueueFile);
  VQ_ASSERT(node != nullptr, "p", kQueueFile);
  D_SLIST_NODE *prev = nullptr;
  for (D_SLIST_NODE *p = asLink(*front); p != nullptr; prev = p, p = p->next) {
    if (p != node) continue;
    if (prev == nullptr)
      *front = p->next;
    else
      prev->next = p->next;
    if (*rear == p) *rear = prev;
    p->next = nullptr;
    return p;
  }
  return nullptr;
}

D_EXPORT void DutQueueClose(void *frontp, void *rearp) {
  VQ_QUEUE_ARGS();
  D_SLIST_NODE *p = asLink(*front);
  while (p != nullptr) {
    D_SLIST_NODE *next = p->next;
    DutFreeCheck(p, "p", kQueueFile, __LINE__);
    p = next;
  }
  *front = nullptr;
  *rear = nullptr;
}

#undef VQ_QUEUE_ARGS

// ---- Circular deque with a sentinel -------------------------------------

D_EXPORT void DutDqOpen(D_DQ_NODE **pdq) {
  VQ_ASSERT(pdq != nullptr, "pdq != NULL", kDequeFile);
  auto *header = static_cast<D_DQ_NODE *>(DutMallocCheck(sizeof(D_DQ_NODE), "*pdq", kDequeFile, __LINE__));
  header->prev = header;
  header->next = header;
  *pdq = header;
}

D_EXPORT void DutDqClose(D_DQ_NODE **pdq) {
  VQ_ASSERT(pdq != nullptr, "pdq != NULL", kDequeFile);
  D_DQ_NODE *header = *pdq;
  if (header == nullptr) return;
  D_DQ_NODE *p = header->next;
  while (p != header) {
    D_DQ_NODE *next = p->next;
    DutFreeCheck(p, "p", kDequeFile, __LINE__);
    p = next;
  }
  DutFreeCheck(header, "*pdq", kDequeFile, __LINE__);
  *pdq = nullptr;
}

D_EXPORT void DutDqRightInsert(void *node, void *at) {
  VQ_ASSERT(at != nullptr, "d != NULL", kDequeFile);
  VQ_ASSERT(node != nullptr, "p != NULL", kDequeFile);
  D_DQ_NODE *n = asDq(node);
  D_DQ_NODE *left = asDq(at);
  n->prev = left;
  n->next = left->next;
  left->next->prev = n;
  left->next = n;
}

D_EXPORT void *DutDqDetach(D_DQ_NODE *dq, void *node) {
  VQ_ASSERT(dq != nullptr, "d != NULL", kDequeFile);
  VQ_ASSERT(node != nullptr, "p != NULL", kDequeFile);
  if (node == dq) return nullptr;
  D_DQ_NODE *n = asDq(node);
  n->prev->next = n->next;
  n->next->prev = n->prev;
  return node;
}

D_EXPORT void *DutDqPop(D_DQ_NODE *dq) {
  VQ_ASSERT(dq != nullptr, "d != NULL", kDequeFile);
  if (dq->next == dq) return nullptr;
  return DutDqDetach(dq, dq->next);
}

D_EXPORT void *DutDqFirst(D_DQ_NODE *dq) {
  VQ_ASSERT(dq != nullptr, "d != NULL", kDequeFile);
  return dq->next == dq ? nullptr : dq->next;
}

D_EXPORT void *DutDqLast(D_DQ_NODE *dq) {
  VQ_ASSERT(dq != nullptr, "d != NULL", kDequeFile);
  return dq->prev == dq ? nullptr : dq->prev;
}

// ---- Pointer stack --------------------------------------------------------

D_EXPORT D_PST_NODE *DutPushPstNode(D_PST_NODE **head, void *ptr) {
  VQ_ASSERT(head != nullptr, "headp != NULL", "ptrstack.c");
  auto *pstp = static_cast<D_PST_NODE *>(DutMallocCheck(sizeof(D_PST_NODE), "pstp", "ptrstack.c", __LINE__));
  pstp->ptr = ptr;
  DutStackPush(head, pstp);
  return pstp;
}

D_EXPORT void *DutPopPstNode(D_PST_NODE **head) {
  auto *node = static_cast<D_PST_NODE *>(DutStackPop(head));
  if (node == nullptr) return nullptr;
  void *ptr = node->ptr;
  DutFreeCheck(node, "stack_node_ptr", "ptrstack.c", __LINE__);
  return ptr;
}

D_EXPORT D_PST_NODE *DutFindPstNode(D_PST_NODE *head, void *ptr) {
  for (D_PST_NODE *p = head; p != nullptr; p = p->next) {
    if (p->ptr == ptr) return p;
  }
  return nullptr;
}

// ---- Pointer queue --------------------------------------------------------

namespace {
D_PQ_NODE *newPqNode(void *ptr, const char *label, int line) {
  auto *node = static_cast<D_PQ_NODE *>(DutMallocCheck(sizeof(D_PQ_NODE), label, kPtrQueueFile, line));
  node->next = nullptr;
  node->ptr = ptr;
  return node;
}
}  // namespace

D_EXPORT D_PQ_NODE *DutPqPush(D_PQ_HDR *hdr, void *ptr) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  VQ_ASSERT(ptr != nullptr, "p != NULL", kPtrQueueFile);
  D_PQ_NODE *node = newPqNode(ptr, "new_node", __LINE__);
  node->next = hdr->front;
  hdr->front = node;
  if (hdr->rear == nullptr) hdr->rear = node;
  return node;
}

D_EXPORT D_PQ_NODE *DutPqAdd(D_PQ_HDR *hdr, void *ptr) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  D_PQ_NODE *node = newPqNode(ptr, "new_node", __LINE__);
  if (hdr->rear == nullptr)
    hdr->front = node;
  else
    hdr->rear->next = node;
  hdr->rear = node;
  return node;
}

D_EXPORT D_PQ_NODE *DutPqRInsert(D_PQ_HDR *hdr, void *ptr, D_PQ_NODE *after) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  VQ_ASSERT(hdr->front != nullptr, "hdr->front != NULL", kPtrQueueFile);
  VQ_ASSERT(hdr->rear != nullptr, "hdr->rear != NULL", kPtrQueueFile);
  VQ_ASSERT(ptr != nullptr, "ptr != NULL", kPtrQueueFile);
  VQ_ASSERT(after != nullptr, "node != NULL", kPtrQueueFile);
  D_PQ_NODE *node = newPqNode(ptr, "new_node", __LINE__);
  node->next = after->next;
  after->next = node;
  if (hdr->rear == after) hdr->rear = node;
  return node;
}

D_EXPORT D_INT4 DutPqInsert(D_PQ_HDR *hdr, void *ptr, D_QUEUE_CMP_FUNC compare) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  VQ_ASSERT(compare != nullptr, "cmp_func != NULL", kPtrQueueFile);
  if (hdr->front == nullptr || compare(ptr, hdr->front->ptr)) {
    DutPqPush(hdr, ptr);
    return 1;
  }
  D_INT4 pos = 2;
  for (D_PQ_NODE *p = hdr->front; p->next != nullptr; p = p->next, ++pos) {
    if (compare(ptr, p->next->ptr)) {
      D_PQ_NODE *node = newPqNode(ptr, "new_node", __LINE__);
      node->next = p->next;
      p->next = node;
      return pos;
    }
  }
  DutPqAdd(hdr, ptr);
  return pos;
}

D_EXPORT void *DutPqPop(D_PQ_HDR *hdr) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  D_PQ_NODE *node = hdr->front;
  if (node == nullptr) return nullptr;
  hdr->front = node->next;
  if (hdr->front == nullptr) hdr->rear = nullptr;
  void *ptr = node->ptr;
  DutFreeCheck(node, "node", kPtrQueueFile, __LINE__);
  return ptr;
}

D_EXPORT void *DutPqDelete(D_PQ_HDR *hdr, void *ptr) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  VQ_ASSERT(D_PQ_FRONT(hdr) != nullptr, "D_PQ_FRONT(hdr)", kPtrQueueFile);
  VQ_ASSERT(D_PQ_REAR(hdr) != nullptr, "D_PQ_REAR(hdr)", kPtrQueueFile);
  D_PQ_NODE *prev = nullptr;
  for (D_PQ_NODE *delp = hdr->front; delp != nullptr; prev = delp, delp = delp->next) {
    if (delp->ptr != ptr) continue;
    if (prev == nullptr)
      hdr->front = delp->next;
    else
      prev->next = delp->next;
    if (hdr->rear == delp) hdr->rear = prev;
    DutFreeCheck(delp, "delp", kPtrQueueFile, __LINE__);
    return ptr;
  }
  return nullptr;
}

D_EXPORT void *DutPqFind(D_PQ_HDR *hdr, void *ptr) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  for (D_PQ_NODE *p = hdr->front; p != nullptr; p = p->next) {
    if (p->ptr == ptr) return ptr;
  }
  return nullptr;
}

D_EXPORT D_INT4 DutPqCount(D_PQ_HDR *hdr) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  D_INT4 n = 0;
  for (D_PQ_NODE *p = hdr->front; p != nullptr; p = p->next) ++n;
  return n;
}

D_EXPORT void DutPqClose(D_PQ_HDR *hdr) {
  VQ_ASSERT(hdr != nullptr, "hdr != NULL", kPtrQueueFile);
  D_PQ_NODE *p = hdr->front;
  while (p != nullptr) {
    D_PQ_NODE *next = p->next;
    DutFreeCheck(p, "p", kPtrQueueFile, __LINE__);
    p = next;
  }
  hdr->front = nullptr;
  hdr->rear = nullptr;
}

// ---- Pointer deque --------------------------------------------------------

D_EXPORT D_PDQ_NODE *DutAddPdqNode(D_DQ_NODE *dq, void *ptr) {
  VQ_ASSERT(dq != nullptr, "d != NULL", "ptrdeque.c");
  auto *pdqp = static_cast<D_PDQ_NODE *>(DutMallocCheck(sizeof(D_PDQ_NODE), "pdqp", "ptrdeque.c", __LINE__));
  pdqp->ptr = ptr;
  DutDqRightInsert(pdqp, dq);
  return pdqp;
}

D_EXPORT D_PDQ_NODE *DutFindPdqNode(D_DQ_NODE *dq, void *ptr) {
  VQ_ASSERT(dq != nullptr, "d != NULL", "ptrdeque.c");
  for (D_DQ_NODE *p = dq->next; p != dq; p = p->next) {
    auto *node = reinterpret_cast<D_PDQ_NODE *>(p);
    if (node->ptr == ptr) return node;
  }
  return nullptr;
}

D_EXPORT D_INT4 DutDeletePdqNode(D_DQ_NODE *dq, void *ptr) {
  D_PDQ_NODE *pdq_to_delete = DutFindPdqNode(dq, ptr);
  if (pdq_to_delete == nullptr) return -1;
  DutDqDetach(dq, pdq_to_delete);
  DutFreeCheck(pdq_to_delete, "pdq_to_delete", "ptrdeque.c", __LINE__);
  return 0;
}

}  // extern "C"
