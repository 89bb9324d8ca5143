// The read-write mutex against pthread_rwlock_t and std::shared_mutex.
//
// Uncontended: one read lock and unlock, one write lock and unlock, per
// iteration, on the calling thread.
//
// The floor: one lock and unlock of the library mutex the read-write mutex
// is built on (every operation of it costs one such pair plus its own
// bookkeeping).
//
// Mixed: 1, 2 and 4 threads each do kOpsPerThread operations, 90% reads
// (sum a small shared table) and 10% writes (bump one entry), chosen by a
// per-thread xorshift sequence that is the same for every implementation.
// The lock tells threads apart only when DutThreadCreate made them, so the
// workers of every implementation are library threads; one iteration
// starts them, lets them run and waits for them (real time). Items are
// operations. On a shared machine the real time depends on who else runs;
// the counter cpu_ns_per_op (CPU time of the whole process, all threads,
// per operation) depends much less on that.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <shared_mutex>
#include <vector>

#include "vqutil/rwmutex.h"
#include "vqutil/thread.h"

namespace {

constexpr int kOpsPerThread = 20000;
constexpr int kTableSize = 16;

// ---- The three locks behind one shape ---------------------------------------

struct VqLock {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 8);
  ~VqLock() { DutRwMutexDestroy(rw); }
  void readLock() { DutRwMutexReadLock(rw); }
  void readUnlock() { DutRwMutexUnlock(rw); }
  void writeLock() { DutRwMutexWriteLock(rw); }
  void writeUnlock() { DutRwMutexUnlock(rw); }
};

struct PthreadLock {
  pthread_rwlock_t rw;
  PthreadLock() { pthread_rwlock_init(&rw, nullptr); }
  ~PthreadLock() { pthread_rwlock_destroy(&rw); }
  void readLock() { pthread_rwlock_rdlock(&rw); }
  void readUnlock() { pthread_rwlock_unlock(&rw); }
  void writeLock() { pthread_rwlock_wrlock(&rw); }
  void writeUnlock() { pthread_rwlock_unlock(&rw); }
};

struct StdLock {
  std::shared_mutex rw;
  void readLock() { rw.lock_shared(); }
  void readUnlock() { rw.unlock_shared(); }
  void writeLock() { rw.lock(); }
  void writeUnlock() { rw.unlock(); }
};

// ---- Uncontended ----------------------------------------------------------------

template <class Lock>
void BM_ReadLockUnlock(benchmark::State &state) {
  Lock lock;
  for (auto _ : state) {
    lock.readLock();
    lock.readUnlock();
  }
  state.SetItemsProcessed(state.iterations());
}

template <class Lock>
void BM_WriteLockUnlock(benchmark::State &state) {
  Lock lock;
  for (auto _ : state) {
    lock.writeLock();
    lock.writeUnlock();
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_LibraryMutexFloor(benchmark::State &state) {
  D_MUTEX mutex = DutMutexCreate(0);
  for (auto _ : state) {
    DutMutexLock(mutex, D_WAIT_FOREVER);
    DutMutexUnlock(mutex);
  }
  DutMutexDestroy(mutex);
  state.SetItemsProcessed(state.iterations());
}

// ---- 90% read / 10% write --------------------------------------------------------

template <class Lock>
struct Shared {
  Lock lock;
  std::array<std::int64_t, kTableSize> table{};
  std::atomic<std::int64_t> sink{0};
};

template <class Lock>
struct Worker {
  Shared<Lock> *shared;
  std::uint32_t seed;
};

template <class Lock>
D_WORD runMix(D_WORD arg) {
  auto *w = reinterpret_cast<Worker<Lock> *>(arg);
  Shared<Lock> &s = *w->shared;
  std::uint32_t x = w->seed;
  std::int64_t seen = 0;
  for (int i = 0; i < kOpsPerThread; ++i) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    if (x % 10 == 0) {
      s.lock.writeLock();
      s.table[x % kTableSize] += 1;
      s.lock.writeUnlock();
    } else {
      s.lock.readLock();
      for (std::int64_t v : s.table) seen += v;
      s.lock.readUnlock();
    }
  }
  s.sink += seen;
  return 0;
}

double processCpuNs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto ns = [](const timeval &t) { return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_usec) * 1e3; };
  return ns(usage.ru_utime) + ns(usage.ru_stime);
}

template <class Lock>
void BM_Mix90Read(benchmark::State &state) {
  const int threads = static_cast<int>(state.range(0));
  DutInitThreads();
  Shared<Lock> shared;
  std::vector<Worker<Lock>> workers(threads);
  for (int t = 0; t < threads; ++t) workers[t] = {&shared, 0x9E3779B9u * static_cast<std::uint32_t>(t + 1)};
  std::vector<D_THREAD> handles(threads);
  const double cpu_start = processCpuNs();
  for (auto _ : state) {
    for (int t = 0; t < threads; ++t) {
      handles[t] = DutThreadCreate(&runMix<Lock>, reinterpret_cast<D_WORD>(&workers[t]));
    }
    for (int t = 0; t < threads; ++t) DutThreadWait(handles[t], nullptr);
  }
  const double ops = static_cast<double>(state.iterations()) * threads * kOpsPerThread;
  state.counters["cpu_ns_per_op"] = (processCpuNs() - cpu_start) / ops;
  benchmark::DoNotOptimize(shared.sink.load());
  state.SetItemsProcessed(state.iterations() * threads * kOpsPerThread);
}

BENCHMARK_TEMPLATE(BM_ReadLockUnlock, VqLock);
BENCHMARK_TEMPLATE(BM_ReadLockUnlock, PthreadLock);
BENCHMARK_TEMPLATE(BM_ReadLockUnlock, StdLock);
BENCHMARK_TEMPLATE(BM_WriteLockUnlock, VqLock);
BENCHMARK_TEMPLATE(BM_WriteLockUnlock, PthreadLock);
BENCHMARK_TEMPLATE(BM_WriteLockUnlock, StdLock);
BENCHMARK(BM_LibraryMutexFloor);
BENCHMARK_TEMPLATE(BM_Mix90Read, VqLock)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK_TEMPLATE(BM_Mix90Read, PthreadLock)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK_TEMPLATE(BM_Mix90Read, StdLock)->Arg(1)->Arg(2)->Arg(4)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
