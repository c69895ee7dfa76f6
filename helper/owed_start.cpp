#include "helper/owed_start.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "helper/agent_paths.h"

namespace kelt::helper {
namespace {

const char* markOf(Owed what) {
  return what == Owed::kStart ? paths::kStartOwed : paths::kPlugInsOwed;
}

}  // namespace

void owe(Owed what) noexcept {
  const base::UniqueFd mark(::open(markOf(what), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
}

void settle(Owed what) noexcept {
  ::unlink(markOf(what));
}

bool bOwed(Owed what) noexcept {
  return ::access(markOf(what), F_OK) == 0;
}

}  // namespace kelt::helper
