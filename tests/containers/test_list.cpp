// Intrusive stacks, lists, queues and deques, and the pointer stack, queue
// and deque: order, link fix-ups at both ends, ownership of freed nodes,
// and the assertion texts for null holders.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/list.h"
#include "vqutil/memory.h"

namespace {

using Ints = std::vector<int>;

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
  *item = Item{nullptr, value};
  return item;
}

void **Head(Item *&head) { return reinterpret_cast<void **>(&head); }

Ints Values(const Item *head) {
  Ints values;
  for (const Item *p = head; p != nullptr; p = p->next) values.push_back(p->value);
  return values;
}

// Walks the deque both ways and checks the two directions agree.
Ints DqValues(D_DQ_NODE *dq) {
  Ints forward, backward;
  for (D_DQ_NODE *p = dq->next; p != dq; p = p->next) {
    forward.push_back(reinterpret_cast<DqItem *>(p)->value);
    if (p->next->prev != p) ADD_FAILURE() << "broken prev link after " << forward.back();
  }
  for (D_DQ_NODE *p = dq->prev; p != dq; p = p->prev)
    backward.insert(backward.begin(), reinterpret_cast<DqItem *>(p)->value);
  EXPECT_EQ(forward, backward);
  return forward;
}

int ComesBefore(void *a, void *b) { return static_cast<Item *>(a)->value < static_cast<Item *>(b)->value; }
int PointerComesBefore(void *a, void *b) { return *static_cast<int *>(a) < *static_cast<int *>(b); }

// ---- Intrusive stack and list -------------------------------------------------

TEST(LinkedStack, LastInFirstOutAndClose) {
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3};
  Item *head = nullptr;
  for (Item *item : {&a, &b, &c}) DutStackPush(Head(head), item);
  EXPECT_EQ(Values(head), (Ints{3, 2, 1}));
  for (Item *item : {&c, &b, &a}) {
    EXPECT_EQ(DutStackPop(Head(head)), item);
    EXPECT_EQ(item->next, nullptr);  // popped nodes leave unlinked
  }
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(DutStackPop(Head(head)), nullptr);

  for (int i = 0; i < 5; ++i) DutStackPush(Head(head), NewItem(i));
  DutStackClose(Head(head));  // frees every node: the sanitizer build checks
  EXPECT_EQ(head, nullptr);
  DutStackClose(Head(head));  // an empty stack closes too
  EXPECT_EQ(head, nullptr);
}

class LinkedList : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 4; ++i) items_[i] = Item{i < 3 ? &items_[i + 1] : nullptr, i};
    head_ = &items_[0];
  }
  Item items_[4];
  Item *head_ = nullptr;
};

TEST_F(LinkedList, LengthEndPositionAndDelete) {
  EXPECT_EQ(DutListLength(nullptr), 0);
  EXPECT_EQ(DutListEnd(nullptr), nullptr);
  EXPECT_EQ(DutListLength(head_), 4);
  EXPECT_EQ(DutListEnd(head_), &items_[3]);
  EXPECT_EQ(DutListLength(&items_[3]), 1);
  EXPECT_EQ(DutListEnd(&items_[3]), &items_[3]);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(DutListPos(head_, &items_[i]), i);

  Item stranger{nullptr, 99};
  vqtest::OutputCapture capture;
  EXPECT_EQ(DutListPos(head_, &stranger), -1);
  char address[32];
  std::snprintf(address, sizeof address, "%lx",
                static_cast<unsigned long>(reinterpret_cast<uintptr_t>(&stranger)));
  // The second number is where the walk ended, always 0.
  EXPECT_EQ(capture.Take(),
            std::string("WARNING: DutListPos: element ") + address + " is not part of list 0\n");

  stranger.next = &items_[1];  // even one that points into the list is not deleted
  EXPECT_EQ(DutListDelete(Head(head_), &stranger), nullptr);
  EXPECT_EQ(stranger.next, &items_[1]);
  EXPECT_EQ(Values(head_), (Ints{0, 1, 2, 3}));
  const struct {
    int index;
    Ints left;
  } steps[] = {{2, {0, 1, 3}}, {0, {1, 3}}, {3, {1}}, {1, {}}};  // middle, head, tail, last
  for (const auto &s : steps) {
    EXPECT_EQ(DutListDelete(Head(head_), &items_[s.index]), &items_[s.index]);
    EXPECT_EQ(items_[s.index].next, nullptr) << s.index;
    EXPECT_EQ(Values(head_), s.left) << s.index;
  }
  EXPECT_EQ(head_, nullptr);
}

