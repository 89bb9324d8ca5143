// Rings and their buffers: creation, the buffer list ordered by increment,
// flags, clearing, destruction and the overwrite callbacks.
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>

#include "frame/check.hpp"
#include "ringbuf/ring_internal.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/memory.h"
#include "vqutil/output.h"

namespace vq::ring {

std::atomic<std::int64_t> utRingStartTime{0};
std::atomic<bool> utRingStartSet{false};

namespace {

D_CB_TYPE *utRingOverwriteCbType = nullptr;

bool incrementAccepted(const D_RING_BUF *ring, const D_TIME_VALUE &incr) {
  if (incr.seconds > 0 || (incr.seconds == 0 && incr.microseconds >= 0)) return true;
  if (tracing()) {
    traceWarning("Smallest increment allowed is 0.%06d\n", 1);
    traceWarning("Requested Increment (%ld.%06ld) too small for buffer %s\n", sec(incr), usec(incr),
                 nameOf(ring));
    traceWarning("Ring buffer not added for buffer %s\n", nameOf(ring));
  }
  return false;
}

// The value the ring holds now, read (a text copied into holder) before a
// new buffer is linked.
bool currentData(D_RING_BUF *ring, D_RING_ENTRY *data, Incoming *value, std::string *holder) {
  D_RING_HDR *first = firstBuffer(ring);
  const D_RING_ENTRY *source = nullptr;
  if (first != nullptr) {
    if (!isEmpty(first)) source = first->current;
  } else if (ring->initial_value != nullptr && (ring->initial_value->status & D_RING_STATUS_KNOWN) != 0) {
    source = ring->initial_value;
  }
  if (source == nullptr) return false;
  *data = *source;
  *value = valueOf(ring->type, *source);
  if (ring->type == D_RING_TYPE_STRING) {
    holder->assign(value->text);
    value->text = holder->c_str();
  }
  return true;
}

void unlinkAndFree(D_RING_HDR *hdr) {
  DutDqDetach(hdr->ring->buffers, hdr);
  freeHeader(hdr);
}

// A new header linked before the first buffer with a larger increment.
D_RING_HDR *createHeader(D_RING_BUF *ring, D_TIME_VALUE min_span, const D_TIME_VALUE &incr, D_INT4 size,
                         D_UINT4 flags) {
  if (!validType(ring->type)) {
    DutWarning("Invalid buffer type in utRingCreateHdr\n");
    return fail(D_ERR_TYPE_INVALID, static_cast<D_RING_HDR *>(nullptr));
  }
  D_RING_HDR *finer = nullptr;
  D_RING_HDR *coarser = nullptr;
  for (D_RING_HDR *h = firstBuffer(ring); h != nullptr; h = nextBuffer(ring, h)) {
    if (micros(h->incr) > micros(incr)) {
      coarser = h;
      break;
    }
    finer = h;
  }
  if (finer != nullptr && micros(min_span) < micros(finer->min_span)) {
    min_span = fromMicros(micros(finer->min_span) + micros(incr));
  }
  D_RING_HDR *hdr = newHeader();
  hdr->min_span = min_span;
  hdr->incr = incr;
  hdr->ring = ring;
  hdr->flags = flags;
  D_TIME_VALUE now;
  if (currentTime(&now)) {
    setGrid(hdr, now);
  } else {
    hdr->next_incr = D_TIME_VALUE{0, 0};
  }
  if ((flags & D_RING_FIXED) != 0 && tracing()) {
    trace("Allocating fixed array of %ld for %s\n", static_cast<long>(size), nameOf(ring));
  }
  allocateArray(hdr, size);
  DutDqRightInsert(hdr, coarser != nullptr ? coarser->prev : ring->buffers->prev);
  return hdr;
}

// Links a new buffer; a growable one starts with the value the ring holds,
// a fixed one waits for the next archive.
D_RING_HDR *addNew(D_RING_BUF *ring, const D_TIME_VALUE &min_span, const D_TIME_VALUE &incr, D_INT4 size,
                   D_UINT4 flags) {
  D_RING_ENTRY data{};
  Incoming value;
  std::string text;
  const bool has_data = (flags & D_RING_FIXED) == 0 && currentData(ring, &data, &value, &text);
  D_RING_HDR *hdr = createHeader(ring, min_span, incr, size, flags);
  if (hdr != nullptr && has_data) {
    archive(ring, D_TIME_VALUE{data.sec, data.usec}, value, data.status, data.flag);
  }
  return hdr;
}

D_BOOL setFlag(D_RING_HDR *hdr, D_BOOL flag, D_UINT4 bit) {
  if (hdr == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (flag != D_TRUE && flag != D_FALSE) return fail(D_ERR_VAL_INVALID, D_FALSE);
  const D_BOOL previous = (hdr->flags & bit) != 0 ? D_TRUE : D_FALSE;
  if (flag == D_TRUE) {
    hdr->flags |= bit;
  } else {
    hdr->flags &= ~bit;
  }
  return previous;
}

void clearBuffer(D_RING_HDR *hdr) {
  for (D_INT4 i = 0; i < hdr->size; ++i) clearValue(hdr->ring, hdr->start[i]);
  hdr->current = hdr->start + hdr->size - 1;
  hdr->flags &= ~D_RING_HOLES;
}

}  // namespace

D_RING_HDR *byIncrement(const D_RING_BUF *ring, const D_TIME_VALUE &incr) {
  for (D_RING_HDR *h = firstBuffer(ring); h != nullptr; h = nextBuffer(ring, h)) {
    if (h->incr.seconds == incr.seconds && h->incr.microseconds == incr.microseconds) return h;
  }
  return nullptr;
}

D_TIME_VALUE startTime() { return fromMicros(startMicros()); }

}  // namespace vq::ring

using namespace vq::ring;

extern "C" {

D_EXPORT D_BOOL DutRingSetStartTime(const D_TIME_VALUE *start) {
  if (start == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  const bool sec_ok = VQ_EXPECT(start->seconds >= 0, "start->sec >= 0", kFile) != 0;
  const bool usec_ok = VQ_EXPECT(start->microseconds >= 0, "start->usec >= 0", kFile) != 0;
  if (!sec_ok || !usec_ok) return fail(D_ERR_VAL_TOO_SMALL, D_FALSE);
  if (!validTime(*start)) return fail(D_ERR_VAL_INVALID, D_FALSE);
  utRingStartTime.store(micros(*start), std::memory_order_relaxed);
  utRingStartSet.store(true, std::memory_order_release);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingGetStartTime(D_TIME_VALUE *start_return) {
  if (start_return == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (!utRingStartSet.load(std::memory_order_acquire)) return D_FALSE;
  *start_return = fromMicros(startMicros());
  return D_TRUE;
}

D_EXPORT D_RING_BUF *DutRingCreate(D_UINT4 type, const char *name) {
  if (!validType(type)) {
    DutWarning("DutRingCreate: invalid type <%ld> requested (using double)\n", static_cast<long>(type));
    return fail(D_ERR_TYPE_INVALID, static_cast<D_RING_BUF *>(nullptr));
  }
  auto *block = static_cast<RingBlock *>(DutCallocCheck(sizeof(RingBlock), "rb", kFile, __LINE__));
  D_RING_BUF *ring = &block->ring;
  DutDqOpen(&ring->buffers);
  ring->type = type;
  if (name != nullptr) {
    const std::size_t bytes = std::strlen(name) + 1;
    ring->name = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(bytes), "(rb->name)", kFile, __LINE__));
    std::memcpy(ring->name, name, bytes);
  }
  return ring;
}

D_EXPORT D_RING_HDR *DutRingAddBuffer(D_RING_BUF *ring, const D_TIME_VALUE *min_span, const D_TIME_VALUE *incr,
                                      D_INT4 size) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, static_cast<D_RING_HDR *>(nullptr));
  if (!checkedTimes({min_span, incr})) return nullptr;
  if (!incrementAccepted(ring, *incr)) return fail(D_ERR_VAL_TOO_SMALL, static_cast<D_RING_HDR *>(nullptr));
  size = clampSize(size);
  D_RING_HDR *hdr = byIncrement(ring, *incr);
  if (hdr == nullptr) return addNew(ring, *min_span, *incr, size, 0);
  if (isFixed(hdr)) {
    DutWarning("Fixed size mismatch for buffer %s, incr %ld.%06ld\n", nameOf(ring), sec(*incr), usec(*incr));
    return fail(D_ERR_TYPE_MISMATCH, static_cast<D_RING_HDR *>(nullptr));
  }
  if (micros(*min_span) > micros(hdr->min_span)) {
    hdr->min_span = *min_span;
    // A coarser buffer that covers less time than a finer one is useless.
    for (D_RING_HDR *h = nextBuffer(ring, hdr); h != nullptr;) {
      if (micros(h->min_span) >= micros(*min_span)) break;
      D_RING_HDR *following = nextBuffer(ring, h);
      unlinkAndFree(h);
      h = following;
    }
  }
  if (size > hdr->size) reallocArray(hdr, size);
  return hdr;
}

D_EXPORT D_RING_HDR *DutRingAddFixedBuffer(D_RING_BUF *ring, D_INT4 size, const D_TIME_VALUE *incr) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, static_cast<D_RING_HDR *>(nullptr));
  if (!checkedTimes({incr})) return nullptr;
  if (!incrementAccepted(ring, *incr)) return fail(D_ERR_VAL_TOO_SMALL, static_cast<D_RING_HDR *>(nullptr));
  size = clampSize(size);
  D_RING_HDR *hdr = byIncrement(ring, *incr);
  if (hdr == nullptr) return addNew(ring, D_TIME_VALUE{0, 0}, *incr, size, D_RING_FIXED);
  if (!isFixed(hdr)) {
    DutWarning("Fixed size mismatch for buffer %s, incr %ld.%06ld\n", nameOf(ring), sec(*incr), usec(*incr));
    return fail(D_ERR_TYPE_MISMATCH, static_cast<D_RING_HDR *>(nullptr));
  }
  if (size > hdr->size) reallocArray(hdr, size);
  return hdr;
}

