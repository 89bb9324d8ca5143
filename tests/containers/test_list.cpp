// Intrusive stacks, lists, queues and deques, and the pointer stack, queue
// and deque: order, link fix-ups at both ends, ownership of freed nodes,
// and the assertion texts for null holders.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"

namespace {

// ---- Helpers ---------------------------------------------------------------

std::string &Captured() {
  static std::string text;
  return text;
}

int CaptureOutput(const char *format, va_list args) {
  char buffer[512];
  int length = std::vsnprintf(buffer, sizeof buffer, format, args);
  Captured() += buffer;
  return length;
}

class Capture {
 public:
  Capture() : previous_(DutGetOutputFunc()) {
    Captured().clear();
    DutSetOutputFunc(&CaptureOutput);
  }
  ~Capture() { DutSetOutputFunc(previous_); }
  std::string Take() {
    std::string text;
    text.swap(Captured());
    return text;
  }

 private:
  D_OUTPUT_FUNC previous_;
};

// An intrusive node: the link word first, then the caller's data.
struct Item {
  Item *next;
  int value;
};

struct DqItem {
  DqItem *prev;
  DqItem *next;
  int value;
};

// Nodes the containers may free: taken from the library's allocator.
Item *NewItem(int value) {
  auto *item = static_cast<Item *>(DutMalloc(sizeof(Item)));
  item->next = nullptr;
  item->value = value;
  return item;
}

void **Head(Item *&head) { return reinterpret_cast<void **>(&head); }

std::vector<int> Values(const Item *head) {
  std::vector<int> values;
  for (const Item *p = head; p != nullptr; p = p->next) values.push_back(p->value);
  return values;
}

// Walks the deque both ways and checks the two directions agree.
std::vector<int> DqValues(D_DQ_NODE *dq) {
  std::vector<int> forward;
  for (D_DQ_NODE *p = dq->next; p != dq; p = p->next) {
    forward.push_back(reinterpret_cast<DqItem *>(p)->value);
    if (p->next->prev != p) ADD_FAILURE() << "broken prev link after " << forward.back();
  }
  std::vector<int> backward;
  for (D_DQ_NODE *p = dq->prev; p != dq; p = p->prev)
    backward.insert(backward.begin(), reinterpret_cast<DqItem *>(p)->value);
  EXPECT_EQ(forward, backward);
  return forward;
}

std::vector<void *> PqPointers(const D_PQ_HDR &hdr) {
  std::vector<void *> pointers;
  for (D_PQ_NODE *p = hdr.front; p != nullptr; p = p->next) pointers.push_back(p->ptr);
  return pointers;
}

int ComesBefore(void *a, void *b) {
  return static_cast<Item *>(a)->value < static_cast<Item *>(b)->value;
}

int PointerComesBefore(void *a, void *b) { return *static_cast<int *>(a) < *static_cast<int *>(b); }

std::string Hex(const void *p) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%lx",
                static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(p)));
  return buffer;
}

// ---- Intrusive stack ---------------------------------------------------------

TEST(LinkedStack, PushAndPopAreLastInFirstOut) {
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
  Item *head = nullptr;
  DutStackPush(Head(head), &a);
  DutStackPush(Head(head), &b);
  DutStackPush(Head(head), &c);
  EXPECT_EQ(Values(head), (std::vector<int>{3, 2, 1}));
  EXPECT_EQ(DutStackPop(Head(head)), &c);
  EXPECT_EQ(c.next, nullptr);  // popped nodes leave unlinked
  EXPECT_EQ(DutStackPop(Head(head)), &b);
  EXPECT_EQ(b.next, nullptr);
  EXPECT_EQ(DutStackPop(Head(head)), &a);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(DutStackPop(Head(head)), nullptr);
}

TEST(LinkedStack, CloseFreesEveryNodeAndClearsTheHead) {
  Item *head = nullptr;
  for (int i = 0; i < 5; ++i) DutStackPush(Head(head), NewItem(i));
  DutStackClose(Head(head));
  EXPECT_EQ(head, nullptr);
  DutStackClose(Head(head));  // an empty stack closes too
  EXPECT_EQ(head, nullptr);
}

// ---- Intrusive list ----------------------------------------------------------

