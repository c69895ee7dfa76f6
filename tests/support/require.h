#pragma once
// What the private device cannot do without.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace kelt::tests {

/// Ends this process at once, with status 99 and a message that has the text of errno, unless `bDone`.
inline void require(bool bDone, const std::string& what) {
  if (bDone) return;
  std::fprintf(stderr, "private device: %s: %s\nThe tests need unprivileged or root namespaces of this system.\n",
               what.c_str(), std::strerror(errno));
  ::_exit(99);
}

}  // namespace kelt::tests
