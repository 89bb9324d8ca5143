// Directed graphs with unit-weight shortest paths and first-hop routing.
#include "vqutil/graph.h"

#include <algorithm>
#include <cstdint>
#include <queue>
#include <vector>

#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"

namespace {

constexpr const char *kFile = "utgraph.c";
constexpr const char *kChangeTypeName = "srv_graph_change";

bool nullArg(const void *p) {
  if (p != nullptr) return false;
  DutErrNumSet(D_ERR_NULL_PTR);
  return true;
}

void raiseChange(D_GRAPH *graph, D_INT4 add_flag, D_GRAPH_VERTEX *vertex, D_GRAPH_EDGE *edge) {
  VQ_ASSERT(graph != nullptr, "D_NULL != graph", kFile);
  VQ_ASSERT(add_flag == D_TRUE || add_flag == D_FALSE, "D_IS_BOOLEAN(add_flag)", kFile);
  VQ_ASSERT(vertex == nullptr || edge == nullptr, "D_NULL == vertex || D_NULL == edge", kFile);
  VQ_ASSERT(vertex != nullptr || edge != nullptr, "D_NULL != vertex || D_NULL != edge", kFile);
  D_CB_TYPE *type = DutCbTypeNumLookup(D_GRAPH_CHANGE_CB_TYPE);
  if (type == nullptr) return;
  D_GRAPH_CHANGE change{nullptr, add_flag, vertex, edge};
  DutCbTypeCall(type, graph, &change);
}

void unlinkEdge(D_GRAPH_EDGE *edge) {
  D_GRAPH_VERTEX *from = edge->from;
  if (edge->prev != nullptr)
    edge->prev->next = edge->next;
  else
    from->first_edge = edge->next;
  if (edge->next != nullptr) edge->next->prev = edge->prev;
}

const char *nameOf(const D_GRAPH_VERTEX *v) { return v->name != nullptr ? v->name : "(null)"; }

// ---- Shortest paths ---------------------------------------------------------
//
// The next vertex to become permanent is the one of least distance, ties
// going to the vertex added first (the later one in the list). Rather than
// scanning the list for it each time, the searches below visit vertices in
// exactly that order: with unit weights, level by level, each level sorted
// oldest first; with other weights, from a heap with the same ordering.
// Both relax edges in list order with a strict comparison, so distances,
// predecessors and first hops come out as a scan would leave them.

// A vertex as the graph allocates it: the record callers see, the graph it
// was added to (an edge may lead into another graph, whose vertices are
// relaxed but never visited), and its place in the list during a search.
struct VertexRecord {
  D_GRAPH_VERTEX vertex;
  D_GRAPH *graph;
  D_INT4 position;  // from the head: the larger, the older
};

inline VertexRecord *recordOf(D_GRAPH_VERTEX *v) { return reinterpret_cast<VertexRecord *>(v); }

// Every vertex of the graph unreached. `perm` starts as the search to come
// needs it: the unit-weight search never reads it and chooses every vertex
// in the end, so it starts at 1 there.
void resetVertices(D_GRAPH *graph, D_GRAPH_VERTEX *origin, D_INT4 perm) {
  D_INT4 position = 0;
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    v->distance = D_GRAPH_INFINITY;
    v->perm = perm;
    v->path_predecessor = nullptr;
    v->first_hop = nullptr;
    recordOf(v)->position = position++;
  }
  origin->distance = 0;
  origin->perm = 1;
}

// A vertex's predecessor is final, and was visited before it.
inline void setFirstHop(D_GRAPH_VERTEX *v, const D_GRAPH_VERTEX *origin) {
  v->first_hop = v->path_predecessor == origin ? v : v->path_predecessor->first_hop;
}

// Unit weights; false at the first edge of another weight. Up to that edge
// this search has visited and relaxed exactly as the weighted one would, so
// what it changed outside the graph is what a restart changes there again.
bool searchLevels(D_GRAPH *graph, D_GRAPH_VERTEX *origin) {
  struct Visit {
    D_INT4 position;
    D_GRAPH_VERTEX *vertex;
  };
  std::vector<Visit> visits;
  visits.reserve(static_cast<std::size_t>(graph->vertex_count) + 1);
  visits.push_back({0, origin});
  std::size_t level = 0;
  while (level < visits.size()) {
    const std::size_t next_level = visits.size();
    for (std::size_t i = level; i < next_level; ++i) {
      D_GRAPH_VERTEX *current = visits[i].vertex;
      for (D_GRAPH_EDGE *e = current->first_edge; e != nullptr; e = e->next) {
        if (e->weight != 1) return false;
        D_GRAPH_VERTEX *to = e->to;
        // Only a first reach is shorter: later ones come from the same or
        // a later level. Distances stop short of the infinity mark.
        if (current->distance + 1 >= to->distance) continue;
        to->distance = current->distance + 1;
        to->path_predecessor = current;
        if (recordOf(to)->graph != graph) continue;
        setFirstHop(to, origin);
        visits.push_back({recordOf(to)->position, to});
      }
    }
    std::sort(visits.begin() + static_cast<std::ptrdiff_t>(next_level), visits.end(),
              [](const Visit &a, const Visit &b) { return a.position > b.position; });
    level = next_level;
  }
  return true;
}

