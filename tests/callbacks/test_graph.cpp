// Graphs: structure, fewest-hop paths with their tie rule, invalidation,
// change callbacks and the dump.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cb_support.hpp"
#include "vqutil/graph.h"

namespace {

class Graph : public ::testing::Test {
 protected:
  void SetUp() override { g_ = DutGraphCreate(); }
  void TearDown() override { EXPECT_TRUE(g_ == nullptr || DutGraphDestroy(g_)); }
  D_GRAPH_VERTEX *v(const char *name) { return DutGraphVertexAdd(g_, name); }
  D_GRAPH *g_ = nullptr;
};

// Names are compared by identity: keep one pointer per name.
const char *const A = "a", *const B = "b", *const C = "c", *const D = "d";

TEST_F(Graph, ChainAndUnreachableVertex) {
  D_GRAPH_VERTEX *a = v(A), *b = v(B), *c = v(C), *d = v(D);
  DutGraphEdgeAdd(g_, a, b, 7);
  DutGraphEdgeAdd(g_, b, c, 0);
  DutGraphEdgeAdd(g_, d, a, 0);  // d reaches a, but a does not reach d
  ASSERT_EQ(DutGraphSetShortPath(g_, a), D_TRUE);
  EXPECT_EQ(DutGraphGetFirstHopVertex(g_, a), nullptr) << "the origin has no first hop";
  EXPECT_EQ(b->distance, 1);
  EXPECT_EQ(DutGraphGetFirstHopVertex(g_, b), b);
  EXPECT_EQ(c->distance, 2);
  EXPECT_EQ(DutGraphGetFirstHopVertex(g_, c), b);
  EXPECT_EQ(d->distance, D_GRAPH_INFINITY);
  EXPECT_EQ(DutGraphGetFirstHopVertex(g_, d), nullptr);
  for (D_GRAPH_VERTEX *x = DutGraphVertexGetFirst(g_); x != nullptr; x = DutGraphVertexGetNext(x)) {
    EXPECT_EQ(x->perm, 1) << x->name;
  }
}

TEST_F(Graph, EqualDistanceTiesGoToTheOlderVertex) {
  // a -> b, a -> c; b -> d, c -> d. d is two hops away through either; the
  // older of b and c becomes permanent first and so is d's predecessor.
  D_GRAPH_VERTEX *a = v(A), *b = v(B), *c = v(C), *d = v(D);
  DutGraphEdgeAdd(g_, a, c, 0);
  DutGraphEdgeAdd(g_, a, b, 0);
  DutGraphEdgeAdd(g_, b, d, 0);
  DutGraphEdgeAdd(g_, c, d, 0);
  ASSERT_EQ(DutGraphSetShortPath(g_, a), D_TRUE);
  EXPECT_EQ(d->path_predecessor, b);
  EXPECT_EQ(DutGraphGetFirstHopVertex(g_, d), b);
}

TEST_F(Graph, OneVertexAndEmptyGraphs) {
  EXPECT_FAILS(DutGraphSetShortPath(g_, reinterpret_cast<D_GRAPH_VERTEX *>(g_)), D_FALSE,
               D_ERR_VAL_UNKNOWN);
  D_GRAPH_VERTEX *a = v(A);
  EXPECT_EQ(DutGraphSetShortPath(g_, a), D_TRUE);
  EXPECT_EQ(DutGraphGetFirstHopVertex(g_, a), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_UNKNOWN) << "a one-vertex graph never has readable first hops";
}

TEST_F(Graph, EveryChangeInvalidatesThePaths) {
  D_GRAPH_VERTEX *a = v(A), *b = v(B);
  DutGraphEdgeAdd(g_, a, b, 0);
  auto recompute_then = [&](auto change) {
    ASSERT_EQ(DutGraphSetShortPath(g_, a), D_TRUE);
    ASSERT_NE(DutGraphGetFirstHopVertex(g_, b), nullptr);
    change();
    DutErrNumSet(0);
    EXPECT_EQ(DutGraphGetFirstHopVertex(g_, b), nullptr);
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_UNKNOWN);
  };
  recompute_then([&] { DutGraphEdgeAdd(g_, b, a, 0); });
  D_GRAPH_VERTEX *c = nullptr;
  recompute_then([&] { c = v(C); });
  recompute_then([&] { DutGraphVertexRemove(g_, c); });
  recompute_then([&] { DutGraphEdgeRemove(g_, DutGraphEdgeLookup(g_, b, a)); });
}

TEST_F(Graph, DuplicatesAndUndirectedRules) {
  D_GRAPH_VERTEX *a = v(A), *b = v(B);
  EXPECT_FAILS(v(A), nullptr, D_ERR_ALREADY_EXISTS);
  D_GRAPH_EDGE *ab = DutGraphEdgeAdd(g_, a, b, 1);
  EXPECT_FAILS(DutGraphEdgeAdd(g_, a, b, 2), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutGraphEdgeUndirectedRemove(g_, ab), D_FALSE, D_ERR_VAL_INVALID);
  // b -> a is free but a -> b exists: the undirected pair fails and leaves
  // no half behind.
  EXPECT_EQ(DutGraphEdgeUndirectedAdd(g_, b, a, 3, 4), nullptr);
  EXPECT_EQ(DutGraphEdgeLookup(g_, b, a), nullptr);
  DutGraphEdgeRemove(g_, ab);
  D_GRAPH_EDGE *pair = DutGraphEdgeUndirectedAdd(g_, a, b, 5, 6);
  ASSERT_NE(pair, nullptr);
  ASSERT_NE(pair->back_edge, nullptr);
  EXPECT_EQ(pair->back_edge->back_edge, pair);
  EXPECT_EQ(pair->back_edge->data, 6);
  EXPECT_EQ(DutGraphEdgeUndirectedRemove(g_, pair), D_TRUE);
  EXPECT_EQ(DutGraphEdgeGetFirst(a), nullptr);
  EXPECT_EQ(DutGraphEdgeGetFirst(b), nullptr);
}

