// Writing values: the newer-value path every archive takes, the insertion
// of older values in time order, growth, and the ring's initial value.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include "frame/check.hpp"
#include "ringbuf/ring_internal.hpp"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"

namespace vq::ring {

namespace {

bool sameTime(const D_RING_ENTRY &e, const D_TIME_VALUE &t) { return e.sec == t.seconds && e.usec == t.microseconds; }

// The size a full growable buffer grows to, from the entry rate it has seen
// and the span it must cover.
D_INT4 newSize(const D_RING_HDR *hdr) {
  const char *name = nameOf(hdr->ring);
  if (tracing()) trace("Entering utRingGetNewSize for %s\n", name);
  const D_REAL8 s = seconds(spanOf(hdr));
  const std::int64_t n = hdr->size;
  const std::int64_t fallback = n + n / 2;
  std::int64_t size = fallback;
  if (s > 0.001) {
    D_REAL8 rate = static_cast<D_REAL8>(n) / s;
    // At most one entry per increment; an increment of a microsecond or less
    // caps the rate at one in a million seconds instead, so such buffers
    // grow by the default.
    const D_REAL8 cap = micros(hdr->incr) <= 1 ? 0.000001 : 1.0 / seconds(hdr->incr);
    rate = std::min(rate, cap);
    if (tracing()) trace("Entries per second: %s\n", DutRealToStr(rate));
    if (rate >= 0.00000001) {
      const D_REAL8 wanted = std::min(seconds(hdr->min_span) * rate, 1e12);
      size = static_cast<std::int64_t>(wanted) + 2;
      if (size >= 6 * n) size += size / 5;
    }
  }
  if (size < fallback) {
    if (tracing()) trace("new size (%ld) < default (%ld)\n", static_cast<long>(size), static_cast<long>(fallback));
    size = fallback;
  }
  if (size <= n) {
    DutDebug("Ring Buffer Resize algorithm Failed, buffer %s\n", name);
    DutDebug("new size = %ld, current size = %ld\n", static_cast<long>(size), static_cast<long>(n));
    size = n + n / 2;
  }
  if (tracing()) trace("Returning from utRingGetNewSize with %ld\n", static_cast<long>(size));
  return static_cast<D_INT4>(std::min<std::int64_t>(size, D_RING_MAX_SIZE));
}

// A full growable buffer that covers less than its minimum span grows; at
// the size limit it wraps instead.
[[gnu::noinline]] void growIfShortSlow(D_RING_HDR *hdr) {
  if (micros(spanOf(hdr)) >= micros(hdr->min_span)) return;
  const D_INT4 size = newSize(hdr);
  if (size <= hdr->size) return;
  if (tracing()) {
    trace("Resize %s buffer from %ld to %ld entries, incr = %ld.%06ld\n", nameOf(hdr->ring),
          static_cast<long>(hdr->size), static_cast<long>(size), sec(hdr->incr), usec(hdr->incr));
  }
  reallocArray(hdr, size);
}
// Most buffers an archive sees are fixed, not yet full or at the limit: a
// few flag tests, inline.
inline void growIfShort(D_RING_HDR *hdr) {
  if (isFixed(hdr) || !isWrapped(hdr) || hdr->size >= D_RING_MAX_SIZE) return;
  growIfShortSlow(hdr);
}

// Moves an entry to another slot of the same buffer and empties the source.
// A double cannot move (its value lives in the slot's own storage): the
// source is emptied and the destination left as it was.
void copyEntry(D_RING_HDR *from_hdr, D_RING_ENTRY *from, D_RING_HDR *to_hdr, D_RING_ENTRY *to) {
  if (from_hdr == nullptr || from == nullptr || to_hdr == nullptr || to == nullptr) {
    if (tracing()) trace("Error in utRingCopyEntry: NULL argument\n");
    return;
  }
  if (!inArray(from_hdr, from)) {
    if (tracing()) trace("Error in utRingCopyEntry, from invalid\n");
    return;
  }
  if (!inArray(to_hdr, to)) {
    if (tracing()) trace("Error in utRingCopyEntry, to invalid\n");
    return;
  }
  if (from_hdr != to_hdr) {
    if (tracing()) trace("Error in utRingCopyEntry: hdrs from different buffers\n");
    return;
  }
  D_RING_BUF *ring = from_hdr->ring;
  if (ring->type == D_RING_TYPE_DOUBLE) {
    DutWarning("Error in utRingCopyEntry: type numeric not implemented\n");
    clearValue(ring, *from);
    from_hdr->flags |= D_RING_HOLES;
    return;
  }
  if (to->status != 0 && ring->overwrite_cb_list != nullptr) {
    D_RING_OVERWRITE_CB_DATA data{nullptr, to_hdr, to};
    DutCbListCall(ring->overwrite_cb_list, ring, &data);
  }
  releaseEntry(ring, *to);
  *to = *from;
  // The value now belongs to the destination.
  from->value = D_RING_VALUE{};
  from->sec = 0;
  from->usec = 0;
  from->status = 0;
  from->flag = 0;
}

D_RING_ENTRY *keepInitial(D_RING_BUF *ring, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                          D_UINT2 flag) {
  D_RING_ENTRY *&initial = ring->initial_value;
  if (initial == nullptr) {
    // A double needs a slot of its own: it follows the entry in one block.
    const D_INT4 bytes = static_cast<D_INT4>(sizeof(D_RING_ENTRY) + sizeof(D_REAL8));
    initial = static_cast<D_RING_ENTRY *>(DutCallocCheck(bytes, "((rb)->initial_value)", kFile, __LINE__));
    if (ring->type == D_RING_TYPE_DOUBLE) initial->value.dp = reinterpret_cast<D_REAL8 *>(initial + 1);
  }
  fillEntry(ring, *initial, t, value, status, flag);
  return initial;
}

// The value operations take the ring type as a template argument where an
// archive knows it, so that the type switch folds away in the loop over the
// buffers; kAnyType switches at run time.
inline constexpr D_UINT4 kAnyType = ~0u;

template <D_UINT4 kType = kAnyType>
inline bool sameValue(D_UINT4 runtime_type, const D_RING_ENTRY &entry, const Incoming &value) {
  const D_UINT4 type = kType == kAnyType ? runtime_type : kType;
  switch (type) {
    case D_RING_TYPE_VOID:
      return entry.value.ptr == value.ptr;
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      return entry.value.i == value.i;
    case D_RING_TYPE_DOUBLE:
      return *entry.value.dp == value.d;
    case D_RING_TYPE_STRING:
      return std::strcmp(entry.value.rs != nullptr ? entry.value.rs->str : "", value.text) == 0;
    case D_RING_TYPE_FLOAT:
      return entry.value.f == value.f;
    case D_RING_TYPE_WORD:
      return entry.value.w == value.w;
    default:
      DutWarning("Invalid buffer type: %ld in utRingValuesEqual\n", static_cast<long>(type));
      return false;
  }
}

template <D_UINT4 kType = kAnyType>
inline void putValue(D_RING_BUF *ring, D_RING_ENTRY &entry, const Incoming &value) {
  const D_UINT4 type = kType == kAnyType ? ring->type : kType;
  switch (type) {
    case D_RING_TYPE_VOID: {
      void *old = entry.value.ptr;
      takePointer(ring, value.ptr);
      entry.value.ptr = value.ptr;
      dropPointer(ring, old);
      break;
    }
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      entry.value.i = value.i;
      break;
    case D_RING_TYPE_DOUBLE:
      *entry.value.dp = value.d;
      break;
    case D_RING_TYPE_STRING:
      setText(entry, value.text);
      break;
    case D_RING_TYPE_FLOAT:
      entry.value.f = value.f;
      break;
    case D_RING_TYPE_WORD:
      entry.value.w = value.w;
      break;
    default:
      DutWarning("Unexpected value type in utRingSetValue: %ld\n", static_cast<long>(ring->type));
      break;
  }
}

template <D_UINT4 kType = kAnyType>
inline void fill(D_RING_BUF *ring, D_RING_ENTRY &entry, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                 D_UINT2 flag) {
  putValue<kType>(ring, entry, value);
  entry.sec = t.seconds;
  entry.usec = t.microseconds;
  entry.status = status;
  entry.flag = flag;
}

// kQuiet: the caller saw tracing off and no overwrite callbacks, and
// nothing the store runs can change either, so neither is looked at again.
template <D_UINT4 kType = kAnyType, bool kQuiet = false>
inline bool putEntry(D_RING_HDR *hdr, D_RING_ENTRY *entry, const D_TIME_VALUE &t, const Incoming &value,
                     D_UINT2 status, D_UINT2 flag) {
  D_RING_BUF *ring = hdr->ring;
  if (!inArray(hdr, entry)) {
    if (!kQuiet && tracing()) trace("Invalid entry in utRingStoreValue, Buffer: %s\n", nameOf(ring));
    return false;
  }
  if constexpr (!kQuiet) {
    if (tracing()) trace("Storing value for %s at %ld.%06ld\n", nameOf(ring), sec(t), usec(t));
    if (entry->status != 0 && ring->overwrite_cb_list != nullptr) {
      D_RING_OVERWRITE_CB_DATA data{nullptr, hdr, entry};
      DutCbListCall(ring->overwrite_cb_list, ring, &data);
    }
  }
  fill<kType>(ring, *entry, t, value, status, flag);
  return true;
}

template <D_UINT4 kType, bool kQuiet>
D_RING_ENTRY *newer(D_RING_HDR *hdr, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status, D_UINT2 flag) {
  D_RING_BUF *ring = hdr->ring;
  D_RING_ENTRY *cur = hdr->current;
  if (cur->status == 0) {
    if (!kQuiet && tracing()) trace("Updating empty header\n");
    putEntry<kType, kQuiet>(hdr, hdr->start, t, value, status, flag);
    hdr->current = hdr->start;
    setGrid(hdr, t);
    return hdr->current;
  }
  if ((hdr->flags & D_RING_VALUE_REPEAT) == 0 && sameValue<kType>(ring->type, *cur, value)) {
    if (!kQuiet && tracing()) {
      trace("New value equals previous value for buffer %s, incr: %ld.%06ld, time %ld.%06ld\n", nameOf(ring),
            sec(hdr->incr), usec(hdr->incr), sec(t), usec(t));
    }
    return cur;
  }
  const std::int64_t when = micros(t);
  if (when < micros(*cur)) {
    if (!kQuiet && tracing()) {
      traceWarning("Time reversal Buffer %s, incr %ld.%06ld (%ld.%06ld vs %ld.%06ld) - data ignored\n",
                   nameOf(ring), sec(hdr->incr), usec(hdr->incr), sec(t), usec(t), static_cast<long>(cur->sec),
                   static_cast<long>(cur->usec));
    }
    return nullptr;
  }
  if ((hdr->flags & D_RING_TIME_REPEAT) == 0 && when == micros(*cur)) {
    if (tracing() && (ring->name == nullptr || ring->name[0] != '_')) {
      trace("Duplicate timestamp received for %s, incr %ld.%06ld\n", nameOf(ring), sec(hdr->incr),
            usec(hdr->incr));
      trace("at time %ld.%06ld - overwriting previous value\n", sec(t), usec(t));
    }
    putEntry<kType, kQuiet>(hdr, cur, t, value, status, flag);
    return cur;
  }
  growIfShort(hdr);
  if ((hdr->flags & D_RING_TIME_REPEAT) != 0) {
    D_RING_ENTRY *slot = after(hdr, hdr->current);
    putEntry<kType, kQuiet>(hdr, slot, t, value, status, flag);
    hdr->current = slot;
    return slot;
  }
  cur = hdr->current;
  const bool just_one = !isWrapped(hdr) && cur == hdr->start;
  const bool at_boundary = micros(*cur) == micros(hdr->next_incr) - micros(hdr->incr);
  const std::int64_t next = micros(hdr->next_incr);
  if (!kQuiet && tracing()) {
    trace("Updating buffer at %ld.%06ld next inc = %ld.%06ld just1 = %ld\n", sec(t), usec(t),
          sec(hdr->next_incr), usec(hdr->next_incr), static_cast<long>(just_one));
  }
  D_RING_ENTRY *target = nullptr;
  if (when == next) {
    if (!kQuiet && tracing()) trace("Time match at %ld.%06ld\n", sec(t), usec(t));
    bool advanced = false;
    if (at_boundary) {
      if (!kQuiet && tracing()) {
        trace("Prev time %ld.%06ld\n", static_cast<long>(cur->sec), static_cast<long>(cur->usec));
      }
      hdr->current = after(hdr, cur);
      advanced = true;
    }
    target = just_one && !advanced ? after(hdr, hdr->current) : hdr->current;
    setGrid(hdr, t);
  } else if (when > next) {
    if (!kQuiet && tracing()) {
      trace("Time %ld.%06ld GT %ld.%06ld\n", sec(t), usec(t), sec(hdr->next_incr), usec(hdr->next_incr));
    }
    if (!isFixed(hdr) && micros(hdr->incr) > 0) {
      setGrid(hdr, t);
    } else {
      hdr->next_incr = t;
    }
    target = after(hdr, cur);
  } else {
    // Within the newest increment: only its latest value is kept.
    if (!kQuiet && tracing()) {
      trace("Time %ld.%06ld LT %ld.%06ld\n", sec(t), usec(t), sec(hdr->next_incr), usec(hdr->next_incr));
    }
    target = just_one || at_boundary ? after(hdr, cur) : cur;
  }
  putEntry<kType, kQuiet>(hdr, target, t, value, status, flag);
  hdr->current = target;
  return target;
}

// The next boundary from a data time in microseconds at or after the
// current boundary next, for a positive increment: setGrid's rule, inline
// for the archive loop. A time within one increment of the boundary this
// buffer last set steps one increment on; the division is left for jumps
// and for boundaries the library did not set, and without kDivide it
// answers false for those before changing anything.
template <bool kDivide>
[[gnu::always_inline]] inline bool gridAfter(D_RING_HDR *hdr, std::int64_t when, std::int64_t next,
                                             std::int64_t incr) {
  BufferBlock *const block = blockOf(hdr);
  // The origin first: fewer values are live while it is compared.
  const std::int64_t origin = startMicros();
  std::int64_t boundary = next + incr;
  if (origin != block->grid_origin || next != block->grid_next || incr != block->grid_incr ||
      when >= boundary) [[unlikely]] {
    if constexpr (!kDivide) return false;
    boundary = origin + incr * ((when - origin) / incr + 1);
    // Only a boundary at or after the origin is stepped from: before it
    // the rule's division truncates toward zero, a step does not.
    block->grid_incr = boundary >= origin ? incr : 0;
    block->grid_origin = origin;
  }
  block->grid_next = boundary;
  hdr->next_incr = fromMicros(boundary);
  return true;
}

template <D_UINT4 kType, bool kQuiet>
D_RING_ENTRY *archiveAll(D_RING_BUF *ring, D_RING_HDR *first, const D_TIME_VALUE &t, const Incoming &value,
                         D_UINT2 status, D_UINT2 flag) {
  D_RING_ENTRY *result = newer<kType, kQuiet>(first, t, value, status, flag);
  for (D_RING_HDR *h = nextBuffer(ring, first); h != nullptr; h = nextBuffer(ring, h)) {
    newer<kType, kQuiet>(h, t, value, status, flag);
  }
  return result;
}

// The whole-ring archive with the value type known (kAnyType: any type,
// including pointers, whose free function is the caller's code).
template <D_UINT4 kType>
D_RING_ENTRY *archiveAs(D_RING_BUF *ring, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                        D_UINT2 flag) {
  D_RING_HDR *first = firstBuffer(ring);
  if ((status & D_RING_STATUS_KNOWN) == 0 || first == nullptr || !timeKnown()) {
    return keepInitial(ring, t, value, status, flag);
  }
  // Without tracing or overwrite callbacks no code of the caller's runs
  // during the archive, so the loop may leave both out and fix the type.
  if (kType == kAnyType || tracing() || ring->overwrite_cb_list != nullptr) {
    return archiveAll<kAnyType, false>(ring, first, t, value, status, flag);
  }
  return archiveAll<kType, true>(ring, first, t, value, status, flag);
}

// The types whose value is one word, and where Incoming holds it: the
// archive carries the word in a register from the entry point on.
template <D_UINT4 kType>
constexpr auto kWordOf = nullptr;
template <>
constexpr auto kWordOf<D_RING_TYPE_INT> = &Incoming::i;
template <>
constexpr auto kWordOf<D_RING_TYPE_DOUBLE> = &Incoming::d;
template <>
constexpr auto kWordOf<D_RING_TYPE_FLOAT> = &Incoming::f;
template <>
constexpr auto kWordOf<D_RING_TYPE_WORD> = &Incoming::w;
template <D_UINT4 kType>
using Word = std::remove_reference_t<decltype(Incoming{}.*kWordOf<kType>)>;
template <D_UINT4 kType>
Incoming incoming(Word<kType> word) {
  Incoming value;
  value.*kWordOf<kType> = word;
  return value;
}

// Status and flag as the entry holds them, side by side: one store.
static_assert(offsetof(D_RING_ENTRY, flag) == offsetof(D_RING_ENTRY, status) + sizeof(D_UINT2));
inline D_UINT4 packStatus(D_UINT2 status, D_UINT2 flag) {
  const D_UINT2 both[2] = {status, flag};
  D_UINT4 packed;
  std::memcpy(&packed, both, sizeof packed);
  return packed;
}
inline D_UINT2 statusOf(D_UINT4 packed) {
  D_UINT2 both[2];
  std::memcpy(both, &packed, sizeof packed);
  return both[0];
}
inline D_UINT2 flagOf(D_UINT4 packed) {
  D_UINT2 both[2];
  std::memcpy(both, &packed, sizeof packed);
  return both[1];
}

// A data time as one word, as it lies in memory: stored with one move.
static_assert(sizeof(D_TIME_VALUE) == sizeof(std::uint64_t) && offsetof(D_RING_ENTRY, usec) == sizeof(D_INT4));
inline std::uint64_t wordOf(D_INT4 seconds, D_INT4 microseconds) {
  if constexpr (std::endian::native == std::endian::little) {
    return static_cast<std::uint32_t>(seconds) | std::uint64_t{static_cast<std::uint32_t>(microseconds)} << 32;
  } else {
    std::uint64_t raw;
    const D_INT4 parts[2] = {seconds, microseconds};
    std::memcpy(&raw, parts, sizeof raw);
    return raw;
  }
}
// The caller's time, read field by field: callers usually have just
// stored the two fields one by one, and a load of both at once could not
// take them from the store queue, but would wait for both stores to reach
// the cache (about a quarter of a one-buffer archive). The empty asm keeps
// the compiler from merging the two loads.
inline std::uint64_t rawTime(const D_TIME_VALUE *t) {
  const D_INT4 seconds = t->seconds;
  D_INT4 microseconds = t->microseconds;
#if defined(__GNUC__)
  asm("" : "+r"(microseconds));
#endif
  return wordOf(seconds, microseconds);
}
inline D_TIME_VALUE timeOf(std::uint64_t raw) {
  D_TIME_VALUE t;
  std::memcpy(&t, &raw, sizeof t);
  return t;
}
inline void storeTime(void *to, std::uint64_t raw) { std::memcpy(to, &raw, sizeof raw); }

// Whether a full buffer (not the history buffer: its span is measured
// otherwise) surely covers its minimum span, from its entries alone: the
// span's end is the later of the newest time and the current time, and
// whatever the fields hold it is at least the newest time less the oldest,
// up to the largest span it can show. No current time (that takes the
// process lock) for a buffer that keeps its span.
[[gnu::always_inline]] inline bool coversSpan(const D_RING_HDR *hdr, const D_RING_ENTRY *newest,
                                              const D_RING_ENTRY *oldest) {
  constexpr std::int64_t kLongest = std::int64_t{INT32_MAX} * kMicros;
  return std::min(micros(*newest) - micros(*oldest), kLongest) >= micros(hdr->min_span);
}

// A field read again where it is used. Left to itself the compiler keeps
// an earlier read in a register across the whole step, and the loop then
// saves one more register on every archive; a second load from the cache
// line the step has just read costs less. (The load is atomic only so that
// the compiler does not merge it with the first.)
template <class T>
[[gnu::always_inline]] inline T reread(const T &field) {
#if defined(__GNUC__)
  return __atomic_load_n(&field, __ATOMIC_RELAXED);
#else
  return field;
#endif
}

// One buffer's steady state in a quiet archive, with no call in it: a
// later time into a buffer that repeats neither times nor values and will
// not grow, landing in the newest increment or opening the next entry; a
// value equal to the newest is dropped. Anything else answers false before
// changing anything, for the full path. Without kGrid a grid step that
// needs a division answers false too: its code needs registers that the
// loop would otherwise save on every archive.
template <D_UINT4 kType, bool kGrid>
[[gnu::always_inline]] inline bool steadyStep(D_RING_HDR *hdr, std::int64_t when, std::uint64_t raw, Word<kType> word,
                                              D_UINT4 packed) {
  D_RING_ENTRY *const cur = hdr->current;
  const D_UINT4 flags = hdr->flags;
  // The history buffer's span is measured otherwise: the full path.
  if (cur->status == 0 || (flags & (D_RING_VALUE_REPEAT | D_RING_TIME_REPEAT | D_RING_HISTORY)) != 0) return false;
  if constexpr (kType == D_RING_TYPE_DOUBLE) {
    // The slot's address read again by the store in place (see reread).
    if (*reread(cur->value.dp) == word) [[unlikely]] return true;
  } else {
    if (sameValue<kType>(kType, *cur, incoming<kType>(word))) [[unlikely]] return true;
  }
  const std::int64_t newest = micros(*cur);
  if (when <= newest) return false;
  // The last slot, looked at only where it matters; most buffers in their
  // steady state are at the size limit and overwrite their newest entry.
  auto last = [hdr] { return hdr->start + reread(hdr->size) - 1; };
  auto following = [hdr, cur, last] { return cur == last() ? hdr->start : cur + 1; };
  // A full growable buffer below the size limit may grow: the full path
  // decides, unless the entries alone show that it covers its span.
  if (hdr->size < D_RING_MAX_SIZE && (flags & D_RING_FIXED) == 0 && last()->status != 0 &&
      !coversSpan(hdr, cur, following())) {
    return false;
  }
  const std::int64_t next = micros(hdr->next_incr);
  // The value, time, status and flag into the entry that takes them;
  // current moves there.
  auto put = [hdr, raw, word, packed](D_RING_ENTRY *target) {
    putValue<kType>(hdr->ring, *target, incoming<kType>(word));
    storeTime(target, raw);
    std::memcpy(&target->status, &packed, sizeof packed);
  };
  if (when > next) {
    // Past the boundary: the next entry opens, and the grid moves on from
    // the time for a growable buffer with a positive increment; otherwise
    // the boundary becomes the time itself.
    std::int64_t incr = 0;
    // An increment of 0.0 (the buffer that keeps every change) is told by
    // one load, before any conversion.
    std::uint64_t incr_word;
    std::memcpy(&incr_word, &hdr->incr, sizeof incr_word);
    if ((flags & D_RING_FIXED) == 0 && incr_word != 0 && (incr = micros(hdr->incr)) > 0) {
      if (!gridAfter<kGrid>(hdr, when, next, incr)) return false;
    } else {
      storeTime(&hdr->next_incr, raw);
    }
    D_RING_ENTRY *const target = following();
    put(target);
    hdr->current = target;
    return true;
  }
  // Within the newest increment (or at its end) the newest entry takes the
  // value, unless it is the first of the buffer or opened the increment. At
  // the end the grid moves on: for an increment of 0.0 from the current
  // time, left to the full path.
  const std::int64_t incr = micros(hdr->incr);
  const bool opens = newest + incr == next || (cur == hdr->start && last()->status == 0);
  // On the boundary the grid moves first (refused before anything is
  // stored). Taken on each side of the opening test, so that the test's
  // answer need not be kept in a register across the step.
  auto boundaryStep = [&] { return when != next || (incr != 0 && gridAfter<kGrid>(hdr, when, next, incr)); };
  if (opens) [[unlikely]] {
    if (!boundaryStep()) return false;
    D_RING_ENTRY *const target = following();
    put(target);
    hdr->current = target;
    return true;
  }
  if (!boundaryStep()) return false;
  // In place: current stays.
  put(cur);
  return true;
}

// The archive without its steady state: the whole of it, as archiveAs
// decides.
template <D_UINT4 kType>
[[gnu::noinline]] D_RING_ENTRY *archiveRest(D_RING_BUF *ring, std::uint64_t raw, Word<kType> word, D_UINT4 packed) {
  return archiveAs<kType>(ring, timeOf(raw), incoming<kType>(word), statusOf(packed), flagOf(packed));
}

// The archive from buffer h on, after the buffers before it took the
// steady step (which leaves the entry it wrote, or kept, current): that
// step where it applies and the full path elsewhere. end: the ring's list.
template <D_UINT4 kType>
[[gnu::noinline]] D_RING_ENTRY *archiveFrom(D_DQ_NODE *end, D_RING_HDR *h, std::uint64_t raw, Word<kType> word,
                                            D_UINT4 packed) {
  auto *const first = reinterpret_cast<D_RING_HDR *>(end->next);
  D_RING_ENTRY *result = first->current;
  const D_TIME_VALUE t = timeOf(raw);
  const std::int64_t when = micros(t);
  for (auto *node = reinterpret_cast<D_DQ_NODE *>(h); node != end; node = node->next) {
    h = reinterpret_cast<D_RING_HDR *>(node);
    D_RING_ENTRY *const e = steadyStep<kType, true>(h, when, raw, word, packed)
                                ? h->current
                                : newer<kType, true>(h, t, incoming<kType>(word), statusOf(packed), flagOf(packed));
    if (h == first) result = e;
  }
  return result;
}

// The usual archive of a one-word value whose status says known: known
// time, no tracing and no callbacks, every buffer in its steady state. No
// call on that way: each exit to the general code is a jump.
template <D_UINT4 kType>
[[gnu::always_inline]] inline D_RING_ENTRY *archiveSteady(D_RING_BUF *ring, const D_TIME_VALUE *time,
                                                          Word<kType> word, D_UINT4 packed) {
  // Both forms of the time are read before anything is stored: the
  // microseconds straight from the fields, which is shorter than taking
  // them from the word.
  const std::uint64_t raw = rawTime(time);
  D_DQ_NODE *const end = ring->buffers;
  D_DQ_NODE *node = end->next;
  if (node == end || !utRingTimeKnown.load(std::memory_order_relaxed) || tracing() ||
      ring->overwrite_cb_list != nullptr) [[unlikely]] {
    return archiveRest<kType>(ring, raw, word, packed);
  }
  const std::int64_t when = micros(*time);
  do {
    auto *h = reinterpret_cast<D_RING_HDR *>(node);
    if (!steadyStep<kType, false>(h, when, raw, word, packed)) [[unlikely]] {
      return archiveFrom<kType>(end, h, raw, word, packed);
    }
    node = node->next;
  } while (node != end);
  return reinterpret_cast<D_RING_HDR *>(end->next)->current;
}

template <D_UINT4 kType>
[[gnu::always_inline]] inline Word<kType> wordAt(const void *value) {
  Word<kType> word;
  std::memcpy(&word, value, sizeof word);
  return word;
}

// A one-word value, the time already checked.
template <D_UINT4 kType>
[[gnu::noinline]] D_RING_ENTRY *archiveWord(D_RING_BUF *ring, const D_TIME_VALUE *time, const void *value,
                                            D_UINT2 status, D_UINT2 flag) {
  const D_UINT4 packed = packStatus(status, flag);
  if ((status & D_RING_STATUS_KNOWN) == 0) return archiveRest<kType>(ring, rawTime(time), wordAt<kType>(value), packed);
  return archiveSteady<kType>(ring, time, wordAt<kType>(value), packed);
}

// A refused archive: the error number, and the trace for a status of 0.
[[gnu::noinline]] D_RING_ENTRY *refuseArchive(D_RING_BUF *ring, const D_TIME_VALUE *time, const void *value,
                                              D_UINT2 status) {
  if (!acceptValue(ring, time, value, status) && ring != nullptr && time != nullptr && value != nullptr &&
      status == 0 && tracing()) {
    trace("Error in DutRingArchiveValue: Invalid status flag (%ld)\n", static_cast<long>(status));
    trace("Buffer: %s, changing status to known runtime\n", nameOf(ring));
  }
  return nullptr;
}

// Calls word() with the ring type as a compile-time constant for the
// one-word types (int and long share one form), other() for the rest.
template <class WordFn, class OtherFn>
inline D_RING_ENTRY *byWordType(D_UINT4 type, WordFn word, OtherFn other) {
  switch (type) {
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      return word(std::integral_constant<D_UINT4, D_RING_TYPE_INT>{});
    case D_RING_TYPE_DOUBLE:
      return word(std::integral_constant<D_UINT4, D_RING_TYPE_DOUBLE>{});
    case D_RING_TYPE_FLOAT:
      return word(std::integral_constant<D_UINT4, D_RING_TYPE_FLOAT>{});
    case D_RING_TYPE_WORD:
      return word(std::integral_constant<D_UINT4, D_RING_TYPE_WORD>{});
    default:
      return other();
  }
}

// Every archive but a known double: the checks in order, then by type; a
// text may lie in an entry of this very ring, so it is copied first.
[[gnu::noinline]] D_RING_ENTRY *archiveOther(D_RING_BUF *ring, const D_TIME_VALUE *time, const void *value,
                                             D_UINT2 status, D_UINT2 flag) {
  if (ring == nullptr || time == nullptr || value == nullptr || status == 0 || !validTime(*time)) {
    return refuseArchive(ring, time, value, status);
  }
  return byWordType(
      ring->type, [&](auto type) { return archiveWord<type()>(ring, time, value, status, flag); },
      [&] {
        std::string text;
        return archive(ring, *time, readValue(ring->type, value, &text), status, flag);
      });
}

}  // namespace

// The value operations other files use; the insertion paths here use the
// inline forms above.
bool equalsIncoming(D_UINT4 type, const D_RING_ENTRY &entry, const Incoming &value) {
  return sameValue(type, entry, value);
}
void setValue(D_RING_BUF *ring, D_RING_ENTRY &entry, const Incoming &value) { putValue(ring, entry, value); }
bool storeValue(D_RING_HDR *hdr, D_RING_ENTRY *entry, const D_TIME_VALUE &t, const Incoming &value,
                D_UINT2 status, D_UINT2 flag) {
  return putEntry(hdr, entry, t, value, status, flag);
}
D_RING_ENTRY *insertNewer(D_RING_HDR *hdr, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                          D_UINT2 flag) {
  return newer<kAnyType, false>(hdr, t, value, status, flag);
}
void fillEntry(D_RING_BUF *ring, D_RING_ENTRY &entry, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
               D_UINT2 flag) {
  fill(ring, entry, t, value, status, flag);
}

D_RING_ENTRY *archive(D_RING_BUF *ring, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                      D_UINT2 flag) {
  return byWordType(
      ring->type, [&](auto type) { return archiveAs<type()>(ring, t, value, status, flag); },
      [&] {
        return ring->type == D_RING_TYPE_STRING ? archiveAs<D_RING_TYPE_STRING>(ring, t, value, status, flag)
                                                : archiveAs<kAnyType>(ring, t, value, status, flag);
      });
}

D_RING_ENTRY *insertInOrder(D_RING_HDR *hdr, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                            D_UINT2 flag) {
  const PointerGuard guard(hdr->ring, value);
  const std::int64_t when = micros(t);
  Seq seq = seqOf(hdr);
  D_INT4 at = upperBound(seq, when);
  if ((hdr->flags & D_RING_TIME_REPEAT) == 0 && at > 0 && sameTime(seq[at - 1], t)) {
    putEntry(hdr, &seq[at - 1], t, value, status, flag);
    return &seq[at - 1];
  }
  if (isWrapped(hdr)) {
    growIfShort(hdr);
    seq = seqOf(hdr);
  }
  if (seq.count < seq.size) {
    // Room after the newest: the newer entries move up one slot, newest first.
    for (D_INT4 i = seq.count - 1; i >= at; --i) copyEntry(hdr, &seq[i], hdr, &seq[i + 1]);
    hdr->current = &seq[seq.count];
    putEntry(hdr, &seq[at], t, value, status, flag);
    return &seq[at];
  }
  if (at == 0) return fail(D_ERR_VAL_TOO_SMALL, static_cast<D_RING_ENTRY *>(nullptr));
  // Full: the oldest entry is given up and the older ones move down a slot.
  for (D_INT4 i = 1; i < at; ++i) copyEntry(hdr, &seq[i], hdr, &seq[i - 1]);
  putEntry(hdr, &seq[at - 1], t, value, status, flag);
  return &seq[at - 1];
}

bool acceptValue(const void *holder, const D_TIME_VALUE *time, const void *value, D_UINT2 status) {
  if (holder == nullptr || time == nullptr || value == nullptr) return fail(D_ERR_NULL_PTR, false);
  if (!validTime(*time)) return fail(D_ERR_VAL_INVALID, false);
  if (status == 0) return fail(D_ERR_VAL_INVALID, false);
  return true;
}

}  // namespace vq::ring

