// Intrusive stacks, lists, queues and deques, and the pointer stack, queue
// and deque: order, link fix-ups at both ends, ownership of freed nodes,
// and the assertion texts for null holders.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "support/address_text.hpp"
#include "support/output_capture.hpp"
#include "vqutil/list.h"
#include "vqutil/memory.h"

namespace {

using Ints = std::vector<int>;

// Intrusive nodes: the link words first, then the caller's data.
struct Item { Item *next; int value; };
struct DqItem { DqItem *prev; DqItem *next; int value; };

// Nodes the containers may free: taken from the library's allocator.
Item *NewItem(int value) {
  auto *item = static_cast<Item *>(DutMalloc(sizeof(Item)));
  *item = Item{nullptr, value};
  return item;
}

// A typed head: the holders take the address of any node pointer.
Item **Head(Item *&head) { return &head; }

Ints Values(const Item *head) {
  Ints values;
  for (const Item *p = head; p != nullptr; p = p->next) values.push_back(p->value);
  return values;
}

// Walks the deque both ways and checks the two directions agree.
Ints DqValues(D_DQ_NODE *dq) {
  Ints forward, backward;
  for (D_DQ_NODE *p = dq->next; p != dq; p = p->next) forward.push_back(reinterpret_cast<DqItem *>(p)->value);
  for (D_DQ_NODE *p = dq->prev; p != dq; p = p->prev)
    backward.insert(backward.begin(), reinterpret_cast<DqItem *>(p)->value);
  EXPECT_EQ(forward, backward);
  return forward;
}

int ComesBefore(void *a, void *b) { return static_cast<Item *>(a)->value < static_cast<Item *>(b)->value; }
int PointerComesBefore(void *a, void *b) { return *static_cast<int *>(a) < *static_cast<int *>(b); }
// Node first, key second: swapped arguments would read the key as a node.
int ValueMatches(void *node, void *key) { return static_cast<Item *>(node)->value == *static_cast<int *>(key); }

// Takes out the nodes holding the key and scribbles on their links, as a
// callback that frees them would: the walk must have read them already.
struct Sweep {
  int key;
  D_INT4 visits = 0;
};
void *TakeMatching(void *node, void *arg) {
  auto *sweep = static_cast<Sweep *>(arg);
  ++sweep->visits;
  if (static_cast<Item *>(node)->value != sweep->key) return nullptr;
  static_cast<Item *>(node)->next = nullptr;
  return node;
}

// ---- Intrusive stack and list -------------------------------------------------

// Closing frees every node: the sanitizer build checks. The pointer stack
// keeps last in, first out in nodes of its own.
TEST(LinkedStack, CloseFreesAndPointerStackOrder) {
  Item *head = nullptr;
  for (int i = 0; i < 5; ++i) DutStackPush(Head(head), NewItem(i));
  DutStackClose(Head(head));
  EXPECT_EQ(head, nullptr);
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
  D_PST_NODE *pointers = nullptr;
  D_PST_NODE *na = DutPushPstNode(&pointers, &a);
  D_PST_NODE *nb = DutPushPstNode(&pointers, &b);
  EXPECT_EQ(nb->next, na);
  EXPECT_EQ(DutFindPstNode(pointers, &a), na);
  EXPECT_EQ(DutFindPstNode(pointers, &c), nullptr);
  for (Item *item : {&b, &a, static_cast<Item *>(nullptr)}) EXPECT_EQ(DutPopPstNode(&pointers), item);
}

// A node that points into a list is still not part of it: nothing is
// removed and the warning names it.
TEST(LinkedList, EmptyListAndStrangers) {
  Item items[2] = {{&items[1], 0}, {nullptr, 1}};
  Item *head = &items[0];
  EXPECT_EQ(DutListLength(nullptr), 0);
  EXPECT_EQ(DutListEnd(nullptr), nullptr);
  Item stranger{&items[1], 99};
  vqtest::OutputCapture capture;
  EXPECT_EQ(DutListPos(head, &stranger), -1);
  // The second number is where the walk ended, always 0.
  EXPECT_EQ(capture.Take(), "WARNING: DutListPos: element " + vqtest::Hex(&stranger) + " is not part of list 0\n");
  EXPECT_EQ(DutListDelete(Head(head), &stranger), nullptr);
  EXPECT_EQ(stranger.next, &items[1]);
  EXPECT_EQ(Values(head), (Ints{0, 1}));
}

// ---- Intrusive queue -----------------------------------------------------------

// Every operation against a vector of nodes: order, unlinked results, the
// length, position and end of the list, and the rear, which must always be
// the last node. The stack and list operations, and the traversal that
// takes nodes out, work on the front and leave the rear to the caller.
TEST(LinkedQueue, RandomOperationsMatchAModel) {
  std::mt19937 rng(11);
  vqtest::OutputCapture capture;  // positions of absent nodes warn
  Item pool[12];
  void *front = nullptr, *rear = nullptr;
  std::vector<Item *> model;
  for (int step = 0; step < 4000; ++step) {
    Item *node = &pool[rng() % 12];
    const auto at = std::find(model.begin(), model.end(), node);
    int key = static_cast<int>(rng() % 4);
    Item *removed = nullptr;
    const bool front_only = step % 2 != 0;  // for the forms that have both
    const unsigned op = rng() % 9;
    switch (op) {
      case 0:
      case 1:
      case 2:  // append, push or ordered insert of a free node with a stale link
        if (at != model.end()) break;
        *node = Item{&pool[0], key};
        if (front_only) {
          DutStackPush(&front, node);
          model.insert(model.begin(), node);
        } else if (step % 3 == 0) {
          DutQueueAppend(&front, &rear, node);
          model.push_back(node);
        } else if (step % 3 == 1) {
          DutQueuePush(&front, &rear, node);
          model.insert(model.begin(), node);
        } else {
          DutQueueInsert(&front, &rear, node, &ComesBefore);
          model.insert(std::ranges::find_if(model, [&](Item *e) { return key < e->value; }), node);
        }
        break;
      case 3:
      case 4:
        removed = static_cast<Item *>(front_only ? DutStackPop(&front) : DutQueuePop(&front, &rear));
        EXPECT_EQ(removed, model.empty() ? nullptr : model.front());
        if (!model.empty()) model.erase(model.begin());
        break;
      case 5:
        removed = static_cast<Item *>(front_only ? DutListDelete(&front, node) : DutQueueDelete(&front, &rear, node));
        EXPECT_EQ(removed, at == model.end() ? nullptr : node);
        if (at != model.end()) model.erase(at);
        break;
      case 6:
        if (front_only) {  // the result for the last node counts, even when null
          Sweep sweep{key};
          EXPECT_EQ(DutListTravDel(&front, &TakeMatching, &sweep),
                    !model.empty() && model.back()->value == key ? model.back() : nullptr);
          EXPECT_EQ(sweep.visits, static_cast<D_INT4>(model.size()));
          std::erase_if(model, [&](Item *e) { return e->value == key; });
        } else if (front != nullptr) {  // an empty list has no position to ask for
          EXPECT_EQ(DutListPos(front, node), at == model.end() ? -1 : at - model.begin());
        }
        break;
      default: {  // the front when it matches, else the left neighbour of the first match
        const auto match = std::ranges::find_if(model, [&](Item *e) { return e->value == key; });
        Item *expected = match == model.end() ? nullptr : match == model.begin() ? *match : match[-1];
        EXPECT_EQ(DutQueueLeftFind(&front, &rear, &key, &ValueMatches), expected);
      }
    }
    ASSERT_TRUE(removed == nullptr || removed->next == nullptr);  // taken out unlinked
    if (front_only && op < 7) rear = model.empty() ? nullptr : model.back();  // the caller's repair
    Ints values;
    for (Item *item : model) values.push_back(item->value);
    ASSERT_EQ(Values(static_cast<Item *>(front)), values) << "step " << step;
    ASSERT_EQ(std::tuple(rear, DutListEnd(front), DutListLength(front)),
              std::tuple(model.empty() ? nullptr : model.back(), rear, static_cast<D_INT4>(model.size())))
        << "step " << step;
  }
  void *heap_front = nullptr, *heap_rear = nullptr;
  for (int i = 0; i < 4; ++i) DutQueueAppend(&heap_front, &heap_rear, NewItem(i));
  DutQueueClose(&heap_front, &heap_rear);
  EXPECT_EQ(heap_front, nullptr);
  EXPECT_EQ(heap_rear, nullptr);
}

// The right-hand operations set the rear only when it was null: after the
// rear, or detaching it, leaves it for the caller to repair.
TEST(LinkedQueue, RightInsertAndDetachLeaveASetRear) {
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3}, d{nullptr, 4};
  Item *front = nullptr, *rear = nullptr;
  DutQueueAppend(&front, &rear, &a);
  DutQueueRightInsert(&front, &rear, &b, &a);
  DutQueueRightInsert(&front, &rear, &c, &a);
  DutQueueRightInsert(&front, &rear, &d, &b);
  EXPECT_EQ(Values(&a), (Ints{1, 3, 2, 4}));
  EXPECT_EQ(rear, &a);
  EXPECT_EQ(DutQueueRightDetach(&front, &rear, &a), &c);  // from the middle
  EXPECT_EQ(c.next, nullptr);
  EXPECT_EQ(DutQueueRightDetach(&front, &rear, &b), &d);  // the last node
  EXPECT_EQ(DutQueueRightDetach(&front, &rear, &b), nullptr);
  EXPECT_EQ(Values(&a), (Ints{1, 2}));
  EXPECT_EQ(rear, &a);
}

