// Iteration over a buffer's entries and the two searches. Entries are kept
// in time order, so a search is a binary search; a buffer that may hold
// empty slots among its entries is walked entry by entry instead, since the
// walk's answer there depends on where the first empty slot is.
#include "ringbuf/ring_internal.hpp"

namespace vq::ring {

namespace {

// The process-wide iteration of DutRingNextEntry and the two searches.
D_RING_ITER utRingIteration = {nullptr, -1, 1};

D_RING_ENTRY *walk(D_RING_ITER *iter, D_RING_HDR *hdr, std::int64_t when) {
  D_RING_ENTRY *e = iterFirst(iter, hdr);
  while (e != nullptr) {
    if (e == hdr->current) return e;
    D_RING_ENTRY *successor = iterNext(iter);
    if (successor == nullptr || successor->status == 0) return e;
    if (micros(*e) <= when && micros(*successor) > when) return e;
    e = successor;
  }
  return fail(D_ERR_DOESNT_EXIST, e);
}

}  // namespace

void forgetIteration(const D_RING_HDR *hdr) {
  if (utRingIteration.buffer == hdr) utRingIteration = D_RING_ITER{nullptr, -1, 1};
}

D_RING_ENTRY *iterFirst(D_RING_ITER *iter, D_RING_HDR *hdr) {
  const Seq seq = seqOf(hdr);
  iter->buffer = hdr;
  if (seq.count == 0) {
    iter->index = -1;
    iter->done = 1;
    return nullptr;
  }
  iter->index = seq.oldest;
  iter->done = 0;
  return hdr->start + seq.oldest;
}

D_RING_ENTRY *iterNext(D_RING_ITER *iter) {
  D_RING_HDR *hdr = iter->buffer;
  if (hdr == nullptr || iter->done != 0) return nullptr;
  if (iter->index < 0 || iter->index >= hdr->size || hdr->start + iter->index == hdr->current) {
    iter->done = 1;
    return nullptr;
  }
  iter->index = iter->index + 1 == hdr->size ? 0 : iter->index + 1;
  return hdr->start + iter->index;
}

D_RING_ENTRY *findTime(D_RING_ITER *iter, D_RING_HDR *hdr, const D_TIME_VALUE &t, bool with_initial) {
  D_RING_ENTRY *initial = with_initial ? hdr->ring->initial_value : nullptr;
  const Seq seq = seqOf(hdr);
  if (seq.count == 0) return initial != nullptr ? initial : fail(D_ERR_DOESNT_EXIST, initial);
  const std::int64_t when = micros(t);
  const D_RING_ENTRY &oldest = seq[0];
  if (when < micros(oldest)) {
    if (initial != nullptr) return initial;
    if (tracing()) {
      trace("DutRingFindTime: Req time (%ld.%06ld) before buf start (%ld.%06ld)\n", sec(t), usec(t),
            static_cast<long>(oldest.sec), static_cast<long>(oldest.usec));
    }
    return fail(D_ERR_DOESNT_EXIST, initial);
  }
  D_RING_ENTRY *newest = hdr->current;
  if (when > micros(*newest)) {
    if (tracing()) {
      trace("Req time > newest time, %ld.%06ld vs %ld.%06ld\n", sec(t), usec(t), static_cast<long>(newest->sec),
            static_cast<long>(newest->usec));
    }
    return newest;
  }
  if ((hdr->flags & D_RING_HOLES) != 0) {
    D_RING_ITER scratch;
    return walk(iter != nullptr ? iter : &scratch, hdr, when);
  }
  // The walk stops at the entry before the first one after the time, having
  // read that one as the successor; or at the newest.
  const D_INT4 i = upperBound(seq, when) - 1;
  if (iter != nullptr) *iter = D_RING_ITER{hdr, seq.slot(i + 1 < seq.count ? i + 1 : i), 0};
  return &seq[i];
}

D_RING_HDR *findBuffer(D_RING_BUF *ring, const D_TIME_VALUE &t) {
  D_RING_HDR *first = firstBuffer(ring);
  if (first == nullptr || isEmpty(first)) {
    if (tracing()) {
      if (first == nullptr) {
        trace("Ring Buffer for %s Empty in DutRingFindBuffer\n", nameOf(ring));
      } else {
        trace("Buffer %s has no data\n", nameOf(ring));
      }
    }
    return fail(D_ERR_DOESNT_EXIST, static_cast<D_RING_HDR *>(nullptr));
  }
  const std::int64_t when = micros(t);
  for (D_RING_HDR *h = first; h != nullptr; h = nextBuffer(ring, h)) {
    if (!isEmpty(h) && micros(seqOf(h)[0]) <= when) return h;
  }
  return fail(D_ERR_DOESNT_EXIST, static_cast<D_RING_HDR *>(nullptr));
}

D_RING_ENTRY *findTimeEntry(D_RING_ITER *iter, D_RING_BUF *ring, const D_TIME_VALUE &t) {
  if (firstBuffer(ring) == nullptr) {
    return ring->initial_value != nullptr ? ring->initial_value : fail(D_ERR_DOESNT_EXIST, ring->initial_value);
  }
  D_RING_HDR *hdr = findBuffer(ring, t);
  return hdr != nullptr ? findTime(iter, hdr, t, true) : nullptr;
}

}  // namespace vq::ring

