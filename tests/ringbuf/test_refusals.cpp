// Bad input gets an error number or the family's warning, never a crash;
// and the trace of debug flag 3, each message after its wall-time header.
#include <functional>
#include <regex>
#include <sstream>

#include "ring_support.hpp"

namespace {

using namespace ringtest;

using RingRefusal = Ring;

D_WORD W(const void *p) { return reinterpret_cast<D_WORD>(p); }

TEST_F(RingRefusal, BadInputGivesAnErrorNumberOrTheWarning) {
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE, "bad");
  D_RING_HDR *hdr = Growable(ring, 1.0, 1.0, 4);
  Archive(ring, 5, 1.0);
  const double v = 1.0;
  const D_TIME_VALUE ok = T(9), neg_usec{1, -1}, big_usec{1, 1000000}, minus_half{-1, 500000}, one = S(1.0);
  const D_TIME_VALUE zero{0, 0}, micro{0, 1}, two{2, 0};
  D_RING_CONTEXT ctx{};
  D_RING_ENTRY *entry = nullptr;
  const struct {
    const char *what;
    std::function<D_WORD()> call;
    D_WORD result;
    D_INT4 err;
    const char *warning;
  } cases[] = {
      {"bad type", [] { return W(DutRingCreate(3, "x")); }, 0, D_ERR_TYPE_INVALID,
       "WARNING: DutRingCreate: invalid type <3> requested (using double)\n"},
      {"null ring", [&] { return W(DutRingAddBuffer(nullptr, &ok, &ok, 4)); }, 0, D_ERR_NULL_PTR, ""},
      {"null span", [&] { return W(DutRingAddBuffer(ring, nullptr, &ok, 4)); }, 0, D_ERR_NULL_PTR, ""},
      {"negative incr", [&] { return W(DutRingAddBuffer(ring, &ok, &minus_half, 4)); }, 0, D_ERR_VAL_TOO_SMALL, ""},
      {"usec -1", [&] { return W(DutRingAddFixedBuffer(ring, 4, &neg_usec)); }, 0, D_ERR_VAL_INVALID, ""},
      {"usec 10^6", [&] { return W(DutRingAddFixedBuffer(ring, 4, &big_usec)); }, 0, D_ERR_VAL_INVALID, ""},
      {"fixed over growable", [&] { return W(DutRingAddFixedBuffer(ring, 4, &one)); }, 0, D_ERR_TYPE_MISMATCH,
       "WARNING: Fixed size mismatch for buffer bad, incr 1.000000\n"},
      {"growable over fixed", [&] { return W(DutRingAddBuffer(ring, &ok, &two, 4)); }, 0, D_ERR_TYPE_MISMATCH,
       "WARNING: Fixed size mismatch for buffer bad, incr 2.000000\n"},
      {"insert null buffer", [&] { return W(DutRingInsertValue(nullptr, &ok, &v, 2, 0)); }, 0, D_ERR_NULL_PTR, ""},
      {"insert null value", [&] { return W(DutRingInsertValue(hdr, &ok, nullptr, 2, 0)); }, 0, D_ERR_NULL_PTR, ""},
      {"insert null time", [&] { return W(DutRingInsertValue(hdr, nullptr, &v, 2, 0)); }, 0, D_ERR_NULL_PTR, ""},
      {"insert usec", [&] { return W(DutRingInsertValue(hdr, &big_usec, &v, 2, 0)); }, 0, D_ERR_VAL_INVALID, ""},
      {"insert status 0", [&] { return W(DutRingInsertValue(hdr, &ok, &v, 0, 0)); }, 0, D_ERR_VAL_INVALID, ""},
      {"archive status 0", [&] { return W(DutRingArchiveValue(ring, &ok, &v, 0, 0)); }, 0, D_ERR_VAL_INVALID, ""},
      {"archive usec", [&] { return W(DutRingArchiveValue(ring, &neg_usec, &v, 2, 0)); }, 0, D_ERR_VAL_INVALID, ""},
      {"find null", [&] { return W(DutRingFindTime(nullptr, &ok)); }, 0, D_ERR_NULL_PTR, ""},
      {"find usec", [&] { return W(DutRingFindTime(hdr, &big_usec)); }, 0, D_ERR_VAL_INVALID, ""},
      {"free func type 4", [&] { return D_WORD{DutRingSetFreeFunc(ring, nullptr)}; }, D_FALSE, D_ERR_TYPE_MISMATCH,
       "WARNING: Cannot set free function for non-void ring buffer\n"},
      {"repeat null", [&] { return D_WORD{DutRingSetTimeRepeat(nullptr, D_TRUE)}; }, D_FALSE, D_ERR_NULL_PTR, ""},
      {"repeat 2", [&] { return D_WORD{DutRingSetValueRepeat(hdr, 2)}; }, D_FALSE, D_ERR_VAL_INVALID, ""},
      {"shrink", [&] { return D_WORD{DutRingReallocArray(hdr, 3)}; }, D_FALSE, D_ERR_VAL_TOO_SMALL, ""},
      {"allocate twice", [&] { return D_WORD{DutRingAllocateArray(hdr, 8)}; }, D_FALSE, D_ERR_ALREADY_EXISTS, ""},
      {"equal null", [&] { return D_WORD{DutRingEntriesEqual(hdr, nullptr, hdr->start)}; }, D_FALSE,
       D_ERR_NULL_PTR, ""},
      {"value type", [&] { return W(DutRingValuePtr(hdr->start, 16)); }, 0, D_ERR_TYPE_INVALID, ""},
      {"start time", [&] { return D_WORD{DutRingSetStartTime(&neg_usec)}; }, D_FALSE, D_ERR_VAL_TOO_SMALL,
       "WARNING: Internal validation <start->usec >= 0> failed"},
      {"start null", [&] { return D_WORD{DutRingGetStartTime(nullptr)}; }, D_FALSE, D_ERR_NULL_PTR, ""},
      {"delete null", [&] { return D_WORD{DutRingDeleteEntry(hdr, nullptr)}; }, D_FALSE, D_ERR_NULL_PTR, ""},
      {"destroy null", [&] { return D_WORD{DutRingDestroy(nullptr)}; }, D_FALSE, D_ERR_NULL_PTR, ""},
      {"clear null", [&] { return D_WORD{DutRingClear(nullptr)}; }, D_FALSE, D_ERR_NULL_PTR, ""},
      {"trav null", [&] { return D_WORD{DutRingZeroTravInit(nullptr, ring, 0, 1)}; }, D_FALSE, D_ERR_NULL_PTR, ""},
      {"trav unset", [&] { return D_WORD{DutRingTravNext(&ctx, &entry, nullptr)}; }, D_FALSE, D_ERR_VAL_INVALID,
       ""},
      {"history future", [&] { return W(DutRingArchiveHistoryData(ring, &ok, &v, 2, 0)); }, 0, D_ERR_VAL_INVALID,
       ""},
      {"dump null", [&] { return D_WORD{DutRingDumpBuffer(nullptr, nullptr)}; }, D_FALSE, D_ERR_NULL_PTR, ""},
  };
  // The fixed buffer that the mismatch cases meet.
  Fixed(ring, 2.0, 4);
  for (const auto &c : cases) {
    OutputCapture capture;
    DutErrNumSet(0);
    EXPECT_EQ(c.call(), c.result) << c.what;
    EXPECT_EQ(DutErrNumGet(), c.err) << c.what;
    EXPECT_EQ(capture.Take().rfind(c.warning, 0), 0u) << c.what;
  }
  // Accepted increments and held sizes.
  const struct {
    D_TIME_VALUE incr;
    D_INT4 size, kept;
  } sizes[] = {{zero, 0, 2}, {micro, 1, 2}, {T(7), -5, 2}, {T(8), 70000, D_RING_MAX_SIZE}};
  for (const auto &s : sizes) {
    D_RING_HDR *fixed = DutRingAddFixedBuffer(ring, s.size, &s.incr);
    ASSERT_NE(fixed, nullptr) << s.size;
    EXPECT_EQ(fixed->size, s.kept) << s.size;
  }
}

