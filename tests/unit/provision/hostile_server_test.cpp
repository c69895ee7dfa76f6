#include <cstdlib>

#include "curl_probe.h"
#include "package.h"
#include "support/private_device.h"
#include "tls_server.h"

#include "provision/provision_client.h"
#include "provision/transfer.h"

namespace kelt::provision {
namespace {

using tests::Answer;
using tests::bodyAnswer;
using tests::contentOf;
using tests::namesIn;
using tests::replyWith;
using tests::TlsServer;

using Names = std::vector<std::string>;

constexpr const char* kRefused = "Initializing CURL...\nCurl initialization OK\nContacting Zentor... ERROR\n";
constexpr const char* kNoSuccess =
    "Initializing CURL...\nCurl initialization OK\nContacting Zentor... OK\nExamining response... ERROR\n";
constexpr const char* kNoArchive =
    "Initializing CURL...\nCurl initialization OK\nContacting Zentor... OK\nExamining response... OK\n"
    "Creating keys zip file... OK\nWriting decoded data to zip file... OK\nUnzipping key files... ERROR\n";

std::string package() {
  return tests::zipOf({{"sitelist.xml", tests::siteList("0")}, {"srpubkey.bin", std::string(5000, 'k')}});
}

Answer statusAnswer(const std::string& status, const std::string& headers, const std::string& body) {
  return {"HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
          "\r\nConnection: close\r\n\r\n" + body};
}

class HostileServer : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/tmp/keys");
    serverReply.clear();
    tests::curlProbe() = {};
  }

  int provisionFrom(std::vector<Answer> answers) { return provisionFrom(TlsServer(std::move(answers))); }

  int provisionFrom(const TlsServer& server) {
    int status = -1;
    m_out = tests::outputOf([&] { status = provisionFiles("/tmp/keys", server.address(), "admin", "pw"); }).out;
    m_requests = server.requests().size();
    return status;
  }

  std::string m_out;
  std::size_t m_requests = 0;
};

TEST_F(HostileServer, SayingNothingAtAll) {
  EXPECT_EQ(provisionFrom({{.bytes = ""}}), 2);
  EXPECT_EQ(m_out, kRefused);
}

TEST_F(HostileServer, ThatDoesNotSpeakHttp) {
  EXPECT_EQ(provisionFrom({{.bytes = replyWith(package())}}), 2);
  EXPECT_EQ(m_out, kRefused);
}

TEST_F(HostileServer, WithoutTls) {
  Answer plain = bodyAnswer(replyWith(package()));
  plain.plain = true;
  EXPECT_EQ(provisionFrom({plain}), 2);
  EXPECT_EQ(m_out, kRefused);
  EXPECT_TRUE(namesIn("/tmp/keys").empty());
}

TEST_F(HostileServer, ThatResetsTheConnectionInMidBody) {
  const std::string body = replyWith(package());
  EXPECT_EQ(provisionFrom({{.bytes = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                                     body.substr(0, body.size() / 2),
                            .reset = true}}),
            2);
  EXPECT_EQ(m_out, kRefused);
  EXPECT_TRUE(namesIn("/tmp/keys").empty());
}