// Any non-negative weights (the library itself only makes weight 1; a
// negative weight counts as 0).
void searchWeighted(D_GRAPH *graph, D_GRAPH_VERTEX *origin) {
  struct Entry {
    std::int64_t distance;
    D_INT4 position;
    D_GRAPH_VERTEX *vertex;
  };
  auto later = [](const Entry &a, const Entry &b) {
    return a.distance != b.distance ? a.distance > b.distance : a.position < b.position;
  };
  std::priority_queue<Entry, std::vector<Entry>, decltype(later)> heap(later);
  for (D_GRAPH_VERTEX *current = origin;;) {
    for (D_GRAPH_EDGE *e = current->first_edge; e != nullptr; e = e->next) {
      D_GRAPH_VERTEX *to = e->to;
      std::int64_t reach = std::int64_t{current->distance} + std::max<D_INT4>(e->weight, 0);
      if (reach >= to->distance) continue;
      to->distance = static_cast<D_INT4>(reach);
      to->path_predecessor = current;
      if (reach != 0 && recordOf(to)->graph == graph) heap.push({reach, recordOf(to)->position, to});
    }
    current = nullptr;
    while (current == nullptr && !heap.empty()) {
      Entry top = heap.top();
      heap.pop();
      // Entries left behind by a later, shorter reach are skipped.
      if (!top.vertex->perm && top.vertex->distance == top.distance) current = top.vertex;
    }
    if (current == nullptr) break;
    current->perm = 1;
    setFirstHop(current, origin);
  }
  // The unreachable vertices are chosen last, to no effect. A vertex that
  // zero weights put at distance 0 is never chosen (only the origin may be
  // at 0): it stays temporary, its edges unfollowed, its first hop itself.
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    if (v->distance != 0) {
      v->perm = 1;
    } else if (v != origin) {
      v->first_hop = v;
    }
  }
}

}  // namespace

extern "C" {

D_EXPORT D_GRAPH *DutGraphCreate(void) {
  return static_cast<D_GRAPH *>(DutCallocCheck(sizeof(D_GRAPH), "graph", kFile, __LINE__));
}

D_EXPORT D_BOOL DutGraphDestroy(D_GRAPH *graph) {
  if (nullArg(graph)) return D_FALSE;
  D_BOOL result = D_TRUE;
  while (graph->first_vertex != nullptr) {
    if (!DutGraphVertexRemove(graph, graph->first_vertex)) result = D_FALSE;
  }
  DutCbTypeNumObjClear(D_GRAPH_CHANGE_CB_TYPE, graph);
  DutFreeCheck(graph, "graph", kFile, __LINE__);
  return result;
}

D_EXPORT D_GRAPH_VERTEX *DutGraphVertexAdd(D_GRAPH *graph, const char *name) {
  if (nullArg(graph) || nullArg(name)) return nullptr;
  if (DutGraphVertexLookup(graph, name) != nullptr) {
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return nullptr;
  }
  auto *record = static_cast<VertexRecord *>(DutCallocCheck(sizeof(VertexRecord), "vertex", kFile, __LINE__));
  record->graph = graph;
  D_GRAPH_VERTEX *vertex = &record->vertex;
  vertex->name = name;
  vertex->distance = D_GRAPH_INFINITY;
  vertex->next = graph->first_vertex;
  if (graph->first_vertex != nullptr) graph->first_vertex->prev = vertex;
  graph->first_vertex = vertex;
  ++graph->vertex_count;
  ++graph->vertex_add_count;
  graph->origin = nullptr;
  raiseChange(graph, D_TRUE, vertex, nullptr);
  return vertex;
}

D_EXPORT D_BOOL DutGraphVertexRemove(D_GRAPH *graph, D_GRAPH_VERTEX *vertex) {
  if (nullArg(graph) || nullArg(vertex)) return D_FALSE;
  D_BOOL result = D_TRUE;
  graph->origin = nullptr;
  while (vertex->first_edge != nullptr) {
    D_GRAPH_EDGE *edge = vertex->first_edge;
    if (edge->back_edge != nullptr && !DutGraphEdgeRemove(graph, edge->back_edge)) result = D_FALSE;
    if (!DutGraphEdgeRemove(graph, edge)) result = D_FALSE;
  }
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    v->path_predecessor = nullptr;
    v->first_hop = nullptr;
    for (D_GRAPH_EDGE *e = v->first_edge; e != nullptr; e = e->next) {
      if (e->to != vertex) continue;
      VQ_EXPECT(e->back_edge == nullptr, "D_NULL == edge->back_edge", kFile);
      if (!DutGraphEdgeRemove(graph, e)) result = D_FALSE;
      break;
    }
  }
  if (vertex->prev != nullptr)
    vertex->prev->next = vertex->next;
  else
    graph->first_vertex = vertex->next;
  if (vertex->next != nullptr) vertex->next->prev = vertex->prev;
  raiseChange(graph, D_FALSE, vertex, nullptr);
  DutFreeCheck(vertex, "vertex", kFile, __LINE__);
  --graph->vertex_count;
  return result;
}

