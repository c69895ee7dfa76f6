#include "loopback.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/unique_fd.h"

namespace kelt::tests {
namespace {

/// What SIOCSIFADDR takes for IPv6; the kernel's header of it does not go together with the C library's.
struct AddressRequest {
  in6_addr address;
  std::uint32_t prefixLength;
  int interface;
};

void addAddress(const char* text) {
  const base::UniqueFd socket(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  AddressRequest request{};
  ASSERT_EQ(::inet_pton(AF_INET6, text, &request.address), 1);
  request.prefixLength = 64;
  request.interface = static_cast<int>(::if_nametoindex("lo"));
  const bool added = ::ioctl(socket.get(), SIOCSIFADDR, &request) == 0 || errno == EEXIST;
  ASSERT_TRUE(added) << std::strerror(errno);
}

}  // namespace

void bringLoopbackUp() {
  const base::UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  ASSERT_EQ(::ioctl(socket.get(), SIOCGIFFLAGS, &request), 0);
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  ASSERT_EQ(::ioctl(socket.get(), SIOCSIFFLAGS, &request), 0);
  addAddress("fe80::1");
  addAddress("fe80::2");
}

}  // namespace kelt::tests
