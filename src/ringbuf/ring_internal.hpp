// Shared internals of the ring-buffer family: time arithmetic in
// microseconds, the logical (oldest-first) view of a buffer, value handling
// by type, the trace and the private tail of every ring record.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <unordered_map>

#include "errors/debug_flags.hpp"
#include "vqutil/error.h"
#include "vqutil/ringbuf.h"
#include "vqutil/time.h"

namespace vq::ring {

inline constexpr const char *kFile = "ringbuf.c";
inline constexpr std::int64_t kMicros = 1000000;

// ---- Time -----------------------------------------------------------------

inline std::int64_t micros(const D_TIME_VALUE &t) {
  return static_cast<std::int64_t>(t.seconds) * kMicros + t.microseconds;
}
inline std::int64_t micros(const D_RING_ENTRY &e) { return static_cast<std::int64_t>(e.sec) * kMicros + e.usec; }
// Normalised, the seconds held within 32 bits.
[[gnu::always_inline]] inline D_TIME_VALUE fromMicros(std::int64_t m) {
  // Most times are not negative and fit: one unsigned division.
  constexpr auto kFits = static_cast<std::uint64_t>(INT32_MAX) * kMicros + (kMicros - 1);
  if (static_cast<std::uint64_t>(m) <= kFits) [[likely]] {
    const auto u = static_cast<std::uint64_t>(m);
#if defined(__SIZEOF_INT128__)
    // The compiler's own multiply for u / kMicros, written out: in a block
    // it deems cold it would divide instead, and the archive's grid steps
    // are such blocks for it.
    __extension__ using Wide = unsigned __int128;
    const auto whole = static_cast<std::uint64_t>(static_cast<Wide>(u) * 0x431BDE82D7B634DBull >> 82);
#else
    const auto whole = u / kMicros;
#endif
    return D_TIME_VALUE{static_cast<D_INT4>(whole), static_cast<D_INT4>(u - whole * kMicros)};
  }
  std::int64_t s = m / kMicros;
  std::int64_t u = m % kMicros;
  if (u < 0) {
    u += kMicros;
    --s;
  }
  s = std::clamp<std::int64_t>(s, INT32_MIN, INT32_MAX);
  return D_TIME_VALUE{static_cast<D_INT4>(s), static_cast<D_INT4>(u)};
}
inline bool validTime(const D_TIME_VALUE &t) { return t.microseconds >= 0 && t.microseconds < kMicros; }
// Each time present (D_ERR_NULL_PTR) with its microseconds in range
// (D_ERR_VAL_INVALID).
bool checkedTimes(std::initializer_list<const D_TIME_VALUE *> times);
inline D_REAL8 seconds(const D_TIME_VALUE &t) { return t.seconds + t.microseconds * 0.000001; }
inline long sec(const D_TIME_VALUE &t) { return static_cast<long>(t.seconds); }
inline long usec(const D_TIME_VALUE &t) { return static_cast<long>(t.microseconds); }

// Globals the archive loop reads: within the library, so that ELF code
// reads them directly instead of through the global offset table (PE has
// no such table, and no visibility attribute).
#if defined(__ELF__)
#define VQ_RING_LOCAL [[gnu::visibility("hidden")]]
#else
#define VQ_RING_LOCAL
#endif

// The ring start time in microseconds, 0 until set, and whether it was
// set. Every grid reset reads it, so it is read without the lock.
VQ_RING_LOCAL extern std::atomic<std::int64_t> utRingStartTime;
VQ_RING_LOCAL extern std::atomic<bool> utRingStartSet;
// The ring start time, or 0.0 while none was set.
D_TIME_VALUE startTime();
[[gnu::always_inline]] inline std::int64_t startMicros() { return utRingStartTime.load(std::memory_order_relaxed); }
// The current time of the application, when one was set.
inline bool currentTime(D_TIME_VALUE *now) { return DutGetCurrentTimeStruct(now) == D_TRUE; }
// Whether the application has a current time. Once set it can change but
// never be unset, so after the first yes every archive answers without the
// process lock.
VQ_RING_LOCAL extern std::atomic<bool> utRingTimeKnown;
bool timeKnownLocked();
inline bool timeKnown() { return utRingTimeKnown.load(std::memory_order_relaxed) || timeKnownLocked(); }

// ---- Trace ----------------------------------------------------------------

inline bool tracing() { return vq::utDebugFlags[D_DEBUG_RINGBUF] != 0; }
// The wall-time header, then the text, to the debug file.
void trace(const char *format, ...) D_PRINTF_FORMAT(1, 2);
// The header to the debug file, then the text as a warning.
void traceWarning(const char *format, ...) D_PRINTF_FORMAT(1, 2);
const char *nameOf(const D_RING_BUF *ring);

// ---- Ring record -----------------------------------------------------------

// What the caller's record does not show: how many times each pointer value
// of a type-0 ring is held, so that the free function sees it once.
struct RingBlock {
  D_RING_BUF ring;
  std::unordered_map<void *, std::uint32_t> *refs;
};
inline RingBlock *blockOf(D_RING_BUF *ring) { return reinterpret_cast<RingBlock *>(ring); }

bool validType(D_UINT4 type);

// What the library keeps beside the public header of each buffer it
// allocates: the last grid boundary it set, with the origin and increment
// it came from. While the public next_incr still shows that boundary and a
// data time stays within the increment after it, the next boundary is one
// addition instead of a division. A host that rewrites next_incr, incr or
// the start time only makes the next reset take the long way.
struct BufferBlock {
  D_RING_HDR hdr;
  std::int64_t grid_next;
  std::int64_t grid_incr;  // 0: no boundary cached, or one before the origin
  std::int64_t grid_origin;
};
inline BufferBlock *blockOf(D_RING_HDR *hdr) { return reinterpret_cast<BufferBlock *>(hdr); }
// A zeroed header of that shape.
D_RING_HDR *newHeader();

// ---- Values ---------------------------------------------------------------

// A caller's value read once on entry, so that nothing the insertion moves
// or frees can change it half-way.
struct Incoming {
  void *ptr = nullptr;
  D_INT4 i = 0;
  D_REAL8 d = 0.0;
  float f = 0.0f;
  D_UINT4 w = 0;
  const char *text = "";
};
// The caller's value; a text is copied into holder first, if given. Inline: every
// insertion starts with it.
inline Incoming readValue(D_UINT4 type, const void *value, std::string *holder) {
  Incoming in;
  switch (type) {
    case D_RING_TYPE_VOID:
      in.ptr = const_cast<void *>(value);
      break;
    case D_RING_TYPE_INT:
    case D_RING_TYPE_LONG:
      std::memcpy(&in.i, value, sizeof in.i);
      break;
    case D_RING_TYPE_DOUBLE:
      std::memcpy(&in.d, value, sizeof in.d);
      break;
    case D_RING_TYPE_STRING:
      // Without a holder the caller keeps the text unchanged until done.
      if (holder == nullptr) {
        in.text = static_cast<const char *>(value);
      } else {
        holder->assign(static_cast<const char *>(value));
        in.text = holder->c_str();
      }
      break;
    case D_RING_TYPE_FLOAT:
      std::memcpy(&in.f, value, sizeof in.f);
      break;
    case D_RING_TYPE_WORD:
      std::memcpy(&in.w, value, sizeof in.w);
      break;
    default:
      break;
  }
  return in;
}
// An entry's value as a caller would hand it in.
Incoming valueOf(D_UINT4 type, const D_RING_ENTRY &entry);
bool equalsIncoming(D_UINT4 type, const D_RING_ENTRY &entry, const Incoming &value);
// Sets the value by type: a pointer value is taken before the old one is let
// go, so storing a pointer over itself never frees it.
void setValue(D_RING_BUF *ring, D_RING_ENTRY &entry, const Incoming &value);
// Counted copies of pointer values (type 0): the free function runs when
// the last copy goes.
void takePointer(D_RING_BUF *ring, void *ptr);
void dropPointer(D_RING_BUF *ring, void *ptr);
// Copies a text into the entry's own storage.
void setText(D_RING_ENTRY &entry, const char *text);
// Lets the entry's value go (the free function for a pointer's last copy),
// empties a text and zeroes the rest; storage owned by the entry stays.
void clearValue(D_RING_BUF *ring, D_RING_ENTRY &entry);
// clearValue, then the text storage too.
void releaseEntry(D_RING_BUF *ring, D_RING_ENTRY &entry);
// Holds the incoming pointer of a type-0 ring while an insertion may let
// go of other copies of it, so that it is not freed half-way; a pointer the
// ring did not keep stays the caller's.
class PointerGuard {
 public:
  PointerGuard(D_RING_BUF *ring, const Incoming &value);
  ~PointerGuard();
  PointerGuard(const PointerGuard &) = delete;
  PointerGuard &operator=(const PointerGuard &) = delete;

