// The library's current time (the application's notion of the present,
// distinct from the wall clock), its change callbacks, the wall clock with
// its test pin, and time arithmetic.
#include "vqutil/time.h"

#include <cmath>
#include <cstdint>
#include <limits>

#include "frame/check.hpp"
#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "time/time_state.hpp"
#include "vqutil/error.h"

namespace vq::time {

std::atomic<D_REAL8> utCurrentTime{0.0};

namespace {

// -1, -1: never set.
D_TIME_VALUE utCurrentTimeStruct = {-1, -1};
// -1, -1: not pinned.
D_TIME_VALUE utTestWallTime = {-1, -1};
D_CB_TYPE *utTimeChangeCbType = nullptr;

bool pinned(const D_TIME_VALUE &t) { return t.seconds != -1 && t.microseconds != -1; }

D_REAL8 toReal(const D_TIME_VALUE &t) { return t.seconds + t.microseconds * 0.000001; }

// Runs the time-change callbacks for the stored time; the caller holds the
// process-wide lock. The callbacks get a copy, so the reserved head the
// machinery writes never lands on the stored record.
void announceChange() {
  if (utTimeChangeCbType == nullptr) return;
  D_TIME_CHANGE_CB_DATA data;
  data.cb = nullptr;
  data.time = utCurrentTimeStruct;
  DutCbTypeCall(utTimeChangeCbType, nullptr, &data);
}

}  // namespace

D_REAL8 baseTime() {
  D_REAL8 current = utCurrentTime.load(std::memory_order_relaxed);
  return current != 0.0 ? current : DutGetWallTime();
}

}  // namespace vq::time

using vq::time::kTimeFile;
using vq::time::utCurrentTime;

