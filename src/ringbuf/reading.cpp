// The reading side of a ring: traversal contexts, maximum and minimum over
// a span, change counts, deletion and the history buffer. Nothing here
// touches the process-wide iteration of DutRingNextEntry.
#include <algorithm>
#include <limits>
#include <string>

#include "frame/check.hpp"
#include "ringbuf/ring_internal.hpp"
#include "vqutil/memory.h"
#include "vqutil/option.h"
#include "vqutil/output.h"

namespace vq::ring {

namespace {

constexpr std::int64_t kOpenLow = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kOpenHigh = std::numeric_limits<std::int64_t>::max();
constexpr D_INT4 kDefaultHistorySize = 1000;

// Every change is in the increment-0.0 buffer when there is one.
D_RING_HDR *changeBuffer(const D_RING_BUF *ring) {
  D_RING_HDR *zero = byIncrement(ring, D_TIME_VALUE{0, 0});
  return zero != nullptr ? zero : firstBuffer(ring);
}

// The finest buffer that reaches back to t; else the one that reaches back
// furthest (the finer of equals).
D_RING_HDR *spanBuffer(const D_RING_BUF *ring, std::int64_t t) {
  D_RING_HDR *furthest = nullptr;
  for (D_RING_HDR *h = firstBuffer(ring); h != nullptr; h = nextBuffer(ring, h)) {
    if (isEmpty(h)) continue;
    const std::int64_t oldest = micros(seqOf(h)[0]);
    if (oldest <= t) return h;
    if (furthest == nullptr || oldest < micros(seqOf(furthest)[0])) furthest = h;
  }
  return furthest;
}

// Logical indices worth visiting for times in [lo, hi]: the binary-search
// bounds in an ordered buffer, everything where empty slots may break the
// order. Callers still test each entry with within().
struct Bounds {
  D_INT4 first;
  D_INT4 last;
};
Bounds between(const D_RING_HDR *hdr, const Seq &seq, std::int64_t lo, std::int64_t hi) {
  if ((hdr->flags & D_RING_HOLES) != 0) return {0, seq.count};
  return {lowerBound(seq, lo), upperBound(seq, hi)};
}
bool within(const D_RING_ENTRY &e, std::int64_t lo, std::int64_t hi) {
  return e.status != 0 && micros(e) >= lo && micros(e) <= hi;
}

// Moves an entry into an empty slot of the same buffer and empties the
// source; a double is copied into the destination's own storage.
void moveSlot(D_RING_BUF *ring, D_RING_ENTRY &from, D_RING_ENTRY &to) {
  releaseEntry(ring, to);
  if (ring->type == D_RING_TYPE_DOUBLE) {
    D_REAL8 *slot = to.value.dp;
    *slot = *from.value.dp;
    to = from;
    to.value.dp = slot;
    *from.value.dp = 0.0;
  } else {
    to = from;
    from.value = D_RING_VALUE{};
  }
  from.sec = 0;
  from.usec = 0;
  from.status = 0;
  from.flag = 0;
}

// The value in force at t for a traversal or a statistic.
D_RING_ENTRY *inForce(const D_RING_CONTEXT &ctx, const D_TIME_VALUE &t) {
  if (ctx.kind == D_RING_TRAV_HISTORY) return findTime(nullptr, ctx.buffer, t, false);
  return findTimeEntry(nullptr, ctx.ring, t);
}

bool isZero(const D_TIME_VALUE &t) { return t.seconds == 0 && t.microseconds == 0; }

bool initTimed(D_RING_CONTEXT *ctx, D_RING_BUF *ring, D_INT4 kind, D_RING_HDR *hdr, const D_TIME_VALUE &start,
               const D_TIME_VALUE &incr, const D_TIME_VALUE &end) {
  if (micros(incr) < 0 || micros(end) < micros(start)) return fail(D_ERR_VAL_INVALID, false);
  *ctx = D_RING_CONTEXT{};
  ctx->kind = kind;
  ctx->ring = ring;
  ctx->buffer = hdr;
  ctx->start = start;
  ctx->incr = incr;
  ctx->end = end;
  ctx->next_time = start;
  if (isZero(incr)) {
    ctx->lead = 1;
    if (hdr != nullptr) ctx->position = between(hdr, seqOf(hdr), micros(start), kOpenHigh).first;
  }
  return true;
}

// One step of a traversal; false past its end.
bool step(D_RING_CONTEXT &ctx, D_RING_ENTRY **entry, D_TIME_VALUE *time) {
  if (ctx.done != 0) return false;
  if (ctx.kind == D_RING_TRAV_CHANGES) {
    const Seq seq = seqOf(ctx.buffer);
    if (ctx.remaining <= 0 || ctx.position >= seq.count) return false;
    *entry = &seq[ctx.position++];
    --ctx.remaining;
    *time = D_TIME_VALUE{(*entry)->sec, (*entry)->usec};
    return true;
  }
  if (!isZero(ctx.incr)) {
    if (ctx.remaining < 0 || micros(ctx.next_time) > micros(ctx.end)) return false;
    *time = ctx.next_time;
    *entry = inForce(ctx, *time);
    // Marked rather than stored: a time past the end may not fit the record.
    const std::int64_t following = micros(ctx.next_time) + micros(ctx.incr);
    if (following > micros(ctx.end)) {
      ctx.remaining = -1;
    } else {
      ctx.next_time = fromMicros(following);
    }
    return true;
  }
  // Every change: what was in force at start when it began before, then the
  // entries up to end.
  const std::int64_t start = micros(ctx.start);
  const std::int64_t end = micros(ctx.end);
  if (ctx.lead != 0) {
    ctx.lead = 0;
    D_RING_ENTRY *lead = inForce(ctx, ctx.start);
    if (lead != nullptr && lead->status != 0 && micros(*lead) < start) {
      *entry = lead;
      *time = D_TIME_VALUE{lead->sec, lead->usec};
      return true;
    }
  }
  if (ctx.buffer == nullptr) return false;
  const Seq seq = seqOf(ctx.buffer);
  while (ctx.position < seq.count) {
    D_RING_ENTRY &e = seq[ctx.position++];
    if (e.status == 0 || micros(e) < start) continue;
    if (micros(e) > end) break;
    *entry = &e;
    *time = D_TIME_VALUE{e.sec, e.usec};
    return true;
  }
  ctx.position = seq.count;
  return false;
}

// Largest and smallest of the value in force at start and the entries up
// to end.
D_BOOL maxMin(const D_RING_BUF *ring, D_RING_HDR *hdr, D_RING_ENTRY *lead, const D_TIME_VALUE &start,
              const D_TIME_VALUE &end, D_REAL8 *max_return, D_REAL8 *min_return) {
  bool any = false;
  D_REAL8 hi = 0.0;
  D_REAL8 lo = 0.0;
  auto take = [&](const D_RING_ENTRY &e) {
    D_REAL8 v = 0.0;
    if (e.status == 0 || !numericValue(ring->type, e, &v)) return;
    hi = any ? std::max(hi, v) : v;
    lo = any ? std::min(lo, v) : v;
    any = true;
  };
  if (lead != nullptr && micros(*lead) <= micros(end)) take(*lead);
  if (hdr != nullptr) {
    const Seq seq = seqOf(hdr);
    const std::int64_t from = micros(start) + 1;
    const Bounds b = between(hdr, seq, from, micros(end));
    for (D_INT4 i = b.first; i < b.last; ++i) {
      if (within(seq[i], from, micros(end))) take(seq[i]);
    }
  }
  if (!any) return fail(D_ERR_EMPTY, D_FALSE);
  *max_return = hi;
  *min_return = lo;
  return D_TRUE;
}

bool statisticArgs(const D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end, const D_REAL8 *max,
                   const D_REAL8 *min) {
  if (ring == nullptr || max == nullptr || min == nullptr) return fail(D_ERR_NULL_PTR, false);
  if (!checkedTimes({start, end})) return false;
  if (micros(*end) < micros(*start)) return fail(D_ERR_VAL_INVALID, false);
  if (ring->type == D_RING_TYPE_VOID || ring->type == D_RING_TYPE_STRING) return fail(D_ERR_TYPE_MISMATCH, false);
  return true;
}

// The change buffer's entries from start to end (null bounds are open).
template <class Visit>
bool eachChange(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end, Visit visit) {
  if (ring == nullptr) return fail(D_ERR_NULL_PTR, false);
  for (const D_TIME_VALUE *t : {start, end}) {
    if (t != nullptr && !validTime(*t)) return fail(D_ERR_VAL_INVALID, false);
  }
  const std::int64_t lo = start != nullptr ? micros(*start) : kOpenLow;
  const std::int64_t hi = end != nullptr ? micros(*end) : kOpenHigh;
  if (hi < lo) return fail(D_ERR_VAL_INVALID, false);
  D_RING_HDR *hdr = changeBuffer(ring);
  if (hdr == nullptr) return true;
  const Seq seq = seqOf(hdr);
  const Bounds b = between(hdr, seq, lo, hi);
  for (D_INT4 i = b.first; i < b.last; ++i) {
    if (within(seq[i], lo, hi)) visit(&seq[i]);
  }
  return true;
}

D_INT4 historySize() {
  D_OPTION *option = DutOptionLookup("default_history_buffer_size");
  D_REAL8 size = kDefaultHistorySize;
  if (option != nullptr && D_GOPT_KNOWN(option)) DutOptionGetNum(option, &size);
  return clampSize(static_cast<D_INT4>(std::clamp<D_REAL8>(size, 0.0, D_RING_MAX_SIZE)));
}

D_RING_HDR *historyBuffer(D_RING_BUF *ring) {
  if (ring->hist_buff == nullptr) {
    D_RING_HDR *hdr = newHeader();
    hdr->ring = ring;
    hdr->flags = D_RING_HISTORY | D_RING_TIME_REPEAT | D_RING_VALUE_REPEAT;
    allocateArray(hdr, historySize());
    ring->hist_buff = hdr;
  }
  return ring->hist_buff;
}

// The ring's present: the current time when known, else its newest value.
bool present(D_RING_BUF *ring, std::int64_t *now) {
  D_TIME_VALUE t;
  if (currentTime(&t)) {
    *now = micros(t);
    return true;
  }
  D_RING_HDR *first = firstBuffer(ring);
  const D_RING_ENTRY *newest = first != nullptr && !isEmpty(first) ? first->current : ring->initial_value;
  if (newest == nullptr) return false;
  *now = micros(*newest);
  return true;
}

}  // namespace

}  // namespace vq::ring

