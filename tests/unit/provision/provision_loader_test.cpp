#include <sys/prctl.h>
#include <unistd.h>

#include "package.h"
#include "support/child.h"
#include "support/private_device.h"
#include "tls_server.h"

#include "provision/provision.h"

namespace kelt::provision {
namespace {

class ProvisionLoader : public tests::PrivateDevice {};

// In processes of their own: what is loaded and what is said to the system about this process stays.
int inChild(const std::function<int()>& action) {
  return tests::Child([&]() -> int { ::_exit(action()); }).exitStatus();
}

TEST_F(ProvisionLoader, ProvisionsThroughTheLoadedObject) {
  tests::putDirectory("/tmp/keys");
  const std::string package = tests::zipOf({{"sitelist.xml", tests::siteList("1")}});
  const tests::TlsServer server({tests::bodyAnswer(tests::replyWith(package))});
  const tests::Output output = tests::outputOf([&] {
    EXPECT_EQ(inChild([&] { return Provision::iGetProvisionFiles(L"/tmp/keys", server.address(), "admin", "pw"); }), 0);
  });
  EXPECT_TRUE(output.out.ends_with("Renaming sitelist.xml to SiteList.xml... OK\n"));
  EXPECT_EQ(tests::contentOf("/tmp/keys/agentfipsmode"), "1");
}

TEST_F(ProvisionLoader, LeavesNoCoreDumpOfAProcessThatHeldThePassword) {
  const tests::Output output = tests::outputOf([] {
    EXPECT_EQ(inChild([] {
                if (::prctl(PR_GET_DUMPABLE) != 1) return 90;
                const int status = Provision::iGetProvisionFiles(L"/tmp", "127.0.0.1:1", "admin", "pw");
                return ::prctl(PR_GET_DUMPABLE) == 0 ? status : 91;
              }),
              2);
  });
  EXPECT_TRUE(output.out.ends_with("Contacting Zentor... ERROR\n"));
}

}  // namespace
}  // namespace kelt::provision