// ---- Deque ---------------------------------------------------------------------

// Pointer nodes go in at the front; deleting a pointer removes its first
// holder. Closing frees the nodes left and the sentinel.
TEST(LinkedDeque, InsertDetachPopPointerNodesAndClose) {
  D_DQ_NODE *dq = nullptr;
  DutDqOpen(&dq);
  ASSERT_NE(dq, nullptr);
  DqItem a{nullptr, nullptr, 1}, b{nullptr, nullptr, 2}, c{nullptr, nullptr, 3};
  EXPECT_EQ(std::tuple(DutDqFirst(dq), DutDqLast(dq), DutDqPop(dq)), std::tuple(nullptr, nullptr, nullptr));
  DutDqRightInsert(&a, dq);
  DutDqRightInsert(&b, dq);  // right of the sentinel: the new first item
  DutDqRightInsert(&c, DutDqLast(dq));
  EXPECT_EQ(DqValues(dq), (Ints{2, 1, 3}));
  EXPECT_EQ(DutDqDetach(dq, &a), &a);  // unlinked, its own links left
  EXPECT_EQ(std::pair(a.prev, a.next), std::pair(&b, &c));
  EXPECT_EQ(DutDqDetach(dq, dq), nullptr);  // never the sentinel
  EXPECT_EQ(DqValues(dq), (Ints{2, 3}));
  // Pops from the front.
  EXPECT_EQ((std::tuple{DutDqPop(dq), DutDqPop(dq), dq->next, dq->prev}), std::tuple(&b, &c, dq, dq));

  int x = 1, y = 2, absent = 0;
  D_PDQ_NODE *nx = DutAddPdqNode(dq, &x);
  D_PDQ_NODE *ny = DutAddPdqNode(dq, &y);
  D_PDQ_NODE *nx2 = DutAddPdqNode(dq, &x);
  EXPECT_EQ(std::tuple(nx->ptr, DutFindPdqNode(dq, &x), DutFindPdqNode(dq, &y)), std::tuple(&x, nx2, ny));
  EXPECT_EQ(DutDeletePdqNode(dq, &absent), -1);
  EXPECT_EQ(DutDeletePdqNode(dq, &x), 0);
  EXPECT_EQ(DutDqFirst(dq), ny);
  EXPECT_EQ(DutFindPdqNode(dq, &x), nx);
  EXPECT_EQ(DutDeletePdqNode(dq, &x), 0);
  EXPECT_EQ(DutFindPdqNode(dq, &x), nullptr);
  DutDqClose(&dq);
  EXPECT_EQ(dq, nullptr);
  DutDqClose(&dq);
}

