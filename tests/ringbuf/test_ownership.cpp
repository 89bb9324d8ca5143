// Who owns what: string values are copies, pointer values reach the free
// function exactly once each, and the ring record survives destruction.
#include <cstring>
#include <map>
#include <random>
#include <set>

#include "ring_support.hpp"

namespace {

using namespace ringtest;

using RingOwnership = Ring;

TEST_F(RingOwnership, StringValuesAreCopiesInThirtyTwoByteUnits) {
  D_RING_BUF *ring = Make(D_RING_TYPE_STRING);
  D_RING_HDR *hdr = Fixed(ring, 0.0, 2);
  // (length, size in units): the two slots take turns; each grows only
  // when its text needs more.
  const std::pair<std::size_t, D_INT4> cases[] = {{0, 1}, {31, 1}, {32, 2}, {63, 2}, {64, 3}};
  std::int64_t t = 1;
  for (auto [length, units] : cases) {
    std::string text(length, static_cast<char>('a' + t));
    const D_TIME_VALUE when = T(t++);
    D_RING_ENTRY *e = DutRingArchiveValue(ring, &when, text.c_str(), 2, 0);
    ASSERT_NE(e, nullptr) << length;
    const std::string kept = text;
    std::fill(text.begin(), text.end(), '?');
    EXPECT_EQ(static_cast<const char *>(DutRingValuePtr(e, D_RING_TYPE_STRING)), kept) << length;
    EXPECT_EQ(e->value.rs->size, units) << length;
  }
  // Equal text is a repeat: the newest entry stays.
  const D_TIME_VALUE later = T(100);
  const std::string same(static_cast<const char *>(DutRingValuePtr(hdr->current, D_RING_TYPE_STRING)));
  EXPECT_TRUE(DutRingArchiveValue(ring, &later, same.c_str(), 2, 0) == hdr->current && Us(hdr->current) == 5);
}

// Frees counted per pointer.
std::map<void *, int> &Frees() {
  static std::map<void *, int> frees;
  return frees;
}
void CountFree(void *p) { ++Frees()[p]; }

std::set<void *> Held(D_RING_BUF *ring) {
  std::set<void *> held;
  auto add = [&](D_RING_HDR *hdr) {
    for (D_INT4 i = 0; hdr != nullptr && i < hdr->size; ++i) {
      if (hdr->start[i].status != 0) held.insert(hdr->start[i].value.ptr);
    }
  };
  for (D_DQ_NODE *n = ring->buffers->next; n != ring->buffers; n = n->next) add(reinterpret_cast<D_RING_HDR *>(n));
  add(ring->hist_buff);
  if (ring->initial_value != nullptr) held.insert(ring->initial_value->value.ptr);
  return held;
}

// Random archives, insertions, deletions, clears, history and a destroy of
// a ring of three buffers sharing its pointers: after every step, a pointer
// has been freed once exactly when the ring no longer holds it. The record
// survives the destroy and can be used again.
TEST_F(RingOwnership, PointerValuesReachTheFreeFunctionExactlyOnce) {
  std::mt19937 random(7);
  std::vector<int> pool(64);
  for (int round = 0; round < 20; ++round) {
    Frees().clear();
    D_RING_BUF *ring = Make(D_RING_TYPE_VOID);
    ASSERT_EQ(DutRingSetFreeFunc(ring, CountFree), D_TRUE);
    ASSERT_NE(DutRingOverwriteCbCreate(ring, [](void *, void *, D_WORD) {}, 0), nullptr);
    D_RING_HDR *buffers[] = {Fixed(ring, 0.0, 3), Fixed(ring, 0.00005, 4), Growable(ring, 0.0001, 0.0002, 2)};
    DutRingSetTimeRepeat(buffers[0], D_TRUE);
    std::set<void *> stored;  // every pointer the ring has held
    std::int64_t t = 10;
    for (int step = 0; step < 60; ++step) {
      void *p = &pool[random() % pool.size()];
      if (Frees().count(p) != 0) continue;  // freed: the caller would not hand it in again
      const int action = static_cast<int>(random() % 11);
      D_RING_HDR *hdr = buffers[random() % 3];
      // Archives move time on; insertions reach back; the history wants
      // times not after the current time.
      const D_TIME_VALUE when = T(action < 6 ? t += random() % 40 : action < 8 ? t - random() % 60 : 0);
      if (action < 6) DutRingArchiveValue(ring, &when, p, 2, 0);
      if (action == 6 || action == 7) DutRingInsertValue(hdr, &when, p, 2, 0);
      if (action == 8) DutRingDeleteEntry(hdr, hdr->start + random() % hdr->size);
      if (action == 9) DutRingClearBuffer(hdr);
      if (action == 10) DutRingArchiveHistoryData(ring, &when, p, 2, 0);
      const std::set<void *> held = Held(ring);
      stored.insert(held.begin(), held.end());
      for (int &item : pool) {
        const int n = Frees().count(&item) != 0 ? Frees()[&item] : 0;
        ASSERT_EQ(n, stored.count(&item) != 0 && held.count(&item) == 0 ? 1 : 0)
            << "round " << round << " step " << step << " action " << action;
      }
    }
    D_DQ_NODE *sentinel = ring->buffers;
    D_CB_LIST *list = ring->overwrite_cb_list;
    DutRingDestroy(ring);
    for (void *q : stored) EXPECT_EQ(Frees()[q], 1) << "round " << round;
    EXPECT_EQ(Frees().size(), stored.size());
    EXPECT_TRUE(ring->buffers == sentinel && sentinel->next == sentinel && ring->overwrite_cb_list == list);
    EXPECT_TRUE(ring->name == nullptr && ring->hist_buff == nullptr && ring->initial_value == nullptr);
    D_RING_HDR *again = Fixed(ring, 0.0, 2);
    const D_TIME_VALUE when = T(1);
    EXPECT_EQ(DutRingArchiveValue(ring, &when, &pool[0], 2, 0), again->start);
  }
}

}  // namespace
