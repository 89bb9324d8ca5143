// Writing values: the increment grid, repeats, growth and its size limit,
// wrapping with overwrite callbacks, the initial value and the deliberate
// cases of DutRingInsertValue (an empty buffer, doubles that cannot move).
#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "ring_support.hpp"

namespace {

using namespace ringtest;

using RingInsert = Ring;

// The newer-value path: per case a buffer (fixed or growable, increment,
// repeat flags), the values archived and the entries kept, as (tenths of a
// second, value).
TEST_F(RingInsert, NewerValuesByGridAndRepeats) {
  Pairs to49, to20;
  for (int t = 1; t <= 49; t += 2) to49.emplace_back(t, t);
  for (int t = 0; t <= 20; t += 2) to20.emplace_back(t, t);
  const Pairs to17(to49.begin(), to49.begin() + 9);
  const struct {
    bool fixed;
    double incr;
    bool value_repeat, time_repeat;
    Pairs given, kept;
  } cases[] = {
      // The first value, then the latest of each second (k, k + 1].
      {false, 1.0, false, false, to49, {{1, 1}, {9, 9}, {19, 19}, {29, 29}, {39, 39}, {49, 49}}},
      // On the boundaries: the value at k closes (k - 1, k].
      {false, 1.0, false, false, to20, {{0, 0}, {10, 10}, {20, 20}}},
      // A fixed buffer past a boundary follows the data time itself.
      {true, 1.0, false, false, to17, {{1, 1}, {9, 9}, {11, 11}, {13, 13}, {15, 15}, {17, 17}}},
      // Equal values: dropped unless value repeat; equal times: overwritten
      // unless time repeat; an earlier time is ignored whatever the flags.
      {true, 0.0, false, false, {{1, 5}, {2, 5}}, {{1, 5}}},
      {true, 0.0, true, false, {{1, 5}, {2, 5}}, {{1, 5}, {2, 5}}},
      {true, 0.0, false, false, {{1, 5}, {1, 6}}, {{1, 6}}},
      {true, 0.0, false, true, {{1, 5}, {1, 6}}, {{1, 5}, {1, 6}}},
      {true, 0.0, true, true, {{1, 5}, {0, 6}}, {{1, 5}}},
  };
  for (const auto &c : cases) {
    D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE);
    D_RING_HDR *hdr = c.fixed ? Fixed(ring, c.incr, 100) : Growable(ring, c.incr, 0.0, 100);
    EXPECT_EQ(DutRingSetValueRepeat(hdr, c.value_repeat), D_FALSE);
    DutRingSetTimeRepeat(hdr, c.time_repeat);
    EXPECT_EQ(DutRingSetValueRepeat(hdr, c.value_repeat), c.value_repeat ? D_TRUE : D_FALSE);
    for (auto [t, v] : c.given) Archive(ring, t * 100000, v);
    Pairs kept;
    for (auto [t, v] : c.kept) kept.emplace_back(t * 100000, v);
    EXPECT_EQ(Doubles(hdr), kept) << c.fixed << " " << c.given.size() << " " << c.given[1].second;
  }
}

// Full growable buffers that cover less than their minimum span grow:
// 10 entries a second apart cover 9 s of 100 s; the rate, capped at one
// entry per 1.0 s increment, asks for 100 x 1 + 2 = 102 entries, and
// 102 >= 6 x 10 adds a fifth: 122. An increment of 0.0 caps the rate, so
// each growth is by half, up to the 16-bit limit, where the buffer wraps.
TEST_F(RingInsert, GrowableBuffersGrowByTheRuleUpToTheLimit) {
  const struct {
    double incr, min_span;
    D_INT4 size;
    std::vector<std::pair<std::int64_t, D_INT4>> steps;  // values archived, size then; past the size, it wraps
  } cases[] = {{1.0, 100.0, 10, {{10, 10}, {11, 122}}},
               {0.0, 1e6, 40000, {{40000, 40000}, {40001, 60000}, {60001, 65535}, {65535, 65535}, {65537, 65535}}}};
  for (const auto &c : cases) {
    D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE);
    D_RING_HDR *hdr = Growable(ring, c.incr, c.min_span, c.size);
    std::int64_t n = 0;
    for (auto [values, size] : c.steps) {
      for (; n < values; ++n) Archive(ring, (n + 1) * 1000000, static_cast<double>(n));
      EXPECT_EQ(hdr->size, size) << values;
      Pairs kept;  // oldest to newest, whatever the slots
      for (std::int64_t k = std::max<std::int64_t>(1, values - size + 1); k <= values; ++k) {
        kept.emplace_back(k * 1000000, k - 1);
      }
      EXPECT_EQ(Doubles(hdr), kept) << values;
    }
    EXPECT_EQ(DutRingZeroSpan(ring), c.incr == 0.0 ? 65535 : 0);
  }
}

