// Shared pieces of the socket family: node names to addresses,
// error-preserving close, and the checks of wait times.
#pragma once

#include <cstdint>

#include "platform/net.hpp"
#include "vqutil/types.h"

namespace vq::net {

// The source label of the family's assertions and expectations.
inline constexpr const char *kFile = "utsocket";

// The longest wait, in seconds, that a time-out may ask for (the range of
// a 32-bit seconds field).
inline constexpr double kMaxWaitSeconds = 2147483647.0;

// The address of a node name as DutSocketParseIpAddr finds it: a name
// with a letter is resolved, any other read in dotted notation. Failures
// set the library error number and warn about an unknown node (a name too
// long for any host only sets D_ERR_VAL_TOO_LARGE).
bool parseNodeName(const char *node_name, std::uint32_t *address);

// Closes a socket on an error path: the caller sees the first failure,
// not whatever the close left behind.
void closeKeepingErrors(int s);

// Checks a time-out argument (exactly -1.0: no limit, *forever set) and
// splits it into seconds and microseconds, truncating both. NaN sets
// D_ERR_VAL_INVALID, other negatives D_ERR_VAL_TOO_SMALL, more than
// kMaxWaitSeconds D_ERR_VAL_TOO_LARGE; each answers false.
bool waitTimeOf(D_REAL8 timeout, vq::os::WaitTime *time, bool *forever);

}  // namespace vq::net
