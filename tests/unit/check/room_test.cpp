#include "check/room.h"

#include "collected.h"

using kelt::check::checkRoomFor;
using kelt::tests::Collected;

namespace {

class Room : public kelt::tests::PrivateDevice {
 protected:
  static std::string stateFor(const std::vector<std::uint64_t>& sizes) {
    Collected findings;
    checkRoomFor({{"/run", sizes}}, "room.x", findings);
    return findings.states("room.x");
  }
};

TEST_F(Room, IsMeasuredAgainstWhatIsWritten) {
  kelt::tests::mountSmall("/run", 1024 * 1024);
  EXPECT_EQ(stateFor({4096}), "ok");
  EXPECT_EQ(stateFor({800 * 1024}), "warning");
  EXPECT_EQ(stateFor({1024 * 1024}), "warning");
  EXPECT_EQ(stateFor({1024 * 1024 + 1}), "problem");
}

TEST_F(Room, CountsEveryFileAtLeastABlock) {
  kelt::tests::mountSmall("/run", 64 * 1024);
  EXPECT_EQ(stateFor(std::vector<std::uint64_t>(16, 1)), "warning");
  EXPECT_EQ(stateFor(std::vector<std::uint64_t>(17, 1)), "problem");
}

TEST_F(Room, IsAddedUpByFileSystem) {
  kelt::tests::mountSmall("/run", 64 * 1024);
  kelt::tests::putDirectory("/run/a");
  Collected findings;
  checkRoomFor({{"/run", {40 * 1024}}, {"/run/a", {40 * 1024}}, {"/nowhere", {1}}}, "room.x", findings);
  EXPECT_EQ(findings.states("room.x"), "problem");
  EXPECT_EQ(findings.report.checks[0].subject, "/run");
  EXPECT_EQ(findings.fact("room.x").find("The file system of /run has 64 KiB"), 0U) << findings.fact("room.x");
}

}  // namespace
