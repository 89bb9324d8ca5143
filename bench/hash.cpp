// Hash tables against std::unordered_map and, when GLib is present,
// GHashTable: insertion, hit lookup, miss lookup and deletion of 10^6
// integer keys and of 10^6 string keys, each per iteration.
//
// Every table starts at its default size and grows as it fills. Keys are
// distinct random values (integers) or "k" followed by a random number
// (strings); string tables store the caller's pointers, as ours do, so no
// implementation copies a key. Lookups run in an order unrelated to the
// insertion order. Table building and destruction outside the measured
// operation run with the timer paused.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#ifdef VQ_HAVE_GLIB
#include <glib.h>
#endif

#include "vqutil/hash.h"

namespace {

constexpr size_t kCount = 1000000;

struct KeySet {
  std::vector<std::string> storage;  // string keys live here
  std::vector<D_WORD> present;       // insertion order
  std::vector<D_WORD> lookup;        // the present keys, reshuffled
  std::vector<D_WORD> absent;
};

const KeySet &IntKeys() {
  static const KeySet keys = [] {
    KeySet k;
    std::mt19937_64 rng(42);
    std::unordered_set<D_WORD> used;
    while (used.size() < 2 * kCount) {
      auto w = static_cast<D_WORD>(rng() & 0x7fffffff);
      if (w != 0) used.insert(w);
    }
    std::vector<D_WORD> all(used.begin(), used.end());
    std::shuffle(all.begin(), all.end(), rng);
    k.present.assign(all.begin(), all.begin() + kCount);
    k.absent.assign(all.begin() + kCount, all.end());
    k.lookup = k.present;
    std::shuffle(k.lookup.begin(), k.lookup.end(), rng);
    return k;
  }();
  return keys;
}

const KeySet &StringKeys() {
  static const KeySet keys = [] {
    KeySet k;
    std::mt19937_64 rng(43);
    std::unordered_set<std::string> used;
    while (used.size() < 2 * kCount) used.insert("k" + std::to_string(rng() % 100000000000ULL));
    k.storage.assign(used.begin(), used.end());
    std::shuffle(k.storage.begin(), k.storage.end(), rng);
    for (size_t i = 0; i < k.storage.size(); ++i) {
      auto w = reinterpret_cast<D_WORD>(k.storage[i].c_str());
      (i < kCount ? k.present : k.absent).push_back(w);
    }
    k.lookup = k.present;
    std::shuffle(k.lookup.begin(), k.lookup.end(), rng);
    return k;
  }();
  return keys;
}

// ---- The implementations, behind one shape ----------------------------------

struct VqTable {
  D_HASH_TABLE *t = nullptr;
  explicit VqTable(bool strings) { t = strings ? DutHashCreateStr(0) : DutHashCreateInt(0); }
  ~VqTable() { DutHashDestroy(t, nullptr, nullptr); }
  void Insert(D_WORD k, D_WORD v) { DutHashInsert(t, k, v); }
  D_WORD Find(D_WORD k) { return DutHashLookup(t, k); }
  void Erase(D_WORD k) { DutHashDelete(t, k); }
};

struct CStringHash {
  size_t operator()(D_WORD k) const {
    return std::hash<std::string_view>()(reinterpret_cast<const char *>(k));
  }
};
struct CStringEqual {
  bool operator()(D_WORD a, D_WORD b) const {
    return std::strcmp(reinterpret_cast<const char *>(a), reinterpret_cast<const char *>(b)) == 0;
  }
};

template <class Map>
struct StdTable {
  Map m;
  explicit StdTable(bool) {}
  void Insert(D_WORD k, D_WORD v) { m.emplace(k, v); }
  D_WORD Find(D_WORD k) {
    auto it = m.find(k);
    return it == m.end() ? 0 : it->second;
  }
  void Erase(D_WORD k) { m.erase(k); }
};
using StdIntTable = StdTable<std::unordered_map<D_WORD, D_WORD>>;
using StdStrTable = StdTable<std::unordered_map<D_WORD, D_WORD, CStringHash, CStringEqual>>;

#ifdef VQ_HAVE_GLIB
struct GlibTable {
  GHashTable *t;
  explicit GlibTable(bool strings)
      : t(strings ? g_hash_table_new(g_str_hash, g_str_equal)
                  : g_hash_table_new(g_direct_hash, g_direct_equal)) {}
  ~GlibTable() { g_hash_table_destroy(t); }
  void Insert(D_WORD k, D_WORD v) {
    g_hash_table_insert(t, reinterpret_cast<gpointer>(k), reinterpret_cast<gpointer>(v));
  }
  D_WORD Find(D_WORD k) {
    return reinterpret_cast<D_WORD>(g_hash_table_lookup(t, reinterpret_cast<gconstpointer>(k)));
  }
  void Erase(D_WORD k) { g_hash_table_remove(t, reinterpret_cast<gconstpointer>(k)); }
};
#endif

// ---- The four operations --------------------------------------------------------

template <class Table>
void Fill(Table &table, const KeySet &keys) {
  D_WORD v = 1;
  for (D_WORD k : keys.present) table.Insert(k, v++);
}

template <class Table, bool kStrings>
void BM_Insert(benchmark::State &state) {
  const KeySet &keys = kStrings ? StringKeys() : IntKeys();
  for (auto _ : state) {
    auto *table = new Table(kStrings);
    Fill(*table, keys);
    state.PauseTiming();
    delete table;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCount));
}

