// Costs of the calls every other family makes constantly: the per-thread
// error number, the process-wide lock before and after the thread layer is
// initialised, and checked allocation. Each has its reference in the same
// run: std::recursive_mutex for the lock, malloc/free for allocation.
//
// The benchmarks run in registration order, so the "before init" lock
// figures are taken before DutInitThreads creates the lock.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <mutex>

#include "vqutil/util.h"

namespace {

void BM_ErrNumSetGet(benchmark::State &state) {
  D_INT4 n = 0;
  for (auto _ : state) {
    DutErrNumSet(n & 7);
    benchmark::DoNotOptimize(n += DutErrNumGet());
  }
}
BENCHMARK(BM_ErrNumSetGet);

void BM_ProcessLock_BeforeInit(benchmark::State &state) {
  for (auto _ : state) {
    DutProcessMutexLock();
    DutProcessMutexUnlock();
  }
}
BENCHMARK(BM_ProcessLock_BeforeInit);

void BM_ProcessLock_AfterInit(benchmark::State &state) {
  DutInitThreads();
  for (auto _ : state) {
    DutProcessMutexLock();
    DutProcessMutexUnlock();
  }
}
BENCHMARK(BM_ProcessLock_AfterInit);

void BM_StdRecursiveMutex(benchmark::State &state) {
  std::recursive_mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_StdRecursiveMutex);

void BM_MallocCheckFreeCheck(benchmark::State &state) {
  const auto size = static_cast<D_INT4>(state.range(0));
  for (auto _ : state) {
    void *block = DutMallocCheck(size, "block", "bench", 1);
    benchmark::DoNotOptimize(block);
    DutFreeCheck(block, "block", "bench", 1);
  }
}
BENCHMARK(BM_MallocCheckFreeCheck)->Arg(16)->Arg(256)->Arg(4096);

void BM_MallocFree(benchmark::State &state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    void *block = std::malloc(size);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
}
BENCHMARK(BM_MallocFree)->Arg(16)->Arg(256)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
