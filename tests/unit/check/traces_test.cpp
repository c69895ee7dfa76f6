#include <unistd.h>

#include "collected.h"

#include "helper/owed_start.h"

using kelt::tests::Collected;
using kelt::tests::exists;
using kelt::tests::kInstalled;
using kelt::tests::kStore;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::Trouble;

namespace {

class Traces : public kelt::tests::CheckedDevice {
 protected:
  Collected look() {
    Collected findings;
    checkTraces(device(), findings);
    return findings;
  }
};

TEST_F(Traces, AreNone) {
  EXPECT_EQ(look().trouble(), Trouble{});
}

TEST_F(Traces, AreKeyFilesThatWereNotImported) {
  putFile(kInstalled + "/sr2048pubkey.bin", "key");
  putFile(kInstalled + "/agentfipsmode", "0");
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"trace.key-files warning"});
  EXPECT_NE(findings.fact("trace.key-files").find("sr2048pubkey.bin, agentfipsmode"), std::string::npos);
}

TEST_F(Traces, AreKeyFilesOfAnUpdate) {
  putFile(kInstalled + "/scratch/update/reqseckey.bin", "key");
  EXPECT_EQ(look().trouble(), Trouble{"trace.update warning"});
}

TEST_F(Traces, AreTemporaryFilesWhereverTheToolWrites) {
  const std::vector<std::string> directories = {kInstalled, kInstalled + "/scratch", kInstalled + "/scratch/etc",
                                                kStore, "/etc/orv.d/ZENTORAGENT3000"};
  for (const std::string& directory : directories)
    putFile(directory + "/.x.kelt-abcdefghijkl", "");
  putFile("/etc/orv.d/.x.kelt-abcdefghijkl", "");
  EXPECT_EQ(look().trouble(), Trouble(directories.size(), "trace.temporary warning"));
  for (const std::string& directory : directories)
    EXPECT_TRUE(exists(directory + "/.x.kelt-abcdefghijkl"));
}

TEST_F(Traces, AreOneFindingForAllTemporaryFilesOfADirectory) {
  putFile(kInstalled + "/.x.kelt-abcdefghijkl", "");
  putFile(kInstalled + "/.x.kelt-abcdefghijkm", "");
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"trace.temporary warning"});
  EXPECT_NE(findings.fact("trace.temporary").find(" and 1 more, left by an interrupted run."), std::string::npos);
}

TEST_F(Traces, AreNotWhatNoRunWouldRemove) {
  putDirectory(kInstalled + "/.x.kelt-abcdefghijkl");
  ASSERT_EQ(::symlink("nowhere", (kInstalled + "/.y.kelt-abcdefghijkl").c_str()), 0);
  EXPECT_EQ(look().trouble(), Trouble{});
}

TEST_F(Traces, OfARunThatIsUnderWayAreNone) {
  putFile(kInstalled + "/sr2048pubkey.bin", "key");
  putFile(kInstalled + "/.x.kelt-abcdefghijkl", "");
  putFile(kInstalled + "/scratch/unfinished-work", "work=key-import\n", 0600);
  putDirectory("/run/orv-locks", 0700);
  putFile("/run/orv-locks/agent-stopped", "", 0600);
  Collected findings;
  kelt::check::Device busy = device();
  busy.bRunUnderWay = true;
  checkTraces(busy, findings);
  EXPECT_EQ(findings.trouble(), (Trouble{"trace.key-files unknown", "trace.temporary unknown",
                                         "trace.unfinished unknown", "trace.stopped unknown"}));
  EXPECT_EQ(findings.fact("trace.stopped"),
            "The mark /run/orv-locks/agent-stopped is there; a run is under way, which may need it.");
}

TEST_F(Traces, AreNotDeniedWhereTheSystemDoesNotTell) {
  ASSERT_EQ(::symlink("update", (kInstalled + "/scratch/update").c_str()), 0);
  EXPECT_EQ(look().trouble(), Trouble{"trace.update warning"});
}

TEST_F(Traces, AreMarksOfUnfinishedWork) {
  putFile(kInstalled + "/scratch/unfinished-work", "work=unmanaged-switch\n", 0600);
  Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"trace.unfinished warning"});
  EXPECT_NE(findings.fact("trace.unfinished").find("the mark of a switch to unmanaged mode, which"), std::string::npos);
  putFile(kInstalled + "/scratch/unfinished-work", "work=key-import\n", 0600);
  EXPECT_NE(look().fact("trace.unfinished").find("the mark of a key import, which"), std::string::npos);
  putFile(kInstalled + "/scratch/unfinished-work", "work=take-back\n", 0600);
  EXPECT_NE(look().fact("trace.unfinished").find("the way back from a switch"), std::string::npos);
}

TEST_F(Traces, StayAlsoWhereTheyAreNone) {
  putFile(kInstalled + "/scratch/unfinished-work", "nonsense", 0600);
  EXPECT_EQ(look().trouble(), Trouble{"trace.unfinished warning"});
  EXPECT_TRUE(exists(kInstalled + "/scratch/unfinished-work"));
}

TEST_F(Traces, AreMarksOfAnAgentThatWasStopped) {
  putDirectory("/run/orv-locks", 0700);
  putFile("/run/orv-locks/agent-stopped", "", 0600);
  EXPECT_EQ(look().trouble(), Trouble{"trace.stopped problem"});
  putFile("/run/orv-locks/plug-ins-unloaded", "", 0600);
  EXPECT_EQ(look().trouble(), (Trouble{"trace.stopped problem", "trace.plug-ins problem"}));
}

TEST_F(Traces, SayWhetherTheCommandThatStoppedTheAgentStillRuns) {
  putDirectory("/run/orv-locks", 0700);
  kelt::helper::owe(kelt::helper::Owed::kStart);
  EXPECT_EQ(
      look().fact("trace.stopped"),
      "The mark /run/orv-locks/agent-stopped is there: an interrupted run has stopped the agent and owes the agent "
      "its start; its command has not ended yet, process " +
          std::to_string(::getpid()) + ".");
  putFile("/run/orv-locks/agent-stopped", std::string(16, '\0'), 0600);
  EXPECT_TRUE(look().fact("trace.stopped").ends_with(" and owes the agent its start."));
}

}  // namespace
