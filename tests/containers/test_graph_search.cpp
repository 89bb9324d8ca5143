// Shortest paths against the method as it is defined: after each vertex
// is made permanent, the next one is found by scanning the whole vertex
// list. That O(V^2) form lives here only, as the oracle for thousands of
// random graphs: unit weights, other weights written into the edges, and
// edges that lead into a second graph.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "vqutil/graph.h"

namespace {

struct VertexState {
  D_INT4 distance;
  D_INT4 perm;
  D_GRAPH_VERTEX *path_predecessor;
  D_GRAPH_VERTEX *first_hop;
  bool operator==(const VertexState &) const = default;
};

std::vector<VertexState> capture(const std::vector<D_GRAPH_VERTEX *> &vertices) {
  std::vector<VertexState> states;
  for (const D_GRAPH_VERTEX *v : vertices) states.push_back({v->distance, v->perm, v->path_predecessor, v->first_hop});
  return states;
}

void restore(const std::vector<D_GRAPH_VERTEX *> &vertices, const std::vector<VertexState> &states) {
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    vertices[i]->distance = states[i].distance;
    vertices[i]->perm = states[i].perm;
    vertices[i]->path_predecessor = states[i].path_predecessor;
    vertices[i]->first_hop = states[i].first_hop;
  }
}

// The literal method, for graphs of two vertices or more.
void literalShortPath(D_GRAPH *graph, D_GRAPH_VERTEX *origin) {
  graph->origin = origin;
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    v->distance = D_GRAPH_INFINITY;
    v->perm = 0;
    v->path_predecessor = nullptr;
    v->first_hop = nullptr;
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
    D_GRAPH *graph = DutGraphCreate();
    D_GRAPH *other = DutGraphCreate();
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
    restore(all, before);
    graph->origin = nullptr;
    ASSERT_EQ(DutGraphSetShortPath(graph, origin), D_TRUE);
    EXPECT_EQ(graph->origin, origin);
    const std::vector<VertexState> actual = capture(all);
    for (std::size_t i = 0; i < all.size(); ++i) {
      ASSERT_EQ(actual[i], expected[i]) << "round " << round << ", vertex " << (all[i]->name - gNames)
                                        << (i >= own.size() ? " (other graph)" : "") << ", distance "
                                        << actual[i].distance << " against " << expected[i].distance;
    }
    EXPECT_EQ(DutGraphDestroy(graph), D_TRUE);
    EXPECT_EQ(DutGraphDestroy(other), D_TRUE);
  }
};

TEST_F(RandomGraphs, UnitWeightsMatchTheListScan) {
  for (int round = 0; round < 2000; ++round) {
    const double density = round % 3 == 0 ? 0.05 : round % 3 == 1 ? 0.15 : 0.4;
    ASSERT_NO_FATAL_FAILURE(check({2 + below(40), density, 0.0, false}, round));
  }
}

TEST_F(RandomGraphs, WrittenWeightsMatchTheListScan) {
  for (int round = 0; round < 1500; ++round) {
    ASSERT_NO_FATAL_FAILURE(check({2 + below(30), round % 2 == 0 ? 0.1 : 0.3, 0.4, false}, round));
  }
}

TEST_F(RandomGraphs, EdgesIntoAnotherGraphMatchTheListScan) {
  for (int round = 0; round < 1500; ++round) {
    // Few other weights: the search meets them late, after reaching into
    // the other graph.
    ASSERT_NO_FATAL_FAILURE(check({2 + below(20), 0.2, round % 2 == 1 ? 0.05 : 0.0, true}, round));
  }
}

}  // namespace