struct Overwrite {
  D_RING_BUF *ring;
  D_RING_HDR *hdr;
  Pairs seen;  // the entry as the callback found it
};
void RecordOverwrite(void *object, void *data, D_WORD arg) {
  auto *record = reinterpret_cast<Overwrite *>(arg);
  auto *d = static_cast<D_RING_OVERWRITE_CB_DATA *>(data);
  EXPECT_TRUE(object == record->ring && d->buffer == record->hdr && d->cb != nullptr);
  record->seen.emplace_back(Us(d->entry), *d->entry->value.dp);
}

TEST_F(RingInsert, FixedBufferWrapsAndCallsOverwriteCallbacksBeforeTheSlotChanges) {
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE);
  Overwrite record{ring, Fixed(ring, 0.0, 3), {}};
  const D_WORD arg = reinterpret_cast<D_WORD>(&record);
  D_CB *cb = DutRingOverwriteCbCreate(ring, RecordOverwrite, arg);
  EXPECT_EQ(DutRingOverwriteCbLookup(ring, RecordOverwrite, arg), cb);
  for (int t = 1; t <= 5; ++t) Archive(ring, t, t * 1.5);
  EXPECT_EQ(Doubles(record.hdr), (Pairs{{3, 4.5}, {4, 6.0}, {5, 7.5}}));
  // Overwriting the newest in place is an overwrite too.
  Insert(record.hdr, 5, 9.0);
  EXPECT_EQ(record.seen, (Pairs{{1, 1.5}, {2, 3.0}, {5, 7.5}}));
}

void IgnoreOverwrite(void *, void *, D_WORD) {}

// Archiving a one-word value takes a shortcut when no overwrite callback
// exists; a ring with one takes the full path. Both must end with the same
// buffers, grids and answers, over reversals, duplicate times, repeated
// values, boundaries, growth and wrapping, for each one-word type.
TEST_F(RingInsert, ArchiveShortcutAgreesWithTheFullPath) {
  for (D_UINT4 type : {D_RING_TYPE_DOUBLE, D_RING_TYPE_INT, D_RING_TYPE_FLOAT, D_RING_TYPE_WORD}) {
    D_RING_BUF *rings[2] = {Make(type), Make(type)};
    DutRingOverwriteCbCreate(rings[1], IgnoreOverwrite, 0);
    D_RING_HDR *hdrs[2][5];
    for (int r = 0; r < 2; ++r) {
      D_RING_HDR *h[] = {Growable(rings[r], 0.0, 0.0, 4), Fixed(rings[r], 0.5, 5), Growable(rings[r], 1.0, 30.0, 3),
                         Fixed(rings[r], 2.0, 4), Growable(rings[r], 60.0, 0.0, 3)};
      DutRingSetValueRepeat(h[3], D_TRUE);
      DutRingSetTimeRepeat(h[4], D_TRUE);
      std::copy(h, h + 5, hdrs[r]);
    }
    std::mt19937 random(7);
    const std::int64_t steps[] = {-300000, 0, 100000, 250000, 500000, 1000000, 3000000};
    std::int64_t t = 1000000;
    for (int i = 0; i < 3000; ++i) {
      t = std::max<std::int64_t>(0, t + steps[random() % 7]);
      const double value = static_cast<double>(random() % 4);
      const D_RING_ENTRY *got[2] = {Archive(rings[0], t, value), Archive(rings[1], t, value)};
      ASSERT_EQ(got[0] == nullptr ? -1 : Us(got[0]), got[1] == nullptr ? -1 : Us(got[1])) << i;
    }
    auto state = [](D_RING_HDR *h) {
      return std::make_tuple(Doubles(h), h->size, Us(h->current), h->next_incr.seconds, h->next_incr.microseconds);
    };
    for (int k = 0; k < 5; ++k) EXPECT_EQ(state(hdrs[0][k]), state(hdrs[1][k])) << k;
  }
}

