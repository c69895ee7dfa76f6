#include "provision/quiet_terminal.h"

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>

#include "base/unique_fd.h"

namespace kelt::provision {
namespace {

TEST(QuietTerminal, EndsItsInputWhereNothingCanBeRead) {
  const base::UniqueFd directory(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  QuietTerminal terminal(directory.get());
  std::array<char, 8> buffer{};
  EXPECT_EQ(terminal.read(buffer), 0U);
}

}  // namespace
}  // namespace kelt::provision