using namespace vq::ring;

extern "C" {

D_EXPORT D_BOOL DutRingZeroTravInit(D_RING_CONTEXT *context, D_RING_BUF *ring, D_INT4 first_change,
                                    D_INT4 nchanges) {
  if (context == nullptr || ring == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (VQ_EXPECT(nchanges > 0, "nchanges > 0", kFile) == 0) return fail(D_ERR_VAL_TOO_SMALL, D_FALSE);
  if (VQ_EXPECT(first_change >= 0, "first_change >= 0", kFile) == 0) return fail(D_ERR_VAL_TOO_SMALL, D_FALSE);
  D_RING_HDR *hdr = changeBuffer(ring);
  if (hdr == nullptr) return fail(D_ERR_DOESNT_EXIST, D_FALSE);
  const D_INT4 held = seqOf(hdr).count;
  if (first_change >= held) {
    DutWarning("First change (%ld) too big: buffer only has %ld changes\n", static_cast<long>(first_change),
               static_cast<long>(held));
    return fail(D_ERR_VAL_TOO_LARGE, D_FALSE);
  }
  if (nchanges > held - first_change) {
    DutWarning("Too many changes requested: %ld, only have %ld\n", static_cast<long>(nchanges),
               static_cast<long>(held - first_change));
    nchanges = held - first_change;
  }
  *context = D_RING_CONTEXT{};
  context->kind = D_RING_TRAV_CHANGES;
  context->ring = ring;
  context->buffer = hdr;
  context->position = held - first_change - nchanges;
  context->remaining = nchanges;
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingTravInit(D_RING_CONTEXT *context, D_RING_BUF *ring, const D_TIME_VALUE *start,
                                const D_TIME_VALUE *incr, const D_TIME_VALUE *span) {
  if (context == nullptr || ring == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (!checkedTimes({start, incr, span})) return D_FALSE;
  if (micros(*span) < 0) return fail(D_ERR_VAL_INVALID, D_FALSE);
  const D_TIME_VALUE end = fromMicros(micros(*start) + micros(*span));
  return initTimed(context, ring, D_RING_TRAV_RING, spanBuffer(ring, micros(*start)), *start, *incr, end) ? D_TRUE
                                                                                                          : D_FALSE;
}

D_EXPORT D_BOOL DutRingHistTravInit(D_RING_CONTEXT *context, D_RING_BUF *ring, const D_TIME_VALUE *start,
                                    const D_TIME_VALUE *incr, const D_TIME_VALUE *end) {
  if (context == nullptr || ring == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (!checkedTimes({start, incr, end})) return D_FALSE;
  if (ring->hist_buff == nullptr) return fail(D_ERR_EMPTY, D_FALSE);
  return initTimed(context, ring, D_RING_TRAV_HISTORY, ring->hist_buff, *start, *incr, *end) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutRingTravNext(D_RING_CONTEXT *context, D_RING_ENTRY **entry_return, D_TIME_VALUE *time_return) {
  if (context == nullptr || entry_return == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (context->kind == 0) return fail(D_ERR_VAL_INVALID, D_FALSE);
  D_TIME_VALUE time{};
  D_RING_ENTRY *entry = nullptr;
  if (!step(*context, &entry, &time)) {
    context->done = 1;
    return fail(D_ERR_END_OF_TRAVERSAL, D_FALSE);
  }
  *entry_return = entry;
  if (time_return != nullptr) *time_return = time;
  return D_TRUE;
}

D_EXPORT D_WORD DutRingTraverse(D_RING_CONTEXT *context, D_RING_TRAV_FUNC func, void *arg) {
  if (context == nullptr || func == nullptr) return fail(D_ERR_NULL_PTR, D_WORD{0});
  D_RING_ENTRY *entry = nullptr;
  D_TIME_VALUE time{};
  while (DutRingTravNext(context, &entry, &time) == D_TRUE) {
    const D_WORD result = func(context, entry, &time, arg);
    if (result != 0) return result;
  }
  return 0;
}

D_EXPORT D_BOOL DutRingContextGetDone(D_RING_CONTEXT *context, D_INT4 *done_return) {
  if (context == nullptr || done_return == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  *done_return = context->done;
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingGetMaxMin(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                 D_REAL8 *max_return, D_REAL8 *min_return) {
  if (!statisticArgs(ring, start, end, max_return, min_return)) return D_FALSE;
  D_RING_HDR *hdr = spanBuffer(ring, micros(*start));
  D_RING_ENTRY *lead = findTimeEntry(nullptr, ring, *start);
  // A start before every buffer reaches back: the span buffer from its oldest.
  if (hdr != nullptr && lead == nullptr) lead = findTime(nullptr, hdr, *start, true);
  return maxMin(ring, hdr, lead, *start, *end, max_return, min_return);
}

D_EXPORT D_BOOL DutRingGetHistMaxMin(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                     D_REAL8 *max_return, D_REAL8 *min_return) {
  if (!statisticArgs(ring, start, end, max_return, min_return)) return D_FALSE;
  D_RING_HDR *hdr = ring->hist_buff;
  if (hdr == nullptr) return fail(D_ERR_EMPTY, D_FALSE);
  return maxMin(ring, hdr, findTime(nullptr, hdr, *start, false), *start, *end, max_return, min_return);
}

D_EXPORT D_BOOL DutRingNumChanges(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                  D_INT4 *count_return) {
  if (count_return == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  D_INT4 count = 0;
  if (!eachChange(ring, start, end, [&](D_RING_ENTRY *) { ++count; })) return D_FALSE;
  *count_return = count;
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingGetChanges(D_RING_BUF *ring, const D_TIME_VALUE *start, const D_TIME_VALUE *end,
                                  D_RING_ENTRY **entries, D_INT4 max_entries, D_INT4 *count_return) {
  if (count_return == nullptr || (entries == nullptr && max_entries > 0)) return fail(D_ERR_NULL_PTR, D_FALSE);
  D_INT4 count = 0;
  const bool ok = eachChange(ring, start, end, [&](D_RING_ENTRY *e) {
    if (count < max_entries) entries[count] = e;
    ++count;
  });
  if (!ok) return D_FALSE;
  *count_return = count;
  return D_TRUE;
}

D_EXPORT D_BOOL DutRingDeleteEntry(D_RING_HDR *buffer, D_RING_ENTRY *entry) {
  if (buffer == nullptr || entry == nullptr || buffer->start == nullptr) return fail(D_ERR_NULL_PTR, D_FALSE);
  if (!inArray(buffer, entry)) return fail(D_ERR_VAL_INVALID, D_FALSE);
  if (entry->status == 0) return fail(D_ERR_EMPTY, D_FALSE);
  const Seq seq = seqOf(buffer);
  const D_INT4 index = (slotOf(buffer, entry) - seq.oldest + seq.size) % seq.size;
  if (index >= seq.count) return fail(D_ERR_VAL_INVALID, D_FALSE);
  // With the oldest entry in slot 0, logical and physical order agree.
  linearise(buffer);
  D_RING_BUF *ring = buffer->ring;
  D_RING_ENTRY *e = buffer->start;
  releaseEntry(ring, e[index]);
  for (D_INT4 i = index; i + 1 < seq.count; ++i) moveSlot(ring, e[i + 1], e[i]);
  buffer->current = seq.count > 1 ? e + seq.count - 2 : e + buffer->size - 1;
  return D_TRUE;
}

D_EXPORT D_RING_ENTRY *DutRingArchiveHistoryData(D_RING_BUF *ring, const D_TIME_VALUE *time, const void *value,
                                                 D_UINT2 status, D_UINT2 flag) {
  if (!acceptValue(ring, time, value, status)) return nullptr;
  std::int64_t now = 0;
  const std::int64_t when = micros(*time);
  if (present(ring, &now) && when > now) {
    if (tracing()) trace("Error in DutRingArchiveHistoryData: time not historical\n");
    return fail(D_ERR_VAL_INVALID, static_cast<D_RING_ENTRY *>(nullptr));
  }
  D_RING_HDR *hdr = historyBuffer(ring);
  if (isWrapped(hdr)) {
    if (hdr->size >= D_RING_MAX_SIZE) return fail(D_ERR_VAL_TOO_LARGE, static_cast<D_RING_ENTRY *>(nullptr));
    reallocArray(hdr, std::min<D_INT4>(hdr->size + hdr->size / 2, D_RING_MAX_SIZE));
  }
  // Slot 0 is the oldest: the later entries move up one slot.
  const Seq seq = seqOf(hdr);
  const D_INT4 at = upperBound(seq, when);
  D_RING_ENTRY *e = hdr->start;
  for (D_INT4 i = seq.count - 1; i >= at; --i) moveSlot(ring, e[i], e[i + 1]);
  std::string text;
  storeValue(hdr, e + at, *time, readValue(ring->type, value, &text), status, flag);
  hdr->current = e + seq.count;
  return e + at;
}

}  // extern "C"
