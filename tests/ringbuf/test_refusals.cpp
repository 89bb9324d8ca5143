// Bad input gets an error number or the family's warning, never a crash;
// and the trace of debug flag 3, each message after its wall-time header.
#include <functional>
#include <regex>
#include <sstream>
#include <tuple>

#include "ring_support.hpp"

namespace {

using namespace ringtest;

using RingRefusal = Ring;

D_WORD W(const void *p) { return reinterpret_cast<D_WORD>(p); }

TEST_F(RingRefusal, BadInputGivesAnErrorNumberOrTheWarning) {
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE, "bad");
  D_RING_HDR *hdr = Growable(ring, 1.0, 1.0, 4);
  Fixed(ring, 2.0, 4);
  Archive(ring, 5, 1.0);
  const double v = 1.0;
  const D_TIME_VALUE ok = T(9), neg_usec{1, -1}, big_usec{1, 1000000}, minus_half{-1, 500000};
  const D_TIME_VALUE one = S(1.0), two = S(2.0);
  D_RING_CONTEXT ctx{};
  D_RING_ENTRY *entry = nullptr;
  D_REAL8 max = 0;
  const char *mismatch = "WARNING: Fixed size mismatch for buffer bad, incr ";
  const struct {
    std::function<D_WORD()> call;
    D_INT4 err;
    const char *warning;
  } cases[] = {
      {[] { return W(DutRingCreate(3, "x")); }, D_ERR_TYPE_INVALID,
       "WARNING: DutRingCreate: invalid type <3> requested (using double)\n"},
      {[&] { return W(DutRingAddBuffer(nullptr, &ok, &ok, 4)); }, D_ERR_NULL_PTR, ""},
      {[&] { return W(DutRingAddBuffer(ring, &ok, &minus_half, 4)); }, D_ERR_VAL_TOO_SMALL, ""},
      {[&] { return W(DutRingAddFixedBuffer(ring, 4, &big_usec)); }, D_ERR_VAL_INVALID, ""},
      {[&] { return W(DutRingAddFixedBuffer(ring, 4, &one)); }, D_ERR_TYPE_MISMATCH, mismatch},
      {[&] { return W(DutRingAddBuffer(ring, &ok, &two, 4)); }, D_ERR_TYPE_MISMATCH, mismatch},
      {[&] { return W(DutRingInsertValue(hdr, &ok, &v, 0, 0)); }, D_ERR_VAL_INVALID, ""},
      {[&] { return W(DutRingArchiveValue(nullptr, &ok, &v, 2, 0)); }, D_ERR_NULL_PTR, ""},
      {[&] { return W(DutRingArchiveValue(ring, nullptr, &v, 2, 0)); }, D_ERR_NULL_PTR, ""},
      {[&] { return W(DutRingArchiveValue(ring, &ok, nullptr, 2, 0)); }, D_ERR_NULL_PTR, ""},
      {[&] { return W(DutRingArchiveValue(ring, &neg_usec, &v, 2, 0)); }, D_ERR_VAL_INVALID, ""},
      {[&] { return W(DutRingArchiveValue(ring, &big_usec, &v, 2, 0)); }, D_ERR_VAL_INVALID, ""},
      {[&] { return W(DutRingArchiveValue(ring, &ok, &v, 0, 0)); }, D_ERR_VAL_INVALID, ""},
      {[&] { return W(DutRingFindTime(hdr, &big_usec)); }, D_ERR_VAL_INVALID, ""},
      {[&] { return D_WORD{DutRingSetFreeFunc(ring, nullptr)}; }, D_ERR_TYPE_MISMATCH,
       "WARNING: Cannot set free function for non-void ring buffer\n"},
      {[&] { return D_WORD{DutRingSetValueRepeat(hdr, 2)}; }, D_ERR_VAL_INVALID, ""},
      {[&] { return D_WORD{DutRingReallocArray(hdr, 3)}; }, D_ERR_VAL_TOO_SMALL, ""},
      {[&] { return W(DutRingValuePtr(hdr->start, 16)); }, D_ERR_TYPE_INVALID, ""},
      {[&] { return D_WORD{DutRingSetStartTime(&neg_usec)}; }, D_ERR_VAL_TOO_SMALL,
       "WARNING: Internal validation <start->usec >= 0> failed"},
      {[&] { return D_WORD{DutRingSetStartTime(&big_usec)}; }, D_ERR_VAL_INVALID, ""},
      {[&] { return D_WORD{DutRingGetStartTime(nullptr)}; }, D_ERR_NULL_PTR, ""},
      {[&] { return D_WORD{DutRingDeleteEntry(hdr, nullptr)}; }, D_ERR_NULL_PTR, ""},
      {[&] { return D_WORD{DutRingTravNext(&ctx, &entry, nullptr)}; }, D_ERR_VAL_INVALID, ""},
      {[&] { return W(DutRingArchiveHistoryData(ring, &ok, &v, 2, 0)); }, D_ERR_VAL_INVALID, ""},
      {[&] { return D_WORD{DutRingTravInit(&ctx, ring, &ok, &minus_half, &ok)}; }, D_ERR_VAL_INVALID, ""},
      {[&] { return D_WORD{DutRingHistTravInit(&ctx, ring, &ok, &ok, &ok)}; }, D_ERR_EMPTY, ""},
      {[&] { return D_WORD{DutRingGetMaxMin(Make(D_RING_TYPE_STRING), &ok, &ok, &max, &max)}; },
       D_ERR_TYPE_MISMATCH, ""},
  };
  int i = 0;
  for (const auto &c : cases) {
    OutputCapture capture;
    DutErrNumSet(0);
    EXPECT_EQ(c.call(), 0) << "case " << i;
    EXPECT_EQ(DutErrNumGet(), c.err) << "case " << i;
    EXPECT_EQ(capture.Take().rfind(c.warning, 0), 0u) << "case " << i++;
  }
  // A refused start time leaves the one set before.
  D_TIME_VALUE start{-1, -1};
  EXPECT_TRUE(DutRingGetStartTime(&start) == D_TRUE && start.seconds == 0 && start.microseconds == 0);
  const D_TIME_VALUE later{12, 345};
  EXPECT_EQ(DutRingSetStartTime(&later), D_TRUE);
  EXPECT_TRUE(DutRingGetStartTime(&start) == D_TRUE && start.seconds == 12 && start.microseconds == 345);
  // Accepted increments (0.0 and a microsecond) and held sizes.
  const std::tuple<D_TIME_VALUE, D_INT4, D_INT4> sizes[] = {
      {{0, 0}, 0, 2}, {{0, 1}, 1, 2}, {T(7), -5, 2}, {T(8), 70000, D_RING_MAX_SIZE}};
  for (auto [incr, size, kept] : sizes) {
    D_RING_HDR *fixed = DutRingAddFixedBuffer(ring, size, &incr);
    EXPECT_TRUE(fixed != nullptr && fixed->size == kept) << size;
  }
}

