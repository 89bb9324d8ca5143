// Callback lists against a loop over a vector of function pointers, the
// merged call of two lists, and shortest paths on a sizeable graph.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "vqutil/callback.h"
#include "vqutil/graph.h"

namespace {

struct Data {
  D_CB *cb;
  std::int64_t sum;
};

void addArg(void *, void *data, D_WORD arg) { static_cast<Data *>(data)->sum += arg; }

D_CB_TYPE *benchType() {
  static D_CB_TYPE *type = DutCbTypeCreate(91000, "bench");
  return type;
}

void BM_CbListCall(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  D_CB_LIST *list = DutCbListCreate(benchType(), nullptr);
  for (int i = 0; i < n; ++i) DutCbListCbCreate(list, addArg, i + 1);
  Data data{nullptr, 0};
  for (auto _ : state) {
    DutCbListCall(list, nullptr, &data);
    benchmark::DoNotOptimize(data.sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
  DutCbListDestroy(list);
}
BENCHMARK(BM_CbListCall)->Arg(1)->Arg(10)->Arg(100);

// Reference: the same calls through a vector of function pointers, with
// the same signature and the data head written before each call.
void BM_VectorOfFunctions(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  struct Entry {
    D_CB_FUNC func;
    D_WORD arg;
  };
  std::vector<Entry> entries;
  for (int i = 0; i < n; ++i) entries.push_back({addArg, i + 1});
  Data data{nullptr, 0};
  for (auto _ : state) {
    for (const Entry &e : entries) {
      data.cb = reinterpret_cast<D_CB *>(const_cast<Entry *>(&e));
      e.func(nullptr, &data, e.arg);
    }
    benchmark::DoNotOptimize(data.sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_VectorOfFunctions)->Arg(1)->Arg(10)->Arg(100);

void BM_MergedCall50And50(benchmark::State &state) {
  static D_CB_TYPE *type = [] {
    D_CB_TYPE *t = DutCbTypeCreate(91001, "bench_merged");
    return t;
  }();
  static int owner = 0;
  for (int i = 0; i < 50; ++i) {
    D_CB *o = DutCbTypeCbCreate(type, &owner, addArg, i + 1);
    DutCbSetPriority(o, static_cast<D_UINT2>(i % 7));
    D_CB *g = DutCbCreateGlobal(type, addArg, 1000 + i);
    DutCbSetPriority(g, static_cast<D_UINT2>(i % 5));
  }
  Data data{nullptr, 0};
  for (auto _ : state) {
    DutCbTypeCall(type, &owner, &data);
    benchmark::DoNotOptimize(data.sum);
  }
  state.SetItemsProcessed(state.iterations() * 100);
  DutCbObjClear(type, &owner);
}
BENCHMARK(BM_MergedCall50And50);

// Shortest paths: n vertices, 5n random directed edges.
void BM_GraphShortPath(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<std::string> names(static_cast<std::size_t>(n));
  D_GRAPH *graph = DutGraphCreate();
  std::vector<D_GRAPH_VERTEX *> vertices;
  for (int i = 0; i < n; ++i) {
    names[static_cast<std::size_t>(i)] = "v" + std::to_string(i);
    vertices.push_back(DutGraphVertexAdd(graph, names[static_cast<std::size_t>(i)].c_str()));
  }
  std::mt19937 rng(7);
  int edges = 0;
  while (edges < 5 * n) {
    D_GRAPH_VERTEX *a = vertices[rng() % static_cast<unsigned>(n)];
    D_GRAPH_VERTEX *b = vertices[rng() % static_cast<unsigned>(n)];
    if (a != b && DutGraphEdgeAdd(graph, a, b, 0) != nullptr) ++edges;
  }
  for (auto _ : state) {
    DutGraphSetShortPath(graph, vertices[0]);
    benchmark::DoNotOptimize(DutGraphGetFirstHopVertex(graph, vertices[static_cast<std::size_t>(n - 1)]));
  }
  state.SetComplexityN(n);
  DutGraphDestroy(graph);
}
BENCHMARK(BM_GraphShortPath)->Arg(250)->Arg(500)->Arg(1000)->Arg(2000)->Complexity()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
