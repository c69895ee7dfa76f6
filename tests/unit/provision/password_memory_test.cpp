// Where the password is after a provisioning: nowhere in the process.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <string_view>
#include <sys/mman.h>
#include <sys/syscall.h>
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
    const auto same = [](char disguised, char seen) { return seen == static_cast<char>(disguised + 1); };
    const char first = static_cast<char>(m_disguised[0] + 1);
    for (std::size_t at = memory.find(first); at != std::string_view::npos; at = memory.find(first, at + 1)) {
      const std::string_view rest = memory.substr(at, m_disguised.size());
      if (std::equal(m_disguised.begin(), m_disguised.end(), rest.begin(), rest.end(), same)) ++found;
    }
    return found;
  }

 private:
  std::string m_disguised = "b`m`qx,vnqc";
};

/// The search itself leaves no copies in what it searches: its window is shared memory, which is left out. The system
/// copies into it, and so neither a sanitizer nor an emulator stands between.
class Window {
 public:
  static constexpr std::size_t kSize = std::size_t{1} << 20;
  Window() : m_file(::memfd_create("window", MFD_CLOEXEC)) {
    EXPECT_EQ(::ftruncate(m_file.get(), kSize), 0);
    m_at = ::mmap(nullptr, kSize, PROT_READ, MAP_SHARED, m_file.get(), 0);
    EXPECT_NE(m_at, MAP_FAILED);
  }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() { ::munmap(m_at, kSize); }

  [[nodiscard]] std::string_view read(std::uintptr_t from, std::uintptr_t to) const {
    EXPECT_EQ(::lseek(m_file.get(), 0, SEEK_SET), 0);
    const long got = ::syscall(SYS_write, m_file.get(), from, std::min<std::size_t>(to - from, kSize));
    return {static_cast<const char*>(m_at), got > 0 ? static_cast<std::size_t>(got) : 0};
  }

 private:
  base::UniqueFd m_file;
  void* m_at = nullptr;
};

/// No program maps more at once for itself; a sanitizer does, for its shadow of the whole address space.
constexpr std::uintptr_t kLargest = std::uintptr_t{1} << 28;

/// How often the canary stands in this process's own writable memory.
std::size_t canariesInMemory(const Canary& canary) {
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
    if (to - from > kLargest) continue;
    for (; from < to; from += Window::kSize)
      found += canary.countIn(window.read(from, to));
  }
  return found;
}

class PasswordInMemory : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/tmp/keys");
    serverReply.clear();
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
        tests::outputOf([&] { status = provisionFiles("/tmp/keys", server.address(), "admin", password); });
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
