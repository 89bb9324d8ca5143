// The frame counter and frame pacing against the option "frame_interval".
#include "frame/check.hpp"
#include "threads/process_lock.hpp"
#include "time/time_state.hpp"
#include "vqutil/error.h"
#include "vqutil/option.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"
#include "vqutil/strutil.h"
#include "vqutil/time.h"

namespace {

constexpr const char *kFile = "utframe.c";

D_UINT4 utFrameCount = 0;
// Found on the first check after load or DutFrameReset; null until then.
D_OPTION *utFrameInterval = nullptr;
D_REAL8 utLastFrameTime = 0.0;

}  // namespace

extern "C" {

D_EXPORT D_UINT4 *DutFrameCountGetPtr(void) { return &utFrameCount; }

D_EXPORT D_BOOL DutFrameCheck(D_INT4 sleep) {
  if (sleep != 0 && sleep != 1) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  D_REAL8 interval = 0.0;
  D_REAL8 elapsed = 0.0;
  D_REAL8 now = DutGetWallTime();
  {
    vq::ProcessLock lock;
    if (utFrameInterval == nullptr) {
      utFrameInterval = DutOptionLookup("frame_interval");
      VQ_ASSERT(utFrameInterval != nullptr, "D_NULL != utFrameInterval", kFile);
      utLastFrameTime = now;
      return D_TRUE;
    }
    elapsed = now - utLastFrameTime;
    VQ_ASSERT(D_GOPT_KNOWN(utFrameInterval), "D_GOPT_KNOWN(utFrameInterval)", kFile);
    interval = *static_cast<const D_REAL8 *>(D_GOPT_VALUE(utFrameInterval));
    if (interval <= 0.0) return D_TRUE;
    if (elapsed > interval) {
      DutWarning("Unable to keep up with frame interval by %s seconds.\n", DutRealToStr(elapsed - interval));
      utLastFrameTime = now;
      DutErrNumSet(D_ERR_TIMEOUT_REACHED);
      return D_FALSE;
    }
    if (sleep == 0) {
      utLastFrameTime = now;
      return D_TRUE;
    }
  }
  // Not under the lock: other threads go on while this one waits.
  DutWinSleep(interval - elapsed);
  D_REAL8 after = DutGetWallTime();
  vq::ProcessLock lock;
  utLastFrameTime = after;
  return D_TRUE;
}

D_EXPORT void DutFrameReset(void) {
  vq::ProcessLock lock;
  utFrameInterval = nullptr;
  utLastFrameTime = 0.0;
}

}  // extern "C"
