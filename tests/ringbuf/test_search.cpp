// The searches: the logarithmic search against the literal walk over random
// buffers (before, inside and after the stored times, equal times, the
// initial value), answer and iteration state alike; the finest buffer for a
// time; the process-wide iteration and deletion; per-caller iterations
// that share nothing, also across threads.
#include <algorithm>
#include <random>
#include <thread>

#include "ring_support.hpp"

namespace {

using namespace ringtest;

using RingSearch = Ring;

TEST_F(RingSearch, FindBufferGivesTheFinestThatReachesBack) {
  D_RING_BUF *ring = Make(D_RING_TYPE_INT);
  const D_TIME_VALUE t = T(50);
  EXPECT_FAILS(DutRingFindBuffer(ring, &t), nullptr, D_ERR_DOESNT_EXIST);
  D_RING_HDR *fine = Fixed(ring, 0.0, 2);
  D_RING_HDR *coarse = Fixed(ring, 0.000010, 8);
  EXPECT_FAILS(DutRingFindBuffer(ring, &t), nullptr, D_ERR_DOESNT_EXIST);
  for (int i = 1; i <= 6; ++i) Archive(ring, i * 10, i);  // fine keeps 50, 60; coarse 10 .. 60
  const std::pair<std::int64_t, D_RING_HDR *> cases[] = {
      {5, nullptr}, {10, coarse}, {49, coarse}, {50, fine}, {99, fine}};
  for (auto [at, expected] : cases) {
    const D_TIME_VALUE when = T(at);
    EXPECT_EQ(DutRingFindBuffer(ring, &when), expected) << at;
  }
}

D_RING_ENTRY *OldestOf(D_RING_HDR *h) {
  if (h->start[h->size - 1].status == 0) return h->start;
  return h->current + 1 == h->start + h->size ? h->start : h->current + 1;
}

// The search as a walk with DutRingNextEntry, written from the rules.
D_RING_ENTRY *LiteralFind(D_RING_HDR *h, std::int64_t t) {
  if (h->current->status == 0 || t < Us(OldestOf(h))) return h->ring->initial_value;
  if (t > Us(h->current)) return h->current;
  for (D_RING_ENTRY *e = DutRingNextEntry(h); e != nullptr;) {
    if (e == h->current) return e;
    D_RING_ENTRY *next = DutRingNextEntry(nullptr);
    if (next == nullptr || next->status == 0 || (Us(e) <= t && Us(next) > t)) return e;
    e = next;
  }
  return nullptr;
}

// An answer and the three entries the iteration gives after it.
using Trail = std::vector<D_RING_ENTRY *>;
template <class Next>
Trail Follow(D_RING_ENTRY *answer, Next next) {
  Trail trail{answer};
  for (int i = 0; i < 3; ++i) trail.push_back(next());
  return trail;
}

TEST_F(RingSearch, LogarithmicSearchAgreesWithTheWalkAndLeavesItsState) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    D_RING_BUF *ring = Make(D_RING_TYPE_INT);
    if (random() % 4 == 0) Archive(ring, 0, 7, 1);
    D_RING_HDR *hdr = Fixed(ring, 0.0, 2 + static_cast<D_INT4>(random() % 12));
    DutRingSetTimeRepeat(hdr, random() % 2 == 0 ? D_TRUE : D_FALSE);
    // Now and then the deliberate empty-buffer insertion leaves empty slots
    // among the entries, and the search walks.
    const bool holes = random() % 5 == 0;
    if (holes) Insert(hdr, 1, 0);
    std::int64_t t = 1;
    const int n = static_cast<int>(random() % 30);
    for (int i = 0; i < n; ++i) {
      t += random() % 3;
      random() % 4 == 0 ? Insert(hdr, t - static_cast<std::int64_t>(random() % 6), i) : Archive(ring, t, i);
    }
    // Older values went in in time order.
    const Pairs stored = Doubles(hdr);
    auto earlier = [](auto &a, auto &b) { return a.first < b.first; };
    ASSERT_TRUE(holes || std::is_sorted(stored.begin(), stored.end(), earlier)) << "round " << round;
    for (std::int64_t at = 0; at <= t + 1; ++at) {
      const D_TIME_VALUE when = T(at);
      DutRingNextEntry(hdr);
      const Trail walked = Follow(LiteralFind(hdr, at), [] { return DutRingNextEntry(nullptr); });
      DutRingNextEntry(hdr);
      const Trail searched = Follow(DutRingFindTime(hdr, &when), [] { return DutRingNextEntry(nullptr); });
      ASSERT_EQ(searched, walked) << "round " << round << " at " << at;
      D_RING_ITER own;
      DutRingIterFirst(&own, hdr);
      DutRingNextEntry(hdr);
      const Trail mine = Follow(DutRingIterFindTime(&own, hdr, &when), [&] { return DutRingIterNext(&own); });
      ASSERT_EQ(mine, walked) << "round " << round << " at " << at;
      // The whole ring: its one buffer, unless it does not reach back.
      const bool reaches = hdr->current->status != 0 && at >= Us(OldestOf(hdr));
      ASSERT_EQ(DutRingFindTimeEntry(ring, &when), reaches ? walked[0] : nullptr) << "round " << round;
    }
  }
}