// A caller that stores into no buffer or no value, compares missing
// entries or allocates an array twice is broken: each is a fatal assertion.
TEST(RingRefusalDeathTest, BrokenCallersAssert) {
  const double v = 1.0;
  const D_TIME_VALUE t{1, 0};
  D_RING_HDR *hdr = DutRingAddFixedBuffer(DutRingCreate(D_RING_TYPE_DOUBLE, "d"), 4, &t);
  VQTEST_EXPECT_ASSERTION(DutRingInsertValue(nullptr, &t, &v, 2, 0), "hdr");
  VQTEST_EXPECT_ASSERTION(DutRingInsertValue(hdr, &t, nullptr, 2, 0), "value");
  VQTEST_EXPECT_ASSERTION(DutRingEntriesEqual(hdr, nullptr, hdr->start), "rbe1");
  VQTEST_EXPECT_ASSERTION(DutRingEntriesEqual(hdr, hdr->start, nullptr), "rbe2");
  VQTEST_EXPECT_ASSERTION(DutRingAllocateArray(hdr, 8), "hdr->start == NULL");
  D_RING_BUF *ring = hdr->ring;
  DutRingDestroy(ring);
  DutDqClose(&ring->buffers);
  DutFreeCheck(ring, "ring", __FILE__, __LINE__);
}

TEST_F(RingRefusal, FlagThreeTracesEachStepAfterItsHeader) {
  // A debug file of the test's own, read back once closed.
  const vqtest::TempDir dir("vq-ring-trace");
  unsetenv("VQDEBUGFILENAME");
  DutDebugClose();
  DutDebugOpen(dir.file("ring.dbg").c_str());
  ASSERT_NE(DutDebugFileName(), nullptr);
  const std::string path = DutDebugFileName();
  // The ring's name is its own allocation, traced under its own label.
  DutGetDebugFlags()[D_DEBUG_MEMORY] = 1;
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE, "tr");
  DutGetDebugFlags()[D_DEBUG_MEMORY] = 0;
  unsigned char &flag = DutGetDebugFlags()[D_DEBUG_RINGBUF];
  {
    flag = 1;
    OutputCapture capture;
    const D_TIME_VALUE minus{-1, 500000}, zero{0, 0}, before = T(1);
    DutRingAddBuffer(ring, &zero, &minus, 4);
    D_RING_HDR *hdr = Fixed(ring, 1.0, 2);
    for (auto [t, v] : Pairs{{500000, 1}, {700000, 2}, {900000, 2}, {600000, 3}}) Archive(ring, t, v);
    DutRingFindTime(hdr, &before);
    flag = 0;
    DutDebugClose();
  }
  const std::vector<std::string> expected = {
      "WARNING: Smallest increment allowed is 0.000001",
      "WARNING: Requested Increment (-1.500000) too small for buffer tr",
      "WARNING: Ring buffer not added for buffer tr",
      "Allocating fixed array of 2 for tr",
      "Updating empty header",
      "Storing value for tr at 0.500000",
      "Updating buffer at 0.700000 next inc = 1.000000 just1 = 1",
      "Time 0.700000 LT 1.000000",
      "Storing value for tr at 0.700000",
      "New value equals previous value for buffer tr, incr: 1.000000, time 0.900000",
      "WARNING: Time reversal Buffer tr, incr 1.000000 (0.600000 vs 0.700000) - data ignored",
      "DutRingFindTime: Req time (0.000001) before buf start (0.500000)",
  };
  // Every message follows a header of its own.
  const std::regex header("Wall time \\w{3} \\w{3} +\\d+ [0-9:]{8} \\d{4}, data time: .+");
  const std::string written = vqtest::ReadFile(path);
  EXPECT_NE(written.find("D_MALLOC: (rb->name) ("), std::string::npos);
  std::istringstream in(written);
  std::vector<std::string> messages;
  for (std::string line, last; std::getline(in, line); last = line) {
    if (std::regex_match(line, header) || line.rfind("D_", 0) == 0) continue;
    EXPECT_TRUE(std::regex_match(last, header)) << line;
    messages.push_back(line);
  }
  EXPECT_EQ(messages, expected);
}

}  // namespace
