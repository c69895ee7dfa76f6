// That whole runs finish what a killed one left is tested in tests/fault/test_unfinished_switch.py.

#include "modes/take_back.h"

#include <unistd.h>

#include "installation.h"
#include "support/log.h"

using kelt::helper::Work;
using kelt::helper::WorkMark;
using kelt::tests::exists;
using kelt::tests::kInstalled;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using Lines = std::vector<std::string>;

namespace {

const std::string kMark = kInstalled + "/scratch/unfinished-work";
const std::string kFirst = kInstalled + "/reqseckey.bin";
const std::string kSecond = kInstalled + "/agentfipsmode";
const std::vector<std::string> kBoth = {"/reqseckey.bin", "/agentfipsmode"};

class TakingBack : public kelt::tests::Installation {
 protected:
  void SetUp() override {
    Installation::SetUp();
    putFile(kFirst, "copied", 0600);
    putFile(kSecond, "0");
  }

  static void putMark(const std::string& plan) { putFile(kMark, "work=take-back\n" + plan, 0600); }

  /// What finishing says on the console.
  static std::string finish() {
    const auto printed = kelt::tests::outputOf([] {
      WorkMark mark;
      ASSERT_TRUE(mark.found());
      EXPECT_EQ(mark.found()->work, Work::kTakeBack);
      kelt::modes::finishTakingBack(mark);
    });
    return printed.out + printed.err;
  }
};

TEST_F(TakingBack, DeletesTheCopiesThatAreStillThere) {
  putMark(kelt::modes::planOfTakingBack(kBoth));
  ASSERT_EQ(::unlink(kFirst.c_str()), 0);
  EXPECT_EQ(finish(), "");
  EXPECT_FALSE(exists(kFirst) || exists(kSecond) || exists(kMark));
  EXPECT_EQ(kelt::tests::errorsLogged(), Lines{});
}

TEST_F(TakingBack, KeepsWhatThePlanDoesNotName) {
  putMark(kelt::modes::planOfTakingBack({kBoth[0]}));
  EXPECT_EQ(finish(), "");
  EXPECT_FALSE(exists(kFirst) || exists(kMark));
  EXPECT_TRUE(exists(kSecond));
}

TEST_F(TakingBack, KeepsWhatHasChangedSince) {
  const std::string plan = kelt::modes::planOfTakingBack(kBoth);
  putMark(plan);
  do {  // until the system's clock has moved on
    putFile(kFirst, "put there by hand", 0600);
  } while (plan.starts_with(kelt::modes::planOfTakingBack({kBoth[0]})));
  ASSERT_EQ(::unlink(kSecond.c_str()), 0);
  putFile(kSecond, "0");
  EXPECT_EQ(finish(), "");
  EXPECT_TRUE(exists(kFirst) && exists(kSecond));
  EXPECT_FALSE(exists(kMark));
}

TEST_F(TakingBack, KeepsEverythingElseThatAMarkMayName) {
  const std::string plan = kelt::modes::planOfTakingBack(kBoth);
  putFile(kInstalled + "/other", "kept");
  for (const std::string& wrong :
       {std::string(), plan.substr(1), plan.substr(0, plan.find(' ')) + "\n", kelt::modes::planOfTakingBack({"/other"}),
        std::string("copy=../../../etc/passwd 1 1.1\n")}) {
    putMark(wrong.empty() ? wrong : wrong.substr(0, wrong.find('\n') + 1));
    EXPECT_EQ(finish(), "");
    EXPECT_TRUE(exists(kFirst) && exists(kSecond) && exists(kInstalled + "/other")) << wrong;
    EXPECT_FALSE(exists(kMark));
  }
}

TEST_F(TakingBack, SaysWhichCopyCannotBeDeleted) {
  ASSERT_EQ(::unlink(kFirst.c_str()), 0);
  putDirectory(kFirst);
  putMark(kelt::modes::planOfTakingBack(kBoth));
  EXPECT_EQ(finish(), "");
  EXPECT_TRUE(exists(kFirst));
  EXPECT_FALSE(exists(kSecond) || exists(kMark));
  EXPECT_EQ(kelt::tests::errorsLogged(),
            Lines{"Left of an interrupted switch, not deleted: /opt/Quorvane/orv//reqseckey.bin"});
}

TEST_F(TakingBack, PlansNothingForWhatIsNotThere) {
  EXPECT_EQ(kelt::modes::planOfTakingBack({"/srpubkey.bin"}), "");
}

}  // namespace