extern "C" {

D_EXPORT D_REAL8 DutGetCurrentTime(void) { return utCurrentTime.load(std::memory_order_relaxed); }

D_EXPORT D_BOOL DutGetCurrentTimeStruct(D_TIME_VALUE *time_return) {
  if (time_return == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  const D_TIME_VALUE &stored = vq::time::utCurrentTimeStruct;
  if (stored.seconds < 0 || stored.microseconds < 0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  *time_return = stored;
  return D_TRUE;
}

D_EXPORT D_BOOL DutSetCurrentTime(D_REAL8 time) {
  if (std::isnan(time)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  if (time < 0.0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  if (time >= 2147483648.0) {
    DutErrNumSet(D_ERR_VAL_TOO_LARGE);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  utCurrentTime.store(time, std::memory_order_relaxed);
  D_REAL8 whole = std::floor(time);
  D_INT4 seconds = static_cast<D_INT4>(whole);
  // Rounded at the tenth of a microsecond: a fraction of .5 held as
  // .4999999 still gives 500000. A fraction within a tenth of a
  // microsecond of one gives 1000000, kept as it is (not carried), so the
  // seconds are always the whole part of the real value.
  D_INT4 micros = static_cast<D_INT4>(((time - whole) * 10000000.0 + 1.0) * 0.1);
  vq::time::utCurrentTimeStruct = {seconds, micros};
  vq::time::announceChange();
  return D_TRUE;
}

D_EXPORT D_BOOL DutSetCurrentTimeStruct(const D_TIME_VALUE *time) {
  if (time == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (time->seconds < 0 || time->microseconds < 0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  vq::time::utCurrentTimeStruct = *time;
  utCurrentTime.store(vq::time::toReal(*time), std::memory_order_relaxed);
  vq::time::announceChange();
  return D_TRUE;
}

D_EXPORT D_CB *DutTimeChangeCbCreate(D_CB_FUNC func, D_WORD arg) {
  VQ_ASSERT(func != nullptr, "func != NULL", kTimeFile);
  vq::ProcessLock lock;
  D_CB_TYPE *&type = vq::time::utTimeChangeCbType;
  if (type == nullptr) {
    // The number may already be taken by a type made through the generic
    // interface; adopt it then.
    type = DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE);
    if (type == nullptr) type = DutCbTypeCreate(D_TIME_CHANGE_CB_TYPE, D_TIME_CHANGE_CB_TYPE_NAME);
    VQ_ASSERT(type != nullptr, "utTimeChangeCbType", kTimeFile);
    DutCbTypeSetGlobFlag(type, D_CB_GLOBAL_ONLY);
  }
  return DutCbCreateGlobal(type, func, arg);
}

D_EXPORT D_CB *DutTimeChangeCbLookup(D_CB_FUNC func, D_WORD arg) {
  {
    vq::ProcessLock lock;
    if (vq::time::utTimeChangeCbType == nullptr) return nullptr;
  }
  return DutCbTypeNumCbLookup(D_TIME_CHANGE_CB_TYPE, nullptr, func, arg);
}

// ---- Wall time ------------------------------------------------------------------

D_EXPORT D_REAL8 DutGetWallTime(void) {
  {
    vq::ProcessLock lock;
    if (vq::time::pinned(vq::time::utTestWallTime)) return vq::time::toReal(vq::time::utTestWallTime);
  }
  std::int64_t seconds = 0;
  std::int32_t micros = 0;
  vq::os::wallClock(&seconds, &micros);
  return static_cast<D_REAL8>(seconds) + micros * 0.000001;
}

D_EXPORT D_BOOL DutGetWallTimeStruct(D_TIME_VALUE *time_return) {
  {
    vq::ProcessLock lock;
    if (vq::time::pinned(vq::time::utTestWallTime)) {
      *time_return = vq::time::utTestWallTime;
      return D_TRUE;
    }
  }
  std::int64_t seconds = 0;
  std::int32_t micros = 0;
  vq::os::wallClock(&seconds, &micros);
  time_return->seconds = static_cast<D_INT4>(seconds);
  time_return->microseconds = micros;
  return D_TRUE;
}

D_EXPORT void DutSetTestWallTimeStruct(const D_TIME_VALUE *time) {
  vq::ProcessLock lock;
  vq::time::utTestWallTime = *time;
}

// ---- Arithmetic -------------------------------------------------------------------

D_EXPORT D_INT4 DutTimeRatio(const D_TIME_VALUE *a, const D_TIME_VALUE *b) {
  if (a == nullptr || b == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return 0;
  }
  D_REAL8 divisor = vq::time::toReal(*b);
  if (divisor == 0.0) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return 0;
  }
  D_REAL8 quotient = std::trunc(vq::time::toReal(*a) / divisor);
  constexpr D_REAL8 kMax = std::numeric_limits<D_INT4>::max();
  constexpr D_REAL8 kMin = std::numeric_limits<D_INT4>::min();
  if (quotient > kMax || quotient < kMin) {
    DutErrNumSet(D_ERR_VAL_TOO_LARGE);
    return quotient > 0 ? std::numeric_limits<D_INT4>::max() : std::numeric_limits<D_INT4>::min();
  }
  return static_cast<D_INT4>(quotient);
}

D_EXPORT D_BOOL DutTimeMultInt(D_TIME_VALUE *result, const D_TIME_VALUE *time, D_INT4 n) {
  if (result == nullptr || time == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  // Wrapping arithmetic: a product beyond 32 bits wraps as the record does.
  auto wrap = [](std::int64_t v) { return static_cast<D_INT4>(static_cast<std::uint32_t>(v)); };
  std::int64_t seconds = static_cast<std::int64_t>(time->seconds) * n;
  D_REAL8 micros = static_cast<D_REAL8>(time->microseconds) * n;
  if (micros < 1000000.0) {
    *result = {wrap(seconds), wrap(static_cast<std::int64_t>(micros))};
    return D_TRUE;
  }
  D_REAL8 carried = std::floor(micros / 1000000.0);
  D_REAL8 rest = micros - carried * 1000000.0;
  *result = {wrap(seconds + static_cast<std::int64_t>(carried)), static_cast<D_INT4>(rest)};
  return D_TRUE;
}

}  // extern "C"
