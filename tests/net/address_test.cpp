// Node names to addresses: dotted notation, the local name rules, the
// comparison of node names and classful network arithmetic. Nothing here
// reaches a name server: every name with letters is a localhost name, lies
// under the reserved "invalid" domain or cannot be a host name. The system
// information stands beside them: its node name is the same.
#include <sys/utsname.h>

#include <string>

#include "net_support.hpp"

using namespace net_test;

namespace {

constexpr std::uint32_t kUnknown = 0xDEADBEEF;

TEST(NodeAddress, ParsesDottedNamesAndLocalRules) {
  const std::pair<std::string, std::uint32_t> cases[] = {
      {"127.0.0.1", 0x7F000001}, {"255.255.255.255", 0xFFFFFFFF}, {"0.0.0.0", 0},
      {"127.1", 0x7F000001},     {"10.0.258", 0x0A000102},        {"localhost", 0x7F000001},
      {"Box.LocalHost.", 0x7F000001}, {std::string(63, 'a') + ".localhost", 0x7F000001},
      {std::string(64, 'a') + ".localhost", kUnknown}, {"a..localhost", kUnknown},
      {"nosuch.invalid", kUnknown}, {"INVALID", kUnknown}, {"bad name", kUnknown},
      {"1.2.3.4.5", kUnknown},     {"256.1.1.1", kUnknown},          {"", kUnknown},
  };
  for (const auto &[name, expected] : cases) {
    OutputCapture capture;
    in_addr a{};
    DutErrNumSet(0);
    D_BOOL ok = DutSocketParseIpAddr(name.c_str(), &a);
    EXPECT_EQ(ok, expected != kUnknown) << name;
    if (expected == kUnknown) {
      EXPECT_EQ(DutErrNumGet(), D_ERR_SOCKET) << name;
      EXPECT_EQ(DutErrNumGetSocket(), 10065) << name;
      EXPECT_EQ(capture.Take(), "WARNING: unknown node " + name + "\n");
    } else {
      EXPECT_EQ(ntohl(a.s_addr), expected) << name;
      EXPECT_EQ(DutGetHostByName(name.c_str(), &a), D_TRUE) << name;
    }
  }
}

TEST(NodeAddress, ComparesByCaseThenByAddress) {
  const std::string long_name(300, 'x');
  const std::tuple<std::string, std::string, D_INT4> cases[] = {
      {"Alpha.Invalid", "alpha.INVALID", 1},  // equal ignoring case before any lookup
      {"localhost", "127.0.0.1", 1},          {"LOCALHOST.", "127.1", 1},
      {"127.0.0.1", "127.0.0.2", 0},          {"nosuch.invalid", "127.0.0.1", 0},
      {"a.invalid", "b.invalid", 0},          {"1..2", "1.0.0.2", 0},
      {long_name, long_name, 1},              {long_name, long_name + "y", 0},
  };
  OutputCapture capture;
  for (const auto &[a, b, same] : cases) {
    for (const auto &[x, y] : {std::pair{a, b}, std::pair{b, a}}) {
      D_INT4 result = -1;
      EXPECT_EQ(DutCompareNodeNames(x.c_str(), y.c_str(), &result), D_TRUE);
      EXPECT_EQ(result, same) << x << " vs " << y;
    }
  }
  EXPECT_EQ(capture.Take(), "");
}

// Class A, B and C networks on both sides of each class boundary.
TEST(NodeAddress, ClassfulNetworkArithmetic) {
  const std::tuple<const char *, std::uint32_t, const char *> cases[] = {
      {"127.0.0.1", 127, "127.255.255.255"},      {"10.1.2.3", 10, "10.255.255.255"},
      {"128.0.1.2", 0x8000, "128.0.255.255"},     {"191.255.7.7", 0xBFFF, "191.255.255.255"},
      {"192.168.1.7", 0xC0A801, "192.168.1.255"}, {"223.1.2.3", 0xDF0102, "223.1.2.255"},
  };
  for (const auto &[address, network, broadcast] : cases) {
    in_addr a{}, b{};
    ASSERT_EQ(inet_aton(address, &a), 1);
    EXPECT_EQ(DutWinNetof(a.s_addr), network) << address;
    b.s_addr = DutWinMakeaddr(DutWinNetof(a.s_addr), 0xFFFFFFFF);
    EXPECT_STREQ(inet_ntoa(b), broadcast) << address;
  }
}

// As uname gives it; the node name also as DutGetNodeName's once nothing
// forces that one.
TEST(SystemInfo, AsUnameGivesIt) {
  EnvVar unforced("VQ_FORCE_NODE_NAME", nullptr);
  D_SYSTEM_INFO i;
  utsname u;
  ASSERT_TRUE(DutGetSystemInfo(&i) && uname(&u) == 0);
  EXPECT_EQ(std::string(i.sysname) + '|' + i.nodename + '|' + i.release + '|' + i.version + '|' + i.machine,
            std::string(u.sysname) + '|' + u.nodename + '|' + u.release + '|' + u.version + '|' + u.machine);
  EXPECT_STREQ(i.nodename, DutGetNodeName(std::string(D_NODE_NAME_SIZE, 'x').data()));
}

}  // namespace
