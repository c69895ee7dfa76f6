// Where the password is after a provisioning: nowhere in the process.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <string_view>
#include <sys/mman.h>
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

/// A password that stands nowhere in this program as it is: a word eight times over, since the memory manager
/// overwrites the start of a released block. One word left of it is one too many.
class Canary {
 public:
  [[nodiscard]] std::string word() const {
    std::string plain;
    plain.reserve(200);
    for (int i = 0; i < 8; ++i) {
      for (const char byte : m_disguised)
        plain += static_cast<char>(byte + 1);
    }
    return plain;
  }

  [[nodiscard]] std::size_t countIn(std::string_view memory) const {
    std::size_t found = 0;
    const auto* at = memory.begin();
    const auto same = [](char seen, char disguised) { return seen == static_cast<char>(disguised + 1); };
    while (true) {
      at = std::search(at, memory.end(), m_disguised.begin(), m_disguised.end(), same);
      if (at == memory.end()) return found;
      ++found;
      ++at;
    }
  }

 private:
  std::string m_disguised = "b`m`qx,vnqc";
};

/// The search itself leaves no copies in what it searches: its window is shared memory, which is left out.
class Window {
 public:
  static constexpr std::size_t kSize = std::size_t{1} << 20;
  Window() : m_at(::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {}
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() { ::munmap(m_at, kSize); }

  [[nodiscard]] std::string_view read(int memory, std::uintptr_t from, std::uintptr_t to) const {
    const ssize_t got = ::pread(memory, m_at, std::min<std::size_t>(to - from, kSize), static_cast<off_t>(from));
    return {static_cast<const char*>(m_at), got > 0 ? static_cast<std::size_t>(got) : 0};
  }

 private:
  void* m_at;
};

/// How often the canary stands in this process's own writable memory.
std::size_t canariesInMemory(const Canary& canary) {
  const base::UniqueFd memory(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
  const Window window;
  std::ifstream maps("/proc/self/maps");
  std::size_t found = 0;
  std::string line;
  while (std::getline(maps, line)) {
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    char access[5] = {};
    if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %4s", &from, &to, access) != 3) continue;
    if (std::string_view(access).substr(0, 2) != "rw" || access[3] != 'p') continue;
    for (; from < to; from += Window::kSize)
      found += canary.countIn(window.read(memory.get(), from, to));
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
    EXPECT_GE(canariesInMemory(m_canary), 8U) << "the search does not find what is there";
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
