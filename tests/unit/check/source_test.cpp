#include <sys/stat.h>
#include <unistd.h>

#include "collected.h"
#include "support/test_keys.h"

using kelt::tests::Collected;
using kelt::tests::exists;
using kelt::tests::kInstalled;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::siteListOf;
using kelt::tests::testKey;
using kelt::tests::Trouble;

namespace {

const std::string kSource = "/tmp/keys";

void putSource(const std::string& directory = kSource) {
  putFile(directory + "/SiteList.xml", siteListOf({"192.0.2.10"}));
  putFile(directory + "/req2048seckey.bin", testKey("rsa2048.pkcs8.der"), 0600);
  putFile(directory + "/sr2048pubkey.bin", testKey("rsa2048.spki.der"));
  putFile(directory + "/agentfipsmode", "0");
}

class Source : public kelt::tests::CheckedDevice {
 protected:
  void SetUp() override {
    CheckedDevice::SetUp();
    putSource();
  }

  Collected look(const std::string& source = kSource, const std::string& startedIn = "/nowhere") {
    Collected findings;
    kelt::check::Device found = device();
    found.startedIn = startedIn;
    checkSource(found, source, findings);
    return findings;
  }
};

TEST_F(Source, IsInOrderAndStaysAsItIs) {
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(findings.fact("source.directory"), "The switch would take its files from /tmp/keys.");
  EXPECT_EQ(findings.fact("source.site-list"), "/tmp/keys/SiteList.xml names 192.0.2.10.");
  EXPECT_EQ(findings.fact("source.import"),
            "The import would choose non-FIPS mode and keys of 2048 bits, from the files of 2048 bits; the agent would "
            "make its own keys anew.");
  EXPECT_EQ(kelt::tests::namesIn(kSource).size(), 4U) << "no legacy key file is made";
}

TEST_F(Source, IsLookedForInThreePlaces) {
  putSource("/tmp/here");
  putSource("/tmp/here/sub");
  ASSERT_EQ(::chdir("/tmp"), 0);
  EXPECT_EQ(look("keys", "/tmp/here").fact("source.directory"), "The switch would take its files from keys.");
  EXPECT_EQ(look("sub", "/tmp/here").fact("source.directory"), "The switch would take its files from /tmp/here/sub.");
  EXPECT_EQ(look("none", "/tmp/here").fact("source.directory"), "The switch would take its files from /tmp/here.");
  const Collected findings = look("none", "/tmp/none");
  EXPECT_EQ(findings.trouble(), Trouble{"source.directory problem"});
  EXPECT_EQ(
      findings.fact("source.directory"),
      "None of the places that are searched holds a site list and all key files: none, /tmp/none/none, /tmp/none.");
}

TEST_F(Source, ThatIsNotCompleteIsPassedOver) {
  ASSERT_EQ(::unlink((kSource + "/agentfipsmode").c_str()), 0);
  EXPECT_EQ(look().trouble(), (Trouble{"source.file problem", "source.directory problem"}));
  putSource("/tmp/here");
  EXPECT_EQ(look(kSource, "/tmp/here").trouble(), Trouble{"source.file warning"});
}

TEST_F(Source, MayHaveNoFileThatIsNone) {
  for (const char* name : {"req2048seckey.bin", "sr2048pubkey.bin", "agentfipsmode"}) {
    putSource();
    ASSERT_EQ(::unlink((kSource + "/" + name).c_str()), 0);
    ASSERT_EQ(::mkfifo((kSource + "/" + name).c_str(), 0600), 0);
    EXPECT_EQ(look().trouble(), (Trouble{"source.file problem", "source.directory problem"})) << name;
    ASSERT_EQ(::unlink((kSource + "/" + name).c_str()), 0);
  }
}

TEST_F(Source, WithASiteListInLatin1IsConvertedAndStaysAsItIs) {
  const std::string latin1 = siteListOf({"a"}) + "<!-- \xE9 -->";
  putFile(kSource + "/SiteList.xml", latin1);
  EXPECT_EQ(look().trouble(), Trouble{"source.conversion warning"});
  EXPECT_EQ(kelt::tests::contentOf(kSource + "/SiteList.xml"), latin1);
}

TEST_F(Source, WithASiteListThatIsRefusedIsAProblem) {
  for (const std::string& content :
       {std::string(), std::string("<other/>"), siteListOf({}), std::string("<ns:SiteLists/>")}) {
    putFile(kSource + "/SiteList.xml", content);
    EXPECT_EQ(look().trouble(), Trouble{"source.site-list problem"}) << content;
  }
}

TEST_F(Source, WithALinkInPlaceOfASiteListIsNotConverted) {
  putFile("/tmp/list", siteListOf({"a"}) + "<!-- \xE9 -->");
  ASSERT_EQ(::unlink((kSource + "/SiteList.xml").c_str()), 0);
  ASSERT_EQ(::symlink("/tmp/list", (kSource + "/SiteList.xml").c_str()), 0);
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"source.site-list problem"});
  EXPECT_NE(findings.fact("source.site-list").find("as it is a symbolic link"), std::string::npos);
}

TEST_F(Source, HasKeysThatAreKeys) {
  putFile(kSource + "/sr2048pubkey.bin", testKey("rsa2048.pkcs8.der"));
  EXPECT_EQ(look().trouble(), Trouble{"source.server-key problem"});
  putFile(kSource + "/sr2048pubkey.bin", testKey("rsa2048.spki.pem"));
  putFile(kSource + "/req2048seckey.bin", testKey("encrypted.pkcs8.pem"), 0600);
  EXPECT_EQ(look().trouble(), Trouble{"source.request-key warning"});
}

TEST_F(Source, HasKeysOfTheSizeThatIsChosen) {
  putFile(kSource + "/sr2048pubkey.bin", testKey("rsa1024.spki.der"));
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"source.server-key warning"});
  EXPECT_EQ(findings.fact("source.server-key"),
            "/tmp/keys/sr2048pubkey.bin is a key of 1024 bits, where 2048 are chosen.");
}

TEST_F(Source, WithoutAMarkerThatCountsIsTakenForLegacy) {
  putFile(kSource + "/agentfipsmode", "");
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"source.server-key problem"});
  EXPECT_NE(findings.fact("source.import").find("from the files of 1024 bits"), std::string::npos);
}

TEST_F(Source, NeedsRoomForItsCopies) {
  kelt::tests::mountSmall(kInstalled, 64 * 1024);
  putDirectory(kInstalled + "/scratch/etc");
  putFile(kSource + "/SiteList.xml", siteListOf({"a"}) + std::string(80000, ' '));
  EXPECT_EQ(look().states("source.room"), "problem");
}

TEST_F(Source, ThatLooksLikeAnOptionIsTakenForOne) {
  EXPECT_EQ(look("-x").trouble(), Trouble{"source.directory problem"});
}

}  // namespace
