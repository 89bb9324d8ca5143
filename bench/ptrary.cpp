// Pointer arrays against std::vector<void *> and, when GLib is present,
// GPtrArray, measured in the same run:
//   Append/<n>/<increment>  n appends into a fresh array created with the
//                           given capacity (which is also the growth step);
//                           the references grow geometrically as they do;
//   RemoveFront/<n>         n removals of position 0 from an n-item array,
//                           order kept (each removal moves the rest down).
// Items per second is the figure to compare.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "vqutil/ptrary.h"

#ifdef VQ_HAVE_GLIB
#include <glib.h>
#endif

namespace {

void *itemFor(std::int64_t i) { return reinterpret_cast<void *>(static_cast<std::intptr_t>(i + 1)); }

void BM_PtrAryAppend(benchmark::State &state) {
  const auto n = state.range(0);
  const auto increment = static_cast<D_INT4>(state.range(1));
  for (auto _ : state) {
    D_PTR_ARY *array = DutPtrAryCreate(increment);
    for (std::int64_t i = 0; i < n; ++i) DutPtrAryAppend(array, reinterpret_cast<D_WORD>(itemFor(i)), nullptr);
    benchmark::DoNotOptimize(DutPtrAryGetArray(array));
    DutPtrAryDestroy(array, nullptr, nullptr);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_PtrAryAppend)
    ->ArgNames({"n", "increment"})
    ->Args({1000, 16})
    ->Args({100000, 16})
    ->Args({100000, 1024})
    ->Args({1000000, 1024})
    ->Args({1000000, 65536});

void BM_VectorAppend(benchmark::State &state) {
  const auto n = state.range(0);
  for (auto _ : state) {
    std::vector<void *> vector;
    for (std::int64_t i = 0; i < n; ++i) vector.push_back(itemFor(i));
    benchmark::DoNotOptimize(vector.data());
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_VectorAppend)->ArgName("n")->Arg(1000)->Arg(100000)->Arg(1000000);

void BM_PtrAryRemoveFront(benchmark::State &state) {
  const auto n = state.range(0);
  for (auto _ : state) {
    state.PauseTiming();
    D_PTR_ARY *array = DutPtrAryCreate(static_cast<D_INT4>(n));
    for (std::int64_t i = 0; i < n; ++i) DutPtrAryAppend(array, reinterpret_cast<D_WORD>(itemFor(i)), nullptr);
    state.ResumeTiming();
    D_WORD item = 0;
    for (std::int64_t i = 0; i < n; ++i) DutPtrAryRemoveItemAtIndex(array, 0, &item);
    benchmark::DoNotOptimize(item);
    state.PauseTiming();
    DutPtrAryDestroy(array, nullptr, nullptr);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_PtrAryRemoveFront)->ArgName("n")->Arg(1000)->Arg(10000)->Arg(50000);

void BM_VectorRemoveFront(benchmark::State &state) {
  const auto n = state.range(0);
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<void *> vector;
    vector.reserve(static_cast<std::size_t>(n));
    for (std::int64_t i = 0; i < n; ++i) vector.push_back(itemFor(i));
    state.ResumeTiming();
    void *item = nullptr;
    for (std::int64_t i = 0; i < n; ++i) {
      item = vector.front();
      vector.erase(vector.begin());
    }
    benchmark::DoNotOptimize(item);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_VectorRemoveFront)->ArgName("n")->Arg(1000)->Arg(10000)->Arg(50000);

#ifdef VQ_HAVE_GLIB
void BM_GPtrArrayAppend(benchmark::State &state) {
  const auto n = state.range(0);
  for (auto _ : state) {
    GPtrArray *array = g_ptr_array_new();
    for (std::int64_t i = 0; i < n; ++i) g_ptr_array_add(array, itemFor(i));
    benchmark::DoNotOptimize(array->pdata);
    g_ptr_array_free(array, TRUE);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_GPtrArrayAppend)->ArgName("n")->Arg(1000)->Arg(100000)->Arg(1000000);

void BM_GPtrArrayRemoveFront(benchmark::State &state) {
  const auto n = state.range(0);
  for (auto _ : state) {
    state.PauseTiming();
    GPtrArray *array = g_ptr_array_sized_new(static_cast<guint>(n));
    for (std::int64_t i = 0; i < n; ++i) g_ptr_array_add(array, itemFor(i));
    state.ResumeTiming();
    void *item = nullptr;
    for (std::int64_t i = 0; i < n; ++i) item = g_ptr_array_remove_index(array, 0);
    benchmark::DoNotOptimize(item);
    state.PauseTiming();
    g_ptr_array_free(array, TRUE);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_GPtrArrayRemoveFront)->ArgName("n")->Arg(1000)->Arg(10000)->Arg(50000);
#endif

}  // namespace

BENCHMARK_MAIN();
