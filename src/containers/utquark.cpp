// Quarks: two process-wide hash tables created together on first use, one
// from the library's copy of each string (case ignored) to its quark, one
// from quark to copy, and the last quark given out. All three change only
// under the process-wide lock.
#include <cstring>

#include "frame/check.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/memory.h"
#include "vqutil/quark.h"

namespace {

constexpr const char *kFile = "utquark.c";

D_HASH_TABLE *utQuarkStrTable = nullptr;
D_HASH_TABLE *utQuarkIntTable = nullptr;
D_QUARK utQuarkLast = 0;

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutStrToQuark(const char *str, D_QUARK *quark) {
  if (str == nullptr || quark == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  D_QUARK result = 0;
  {
    vq::ProcessLock lock;
    if (utQuarkStrTable == nullptr) {
      utQuarkStrTable = DutHashCreateStri(4);
      VQ_ASSERT(utQuarkIntTable == nullptr, "D_NULL == utQuarkIntTable", kFile);
      utQuarkIntTable = DutHashCreateInt(4);
    }
    // A miss is the normal way to a new quark; it must not leave the
    // table's "doesn't exist" in the caller's error number.
    const D_INT4 saved_err = DutErrNumGet();
    const D_WORD found = DutHashLookup(utQuarkStrTable, reinterpret_cast<D_WORD>(str));
    DutErrNumSet(saved_err);
    if (found != 0) {
      result = static_cast<D_QUARK>(found);
    } else {
      result = ++utQuarkLast;
      const std::size_t len = std::strlen(str);
      auto *str_copy = static_cast<char *>(
          DutMallocCheck(static_cast<D_INT4>(len + 1), "(str_copy)", kFile, __LINE__));
      std::memcpy(str_copy, str, len + 1);
      DutHashInsert(utQuarkStrTable, reinterpret_cast<D_WORD>(str_copy),
                    static_cast<D_WORD>(result));
      DutHashInsert(utQuarkIntTable, static_cast<D_WORD>(result),
                    reinterpret_cast<D_WORD>(str_copy));
    }
  }
  *quark = result;
  return D_TRUE;
}

D_EXPORT D_BOOL DutQuarkToStr(D_QUARK quark, const char **str) {
  if (quark < 1) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  if (str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  D_WORD copy = 0;
  {
    vq::ProcessLock lock;
    if (utQuarkStrTable == nullptr) {
      VQ_ASSERT(utQuarkIntTable == nullptr, "D_NULL == utQuarkIntTable", kFile);
    } else {
      copy = DutHashLookup(utQuarkIntTable, static_cast<D_WORD>(quark));
    }
  }
  if (copy == 0) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  *str = reinterpret_cast<const char *>(copy);
  return D_TRUE;
}

D_EXPORT D_BOOL DutQuarkTablePrint(D_PRINT_FUNC output) {
  if (output == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  output("Printing quark table.\n");
  vq::ProcessLock lock;
  if (utQuarkStrTable == nullptr) {
    output("  quark tables do not exist.\n");
    VQ_ASSERT(utQuarkIntTable == nullptr, "D_NULL == utQuarkIntTable", kFile);
    return D_TRUE;
  }
  for (D_INT4 index = 0; index < utQuarkStrTable->size; ++index) {
    for (D_HASH_BUCKET *bucket = utQuarkStrTable->buckets[index]; bucket != nullptr;
         bucket = bucket->next) {
      VQ_ASSERT(bucket != nullptr, "D_NULL != bucket", kFile);
      output("  quark %ld = string <%s>\n", static_cast<long>(bucket->value),
             reinterpret_cast<const char *>(bucket->key));
    }
  }
  return D_TRUE;
}

}  // extern "C"