class LinkedList : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 4; ++i) items_[i] = Item{nullptr, i};
    for (int i = 0; i < 3; ++i) items_[i].next = &items_[i + 1];
    head_ = &items_[0];
  }
  Item items_[4];
  Item *head_ = nullptr;
};

TEST_F(LinkedList, LengthAndEnd) {
  EXPECT_EQ(DutListLength(nullptr), 0);
  EXPECT_EQ(DutListEnd(nullptr), nullptr);
  EXPECT_EQ(DutListLength(head_), 4);
  EXPECT_EQ(DutListEnd(head_), &items_[3]);
  EXPECT_EQ(DutListLength(&items_[3]), 1);
  EXPECT_EQ(DutListEnd(&items_[3]), &items_[3]);
}

TEST_F(LinkedList, DeleteUnlinksAnywhereAndClearsTheLink) {
  EXPECT_EQ(DutListDelete(Head(head_), &items_[2]), &items_[2]);
  EXPECT_EQ(items_[2].next, nullptr);
  EXPECT_EQ(Values(head_), (std::vector<int>{0, 1, 3}));
  EXPECT_EQ(DutListDelete(Head(head_), &items_[0]), &items_[0]);
  EXPECT_EQ(head_, &items_[1]);
  EXPECT_EQ(items_[0].next, nullptr);
  EXPECT_EQ(DutListDelete(Head(head_), &items_[3]), &items_[3]);
  EXPECT_EQ(Values(head_), (std::vector<int>{1}));
  EXPECT_EQ(DutListDelete(Head(head_), &items_[1]), &items_[1]);
  EXPECT_EQ(head_, nullptr);
}

