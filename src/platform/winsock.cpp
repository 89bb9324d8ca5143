// The socket library's exported platform services: closing a socket and
// classful IPv4 address arithmetic.
#include "platform/net.hpp"
#include "vqutil/error.h"
#include "vqutil/net.h"

extern "C" {

D_EXPORT D_INT4 DutWinCloseSocket(D_INT4 socket) {
  if (vq::os::socketClose(socket)) return 0;
  DutErrNumSetSocket(0);
  return -1;
}

D_EXPORT D_UINT4 DutWinMakeaddr(D_UINT4 network, D_UINT4 host) { return vq::os::ipv4MakeAddress(network, host); }

D_EXPORT D_UINT4 DutWinNetof(D_UINT4 address) { return vq::os::ipv4NetworkOf(address); }

}  // extern "C"