TEST_F(Graph, RemovingAVertexTakesItsEdgesAndEdgesToIt) {
  D_GRAPH_VERTEX *a = v(A), *b = v(B), *c = v(C);
  DutGraphEdgeUndirectedAdd(g_, a, b, 0, 0);
  DutGraphEdgeAdd(g_, c, b, 0);
  DutGraphEdgeAdd(g_, b, c, 0);
  ASSERT_EQ(DutGraphVertexRemove(g_, b), D_TRUE);
  EXPECT_EQ(g_->vertex_count, 2);
  EXPECT_EQ(g_->vertex_add_count, 3);
  EXPECT_EQ(DutGraphEdgeGetFirst(a), nullptr);
  EXPECT_EQ(DutGraphEdgeGetFirst(c), nullptr);
  EXPECT_EQ(DutGraphVertexLookup(g_, B), nullptr);
}

// Records "+v:a", "-e:ab" and so on, read while the object is still alive.
void record(void *, void *data, D_WORD arg) {
  auto *change = static_cast<D_GRAPH_CHANGE *>(data);
  EXPECT_NE(change->cb, nullptr) << "the reserved head holds the callback";
  std::string entry = change->add_flag ? "+" : "-";
  entry += change->vertex != nullptr
               ? std::string("v:") + change->vertex->name
               : std::string("e:") + change->edge->from->name + change->edge->to->name;
  *reinterpret_cast<std::string *>(arg) += entry + " ";
}

TEST_F(Graph, ChangeCallbacksSeeEveryChangeBeforeTheObjectIsFreed) {
  std::string seen;
  EXPECT_EQ(DutGraphChangeCbLookup(g_, record, 0), nullptr);
  D_CB *cb = DutGraphChangeCbCreate(g_, record, reinterpret_cast<D_WORD>(&seen));
  ASSERT_NE(cb, nullptr);
  EXPECT_EQ(DutGraphChangeCbLookup(g_, record, reinterpret_cast<D_WORD>(&seen)), cb);
  D_GRAPH *other = DutGraphCreate();
  DutGraphVertexAdd(other, A);  // another graph's changes are not ours
  D_GRAPH_VERTEX *a = v(A), *b = v(B);
  DutGraphEdgeAdd(g_, a, b, 0);
  DutGraphVertexRemove(g_, b);
  EXPECT_EQ(seen, "+v:a +v:b +e:ab -e:ab -v:b ");
  DutGraphDestroy(other);
  // Destroying the graph reports the last vertex and drops the callbacks.
  DutGraphDestroy(g_);
  g_ = nullptr;
  EXPECT_EQ(seen, "+v:a +v:b +e:ab -e:ab -v:b -v:a ");
}

TEST_F(Graph, NullArguments) {
  EXPECT_FAILS(DutGraphVertexAdd(nullptr, A), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGraphEdgeAdd(g_, nullptr, nullptr, 0), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGraphDump(nullptr, cbtest::dumpSink), D_FALSE, D_ERR_NULL_PTR);
}

TEST_F(Graph, DumpTexts) {
  D_GRAPH_VERTEX *a = v(A), *b = v(B);
  DutGraphEdgeAdd(g_, a, b, 0);
  cbtest::dumpText().clear();
  ASSERT_EQ(DutGraphDump(g_, cbtest::dumpSink), D_TRUE);
  EXPECT_EQ(cbtest::dumpText(),
            "*************************************\n"
            "DutGraphDump: Dumping graph\n"
            "   Vertex count = 2 \n"
            "   Vertex add count = 2 \n"
            "   Origin vertex  = 0 \n"
            "*************************************\n"
            "\n*** Vertex |b| *** \n"
            "  distance = 99999 \n"
            "  perm = 0 \n"
            "  path_predecessor = 0 \n"
            "  first hop = 0 \n"
            "\n*** Vertex |a| *** \n"
            "  distance = 99999 \n"
            "  perm = 0 \n"
            "  path_predecessor = 0 \n"
            "  first hop = 0 \n"
            "  ** edge <a,b>    weight = 1 \n"
            "\nDutGraphDump: Done.\n"
            "*************************************\n\n");
  DutGraphSetShortPath(g_, a);
  cbtest::dumpText().clear();
  DutGraphDump(g_, cbtest::dumpSink);
  EXPECT_NE(cbtest::dumpText().find("   Origin vertex  = |a|\n"), std::string::npos);
  EXPECT_NE(cbtest::dumpText().find("  path predecessor =  |a|\n  first hop = |b|\n"), std::string::npos);
}

}  // namespace
