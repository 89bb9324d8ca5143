// The interrupt counter: the console interrupt key adds one per press, the
// command loop resets it, and too many unanswered presses end the process.
#include "vqutil/interrupt.h"

#include <atomic>
#include <cstdlib>

#include "frame/check.hpp"
#include "platform/os.hpp"
#include "platform/signals.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"

namespace {

constexpr const char *kFile = "interupt.c";

// Lock-free atomics are safe to touch from the signal handler.
std::atomic<D_INT4> utInterruptCount{0};
std::atomic<D_INT4> utInterruptMax{D_INTERRUPT_MAX_DEFAULT};
static_assert(std::atomic<D_INT4>::is_always_lock_free, "the handler needs a lock-free counter");

}  // namespace

extern "C" {

D_EXPORT D_INT4 DutInterruptGet(void) { return utInterruptCount.load(); }

D_EXPORT void DutInterruptSet(D_INT4 count) { utInterruptCount.store(count); }

D_EXPORT void DutInterruptIncr(void) { utInterruptCount.fetch_add(1); }

D_EXPORT void DutInterruptReset(void) { utInterruptCount.store(0); }

D_EXPORT D_INT4 DutInterruptGetMax(void) { return utInterruptMax.load(); }

D_EXPORT D_BOOL DutInterruptInit(void) {
  const char *max_text = std::getenv("VQ_INTERRUPT_MAX");
  if (max_text != nullptr) {
    utInterruptMax.store(static_cast<D_INT4>(std::atoi(max_text)));
    DutOut("utInterruptMax = %ld\n", static_cast<long>(utInterruptMax.load()));
  }
  bool status = vq::os::installInterruptHandler(DutSigintHandler);
  VQ_ASSERT(status, "status", kFile);
  if (!status) {
    DutErrNumSetC(vq::os::lastError());
    DutPerror("signal");
    DutWarning("utInterruptEnable: could not install SIGINT handler.\n");
    return D_FALSE;
  }
  return D_TRUE;
}

// Installed without reset-on-delivery, so it need not reinstall itself.
D_EXPORT void DutSigintHandler(int) {
  D_INT4 count = utInterruptCount.fetch_add(1) + 1;
  if (count > utInterruptMax.load()) {
    DutWinEndWinsock();
    std::abort();
  }
}

}  // extern "C"
