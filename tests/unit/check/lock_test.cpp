#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "collected.h"
#include "support/child.h"
#include "support/waiting.h"

#include "base/unique_fd.h"
#include "platform/interprocess_write_lock.h"

using kelt::tests::Collected;
using kelt::tests::exists;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::Trouble;

namespace {

const std::string kName = "71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex";
const std::string kFile = "/run/orv-locks/" + kName;

class Lock : public kelt::tests::PrivateDevice {
 protected:
  static Collected look() {
    Collected findings;
    kelt::check::Device device;
    checkLock(device, findings);
    EXPECT_EQ(device.bRunUnderWay, findings.states("trace.lock") == "warning");
    return findings;
  }
};

TEST_F(Lock, IsFreeAndNothingIsMade) {
  EXPECT_EQ(look().trouble(), Trouble{});
  EXPECT_FALSE(exists("/run/orv-locks"));
  putDirectory("/run/orv-locks", 0700);
  EXPECT_EQ(look().trouble(), Trouble{});
  EXPECT_FALSE(exists(kFile));
}

TEST_F(Lock, IsFreeWhereAKilledRunHasLeftItsFile) {
  putDirectory("/run/orv-locks", 0700);
  putFile(kFile, "", 0600);
  EXPECT_EQ(look().trouble(), Trouble{});
}

TEST_F(Lock, IsHeldByARun) {
  InterProcessWriteLock lock(kName);
  ASSERT_TRUE(lock.lock(300));
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"trace.lock warning"});
  EXPECT_NE(findings.fact("trace.lock").find("process " + std::to_string(::getpid()) + " ("), std::string::npos)
      << findings.fact("trace.lock");
  ASSERT_TRUE(lock.unlock());
  EXPECT_EQ(look().trouble(), Trouble{});
}

TEST_F(Lock, IsNotSaidToBeHeldByWhoHasItsFileOpenToWaitForIt) {
  // This process, with the lower number, has the file open; its child holds the lock.
  putDirectory("/run/orv-locks", 0700);
  putFile(kFile, "", 0600);
  const kelt::base::UniqueFd waiting(::open(kFile.c_str(), O_RDWR | O_CLOEXEC));
  kelt::tests::Child holder([] {
    InterProcessWriteLock lock(kName);
    putFile("/tmp/locked", lock.lock(300) ? "yes" : "no");
    for (;;)
      ::pause();
    return 0;
  });
  ASSERT_TRUE(kelt::tests::bComesTrue([] { return exists("/tmp/locked"); }));
  EXPECT_NE(look().fact("trace.lock").find("process " + std::to_string(holder.pid()) + " ("), std::string::npos)
      << look().fact("trace.lock");
  ::kill(holder.pid(), SIGKILL);
}

TEST_F(Lock, CannotBeTakenWhereOthersCouldHaveIt) {
  putDirectory("/run/orv-locks", 0700);
  putFile(kFile, "", 0644);
  EXPECT_EQ(look().fact("trace.lock"), kFile + ": can be opened by others.");
  ASSERT_EQ(::chmod("/run/orv-locks", 0777), 0);
  EXPECT_EQ(look().fact("trace.lock"), "/run/orv-locks: can be written by others.");
  EXPECT_EQ(look().trouble(), Trouble{"trace.lock problem"});
}

TEST_F(Lock, CannotBeMadeWhereNothingCan) {
  kelt::tests::mountReadOnly("/run");
  EXPECT_EQ(look().trouble(), Trouble{"trace.lock problem"});
}

}  // namespace