TEST_F(LinkedList, DeleteOfAnAbsentNodeChangesNothing) {
  Item stranger{&items_[1], 99};  // even one that points into the list
  EXPECT_EQ(DutListDelete(Head(head_), &stranger), nullptr);
  EXPECT_EQ(Values(head_), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(stranger.next, &items_[1]);
}

TEST_F(LinkedList, PositionIsZeroBasedAndAbsentNodesWarn) {
  for (int i = 0; i < 4; ++i) EXPECT_EQ(DutListPos(head_, &items_[i]), i);
  Item stranger{nullptr, 99};
  Capture capture;
  EXPECT_EQ(DutListPos(head_, &stranger), -1);
  // The second number is where the walk ended, always 0.
  EXPECT_EQ(capture.Take(),
            "WARNING: DutListPos: element " + Hex(&stranger) + " is not part of list 0\n");
}

struct TravLog {
  std::vector<int> seen;
  std::vector<int> remove;  // values whose nodes are removed (and freed)
};

void *RemoveAndFree(void *node, void *arg) {
  auto *log = static_cast<TravLog *>(arg);
  auto *item = static_cast<Item *>(node);
  log->seen.push_back(item->value);
  for (int value : log->remove) {
    if (value == item->value) {
      DutFree(item);  // the walk has already read the next node
      return reinterpret_cast<void *>(static_cast<std::intptr_t>(1000 + value));
    }
  }
  return nullptr;
}

Item *MakeHeapList(int count) {
  Item *head = nullptr;
  for (int i = count - 1; i >= 0; --i) {
    Item *item = NewItem(i);
    item->next = head;
    head = item;
  }
  return head;
}

void FreeHeapList(Item *head) {
  while (head != nullptr) {
    Item *next = head->next;
    DutFree(head);
    head = next;
  }
}

TEST(LinkedListTravDel, RemovesLeadingMiddleAndLastNodes) {
  Item *head = MakeHeapList(7);
  TravLog log{{}, {0, 1, 3, 6}};
  void *last = DutListTravDel(Head(head), &RemoveAndFree, &log);
  EXPECT_EQ(log.seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(Values(head), (std::vector<int>{2, 4, 5}));
  EXPECT_EQ(last, reinterpret_cast<void *>(static_cast<std::intptr_t>(1006)));
  auto *end = static_cast<Item *>(DutListEnd(head));
  ASSERT_NE(end, nullptr);
  EXPECT_EQ(end->value, 5);
  EXPECT_EQ(end->next, nullptr);
  FreeHeapList(head);
}

TEST(LinkedListTravDel, ReturnsTheLastResultEvenWhenNull) {
  Item *head = MakeHeapList(3);
  TravLog log{{}, {1}};
  EXPECT_EQ(DutListTravDel(Head(head), &RemoveAndFree, &log), nullptr);
  EXPECT_EQ(Values(head), (std::vector<int>{0, 2}));
  FreeHeapList(head);
}

TEST(LinkedListTravDel, RemovingEveryNodeEmptiesTheList) {
  Item *head = MakeHeapList(4);
  TravLog log{{}, {0, 1, 2, 3}};
  DutListTravDel(Head(head), &RemoveAndFree, &log);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(log.seen.size(), 4u);

  TravLog none{{}, {}};
  EXPECT_EQ(DutListTravDel(Head(head), &RemoveAndFree, &none), nullptr);
  EXPECT_TRUE(none.seen.empty());
}

// ---- Intrusive queue -----------------------------------------------------------

class LinkedQueue : public ::testing::Test {
 protected:
  void Append(Item *item) { DutQueueAppend(Front(), Rear(), item); }
  void **Front() { return reinterpret_cast<void **>(&front_); }
  void **Rear() { return reinterpret_cast<void **>(&rear_); }
  Item *front_ = nullptr;
  Item *rear_ = nullptr;
};

TEST_F(LinkedQueue, AppendClearsTheLinkAndMovesTheRear) {
  Item stale{nullptr, 0};
  Item a{&stale, 1}, b{&stale, 2};
  Append(&a);
  EXPECT_EQ(front_, &a);
  EXPECT_EQ(rear_, &a);
  EXPECT_EQ(a.next, nullptr);
  Append(&b);
  EXPECT_EQ(front_, &a);
  EXPECT_EQ(rear_, &b);
  EXPECT_EQ(b.next, nullptr);
  EXPECT_EQ(Values(front_), (std::vector<int>{1, 2}));
}

TEST_F(LinkedQueue, PushGoesInFrontAndSetsTheRearOnlyWhenEmpty) {
  Item a{nullptr, 1}, b{nullptr, 2};
  DutQueuePush(Front(), Rear(), &a);
  EXPECT_EQ(front_, &a);
  EXPECT_EQ(rear_, &a);
  DutQueuePush(Front(), Rear(), &b);
  EXPECT_EQ(front_, &b);
  EXPECT_EQ(rear_, &a);
  EXPECT_EQ(Values(front_), (std::vector<int>{2, 1}));
}

TEST_F(LinkedQueue, PopIsFirstInFirstOutAndClearsTheRearAtTheEnd) {
  Item a{nullptr, 1}, b{nullptr, 2};
  Append(&a);
  Append(&b);
  EXPECT_EQ(DutQueuePop(Front(), Rear()), &a);
  EXPECT_EQ(a.next, nullptr);
  EXPECT_EQ(rear_, &b);
  EXPECT_EQ(DutQueuePop(Front(), Rear()), &b);
  EXPECT_EQ(front_, nullptr);
  EXPECT_EQ(rear_, nullptr);
  EXPECT_EQ(DutQueuePop(Front(), Rear()), nullptr);
}

TEST_F(LinkedQueue, RightInsertLinksAfterAndLeavesASetRear) {
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3}, d{nullptr, 4};
  Append(&a);
  Append(&b);
  DutQueueRightInsert(Front(), Rear(), &c, &a);
  EXPECT_EQ(Values(front_), (std::vector<int>{1, 3, 2}));
  EXPECT_EQ(rear_, &b);
  // After the rear: the rear is only set when it was null, so it stays.
  DutQueueRightInsert(Front(), Rear(), &d, &b);
  EXPECT_EQ(Values(front_), (std::vector<int>{1, 3, 2, 4}));
  EXPECT_EQ(rear_, &b);
}

TEST_F(LinkedQueue, RightDetachOfTheRearLeavesTheRear) {
  Item a{nullptr, 1}, b{nullptr, 2};
  Append(&a);
  Append(&b);
  EXPECT_EQ(DutQueueRightDetach(Front(), Rear(), &a), &b);
  EXPECT_EQ(b.next, nullptr);
  EXPECT_EQ(a.next, nullptr);
  EXPECT_EQ(front_, &a);
  EXPECT_EQ(rear_, &b);  // callers repair it themselves
  EXPECT_EQ(DutQueueRightDetach(Front(), Rear(), &a), nullptr);
}

TEST_F(LinkedQueue, RightDetachFromTheMiddle) {
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
  Append(&a);
  Append(&b);
  Append(&c);
  EXPECT_EQ(DutQueueRightDetach(Front(), Rear(), &a), &b);
  EXPECT_EQ(b.next, nullptr);
  EXPECT_EQ(Values(front_), (std::vector<int>{1, 3}));
  EXPECT_EQ(rear_, &c);
}

struct FindCall {
  void *node;
  void *key;
};
std::vector<FindCall> find_calls;

int ValueMatches(void *node, void *key) {
  find_calls.push_back({node, key});
  return static_cast<Item *>(node)->value == *static_cast<int *>(key);
}

TEST_F(LinkedQueue, LeftFindAnswersTheFrontOrTheLeftNeighbour) {
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
  Append(&a);
  Append(&b);
  Append(&c);
  int key = 1;
  find_calls.clear();
  EXPECT_EQ(DutQueueLeftFind(Front(), Rear(), &key, &ValueMatches), &a);
  ASSERT_FALSE(find_calls.empty());
  EXPECT_EQ(find_calls[0].node, &a);  // node first, key second
  EXPECT_EQ(find_calls[0].key, &key);
  key = 3;
  EXPECT_EQ(DutQueueLeftFind(Front(), Rear(), &key, &ValueMatches), &b);
  key = 2;
  EXPECT_EQ(DutQueueLeftFind(Front(), Rear(), &key, &ValueMatches), &a);
  key = 9;
  EXPECT_EQ(DutQueueLeftFind(Front(), Rear(), &key, &ValueMatches), nullptr);
  EXPECT_EQ(Values(front_), (std::vector<int>{1, 2, 3}));
}

TEST_F(LinkedQueue, InsertIsOrderedAndStableAmongEquals) {
  Item n5{nullptr, 5}, n3{nullptr, 3}, n8{nullptr, 8}, n5b{nullptr, 5}, n1{nullptr, 1},
      n9{nullptr, 9}, n3b{nullptr, 3};
  DutQueueInsert(Front(), Rear(), &n5, &ComesBefore);
  EXPECT_EQ(front_, &n5);
  EXPECT_EQ(rear_, &n5);
  DutQueueInsert(Front(), Rear(), &n3, &ComesBefore);  // before the front
  EXPECT_EQ(front_, &n3);
  EXPECT_EQ(rear_, &n5);
  DutQueueInsert(Front(), Rear(), &n8, &ComesBefore);  // appended
  EXPECT_EQ(rear_, &n8);
  DutQueueInsert(Front(), Rear(), &n5b, &ComesBefore);
  DutQueueInsert(Front(), Rear(), &n1, &ComesBefore);
  DutQueueInsert(Front(), Rear(), &n9, &ComesBefore);
  DutQueueInsert(Front(), Rear(), &n3b, &ComesBefore);
  EXPECT_EQ(Values(front_), (std::vector<int>{1, 3, 3, 5, 5, 8, 9}));
  EXPECT_EQ(n3.next, &n3b);  // equal values keep their arrival order
  EXPECT_EQ(n5.next, &n5b);
  EXPECT_EQ(rear_, &n9);
  EXPECT_EQ(n9.next, nullptr);
}

TEST_F(LinkedQueue, DeleteFixesTheEnds) {
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3}, stranger{nullptr, 9};
  Append(&a);
  Append(&b);
  Append(&c);
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &stranger), nullptr);
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &c), &c);
  EXPECT_EQ(rear_, &b);
  EXPECT_EQ(b.next, nullptr);
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &a), &a);
  EXPECT_EQ(front_, &b);
  EXPECT_EQ(rear_, &b);
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &b), &b);
  EXPECT_EQ(front_, nullptr);
  EXPECT_EQ(rear_, nullptr);

  Append(&a);
  Append(&b);
  Append(&c);
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &b), &b);
  EXPECT_EQ(Values(front_), (std::vector<int>{1, 3}));
  EXPECT_EQ(rear_, &c);
}