// How the keys spread over our chains: the mean length of the chain a probe
// lands in (the entries a search without any summary would walk, up to the
// hit), the longest chain and the share of empty chains. Other tables
// report nothing.
template <class Table>
void ChainCounters(benchmark::State &, const Table &, const std::vector<D_WORD> &) {}

void ChainCounters(benchmark::State &state, const VqTable &table, const std::vector<D_WORD> &probe) {
  const D_HASH_TABLE *t = table.t;
  auto length = [t](D_UINT4 index) {
    double n = 0;
    for (const D_HASH_BUCKET *b = t->buckets[index]; b != nullptr; b = b->next) ++n;
    return n;
  };
  double sum = 0;
  for (D_WORD k : probe) sum += length(t->hash_func(k) & t->mask);
  double longest = 0;
  double empty = 0;
  for (D_UINT4 i = 0; i < static_cast<D_UINT4>(t->size); ++i) {
    const double n = length(i);
    longest = std::max(longest, n);
    if (n == 0) ++empty;
  }
  state.counters["chain_probed"] = sum / static_cast<double>(probe.size());
  state.counters["chain_max"] = longest;
  state.counters["chains_empty"] = empty / t->size;
  state.counters["load"] = static_cast<double>(t->num_entries) / t->size;
}

template <class Table, bool kStrings, bool kHit>
void BM_Lookup(benchmark::State &state) {
  const KeySet &keys = kStrings ? StringKeys() : IntKeys();
  Table table(kStrings);
  Fill(table, keys);
  const std::vector<D_WORD> &probe = kHit ? keys.lookup : keys.absent;
  for (auto _ : state) {
    D_WORD sum = 0;
    for (D_WORD k : probe) sum += table.Find(k);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCount));
  ChainCounters(state, table, probe);
}

template <class Table, bool kStrings>
void BM_Delete(benchmark::State &state) {
  const KeySet &keys = kStrings ? StringKeys() : IntKeys();
  for (auto _ : state) {
    state.PauseTiming();
    auto *table = new Table(kStrings);
    Fill(*table, keys);
    state.ResumeTiming();
    for (D_WORD k : keys.lookup) table->Erase(k);
    state.PauseTiming();
    delete table;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kCount));
}

// Each operation runs for every implementation in turn, so that the
// figures compared with each other are taken close together in time.
#define VQ_HASH_OP(Bench, label, Table, name, ...) \
  BENCHMARK_TEMPLATE(Bench, Table, __VA_ARGS__)->Name(label name)->Unit(benchmark::kMillisecond)

#ifdef VQ_HAVE_GLIB
#define VQ_HASH_ALL(Bench, label, StdTable, ...)                 \
  VQ_HASH_OP(Bench, label, VqTable, "vqutil", __VA_ARGS__);      \
  VQ_HASH_OP(Bench, label, StdTable, "std::unordered_map", __VA_ARGS__); \
  VQ_HASH_OP(Bench, label, GlibTable, "GHashTable", __VA_ARGS__)
#else
#define VQ_HASH_ALL(Bench, label, StdTable, ...)            \
  VQ_HASH_OP(Bench, label, VqTable, "vqutil", __VA_ARGS__); \
  VQ_HASH_OP(Bench, label, StdTable, "std::unordered_map", __VA_ARGS__)
#endif

VQ_HASH_ALL(BM_Insert, "Insert/int/", StdIntTable, false);
VQ_HASH_ALL(BM_Lookup, "LookupHit/int/", StdIntTable, false, true);
VQ_HASH_ALL(BM_Lookup, "LookupMiss/int/", StdIntTable, false, false);
VQ_HASH_ALL(BM_Delete, "Delete/int/", StdIntTable, false);
VQ_HASH_ALL(BM_Insert, "Insert/str/", StdStrTable, true);
VQ_HASH_ALL(BM_Lookup, "LookupHit/str/", StdStrTable, true, true);
VQ_HASH_ALL(BM_Lookup, "LookupMiss/str/", StdStrTable, true, false);
VQ_HASH_ALL(BM_Delete, "Delete/str/", StdStrTable, true);

}  // namespace

BENCHMARK_MAIN();
