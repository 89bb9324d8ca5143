// Graphs: structure, fewest-hop paths with their tie rule, invalidation,
// change callbacks and the dump.
#include <gtest/gtest.h>

#include <string>

#include "support/output_capture.hpp"
#include "vqutil/graph.h"

namespace {

// Names are compared by identity: keep one pointer per name.
const char *const A = "a", *const B = "b", *const C = "c", *const D = "d", *const E = "e";

class Graph : public ::testing::Test {
 protected:
  void SetUp() override { a = v(A), b = v(B), c = v(C), d = v(D); }
  void TearDown() override { EXPECT_TRUE(g_ == nullptr || DutGraphDestroy(g_)); }
  D_GRAPH_VERTEX *v(const char *name) { return DutGraphVertexAdd(g_, name); }
  D_GRAPH_EDGE *edge(D_GRAPH_VERTEX *from, D_GRAPH_VERTEX *to) { return DutGraphEdgeAdd(g_, from, to, 0); }
  D_GRAPH *g_ = DutGraphCreate();
  D_GRAPH_VERTEX *a, *b, *c, *d;
};

// Distances, predecessors and first hops are the search tests' subject;
// here reading the first hop, its refusals, and that every change of the
// graph makes the paths unknown.
TEST_F(Graph, FirstHopsTheirRefusalsAndInvalidation) {
  edge(a, b), edge(b, d);
  auto recompute_then = [&](auto change) {
    ASSERT_EQ(DutGraphSetShortPath(g_, a), D_TRUE);
    EXPECT_EQ(DutGraphGetFirstHopVertex(g_, a), nullptr) << "the origin has no first hop";
    ASSERT_EQ(DutGraphGetFirstHopVertex(g_, d), b);
    change();
    EXPECT_FAILS(DutGraphGetFirstHopVertex(g_, d), nullptr, D_ERR_VAL_UNKNOWN);
  };
  recompute_then([&] { edge(b, a); });
  recompute_then([&] { v(E); });
  recompute_then([&] { DutGraphVertexRemove(g_, DutGraphVertexLookup(g_, E)); });
  recompute_then([&] { DutGraphEdgeRemove(g_, DutGraphEdgeLookup(g_, b, a)); });
  // A graph of one vertex never has readable first hops; an unknown origin
  // is refused.
  D_GRAPH *one = DutGraphCreate();
  EXPECT_FAILS(DutGraphSetShortPath(one, a), D_FALSE, D_ERR_VAL_UNKNOWN);
  D_GRAPH_VERTEX *only = DutGraphVertexAdd(one, A);
  EXPECT_EQ(DutGraphSetShortPath(one, only), D_TRUE);
  EXPECT_FAILS(DutGraphGetFirstHopVertex(one, only), nullptr, D_ERR_VAL_UNKNOWN);
  DutGraphDestroy(one);
}

TEST_F(Graph, DuplicatesUndirectedPairsAndVertexRemoval) {
  EXPECT_FAILS(v(A), nullptr, D_ERR_ALREADY_EXISTS);
  D_GRAPH_EDGE *ab = edge(a, b);
  EXPECT_FAILS(edge(a, b), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutGraphEdgeUndirectedRemove(g_, ab), D_FALSE, D_ERR_VAL_INVALID);
  // b -> a is free but a -> b exists: the pair fails and leaves no half.
  EXPECT_EQ(DutGraphEdgeUndirectedAdd(g_, b, a, 3, 4), nullptr);
  EXPECT_EQ(DutGraphEdgeLookup(g_, b, a), nullptr);
  DutGraphEdgeRemove(g_, ab);
  D_GRAPH_EDGE *pair = DutGraphEdgeUndirectedAdd(g_, a, b, 5, 6);
  ASSERT_TRUE(pair != nullptr && pair->back_edge != nullptr);
  EXPECT_TRUE(pair->back_edge->back_edge == pair && pair->back_edge->data == 6);
  EXPECT_EQ(DutGraphEdgeUndirectedRemove(g_, pair), D_TRUE);
  EXPECT_TRUE(DutGraphEdgeGetFirst(a) == nullptr && DutGraphEdgeGetFirst(b) == nullptr);
  // Removing a vertex takes its edges and the edges to it.
  DutGraphEdgeUndirectedAdd(g_, a, b, 0, 0);
  edge(c, b), edge(b, c);
  ASSERT_EQ(DutGraphVertexRemove(g_, b), D_TRUE);
  int listed = 0;
  for (D_GRAPH_VERTEX *x = DutGraphVertexGetFirst(g_); x != nullptr; x = DutGraphVertexGetNext(x)) ++listed;
  EXPECT_TRUE(listed == 3 && g_->vertex_count == 3 && g_->vertex_add_count == 4 && !DutGraphVertexLookup(g_, B));
  EXPECT_TRUE(DutGraphEdgeGetFirst(a) == nullptr && DutGraphEdgeGetFirst(c) == nullptr);
  EXPECT_FAILS(DutGraphVertexAdd(nullptr, A), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(v(nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGraphVertexLookup(g_, nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(edge(nullptr, nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGraphDump(nullptr, vqtest::CapturePrint), D_FALSE, D_ERR_NULL_PTR);
}

// Records "+v:a", "-e:ab" and so on, read while the object is still alive.
void record(void *, void *data, D_WORD arg) {
  auto *change = static_cast<D_GRAPH_CHANGE *>(data);
  EXPECT_NE(change->cb, nullptr) << "the reserved head holds the callback";
  std::string entry = change->add_flag ? "+" : "-";
  entry += change->vertex != nullptr ? std::string("v:") + change->vertex->name
                                     : std::string("e:") + change->edge->from->name + change->edge->to->name;
  *reinterpret_cast<std::string *>(arg) += entry + " ";
}

TEST(GraphChanges, CallbacksSeeEveryChangeAndTheDump) {
  std::string seen;
  D_GRAPH *g = DutGraphCreate(), *other = DutGraphCreate();
  EXPECT_EQ(DutGraphChangeCbLookup(g, record, 0), nullptr);
  D_CB *cb = DutGraphChangeCbCreate(g, record, reinterpret_cast<D_WORD>(&seen));
  EXPECT_TRUE(cb && DutGraphChangeCbLookup(g, record, reinterpret_cast<D_WORD>(&seen)) == cb);
  DutGraphVertexAdd(other, A);  // another graph's changes are not ours
  D_GRAPH_VERTEX *a = DutGraphVertexAdd(g, A), *b = DutGraphVertexAdd(g, B);
  DutGraphEdgeAdd(g, a, b, 0);

  auto vertex = [](const char *name) {
    return std::string("\n*** Vertex |") + name +
           "| *** \n  distance = 99999 \n  perm = 0 \n  path_predecessor = 0 \n  first hop = 0 \n";
  };
  vqtest::Captured().clear();
  ASSERT_EQ(DutGraphDump(g, vqtest::CapturePrint), D_TRUE);
  EXPECT_EQ(vqtest::Captured(), "*************************************\nDutGraphDump: Dumping graph\n"
                                "   Vertex count = 2 \n   Vertex add count = 2 \n   Origin vertex  = 0 \n"
                                "*************************************\n" +
                                    vertex(B) + vertex(A) +
                                    "  ** edge <a,b>    weight = 1 \n\nDutGraphDump: Done.\n"
                                    "*************************************\n\n");
  DutGraphSetShortPath(g, a);
  vqtest::Captured().clear();
  DutGraphDump(g, vqtest::CapturePrint);
  EXPECT_NE(vqtest::Captured().find("   Origin vertex  = |a|\n"), std::string::npos);
  EXPECT_NE(vqtest::Captured().find("  path predecessor =  |a|\n  first hop = |b|\n"), std::string::npos);

  DutGraphVertexRemove(g, b);
  DutGraphDestroy(other);
  // Destroying the graph reports the last vertex and drops the callbacks.
  DutGraphDestroy(g);
  EXPECT_EQ(seen, "+v:a +v:b +e:ab -e:ab -v:b -v:a ");
}

}  // namespace
