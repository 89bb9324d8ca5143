// The reading side: traversal contexts, maximum and minimum, changes,
// the history buffer and the dumps.
#include <string>
#include <tuple>

#include "ring_support.hpp"
#include "support/address_text.hpp"
#include "vqutil/option.h"

namespace {

using namespace ringtest;

// Changes 3, 1, 4, 1, 5 at 10 .. 50 s in the increment-0.0 buffer, the
// same in a coarser one.
class RingReading : public Ring {
 protected:
  void SetUp() override {
    Ring::SetUp();
    ring_ = Make(D_RING_TYPE_DOUBLE, "read");
    Fixed(ring_, 0.0, 16);
    Fixed(ring_, 10.0, 16);
    const double values[] = {3, 1, 4, 1, 5};
    for (int i = 0; i < 5; ++i) Archive(ring_, (i + 1) * 10000000LL, values[i]);
  }
  // The steps of a traversal as (time in seconds, value or -1 for none).
  Pairs Steps(D_RING_CONTEXT *ctx) {
    Pairs steps;
    DutRingTraverse(
        ctx,
        [](D_RING_CONTEXT *c, D_RING_ENTRY *e, const D_TIME_VALUE *t, void *arg) -> D_WORD {
          static_cast<Pairs *>(arg)->emplace_back(t->seconds, e != nullptr ? Number(c->ring->type, e) : -1.0);
          return 0;
        },
        &steps);
    return steps;
  }
  D_RING_BUF *ring_ = nullptr;
};

TEST_F(RingReading, ChangeTraversalCountsBackFromTheNewest) {
  const struct {
    D_INT4 first, n;
    Pairs steps;
    D_INT4 err;  // 0: the traversal starts
    const char *warning;
  } cases[] = {
      {0, 2, {{40, 1}, {50, 5}}, 0, ""},
      {1, 2, {{30, 4}, {40, 1}}, 0, ""},
      {3, 10, {{10, 3}, {20, 1}}, 0, "WARNING: Too many changes requested: 10, only have 2\n"},
      {5, 1, {}, D_ERR_VAL_TOO_LARGE, "WARNING: First change (5) too big: buffer only has 5 changes\n"},
      {0, 0, {}, D_ERR_VAL_TOO_SMALL, "WARNING: Internal validation <nchanges > 0> failed"},
      {-1, 1, {}, D_ERR_VAL_TOO_SMALL, "WARNING: Internal validation <first_change >= 0> failed"},
  };
  for (const auto &c : cases) {
    OutputCapture capture;
    D_RING_CONTEXT ctx{};
    DutErrNumSet(0);
    EXPECT_EQ(DutRingZeroTravInit(&ctx, ring_, c.first, c.n), c.err == 0 ? D_TRUE : D_FALSE) << c.first;
    EXPECT_EQ(DutErrNumGet(), c.err) << c.first;
    EXPECT_EQ(capture.Take().rfind(c.warning, 0), 0u) << c.first;
    if (c.err != 0) continue;
    EXPECT_EQ(Steps(&ctx), c.steps) << c.first;
    D_INT4 done = 0;
    EXPECT_TRUE(DutRingContextGetDone(&ctx, &done) == D_TRUE && done == 1);
    D_RING_ENTRY *e = nullptr;
    EXPECT_FAILS(DutRingTravNext(&ctx, &e, nullptr), D_FALSE, D_ERR_END_OF_TRAVERSAL);
  }
}

TEST_F(RingReading, TimedTraversalsSampleOrVisitEveryChange) {
  // (start, increment, span, steps)
  const std::tuple<double, double, double, Pairs> cases[] = {
      // Samples: the value in force at each sample time, none before 10 s.
      {5, 10, 40, {{5, -1}, {15, 3}, {25, 1}, {35, 4}, {45, 1}}},
      {48, 1, 3, {{48, 1}, {49, 1}, {50, 5}, {51, 5}}},
      // Every change: what was in force at the start when it began before.
      {15, 0, 20, {{10, 3}, {20, 1}, {30, 4}}},
      {20, 0, 10, {{20, 1}, {30, 4}}},
      {55, 0, 5, {{50, 5}}},
  };
  for (const auto &[from, step, length, steps] : cases) {
    const D_TIME_VALUE start = S(from), incr = S(step), span = S(length);
    D_RING_CONTEXT ctx{};
    ASSERT_EQ(DutRingTravInit(&ctx, ring_, &start, &incr, &span), D_TRUE);
    EXPECT_EQ(Steps(&ctx), steps) << from << " " << step;
  }
}

TEST_F(RingReading, MaxMinAndChangesOverASpan) {
  // (start, end, answer, maximum, minimum, changes): the value in force at
  // the start counts.
  const std::tuple<double, double, D_BOOL, double, double, D_INT4> cases[] = {
      {15, 35, D_TRUE, 4, 1, 2}, {30, 30, D_TRUE, 4, 4, 1}, {45, 100, D_TRUE, 5, 1, 1},
      {0, 5, D_FALSE, 0, 0, 0},  {0, 100, D_TRUE, 5, 1, 5}};
  for (auto [from, to, ok, high, low, changes] : cases) {
    const D_TIME_VALUE start = S(from), end = S(to);
    D_REAL8 max = -9, min = -9;
    D_INT4 count = -1;
    EXPECT_EQ(DutRingGetMaxMin(ring_, &start, &end, &max, &min), ok) << from;
    EXPECT_EQ(DutRingNumChanges(ring_, &start, &end, &count), D_TRUE);
    EXPECT_TRUE((ok == D_FALSE || (max == high && min == low)) && count == changes) << from;
  }
  D_INT4 count = 0;
  D_RING_ENTRY *entries[2] = {};
  const D_TIME_VALUE from = S(20);
  EXPECT_EQ(DutRingGetChanges(ring_, &from, nullptr, entries, 2, &count), D_TRUE);
  EXPECT_TRUE(count == 4 && Us(entries[0]) == 20000000 && Us(entries[1]) == 30000000);
}

TEST_F(RingReading, HistoryKeepsTimeOrderAndGrows) {
  DutSetCurrentTime(100.0);
  D_OPTION *size = DutOptionLookup("default_history_buffer_size");
  ASSERT_NE(size, nullptr);
  D_REAL8 saved = 0;
  DutOptionGetNum(size, &saved);
  DutOptionSetNum(size, 2);
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE);
  // (time, value, stored, size of the history buffer afterwards)
  const std::tuple<double, double, bool, D_INT4> steps[] = {
      {50, 5, true, 2}, {30, 3, true, 2}, {40, 4, true, 3}, {30, 2, true, 4}, {150, 9, false, 4}};
  for (auto [at, value, stored, size_after] : steps) {
    const D_TIME_VALUE t = S(at);
    EXPECT_EQ(DutRingArchiveHistoryData(ring, &t, &value, 2, 0) != nullptr, stored) << at;
    EXPECT_EQ(ring->hist_buff->size, size_after) << at;
  }
  DutOptionSetNum(size, saved);
  EXPECT_EQ(Doubles(ring->hist_buff), (Pairs{{30000000, 3}, {30000000, 2}, {40000000, 4}, {50000000, 5}}));
  const D_TIME_VALUE start = S(30), ten = S(10), end = S(60);
  D_RING_CONTEXT ctx{};
  ASSERT_EQ(DutRingHistTravInit(&ctx, ring, &start, &ten, &end), D_TRUE);
  EXPECT_EQ(Steps(&ctx), (Pairs{{30, 2}, {40, 4}, {50, 5}, {60, 5}}));
  D_REAL8 max = 0, min = 0;
  const D_TIME_VALUE from = S(35);
  D_TIME_VALUE span{};
  EXPECT_EQ(DutRingGetHistMaxMin(ring, &from, &end, &max, &min), D_TRUE);
  EXPECT_EQ(DutRingBufferSpan(ring->hist_buff, &span), D_TRUE);
  EXPECT_TRUE(max == 5 && min == 2 && span.seconds == 20);
}