// ---- Pointer queue ------------------------------------------------------------

// Every operation against a vector of pointers, with equal values so that
// the ordered insertion's stability and "first holder" matter.
TEST(PointerQueue, RandomOperationsMatchAModel) {
  std::mt19937 rng(5);
  int values[10];
  for (int i = 0; i < 10; ++i) values[i] = i / 2;
  D_PQ_HDR hdr{nullptr, nullptr};
  std::vector<void *> model;
  for (int step = 0; step < 4000; ++step) {
    int *ptr = &values[rng() % 10];
    const auto at = std::find(model.begin(), model.end(), ptr);
    switch (rng() % 7) {
      case 0:
      case 1:  // at the front or the rear
        EXPECT_EQ((step % 2 ? DutPqPush : DutPqAdd)(&hdr, ptr)->ptr, ptr);
        model.insert(step % 2 ? model.begin() : model.end(), ptr);
        break;
      case 2: {  // the one-based position it took
        const auto first_greater = std::ranges::find_if(model, [&](void *e) { return *ptr < *static_cast<int *>(e); });
        EXPECT_EQ(DutPqInsert(&hdr, ptr, &PointerComesBefore), first_greater - model.begin() + 1);
        model.insert(first_greater, ptr);
        break;
      }
      case 3: {
        if (model.empty()) break;
        const size_t pos = rng() % model.size();
        D_PQ_NODE *after = hdr.front;
        for (size_t i = 0; i < pos; ++i) after = after->next;
        EXPECT_EQ(DutPqRInsert(&hdr, ptr, after)->ptr, ptr);
        model.insert(model.begin() + static_cast<long>(pos + 1), ptr);
        break;
      }
      case 4:
        EXPECT_EQ(DutPqPop(&hdr), model.empty() ? nullptr : model.front());
        if (!model.empty()) model.erase(model.begin());
        break;
      case 5:  // the first holder only
        if (model.empty()) break;
        EXPECT_EQ(DutPqDelete(&hdr, ptr), at == model.end() ? nullptr : ptr);
        if (at != model.end()) model.erase(at);
        break;
      default:
        EXPECT_EQ(DutPqFind(&hdr, ptr), at == model.end() ? nullptr : ptr);
    }
    std::vector<void *> pointers;
    for (D_PQ_NODE *p = D_PQ_FRONT(&hdr); p != nullptr; p = p->next) pointers.push_back(p->ptr);
    ASSERT_EQ(pointers, model) << "step " << step;
    ASSERT_EQ(D_PQ_REAR(&hdr) == nullptr ? nullptr : D_PQ_REAR(&hdr)->ptr, model.empty() ? nullptr : model.back());
    ASSERT_EQ(DutPqCount(&hdr), static_cast<D_INT4>(model.size()));
  }
  DutPqClose(&hdr);
  EXPECT_EQ(hdr.front, nullptr);
  EXPECT_EQ(hdr.rear, nullptr);
}