// The process-wide iteration starts at the oldest entry and wraps; a
// deletion closes the gap; a destroyed buffer's iteration is forgotten.
TEST_F(RingSearch, NextEntryWrapsDeletionClosesTheGap) {
  D_RING_BUF *ring = Make(D_RING_TYPE_INT);
  D_RING_HDR *hdr = Fixed(ring, 0.0, 4);
  for (int i = 1; i <= 6; ++i) Archive(ring, i, i);  // wrapped: 3 4 5 6
  std::vector<D_RING_ENTRY *> order{DutRingNextEntry(hdr)};
  for (int i = 0; i < 4; ++i) order.push_back(DutRingNextEntry(nullptr));
  EXPECT_EQ(order, (std::vector<D_RING_ENTRY *>{hdr->start + 2, hdr->start + 3, hdr->start, hdr->start + 1, nullptr}));
  const D_TIME_VALUE t4 = T(4);
  ASSERT_EQ(DutRingDeleteEntry(hdr, DutRingFindTime(hdr, &t4)), D_TRUE);
  EXPECT_EQ(Doubles(hdr), (Pairs{{3, 3}, {5, 5}, {6, 6}}));
  EXPECT_EQ(hdr->start[3].status, 0);  // no longer wrapped
  Archive(ring, 7, 7);
  EXPECT_EQ(Doubles(hdr), (Pairs{{3, 3}, {5, 5}, {6, 6}, {7, 7}}));
  EXPECT_FAILS(DutRingDeleteEntry(hdr, hdr->start + 4), D_FALSE, D_ERR_VAL_INVALID);
  DutRingClearBuffer(hdr);
  Archive(ring, 8, 8);
  ASSERT_EQ(DutRingDeleteEntry(hdr, hdr->start), D_TRUE);
  EXPECT_EQ(hdr->current, hdr->start + 3);  // as after a clear
  EXPECT_FAILS(DutRingDeleteEntry(hdr, hdr->start), D_FALSE, D_ERR_EMPTY);
  Archive(ring, 9, 9);
  Archive(ring, 10, 10);
  EXPECT_EQ(DutRingNextEntry(hdr), hdr->start);
  DutRingDestroy(ring);
  EXPECT_EQ(DutRingNextEntry(nullptr), nullptr);
}

// Per-caller iterations and searches on different threads over shared
// buffers: each keeps its own state (run under the thread sanitizer).
using RingIterThreads = Ring;

TEST_F(RingIterThreads, ConcurrentSearchesKeepTheirOwnState) {
  D_RING_BUF *ring = Make(D_RING_TYPE_INT, "shared");
  D_RING_HDR *hdr = Fixed(ring, 0.0, 1000);
  for (int i = 1; i <= 1500; ++i) Archive(ring, 2 * i, i);  // keeps 501 .. 1500
  // The walk has read the successor: the iteration goes on after it.
  auto value = [](D_RING_ENTRY *e) { return e != nullptr ? e->value.i : -1; };
  auto work = [&](int offset, int *failures) {
    for (int i = 501; i <= 1500; ++i) {
      D_RING_ITER iter{};
      const D_TIME_VALUE t = T(2 * i + offset);
      const int found = value(DutRingIterFindTime(&iter, hdr, &t)), after = value(DutRingIterNext(&iter));
      const int then = value(DutRingIterNext(&iter));
      *failures += found != i || after != (i + 2 <= 1500 ? i + 2 : -1) || then != (i + 3 <= 1500 ? i + 3 : -1);
    }
  };
  int failures[2] = {0, 0};
  std::thread a(work, 0, &failures[0]), b(work, 1, &failures[1]);
  a.join();
  b.join();
  EXPECT_EQ(failures[0] + failures[1], 0);
}

}  // namespace
