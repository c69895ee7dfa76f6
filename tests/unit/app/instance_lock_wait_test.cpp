// How long a second run waits for the first.

#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/time.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "app/instance_lock.h"
#include "base/unique_fd.h"

namespace kelt::app {
namespace {

class InstanceLockWait : public tests::PrivateDevice {};

int g_replies = -1;

/// Sends what is left of this process's timer, in whole seconds; 0 while it has none.
void tellTimeLeft(int /*signal*/) {
  itimerval timer{};
  ::getitimer(ITIMER_REAL, &timer);
  const auto seconds = static_cast<int>(timer.it_value.tv_sec);
  if (::write(g_replies, &seconds, sizeof seconds) != sizeof seconds) ::_exit(99);
}

/// A process that answers SIGUSR1 from now on and takes the lock; it ends with 42 when it does not get it.
int waitForLock() {
  struct sigaction action {};
  action.sa_handler = tellTimeLeft;
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGUSR1, &action, nullptr);
  tellTimeLeft(0);
  try {
    const lock_raii lock;
  } catch (const std::runtime_error&) {
    return 42;
  }
  return 0;
}

TEST_F(InstanceLockWait, LastsFiveMinutes) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const base::UniqueFd replies(ends[0]);
  base::UniqueFd answering(ends[1]);
  g_replies = answering.get();
  const lock_raii first;
  tests::Child second(waitForLock);
  answering.reset();

  // Each question waits for its answer; the first with a timer comes from within the wait.
  int seconds = 0;
  while (::read(replies.get(), &seconds, sizeof seconds) == sizeof seconds && seconds == 0)
    ::kill(second.pid(), SIGUSR1);
  EXPECT_LE(seconds, 300);
  EXPECT_GE(seconds, 200) << "however long this machine took to ask";
  ::kill(second.pid(), SIGALRM);  // the end of the time
  EXPECT_EQ(second.exitStatus(), 42);
}

}  // namespace
}  // namespace kelt::app