D_EXPORT D_GRAPH_VERTEX *DutGraphVertexLookup(D_GRAPH *graph, const char *name) {
  if (nullArg(graph) || nullArg(name)) return nullptr;
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    if (v->name == name) return v;
  }
  return nullptr;
}

D_EXPORT D_GRAPH_VERTEX *DutGraphVertexGetFirst(D_GRAPH *graph) {
  if (nullArg(graph)) return nullptr;
  return graph->first_vertex;
}

D_EXPORT D_GRAPH_VERTEX *DutGraphVertexGetNext(D_GRAPH_VERTEX *vertex) {
  if (nullArg(vertex)) return nullptr;
  return vertex->next;
}

D_EXPORT D_GRAPH_EDGE *DutGraphEdgeAdd(D_GRAPH *graph, D_GRAPH_VERTEX *from, D_GRAPH_VERTEX *to, D_WORD data) {
  if (nullArg(graph) || nullArg(from) || nullArg(to)) return nullptr;
  if (DutGraphEdgeLookup(graph, from, to) != nullptr) {
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return nullptr;
  }
  auto *edge = static_cast<D_GRAPH_EDGE *>(DutCallocCheck(sizeof(D_GRAPH_EDGE), "edge", kFile, __LINE__));
  edge->data = data;
  edge->weight = 1;
  edge->to = to;
  edge->from = from;
  edge->next = from->first_edge;
  if (from->first_edge != nullptr) from->first_edge->prev = edge;
  from->first_edge = edge;
  graph->origin = nullptr;
  raiseChange(graph, D_TRUE, nullptr, edge);
  return edge;
}

D_EXPORT D_GRAPH_EDGE *DutGraphEdgeUndirectedAdd(D_GRAPH *graph, D_GRAPH_VERTEX *a, D_GRAPH_VERTEX *b,
                                                 D_WORD data_ab, D_WORD data_ba) {
  D_GRAPH_EDGE *ab = DutGraphEdgeAdd(graph, a, b, data_ab);
  if (ab == nullptr) return nullptr;
  D_GRAPH_EDGE *ba = DutGraphEdgeAdd(graph, b, a, data_ba);
  if (ba == nullptr) {
    D_INT4 cause = DutErrNumGet();
    DutGraphEdgeRemove(graph, ab);
    DutErrNumSet(cause);
    return nullptr;
  }
  ab->back_edge = ba;
  ba->back_edge = ab;
  return ab;
}

D_EXPORT D_BOOL DutGraphEdgeRemove(D_GRAPH *graph, D_GRAPH_EDGE *edge) {
  if (nullArg(graph) || nullArg(edge)) return D_FALSE;
  unlinkEdge(edge);
  graph->origin = nullptr;
  raiseChange(graph, D_FALSE, nullptr, edge);
  DutFreeCheck(edge, "edge", kFile, __LINE__);
  return D_TRUE;
}

D_EXPORT D_BOOL DutGraphEdgeUndirectedRemove(D_GRAPH *graph, D_GRAPH_EDGE *edge) {
  if (nullArg(graph) || nullArg(edge)) return D_FALSE;
  if (edge->back_edge == nullptr) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  D_BOOL first = DutGraphEdgeRemove(graph, edge->back_edge);
  D_BOOL second = DutGraphEdgeRemove(graph, edge);
  return (first && second) ? D_TRUE : D_FALSE;
}

D_EXPORT D_GRAPH_EDGE *DutGraphEdgeLookup(D_GRAPH *graph, D_GRAPH_VERTEX *from, D_GRAPH_VERTEX *to) {
  if (nullArg(graph) || nullArg(from) || nullArg(to)) return nullptr;
  for (D_GRAPH_EDGE *e = from->first_edge; e != nullptr; e = e->next) {
    if (e->to == to) return e;
  }
  return nullptr;
}

