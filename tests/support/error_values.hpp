// The calling thread's four error values (the library's number, errno, the
// OS value and the socket value): put into a known state and read back.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <tuple>

#include "vqutil/error.h"
#include "vqutil/thread.h"

namespace vqtest {

using Four = std::tuple<D_INT4, D_INT4, D_INT4, D_INT4>;

inline void SetAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  D_ERR_SAVE save{number, c_err, os_err, socket_err};
  ASSERT_TRUE(DutErrNumRestoreTsd(&save, DutGetTsdValue()));
}

// errno is read first, so that no other getter can be what keeps it.
inline Four AllFour() {
  const D_INT4 c_err = errno;
  const D_INT4 os_err = DutErrNumGetOs(), socket_err = DutErrNumGetSocket();
  return {DutErrNumGet(), c_err, os_err, socket_err};
}

}  // namespace vqtest