TEST_F(RingInsert, InsertIntoEmptyBufferThenOlderDoubles) {
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE);
  D_RING_HDR *hdr = Fixed(ring, 0.0, 4);
  // A new buffer's current slot is its last: the first value lands there,
  // slot 0 stays empty and the buffer still counts as empty.
  EXPECT_EQ(Insert(hdr, 5, 1.0), hdr->start + 3);
  EXPECT_EQ(hdr->current, hdr->start);
  EXPECT_EQ(DutRingBuffHasData(ring), D_FALSE);
  EXPECT_EQ(Insert(hdr, 6, 1.0), hdr->start);
  EXPECT_EQ(DutRingBuffHasData(ring), D_TRUE);
  // The archiving path's empty case starts in slot 0.
  D_RING_HDR *other = Fixed(ring, 1.0, 4);
  DutRingClearBuffer(other);
  EXPECT_EQ(Archive(ring, 7, 2.0), hdr->start + 1);
  EXPECT_EQ(other->current, other->start);
  // Doubles cannot move to make room for an older value: the move warns
  // and empties the entry it should have moved (the newest: now empty).
  OutputCapture capture;
  Insert(other, 6, 3.0);
  EXPECT_EQ(capture.Take(), "WARNING: Error in utRingCopyEntry: type numeric not implemented\n");
  EXPECT_EQ(other->current->status, 0);
}

TEST_F(RingInsert, InitialValueUntilABufferCanTakeTheValue) {
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE);
  D_RING_ENTRY *initial = Archive(ring, 5, 1.5);
  ASSERT_NE(initial, nullptr);
  EXPECT_EQ(initial, ring->initial_value);
  EXPECT_EQ(DutRingCurrentEntry(ring), initial);
  // A buffer added later starts with the value the ring holds.
  D_RING_HDR *hdr = Growable(ring, 0.0, 50.0, 4);
  EXPECT_EQ(Doubles(hdr), (Pairs{{5, 1.5}}));
  // Without status bit 1 the value stays the initial value.
  EXPECT_EQ(Archive(ring, 6, 2.5, 1), initial);
  EXPECT_EQ(*initial->value.dp, 2.5);
  EXPECT_EQ(Doubles(hdr), (Pairs{{5, 1.5}}));
  // The newest value of the first buffer starts a later one, whose minimum
  // span exceeds the finer buffer's by its own increment.
  Archive(ring, 8, 3.5);
  D_RING_HDR *ten = Fixed(ring, 10.0, 4);
  EXPECT_EQ(Doubles(ten), (Pairs{{8, 3.5}}));
  EXPECT_EQ(ten->min_span.seconds, 60);
  D_RING_HDR *coarse = Growable(ring, 60.0, 30.0, 4);
  EXPECT_EQ(coarse->min_span.seconds, 120);
  // Widening the finest span removes the coarser buffers that now cover
  // less, up to the first that does not.
  const D_TIME_VALUE span = S(100.0), zero = S(0.0), incr10 = S(10.0), incr60 = S(60.0);
  EXPECT_EQ(DutRingAddBuffer(ring, &span, &zero, 4), hdr);
  EXPECT_EQ(DutRingGetIncrement(ring, &incr10), nullptr);
  EXPECT_EQ(DutRingGetIncrement(ring, &incr60), coarse);
}

}  // namespace
