// What a transfer makes of the server's address before it contacts it.

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <net/if.h>

#include "curl_probe.h"
#include "loopback.h"
#include "support/private_device.h"

#include "provision/provision_client.h"

namespace kelt::provision {
namespace {

using tests::curlProbe;
using Names = std::vector<std::string>;

class FetchAddress : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::bringLoopbackUp();
    curlProbe() = {};
  }

  /// Asks a server at which nobody listens.
  static void provision(const std::string& server) {
    (void)tests::outputOf([&] { EXPECT_EQ(provisionFiles("/tmp", server, "admin", "password"), 2); });
  }
};

TEST_F(FetchAddress, IsGivenItsScopeAfterTheOptionsAndBeforeTheTransfer) {
  provision("[fe80::1%lo]:1");
  const Names& calls = curlProbe().calls;
  const auto scope = std::find(calls.begin(), calls.end(), "ADDRESS_SCOPE=" + std::to_string(::if_nametoindex("lo")));
  ASSERT_NE(scope, calls.end());
  EXPECT_EQ(*std::prev(scope), "PASSWORD=...");
  EXPECT_LT(scope, std::find(calls.begin(), calls.end(), "perform"));
}

TEST_F(FetchAddress, IsLookedUpWithItsPort) {
  provision("127.0.0.1:1");
  EXPECT_EQ(curlProbe().firstLookup, "127.0.0.1 1");
}

TEST_F(FetchAddress, IsLookedUpWithPort8443WhereNoneIsGiven) {
  provision("[::1]");
  EXPECT_EQ(curlProbe().firstLookup, "::1 8443");
  EXPECT_EQ(curlProbe().calls[1], "URL=https://[::1]:8443/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do");
}

}  // namespace
}  // namespace kelt::provision
