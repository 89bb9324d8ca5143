// Node names to addresses: dotted notation, the local name rules, the
// comparison of node names and classful network arithmetic. Nothing here
// reaches a name server: every name with letters is a localhost name or
// lies under the reserved "invalid" domain.
#include <string>

#include "net_support.hpp"

using namespace net_test;

namespace {

constexpr std::uint32_t kFailed = 0xDEADBEEF;

struct ParseCase {
  std::string name;
  std::uint32_t expected;  // host order; kFailed: an unknown node
};

TEST(NodeAddress, ParsesDottedNamesAndLocalRules) {
  const ParseCase cases[] = {
      {"127.0.0.1", 0x7F000001},
      {"255.255.255.255", 0xFFFFFFFF},
      {"0.0.0.0", 0},
      {"127.1", 0x7F000001},
      {"10.0.258", 0x0A000102},
      {"localhost", 0x7F000001},
      {"Box.LocalHost.", 0x7F000001},
      {"nosuch.invalid", kFailed},
      {"INVALID", kFailed},
      {"1.2.3.4.5", kFailed},
      {"256.1.1.1", kFailed},
      {"", kFailed},
      {"bad name", kFailed},
      {"a..localhost", kFailed},
      {std::string(64, 'a') + ".localhost", kFailed},
      {std::string(63, 'a') + ".localhost", 0x7F000001},
  };
  for (const ParseCase &c : cases) {
    OutputCapture capture;
    in_addr a{};
    DutErrNumSet(0);
    D_BOOL ok = DutSocketParseIpAddr(c.name.c_str(), &a);
    if (c.expected == kFailed) {
      EXPECT_FALSE(ok) << c.name;
      EXPECT_EQ(DutErrNumGet(), D_ERR_SOCKET) << c.name;
      EXPECT_EQ(DutErrNumGetSocket(), 10065) << c.name;
      EXPECT_EQ(capture.Take(), "WARNING: unknown node " + c.name + "\n");
    } else {
      EXPECT_TRUE(ok) << c.name;
      EXPECT_EQ(ntohl(a.s_addr), c.expected) << c.name;
      EXPECT_EQ(DutGetHostByName(c.name.c_str(), &a), D_TRUE) << c.name;
      EXPECT_EQ(capture.Take(), "") << c.name;
    }
  }
}

struct CompareCase {
  std::string a, b;
  D_INT4 same;
};

TEST(NodeAddress, ComparesByCaseThenByAddress) {
  const std::string longName(300, 'x');
  const CompareCase cases[] = {
      {"Alpha.Invalid", "alpha.INVALID", 1},  // equal ignoring case before any lookup
      {"localhost", "127.0.0.1", 1},
      {"LOCALHOST.", "127.1", 1},
      {"127.0.0.1", "127.0.0.2", 0},
      {"nosuch.invalid", "127.0.0.1", 0},
      {"127.0.0.1", "nosuch.invalid", 0},
      {"a.invalid", "b.invalid", 0},
      {"1..2", "1.0.0.2", 0},
      {longName, longName, 1},
      {longName, longName + "y", 0},
  };
  OutputCapture capture;
  for (const CompareCase &c : cases) {
    D_INT4 result = -1;
    EXPECT_EQ(DutCompareNodeNames(c.a.c_str(), c.b.c_str(), &result), D_TRUE) << c.a << " " << c.b;
    EXPECT_EQ(result, c.same) << c.a << " vs " << c.b;
    EXPECT_EQ(DutCompareNodeNames(c.b.c_str(), c.a.c_str(), &result), D_TRUE);
    EXPECT_EQ(result, c.same) << c.b << " vs " << c.a;
  }
  EXPECT_EQ(capture.Take(), "");
}

struct NetworkCase {
  const char *address;
  std::uint32_t network;
  const char *broadcast;
};

// Class A, B and C networks on both sides of each class boundary.
TEST(NodeAddress, ClassfulNetworkArithmetic) {
  const NetworkCase cases[] = {
      {"127.0.0.1", 127, "127.255.255.255"},         {"10.1.2.3", 10, "10.255.255.255"},
      {"127.255.0.9", 127, "127.255.255.255"},       {"128.0.1.2", 0x8000, "128.0.255.255"},
      {"172.16.5.4", 0xAC10, "172.16.255.255"},      {"191.255.7.7", 0xBFFF, "191.255.255.255"},
      {"192.168.1.7", 0xC0A801, "192.168.1.255"},    {"223.1.2.3", 0xDF0102, "223.1.2.255"},
  };
  for (const NetworkCase &c : cases) {
    in_addr a{};
    ASSERT_EQ(inet_aton(c.address, &a), 1);
    EXPECT_EQ(DutWinNetof(a.s_addr), c.network) << c.address;
    in_addr b{};
    b.s_addr = DutWinMakeaddr(DutWinNetof(a.s_addr), 0xFFFFFFFF);
    EXPECT_STREQ(inet_ntoa(b), c.broadcast) << c.address;
  }
}

}  // namespace
