#include "provision/provision_client.h"

#include <atomic>
#include <curl/curl.h>
#include <filesystem>
#include <thread>
#include <unistd.h>

#include "curl_probe.h"
#include "package.h"
#include "support/private_device.h"
#include "support/waiting.h"
#include "tls_server.h"

#include "provision/transfer.h"

namespace fs = std::filesystem;

namespace kelt::provision {
namespace {

using tests::Answer;
using tests::base64Of;
using tests::bodyAnswer;
using tests::contentOf;
using tests::curlProbe;
using tests::exists;
using tests::modeOf;
using tests::namesIn;
using tests::putDirectory;
using tests::putFile;
using tests::replyWith;
using tests::siteList;
using tests::TlsServer;
using tests::zipOf;

using Names = std::vector<std::string>;

constexpr const char* kContacted = "Initializing CURL...\nCurl initialization OK\nContacting Zentor... OK\n";
constexpr const char* kExamined = "Examining response... OK\n";
constexpr const char* kZipMade = "Creating keys zip file... OK\nWriting decoded data to zip file... OK\n";

std::string package() {
  return zipOf({{"sitelist.xml", siteList("1")}, {"srpubkey.bin", "public"}});
}

class ProvisionClient : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/tmp/keys");
    serverReply.clear();
    curlProbe() = {};
  }

  /// Provisions into /tmp/keys from a server that gives these answers.
  int provisionFrom(std::vector<Answer> answers) {
    const TlsServer server(std::move(answers));
    const int status = provision(server.address());
    m_requests = server.requests();
    return status;
  }

  int provision(const std::string& server, const std::string& directory = "/tmp/keys") {
    int status = -1;
    m_out = tests::outputOf([&] { status = provisionFiles(directory, server, "admin", "pass word"); }).out;
    return status;
  }

  int provisionFromBody(const std::string& body) { return provisionFrom({bodyAnswer(body)}); }

  std::string m_out;
  Names m_requests;
};

TEST_F(ProvisionClient, FetchesUnpacksAndNamesTheFiles) {
  EXPECT_EQ(provisionFromBody(replyWith(package())), 0);
  EXPECT_EQ(m_out,
            "Initializing CURL...\n"
            "Curl initialization OK\n"
            "Contacting Zentor... OK\n"
            "Examining response... OK\n"
            "Creating keys zip file... OK\n"
            "Writing decoded data to zip file... OK\n"
            "Unzipping key files... OK\n"
            "Reading FIPS mode from sitelist... OK\n"
            "Writing agentfipsmode file... OK\n"
            "Renaming sitelist.xml to SiteList.xml... OK\n");
  EXPECT_EQ(namesIn("/tmp/keys"), (Names{"SiteList.xml", "agentfipsmode", "srpubkey.bin"}));
  EXPECT_EQ(contentOf("/tmp/keys/agentfipsmode"), "1");
  EXPECT_EQ(contentOf("/tmp/keys/SiteList.xml"), siteList("1"));
  EXPECT_EQ(contentOf("/tmp/keys/srpubkey.bin"), "public");
  for (const std::string& name : namesIn("/tmp/keys"))
    EXPECT_EQ(modeOf("/tmp/keys/" + name), 0600U) << name;
}

TEST_F(ProvisionClient, AsksForThePackageOnceAndWithoutAnAnswerOfItsOwn) {
  provisionFromBody(replyWith(package()));
  ASSERT_EQ(m_requests.size(), 1U);
  EXPECT_TRUE(m_requests[0].starts_with("GET /remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do HTTP/1.1\r\n"));
  EXPECT_EQ(m_requests[0].find("Authorization"), std::string::npos);
}

TEST_F(ProvisionClient, SetsItsOptionsInTheirOrderAndNoOthers) {
  const TlsServer server({bodyAnswer(replyWith(package()))});
  EXPECT_EQ(provision(server.address()), 0);
  Names expected = {"init",
                    "URL=https://" + server.address() + "/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do",
                    "SSL_VERIFYPEER=0",
                    "SSL_VERIFYHOST=0",
                    "HTTPAUTH=-17",
                    "WRITEFUNCTION=...",
                    "USERNAME=admin",
                    "PASSWORD=..."};
  // HTTP/1.1, where the library could speak HTTP/2.
  const auto features = static_cast<unsigned>(curl_version_info(CURLVERSION_NOW)->features);
  if ((features & CURL_VERSION_HTTP2) != 0) expected.emplace_back("HTTP_VERSION=2");
  expected.insert(expected.end(), {"SSL_SESSIONID_CACHE=0", "perform", "cleanup", "global_cleanup"});
  EXPECT_EQ(curlProbe().calls, expected);
}