TEST_F(LinkedQueue, CloseFreesEveryNode) {
  for (int i = 0; i < 4; ++i) Append(NewItem(i));
  DutQueueClose(Front(), Rear());
  EXPECT_EQ(front_, nullptr);
  EXPECT_EQ(rear_, nullptr);
}

// ---- Deque ---------------------------------------------------------------------

class LinkedDeque : public ::testing::Test {
 protected:
  void SetUp() override {
    DutDqOpen(&dq_);
    ASSERT_NE(dq_, nullptr);
  }
  void TearDown() override {
    if (dq_ != nullptr) DutDqClose(&dq_);
  }
  // Unlinks every stack-held item so that the close frees only the sentinel.
  void Drain() {
    while (DutDqPop(dq_) != nullptr) {
    }
  }
  D_DQ_NODE *dq_ = nullptr;
};

TEST_F(LinkedDeque, FreshDequeIsEmptyAndSelfLinked) {
  EXPECT_EQ(dq_->next, dq_);
  EXPECT_EQ(dq_->prev, dq_);
  EXPECT_EQ(DutDqFirst(dq_), nullptr);
  EXPECT_EQ(DutDqLast(dq_), nullptr);
  EXPECT_EQ(DutDqPop(dq_), nullptr);
  EXPECT_EQ(DutDqDetach(dq_, dq_), nullptr);
  EXPECT_EQ(dq_->next, dq_);
  EXPECT_EQ(dq_->prev, dq_);
}

