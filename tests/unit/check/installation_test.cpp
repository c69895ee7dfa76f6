#include "collected.h"

using kelt::tests::Collected;
using kelt::tests::Trouble;

namespace {

class Parts : public kelt::tests::PrivateDevice {
 protected:
  static Collected look(bool bLoad) {
    Collected findings;
    kelt::check::checkInstallation(bLoad, findings);
    return findings;
  }
};

TEST_F(Parts, AreThereAndNotLoadedUnlessAskedFor) {
  const Collected findings = look(false);
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(findings.states("install.crypto") + findings.states("install.provision"), "okok");
  EXPECT_EQ(findings.report.facts.count("openssl"), 0U);
  EXPECT_EQ(findings.states("install.conversion") + findings.states("install.clock"), "okok");
}

TEST_F(Parts, TellTheVersionsOfTheirLibrariesOnceLoaded) {
  const Collected findings = look(true);
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_TRUE(findings.report.facts.at("openssl").front().starts_with("OpenSSL 3."));
  EXPECT_GE(findings.report.facts.at("libcurl").front().front(), '7');
}

}  // namespace
