#include "installation.h"

#include <unistd.h>

namespace kelt::tests {

void putLoop(const std::string& path) {
  ::unlink(path.c_str());
  ASSERT_EQ(::symlink(path.c_str(), path.c_str()), 0) << path;
}

}  // namespace kelt::tests