TEST_F(LinkedDeque, RightInsertPlacesAfterTheGivenNode) {
  DqItem a{nullptr, nullptr, 1}, b{nullptr, nullptr, 2}, c{nullptr, nullptr, 3};
  DutDqRightInsert(&a, dq_);
  DutDqRightInsert(&b, dq_);  // right of the sentinel: the new first item
  DutDqRightInsert(&c, DutDqLast(dq_));
  EXPECT_EQ(DqValues(dq_), (std::vector<int>{2, 1, 3}));
  EXPECT_EQ(DutDqFirst(dq_), &b);
  EXPECT_EQ(DutDqLast(dq_), &c);
  Drain();
}

TEST_F(LinkedDeque, DetachUnlinksButLeavesTheNodesOwnLinks) {
  DqItem a{nullptr, nullptr, 1}, b{nullptr, nullptr, 2}, c{nullptr, nullptr, 3};
  DutDqRightInsert(&a, dq_);
  DutDqRightInsert(&b, &a);
  DutDqRightInsert(&c, &b);
  EXPECT_EQ(DutDqDetach(dq_, &b), &b);
  EXPECT_EQ(b.prev, &a);
  EXPECT_EQ(b.next, &c);
  EXPECT_EQ(DqValues(dq_), (std::vector<int>{1, 3}));
  EXPECT_EQ(DutDqDetach(dq_, dq_), nullptr);
  EXPECT_EQ(DqValues(dq_), (std::vector<int>{1, 3}));
  EXPECT_EQ(DutDqDetach(dq_, &c), &c);
  EXPECT_EQ(DutDqLast(dq_), &a);
  EXPECT_EQ(DutDqPop(dq_), &a);
  EXPECT_EQ(DutDqFirst(dq_), nullptr);
  EXPECT_EQ(dq_->next, dq_);
  EXPECT_EQ(dq_->prev, dq_);
}

TEST_F(LinkedDeque, PopTakesFromTheFront) {
  DqItem items[3] = {{nullptr, nullptr, 0}, {nullptr, nullptr, 1}, {nullptr, nullptr, 2}};
  for (DqItem &item : items) DutDqRightInsert(&item, dq_->prev);  // append
  EXPECT_EQ(DutDqPop(dq_), &items[0]);
  EXPECT_EQ(DutDqPop(dq_), &items[1]);
  EXPECT_EQ(DutDqPop(dq_), &items[2]);
  EXPECT_EQ(DutDqPop(dq_), nullptr);
}

TEST_F(LinkedDeque, CloseFreesNodesAndSentinelAndClearsTheHolder) {
  for (int i = 0; i < 3; ++i) {
    auto *item = static_cast<DqItem *>(DutMalloc(sizeof(DqItem)));
    item->value = i;
    DutDqRightInsert(item, dq_);
  }
  DutDqClose(&dq_);
  EXPECT_EQ(dq_, nullptr);
}

