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

// The newer-value rules for one buffer that never grows, written plainly:
// the entries oldest first, the next boundary (the current time, 0.0, for
// an increment of 0.0), and every entry replaced, as it was.
struct Model {
  bool fixed, value_repeat, time_repeat;
  std::int64_t incr;
  std::size_t size;
  Pairs kept, replaced;
  std::int64_t next = 0;

  void Grid(std::int64_t t) { next = incr == 0 ? 0 : incr * (t / incr + 1); }
  void Append(std::int64_t t, double v) {
    kept.emplace_back(t, v);
    if (kept.size() > size) replaced.push_back(kept.front()), kept.erase(kept.begin());
  }
  void Add(std::int64_t t, double v) {
    if (kept.empty()) return kept.emplace_back(t, v), Grid(t);
    const auto [newest, value] = kept.back();
    if ((!value_repeat && v == value) || t < newest) return;
    if (time_repeat) return Append(t, v);
    const bool opens = t != newest && (t > next || kept.size() == 1 || newest == next - incr);
    if (t >= next && t != newest) (t > next && (fixed || incr == 0)) ? void(next = t) : Grid(t);
    if (opens) return Append(t, v);
    replaced.push_back(kept.back());
    kept.back() = {t, v};
  }
};

void RecordOverwrite(void *object, void *data, D_WORD arg) {
  auto *d = static_cast<D_RING_OVERWRITE_CB_DATA *>(data);
  EXPECT_TRUE(object == d->buffer->ring && d->cb != nullptr);
  reinterpret_cast<Pairs *>(arg)->emplace_back(Us(d->entry), Number(d->buffer->ring->type, d->entry));
}

// Random archives (later, equal and earlier times, on and between the
// boundaries, repeated values) into buffers of each kind, for each
// one-word type: the ring holds what the model holds, with the same next
// boundary, whether the archive takes its shortcut or, with an overwrite
// callback, the full path; the callback sees each replaced entry before it
// changes.
TEST_F(RingInsert, NewerValuesFollowTheModelOnBothPaths) {
  // (fixed, increment, value repeat, time repeat)
  const std::tuple<bool, double, bool, bool> kinds[] = {
      {false, 0.0, false, false}, {true, 0.0, true, false}, {false, 0.5, false, false}, {true, 1.0, false, false},
      {false, 1.0, false, true},  {true, 2.0, true, true},  {false, 60.0, true, false}};
  const std::int64_t steps[] = {-300000, 0, 100000, 250000, 500000, 1000000, 3000000};
  for (D_UINT4 type : {D_RING_TYPE_DOUBLE, D_RING_TYPE_INT, D_RING_TYPE_FLOAT, D_RING_TYPE_WORD}) {
    for (auto [fixed, incr, value_repeat, time_repeat] : kinds) {
      D_RING_BUF *rings[2] = {Make(type), Make(type)};
      Pairs seen;
      D_CB *cb = DutRingOverwriteCbCreate(rings[1], RecordOverwrite, reinterpret_cast<D_WORD>(&seen));
      EXPECT_EQ(DutRingOverwriteCbLookup(rings[1], RecordOverwrite, reinterpret_cast<D_WORD>(&seen)), cb);
      D_RING_HDR *hdrs[2];
      for (int r = 0; r < 2; ++r) {
        hdrs[r] = fixed ? Fixed(rings[r], incr, 5) : Growable(rings[r], incr, 0.0, 5);
        DutRingSetValueRepeat(hdrs[r], value_repeat);
        DutRingSetTimeRepeat(hdrs[r], time_repeat);
      }
      Model model{fixed, value_repeat, time_repeat, static_cast<std::int64_t>(incr * 1e6), 5, {}, {}};
      std::mt19937 random(7);
      std::int64_t t = 1000000;
      for (int i = 0; i < 400; ++i) {
        t = std::max<std::int64_t>(0, t + steps[random() % 7]);
        const double value = static_cast<double>(random() % 4);
        model.Add(t, value);
        for (int r = 0; r < 2; ++r) {
          Archive(rings[r], t, value);
          const D_TIME_VALUE next = T(model.next);
          ASSERT_EQ(Doubles(hdrs[r]), model.kept) << type << " " << incr << " " << i << " path " << r;
          ASSERT_TRUE(hdrs[r]->next_incr.seconds == next.seconds &&
                      hdrs[r]->next_incr.microseconds == next.microseconds)
              << type << " " << incr << " " << i << " path " << r;
        }
        ASSERT_EQ(seen, model.replaced) << type << " " << incr << " " << i;
      }
    }
  }
}