// ---- Assertions on null holders --------------------------------------------------

// One null holder or function per family; and deleting from an empty
// pointer queue.
TEST(LinkedListDeath, NullHoldersAndNodesAreAssertions) {
  Item a{nullptr, 1};
  Item *head = &a;
  void *front = nullptr, *rear = nullptr;
  D_PQ_HDR hdr{nullptr, nullptr};
  int x = 0;
  VQTEST_EXPECT_ASSERTION(DutListDelete(nullptr, &a), "headp");
  VQTEST_EXPECT_ASSERTION(DutListTravDel(Head(head), nullptr, nullptr), "del_func != NULL");
  VQTEST_EXPECT_ASSERTION(DutListPos(&a, nullptr), "element");
  VQTEST_EXPECT_ASSERTION(DutQueueAppend(&front, nullptr, &a), "rearp != NULL");
  VQTEST_EXPECT_ASSERTION(DutQueuePop(nullptr, &rear), "frontp != NULL");
  VQTEST_EXPECT_ASSERTION(DutQueueRightInsert(&front, &rear, &a, nullptr), "pp != NULL");
  VQTEST_EXPECT_ASSERTION(DutQueueLeftFind(&front, &rear, &a, nullptr), "cmp_func != NULL");
  VQTEST_EXPECT_ASSERTION(DutDqOpen(nullptr), "pdq != NULL");
  VQTEST_EXPECT_ASSERTION(DutDqRightInsert(nullptr, nullptr), "d != NULL");
  VQTEST_EXPECT_ASSERTION(DutPqPush(nullptr, &x), "hdr != NULL");
  VQTEST_EXPECT_ASSERTION(DutPqPush(&hdr, nullptr), "p != NULL");  // the item, not the new node
  VQTEST_EXPECT_ASSERTION(DutPqDelete(&hdr, &x), "D_PQ_FRONT\\(hdr\\)");
}

}  // namespace