// ---- Pointer stack ---------------------------------------------------------------

TEST(PointerStack, PushFindPop) {
  int x = 1, y = 2, z = 3;
  D_PST_NODE *head = nullptr;
  EXPECT_EQ(DutFindPstNode(head, &x), nullptr);
  D_PST_NODE *nx = DutPushPstNode(&head, &x);
  ASSERT_NE(nx, nullptr);
  EXPECT_EQ(nx->ptr, &x);
  EXPECT_EQ(head, nx);
  D_PST_NODE *ny = DutPushPstNode(&head, &y);
  EXPECT_EQ(head, ny);
  EXPECT_EQ(ny->next, nx);
  EXPECT_EQ(DutFindPstNode(head, &x), nx);
  EXPECT_EQ(DutFindPstNode(head, &y), ny);
  EXPECT_EQ(DutFindPstNode(head, &z), nullptr);
  EXPECT_EQ(DutPopPstNode(&head), &y);
  EXPECT_EQ(DutPopPstNode(&head), &x);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(DutPopPstNode(&head), nullptr);
}

// ---- Pointer queue ---------------------------------------------------------------

class PointerQueue : public ::testing::Test {
 protected:
  void TearDown() override { DutPqClose(&hdr_); }
  D_PQ_HDR hdr_{nullptr, nullptr};
  int v_[8] = {0, 1, 2, 3, 4, 5, 6, 7};
};

TEST_F(PointerQueue, PushAddPopCountFind) {
  EXPECT_EQ(DutPqCount(&hdr_), 0);
  EXPECT_EQ(DutPqPop(&hdr_), nullptr);
  D_PQ_NODE *n1 = DutPqAdd(&hdr_, &v_[1]);
  ASSERT_NE(n1, nullptr);
  EXPECT_EQ(D_PQ_FRONT(&hdr_), n1);
  EXPECT_EQ(D_PQ_REAR(&hdr_), n1);
  D_PQ_NODE *n0 = DutPqPush(&hdr_, &v_[0]);
  EXPECT_EQ(D_PQ_FRONT(&hdr_), n0);
  EXPECT_EQ(D_PQ_REAR(&hdr_), n1);
  D_PQ_NODE *n2 = DutPqAdd(&hdr_, &v_[2]);
  EXPECT_EQ(D_PQ_REAR(&hdr_), n2);
  EXPECT_EQ(PqPointers(hdr_), (std::vector<void *>{&v_[0], &v_[1], &v_[2]}));
  EXPECT_EQ(DutPqCount(&hdr_), 3);
  EXPECT_EQ(DutPqFind(&hdr_, &v_[1]), &v_[1]);
  EXPECT_EQ(DutPqFind(&hdr_, &v_[5]), nullptr);

  EXPECT_EQ(DutPqPop(&hdr_), &v_[0]);
  EXPECT_EQ(DutPqPop(&hdr_), &v_[1]);
  EXPECT_EQ(DutPqPop(&hdr_), &v_[2]);
  EXPECT_EQ(hdr_.front, nullptr);
  EXPECT_EQ(hdr_.rear, nullptr);
  EXPECT_EQ(DutPqPop(&hdr_), nullptr);

  DutPqPush(&hdr_, &v_[3]);  // a push into an empty queue sets the rear
  EXPECT_EQ(hdr_.rear, hdr_.front);
}

TEST_F(PointerQueue, RInsertUpdatesTheRearOnlyAfterTheRear) {
  D_PQ_NODE *n1 = DutPqAdd(&hdr_, &v_[1]);
  D_PQ_NODE *n2 = DutPqAdd(&hdr_, &v_[2]);
  D_PQ_NODE *mid = DutPqRInsert(&hdr_, &v_[5], n1);
  ASSERT_NE(mid, nullptr);
  EXPECT_EQ(mid->ptr, &v_[5]);
  EXPECT_EQ(hdr_.rear, n2);
  D_PQ_NODE *last = DutPqRInsert(&hdr_, &v_[6], n2);
  EXPECT_EQ(hdr_.rear, last);
  EXPECT_EQ(last->next, nullptr);
  EXPECT_EQ(PqPointers(hdr_), (std::vector<void *>{&v_[1], &v_[5], &v_[2], &v_[6]}));
}

