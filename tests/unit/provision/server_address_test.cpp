#include "provision/server_address.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <memory>
#include <net/if.h>

#include "curl_probe.h"
#include "loopback.h"

namespace kelt::provision {
namespace {

using tests::curlProbe;

/// "host port" after a split, with what it found; both start as "old".
std::string split(const std::string& server) {
  std::string host = "old";
  std::string port = "old";
  const bool found = split_host_and_port(server, host, port);
  return host + " " + port + (found ? " found" : "");
}

TEST(ServerAddress, SplitsHostAndPortAtTheColon) {
  EXPECT_EQ(split("srv:443"), "srv 443 found");
  EXPECT_EQ(split("10.0.0.5:8444"), "10.0.0.5 8444 found");
}

TEST(ServerAddress, LeavesBothUnchangedWithoutAColon) {
  EXPECT_EQ(split("10.0.0.5"), "old old");
  EXPECT_EQ(split("srv"), "old old");
  EXPECT_EQ(split(""), "old old");
}

TEST(ServerAddress, KeepsTheBracketsOfAnIpv6Literal) {
  EXPECT_EQ(split("[fe80::1]:8444"), "[fe80::1] 8444 found");
  EXPECT_EQ(split("[fe80::1%eth0]:8444"), "[fe80::1%eth0] 8444 found");
}

TEST(ServerAddress, TakesOnlyTheHostOfABracketedLiteralWithoutAPort) {
  EXPECT_EQ(split("[fe80::1]"), "[fe80::1] old");
  EXPECT_EQ(split("[fe80::1]:"), "[fe80::1] old");
}

TEST(ServerAddress, SplitsAnythingElseAtTheLastColonOrBracket) {
  EXPECT_EQ(split("fe80::1"), "fe80: 1 found");
  EXPECT_EQ(split("srv:"), "srv  found");
  EXPECT_EQ(split(":443"), " 443 found");
  EXPECT_EQ(split("a]b]:1"), "a]b] 1 found");
  EXPECT_EQ(split("[a]:1]"), "[a]:1] 1] found");
  EXPECT_EQ(split("]"), "] old");
}

class AddressScope : public ::testing::Test {
 protected:
  void SetUp() override {
    tests::bringLoopbackUp();
    curlProbe() = {};
    m_curl.reset(curl_easy_init());
    curlProbe() = {};
  }
  void TearDown() override { curlProbe() = {}; }

  std::vector<std::string> optionsFor(const std::string& host) {
    setAddressScopeIfRequired(m_curl.get(), host, "8443");
    return curlProbe().calls;
  }

  using Options = std::vector<std::string>;
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> m_curl{nullptr, curl_easy_cleanup};
};

TEST_F(AddressScope, IsSetForALinkLocalAddressWithItsInterface) {
  const std::string lo = std::to_string(::if_nametoindex("lo"));
  EXPECT_EQ(optionsFor("[fe80::1%lo]"), Options{"ADDRESS_SCOPE=" + lo});
}

TEST_F(AddressScope, IsNotSetForOtherAddresses) {
  EXPECT_EQ(optionsFor("127.0.0.1"), Options{});
  EXPECT_EQ(optionsFor("[::1]"), Options{});
  EXPECT_EQ(optionsFor("[fe80::1%missing0]"), Options{});
  EXPECT_EQ(optionsFor("not an address"), Options{});
}

TEST_F(AddressScope, IsLeftAloneWithoutAHandle) {
  setAddressScopeIfRequired(nullptr, "[fe80::1%lo]", "8443");
  EXPECT_EQ(curlProbe().calls, Options{});
}

/// A resolved address.
struct Entry {
  explicit Entry(const char* text, unsigned int scope, Entry* next = nullptr) {
    address.sin6_family = AF_INET6;
    address.sin6_scope_id = scope;
    EXPECT_EQ(::inet_pton(AF_INET6, text, &address.sin6_addr), 1);
    info.ai_family = AF_INET6;
    info.ai_addr = reinterpret_cast<sockaddr*>(&address);
    info.ai_addrlen = sizeof address;
    info.ai_next = next == nullptr ? nullptr : &next->info;
  }
  sockaddr_in6 address{};
  addrinfo info{};
};

TEST_F(AddressScope, IsThatOfTheFirstIpv6AddressThatCarriesOne) {
  Entry later("fe80::3", 43);
  Entry first("fe80::2", 42, &later);
  Entry without("2001:db8::1", 0, &first);
  Entry other("::1", 0, &without);
  other.info.ai_family = AF_INET;  // whatever its address says
  curlProbe().addresses = &other.info;
  EXPECT_EQ(optionsFor("name"), Options{"ADDRESS_SCOPE=42"});
  EXPECT_EQ(curlProbe().freed, 1);
}

TEST_F(AddressScope, IsNotSetWhereEveryEntryIsOfAnotherFamily) {
  Entry other("fe80::2", 42);
  other.info.ai_family = AF_INET;
  curlProbe().addresses = &other.info;
  EXPECT_EQ(optionsFor("name"), Options{});
  EXPECT_EQ(curlProbe().freed, 1);
}

TEST_F(AddressScope, SkipsAnAddressWhoseTextIsLongerThanItsBuffer) {
  Entry later("fe80::3", 43);
  Entry lengthy("fe80:1111:2222:3333:4444:5555:6666:7777", 42, &later);  // 39 characters
  curlProbe().addresses = &lengthy.info;
  EXPECT_EQ(optionsFor("name"), Options{"ADDRESS_SCOPE=43"});
}

}  // namespace
}  // namespace kelt::provision
