// Arbitrary text as node names: DutSocketParseIpAddr on one name and
// DutCompareNodeNames on two (split at the first newline). Any input must
// end in an address, an unknown node or a clean refusal, and comparison
// must be symmetric and reflexive. The fuzzing build resolves names only
// as numbers, so no input reaches a name server.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "quiet.hpp"
#include "vqutil/error.h"
#include "vqutil/net.h"

namespace {

D_INT4 compare(const char *a, const char *b) {
  D_INT4 result = -1;
  if (!DutCompareNodeNames(a, b, &result) || (result != 0 && result != 1)) std::abort();
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  fuzz::quietLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string text(reinterpret_cast<const char *>(data), size);
  text = text.substr(0, text.find('\0'));
  std::size_t cut = text.find('\n');
  std::string first = text.substr(0, cut);
  std::string second = cut == std::string::npos ? std::string() : text.substr(cut + 1);

  in_addr address{};
  if (DutSocketParseIpAddr(first.c_str(), &address)) {
    // A parsed address names the same node as its dotted form.
    if (compare(first.c_str(), inet_ntoa(address)) != 1) std::abort();
  } else {
    D_INT4 error = DutErrNumGet();
    if (error != D_ERR_SOCKET && error != D_ERR_VAL_TOO_LARGE) std::abort();
  }
  if (compare(first.c_str(), first.c_str()) != 1) std::abort();
  if (compare(first.c_str(), second.c_str()) != compare(second.c_str(), first.c_str())) std::abort();
  return 0;
}
