// Node names to IPv4 addresses: parsing, resolving and comparing.
#include <string_view>

#include "net/net_internal.hpp"
#include "platform/os.hpp"
#include "vqutil/error.h"
#include "vqutil/net.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"

namespace {

constexpr int kHostNotFound = 11001;
constexpr int kHostUnreachable = 10065;

// Longest node name taken to the resolver: a DNS name has at most 255
// octets, so anything longer cannot name a host.
constexpr std::size_t kMaxNodeName = 255;

// ASCII only: node names do not follow the locale.
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

bool hasLetter(std::string_view name) {
  for (char c : name) {
    if (isLetter(c)) return true;
  }
  return false;
}

// The length of name, or limit + 1 when it is longer than limit: a
// runaway name is not measured to its end.
std::size_t boundedLength(const char *name, std::size_t limit) {
  std::size_t n = 0;
  while (n <= limit && name[n] != '\0') ++n;
  return n;
}

// Labels of letters, digits, '-' and '_' of 1 to 63 characters between
// dots, an optional final dot: what the resolver could ever find.
bool hostNameSyntax(std::string_view name) {
  if (!name.empty() && name.back() == '.') name.remove_suffix(1);
  if (name.empty() || name.size() > 253) return false;
  std::size_t label = 0;
  for (char c : name) {
    if (c == '.') {
      if (label == 0) return false;
      label = 0;
    } else if (isLetter(c) || isDigit(c) || c == '-' || c == '_') {
      if (++label > 63) return false;
    } else {
      return false;
    }
  }
  return label != 0;
}

// name is domain itself or a name below it (a final dot allowed).
bool underDomain(std::string_view name, std::string_view domain) {
  if (!name.empty() && name.back() == '.') name.remove_suffix(1);
  if (name.size() == domain.size()) return equalNoCase(name, domain);
  return name.size() > domain.size() && name[name.size() - domain.size() - 1] == '.' &&
         equalNoCase(name.substr(name.size() - domain.size()), domain);
}

// The first IPv4 address of a host name. localhost names answer the
// loopback address, and names that cannot be host names, or that lie under
// the reserved "invalid" domain, fail with 11001 (host not found), all
// without asking a name server.
bool resolveName(const char *name, std::uint32_t *address) {
  std::string_view n(name, boundedLength(name, kMaxNodeName));
  // Reserved names are answered here, never by a name server.
  if (n.size() > kMaxNodeName || !hostNameSyntax(n) || underDomain(n, "invalid")) {
    vq::os::setSocketError(kHostNotFound);
    return false;
  }
  if (underDomain(n, "localhost")) return vq::os::parseIpv4("127.0.0.1", address);
  return vq::os::resolveIpv4(name, address);
}

// Dotted notation first, then the resolver: how node names are compared.
bool addressOf(const char *name, std::uint32_t *address) {
  if (boundedLength(name, kMaxNodeName) > kMaxNodeName) return false;
  return vq::os::parseIpv4(name, address) || resolveName(name, address);
}

}  // namespace

namespace vq::net {

bool parseNodeName(const char *node_name, std::uint32_t *address) {
  std::size_t length = boundedLength(node_name, kMaxNodeName);
  if (length > kMaxNodeName) {
    DutErrNumSet(D_ERR_VAL_TOO_LARGE);
    return false;
  }
  std::string_view name(node_name, length);
  bool found = hasLetter(name) ? resolveName(node_name, address) : vq::os::parseIpv4(node_name, address);
  if (found) return true;
  DutWarning("unknown node %s\n", node_name);
  DutErrNumSetSocket(kHostUnreachable);
  return false;
}

}  // namespace vq::net

extern "C" {

D_EXPORT D_BOOL DutSocketParseIpAddr(const char *node_name, struct in_addr *address) {
  DutWinStartWinsock();
  if (node_name == nullptr || address == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  std::uint32_t a = 0;
  if (!vq::net::parseNodeName(node_name, &a)) return D_FALSE;
  vq::os::ipv4Store(a, address);
  return D_TRUE;
}

D_EXPORT D_BOOL DutGetHostByName(const char *node_name, struct in_addr *address) {
  return DutSocketParseIpAddr(node_name, address);
}

D_EXPORT D_BOOL DutCompareNodeNames(const char *name1, const char *name2, D_INT4 *result) {
  DutWinStartWinsock();
  if (name1 == nullptr || name2 == nullptr || result == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (equalNoCase(name1, name2)) {
    *result = 1;
    return D_TRUE;
  }
  std::uint32_t a1 = 0;
  std::uint32_t a2 = 0;
  *result = addressOf(name1, &a1) && addressOf(name2, &a2) && a1 == a2 ? 1 : 0;
  return D_TRUE;
}

}  // extern "C"