using namespace vq::ring;

extern "C" {

D_EXPORT D_RING_ENTRY *DutRingInsertValue(D_RING_HDR *buffer, const D_TIME_VALUE *time, const void *value,
                                          D_UINT2 status, D_UINT2 flag) {
  // Storing into no buffer, or no value, is a broken caller: fatal.
  VQ_ASSERT(buffer != nullptr, "hdr", kFile);
  VQ_ASSERT(value != nullptr, "value", kFile);
  if (!acceptValue(buffer, time, value, status)) return nullptr;
  if (buffer->start == nullptr || buffer->ring == nullptr) {
    return fail(D_ERR_NULL_PTR, static_cast<D_RING_ENTRY *>(nullptr));
  }
  std::string text;
  const Incoming in = readValue(buffer->ring->type, value, &text);
  D_RING_ENTRY *cur = buffer->current;
  if (cur->status == 0) {
    // Into the current slot, then slot 0 is current: a new buffer's first
    // value thus lands in its last slot. Unlike the archive's empty case,
    // the grid stays as it was.
    storeValue(buffer, cur, *time, in, status, flag);
    if (cur != buffer->start) buffer->flags |= D_RING_HOLES;
    buffer->current = buffer->start;
    return cur;
  }
  if (micros(*time) > micros(*cur)) return insertNewer(buffer, *time, in, status, flag);
  return insertInOrder(buffer, *time, in, status, flag);
}

D_EXPORT D_RING_ENTRY *DutRingArchiveValue(D_RING_BUF *ring, const D_TIME_VALUE *time, const void *value,
                                           D_UINT2 status, D_UINT2 flag) {
  // Known doubles, the usual measured values, straight to the steady
  // state; everything else, refusals included, by the general way.
  // One test and branch per pointer: fewer instructions than the flag
  // arithmetic the compiler makes of a combined test.
  auto other = [&] { return archiveOther(ring, time, value, status, flag); };
  if (ring == nullptr) [[unlikely]] return other();
  if (time == nullptr) [[unlikely]] return other();
  if (value == nullptr) [[unlikely]] return other();
  if (ring->type == D_RING_TYPE_DOUBLE && (status & D_RING_STATUS_KNOWN) != 0 && validTime(*time)) [[likely]] {
    return archiveSteady<D_RING_TYPE_DOUBLE>(ring, time, wordAt<D_RING_TYPE_DOUBLE>(value),
                                             packStatus(status, flag));
  }
  return other();
}

}  // extern "C"
