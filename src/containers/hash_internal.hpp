// Lookups for the library's own tables on hot paths (command dispatch,
// option lookup): the same search as DutHashLookupBucket, without touching
// the caller's error number, since a miss there is an answer, not an error.
#pragma once

#include "vqutil/hash.h"

namespace vq::hash {

// The bucket holding key, or null when the table is null or has no such key.
D_HASH_BUCKET *find(D_HASH_TABLE *table, D_WORD key);

}  // namespace vq::hash
