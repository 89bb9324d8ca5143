// Costs of the calls every other family makes constantly: the per-thread
// error number, the process-wide lock before and after the thread layer is
// initialised, and checked allocation. Each has its reference in the same
// run: std::recursive_mutex (a recursive pthread mutex) for the lock,
// malloc/free for allocation.
//
// Beside the process-wide lock: a named mutex (robust and shared between
// processes, the other kind of library mutex), uncontended; and an unnamed
// library mutex under contention against std::mutex, with 1, 2 and 4
// threads each taking the lock, bumping a shared counter and releasing it
// (items are lock + unlock pairs, all threads together, in real time).
//
// The benchmarks run in registration order, so the "before init" lock
// figures are taken before DutInitThreads creates the lock.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>

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

void BM_NamedMutex(benchmark::State &state) {
  const std::string name = "vqbench.mutex." + std::to_string(getpid());
  D_MUTEX mutex = DutMutexCreateNamedNp(name.c_str(), 0);
  if (mutex == D_INVALID_MUTEX) {
    state.SkipWithError("no named mutex");
    return;
  }
  for (auto _ : state) {
    DutMutexLock(mutex, D_WAIT_FOREVER);
    DutMutexUnlock(mutex);
  }
  DutMutexDestroy(mutex);
}
BENCHMARK(BM_NamedMutex);

// ---- Contended: one lock, a shared counter, n threads -------------------------

struct VqMutex {
  D_MUTEX mutex = DutMutexCreate(0);
  void lock() { DutMutexLock(mutex, D_WAIT_FOREVER); }
  void unlock() { DutMutexUnlock(mutex); }
};

struct StdMutex {
  std::mutex mutex;
  void lock() { mutex.lock(); }
  void unlock() { mutex.unlock(); }
};

template <class Lock>
void BM_MutexContended(benchmark::State &state) {
  static Lock lock;  // one for all threads of the run
  static long counter = 0;
  for (auto _ : state) {
    lock.lock();
    benchmark::DoNotOptimize(++counter);
    lock.unlock();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_TEMPLATE(BM_MutexContended, VqMutex)->Threads(1)->Threads(2)->Threads(4)->UseRealTime();
BENCHMARK_TEMPLATE(BM_MutexContended, StdMutex)->Threads(1)->Threads(2)->Threads(4)->UseRealTime();

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