TEST_F(RingRefusal, FlagThreeTracesEachStepAfterItsHeader) {
  DebugTap tap;
  if (!tap.available()) GTEST_SKIP() << "debug file on standard error";
  D_RING_BUF *ring = Make(D_RING_TYPE_DOUBLE, "tr");
  D_RING_HDR *hdr = nullptr;
  {
    DebugFlag flag(D_DEBUG_RINGBUF);
    OutputCapture capture;
    const D_TIME_VALUE minus{-1, 500000}, zero{0, 0};
    DutRingAddBuffer(ring, &zero, &minus, 4);
    hdr = Fixed(ring, 1.0, 2);
    Archive(ring, 500000, 1.0);
    Archive(ring, 700000, 2.0);
    Archive(ring, 900000, 2.0);
    D_TIME_VALUE before = T(1);
    DutRingFindTime(hdr, &before);
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
      "DutRingFindTime: Req time (0.000001) before buf start (0.500000)",
  };
  std::istringstream in(tap.since());
  std::vector<std::string> messages;
  const std::regex header("Wall time \\w{3} \\w{3} +\\d+ [0-9:]{8} \\d{4}, data time: .+");
  bool after_header = false;
  for (std::string line; std::getline(in, line);) {
    if (std::regex_match(line, header)) {
      EXPECT_FALSE(after_header) << "two headers in a row";
      after_header = true;
      continue;
    }
    EXPECT_TRUE(after_header) << line;
    after_header = false;
    messages.push_back(line);
  }
  EXPECT_EQ(messages, expected);
}

}  // namespace