D_EXPORT D_RING_HDR *DutRingGetIncrement(D_RING_BUF *ring, const D_TIME_VALUE *incr) {
  if (ring == nullptr || incr == nullptr) return fail(D_ERR_NULL_PTR, static_cast<D_RING_HDR *>(nullptr));
  D_RING_HDR *hdr = byIncrement(ring, *incr);
  return hdr != nullptr ? hdr : fail(D_ERR_DOESNT_EXIST, hdr);
}

D_EXPORT D_BOOL DutRingSetTimeRepeat(D_RING_HDR *buffer, D_BOOL flag) {
  return setFlag(buffer, flag, D_RING_TIME_REPEAT);
}
D_EXPORT D_BOOL DutRingSetValueRepeat(D_RING_HDR *buffer, D_BOOL flag) {
  return setFlag(buffer, flag, D_RING_VALUE_REPEAT);
}
D_EXPORT D_BOOL DutRingSetIndirect(D_RING_HDR *buffer, D_BOOL flag) { return setFlag(buffer, flag, D_RING_INDIRECT); }

D_EXPORT D_BOOL DutRingReallocArray(D_RING_HDR *buffer, D_INT4 new_size) {
  if (buffer == nullptr || buffer->start == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (new_size < buffer->size) return fail(D_ERR_VAL_TOO_SMALL, D_FALSE);
  new_size = clampSize(new_size);
  if (new_size > buffer->size) reallocArray(buffer, new_size);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingAllocateArray(D_RING_HDR *buffer, D_INT4 size) {
  if (buffer == nullptr || buffer->ring == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  // A second allocation would lose the entries: a broken caller, not bad data.
  VQ_ASSERT(buffer->start == nullptr, "hdr->start == NULL", kFile);
  allocateArray(buffer, clampSize(size));
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingClear(D_RING_BUF *ring) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  for (D_RING_HDR *h = firstBuffer(ring); h != nullptr; h = nextBuffer(ring, h)) clearBuffer(h);
  if (ring->hist_buff != nullptr) clearBuffer(ring->hist_buff);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingClearBuffer(D_RING_HDR *buffer) {
  if (buffer == nullptr || buffer->start == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  clearBuffer(buffer);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingSetFreeFunc(D_RING_BUF *ring, D_RING_FREE_FUNC func) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (ring->type != D_RING_TYPE_VOID) {
    DutWarning("Cannot set free function for non-void ring buffer\n");
    return fail(D_ERR_TYPE_MISMATCH, D_FALSE);
  }
  ring->free_func = func;
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingDestroy(D_RING_BUF *ring) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  while (D_RING_HDR *hdr = firstBuffer(ring)) unlinkAndFree(hdr);
  if (ring->hist_buff != nullptr) {
    freeHeader(ring->hist_buff);
    ring->hist_buff = nullptr;
  }
  if (ring->initial_value != nullptr) {
    releaseEntry(ring, *ring->initial_value);
    DutFreeCheck(ring->initial_value, "((rb)->initial_value)", kFile, __LINE__);
    ring->initial_value = nullptr;
  }
  if (ring->name != nullptr) {
    DutFreeCheck(ring->name, "(rb->name)", kFile, __LINE__);
    ring->name = nullptr;
  }
  RingBlock *block = blockOf(ring);
  delete block->refs;
  block->refs = nullptr;
  return D_TRUE;
}

D_EXPORT D_CB *DutRingOverwriteCbCreate(D_RING_BUF *ring, D_CB_FUNC func, D_WORD arg) {
  if (ring == nullptr || func == nullptr) return fail(D_ERR_NULL_PTR, static_cast<D_CB *>(nullptr));
  {
    vq::ProcessLock lock;
    if (utRingOverwriteCbType == nullptr) {
      // The number may have been taken through the generic interface: adopt it.
      utRingOverwriteCbType = DutCbTypeNumLookup(D_RING_OVERWRITE_CB_TYPE);
      if (utRingOverwriteCbType == nullptr) {
        utRingOverwriteCbType = DutCbTypeCreate(D_RING_OVERWRITE_CB_TYPE, D_RING_OVERWRITE_CB_TYPE_NAME);
      }
      VQ_ASSERT(utRingOverwriteCbType != nullptr, "utRingOverwriteCbType", kFile);
      // Each ring keeps its own list and calls it directly.
      DutCbTypeSetGlobFlag(utRingOverwriteCbType, D_CB_NO_GLOBALS);
      DutCbTypeSetLocalFlag(utRingOverwriteCbType, D_CB_LOCAL_DIRECT);
    }
  }
  if (ring->overwrite_cb_list == nullptr) ring->overwrite_cb_list = DutCbListCreate(utRingOverwriteCbType, ring);
  return DutCbListCbCreate(ring->overwrite_cb_list, func, arg);
}

D_EXPORT D_CB *DutRingOverwriteCbLookup(D_RING_BUF *ring, D_CB_FUNC func, D_WORD arg) {
  if (ring == nullptr || func == nullptr) return fail(D_ERR_NULL_PTR, static_cast<D_CB *>(nullptr));
  if (ring->overwrite_cb_list == nullptr) return fail(D_ERR_DOESNT_EXIST, static_cast<D_CB *>(nullptr));
  return DutCbListCbLookup(ring->overwrite_cb_list, func, arg);
}

D_EXPORT D_BOOL DutRingBufferSpan(D_RING_HDR *buffer, D_TIME_VALUE *span) {
  if (buffer == nullptr || span == nullptr || buffer->start == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (isEmpty(buffer)) {
    *span = D_TIME_VALUE{0, 0};
    return D_FALSE;
  }
  *span = spanOf(buffer);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingMaxSpan(D_RING_BUF *ring, D_TIME_VALUE *span) {
  if (ring == nullptr || span == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  D_RING_HDR *last = lastBuffer(ring);
  if (last == nullptr) {
    *span = D_TIME_VALUE{0, 0};
    return D_FALSE;
  }
  return DutRingBufferSpan(last, span);
}

D_EXPORT D_INT4 DutRingZeroSpan(D_RING_BUF *ring) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, 0);
  D_RING_HDR *zero = byIncrement(ring, D_TIME_VALUE{0, 0});
  return zero != nullptr ? seqOf(zero).count : 0;
}

D_EXPORT D_BOOL DutRingBuffHasData(D_RING_BUF *ring) {
  if (ring == nullptr) return D_FALSE;
  D_RING_HDR *first = firstBuffer(ring);
  return first != nullptr && !isEmpty(first) ? D_TRUE : D_FALSE;
}

D_EXPORT D_RING_ENTRY *DutRingCurrentEntry(D_RING_BUF *ring) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, static_cast<D_RING_ENTRY *>(nullptr));
  D_RING_HDR *first = firstBuffer(ring);
  if (first != nullptr && !isEmpty(first)) return first->current;
  return ring->initial_value;
}

D_EXPORT void *DutRingValuePtr(D_RING_ENTRY *entry, D_UINT4 type) {
  if (entry == nullptr) return fail(D_ERR_NULL_PTR, static_cast<void *>(nullptr));
  switch (type) {
    case D_RING_TYPE_VOID:
      return entry->value.ptr;
    case D_RING_TYPE_DOUBLE:
      return entry->value.dp;
    case D_RING_TYPE_STRING:
      if (entry->value.rs == nullptr || entry->value.rs->str == nullptr) {
        return fail(D_ERR_EMPTY, static_cast<void *>(nullptr));
      }
      return entry->value.rs->str;
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      return &entry->value.i;
    case D_RING_TYPE_FLOAT:
      return &entry->value.f;
    case D_RING_TYPE_WORD:
      return &entry->value.w;
    default:
      return fail(D_ERR_TYPE_INVALID, static_cast<void *>(nullptr));
  }
}

D_EXPORT D_BOOL DutRingEntriesEqual(D_RING_HDR *buffer, D_RING_ENTRY *entry1, D_RING_ENTRY *entry2) {
  VQ_ASSERT(entry1 != nullptr, "rbe1", kFile);
  VQ_ASSERT(entry2 != nullptr, "rbe2", kFile);
  if (buffer == nullptr || buffer->start == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (!inArray(buffer, entry1) || !inArray(buffer, entry2)) return D_FALSE;
  if (entry1 == entry2) return D_TRUE;
  const D_UINT4 type = buffer->ring->type;
  return equalsIncoming(type, *entry1, valueOf(type, *entry2)) ? D_TRUE : D_FALSE;
}

}  // extern "C"
