// Shared scaffolding of the ring-buffer tests: times, a fixture that pins
// the process-wide clocks, the entries of a buffer as (time, value) pairs
// and a ring that is released completely at the end of the test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/ringbuf.h"

namespace ringtest {

using vqtest::OutputCapture;

// A time from microseconds.
inline D_TIME_VALUE T(std::int64_t us) {
  return D_TIME_VALUE{static_cast<D_INT4>(us / 1000000), static_cast<D_INT4>(us % 1000000)};
}
inline D_TIME_VALUE S(double seconds) { return T(static_cast<std::int64_t>(seconds * 1e6 + 0.5)); }
inline std::int64_t Us(const D_RING_ENTRY *e) { return std::int64_t{e->sec} * 1000000 + e->usec; }

// Every test starts from a known current time (0.0: set, and before any
// data time) and ring start time (0.0).
class Ring : public ::testing::Test {
 protected:
  void SetUp() override {
    DutSetCurrentTime(0.0);
    D_TIME_VALUE origin{0, 0};
    DutRingSetStartTime(&origin);
  }
  // Survivors included: the record, its list sentinel and callback list.
  void TearDown() override {
    for (D_RING_BUF *ring : rings_) {
      DutRingDestroy(ring);
      if (ring->overwrite_cb_list != nullptr) DutCbListDestroy(ring->overwrite_cb_list);
      DutDqClose(&ring->buffers);
      DutFreeCheck(ring, "ring", __FILE__, __LINE__);
    }
  }

  // A ring released when the test ends.
  D_RING_BUF *Make(D_UINT4 type, const char *name = "ring") {
    D_RING_BUF *ring = DutRingCreate(type, name);
    if (ring != nullptr) rings_.push_back(ring);
    return ring;
  }

 private:
  std::vector<D_RING_BUF *> rings_;
};

// A numeric ring's entries, oldest first, as (microseconds, value); an
// empty slot shows -1.
using Pairs = std::vector<std::pair<std::int64_t, double>>;
inline double Number(D_UINT4 type, const D_RING_ENTRY *e) {
  if (e->status == 0) return -1.0;
  return type == D_RING_TYPE_DOUBLE ? *e->value.dp : e->value.i;
}
inline Pairs Doubles(D_RING_HDR *hdr) {
  Pairs out;
  D_RING_ITER iter;
  for (D_RING_ENTRY *e = DutRingIterFirst(&iter, hdr); e != nullptr; e = DutRingIterNext(&iter)) {
    out.emplace_back(Us(e), Number(hdr->ring->type, e));
  }
  return out;
}

// A value of a double or integer ring, by the ring's type: archived into
// the ring, or inserted into one buffer.
inline D_RING_ENTRY *Put(D_RING_BUF *ring, D_RING_HDR *hdr, std::int64_t us, double value, D_UINT2 status) {
  const D_TIME_VALUE t = T(us);
  const D_INT4 i = static_cast<D_INT4>(value);
  const void *p = ring->type == D_RING_TYPE_DOUBLE ? &value : static_cast<const void *>(&i);
  return hdr != nullptr ? DutRingInsertValue(hdr, &t, p, status, 0) : DutRingArchiveValue(ring, &t, p, status, 0);
}
inline D_RING_ENTRY *Archive(D_RING_BUF *ring, std::int64_t us, double value, D_UINT2 status = 2) {
  return Put(ring, nullptr, us, value, status);
}
inline D_RING_ENTRY *Insert(D_RING_HDR *hdr, std::int64_t us, double value) {
  return Put(hdr->ring, hdr, us, value, 2);
}

inline D_RING_HDR *Growable(D_RING_BUF *ring, double incr, double min_span, D_INT4 size) {
  const D_TIME_VALUE i = S(incr), m = S(min_span);
  return DutRingAddBuffer(ring, &m, &i, size);
}
inline D_RING_HDR *Fixed(D_RING_BUF *ring, double incr, D_INT4 size) {
  const D_TIME_VALUE i = S(incr);
  return DutRingAddFixedBuffer(ring, size, &i);
}

}  // namespace ringtest
