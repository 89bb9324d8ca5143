// Shared helpers of the hash-table tests: a table owned for a test's
// length and chain inspection.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vqutil/hash.h"

namespace hashtest {

struct Destroy {
  void operator()(D_HASH_TABLE *table) const { DutHashDestroy(table, nullptr, nullptr); }
};

// Owns a table for a test's length, and passes for the table itself.
struct Table : std::unique_ptr<D_HASH_TABLE, Destroy> {
  using unique_ptr::unique_ptr;
  operator D_HASH_TABLE *() const { return get(); }
};

// Equality of words, for tables made with caller-supplied functions.
inline D_INT4 SameWord(D_WORD a, D_WORD b) { return a == b; }

// Keys of one chain, head first.
inline std::vector<D_WORD> ChainKeys(const D_HASH_TABLE *table, D_INT4 index) {
  std::vector<D_WORD> keys;
  for (const D_HASH_BUCKET *b = table->buckets[index]; b != nullptr; b = b->next) keys.push_back(b->key);
  return keys;
}

// Every chain of a table, for comparing two tables' layouts.
inline std::vector<std::vector<D_WORD>> Layout(const D_HASH_TABLE *table) {
  std::vector<std::vector<D_WORD>> chains;
  for (D_INT4 i = 0; i < table->size; ++i) chains.push_back(ChainKeys(table, i));
  return chains;
}

inline D_WORD Word(const char *text) { return reinterpret_cast<D_WORD>(text); }

}  // namespace hashtest
