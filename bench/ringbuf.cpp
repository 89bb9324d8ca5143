// Ring buffers against the standard containers, measured in the same run:
//   RingArchive/<buffers>   DutRingArchiveValue of doubles into one ring
//                           whose buffers (increments 0.0, 1.0 and 60.0 for
//                           7, or one of them alone for 1, 2, 4) are full at
//                           65535 entries and wrap; data time steps 0.25 s;
//   RingArchiveBelowLimit   the same into one growable buffer of 1000
//                           entries that wraps, covering its minimum span;
//   CallFloor               the archive loop around the cheapest exported
//                           call: what any archive costs before its work;
//   DequeArchive/<deques>   the same 16-byte records pushed onto as many
//                           std::deque as the ring has buffers, each
//                           dropping its oldest beyond 65535;
//   RingFindTime/<n>        DutRingFindTime at random times in a full,
//                           wrapped buffer of n entries;
//   LowerBound/<n>          std::lower_bound over a plain array of the same
//                           n times.
// Items per second (values archived, searches) is the figure to compare.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <random>
#include <vector>

#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/ringbuf.h"
#include "vqutil/time.h"

namespace {

constexpr D_INT4 kFull = D_RING_MAX_SIZE;
constexpr std::int64_t kValues = 10000000;
constexpr std::int64_t kStep = 250000;  // microseconds of data time per value

D_TIME_VALUE At(std::int64_t us) {
  return D_TIME_VALUE{static_cast<D_INT4>(us / 1000000), static_cast<D_INT4>(us % 1000000)};
}

void Release(D_RING_BUF *ring) {
  DutRingDestroy(ring);
  DutDqClose(&ring->buffers);
  DutFreeCheck(ring, "ring", __FILE__, __LINE__);
}

// Which increments a ring of the benchmark has: bit 0 for 0.0, bit 1 for
// 1.0, bit 2 for 60.0.
const D_INT4 kIncrements[] = {0, 1, 60};

// Fills every buffer of the ring past its size a minute apart, so that
// all of them wrap, then archives the measured values.
void ArchiveInto(benchmark::State &state, D_RING_BUF *ring) {
  std::int64_t t = 1000000;
  double value = 0.0;
  for (D_INT4 i = 0; i < kFull + 1; ++i, t += 60000000, value += 1.0) {
    const D_TIME_VALUE at = At(t);
    DutRingArchiveValue(ring, &at, &value, 2, 0);
  }
  for (auto _ : state) {
    const D_TIME_VALUE at = At(t);
    benchmark::DoNotOptimize(DutRingArchiveValue(ring, &at, &value, 2, 0));
    t += kStep;
    value += 1.0;
  }
  state.SetItemsProcessed(state.iterations());
  Release(ring);
}

void BM_RingArchive(benchmark::State &state) {
  const auto mask = state.range(0);
  DutSetCurrentTime(0.0);
  D_RING_BUF *ring = DutRingCreate(D_RING_TYPE_DOUBLE, "bench");
  // Growable buffers at the size limit: they wrap and no longer grow.
  const D_TIME_VALUE no_span{0, 0};
  for (int i = 0; i < 3; ++i) {
    const D_TIME_VALUE incr{kIncrements[i], 0};
    if ((mask & (1 << i)) != 0) DutRingAddBuffer(ring, &no_span, &incr, kFull);
  }
  ArchiveInto(state, ring);
}
BENCHMARK(BM_RingArchive)->ArgName("buffers")->Arg(7)->Arg(1)->Arg(2)->Arg(4)->Iterations(kValues);

// One growable buffer of increment 0.0 below the size limit, full, whose
// 1000 entries cover far more than its minimum span of a minute: it wraps
// without growing.
void BM_RingArchiveBelowLimit(benchmark::State &state) {
  DutSetCurrentTime(0.0);
  D_RING_BUF *ring = DutRingCreate(D_RING_TYPE_DOUBLE, "bench");
  const D_TIME_VALUE minute{60, 0};
  const D_TIME_VALUE incr{0, 0};
  DutRingAddBuffer(ring, &minute, &incr, 1000);
  ArchiveInto(state, ring);
}
BENCHMARK(BM_RingArchiveBelowLimit)->Iterations(kValues);

// The floor of any archive: the same loop around the cheapest exported
// call, DutGetCurrentTime (one load), with the time and value in memory as
// the archive has them.
void BM_CallFloor(benchmark::State &state) {
  std::int64_t t = 1000000;
  double value = 0.0;
  for (auto _ : state) {
    const D_TIME_VALUE at = At(t);
    benchmark::DoNotOptimize(&at);
    benchmark::DoNotOptimize(&value);
    benchmark::DoNotOptimize(DutGetCurrentTime());
    t += kStep;
    value += 1.0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CallFloor)->Iterations(kValues);

struct Record {
  D_INT4 sec;
  D_INT4 usec;
  double value;
};
static_assert(sizeof(Record) == 16);

void BM_DequeArchive(benchmark::State &state) {
  std::vector<std::deque<Record>> deques(static_cast<std::size_t>(state.range(0)));
  std::int64_t t = 1000000;
  double value = 0.0;
  for (auto &d : deques) d.assign(kFull, Record{0, 0, 0.0});
  for (auto _ : state) {
    const D_TIME_VALUE at = At(t);
    for (auto &d : deques) {
      d.push_back(Record{at.seconds, at.microseconds, value});
      if (d.size() > static_cast<std::size_t>(kFull)) d.pop_front();
    }
    benchmark::DoNotOptimize(deques.front().back());
    t += kStep;
    value += 1.0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DequeArchive)->ArgName("deques")->Arg(3)->Arg(1)->Iterations(kValues);

// Random query times within the stored ones, cycled.
std::vector<std::int64_t> Queries(std::int64_t first, std::int64_t last) {
  std::mt19937_64 random(5);
  std::uniform_int_distribution<std::int64_t> pick(first, last);
  std::vector<std::int64_t> queries(4096);
  for (auto &q : queries) q = pick(random);
  return queries;
}

void BM_RingFindTime(benchmark::State &state) {
  const auto n = static_cast<D_INT4>(state.range(0));
  DutSetCurrentTime(0.0);
  D_RING_BUF *ring = DutRingCreate(D_RING_TYPE_DOUBLE, "find");
  const D_TIME_VALUE zero{0, 0};
  D_RING_HDR *hdr = DutRingAddFixedBuffer(ring, n, &zero);
  // Twice the size: full, wrapped, the oldest entry half-way round.
  const std::int64_t count = 2 * n + n / 2;
  for (std::int64_t i = 1; i <= count; ++i) {
    const D_TIME_VALUE at = At(i * 10);
    const double value = static_cast<double>(i);
    DutRingArchiveValue(ring, &at, &value, 2, 0);
  }
  const auto queries = Queries((count - n + 1) * 10, count * 10);
  std::size_t k = 0;
  for (auto _ : state) {
    const D_TIME_VALUE at = At(queries[k++ & 4095]);
    benchmark::DoNotOptimize(DutRingFindTime(hdr, &at));
  }
  state.SetItemsProcessed(state.iterations());
  Release(ring);
}
BENCHMARK(BM_RingFindTime)->ArgName("n")->Arg(1000)->Arg(10000)->Arg(kFull);

void BM_LowerBound(benchmark::State &state) {
  const auto n = state.range(0);
  std::vector<std::int64_t> times(static_cast<std::size_t>(n));
  for (std::int64_t i = 0; i < n; ++i) times[static_cast<std::size_t>(i)] = (i + 1) * 10;
  const auto queries = Queries(10, n * 10);
  std::size_t k = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::lower_bound(times.begin(), times.end(), queries[k++ & 4095]));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LowerBound)->ArgName("n")->Arg(1000)->Arg(10000)->Arg(kFull);

}  // namespace

BENCHMARK_MAIN();