TEST_F(PointerQueue, InsertReturnsTheOneBasedPosition) {
  EXPECT_EQ(DutPqInsert(&hdr_, &v_[4], &PointerComesBefore), 1);  // empty
  EXPECT_EQ(DutPqInsert(&hdr_, &v_[5], &PointerComesBefore), 2);  // appended
  EXPECT_EQ(DutPqInsert(&hdr_, &v_[6], &PointerComesBefore), 3);
  EXPECT_EQ(hdr_.rear->ptr, &v_[6]);
  // Three elements that all stay before it: position 4, the new rear.
  EXPECT_EQ(DutPqInsert(&hdr_, &v_[7], &PointerComesBefore), 4);
  EXPECT_EQ(hdr_.rear->ptr, &v_[7]);
  EXPECT_EQ(DutPqInsert(&hdr_, &v_[1], &PointerComesBefore), 1);  // new front
  EXPECT_EQ(hdr_.front->ptr, &v_[1]);
  int another_five = 5;
  EXPECT_EQ(DutPqInsert(&hdr_, &another_five, &PointerComesBefore), 4);  // after the equal 5
  EXPECT_EQ(PqPointers(hdr_),
            (std::vector<void *>{&v_[1], &v_[4], &v_[5], &another_five, &v_[6], &v_[7]}));
  EXPECT_EQ(DutPqCount(&hdr_), 6);
}

TEST_F(PointerQueue, InsertKeepsArrivalOrderAmongEquals) {
  int first = 3, second = 3, third = 3, low = 1;
  EXPECT_EQ(DutPqInsert(&hdr_, &first, &PointerComesBefore), 1);
  EXPECT_EQ(DutPqInsert(&hdr_, &second, &PointerComesBefore), 2);
  EXPECT_EQ(DutPqInsert(&hdr_, &third, &PointerComesBefore), 3);
  EXPECT_EQ(DutPqInsert(&hdr_, &low, &PointerComesBefore), 1);
  EXPECT_EQ(PqPointers(hdr_), (std::vector<void *>{&low, &first, &second, &third}));
  EXPECT_EQ(hdr_.rear->ptr, &third);
}

TEST_F(PointerQueue, DeleteFixesFrontAndRear) {
  DutPqAdd(&hdr_, &v_[1]);
  DutPqAdd(&hdr_, &v_[2]);
  DutPqAdd(&hdr_, &v_[3]);
  DutPqAdd(&hdr_, &v_[2]);
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[7]), nullptr);
  EXPECT_EQ(DutPqCount(&hdr_), 4);
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[2]), &v_[2]);  // the first holder only
  EXPECT_EQ(PqPointers(hdr_), (std::vector<void *>{&v_[1], &v_[3], &v_[2]}));
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[2]), &v_[2]);  // the rear
  EXPECT_EQ(hdr_.rear->ptr, &v_[3]);
  EXPECT_EQ(hdr_.rear->next, nullptr);
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[1]), &v_[1]);  // the front
  EXPECT_EQ(hdr_.front->ptr, &v_[3]);
  EXPECT_EQ(hdr_.front, hdr_.rear);
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[3]), &v_[3]);
  EXPECT_EQ(hdr_.front, nullptr);
  EXPECT_EQ(hdr_.rear, nullptr);
}

TEST_F(PointerQueue, CloseFreesAndClears) {
  for (int &value : v_) DutPqAdd(&hdr_, &value);
  EXPECT_EQ(DutPqCount(&hdr_), 8);
  DutPqClose(&hdr_);
  EXPECT_EQ(hdr_.front, nullptr);
  EXPECT_EQ(hdr_.rear, nullptr);
  EXPECT_EQ(DutPqCount(&hdr_), 0);
}

// ---- Pointer deque -----------------------------------------------------------------

