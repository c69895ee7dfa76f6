#include "platform/network_util.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>

namespace {

std::string firstAddress(const std::string& host, const std::string& port, bool numericOnly) {
  addrinfo* list = nullptr;
  if (ANetworkUtil().qveCreateAddrinfo(host, port, &list, numericOnly) != 0) {
    EXPECT_EQ(list, nullptr);
    return "none";
  }
  char address[64] = {};
  char service[16] = {};
  EXPECT_EQ(::getnameinfo(list->ai_addr, list->ai_addrlen, address, sizeof address, service, sizeof service,
                          NI_NUMERICHOST | NI_NUMERICSERV),
            0);
  ::freeaddrinfo(list);
  return std::string(address) + " " + service;
}

TEST(NetworkUtil, ResolvesNumericAddresses) {
  EXPECT_EQ(firstAddress("192.0.2.7", "8443", true), "192.0.2.7 8443");
  EXPECT_EQ(firstAddress("2001:db8::7", "8443", true), "2001:db8::7 8443");
}

TEST(NetworkUtil, DropsTheBracketsAroundAnIpv6Literal) {
  EXPECT_EQ(firstAddress("[2001:db8::7]", "443", true), "2001:db8::7 443");
  EXPECT_EQ(firstAddress("[2001:db8::7]", "443", false), "2001:db8::7 443");
  EXPECT_EQ(firstAddress("[2001:db8::7", "443", true), "none");
  EXPECT_EQ(firstAddress("[", "443", true), "none");
}

TEST(NetworkUtil, LooksNoNameUpWhenOnlyNumbersAreAskedFor) {
  EXPECT_EQ(firstAddress("localhost", "1", true), "none");
}

TEST(NetworkUtil, KeepsTheInterfaceOfALinkLocalAddress) {
  EXPECT_EQ(firstAddress("[fe80::1%lo]", "8443", true), "fe80::1%lo 8443");
  EXPECT_EQ(firstAddress("[fe80::1%missing0]", "8443", true), "none");
}

TEST(NetworkUtil, ReportsUnusableHostsAndPorts) {
  EXPECT_EQ(firstAddress("", "", true), "none");
  EXPECT_EQ(firstAddress("192.0.2.7", "no-such-service", true), "none");
}

/// The scope told, or "none" where the answer is that there is none.
std::string scopeOf(const std::string& address) {
  unsigned int scope = 4711;
  if (ANetworkUtil().qveGetScopeId(address, scope) != 0) return std::to_string(scope);
  EXPECT_EQ(scope, 4711U);
  return "none";
}

TEST(NetworkUtil, TellsTheScopeByInterfaceName) {
  EXPECT_EQ(scopeOf("fe80::1%lo"), std::to_string(::if_nametoindex("lo")));
}

TEST(NetworkUtil, TellsTheScopeByNumber) {
  EXPECT_EQ(scopeOf("fe80::1%7"), "7");
  EXPECT_EQ(scopeOf("fe80::1%4294967295"), "4294967295");
}

TEST(NetworkUtil, TellsNoScopeWhereThereIsNone) {
  for (const char* address : {"fe80::1", "", "fe80::1%", "fe80::1%missing0", "fe80::1%0", "fe80::1%-1", "fe80::1%+1",
                              "fe80::1%1x", "fe80::1% 1", "fe80::1%4294967296"}) {
    EXPECT_EQ(scopeOf(address), "none") << address;
  }
}

}  // namespace
