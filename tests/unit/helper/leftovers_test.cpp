#include "helper/leftovers.h"

#include "support/private_device.h"

namespace kelt::helper {
namespace {

using tests::exists;
using tests::putFile;

constexpr const char* kName = "/.f.kelt-abcdefgh2345";
constexpr const char* kLog = "/opt/Quorvane/orv/scratch/logs/keltcfg.log";

class Leftovers : public tests::PrivateDevice {};

TEST_F(Leftovers, AreRemovedFromADirectoryWithALineInTheLog) {
  tests::putDirectory("/opt/Quorvane/orv/scratch");
  putFile(std::string("/tmp/d") + kName, "secret");
  putFile("/tmp/d/f", "kept");
  sweepDirectory("/tmp/d");
  EXPECT_EQ(tests::namesIn("/tmp/d"), std::vector<std::string>{"f"});
  const std::string log = tests::contentOf(kLog);
  EXPECT_NE(log.find("\tI\t"), std::string::npos);
  EXPECT_TRUE(log.ends_with("\tkeltcfg\tRemoved what an interrupted run left, /tmp/d/.f.kelt-abcdefgh2345\n")) << log;
}

TEST_F(Leftovers, ThatAreNotThereAreNotWorthALine) {
  tests::putDirectory("/opt/Quorvane/orv/scratch");
  sweepDirectory("/tmp");
  sweepInstallation();
  EXPECT_FALSE(exists(kLog));
}

TEST_F(Leftovers, AreRemovedWhereverTheInstallationIsWritten) {
  const std::vector<std::string> written{"/etc/orv.d/ZENTORAGENT3000", "/opt/Quorvane/orv", "/opt/Quorvane/orv/scratch",
                                         "/opt/Quorvane/orv/scratch/etc", "/opt/Quorvane/orv/scratch/keystore"};
  const std::vector<std::string> others{"/etc/orv.d", "/etc/orv.d/SCANNER2000", "/opt/Quorvane/orv/bin"};
  putFile(written[0] + "/config.xml", "<Configuration/>");
  for (const auto& directory : written)
    putFile(directory + kName, "secret");
  for (const auto& directory : others)
    putFile(directory + kName, "kept");
  sweepInstallation();
  for (const auto& directory : written)
    EXPECT_FALSE(exists(directory + kName)) << directory;
  for (const auto& directory : others)
    EXPECT_TRUE(exists(directory + kName)) << directory;
}

TEST_F(Leftovers, AreRemovedFromTheDataDirectoryThatTheAgentNames) {
  putFile("/etc/orv.d/ZENTORAGENT3000/config.xml",
          "<Configuration><FrameworkDataDirectory>/opt/Quorvane/data</FrameworkDataDirectory></Configuration>");
  putFile(std::string("/opt/Quorvane/data") + kName, "secret");
  putFile(std::string("/opt/Quorvane/data/keystore") + kName, "secret");
  sweepInstallation();
  EXPECT_FALSE(exists(std::string("/opt/Quorvane/data") + kName));
  EXPECT_FALSE(exists(std::string("/opt/Quorvane/data/keystore") + kName));
}

}  // namespace
}  // namespace kelt::helper
