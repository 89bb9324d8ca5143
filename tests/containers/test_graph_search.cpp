// Shortest paths against the method as it is defined: after each vertex
// is made permanent, the next one is found by scanning the whole vertex
// list. That O(V^2) form lives here only, as the oracle for thousands of
// random graphs: unit weights, other weights written into the edges, and
// edges that lead into a second graph.
#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <vector>

#include "vqutil/graph.h"

namespace {

// What a search writes into a vertex.
auto fields(D_GRAPH_VERTEX *v) { return std::tie(v->distance, v->perm, v->path_predecessor, v->first_hop); }
using VertexState = std::tuple<D_INT4, D_INT4, D_GRAPH_VERTEX *, D_GRAPH_VERTEX *>;

std::vector<VertexState> capture(const std::vector<D_GRAPH_VERTEX *> &vertices) {
  std::vector<VertexState> states;
  for (D_GRAPH_VERTEX *v : vertices) states.emplace_back(fields(v));
  return states;
}

// The literal method, for graphs of two vertices or more.
void literalShortPath(D_GRAPH *graph, D_GRAPH_VERTEX *origin) {
  graph->origin = origin;
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    fields(v) = VertexState{D_GRAPH_INFINITY, 0, nullptr, nullptr};
  }
  origin->distance = 0;
  origin->perm = 1;
  for (D_GRAPH_VERTEX *current = origin;;) {
    for (D_GRAPH_EDGE *e = current->first_edge; e != nullptr; e = e->next) {
      if (current->distance + e->weight < e->to->distance) {
        e->to->distance = current->distance + e->weight;
        e->to->path_predecessor = current;
      }
    }
    D_GRAPH_VERTEX *next = nullptr;
    D_INT4 best = D_GRAPH_INFINITY;
    for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
      if (v->distance != 0 && v->distance <= best && !v->perm) {
        best = v->distance;
        next = v;
      }
    }
    if (next == nullptr) break;
    next->perm = 1;
    current = next;
  }
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    if (v == origin || v->path_predecessor == nullptr) continue;
    D_GRAPH_VERTEX *hop = v;
    while (hop->path_predecessor != origin) hop = hop->path_predecessor;
    v->first_hop = hop;
  }
}

// Vertex names are compared by identity: one distinct address each.
char gNames[256];

struct Shape {
  int vertices;
  double density;
  double reweighted;  // share of edges given a weight 0-3 by the host
  bool outside;       // edges into and out of a second graph
};

struct RandomGraphs : ::testing::Test {
  std::mt19937 rng{20240611};

  int below(int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }
  bool chance(double p) { return std::uniform_real_distribution<double>(0.0, 1.0)(rng) < p; }

  // Adds vertices with removals in between, so that list order, add order
  // and name order all differ.
  std::vector<D_GRAPH_VERTEX *> build(D_GRAPH *graph, int count, int &next_name) {
    std::vector<D_GRAPH_VERTEX *> vertices;
    while (static_cast<int>(vertices.size()) < count) {
      vertices.push_back(DutGraphVertexAdd(graph, &gNames[next_name++]));
      if (vertices.size() > 2 && chance(0.15)) {
        auto victim = vertices.begin() + below(static_cast<int>(vertices.size()));
        EXPECT_EQ(DutGraphVertexRemove(graph, *victim), D_TRUE);
        vertices.erase(victim);
      }
    }
    return vertices;
  }

  void connect(D_GRAPH *graph, const std::vector<D_GRAPH_VERTEX *> &from, const std::vector<D_GRAPH_VERTEX *> &to,
               double density, bool undirected) {
    for (D_GRAPH_VERTEX *a : from) {
      for (D_GRAPH_VERTEX *b : to) {
        if (a == b || !chance(density) || DutGraphEdgeLookup(graph, a, b) != nullptr) continue;
        if (undirected && chance(0.3) && DutGraphEdgeLookup(graph, b, a) == nullptr) {
          DutGraphEdgeUndirectedAdd(graph, a, b, 0, 0);
        } else {
          DutGraphEdgeAdd(graph, a, b, 0);
        }
      }
    }
  }

  // One random case: the library's search and the literal method, from the
  // same starting state, must leave every vertex of both graphs alike.
  void check(const Shape &shape, int round) {
    int next_name = 0;
    D_GRAPH *graph = DutGraphCreate(), *other = DutGraphCreate();
    std::vector<D_GRAPH_VERTEX *> own = build(graph, shape.vertices, next_name);
    std::vector<D_GRAPH_VERTEX *> foreign;
    connect(graph, own, own, shape.density, true);
    if (shape.outside) {
      foreign = build(other, 2 + below(4), next_name);
      connect(other, foreign, foreign, 0.5, false);
      // Whatever the other graph's vertices hold is part of the starting
      // state: only shorter reaches change them.
      for (D_GRAPH_VERTEX *v : foreign) v->distance = chance(0.5) ? D_GRAPH_INFINITY : below(6);
      connect(graph, own, foreign, shape.density, false);
      connect(other, foreign, own, shape.density, false);
    }
    for (D_GRAPH_VERTEX *v : own) {
      for (D_GRAPH_EDGE *e = v->first_edge; e != nullptr; e = e->next) {
        if (chance(shape.reweighted)) e->weight = below(4);
      }
    }
    std::vector<D_GRAPH_VERTEX *> all = own;
    all.insert(all.end(), foreign.begin(), foreign.end());
    // Now and then the origin lies in the other graph.
    D_GRAPH_VERTEX *origin =
        shape.outside && chance(0.1) ? foreign[0] : own[static_cast<std::size_t>(below(static_cast<int>(own.size())))];

    const std::vector<VertexState> before = capture(all);
    literalShortPath(graph, origin);
    const std::vector<VertexState> expected = capture(all);
    for (std::size_t i = 0; i < all.size(); ++i) fields(all[i]) = before[i];
    graph->origin = nullptr;
    ASSERT_EQ(DutGraphSetShortPath(graph, origin), D_TRUE);
    EXPECT_EQ(graph->origin, origin);
    const std::vector<VertexState> actual = capture(all);
    for (std::size_t i = 0; i < all.size(); ++i) {
      ASSERT_EQ(actual[i], expected[i]) << "round " << round << ", vertex " << (all[i]->name - gNames)
                                        << (i >= own.size() ? " (other graph)" : "");
    }
    EXPECT_EQ(DutGraphDestroy(graph), D_TRUE);
    EXPECT_EQ(DutGraphDestroy(other), D_TRUE);
  }
};

// Unit weights at three densities; other weights written into the edges;
// edges into a second graph with few other weights, which the search meets
// late, after reaching into the other graph.
TEST_F(RandomGraphs, EveryShapeMatchesTheListScan) {
  for (int round = 0; round < 4500; ++round) {
    const int kind = round % 9;
    const Shape shape = kind < 3   ? Shape{2 + below(40), kind == 0 ? 0.05 : kind == 1 ? 0.15 : 0.4, 0.0, false}
                        : kind < 6 ? Shape{2 + below(30), kind == 3 ? 0.1 : 0.3, 0.4, false}
                                   : Shape{2 + below(20), 0.2, kind == 6 ? 0.05 : 0.0, true};
    ASSERT_NO_FATAL_FAILURE(check(shape, round));
  }
}

}  // namespace
