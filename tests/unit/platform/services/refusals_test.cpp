#include "platform/refusals.h"

#include <cerrno>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "support/child.h"
#include "support/log.h"
#include "support/private_device.h"

#include "platform/afile.h"
#include "platform/anxml.h"
#include "platform/iconfiguration.h"
#include "platform/registry.h"

namespace kelt::platform {
namespace {

using base::Error;
using base::ErrorKind;
using quorvane_com::orv::configuration::IConfiguration;
using tests::errorsLogged;
using tests::expectInOwnProcess;
using tests::putDirectory;
using tests::putFile;
using Lines = std::vector<std::string>;

// What a process has said once it does not say again, so each test has one of its own.
class Refusals : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/opt/Quorvane/orv/scratch");
    IConfiguration::GetConfiguration().SetConfigurationDirectory(L"/etc/orv.d");
  }
};

TEST_F(Refusals, AreLoggedOnceEach) {
  expectInOwnProcess([&] {
    const Error one{ErrorKind::kRefused, 0, "/refusals/one: is not a regular file"};
    const Error two{ErrorKind::kMalformed, 0, "/refusals/two: line 3"};
    for (const Error& error : {one, two, one, one, two})
      logRefusal(error);
    EXPECT_EQ(errorsLogged(), (Lines{one.message, two.message}));
  });
}

TEST_F(Refusals, DoNotIncludeWhatIsMissing) {
  expectInOwnProcess([&] {
    logRefusal(base::systemError("open /refusals/missing", ENOENT));
    EXPECT_EQ(errorsLogged(), Lines{});
    logRefusal(base::systemError("open /refusals/secret", EACCES));
    EXPECT_EQ(errorsLogged(), Lines{"open /refusals/secret: Permission denied"});
  });
}

TEST_F(Refusals, NameTheFileOnce) {
  expectInOwnProcess([&] {
    logRefusal("/refusals/named", {ErrorKind::kMalformed, 0, "line 3"});
    logRefusal("/refusals/known", {ErrorKind::kMalformed, 0, "open /refusals/known: no"});
    EXPECT_EQ(errorsLogged(), (Lines{"/refusals/named: line 3", "open /refusals/known: no"}));
  });
}

/// The one error that `refuse` leaves in the log.
std::string logged(const std::function<void()>& refuse) {
  const std::size_t before = errorsLogged().size();
  refuse();
  refuse();
  const Lines after = errorsLogged();
  EXPECT_EQ(after.size(), before + 1);
  return after.empty() ? "" : after.back();
}

TEST_F(Refusals, OfDocumentsAndFilesAreLogged) {
  expectInOwnProcess([&] {
    putFile("/tmp/refused.xml", "<a>");
    AnXml document;
    EXPECT_TRUE(logged([&] {
                  EXPECT_FALSE(document.useExistingFile(L"/tmp/refused.xml", L"a", nullptr, nullptr));
                }).starts_with("/tmp/refused.xml: XML document with "));
    ASSERT_EQ(::mkfifo("/tmp/refused-fifo", 0600), 0);
    ABuffer content;
    EXPECT_EQ(logged([&] { EXPECT_FALSE(AFile::readExisting(L"/tmp/refused-fifo", content)); }),
              "/tmp/refused-fifo: not a regular file");
    ASSERT_EQ(::mkfifo("/tmp/refused-from", 0600), 0);
    EXPECT_EQ(logged([&] { EXPECT_FALSE(AFiler::copyFile(L"/tmp/refused-from", L"/tmp/to")); }),
              "/tmp/refused-from: not a regular file");
    putDirectory("/tmp/refused.ini");
    EXPECT_EQ(InitializeRegistry(L"/tmp/refused.ini"), 0);
    void* key = nullptr;
    EXPECT_EQ(logged([&] { EXPECT_NE(RegOpenKey(HKEY_LOCAL_MACHINE, "SOFTWARE", &key), 0); }),
              "/tmp/refused.ini: not a regular file");
  });
}

TEST_F(Refusals, OfTheConfigurationThatNamesTheLogGoToTheUsualLog) {
  expectInOwnProcess([&] {
    putDirectory("/tmp/planted");
    putFile("/etc/orv.d/ZENTORAGENT-log/config.xml",
            "<Configuration><FrameworkDataDirectory>/tmp/planted</FrameworkDataDirectory></Configuration>", 0666);
    const IConfiguration& configuration = IConfiguration::GetConfiguration();
    for (int again = 0; again < 2; ++again) {
      EXPECT_EQ(configuration.GetFrameworkDataDirectory(), L"/opt/Quorvane/orv/scratch");
      EXPECT_EQ(configuration.GetAgentBinDirectory(), L"/opt/Quorvane/orv/bin");
    }
    EXPECT_EQ(errorsLogged(), Lines{"/etc/orv.d/ZENTORAGENT-log/config.xml: can be written by others"});
    EXPECT_EQ(tests::namesIn("/tmp/planted"), Lines{});
  });
}

}  // namespace
}  // namespace kelt::platform