// A host may write a buffer's header and entries directly: whatever it
// writes (increments that are zero or negative only in microseconds, or
// unnormalised; boundaries; the ring start time, also one after the data
// times; an unnormalised newest time; the fixed flag), the archive's
// shortcut leaves exactly what the full path (taken for a ring with an
// overwrite callback) leaves.
TEST_F(RingInsert, HostWritesAreHonouredByTheShortcut) {
  using Write = void (*)(D_RING_HDR *const *hdrs);
  const struct {
    int at;  // before the archive of this step
    Write write;
  } writes[] = {
      {40, [](D_RING_HDR *const *h) { h[1]->incr = D_TIME_VALUE{1, -1000000}; }},
      {80, [](D_RING_HDR *const *h) { h[1]->incr = D_TIME_VALUE{-1, 0}; }},
      {100, [](D_RING_HDR *const *h) { h[2]->incr = D_TIME_VALUE{1, -2000000}; }},
      {120, [](D_RING_HDR *const *h) { h[1]->incr = D_TIME_VALUE{0, 1500000}; }},
      {160, [](D_RING_HDR *const *h) { h[3]->next_incr = D_TIME_VALUE{3, 2000000}; }},
      {200, [](D_RING_HDR *const *h) { h[0]->next_incr = D_TIME_VALUE{0, 0}; }},
      {240, [](D_RING_HDR *const *h) { h[1]->incr = D_TIME_VALUE{1, 0}; }},
      {250, [](D_RING_HDR *const *) {
         const D_TIME_VALUE origin{0, 300000};
         DutRingSetStartTime(&origin);
       }},
      {270, [](D_RING_HDR *const *) {
         const D_TIME_VALUE origin{2000, 0};  // after the data times: the grid counts back
         DutRingSetStartTime(&origin);
       }},
      {290, [](D_RING_HDR *const *h) { h[1]->current->sec -= 1, h[1]->current->usec += 1000000; }},
      {330, [](D_RING_HDR *const *h) { h[0]->flags |= D_RING_FIXED, h[1]->flags |= D_RING_FIXED; }},
      {370, [](D_RING_HDR *const *h) { h[3]->incr = D_TIME_VALUE{0, 0}; }},
  };
  const std::int64_t steps[] = {250000, 250000, 250000, 0, 100000, 1000000, -300000, 3000000};
  D_RING_BUF *rings[2] = {Make(D_RING_TYPE_DOUBLE), Make(D_RING_TYPE_DOUBLE)};
  Pairs seen;
  DutRingOverwriteCbCreate(rings[1], RecordOverwrite, reinterpret_cast<D_WORD>(&seen));
  // The fixed buffers wrap; the first growable one fills, at times covering
  // its minimum span and at times not.
  D_RING_HDR *hdrs[2][4];
  for (int r = 0; r < 2; ++r) {
    hdrs[r][0] = Growable(rings[r], 0.0, 10.0, 20);
    hdrs[r][1] = Growable(rings[r], 1.0, 0.0, 1000);
    hdrs[r][2] = Fixed(rings[r], 2.0, 5);
    hdrs[r][3] = Fixed(rings[r], 60.0, 4);
  }
  std::mt19937 random(11);
  std::int64_t t = 1000000;
  std::size_t w = 0;
  for (int i = 0; i < 420; ++i) {
    for (; w < std::size(writes) && writes[w].at == i; ++w) {
      for (auto *h : hdrs) writes[w].write(h);
    }
    t = std::max<std::int64_t>(0, t + steps[random() % std::size(steps)]);
    const double value = static_cast<double>(random() % 5);
    D_RING_ENTRY *results[2];
    for (int r = 0; r < 2; ++r) results[r] = Archive(rings[r], t, value);
    auto slot = [](const D_RING_ENTRY *e, const D_RING_HDR *h) { return e == nullptr ? -1 : e - h->start; };
    ASSERT_EQ(slot(results[0], hdrs[0][0]), slot(results[1], hdrs[1][0])) << i;
    for (int b = 0; b < 4; ++b) {
      const D_RING_HDR *quick = hdrs[0][b], *full = hdrs[1][b];
      ASSERT_EQ(Doubles(hdrs[0][b]), Doubles(hdrs[1][b])) << i << " buffer " << b;
      ASSERT_EQ(quick->current - quick->start, full->current - full->start) << i << " buffer " << b;
      ASSERT_TRUE(quick->next_incr.seconds == full->next_incr.seconds &&
                  quick->next_incr.microseconds == full->next_incr.microseconds)
          << i << " buffer " << b;
    }
  }
  EXPECT_EQ(w, std::size(writes));
}

TEST_F(RingInsert, InsertIntoEmptyBufferThenOlderDoubles) {
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE);
  D_RING_HDR *hdr = Fixed(ring, 0.000002, 4);
  // A new buffer's current slot is its last: the first value lands there,
  // slot 0 stays empty and the buffer still counts as empty. The grid stays
  // where creation put it.
  EXPECT_EQ(Insert(hdr, 5, 1.0), hdr->start + 3);
  EXPECT_TRUE(hdr->current == hdr->start && hdr->next_incr.seconds == 0 && hdr->next_incr.microseconds == 2);
  EXPECT_EQ(DutRingBuffHasData(ring), D_FALSE);
  EXPECT_EQ(Insert(hdr, 6, 1.0), hdr->start);
  EXPECT_EQ(DutRingBuffHasData(ring), D_TRUE);
  // A fixed buffer added to a ring holding data starts empty; the archiving
  // path's empty case starts in slot 0.
  D_RING_HDR *other = Fixed(ring, 1.0, 4);
  EXPECT_EQ(other->current->status, 0);
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
  // The newest value of the first buffer starts a later growable one, not a
  // fixed one; a minimum span exceeds the finer buffer's by its own increment.
  Archive(ring, 8, 3.5);
  D_RING_HDR *ten = Fixed(ring, 10.0, 4);
  EXPECT_EQ(Doubles(ten), Pairs{});
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
