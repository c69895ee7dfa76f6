// Where the password is after a provisioning: nowhere in the process.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

#include "package.h"
#include "support/private_device.h"
#include "tls_server.h"

#include "base/secret.h"
#include "base/unique_fd.h"
#include "provision/provision_client.h"
#include "provision/transfer.h"

namespace kelt::provision {
namespace {

/// A password that stands nowhere in this program as it is.
class Canary {
 public:
  [[nodiscard]] std::string word() const {
    std::string plain(m_disguised);
    for (char& byte : plain)
      byte = static_cast<char>(byte + 1);
    return plain;
  }

  [[nodiscard]] std::size_t countIn(const std::string& memory) const {
    std::size_t found = 0;
    auto at = memory.begin();
    const auto same = [](char seen, char disguised) { return seen == static_cast<char>(disguised + 1); };
    while (true) {
      at = std::search(at, memory.end(), m_disguised.begin(), m_disguised.end(), same);
      if (at == memory.end()) return found;
      ++found;
      ++at;
    }
  }

 private:
  std::string m_disguised = "b`m`qx,vnqc-sg`s-mnancx-jmnvr";
};

/// How often the canary stands in writable memory of this process.
std::size_t canariesInMemory(const Canary& canary) {
  const base::UniqueFd memory(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
  std::ifstream maps("/proc/self/maps");
  std::size_t found = 0;
  std::string line;
  std::string copy;
  while (std::getline(maps, line)) {
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    char access[5] = {};
    if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %4s", &from, &to, access) != 3) continue;
    if (access[0] != 'r' || access[1] != 'w') continue;
    base::wipe(copy);
    copy.resize(std::min<std::size_t>(to - from, std::size_t{64} << 20));
    const ssize_t got = ::pread(memory.get(), copy.data(), copy.size(), static_cast<off_t>(from));
    if (got > 0) found += canary.countIn(copy.substr(0, static_cast<std::size_t>(got)));
  }
  return found;
}

class PasswordInMemory : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/tmp/keys");
    sB64data.clear();
  }

  void provisionAfter(const std::string& challenge) {
    const std::string package = tests::zipOf({{"sitelist.xml", tests::siteList("0")}});
    const tests::TlsServer server({{.bytes = "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: " + challenge +
                                             "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"},
                                   tests::bodyAnswer(tests::replyWith(package))});
    std::string password = m_canary.word();
    EXPECT_GE(canariesInMemory(m_canary), 1U) << "the search does not find what is there";
    int status = -1;
    const tests::Output output =
        tests::outputOf([&] { status = provisionFiles(L"/tmp/keys", server.address(), "admin", password); });
    base::wipe(password);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(server.requests().size(), 2U);
    EXPECT_EQ(m_canary.countIn(output.out + output.err), 0U);
    EXPECT_EQ(canariesInMemory(m_canary), 0U);
    for (const std::string& name : tests::namesIn("/tmp/keys")) {
      EXPECT_EQ(m_canary.countIn(tests::contentOf("/tmp/keys/" + name)), 0U) << name;
    }
  }

  Canary m_canary;
};

TEST_F(PasswordInMemory, IsGoneAfterBasicAuthentication) {
  provisionAfter("Basic realm=\"z\"");
}

TEST_F(PasswordInMemory, IsGoneAfterDigestAuthentication) {
  provisionAfter("Digest realm=\"z\", nonce=\"n\", qop=\"auth\"");
}

}  // namespace
}  // namespace kelt::provision
