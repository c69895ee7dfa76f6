#include "loopback.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/unique_fd.h"

namespace kelt::tests {
namespace {

/// A request for a further address of an interface, and what answers it. By netlink, as the emulation of the target
/// knows no other call for IPv6.
struct AddressRequest {
  nlmsghdr header;
  ifaddrmsg address;
  rtattr attribute;
  in6_addr value;
};
struct Answer {
  nlmsghdr header;
  nlmsgerr error;
  AddressRequest request;  // as it was sent, where it is refused
};

/// Sends the request. Returns 0, or the errno of the refusal.
int errnoOf(const AddressRequest& request) {
  const base::UniqueFd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  Answer answer{};
  if (::send(socket.get(), &request, sizeof request, 0) < 0) return errno;
  if (::recv(socket.get(), &answer, sizeof answer, 0) < 0) return errno;
  return answer.header.nlmsg_type == NLMSG_ERROR ? -answer.error.error : EPROTO;
}

void addAddress(const char* text) {
  AddressRequest request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_NEWADDR;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE;
  request.address.ifa_family = AF_INET6;
  request.address.ifa_prefixlen = 64;
  request.address.ifa_index = ::if_nametoindex("lo");
  request.attribute.rta_len = RTA_LENGTH(sizeof request.value);
  request.attribute.rta_type = IFA_LOCAL;
  ASSERT_EQ(::inet_pton(AF_INET6, text, &request.value), 1);
  const int refusal = errnoOf(request);
  ASSERT_TRUE(refusal == 0 || refusal == EEXIST) << std::strerror(refusal);
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
