// Lobes: per-object attribute values kept outside the objects' records.
#include "vqutil/lobe.h"

#include <cstring>

#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "lobe.c";
constexpr D_INT4 kInitialTableSize = 10;

// Never destroyed: lobes live for the life of the process.
D_HASH_TABLE *utLobeTable = nullptr;

inline D_WORD objectKey(void *object) { return reinterpret_cast<D_WORD>(object); }

// A value or buffer the copy would read or write must be there; a zero-size
// lobe copies nothing and takes anything.
bool missing(const D_LOBE *lobe, const void *p) {
  if (p != nullptr || lobe->size == 0) return false;
  DutErrNumSet(D_ERR_NULL_PTR);
  return true;
}

D_LOBE *declare(D_UINT4 key, D_INT4 size) {
  DutProcessMutexLock();
  if (utLobeTable == nullptr) utLobeTable = DutHashCreateInt(kInitialTableSize);
  D_WORD key_word = static_cast<D_WORD>(key);
  D_HASH_BUCKET *bucket = DutHashLookupBucket(utLobeTable, key_word);
  D_LOBE *lobe = nullptr;
  if (bucket != nullptr) {
    lobe = reinterpret_cast<D_LOBE *>(DutHashBucketGetValue(bucket));
  } else {
    lobe = static_cast<D_LOBE *>(DutMallocCheck(sizeof(D_LOBE), "lobe", kFile, __LINE__));
    lobe->key = key;
    lobe->values = DutHashCreatePtr(kInitialTableSize);
    lobe->size = size;
    DutHashInsert(utLobeTable, key_word, reinterpret_cast<D_WORD>(lobe));
  }
  DutProcessMutexUnlock();
  return lobe;
}

void *storeNew(void *object, D_LOBE *lobe, const void *value) {
  void *block = nullptr;
  if (lobe->size < 0) {
    std::size_t n = std::strlen(static_cast<const char *>(value)) + 1;
    block = DutMallocCheck(static_cast<D_INT4>(n), "(value_ptr)", kFile, __LINE__);
    std::memcpy(block, value, n);
  } else {
    block = DutMallocCheck(lobe->size, "value_ptr", kFile, __LINE__);
    if (lobe->size > 0) std::memcpy(block, value, static_cast<std::size_t>(lobe->size));
  }
  DutHashInsert(lobe->values, objectKey(object), reinterpret_cast<D_WORD>(block));
  return block;
}

}  // namespace

extern "C" {

D_EXPORT D_LOBE *DutLobeDeclare(D_UINT4 key, D_INT4 size) { return declare(key, size); }

D_EXPORT D_LOBE *DutLobeStringDeclare(D_UINT4 key) { return declare(key, D_LOBE_STRING_SIZE); }

D_EXPORT D_LOBE *DutLobeLookup(D_UINT4 key) {
  DutProcessMutexLock();
  D_LOBE *lobe = nullptr;
  if (utLobeTable != nullptr) {
    D_HASH_BUCKET *bucket = DutHashLookupBucket(utLobeTable, static_cast<D_WORD>(key));
    if (bucket != nullptr) lobe = reinterpret_cast<D_LOBE *>(DutHashBucketGetValue(bucket));
  }
  DutProcessMutexUnlock();
  return lobe;
}

D_EXPORT D_HASH_TABLE *DutLobeTable(void) { return utLobeTable; }

D_EXPORT D_INT4 DutLobeGetSize(D_LOBE *lobe) { return lobe == nullptr ? 0 : lobe->size; }

D_EXPORT void *DutLobeFindValue(void *object, D_LOBE *lobe) {
  if (lobe == nullptr) return nullptr;
  D_HASH_BUCKET *bucket = DutHashLookupBucket(lobe->values, objectKey(object));
  return bucket == nullptr ? nullptr : reinterpret_cast<void *>(DutHashBucketGetValue(bucket));
}

D_EXPORT D_BOOL DutLobeSet(void *object, D_LOBE *lobe, const void *value) {
  if (lobe == nullptr || missing(lobe, value)) return D_FALSE;
  void *stored = DutLobeFindValue(object, lobe);
  if (stored == nullptr) {
    storeNew(object, lobe, value);
    return D_TRUE;
  }
  if (lobe->size < 0) {
    char *copy = static_cast<char *>(stored);
    DutStringCopy(&copy, static_cast<const char *>(value));
    DutHashReplace(lobe->values, objectKey(object), reinterpret_cast<D_WORD>(copy));
  } else if (lobe->size > 0) {
    std::memmove(stored, value, static_cast<std::size_t>(lobe->size));
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutLobeCheckSet(void *object, D_LOBE *lobe, const void *value) {
  if (lobe == nullptr || missing(lobe, value)) return D_FALSE;
  if (DutLobeFindValue(object, lobe) != nullptr) return D_FALSE;
  storeNew(object, lobe, value);
  return D_TRUE;
}

D_EXPORT D_BOOL DutLobeGet(void *object, D_LOBE *lobe, void *buffer) {
  void *stored = DutLobeFindValue(object, lobe);
  if (stored == nullptr || missing(lobe, buffer)) return D_FALSE;
  if (lobe->size < 0) {
    std::strcpy(static_cast<char *>(buffer), static_cast<const char *>(stored));
  } else if (lobe->size > 0) {
    std::memcpy(buffer, stored, static_cast<std::size_t>(lobe->size));
  }
  return D_TRUE;
}

D_EXPORT D_INT4 DutLobeDelete(void *object, D_LOBE *lobe) {
  void *old_value = DutLobeFindValue(object, lobe);
  if (old_value != nullptr) {
    DutHashDelete(lobe->values, objectKey(object));
    DutFreeCheck(old_value, "old_value", kFile, __LINE__);
  }
  return 0;
}

namespace {
D_WORD clearOne(D_WORD, D_WORD value, void *object) {
  auto *lobe = reinterpret_cast<D_LOBE *>(value);
  D_HASH_BUCKET *bucket = DutHashLookupBucket(lobe->values, objectKey(object));
  if (bucket != nullptr) {
    void *datap = reinterpret_cast<void *>(DutHashBucketGetValue(bucket));
    DutHashDelete(lobe->values, objectKey(object));
    DutFreeCheck(datap, "datap", kFile, __LINE__);
  }
  return 0;  // never stops early
}
}  // namespace

D_EXPORT void DutLobeClear(void *object) {
  if (object == nullptr) return;
  DutProcessMutexLock();
  if (utLobeTable != nullptr) DutHashTraverse(utLobeTable, clearOne, object);
  DutProcessMutexUnlock();
}

D_EXPORT D_WORD DutLobeTraverse(D_LOBE *lobe, D_HASH_TRAV_FUNC func, void *arg) {
  DutProcessMutexLock();
  bool any = utLobeTable != nullptr;
  DutProcessMutexUnlock();
  if (!any) return 0;
  VQ_ASSERT(lobe != nullptr, "lobe", kFile);
  return DutHashTraverse(lobe->values, func, arg);
}

}  // extern "C"
