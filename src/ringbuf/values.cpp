// Ring-buffer values by type, the trace, time arithmetic and the logical
// view of a buffer's entries.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

#include "frame/check.hpp"
#include "ringbuf/ring_internal.hpp"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"

namespace vq::ring {

std::atomic<bool> utRingTimeKnown{false};

bool timeKnownLocked() {
  D_TIME_VALUE now;
  if (!currentTime(&now)) return false;
  utRingTimeKnown.store(true, std::memory_order_relaxed);
  return true;
}

bool checkedTimes(std::initializer_list<const D_TIME_VALUE *> times) {
  for (const D_TIME_VALUE *t : times) {
    if (t == nullptr) return fail(D_ERR_NULL_PTR, false);
    if (!validTime(*t)) return fail(D_ERR_VAL_INVALID, false);
  }
  return true;
}

// ---- Trace ----------------------------------------------------------------

namespace {

// Printing leaves the caller's error values as they were.
void header() {
  D_ERR_SAVE saved;
  DutErrNumSave(&saved);
  DutDebug("Wall time %s, data time: %s\n", DutGetWallTimeStr(), DutTimeNumToStr(DutGetCurrentTime()));
  DutErrNumRestore(&saved);
  DutErrNumSet(saved.err_num);
}

}  // namespace

void trace(const char *format, ...) {
  header();
  va_list args;
  va_start(args, format);
  DutVDebug(format, args);
  va_end(args);
}

void traceWarning(const char *format, ...) {
  header();
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  DutWarning("%s", text);
}

const char *nameOf(const D_RING_BUF *ring) {
  return ring != nullptr && ring->name != nullptr ? ring->name : "Unnamed";
}

bool validType(D_UINT4 type) {
  switch (type) {
    case D_RING_TYPE_VOID:
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
    case D_RING_TYPE_DOUBLE:
    case D_RING_TYPE_STRING:
    case D_RING_TYPE_FLOAT:
    case D_RING_TYPE_WORD:
      return true;
    default:
      return false;
  }
}

// ---- Values ---------------------------------------------------------------

Incoming valueOf(D_UINT4 type, const D_RING_ENTRY &entry) {
  Incoming in;
  switch (type) {
    case D_RING_TYPE_VOID:
      in.ptr = entry.value.ptr;
      break;
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      in.i = entry.value.i;
      break;
    case D_RING_TYPE_DOUBLE:
      in.d = *entry.value.dp;
      break;
    case D_RING_TYPE_STRING:
      if (entry.value.rs != nullptr) in.text = entry.value.rs->str;
      break;
    case D_RING_TYPE_FLOAT:
      in.f = entry.value.f;
      break;
    case D_RING_TYPE_WORD:
      in.w = entry.value.w;
      break;
    default:
      break;
  }
  return in;
}

void takePointer(D_RING_BUF *ring, void *ptr) {
  if (ptr == nullptr) return;
  auto *&refs = blockOf(ring)->refs;
  if (refs == nullptr) refs = new std::unordered_map<void *, std::uint32_t>();
  ++(*refs)[ptr];
}

void dropPointer(D_RING_BUF *ring, void *ptr) {
  if (ptr == nullptr) return;
  auto *refs = blockOf(ring)->refs;
  auto it = refs != nullptr ? refs->find(ptr) : std::unordered_map<void *, std::uint32_t>::iterator{};
  if (refs == nullptr || it == refs->end()) {
    VQ_EXPECT(false, "D_NULL != ref", kFile);
    return;
  }
  if (--it->second != 0) return;
  refs->erase(it);
  if (ring->free_func != nullptr) ring->free_func(ptr);
}

PointerGuard::PointerGuard(D_RING_BUF *ring, const Incoming &value)
    : ring_(ring), ptr_(ring->type == D_RING_TYPE_VOID ? value.ptr : nullptr) {
  if (ptr_ == nullptr) return;
  auto *refs = blockOf(ring)->refs;
  held_before_ = refs != nullptr && refs->count(ptr_) != 0;
  takePointer(ring, ptr_);
}

PointerGuard::~PointerGuard() {
  if (ptr_ == nullptr) return;
  auto &refs = *blockOf(ring_)->refs;
  auto it = refs.find(ptr_);
  if (--it->second != 0) return;
  refs.erase(it);
  if (held_before_ && ring_->free_func != nullptr) ring_->free_func(ptr_);
}

// The text buffer grows in 32-byte units to hold length + 1 bytes.
void setText(D_RING_ENTRY &entry, const char *text) {
  D_RING_STR *&rs = entry.value.rs;
  if (rs == nullptr) {
    rs = static_cast<D_RING_STR *>(DutCallocCheck(sizeof(D_RING_STR), "rbe->value.rs", kFile, __LINE__));
  }
  const std::size_t length = std::strlen(text);
  const D_INT4 needed = static_cast<D_INT4>((length + 1 + 31) / 32);
  if (rs->str == nullptr || rs->size < needed) {
    rs->str = static_cast<char *>(DutReallocCheck(rs->str, needed * 32, "rbe->value.rs->str", kFile, __LINE__));
    rs->size = needed;
  }
  // A text stored over itself stays as it is.
  std::memmove(rs->str, text, length + 1);
}

void clearValue(D_RING_BUF *ring, D_RING_ENTRY &entry) {
  switch (ring->type) {
    case D_RING_TYPE_VOID: {
      void *old = entry.value.ptr;
      entry.value.ptr = nullptr;
      dropPointer(ring, old);
      break;
    }
    case D_RING_TYPE_DOUBLE:
      *entry.value.dp = 0.0;
      break;
    case D_RING_TYPE_STRING:
      if (entry.value.rs != nullptr && entry.value.rs->str != nullptr) entry.value.rs->str[0] = '\0';
      break;
    default:
      entry.value.w = 0;
      break;
  }
  entry.sec = 0;
  entry.usec = 0;
  entry.status = 0;
  entry.flag = 0;
}

void releaseEntry(D_RING_BUF *ring, D_RING_ENTRY &entry) {
  clearValue(ring, entry);
  if (ring->type == D_RING_TYPE_STRING && entry.value.rs != nullptr) {
    if (entry.value.rs->str != nullptr) DutFreeCheck(entry.value.rs->str, "rbe->value.rs->str", kFile, __LINE__);
    DutFreeCheck(entry.value.rs, "rbe->value.rs", kFile, __LINE__);
    entry.value.rs = nullptr;
  }
}

bool numericValue(D_UINT4 type, const D_RING_ENTRY &entry, D_REAL8 *value) {
  switch (type) {
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      *value = entry.value.i;
      return true;
    case D_RING_TYPE_DOUBLE:
      *value = *entry.value.dp;
      return true;
    case D_RING_TYPE_FLOAT:
      *value = entry.value.f;
      return true;
    case D_RING_TYPE_WORD:
      *value = entry.value.w;
      return true;
    default:
      return false;
  }
}

// ---- Arrays -----------------------------------------------------------------

D_INT4 clampSize(D_INT4 size) { return std::clamp<D_INT4>(size, 2, D_RING_MAX_SIZE); }

namespace {

D_RING_ENTRY *newEntries(const D_RING_BUF *ring, D_INT4 size) {
  auto *entries = static_cast<D_RING_ENTRY *>(
      DutCallocCheck(static_cast<D_INT4>(sizeof(D_RING_ENTRY)) * size, "hdr->start", kFile, __LINE__));
  if (ring->type == D_RING_TYPE_DOUBLE) {
    auto *doubles = static_cast<D_REAL8 *>(
        DutCallocCheck(static_cast<D_INT4>(sizeof(D_REAL8)) * size, "new_double_storage", kFile, __LINE__));
    for (D_INT4 i = 0; i < size; ++i) entries[i].value.dp = doubles + i;
  }
  return entries;
}

void freeEntries(const D_RING_BUF *ring, D_RING_ENTRY *entries) {
  if (ring->type == D_RING_TYPE_DOUBLE) DutFreeCheck(entries[0].value.dp, "new_double_storage", kFile, __LINE__);
  DutFreeCheck(entries, "hdr->start", kFile, __LINE__);
}

// Moves count entries of seq into fresh slots 0 onward: the value goes with
// the entry, except a double, which is copied into the fresh slot's storage.
void moveInto(const D_RING_BUF *ring, const Seq &seq, D_INT4 count, D_RING_ENTRY *to) {
  for (D_INT4 i = 0; i < count; ++i) {
    D_RING_ENTRY &from = seq[i];
    if (ring->type == D_RING_TYPE_DOUBLE) {
      D_REAL8 *slot = to[i].value.dp;
      *slot = *from.value.dp;
      to[i] = from;
      to[i].value.dp = slot;
    } else {
      to[i] = from;
    }
  }
}

}  // namespace

void allocateArray(D_RING_HDR *hdr, D_INT4 size) {
  hdr->start = newEntries(hdr->ring, size);
  hdr->size = static_cast<D_UINT2>(size);
  hdr->current = hdr->start + size - 1;
}

void reallocArray(D_RING_HDR *hdr, D_INT4 new_size) {
  D_RING_BUF *ring = hdr->ring;
  D_RING_ENTRY *fresh = newEntries(ring, new_size);
  if (isEmpty(hdr) && !isWrapped(hdr)) {
    // Nothing to keep: the buffer stays as a cleared one, last slot current.
    for (D_INT4 i = 0; i < hdr->size; ++i) releaseEntry(ring, hdr->start[i]);
    freeEntries(ring, hdr->start);
    hdr->start = fresh;
    hdr->current = fresh + new_size - 1;
  } else {
    // Every slot from the oldest to the current one, empty ones included.
    const D_INT4 cur = slotOf(hdr, hdr->current);
    Seq seq{hdr->start, hdr->size, 0, 0};
    seq.oldest = isWrapped(hdr) ? (cur + 1 == hdr->size ? 0 : cur + 1) : 0;
    seq.count = (cur - seq.oldest + hdr->size) % hdr->size + 1;
    moveInto(ring, seq, seq.count, fresh);
    // Slots past the current one of an unwrapped buffer hold nothing to keep.
    for (D_INT4 i = seq.count; i < hdr->size; ++i) releaseEntry(ring, seq[i]);
    freeEntries(ring, hdr->start);
    hdr->start = fresh;
    hdr->current = fresh + seq.count - 1;
  }
  hdr->size = static_cast<D_UINT2>(new_size);
}

void linearise(D_RING_HDR *hdr) {
  if (!isWrapped(hdr) || hdr->current == hdr->start + hdr->size - 1) return;
  const D_INT4 size = hdr->size;
  reallocArray(hdr, size);
}

D_RING_HDR *newHeader() {
  return &static_cast<BufferBlock *>(DutCallocCheck(sizeof(BufferBlock), "new_hdr", kFile, __LINE__))->hdr;
}

void freeHeader(D_RING_HDR *hdr) {
  forgetIteration(hdr);
  if (hdr->start != nullptr) {
    for (D_INT4 i = 0; i < hdr->size; ++i) releaseEntry(hdr->ring, hdr->start[i]);
    freeEntries(hdr->ring, hdr->start);
  }
  DutFreeCheck(hdr, "new_hdr", kFile, __LINE__);
}

// ---- Logical view -------------------------------------------------------------

Seq seqOf(const D_RING_HDR *hdr) {
  Seq seq{hdr->start, hdr->size, 0, 0};
  if (isEmpty(hdr)) return seq;
  const D_INT4 cur = slotOf(hdr, hdr->current);
  if (isWrapped(hdr)) {
    seq.oldest = cur + 1 == hdr->size ? 0 : cur + 1;
    seq.count = hdr->size;
  } else {
    seq.count = cur + 1;
  }
  return seq;
}

D_INT4 upperBound(const Seq &seq, std::int64_t t) {
  D_INT4 lo = 0;
  D_INT4 n = seq.count;
  while (n > 0) {
    D_INT4 half = n / 2;
    if (micros(seq[lo + half]) <= t) {
      lo += half + 1;
      n -= half + 1;
    } else {
      n = half;
    }
  }
  return lo;
}

D_INT4 lowerBound(const Seq &seq, std::int64_t t) { return t == INT64_MIN ? 0 : upperBound(seq, t - 1); }

D_TIME_VALUE spanOf(const D_RING_HDR *hdr) {
  const Seq seq = seqOf(hdr);
  if ((hdr->flags & D_RING_HISTORY) != 0) return fromMicros(micros(*hdr->current) - micros(hdr->start[0]));
  if ((hdr->flags & D_RING_VALUE_REPEAT) != 0) return D_TIME_VALUE{seq.count, 0};
  D_INT4 end_sec = hdr->current->sec;
  D_INT4 end_usec = hdr->current->usec;
  D_TIME_VALUE now;
  if (currentTime(&now) && micros(now) > micros(*hdr->current)) {
    end_sec = now.seconds;
    end_usec = now.microseconds;
  }
  const D_RING_ENTRY &oldest = seq[0];
  std::int64_t s = static_cast<std::int64_t>(end_sec) - oldest.sec;
  std::int64_t u = static_cast<std::int64_t>(end_usec) - oldest.usec;
  if (u < 0) {
    u += kMicros;
    --s;
  }
  return D_TIME_VALUE{static_cast<D_INT4>(std::clamp<std::int64_t>(s, 0, INT32_MAX)),
                      static_cast<D_INT4>(std::max<std::int64_t>(u, 0))};
}

void setGrid(D_RING_HDR *hdr, const D_TIME_VALUE &t) {
  const std::int64_t origin = startMicros();
  const std::int64_t incr = micros(hdr->incr);
  if (incr == 0) {
    D_TIME_VALUE now;
    hdr->next_incr = currentTime(&now) ? now : fromMicros(origin);
    return;
  }
  // Whole increments from the origin, truncated toward zero, plus one.
  const std::int64_t k = (micros(t) - origin) / incr;
  hdr->next_incr = fromMicros(origin + incr * (k + 1));
}

}  // namespace vq::ring
