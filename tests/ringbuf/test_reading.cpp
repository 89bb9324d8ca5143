// The reading side: traversal contexts, maximum and minimum, changes,
// the history buffer and the dumps.
#include <cstring>
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

// One value of each type: where DutRingValuePtr points, what an entry's
// printing shows, and which entries DutRingEntriesEqual takes as equal.
TEST_F(RingReading, ValuesOfEachTypeByPointerPrintingAndEquality) {
  static int pointee = 0;
  const D_INT4 i = -7;
  const double d = 2.5;
  const float f = 0.25F;
  const D_UINT4 w = 4000000000U;
  const struct {
    D_UINT4 type;
    const void *value;  // as the archive takes it (type 0: the pointer itself)
    std::string text;   // as the printing shows it
  } rows[] = {{D_RING_TYPE_VOID, &pointee, vqtest::Hex(&pointee)},
              {D_RING_TYPE_INT, &i, "-7"},
              {D_RING_TYPE_LONG, &i, "-7"},
              {D_RING_TYPE_DOUBLE, &d, "2.5"},
              {D_RING_TYPE_FLOAT, &f, "0.25"},
              {D_RING_TYPE_WORD, &w, "4000000000"},
              {D_RING_TYPE_STRING, "text", "\"text\""}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.type);
    D_RING_BUF *ring = Make(row.type);
    D_RING_HDR *hdr = Fixed(ring, 0.0, 4);
    const D_TIME_VALUE t1 = S(1), t2 = S(2);
    D_RING_ENTRY *first = DutRingArchiveValue(ring, &t1, row.value, 2, 0);
    ASSERT_NE(first, nullptr);
    // The same value again, by insertion: a second entry that equals the first.
    D_RING_ENTRY *second = DutRingInsertValue(hdr, &t2, row.value, 2, 0);
    ASSERT_NE(second, nullptr);
    void *at = DutRingValuePtr(first, row.type);
    switch (row.type) {
      case D_RING_TYPE_VOID:
        EXPECT_EQ(at, &pointee);
        break;
      case D_RING_TYPE_STRING:
        EXPECT_STREQ(static_cast<char *>(at), "text");
        break;
      default:  // the stored value, wherever the entry keeps it
        EXPECT_EQ(std::memcmp(at, row.value, row.type == D_RING_TYPE_DOUBLE ? sizeof d : sizeof i), 0);
    }
    OutputCapture capture;
    ASSERT_EQ(DutRingPrintRbe(ring, first, Sink), D_TRUE);
    EXPECT_EQ(capture.Take(), "Time: 1.000000 Status: 2 Flag: 0 Value: " + row.text + "\n");
    EXPECT_EQ(DutRingEntriesEqual(hdr, first, second), D_TRUE);
    D_RING_ENTRY outside = *first;
    EXPECT_EQ(DutRingEntriesEqual(hdr, first, &outside), D_FALSE);
    EXPECT_FAILS(DutRingEntriesEqual(nullptr, first, second), D_FALSE, D_ERR_NULL_PTR);
  }
  D_RING_BUF *ring = Make(D_RING_TYPE_INT);
  D_RING_HDR *hdr = Fixed(ring, 0.0, 4);
  D_RING_ENTRY *seven = Archive(ring, 1000000, 7), *eight = Archive(ring, 2000000, 8);
  EXPECT_EQ(DutRingEntriesEqual(hdr, seven, eight), D_FALSE);
  EXPECT_EQ(DutRingEntriesEqual(hdr, seven, seven), D_TRUE);
  EXPECT_FAILS(DutRingValuePtr(seven, 3), nullptr, D_ERR_TYPE_INVALID);
  EXPECT_FAILS(DutRingValuePtr(nullptr, D_RING_TYPE_INT), nullptr, D_ERR_NULL_PTR);
  D_RING_ENTRY no_text{};
  EXPECT_FAILS(DutRingValuePtr(&no_text, D_RING_TYPE_STRING), nullptr, D_ERR_EMPTY);
}

// The ring's own view: data, the current entry (the initial value while
// the first buffer is empty), the spans of its largest and 0.0 buffers, and
// a grown array that keeps the entries oldest first; clearing empties every
// buffer.
TEST_F(RingReading, RingQueriesFollowTheBuffersFromEmptyToGrownAndCleared) {
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE, "queries");
  D_TIME_VALUE span{9, 9};
  EXPECT_EQ(std::tuple(DutRingBuffHasData(ring), DutRingMaxSpan(ring, &span), DutRingZeroSpan(ring)),
            std::tuple(D_FALSE, D_FALSE, 0));
  EXPECT_EQ(std::tuple(span.seconds, span.microseconds), std::tuple(0, 0));
  D_RING_ENTRY *initial = Archive(ring, 500000, 1);
  EXPECT_EQ(std::tuple(DutRingCurrentEntry(ring), DutRingBuffHasData(ring)), std::tuple(initial, D_FALSE));
  // Fixed buffers do not start from the initial value (at 0.5 s).
  D_RING_HDR *zero = Fixed(ring, 0.0, 3);
  D_RING_HDR *coarse = Fixed(ring, 10.0, 3);
  for (int s = 1; s <= 4; ++s) Archive(ring, s * 1000000LL, s);
  EXPECT_EQ(std::tuple(DutRingBuffHasData(ring), DutRingCurrentEntry(ring), DutRingZeroSpan(ring)),
            std::tuple(D_TRUE, zero->current, 3));
  EXPECT_EQ(DutRingMaxSpan(ring, &span), D_TRUE);  // the coarse buffer: 1 s to 4 s
  EXPECT_EQ(std::tuple(span.seconds, span.microseconds), std::tuple(3, 0));
  ASSERT_EQ(DutRingReallocArray(zero, 5), D_TRUE);
  EXPECT_EQ(std::tuple(zero->size, zero->current), std::tuple(D_UINT2{5}, zero->start + 2));
  EXPECT_EQ(Doubles(zero), (Pairs{{2000000, 2}, {3000000, 3}, {4000000, 4}}));
  Archive(ring, 5000000, 5);
  EXPECT_EQ(DutRingZeroSpan(ring), 4);
  ASSERT_EQ(DutRingClear(ring), D_TRUE);
  EXPECT_EQ(
      std::tuple(DutRingBuffHasData(ring), DutRingCurrentEntry(ring), Doubles(zero).size(), Doubles(coarse).size()),
      std::tuple(D_FALSE, initial, size_t{0}, size_t{0}));
  EXPECT_FAILS(DutRingClear(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutRingMaxSpan(ring, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutRingZeroSpan(nullptr), 0, D_ERR_NULL_PTR);
}

}  // namespace