struct TravLog {
  Ints seen;
  Ints remove;  // values whose nodes are removed (and freed)
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

TEST(LinkedListTravDel, RemovesAnyNodesAndReturnsTheLastResult) {
  const struct {
    int count;
    Ints remove, left;
    std::intptr_t last;  // 0: null
  } cases[] = {{7, {0, 1, 3, 6}, {2, 4, 5}, 1006},  // leading, middle and last nodes
               {3, {1}, {0, 2}, 0},                 // the last result, even when null
               {4, {0, 1, 2, 3}, {}, 1003},
               {0, {}, {}, 0}};
  for (const auto &c : cases) {
    Item *head = nullptr;
    for (int i = c.count - 1; i >= 0; --i) {
      Item *item = NewItem(i);
      item->next = head;
      head = item;
    }
    TravLog log{{}, c.remove};
    EXPECT_EQ(DutListTravDel(Head(head), &RemoveAndFree, &log), reinterpret_cast<void *>(c.last));
    EXPECT_EQ(log.seen.size(), static_cast<size_t>(c.count));
    EXPECT_EQ(Values(head), c.left) << c.count;
    if (!c.left.empty()) {
      EXPECT_EQ(static_cast<Item *>(DutListEnd(head))->value, c.left.back());
    }
    DutStackClose(Head(head));
  }
}

// ---- Intrusive queue -----------------------------------------------------------

class LinkedQueue : public ::testing::Test {
 protected:
  void Append(std::initializer_list<Item *> items) {
    for (Item *item : items) DutQueueAppend(Front(), Rear(), item);
  }
  void **Front() { return reinterpret_cast<void **>(&front_); }
  void **Rear() { return reinterpret_cast<void **>(&rear_); }
  // The values from the front, and the rear's value (-1 for none).
  std::pair<Ints, int> State() const { return {Values(front_), rear_ == nullptr ? -1 : rear_->value}; }
  Item *front_ = nullptr;
  Item *rear_ = nullptr;
  Item a{nullptr, 1}, b{nullptr, 2}, c{nullptr, 3}, d{nullptr, 4};
};

using QState = std::pair<Ints, int>;

TEST_F(LinkedQueue, AppendPushPopAndClose) {
  Item stale{nullptr, 0};
  a.next = b.next = &stale;  // appending clears the link
  Append({&a});
  EXPECT_EQ(State(), (QState{{1}, 1}));
  Append({&b});
  EXPECT_EQ(State(), (QState{{1, 2}, 2}));
  DutQueuePush(Front(), Rear(), &c);  // in front; the rear stays
  EXPECT_EQ(State(), (QState{{3, 1, 2}, 2}));
  for (Item *item : {&c, &a, &b}) {
    EXPECT_EQ(DutQueuePop(Front(), Rear()), item);
    EXPECT_EQ(item->next, nullptr);
  }
  EXPECT_EQ(front_, nullptr);
  EXPECT_EQ(rear_, nullptr);  // cleared with the last pop
  EXPECT_EQ(DutQueuePop(Front(), Rear()), nullptr);
  DutQueuePush(Front(), Rear(), &d);  // a push into an empty queue sets the rear
  EXPECT_EQ(State(), (QState{{4}, 4}));
  DutQueuePop(Front(), Rear());

  for (int i = 0; i < 4; ++i) DutQueueAppend(Front(), Rear(), NewItem(i));
  DutQueueClose(Front(), Rear());
  EXPECT_EQ(front_, nullptr);
  EXPECT_EQ(rear_, nullptr);
}

// The right-hand operations set the rear only when it was null: after the
// rear, or detaching it, leaves it for the caller to repair.
TEST_F(LinkedQueue, RightInsertAndDetachLeaveASetRear) {
  Append({&a, &b});
  DutQueueRightInsert(Front(), Rear(), &c, &a);
  EXPECT_EQ(State(), (QState{{1, 3, 2}, 2}));
  DutQueueRightInsert(Front(), Rear(), &d, &b);
  EXPECT_EQ(State(), (QState{{1, 3, 2, 4}, 2}));
  EXPECT_EQ(DutQueueRightDetach(Front(), Rear(), &a), &c);  // from the middle
  EXPECT_EQ(c.next, nullptr);
  EXPECT_EQ(State(), (QState{{1, 2, 4}, 2}));
  EXPECT_EQ(DutQueueRightDetach(Front(), Rear(), &b), &d);  // the last node
  EXPECT_EQ(DutQueueRightDetach(Front(), Rear(), &b), nullptr);
  EXPECT_EQ(State(), (QState{{1, 2}, 2}));
  front_ = rear_ = nullptr;
  Append({&a, &b});
  EXPECT_EQ(DutQueueRightDetach(Front(), Rear(), &a), &b);
  EXPECT_EQ(State(), (QState{{1}, 2}));
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
  Append({&a, &b, &c});
  int key = 1;
  find_calls.clear();
  EXPECT_EQ(DutQueueLeftFind(Front(), Rear(), &key, &ValueMatches), &a);
  ASSERT_FALSE(find_calls.empty());
  EXPECT_EQ(find_calls[0].node, &a);  // node first, key second
  EXPECT_EQ(find_calls[0].key, &key);
  const std::pair<int, Item *> cases[] = {{3, &b}, {2, &a}, {9, nullptr}};
  for (auto [value, answer] : cases) {
    key = value;
    EXPECT_EQ(DutQueueLeftFind(Front(), Rear(), &key, &ValueMatches), answer) << value;
  }
  EXPECT_EQ(Values(front_), (Ints{1, 2, 3}));
}

TEST_F(LinkedQueue, InsertIsOrderedAndStableAmongEquals) {
  Item n5{nullptr, 5}, n3{nullptr, 3}, n8{nullptr, 8}, n5b{nullptr, 5}, n1{nullptr, 1}, n9{nullptr, 9},
      n3b{nullptr, 3};
  const std::pair<Item *, QState> steps[] = {
      {&n5, {{5}, 5}}, {&n3, {{3, 5}, 5}},  // before the front
      {&n8, {{3, 5, 8}, 8}},                // appended
      {&n5b, {{3, 5, 5, 8}, 8}}, {&n1, {{1, 3, 5, 5, 8}, 8}}, {&n9, {{1, 3, 5, 5, 8, 9}, 9}},
      {&n3b, {{1, 3, 3, 5, 5, 8, 9}, 9}}};
  for (const auto &[item, state] : steps) {
    DutQueueInsert(Front(), Rear(), item, &ComesBefore);
    EXPECT_EQ(State(), state) << item->value;
  }
  EXPECT_EQ(n3.next, &n3b);  // equal values keep their arrival order
  EXPECT_EQ(n5.next, &n5b);
}

TEST_F(LinkedQueue, DeleteFixesTheEnds) {
  Item stranger{nullptr, 9};
  Append({&a, &b, &c});
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &stranger), nullptr);
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &b), &b);  // the middle
  EXPECT_EQ(State(), (QState{{1, 3}, 3}));
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &c), &c);  // the rear
  EXPECT_EQ(State(), (QState{{1}, 1}));
  Append({&d});
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &a), &a);  // the front
  EXPECT_EQ(State(), (QState{{4}, 4}));
  EXPECT_EQ(DutQueueDelete(Front(), Rear(), &d), &d);  // the only one
  EXPECT_EQ(State(), (QState{{}, -1}));
  EXPECT_EQ(front_, nullptr);
}

