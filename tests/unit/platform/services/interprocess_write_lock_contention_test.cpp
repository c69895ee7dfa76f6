// Many processes that take, remove and lose the lock at once.

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "platform/interprocess_write_lock.h"

namespace kelt::tests {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kName = "test-lock";
constexpr int kProcesses = 4;
constexpr unsigned kKills = 200;
constexpr unsigned kEntries = 1000;
constexpr auto kLongest = std::chrono::seconds(600);

/// What the processes count together.
struct Counts {
  std::atomic<unsigned> entered{0};
  std::atomic<unsigned> met{0};      ///< two were inside at once
  std::atomic<unsigned> refused{0};  ///< the lock was not to be had in five minutes
  std::atomic<bool> bEnd{false};
};
static_assert(std::atomic<unsigned>::is_always_lock_free);

void pause(unsigned long microseconds) {
  ::usleep(static_cast<useconds_t>(microseconds));
}

/// Shows who is inside, and forgets one that is killed. A lock of the process, which goes before the descriptors of a
/// killed process are closed, so that this never outlives the lock that is tested.
class Inside {
 public:
  explicit Inside(int fd) : m_fd(fd) {}
  bool enter() { return set(F_WRLCK); }
  bool leave() { return set(F_UNLCK); }

 private:
  [[nodiscard]] bool set(short type) const {
    struct flock whole {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    return ::fcntl(m_fd, F_SETLK, &whole) == 0;
  }
  int m_fd;
};

/// Takes the lock again and again, and gives it back in the way in which the tool does at its end.
int contend(Counts& counts, unsigned seed) {
  std::mt19937 random(seed);
  const base::UniqueFd witness(::open("/tmp/witness", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  Inside inside(witness.get());
  while (!counts.bEnd) {
    InterProcessWriteLock lock(kName);
    if (!lock.lock(300)) {
      ++counts.refused;
      continue;
    }
    ++counts.entered;
    if (!inside.enter()) ++counts.met;
    if (random() % 2 == 0) pause(random() % 200);
    static_cast<void>(inside.leave());
    static_cast<void>(lock.unlock());
    if (random() % 4 == 0 || lock.tryLock() == 0) continue;
    if (!inside.enter()) ++counts.met;
    static_cast<void>(inside.leave());
    InterProcessWriteLock::cleanSemaphore(kName);
  }
  return 0;
}

class WriteLockUnderContention : public PrivateDevice {};

TEST_F(WriteLockUnderContention, LetsOneInAtATimeThoughHoldersAreKilledAndTheObjectIsRemoved) {
  void* shared = ::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto& counts = *new (shared) Counts;
  unsigned seed = 0;
  std::array<std::optional<Child>, kProcesses> children;
  const auto start = [&](auto& child) {
    ++seed;
    child.emplace([&counts, seed] { return contend(counts, seed); });
  };
  for (auto& child : children)
    start(child);
  std::mt19937 random(4711);
  unsigned kills = 0;
  const auto end = Clock::now() + kLongest;
  for (; (kills < kKills || counts.entered < kEntries) && Clock::now() < end; ++kills) {
    pause(1000 + random() % 9000);
    auto& victim = children[random() % children.size()];
    ::kill(victim->pid(), SIGKILL);
    start(victim);
  }
  counts.bEnd = true;
  for (auto& child : children)
    EXPECT_EQ(child->exitStatus(), 0);
  EXPECT_EQ(counts.met, 0U);
  EXPECT_EQ(counts.refused, 0U);
  EXPECT_GE(counts.entered, kEntries);
  EXPECT_GE(kills, kKills);
  RecordProperty("entered", static_cast<int>(counts.entered));
  RecordProperty("kills", static_cast<int>(kills));
  EXPECT_NE(InterProcessWriteLock(kName).tryLock(), 0) << "nothing is left behind";
  ::munmap(shared, sizeof(Counts));
}

}  // namespace
}  // namespace kelt::tests