TEST_F(ProvisionClient, TakesPort8443WhereNoneIsGiven) {
  EXPECT_EQ(provision("127.0.0.1"), 2);
  EXPECT_EQ(curlProbe().calls[1], "URL=https://127.0.0.1:8443/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do");
  curlProbe() = {};
  EXPECT_EQ(provision("[::1]"), 2);
  EXPECT_EQ(curlProbe().calls[1], "URL=https://[::1]:8443/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do");
}

TEST_F(ProvisionClient, ReachesTheServerAtEveryKindOfAddress) {
  for (const char* host : {"127.0.0.1", "[::1]", "[fe80::1%lo]"}) {
    const TlsServer server({bodyAnswer(replyWith(package()))});
    serverReply.clear();
    EXPECT_EQ(provision(std::string(host) + ":" + server.port()), 0) << host << m_out;
  }
}

TEST_F(ProvisionClient, AnswersBasicAuthentication) {
  const Answer asking = {
      "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"z\"\r\nContent-Length: 0\r\n"
      "Connection: close\r\n\r\n"};
  EXPECT_EQ(provisionFrom({asking, bodyAnswer(replyWith(package()))}), 0);
  ASSERT_EQ(m_requests.size(), 2U);
  EXPECT_NE(m_requests[1].find("Authorization: Basic " + base64Of("admin:pass word") + "\r\n"), std::string::npos);
}

TEST_F(ProvisionClient, AnswersDigestAuthenticationWithoutSendingThePassword) {
  const Answer asking = {
      "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Digest realm=\"z\", nonce=\"n\", qop=\"auth\"\r\n"
      "Content-Length: 0\r\nConnection: close\r\n\r\n"};
  EXPECT_EQ(provisionFrom({asking, bodyAnswer(replyWith(package()))}), 0);
  ASSERT_EQ(m_requests.size(), 2U);
  EXPECT_NE(m_requests[1].find("Authorization: Digest username=\"admin\""), std::string::npos);
  EXPECT_EQ(m_requests[1].find("pass word"), std::string::npos);
}

TEST_F(ProvisionClient, TakesAReplyOfTheMarkAloneAsAnEmptyArchive) {
  EXPECT_EQ(provisionFromBody("OK:\r\n"), 5);
  EXPECT_EQ(m_out, std::string(kContacted) + kExamined + kZipMade + "Unzipping key files... ERROR\n");
  EXPECT_EQ(namesIn("/tmp/keys"), Names{"keltconfig_keystemp.zip"});
  EXPECT_EQ(contentOf("/tmp/keys/keltconfig_keystemp.zip"), "");
}

TEST_F(ProvisionClient, RefusesAReplyThatIsShortOrStartsOtherwise) {
  for (const std::string& body : {std::string("OK:\r"), std::string("x"), std::string("OK:\n\nUEs="),
                                  std::string("ok:\r\nUEs="), " " + replyWith(package()), std::string("<html>")}) {
    serverReply.clear();
    EXPECT_EQ(provisionFromBody(body), 10) << body;
    EXPECT_EQ(m_out, std::string(kContacted) + "Examining response... ERROR\n") << body;
  }
  EXPECT_TRUE(namesIn("/tmp/keys").empty());
}

TEST_F(ProvisionClient, HintsAtTheCredentialsAfterAnEmptyReply) {
  EXPECT_EQ(provisionFromBody(""), 10);
  EXPECT_EQ(m_out,
            std::string(kContacted) +
                "Examining response... ERROR\nNo response from Zentor, possibly due to invalid Zentor credentials, "
                "check Zentor credentials and retry.\n");
}

TEST_F(ProvisionClient, ReportsAMissingHandle) {
  curlProbe().initFails = true;
  EXPECT_EQ(provision("127.0.0.1:1"), 1);
  EXPECT_EQ(m_out, "Initializing CURL...\nCurl initialization ERROR\n0");
  EXPECT_EQ(curlProbe().calls, Names{"init"});
}

TEST_F(ProvisionClient, ReportsAServerThatDoesNotListen) {
  EXPECT_EQ(provision("127.0.0.1:1"), 2);
  EXPECT_EQ(m_out, "Initializing CURL...\nCurl initialization OK\nContacting Zentor... ERROR\n");
  EXPECT_EQ(curlProbe().calls.back(), "global_cleanup");
}

TEST_F(ProvisionClient, ReportsAZipFileThatCannotBeCreated) {
  const TlsServer server({bodyAnswer(replyWith(package()))});
  EXPECT_EQ(provision(server.address(), "/tmp/missing"), 3);
  EXPECT_EQ(m_out, std::string(kContacted) + kExamined + "Creating keys zip file... ERROR\n");
  serverReply.clear();
  putDirectory("/tmp/keys/keltconfig_keystemp.zip");
  EXPECT_EQ(provision(server.address()), 3);
  EXPECT_EQ(namesIn("/tmp/keys"), Names{"keltconfig_keystemp.zip"});
}