using namespace vq::ring;

namespace {

bool usableBuffer(const D_RING_HDR *hdr) { return hdr != nullptr && hdr->start != nullptr && hdr->ring != nullptr; }

bool searchable(const void *holder, const D_TIME_VALUE *time) {
  if (holder == nullptr || time == nullptr) return fail(D_ERR_NULL_PTR, false);
  if (!validTime(*time)) return fail(D_ERR_VAL_INVALID, false);
  return true;
}

}  // namespace

extern "C" {

D_EXPORT D_RING_ENTRY *DutRingNextEntry(D_RING_HDR *buffer) {
  if (buffer != nullptr) {
    if (!usableBuffer(buffer)) return fail(D_ERR_NULL_PTR, static_cast<D_RING_ENTRY *>(nullptr));
    return iterFirst(&utRingIteration, buffer);
  }
  if (utRingIteration.buffer == nullptr) {
    if (tracing()) trace("DutRingNextEntry has NULL argument before initialized\n");
    return nullptr;
  }
  return iterNext(&utRingIteration);
}

D_EXPORT D_RING_ENTRY *DutRingIterFirst(D_RING_ITER *iter, D_RING_HDR *buffer) {
  if (iter == nullptr || !usableBuffer(buffer)) return fail(D_ERR_NULL_PTR, static_cast<D_RING_ENTRY *>(nullptr));
  return iterFirst(iter, buffer);
}

D_EXPORT D_RING_ENTRY *DutRingIterNext(D_RING_ITER *iter) {
  if (iter == nullptr) return fail(D_ERR_NULL_PTR, static_cast<D_RING_ENTRY *>(nullptr));
  return iterNext(iter);
}

D_EXPORT D_RING_ENTRY *DutRingFindTime(D_RING_HDR *buffer, const D_TIME_VALUE *time) {
  if (!searchable(buffer, time)) return nullptr;
  if (!usableBuffer(buffer)) return fail(D_ERR_NULL_PTR, static_cast<D_RING_ENTRY *>(nullptr));
  return findTime(&utRingIteration, buffer, *time, true);
}

D_EXPORT D_RING_ENTRY *DutRingIterFindTime(D_RING_ITER *iter, D_RING_HDR *buffer, const D_TIME_VALUE *time) {
  if (!searchable(buffer, time)) return nullptr;
  if (!usableBuffer(buffer)) return fail(D_ERR_NULL_PTR, static_cast<D_RING_ENTRY *>(nullptr));
  return findTime(iter, buffer, *time, true);
}

D_EXPORT D_RING_ENTRY *DutRingFindTimeEntry(D_RING_BUF *ring, const D_TIME_VALUE *time) {
  if (!searchable(ring, time)) return nullptr;
  return findTimeEntry(&utRingIteration, ring, *time);
}

D_EXPORT D_RING_HDR *DutRingFindBuffer(D_RING_BUF *ring, const D_TIME_VALUE *time) {
  if (!searchable(ring, time)) return nullptr;
  return findBuffer(ring, *time);
}

}  // extern "C"