void Sink(const char *format, ...) {
  va_list args;
  va_start(args, format);
  vqtest::Capture(format, args);
  va_end(args);
}

TEST_F(RingReading, DumpsAndPrintingLeaveTheTraversalWhereItWas) {
  D_RING_BUF *ring = Make(D_RING_TYPE_INT, "dump");
  D_RING_HDR *hdr = Fixed(ring, 1.5, 2);
  Archive(ring, 1000000, 7);
  Archive(ring, 3000000, 8);
  OutputCapture capture;
  ASSERT_EQ(DutRingDumpBuffer(hdr, Sink), D_TRUE);
  EXPECT_EQ(capture.Take(),
            "Buffer dump: Name: dump Min span: 0.000000, Incr: 1.500000, size: 2\n"
            "  [0] Time: 1.000000 Status: 2 Flag: 0 Value: 7\n"
            "  [1] Time: 3.000000 Status: 2 Flag: 0 Value: 8\n");
  const D_TIME_VALUE start = S(0), incr = S(2), span = S(2);
  D_RING_CONTEXT ctx{};
  DutRingTravInit(&ctx, ring, &start, &incr, &span);
  ASSERT_EQ(DutRingPrintTraversal(&ctx, nullptr), D_TRUE);
  EXPECT_EQ(capture.Take(),
            "Traversal of dump (ring): start 0.000000, incr 2.000000, end 2.000000, done: NO\n"
            "  at 0.000000: no value\n"
            "  at 2.000000: Time: 1.000000 Status: 2 Flag: 0 Value: 7\n");
  EXPECT_EQ(Steps(&ctx), (Pairs{{0, -1}, {2, 7}}));

  // A pointer value comes out whole, in hex. The ring only keeps it (no
  // free function), so one wider than 32 bits is safe on any heap layout.
  D_RING_BUF *pointers = Make(D_RING_TYPE_VOID, "pointers");
  D_RING_HDR *held = Fixed(pointers, 1.5, 2);
  const D_TIME_VALUE at = T(1000000);
  const void *wide = reinterpret_cast<const void *>(vqtest::WideWord());
  ASSERT_NE(DutRingArchiveValue(pointers, &at, wide, 2, 0), nullptr);
  ASSERT_EQ(DutRingDumpBuffer(held, Sink), D_TRUE);
  EXPECT_EQ(capture.Take(), "Buffer dump: Name: pointers Min span: 0.000000, Incr: 1.500000, size: 2\n"
                            "  [0] Time: 1.000000 Status: 2 Flag: 0 Value: " + vqtest::Hex(wide) + "\n");
}

}  // namespace