TEST_F(ProvisionClient, ReportsAZipFileThatCannotBeWritten) {
  tests::mountSmall("/tmp/keys", 8192);
  EXPECT_EQ(provisionFromBody(
                replyWith(zipOf({{"big.bin", std::string(100000, 'x') + package()}}) + std::string(100000, 'x'))),
            4);
  EXPECT_EQ(m_out, std::string(kContacted) + kExamined +
                       "Creating keys zip file... OK\nWriting decoded data to zip file... ERROR\n");
  EXPECT_TRUE(namesIn("/tmp/keys").empty());
}

TEST_F(ProvisionClient, KeepsTheZipFileOfAReplyThatIsNoArchive) {
  EXPECT_EQ(provisionFromBody("OK:\r\n" + base64Of("no archive")), 5);
  EXPECT_EQ(contentOf("/tmp/keys/keltconfig_keystemp.zip"), "no archive");
  EXPECT_EQ(modeOf("/tmp/keys/keltconfig_keystemp.zip"), 0600U);
}

TEST_F(ProvisionClient, TakesBase64ThatIsGarbageOrCutForAnEmptyArchive) {
  const std::string whole = replyWith(package());
  for (const std::string& body : {std::string("OK:\r\n*garbage*"), whole.substr(0, whole.size() - 5), whole + "*",
                                  whole + std::string(1, '\0')}) {
    serverReply.clear();
    EXPECT_EQ(provisionFromBody(body), 5);
    EXPECT_EQ(contentOf("/tmp/keys/keltconfig_keystemp.zip"), "");
    EXPECT_EQ(namesIn("/tmp/keys"), Names{"keltconfig_keystemp.zip"});
  }
}

TEST_F(ProvisionClient, TakesBase64InLines) {
  std::string body = replyWith(package());
  for (std::size_t at = 5 + 76; at < body.size(); at += 78)
    body.insert(at, "\r\n");
  EXPECT_EQ(provisionFromBody(body + "\r\n"), 0);
}

TEST_F(ProvisionClient, ReportsAModeFileThatCannotBeCreated) {
  putFile("/tmp/keys/agentfipsmode", "old");
  tests::mountReadOnly("/tmp/keys/agentfipsmode");  // a mount point, which no file takes the place of
  EXPECT_EQ(provisionFromBody(replyWith(package())), 6);
  EXPECT_TRUE(m_out.ends_with("Reading FIPS mode from sitelist... OK\nWriting agentfipsmode file... ERROR\n"));
  EXPECT_EQ(namesIn("/tmp/keys"), (Names{"agentfipsmode", "sitelist.xml", "srpubkey.bin"}));
  EXPECT_EQ(contentOf("/tmp/keys/agentfipsmode"), "old");
  tests::unmount("/tmp/keys/agentfipsmode");
  ASSERT_TRUE(fs::remove("/tmp/keys/agentfipsmode"));
  putDirectory("/tmp/keys/agentfipsmode");
  serverReply.clear();
  EXPECT_EQ(provisionFromBody(replyWith(package())), 6);
  EXPECT_TRUE(m_out.ends_with("Reading FIPS mode from sitelist... OK\nWriting agentfipsmode file... ERROR\n"));
}

TEST_F(ProvisionClient, ReportsAnArchiveWithoutASiteList) {
  EXPECT_EQ(provisionFromBody(replyWith(zipOf({{"srpubkey.bin", "public"}}))), 8);
  EXPECT_TRUE(m_out.ends_with("Unzipping key files... OK\nReading FIPS mode from sitelist... ERROR\n"));
  EXPECT_EQ(namesIn("/tmp/keys"), Names{"srpubkey.bin"});
}

TEST_F(ProvisionClient, ReportsASiteListThatDoesNotLoad) {
  EXPECT_EQ(provisionFromBody(replyWith(zipOf({{"sitelist.xml", "<ns:SiteLists>"}}))), 8);
}

TEST_F(ProvisionClient, ReportsASiteListThatCannotBeRenamed) {
  putFile("/tmp/keys/SiteList.xml", "kept");
  tests::mountReadOnly("/tmp/keys/SiteList.xml");
  EXPECT_EQ(provisionFromBody(replyWith(package())), 9);
  EXPECT_TRUE(m_out.ends_with("Writing agentfipsmode file... OK\nRenaming sitelist.xml to SiteList.xml... ERROR\n"));
  EXPECT_EQ(contentOf("/tmp/keys/SiteList.xml"), "kept");
  tests::unmount("/tmp/keys/SiteList.xml");
  ASSERT_TRUE(fs::remove("/tmp/keys/SiteList.xml"));
  putFile("/tmp/keys/SiteList.xml/inside", "kept");
  serverReply.clear();
  EXPECT_EQ(provisionFromBody(replyWith(package())), 9);
  EXPECT_TRUE(m_out.ends_with("Writing agentfipsmode file... OK\nRenaming sitelist.xml to SiteList.xml... ERROR\n"));
  EXPECT_EQ(contentOf("/tmp/keys/SiteList.xml/inside"), "kept");
}