TEST_F(LinkedDeque, PointerNodesGoInFrontAndDeleteTheFirstHolder) {
  int x = 1, y = 2;
  D_PDQ_NODE *nx = DutAddPdqNode(dq_, &x);
  ASSERT_NE(nx, nullptr);
  EXPECT_EQ(nx->ptr, &x);
  D_PDQ_NODE *ny = DutAddPdqNode(dq_, &y);
  EXPECT_EQ(DutDqFirst(dq_), ny);
  EXPECT_EQ(DutDqLast(dq_), nx);
  D_PDQ_NODE *nx2 = DutAddPdqNode(dq_, &x);
  EXPECT_EQ(DutFindPdqNode(dq_, &x), nx2);  // searched from the front
  EXPECT_EQ(DutFindPdqNode(dq_, &y), ny);

  int absent = 0;
  EXPECT_EQ(DutFindPdqNode(dq_, &absent), nullptr);
  EXPECT_EQ(DutDeletePdqNode(dq_, &absent), -1);
  EXPECT_EQ(DutDqFirst(dq_), nx2);

  EXPECT_EQ(DutDeletePdqNode(dq_, &x), 0);
  EXPECT_EQ(DutDqFirst(dq_), ny);
  EXPECT_EQ(DutFindPdqNode(dq_, &x), nx);
  EXPECT_EQ(DutDeletePdqNode(dq_, &x), 0);
  EXPECT_EQ(DutFindPdqNode(dq_, &x), nullptr);
  EXPECT_EQ(DutDqLast(dq_), ny);
  // ny is left for the close to free.
}

// ---- Assertions on null holders --------------------------------------------------

// The statement runs in a child with fatal errors set to abort and the
// report on standard error, where the expression text is matched.
#define EXPECT_ASSERTION(statement, text_regex)                                   \
  EXPECT_EXIT(                                                                   \
      {                                                                          \
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);                                \
        DutSetFatalErrorFile(stderr);                                            \
        statement;                                                               \
      },                                                                         \
      ::testing::KilledBySignal(SIGABRT), "Assertion <" text_regex "> failed")

TEST(LinkedListDeath, NullHoldersAndNodesAreAssertions) {
  Item a{nullptr, 1};
  Item *head = &a;
  void *front = nullptr;
  void *rear = nullptr;
  EXPECT_ASSERTION(DutListDelete(nullptr, &a), "headp");
  EXPECT_ASSERTION(DutListDelete(Head(head), nullptr), "[^>]+");
  EXPECT_ASSERTION(DutListTravDel(nullptr, &RemoveAndFree, nullptr), "headp != NULL");
  EXPECT_ASSERTION(DutListTravDel(Head(head), nullptr, nullptr), "del_func != NULL");
  EXPECT_ASSERTION(DutListPos(nullptr, &a), "front");
  EXPECT_ASSERTION(DutListPos(&a, nullptr), "element");
  EXPECT_ASSERTION(DutQueueAppend(nullptr, &rear, &a), "frontp != NULL");
  EXPECT_ASSERTION(DutQueueAppend(&front, nullptr, &a), "rearp != NULL");
  EXPECT_ASSERTION(DutQueueAppend(&front, &rear, nullptr), "p != NULL");
  EXPECT_ASSERTION(DutQueuePop(nullptr, &rear), "frontp != NULL");
  EXPECT_ASSERTION(DutQueueRightInsert(&front, &rear, &a, nullptr), "pp != NULL");
  EXPECT_ASSERTION(DutQueueLeftFind(&front, &rear, &a, nullptr), "cmp_func != NULL");
  EXPECT_ASSERTION(DutDqOpen(nullptr), "pdq != NULL");
}

TEST(LinkedListDeath, DequeAndPointerQueueAssertions) {
  D_DQ_NODE *dq = nullptr;
  DutDqOpen(&dq);
  DqItem item{nullptr, nullptr, 1};
  D_PQ_HDR hdr{nullptr, nullptr};
  int x = 0;
  // Which of the two texts names which argument is the implementation's.
  EXPECT_ASSERTION(DutDqRightInsert(nullptr, dq), "[dp] != NULL");
  EXPECT_ASSERTION(DutDqRightInsert(&item, nullptr), "[dp] != NULL");
  EXPECT_ASSERTION(DutPqPush(nullptr, &x), "hdr != NULL");
  EXPECT_ASSERTION(DutPqDelete(&hdr, &x), "D_PQ_FRONT\\(hdr\\)");
  DutDqClose(&dq);
}

}  // namespace
