/**
 * @defgroup graph Graphs
 * Small directed graphs with fewest-hop paths and first-hop routing.
 *
 * Vertices are named by the caller's pointer (compared by identity, printed
 * as a string by the dump). Every edge costs 1. After DutGraphSetShortPath
 * from an origin, each reachable vertex knows the neighbour of the origin
 * through which it is reached (its first hop). Every structural change
 * forgets the computed paths: first hops must be recomputed before they
 * can be read again.
 *
 * Ownership: the caller owns the graph (DutGraphDestroy); the graph owns its
 * vertices and edges. Names and edge data stay the caller's.
 *
 * Change callbacks (type -105 "srv_graph_change", registered per graph)
 * receive a D_GRAPH_CHANGE record; removals are reported before the vertex
 * or edge is freed.
 *
 * Errors: null arguments D_ERR_NULL_PTR (3); a duplicate vertex or edge
 * D_ERR_ALREADY_EXISTS (6); an undirected removal of a one-way edge
 * D_ERR_VAL_INVALID (7); no computed paths or an empty graph
 * D_ERR_VAL_UNKNOWN (12).
 *
 * Thread safety: none; callers lock.
 * @{
 */
/**
 * @file
 * @ingroup graph
 * @brief Graphs (graph).
 */
#ifndef VQUTIL_GRAPH_H
#define VQUTIL_GRAPH_H

#include "callback.h"
#include "types.h"

/** Distance of a vertex the origin cannot reach. */
#define D_GRAPH_INFINITY 99999
/** The callback type number of graph change callbacks. */
#define D_GRAPH_CHANGE_CB_TYPE D_CB_TYPE_GRAPH_CHANGE

struct D_GRAPH_EDGE;

/** A vertex, with what the last path computation found for it. */
typedef struct D_GRAPH_VERTEX {
  struct D_GRAPH_VERTEX *prev; /**< previous vertex of the graph */
  struct D_GRAPH_VERTEX *next; /**< next vertex of the graph */
  const char *name;                        /**< the caller's key */
  D_INT4 distance;                         /**< hops from the origin */
  D_INT4 perm;                             /**< 1 once the distance is final */
  struct D_GRAPH_VERTEX *path_predecessor; /**< previous vertex on the path */
  struct D_GRAPH_VERTEX *first_hop;        /**< neighbour of the origin on the path */
  struct D_GRAPH_EDGE *first_edge;         /**< outgoing edges, newest first */
} D_GRAPH_VERTEX;

/** A directed edge, listed under its from vertex. */
typedef struct D_GRAPH_EDGE {
  struct D_GRAPH_EDGE *prev;      /**< previous edge of the from vertex */
  struct D_GRAPH_EDGE *next;      /**< next edge of the from vertex */
  D_WORD data;                    /**< the caller's value */
  D_INT4 weight;                  /**< always 1 */
  D_GRAPH_VERTEX *to;             /**< where the edge leads */
  D_GRAPH_VERTEX *from;           /**< where it starts */
  struct D_GRAPH_EDGE *back_edge; /**< the opposite edge of an undirected pair */
} D_GRAPH_EDGE;

/** A graph: its vertices and the origin of the computed paths. */
typedef struct D_GRAPH {
  D_GRAPH_VERTEX *first_vertex; /**< newest first */
  D_INT4 vertex_count;          /**< vertices now */
  D_INT4 vertex_add_count;      /**< vertices ever added */
  D_GRAPH_VERTEX *origin;       /**< null when no valid paths exist */
} D_GRAPH;

/** The data record of a graph change callback. */
typedef struct D_GRAPH_CHANGE {
  void *cb;               /**< reserved: the callback being called */
  D_INT4 add_flag;        /**< D_TRUE for an addition, D_FALSE for a removal */
  D_GRAPH_VERTEX *vertex; /**< the vertex concerned, or null */
  D_GRAPH_EDGE *edge;     /**< the edge concerned, or null */
} D_GRAPH_CHANGE;

#define D_GGR_VERTEX_COUNT(graph) ((graph)->vertex_count) /**< `vertex_count` field */
#define D_GGR_ORIGIN(graph) ((graph)->origin) /**< `origin` field */
#define D_GGV_NAME(vertex) ((vertex)->name) /**< `name` field */
#define D_GGV_DISTANCE(vertex) ((vertex)->distance) /**< `distance` field */
#define D_GGE_DATA(edge) ((edge)->data) /**< `data` field */
#define D_GGE_TO(edge) ((edge)->to) /**< `to` field */
#define D_GGE_FROM(edge) ((edge)->from) /**< `from` field */

D_BEGIN_DECLS