TEST_F(ProvisionClient, HandsTheModeOnAsItIsWritten) {
  EXPECT_EQ(provisionFromBody(replyWith(zipOf({{"sitelist.xml", siteList("on \xc3\xa9")}}))), 0);
  EXPECT_EQ(contentOf("/tmp/keys/agentfipsmode"), "on \xc3\xa9");
}

TEST_F(ProvisionClient, FollowsNothingThatWasPlantedUnderItsNames) {
  putFile("/tmp/victim", "untouched", 0666);
  for (const char* name :
       {"keltconfig_keystemp.zip", "agentfipsmode", "SiteList.xml", "sitelist.xml", "srpubkey.bin"}) {
    fs::create_symlink("/tmp/victim", std::string("/tmp/keys/") + name);
  }
  EXPECT_EQ(provisionFromBody(replyWith(package())), 0);
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
  for (const char* name : {"agentfipsmode", "SiteList.xml", "srpubkey.bin"}) {
    EXPECT_FALSE(fs::is_symlink(std::string("/tmp/keys/") + name)) << name;
  }
}

TEST_F(ProvisionClient, TakesNoSiteListThatSomebodyPlantedForAnArchiveWithoutOne) {
  putFile("/tmp/victim", siteList("1"));
  fs::create_symlink("/tmp/victim", "/tmp/keys/sitelist.xml");
  EXPECT_EQ(provisionFromBody(replyWith(zipOf({{"srpubkey.bin", "public"}}))), 8);
}

TEST_F(ProvisionClient, RemovesKeysThatSomebodyPlantedForAnArchiveWithoutThem) {
  putFile("/tmp/victim", "untouched");
  fs::create_symlink("/tmp/victim", "/tmp/keys/reqseckey.bin");
  fs::create_hard_link("/tmp/victim", "/tmp/keys/sr2048pubkey.bin");
  putFile("/tmp/keys/req2048seckey.bin", "planted", 0666);
  EXPECT_EQ(provisionFromBody(replyWith(package())), 0);
  EXPECT_EQ(namesIn("/tmp/keys"), (Names{"SiteList.xml", "agentfipsmode", "srpubkey.bin"}));
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
}

TEST_F(ProvisionClient, KeepsKeysOfItsUsersOwnThatAnArchiveDoesNotBring) {
  putFile("/tmp/keys/req2048seckey.bin", "mine", 0600);
  EXPECT_EQ(provisionFromBody(replyWith(package())), 0);
  EXPECT_EQ(contentOf("/tmp/keys/req2048seckey.bin"), "mine");
}

TEST_F(ProvisionClient, FailsWhereAPlantedThingCannotBeRemoved) {
  putFile("/tmp/keys/reqseckey.bin/inside", "kept");
  EXPECT_EQ(provisionFromBody(replyWith(package())), 8);
  EXPECT_TRUE(m_out.ends_with("Unzipping key files... OK\nReading FIPS mode from sitelist... ERROR\n"));
  EXPECT_EQ(contentOf("/tmp/keys/reqseckey.bin/inside"), "kept");
  EXPECT_FALSE(exists("/tmp/keys/agentfipsmode"));
}

TEST_F(ProvisionClient, TakesTheLegacyNamesThatAPackageLeavesFree) {
  const std::string archive =
      zipOf({{"sitelist.xml", siteList("1")}, {"sr2048pubkey.bin", "public"}, {"req2048seckey.bin", "secret"}});
  EXPECT_EQ(provisionFromBody(replyWith(archive)), 0);
  for (const char* name : {"/tmp/keys/srpubkey.bin", "/tmp/keys/reqseckey.bin"}) {
    EXPECT_EQ(contentOf(name), "") << name;
    EXPECT_EQ(modeOf(name), 0600U) << name;
  }
}

TEST_F(ProvisionClient, WaitsForItsMutex) {
  boost::mutex::scoped_lock lock(mtxProvision);
  const TlsServer server({bodyAnswer("")});
  int status = -1;
  std::atomic<pid_t> task = 0;
  std::thread other([&] {
    task = ::gettid();
    status = provision(server.address());
  });
  EXPECT_TRUE(
      tests::bComesTrue([&] { return task != 0 && tests::bSleeps("/proc/self/task/" + std::to_string(task.load())); }));
  EXPECT_EQ(curlProbe().calls, Names{});
  lock.unlock();
  other.join();
  EXPECT_EQ(status, 10);
  EXPECT_TRUE(mtxProvision.try_lock());
  mtxProvision.unlock();
}

}  // namespace
}  // namespace kelt::provision
