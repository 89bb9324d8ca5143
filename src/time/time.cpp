// The library's current time: the application's notion of the present,
// distinct from the wall clock. 0.0 until the application sets one.
#include "vqutil/time.h"

#include "time/time_state.hpp"

namespace vq::time {
volatile D_REAL8 utCurrentTime = 0.0;
}  // namespace vq::time

extern "C" {

D_EXPORT D_REAL8 DutGetCurrentTime(void) { return vq::time::utCurrentTime; }

}  // extern "C"