TEST_F(HostileServer, ThatStatesALengthTooLarge) {
  EXPECT_EQ(provisionFrom({{.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 999999\r\n\r\n" + replyWith(package())}}), 2);
  EXPECT_EQ(m_out, kRefused);
}

TEST_F(HostileServer, ThatStatesALengthTooSmall) {
  EXPECT_EQ(provisionFrom({{.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 105\r\n\r\n" + replyWith(package())}}), 5);
  EXPECT_EQ(m_out, kNoArchive);
  EXPECT_EQ(namesIn("/tmp/keys"), Names{"keltconfig_keystemp.zip"});
}

TEST_F(HostileServer, ThatEndsItsReplyByClosing) {
  EXPECT_EQ(provisionFrom({{.bytes = "HTTP/1.0 200 OK\r\n\r\n" + replyWith(package())}}), 0);
}

TEST_F(HostileServer, ThatSendsItsReplyInChunks) {
  const std::string body = replyWith(package());
  std::string bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (const char byte : body)
    bytes += "1\r\n" + std::string(1, byte) + "\r\n";
  EXPECT_EQ(provisionFrom({{.bytes = bytes + "0\r\n\r\n"}}), 0);
  EXPECT_EQ(contentOf("/tmp/keys/agentfipsmode"), "0");
}

TEST_F(HostileServer, ThatCutsItsChunks) {
  EXPECT_EQ(provisionFrom({{.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nff\r\nOK:\r\nUEs"}}), 2);
  EXPECT_EQ(provisionFrom({{.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"}}), 2);
}

TEST_F(HostileServer, ThatRedirectsIsNotFollowed) {
  const TlsServer elsewhere({bodyAnswer(replyWith(package()))});
  const std::string location = "Location: https://" + elsewhere.address() + "/\r\n";
  EXPECT_EQ(provisionFrom({statusAnswer("302 Found", location, "")}), 10);
  EXPECT_TRUE(m_out.starts_with(kNoSuccess));
  EXPECT_EQ(m_requests, 1U);
  EXPECT_TRUE(elsewhere.requests().empty());
}

TEST_F(HostileServer, ThatRefusesWithAPage) {
  for (const char* status : {"401 Unauthorized", "403 Forbidden", "404 Not Found", "500 Internal Server Error"}) {
    serverReply.clear();
    EXPECT_EQ(provisionFrom({statusAnswer(status, "", "<html>no</html>")}), 10) << status;
    EXPECT_EQ(m_out, kNoSuccess) << status;
  }
}

TEST_F(HostileServer, ThatRefusesWithoutAPageGetsTheHint) {
  EXPECT_EQ(provisionFrom({statusAnswer("401 Unauthorized", "WWW-Authenticate: Basic realm=\"z\"\r\n", "")}), 10);
  EXPECT_EQ(m_requests, 2U);
  EXPECT_EQ(m_out,
            std::string(kNoSuccess) +
                "No response from Zentor, possibly due to invalid Zentor credentials, check Zentor credentials and "
                "retry.\n");
}

TEST_F(HostileServer, IsJudgedByItsBodyAndNotByItsStatus) {
  EXPECT_EQ(provisionFrom({statusAnswer("500 Internal Server Error", "", replyWith(package()))}), 0);
}

TEST_F(HostileServer, WithAnExpiredCertificateIsBelieved) {
  EXPECT_EQ(provisionFrom(TlsServer({bodyAnswer(replyWith(package()))}, "localhost", -3600)), 0);
}

TEST_F(HostileServer, WithACertificateForAnotherNameIsBelieved) {
  EXPECT_EQ(provisionFrom(TlsServer({bodyAnswer(replyWith(package()))}, "somebody.example")), 0);
}

TEST_F(HostileServer, WhoseArchiveIsHostileChangesNothingButItsOwnZipFile) {
  ASSERT_EQ(std::system("/usr/bin/python3 -B " KELT_TEST_DATA "/archives/make_archives.py /archives"), 0);
  tests::putFile("/tmp/bystander", "untouched");
  const Names archives = namesIn("/archives/hostile");
  ASSERT_GT(archives.size(), 40U);
  for (const std::string& name : archives) {
    serverReply.clear();
    const std::string archive = contentOf("/archives/hostile/" + name);
    EXPECT_EQ(provisionFrom({bodyAnswer(replyWith(archive))}), 5) << name;
    EXPECT_EQ(m_out, kNoArchive) << name;
    EXPECT_EQ(namesIn("/tmp/keys"), Names{"keltconfig_keystemp.zip"}) << name;
    EXPECT_EQ(namesIn("/tmp"), (Names{"bystander", "keys"})) << name;
  }
  EXPECT_EQ(contentOf("/tmp/bystander"), "untouched");
}

TEST_F(HostileServer, WhoseReplyIsOverTheBoundIsRefused) {
  std::string body = "OK:\r\n";
  body.resize(kMaxReply + 1, 'A');
  const TlsServer server({bodyAnswer(body)});
  body = {};
  EXPECT_EQ(provisionFrom(server), 10);
  EXPECT_EQ(m_out, kNoSuccess);
  EXPECT_TRUE(namesIn("/tmp/keys").empty());
}

}  // namespace
}  // namespace kelt::provision