D_EXPORT D_GRAPH_EDGE *DutGraphEdgeGetFirst(D_GRAPH_VERTEX *vertex) {
  if (nullArg(vertex)) return nullptr;
  return vertex->first_edge;
}

D_EXPORT D_GRAPH_EDGE *DutGraphEdgeGetNext(D_GRAPH_EDGE *edge) {
  if (nullArg(edge)) return nullptr;
  return edge->next;
}

D_EXPORT D_BOOL DutGraphSetShortPath(D_GRAPH *graph, D_GRAPH_VERTEX *origin) {
  if (nullArg(graph) || nullArg(origin)) return D_FALSE;
  if (graph->vertex_count == 0) {
    DutErrNumSet(D_ERR_VAL_UNKNOWN);
    return D_FALSE;
  }
  if (graph->vertex_count == 1) {
    // Deliberately no readable first hops in a one-vertex graph.
    graph->origin = nullptr;
    return D_TRUE;
  }
  graph->origin = origin;
  resetVertices(graph, origin, 1);
  if (searchLevels(graph, origin)) return D_TRUE;
  resetVertices(graph, origin, 0);
  searchWeighted(graph, origin);
  return D_TRUE;
}

D_EXPORT D_GRAPH_VERTEX *DutGraphGetFirstHopVertex(D_GRAPH *graph, D_GRAPH_VERTEX *vertex) {
  if (nullArg(graph) || nullArg(vertex)) return nullptr;
  if (graph->origin == nullptr) {
    DutErrNumSet(D_ERR_VAL_UNKNOWN);
    return nullptr;
  }
  return vertex->first_hop;
}

D_EXPORT D_CB *DutGraphChangeCbCreate(D_GRAPH *graph, D_CB_FUNC func, D_WORD arg) {
  if (nullArg(graph) || nullArg(reinterpret_cast<void *>(func))) return nullptr;
  D_CB_TYPE *cb_type = DutCbTypeNumLookup(D_GRAPH_CHANGE_CB_TYPE);
  if (cb_type == nullptr) {
    cb_type = DutCbTypeCreate(D_GRAPH_CHANGE_CB_TYPE, kChangeTypeName);
    VQ_ASSERT(cb_type != nullptr, "D_NULL != cb_type", kFile);
    // Callbacks belong to one graph each.
    D_BOOL status = DutCbTypeSetGlobFlag(cb_type, D_CB_NO_GLOBALS);
    VQ_ASSERT(status == D_TRUE, "D_TRUE == status", kFile);
  }
  return DutCbTypeCbCreate(cb_type, graph, func, arg);
}

D_EXPORT D_CB *DutGraphChangeCbLookup(D_GRAPH *graph, D_CB_FUNC func, D_WORD arg) {
  if (nullArg(graph) || nullArg(reinterpret_cast<void *>(func))) return nullptr;
  D_CB_TYPE *cb_type = DutCbTypeNumLookup(D_GRAPH_CHANGE_CB_TYPE);
  if (cb_type == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  return DutCbTypeCbLookup(cb_type, graph, func, arg);
}

D_EXPORT D_BOOL DutGraphDump(D_GRAPH *graph, D_PRINT_FUNC output) {
  if (nullArg(graph) || nullArg(reinterpret_cast<void *>(output))) return D_FALSE;
  output("*************************************\n");
  output("DutGraphDump: Dumping graph\n");
  output("   Vertex count = %ld \n", static_cast<long>(graph->vertex_count));
  output("   Vertex add count = %ld \n", static_cast<long>(graph->vertex_add_count));
  if (graph->origin != nullptr)
    output("   Origin vertex  = |%s|\n", nameOf(graph->origin));
  else
    output("   Origin vertex  = %lx \n", 0UL);
  output("*************************************\n");
  for (D_GRAPH_VERTEX *v = graph->first_vertex; v != nullptr; v = v->next) {
    output("\n*** Vertex |%s| *** \n", nameOf(v));
    output("  distance = %ld \n", static_cast<long>(v->distance));
    output("  perm = %ld \n", static_cast<long>(v->perm));
    if (v->path_predecessor != nullptr)
      output("  path predecessor =  |%s|\n", nameOf(v->path_predecessor));
    else
      output("  path_predecessor = %lx \n", 0UL);
    if (v->first_hop != nullptr)
      output("  first hop = |%s|\n", nameOf(v->first_hop));
    else
      output("  first hop = %lx \n", 0UL);
    for (D_GRAPH_EDGE *e = v->first_edge; e != nullptr; e = e->next) {
      output("  ** edge <%s,%s>  ", nameOf(e->from), nameOf(e->to));
      output("  weight = %ld \n", static_cast<long>(e->weight));
    }
  }
  output("\nDutGraphDump: Done.\n");
  output("*************************************\n\n");
  return D_TRUE;
}

}  // extern "C"