/** A new empty graph (allocation failure is fatal). */
D_EXPORT D_GRAPH *DutGraphCreate(void);
/** Removes every vertex, clears the graph's change callbacks, frees it. */
D_EXPORT D_BOOL DutGraphDestroy(D_GRAPH *graph);

/** Adds a vertex named by the caller's pointer; a name already present:
 * D_ERR_ALREADY_EXISTS, null; a null graph or name: D_ERR_NULL_PTR, null. */
D_EXPORT D_GRAPH_VERTEX *DutGraphVertexAdd(D_GRAPH *graph, const char *name);
/** Removes the vertex with its outgoing edges (and their back edges) and
 * every edge that points at it. */
D_EXPORT D_BOOL DutGraphVertexRemove(D_GRAPH *graph, D_GRAPH_VERTEX *vertex);
/** The vertex whose name is this very pointer, or null (a null graph or
 * name: D_ERR_NULL_PTR). */
D_EXPORT D_GRAPH_VERTEX *DutGraphVertexLookup(D_GRAPH *graph, const char *name);
/** @{ */
/** Walk the vertices, newest first; null after the last. */
D_EXPORT D_GRAPH_VERTEX *DutGraphVertexGetFirst(D_GRAPH *graph);
D_EXPORT D_GRAPH_VERTEX *DutGraphVertexGetNext(D_GRAPH_VERTEX *vertex);
/** @} */

/** Adds the edge from -> to carrying data; an edge already there:
 * D_ERR_ALREADY_EXISTS, null. */
D_EXPORT D_GRAPH_EDGE *DutGraphEdgeAdd(D_GRAPH *graph, D_GRAPH_VERTEX *from, D_GRAPH_VERTEX *to, D_WORD data);
/** a->b and b->a linked as each other's back edge; returns a->b. */
D_EXPORT D_GRAPH_EDGE *DutGraphEdgeUndirectedAdd(D_GRAPH *graph, D_GRAPH_VERTEX *a, D_GRAPH_VERTEX *b,
                                                 D_WORD data_ab, D_WORD data_ba);
/** Removes one edge; its partner's back_edge is left as it was. */
D_EXPORT D_BOOL DutGraphEdgeRemove(D_GRAPH *graph, D_GRAPH_EDGE *edge);
/** Removes the edge and its back edge; an edge without one:
 * D_ERR_VAL_INVALID, D_FALSE. */
D_EXPORT D_BOOL DutGraphEdgeUndirectedRemove(D_GRAPH *graph, D_GRAPH_EDGE *edge);
/** The edge from -> to, or null. */
D_EXPORT D_GRAPH_EDGE *DutGraphEdgeLookup(D_GRAPH *graph, D_GRAPH_VERTEX *from, D_GRAPH_VERTEX *to);
/** @{ */
/** Walk the outgoing edges of a vertex, newest first; null after the last. */
D_EXPORT D_GRAPH_EDGE *DutGraphEdgeGetFirst(D_GRAPH_VERTEX *vertex);
D_EXPORT D_GRAPH_EDGE *DutGraphEdgeGetNext(D_GRAPH_EDGE *edge);
/** @} */

/** Fewest-hop paths from origin: distance, perm, path_predecessor and
 * first_hop of every vertex. Of two vertices at equal distance the one
 * added first is settled first, and so becomes the predecessor of what both
 * reach. Time O(V + E + V log V). Should a host change an edge's weight,
 * the paths follow the weights (a negative one counts as 0) with the same
 * tie rule. A one-vertex graph has no readable first hops afterwards (the
 * origin is reset); an empty graph fails with 12. */
D_EXPORT D_BOOL DutGraphSetShortPath(D_GRAPH *graph, D_GRAPH_VERTEX *origin);
/** The vertex's first hop (null for the origin and unreachable vertices);
 * D_ERR_VAL_UNKNOWN when no paths are computed. */
D_EXPORT D_GRAPH_VERTEX *DutGraphGetFirstHopVertex(D_GRAPH *graph, D_GRAPH_VERTEX *vertex);

/** A change callback for this graph; null func: D_ERR_NULL_PTR, null. */
D_EXPORT D_CB *DutGraphChangeCbCreate(D_GRAPH *graph, D_CB_FUNC func, D_WORD arg);
/** The graph's change callback (func, arg), or null (D_ERR_DOESNT_EXIST
 * when no graph ever had one). */
D_EXPORT D_CB *DutGraphChangeCbLookup(D_GRAPH *graph, D_CB_FUNC func, D_WORD arg);

/** Prints the graph, its vertices and their edges through output. */
D_EXPORT D_BOOL DutGraphDump(D_GRAPH *graph, D_PRINT_FUNC output);

D_END_DECLS

/** @} */
#endif /* VQUTIL_GRAPH_H */