// ---- Deque ---------------------------------------------------------------------

class LinkedDeque : public ::testing::Test {
 protected:
  void SetUp() override {
    DutDqOpen(&dq_);
    ASSERT_NE(dq_, nullptr);
  }
  // Tests unlink their stack-held items first: the close frees what is left.
  void TearDown() override {
    if (dq_ != nullptr) DutDqClose(&dq_);
  }
  D_DQ_NODE *dq_ = nullptr;
  DqItem a{nullptr, nullptr, 1}, b{nullptr, nullptr, 2}, c{nullptr, nullptr, 3};
};

TEST_F(LinkedDeque, InsertDetachPopAndTheEmptyDeque) {
  EXPECT_EQ(dq_->next, dq_);
  EXPECT_EQ(dq_->prev, dq_);
  EXPECT_EQ(DutDqFirst(dq_), nullptr);
  EXPECT_EQ(DutDqLast(dq_), nullptr);
  EXPECT_EQ(DutDqPop(dq_), nullptr);
  EXPECT_EQ(DutDqDetach(dq_, dq_), nullptr);

  DutDqRightInsert(&a, dq_);
  DutDqRightInsert(&b, dq_);  // right of the sentinel: the new first item
  DutDqRightInsert(&c, DutDqLast(dq_));
  EXPECT_EQ(DqValues(dq_), (Ints{2, 1, 3}));
  EXPECT_EQ(DutDqFirst(dq_), &b);
  EXPECT_EQ(DutDqLast(dq_), &c);

  EXPECT_EQ(DutDqDetach(dq_, &a), &a);  // unlinked, its own links left
  EXPECT_EQ(a.prev, &b);
  EXPECT_EQ(a.next, &c);
  EXPECT_EQ(DqValues(dq_), (Ints{2, 3}));
  EXPECT_EQ(DutDqDetach(dq_, dq_), nullptr);  // never the sentinel
  EXPECT_EQ(DqValues(dq_), (Ints{2, 3}));
  EXPECT_EQ(DutDqDetach(dq_, &c), &c);
  EXPECT_EQ(DutDqLast(dq_), &b);
  DutDqRightInsert(&c, dq_->prev);  // append
  EXPECT_EQ(DutDqPop(dq_), &b);     // pops from the front
  EXPECT_EQ(DutDqPop(dq_), &c);
  EXPECT_EQ(DutDqPop(dq_), nullptr);
  EXPECT_EQ(dq_->next, dq_);
  EXPECT_EQ(dq_->prev, dq_);
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

TEST_F(LinkedDeque, PointerNodesGoInFrontAndDeleteTheFirstHolder) {
  int x = 1, y = 2, absent = 0;
  D_PDQ_NODE *nx = DutAddPdqNode(dq_, &x);
  ASSERT_NE(nx, nullptr);
  EXPECT_EQ(nx->ptr, &x);
  D_PDQ_NODE *ny = DutAddPdqNode(dq_, &y);
  EXPECT_EQ(DutDqFirst(dq_), ny);
  EXPECT_EQ(DutDqLast(dq_), nx);
  D_PDQ_NODE *nx2 = DutAddPdqNode(dq_, &x);
  EXPECT_EQ(DutFindPdqNode(dq_, &x), nx2);  // searched from the front
  EXPECT_EQ(DutFindPdqNode(dq_, &y), ny);
  EXPECT_EQ(DutFindPdqNode(dq_, &absent), nullptr);
  EXPECT_EQ(DutDeletePdqNode(dq_, &absent), -1);
  EXPECT_EQ(DutDqFirst(dq_), nx2);
  EXPECT_EQ(DutDeletePdqNode(dq_, &x), 0);
  EXPECT_EQ(DutDqFirst(dq_), ny);
  EXPECT_EQ(DutFindPdqNode(dq_, &x), nx);
  EXPECT_EQ(DutDeletePdqNode(dq_, &x), 0);
  EXPECT_EQ(DutFindPdqNode(dq_, &x), nullptr);
  EXPECT_EQ(DutDqLast(dq_), ny);  // left for the close to free
}

// ---- Pointer stack and queue ------------------------------------------------------

TEST(PointerStack, PushFindPop) {
  int x = 1, y = 2, z = 3;
  D_PST_NODE *head = nullptr;
  EXPECT_EQ(DutFindPstNode(head, &x), nullptr);
  D_PST_NODE *nx = DutPushPstNode(&head, &x);
  ASSERT_NE(nx, nullptr);
  EXPECT_EQ(nx->ptr, &x);
  D_PST_NODE *ny = DutPushPstNode(&head, &y);
  EXPECT_EQ(head, ny);
  EXPECT_EQ(ny->next, nx);
  EXPECT_EQ(DutFindPstNode(head, &x), nx);
  EXPECT_EQ(DutFindPstNode(head, &z), nullptr);
  EXPECT_EQ(DutPopPstNode(&head), &y);
  EXPECT_EQ(DutPopPstNode(&head), &x);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(DutPopPstNode(&head), nullptr);
}

class PointerQueue : public ::testing::Test {
 protected:
  void TearDown() override { DutPqClose(&hdr_); }
  // The item pointers from the front, checked against the rear and count.
  std::vector<void *> Items() {
    std::vector<void *> pointers;
    for (D_PQ_NODE *p = D_PQ_FRONT(&hdr_); p != nullptr; p = p->next) pointers.push_back(p->ptr);
    EXPECT_EQ(D_PQ_REAR(&hdr_) == nullptr ? nullptr : D_PQ_REAR(&hdr_)->ptr,
              pointers.empty() ? nullptr : pointers.back());
    EXPECT_EQ(DutPqCount(&hdr_), static_cast<D_INT4>(pointers.size()));
    return pointers;
  }
  using Ptrs = std::vector<void *>;
  D_PQ_HDR hdr_{nullptr, nullptr};
  int v_[8] = {0, 1, 2, 3, 4, 5, 6, 7};
};

TEST_F(PointerQueue, PushAddRInsertPopFind) {
  EXPECT_EQ(DutPqPop(&hdr_), nullptr);
  D_PQ_NODE *n1 = DutPqAdd(&hdr_, &v_[1]);
  ASSERT_NE(n1, nullptr);
  EXPECT_EQ(n1->ptr, &v_[1]);
  EXPECT_EQ(DutPqPush(&hdr_, &v_[0])->ptr, &v_[0]);
  D_PQ_NODE *n2 = DutPqAdd(&hdr_, &v_[2]);
  EXPECT_EQ(Items(), (Ptrs{&v_[0], &v_[1], &v_[2]}));
  EXPECT_EQ(DutPqRInsert(&hdr_, &v_[5], n1)->ptr, &v_[5]);  // inside: the rear stays
  EXPECT_EQ(DutPqRInsert(&hdr_, &v_[6], n2)->ptr, &v_[6]);  // after the rear: the new rear
  EXPECT_EQ(Items(), (Ptrs{&v_[0], &v_[1], &v_[5], &v_[2], &v_[6]}));
  EXPECT_EQ(DutPqFind(&hdr_, &v_[1]), &v_[1]);
  EXPECT_EQ(DutPqFind(&hdr_, &v_[7]), nullptr);
  for (int i : {0, 1, 5, 2, 6}) EXPECT_EQ(DutPqPop(&hdr_), &v_[i]);
  EXPECT_EQ(hdr_.front, nullptr);
  EXPECT_EQ(hdr_.rear, nullptr);
  EXPECT_EQ(DutPqPop(&hdr_), nullptr);
  DutPqPush(&hdr_, &v_[3]);  // a push into an empty queue sets the rear
  EXPECT_EQ(Items(), (Ptrs{&v_[3]}));
}

TEST_F(PointerQueue, InsertReturnsTheOneBasedPositionAndIsStable) {
  int another_five = 5, first_three = 3, second_three = 3;
  const std::pair<int *, D_INT4> steps[] = {
      {&v_[4], 1}, {&v_[5], 2}, {&v_[6], 3},  // empty, then appended
      {&v_[7], 4},                            // all stay before it: the new rear
      {&v_[1], 1},                            // the new front
      {&another_five, 4},                     // after the equal 5
      {&first_three, 2},     {&second_three, 3}};
  for (auto [ptr, position] : steps) {
    EXPECT_EQ(DutPqInsert(&hdr_, ptr, &PointerComesBefore), position) << *ptr;
  }
  EXPECT_EQ(Items(),
            (Ptrs{&v_[1], &first_three, &second_three, &v_[4], &v_[5], &another_five, &v_[6], &v_[7]}));
}

TEST_F(PointerQueue, DeleteFixesFrontAndRearAndCloseClears) {
  for (int i : {1, 2, 3, 2}) DutPqAdd(&hdr_, &v_[i]);
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[7]), nullptr);
  EXPECT_EQ(Items(), (Ptrs{&v_[1], &v_[2], &v_[3], &v_[2]}));
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[2]), &v_[2]);  // the first holder only
  EXPECT_EQ(Items(), (Ptrs{&v_[1], &v_[3], &v_[2]}));
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[2]), &v_[2]);  // the rear
  EXPECT_EQ(Items(), (Ptrs{&v_[1], &v_[3]}));
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[1]), &v_[1]);  // the front
  EXPECT_EQ(Items(), (Ptrs{&v_[3]}));
  EXPECT_EQ(DutPqDelete(&hdr_, &v_[3]), &v_[3]);
  EXPECT_EQ(hdr_.front, nullptr);
  EXPECT_EQ(hdr_.rear, nullptr);

  for (int &value : v_) DutPqAdd(&hdr_, &value);
  DutPqClose(&hdr_);
  EXPECT_EQ(hdr_.front, nullptr);
  EXPECT_EQ(hdr_.rear, nullptr);
  EXPECT_EQ(DutPqCount(&hdr_), 0);
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
  VQTEST_EXPECT_ASSERTION(DutDqRightInsert(nullptr, nullptr), "[dp] != NULL");
  VQTEST_EXPECT_ASSERTION(DutPqPush(nullptr, &x), "hdr != NULL");
  VQTEST_EXPECT_ASSERTION(DutPqDelete(&hdr, &x), "D_PQ_FRONT\\(hdr\\)");
}

}  // namespace