 private:
  D_RING_BUF *ring_;
  void *ptr_;
  bool held_before_ = false;
};
bool numericValue(D_UINT4 type, const D_RING_ENTRY &entry, D_REAL8 *value);

// ---- Buffers ---------------------------------------------------------------

inline bool isEmpty(const D_RING_HDR *hdr) { return hdr->current->status == 0; }
inline bool isWrapped(const D_RING_HDR *hdr) { return hdr->start[hdr->size - 1].status != 0; }
inline bool isFixed(const D_RING_HDR *hdr) { return (hdr->flags & D_RING_FIXED) != 0; }
inline D_RING_ENTRY *after(const D_RING_HDR *hdr, D_RING_ENTRY *entry) {
  return entry + 1 == hdr->start + hdr->size ? hdr->start : entry + 1;
}
inline bool inArray(const D_RING_HDR *hdr, const D_RING_ENTRY *entry) {
  return entry >= hdr->start && entry < hdr->start + hdr->size;
}
inline D_INT4 slotOf(const D_RING_HDR *hdr, const D_RING_ENTRY *entry) {
  return static_cast<D_INT4>(entry - hdr->start);
}

// The entries from the oldest to the newest, by logical index.
struct Seq {
  D_RING_ENTRY *base = nullptr;
  D_INT4 size = 0;
  D_INT4 oldest = 0;
  D_INT4 count = 0;
  D_INT4 slot(D_INT4 i) const {
    D_INT4 p = oldest + i;
    return p >= size ? p - size : p;
  }
  D_RING_ENTRY &operator[](D_INT4 i) const { return base[slot(i)]; }
};
Seq seqOf(const D_RING_HDR *hdr);
// First logical index whose time is after t (is at or after t for lower).
D_INT4 upperBound(const Seq &seq, std::int64_t t);
D_INT4 lowerBound(const Seq &seq, std::int64_t t);

// The span as DutRingBufferSpan gives it (buffer not empty).
D_TIME_VALUE spanOf(const D_RING_HDR *hdr);
// Sets next_incr from a data time on the grid of the ring start time.
void setGrid(D_RING_HDR *hdr, const D_TIME_VALUE &t);
// The value by type, then time, status and flag.
void fillEntry(D_RING_BUF *ring, D_RING_ENTRY &entry, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
               D_UINT2 flag);
// Storing into one entry of the array: overwrite callbacks first.
bool storeValue(D_RING_HDR *hdr, D_RING_ENTRY *entry, const D_TIME_VALUE &t, const Incoming &value,
                D_UINT2 status, D_UINT2 flag);
// The entry-array allocation and the move to a larger one.
void allocateArray(D_RING_HDR *hdr, D_INT4 size);
void reallocArray(D_RING_HDR *hdr, D_INT4 new_size);
// Rotates a wrapped buffer so that its oldest entry is in slot 0.
void linearise(D_RING_HDR *hdr);
// Frees the arrays and the header (not unlinked here).
void freeHeader(D_RING_HDR *hdr);
D_INT4 clampSize(D_INT4 size);

// The checks every value insertion starts with: the holder, time and value
// present, the microseconds in range, a status other than 0.
bool acceptValue(const void *holder, const D_TIME_VALUE *time, const void *value, D_UINT2 status);
// Newer-value insertion (the archiving path) and the whole-ring archive.
D_RING_ENTRY *insertNewer(D_RING_HDR *hdr, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                          D_UINT2 flag);
D_RING_ENTRY *archive(D_RING_BUF *ring, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                      D_UINT2 flag);
// Puts a value in time order (not newer than the newest); the older-value
// path of DutRingInsertValue and the history buffer's insertion.
D_RING_ENTRY *insertInOrder(D_RING_HDR *hdr, const D_TIME_VALUE &t, const Incoming &value, D_UINT2 status,
                            D_UINT2 flag);

// ---- Searches --------------------------------------------------------------

D_RING_ENTRY *iterFirst(D_RING_ITER *iter, D_RING_HDR *hdr);
D_RING_ENTRY *iterNext(D_RING_ITER *iter);
// The search of DutRingFindTime; the walk's state goes into iter (may be
// null). with_initial: an empty buffer or an early time answers the ring's
// initial value.
D_RING_ENTRY *findTime(D_RING_ITER *iter, D_RING_HDR *hdr, const D_TIME_VALUE &t, bool with_initial);
D_RING_HDR *findBuffer(D_RING_BUF *ring, const D_TIME_VALUE &t);
D_RING_ENTRY *findTimeEntry(D_RING_ITER *iter, D_RING_BUF *ring, const D_TIME_VALUE &t);
// Forgets the process-wide iteration when it is on a buffer about to go.
void forgetIteration(const D_RING_HDR *hdr);

// Buffer list walking.
inline D_RING_HDR *firstBuffer(const D_RING_BUF *ring) {
  return ring->buffers->next == ring->buffers ? nullptr : reinterpret_cast<D_RING_HDR *>(ring->buffers->next);
}
inline D_RING_HDR *nextBuffer(const D_RING_BUF *ring, const D_RING_HDR *hdr) {
  return hdr->next == ring->buffers ? nullptr : reinterpret_cast<D_RING_HDR *>(hdr->next);
}
// The buffer whose increment is exactly incr, or null.
D_RING_HDR *byIncrement(const D_RING_BUF *ring, const D_TIME_VALUE &incr);
inline D_RING_HDR *lastBuffer(const D_RING_BUF *ring) {
  return ring->buffers->prev == ring->buffers ? nullptr : reinterpret_cast<D_RING_HDR *>(ring->buffers->prev);
}

// Error number and result in one statement.
template <class T>
T fail(D_INT4 err, T result) {
  DutErrNumSet(err);
  return result;
}

}  // namespace vq::ring
