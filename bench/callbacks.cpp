// Callback lists against a loop over a vector of function pointers, the
// merged call of two lists, and shortest paths on a sizeable graph.
#include <benchmark/benchmark.h>

#include <algorithm>
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

// Shortest paths: n vertices, 5n random directed edges, against a plain
// breadth-first search over vectors of the same edges (distances,
// predecessors and first hops, no tie rule), which grows as n + e.
struct RandomGraph {
  std::vector<std::string> names;
  D_GRAPH *graph = DutGraphCreate();
  std::vector<D_GRAPH_VERTEX *> vertices;
  std::vector<std::vector<int>> adjacency;

  explicit RandomGraph(int n) : names(static_cast<std::size_t>(n)), adjacency(static_cast<std::size_t>(n)) {
    for (int i = 0; i < n; ++i) {
      names[static_cast<std::size_t>(i)] = "v" + std::to_string(i);
      vertices.push_back(DutGraphVertexAdd(graph, names[static_cast<std::size_t>(i)].c_str()));
    }
    std::mt19937 rng(7);
    int edges = 0;
    while (edges < 5 * n) {
      unsigned a = rng() % static_cast<unsigned>(n);
      unsigned b = rng() % static_cast<unsigned>(n);
      if (a != b && DutGraphEdgeAdd(graph, vertices[a], vertices[b], 0) != nullptr) {
        adjacency[a].push_back(static_cast<int>(b));
        ++edges;
      }
    }
  }
  ~RandomGraph() { DutGraphDestroy(graph); }
};

void BM_GraphShortPath(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  RandomGraph g(n);
  for (auto _ : state) {
    DutGraphSetShortPath(g.graph, g.vertices[0]);
    benchmark::DoNotOptimize(DutGraphGetFirstHopVertex(g.graph, g.vertices[static_cast<std::size_t>(n - 1)]));
  }
  state.SetComplexityN(n);
}
// The same sizes for both; the fitted complexity shows the growth.
void GraphSizes(benchmark::internal::Benchmark *b) {
  for (int n : {1000, 2000, 4000, 8000, 16000}) b->Arg(n);
  b->Complexity()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_GraphShortPath)->Apply(GraphSizes);

void BM_BreadthFirstReference(benchmark::State &state) {
  const int n = static_cast<int>(state.range(0));
  RandomGraph g(n);
  const auto size = static_cast<std::size_t>(n);
  std::vector<int> distance(size), predecessor(size), first_hop(size), queue(size);
  for (auto _ : state) {
    std::fill(distance.begin(), distance.end(), -1);
    std::fill(predecessor.begin(), predecessor.end(), -1);
    std::fill(first_hop.begin(), first_hop.end(), -1);
    std::size_t head = 0;
    std::size_t tail = 0;
    distance[0] = 0;
    queue[tail++] = 0;
    while (head < tail) {
      int u = queue[head++];
      for (int v : g.adjacency[static_cast<std::size_t>(u)]) {
        if (distance[static_cast<std::size_t>(v)] >= 0) continue;
        distance[static_cast<std::size_t>(v)] = distance[static_cast<std::size_t>(u)] + 1;
        predecessor[static_cast<std::size_t>(v)] = u;
        first_hop[static_cast<std::size_t>(v)] = u == 0 ? v : first_hop[static_cast<std::size_t>(u)];
        queue[tail++] = v;
      }
    }
    benchmark::DoNotOptimize(first_hop[size - 1]);
  }
  state.SetComplexityN(n);
}
BENCHMARK(BM_BreadthFirstReference)->Apply(GraphSizes);

}  // namespace

BENCHMARK_MAIN();
